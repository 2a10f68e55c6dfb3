// Captions at other rates: all arrive in order and near their moments, and real files decode the same.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <array>
#include <cstring>
#include <random>
#include <tuple>

namespace
{
using namespace kiv::test;

using Packets = std::vector<KIVCS2CaptionPacket>;
using Triplet = std::array<uint8_t, 3>;
using Placed = std::vector<std::pair<uint32_t, Triplet>>; // frame and triplet

constexpr KIVCS2CaptionCounting kDF = KIVCS2CaptionCounting_29_97DF, k24 = KIVCS2CaptionCounting_24,
                                k25 = KIVCS2CaptionCounting_25, k30 = KIVCS2CaptionCounting_30,
                                k50 = KIVCS2CaptionCounting_50, k59 = KIVCS2CaptionCounting_59_94DF,
                                k60 = KIVCS2CaptionCounting_60;
constexpr KIVCS2Status kRefused = KIVCS2STATUS_INVALID_TIMECODE_ERR;
constexpr KIVCS2CaptionRetimeMode kHasLast = KIVCS2CaptionRetimeMode_HasLast;

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

Packets packetsOf(const Placed &placed)
{
    Packets made(placed.size());
    for (size_t index = 0; index < made.size(); ++index)
    {
        made[index].m_frame = placed[index].first;
        made[index].m_tripletCount = 1;
        std::ranges::copy(placed[index].second, made[index].m_triplets[0]);
    }
    return made;
}

// The contents of a queue: the pairs of a field that are not empty, or the bytes of CEA-708.
Placed placedIn(const Packets &packets, int queue)
{
    Placed found;
    for (const KIVCS2CaptionPacket &packet : packets)
        for (size_t index = 0; index < packet.m_tripletCount; ++index)
            if (const auto &[head, a, b] = packet.m_triplets[index];
                (head & 4) != 0 && std::min(head & 3, 2) == queue && (queue == 2 || ((a | b) & 0x7F) != 0))
                found.push_back({packet.m_frame, {head, a, b}});
    return found;
}

bool haveSame(const Packets &a, const Packets &b, int queue)
{
    using Item = Placed::value_type;
    return std::ranges::equal(placedIn(a, queue), placedIn(b, queue), {}, &Item::second, &Item::second);
}

// The packets of a retiming. Each is checked to have no fault and the next counters.
struct Retimed
{
    Packets packets;
    KIVCS2CaptionRetimeReport report{};
    std::vector<KIVCS2Status> refusals;
    uint32_t failEvery, calls = 0; // every `failEvery`-th call of the callback fails; 0: none

    Retimed(const KIVCS2CaptionRetimeOptions &options, const Packets &source, uint32_t failing = 0)
        : failEvery{failing}
    {
        KIVCS2CaptionRetime retime;
        EXPECT_EQ(kivCS2CaptionRetime_init(&retime, &options, onPacket, this), KIVCS2STATUS_OK);
        for (const KIVCS2CaptionPacket &packet : source)
            if (const KIVCS2Status status = kivCS2CaptionRetime_feed(&retime, &packet); KIVCS2_FAILED(status))
                refusals.push_back(status);
        while (kivCS2CaptionRetime_finish(&retime, &report) == KIVCS2STATUS_WRITE_ERR)
            refusals.push_back(KIVCS2STATUS_WRITE_ERR);
        EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
        EXPECT_EQ(packets.size(), report.m_packetsOut);
    }

