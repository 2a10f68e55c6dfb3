// A PNG file read back, so that tests can check its pixels.
#ifndef KIV_TEST_PNG_PICTURE_H
#define KIV_TEST_PNG_PICTURE_H

#include <gtest/gtest.h>

#include <png.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kiv::test
{

using Pixel = std::array<uint8_t, 4>; // red, green, blue, alpha

struct PngPicture
{
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels; // RGBA

    // Reads the bytes of a file. The size is 0 if they are not a whole PNG.
    explicit PngPicture(const std::string &bytes)
    {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0)
            return;
        image.format = PNG_FORMAT_RGBA;
        pixels.resize(PNG_IMAGE_SIZE(image));
        if (png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) == 0)
            return;
        width = image.width;
        height = image.height;
    }

    [[nodiscard]] Pixel at(uint32_t x, uint32_t y) const
    {
        const size_t first = (size_t{y} * width + x) * 4;
        EXPECT_LE(first + 4, pixels.size());
        return first + 4 <= pixels.size()
                   ? Pixel{pixels[first], pixels[first + 1], pixels[first + 2], pixels[first + 3]}
                   : Pixel{};
    }
};

} // namespace kiv::test

#endif
