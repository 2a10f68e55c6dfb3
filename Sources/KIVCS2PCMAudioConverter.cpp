// PCM conversion: the output's description, the sizes, and the planes of a split.
#include "KIVCS2PCMAudioConverter.h"

#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPAudioConverter.h>

namespace
{
// Kept: hosts rely on their sizes being computed with 3 bytes for every width but 16 bits.
constexpr uint32_t bytesOfBits(uint32_t bits)
{
    return bits == 16 ? 2 : 3;
}

bool isSet(const AudioStreamBasicDescription &format, AudioFormatFlags flag)
{
    return (format.mFormatFlags & flag) != 0;
}

// 0 for an empty description, and for planes with more channels than one frame has bytes.
uint32_t bytesOfSample(const AudioStreamBasicDescription &format)
{
    return format.mChannelsPerFrame != 0 ? format.mBytesPerFrame / format.mChannelsPerFrame : 0;
}

void setFrameBytes(AudioStreamBasicDescription &format, uint32_t bytes)
{
    format.mBytesPerFrame = bytes;
    format.mBytesPerPacket = bytes;
}

// Derives the output from an input; PARAM_ERR for an unknown width.
KIVCS2Status makeOutputFormat(const AudioStreamBasicDescription &input, bool deinterleave, bool swapByteOrder,
                              uint32_t bits, AudioStreamBasicDescription &output)
{
    output = input;
    if (swapByteOrder)
        output.mFormatFlags ^= kAudioFormatFlagIsBigEndian;
    if (bits != 0 && bits != 16 && bits != 24)
        return KIVCS2STATUS_PARAM_ERR;
    if (bits != 0 && bits != input.mBitsPerChannel)
    {
        output.mBitsPerChannel = bits;
        setFrameBytes(output, output.mChannelsPerFrame * bytesOfBits(bits));
        output.mFormatFlags |= kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    }
    if (deinterleave)
    {
        output.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
        setFrameBytes(output, bytesOfBits(output.mBitsPerChannel));
        output.mChannelsPerFrame = 1;
    }
    return KIVCS2STATUS_OK;
}
} // namespace

KIVCS2Status kivCS2PCMAudioConverter_init(KIVCS2PCMAudioConverter *converter,
                                          const AudioStreamBasicDescription *inputFormat, bool deinterleave,
                                          bool swapByteOrder, uint32_t outputBitsPerSample)
{
    KIV_CHECK(converter);
    *converter = {};
    KIV_CHECK(inputFormat);

    if (deinterleave && isSet(*inputFormat, kAudioFormatFlagIsNonInterleaved))
        return KIVCS2STATUS_PARAM_ERR;
    AudioStreamBasicDescription outputFormat;
    KIV_TRY(makeOutputFormat(*inputFormat, deinterleave, swapByteOrder, outputBitsPerSample, outputFormat));
    if (AudioConverterNew(inputFormat, &outputFormat, &converter->m_converter) != 0)
        return KIVCS2STATUS_PARAM_ERR;
    converter->m_inputFormat = *inputFormat;
    converter->m_outputFormat = outputFormat;
    converter->m_deinterleave = deinterleave ? 1 : 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PCMAudioConverter_free(KIVCS2PCMAudioConverter *converter)
{
    KIV_CHECK(converter);

    if (AudioConverterDispose(converter->m_converter) == 0)
        *converter = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PCMAudioConverter_getOutputBytesForInputLength(const KIVCS2PCMAudioConverter *converter,
                                                                  uint32_t inputLength, uint32_t *outBytes)
{
    KIV_CHECK(converter);
    KIV_CHECK(outBytes);

    const AudioStreamBasicDescription &input = converter->m_inputFormat;
    const AudioStreamBasicDescription &output = converter->m_outputFormat;
    uint32_t length = inputLength;
    if (!isSet(input, kAudioFormatFlagIsPacked))
    {
        if (bytesOfSample(input) == 0)
            return KIVCS2STATUS_PARAM_ERR;
        length = length / bytesOfSample(input) * bytesOfSample(output);
    }
    *outBytes = length / bytesOfBits(input.mBitsPerChannel) * bytesOfBits(output.mBitsPerChannel);
    return KIVCS2STATUS_OK;
}

KIVCS2Status
kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(const KIVCS2PCMAudioConverter *converter,
                                                               uint32_t inputLength, uint32_t *outSampleCount)
{
    KIV_CHECK(converter);
    KIV_CHECK(outSampleCount);

    const AudioStreamBasicDescription &input = converter->m_inputFormat;
    const uint32_t frameBytes = input.mChannelsPerFrame * bytesOfSample(input);
    if (frameBytes == 0)
        return KIVCS2STATUS_PARAM_ERR;
    *outSampleCount = inputLength / frameBytes;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PCMAudioConverter_convert(KIVCS2PCMAudioConverter *converter, const void *inputData,
                                             uint32_t inputLength, void *outputData,
                                             uint32_t numberOfPositions, void **positions,
                                             uint32_t *outBytesPerPosition)
{
    KIV_CHECK(converter);
    KIV_CHECK(inputData);
    KIV_CHECK(outputData);
    KIV_CHECK(positions);
    KIV_CHECK(outBytesPerPosition);

    // Kept: hosts rely on the interleaved input being laid out as one position, without any conversion.
    const uint32_t expected = converter->m_deinterleave != 0 ? converter->m_inputFormat.mChannelsPerFrame : 1;
    if (numberOfPositions == 0 || numberOfPositions != expected)
        return KIVCS2STATUS_PARAM_ERR;
    uint32_t outBytes = 0;
    KIV_TRY(kivCS2PCMAudioConverter_getOutputBytesForInputLength(converter, inputLength, &outBytes));
    const uint32_t bytesPerPosition = outBytes / numberOfPositions;
    if (converter->m_deinterleave != 0 &&
        KIVPAudioConverterSplit(converter->m_converter, inputLength, inputData, bytesPerPosition,
                                outputData) != 0)
        return KIVCS2STATUS_PARAM_ERR;

    auto *position = static_cast<uint8_t *>(outputData);
    for (uint32_t index = 0; index < numberOfPositions; ++index)
        positions[index] = position + size_t{index} * bytesPerPosition;
    *outBytesPerPosition = bytesPerPosition;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PCMAudioConverter_convertInterleaved(KIVCS2PCMAudioConverter *converter,
                                                        const void *inputData, uint32_t inputLength,
                                                        void *outputData, uint32_t *outputLength)
{
    KIV_CHECK(converter);
    KIV_CHECK(inputData);
    KIV_CHECK(outputData);
    KIV_CHECK(outputLength);

    if (converter->m_deinterleave != 0 ||
        AudioConverterConvertBuffer(converter->m_converter, inputLength, inputData, outputLength,
                                    outputData) != 0)
        return KIVCS2STATUS_PARAM_ERR;
    return KIVCS2STATUS_OK;
}
