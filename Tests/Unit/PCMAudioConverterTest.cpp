// PCM conversion by its operations: what is derived, what is refused, where the planes lie.
#include "ArgumentCheck.h"

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

// Interleaved, or planes where the flags say so.
AudioStreamBasicDescription pcm(UInt32 flags, UInt32 channels, UInt32 bytes, UInt32 bits)
{
    const UInt32 frame = (flags & kPlanes) != 0 ? bytes : channels * bytes;
    return {48000, kAudioFormatLinearPCM, flags, frame, 1, frame, channels, bits, 0};
}

// A converter for the length of a test.
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
        EXPECT_EQ(kivCS2PCMAudioConverter_free(this), KIVCS2STATUS_OK);
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    [[nodiscard]] uint32_t outBytes(uint32_t length) const
    {
        uint32_t bytes = 0;
        EXPECT_EQ(kivCS2PCMAudioConverter_getOutputBytesForInputLength(this, length, &bytes),
                  KIVCS2STATUS_OK);
        return bytes;
    }
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
        {s24in32, false, false, 24, kSigned | kHigh, 24, 6, 24}, // the width is the same: it stays
        {s24in32, true, false, 0, kPlanes | kSigned | kHigh, 3, 1, 24},
        {s24in32, true, false, 16, kPlanes | kSigned | kPacked | kHigh, 2, 1, 16},
        {pcm(kPlanes | kSigned | kPacked, 1, 2, 16), false, true, 0, kPlanes | kBig | kSigned | kPacked, 2, 1,
         16},
    };
    for (const auto &row : cases)
    {
        const Converter converter{row.input, row.deinterleave, row.swap, row.bits};
        ASSERT_EQ(converter.status, KIVCS2STATUS_OK) << &row - cases;
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
        {pcm(kPlanes | kSigned | kPacked, 2, 2, 16), true, 0},   // planes already
        {pcm(kSigned | kPacked, 2, 4, 32), true, 0},             // 32 bits in planes of 3 bytes
        {pcm(kPacked, 2, 1, 8), true, 0},                        // 8 bits called packed in 3 bytes
        {pcm(kPlanes | kSigned | kPacked, 2, 2, 16), false, 24}, // 6 bytes a sample of a plane
        {pcm(kAudioFormatFlagIsFloat | kPacked, 2, 4, 32), true, 16},
        {pcm(kSigned | kPacked, 0x55555556, 3, 24), false, 24}, // a frame beyond 32 bits
        {{}, false, 0},
    };
    for (const auto &row : cases)
    {
        const Converter converter{row.input, row.deinterleave, false, row.bits};
        EXPECT_EQ(converter.status, KIVCS2STATUS_PARAM_ERR) << &row - cases;
        EXPECT_EQ(converter.m_converter, nullptr);
        EXPECT_EQ(converter.m_inputFormat.mFormatID, 0u);
    }
}

// Samples of 8 and 32 bits count as 3 bytes like those of 24.
TEST(PCMAudioConverter, SizesKnowTwoAndThreeBytesAlone)
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
        ASSERT_EQ(converter.status, KIVCS2STATUS_OK) << &row - cases;
        EXPECT_EQ(converter.outBytes(row.length), row.bytes) << &row - cases;
        uint32_t samples = 0;
        EXPECT_EQ(
            kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(&converter, row.length, &samples),
            KIVCS2STATUS_OK);
        EXPECT_EQ(samples, row.samples) << &row - cases;
    }
}

