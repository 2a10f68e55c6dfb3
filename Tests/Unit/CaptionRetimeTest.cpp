// Captions on other rates: everything arrives, in order, near its moment; and real files decode the same.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <array>
#include <cstring>
#include <map>
#include <random>
#include <tuple>

namespace
{
using namespace kiv::test;

using Packets = std::vector<KIVCS2CaptionPacket>;
using Pair = std::array<uint8_t, 2>;

constexpr KIVCS2CaptionCounting kDF = KIVCS2CaptionCounting_29_97DF;

KIVCS2CaptionRetimeOptions fromTo(KIVCS2CaptionCounting from, KIVCS2CaptionCounting to, uint32_t mode = 0)
{
    KIVCS2CaptionRetimeOptions options{};
    options.m_from = from;
    options.m_to = to;
    options.m_mode = mode;
    return options;
}

struct Retimed
{
    Packets packets;
    KIVCS2CaptionRetimeReport report{};
    KIVCS2Status status = KIVCS2STATUS_OK; // of finish
    std::vector<KIVCS2Status> refusals;

    Retimed(const KIVCS2CaptionRetimeOptions &options, const Packets &source)
    {
        const auto onPacket = [](const KIVCS2CaptionPacket *packet, void *context)
        {
            static_cast<Retimed *>(context)->packets.push_back(*packet);
            return KIVCS2Status{KIVCS2STATUS_OK};
        };
        KIVCS2CaptionRetime retime;
        EXPECT_EQ(kivCS2CaptionRetime_init(&retime, &options, onPacket, this), KIVCS2STATUS_OK);
        for (const KIVCS2CaptionPacket &packet : source)
            if (const KIVCS2Status fed = kivCS2CaptionRetime_feed(&retime, &packet); KIVCS2_FAILED(fed))
                refusals.push_back(fed);
        status = kivCS2CaptionRetime_finish(&retime, &report);
        EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
        if (!packets.empty())
            expectWhole(options.m_to);
    }

