// Audio format codes of any origin taken apart, and the weave for any sample rate: four bytes of code, four
// of rate, one of frame rate.
#include "Expect.h"

#include "KIVCS2AudioFormat.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    uint32_t code = 0;
    uint32_t sampleRate = 0;
    if (size < sizeof code + sizeof sampleRate + 1)
        return 0;
    std::memcpy(&code, data, sizeof code);
    std::memcpy(&sampleRate, data + sizeof code, sizeof sampleRate);

    KIVCS2AudioFormatDescription description;
    KIV_FUZZ_EXPECT(kivCS2AudioFormat_getDescription(code, &description) == KIVCS2STATUS_OK);
    KIV_FUZZ_EXPECT(description.m_channels >= 1 && description.m_channels <= KIVCS2AFChannels_MAX);
    const uint32_t encoding = code >> 24;
    const uint32_t rate = code >> 20 & 15;
    if (encoding < KIVCS2AFEncoding_MAX && rate < KIVCS2AFSampleRate_MAX &&
        description.m_dataType < KIVCS2AFDataType_MAX && description.m_dataStream < KIVCS2AFDataStream_MAX &&
        description.m_bytesPerSample < KIVCS2AFBytesPerSample_MAX &&
        description.m_bytesUsedPerSample < KIVCS2AFBytesUsedPerSample_MAX)
    {
        KIVCS2AudioFormat packed = 0;
        KIV_FUZZ_EXPECT(
            kivCS2AudioFormat_getFormat(encoding, rate, description.m_dataType, description.m_dataStream,
                                        description.m_endian, description.m_alignment, description.m_channels,
                                        description.m_bytesPerSample, description.m_bytesUsedPerSample,
                                        &packed) == KIVCS2STATUS_OK);
        KIV_FUZZ_EXPECT(packed == code);
    }

    const KIVCS2FrameRate frameRate = data[sizeof code + sizeof sampleRate] % (KIVCS2FrameRate_MAX + 1);
    uint32_t frames = 0;
    uint32_t longest = 0;
    const KIVCS2Status status = kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(
        frameRate, sampleRate, &frames, nullptr, &longest);
    KIV_FUZZ_EXPECT(KIVCS2_FAILED(status) == (frameRate == KIVCS2FrameRate_MAX));
    if (KIVCS2_FAILED(status))
        return 0;
    std::vector<uint32_t> weave(frames);
    KIV_FUZZ_EXPECT(kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(
                        frameRate, sampleRate, &frames, weave.data(), nullptr) == KIVCS2STATUS_OK);
    KIV_FUZZ_EXPECT(frames == weave.size() && weave.front() == longest);
    KIV_FUZZ_EXPECT(std::is_sorted(weave.rbegin(), weave.rend()) && weave.front() - weave.back() <= 1);
    return 0;
}
