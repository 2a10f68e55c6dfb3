// Codecs: the table of names and four-character codes, and the sizes of their frames.
#include "KIVCS2Codec.h"

#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace
{
// Packs a code with the first character in the top byte.
consteval uint32_t fourCC(const char (&text)[5])
{
    uint32_t code = 0;
    for (size_t index = 0; index < 4; ++index)
        code = code << 8 | static_cast<unsigned char>(text[index]);
    return code;
}

// Bytes of the largest frame, by the picture's native height.
struct SampleSizes
{
    uint32_t lines480; // 480 and 486 lines
    uint32_t lines576;
    uint32_t lines720;
    uint32_t lines1080;
    uint32_t others; // other heights
};

consteval SampleSizes always(uint32_t size)
{
    return {size, size, size, size, size};
}

struct Codec
{
    const char *name;
    uint32_t code;
    uint32_t flag; // Photo JPEG and ProRes
    SampleSizes sizes;
};

// Searched in this order.
// Kept: hosts rely on a ProRes proxy frame of 1080 lines being smaller than one of 720.
constexpr std::array<Codec, 23> codecTable = {{
    // clang-format off
    // name                 code            flag  480, 486   576     720     1080   others
    {"DVCPRO 25",           fourCC("dvpp"), 0, always(144000)},
    {"DV PAL",              fourCC("dvcp"), 0, always(144000)},
    {"DV NTSC",             fourCC("dvc "), 0, always(120000)},
    {"DVCPRO50 PAL",        fourCC("dv5p"), 0, always(288000)},
    {"DVCPRO50 NTSC",       fourCC("dv5n"), 0, always(240000)},
    {"IMX30 PAL",           fourCC("mx3p"), 0, always(150528)},
    {"IMX30 NTSC",          fourCC("mx3n"), 0, always(125440)},
    {"IMX40 PAL",           fourCC("mx4p"), 0, always(200192)},
    {"IMX40 NTSC",          fourCC("mx4n"), 0, always(166912)},
    {"IMX50 PAL",           fourCC("mx5p"), 0, always(250368)},
    {"IMX50 NTSC",          fourCC("mx5n"), 0, always(208896)},
    {"Photo JPEG",          fourCC("jpeg"), 1, always(13000)},
    {"ProRes 422",          fourCC("apcn"), 1, {196608,  229376,  350000,  700000, 0}},
    {"ProRes 422 (HQ)",     fourCC("apch"), 1, {300000,  350000,  525000, 1050000, 0}},
    {"ProRes 422 (LT)",     fourCC("apcs"), 1, {196608,  229376,  350000,  700000, 0}},
    {"ProRes 422 (PROXY)",  fourCC("apco"), 1, {196608,  229376,  350000,  225000, 0}},
    {"DVCPRO HD 1080i50",   fourCC("dvh5"), 0, always(576000)},
    {"DVCPRO HD 1080i60",   fourCC("dvh6"), 0, always(480000)},
    {"DVCPRO HD 720p50",    fourCC("dvhq"), 0, always(288000)},
    {"DVCPRO HD 720p60",    fourCC("dvhp"), 0, always(240000)},
    {"Uncompressed 8-bit",  fourCC("2vuy"), 0, {699840,  829440, 1843200, 4147200, 0}},
    {"Uncompressed 10-bit", fourCC("v210"), 0, {933120, 1105920, 2465280, 5529600, 0}},
    {"DNxHD",               fourCC("AVdn"), 0, always(917504)},
    // clang-format on
}};

[[nodiscard]] const Codec *findName(std::string_view name)
{
    const auto *row = std::ranges::find(codecTable, name, &Codec::name);
    return row != codecTable.end() ? row : nullptr;
}

[[nodiscard]] uint32_t sampleSize(const SampleSizes &sizes, uint32_t height)
{
    switch (height)
    {
    case 0:
        return 0;
    case 480:
    case 486:
        return sizes.lines480;
    case 576:
        return sizes.lines576;
    case 720:
        return sizes.lines720;
    case 1080:
        return sizes.lines1080;
    default:
        return sizes.others;
    }
}
} // namespace

KIVCS2Status kivCS2Codec_getFourCCFromString(const char *name, uint32_t *code)
{
    KIV_CHECK(name);
    KIV_CHECK(code);

    const Codec *codec = findName(name);
    if (codec == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    *code = codec->code;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Codec_getStringFromFourCC(uint32_t code, char *text, uint32_t length)
{
    KIV_CHECK(text);

    const auto *codec = std::ranges::find(codecTable, code, &Codec::code);
    if (codec == codecTable.end())
        return KIVCS2STATUS_PARAM_ERR;
    std::strncpy(text, codec->name, length); // Kept: hosts rely on a full buffer having no terminator.
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Codec_getDescription(const char *name, const KIVCS2VideoFormatDescription *format,
                                        KIVCS2CodecDescription *description)
{
    KIV_CHECK(name);
    KIV_CHECK(format);
    KIV_CHECK(description);

    const Codec *codec = findName(name);
    if (codec == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    *description = {codec->name, codec->code, sampleSize(codec->sizes, format->m_nativeHeight)};
    return KIVCS2STATUS_OK;
}
