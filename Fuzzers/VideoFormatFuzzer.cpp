// Video format codes taken apart, rates as floats, and names. Input: words of 4 bytes, each a code and a
// float, and the whole as a name.
#include "Expect.h"

#include <KIVCoreServices2/KIVCS2VideoFormat.h>

#include <bit>
#include <cstring>
#include <string>

namespace
{
// What is known of any code, in the table or not.
void takeApart(KIVCS2VideoFormat code)
{
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t index = 0;
    const KIVCS2Status widthStatus = kivCS2VideoFormat_getNativeWidth(code, &width);
    const KIVCS2Status heightStatus = kivCS2VideoFormat_getNativeHeight(code, &height);
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(widthStatus) == (code >> 28 >= 6));
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(heightStatus) == ((code >> 24 & 15) >= 5));
    if (KIVCS2_SUCCEEDED(widthStatus))
        KIV_FUZZ_EXPECT(kivCS2VideoFormat_matchWidth(width, &index) == KIVCS2STATUS_OK &&
                        index == code >> 28);
    if (KIVCS2_SUCCEEDED(heightStatus))
        KIV_FUZZ_EXPECT(kivCS2VideoFormat_matchHeight(height, &index) == KIVCS2STATUS_OK &&
                        index == (code >> 24 & 15));

    KIVCS2FrameRate rate = 0;
    float framesPerSecond = 0;
    KIV_FUZZ_EXPECT(kivCS2VideoFormat_getFrameRate(code, &rate) == KIVCS2STATUS_OK);
    const KIVCS2Status rateStatus = kivCS2VideoFormat_frameRateToFloat(rate, &framesPerSecond);
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(rateStatus) == (rate >= KIVCS2FrameRate_MAX));
    KIVCS2FrameRate again = KIVCS2FrameRate_MAX;
    if (KIVCS2_SUCCEEDED(rateStatus))
        KIV_FUZZ_EXPECT(kivCS2VideoFormat_floatToFrameRate(framesPerSecond, &again) == KIVCS2STATUS_OK &&
                        again == rate);
}

// What the table says of a code agrees with its fields, and leads back to it.
void describe(KIVCS2VideoFormat code)
{
    const KIVCS2VideoFormatDefinition *definition = nullptr;
    KIVCS2VideoFormatDescription description{};
    const KIVCS2Status status = kivCS2VideoFormat_findDefinition(code, &definition);
    KIV_FUZZ_EXPECT(kivCS2VideoFormat_getDescription(code, &description) == status);
    KIV_FUZZ_EXPECT((definition == nullptr) == KIVCS2_FAILED(status));
    if (definition == nullptr)
        return;
    KIVCS2VideoFormat named = 0;
    uint32_t width = 0;
    KIV_FUZZ_EXPECT(definition->m_format == code);
    KIV_FUZZ_EXPECT(kivCS2VideoFormat_getFormatForName(description.m_name, &named) == KIVCS2STATUS_OK);
    KIV_FUZZ_EXPECT(named == code);
    KIV_FUZZ_EXPECT(kivCS2VideoFormat_getDisplayWidth(code, &width) == KIVCS2STATUS_OK);
    KIV_FUZZ_EXPECT(width == description.m_displayWidth && width >= description.m_nativeWidth);
    KIV_FUZZ_EXPECT(description.m_frameRate < KIVCS2FrameRate_MAX && description.m_vSpacing != 0);
}

void truncate(float framesPerSecond)
{
    KIVCS2FrameRate rate = KIVCS2FrameRate_MAX;
    const KIVCS2Status status = kivCS2VideoFormat_floatToFrameRate(framesPerSecond, &rate);
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(status) == (rate == KIVCS2FrameRate_MAX));
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(status) || (framesPerSecond >= 23.0F && framesPerSecond < 61.0F));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (size_t at = 0; at + sizeof(uint32_t) <= size && at < 256; at += sizeof(uint32_t))
    {
        uint32_t word = 0;
        std::memcpy(&word, data + at, sizeof word);
        takeApart(word);
        describe(word);
        truncate(std::bit_cast<float>(word));
    }
    const std::string name(reinterpret_cast<const char *>(data), size);
    KIVCS2VideoFormat format = 1;
    const KIVCS2Status status = kivCS2VideoFormat_getFormatForName(name.c_str(), &format);
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(status) == (format == 0));
    return 0;
}
