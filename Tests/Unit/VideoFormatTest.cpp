// The video format table against the numbers of the standards, and all getters of a code.
#include <KIVCoreServices2/KIVCS2VideoFormat.h>

#include "ArgumentCheck.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>

namespace
{
static_assert(offsetof(KIVCS2FrameRateInfo, m_exactRate) == 8 &&
              offsetof(KIVCS2FrameRateInfo, m_hundredths) == 16 &&
              offsetof(KIVCS2FrameRateInfo, m_shortName) == 32 && sizeof(KIVCS2FrameRateInfo) == 48);
static_assert(offsetof(KIVCS2VideoFormatDefinition, m_name) == 16 &&
              sizeof(KIVCS2VideoFormatDefinition) == 32);
static_assert(offsetof(KIVCS2VideoFormatDescription, m_cleanAperture) == 44 &&
              offsetof(KIVCS2VideoFormatDescription, m_frameRateInfo) == 72 &&
              sizeof(KIVCS2VideoFormatDescription) == 80);

struct Expected
{
    const char *name;
    uint32_t code; // of the 8 Bit row
    uint32_t width, height, displayWidth, displayHeight;
    uint32_t aspect, pixelAspect, hSpacing, vSpacing;
    uint32_t rate, interlace, dualLink;
    KIVCS2CleanAperture clean;
};

// By hand from SMPTE 259M, 274M, 296M, 425-1, ITU-R BT.601 and IEC 61834 (DV).
constexpr Expected kExpected[] = {
    // clang-format off
    {"525i23.98",      0x11001050,  720,  486,  720,  486, 0,  5, 10, 11, 0, 1, 0, { 704,  1,  480, 1}},
    {"525i29.97",      0x11001350,  720,  486,  720,  486, 0,  5, 10, 11, 3, 1, 0, { 704,  1,  480, 1}},
    {"525i29.97 DV",   0x10001350,  720,  480,  720,  480, 0,  5, 10, 11, 3, 1, 0, { 704,  1,  480, 1}},
    {"625i25",         0x120002b0,  720,  576,  720,  576, 0, 11, 59, 54, 2, 0, 0, {41472, 59, 576, 1}},
    {"625i25 DV",      0x120012b0,  720,  576,  720,  576, 0, 11, 59, 54, 2, 1, 0, {41472, 59, 576, 1}},
    {"720p23.98",      0x33002001, 1280,  720, 1280,  720, 1,  0,  1,  1, 0, 2, 0, {1280,  1,  720, 1}},
    {"720p50",         0x33002501, 1280,  720, 1280,  720, 1,  0,  1,  1, 5, 2, 0, {1280,  1,  720, 1}},
    {"720p59.94",      0x33002601, 1280,  720, 1280,  720, 1,  0,  1,  1, 6, 2, 0, {1280,  1,  720, 1}},
    {"720p60",         0x33002701, 1280,  720, 1280,  720, 1,  0,  1,  1, 7, 2, 0, {1280,  1,  720, 1}},
    {"1080i25",        0x54000201, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 2, 0, 0, {1920,  1, 1080, 1}},
    {"1080i25 HDV",    0x44000211, 1440, 1080, 1920, 1080, 1,  1,  4,  3, 2, 0, 0, {1440,  1, 1080, 1}},
    {"1080i29.97",     0x54000301, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 3, 0, 0, {1920,  1, 1080, 1}},
    {"1080i29.97 HDV", 0x340003a1, 1280, 1080, 1920, 1080, 1, 10,  3,  2, 3, 0, 0, {1280,  1, 1080, 1}},
    {"1080i30",        0x54000401, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 4, 0, 0, {1920,  1, 1080, 1}},
    {"1080i30 HDV",    0x340004a1, 1280, 1080, 1920, 1080, 1, 10,  3,  2, 4, 0, 0, {1280,  1, 1080, 1}},
    {"1080PsF23.98",   0x54003001, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 0, 3, 0, {1920,  1, 1080, 1}},
    {"1080PsF24",      0x54003101, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 1, 3, 0, {1920,  1, 1080, 1}},
    {"1080p23.98",     0x54002001, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 0, 2, 0, {1920,  1, 1080, 1}},
    {"1080p24",        0x54002101, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 1, 2, 0, {1920,  1, 1080, 1}},
    {"1080p50a",       0x54102501, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 5, 2, 1, {1920,  1, 1080, 1}},
    {"1080p59.94a",    0x54102601, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 6, 2, 1, {1920,  1, 1080, 1}},
    {"1080p60a",       0x54102701, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 7, 2, 1, {1920,  1, 1080, 1}},
    {"1080p50b",       0x54202501, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 5, 2, 2, {1920,  1, 1080, 1}},
    {"1080p59.94b",    0x54202601, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 6, 2, 2, {1920,  1, 1080, 1}},
    {"1080p60b",       0x54202701, 1920, 1080, 1920, 1080, 1,  0,  1,  1, 7, 2, 2, {1920,  1, 1080, 1}},
    // clang-format on
};
static_assert(std::size(kExpected) == 25);

struct Rate
{
    uint32_t integer;
    double exact;
    uint32_t hundredths, drop, interlace;
    const char *shortName, *longName;
};
constexpr std::array<Rate, KIVCS2FrameRate_MAX> kRates = {{
    {23, 23.976023976023978, 2398, 1, 2, "2398", "24fps drop frame"},
    {24, 24.0, 2400, 0, 2, "24", "24fps"},
    {25, 25.0, 2500, 0, 0, "25", "25fps"},
    {29, 29.97002997002997, 2997, 1, 1, "2997", "30fps drop frame"},
    {30, 30.0, 3000, 0, 0, "30", "30fps"},
    {50, 50.0, 5000, 0, 2, "50", "50fps"},
    {59, 59.94005994005994, 5994, 1, 2, "5994", "60fps drop frame"},
    {60, 60.0, 6000, 0, 2, "60", "60fps"},
}};

// Calls a getter that must succeed.
template <class Value, class Getter>
Value get(Getter getter, KIVCS2VideoFormat format)
{
    Value value{};
    EXPECT_EQ(getter(format, &value), KIVCS2STATUS_OK);
    return value;
}

void expectFormat(const Expected &expected, uint32_t pixelFormat)
{
    constexpr const char *kSuffixes[] = {" 8 Bit", " 10 Bit", " RGBA"};
    const std::string name = std::string{expected.name} + kSuffixes[pixelFormat];
    const KIVCS2VideoFormat code = expected.code + (pixelFormat << 16);
    SCOPED_TRACE(name);

    EXPECT_STREQ(get<const char *>(kivCS2VideoFormat_getName, code), name.c_str());
    KIVCS2VideoFormat byName = 1;
    EXPECT_EQ(kivCS2VideoFormat_getFormatForName(name.c_str(), &byName), KIVCS2STATUS_OK);
    EXPECT_EQ(byName, code);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getDisplayWidth, code), expected.displayWidth);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getDisplayHeight, code), expected.displayHeight);

    const auto definition = get<const KIVCS2VideoFormatDefinition *>(kivCS2VideoFormat_findDefinition, code);
    ASSERT_NE(definition, nullptr);
    EXPECT_EQ(definition->m_format, code);

    const auto description = get<KIVCS2VideoFormatDescription>(kivCS2VideoFormat_getDescription, code);
    EXPECT_STREQ(description.m_name, name.c_str());
    const uint32_t fields[] = {
        description.m_nativeWidth,   description.m_nativeHeight, description.m_displayWidth,
        description.m_displayHeight, description.m_frameAspect,  description.m_pixelAspect,
        description.m_pixelFormat,   description.m_hSpacing,     description.m_vSpacing,
        description.m_interlaceMode, description.m_frameRate,    description.m_sdiDualLinkMode};
    EXPECT_THAT(fields, testing::ElementsAre(expected.width, expected.height, expected.displayWidth,
                                             expected.displayHeight, expected.aspect, expected.pixelAspect,
                                             pixelFormat, expected.hSpacing, expected.vSpacing,
                                             expected.interlace, expected.rate, expected.dualLink));
    EXPECT_EQ(std::memcmp(&description.m_cleanAperture, &expected.clean, sizeof expected.clean), 0);
    ASSERT_NE(description.m_frameRateInfo, nullptr);
    EXPECT_STREQ(description.m_frameRateInfo->m_shortName, kRates[expected.rate].shortName);
}

