// Captions on other rates: everything arrives, in order, near its moment, and real files decode the same.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <array>
#include <cstring>
#include <map>
#include <random>

namespace
{
using namespace kiv::test;

using Packets = std::vector<KIVCS2CaptionPacket>;
using Triplet = std::array<uint8_t, 3>;
using Placed = std::pair<uint32_t, Triplet>; // on a frame

constexpr KIVCS2CaptionCounting kDF = KIVCS2CaptionCounting_29_97DF, k25 = KIVCS2CaptionCounting_25,
                                k24 = KIVCS2CaptionCounting_24, k50 = KIVCS2CaptionCounting_50,
                                k60 = KIVCS2CaptionCounting_60;

KIVCS2CaptionRetimeOptions fromTo(KIVCS2CaptionCounting from, KIVCS2CaptionCounting to, int32_t offset = 0)
{
    return {from, to, KIVCS2CaptionRetimeMode_SameMoment, 0, 0, offset, {}};
}

double secondsOf(KIVCS2CaptionCounting counting, uint32_t frame)
{
    uint64_t nanoseconds = 0;
    EXPECT_EQ(kivCS2CaptionCounting_nanosecondsOfFrame(counting, frame, &nanoseconds), KIVCS2STATUS_OK);
    return static_cast<double>(nanoseconds) / 1e9;
}

Packets packetsOf(const std::vector<Placed> &placed)
{
    Packets made;
    for (const auto &[frame, triplet] : placed)
    {
        KIVCS2CaptionPacket &packet = made.emplace_back();
        packet.m_frame = frame;
        packet.m_tripletCount = 1;
        std::ranges::copy(triplet, packet.m_triplets[0]);
    }
    return made;
}

// What waits in a queue: the pairs of a field that are not empty, or the bytes of CEA-708.
std::vector<Placed> placedIn(const Packets &packets, size_t queue)
{
    std::vector<Placed> found;
    for (const KIVCS2CaptionPacket &packet : packets)
        for (size_t index = 0; index < packet.m_tripletCount; ++index)
            if (const auto &[head, a, b] = packet.m_triplets[index];
                (head & 4) != 0 && std::min(head & 3, 2) == static_cast<int>(queue) &&
                (queue == 2 || ((a | b) & 0x7F) != 0))
                found.push_back({packet.m_frame, {head, a, b}});
    return found;
}

std::vector<Triplet> tripletsIn(const Packets &packets, size_t queue)
{
    std::vector<Triplet> found;
    for (const auto &[frame, triplet] : placedIn(packets, queue))
        found.push_back(triplet);
    return found;
}

struct Retimed
{
    Packets packets;
    KIVCS2CaptionRetimeReport report{};
    KIVCS2Status status = KIVCS2STATUS_OK;
    std::vector<KIVCS2Status> refusals;
    uint32_t failEvery, calls = 0;

    // With `failing` not 0 the callback fails on every call of that number.
    Retimed(const KIVCS2CaptionRetimeOptions &options, const Packets &source, uint32_t failing = 0)
        : failEvery{failing}
    {
        KIVCS2CaptionRetime retime;
        EXPECT_EQ(kivCS2CaptionRetime_init(&retime, &options, onPacket, this), KIVCS2STATUS_OK);
        for (const KIVCS2CaptionPacket &packet : source)
            if (const KIVCS2Status fed = kivCS2CaptionRetime_feed(&retime, &packet); KIVCS2_FAILED(fed))
                refusals.push_back(fed);
        while ((status = kivCS2CaptionRetime_finish(&retime, &report)) == KIVCS2STATUS_WRITE_ERR)
            refusals.push_back(status);
        EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
        expectWhole(options.m_to);
    }

    static KIVCS2Status onPacket(const KIVCS2CaptionPacket *packet, void *context)
    {
        Retimed &owner = *static_cast<Retimed *>(context);
        if (owner.failEvery != 0 && ++owner.calls % owner.failEvery == 0)
            return KIVCS2STATUS_WRITE_ERR;
        owner.packets.push_back(*packet);
        return KIVCS2STATUS_OK;
    }

