// PCM conversion: derived formats, refusals, and the layout of the planes.
#include "RequiredPointers.h"

#include <KIVCoreServices2/KIVCS2PCMAudioConverter.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace
{
static_assert(sizeof(AudioStreamBasicDescription) == 40);
static_assert(offsetof(AudioStreamBasicDescription, mBytesPerPacket) == 16);
static_assert(offsetof(AudioStreamBasicDescription, mBitsPerChannel) == 32);
static_assert(sizeof(KIVCS2PCMAudioConverter) == 96);
static_assert(offsetof(KIVCS2PCMAudioConverter, m_inputFormat) == 8);
static_assert(offsetof(KIVCS2PCMAudioConverter, m_outputFormat) == 48);
static_assert(offsetof(KIVCS2PCMAudioConverter, m_deinterleave) == 88);

constexpr UInt32 kBig = kAudioFormatFlagIsBigEndian;
constexpr UInt32 kSigned = kAudioFormatFlagIsSignedInteger;
constexpr UInt32 kPacked = kAudioFormatFlagIsPacked;
constexpr UInt32 kHigh = kAudioFormatFlagIsAlignedHigh;
constexpr UInt32 kPlanes = kAudioFormatFlagIsNonInterleaved;

// Interleaved, or in planes if the flags contain that.
AudioStreamBasicDescription pcm(UInt32 flags, UInt32 channels, UInt32 bytes, UInt32 bits)
{
    const UInt32 frame = (flags & kPlanes) != 0 ? bytes : channels * bytes;
    return {48000, kAudioFormatLinearPCM, flags, frame, 1, frame, channels, bits, 0};
}

constexpr KIVCS2Status kOK = KIVCS2STATUS_OK, kParam = KIVCS2STATUS_PARAM_ERR;
using Bytes = std::vector<uint8_t>;

// A converter for one test, with its output.
struct Converter : KIVCS2PCMAudioConverter
{
    KIVCS2Status status;

    Converter(const AudioStreamBasicDescription &input, bool deinterleave, bool swap, uint32_t bits)
        : KIVCS2PCMAudioConverter{}, status{
                                         kivCS2PCMAudioConverter_init(this, &input, deinterleave, swap, bits)}
    {
    }
    ~Converter()
    {
        EXPECT_EQ(kivCS2PCMAudioConverter_free(this), kOK);
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    [[nodiscard]] uint32_t outBytes(uint32_t length) const
    {
        uint32_t bytes = 0;
        EXPECT_EQ(kivCS2PCMAudioConverter_getOutputBytesForInputLength(this, length, &bytes), kOK);
        return bytes;
    }
    // Fills `output` with the planes; `positions` and `distance` are set on success only.
    KIVCS2Status split(const Bytes &input, uint32_t count)
    {
        return kivCS2PCMAudioConverter_convert(this, input.data(), static_cast<uint32_t>(input.size()),
                                               output.data(), count, positions, &distance);
    }
    KIVCS2Status interleave(const Bytes &input, uint32_t &length)
    {
        return kivCS2PCMAudioConverter_convertInterleaved(
            this, input.data(), static_cast<uint32_t>(input.size()), output.data(), &length);
    }

    Bytes output = Bytes(12800, 0xEE);
    void *positions[4]{};
    uint32_t distance = 7;
};

TEST(PCMAudioConverter, DerivesTheOutputFromTheInput)
{
    const auto s16 = pcm(kSigned | kPacked, 6, 2, 16);
    const auto s24in32 = pcm(kSigned | kHigh, 6, 4, 24);
    const struct
    {
        AudioStreamBasicDescription input;
        bool deinterleave, swap;
        uint32_t bits, flags, frame, channels, outputBits;
    } cases[] = {
        {s16, false, false, 0, kSigned | kPacked, 12, 6, 16},
        {s16, false, true, 16, kBig | kSigned | kPacked, 12, 6, 16},
        {s16, false, false, 24, kSigned | kPacked, 18, 6, 24},
        {s16, true, false, 0, kPlanes | kSigned | kPacked, 2, 1, 16},
        {s16, true, true, 24, kPlanes | kBig | kSigned | kPacked, 3, 1, 24},
        {pcm(kBig | kSigned | kPacked, 2, 2, 16), false, true, 0, kSigned | kPacked, 4, 2, 16},
        {pcm(kPacked, 2, 1, 8), false, false, 16, kSigned | kPacked, 4, 2, 16}, // unsigned becomes signed
        {s24in32, false, false, 24, kSigned | kHigh, 24, 6, 24}, // the same width keeps the layout
        {s24in32, true, false, 0, kPlanes | kSigned | kHigh, 3, 1, 24},
        {s24in32, true, false, 16, kPlanes | kSigned | kPacked | kHigh, 2, 1, 16},
        {pcm(kPlanes | kSigned | kPacked, 1, 2, 16), false, true, 0, kPlanes | kBig | kSigned | kPacked, 2, 1,
         16},
    };
    for (const auto &row : cases)
    {
        const Converter converter{row.input, row.deinterleave, row.swap, row.bits};
        ASSERT_EQ(converter.status, kOK) << &row - cases;
        EXPECT_NE(converter.m_converter, nullptr);
        EXPECT_EQ(std::memcmp(&converter.m_inputFormat, &row.input, sizeof row.input), 0);
        AudioStreamBasicDescription output = row.input;
        output.mFormatFlags = row.flags;
        output.mBytesPerFrame = output.mBytesPerPacket = row.frame;
        output.mChannelsPerFrame = row.channels;
        output.mBitsPerChannel = row.outputBits;
        EXPECT_EQ(std::memcmp(&converter.m_outputFormat, &output, sizeof output), 0) << &row - cases;
        EXPECT_EQ(converter.m_deinterleave, row.deinterleave ? 1 : 0);
    }
}

TEST(PCMAudioConverter, RefusesWhatItCannotDerive)
{
    const struct
    {
        AudioStreamBasicDescription input;
        bool deinterleave;
        uint32_t bits;
    } cases[] = {
        {pcm(kSigned | kPacked, 2, 2, 16), false, 20},
        {pcm(kSigned | kPacked, 2, 2, 16), true, 8},
        {pcm(kSigned | kPacked, 2, 2, 16), false, 32},
        {pcm(kPlanes | kSigned | kPacked, 2, 2, 16), true, 0},   // already planes
        {pcm(kSigned | kPacked, 2, 4, 32), true, 0},             // 32 bits in planes of 3 bytes
        {pcm(kPacked, 2, 1, 8), true, 0},                        // 8 bits declared as packed in 3 bytes
        {pcm(kPlanes | kSigned | kPacked, 2, 2, 16), false, 24}, // 6 bytes for each sample of a plane
        {pcm(kAudioFormatFlagIsFloat | kPacked, 2, 4, 32), true, 16},
        {pcm(kSigned | kPacked, 0x55555556, 3, 24), false, 24}, // a frame beyond 32 bits
        {{}, false, 0},
    };
    for (const auto &row : cases)
    {
        const Converter converter{row.input, row.deinterleave, false, row.bits};
        EXPECT_EQ(converter.status, kParam) << &row - cases;
        EXPECT_EQ(converter.m_converter, nullptr);
        EXPECT_EQ(converter.m_inputFormat.mFormatID, 0u);
    }
}

// Samples of 8 and 32 bits count as 3 bytes like those of 24.
TEST(PCMAudioConverter, SizesCountOnlyTwoOrThreeBytes)
{
    const struct
    {
        AudioStreamBasicDescription input;
        bool deinterleave;
        uint32_t bits, length, bytes, samples;
    } cases[] = {
        {pcm(kSigned | kPacked, 2, 2, 16), true, 24, 400, 600, 100},
        {pcm(kSigned | kPacked, 2, 2, 16), true, 24, 403, 603, 100},
        {pcm(kSigned | kPacked, 2, 3, 24), true, 16, 600, 400, 100},
        {pcm(kSigned | kHigh, 2, 4, 24), true, 0, 800, 600, 100},
        {pcm(kSigned | kHigh, 2, 4, 24), true, 16, 800, 266, 100},   // 800 / 4 * 2 = 400, / 3 * 2
        {pcm(kSigned | kPacked, 2, 4, 32), true, 16, 800, 532, 100}, // 800 / 3 * 2
        {pcm(kPacked, 2, 1, 8), false, 16, 200, 132, 100},           // 200 / 3 * 2
        {pcm(kSigned | kPacked, 1, 2, 16), false, 24, UINT32_MAX, 0x7FFFFFFD, 0x7FFFFFFF}, // modulo 2^32
    };
    for (const auto &row : cases)
    {
        const Converter converter{row.input, row.deinterleave, false, row.bits};
        ASSERT_EQ(converter.status, kOK) << &row - cases;
        EXPECT_EQ(converter.outBytes(row.length), row.bytes) << &row - cases;
        uint32_t samples = 0;
        EXPECT_EQ(
            kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(&converter, row.length, &samples),
            kOK);
        EXPECT_EQ(samples, row.samples) << &row - cases;
    }
}

TEST(PCMAudioConverter, DoesNotDivideByZero)
{
    const KIVCS2PCMAudioConverter fresh{};
    const Converter planes{pcm(kPlanes | kSigned, 16, 4, 24), false, false, 0}; // 4 bytes / 16 channels
    ASSERT_EQ(planes.status, kOK);
    for (const KIVCS2PCMAudioConverter *converter :
         {&fresh, static_cast<const KIVCS2PCMAudioConverter *>(&planes)})
    {
        uint32_t count = 7;
        EXPECT_EQ(kivCS2PCMAudioConverter_getOutputBytesForInputLength(converter, 96, &count), kParam);
        EXPECT_EQ(kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(converter, 96, &count),
                  kParam);
        EXPECT_EQ(count, 7u);
    }
}

// 32-bit samples count as 3 bytes, so planes of 16 bits are a third longer than their contents.
TEST(PCMAudioConverter, SplitsChannelsIntoPlanesOneAfterTheOther)
{
    const std::tuple<AudioStreamBasicDescription, bool, uint32_t, uint32_t, Bytes, Bytes> cases[] = {
        {pcm(kSigned | kPacked, 3, 2, 16),
         true,
         24,
         6,
         {0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04, 0x84, 0x05, 0x85, 0x06, 0x86},
         {0x81, 0x01, 0, 0x84, 0x04, 0, 0x82, 0x02, 0, 0x85, 0x05, 0, 0x83, 0x03, 0, 0x86, 0x06, 0}},
        {pcm(kSigned | kPacked, 2, 4, 32),
         false,
         16,
         8,
         {0, 0, 1, 11, 0, 0, 2, 12, 0, 0, 3, 13, 0, 0, 4, 14, 0, 0, 5, 15, 0, 0, 6, 16},
         {1, 11, 3, 13, 5, 15, 0xEE, 0xEE, 2, 12, 4, 14, 6, 16, 0xEE, 0xEE}},
    };
    for (const auto &[format, swap, bits, distance, input, output] : cases)
    {
        Converter converter{format, true, swap, bits};
        const uint32_t channels = format.mChannelsPerFrame;
        ASSERT_EQ(converter.split(input, channels), kOK);
        EXPECT_EQ(converter.outBytes(static_cast<uint32_t>(input.size())), output.size());
        EXPECT_EQ(Bytes(converter.output.data(), converter.output.data() + output.size()), output);
        EXPECT_EQ(converter.output[output.size()], 0xEE);
        EXPECT_EQ(converter.distance, distance);
        for (size_t channel = 0; channel < channels; ++channel)
            EXPECT_EQ(converter.positions[channel], converter.output.data() + distance * channel);
    }
}

TEST(PCMAudioConverter, RefusesLengthsAndPositionsThatDoNotFit)
{
    const auto s16 = pcm(kSigned | kPacked, 2, 2, 16);
    const struct
    {
        AudioStreamBasicDescription input;
        bool deinterleave;
        uint32_t bits, length, positions;
    } cases[] = {
        {s16, true, 0, 8, 1},
        {s16, true, 0, 8, 3},
        {s16, true, 0, 8, 0},
        {s16, false, 0, 8, 2},
        {s16, false, 0, 8, 0},
        {s16, true, 0, 7, 2},                              // not a whole frame
        {s16, true, 0, 6, 2},                              // half a frame
        {pcm(kPacked, 2, 1, 8), true, 24, 6, 2},           // the planes are counted too short
        {pcm(kSigned | kHigh, 2, 4, 24), true, 16, 24, 2}, // here too
    };
    for (const auto &row : cases)
    {
        Converter converter{row.input, row.deinterleave, false, row.bits};
        ASSERT_EQ(converter.status, kOK) << &row - cases;
        EXPECT_EQ(converter.split(Bytes(row.length), row.positions), kParam) << &row - cases;
        EXPECT_EQ(converter.output, Bytes(12800, 0xEE));
        EXPECT_TRUE(converter.positions[0] == nullptr && converter.distance == 7);
    }
}

TEST(PCMAudioConverter, SplittingInterleavedOutputOnlySetsItsPosition)
{
    Converter converter{pcm(kSigned | kPacked, 2, 2, 16), false, true, 24};
    ASSERT_EQ(converter.status, kOK);
    const Bytes input = {0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04, 0x84};
    ASSERT_EQ(converter.split(input, 1), kOK);
    EXPECT_TRUE(converter.positions[0] == converter.output.data() && converter.distance == 12);
    uint32_t length = 11;
    EXPECT_EQ(converter.interleave(input, length), kParam);
    EXPECT_EQ(length, 11u);
    EXPECT_EQ(converter.output, Bytes(12800, 0xEE));

    // The operation that converts.
    length = 100;
    ASSERT_EQ(converter.interleave(input, length), kOK);
    EXPECT_EQ(length, 12u);
    EXPECT_EQ(Bytes(converter.output.data(), converter.output.data() + 13),
              (Bytes{0x81, 0x01, 0, 0x82, 0x02, 0, 0x83, 0x03, 0, 0x84, 0x04, 0, 0xEE}));

    Converter splitting{pcm(kSigned | kPacked, 2, 2, 16), true, false, 0};
    EXPECT_EQ(splitting.interleave(input, length), kParam);
    Converter planes{pcm(kPlanes | kSigned | kPacked, 2, 2, 16), false, true, 0};
    ASSERT_EQ(planes.status, kOK);
    EXPECT_EQ(planes.interleave(input, length), kParam);
    KIVCS2PCMAudioConverter fresh{};
    uint8_t output[100];
    EXPECT_EQ(kivCS2PCMAudioConverter_convertInterleaved(&fresh, input.data(), 8, output, &length), kParam);
}

// The size counted for a split differs from an interleaved result, and some planes are too short to split.
TEST(PCMAudioConverter, CountsOtherSizesForASplitThanItWritesInterleaved)
{
    const std::tuple<AudioStreamBasicDescription, uint32_t, uint32_t, KIVCS2Status> cases[] = {
        {pcm(kSigned | kPacked, 4, 4, 32), 4266, 3200, kOK},
        {pcm(kSigned | kHigh, 4, 4, 24), 2132, 3200, kParam},
        {pcm(kSigned | kPacked, 4, 1, 8), 4266, 12800, kParam},
    };
    const Bytes input(6400);
    for (const auto &[format, counted, written, split] : cases)
    {
        SCOPED_TRACE(counted);
        Converter splitting{format, true, false, 16}, plain{format, false, false, 16};
        EXPECT_EQ(splitting.outBytes(6400), counted);
        EXPECT_EQ(splitting.split(input, 4), split);
        uint32_t room = written - 1;
        EXPECT_EQ(plain.interleave(input, room), kParam);
        room = written;
        EXPECT_EQ(plain.interleave(input, room), kOK);
        EXPECT_EQ(room, written);
    }
}

TEST(PCMAudioConverter, FreeClearsTheRecordForAnotherInit)
{
    const auto s16 = pcm(kSigned | kPacked, 2, 2, 16);
    KIVCS2PCMAudioConverter converter{};
    for (int round = 0; round < 2; ++round)
    {
        ASSERT_EQ(kivCS2PCMAudioConverter_init(&converter, &s16, true, false, 0), kOK);
        ASSERT_EQ(kivCS2PCMAudioConverter_free(&converter), kOK);
        EXPECT_EQ(converter.m_converter, nullptr);
        EXPECT_EQ(converter.m_outputFormat.mFormatID, 0u);
        EXPECT_EQ(converter.m_deinterleave, 0u);
    }
    // Without a converter the disposal fails, so the record stays.
    converter.m_deinterleave = 1;
    EXPECT_EQ(kivCS2PCMAudioConverter_free(&converter), kOK);
    EXPECT_EQ(converter.m_deinterleave, 1u);
}

TEST(PCMAudioConverter, RefusesMissingArguments)
{
    KIV_REQUIRES_EACH(kivCS2PCMAudioConverter_init, "converter, inputFormat");
    KIV_REQUIRES_EACH(kivCS2PCMAudioConverter_free, "converter");
    KIV_REQUIRES_EACH(kivCS2PCMAudioConverter_getOutputBytesForInputLength, "converter, outBytes");
    KIV_REQUIRES_EACH(kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength,
                      "converter, outSampleCount");
    KIV_REQUIRES_EACH(kivCS2PCMAudioConverter_convert,
                      "converter, inputData, outputData, positions, outBytesPerPosition");
    KIV_REQUIRES_EACH(kivCS2PCMAudioConverter_convertInterleaved,
                      "converter, inputData, outputData, outputLength");
}
} // namespace