TEST(VideoFormat, EveryRowInOrderByCodeNameAndDescription)
{
    const auto *row =
        get<const KIVCS2VideoFormatDefinition *>(kivCS2VideoFormat_findDefinition, kExpected[0].code);
    for (const Expected &expected : kExpected)
        for (uint32_t pixelFormat = 0; pixelFormat < KIVCS2VideoPixelFormat_MAX; ++pixelFormat)
        {
            expectFormat(expected, pixelFormat);
            EXPECT_EQ((row++)->m_format, expected.code + (pixelFormat << 16));
        }
}

TEST(VideoFormat, FrameRateRows)
{
    for (const Expected &expected : kExpected) // every rate is that of some format
    {
        const auto description =
            get<KIVCS2VideoFormatDescription>(kivCS2VideoFormat_getDescription, expected.code);
        const KIVCS2FrameRateInfo &info = *description.m_frameRateInfo;
        const Rate &rate = kRates[expected.rate];
        EXPECT_TRUE(info.m_integerRate == rate.integer && info.m_exactRate == rate.exact &&
                    info.m_hundredths == rate.hundredths && info.m_dropFrame == rate.drop &&
                    info.m_defaultInterlaceMode == rate.interlace)
            << rate.longName;
        EXPECT_STREQ(info.m_longName, rate.longName);
    }
    for (uint32_t code = 0; code < KIVCS2FrameRate_MAX; ++code)
    {
        const Rate &rate = kRates[code];
        EXPECT_EQ(get<double>(kivCS2VideoFormat_frameRateToDouble, code), rate.exact);
        EXPECT_EQ(get<float>(kivCS2VideoFormat_frameRateToFloat, code), static_cast<float>(rate.exact));
        EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_frameRateDefaultInterlaceMode, code), rate.interlace);
        EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_integerToFrameRate, rate.integer), code);
    }
    for (const uint32_t code : {8u, 9u, UINT32_MAX})
    {
        double exact = 7;
        float narrow = 7;
        uint32_t mode = 7;
        EXPECT_EQ(kivCS2VideoFormat_frameRateToDouble(code, &exact), KIVCS2STATUS_FRAME_RATE_ERR);
        EXPECT_EQ(kivCS2VideoFormat_frameRateToFloat(code, &narrow), KIVCS2STATUS_FRAME_RATE_ERR);
        EXPECT_EQ(kivCS2VideoFormat_frameRateDefaultInterlaceMode(code, &mode), KIVCS2STATUS_FRAME_RATE_ERR);
        EXPECT_TRUE(exact == 7 && narrow == 7 && mode == 7);
    }
}

