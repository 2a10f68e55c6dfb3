// The audio converter: every vector level of this machine compared with plain arithmetic, and refusals.
#include "AudioToolbox/PCM.h"

#include <AudioToolbox/AudioToolbox.h>
#include <KIVPlatform/KIVPAudioConverter.h>

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace
{
using kiv::audio::KernelKind;
using kiv::audio::SampleLayout;

std::vector<uint8_t> randomBytes(size_t size)
{
    std::mt19937 random{7};
    std::vector<uint8_t> bytes(size);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

// ---- Plain arithmetic on values, not on bytes ----

int64_t plainLoad(const SampleLayout &layout, const uint8_t *sample)
{
    int64_t value = 0;
    for (uint32_t byte = 0; byte < layout.bytes; ++byte)
        value = value * 256 + sample[layout.isBigEndian ? byte : layout.bytes - 1 - byte];
    const int64_t range = int64_t{1} << layout.bits;
    value = layout.isAlignedHigh ? value >> (8 * layout.bytes - layout.bits) : value % range;
    return layout.isSigned ? (value >= range / 2 ? value - range : value) : value - range / 2;
}

void plainStore(const SampleLayout &layout, int64_t value, uint8_t *sample)
{
    if (!layout.isSigned)
        value += int64_t{1} << (layout.bits - 1);
    if (layout.isAlignedHigh)
        value *= int64_t{1} << (8 * layout.bytes - layout.bits);
    for (uint32_t byte = 0; byte < layout.bytes; ++byte, value >>= 8)
        sample[layout.isBigEndian ? layout.bytes - 1 - byte : byte] = static_cast<uint8_t>(value);
}

void plainConvert(const SampleLayout &in, const SampleLayout &out, const uint8_t *from, uint8_t *to)
{
    int64_t value = plainLoad(in, from);
    if (out.bits >= in.bits)
        value *= int64_t{1} << (out.bits - in.bits);
    else
        value >>= in.bits - out.bits;
    plainStore(out, value, to);
}

// Every way to store a sample.
std::vector<SampleLayout> layouts()
{
    std::vector<SampleLayout> all;
    for (uint32_t bytes = 1; bytes <= 4; ++bytes)
        for (uint32_t bits : {8 * bytes, 8 * bytes - 8, 8 * bytes - 4})
            for (uint32_t flags = 0; bits > 0 && flags < 8; ++flags)
            {
                const bool isHigh = (flags & 4) != 0 || bits == 8 * bytes;
                if (bytes == 1 && (flags & 1) != 0)
                    continue; // one byte has no order
                if (bits == 8 * bytes && (flags & 4) != 0)
                    continue; // nor an alignment if it is full
                all.push_back({bytes, bits, (flags & 1) != 0, (flags & 2) != 0, isHigh});
            }
    return all;
}

std::string describe(const SampleLayout &layout)
{
    return std::to_string(layout.bits) + " in " + std::to_string(layout.bytes) +
           (layout.isBigEndian ? " BE" : " LE") + (layout.isSigned ? " signed" : " unsigned") +
           (layout.isAlignedHigh ? " high" : " low");
}

class PCMKernels : public testing::TestWithParam<KernelKind>
{
protected:
    void SetUp() override
    {
        if (GetParam() > kiv::audio::kernelKind())
            GTEST_SKIP() << "not on this machine";
        kernels = kiv::audio::kernelsOf(GetParam());
    }
    kiv::audio::Kernels kernels{};
};

// Input and output end with their blocks, so that AddressSanitizer detects an access past either.
void expectSplit(const kiv::audio::Kernels &kernels, const SampleLayout &in, const SampleLayout &out,
                 size_t channels, size_t frames, size_t spare)
{
    static const std::vector<uint8_t> source = randomBytes(size_t{1} << 16);
    const size_t inBytes = frames * channels * in.bytes;
    const std::vector<uint8_t> input(source.end() - static_cast<ptrdiff_t>(inBytes), source.end());
    const size_t plane = frames * out.bytes + spare;
    std::vector<uint8_t> expected(channels * plane, 0xEE);
    for (size_t channel = 0; channel < channels; ++channel)
        for (size_t frame = 0; frame < frames; ++frame)
            plainConvert(in, out, input.data() + (frame * channels + channel) * in.bytes,
                         expected.data() + channel * plane + frame * out.bytes);
    std::vector<uint8_t> output(channels * plane, 0xEE);
    kernels.split(kiv::audio::makeConversion(in, out), channels, input.data(), output.data(), plane, frames);
    ASSERT_EQ(output, expected) << describe(in) << " to " << describe(out) << ", " << channels
                                << " channels, " << frames << " frames";
}

void expectConvert(const kiv::audio::Kernels &kernels, const SampleLayout &in, const SampleLayout &out,
                   size_t samples, size_t offset)
{
    static const std::vector<uint8_t> source = randomBytes(4096);
    const std::vector<uint8_t> input(source.end() - static_cast<ptrdiff_t>(offset + samples * in.bytes),
                                     source.end());
    std::vector<uint8_t> output(offset + samples * out.bytes, 0xEE);
    std::vector<uint8_t> expected = output;
    for (size_t index = 0; index < samples; ++index)
        plainConvert(in, out, input.data() + offset + index * in.bytes,
                     expected.data() + offset + index * out.bytes);
    kernels.convert(kiv::audio::makeConversion(in, out), input.data() + offset, output.data() + offset,
                    samples);
    ASSERT_EQ(output, expected) << describe(in) << " to " << describe(out) << ", " << samples;
}

TEST_P(PCMKernels, ConvertAsThePlainArithmeticDoes)
{
    for (const SampleLayout &in : layouts())
        for (const SampleLayout &out : layouts())
            for (const size_t samples : {0, 1, 15, 66, 213})
                ASSERT_NO_FATAL_FAILURE(expectConvert(kernels, in, out, samples, 0));
}

TEST_P(PCMKernels, ConvertEveryLengthAtEveryAlignment)
{
    constexpr SampleLayout s16 = {2, 16, false, true, true};
    constexpr SampleLayout b16 = {2, 16, true, true, true};
    constexpr SampleLayout s24 = {3, 24, false, true, true};
    constexpr SampleLayout b24 = {3, 24, true, true, true};
    const std::pair<SampleLayout, SampleLayout> cases[] = {{s16, s24}, {s24, s16}, {s24, b24}, {s16, b16}};
    for (const auto &[in, out] : cases)
        for (size_t samples = 0; samples < 300; ++samples)
            ASSERT_NO_FATAL_FAILURE(expectConvert(kernels, in, out, samples, samples % 67));
}

// Conversions that no shuffle can do use the plain loop at every level.
TEST_P(PCMKernels, SplitAsThePlainArithmeticDoes)
{
    for (const SampleLayout &in : layouts())
        for (const SampleLayout &out : layouts())
        {
            if (GetParam() != KernelKind::portable && !kiv::audio::makeConversion(in, out).isMove)
                continue;
            for (const size_t channels : {1, 2, 3, 4, 6, 16})
                ASSERT_NO_FATAL_FAILURE(expectSplit(kernels, in, out, channels, 43, 0));
        }
}

TEST_P(PCMKernels, SplitEveryNumberOfChannelsAndFrames)
{
    constexpr SampleLayout s16 = {2, 16, false, true, true};
    constexpr SampleLayout b16 = {2, 16, true, true, true};
    constexpr SampleLayout s24 = {3, 24, false, true, true};
    constexpr SampleLayout high24 = {4, 24, false, true, true};
    const std::pair<SampleLayout, SampleLayout> cases[] = {{s16, s16}, {s16, b16}, {s16, s24}, {high24, s24}};
    for (const auto &[in, out] : cases)
        for (size_t channels = 1; channels <= 18; ++channels)
            for (size_t frames = 0; frames < 110; frames += channels <= 8 || channels == 16 ? 1 : 7)
                ASSERT_NO_FATAL_FAILURE(expectSplit(kernels, in, out, channels, frames, frames % 5));
}

std::string kindName(const testing::TestParamInfo<KernelKind> &kind)
{
    constexpr std::array kNames = {"Portable", "Ssse3OrNeon", "Avx2", "Avx512"};
    return kNames[static_cast<size_t>(kind.param)];
}

INSTANTIATE_TEST_SUITE_P(Kinds, PCMKernels,
                         testing::Values(KernelKind::portable, KernelKind::ssse3, KernelKind::avx2,
                                         KernelKind::avx512),
                         kindName);

// ---- Converters ----

constexpr UInt32 kSigned = kAudioFormatFlagIsSignedInteger;
constexpr UInt32 kPacked = kAudioFormatFlagIsPacked;
constexpr UInt32 kPlanes = kAudioFormatFlagIsNonInterleaved;

AudioStreamBasicDescription pcm(UInt32 flags, UInt32 channels, UInt32 frame, UInt32 bits)
{
    return {48000, kAudioFormatLinearPCM, flags, frame, 1, frame, channels, bits, 0};
}

// A converter that is freed at the end of its scope.
struct Converter
{
    Converter(const AudioStreamBasicDescription &in, const AudioStreamBasicDescription &out)
        : status{AudioConverterNew(&in, &out, &ref)}
    {
    }
    ~Converter()
    {
        if (ref != nullptr)
        {
            EXPECT_EQ(AudioConverterDispose(ref), 0);
        }
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    AudioConverterRef ref = nullptr;
    OSStatus status;
};

TEST(AudioConverters, RefuseWhatContradictsItself)
{
    const AudioStreamBasicDescription good = pcm(kSigned | kPacked, 2, 4, 16);
    EXPECT_EQ((Converter{good, good}.status), 0);
    const auto with = [&good](auto change)
    {
        AudioStreamBasicDescription format = good;
        change(format);
        return format;
    };
    using Format = AudioStreamBasicDescription;
    const Format bad[] = {
        with([](Format &format) { format.mFormatID = kAudioFormatMPEG4AAC; }),
        with([](Format &format)
             { format.mFormatFlags |= kAudioFormatFlagIsFloat; }), // float and signed integer
        with([](Format &format) { format.mFormatFlags |= 8 << kLinearPCMFormatFlagsSampleFractionShift; }),
        with([](Format &format) { format.mSampleRate = 0; }),
        with([](Format &format) { format.mSampleRate = std::numeric_limits<double>::quiet_NaN(); }),
        with([](Format &format) { format.mSampleRate = 44100; }), // the other format has 48000
        with([](Format &format) { format.mFramesPerPacket = 2; }),
        with([](Format &format) { format.mBytesPerPacket = 8; }),
        pcm(kSigned | kPacked, 0, 4, 16),
        pcm(kSigned | kPacked, 3, 6, 16), // a channel that the other format does not have
        pcm(kSigned | kPacked, 2, 5, 16), // the samples have different sizes
        pcm(kSigned | kPacked, 2, 0, 16),
        pcm(kSigned, 2, 10, 16), // five bytes for each sample
        pcm(kSigned, 2, 4, 17),
        pcm(kSigned, 2, 4, 0),
        pcm(kSigned | kPacked, 2, 6, 16), // packed, and a byte left over
    };
    for (const Format &format : bad)
    {
        EXPECT_EQ((Converter{good, format}.status), kAudioConverterErr_FormatNotSupported) << &format - bad;
        if (format.mChannelsPerFrame != 3)
        {
            EXPECT_EQ((Converter{format, good}.status), kAudioConverterErr_FormatNotSupported)
                << &format - bad;
        }
    }
    AudioConverterRef none = nullptr;
    EXPECT_EQ(AudioConverterNew(nullptr, &good, &none), kAudio_ParamError);
    EXPECT_EQ(AudioConverterNew(&good, nullptr, &none), kAudio_ParamError);
    EXPECT_EQ(AudioConverterNew(&good, &good, nullptr), kAudio_ParamError);
    EXPECT_EQ(AudioConverterDispose(nullptr), kAudio_ParamError);
}

TEST(AudioConverters, WriteAllOrNothing)
{
    const Converter converter{pcm(kSigned | kPacked, 2, 4, 16), pcm(kSigned | kPacked, 2, 6, 24)};
    const Converter planes{pcm(kPlanes | kSigned | kPacked, 2, 2, 16),
                           pcm(kPlanes | kSigned | kPacked, 2, 3, 24)};
    ASSERT_EQ(converter.status, 0);
    ASSERT_EQ(planes.status, 0);
    const uint8_t input[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    std::vector<uint8_t> output(12, 0xEE);
    UInt32 size = 12;
    EXPECT_EQ(AudioConverterConvertBuffer(converter.ref, 6, input, &size, output.data()),
              kAudioConverterErr_InvalidInputSize);
    size = 11;
    EXPECT_EQ(AudioConverterConvertBuffer(converter.ref, 8, input, &size, output.data()),
              kAudioConverterErr_InvalidOutputSize);
    EXPECT_EQ(AudioConverterConvertBuffer(planes.ref, 8, input, &size, output.data()),
              kAudioConverterErr_FormatNotSupported);
    EXPECT_EQ(AudioConverterConvertBuffer(nullptr, 8, input, &size, output.data()), kAudio_ParamError);
    EXPECT_EQ(AudioConverterConvertBuffer(converter.ref, 8, nullptr, &size, output.data()),
              kAudio_ParamError);
    EXPECT_EQ(AudioConverterConvertBuffer(converter.ref, 8, input, nullptr, output.data()),
              kAudio_ParamError);
    EXPECT_EQ(AudioConverterConvertBuffer(converter.ref, 8, input, &size, nullptr), kAudio_ParamError);
    EXPECT_EQ(KIVPAudioConverterSplit(converter.ref, 8, input, 12, output.data()),
              kAudioConverterErr_FormatNotSupported);
    EXPECT_EQ(size, 11u);
    EXPECT_EQ(output, std::vector<uint8_t>(12, 0xEE));
    size = 20;
    EXPECT_EQ(AudioConverterConvertBuffer(converter.ref, 8, input, &size, output.data()), 0);
    EXPECT_EQ(size, 12u);
    EXPECT_EQ(output, (std::vector<uint8_t>{0, 1, 2, 0, 3, 4, 0, 5, 6, 0, 7, 8}));
}

// PCMConverterFuzzer compares the samples.
TEST(AudioConverters, SplitNeedsWholeFramesAndRoomForThem)
{
    const Converter converter{pcm(kSigned | kPacked, 5, 10, 16), pcm(kSigned | kPacked | kPlanes, 1, 3, 24)};
    const std::vector<uint8_t> input(20);
    std::vector<uint8_t> planes(30);
    for (const auto &[size, plane, status] :
         {std::tuple{20u, 5u, OSStatus{kAudioConverterErr_InvalidOutputSize}},
          {19u, 6u, kAudioConverterErr_InvalidInputSize},
          {20u, 6u, 0}})
        EXPECT_EQ(KIVPAudioConverterSplit(converter.ref, size, input.data(), plane, planes.data()), status);
}
} // namespace
