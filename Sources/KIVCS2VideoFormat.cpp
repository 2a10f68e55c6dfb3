// Video formats: the tables of formats and frame rates, and the operations on a code.
#include "KIVCS2VideoFormat.h"

#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

namespace
{
// ---- Frame rates ----

// Kept: hosts rely on these texts, on 23.98 counting as drop frame, and on truncated integer rates.
constexpr std::array<KIVCS2FrameRateInfo, KIVCS2FrameRate_MAX> frameRateInfos = {{
    // clang-format off
    {23, 24000.0 / 1001.0, 2398, 1, KIVCS2InterlaceMode_Progressive,     "2398", "24fps drop frame"},
    {24, 24.0,             2400, 0, KIVCS2InterlaceMode_Progressive,     "24",   "24fps"},
    {25, 25.0,             2500, 0, KIVCS2InterlaceMode_UpperFieldFirst, "25",   "25fps"},
    {29, 30000.0 / 1001.0, 2997, 1, KIVCS2InterlaceMode_LowerFieldFirst, "2997", "30fps drop frame"},
    {30, 30.0,             3000, 0, KIVCS2InterlaceMode_UpperFieldFirst, "30",   "30fps"},
    {50, 50.0,             5000, 0, KIVCS2InterlaceMode_Progressive,     "50",   "50fps"},
    {59, 60000.0 / 1001.0, 5994, 1, KIVCS2InterlaceMode_Progressive,     "5994", "60fps drop frame"},
    {60, 60.0,             6000, 0, KIVCS2InterlaceMode_Progressive,     "60",   "60fps"},
    // clang-format on
}};

constexpr float kRateLimit = 61.0f; // above every rate of the table, far below an integer overflow

// ---- Sizes and shapes; the indexes are part of a format code ----

// Kept: hosts rely on the indexes, so 704 and 1024 stay although no format has them.
constexpr std::array<uint32_t, 6> videoFormatWidths = {704, 720, 1024, 1280, 1440, 1920};
constexpr std::array<uint32_t, 5> videoFormatHeights = {480, 486, 576, 720, 1080};

constexpr std::array<uint32_t, KIVCS2PixelAspect_MAX> videoFormatHSpacings = {1,  4,  16, 12, 8, 10,
                                                                              64, 16, 32, 40, 3, 59};
constexpr std::array<uint32_t, KIVCS2PixelAspect_MAX> videoFormatVSpacings = {1,  3,  15, 11, 9, 11,
                                                                              45, 11, 27, 33, 2, 54};

// Kept: hosts rely on 480 clean lines of 486.
constexpr KIVCS2CleanAperture cleanAperture_720_486 = {704, 1, 480, 1};
constexpr KIVCS2CleanAperture cleanAperture_720_480 = {704, 1, 480, 1};
constexpr KIVCS2CleanAperture cleanAperture_720_576 = {41472, 59, 576, 1};
constexpr KIVCS2CleanAperture cleanAperture_1280_720 = {1280, 1, 720, 1};
constexpr KIVCS2CleanAperture cleanAperture_1920_1080 = {1920, 1, 1080, 1};
constexpr KIVCS2CleanAperture cleanAperture_1440_1080 = {1440, 1, 1080, 1};
constexpr KIVCS2CleanAperture cleanAperture_1280_1080 = {1280, 1, 1080, 1};

// ---- The fields of a code ----

struct CodeField
{
    uint32_t shift;
    uint32_t bits;
};
constexpr CodeField kFrameAspect = {0, 4};
constexpr CodeField kPixelAspect = {4, 4};
constexpr CodeField kFrameRate = {8, 4};
constexpr CodeField kInterlaceMode = {12, 4};
constexpr CodeField kPixelFormat = {16, 4};
constexpr CodeField kDualLink = {20, 2};
constexpr CodeField kHeightIndex = {24, 4};
constexpr CodeField kWidthIndex = {28, 4};

constexpr uint32_t get(KIVCS2VideoFormat format, CodeField field)
{
    return (format >> field.shift) & ((1u << field.bits) - 1u);
}

// The index of `value` in `table`, or the table's size.
constexpr uint32_t indexOf(std::span<const uint32_t> table, uint32_t value)
{
    return static_cast<uint32_t>(std::find(table.begin(), table.end(), value) - table.begin());
}

// ---- Formats ----

struct BaseFormat
{
    std::array<std::string_view, KIVCS2VideoPixelFormat_MAX> names;
    uint32_t width; // native
    uint32_t height;
    uint32_t displayWidth;
    uint32_t displayHeight;
    KIVCS2FrameAspect frameAspect;
    KIVCS2PixelAspect pixelAspect;
    KIVCS2FrameRate frameRate;
    KIVCS2InterlaceMode interlaceMode;
    KIVCS2SDIDualLinkMode dualLink;
    const KIVCS2CleanAperture *cleanAperture;
};

#define KIV_NAMES(base)                                                                                      \
    {                                                                                                        \
        base " 8 Bit", base " 10 Bit", base " RGBA"                                                          \
    }

constexpr size_t kBaseFormats = 25;

constexpr KIVCS2FrameAspect k4x3 = KIVCS2FrameAspect_4x3;
constexpr KIVCS2FrameAspect k16x9 = KIVCS2FrameAspect_16x9;
constexpr KIVCS2InterlaceMode kUpper = KIVCS2InterlaceMode_UpperFieldFirst;
constexpr KIVCS2InterlaceMode kLower = KIVCS2InterlaceMode_LowerFieldFirst;
constexpr KIVCS2InterlaceMode kProgressive = KIVCS2InterlaceMode_Progressive;
constexpr KIVCS2InterlaceMode kSegmented = KIVCS2InterlaceMode_SegmentedFrame;

// Searched in this order: the first format that matches wins.
// Kept: hosts rely on 525i23.98 with 486 lines, lower field first; on 625i25 DV being lower field first while
// 625i25 is upper; and on the two HDV widths having different pixels.
constexpr std::array<BaseFormat, kBaseFormats> kBase = {{
    // clang-format off
    // names                        native      display     shape  pixel                    rate
    // fields        dual link                      clean aperture
    {KIV_NAMES("525i23.98"),       720,  486,  720,  486, k4x3,  KIVCS2PixelAspect_10x11, KIVCS2FrameRate_23_98, kLower,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_720_486},
    {KIV_NAMES("525i29.97"),       720,  486,  720,  486, k4x3,  KIVCS2PixelAspect_10x11, KIVCS2FrameRate_29_97, kLower,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_720_486},
    {KIV_NAMES("525i29.97 DV"),    720,  480,  720,  480, k4x3,  KIVCS2PixelAspect_10x11, KIVCS2FrameRate_29_97, kLower,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_720_480},
    {KIV_NAMES("625i25"),          720,  576,  720,  576, k4x3,  KIVCS2PixelAspect_59x54, KIVCS2FrameRate_25,    kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_720_576},
    {KIV_NAMES("625i25 DV"),       720,  576,  720,  576, k4x3,  KIVCS2PixelAspect_59x54, KIVCS2FrameRate_25,    kLower,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_720_576},
    {KIV_NAMES("720p23.98"),      1280,  720, 1280,  720, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_23_98, kProgressive, KIVCS2SDIDualLinkMode_None,   &cleanAperture_1280_720},
    {KIV_NAMES("720p50"),         1280,  720, 1280,  720, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_50,    kProgressive, KIVCS2SDIDualLinkMode_None,   &cleanAperture_1280_720},
    {KIV_NAMES("720p59.94"),      1280,  720, 1280,  720, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_59_94, kProgressive, KIVCS2SDIDualLinkMode_None,   &cleanAperture_1280_720},
    {KIV_NAMES("720p60"),         1280,  720, 1280,  720, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_60,    kProgressive, KIVCS2SDIDualLinkMode_None,   &cleanAperture_1280_720},
    {KIV_NAMES("1080i25"),        1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_25,    kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080i25 HDV"),    1440, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_4x3,   KIVCS2FrameRate_25,    kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_1440_1080},
    {KIV_NAMES("1080i29.97"),     1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_29_97, kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080i29.97 HDV"), 1280, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_3x2,   KIVCS2FrameRate_29_97, kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_1280_1080},
    {KIV_NAMES("1080i30"),        1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_30,    kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080i30 HDV"),    1280, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_3x2,   KIVCS2FrameRate_30,    kUpper,       KIVCS2SDIDualLinkMode_None,   &cleanAperture_1280_1080},
    {KIV_NAMES("1080PsF23.98"),   1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_23_98, kSegmented,   KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080PsF24"),      1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_24,    kSegmented,   KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080p23.98"),     1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_23_98, kProgressive, KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080p24"),        1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_24,    kProgressive, KIVCS2SDIDualLinkMode_None,   &cleanAperture_1920_1080},
    {KIV_NAMES("1080p50a"),       1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_50,    kProgressive, KIVCS2SDIDualLinkMode_LevelA, &cleanAperture_1920_1080},
    {KIV_NAMES("1080p59.94a"),    1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_59_94, kProgressive, KIVCS2SDIDualLinkMode_LevelA, &cleanAperture_1920_1080},
    {KIV_NAMES("1080p60a"),       1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_60,    kProgressive, KIVCS2SDIDualLinkMode_LevelA, &cleanAperture_1920_1080},
    {KIV_NAMES("1080p50b"),       1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_50,    kProgressive, KIVCS2SDIDualLinkMode_LevelB, &cleanAperture_1920_1080},
    {KIV_NAMES("1080p59.94b"),    1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_59_94, kProgressive, KIVCS2SDIDualLinkMode_LevelB, &cleanAperture_1920_1080},
    {KIV_NAMES("1080p60b"),       1920, 1080, 1920, 1080, k16x9, KIVCS2PixelAspect_1x1,   KIVCS2FrameRate_60,    kProgressive, KIVCS2SDIDualLinkMode_LevelB, &cleanAperture_1920_1080},
    // clang-format on
}};
#undef KIV_NAMES

constexpr size_t kVideoFormats = kBaseFormats * KIVCS2VideoPixelFormat_MAX;

constexpr KIVCS2VideoFormat pack(const BaseFormat &base, KIVCS2VideoPixelFormat pixelFormat)
{
    return base.frameAspect << kFrameAspect.shift | base.pixelAspect << kPixelAspect.shift |
           base.frameRate << kFrameRate.shift | base.interlaceMode << kInterlaceMode.shift |
           pixelFormat << kPixelFormat.shift | base.dualLink << kDualLink.shift |
           indexOf(videoFormatHeights, base.height) << kHeightIndex.shift |
           indexOf(videoFormatWidths, base.width) << kWidthIndex.shift;
}

// Each base format as 8 Bit, 10 Bit and RGBA, one after the other.
constexpr std::array<KIVCS2VideoFormatDefinition, kVideoFormats> expand()
{
    std::array<KIVCS2VideoFormatDefinition, kVideoFormats> rows{};
    for (size_t row = 0; row < rows.size(); ++row)
    {
        const BaseFormat &base = kBase[row / KIVCS2VideoPixelFormat_MAX];
        const auto pixelFormat = static_cast<KIVCS2VideoPixelFormat>(row % KIVCS2VideoPixelFormat_MAX);
        rows[row] = {pack(base, pixelFormat), indexOf(videoFormatWidths, base.displayWidth),
                     indexOf(videoFormatHeights, base.displayHeight), base.names[pixelFormat].data(),
                     base.cleanAperture};
    }
    return rows;
}

constexpr std::array<KIVCS2VideoFormatDefinition, kVideoFormats> videoFormats = expand();
static_assert(videoFormats.size() == 75);

// Every index of the table names a size, so the operations on rows need not check again.
static_assert(std::all_of(videoFormats.begin(), videoFormats.end(),
                          [](const auto &row)
                          {
                              return get(row.m_format, kWidthIndex) < videoFormatWidths.size() &&
                                     get(row.m_format, kHeightIndex) < videoFormatHeights.size() &&
                                     row.m_displayWidthIndex < videoFormatWidths.size() &&
                                     row.m_displayHeightIndex < videoFormatHeights.size();
                          }));

// Stores the index of `value` in `table`.
[[nodiscard]] KIVCS2Status match(std::span<const uint32_t> table, uint32_t value, uint32_t &index)
{
    const uint32_t found = indexOf(table, value);
    if (found == table.size())
        return KIVCS2STATUS_VIDEO_FORMAT_ERR;
    index = found;
    return KIVCS2STATUS_OK;
}

// Stores the entry of `table` at `index`, which comes from a code and may be anything.
[[nodiscard]] KIVCS2Status lookUp(std::span<const uint32_t> table, uint32_t index, uint32_t &value)
{
    if (index >= table.size())
        return KIVCS2STATUS_VIDEO_FORMAT_ERR;
    value = table[index];
    return KIVCS2STATUS_OK;
}

// The properties that are compared to match a format, from a row of the table.
struct Properties
{
    uint32_t nativeWidth, nativeHeight, displayWidth, displayHeight, frameRate, pixelFormat;

    bool operator==(const Properties &) const = default;
};

[[nodiscard]] constexpr Properties propertiesOf(const KIVCS2VideoFormatDefinition &row)
{
    return {videoFormatWidths[get(row.m_format, kWidthIndex)],
            videoFormatHeights[get(row.m_format, kHeightIndex)],
            videoFormatWidths[row.m_displayWidthIndex],
            videoFormatHeights[row.m_displayHeightIndex],
            get(row.m_format, kFrameRate),
            get(row.m_format, kPixelFormat)};
}

// Stores the code of the first row that `fits`, or 0.
template <class Predicate>
[[nodiscard]] KIVCS2Status firstFormat(KIVCS2VideoFormat &format, Predicate fits)
{
    const auto row = std::find_if(videoFormats.begin(), videoFormats.end(), fits);
    format = row != videoFormats.end() ? row->m_format : 0;
    return row != videoFormats.end() ? KIVCS2STATUS_OK : KIVCS2STATUS_VIDEO_FORMAT_ERR;
}
} // namespace

// ---- Table ----

KIVCS2Status kivCS2VideoFormat_findDefinition(KIVCS2VideoFormat format,
                                              const KIVCS2VideoFormatDefinition **definition)
{
    KIV_CHECK(definition);

    const auto row = std::find_if(videoFormats.begin(), videoFormats.end(),
                                  [format](const auto &candidate) { return candidate.m_format == format; });
    const bool found = row != videoFormats.end();
    *definition = found ? &*row : nullptr;
    return found ? KIVCS2STATUS_OK : KIVCS2STATUS_VIDEO_FORMAT_ERR;
}

KIVCS2Status kivCS2VideoFormat_matchWidth(uint32_t width, uint32_t *widthOut)
{
    KIV_CHECK(widthOut);

    return match(videoFormatWidths, width, *widthOut);
}

KIVCS2Status kivCS2VideoFormat_matchHeight(uint32_t height, uint32_t *heightOut)
{
    KIV_CHECK(heightOut);

    return match(videoFormatHeights, height, *heightOut);
}

// ---- Fields of a code ----

KIVCS2Status kivCS2VideoFormat_getNativeWidth(KIVCS2VideoFormat format, uint32_t *nativeWidth)
{
    KIV_CHECK(nativeWidth);

    return lookUp(videoFormatWidths, get(format, kWidthIndex), *nativeWidth);
}

KIVCS2Status kivCS2VideoFormat_getNativeHeight(KIVCS2VideoFormat format, uint32_t *nativeHeight)
{
    KIV_CHECK(nativeHeight);

    return lookUp(videoFormatHeights, get(format, kHeightIndex), *nativeHeight);
}

KIVCS2Status kivCS2VideoFormat_getFrameAspectRatio(KIVCS2VideoFormat format, KIVCS2FrameAspect *frameAspect)
{
    KIV_CHECK(frameAspect);

    *frameAspect = get(format, kFrameAspect);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getPixelAspectRatio(KIVCS2VideoFormat format, KIVCS2PixelAspect *pixelAspect)
{
    KIV_CHECK(pixelAspect);

    *pixelAspect = get(format, kPixelAspect);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getFrameRate(KIVCS2VideoFormat format, KIVCS2FrameRate *frameRate)
{
    KIV_CHECK(frameRate);

    *frameRate = get(format, kFrameRate);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getInterlaceMode(KIVCS2VideoFormat format, KIVCS2InterlaceMode *interlaceMode)
{
    KIV_CHECK(interlaceMode);

    *interlaceMode = get(format, kInterlaceMode);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getPixelFormat(KIVCS2VideoFormat format, KIVCS2VideoPixelFormat *pixelFormat)
{
    KIV_CHECK(pixelFormat);

    *pixelFormat = get(format, kPixelFormat);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getSDIDualLinkMode(KIVCS2VideoFormat format,
                                                  KIVCS2SDIDualLinkMode *sdiDualLinkMode)
{
    KIV_CHECK(sdiDualLinkMode);

    *sdiDualLinkMode = get(format, kDualLink);
    return KIVCS2STATUS_OK;
}

// ---- Properties that only the table holds ----

KIVCS2Status kivCS2VideoFormat_getDisplayWidth(KIVCS2VideoFormat format, uint32_t *displayWidth)
{
    KIV_CHECK(displayWidth);

    const KIVCS2VideoFormatDefinition *definition = nullptr;
    KIV_TRY(kivCS2VideoFormat_findDefinition(format, &definition));
    *displayWidth = videoFormatWidths[definition->m_displayWidthIndex];
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getDisplayHeight(KIVCS2VideoFormat format, uint32_t *displayHeight)
{
    KIV_CHECK(displayHeight);

    const KIVCS2VideoFormatDefinition *definition = nullptr;
    KIV_TRY(kivCS2VideoFormat_findDefinition(format, &definition));
    *displayHeight = videoFormatHeights[definition->m_displayHeightIndex];
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getName(KIVCS2VideoFormat format, const char **name)
{
    KIV_CHECK(name);

    const KIVCS2VideoFormatDefinition *definition = nullptr;
    KIV_TRY(kivCS2VideoFormat_findDefinition(format, &definition));
    *name = definition->m_name;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getDescription(KIVCS2VideoFormat format,
                                              KIVCS2VideoFormatDescription *description)
{
    KIV_CHECK(description);

    const KIVCS2VideoFormatDefinition *definition = nullptr;
    KIV_TRY(kivCS2VideoFormat_findDefinition(format, &definition));

    // A row's own fields are in range, so no step below can fail.
    const Properties properties = propertiesOf(*definition);
    const KIVCS2PixelAspect pixelAspect = get(format, kPixelAspect);
    *description = {
        .m_name = definition->m_name,
        .m_nativeWidth = properties.nativeWidth,
        .m_nativeHeight = properties.nativeHeight,
        .m_displayWidth = properties.displayWidth,
        .m_displayHeight = properties.displayHeight,
        .m_frameAspect = get(format, kFrameAspect),
        .m_pixelAspect = pixelAspect,
        .m_pixelFormat = properties.pixelFormat,
        .m_hSpacing = videoFormatHSpacings[pixelAspect],
        .m_vSpacing = videoFormatVSpacings[pixelAspect],
        .m_cleanAperture = *definition->m_cleanAperture,
        .m_interlaceMode = get(format, kInterlaceMode),
        .m_frameRate = properties.frameRate,
        .m_sdiDualLinkMode = get(format, kDualLink),
        .m_frameRateInfo = &frameRateInfos[properties.frameRate],
    };
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_getFormatForName(const char *name, KIVCS2VideoFormat *format)
{
    KIV_CHECK(name);
    KIV_CHECK(format);

    return firstFormat(*format,
                       [wanted = std::string_view{name}](const auto &row) { return row.m_name == wanted; });
}

KIVCS2Status kivCS2VideoFormat_matchFormat(uint32_t nativeWidth, uint32_t nativeHeight, uint32_t displayWidth,
                                           uint32_t displayHeight, KIVCS2FrameRate frameRate,
                                           KIVCS2VideoPixelFormat pixelFormat, KIVCS2VideoFormat *format)
{
    KIV_CHECK(format);

    // Kept: hosts rely on the first match; interlace mode, aspects and dual link are ignored.
    const Properties wanted = {nativeWidth,   nativeHeight, displayWidth,
                               displayHeight, frameRate,    pixelFormat};
    return firstFormat(*format, [&wanted](const auto &row) { return propertiesOf(row) == wanted; });
}

// ---- Frame rates ----

KIVCS2Status kivCS2VideoFormat_integerToFrameRate(uint32_t integerRate, KIVCS2FrameRate *frameRate)
{
    const auto row =
        std::find_if(frameRateInfos.begin(), frameRateInfos.end(),
                     [integerRate](const auto &info) { return info.m_integerRate == integerRate; });
    if (row == frameRateInfos.end())
        return KIVCS2STATUS_FRAME_RATE_ERR;
    *frameRate = static_cast<KIVCS2FrameRate>(row - frameRateInfos.begin());
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_floatToFrameRate(float rate, KIVCS2FrameRate *frameRate)
{
    // NaN, negative or above every rate: converting it would be undefined.
    if (!(rate >= 0.0f && rate < kRateLimit))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    // Kept: hosts rely on truncation; 29.999 is 29.97.
    return kivCS2VideoFormat_integerToFrameRate(static_cast<uint32_t>(rate), frameRate);
}

KIVCS2Status kivCS2VideoFormat_frameRateToFloat(KIVCS2FrameRate frameRate, float *outFrameRate)
{
    KIV_CHECK(outFrameRate);

    double exact = 0.0;
    KIV_TRY(kivCS2VideoFormat_frameRateToDouble(frameRate, &exact));
    *outFrameRate = static_cast<float>(exact);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_frameRateToDouble(KIVCS2FrameRate frameRate, double *outFrameRate)
{
    KIV_CHECK(outFrameRate);

    if (frameRate >= KIVCS2FrameRate_MAX)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    *outFrameRate = frameRateInfos[frameRate].m_exactRate;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2VideoFormat_frameRateDefaultInterlaceMode(KIVCS2FrameRate frameRate,
                                                             KIVCS2InterlaceMode *interlaceMode)
{
    if (frameRate >= KIVCS2FrameRate_MAX)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    *interlaceMode = frameRateInfos[frameRate].m_defaultInterlaceMode;
    return KIVCS2STATUS_OK;
}
