// Pixel buffers: one heap block holds the record and its rows, or only the record if the caller has the rows.
#include <CoreVideo/CVPixelBuffer.h>

#include <KIVPlatform/KIVPPixelBuffer.h>

#include "CoreFoundation/Object.h"

#include <algorithm>
#include <array>
#include <cstring>

struct __CVBuffer : kiv::cf::Object
{
    __CVBuffer(size_t pixels, size_t lines, OSType format, size_t stride) noexcept;

    size_t width;
    size_t height;
    OSType pixelFormat;
    size_t bytesPerRow;
    UInt8 *base = nullptr;
    std::atomic<size_t> locks{0};
    CVPixelBufferReleaseBytesCallback releaseBytes = nullptr;
    void *releaseContext = nullptr;
};

namespace
{
constexpr size_t kRowAlignment = 64; // a cache line, and the widest vector

// Pixels come in blocks that are never split: two pixels share their chroma, six pixels of v210 four words.
struct Format
{
    OSType type;
    size_t blockPixels;
    size_t blockBytes;
    size_t rowAlignment; // bytes
};

constexpr std::array kFormats = {
    Format{kCVPixelFormatType_24RGB, 1, 3, kRowAlignment},
    Format{kCVPixelFormatType_32ARGB, 1, 4, kRowAlignment},
    Format{kCVPixelFormatType_32BGRA, 1, 4, kRowAlignment},
    Format{kCVPixelFormatType_422YpCbCr8, 2, 4, kRowAlignment},
    Format{kCVPixelFormatType_422YpCbCr8_yuvs, 2, 4, kRowAlignment},
    Format{kCVPixelFormatType_422YpCbCr10, 6, 16, 128}, // 48 pixels, as capture cards need
};

struct Rows
{
    const Format *format;
    size_t used; // bytes that the pixels of a row take, in whole blocks
};

CVReturn measureRows(size_t width, size_t height, OSType type, Rows &rows) noexcept
{
    const auto *format = std::ranges::find(kFormats, type, &Format::type);
    if (format == kFormats.end())
        return kCVReturnInvalidPixelFormat;
    rows.format = format;
    const size_t blocks = width / format->blockPixels + (width % format->blockPixels != 0 ? 1 : 0);
    if (width == 0 || height == 0 || __builtin_mul_overflow(blocks, format->blockBytes, &rows.used))
        return kCVReturnInvalidSize;
    return kCVReturnSuccess;
}

void finalizeBuffer(kiv::cf::Object &object)
{
    const auto &buffer = static_cast<const __CVBuffer &>(object);
    if (buffer.releaseBytes != nullptr)
        buffer.releaseBytes(buffer.releaseContext, buffer.base);
}

constexpr kiv::cf::Type kPixelBufferType{kiv::cf::kTypePixelBuffer, finalizeBuffer, nullptr, nullptr};
} // namespace

__CVBuffer::__CVBuffer(size_t pixels, size_t lines, OSType format, size_t stride) noexcept
    : Object{kPixelBufferType}, width{pixels}, height{lines}, pixelFormat{format}, bytesPerRow{stride}
{
}

CFTypeID CVPixelBufferGetTypeID(void)
{
    return kiv::cf::kTypePixelBuffer;
}

CVReturn CVPixelBufferCreate(CFAllocatorRef, size_t width, size_t height, OSType pixelFormatType,
                             CFDictionaryRef, CVPixelBufferRef *pixelBufferOut)
{
    if (pixelBufferOut == nullptr)
        return kCVReturnInvalidArgument;
    *pixelBufferOut = nullptr;
    Rows rows{};
    if (const CVReturn result = measureRows(width, height, pixelFormatType, rows); result != kCVReturnSuccess)
        return result;

    size_t bytesPerRow = 0;
    size_t size = 0;
    if (__builtin_add_overflow(rows.used, rows.format->rowAlignment - 1, &bytesPerRow))
        return kCVReturnInvalidSize;
    bytesPerRow -= bytesPerRow % rows.format->rowAlignment;
    if (__builtin_mul_overflow(bytesPerRow, height, &size) ||
        __builtin_add_overflow(size, kRowAlignment - 1, &size))
        return kCVReturnInvalidSize;

    auto *buffer = kiv::cf::create<__CVBuffer>(size, width, height, pixelFormatType, bytesPerRow);
    if (buffer == nullptr)
        return kCVReturnAllocationFailed;
    auto *behind = reinterpret_cast<UInt8 *>(buffer + 1);
    buffer->base = behind + (-reinterpret_cast<uintptr_t>(behind)) % kRowAlignment;
    // Callers write whole buffers to files, so the padding must not hold old heap contents.
    for (size_t row = 0; rows.used < bytesPerRow && row < height; ++row)
        std::memset(buffer->base + row * bytesPerRow + rows.used, 0, bytesPerRow - rows.used);
    *pixelBufferOut = buffer;
    return kCVReturnSuccess;
}