TEST(VideoFormat, FloatRatesAreTruncatedNotRounded)
{
    KIVCS2FrameRate found = 0;
    constexpr float kRatesOfCodes[][2] = {{23.976f, 24.0f}, {24.0f, 25.0f}, {25.9f, 26.0f},  {29.97f, 30.0f},
                                          {30.0f, 31.0f},   {50.0f, 51.0f}, {59.94f, 60.0f}, {60.0f, 61.0f}};
    for (uint32_t code = 0; code < KIVCS2FrameRate_MAX; ++code)
        for (const float rate : {kRatesOfCodes[code][0], std::nextafter(kRatesOfCodes[code][1], 0.0f)})
        {
            EXPECT_EQ(kivCS2VideoFormat_floatToFrameRate(rate, &found), KIVCS2STATUS_OK) << rate;
            EXPECT_EQ(found, code) << rate;
        }
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    found = 99;
    // 2^32 + 25 must not wrap to 25.
    for (const float rate : {31.0f, 22.99f, 61.0f, 0.0f, -24.0f, 4294967321.0f,
                             std::numeric_limits<float>::max(), kInfinity, -kInfinity, std::nanf("")})
        EXPECT_EQ(kivCS2VideoFormat_floatToFrameRate(rate, &found), KIVCS2STATUS_FRAME_RATE_ERR) << rate;
    EXPECT_EQ(found, 99u);
}