    static KIVCS2Status onPacket(const KIVCS2CaptionPacket *packet, void *context)
    {
        Retimed &owner = *static_cast<Retimed *>(context);
        if (owner.failEvery != 0 && ++owner.calls % owner.failEvery == 0)
            return KIVCS2STATUS_WRITE_ERR;
        EXPECT_TRUE((packet->m_faults & ~(uint64_t{1} << KIVCS2CaptionFault_Parity)) == 0 &&
                    packet->m_sequence == owner.packets.size() % 65536 &&
                    (owner.packets.empty() || packet->m_frame == owner.packets.back().m_frame + 1));
        owner.packets.push_back(*packet);
        return KIVCS2STATUS_OK;
    }
};

// Bursts of pairs in both fields, often the same code again, and triplets of CEA-708.
Packets programme(uint32_t first, uint32_t frames)
{
    std::minstd_rand random{20};
    Placed made;
    for (uint32_t frame = first; frame < first + frames; ++frame)
        for (uint32_t type = frame / 64 % 2 * 2; type < 12; ++type)
        {
            const auto byte = static_cast<uint8_t>(random());
            const auto head = static_cast<uint8_t>(type > 1 ? 0xFE + byte % 2 : 0xFC + type);
            made.push_back({frame, {head, static_cast<uint8_t>(byte < 128 ? 0x94 : byte), 0x2D}});
        }
    return packetsOf(made);
}

// A pair is late by at most the reported wait, and early by at most a frame, or two source frames more if it
// repeats a code.
TEST(CaptionRetime, EverythingArrivesInOrderAtEveryRateAndBack)
{
    const Packets source = programme(107890, 400);
    for (uint32_t rates = 0; rates < 100; ++rates)
    {
        SCOPED_TRACE(rates);
        const KIVCS2CaptionCounting from = 1 + rates / 10, to = 1 + rates % 10;
        const Retimed there{fromTo(from, to), source}, back{fromTo(to, from), there.packets};
        for (const int queue : {0, 1, 2})
        {
            ASSERT_TRUE(haveSame(source, there.packets, queue) && haveSame(source, back.packets, queue));
            const Placed before = placedIn(source, queue), after = placedIn(there.packets, queue);
            const double late = static_cast<double>(there.report.m_waitTime[queue]) / 1e9 + 1e-6;
            const double early = 1.001 * secondsOf(to, 1) + 2 * secondsOf(from, 1);
            for (size_t index = 0; index < after.size(); ++index)
            {
                const double off = secondsOf(to, after[index].first) - secondsOf(from, before[index].first);
                ASSERT_TRUE(off <= late && off >= -early) << off << ", " << late;
            }
        }
    }
}

// Two equal codes within two frames count once, further apart they count twice; that must not change. At
// 59.94 the first repeat would only be ready for frame 8, after an empty pair.
TEST(CaptionRetime, DoubledCodesStayNeighboursAndSingleOnesStayApart)
{
    const Triplet code{0xFC, 0x94, 0xAD}, text{0xFC, 0xC1, 0xC2}, empty{0xFC, 0x80, 0x80};
    const auto retimed = [](const KIVCS2CaptionRetimeOptions &options, const Placed &source) {
        return placedIn(Retimed{options, packetsOf(source)}.packets, 0);
    };
    EXPECT_EQ(retimed(fromTo(k25, k59), {{2, code}, {3, code}}), (Placed{{4, code}, {6, code}}));
    EXPECT_EQ(retimed(fromTo(k24, k60), {{1, code}, {2, empty}, {3, code}}), (Placed{{2, code}, {4, code}}));
    EXPECT_EQ(retimed(fromTo(k30, k24), {{4, code}, {7, code}}), (Placed{{3, code}, {6, code}}));
    EXPECT_EQ(retimed(fromTo(k60, k24), {{0, code}, {4, code}, {6, code}, {8, text}}),
              (Placed{{0, code}, {3, code}, {4, code}, {4, text}}));
    const KIVCS2CaptionRetimeOptions same{k24, k25, KIVCS2CaptionRetimeMode_SameFrames, 0, 0, 1, {}};
    EXPECT_EQ(retimed(same, {{90000, code}, {90002, text}}), (Placed{{90001, code}, {90003, text}}));
}

TEST(CaptionRetime, WaitsAreReportedAndEndAtAnHour)
{
    // 20 pairs in 20 frames at 25 pairs a second: the last is ready on frame 31 and leaves on 38.
    Placed pairs, bytes;
    for (uint32_t frame = 0; frame < 20; ++frame)
        pairs.push_back({frame, {0xFC, 'a', 'b'}});
    const Retimed at50{fromTo(kDF, k50), packetsOf(pairs)};
    EXPECT_EQ(placedIn(at50.packets, 0).back().first, 38u);
    EXPECT_TRUE(at50.report.m_wait[0] == 7 && at50.report.m_waitTime[0] == 140'000'000);
    EXPECT_TRUE(at50.report.m_packetsBehind == 6 && at50.report.m_lastFrame == 38); // frame 20 would be 33
    // 20 triplets in each frame leave no room for line 21: 1,800 at 22.5 a frame take 80 frames, not 72.
    for (uint32_t triplet = 0; triplet < 1800; ++triplet)
        bytes.push_back({triplet / 20, {0xFE, 1, 2}});
    const KIVCS2CaptionRetimeReport at24 =
        Retimed{fromTo(kDF, KIVCS2CaptionCounting_23_98), packetsOf(bytes)}.report;
    EXPECT_TRUE(at24.m_bytesOut == 3600 && at24.m_packetsBehind == 8 && at24.m_wait[2] == 9);

    Packets many(4229);
    for (KIVCS2CaptionPacket &packet : many)
        for (packet.m_tripletCount = 0; packet.m_tripletCount < 31; ++packet.m_tripletCount)
            std::memcpy(packet.m_triplets[packet.m_tripletCount], "\xFC!!", 3);
    const Retimed full{fromTo(kDF, kDF), many}; // there is room for 131,072 pairs
    EXPECT_EQ(full.refusals, std::vector<KIVCS2Status>{KIVCS2STATUS_OVERFLOW_ERR});
    EXPECT_TRUE(full.report.m_pairsOut[0] == 4228 * 31 && full.report.m_packetsRefused == 1);
}

TEST(CaptionRetime, SelectionOffsetMidnightAndRefusals)
{
    const Triplet two{0xFC, 'a', '2'}, five{0xFC, 'a', '5'}, start{0xFF, 3, 4}, end{0xFE, 6, 6};
    const Placed placed{{1, start}, {2, end}, {2, two}, {4, start}, {5, five}, {7, two}, {9, end}, {5, two}};
    KIVCS2CaptionRetimeOptions options = fromTo(k25, k50, -4);
    options.m_first = 2;
    options.m_last = 5;
    const Retimed part{options, packetsOf(placed)};
    EXPECT_EQ(placedIn(part.packets, 0), (Placed{{0, two}, {6, five}}));
    EXPECT_TRUE(
        haveSame(part.packets, packetsOf({{0, start}, {0, end}}), 2)); // selected by the frame of its start
    EXPECT_TRUE(part.report.m_bytesLeftOut == 2 && part.report.m_packetsLeftOut == 3 &&
                part.report.m_lastFrame == 8);
    EXPECT_EQ(part.refusals, std::vector{kRefused}); // back in time
    const Retimed before{fromTo(k25, k50, -5), packetsOf(placed)},
        none{fromTo(k25, k50, -99), packetsOf(placed)};
    EXPECT_TRUE(before.report.m_packetsBefore == 3 && before.report.m_packetsRefused == 4);
    EXPECT_TRUE(
        haveSame(before.packets, part.packets, 2)); // the rest of a refused service packet is dropped too
    EXPECT_TRUE(none.packets.empty() && none.refusals == std::vector(8, kRefused));
    const Retimed last{fromTo(k25, k25, INT32_MAX), packetsOf({{0, two}, {1, two}})};
    EXPECT_TRUE(last.packets.size() == 1 && last.refusals == std::vector{kRefused});

    // Only frame 0, with the rest of the service packet that begins on it.
    const KIVCS2CaptionRetimeOptions zero{k25, k25, kHasLast, 0, 0, 0, {}};
    const Retimed alone{zero, packetsOf({{0, start}, {0, two}, {1, five}, {1, end}})};
    EXPECT_EQ(placedIn(alone.packets, 0), (Placed{{0, two}}));
    EXPECT_EQ(placedIn(alone.packets, 2), (Placed{{0, start}, {1, end}}));

    constexpr uint32_t kDay = 25 * 86400;
    const Retimed midnight{fromTo(k25, k50), packetsOf({{kDay - 1, {}}, {0, {}}, {1, two}})};
    EXPECT_TRUE(midnight.packets.size() == 6 && placedIn(midnight.packets, 0)[0].first == 2 * kDay + 2);

    const Packets whole = programme(5, 40);
    const Retimed failing{fromTo(kDF, k60), whole, 3}, good{fromTo(kDF, k60), whole};
    ASSERT_TRUE(failing.refusals.size() > 20 && failing.packets.size() == good.packets.size());
    const size_t size = good.packets.size() * sizeof whole[0];
    EXPECT_EQ(std::memcmp(failing.packets.data(), good.packets.data(), size), 0);
}

TEST(CaptionRetime, ServicesAndTimeCodeAreCarriedOn)
{
    const KIVCS2CaptionServiceEntry services[] = {{KIVCS2CaptionService_CC1, "eng", 0, 1, {}}};
    KIVCS2CaptionPacket packet;
    ASSERT_EQ(kivCS2CaptionPacket_build(&packet, kDF, 9, nullptr, nullptr, services, 1), KIVCS2STATUS_OK);
    packet.m_flags |= KIVCS2CaptionPacketFlag_HasTimeCode;
    packet.m_frame = 107892 + 31;
    const Packets full = Retimed{fromTo(kDF, k59), {packet}}.packets;
    ASSERT_TRUE(full.size() == 2 && full[1].m_serviceCount == 1);
    EXPECT_EQ(std::memcmp(full[0].m_timeCode, "\xC1\x80\x01\x81", 4), 0); // 01:00:01;01, its first frame
    EXPECT_EQ(std::memcmp(full[1].m_timeCode, "\xC1\x80\x81\x81", 4), 0);
    EXPECT_EQ(std::memcmp(full[1].m_services, services, sizeof services), 0);
    packet.m_flags = KIVCS2CaptionPacketFlag_CDP;
    EXPECT_EQ(Retimed(fromTo(kDF, kDF), {packet}).packets[0].m_flags,
              packet.m_flags); // without services and time code
    EXPECT_EQ(Retimed(fromTo(kDF, kDF), packetsOf({{0, {}}})).packets[0].m_services[0].m_service, 1u);
}

using Captions = std::vector<std::tuple<KIVCS2CaptionService, std::string, double>>; // text, seconds

Captions decode(KIVCS2CaptionCounting counting, const Packets &packets)
{
    std::pair<KIVCS2CaptionCounting, Captions> found{counting, {}};
    const auto onText = [](const KIVCS2CaptionText *text, void *context)
    {
        auto &[rate, captions] = *static_cast<decltype(found) *>(context);
        captions.emplace_back(text->m_service, text->m_text, secondsOf(rate, text->m_from));
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
    std::stable_sort(found.second.begin(), found.second.end(),
                     [](const auto &a, const auto &b) { return std::get<0>(a) < std::get<0>(b); });
    return found.second;
}

TEST(CaptionRetimeCorpus, RealFilesShowTheSameAtEveryRateAndBack)
{
    KIV_NEED_CORPUS();
    for (const auto &entry : std::filesystem::recursive_directory_iterator{kiv::test::corpus()})
    {
        const auto kind = entry.path().extension();
        if ((kind != ".mcc" && kind != ".scc") || entry.file_size() == 0)
            continue;
        KIVCS2CaptionReadOptions order{};
        order.m_order = KIVCS2CaptionOrder_Frame;
        Reading reading{fileText(entry.path()), order};
        const Packets &source = reading.all().packets;
        const KIVCS2CaptionCounting from = reading.header.m_counting;
        const Captions known = decode(from, source);
        for (const KIVCS2CaptionCounting to : {uint32_t{KIVCS2CaptionCounting_23_98}, k25, k50, k59})
        {
            SCOPED_TRACE(entry.path().filename().string() + " at " + kivCS2CaptionCounting_name(to));
            const Retimed there{fromTo(from, to), source};
            const Captions middle = decode(to, there.packets);
            const Retimed back{fromTo(to, from), there.packets};
            // The same texts, each late by at most the wait and two frames, and early by at most two frames.
            for (const auto &[before, after, retimed, counting] :
                 {std::tuple{known, middle, there, to}, {middle, decode(from, back.packets), back, from}})
            {
                ASSERT_EQ(after.size(), before.size());
                for (size_t index = 0; index < before.size(); ++index)
                {
                    const auto &[service, text, moment] = before[index];
                    const size_t queue = service <= KIVCS2CaptionService_S63 ? 2 : ((service & 0xF) - 1) / 2;
                    const double off = std::get<2>(after[index]) - moment, two = 2 * secondsOf(counting, 1);
                    const double wait = static_cast<double>(retimed.report.m_waitTime[queue]) / 1e9;
                    EXPECT_TRUE(std::get<0>(after[index]) == service && std::get<1>(after[index]) == text &&
                                off >= -two && off <= two + wait)
                        << text << ": " << off;
                }
            }
        }
    }
}

TEST(CaptionRetimeRecords, SizesAndArguments)
{
    EXPECT_TRUE(sizeof(KIVCS2CaptionRetimeOptions) == 56 && sizeof(KIVCS2CaptionRetimeReport) == 184);
    const auto init = [](KIVCS2CaptionRetimeOptions options)
    {
        KIVCS2CaptionRetime retime;
        return kivCS2CaptionRetime_init(&retime, &options, Retimed::onPacket, nullptr);
    };
    const KIVCS2CaptionRetimeOptions far{k25, kDF, KIVCS2CaptionRetimeMode_SameFrames, 0, 0, 0, {}},
        range{1, 2, 0, 2, 1, 0, {}}, frame0{1, 2, kHasLast, 2, 0, 0, {}}, mode{1, 2, 2, 0, 0, 0, {}},
        reserved{1, 2, 0, 0, 0, 0, {0, 0, 0, 1}};
    EXPECT_EQ(init(far), KIVCS2STATUS_UNSUPPORTED_ERR);
    EXPECT_EQ(init(fromTo(0, k24)), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(init(fromTo(k24, KIVCS2CaptionCounting_MAX)), KIVCS2STATUS_FRAME_RATE_ERR);
    KIVCS2CaptionRetime none{};
    const char *const kRange = "!kiv::cc::hasLast(*options) || (options->m_first <= options->m_last)";
    kiv::test::expectAllRefused(
        {KIV_REQUIRES(init, "mode <= KIVCS2CaptionRetimeMode_SameFrames", mode),
         KIV_REQUIRES(init, kRange, range), KIV_REQUIRES(init, kRange, frame0),
         KIV_REQUIRES(init, "reserved == 0", reserved),
         KIV_REQUIRES(kivCS2CaptionRetime_finish, "retime->m_state", &none, nullptr)});
}
} // namespace