    // A packet a frame without a fault, counters that count on, and as much as a frame of the counting carries.
    void expectWhole(KIVCS2CaptionCounting counting) const
    {
        KIVCS2CaptionCountingInfo info;
        EXPECT_EQ(kivCS2CaptionCounting_getInfo(counting, &info), KIVCS2STATUS_OK);
        uint32_t frame = report.m_firstFrame;
        uint16_t sequence = 0;
        for (const KIVCS2CaptionPacket &packet : packets)
        {
            ASSERT_EQ(packet.m_faults & ~(uint64_t{1} << KIVCS2CaptionFault_Parity), 0u);
            ASSERT_TRUE(packet.m_frame == frame++ && packet.m_sequence == sequence++ &&
                        packet.m_rateCode == info.m_rateCode && packet.m_tripletCount == info.m_triplets);
        }
        EXPECT_EQ(packets.back().m_frame, report.m_lastFrame);
        EXPECT_EQ(packets.size(), report.m_packetsOut);
        for (const size_t field : {0u, 1u})
            EXPECT_EQ(report.m_pairsIn[field], report.m_pairsOut[field]);
        EXPECT_EQ(report.m_bytesIn, report.m_bytesOut);
        EXPECT_TRUE(report.m_waitTime[0] / 17'000'000 <= report.m_wait[0] * uint64_t{3});
    }
};

// Frame and bytes of each pair of a field that is not empty.
std::vector<std::pair<uint32_t, Pair>> pairsOf(const Packets &packets, size_t field)
{
    std::vector<std::pair<uint32_t, Pair>> found;
    for (const KIVCS2CaptionPacket &packet : packets)
    {
        KIVCS2CaptionPairs pairs;
        (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // none is none
        for (size_t pair = 0; pair < pairs.m_count[field]; ++pair)
            if (const auto &[a, b] = pairs.m_pairs[field][pair]; ((a | b) & 0x7F) != 0)
                found.emplace_back(packet.m_frame, Pair{a, b});
    }
    return found;
}

// "start a b, a b" of all CEA-708 bytes.
std::vector<std::array<uint8_t, 3>> dtvccOf(const Packets &packets)
{
    std::vector<std::array<uint8_t, 3>> found;
    for (const KIVCS2CaptionPacket &packet : packets)
    {
        KIVCS2CaptionDTVCC dtvcc;
        (void)kivCS2CaptionPacket_getDTVCC(&packet, &dtvcc); // none is none
        for (uint32_t at = 0; at < dtvcc.m_count; at += 2)
            found.push_back({static_cast<uint8_t>(dtvcc.m_starts >> at / 2 & 1), dtvcc.m_bytes[at],
                             dtvcc.m_bytes[at + 1]});
    }
    return found;
}

template <typename Found>
std::vector<Pair> onlyPairs(const Found &found)
{
    std::vector<Pair> pairs;
    for (const auto &[frame, pair] : found)
        pairs.push_back(pair);
    return pairs;
}

// One packet of a frame; pairs of field 1.
KIVCS2CaptionPacket packetOf(KIVCS2CaptionCounting counting, uint32_t frame, std::vector<Pair> first,
                             const KIVCS2CaptionDTVCC *dtvcc = nullptr, std::vector<Pair> second = {})
{
    KIVCS2CaptionPairs pairs{};
    for (const auto &[field, list] : {std::pair{0, first}, std::pair{1, second}})
        for (const Pair &pair : list)
            std::copy(pair.begin(), pair.end(), pairs.m_pairs[field][pairs.m_count[field]++]);
    KIVCS2CaptionPacket packet;
    EXPECT_EQ(kivCS2CaptionPacket_build(&packet, counting, 0, &pairs, dtvcc, nullptr, 0), KIVCS2STATUS_OK);
    packet.m_frame = frame;
    return packet;
}

// Bursts of pairs in both fields, doubled codes among them, and packets of CEA-708 that span frames.
Packets programme(KIVCS2CaptionCounting counting, uint32_t first, uint32_t frames)
{
    std::minstd_rand random{20};
    KIVCS2CaptionCountingInfo info;
    EXPECT_EQ(kivCS2CaptionCounting_getInfo(counting, &info), KIVCS2STATUS_OK);
    Packets made;
    uint32_t left = 0;
    std::array<Pair, 2> code{};
    for (uint32_t frame = first; frame < first + frames; ++frame)
    {
        std::array<std::vector<Pair>, 2> pairs;
        for (const size_t field : {0u, 1u})
            if (const auto what = random() % 4; code[field][0] != 0)
                pairs[field].push_back(std::exchange(code[field], {})); // the repeat
            else if (what == 0)
                pairs[field].push_back(code[field] = {0x94, static_cast<uint8_t>(0x20 + random() % 16)});
            else if (what < 3 && frame / 64 % 2 == 0)
                pairs[field].push_back(
                    {static_cast<uint8_t>(0x20 + random() % 96), static_cast<uint8_t>(random())});
        KIVCS2CaptionDTVCC dtvcc{};
        const uint32_t room = info.m_triplets - 2;
        for (uint32_t triplet = random() % room; triplet < room; ++triplet)
        {
            const bool start = left == 0;
            const uint8_t size = static_cast<uint8_t>(1 + random() % 40);
            left = start ? size - 1 : left - 1;
            dtvcc.m_starts |= start ? 1u << dtvcc.m_count / 2 : 0u;
            dtvcc.m_bytes[dtvcc.m_count++] = start ? size : static_cast<uint8_t>(random());
            dtvcc.m_bytes[dtvcc.m_count++] = static_cast<uint8_t>(random());
        }
        made.push_back(packetOf(counting, frame, pairs[0], &dtvcc, pairs[1]));
    }
    return made;
}

// Moments of a frame of one counting in another, rounded down: by nanoseconds, which are near enough.
double secondsOf(KIVCS2CaptionCounting counting, uint32_t frame)
{
    uint64_t nanoseconds = 0;
    EXPECT_EQ(kivCS2CaptionCounting_nanosecondsOfFrame(counting, frame, &nanoseconds), KIVCS2STATUS_OK);
    return static_cast<double>(nanoseconds) / 1e9;
}

// From every rate to every other and back. A pair may be late by the wait told and early by a frame, or two of
// the source if it is a repeat, which stays the neighbour of its code.
TEST(CaptionRetime, EverythingArrivesInOrderAtEveryRateAndBack)
{
    for (KIVCS2CaptionCounting from = 1; from < KIVCS2CaptionCounting_MAX; ++from)
        for (KIVCS2CaptionCounting to = 1; to < KIVCS2CaptionCounting_MAX; ++to)
        {
            SCOPED_TRACE(std::string{kivCS2CaptionCounting_name(from)} + " to " +
                         kivCS2CaptionCounting_name(to));
            const Packets source = programme(from, 107890, 700);
            const Retimed there{fromTo(from, to), source};
            const Retimed back{fromTo(to, from), there.packets};
            EXPECT_EQ(dtvccOf(there.packets), dtvccOf(source));
            EXPECT_EQ(dtvccOf(back.packets), dtvccOf(source));
            for (const size_t field : {0u, 1u})
            {
                const auto before = pairsOf(source, field);
                const auto after = pairsOf(there.packets, field);
                ASSERT_EQ(onlyPairs(after), onlyPairs(before));
                ASSERT_EQ(onlyPairs(pairsOf(back.packets, field)), onlyPairs(before));
                const double frame = secondsOf(to, 1);
                const double late = (there.report.m_wait[field] + 0.001) * frame;
                const double early = 1.001 * frame + 2 * secondsOf(from, 1);
                bool repeat = false;
                for (size_t pair = 0; pair < after.size(); ++pair)
                {
                    const double off = secondsOf(to, after[pair].first) - secondsOf(from, before[pair].first);
                    ASSERT_TRUE(off <= late && off >= -early) << off;
                    repeat = !repeat && pair > 0 && after[pair].second == after[pair - 1].second &&
                             before[pair].second[0] == 0x94;
                    if (repeat)
                    {
                        ASSERT_LE(after[pair].first - after[pair - 1].first, 2u) << "parted from its code";
                    }
                }
            }
        }
}

// 60 pairs a second of line 21 at every rate: what a frame carries, and of which field.
TEST(CaptionRetime, FramesCarryThePairsOfLine21)
{
    const std::vector<std::pair<KIVCS2CaptionCounting, std::string>> kFrames = {
        {KIVCS2CaptionCounting_23_98, "121 21 212 12 121"},
        {KIVCS2CaptionCounting_25, "121 21 212 12 12"},
        {KIVCS2CaptionCounting_30, "12 12 12 12 12"},
        {KIVCS2CaptionCounting_50, "1 2 1 2 1"},
        {KIVCS2CaptionCounting_59_94DF, "1 2 1 2 1"}};
    for (const auto &[counting, frames] : kFrames)
    {
        const Retimed retimed{
            fromTo(KIVCS2CaptionCounting_24, counting),
            {packetOf(KIVCS2CaptionCounting_24, 0, {}), packetOf(KIVCS2CaptionCounting_24, 9, {})}};
        std::string found;
        for (size_t frame = 0; frame < 5; ++frame)
        {
            found += found.empty() ? "" : " ";
            for (const auto &triplet : retimed.packets[frame].m_triplets)
                if (triplet[0] == 0xFC || triplet[0] == 0xFD)
                    found += triplet[0] == 0xFC ? '1' : '2';
        }
        EXPECT_EQ(found, frames);
        EXPECT_EQ(retimed.report.m_wait[0], 0u);
    }
}

// Codes without a repeat that come again are two codes only if no receiver takes them for one and its repeat.
TEST(CaptionRetime, DoubledCodesStayNeighboursAndSingleOnesDoNotBecomeOnes)
{
    const Pair text{0xC1, 0xC2}, carriageReturn{0x94, 0xAD};
    struct Row
    {
        KIVCS2CaptionCounting from, to;
        std::vector<std::pair<uint32_t, Pair>> source, result;
    };
    const std::vector<Row> kRows = {
        // 25 to 59.94: the repeat would come on frame 7, and so on 8, with an empty pair on 6 between.
        {KIVCS2CaptionCounting_25,
         KIVCS2CaptionCounting_59_94NDF,
         {{2, carriageReturn}, {3, carriageReturn}},
         {{4, carriageReturn}, {6, carriageReturn}}},
        // At 24 the repeat may stand two frames behind.
        {KIVCS2CaptionCounting_24,
         KIVCS2CaptionCounting_60,
         {{2, carriageReturn}, {4, carriageReturn}},
         {{6, carriageReturn}, {8, carriageReturn}}},
        // Three apart they are two codes, and stay so where the rate brings them nearer.
        {KIVCS2CaptionCounting_30,
         KIVCS2CaptionCounting_24,
         {{4, carriageReturn}, {7, carriageReturn}},
         {{3, carriageReturn}, {6, carriageReturn}}},
        {KIVCS2CaptionCounting_60,
         KIVCS2CaptionCounting_24,
         {{0, carriageReturn}, {4, carriageReturn}, {6, carriageReturn}, {8, text}},
         {{0, carriageReturn}, {3, carriageReturn}, {4, carriageReturn}, {4, text}}},
    };
    for (const Row &row : kRows)
    {
        Packets source;
        for (const auto &[frame, pair] : row.source)
            source.push_back(packetOf(row.from, frame, {pair}));
        const Retimed retimed{fromTo(row.from, row.to), source};
        EXPECT_EQ(pairsOf(retimed.packets, 0), row.result) << kivCS2CaptionCounting_name(row.to);
    }
}

TEST(CaptionRetime, WaitsAreTold)
{
    // 29.97 to 50: 20 pairs in 20 frames at 25 pairs a second; the last is ready on frame 31 and leaves on 38.
    Packets source;
    for (uint32_t frame = 0; frame < 20; ++frame)
        source.push_back(packetOf(kDF, frame, {{'a', static_cast<uint8_t>('a' + frame)}}));
    const Retimed at50{fromTo(kDF, KIVCS2CaptionCounting_50), source};
    EXPECT_EQ(pairsOf(at50.packets, 0).back().first, 38u);
    EXPECT_EQ(at50.report.m_wait[0], 7u);
    EXPECT_EQ(at50.report.m_waitTime[0], 140'000'000u);
    EXPECT_EQ(at50.report.m_packetsBehind, 39u - 33u); // frame 20 of the source begins with frame 33
    EXPECT_EQ(at50.report.m_packetsOut, 39u);

    // 20 triplets of CEA-708 a frame leave no room for line 21: no rate carries them.
    KIVCS2CaptionPacket packet = packetOf(kDF, 0, {});
    for (uint32_t triplet = 0; triplet < 20; ++triplet)
        packet.m_triplets[triplet][0] = triplet == 0 ? 0xFF : 0xFE;
    source.clear();
    for (packet.m_frame = 0; packet.m_frame < 90; ++packet.m_frame)
        source.push_back(packet);
    const Retimed slower{fromTo(kDF, KIVCS2CaptionCounting_23_98), source};
    EXPECT_EQ(slower.report.m_bytesOut, 90u * 40);
    EXPECT_EQ(slower.report.m_wait[2], 9u); // 1,800 triplets at 22.5 a frame: 80 frames, where 72 were
    EXPECT_EQ(slower.report.m_packetsBehind, 8u);
}

TEST(CaptionRetime, SelectionOffsetMidnightAndRefusals)
{
    const KIVCS2CaptionCounting at25 = KIVCS2CaptionCounting_25;
    Packets source;
    for (uint32_t frame = 0; frame < 10; ++frame)
        source.push_back(packetOf(at25, frame, {{'a', static_cast<uint8_t>('0' + frame)}}));
    // Packets of 3 triplets begin on frames 1 and 4 and go on in the next two.
    for (const uint32_t start : {1u, 4u})
        for (uint32_t part = 0; part < 3; ++part)
        {
            const KIVCS2CaptionDTVCC dtvcc{part == 0 ? 1u : 0u, 2, {static_cast<uint8_t>(3 - part), 7}, {}};
            source[start + part] =
                packetOf(at25, start + part, {{'a', static_cast<uint8_t>('0' + start + part)}}, &dtvcc);
        }
    KIVCS2CaptionRetimeOptions options = fromTo(at25, KIVCS2CaptionCounting_50);
    options.m_first = 2;
    options.m_last = 5;
    options.m_offset = -4;
    const Retimed selected{options, source};
    EXPECT_EQ(selected.report.m_firstFrame, 0u);
    EXPECT_EQ(pairsOf(selected.packets, 0),
              (std::vector<std::pair<uint32_t, Pair>>{
                  {0, {'a', '2'}}, {2, {'a', '3'}}, {4, {'a', '4'}}, {6, {'a', '5'}}}));
    EXPECT_EQ(dtvccOf(selected.packets),
              (std::vector<std::array<uint8_t, 3>>{{1, 3, 7}, {0, 2, 7}, {0, 1, 7}}));
    EXPECT_EQ(selected.report.m_bytesLeftOut, 4u);
    EXPECT_EQ(selected.report.m_packetsLeftOut, 6u);

    options = fromTo(at25, KIVCS2CaptionCounting_50);
    options.m_offset = -5; // frames 0 to 2 fall before frame 0
    source.push_back(source[7]);
    const Retimed refused{options, source};
    EXPECT_EQ(refused.refusals, std::vector<KIVCS2Status>(4, KIVCS2STATUS_INVALID_TIMECODE_ERR));
    EXPECT_TRUE(refused.report.m_packetsBefore == 3 && refused.report.m_packetsRefused == 4);
    EXPECT_EQ(pairsOf(refused.packets, 0).front(), (std::pair<uint32_t, Pair>{2, {'a', '3'}}));
    options.m_offset = -100;
    const Retimed none{options, source};
    EXPECT_TRUE(none.status == KIVCS2STATUS_NO_DATA_ERR && none.packets.empty() &&
                none.refusals.size() == 11);

    const uint32_t day = 25 * 86400;
    const Retimed midnight{
        fromTo(at25, KIVCS2CaptionCounting_50),
        {packetOf(at25, day - 1, {}), packetOf(at25, 0, {}), packetOf(at25, 1, {{'a', 'b'}})}};
    EXPECT_EQ(midnight.packets.size(), 6u);
    EXPECT_EQ(pairsOf(midnight.packets, 0).at(0).first, 2 * day + 2);
}

TEST(CaptionRetime, ServicesAndTimeCodeAreCarriedOn)
{
    const KIVCS2CaptionServiceEntry services[] = {{KIVCS2CaptionService_CC1, "eng", 0, 1, {}}};
    KIVCS2CaptionPacket packet;
    ASSERT_EQ(kivCS2CaptionPacket_build(&packet, kDF, 9, nullptr, nullptr, services, 1), KIVCS2STATUS_OK);
    packet.m_flags |= KIVCS2CaptionPacketFlag_HasTimeCode;
    packet.m_frame = 107892 + 31; // 01:00:01;01
    Retimed retimed{fromTo(kDF, KIVCS2CaptionCounting_59_94DF), {packet}};
    ASSERT_EQ(retimed.packets.size(), 2u);
    const uint8_t expected[] = {0xC1, 0x80, 0x81, 0x81}; // 01:00:01;01, the second frame of the two
    EXPECT_EQ(std::memcmp(retimed.packets[1].m_timeCode, expected, 4), 0);
    EXPECT_EQ(std::memcmp(retimed.packets[0].m_timeCode, "\xC1\x80\x01\x81", 4), 0);
    ASSERT_EQ(retimed.packets[1].m_serviceCount, 1);
    EXPECT_EQ(std::memcmp(retimed.packets[1].m_services, services, sizeof services), 0);
    packet.m_flags &= ~(KIVCS2CaptionPacketFlag_HasTimeCode | KIVCS2CaptionPacketFlag_HasServices);
    const Retimed bare{fromTo(kDF, kDF), {packet}};
    EXPECT_EQ(bare.packets[0].m_flags, uint32_t{KIVCS2CaptionPacketFlag_CDP});
    packet.m_flags = 0; // a pair of an SCC file
    packet.m_size = 0;
    const Retimed pair{fromTo(kDF, kDF, KIVCS2CaptionRetimeMode_SameFrames), {packet}};
    EXPECT_EQ(pair.packets[0].m_services[0].m_service, uint32_t{KIVCS2CaptionService_S1});
}

// The packet that the callback refused comes again, and nothing is lost.
TEST(CaptionRetime, ARefusedPacketComesAgain)
{
    struct Host
    {
        Packets packets;
        uint32_t calls = 0;
    } host;
    const auto onPacket = [](const KIVCS2CaptionPacket *packet, void *context)
    {
        Host &owner = *static_cast<Host *>(context);
        if (++owner.calls % 3 == 0)
            return KIVCS2Status{KIVCS2STATUS_WRITE_ERR};
        owner.packets.push_back(*packet);
        return KIVCS2Status{KIVCS2STATUS_OK};
    };
    const Packets source = programme(kDF, 5, 40);
    const KIVCS2CaptionRetimeOptions options = fromTo(kDF, KIVCS2CaptionCounting_60);
    KIVCS2CaptionRetime retime;
    ASSERT_EQ(kivCS2CaptionRetime_init(&retime, &options, onPacket, &host), KIVCS2STATUS_OK);
    for (const KIVCS2CaptionPacket &packet : source)
        (void)kivCS2CaptionRetime_feed(&retime, &packet); // every third packet is refused
    size_t refused = 0;
    while (kivCS2CaptionRetime_finish(&retime, nullptr) == KIVCS2STATUS_WRITE_ERR)
        ++refused;
    EXPECT_GT(refused, 2u);
    EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
    EXPECT_EQ(dtvccOf(host.packets), dtvccOf(source));
    EXPECT_EQ(onlyPairs(pairsOf(host.packets, 0)), onlyPairs(pairsOf(source, 0)));
    for (size_t packet = 1; packet < host.packets.size(); ++packet)
        ASSERT_EQ(host.packets[packet].m_frame, host.packets[packet - 1].m_frame + 1);
}

TEST(CaptionRetime, WhatNoRateCarriesEndsAtAnHour)
{
    const KIVCS2CaptionRetimeOptions options = fromTo(kDF, kDF);
    uint64_t packets = 0;
    const auto count = [](const KIVCS2CaptionPacket *, void *context)
    {
        ++*static_cast<uint64_t *>(context);
        return KIVCS2Status{KIVCS2STATUS_OK};
    };
    KIVCS2CaptionRetime retime;
    ASSERT_EQ(kivCS2CaptionRetime_init(&retime, &options, count, &packets), KIVCS2STATUS_OK);
    KIVCS2CaptionPacket packet{};
    packet.m_tripletCount = KIVCS2_CAPTION_TRIPLETS_MAX;
    for (auto &triplet : packet.m_triplets)
        triplet[0] = 0xFC, triplet[1] = 'a';
    KIVCS2Status status = KIVCS2STATUS_OK;
    uint64_t taken = 0;
    while (KIVCS2_SUCCEEDED(status = kivCS2CaptionRetime_feed(&retime, &packet))) // all of one frame
        ++taken;
    EXPECT_EQ(status, KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_EQ(taken, (1u << 17) / 31);
    KIVCS2CaptionRetimeReport report;
    EXPECT_EQ(kivCS2CaptionRetime_finish(&retime, &report), KIVCS2STATUS_OK);
    EXPECT_TRUE(report.m_pairsOut[0] == taken * 31 && report.m_packetsRefused == 1 && packets == taken * 31);
    EXPECT_EQ(report.m_waitTime[0] / 1'000'000'000, 4373u); // 131,068 frames
    EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
}

// ---- Real files ----

using Shown = std::map<KIVCS2CaptionService, std::vector<std::pair<std::string, double>>>;

Shown decode(KIVCS2CaptionCounting counting, const Packets &packets)
{
    struct Context
    {
        KIVCS2CaptionCounting counting;
        Shown shown;
    } context{counting, {}};
    const auto onText = [](const KIVCS2CaptionText *text, void *taken)
    {
        Context &to = *static_cast<Context *>(taken);
        to.shown[text->m_service].emplace_back(text->m_text, secondsOf(to.counting, text->m_from));
        return KIVCS2Status{KIVCS2STATUS_OK};
    };
    KIVCS2CaptionDecoderOptions options{};
    options.m_counting = counting;
    KIVCS2CaptionDecoder decoder;
    EXPECT_EQ(kivCS2CaptionDecoder_init(&decoder, nullptr, &options, onText, &context), KIVCS2STATUS_OK);
    for (const KIVCS2CaptionPacket &packet : packets)
        EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoder, &packet), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionDecoder_finish(&decoder, packets.back().m_frame + 1), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionDecoder_free(&decoder), KIVCS2STATUS_OK);
    return context.shown;
}

// The same texts, each at its moment: late by the wait and two frames at most, early by two.
void expectSame(const Shown &before, const Shown &after, const KIVCS2CaptionRetimeReport &report,
                double frame)
{
    ASSERT_EQ(after.size(), before.size());
    for (const auto &[service, captions] : before)
    {
        const size_t queue = service <= KIVCS2CaptionService_S63 ? 2 : (service & 0xF) > 2 ? 1 : 0;
        const double wait = static_cast<double>(report.m_waitTime[queue]) / 1e9;
        ASSERT_TRUE(after.contains(service) && after.at(service).size() == captions.size()) << service;
        for (size_t caption = 0; caption < captions.size(); ++caption)
        {
            const auto &[text, from] = after.at(service)[caption];
            EXPECT_EQ(text, captions[caption].first);
            const double off = from - captions[caption].second;
            EXPECT_TRUE(off >= -2 * frame && off <= wait + 2 * frame) << text << ": " << off << ", " << wait;
        }
    }
}

TEST(CaptionRetimeCorpus, RealFilesShowTheSameAtEveryRate)
{
    KIV_NEED_CORPUS();
    for (const auto &entry : std::filesystem::recursive_directory_iterator{kiv::test::corpus()})
    {
        const std::string extension = entry.path().extension();
        if ((extension != ".mcc" && extension != ".scc") || entry.file_size() == 0)
            continue;
        KIVCS2CaptionReadOptions order{};
        order.m_order = KIVCS2CaptionOrder_Frame;
        Reading reading{fileText(entry.path()), order};
        const Packets &source = reading.all().packets;
        const KIVCS2CaptionCounting from = reading.header.m_counting;
        for (KIVCS2CaptionCounting to = 1; to < KIVCS2CaptionCounting_MAX; ++to)
        {
            SCOPED_TRACE(entry.path().filename().string() + " at " + kivCS2CaptionCounting_name(to));
            const Retimed there{fromTo(from, to), source};
            EXPECT_TRUE(there.refusals.empty());
            const Shown shown = decode(to, there.packets);
            expectSame(decode(from, source), shown, there.report, secondsOf(to, 1));
            const Retimed back{fromTo(to, from), there.packets};
            expectSame(shown, decode(from, back.packets), back.report, secondsOf(from, 1));
        }
    }
}

TEST(CaptionRetimeRecords, SizesAndArguments)
{
    EXPECT_EQ(sizeof(KIVCS2CaptionRetimeOptions), 56u);
    EXPECT_EQ(sizeof(KIVCS2CaptionRetimeReport), 184u);
    EXPECT_EQ(sizeof(KIVCS2CaptionRetime), sizeof(void *));
    const auto onPacket = [](const KIVCS2CaptionPacket *, void *)
    {
        return KIVCS2Status{KIVCS2STATUS_OK};
    };
    KIVCS2CaptionRetime retime{};
    const auto status = [&](KIVCS2CaptionCounting from, KIVCS2CaptionCounting to, uint32_t mode)
    {
        const KIVCS2CaptionRetimeOptions options = fromTo(from, to, mode);
        const KIVCS2Status made = kivCS2CaptionRetime_init(&retime, &options, onPacket, nullptr);
        EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
        return made;
    };
    EXPECT_EQ(status(0, 1, 0), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(status(1, KIVCS2CaptionCounting_MAX, 0), KIVCS2STATUS_FRAME_RATE_ERR);
    const int family[] = {0, 1, 1, 1, 2, 2, 2, 3, 4, 4, 4};
    for (uint32_t from = 1; from < KIVCS2CaptionCounting_MAX; ++from)
        for (uint32_t to = 1; to < KIVCS2CaptionCounting_MAX; ++to)
            EXPECT_EQ(status(from, to, KIVCS2CaptionRetimeMode_SameFrames),
                      family[from] == family[to] ? KIVCS2STATUS_OK : KIVCS2STATUS_UNSUPPORTED_ERR);

    const KIVCS2Status refused = KIVCS2STATUS_PARAM_ERR;
    KIVCS2CaptionRetimeOptions range = fromTo(1, 2), mode = fromTo(1, 2, 2), reserved = fromTo(1, 2);
    range.m_first = 2;
    range.m_last = 1;
    reserved.m_reserved[3] = 1;
    const KIVCS2CaptionPacket packet{};
    kiv::test::expectAllRefused({
        KIV_REFUSES(refused, kivCS2CaptionRetime_init, "onPacket", &retime, &mode, nullptr, nullptr),
        KIV_REFUSES(refused, kivCS2CaptionRetime_init,
                    "options->m_mode <= KIVCS2CaptionRetimeMode_SameFrames", &retime, &mode, onPacket,
                    nullptr),
        KIV_REFUSES(refused, kivCS2CaptionRetime_init,
                    "(options->m_last == 0) || (options->m_first <= options->m_last)", &retime, &range,
                    onPacket, nullptr),
        KIV_REFUSES(refused, kivCS2CaptionRetime_init, "reserved == 0", &retime, &reserved, onPacket,
                    nullptr),
        KIV_REFUSES(refused, kivCS2CaptionRetime_feed, "retime->m_state", &retime, &packet),
        KIV_REFUSES(refused, kivCS2CaptionRetime_finish, "retime->m_state", &retime, nullptr),
        KIV_REFUSES(refused, kivCS2CaptionRetime_free, "retime", nullptr),
    });
}
} // namespace
