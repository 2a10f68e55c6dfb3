// Reading, converting and writing raw frames through the library's pixel buffers.
#include "Pictures/RawFrames.h"

#include "CommandLine/Names.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace tool
{
namespace
{

// v210 rows are whole groups of 48 pixels, as in capture cards; all other rows have no gaps.
// clang-format off
constexpr std::array<PixelLayout, 7> kLayouts = {{
    {"v210", "4:2:2, 10 bits",            kCVPixelFormatType_422YpCbCr10,     6, 16, 128, {}},
    {"2vuy", "4:2:2, 8 bits, Cb Y Cr Y",  kCVPixelFormatType_422YpCbCr8,      2, 4,  1,   {}},
    {"yuvs", "4:2:2, 8 bits, Y Cb Y Cr",  kCVPixelFormatType_422YpCbCr8_yuvs, 2, 4,  1,   {}},
    {"rgba", "8 bits, R G B A",           kCVPixelFormatType_32ARGB,          1, 4,  1,   {0, 1, 2, 3}},
    {"bgra", "8 bits, B G R A",           kCVPixelFormatType_32ARGB,          1, 4,  1,   {2, 1, 0, 3}},
    {"argb", "8 bits, A R G B",           kCVPixelFormatType_32ARGB,          1, 4,  1,   {1, 2, 3, 0}},
    {"rgb",  "8 bits, R G B",             kCVPixelFormatType_24RGB,           1, 3,  1,   {0, 1, 2, 0}},
}};
// clang-format on

const PixelLayout &k2vuy = kLayouts[1];
const PixelLayout &kYuvs = kLayouts[2];
const PixelLayout &kRGBA = kLayouts[3];
const PixelLayout &kRGB = kLayouts[6];

// Calls `rowWork(from, to)` for every row of two pictures of one height.
template <typename Work>
void forEachRow(const Frame &from, const Frame &to, Work rowWork)
{
    const LockedPixels source{from.buffer.get()};
    const LockedPixels target{to.buffer.get()};
    for (size_t row = 0; row < from.height(); ++row)
        rowWork(source.row(row), target.row(row));
}

Frame convertedByLibrary(const Frame &frame, KIVCS2PixelBufferConvertMode mode, const PixelLayout &to)
{
    CVPixelBufferRef made = nullptr;
    check(kivCS2PixelBuffer_convert(frame.buffer.get(), &made, mode), "converting a frame");
    return {to, made};
}

// Swaps luma and chroma: '2vuy' to 'yuvs' and back.
Frame withSwappedBytes(const Frame &frame, const PixelLayout &to)
{
    Frame swapped{to, frame.width(), frame.height()};
    const size_t bytes = to.rowBytes(frame.width());
    forEachRow(frame, swapped,
               [bytes](const uint8_t *source, uint8_t *target)
               {
                   for (size_t byte = 0; byte < bytes; byte += 2)
                   {
                       target[byte] = source[byte + 1];
                       target[byte + 1] = source[byte];
                   }
               });
    return swapped;
}

// RGB to RGB; pixels without alpha become opaque.
Frame reordered(const Frame &frame, const PixelLayout &to)
{
    Frame result{to, frame.width(), frame.height()};
    const PixelLayout &from = *frame.pixels;
    const bool alphaIn = from.blockBytes == 4;
    const bool alphaOut = to.blockBytes == 4;
    forEachRow(frame, result,
               [&, width = frame.width()](const uint8_t *source, uint8_t *target)
               {
                   for (uint32_t x = 0; x < width; ++x, source += from.blockBytes, target += to.blockBytes)
                   {
                       for (size_t index = 0; index < 3; ++index)
                           target[to.component[index]] = source[from.component[index]];
                       if (alphaOut)
                           target[to.component[3]] = alphaIn ? source[from.component[3]] : 255;
                   }
               });
    return result;
}

// Adds a pair on the right with the chroma of the last one, with which the library averages the last pixel's
// chroma.
Frame withOnePairMore(const Frame &frame)
{
    const size_t bytes = k2vuy.rowBytes(frame.width());
    Frame wider{k2vuy, (frame.width() + 1) / 2 * 2 + 2, frame.height()};
    forEachRow(frame, wider,
               [bytes](const uint8_t *source, uint8_t *target)
               {
                   std::memcpy(target, source, bytes);
                   std::memcpy(target + bytes, source + bytes - 4, 4);
               });
    return wider;
}

// Video range to full range, the factors of BT.709 in 65536ths.
constexpr int32_t kLuma = 76309;     // 255 / 219
constexpr int32_t kRedOfCr = 117489; // 1.5748 * 255 / 224
constexpr int32_t kBlueOfCb = 138438;
constexpr int32_t kGreenOfCb = 13975;
constexpr int32_t kGreenOfCr = 34925;

void pixelByBT709(int32_t luma, int32_t blue, int32_t red, uint8_t *pixel)
{
    const auto limited = [](int32_t value)
    { return static_cast<uint8_t>(std::clamp((value + 32768) >> 16, 0, 255)); };
    const int32_t grey = (luma - 16) * kLuma;
    blue -= 128;
    red -= 128;
    pixel[0] = limited(grey + red * kRedOfCr);
    pixel[1] = limited(grey - blue * kGreenOfCb - red * kGreenOfCr);
    pixel[2] = limited(grey + blue * kBlueOfCb);
    pixel[3] = 255;
}

// Interpolates like the library's conversion for standard definition: a pixel between two chroma samples has
// their mean. The last pair is used only for that mean.
Frame convertedByBT709(const Frame &wider)
{
    Frame result{kRGBA, wider.width(), wider.height()};
    forEachRow(wider, result,
               [pairs = wider.width() / 2 - 1](const uint8_t *source, uint8_t *target)
               {
                   for (uint32_t pair = 0; pair < pairs; ++pair, source += 4, target += 8)
                   {
                       pixelByBT709(source[1], source[0], source[2], target);
                       pixelByBT709(source[3], (source[0] + source[4]) >> 1, (source[2] + source[6]) >> 1,
                                    target + 4);
                   }
               });
    return result;
}

Frame toLookAt(const Frame &frame, Matrix matrix, bool alpha)
{
    const PixelLayout &wanted = alpha ? kRGBA : kRGB;
    if (frame.pixels->isRGB())
        return reordered(frame, wanted);
    const Frame wider = withOnePairMore(converted(frame, k2vuy));
    const Frame colours = matrix == Matrix::BT601
                              ? convertedByLibrary(wider, KIVCS2PixelBuffer_Convert2vuyToRGBA, kRGBA)
                              : convertedByBT709(wider);
    return reordered(colours, wanted);
}

} // namespace

size_t PixelLayout::rowBytes(uint32_t width) const
{
    const size_t bytes = (size_t{width} + blockPixels - 1) / blockPixels * blockBytes;
    return (bytes + rowAlignment - 1) / rowAlignment * rowAlignment;
}

std::span<const PixelLayout> pixelLayouts()
{
    return kLayouts;
}

std::vector<std::string> pixelLayoutNames()
{
    std::vector<std::string> names;
    names.reserve(std::size(kLayouts));
    for (const PixelLayout &layout : kLayouts)
        names.emplace_back(layout.name);
    return names;
}

const PixelLayout &pixelLayout(std::string_view name)
{
    const Names names = pixelLayoutNames();
    if (const auto found = findName(names, name))
        return kLayouts[*found];
    std::string list;
    for (const std::string &known : names)
        list += (list.empty() ? "" : ", ") + known;
    throw Failure(kExitUsage,
                  "\"" + visible(name) + "\": not a pixel format; there are " + list + hint(names, name));
}

FrameLayout FrameLayout::in(const PixelLayout &other) const
{
    FrameLayout layout = *this;
    layout.pixels = &other;
    layout.rowBytes = other.rowBytes(width);
    return layout;
}

std::string FrameLayout::text() const
{
    return std::to_string(width) + " x " + std::to_string(height) + " " + std::string{pixels->name};
}

LockedPixels::LockedPixels(CVPixelBufferRef buffer) : m_buffer(buffer)
{
    (void)CVPixelBufferLockBaseAddress(m_buffer, 0); // fails only without a buffer
    m_base = static_cast<uint8_t *>(CVPixelBufferGetBaseAddress(m_buffer));
    m_rowBytes = CVPixelBufferGetBytesPerRow(m_buffer);
}

LockedPixels::~LockedPixels()
{
    (void)CVPixelBufferUnlockBaseAddress(m_buffer, 0);
}

Frame::Frame(const PixelLayout &layout, uint32_t width, uint32_t height) : Frame(layout)
{
    CVPixelBufferRef made = nullptr;
    if (CVPixelBufferCreate(nullptr, width, height, layout.type, nullptr, &made) != kCVReturnSuccess)
        throw std::bad_alloc{};
    buffer.reset(made);
}

Frame::Frame(const FrameLayout &layout, std::vector<uint8_t> &bytes) : Frame(*layout.pixels)
{
    CVPixelBufferRef made = nullptr;
    if (CVPixelBufferCreateWithBytes(nullptr, layout.width, layout.height, layout.pixels->type, bytes.data(),
                                     layout.rowBytes, nullptr, nullptr, nullptr, &made) != kCVReturnSuccess)
        throw std::bad_alloc{};
    buffer.reset(made);
}

std::string partOfFrame(uint64_t bytes, const FrameLayout &layout)
{
    const uint64_t whole = bytes / layout.frameBytes();
    const uint64_t more = bytes % layout.frameBytes();
    const std::string part = bytes == 0 ? "is empty"
                                        : "is " + (whole > 0 ? count(whole, "frame") + " and " : "") +
                                              count(more, "byte") + (whole > 0 ? " more" : "");
    return part + "; a frame of " + layout.text() + " is " + count(layout.frameBytes(), "byte");
}

FrameReader::FrameReader(const std::string &path, const FrameLayout &layout)
    : m_input(path), m_layout(layout), m_bytes(layout.frameBytes()), m_frame(layout, m_bytes)
{
    if (m_input.isRegularFile() && (m_input.size() == 0 || m_input.size() % layout.frameBytes() != 0))
        throw Failure(kExitMalformed, Where{m_input.name()}, partOfFrame(m_input.size(), layout));
}

Frame *FrameReader::next()
{
    const size_t filled = m_input.read(m_bytes);
    if (filled == m_bytes.size())
    {
        ++m_number;
        return &m_frame;
    }
    if (filled > 0 || m_number == 0)
        throw Failure(kExitMalformed, Where{m_input.name()}, partOfFrame(m_input.position(), m_layout));
    return nullptr;
}

void FrameReader::skip(uint64_t frames)
{
    if (m_input.isRegularFile())
    {
        m_number += m_input.skip(frames, m_layout.frameBytes());
        return;
    }
    while (frames > 0 && next() != nullptr)
        --frames;
}

FrameWriter::FrameWriter(const std::string &target) : m_toStandardOutput(target == "-")
{
    if (m_toStandardOutput && ::isatty(STDOUT_FILENO) != 0)
        throw Failure(kExitUsage, "standard output is a terminal; name a file for the frames");
    if (!target.empty() && !m_toStandardOutput)
        m_file.emplace(target);
}

void FrameWriter::write(const Frame &frame)
{
    ++m_frames;
    if (!m_toStandardOutput && !m_file)
        return;
    const LockedPixels pixels{frame.buffer.get()};
    const size_t bytes = frame.pixels->rowBytes(frame.width());
    for (size_t row = 0; row < frame.height(); ++row)
        if (m_file)
            m_file->write({pixels.row(row), bytes});
        else
            out().write({reinterpret_cast<const char *>(pixels.row(row)), bytes});
    if (m_toStandardOutput)
        out().flush(); // a reader may be waiting for the frame
}

void FrameWriter::commit()
{
    if (m_file)
        m_file->commit();
}

bool canConvert(const PixelLayout &from, const PixelLayout &to)
{
    return &from == &to || to.isRGB() || (!from.isRGB() && to.type != kCVPixelFormatType_422YpCbCr10);
}

Frame converted(const Frame &frame, const PixelLayout &to)
{
    const PixelLayout &from = *frame.pixels;
    if (&from == &to)
        return {to, CVPixelBufferRetain(frame.buffer.get())};
    if (from.isRGB())
        return reordered(frame, to);
    if (from.type == kCVPixelFormatType_422YpCbCr10)
    {
        return converted(convertedByLibrary(frame, KIVCS2PixelBuffer_ConvertV210To2vuy, k2vuy), to);
    }
    if (&from == &kYuvs)
        return converted(withSwappedBytes(frame, k2vuy), to);
    if (&to == &kYuvs)
        return withSwappedBytes(frame, to);
    return converted(convertedByLibrary(frame, KIVCS2PixelBuffer_Convert2vuyToRGBA, kRGBA), to);
}

FramePicture::FramePicture(const Frame &frame, Matrix matrix, bool alpha)
    : m_frame(toLookAt(frame, matrix, alpha)), m_pixels(m_frame.buffer.get()), m_width(frame.width())
{
}

PictureView FramePicture::view() const
{
    return {m_pixels.row(0), m_width, m_frame.height(), m_pixels.rowBytes(), m_frame.pixels->blockBytes};
}

} // namespace tool
