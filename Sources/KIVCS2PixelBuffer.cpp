// Pixel buffers: the rows of a picture and where they lie; Private/Pixels/ converts within a row.
#include "KIVCS2PixelBuffer.h"

#include "Private/Pixels/Levels.h"
#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPlatform.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace
{
using PixelBuffer = kiv::CFRef<CVPixelBufferRef>;

// fopen() for writing, closed on exec and never as a standard stream that the host has closed.
[[nodiscard]] std::FILE *create(const char *path)
{
    constexpr mode_t kAnyone = 0666; // less the process's mask
    const int descriptor =
        KIVPAboveStandardStreams(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kAnyone));
    std::FILE *const file = descriptor >= 0 ? fdopen(descriptor, "w") : nullptr;
    if (file == nullptr && descriptor >= 0)
        close(descriptor);
    return file;
}

// The rows of a buffer, locked during the lifetime of this object.
class LockedRows
{
public:
    explicit LockedRows(CVPixelBufferRef buffer) : m_buffer{buffer}
    {
        (void)CVPixelBufferLockBaseAddress(m_buffer, 0); // fails only without a buffer, which has no rows
        m_base = static_cast<uint8_t *>(CVPixelBufferGetBaseAddress(m_buffer));
        m_bytesPerRow = CVPixelBufferGetBytesPerRow(m_buffer);
    }
    ~LockedRows()
    {
        if (m_buffer != nullptr)
            (void)CVPixelBufferUnlockBaseAddress(m_buffer, 0);
    }
    LockedRows(const LockedRows &) = delete;
    LockedRows &operator=(const LockedRows &) = delete;

    [[nodiscard]] uint8_t *row(size_t index) const
    {
        return m_base + index * m_bytesPerRow;
    }
    [[nodiscard]] size_t bytesPerRow() const
    {
        return m_bytesPerRow;
    }
    void stayLocked()
    {
        m_buffer = nullptr;
    }

private:
    CVPixelBufferRef m_buffer;
    uint8_t *m_base;
    size_t m_bytesPerRow;
};

[[nodiscard]] KIVCS2Status createBuffer(size_t width, size_t height, OSType format, PixelBuffer &buffer)
{
    CVPixelBufferRef created = nullptr;
    if (CVPixelBufferCreate(kCFAllocatorDefault, width, height, format, nullptr, &created) !=
        kCVReturnSuccess)
        return KIVCS2STATUS_MEMORY_ERR;
    buffer = PixelBuffer{created};
    return KIVCS2STATUS_OK;
}

struct Conversion
{
    KIVCS2PixelBufferConvertMode mode;
    OSType from;
    OSType to;
    kiv::ConvertRow kiv::PixelRows::*row;
};

// Kept: pictures of every size are converted by the matrix of standard definition.
constexpr std::array kConversions = {
    Conversion{KIVCS2PixelBuffer_ConvertV210To2vuy, kCVPixelFormatType_422YpCbCr10,
               kCVPixelFormatType_422YpCbCr8, &kiv::PixelRows::v210To2vuy},
    Conversion{KIVCS2PixelBuffer_Convert2vuyToRGBA, kCVPixelFormatType_422YpCbCr8, kCVPixelFormatType_32ARGB,
               &kiv::PixelRows::toRGBA601},
};

using Pixel = uint8_t[4];

// Kept: cleared RGB has an alpha of 0, converted RGB of 255.
constexpr Pixel rgbaPixels[KIVCS2PixelBuffer_ClearMAX] = {
    {255, 255, 255, 0}, // white
    {0, 0, 0, 0},       // black
    {128, 128, 128, 0}, // grey
};

// Neutral chroma, then luma: the same for both pixels of a pair.
constexpr uint8_t yuvPixels[KIVCS2PixelBuffer_ClearMAX][2] = {
    {128, 235}, // white
    {128, 16},  // black
    {128, 128}, // grey
};

struct Sampling
{
    OSType from;
    OSType to;
    kiv::SampleRow kiv::PixelRows::*row;
};

constexpr std::array kSamplings = {
    Sampling{kCVPixelFormatType_32ARGB, kCVPixelFormatType_32ARGB, &kiv::PixelRows::sample32},
    Sampling{kCVPixelFormatType_422YpCbCr8, kCVPixelFormatType_24RGB, &kiv::PixelRows::sample2vuyTo24},
};

// The distance from one sample to the next, in 65536ths of a pixel.
uint64_t sampleStep(size_t sourceSize, uint32_t scaleSize)
{
    return static_cast<uint64_t>(static_cast<double>(sourceSize) * 65536.0 / scaleSize);
}
} // namespace

