// Rows of pixels at every vector level of this machine, compared with the formula with real division.
#include "Private/Pixels/Colour.h"
#include "Private/Pixels/Levels.h"

#include "Picture.h"
#include "PlainPixels.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using kiv::CpuLevel;
using kiv::test::Bytes;
using kiv::test::kHD;
using kiv::test::kSD;
using kiv::test::randomBytes;

namespace
{
constexpr size_t kWidest = 130; // more than two of the widest blocks
constexpr size_t kAlignments = 64;

class PixelRows : public testing::TestWithParam<CpuLevel>
{
protected:
    void SetUp() override
    {
        if (GetParam() > kiv::cpuLevel())
            GTEST_SKIP() << "not on this machine";
        rows = &kiv::pixelRows(GetParam());
    }
    const kiv::PixelRows *rows = nullptr;
};

// Writes `size` bytes through `write` at every alignment, and checks the bytes around them.
template <class Write>
Bytes made(size_t alignment, size_t size, Write write)
{
    constexpr size_t kGuard = 64;
    constexpr uint8_t kUntouched = 0xA5;
    Bytes block(kAlignments + size + kGuard, kUntouched);
    write(block.data() + alignment);
    const auto begin = block.begin() + static_cast<ptrdiff_t>(alignment);
    const auto end = begin + static_cast<ptrdiff_t>(size);
    const auto untouched = [](uint8_t byte) { return byte == kUntouched; };
    EXPECT_TRUE(std::all_of(block.begin(), begin, untouched) && std::all_of(end, block.end(), untouched))
        << "wrote beyond its " << size << " bytes";
    return {begin, end};
}

// Bytes at the end of their block, so that AddressSanitizer detects a read past them.
Bytes placed(size_t alignment, const Bytes &bytes)
{
    Bytes block(alignment, 0);
    block.insert(block.end(), bytes.begin(), bytes.end());
    block.shrink_to_fit();
    return block;
}

Bytes redLast(Bytes pixels)
{
    for (size_t at = 0; at < pixels.size(); at += 4)
        std::swap(pixels[at], pixels[at + 2]);
    return pixels;
}

// A line of every luma for each of the 65536 chromas. The pixels after the line have the same chroma, so that
// odd pixels have it too.
TEST_P(PixelRows, AllColoursOfBothMatricesAreThoseOfTheFormula)
{
    constexpr size_t kLumas = 256;
    std::array<uint8_t, kLumas * 2 + 4> line{};
    std::array<uint8_t, kLumas * 4 + 8> pixels{};
    std::array<uint8_t, kLumas * 4> expected{};
    for (size_t luma = 0; luma < kLumas; ++luma)
        line[luma * 2 + 1] = static_cast<uint8_t>(luma);
    for (const auto &[matrix, convert] : {std::pair{kSD, rows->toBGRA601}, {kHD, rows->toBGRA709}})
        for (uint32_t chroma = 0; chroma < 65536; ++chroma)
        {
            const auto cb = static_cast<uint8_t>(chroma >> 8);
            const auto cr = static_cast<uint8_t>(chroma);
            for (size_t at = 0; at < line.size(); at += 4)
            {
                line[at] = cb;
                line[at + 2] = cr;
            }
            for (size_t luma = 0; luma < kLumas; ++luma)
            {
                const auto [red, green, blue] = kiv::test::plainPixel(matrix, static_cast<int>(luma), cb, cr);
                const uint8_t pixel[4] = {blue, green, red, 255};
                std::copy_n(pixel, 4, expected.data() + luma * 4);
            }
            convert(line.data(), pixels.data(), kLumas + 2);
            ASSERT_TRUE(std::equal(expected.begin(), expected.end(), pixels.begin()))
                << "Cb " << int{cb} << ", Cr " << int{cr};
        }
}

TEST_P(PixelRows, LinesOfEveryWidthAndAlignmentBecomeRGB)
{
    for (size_t width = 1; width <= kWidest; ++width)
    {
        const Bytes line = randomBytes(width * 2, static_cast<unsigned>(width));
        const Bytes sd = kiv::test::plainLine(kSD, line, width);
        const Bytes hd = kiv::test::plainLine(kHD, line, width);
        Bytes ordered = sd; // except for the pixel after an odd width
        if (width % 2 != 0)
            std::swap(ordered[width * 4], ordered[width * 4 + 2]);
        for (size_t alignment = 0; alignment < kAlignments; ++alignment)
        {
            const Bytes from = placed(alignment * 5 % kAlignments, line);
            const auto convert = [&](kiv::ConvertRow row)
            {
                return made(alignment, sd.size(),
                            [&](uint8_t *to) { row(from.data() + alignment * 5 % kAlignments, to, width); });
            };
            ASSERT_EQ(convert(rows->toBGRA601), redLast(sd)) << width << " at " << alignment;
            ASSERT_EQ(convert(rows->toBGRA709), redLast(hd)) << width << " at " << alignment;
            ASSERT_EQ(convert(rows->toRGBA601), ordered) << width << " at " << alignment;
        }
    }
}

TEST_P(PixelRows, LinesOfEveryWidthAndAlignmentLoseTwoBits)
{
    for (size_t width = 1; width <= kWidest; ++width)
    {
        const size_t components = (width + 1) / 2 * 4;
        const Bytes line = randomBytes((components + 2) / 3 * 4, static_cast<unsigned>(width));
        Bytes expected;
        for (size_t component = 0; component < components; ++component)
        {
            uint32_t word = 0;
            for (size_t byte = 0; byte < 4; ++byte)
                word |= static_cast<uint32_t>(line[component / 3 * 4 + byte]) << (8 * byte);
            expected.push_back(static_cast<uint8_t>((word >> (component % 3 * 10) & 1023) / 4));
        }
        for (size_t alignment = 0; alignment < kAlignments; ++alignment)
        {
            const Bytes from = placed(alignment * 5 % kAlignments, line);
            ASSERT_EQ(made(alignment, components,
                           [&](uint8_t *to)
                           { rows->v210To2vuy(from.data() + alignment * 5 % kAlignments, to, width); }),
                      expected)
                << width << " at " << alignment;
        }
    }
}

// Returns the first `size` bytes of the 4-byte pixels at the multiples of the step.
Bytes sampled(const Bytes &pixels, size_t size, size_t count, size_t step)
{
    Bytes samples;
    for (size_t x = 0; x < count; ++x)
    {
        const auto pixel = pixels.begin() + static_cast<ptrdiff_t>(x * step / 65536 * 4);
        samples.insert(samples.end(), pixel, pixel + static_cast<ptrdiff_t>(size));
    }
    return samples;
}

TEST_P(PixelRows, SamplesOfEveryWidthAreThePixelsAtTheMultiplesOfTheStep)
{
    for (size_t width = 1; width <= 2 * kWidest; ++width)
    {
        const Bytes pixels = placed(width % kAlignments, randomBytes(width * 4, 1));
        const Bytes video = placed(width % kAlignments, randomBytes((width + 1) / 2 * 4, 2));
        const Bytes plain(pixels.begin() + static_cast<ptrdiff_t>(width % kAlignments), pixels.end());
        const Bytes line(video.begin() + static_cast<ptrdiff_t>(width % kAlignments), video.end());
        Bytes converted = kiv::test::plainLine(kSD, line, width);
        if (width % 2 != 0) // a sample has the Cr of its pair, even if that lies after the line
            std::ranges::copy(
                kiv::test::plainPixel(kSD, line[width * 2 - 1], line[width * 2 - 2], line[width * 2]),
                converted.begin() + static_cast<ptrdiff_t>((width - 1) * 4));
        for (const size_t count :
             {size_t{1}, (width + 6) / 7, (width + 3) / 4, (width + 1) / 2, width * 2 / 3 + 1, width})
        {
            const size_t step = width * 65536 / count;
            const size_t alignment = count % kAlignments;
            ASSERT_EQ(made(alignment, count * 4,
                           [&](uint8_t *to) {
                               rows->sample32(pixels.data() + width % kAlignments, width, to, count, 0, step);
                           }),
                      sampled(plain, 4, count, step))
                << count << " of " << width;
            ASSERT_EQ(made(alignment, count * 3,
                           [&](uint8_t *to) {
                               rows->sample2vuyTo24(video.data() + width % kAlignments, width, to, count, 0,
                                                    step);
                           }),
                      sampled(converted, 3, count, step))
                << count << " of " << width;
        }
    }
}

TEST_P(PixelRows, FillsEverySizeAndAlignment)
{
    for (size_t size = 0; size <= 4 * kWidest; ++size)
    {
        Bytes expected;
        for (size_t at = 0; at < size; ++at)
            expected.push_back(static_cast<uint8_t>(1 + at % 4));
        ASSERT_EQ(made(size % kAlignments, size,
                       [&](uint8_t *to) {
                           rows->fill(to, size, {1, 2, 3, 4});
                       }),
                  expected);
    }
}

std::string levelName(const testing::TestParamInfo<CpuLevel> &level)
{
    constexpr std::array kNames = {"Portable", "SSE42orNEON", "AVX2", "AVX512"};
    return kNames[static_cast<size_t>(level.param)];
}

INSTANTIATE_TEST_SUITE_P(Levels, PixelRows,
                         testing::Values(CpuLevel::portable, CpuLevel::sse42, CpuLevel::avx2,
                                         CpuLevel::avx512),
                         levelName);

TEST(PixelColour, PixelsAreConvertedRoundedAndLimited)
{
    struct Case
    {
        uint8_t luma, cb, cr;
        Bytes bgr;
    };
    for (const Case &c : {Case{16, 128, 128, {0, 0, 0}}, Case{235, 128, 128, {255, 255, 255}},
                          Case{81, 90, 240, {0, 0, 254}}, Case{235, 16, 240, {29, 208, 255}}})
    {
        const uint8_t workPixel[4] = {77, c.cr, c.luma, c.cb};
        Bytes pixel(4);
        kiv::SDConvertYCbCrtoRGB(workPixel, pixel.data());
        EXPECT_EQ(pixel, (Bytes{c.bgr[0], c.bgr[1], c.bgr[2], 77}));
        kiv::HDConvertYCbCrtoRGB(workPixel, pixel.data());
        const auto [red, green, blue] = kiv::test::plainPixel(kHD, c.luma, c.cb, c.cr);
        EXPECT_EQ(pixel, (Bytes{blue, green, red, 77}));
    }
}

// The two ways to read a line differ in one place: the Cr of the last pixel of an odd width.
TEST(PixelColour, APixelOfALineIsThatOfTheLineButForTheLastCrOfAnOddWidth)
{
    for (const bool standard : {false, true})
        for (size_t width = 1; width < 40; ++width)
        {
            const Bytes line = randomBytes((width + 1) / 2 * 4, static_cast<unsigned>(width));
            Bytes pixels((width + 1) / 2 * 8);
            kiv::ConvertLinetoRGB(line.data(), pixels.data(), width, standard);
            ASSERT_EQ(pixels, redLast(kiv::test::plainLine(standard ? kSD : kHD, line, width)));
            for (size_t x = 0; x < width - width % 2; ++x)
            {
                Bytes pixel(4);
                kiv::ConvertPixeltoRGB(line.data(), pixel.data(), x, width, standard);
                EXPECT_TRUE(
                    std::equal(pixel.begin(), pixel.end(), pixels.begin() + static_cast<ptrdiff_t>(x * 4)))
                    << x << " of " << width;
            }
        }
}
} // namespace
