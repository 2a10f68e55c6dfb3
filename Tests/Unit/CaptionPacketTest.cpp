// Countings, and caption packets parsed and built.
#include "ArgumentCheck.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>
#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace
{
TEST(CaptionCounting, EveryFrameOfADayHasOneTextAndBack)
{
    for (KIVCS2CaptionCounting counting = 1; counting < KIVCS2CaptionCounting_MAX; ++counting)
    {
        KIVCS2CaptionCountingInfo info;
        ASSERT_OK(kivCS2CaptionCounting_getInfo(counting, &info));
        SCOPED_TRACE(info.m_name);
        EXPECT_STREQ(kivCS2CaptionCounting_name(counting), info.m_name);
        for (uint32_t frame = 0; frame < info.m_perDay; frame += frame % 1800 < 40 ? 1 : 7)
        {
            char text[KIVCS2_CAPTION_TIMECODE_SIZE];
            uint32_t back = 0;
            bool exists = false;
            ASSERT_OK(kivCS2CaptionCounting_textFromFrame(counting, frame, text));
            ASSERT_OK(kivCS2CaptionCounting_frameFromText(counting, text, &back, &exists)) << text;
            ASSERT_TRUE(back == frame && exists) << text;
        }
        char midnight[KIVCS2_CAPTION_TIMECODE_SIZE];
        EXPECT_OK(kivCS2CaptionCounting_textFromFrame(counting, info.m_perDay, midnight));
        EXPECT_EQ(std::string{midnight}.substr(0, 8), "00:00:00");
    }
}

// Frames by SMPTE ST 12-1. An hour of drop-frame timecode is 3.6 ms shorter than an hour.
TEST(CaptionCounting, KnownFramesAndTimes)
{
    using Row = std::tuple<KIVCS2CaptionCounting, const char *, uint32_t, bool, uint64_t>;
    for (const auto &[counting, text, wanted, wantedExists, wantedTime] :
         std::vector<Row>{{KIVCS2CaptionCounting_29_97DF, "00:01:00;02", 1800, true, 60'060'000'000},
                          {KIVCS2CaptionCounting_29_97DF, "00:01:00;00", 1800, false, 60'060'000'000},
                          {KIVCS2CaptionCounting_29_97DF, "01:00:00;00", 107892, true, 3'599'996'400'000},
                          {KIVCS2CaptionCounting_59_94DF, "00:01:00;03", 3600, false, 60'060'000'000},
                          {KIVCS2CaptionCounting_29_97NDF, "00:01:00.00", 1800, true, 60'060'000'000},
                          {KIVCS2CaptionCounting_23_98, "00:00:00:01", 1, true, 41'708'333},
                          {KIVCS2CaptionCounting_50, "23:59:59,49", 4319999, true, 86'399'980'000'000}})
    {
        uint32_t frame = 0;
        bool exists = false;
        uint64_t nanoseconds = 0;
        EXPECT_OK(kivCS2CaptionCounting_frameFromText(counting, text, &frame, &exists));
        EXPECT_EQ(frame, wanted) << text;
        EXPECT_EQ(exists, wantedExists) << text;
        EXPECT_OK(kivCS2CaptionCounting_nanosecondsOfFrame(counting, frame, &nanoseconds));
        EXPECT_EQ(nanoseconds, wantedTime) << text;
    }
    uint64_t last = 0;
    EXPECT_OK(kivCS2CaptionCounting_nanosecondsOfFrame(KIVCS2CaptionCounting_23_98, UINT32_MAX, &last));
    EXPECT_EQ(last, 179'135'927'595'625'000u);
    uint32_t frame = 7;
    for (const char *text :
         {"24:00:00:00", "00:60:00:00", "00:00:00:25", "0:00:00:00", "00:00:00:000", "00.00:00:00", ""})
        EXPECT_EQ(kivCS2CaptionCounting_frameFromText(KIVCS2CaptionCounting_25, text, &frame, nullptr),
                  KIVCS2STATUS_INVALID_TIMECODE_ERR)
            << text;
    EXPECT_EQ(kivCS2CaptionCounting_frameFromText(0, "00:00:00:00", &frame, nullptr),
              KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(frame, 7u);
    EXPECT_EQ(kivCS2CaptionCounting_name(KIVCS2CaptionCounting_MAX), nullptr);
}

TEST(CaptionPacketBuild, At2997ItIsThePacketOfTheDescribedBuilder)
{
    const uint8_t pairs[4] = {0x94, 0x20, 0x15, 0x2C};
    uint16_t words[2];
    std::memcpy(words, pairs, sizeof words);
    uint8_t cdp[KIVCS2_CDP_SIZE];
    uint32_t size = sizeof cdp;
    ASSERT_OK(kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(words, sizeof words, cdp, &size,
                                                                           0xABCD));

    const KIVCS2CaptionPairs both{{1, 1}, {{{0x94, 0x20}}, {{0x15, 0x2C}}}, {}};
    KIVCS2CaptionPacket packet;
    ASSERT_OK(kivCS2CaptionPacket_build(&packet, KIVCS2CaptionCounting_29_97DF, 0xABCD, &both, nullptr,
                                        nullptr, 0));
    ASSERT_EQ(packet.m_size, size + 4);
    EXPECT_EQ(std::memcmp(packet.m_anc + 3, cdp, size), 0);
    KIVCS2CaptionPacket parsed; // of only the CDP: the same packet around it
    ASSERT_OK(kivCS2CaptionPacket_parse(&parsed, cdp, size));
    EXPECT_EQ(std::memcmp(&parsed, &packet, sizeof parsed), 0);
    EXPECT_EQ(parsed.m_faults, 0u);
}

TEST(CaptionPacketBuild, EveryRateIsParsedBack)
{
    const KIVCS2CaptionServiceEntry services[] = {{KIVCS2CaptionService_CC1, "eng", 0, 0, {}},
                                                  {KIVCS2CaptionService_CC3, "spa", 0, 1, {}},
                                                  {KIVCS2CaptionService_S1, "", 1, 0, {}},
                                                  {KIVCS2CaptionService_S63, "deu", 1, 1, {}}};
    const size_t triplets[] = {0, 25, 25, 24, 20, 20, 20, 12, 10, 10, 10};
    for (KIVCS2CaptionCounting counting = 1; counting < KIVCS2CaptionCounting_MAX; ++counting)
    {
        KIVCS2CaptionPairs pairs{{2, 1}, {{{0x94, 0x20}, {0x94, 0xAE}}, {{0x15, 0x2C}}}, {}};
        KIVCS2CaptionDTVCC dtvcc{};
        dtvcc.m_count = static_cast<uint32_t>(2 * (triplets[counting] - 3));
        dtvcc.m_starts = 0x15 & ((1u << dtvcc.m_count / 2) - 1);
        for (uint32_t byte = 0; byte < dtvcc.m_count; ++byte)
            dtvcc.m_bytes[byte] = static_cast<uint8_t>(byte + 1);
        KIVCS2CaptionPacket packet;
        ASSERT_OK(kivCS2CaptionPacket_build(&packet, counting, 77, &pairs, &dtvcc, services, 4));
        ASSERT_TRUE(packet.m_faults == 0 && packet.m_tripletCount == triplets[counting] &&
                    packet.m_sequence == 77 && packet.m_serviceCount == 4);
        EXPECT_EQ(std::memcmp(packet.m_services, services, sizeof services), 0);
        KIVCS2CaptionPairs pairsBack;
        KIVCS2CaptionDTVCC dtvccBack;
        EXPECT_OK(kivCS2CaptionPacket_getPairs(&packet, &pairsBack));
        EXPECT_OK(kivCS2CaptionPacket_getDTVCC(&packet, &dtvccBack));
        EXPECT_EQ(std::memcmp(&pairsBack, &pairs, sizeof pairs), 0);
        EXPECT_EQ(std::memcmp(&dtvccBack, &dtvcc, sizeof dtvcc), 0);
        pairs.m_count[0] = 3;
        EXPECT_EQ(kivCS2CaptionPacket_build(&packet, counting, 77, &pairs, &dtvcc, services, 4),
                  KIVCS2STATUS_OVERFLOW_ERR);
    }
}

// Up to 30 frames a second every frame has both fields of line 21; from 50 on the fields alternate.
TEST(CaptionPacketBuild, EmptyPairsAreThoseThatLine21Has)
{
    const KIVCS2CaptionPairs second{{0, 1}, {{}, {{0x15, 0x2C}}}, {}};
    for (KIVCS2CaptionCounting counting = 1; counting < KIVCS2CaptionCounting_MAX; ++counting)
        for (uint16_t sequence = 0; sequence < 4; ++sequence)
        {
            const bool both = counting < KIVCS2CaptionCounting_50;
            const bool given = sequence >= 2;
            const int first = both ? 1 : given ? 0 : 1 - sequence % 2;
            KIVCS2CaptionPacket packet;
            KIVCS2CaptionPairs pairs;
            ASSERT_OK(kivCS2CaptionPacket_build(&packet, counting, sequence, given ? &second : nullptr,
                                                nullptr, nullptr, 0));
            ASSERT_OK(kivCS2CaptionPacket_getPairs(&packet, &pairs));
            EXPECT_EQ(pairs.m_count[0], first) << counting << ' ' << sequence;
            EXPECT_EQ(pairs.m_count[1], both ? 1 : 1 - first) << counting << ' ' << sequence;
        }
}

TEST(CaptionPacketParse, WhatIsNotACaptionPacketKeepsItsBytes)
{
    const uint8_t other[] = {0x41, 0x01, 0x02, 0xAA, 0xBB, 0xA9};
    KIVCS2CaptionPacket packet;
    ASSERT_OK(kivCS2CaptionPacket_parse(&packet, other, sizeof other));
    EXPECT_TRUE(packet.m_faults == 0 && packet.m_size == 6 && packet.m_did == 0x41 &&
                packet.m_tripletCount == 0);
    KIVCS2CaptionPairs pairs;
    KIVCS2CaptionDTVCC dtvcc;
    EXPECT_EQ(kivCS2CaptionPacket_getPairs(&packet, &pairs), KIVCS2STATUS_NO_DATA_ERR);
    EXPECT_EQ(kivCS2CaptionPacket_getDTVCC(&packet, &dtvcc), KIVCS2STATUS_NO_DATA_ERR);
    std::vector<uint8_t> bytes(260, 0x96);
    EXPECT_EQ(kivCS2CaptionPacket_parse(&packet, bytes.data(), 260), KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_OK(kivCS2CaptionPacket_parse(&packet, bytes.data(), 256)); // no CDP by its first byte alone
    bytes[1] = 0x69;
    EXPECT_EQ(kivCS2CaptionPacket_parse(&packet, bytes.data(), 256), KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_EQ(kivCS2CaptionPacket_parse(&packet, bytes.data(), 0), KIVCS2STATUS_NO_DATA_ERR);
    EXPECT_EQ(packet.m_size, 0);

    std::vector<uint8_t> cdp{0x96, 0x69, 114, 0x4F,
                             0x43, 0,    0}; // two sections of triplets, more than a packet has
    for (const int count : {31, 2})
    {
        cdp.insert(cdp.end(), {0x72, static_cast<uint8_t>(0xE0 | count)});
        cdp.insert(cdp.end(), static_cast<size_t>(3 * count), 0xFC);
    }
    cdp.insert(cdp.end(), {0x74, 0, 0, 0});
    EXPECT_OK(kivCS2CaptionPacket_parse(&packet, cdp.data(), static_cast<uint32_t>(cdp.size())));
    EXPECT_TRUE(packet.m_tripletCount == 31 &&
                (packet.m_faults >> KIVCS2CaptionFault_SectionUnknown & 1) != 0);
}

TEST(CaptionPacketRecords, SizesAndArguments)
{
    EXPECT_TRUE(sizeof(KIVCS2CaptionCountingInfo) == 48 && sizeof(KIVCS2CaptionServiceEntry) == 12 &&
                sizeof(KIVCS2CaptionPacket) == 624 && sizeof(KIVCS2CaptionPairs) == 132 &&
                sizeof(KIVCS2CaptionDTVCC) == 72);
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPairs many{};
    many.m_count[1] = 32;
    const KIVCS2CaptionServiceEntry text{KIVCS2CaptionService_T1, {}, 0, 0, {}};
    const uint8_t byte = 0;
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2CaptionPacket_parse, "packet", nullptr, &byte, 1),
        KIV_REQUIRES(kivCS2CaptionPacket_parse, "bytes", &packet, nullptr, 1),
        KIV_REQUIRES(kivCS2CaptionPacket_build,
                     "(pairs == nullptr) || ((pairs->m_count[0] <= 31) && (pairs->m_count[1] <= 31))",
                     &packet, 1, 0, &many, nullptr, nullptr, 0),
        KIV_REQUIRES(kivCS2CaptionPacket_build, "kiv::cc::isService(entry.m_service)", &packet, 1, 0, nullptr,
                     nullptr, &text, 1),
        KIV_REQUIRES(kivCS2CaptionPacket_getPairs, "pairs", &packet, nullptr),
        KIV_REQUIRES(kivCS2CaptionCounting_textFromFrame, "text", 1, 0, nullptr),
    });
}
} // namespace
