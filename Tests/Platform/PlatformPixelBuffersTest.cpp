// Pixel buffers: the places of rows, refusals, references, locks, and memory of the caller.
#include <CoreVideo/CoreVideo.h>
#include <KIVPlatform/KIVPPixelBuffer.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>
#include <tuple>
#include <utility>

namespace
{
constexpr size_t kHuge = std::numeric_limits<size_t>::max();

TEST(PixelBuffers, RowsStandAtMultiplesOf64Bytes)
{
    using Case = std::tuple<OSType, size_t, size_t, size_t>;
    for (const auto &[format, width, bytesPerRow, used] :
         {Case{kCVPixelFormatType_32ARGB, 1, 64, 4}, Case{kCVPixelFormatType_32ARGB, 16, 64, 64},
          Case{kCVPixelFormatType_32ARGB, 1920, 7680, 7680}, Case{kCVPixelFormatType_32BGRA, 17, 128, 68},
          Case{kCVPixelFormatType_24RGB, 22, 128, 66}, Case{kCVPixelFormatType_422YpCbCr8, 31, 64, 64},
          Case{kCVPixelFormatType_422YpCbCr8, 33, 128, 68},
          Case{kCVPixelFormatType_422YpCbCr8_yuvs, 33, 128, 68},
          Case{kCVPixelFormatType_422YpCbCr10, 1, 128, 16},
          Case{kCVPixelFormatType_422YpCbCr10, 720, 1920, 1920},
          Case{kCVPixelFormatType_422YpCbCr10, 1280, 3456, 3424}})
    {
        CVPixelBufferRef buffer = nullptr;
        ASSERT_EQ(CVPixelBufferCreate(nullptr, width, 3, format, nullptr, &buffer), kCVReturnSuccess);
        EXPECT_EQ(CVPixelBufferGetBytesPerRow(buffer), bytesPerRow) << format << ", " << width;
        EXPECT_EQ(CVPixelBufferGetWidth(buffer), width);
        EXPECT_EQ(CVPixelBufferGetHeight(buffer), 3u);
        EXPECT_EQ(CVPixelBufferGetPixelFormatType(buffer), format);
        EXPECT_EQ(CFGetTypeID(buffer), CVPixelBufferGetTypeID());
        ASSERT_EQ(CVPixelBufferLockBaseAddress(buffer, 0), kCVReturnSuccess);
        auto *base = static_cast<uint8_t *>(CVPixelBufferGetBaseAddress(buffer));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(base) % 64, 0u);
        for (size_t row = 0; row < 3; ++row)
        {
            for (size_t at = used; at < bytesPerRow; ++at)
                EXPECT_EQ(base[row * bytesPerRow + at], 0);
            std::memset(base + row * bytesPerRow, 0xFF, bytesPerRow); // all of the row belongs to the buffer
        }
        CVPixelBufferRelease(buffer);
    }
}

TEST(PixelBuffers, WhatCannotBeMadeIsRefused)
{
    using Case = std::tuple<size_t, size_t, OSType, CVReturn>;
    for (const auto &[width, height, format, result] :
         {Case{0, 1, kCVPixelFormatType_32ARGB, kCVReturnInvalidSize},
          Case{1, 0, kCVPixelFormatType_32ARGB, kCVReturnInvalidSize},
          Case{kHuge, 1, kCVPixelFormatType_32ARGB, kCVReturnInvalidSize},
          Case{kHuge, 1, kCVPixelFormatType_422YpCbCr10, kCVReturnInvalidSize},
          Case{kHuge / 4, 1, kCVPixelFormatType_32ARGB, kCVReturnInvalidSize},
          Case{1, kHuge / 64 + 1, kCVPixelFormatType_32ARGB, kCVReturnInvalidSize},
          Case{1, kHuge / 128, kCVPixelFormatType_32ARGB, kCVReturnAllocationFailed},
          Case{4, 4, 'y' << 24 | '4' << 16 | '2' << 8 | '0', kCVReturnInvalidPixelFormat}})
    {
        int standIn = 0;
        auto *buffer = reinterpret_cast<CVPixelBufferRef>(&standIn);
        EXPECT_EQ(CVPixelBufferCreate(nullptr, width, height, format, nullptr, &buffer), result)
            << width << " x " << height;
        EXPECT_EQ(buffer, nullptr);
    }
    EXPECT_EQ(CVPixelBufferCreate(nullptr, 1, 1, kCVPixelFormatType_32ARGB, nullptr, nullptr),
              kCVReturnInvalidArgument);
}