TEST(PCMAudioConverter, NothingIsDividedByZero)
{
    const KIVCS2PCMAudioConverter fresh{};
    const Converter planes{pcm(kPlanes | kSigned, 16, 4, 24), false, false, 0}; // 4 bytes / 16 channels
    ASSERT_EQ(planes.status, KIVCS2STATUS_OK);
    for (const KIVCS2PCMAudioConverter *converter :
         {&fresh, static_cast<const KIVCS2PCMAudioConverter *>(&planes)})
    {
        uint32_t count = 7;
        EXPECT_EQ(kivCS2PCMAudioConverter_getOutputBytesForInputLength(converter, 96, &count),
                  KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(kivCS2PCMAudioConverter_getSampleCountPerChannelForInputLength(converter, 96, &count),
                  KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(count, 7u);
    }
}

TEST(PCMAudioConverter, SplitsChannelsIntoPlanesBehindEachOther)
{
    Converter converter{pcm(kSigned | kPacked, 3, 2, 16), true, true, 24};
    ASSERT_EQ(converter.status, KIVCS2STATUS_OK);
    const uint8_t input[] = {0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04, 0x84, 0x05, 0x85, 0x06, 0x86};
    const std::vector<uint8_t> expected = {0x81, 0x01, 0, 0x84, 0x04, 0, 0x82, 0x02, 0,
                                           0x85, 0x05, 0, 0x83, 0x03, 0, 0x86, 0x06, 0};
    std::vector<uint8_t> output(converter.outBytes(sizeof input));
    void *positions[3]{};
    uint32_t distance = 0;
    ASSERT_EQ(kivCS2PCMAudioConverter_convert(&converter, input, sizeof input, output.data(), 3, positions,
                                              &distance),
              KIVCS2STATUS_OK);
    EXPECT_EQ(output, expected);
    EXPECT_EQ(distance, 6u);
    for (size_t channel = 0; channel < 3; ++channel)
        EXPECT_EQ(positions[channel], output.data() + 6 * channel);
}

// 32-bit samples count as 3 bytes, so planes of 16 bits are a third longer than what is in them.
TEST(PCMAudioConverter, PlanesOf32BitInputLieFurtherApart)
{
    Converter converter{pcm(kSigned | kPacked, 2, 4, 32), true, false, 16};
    ASSERT_EQ(converter.status, KIVCS2STATUS_OK);
    const uint8_t input[24] = {0, 0, 1, 11, 0, 0, 2, 12, 0, 0, 3, 13, 0, 0, 4, 14, 0, 0, 5, 15, 0, 0, 6, 16};
    std::vector<uint8_t> output(16, 0xEE); // 24 / 3 * 2
    void *positions[2]{};
    uint32_t distance = 0;
    ASSERT_EQ(kivCS2PCMAudioConverter_convert(&converter, input, sizeof input, output.data(), 2, positions,
                                              &distance),
              KIVCS2STATUS_OK);
    EXPECT_EQ(distance, 8u);
    EXPECT_EQ(output,
              (std::vector<uint8_t>{1, 11, 3, 13, 5, 15, 0xEE, 0xEE, 2, 12, 4, 14, 6, 16, 0xEE, 0xEE}));
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
        {s16, true, 0, 7, 2},                              // no whole frame
        {s16, true, 0, 6, 2},                              // half a frame
        {pcm(kPacked, 2, 1, 8), true, 24, 6, 2},           // the planes are counted too short
        {pcm(kSigned | kHigh, 2, 4, 24), true, 16, 24, 2}, // here too
    };
    for (const auto &row : cases)
    {
        Converter converter{row.input, row.deinterleave, false, row.bits};
        ASSERT_EQ(converter.status, KIVCS2STATUS_OK) << &row - cases;
        const uint8_t input[24]{};
        std::vector<uint8_t> output(64, 0xEE);
        void *positions[4]{};
        uint32_t distance = 7;
        EXPECT_EQ(kivCS2PCMAudioConverter_convert(&converter, input, row.length, output.data(), row.positions,
                                                  positions, &distance),
                  KIVCS2STATUS_PARAM_ERR)
            << &row - cases;
        EXPECT_EQ(output, std::vector<uint8_t>(64, 0xEE));
        EXPECT_EQ(positions[0], nullptr);
        EXPECT_EQ(distance, 7u);
    }
}

TEST(PCMAudioConverter, InterleavedInputIsLaidOutAndNotConverted)
{
    Converter converter{pcm(kSigned | kPacked, 2, 2, 16), false, true, 24};
    ASSERT_EQ(converter.status, KIVCS2STATUS_OK);
    const uint8_t input[8] = {0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04, 0x84};
    std::vector<uint8_t> output(12, 0xEE);
    void *position = nullptr;
    uint32_t distance = 0;
    ASSERT_EQ(kivCS2PCMAudioConverter_convert(&converter, input, sizeof input, output.data(), 1, &position,
                                              &distance),
              KIVCS2STATUS_OK);
    EXPECT_EQ(position, output.data());
    EXPECT_EQ(distance, 12u);
    EXPECT_EQ(output, std::vector<uint8_t>(12, 0xEE));

    // The operation that does convert.
    uint32_t length = 11;
    EXPECT_EQ(
        kivCS2PCMAudioConverter_convertInterleaved(&converter, input, sizeof input, output.data(), &length),
        KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(length, 11u);
    EXPECT_EQ(output, std::vector<uint8_t>(12, 0xEE));
    length = 100;
    ASSERT_EQ(
        kivCS2PCMAudioConverter_convertInterleaved(&converter, input, sizeof input, output.data(), &length),
        KIVCS2STATUS_OK);
    EXPECT_EQ(length, 12u);
    EXPECT_EQ(output, (std::vector<uint8_t>{0x81, 0x01, 0, 0x82, 0x02, 0, 0x83, 0x03, 0, 0x84, 0x04, 0}));

    Converter splitting{pcm(kSigned | kPacked, 2, 2, 16), true, false, 0};
    KIVCS2PCMAudioConverter fresh{};
    for (KIVCS2PCMAudioConverter *other : {static_cast<KIVCS2PCMAudioConverter *>(&splitting), &fresh})
        EXPECT_EQ(
            kivCS2PCMAudioConverter_convertInterleaved(other, input, sizeof input, output.data(), &length),
            KIVCS2STATUS_PARAM_ERR);
}

// The size for a split is not the room for an interleaved result, and some planes are too short to split.
TEST(PCMAudioConverter, CountsOtherSizesForASplitThanItWritesInterleaved)
{
    const struct
    {
        AudioStreamBasicDescription input;
        uint32_t counted, written;
        bool splits;
    } cases[] = {
        {pcm(kSigned | kPacked, 4, 4, 32), 4266, 3200, true},
        {pcm(kSigned | kHigh, 4, 4, 24), 2132, 3200, false},
        {pcm(kSigned | kPacked, 4, 1, 8), 4266, 12800, false},
    };
    const std::vector<uint8_t> input(6400);
    for (const auto &one : cases)
    {
        SCOPED_TRACE(one.counted);
        std::vector<uint8_t> output(12800);
        void *planes[4];
        uint32_t plane = 0;
        Converter splitting{one.input, true, false, 16};
        EXPECT_EQ(splitting.outBytes(6400), one.counted);
        EXPECT_EQ(
            kivCS2PCMAudioConverter_convert(&splitting, input.data(), 6400, output.data(), 4, planes, &plane),
            one.splits ? KIVCS2STATUS_OK : KIVCS2STATUS_PARAM_ERR);
        Converter plain{one.input, false, false, 16};
        uint32_t room = one.written - 1;
        EXPECT_EQ(
            kivCS2PCMAudioConverter_convertInterleaved(&plain, input.data(), 6400, output.data(), &room),
            KIVCS2STATUS_PARAM_ERR);
        room = one.written;
        EXPECT_EQ(
            kivCS2PCMAudioConverter_convertInterleaved(&plain, input.data(), 6400, output.data(), &room),
            KIVCS2STATUS_OK);
        EXPECT_EQ(room, one.written);
    }
}

TEST(PCMAudioConverter, FreeClearsTheRecordForAnotherInit)
{
    const auto s16 = pcm(kSigned | kPacked, 2, 2, 16);
    KIVCS2PCMAudioConverter converter{};
    for (int round = 0; round < 2; ++round)
    {
        ASSERT_EQ(kivCS2PCMAudioConverter_init(&converter, &s16, true, false, 0), KIVCS2STATUS_OK);
        ASSERT_EQ(kivCS2PCMAudioConverter_free(&converter), KIVCS2STATUS_OK);
        EXPECT_EQ(converter.m_converter, nullptr);
        EXPECT_EQ(converter.m_outputFormat.mFormatID, 0u);
        EXPECT_EQ(converter.m_deinterleave, 0u);
    }
    // Nothing to dispose of is a failed disposal: the record stays.
    converter.m_deinterleave = 1;
    EXPECT_EQ(kivCS2PCMAudioConverter_free(&converter), KIVCS2STATUS_OK);
    EXPECT_EQ(converter.m_deinterleave, 1u);
}

TEST(PCMAudioConverter, RefusesMissingArguments)
{
    const auto s16 = pcm(kSigned | kPacked, 1, 2, 16);
    Converter converter{s16, true, false, 0};
    KIVCS2PCMAudioConverter other{};
    const uint8_t input[2]{};
    uint8_t output[2]{};
    void *position = nullptr;
    uint32_t count = 2;
#define KIV_PCM(operation, text, ...) KIV_REQUIRES(kivCS2PCMAudioConverter_##operation, text, __VA_ARGS__)
    kiv::test::expectAllRefused({
        KIV_PCM(init, "converter", nullptr, &s16, true, false, 0),
        KIV_PCM(init, "inputFormat", &other, nullptr, true, false, 0),
        KIV_PCM(free, "converter", nullptr),
        KIV_PCM(getOutputBytesForInputLength, "converter", nullptr, 2, &count),
        KIV_PCM(getOutputBytesForInputLength, "outBytes", &converter, 2, nullptr),
        KIV_PCM(getSampleCountPerChannelForInputLength, "converter", nullptr, 2, &count),
        KIV_PCM(getSampleCountPerChannelForInputLength, "outSampleCount", &converter, 2, nullptr),
        KIV_PCM(convert, "converter", nullptr, input, 2, output, 1, &position, &count),
        KIV_PCM(convert, "inputData", &converter, nullptr, 2, output, 1, &position, &count),
        KIV_PCM(convert, "outputData", &converter, input, 2, nullptr, 1, &position, &count),
        KIV_PCM(convert, "positions", &converter, input, 2, output, 1, nullptr, &count),
        KIV_PCM(convert, "outBytesPerPosition", &converter, input, 2, output, 1, &position, nullptr),
        KIV_PCM(convertInterleaved, "converter", nullptr, input, 2, output, &count),
        KIV_PCM(convertInterleaved, "inputData", &converter, nullptr, 2, output, &count),
        KIV_PCM(convertInterleaved, "outputData", &converter, input, 2, nullptr, &count),
        KIV_PCM(convertInterleaved, "outputLength", &converter, input, 2, output, nullptr),
    });
#undef KIV_PCM
}
} // namespace
