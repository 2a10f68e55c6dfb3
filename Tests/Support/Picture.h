// A pixel buffer under test: made, filled and read, with its locks.
#ifndef KIV_TEST_PICTURE_H
#define KIV_TEST_PICTURE_H

#include <KIVPlatform/KIVPPixelBuffer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace kiv::test
{
using Bytes = std::vector<uint8_t>;

inline Bytes randomBytes(size_t size, unsigned seed)
{
    std::mt19937 random{seed};
    Bytes bytes(size);
    std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(random()); });
    return bytes;
}

class Picture
{
public:
    Picture() = default;
    Picture(size_t width, size_t height, OSType format)
    {
        EXPECT_EQ(CVPixelBufferCreate(nullptr, width, height, format, nullptr, &m_buffer), kCVReturnSuccess);
    }
    // Sets one line of pixels, but not its padding.
    Picture(size_t width, OSType format, const Bytes &line) : Picture{width, 1, format}
    {
        set(0, line);
    }
    ~Picture()
    {
        EXPECT_EQ(locks(), 0u);
        CVPixelBufferRelease(m_buffer);
    }
    Picture(const Picture &) = delete;
    Picture &operator=(const Picture &) = delete;

    [[nodiscard]] CVPixelBufferRef get() const
    {
        return m_buffer;
    }
    // Receives the buffer of an operation that makes it.
    [[nodiscard]] CVPixelBufferRef *out()
    {
        CVPixelBufferRelease(std::exchange(m_buffer, nullptr));
        return &m_buffer;
    }
    [[nodiscard]] size_t stride() const
    {
        return CVPixelBufferGetBytesPerRow(m_buffer);
    }
    [[nodiscard]] size_t locks() const
    {
        return KIVPPixelBufferGetLockCount(m_buffer);
    }
    void unlock() const
    {
        EXPECT_EQ(CVPixelBufferUnlockBaseAddress(m_buffer, 0), kCVReturnSuccess);
    }
    void set(size_t row, const Bytes &bytes) const
    {
        EXPECT_LE(bytes.size(), stride());
        EXPECT_EQ(CVPixelBufferLockBaseAddress(m_buffer, 0), kCVReturnSuccess);
        std::ranges::copy(bytes, base() + row * stride());
        unlock();
    }
    // The first bytes of a row.
    [[nodiscard]] Bytes row(size_t row, size_t size) const
    {
        EXPECT_EQ(CVPixelBufferLockBaseAddress(m_buffer, kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
        const uint8_t *from = base() + row * stride();
        Bytes bytes{from, from + size};
        EXPECT_EQ(CVPixelBufferUnlockBaseAddress(m_buffer, kCVPixelBufferLock_ReadOnly), kCVReturnSuccess);
        return bytes;
    }

private:
    [[nodiscard]] uint8_t *base() const
    {
        return static_cast<uint8_t *>(CVPixelBufferGetBaseAddress(m_buffer));
    }

    CVPixelBufferRef m_buffer = nullptr;
};
} // namespace kiv::test

#endif
