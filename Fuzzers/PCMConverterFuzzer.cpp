// Formats of a PCM converter and lengths of its input. The input has the flags and channels of the
// description, the bytes of a frame past those of its samples, the bits and bytes of a sample, a byte of
// options, then the audio. If the top bit of the options is set, a whole description precedes the audio.
#include "Require.h"

#include "KIVCS2PCMAudioConverter.h"

#include <AudioToolbox/PCM.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
constexpr size_t kHeader = 6;
constexpr uint32_t kWidths[] = {0, 16, 24, 20};
constexpr uint32_t kLargestOutput = 1 << 20;

using Bytes = std::vector<uint8_t>;

// Every channel of a split equals the result of the platform's own call.
void convertPlanes(KIVCS2PCMAudioConverter &converter, const Bytes &input, Bytes &output)
{
    const uint32_t channels = converter.m_inputFormat.mChannelsPerFrame;
    const auto length = static_cast<uint32_t>(input.size());
    std::vector<void *> positions(channels);
    uint32_t distance = 0;
    const KIVCS2Status status = kivCS2PCMAudioConverter_convert(
        &converter, input.data(), length, output.data(), channels, positions.data(), &distance);
    if (KIVCS2_FAILED(status))
    {
        require(distance == 0 && positions[0] == nullptr);
        return;
    }
    require(distance == output.size() / channels);
    const uint32_t sample = converter.m_inputFormat.mBytesPerFrame / channels;
    for (uint32_t channel = 0; channel < channels; ++channel)
    {
        require(positions[channel] == output.data() + size_t{channel} * distance);
        Bytes plane(distance + 1);
        UInt32 written = distance;
        require(AudioConverterConvertBuffer(converter.m_converter, length,
                                            input.data() + size_t{channel} * sample, &written,
                                            plane.data()) == 0);
        require(std::memcmp(positions[channel], plane.data(), written) == 0);
    }
}

// The best kernel gives the result of the plain loop.
void convertInterleaved(KIVCS2PCMAudioConverter &converter, const Bytes &input, Bytes &output)
{
    auto written = static_cast<uint32_t>(output.size());
    const KIVCS2Status status = kivCS2PCMAudioConverter_convertInterleaved(
        &converter, input.data(), static_cast<uint32_t>(input.size()), output.data(), &written);
    require(written <= output.size());
    if (KIVCS2_FAILED(status))
        return;
    const auto layout = [](const AudioStreamBasicDescription &format)
    {
        const UInt32 samples =
            (format.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0 ? 1 : format.mChannelsPerFrame;
        return kiv::audio::SampleLayout{format.mBytesPerFrame / samples, format.mBitsPerChannel,
                                        (format.mFormatFlags & kAudioFormatFlagIsBigEndian) != 0,
                                        (format.mFormatFlags & kAudioFormatFlagIsSignedInteger) != 0,
                                        (format.mFormatFlags & kAudioFormatFlagIsAlignedHigh) != 0};
    };
    const kiv::audio::SampleLayout in = layout(converter.m_inputFormat);
    Bytes plain(output.size());
    kiv::audio::kernelsOf(kiv::audio::KernelKind::portable)
        .convert(kiv::audio::makeConversion(in, layout(converter.m_outputFormat)), input.data(), plain.data(),
                 input.size() / in.bytes);
    require(std::equal(plain.begin(), plain.begin() + written, output.begin()));
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < kHeader)
        return 0;
    const uint8_t options = data[5];
    const UInt32 channels = data[1];
    const UInt32 frame =
        ((data[0] & kAudioFormatFlagIsNonInterleaved) != 0 ? 1 : channels) * data[4] + data[2];
    AudioStreamBasicDescription format = {
        48000, kAudioFormatLinearPCM, data[0], frame, 1, frame, channels, data[3], 0};
    data += kHeader;
    size -= kHeader;
    if ((options & 0x80) != 0 && size >= sizeof format)
    {
        std::memcpy(&format, data, sizeof format);
        data += sizeof format;
        size -= sizeof format;
    }
    const bool deinterleave = (options & 1) != 0;
    KIVCS2PCMAudioConverter converter;
    const KIVCS2Status made = kivCS2PCMAudioConverter_init(&converter, &format, deinterleave,
                                                           (options & 2) != 0, kWidths[options >> 2 & 3]);
    require(KIVCS2_FAILED(made) == (converter.m_converter == nullptr));
    if (KIVCS2_FAILED(made))
        return 0;

    // Exactly as long as stated, so that AddressSanitizer detects an access past either end.
    Bytes input(data, data + size);
    input.reserve(1);
    uint32_t outBytes = 0;
    uint32_t samples = 0;
    const auto length = static_cast<uint32_t>(size);
    (void)kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(&converter, length, &samples);
    if (KIVCS2_SUCCEEDED(
            kivCS2PCMAudioConverter_getOutputBytesForInputLength(&converter, length, &outBytes)) &&
        outBytes <= kLargestOutput && format.mChannelsPerFrame <= kLargestOutput)
    {
        Bytes output(outBytes);
        output.reserve(1);
        if (deinterleave)
            convertPlanes(converter, input, output);
        else
            convertInterleaved(converter, input, output);
    }
    require(kivCS2PCMAudioConverter_free(&converter) == KIVCS2STATUS_OK);
    return 0;
}