CVReturn CVPixelBufferCreateWithBytes(CFAllocatorRef, size_t width, size_t height, OSType pixelFormatType,
                                      void *baseAddress, size_t bytesPerRow,
                                      CVPixelBufferReleaseBytesCallback releaseCallback, void *releaseRefCon,
                                      CFDictionaryRef, CVPixelBufferRef *pixelBufferOut)
{
    if (pixelBufferOut == nullptr)
        return kCVReturnInvalidArgument;
    *pixelBufferOut = nullptr;
    Rows rows{};
    if (const CVReturn result = measureRows(width, height, pixelFormatType, rows); result != kCVReturnSuccess)
        return result;

    size_t size = 0;
    if (__builtin_mul_overflow(bytesPerRow, height, &size))
        return kCVReturnInvalidSize;
    if (baseAddress == nullptr || bytesPerRow < rows.used)
        return kCVReturnInvalidArgument;

    auto *buffer = kiv::cf::create<__CVBuffer>(0, width, height, pixelFormatType, bytesPerRow);
    if (buffer == nullptr)
        return kCVReturnAllocationFailed;
    buffer->base = static_cast<UInt8 *>(baseAddress);
    buffer->releaseBytes = releaseCallback;
    buffer->releaseContext = releaseRefCon;
    *pixelBufferOut = buffer;
    return kCVReturnSuccess;
}

CVPixelBufferRef CVPixelBufferRetain(CVPixelBufferRef texture)
{
    if (texture != nullptr)
        CFRetain(texture);
    return texture;
}

void CVPixelBufferRelease(CVPixelBufferRef texture)
{
    kiv::cf::releaseIfAny(texture);
}

CVReturn CVPixelBufferLockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags)
{
    if (pixelBuffer == nullptr)
        return kCVReturnInvalidArgument;
    pixelBuffer->locks.fetch_add(1, std::memory_order_relaxed);
    return kCVReturnSuccess;
}

CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBufferRef pixelBuffer, CVPixelBufferLockFlags)
{
    if (pixelBuffer == nullptr)
        return kCVReturnInvalidArgument;
    size_t held = pixelBuffer->locks.load(std::memory_order_relaxed);
    do
    {
        if (held == 0)
            return kCVReturnError;
    } while (!pixelBuffer->locks.compare_exchange_weak(held, held - 1, std::memory_order_relaxed));
    return kCVReturnSuccess;
}

size_t CVPixelBufferGetWidth(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer != nullptr ? pixelBuffer->width : 0;
}

size_t CVPixelBufferGetHeight(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer != nullptr ? pixelBuffer->height : 0;
}

OSType CVPixelBufferGetPixelFormatType(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer != nullptr ? pixelBuffer->pixelFormat : 0;
}

void *CVPixelBufferGetBaseAddress(CVPixelBufferRef pixelBuffer)
{
    return KIVPPixelBufferGetLockCount(pixelBuffer) != 0 ? pixelBuffer->base : nullptr;
}

size_t CVPixelBufferGetBytesPerRow(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer != nullptr ? pixelBuffer->bytesPerRow : 0;
}

size_t KIVPPixelBufferGetLockCount(CVPixelBufferRef pixelBuffer)
{
    return pixelBuffer != nullptr ? pixelBuffer->locks.load(std::memory_order_relaxed) : 0;
}
