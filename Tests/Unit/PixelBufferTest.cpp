// Pictures: the behaviour that hosts rely on, wide pictures, refusals. The fuzz target has a model of the
// rest.
#include <KIVCoreServices2/KIVCS2PixelBuffer.h>

#include "Picture.h"
#include "PlainPixels.h"
#include "RequiredPointers.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <string>

using kiv::test::Bytes;
using kiv::test::Picture;

namespace
{
constexpr OSType kRGBA = kCVPixelFormatType_32ARGB;
constexpr OSType k2vuy = kCVPixelFormatType_422YpCbCr8;
constexpr OSType kV210 = kCVPixelFormatType_422YpCbCr10;
constexpr auto kToRGBA = KIVCS2PixelBuffer_Convert2vuyToRGBA;
constexpr auto kTo2vuy = KIVCS2PixelBuffer_ConvertV210To2vuy;

static_assert(kV210 == ('v' << 24 | '2' << 16 | '1' << 8 | '0'));
static_assert(k2vuy == ('2' << 24 | 'v' << 16 | 'u' << 8 | 'y'));
static_assert(KIVCS2PixelBuffer_ClearWhite == 0 && KIVCS2PixelBuffer_ClearBlack == 1 &&
              KIVCS2PixelBuffer_ClearGrey == 2 && KIVCS2PixelBuffer_ClearMAX == 3 && kTo2vuy == 0 &&
              kToRGBA == 2 && kRGBA == 32 && kCVPixelFormatType_24RGB == 24);

TEST(PixelBufferConvert, TheLastOddPixelOfALineIsMixedWithNoChroma)
{
    const Picture white{2, k2vuy, {128, 235, 128, 235}};
    Picture to;
    ASSERT_OK(kivCS2PixelBuffer_convert(white.get(), to.out(), kToRGBA));
    EXPECT_EQ(to.row(0, 8), (Bytes{255, 255, 255, 255, 153, 255, 126, 255}));
}

TEST(PixelBufferConvert, AnOddWidthWritesOnePixelMoreInBGR)
{
    // Y 81, Cb 90, and 0 for the Cr past the line; then the mean chroma of 45 and 0 with luma 0.
    const Picture from{1, k2vuy, {90, 81, 240, 255}};
    Picture to;
    ASSERT_OK(kivCS2PixelBuffer_convert(from.get(), to.out(), kToRGBA));
    const auto first = kiv::test::plainPixel(kiv::test::kSD, 81, 90, 0);
    const auto second = kiv::test::plainPixel(kiv::test::kSD, 0, 45, 0);
    Bytes expected{first[0], first[1], first[2], 255, second[2], second[1], second[0], 255};
    expected.resize(to.stride(), 0);
    EXPECT_EQ(to.row(0, to.stride()), expected);
}

TEST(PixelBufferConvert, WidePicturesHaveTheMatrixOfStandardDefinitionToo)
{
    constexpr size_t kWidth = 1920;
    const Bytes line = kiv::test::randomBytes(kWidth * 2, 1);
    const Picture from{kWidth, k2vuy, line};
    Picture to;
    ASSERT_OK(kivCS2PixelBuffer_convert(from.get(), to.out(), kToRGBA));
    EXPECT_EQ(to.row(0, kWidth * 4), kiv::test::plainLine(kiv::test::kSD, line, kWidth));
}

TEST(PixelBufferScale, StepsOfWidePicturesExceed32Bits)
{
    constexpr size_t kWidth = 70001;
    const Bytes line = kiv::test::randomBytes(kWidth * 4, 1);
    const Picture from{kWidth, 2, kRGBA};
    from.set(0, line);
    for (const uint32_t width : {1u, 7u, 70000u})
    {
        Picture to;
        ASSERT_OK(kivCS2PixelBuffer_scale(from.get(), to.out(), width, 1));
        Bytes expected;
        for (size_t x = 0; x < width; ++x)
        {
            const auto pixel =
                line.begin() + static_cast<ptrdiff_t>(x * (kWidth * 65536 / width) / 65536 * 4);
            expected.insert(expected.end(), pixel, pixel + 4);
        }
        ASSERT_EQ(to.row(0, size_t{4} * width), expected) << width;
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

using PixelBufferWithoutAssertions = kiv::test::WithoutAssertions;

TEST_F(PixelBufferWithoutAssertions, ScaleTakesEqualSizesAndNotLarger)
{
    const Bytes line = kiv::test::randomBytes(32, 5);
    const Picture from{8, kRGBA, line};
    Picture to;
    EXPECT_OK(kivCS2PixelBuffer_scale(from.get(), to.out(), 8, 1));
    EXPECT_EQ(to.row(0, 32), line);
    CVPixelBufferRef out = nullptr;
    EXPECT_EQ(kivCS2PixelBuffer_scale(from.get(), &out, 9, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2PixelBuffer_scale(from.get(), &out, 8, 2), KIVCS2STATUS_PARAM_ERR);
}

// Only equal sizes reach the last pixel. A conversion has no Cr there.
TEST_F(PixelBufferWithoutAssertions, TheLastPixelOfAnOddWidthHasTheCrOfItsPair)
{
    const Picture from{3, k2vuy, {128, 16, 128, 16, 90, 81, 240, 0}};
    Picture to;
    EXPECT_OK(kivCS2PixelBuffer_scale(from.get(), to.out(), 3, 1));
    const auto last = kiv::test::plainPixel(kiv::test::kSD, 81, 90, 240);
    const Bytes row = to.row(0, 9);
    EXPECT_EQ(Bytes(row.begin() + 6, row.end()), Bytes(last.begin(), last.end()));
}

TEST_F(PixelBufferWithoutAssertions, DeinterlaceOfNoBufferSucceeds)
{
    EXPECT_OK(kivCS2PixelBuffer_deinterlace(nullptr));
}

TEST(PixelBufferSave, WritesTheRowsWithTheirPaddingAndNoHeader)
{
    const kiv::test::TemporaryFolder folder;
    const std::string path = folder.write("picture", std::string(10000, 'x'));
    const Picture picture{3, 2, k2vuy};
    picture.set(0, {128, 235, 128, 235, 128, 16, 128, 16});
    picture.set(1, {128, 16, 128, 16, 128, 235, 128, 16});
    ASSERT_OK(kivCS2PixelBuffer_save(picture.get(), path.c_str(), true));

    Picture converted;
    ASSERT_OK(kivCS2PixelBuffer_convert(picture.get(), converted.out(), kToRGBA));
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
    EXPECT_OK(kivCS2PixelBuffer_save(picture.get(), folder.path("missing/picture").c_str(), false));
    EXPECT_OK(kivCS2PixelBuffer_save(picture.get(), nullptr, false));
    EXPECT_OK(kivCS2PixelBuffer_save(picture.get(), "/dev/full", false));
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
    KIV_REQUIRES_EACH(kivCS2PixelBuffer_convert, "pixelBufferIn, pixelBufferOut");
    KIV_REQUIRES_EACH(kivCS2PixelBuffer_clear, "pixelBufferIn");
    KIV_REQUIRES_EACH(kivCS2PixelBuffer_scale, "pixelBufferIn, pixelBufferOut");
    kiv::test::expectRefused(
        KIV_REQUIRES(kivCS2PixelBuffer_clear, "clearColour < KIVCS2PixelBuffer_ClearMAX", in, 3));
    if (kiv::test::hasAssertions())
        kiv::test::expectAllRefused({
            KIV_REFUSES(KIVCS2STATUS_OK, kivCS2PixelBuffer_scale, "sourceWidth > scaleWidth", in, &out, 4, 2),
            KIV_REFUSES(KIVCS2STATUS_OK, kivCS2PixelBuffer_scale, "sourceHeight > scaleHeight", in, &out, 2,
                        4),
            KIV_REFUSES(KIVCS2STATUS_OK, kivCS2PixelBuffer_deinterlace, "pixelBuffer", nullptr),
        });
    EXPECT_EQ(picture.locks(), 0u);
}
} // namespace