TEST(VideoFormat, FirstMatchWins)
{
    // The name is null if there is no format.
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, const char *> cases[] = {
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_23_98, 0, "1080PsF23.98 8 Bit"},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_24, 2, "1080PsF24 RGBA"},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_25, 1, "1080i25 10 Bit"},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_50, 0, "1080p50a 8 Bit"},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_59_94, 2, "1080p59.94a RGBA"},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_60, 1, "1080p60a 10 Bit"},
        {720, 576, 720, 576, KIVCS2FrameRate_25, 0, "625i25 8 Bit"},
        {720, 480, 720, 480, KIVCS2FrameRate_29_97, 0, "525i29.97 DV 8 Bit"},
        {1280, 1080, 1920, 1080, KIVCS2FrameRate_30, 0, "1080i30 HDV 8 Bit"},
        {1440, 1080, 1920, 1080, KIVCS2FrameRate_25, 0, "1080i25 HDV 8 Bit"},
        {1440, 1080, 1440, 1080, KIVCS2FrameRate_25, 0, nullptr},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_25, 3, nullptr},
        {1920, 1080, 1920, 1080, KIVCS2FrameRate_MAX, 0, nullptr},
        {704, 480, 704, 480, KIVCS2FrameRate_29_97, 0, nullptr},
        {1080, 1920, 1080, 1920, KIVCS2FrameRate_25, 0, nullptr},
    };
    for (const auto &[width, height, displayWidth, displayHeight, rate, pixelFormat, name] : cases)
    {
        KIVCS2VideoFormat found = 1;
        KIVCS2VideoFormat named = 0;
        if (name != nullptr)
            (void)kivCS2VideoFormat_getFormatForName(name, &named);
        EXPECT_EQ(kivCS2VideoFormat_matchFormat(width, height, displayWidth, displayHeight, rate, pixelFormat,
                                                &found),
                  name != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(found, named) << (name != nullptr ? name : "none");
    }
}

TEST(VideoFormat, UnknownCodesAndNames)
{
    // Not in the table: 0, an undefined pixel format, a spare bit, and all bits.
    for (const KIVCS2VideoFormat code : {0u, 0x54032601u, 0x54502601u, UINT32_MAX})
    {
        const KIVCS2VideoFormatDefinition *definition = nullptr;
        (void)kivCS2VideoFormat_findDefinition(kExpected[0].code, &definition);
        EXPECT_EQ(kivCS2VideoFormat_findDefinition(code, &definition), KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(definition, nullptr);
        uint32_t size = 7;
        const char *name = "untouched";
        KIVCS2VideoFormatDescription description{};
        EXPECT_EQ(kivCS2VideoFormat_getDisplayWidth(code, &size), KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(kivCS2VideoFormat_getDisplayHeight(code, &size), KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(kivCS2VideoFormat_getName(code, &name), KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(kivCS2VideoFormat_getDescription(code, &description), KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(size, 7u);
        EXPECT_STREQ(name, "untouched");
    }
    for (const char *name : {"", "1080P60B RGBA", "1080p60b", "1080p60b RGBA ", "525i23.98 8 bit"})
    {
        KIVCS2VideoFormat format = 1;
        EXPECT_EQ(kivCS2VideoFormat_getFormatForName(name, &format), KIVCS2STATUS_VIDEO_FORMAT_ERR) << name;
        EXPECT_EQ(format, 0u);
    }
}

TEST(VideoFormat, FieldsOfAnyCode)
{
    constexpr KIVCS2VideoFormat kCode = 0xFE7DCBA9u;
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getFrameAspectRatio, kCode), 0x9u);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getPixelAspectRatio, kCode), 0xAu);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getFrameRate, kCode), 0xBu);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getInterlaceMode, kCode), 0xCu);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getPixelFormat, kCode), 0xDu);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getSDIDualLinkMode, kCode), 3u);
    EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_getFrameRate, 0), 0u);
}

