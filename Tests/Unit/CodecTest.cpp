// Codecs: every row by name and by code, and the sizes of frames.
#include <KIVCoreServices2/KIVCS2Codec.h>

#include "RequiredPointers.h"

#include <array>
#include <cstring>

namespace
{
static_assert(sizeof(KIVCS2CodecDescription) == 16 && offsetof(KIVCS2CodecDescription, m_name) == 0 &&
              offsetof(KIVCS2CodecDescription, m_code) == 8 &&
              offsetof(KIVCS2CodecDescription, m_sampleSize) == 12);

struct Row
{
    std::string name;
    const char *code;
    // At 480 and 486, 576, 720, 1080 lines. A single size is that of every height but 0.
    std::array<uint32_t, 4> sizes;

    [[nodiscard]] uint32_t packed() const
    {
        return static_cast<uint32_t>(code[0]) << 24 | static_cast<uint32_t>(code[1]) << 16 |
               static_cast<uint32_t>(code[2]) << 8 | static_cast<uint32_t>(code[3]);
    }
};

constexpr size_t kNone = 4;
constexpr std::pair<uint32_t, size_t> kHeights[] = {{480, 0},  {486, 0},     {576, 1},   {720, 2},
                                                    {1080, 3}, {481, kNone}, {1, kNone}, {UINT32_MAX, kNone},
                                                    {0, kNone}};

const Row kRows[] = {
    {"DVCPRO 25", "dvpp", {144000}},
    {"DV PAL", "dvcp", {144000}},
    {"DV NTSC", "dvc ", {120000}},
    {"DVCPRO50 PAL", "dv5p", {288000}},
    {"DVCPRO50 NTSC", "dv5n", {240000}},
    {"IMX30 PAL", "mx3p", {150528}},
    {"IMX30 NTSC", "mx3n", {125440}},
    {"IMX40 PAL", "mx4p", {200192}},
    {"IMX40 NTSC", "mx4n", {166912}},
    {"IMX50 PAL", "mx5p", {250368}},
    {"IMX50 NTSC", "mx5n", {208896}},
    {"Photo JPEG", "jpeg", {13000}},
    {"ProRes 422", "apcn", {196608, 229376, 350000, 700000}},
    {"ProRes 422 (HQ)", "apch", {300000, 350000, 525000, 1050000}},
    {"ProRes 422 (LT)", "apcs", {196608, 229376, 350000, 700000}},
    {"ProRes 422 (PROXY)", "apco", {196608, 229376, 350000, 225000}},
    {"DVCPRO HD 1080i50", "dvh5", {576000}},
    {"DVCPRO HD 1080i60", "dvh6", {480000}},
    {"DVCPRO HD 720p50", "dvhq", {288000}},
    {"DVCPRO HD 720p60", "dvhp", {240000}},
    {"Uncompressed 8-bit", "2vuy", {699840, 829440, 1843200, 4147200}},
    {"Uncompressed 10-bit", "v210", {933120, 1105920, 2465280, 5529600}},
    {"DNxHD", "AVdn", {917504}},
};
} // namespace

// A ProRes proxy frame of 1080 lines is smaller than one of 720.
TEST(Codec, EveryRowByNameAndByCode)
{
    for (const Row &row : kRows)
        for (const auto &[height, column] : kHeights)
        {
            KIVCS2VideoFormatDescription format{};
            format.m_nativeHeight = height;
            format.m_displayHeight = 1080;
            KIVCS2CodecDescription description{};
            ASSERT_EQ(kivCS2Codec_getDescription(row.name.c_str(), &format, &description), KIVCS2STATUS_OK);
            const uint32_t size = row.sizes[1] == 0 ? row.sizes[0] : column == kNone ? 0 : row.sizes[column];
            EXPECT_EQ(description.m_sampleSize, height == 0 ? 0 : size) << row.name << " at " << height;
            EXPECT_EQ(description.m_code, row.packed());
            EXPECT_EQ(description.m_name, row.name);
            EXPECT_NE(description.m_name, row.name.c_str()); // static, not the caller's
            uint32_t code = 0;
            char text[20];
            EXPECT_EQ(kivCS2Codec_getFourCCFromString(row.name.c_str(), &code), KIVCS2STATUS_OK);
            EXPECT_EQ(code, row.packed());
            EXPECT_EQ(kivCS2Codec_getStringFromFourCC(code, text, sizeof text), KIVCS2STATUS_OK);
            EXPECT_EQ(text, row.name);
        }
}

TEST(Codec, ANameThatFillsItsBufferHasNoTerminator)
{
    const std::string_view name = "DVCPRO 25";
    for (uint32_t length = 0; length < 16; ++length)
    {
        char text[16];
        std::memset(text, '?', sizeof text);
        ASSERT_EQ(kivCS2Codec_getStringFromFourCC(0x64767070, text, length), KIVCS2STATUS_OK);
        for (uint32_t index = 0; index < sizeof text; ++index)
        {
            const char copied = index < name.size() ? name[index] : '\0';
            EXPECT_EQ(text[index], index < length ? copied : '?') << length << " at " << index;
        }
    }
}

TEST(Codec, UnknownNamesAndCodes)
{
    const KIVCS2VideoFormatDescription format{};
    for (const char *name : {"", "prores 422", "ProRes 422 ", "ProRes", "apcn"})
    {
        uint32_t code = 7;
        KIVCS2CodecDescription description{nullptr, 7, 7};
        EXPECT_EQ(kivCS2Codec_getFourCCFromString(name, &code), KIVCS2STATUS_PARAM_ERR) << name;
        EXPECT_EQ(kivCS2Codec_getDescription(name, &format, &description), KIVCS2STATUS_PARAM_ERR) << name;
        EXPECT_EQ(code, 7u);
        EXPECT_EQ(description.m_sampleSize, 7u);
    }
    for (const uint32_t code : {0u, 0x68637061u, 0x61706348u, UINT32_MAX}) // swapped, other case
    {
        char text[4] = {'?', '?', '?', '?'};
        EXPECT_EQ(kivCS2Codec_getStringFromFourCC(code, text, sizeof text), KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(std::string_view(text, 4), "????");
    }
}

TEST(Codec, RefusesMissingArguments)
{
    KIV_REQUIRES_EACH(kivCS2Codec_getFourCCFromString, "name, code");
    KIV_REQUIRES_EACH(kivCS2Codec_getStringFromFourCC, "text");
    KIV_REQUIRES_EACH(kivCS2Codec_getDescription, "name, format, description");
}
