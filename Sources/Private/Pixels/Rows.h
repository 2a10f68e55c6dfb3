// The operations on a row of pixels, and their portable form. A kernel reads only the pixels it is given and
// writes only the bytes it names; rows need no alignment.
#ifndef KIV_PRIVATE_PIXELS_ROWS_H
#define KIV_PRIVATE_PIXELS_ROWS_H

#include <cstddef>
#include <cstdint>

namespace kiv
{
using ConvertRow = void (*)(const uint8_t *from, uint8_t *to, size_t width) noexcept;
// Takes `count` pixels, at `position` and every `step` from there, in 65536ths of a pixel; all are within the
// `width` pixels.
using SampleRow = void (*)(const uint8_t *from, size_t width, uint8_t *to, size_t count, uint64_t position,
                           uint64_t step) noexcept;

struct PixelRows
{
    ConvertRow toBGRA601; // '2vuy' as ConvertPixeltoRGB(): an even number of pixels of 4 bytes
    ConvertRow toBGRA709; //
    ConvertRow toRGBA601; // the same with red in front; the extra pixel of an odd width stays as B, G, R, 255
    ConvertRow v210To2vuy;    // whole pairs
    SampleRow sample32;       // pixels of 4 bytes, copied
    SampleRow sample2vuyTo24; // '2vuy' as ConvertPixeltoRGB() into R, G, B
    // Repeats the bytes of the pattern, `size` bytes in all.
    void (*fill)(uint8_t *to, size_t size, const uint8_t (&pattern)[4]) noexcept;
};

// The order of a converted pixel's bytes.
enum class PixelOrder
{
    bgra,
    rgba
};

// The rows without vectors, which also convert the rest at the end of a line.
namespace plain
{
void v210To2vuy(const uint8_t *from, uint8_t *to, size_t width) noexcept;
void sample32(const uint8_t *from, size_t width, uint8_t *to, size_t count, uint64_t position,
              uint64_t step) noexcept;
void sample2vuyTo24(const uint8_t *from, size_t width, uint8_t *to, size_t count, uint64_t position,
                    uint64_t step) noexcept;
void fill(uint8_t *to, size_t size, const uint8_t (&pattern)[4]) noexcept;
} // namespace plain

// The level of a machine without vectors.
extern const PixelRows kPixelRowsPortable;
} // namespace kiv

#endif