KIVCS2Status kivCS2PixelBuffer_convert(CVPixelBufferRef pixelBufferIn, CVPixelBufferRef *pixelBufferOut,
                                       KIVCS2PixelBufferConvertMode mode)
{
    KIV_CHECK(pixelBufferIn);
    KIV_CHECK(pixelBufferOut);

    const auto *conversion = std::ranges::find(kConversions, mode, &Conversion::mode);
    if (conversion == kConversions.end() ||
        CVPixelBufferGetPixelFormatType(pixelBufferIn) != conversion->from)
        return KIVCS2STATUS_PARAM_ERR;
    const size_t width = CVPixelBufferGetWidth(pixelBufferIn);
    const size_t height = CVPixelBufferGetHeight(pixelBufferIn);
    PixelBuffer converted;
    KIV_TRY(createBuffer(width, height, conversion->to, converted));

    const kiv::ConvertRow convertRow = kiv::pixelRows().*conversion->row;
    {
        const LockedRows from{pixelBufferIn};
        const LockedRows to{converted.get()};
        for (size_t row = 0; row < height; ++row)
            convertRow(from.row(row), to.row(row), width);
    }
    *pixelBufferOut = converted.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PixelBuffer_clear(CVPixelBufferRef pixelBufferIn, KIVCS2PixelBufferClearColour clearColour)
{
    KIV_CHECK(pixelBufferIn);
    KIV_CHECK(clearColour < KIVCS2PixelBuffer_ClearMAX);

    const OSType format = CVPixelBufferGetPixelFormatType(pixelBufferIn);
    const bool rgb = format == kCVPixelFormatType_32ARGB;
    if (!rgb && format != kCVPixelFormatType_422YpCbCr8)
        return KIVCS2STATUS_PIXEL_FORMAT_ERR;

    const size_t size = CVPixelBufferGetWidth(pixelBufferIn) * (rgb ? 4 : 2);
    const uint8_t(&yuv)[2] = yuvPixels[clearColour];
    const Pixel yuvTwice = {yuv[0], yuv[1], yuv[0], yuv[1]};
    const auto fill = kiv::pixelRows().fill;
    const LockedRows rows{pixelBufferIn};
    const size_t height = CVPixelBufferGetHeight(pixelBufferIn);
    const size_t atOnce =
        size == rows.bytesPerRow() ? height : 1; // rows without padding form one run of pixels
    for (size_t row = 0; row < height; row += atOnce)
        fill(rows.row(row), size * atOnce, rgb ? rgbaPixels[clearColour] : yuvTwice);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PixelBuffer_scale(CVPixelBufferRef pixelBufferIn, CVPixelBufferRef *pixelBufferOut,
                                     uint32_t scaleWidth, uint32_t scaleHeight)
{
    KIV_CHECK(pixelBufferIn);
    KIV_CHECK(pixelBufferOut);

    const size_t sourceWidth = CVPixelBufferGetWidth(pixelBufferIn);
    const size_t sourceHeight = CVPixelBufferGetHeight(pixelBufferIn);
    // Kept: equal sizes stop a build with assertions and pass without them.
    KIV_ASSERT(sourceWidth > scaleWidth);
    KIV_ASSERT(sourceHeight > scaleHeight);
    if (sourceWidth < scaleWidth || sourceHeight < scaleHeight)
        return KIVCS2STATUS_PARAM_ERR;

    LockedRows from{pixelBufferIn};
    const auto *sampling =
        std::ranges::find(kSamplings, CVPixelBufferGetPixelFormatType(pixelBufferIn), &Sampling::from);
    PixelBuffer scaled;
    const KIVCS2Status status = sampling == kSamplings.end()
                                    ? KIVCS2STATUS_PARAM_ERR
                                    : createBuffer(scaleWidth, scaleHeight, sampling->to, scaled);
    if (KIVCS2_FAILED(status))
    {
        from.stayLocked(); // Kept: these two failures leave the input locked
        return status;
    }

    const kiv::SampleRow sampleRow = kiv::pixelRows().*sampling->row;
    const uint64_t xStep = sampleStep(sourceWidth, scaleWidth);
    const uint64_t yStep = sampleStep(sourceHeight, scaleHeight);
    {
        const LockedRows to{scaled.get()};
        uint64_t y = 0;
        for (size_t row = 0; row < scaleHeight; ++row, y += yStep)
            sampleRow(from.row(y >> 16), sourceWidth, to.row(row), scaleWidth, 0, xStep);
    }
    *pixelBufferOut = scaled.release();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PixelBuffer_deinterlace(CVPixelBufferRef pixelBuffer)
{
    KIV_ASSERT(pixelBuffer); // Kept: without assertions a null buffer counts as one without lines

    const LockedRows rows{pixelBuffer};
    const size_t pairs = CVPixelBufferGetHeight(pixelBuffer) / 2;
    for (size_t pair = 0; pair < pairs; ++pair)
        std::memcpy(rows.row(2 * pair + 1), rows.row(2 * pair), rows.bytesPerRow());
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PixelBuffer_save(CVPixelBufferRef pixelBuffer, const char *path, bool)
{
    CVPixelBufferRef converted = nullptr;
    KIV_TRY(kivCS2PixelBuffer_convert(pixelBuffer, &converted, KIVCS2PixelBuffer_Convert2vuyToRGBA));

    const PixelBuffer owned{converted};
    // Kept: a file that cannot be opened or written is not reported.
    if (std::FILE *file = path != nullptr ? create(path) : nullptr; file != nullptr)
    {
        const LockedRows rows{converted};
        (void)std::fwrite(rows.row(0), rows.bytesPerRow(), CVPixelBufferGetHeight(converted), file);
        (void)std::fclose(file);
    }
    return KIVCS2STATUS_OK;
}