    // A packet a frame without a fault, and counters that count on.
    void expectWhole(KIVCS2CaptionCounting counting) const
    {
        KIVCS2CaptionCountingInfo info;
        EXPECT_EQ(kivCS2CaptionCounting_getInfo(counting, &info), KIVCS2STATUS_OK);
        for (uint32_t index = 0; index < packets.size(); ++index)
        {
            const KIVCS2CaptionPacket &packet = packets[index];
            ASSERT_TRUE((packet.m_faults & ~(uint64_t{1} << KIVCS2CaptionFault_Parity)) == 0 &&
                        packet.m_frame == report.m_firstFrame + index &&
                        packet.m_sequence == static_cast<uint16_t>(index) &&
                        packet.m_rateCode == info.m_rateCode && packet.m_tripletCount == info.m_triplets);
        }
        EXPECT_EQ(packets.size(), report.m_packetsOut);
    }
};

// Pairs of both fields, doubled codes among them, in bursts, and as many triplets of CEA-708 as fit.
Packets programme(uint32_t first, uint32_t frames)
{
    std::minstd_rand random{20};
    std::vector<Placed> made;
    std::array<uint8_t, 2> code{};
    for (uint32_t frame = first; frame < first + frames; ++frame)
        for (uint8_t type = 0; type < 12; ++type)
        {
            const auto byte = static_cast<uint8_t>(0x20 + random() % 90);
            if (type > 1)
                made.push_back({frame, {static_cast<uint8_t>(0xFE + random() % 2), byte, byte}});
            else if (code[type] != 0)
                made.push_back(
                    {frame, {static_cast<uint8_t>(0xFC + type), 0x94, std::exchange(code[type], 0)}});
            else if (byte < 0x30)
                made.push_back({frame, {static_cast<uint8_t>(0xFC + type), 0x94, code[type] = byte}});
            else if (frame / 64 % 2 == 0)
                made.push_back({frame, {static_cast<uint8_t>(0xFC + type), byte, byte}});
        }
    return packetsOf(made);
}

// A pair is late by the wait that is told at most, and early by a frame, or two of the source more if it is a
// repeat, which stays the neighbour of its code.
TEST(CaptionRetime, EverythingArrivesInOrderAtEveryRateAndBack)
{
    const Packets source = programme(107890, 400);
    for (KIVCS2CaptionCounting from = 1; from < KIVCS2CaptionCounting_MAX; ++from)
        for (KIVCS2CaptionCounting to = 1; to < KIVCS2CaptionCounting_MAX; ++to)
        {
            SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
            const Retimed there{fromTo(from, to), source};
            const Retimed back{fromTo(to, from), there.packets};
            for (const size_t queue : {0u, 1u, 2u})
            {
                ASSERT_EQ(tripletsIn(there.packets, queue), tripletsIn(source, queue));
                ASSERT_EQ(tripletsIn(back.packets, queue), tripletsIn(source, queue));
                const auto before = placedIn(source, queue), after = placedIn(there.packets, queue);
                const double late = static_cast<double>(there.report.m_waitTime[queue]) / 1e9 + 1e-6;
                const double early = 1.001 * secondsOf(to, 1) + 2 * secondsOf(from, 1);
                bool repeats = false;
                for (size_t index = 0; index < after.size(); ++index)
                {
                    const double off =
                        secondsOf(to, after[index].first) - secondsOf(from, before[index].first);
                    ASSERT_TRUE(off <= late && off >= -early) << off << ", " << late;
                    repeats = !repeats && index > 0 && after[index].second[1] == 0x94 &&
                              after[index].second == after[index - 1].second;
                    ASSERT_TRUE(!repeats || after[index].first - after[index - 1].first <= 2) << "parted";
                }
            }
        }
}

// Two equal codes within two frames are one, further apart they are two: so they must stay. At 25 frames a
// second the last repeat would be ready for frame 8 only, with an empty pair before it.
TEST(CaptionRetime, DoubledCodesStayNeighboursAndSingleOnesStayApart)
{
    const Triplet code{0xFC, 0x94, 0xAD}, text{0xFC, 0xC1, 0xC2};
    struct Row
    {
        KIVCS2CaptionCounting from, to;
        std::vector<Placed> source, result;
    };
    for (const Row &row : std::vector<Row>{
             {k25, KIVCS2CaptionCounting_59_94DF, {{2, code}, {3, code}}, {{4, code}, {6, code}}},
             {k24, k60, {{2, code}, {4, code}}, {{6, code}, {8, code}}},
             {KIVCS2CaptionCounting_30, k24, {{4, code}, {7, code}}, {{3, code}, {6, code}}},
             {k60,
              k24,
              {{0, code}, {4, code}, {6, code}, {8, text}},
              {{0, code}, {3, code}, {4, code}, {4, text}}}})
        EXPECT_EQ(placedIn(Retimed{fromTo(row.from, row.to), packetsOf(row.source)}.packets, 0), row.result);
}

// 60 pairs a second of line 21 at every rate, by turns of the fields.
TEST(CaptionRetime, FramesCarryThePairsOfLine21)
{
    for (const auto &[counting, expected] : {std::pair{k24, "121 21 212 12 121 "},
                                             {k25, "121 21 212 12 12 "},
                                             {kDF, "12 12 12 12 12 "},
                                             {k50, "1 2 1 2 1 "},
                                             {k60, "1 2 1 2 1 "}})
    {
        const Retimed retimed{fromTo(k24, counting), packetsOf({{0, {}}, {9, {}}})};
        std::string found;
        for (size_t frame = 0; frame < 5; ++frame)
        {
            for (const auto &triplet : retimed.packets[frame].m_triplets)
                found += triplet[0] == 0xFC ? "1" : triplet[0] == 0xFD ? "2" : "";
            found += " ";
        }
        EXPECT_EQ(found, expected);
    }
}

TEST(CaptionRetime, WaitsAreToldAndEndAtAnHour)
{
    // 20 pairs in 20 frames at 25 pairs a second: the last is ready on frame 31 and leaves on 38.
    std::vector<Placed> pairs, bytes;
    for (uint32_t frame = 0; frame < 20; ++frame)
        pairs.push_back({frame, {0xFC, 'a', 'b'}});
    const Retimed at50{fromTo(kDF, k50), packetsOf(pairs)};
    EXPECT_EQ(placedIn(at50.packets, 0).back().first, 38u);
    EXPECT_TRUE(at50.report.m_wait[0] == 7 && at50.report.m_waitTime[0] == 140'000'000);
    EXPECT_TRUE(at50.report.m_packetsBehind == 6 && at50.report.m_lastFrame == 38); // frame 20 would be 33
    // 20 triplets a frame leave no room for line 21: 1,800 at 22.5 a frame take 80 frames instead of 72.
    for (uint32_t triplet = 0; triplet < 1800; ++triplet)
        bytes.push_back({triplet / 20, {0xFE, 1, 2}});
    const Retimed at24{fromTo(kDF, KIVCS2CaptionCounting_23_98), packetsOf(bytes)};
    EXPECT_TRUE(at24.report.m_bytesOut == 3600 && at24.report.m_packetsBehind == 8 &&
                at24.report.m_wait[2] == 9);

    Packets many(4229);
    for (KIVCS2CaptionPacket &packet : many)
        for (packet.m_tripletCount = 0; packet.m_tripletCount < 31; ++packet.m_tripletCount)
            std::memcpy(packet.m_triplets[packet.m_tripletCount], "\xFC!!", 3);
    const Retimed full{fromTo(kDF, kDF), many}; // 131,072 pairs have room
    EXPECT_EQ(full.refusals, std::vector<KIVCS2Status>{KIVCS2STATUS_OVERFLOW_ERR});
    EXPECT_TRUE(full.report.m_pairsOut[0] == 4228 * 31 && full.report.m_packetsRefused == 1);
}

TEST(CaptionRetime, SelectionOffsetMidnightAndRefusals)
{
    // Packets of 3 triplets begin on frames 1 and 4 and go on in the next two.
    const Packets source = packetsOf({{1, {0xFF, 3, 0}},
                                      {2, {0xFE, 2, 2}},
                                      {2, {0xFC, 'a', '2'}},
                                      {3, {0xFE, 3, 3}},
                                      {4, {0xFF, 3, 4}},
                                      {5, {0xFE, 5, 5}},
                                      {5, {0xFC, 'a', '5'}},
                                      {6, {0xFE, 6, 6}},
                                      {6, {0xFC, 'a', '6'}},
                                      {7, {0xFF, 1, 7}},
                                      {5, {0xFC, 'a', 'b'}}});
    KIVCS2CaptionRetimeOptions options = fromTo(k25, k50, -4);
    options.m_first = 2;
    options.m_last = 5;
    const Retimed selected{options, source};
    EXPECT_EQ(placedIn(selected.packets, 0),
              (std::vector<Placed>{{0, {0xFC, 'a', '2'}}, {6, {0xFC, 'a', '5'}}}));
    EXPECT_EQ(tripletsIn(selected.packets, 2),
              (std::vector<Triplet>{{0xFF, 3, 4}, {0xFE, 5, 5}, {0xFE, 6, 6}}));
    EXPECT_TRUE(selected.report.m_bytesLeftOut == 4 && selected.report.m_packetsLeftOut == 4);
    EXPECT_EQ(selected.refusals,
              std::vector<KIVCS2Status>{KIVCS2STATUS_INVALID_TIMECODE_ERR}); // back in time

    const Retimed before{fromTo(k25, k50, -5), source};
    EXPECT_TRUE(before.report.m_packetsBefore == 3 && before.report.m_packetsRefused == 4);
    EXPECT_EQ(tripletsIn(before.packets, 2).front(),
              (Triplet{0xFF, 3, 4})); // the rest of a refused one goes too
    const Retimed none{fromTo(k25, k50, -100), source};
    EXPECT_TRUE(none.status == KIVCS2STATUS_NO_DATA_ERR && none.packets.empty() &&
                none.refusals.size() == 11);

    const uint32_t day = 25 * 86400;
    const Retimed midnight{fromTo(k25, k50), packetsOf({{day - 1, {}}, {0, {}}, {1, {0xFC, 'a', 'b'}}})};
    EXPECT_TRUE(midnight.packets.size() == 6 && placedIn(midnight.packets, 0)[0].first == 2 * day + 2);

    const Packets whole = programme(5, 40);
    const Retimed failing{fromTo(kDF, k60), whole, 3}, good{fromTo(kDF, k60), whole};
    ASSERT_TRUE(failing.refusals.size() > 20 && failing.packets.size() == good.packets.size());
    EXPECT_EQ(std::memcmp(failing.packets.data(), good.packets.data(),
                          good.packets.size() * sizeof good.packets[0]),
              0);
}

TEST(CaptionRetime, ServicesAndTimeCodeAreCarriedOn)
{
    const KIVCS2CaptionServiceEntry services[] = {{KIVCS2CaptionService_CC1, "eng", 0, 1, {}}};
    KIVCS2CaptionPacket packet;
    ASSERT_EQ(kivCS2CaptionPacket_build(&packet, kDF, 9, nullptr, nullptr, services, 1), KIVCS2STATUS_OK);
    packet.m_flags |= KIVCS2CaptionPacketFlag_HasTimeCode;
    packet.m_frame = 107892 + 31;
    const Packets full = Retimed{fromTo(kDF, KIVCS2CaptionCounting_59_94DF), {packet}}.packets;
    ASSERT_TRUE(full.size() == 2 && full[1].m_serviceCount == 1);
    EXPECT_EQ(std::memcmp(full[0].m_timeCode, "\xC1\x80\x01\x81", 4),
              0); // 01:00:01;01, of two frames the first
    EXPECT_EQ(std::memcmp(full[1].m_timeCode, "\xC1\x80\x81\x81", 4), 0);
    EXPECT_EQ(std::memcmp(full[1].m_services, services, sizeof services), 0);
    packet.m_flags = KIVCS2CaptionPacketFlag_CDP;
    const Packets bare = Retimed{fromTo(kDF, kDF), {packet}}.packets;
    EXPECT_EQ(bare[0].m_flags, uint32_t{KIVCS2CaptionPacketFlag_CDP});
    EXPECT_EQ(Retimed(fromTo(kDF, kDF), packetsOf({{0, {}}})).packets[0].m_services[0].m_service,
              1u); // as of SCC
}

// ---- Real files ----

using Captions = std::map<KIVCS2CaptionService, std::vector<std::pair<std::string, double>>>; // text, seconds

Captions decode(KIVCS2CaptionCounting counting, const Packets &packets)
{
    std::pair<KIVCS2CaptionCounting, Captions> found{counting, {}};
    const auto onText = [](const KIVCS2CaptionText *text, void *context)
    {
        auto &[rate, captions] = *static_cast<decltype(found) *>(context);
        captions[text->m_service].emplace_back(text->m_text, secondsOf(rate, text->m_from));
        return KIVCS2Status{KIVCS2STATUS_OK};
    };
    KIVCS2CaptionDecoderOptions options{};
    options.m_counting = counting;
    KIVCS2CaptionDecoder decoder;
    EXPECT_EQ(kivCS2CaptionDecoder_init(&decoder, nullptr, &options, onText, &found), KIVCS2STATUS_OK);
    for (const KIVCS2CaptionPacket &packet : packets)
        EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoder, &packet), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionDecoder_finish(&decoder, packets.back().m_frame + 1), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionDecoder_free(&decoder), KIVCS2STATUS_OK);
    return found.second;
}

