// A picture in memory as the command draws and writes it.
#ifndef KIV_TOOL_PICTURE_H
#define KIV_TOOL_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tool
{

/// A view of pixels: 8 bits for each component, red first, rows from the top. Bytes of a row beyond its
/// pixels are never read.
struct PictureView
{
    const uint8_t *pixels = nullptr;
    uint32_t width = 0;    ///< pixels
    uint32_t height = 0;   ///< rows
    size_t rowBytes = 0;   ///< from one row to the next
    uint32_t channels = 3; ///< 3: RGB, 4: RGBA with an alpha that is not premultiplied

    [[nodiscard]] const uint8_t *at(size_t x, size_t y) const
    {
        return pixels + y * rowBytes + x * channels;
    }
};

/// An RGB picture with its own pixels, initially black.
class Picture
{
public:
    Picture(uint32_t width, uint32_t height)
        : m_width(width), m_height(height), m_pixels(size_t{3} * width * height)
    {
    }

    [[nodiscard]] uint8_t *at(size_t x, size_t y)
    {
        return m_pixels.data() + (y * m_width + x) * 3;
    }
    [[nodiscard]] PictureView view() const
    {
        return {m_pixels.data(), m_width, m_height, size_t{3} * m_width, 3};
    }
    [[nodiscard]] uint32_t width() const
    {
        return m_width;
    }
    [[nodiscard]] uint32_t height() const
    {
        return m_height;
    }

private:
    uint32_t m_width;
    uint32_t m_height;
    std::vector<uint8_t> m_pixels;
};

} // namespace tool

#endif
