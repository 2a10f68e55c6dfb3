// Y Cb Cr of video range to R G B of full range, in integers with 16 bits of fraction: one pixel at a time.
// This is the definition; every row of Rows.h gives the same bytes.
#ifndef KIV_PRIVATE_PIXELS_COLOUR_H
#define KIV_PRIVATE_PIXELS_COLOUR_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace kiv
{
// The factors times 65536. Both green factors are subtracted.
struct ColourMatrix
{
    int32_t luma;
    int32_t redCr;
    int32_t blueCb;
    int32_t greenCb;
    int32_t greenCr;
};

inline constexpr ColourMatrix kMatrix601{76309, 104597, 132201, 25674, 53279}; // ITU-R BT.601
inline constexpr ColourMatrix kMatrix709{76495, 122737, 141958, 14342, 35890}; // ITU-R BT.709

inline constexpr int32_t kLumaBlack = 16;
inline constexpr int32_t kChromaNeutral = 128;

struct RGB
{
    uint8_t red;
    uint8_t green;
    uint8_t blue;
};

[[nodiscard]] constexpr RGB convertPixel(const ColourMatrix &matrix, int32_t luma, int32_t cb,
                                         int32_t cr) noexcept
{
    const auto rounded = [](int32_t sum)
    { return static_cast<uint8_t>(std::clamp((sum + 32768) >> 16, 0, 255)); };
    const int32_t y = (luma - kLumaBlack) * matrix.luma;
    cb -= kChromaNeutral;
    cr -= kChromaNeutral;
    return {rounded(y + cr * matrix.redCr), rounded(y - cb * matrix.greenCb - cr * matrix.greenCr),
            rounded(y + cb * matrix.blueCb)};
}

// Converts one work pixel, with the bytes any, Cr, Y, Cb, to B, G, R and the work pixel's first byte.
void SDConvertYCbCrtoRGB(const uint8_t *workPixel, uint8_t *pixel) noexcept;
void HDConvertYCbCrtoRGB(const uint8_t *workPixel, uint8_t *pixel) noexcept;

// Converts pixel `x` of a line of '2vuy' to B, G, R, 255. The line has `width` * 2 bytes; bytes past its end
// count as 0; the last pair of an odd width is read whole.
void ConvertPixeltoRGB(const uint8_t *line, uint8_t *pixel, size_t x, size_t width,
                       bool standardDefinition) noexcept;
} // namespace kiv

#endif
