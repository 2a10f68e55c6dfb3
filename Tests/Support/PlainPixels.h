// The colour conversion as a formula with real division, and a line of '2vuy' by its pairs. The vector code
// is compared with these.
#ifndef KIV_TEST_PLAIN_PIXELS_H
#define KIV_TEST_PLAIN_PIXELS_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kiv::test
{
using Matrix = std::array<int64_t, 5>; // luma, Cr to red, Cb to blue, Cb to green, Cr to green

constexpr Matrix kSD = {76309, 104597, 132201, 25674, 53279};
constexpr Matrix kHD = {76495, 122737, 141958, 14342, 35890};

// Returns R, G, B.
inline std::array<uint8_t, 3> plainPixel(const Matrix &m, int luma, int cb, int cr)
{
    const auto component = [](int64_t sum)
    {
        const double whole = std::floor(static_cast<double>(sum + 32768) / 65536.0);
        return static_cast<uint8_t>(std::clamp(whole, 0.0, 255.0));
    };
    const int64_t c = (luma - 16) * m[0];
    return {component(c + (cr - 128) * m[1]), component(c - (cb - 128) * m[3] - (cr - 128) * m[4]),
            component(c + (cb - 128) * m[2])};
}

// Returns the pixels of a line as R, G, B, 255; one more than the width if it is odd.
inline std::vector<uint8_t> plainLine(const Matrix &m, std::vector<uint8_t> line, size_t width)
{
    line.resize(width * 2);
    line.resize(width * 2 + 8, 0);
    std::vector<uint8_t> pixels;
    for (size_t pair = 0; pair < (width + 1) / 2; ++pair)
    {
        const uint8_t *p = line.data() + pair * 4;
        for (const auto [red, green, blue] :
             {plainPixel(m, p[1], p[0], p[2]), plainPixel(m, p[3], (p[0] + p[4]) / 2, (p[2] + p[6]) / 2)})
            pixels.insert(pixels.end(), {red, green, blue, 255});
    }
    return pixels;
}
} // namespace kiv::test

#endif
