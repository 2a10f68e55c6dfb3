// Every operation on a buffer in memory of any alignment, width, height and stride, compared with the rows
// without vectors. Ten bytes choose the operation and the buffer; the bytes after them are the pixels,
// repeated.
#include "Require.h"

#include "KIVCS2PixelBuffer.h"

#include "Private/Pixels/Levels.h"

#include <KIVPlatform/KIVPPixelBuffer.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace
{
constexpr size_t kHeader = 10;
constexpr size_t kMaxWidth = 400; // several blocks of the widest vectors
constexpr size_t kMaxHeight = 6;
constexpr size_t kMaxAlignment = 64;

using Bytes = std::vector<uint8_t>;

struct Format
{
    OSType type;
    size_t blockPixels;
    size_t blockBytes;
};

constexpr std::array kFormats = {
    Format{kCVPixelFormatType_422YpCbCr8, 2, 4}, Format{kCVPixelFormatType_422YpCbCr10, 6, 16},
    Format{kCVPixelFormatType_32ARGB, 1, 4},     Format{kCVPixelFormatType_24RGB, 1, 3},
    Format{kCVPixelFormatType_32BGRA, 1, 4},
};

size_t number(const uint8_t *bytes)
{
    return bytes[0] | static_cast<size_t>(bytes[1]) << 8;
}

const kiv::PixelRows &plainRows()
{
    return kiv::pixelRows(kiv::CpuLevel::portable);
}

// The picture under test. Its memory ends with its last row, so that AddressSanitizer detects an access past
// it.
class Picture
{
public:
    Picture(const uint8_t *data, size_t size)
        : format{kFormats[data[1] % kFormats.size()]}, width{1 + number(data + 2) % kMaxWidth},
          height{1 + data[4] % kMaxHeight}, stride{(width + format.blockPixels - 1) / format.blockPixels *
                                                       format.blockBytes +
                                                   data[5]},
          m_alignment{data[6] % kMaxAlignment}, m_memory(m_alignment + stride * height)
    {
        m_memory.shrink_to_fit();
        for (size_t at = 0; at < m_memory.size(); ++at)
            m_memory[at] = static_cast<uint8_t>(size == kHeader ? at : data[kHeader + at % (size - kHeader)]);
        require(CVPixelBufferCreateWithBytes(nullptr, width, height, format.type, row(0), stride, nullptr,
                                             nullptr, nullptr, &buffer) == kCVReturnSuccess);
    }
    ~Picture()
    {
        require(locks() == 0 && CFGetRetainCount(buffer) == 1);
        CVPixelBufferRelease(buffer);
    }
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;

    [[nodiscard]] uint8_t *row(size_t index)
    {
        return m_memory.data() + m_alignment + index * stride;
    }
    [[nodiscard]] Bytes all() const
    {
        return m_memory;
    }
    [[nodiscard]] size_t start() const
    {
        return m_alignment;
    }
    [[nodiscard]] size_t locks() const
    {
        return KIVPPixelBufferGetLockCount(buffer);
    }

    Format format;
    size_t width;
    size_t height;
    size_t stride;
    CVPixelBufferRef buffer = nullptr;

private:
    size_t m_alignment;
    Bytes m_memory;
};

// A buffer that an operation made. The expected bytes of each row are compared; the rest is zero.
class Made
{
public:
    Made(CVPixelBufferRef buffer, size_t width, size_t height, OSType format) : m_buffer{buffer}
    {
        require(buffer != nullptr && CVPixelBufferGetPixelFormatType(buffer) == format);
        require(CVPixelBufferGetWidth(buffer) == width && CVPixelBufferGetHeight(buffer) == height);
        require(KIVPPixelBufferGetLockCount(buffer) == 0);
        CVPixelBufferLockBaseAddress(buffer, 0);
    }
    ~Made()
    {
        CVPixelBufferRelease(m_buffer);
    }
    Made(const Made &) = delete;
    Made &operator=(const Made &) = delete;

    void expectRow(size_t index, const Bytes &expected) const
    {
        const size_t stride = CVPixelBufferGetBytesPerRow(m_buffer);
        const auto *row =
            static_cast<const uint8_t *>(CVPixelBufferGetBaseAddress(m_buffer)) + index * stride;
        require(expected.size() <= stride && std::equal(expected.begin(), expected.end(), row));
        require(std::all_of(row + expected.size(), row + stride, [](uint8_t byte) { return byte == 0; }));
    }

private:
    CVPixelBufferRef m_buffer;
};

void convert(Picture &picture, uint32_t mode)
{
    CVPixelBufferRef out = picture.buffer;
    const KIVCS2Status status = kivCS2PixelBuffer_convert(picture.buffer, &out, mode);
    const bool toRGBA = mode == KIVCS2PixelBuffer_Convert2vuyToRGBA;
    const OSType wanted = toRGBA ? kCVPixelFormatType_422YpCbCr8 : kCVPixelFormatType_422YpCbCr10;
    if ((!toRGBA && mode != KIVCS2PixelBuffer_ConvertV210To2vuy) || picture.format.type != wanted)
    {
        require(status == KIVCS2STATUS_PARAM_ERR && out == picture.buffer);
        return;
    }
    require(status == KIVCS2STATUS_OK);
    const Made made{out, picture.width, picture.height,
                    OSType{toRGBA ? kCVPixelFormatType_32ARGB : kCVPixelFormatType_422YpCbCr8}};
    Bytes expected((picture.width + 1) / 2 * (toRGBA ? 8 : 4));
    for (size_t row = 0; row < picture.height; ++row)
    {
        (toRGBA ? plainRows().toRGBA601 : plainRows().v210To2vuy)(picture.row(row), expected.data(),
                                                                  picture.width);
        made.expectRow(row, expected);
    }
}

void clear(Picture &picture, uint32_t colour)
{
    const bool rgb = picture.format.type == kCVPixelFormatType_32ARGB;
    Bytes expected = picture.all();
    const KIVCS2Status status = kivCS2PixelBuffer_clear(picture.buffer, colour);
    if (!rgb && picture.format.type != kCVPixelFormatType_422YpCbCr8)
        require(status == KIVCS2STATUS_PIXEL_FORMAT_ERR);
    else
    {
        constexpr uint8_t kGrey[] = {255, 0, 128};
        constexpr uint8_t kLuma[] = {235, 16, 128};
        require(status == KIVCS2STATUS_OK);
        for (size_t row = 0; row < picture.height; ++row)
            for (size_t at = 0; at < picture.width * (rgb ? 4 : 2); ++at)
                expected[picture.start() + row * picture.stride + at] =
                    rgb ? (at % 4 == 3 ? uint8_t{0} : kGrey[colour])
                        : (at % 2 == 0 ? uint8_t{128} : kLuma[colour]);
    }
    require(picture.all() == expected);
}

void scale(Picture &picture, uint32_t width, uint32_t height)
{
    const bool video = picture.format.type == kCVPixelFormatType_422YpCbCr8;
    CVPixelBufferRef out = nullptr;
    const KIVCS2Status status = kivCS2PixelBuffer_scale(picture.buffer, &out, width, height);
    if ((!video && picture.format.type != kCVPixelFormatType_32ARGB) || width == 0 || height == 0)
    {
        require(KIVCS2_FAILED(status) && out == nullptr && picture.locks() == 1);
        CVPixelBufferUnlockBaseAddress(picture.buffer, 0);
        return;
    }
    require(status == KIVCS2STATUS_OK);
    const Made made{out, width, height, OSType{video ? kCVPixelFormatType_24RGB : kCVPixelFormatType_32ARGB}};
    Bytes expected(width * (video ? size_t{3} : size_t{4}));
    const size_t yStep = picture.height * 65536 / height;
    for (size_t row = 0; row < height; ++row)
    {
        (video ? plainRows().sample2vuyTo24 : plainRows().sample32)(picture.row(row * yStep / 65536),
                                                                    picture.width, expected.data(), width, 0,
                                                                    picture.width * 65536 / width);
        made.expectRow(row, expected);
    }
}

void deinterlace(Picture &picture)
{
    Bytes expected = picture.all();
    for (size_t row = 0; row + 1 < picture.height; row += 2)
        std::copy_n(expected.begin() + static_cast<ptrdiff_t>(picture.start() + row * picture.stride),
                    picture.stride,
                    expected.begin() + static_cast<ptrdiff_t>(picture.start() + (row + 1) * picture.stride));
    require(kivCS2PixelBuffer_deinterlace(picture.buffer) == KIVCS2STATUS_OK);
    require(picture.all() == expected);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < kHeader)
        return 0;
    Picture picture{data, size};
    const auto choice = static_cast<uint32_t>(number(data + 7));
    switch (data[0] % 4)
    {
    case 0:
        convert(picture, choice % 4);
        break;
    case 1:
        clear(picture, choice % KIVCS2PixelBuffer_ClearMAX);
        break;
    case 2: // smaller than the source, which assertions require
        scale(picture, choice % static_cast<uint32_t>(picture.width),
              data[9] % static_cast<uint32_t>(picture.height));
        break;
    default:
        deinterlace(picture);
    }
    return 0;
}