TEST(VideoFormat, SizesAndTheirIndexes)
{
    constexpr uint32_t kWidths[] = {704, 720, 1024, 1280, 1440, 1920};
    constexpr uint32_t kHeights[] = {480, 486, 576, 720, 1080};
    for (uint32_t index = 0; index < 16; ++index)
    {
        uint32_t width = 7;
        uint32_t height = 7;
        const bool isWidth = index < std::size(kWidths);
        const bool isHeight = index < std::size(kHeights);
        EXPECT_EQ(kivCS2VideoFormat_getNativeWidth(index << 28 | 0x0FFFFFFF, &width),
                  isWidth ? KIVCS2STATUS_OK : KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(kivCS2VideoFormat_getNativeHeight(index << 24 | 0xF0FFFFFF, &height),
                  isHeight ? KIVCS2STATUS_OK : KIVCS2STATUS_VIDEO_FORMAT_ERR);
        EXPECT_EQ(width, isWidth ? kWidths[index] : 7u);
        EXPECT_EQ(height, isHeight ? kHeights[index] : 7u);
    }
    for (uint32_t index = 0; index < std::size(kWidths); ++index)
        EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_matchWidth, kWidths[index]), index);
    for (uint32_t index = 0; index < std::size(kHeights); ++index)
        EXPECT_EQ(get<uint32_t>(kivCS2VideoFormat_matchHeight, kHeights[index]), index);
    uint32_t untouched = 7;
    EXPECT_EQ(kivCS2VideoFormat_matchWidth(721, &untouched), KIVCS2STATUS_VIDEO_FORMAT_ERR);
    EXPECT_EQ(kivCS2VideoFormat_matchHeight(0, &untouched), KIVCS2STATUS_VIDEO_FORMAT_ERR);
    EXPECT_EQ(kivCS2VideoFormat_integerToFrameRate(48, &untouched), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(untouched, 7u);
}

TEST(VideoFormat, RefusesMissingArguments)
{
    KIVCS2VideoFormat format = 0;
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2VideoFormat_findDefinition, "definition", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_matchWidth, "widthOut", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_matchHeight, "heightOut", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getNativeWidth, "nativeWidth", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getNativeHeight, "nativeHeight", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getFrameAspectRatio, "frameAspect", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getPixelAspectRatio, "pixelAspect", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getFrameRate, "frameRate", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getInterlaceMode, "interlaceMode", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getPixelFormat, "pixelFormat", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getSDIDualLinkMode, "sdiDualLinkMode", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getDisplayWidth, "displayWidth", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getDisplayHeight, "displayHeight", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getName, "name", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getDescription, "description", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_frameRateToFloat, "outFrameRate", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_frameRateToDouble, "outFrameRate", 0, nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_getFormatForName, "name", nullptr, &format),
        KIV_REQUIRES(kivCS2VideoFormat_getFormatForName, "format", "625i25 8 Bit", nullptr),
        KIV_REQUIRES(kivCS2VideoFormat_matchFormat, "format", 720, 576, 720, 576, 2, 0, nullptr),
    });
}
} // namespace
