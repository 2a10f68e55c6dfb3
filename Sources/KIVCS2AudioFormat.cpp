// Audio formats: the packed code, and the weave of samples over video frames.
#include "KIVCS2AudioFormat.h"

#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace
{
// Kept: hosts rely on unpacking a code of any origin. The fields have four bits, so the tables cover all of
// their values; values without a meaning give 0.
constexpr size_t kFieldValues = 16;
constexpr std::array<uint32_t, kFieldValues> audioFormatEncoding = {
    0x6C70636D, // 'lpcm'
    0x61616320, // 'aac '
};
constexpr std::array<uint32_t, kFieldValues> audioFormatSampleRate = {44100, 48000};

// A field of a code: its lowest bit, and its number of bits.
struct Field
{
    uint32_t shift;
    uint32_t width;

    [[nodiscard]] constexpr uint32_t put(uint32_t value) const
    {
        return value << shift;
    }
    [[nodiscard]] constexpr uint32_t take(KIVCS2AudioFormat format) const
    {
        return format >> shift & ((1u << width) - 1);
    }
};

constexpr Field kEncoding = {24, 4};
constexpr Field kSampleRate = {20, 4};
constexpr Field kDataType = {16, 4};
constexpr Field kDataStream = {12, 4};
constexpr Field kChannels = {8, 4}; // less one
constexpr Field kEndian = {7, 1};
constexpr Field kAlignment = {6, 1};
constexpr Field kBytesPerSample = {3, 3};     // less one
constexpr Field kBytesUsedPerSample = {0, 3}; // less one

// Kept: hosts rely on this tolerance; it decides where a cycle ends, above all for rates that divide badly.
constexpr double kWholeSamples = 0.001;

bool isWhole(double samples)
{
    return std::fabs(std::rint(samples) - samples) <= kWholeSamples;
}
} // namespace

KIVCS2Status kivCS2AudioFormat_getFormat(uint32_t encoding, uint32_t sampleRate, uint32_t dataType,
                                         uint32_t dataStream, uint32_t endian, uint32_t alignment,
                                         uint32_t channels, uint32_t bytesPerSample,
                                         uint32_t bytesUsedPerSample, KIVCS2AudioFormat *format)
{
    KIV_CHECK(encoding < KIVCS2AFEncoding_MAX);
    KIV_CHECK(sampleRate < KIVCS2AFSampleRate_MAX);
    KIV_CHECK(dataType < KIVCS2AFDataType_MAX);
    KIV_CHECK(dataStream < KIVCS2AFDataStream_MAX);
    KIV_CHECK(endian < KIVCS2AFEndian_MAX);
    KIV_CHECK(alignment < KIVCS2AFAlignment_MAX);
    KIV_CHECK((channels > 0) && (channels <= KIVCS2AFChannels_MAX));
    // Kept: hosts rely on 8 bytes being accepted without assertions, and being stopped with them.
    KIV_ASSERT((bytesPerSample > 0) && (bytesPerSample < KIVCS2AFBytesPerSample_MAX));
    if (bytesPerSample == 0 || bytesPerSample > KIVCS2AFBytesPerSample_MAX)
        return KIVCS2STATUS_PARAM_ERR;
    KIV_ASSERT((bytesUsedPerSample > 0) && (bytesUsedPerSample < KIVCS2AFBytesUsedPerSample_MAX));
    if (bytesUsedPerSample == 0 || bytesUsedPerSample > KIVCS2AFBytesUsedPerSample_MAX)
        return KIVCS2STATUS_PARAM_ERR;
    KIV_CHECK(format);

    *format = kEncoding.put(encoding) | kSampleRate.put(sampleRate) | kDataType.put(dataType) |
              kDataStream.put(dataStream) | kChannels.put(channels - 1) | kEndian.put(endian) |
              kAlignment.put(alignment) | kBytesPerSample.put(bytesPerSample - 1) |
              kBytesUsedPerSample.put(bytesUsedPerSample - 1);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2AudioFormat_getDescription(KIVCS2AudioFormat format,
                                              KIVCS2AudioFormatDescription *description)
{
    KIV_CHECK(description);

    *description = {
        .m_encoding = audioFormatEncoding[kEncoding.take(format)],
        .m_sampleRate = audioFormatSampleRate[kSampleRate.take(format)],
        .m_dataType = kDataType.take(format),
        .m_dataStream = kDataStream.take(format),
        .m_endian = kEndian.take(format),
        .m_alignment = kAlignment.take(format),
        .m_channels = kChannels.take(format) + 1,
        .m_bytesPerSample = kBytesPerSample.take(format) + 1,
        .m_bytesUsedPerSample = kBytesUsedPerSample.take(format) + 1,
    };
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(KIVCS2FrameRate frameRate,
                                                                 uint32_t sampleRate, uint32_t *weaveSize,
                                                                 uint32_t *weave,
                                                                 uint32_t *maxSamplesPerFrame)
{
    KIV_CHECK(weaveSize);

    double framesPerSecond = 0;
    KIV_TRY(kivCS2VideoFormat_frameRateToDouble(frameRate, &framesPerSecond));
    const double samples = sampleRate / framesPerSecond; // per frame

    uint32_t frames = 1;  // in the cycle
    double sum = samples; // added up frame by frame, as hosts do
    while (!isWhole(sum))
    {
        sum += samples;
        ++frames;
    }

    // Kept: hosts rely on the truncation, which may leave a cycle one sample short of its sum, and on the
    // larger counts coming first.
    const auto larger = static_cast<uint32_t>(frames * (samples - std::trunc(samples)));
    const auto high = static_cast<uint32_t>(std::ceil(samples));
    const uint32_t low = larger != 0 ? static_cast<uint32_t>(std::floor(samples)) : high;
    if (weave != nullptr)
    {
        if (*weaveSize < frames)
            return KIVCS2STATUS_BUFFER_SIZE_ERR;
        std::fill_n(std::fill_n(weave, larger, high), frames - larger, low);
    }
    if (maxSamplesPerFrame != nullptr)
        *maxSamplesPerFrame = std::max(high, low);
    *weaveSize = frames;
    return KIVCS2STATUS_OK;
}
