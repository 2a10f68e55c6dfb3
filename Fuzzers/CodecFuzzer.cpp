// Four-character codes and names of codecs. Input: a code of 4 bytes, the room for its name, a height of 4
// bytes, and a name.
#include "Expect.h"

#include <KIVCoreServices2/KIVCS2Codec.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr size_t kHead = 9;
    if (size < kHead)
        return 0;
    uint32_t code = 0;
    KIVCS2VideoFormatDescription format{};
    std::memcpy(&code, data, sizeof code);
    std::memcpy(&format.m_nativeHeight, data + 5, sizeof format.m_nativeHeight);

    // Exactly the room that is told, so that a byte more is seen.
    std::vector<char> room(data[4], '?');
    room.reserve(1); // a place also where there is no room
    const bool isKnown = KIVCS2_SUCCEEDED(
        kivCS2Codec_getStringFromFourCC(code, room.data(), static_cast<uint32_t>(room.size())));
    if (isKnown && std::find(room.begin(), room.end(), '\0') != room.end())
    {
        KIVCS2CodecDescription description{};
        KIV_FUZZ_EXPECT(kivCS2Codec_getDescription(room.data(), &format, &description) == KIVCS2STATUS_OK);
        KIV_FUZZ_EXPECT(description.m_code == code && std::string_view{description.m_name} == room.data());
        KIV_FUZZ_EXPECT(format.m_nativeHeight != 0 || description.m_sampleSize == 0);
    }

    const std::string name(reinterpret_cast<const char *>(data) + kHead, size - kHead);
    uint32_t named = 0;
    KIVCS2CodecDescription description{};
    const KIVCS2Status status = kivCS2Codec_getFourCCFromString(name.c_str(), &named);
    KIV_FUZZ_EXPECT(kivCS2Codec_getDescription(name.c_str(), &format, &description) == status);
    KIV_FUZZ_EXPECT(description.m_code == named);
    return 0;
}