// The same texts, each at its moment: late by the wait and two frames at most, early by two.
void expectSame(const Captions &before, const Captions &after, const KIVCS2CaptionRetimeReport &report,
                double frame)
{
    ASSERT_EQ(after.size(), before.size());
    for (const auto &[service, captions] : before)
    {
        const size_t queue = service <= KIVCS2CaptionService_S63 ? 2 : ((service & 0xF) - 1) / 2;
        const double wait = static_cast<double>(report.m_waitTime[queue]) / 1e9;
        ASSERT_TRUE(after.contains(service) && after.at(service).size() == captions.size()) << service;
        for (size_t caption = 0; caption < captions.size(); ++caption)
        {
            const auto &[text, from] = after.at(service)[caption];
            const double off = from - captions[caption].second;
            EXPECT_TRUE(text == captions[caption].first && off >= -2 * frame && off <= wait + 2 * frame)
                << text << ": " << off << ", " << wait;
        }
    }
}

TEST(CaptionRetimeCorpus, RealFilesShowTheSameAtEveryRate)
{
    KIV_NEED_CORPUS();
    for (const auto &entry : std::filesystem::recursive_directory_iterator{kiv::test::corpus()})
        if (const auto kind = entry.path().extension();
            (kind == ".mcc" || kind == ".scc") && entry.file_size() > 0)
        {
            KIVCS2CaptionReadOptions order{};
            order.m_order = KIVCS2CaptionOrder_Frame;
            Reading reading{fileText(entry.path()), order};
            const Packets &source = reading.all().packets;
            const KIVCS2CaptionCounting from = reading.header.m_counting;
            const Captions known = decode(from, source);
            for (const KIVCS2CaptionCounting to : {uint32_t{KIVCS2CaptionCounting_23_98}, k25, k50, k60 - 2})
            {
                SCOPED_TRACE(entry.path().filename().string() + " at " + kivCS2CaptionCounting_name(to));
                const Retimed there{fromTo(from, to), source}, back{fromTo(to, from), there.packets};
                const Captions shown = decode(to, there.packets);
                expectSame(known, shown, there.report, secondsOf(to, 1));
                expectSame(shown, decode(from, back.packets), back.report, secondsOf(from, 1));
            }
        }
}