TEST(PixelBuffers, LocksAreCountedAndTheAddressStandsWhileThereIsOne)
{
    CVPixelBufferRef buffer = nullptr;
    ASSERT_EQ(CVPixelBufferCreate(nullptr, 2, 2, kCVPixelFormatType_32ARGB, nullptr, &buffer),
              kCVReturnSuccess);
    EXPECT_EQ(CVPixelBufferGetBaseAddress(buffer), nullptr);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(buffer, 0), kCVReturnError);
    constexpr size_t kLocks = 1000;
    {
        std::array<std::jthread, 2> threads;
        for (std::jthread &thread : threads)
            thread = std::jthread{[buffer]
                                  {
                                      for (size_t lock = 0; lock < kLocks; ++lock)
                                      {
                                          CVPixelBufferLockBaseAddress(buffer, 0);
                                          CVPixelBufferLockBaseAddress(buffer, 0);
                                          CVPixelBufferUnlockBaseAddress(buffer, 0);
                                      }
                                  }};
    }
    EXPECT_EQ(KIVPPixelBufferGetLockCount(buffer), 2 * kLocks);
    EXPECT_NE(CVPixelBufferGetBaseAddress(buffer), nullptr);
    CVPixelBufferRelease(buffer);
}

TEST(PixelBuffers, TheCallersMemoryIsGivenBackOnceByTheLastReference)
{
    std::array<uint8_t, 42> memory{};
    std::pair<size_t, const void *> given{0, nullptr};
    const auto release = [](void *context, const void *bytes)
    {
        auto &result = *static_cast<std::pair<size_t, const void *> *>(context);
        result = {result.first + 1, bytes};
    };
    const auto create = [&](void *base, size_t bytesPerRow, OSType format, CVPixelBufferRef *out)
    {
        return CVPixelBufferCreateWithBytes(nullptr, 5, 2, format, base, bytesPerRow, release, &given,
                                            nullptr, out);
    };
    CVPixelBufferRef buffer = nullptr;
    EXPECT_EQ(create(nullptr, 21, kCVPixelFormatType_32ARGB, &buffer), kCVReturnInvalidArgument);
    EXPECT_EQ(create(memory.data(), 19, kCVPixelFormatType_32ARGB, &buffer), kCVReturnInvalidArgument);
    EXPECT_EQ(create(memory.data(), 11, kCVPixelFormatType_422YpCbCr8, &buffer), kCVReturnInvalidArgument);
    EXPECT_EQ(create(memory.data(), 15, kCVPixelFormatType_422YpCbCr10, &buffer), kCVReturnInvalidArgument);
    EXPECT_EQ(create(memory.data(), kHuge, kCVPixelFormatType_32ARGB, &buffer), kCVReturnInvalidSize);
    EXPECT_EQ(create(memory.data(), 21, 0, &buffer), kCVReturnInvalidPixelFormat);
    EXPECT_EQ(create(memory.data(), 21, kCVPixelFormatType_32ARGB, nullptr), kCVReturnInvalidArgument);
    EXPECT_EQ(given.first, 0u);

    ASSERT_EQ(create(memory.data() + 1, 20, kCVPixelFormatType_32ARGB, &buffer), kCVReturnSuccess);
    EXPECT_EQ(CVPixelBufferRetain(buffer), buffer);
    CVPixelBufferLockBaseAddress(buffer, 0);
    EXPECT_EQ(CVPixelBufferGetBaseAddress(buffer), memory.data() + 1);
    EXPECT_EQ(CVPixelBufferGetBytesPerRow(buffer), 20u);
    CVPixelBufferRelease(buffer);
    EXPECT_EQ(given.first, 0u);
    CVPixelBufferRelease(buffer);
    EXPECT_EQ(given, std::pair(size_t{1}, static_cast<const void *>(memory.data() + 1)));
}

TEST(PixelBuffers, NoBufferIsAnswered)
{
    EXPECT_EQ(CVPixelBufferRetain(nullptr), nullptr);
    CVPixelBufferRelease(nullptr);
    EXPECT_EQ(CVPixelBufferLockBaseAddress(nullptr, 0), kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferUnlockBaseAddress(nullptr, 0), kCVReturnInvalidArgument);
    EXPECT_EQ(CVPixelBufferGetBaseAddress(nullptr), nullptr);
    EXPECT_EQ(CVPixelBufferGetWidth(nullptr) + CVPixelBufferGetHeight(nullptr) +
                  CVPixelBufferGetBytesPerRow(nullptr) + CVPixelBufferGetPixelFormatType(nullptr) +
                  KIVPPixelBufferGetLockCount(nullptr),
              0u);
}
} // namespace
