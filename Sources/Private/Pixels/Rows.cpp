// Rows of pixels without vectors.
#include "Private/Pixels/Rows.h"

#include "Private/Pixels/Colour.h"

#include <cstring>
#include <utility>

namespace
{
constexpr uint8_t kOpaque = 255;

using Order = kiv::PixelOrder;

template <const kiv::ColourMatrix &Matrix, Order Bytes>
void convertRow(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    const size_t size = width * 2;
    const auto byte = [from, size](size_t at)
    {
        return at < size ? from[at] : uint8_t{0}; // Kept: there is no chroma past the end of a line
    };
    const auto store = [to](size_t x, kiv::RGB pixel)
    {
        const bool redFirst = Bytes == Order::rgba;
        to[x * 4] = redFirst ? pixel.red : pixel.blue;
        to[x * 4 + 1] = pixel.green;
        to[x * 4 + 2] = redFirst ? pixel.blue : pixel.red;
        to[x * 4 + 3] = kOpaque;
    };
    uint8_t cb = byte(0);
    uint8_t luma = byte(1);
    uint8_t cr = byte(2);
    for (size_t x = 0; x < width; x += 2)
    {
        store(x, kiv::convertPixel(Matrix, luma, cb, cr));
        luma = byte(x * 2 + 3);
        const uint8_t nextCb = byte(x * 2 + 4);
        const uint8_t nextCr = byte(x * 2 + 6);
        store(x + 1, kiv::convertPixel(Matrix, luma, (cb + nextCb) >> 1, (cr + nextCr) >> 1));
        cb = nextCb;
        luma = byte(x * 2 + 5);
        cr = nextCr;
    }
    // Kept: the pixel past an odd width is not part of the picture, so its bytes are not put in order.
    if (Bytes == Order::rgba && width % 2 != 0)
        std::swap(to[width * 4], to[width * 4 + 2]);
}
} // namespace

void kiv::plain::v210To2vuy(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    const auto word = [&from]
    {
        const uint8_t *bytes = std::exchange(from, from + 4);
        return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
               static_cast<uint32_t>(bytes[3]) << 24;
    };
    // The upper 8 of each 10 bits; the two highest bits of the word belong to no component.
    const auto component = [](uint32_t bits, size_t index)
    { return static_cast<uint8_t>(bits >> (2 + 10 * index)); };
    size_t components = (width + 1) / 2 * 4;
    for (; components >= 3; components -= 3, to += 3)
    {
        const uint32_t bits = word();
        for (size_t index = 0; index < 3; ++index)
            to[index] = component(bits, index);
    }
    if (components == 0)
        return;
    const uint32_t bits = word();
    for (size_t index = 0; index < components; ++index)
        to[index] = component(bits, index);
}

void kiv::plain::sample32(const uint8_t *from, size_t, uint8_t *to, size_t count, uint64_t position,
                          uint64_t step) noexcept
{
    for (size_t x = 0; x < count; ++x, position += step)
        std::memcpy(to + x * 4, from + (position >> 16) * 4, 4);
}

void kiv::plain::sample2vuyTo24(const uint8_t *from, size_t width, uint8_t *to, size_t count,
                                uint64_t position, uint64_t step) noexcept
{
    for (size_t x = 0; x < count; ++x, position += step, to += 3)
    {
        uint8_t pixel[4];
        ConvertPixeltoRGB(from, pixel, position >> 16, width, true);
        to[0] = pixel[2];
        to[1] = pixel[1];
        to[2] = pixel[0];
    }
}

void kiv::plain::fill(uint8_t *to, size_t size, const uint8_t (&pattern)[4]) noexcept
{
    size_t at = 0;
    for (; at + sizeof pattern <= size; at += sizeof pattern)
        std::memcpy(to + at, pattern, sizeof pattern);
    std::memcpy(to + at, pattern, size - at);
}

constexpr kiv::PixelRows kiv::kPixelRowsPortable{
    .toBGRA601 = convertRow<kMatrix601, Order::bgra>,
    .toBGRA709 = convertRow<kMatrix709, Order::bgra>,
    .toRGBA601 = convertRow<kMatrix601, Order::rgba>,
    .v210To2vuy = plain::v210To2vuy,
    .sample32 = plain::sample32,
    .sample2vuyTo24 = plain::sample2vuyTo24,
    .fill = plain::fill,
};
