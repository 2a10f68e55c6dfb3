// Colour conversion of single pixels.
#include "Private/Pixels/Colour.h"

namespace
{
constexpr uint8_t kOpaque = 255;

void convert(const kiv::ColourMatrix &matrix, const uint8_t *workPixel, uint8_t *pixel) noexcept
{
    const kiv::RGB rgb = kiv::convertPixel(matrix, workPixel[2], workPixel[3], workPixel[1]);
    pixel[3] = workPixel[0];
    pixel[0] = rgb.blue;
    pixel[1] = rgb.green;
    pixel[2] = rgb.red;
}
} // namespace

void kiv::SDConvertYCbCrtoRGB(const uint8_t *workPixel, uint8_t *pixel) noexcept
{
    convert(kMatrix601, workPixel, pixel);
}

void kiv::HDConvertYCbCrtoRGB(const uint8_t *workPixel, uint8_t *pixel) noexcept
{
    convert(kMatrix709, workPixel, pixel);
}

void kiv::ConvertPixeltoRGB(const uint8_t *line, uint8_t *pixel, size_t x, size_t width,
                            bool standardDefinition) noexcept
{
    // Kept: the Cr of the last pixel of an odd width is that of its pair, which the line cuts off.
    const size_t group = (x >> 1) * 4;
    uint8_t cb = line[group];
    uint8_t cr = line[group + 2];
    if ((x & 1) != 0)
    {
        const auto next = [&](size_t at) { return at < width * 2 ? line[at] : uint8_t{0}; };
        cb = static_cast<uint8_t>((cb + next(group + 4)) >> 1);
        cr = static_cast<uint8_t>((cr + next(group + 6)) >> 1);
    }
    const uint8_t workPixel[4] = {kOpaque, cr, line[group + 1 + (x & 1) * 2], cb};
    (standardDefinition ? SDConvertYCbCrtoRGB : HDConvertYCbCrtoRGB)(workPixel, pixel);
}