TEST(CaptionRetimeRecords, SizesAndArguments)
{
    EXPECT_EQ(sizeof(KIVCS2CaptionRetimeOptions), 56u);
    EXPECT_EQ(sizeof(KIVCS2CaptionRetimeReport), 184u);
    KIVCS2CaptionRetime retime{};
    KIVCS2CaptionRetimeOptions options{};
    const int family[] = {0, 1, 1, 1, 2, 2, 2, 3, 4, 4, 4, 0}; // rates near each other
    for (uint32_t pair = 0; pair < 144; ++pair)
    {
        options = fromTo(pair / 12, pair % 12);
        options.m_mode = KIVCS2CaptionRetimeMode_SameFrames;
        const bool known = family[pair / 12] * family[pair % 12] != 0;
        EXPECT_EQ(kivCS2CaptionRetime_init(&retime, &options, Retimed::onPacket, nullptr),
                  !known                                   ? KIVCS2STATUS_FRAME_RATE_ERR
                  : family[pair / 12] == family[pair % 12] ? KIVCS2STATUS_OK
                                                           : KIVCS2STATUS_UNSUPPORTED_ERR);
        EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
    }
    KIVCS2CaptionRetimeOptions range = fromTo(1, 2), mode = range, reserved = range;
    range.m_first = 2;
    range.m_last = 1;
    mode.m_mode = 2;
    reserved.m_reserved[3] = 1;
    const KIVCS2CaptionPacket packet{};
    const KIVCS2Status refused = KIVCS2STATUS_PARAM_ERR;
    const auto onPacket = Retimed::onPacket;
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
