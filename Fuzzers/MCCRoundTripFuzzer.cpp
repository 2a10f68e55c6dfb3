// Captions made of the input's bytes are written and read back: the same records must come.
#include "CaptionInput.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace
{
constexpr size_t kMost = 16; // captions of a run; empty ones have no more to say

// Takes captions off the input: a byte of flags and gap, a byte of number, a byte of size, the CDP.
std::vector<KIVCS2ClosedCaption> captionsOf(KIVCS2ClosedCaptionsMCCStream &mcc, const uint8_t *data,
                                            size_t size, uint32_t version)
{
    std::vector<KIVCS2ClosedCaption> captions;
    KIVCS2Timecode timecode = 0;
    captions.reserve(kMost);
    while (size > 3 && captions.size() < kMost)
    {
        const size_t cdpSize = std::min<size_t>(data[2], size - 3);
        KIVCS2ClosedCaption caption;
        require(kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet(
                    &mcc, &caption, &timecode, data + 3, static_cast<uint32_t>(cdpSize)) == KIVCS2STATUS_OK);
        if (version == 2 && (data[0] & 1) != 0)
        {
            caption.m_flags |= KIVCS2ClosedCaptionFlag_HasField;
            caption.m_field = data[0] >> 1 & 1;
            if ((data[0] & 4) != 0)
            {
                caption.m_flags |= KIVCS2ClosedCaptionFlag_HasNumber;
                caption.m_number = data[1] * 0x808080u >> (data[1] & 7) & 0x7FFFFFFFu;
            }
        }
        captions.push_back(caption);
        timecode += 1u + (data[0] >> 3);
        data += 3 + cdpSize;
        size -= 3 + cdpSize;
    }
    return captions;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kiv::fuzz::setRateOnce();
    if (size == 0)
        return 0;
    size = std::min<size_t>(size, 1024); // four full packets: more only repeats
    const uint32_t version = data[0] % 2 + 1u;

    KIVCS2MemoryStream memory;
    require(kivCS2MemoryStream_init(&memory, 4096, 4096) == KIVCS2STATUS_OK);
    KIVCS2ClosedCaptionsMCCStream out;
    require(kivCS2ClosedCaptionsMCCStream_init(&out, &memory.m_stream, false, false) == KIVCS2STATUS_OK);
    require(kivCS2ClosedCaptionsMCCStream_writeHeader(&out, version, "u", "fuzzer", "d", "t") ==
            KIVCS2STATUS_OK);
    const auto captions = captionsOf(out, data + 1, size - 1, version);
    for (const KIVCS2ClosedCaption &caption : captions)
        require(kivCS2ClosedCaptionsMCCStream_writeCaption(&out, &caption) == KIVCS2STATUS_OK);
    require(kivCS2ClosedCaptionsMCCStream_free(&out) == KIVCS2STATUS_OK);

    require(kivCS2Stream_setPosition(&memory.m_stream, 0, KIVCS2StreamPosition_Start, nullptr) ==
            KIVCS2STATUS_OK);
    KIVCS2ClosedCaptionsMCCStream in;
    require(kivCS2ClosedCaptionsMCCStream_init(&in, &memory.m_stream, true, true) == KIVCS2STATUS_OK);
    require(kivCS2ClosedCaptionsMCCStream_readHeader(&in) ==
            (captions.empty() ? KIVCS2STATUS_NO_DATA_ERR : KIVCS2STATUS_OK));
    for (const KIVCS2ClosedCaption &expected : captions)
    {
        KIVCS2ClosedCaption caption;
        require(kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&in, &expected.m_timecode, &caption) ==
                KIVCS2STATUS_OK);
        require(std::memcmp(&caption, &expected, sizeof caption) == 0);
    }
    require(kivCS2ClosedCaptionsMCCStream_free(&in) == KIVCS2STATUS_OK);
    return 0;
}
