// Pictures converted, filled, scaled, deinterlaced and saved, byte for byte, with what becomes of their
// locks.
#include <KIVCoreServices2/KIVCS2PixelBuffer.h>

#include "ArgumentCheck.h"
#include "Picture.h"
#include "PlainPixels.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>

using kiv::test::Bytes;
using kiv::test::Picture;

namespace
{
constexpr OSType kRGBA = kCVPixelFormatType_32ARGB;
constexpr OSType kRGB = kCVPixelFormatType_24RGB;
constexpr OSType k2vuy = kCVPixelFormatType_422YpCbCr8;
constexpr OSType kV210 = kCVPixelFormatType_422YpCbCr10;
constexpr auto kToRGBA = KIVCS2PixelBuffer_Convert2vuyToRGBA;
constexpr auto kTo2vuy = KIVCS2PixelBuffer_ConvertV210To2vuy;

static_assert(kV210 == ('v' << 24 | '2' << 16 | '1' << 8 | '0'));
static_assert(k2vuy == ('2' << 24 | 'v' << 16 | 'u' << 8 | 'y'));
static_assert(KIVCS2PixelBuffer_ClearWhite == 0 && KIVCS2PixelBuffer_ClearBlack == 1 &&
              KIVCS2PixelBuffer_ClearGrey == 2 && KIVCS2PixelBuffer_ClearMAX == 3 && kTo2vuy == 0 &&
              kToRGBA == 2 && kRGBA == 32 && kRGB == 24);

// Three components of 10 bits in a word, bytes in the order of memory.
Bytes v210(std::initializer_list<uint32_t> components, uint32_t topBits = 0)
{
    Bytes bytes;
    for (const uint32_t *c = components.begin(); c != components.end(); c += 3)
        for (unsigned shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<uint8_t>((c[0] | c[1] << 10 | c[2] << 20 | topBits << 30) >> shift));
    return bytes;
}

TEST(PixelBufferConvert, EveryWidthHasThePixelsOfTheFormula)
{
    for (size_t width = 1; width <= 130; ++width)
    {
        const Bytes line = kiv::test::randomBytes((width + 1) / 2 * 4, static_cast<unsigned>(width));
        const Picture from{width, k2vuy, line};
        Picture to;
        ASSERT_EQ(kivCS2PixelBuffer_convert(from.get(), to.out(), kToRGBA), KIVCS2STATUS_OK);
        ASSERT_EQ(CVPixelBufferGetPixelFormatType(to.get()), kRGBA);
        ASSERT_EQ(CVPixelBufferGetWidth(to.get()), width);
        ASSERT_EQ(CVPixelBufferGetHeight(to.get()), 1u);
        Bytes expected = kiv::test::plainLine(kiv::test::kSD, line, width);
        expected.resize(width * 4);
        ASSERT_EQ(to.row(0, width * 4), expected) << width;
    }
}

TEST(PixelBufferConvert, TheLastOddPixelOfALineIsMixedWithNoChroma)
{
    const Picture white{2, k2vuy, {128, 235, 128, 235}};
    Picture to;
    ASSERT_EQ(kivCS2PixelBuffer_convert(white.get(), to.out(), kToRGBA), KIVCS2STATUS_OK);
    EXPECT_EQ(to.row(0, 8), (Bytes{255, 255, 255, 255, 153, 255, 126, 255}));
}

TEST(PixelBufferConvert, AnOddWidthWritesOnePixelMoreInBGR)
{
    // Y 81, Cb 90 and no Cr, which lies behind the line; then the mean chroma of 45 and 0 at no luma.
    const Picture from{1, k2vuy, {90, 81, 240, 255}};
    Picture to;
    ASSERT_EQ(kivCS2PixelBuffer_convert(from.get(), to.out(), kToRGBA), KIVCS2STATUS_OK);
    const auto first = kiv::test::plainPixel(kiv::test::kSD, 81, 90, 0);
    const auto second = kiv::test::plainPixel(kiv::test::kSD, 0, 45, 0);
    Bytes expected{first[0], first[1], first[2], 255, second[2], second[1], second[0], 255};
    expected.resize(to.stride(), 0);
    EXPECT_EQ(to.row(0, to.stride()), expected);
}

TEST(PixelBufferConvert, PicturesOfEverySizeTakeTheMatrixOfStandardDefinition)
{
    constexpr size_t kWidth = 1920;
    const Picture from{kWidth, 2, k2vuy};
    const Bytes lines[] = {kiv::test::randomBytes(kWidth * 2, 1), kiv::test::randomBytes(kWidth * 2, 2)};
    from.set(0, lines[0]);
    from.set(1, lines[1]);
    Picture to;
    ASSERT_EQ(kivCS2PixelBuffer_convert(from.get(), to.out(), kToRGBA), KIVCS2STATUS_OK);
    for (size_t row = 0; row < 2; ++row)
        EXPECT_EQ(to.row(row, kWidth * 4), kiv::test::plainLine(kiv::test::kSD, lines[row], kWidth));
}

TEST(PixelBufferConvert, TenBitsLoseTheirTwoLowestAndWordsTheirTwoHighest)
{
    const Bytes line = v210({4, 7, 8, 1023, 1020, 64, 512, 940, 3, 255, 256, 1019}, 3);
    for (size_t width = 1; width <= 6; ++width)
    {
        const Picture from{width, kV210, line};
        Picture to;
        ASSERT_EQ(kivCS2PixelBuffer_convert(from.get(), to.out(), kTo2vuy), KIVCS2STATUS_OK);
        ASSERT_EQ(CVPixelBufferGetPixelFormatType(to.get()), k2vuy);
        Bytes expected{1, 1, 2, 255, 255, 16, 128, 235, 0, 63, 64, 254};
        expected.resize((width + 1) / 2 * 4); // an odd width has its last pair whole
        expected.resize(to.stride(), 0);
        EXPECT_EQ(to.row(0, to.stride()), expected) << width;
    }
}

TEST(PixelBufferConvert, WhatIsNoConversionLeavesEverythingAsItWas)
{
    struct Case
    {
        OSType format;
        KIVCS2PixelBufferConvertMode mode;
    };
    for (const auto [format, mode] :
         {Case{k2vuy, 1}, Case{kV210, 1}, Case{kV210, kToRGBA}, Case{k2vuy, kTo2vuy}, Case{kRGBA, kToRGBA},
          Case{k2vuy, 3}, Case{k2vuy, ~0u}})
    {
        const Picture from{4, 2, format};
        CVPixelBufferRef out = from.get();
        EXPECT_EQ(kivCS2PixelBuffer_convert(from.get(), &out, mode), KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(out, from.get());
        EXPECT_EQ(CFGetRetainCount(from.get()), 1);
    }
}

TEST(PixelBufferClear, FillsThePixelsAndLeavesThePadding)
{
    struct Case
    {
        OSType format;
        KIVCS2PixelBufferClearColour colour;
        Bytes pixel;
    };
    const Case cases[] = {
        {kRGBA, KIVCS2PixelBuffer_ClearWhite, {255, 255, 255, 0}},
        {kRGBA, KIVCS2PixelBuffer_ClearBlack, {0, 0, 0, 0}},
        {kRGBA, KIVCS2PixelBuffer_ClearGrey, {128, 128, 128, 0}},
        {k2vuy, KIVCS2PixelBuffer_ClearWhite, {128, 235}},
        {k2vuy, KIVCS2PixelBuffer_ClearBlack, {128, 16}},
        {k2vuy, KIVCS2PixelBuffer_ClearGrey, {128, 128}},
    };
    for (const Case &c : cases)
        for (const size_t width : {1u, 3u, 16u, 33u, 1920u, 4105u})
        {
            const Picture picture{width, 3, c.format};
            Bytes expected(picture.stride(), 0x5A);
            for (size_t row = 0; row < 3; ++row)
                picture.set(row, expected);
            ASSERT_EQ(kivCS2PixelBuffer_clear(picture.get(), c.colour), KIVCS2STATUS_OK);
            for (size_t at = 0; at < width * c.pixel.size(); ++at)
                expected[at] = c.pixel[at % c.pixel.size()];
            for (size_t row = 0; row < 3; ++row)
                ASSERT_EQ(picture.row(row, picture.stride()), expected) << width;
        }
    for (const OSType format : {kRGB, kV210, OSType{kCVPixelFormatType_32BGRA}})
    {
        const Picture picture{4, 2, format};
        EXPECT_EQ(kivCS2PixelBuffer_clear(picture.get(), 0), KIVCS2STATUS_PIXEL_FORMAT_ERR);
    }
}

TEST(PixelBufferScale, TakesThePixelsAtTheMultiplesOfTheStep)
{
    struct Case
    {
        size_t sourceWidth, sourceHeight;
        uint32_t width, height;
    };
    for (const auto &c : {Case{8, 4, 4, 2}, Case{7, 5, 3, 2}, Case{1920, 9, 1280, 6}, Case{1000, 3, 999, 2},
                          Case{70001, 2, 1, 1}, Case{70001, 2, 70000, 1}, Case{300, 2, 7, 1}})
    {
        const Picture from{c.sourceWidth, c.sourceHeight, kRGBA};
        for (size_t row = 0; row < c.sourceHeight; ++row)
            from.set(row, kiv::test::randomBytes(c.sourceWidth * 4, static_cast<unsigned>(row)));
        Picture to;
        ASSERT_EQ(kivCS2PixelBuffer_scale(from.get(), to.out(), c.width, c.height), KIVCS2STATUS_OK);
        ASSERT_EQ(CVPixelBufferGetPixelFormatType(to.get()), kRGBA);
        ASSERT_EQ(CVPixelBufferGetWidth(to.get()), c.width);
        ASSERT_EQ(CVPixelBufferGetHeight(to.get()), c.height);
        const size_t xStep = c.sourceWidth * 65536 / c.width;
        const size_t yStep = c.sourceHeight * 65536 / c.height;
        for (size_t y = 0; y < c.height; ++y)
        {
            const Bytes source = from.row(y * yStep / 65536, c.sourceWidth * 4);
            Bytes expected;
            for (size_t x = 0; x < c.width; ++x)
            {
                const auto pixel = source.begin() + static_cast<ptrdiff_t>(x * xStep / 65536 * 4);
                expected.insert(expected.end(), pixel, pixel + 4);
            }
            ASSERT_EQ(to.row(y, size_t{4} * c.width), expected)
                << c.sourceWidth << " to " << c.width << ", " << y;
        }
    }
}

TEST(PixelBufferScale, VideoBecomesRGBOf24BitsWithTheChromaOfItsLine)
{
    for (size_t sourceWidth = 2; sourceWidth <= 140; ++sourceWidth)
        for (const uint32_t width :
             {1u, static_cast<uint32_t>(sourceWidth + 2) / 3, static_cast<uint32_t>(sourceWidth) / 2,
              static_cast<uint32_t>(sourceWidth) - 1})
        {
            const Bytes line = kiv::test::randomBytes((sourceWidth + 1) / 2 * 4, width);
            const Picture from{sourceWidth, 2, k2vuy};
            from.set(0, line);
            Picture to;
            ASSERT_EQ(kivCS2PixelBuffer_scale(from.get(), to.out(), width, 1), KIVCS2STATUS_OK);
            ASSERT_EQ(CVPixelBufferGetPixelFormatType(to.get()), kRGB);
            const Bytes all = kiv::test::plainLine(kiv::test::kSD, line, sourceWidth);
            Bytes expected;
            for (size_t x = 0; x < width; ++x)
            {
                const auto pixel =
                    all.begin() + static_cast<ptrdiff_t>(x * (sourceWidth * 65536 / width) / 65536 * 4);
                expected.insert(expected.end(), pixel, pixel + 3);
            }
            ASSERT_EQ(to.row(0, size_t{3} * width), expected) << sourceWidth << " to " << width;
        }
}

TEST(PixelBufferScale, TwoFailuresLeaveTheInputLocked)
{
    CVPixelBufferRef out = nullptr;
    const Picture unsupported{8, 8, kV210};
    EXPECT_EQ(kivCS2PixelBuffer_scale(unsupported.get(), &out, 4, 4), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(unsupported.locks(), 1u);
    unsupported.unlock();
    const Picture supported{8, 8, kRGBA};
    EXPECT_EQ(kivCS2PixelBuffer_scale(supported.get(), &out, 0, 4), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(supported.locks(), 1u);
    supported.unlock();
    EXPECT_EQ(out, nullptr);
}

#ifdef NDEBUG
TEST(PixelBufferScale, EqualSizesPassWithoutAssertionsAndLargerDoNot)
{
    const Bytes line = kiv::test::randomBytes(32, 5);
    const Picture from{8, kRGBA, line};
    Picture to;
    EXPECT_EQ(kivCS2PixelBuffer_scale(from.get(), to.out(), 8, 1), KIVCS2STATUS_OK);
    EXPECT_EQ(to.row(0, 32), line);
    CVPixelBufferRef out = nullptr;
    EXPECT_EQ(kivCS2PixelBuffer_scale(from.get(), &out, 9, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2PixelBuffer_scale(from.get(), &out, 8, 2), KIVCS2STATUS_PARAM_ERR);
}

// Only equal sizes reach it. A conversion sees no Cr there.
TEST(PixelBufferScale, TheLastPixelOfAnOddWidthHasTheCrOfItsPair)
{
    const Picture from{3, k2vuy, {128, 16, 128, 16, 90, 81, 240, 0}};
    Picture to;
    EXPECT_EQ(kivCS2PixelBuffer_scale(from.get(), to.out(), 3, 1), KIVCS2STATUS_OK);
    const auto last = kiv::test::plainPixel(kiv::test::kSD, 81, 90, 240);
    const Bytes row = to.row(0, 9);
    EXPECT_EQ(Bytes(row.begin() + 6, row.end()), Bytes(last.begin(), last.end()));
}

TEST(PixelBufferDeinterlace, NoBufferSucceedsWithoutAssertions)
{
    EXPECT_EQ(kivCS2PixelBuffer_deinterlace(nullptr), KIVCS2STATUS_OK);
}
#endif

TEST(PixelBufferDeinterlace, DoublesTheEvenLinesAndLeavesAnOddLastOne)
{
    for (const OSType format : {kRGBA, kRGB, k2vuy, kV210})
    {
        const Picture picture{11, 5, format};
        std::vector<Bytes> lines;
        for (unsigned row = 0; row < 5; ++row)
            picture.set(row, lines.emplace_back(kiv::test::randomBytes(picture.stride(), row)));
        ASSERT_EQ(kivCS2PixelBuffer_deinterlace(picture.get()), KIVCS2STATUS_OK);
        constexpr size_t kSources[] = {0, 0, 2, 2, 4};
        for (size_t row = 0; row < lines.size(); ++row)
            EXPECT_EQ(picture.row(row, picture.stride()), lines[kSources[row]]);
    }
}

TEST(PixelBufferSave, WritesTheRowsWithTheirPaddingAndNoHeader)
{
    const kiv::test::TemporaryFolder folder;
    const std::string path = folder.write("picture", std::string(10000, 'x'));
    const Picture picture{3, 2, k2vuy};
    picture.set(0, {128, 235, 128, 235, 128, 16, 128, 16});
    picture.set(1, {128, 16, 128, 16, 128, 235, 128, 16});
    ASSERT_EQ(kivCS2PixelBuffer_save(picture.get(), path.c_str(), true), KIVCS2STATUS_OK);

    Picture converted;
    ASSERT_EQ(kivCS2PixelBuffer_convert(picture.get(), converted.out(), kToRGBA), KIVCS2STATUS_OK);
    Bytes expected = converted.row(0, converted.stride());
    const Bytes second = converted.row(1, converted.stride());
    expected.insert(expected.end(), second.begin(), second.end());
    const std::string written = folder.read("picture");
    EXPECT_EQ(Bytes(written.begin(), written.end()), expected);
}

TEST(PixelBufferSave, AFileThatCannotBeOpenedIsNotReported)
{
    const kiv::test::TemporaryFolder folder;
    const Picture picture{4, k2vuy, Bytes(8, 128)};
    EXPECT_EQ(kivCS2PixelBuffer_save(picture.get(), folder.path("missing/picture").c_str(), false),
              KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2PixelBuffer_save(picture.get(), nullptr, false), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2PixelBuffer_save(picture.get(), "/dev/full", false), KIVCS2STATUS_OK);
    const Picture other{4, 1, kRGBA};
    const std::string kept = folder.write("kept", "text");
    EXPECT_EQ(kivCS2PixelBuffer_save(other.get(), kept.c_str(), false), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(folder.read("kept"), "text");
}

TEST(PixelBuffer, ArgumentChecks)
{
    const Picture picture{4, 4, kRGBA};
    const CVPixelBufferRef in = picture.get();
    CVPixelBufferRef out = nullptr;
    kiv::test::expectAllRefused({
        KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, kivCS2PixelBuffer_convert, "pixelBufferIn", nullptr, &out, 2),
        KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, kivCS2PixelBuffer_convert, "pixelBufferOut", in, nullptr, 2),
        KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, kivCS2PixelBuffer_clear, "pixelBufferIn", nullptr, 0),
        KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, kivCS2PixelBuffer_clear,
                    "clearColour < KIVCS2PixelBuffer_ClearMAX", in, 3),
        KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, kivCS2PixelBuffer_scale, "pixelBufferIn", nullptr, &out, 2, 2),
        KIV_REFUSES(KIVCS2STATUS_PARAM_ERR, kivCS2PixelBuffer_scale, "pixelBufferOut", in, nullptr, 2, 2),
#ifndef NDEBUG
        KIV_REFUSES(KIVCS2STATUS_OK, kivCS2PixelBuffer_scale, "sourceWidth > scaleWidth", in, &out, 4, 2),
        KIV_REFUSES(KIVCS2STATUS_OK, kivCS2PixelBuffer_scale, "sourceHeight > scaleHeight", in, &out, 2, 4),
        KIV_REFUSES(KIVCS2STATUS_OK, kivCS2PixelBuffer_deinterlace, "pixelBuffer", nullptr),
#endif
    });
    EXPECT_EQ(picture.locks(), 0u);
}
} // namespace
