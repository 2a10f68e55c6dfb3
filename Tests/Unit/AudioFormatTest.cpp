// Audio format codes, and the distribution ("weave") of samples over video frames.
#include "ArgumentCheck.h"

#include <KIVCoreServices2/KIVCS2AudioFormat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

namespace
{
static_assert(sizeof(KIVCS2AudioFormatDescription) == 36);
static_assert(offsetof(KIVCS2AudioFormatDescription, m_alignment) == 20);
static_assert(offsetof(KIVCS2AudioFormatDescription, m_bytesUsedPerSample) == 32);

constexpr uint32_t kLPCM = 0x6C70636D;
constexpr uint32_t kAAC = 0x61616320;

TEST(AudioFormat, CodesAndTheirDescriptions)
{
    const struct
    {
        uint32_t fields[9]; // in the order of the arguments
        KIVCS2AudioFormat code;
        uint32_t encoding, sampleRate;
    } cases[] = {
        {{0, 1, 0, 0, 0, 0, 2, 4, 3}, 0x0010011a, kLPCM, 48000},
        {{0, 0, 0, 0, 0, 0, 1, 1, 1}, 0x00000000, kLPCM, 44100},
        {{1, 1, 1, 1, 1, 1, 16, 7, 7}, 0x01111ff6, kAAC, 48000},
        {{1, 0, 0, 0, 1, 0, 16, 1, 7}, 0x01000f86, kAAC, 44100}, // more bytes used than there are
        {{0, 0, 1, 0, 0, 1, 8, 2, 2}, 0x00010749, kLPCM, 44100},
        {{0, 0, 0, 1, 0, 0, 6, 3, 3}, 0x00001512, kLPCM, 44100},
    };
    for (const auto &[fields, code, encoding, sampleRate] : cases)
    {
        KIVCS2AudioFormat format = ~code;
        ASSERT_OK(kivCS2AudioFormat_getFormat(fields[0], fields[1], fields[2], fields[3], fields[4],
                                              fields[5], fields[6], fields[7], fields[8], &format));
        EXPECT_EQ(format, code);
        KIVCS2AudioFormatDescription description{};
        ASSERT_OK(kivCS2AudioFormat_getDescription(code, &description));
        const KIVCS2AudioFormatDescription wanted = {encoding,  sampleRate, fields[2], fields[3], fields[4],
                                                     fields[5], fields[6],  fields[7], fields[8]};
        EXPECT_EQ(std::memcmp(&description, &wanted, sizeof wanted), 0);
    }
}

TEST(AudioFormat, CodesOfOtherOriginAreNotChecked)
{
    KIVCS2AudioFormatDescription description{};
    ASSERT_OK(kivCS2AudioFormat_getDescription(UINT32_MAX, &description));
    const KIVCS2AudioFormatDescription wanted = {0, 0, 15, 15, 1, 1, 16, 8, 8};
    EXPECT_EQ(std::memcmp(&description, &wanted, sizeof wanted), 0);
}

TEST(AudioFormat, RefusesWhatIsOutOfRange)
{
    KIVCS2AudioFormat format = 7;
    uint32_t size = 0;
    const char *kChannels = "(channels > 0) && (channels <= KIVCS2AFChannels_MAX)";
    const char *kBytes = "(bytesPerSample > 0) && (bytesPerSample < KIVCS2AFBytesPerSample_MAX)";
    const char *kUsed = "(bytesUsedPerSample > 0) && (bytesUsedPerSample < KIVCS2AFBytesUsedPerSample_MAX)";
#define KIV_FORMAT(text, ...) KIV_REQUIRES(kivCS2AudioFormat_getFormat, text, __VA_ARGS__)
    kiv::test::expectAllRefused({
        KIV_FORMAT("encoding < KIVCS2AFEncoding_MAX", 2, 0, 0, 0, 0, 0, 1, 1, 1, &format),
        KIV_FORMAT("sampleRate < KIVCS2AFSampleRate_MAX", 0, 2, 0, 0, 0, 0, 1, 1, 1, &format),
        KIV_FORMAT("dataType < KIVCS2AFDataType_MAX", 0, 0, 2, 0, 0, 0, 1, 1, 1, &format),
        KIV_FORMAT("dataStream < KIVCS2AFDataStream_MAX", 0, 0, 0, 2, 0, 0, 1, 1, 1, &format),
        KIV_FORMAT("endian < KIVCS2AFEndian_MAX", 0, 0, 0, 0, 2, 0, 1, 1, 1, &format),
        KIV_FORMAT("alignment < KIVCS2AFAlignment_MAX", 0, 0, 0, 0, 0, 2, 1, 1, 1, &format),
        KIV_FORMAT(kChannels, 0, 0, 0, 0, 0, 0, 0, 1, 1, &format),
        KIV_FORMAT(kChannels, 0, 0, 0, 0, 0, 0, 17, 1, 1, &format),
        KIV_FORMAT(kBytes, 0, 0, 0, 0, 0, 0, 1, 0, 1, &format),
        KIV_FORMAT(kBytes, 0, 0, 0, 0, 0, 0, 1, 9, 1, &format),
        KIV_FORMAT(kUsed, 0, 0, 0, 0, 0, 0, 1, 1, 0, &format),
        KIV_FORMAT(kUsed, 0, 0, 0, 0, 0, 0, 1, 1, 9, &format),
        KIV_FORMAT("format", 0, 0, 0, 0, 0, 0, 1, 1, 1, nullptr),
        KIV_REQUIRES(kivCS2AudioFormat_getDescription, "description", 0, nullptr),
        KIV_REQUIRES(kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames, "weaveSize", 2, 48000, nullptr,
                     &size, &size),
    });
#undef KIV_FORMAT
    EXPECT_EQ(format, 7u);
}

// Samples of eight bytes stop a build with assertions and pass in others.
TEST(AudioFormat, EightBytesFailOnlyTheAssertion)
{
    const auto pack = [](uint32_t bytes, uint32_t bytesUsed)
    {
        KIVCS2AudioFormat format = 0;
        EXPECT_OK(kivCS2AudioFormat_getFormat(0, 0, 0, 0, 0, 0, 1, bytes, bytesUsed, &format));
        return format;
    };
    if (kiv::test::hasAssertions())
    {
        EXPECT_DEATH(pack(8, 1), "bytesPerSample < KIVCS2AFBytesPerSample_MAX");
        EXPECT_DEATH(pack(1, 8), "bytesUsedPerSample < KIVCS2AFBytesUsedPerSample_MAX");
        return;
    }
    EXPECT_EQ(pack(8, 1), 0x38u);
    EXPECT_EQ(pack(1, 8), 0x07u);
}

// ---- Weave ----

constexpr auto kWeave = kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames;

std::vector<uint32_t> weaveOf(KIVCS2FrameRate frameRate, uint32_t sampleRate)
{
    uint32_t size = 0;
    uint32_t longest = 0;
    EXPECT_OK(kWeave(frameRate, sampleRate, &size, nullptr, &longest));
    std::vector<uint32_t> weave(size);
    EXPECT_OK(kWeave(frameRate, sampleRate, &size, weave.data(), nullptr));
    EXPECT_EQ(size, weave.size());
    EXPECT_EQ(weave.front(), longest);
    EXPECT_TRUE(std::is_sorted(weave.rbegin(), weave.rend()));
    return weave;
}

// Exact frames per second.
constexpr struct
{
    uint64_t numerator, denominator;
} kFrameRates[KIVCS2FrameRate_MAX] = {{24000, 1001}, {24, 1}, {25, 1},       {30000, 1001},
                                      {30, 1},       {50, 1}, {60000, 1001}, {60, 1}};

TEST(AudioWeave, OfTheCommonRatesAddsUpOverADay)
{
    const std::vector<uint32_t> expected[KIVCS2FrameRate_MAX][2] = {
        {{2002}, {4004}},
        {{2000}, {4000}},
        {{1920}, {3840}},
        {{1602, 1602, 1602, 1601, 1601}, {3204, 3203, 3203, 3203, 3203}},
        {{1600}, {3200}},
        {{960}, {1920}},
        {{801, 801, 801, 801, 800}, {1602, 1602, 1602, 1601, 1601}},
        {{800}, {1600}},
    };
    for (KIVCS2FrameRate rate = 0; rate < KIVCS2FrameRate_MAX; ++rate)
        for (const uint64_t multiple : {1, 2})
        {
            const uint64_t sampleRate = 48000 * multiple;
            const std::vector<uint32_t> weave = weaveOf(rate, static_cast<uint32_t>(sampleRate));
            EXPECT_EQ(weave, expected[rate][multiple - 1]) << rate << " at " << sampleRate;

            // The frames of 86,400 nominal seconds (86,486 s at the fractional rates) are whole cycles.
            // Before each frame the samples are less than two ahead of the exact time, and not ahead at the
            // end.
            const auto [numerator, denominator] = kFrameRates[rate];
            const uint64_t frames = 86400 * ((numerator + denominator - 1) / denominator);
            uint64_t samples = 0;
            for (uint64_t frame = 0; frame < frames; ++frame)
            {
                const uint64_t exact = sampleRate * denominator * frame; // in units of 1 / numerator
                ASSERT_GE(samples * numerator, exact) << rate << " frame " << frame;
                ASSERT_LT(samples * numerator, exact + 2 * numerator) << rate << " frame " << frame;
                samples += weave[frame % weave.size()];
            }
            EXPECT_EQ(samples * numerator, sampleRate * denominator * frames) << rate;
        }
}

TEST(AudioWeave, OfCDRatesMayMissASample)
{
    const std::tuple<KIVCS2FrameRate, uint32_t, size_t, size_t, uint32_t, uint32_t, uint64_t> cases[] = {
        {KIVCS2FrameRate_29_97, 44100, 100, 47, 1472, 1471, 147147},
        {KIVCS2FrameRate_23_98, 44100, 80, 26, 1840, 1839, 147146}, // exactly 147147
        {KIVCS2FrameRate_24, 44100, 2, 1, 1838, 1837, 3675},
        {KIVCS2FrameRate_59_94, 48048, 501, 301, 802, 801, 401602}, // 0.0008 from a whole sum
        {KIVCS2FrameRate_60, 44100, 1, 0, 735, 735, 735},
        {KIVCS2FrameRate_25, 0, 1, 0, 0, 0, 0},
        {KIVCS2FrameRate_24, 1, 24, 1, 1, 0, 1},
    };
    for (const auto &[rate, sampleRate, frames, larger, high, low, sum] : cases)
    {
        const std::vector<uint32_t> weave = weaveOf(rate, sampleRate);
        EXPECT_EQ(weave.size(), frames);
        EXPECT_EQ(weave.front(), high);
        EXPECT_EQ(weave.back(), low);
        if (high != low)
        {
            EXPECT_EQ(std::count(weave.begin(), weave.end(), high), static_cast<ptrdiff_t>(larger));
        }
        EXPECT_EQ(std::accumulate(weave.begin(), weave.end(), uint64_t{0}), sum);
    }
}

TEST(AudioWeave, EndsForEverySampleRate)
{
    for (KIVCS2FrameRate rate = 0; rate < KIVCS2FrameRate_MAX; ++rate)
        for (const uint32_t sampleRate : {1u, 7u, 999u, 8000u, 22050u, 44056u, 47952u, 176400u, 16777213u,
                                          2147483647u, 4294967291u, UINT32_MAX})
        {
            const std::vector<uint32_t> weave = weaveOf(rate, sampleRate);
            EXPECT_LE(weave.size(), 60000u) << rate << " at " << sampleRate; // the longest exact cycle
            EXPECT_LE(weave.front() - weave.back(), 1u);
        }
}

TEST(AudioWeave, LeavesItsOutputsOnFailure)
{
    uint32_t weave[5] = {7, 7, 7, 7, 7}, size = 4, longest = 7;
    EXPECT_EQ(kWeave(KIVCS2FrameRate_29_97, 48000, &size, weave, &longest), KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(kWeave(KIVCS2FrameRate_MAX, 48000, &size, weave, &longest), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_TRUE(size == 4 && weave[0] == 7 && longest == 7);
    size = 5;
    EXPECT_OK(kWeave(KIVCS2FrameRate_29_97, 48000, &size, weave, &longest));
    EXPECT_TRUE(weave[4] == 1601 && longest == 1602);
}
} // namespace
