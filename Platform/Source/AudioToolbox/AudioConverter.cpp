// Audio converters: the accepted pairs of formats, and the checks before a conversion.
#include <AudioToolbox/AudioConverter.h>
#include <KIVPlatform/KIVPAudioConverter.h>

#include "AudioToolbox/PCM.h"

#include <cmath>
#include <cstring>
#include <new>
#include <optional>

struct OpaqueAudioConverter
{
    kiv::audio::Conversion conversion;
    kiv::audio::Kernels kernels;
    size_t inChannels;  // samples in a frame of the input
    size_t outChannels; // samples in a frame of the output, at most `inChannels`
    bool isOneBuffer;   // on both sides; several planes are several buffers
};

namespace
{
bool has(const AudioStreamBasicDescription &format, AudioFormatFlags flag)
{
    return (format.mFormatFlags & flag) != 0;
}

bool isOneBuffer(const AudioStreamBasicDescription &format)
{
    return !has(format, kAudioFormatFlagIsNonInterleaved) || format.mChannelsPerFrame == 1;
}

// Returns an empty value if the description is not integer linear PCM or contradicts itself.
std::optional<kiv::audio::SampleLayout> sampleLayout(const AudioStreamBasicDescription &format)
{
    constexpr UInt32 kMaxSampleBytes = 4;
    constexpr AudioFormatFlags kNotInteger =
        kAudioFormatFlagIsFloat | kLinearPCMFormatFlagsSampleFractionMask;
    if (format.mFormatID != kAudioFormatLinearPCM || has(format, kNotInteger))
        return std::nullopt;
    if (!std::isfinite(format.mSampleRate) || format.mSampleRate <= 0)
        return std::nullopt;
    if (format.mFramesPerPacket != 1 || format.mBytesPerPacket != format.mBytesPerFrame)
        return std::nullopt;

    const UInt32 samples = has(format, kAudioFormatFlagIsNonInterleaved) ? 1 : format.mChannelsPerFrame;
    if (format.mChannelsPerFrame == 0 || format.mBytesPerFrame % samples != 0)
        return std::nullopt;
    const UInt32 bytes = format.mBytesPerFrame / samples;
    if (bytes == 0 || bytes > kMaxSampleBytes)
        return std::nullopt;
    const UInt32 bits = format.mBitsPerChannel;
    if (bits == 0 || bits > 8 * bytes || (has(format, kAudioFormatFlagIsPacked) && bits != 8 * bytes))
        return std::nullopt;

    return kiv::audio::SampleLayout{bytes, bits, has(format, kAudioFormatFlagIsBigEndian),
                                    has(format, kAudioFormatFlagIsSignedInteger),
                                    has(format, kAudioFormatFlagIsAlignedHigh)};
}
} // namespace

OSStatus AudioConverterNew(const AudioStreamBasicDescription *inSourceFormat,
                           const AudioStreamBasicDescription *inDestinationFormat,
                           AudioConverterRef *outAudioConverter)
{
    if (inSourceFormat == nullptr || inDestinationFormat == nullptr || outAudioConverter == nullptr)
        return kAudio_ParamError;
    const auto in = sampleLayout(*inSourceFormat);
    const auto out = sampleLayout(*inDestinationFormat);
    if (!in || !out || inSourceFormat->mSampleRate != inDestinationFormat->mSampleRate ||
        inSourceFormat->mChannelsPerFrame < inDestinationFormat->mChannelsPerFrame)
        return kAudioConverterErr_FormatNotSupported;

    auto *converter = new (std::nothrow) OpaqueAudioConverter{
        kiv::audio::makeConversion(*in, *out), kiv::audio::kernelsOf(kiv::audio::kernelKind()),
        inSourceFormat->mChannelsPerFrame, inDestinationFormat->mChannelsPerFrame,
        isOneBuffer(*inSourceFormat) && isOneBuffer(*inDestinationFormat)};
    if (converter == nullptr)
        return kAudio_MemFullError;
    *outAudioConverter = converter;
    return 0;
}

OSStatus AudioConverterDispose(AudioConverterRef inAudioConverter)
{
    if (inAudioConverter == nullptr)
        return kAudio_ParamError;
    delete inAudioConverter;
    return 0;
}

OSStatus AudioConverterConvertBuffer(AudioConverterRef inAudioConverter, UInt32 inInputDataSize,
                                     const void *inInputData, UInt32 *ioOutputDataSize, void *outOutputData)
{
    if (inAudioConverter == nullptr || inInputData == nullptr || ioOutputDataSize == nullptr ||
        outOutputData == nullptr)
        return kAudio_ParamError;
    const OpaqueAudioConverter &converter = *inAudioConverter;
    const kiv::audio::Conversion &conversion = converter.conversion;
    if (!converter.isOneBuffer)
        return kAudioConverterErr_FormatNotSupported;

    const size_t inFrame = converter.inChannels * conversion.in.bytes;
    const size_t outFrame = converter.outChannels * conversion.out.bytes;
    const size_t frames = inInputDataSize / inFrame;
    if (inInputDataSize % inFrame != 0)
        return kAudioConverterErr_InvalidInputSize;
    if (*ioOutputDataSize < frames * outFrame)
        return kAudioConverterErr_InvalidOutputSize;

    const auto *in = static_cast<const uint8_t *>(inInputData);
    auto *out = static_cast<uint8_t *>(outOutputData);
    if (converter.inChannels == converter.outChannels)
        converter.kernels.convert(conversion, in, out, frames * converter.inChannels);
    else
        for (size_t channel = 0; channel < converter.outChannels; ++channel)
            kiv::audio::convertStrided(conversion, in + channel * conversion.in.bytes, inFrame,
                                       out + channel * conversion.out.bytes, outFrame, frames);
    *ioOutputDataSize = static_cast<UInt32>(frames * outFrame);
    return 0;
}

OSStatus KIVPAudioConverterSplit(AudioConverterRef converter, UInt32 inInputDataSize, const void *inInputData,
                                 UInt32 planeSize, void *outPlanes)
{
    if (converter == nullptr || inInputData == nullptr || outPlanes == nullptr)
        return kAudio_ParamError;
    const kiv::audio::Conversion &conversion = converter->conversion;
    if (!converter->isOneBuffer || converter->outChannels != 1)
        return kAudioConverterErr_FormatNotSupported;

    const size_t inFrame = converter->inChannels * conversion.in.bytes;
    const size_t frames = inInputDataSize / inFrame;
    if (inInputDataSize % inFrame != 0)
        return kAudioConverterErr_InvalidInputSize;
    if (planeSize < frames * conversion.out.bytes)
        return kAudioConverterErr_InvalidOutputSize;

    converter->kernels.split(conversion, converter->inChannels, static_cast<const uint8_t *>(inInputData),
                             static_cast<uint8_t *>(outPlanes), planeSize, frames);
    return 0;
}
