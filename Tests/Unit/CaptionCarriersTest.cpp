// Caption packets in the forms that carry them: there and back, known bytes, and the losses of damage.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fstream>
#include <numeric>
#include <random>
#include <vector>

namespace
{
using Bytes = std::vector<uint8_t>;
using Packets = std::vector<KIVCS2CaptionPacket>;
using Places = std::vector<KIVCS2CaptionPlace>;

constexpr uint64_t bit(KIVCS2CaptionFault fault)
{
    return uint64_t{1} << fault;
}

struct Found
{
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
    uint64_t end;
    bool cut;
};

Bytes bytesOf(const KIVCS2CaptionPacket &packet)
{
    return {packet.m_anc, packet.m_anc + packet.m_size};
}

// All packets in the bytes, which lie at the end of their memory; if `beyond`, also past a cut packet.
std::vector<Found> findAll(KIVCS2CaptionCarrier form, const Bytes &bytes, bool beyond = false,
                           uint64_t *rest = nullptr)
{
    const Bytes own{bytes};
    std::vector<Found> all;
    uint64_t at = 0;
    for (KIVCS2Status status = KIVCS2STATUS_OK; KIVCS2_SUCCEEDED(status);)
    {
        const uint64_t from = at;
        Found found{};
        status = kivCS2CaptionPacket_find(form, own.data(), own.size(), &at, &found.packet, &found.place);
        EXPECT_TRUE(at >= from && at <= own.size());
        if (status == KIVCS2STATUS_OK)
        {
            EXPECT_TRUE(at > from && found.place.m_offset >= from && found.place.m_offset < at);
        }
        found.end = at;
        found.cut = status == KIVCS2STATUS_EOF_ERR;
        if (KIVCS2_SUCCEEDED(status) || found.cut)
            all.push_back(found);
        if (found.cut && beyond && at < own.size())
        {
            ++at;
            status = KIVCS2STATUS_OK;
        }
    }
    if (rest != nullptr)
        *rest = at;
    return all;
}

// The packets found by a reader that receives the bytes in blocks.
std::vector<Bytes> foundInBlocks(KIVCS2CaptionCarrier form, const Bytes &bytes, size_t block)
{
    std::vector<Bytes> all;
    Bytes kept;
    for (size_t at = 0; at < bytes.size(); at += block)
    {
        const auto *const from = bytes.data() + at;
        kept.insert(kept.end(), from, from + std::min(block, bytes.size() - at));
        uint64_t rest = 0;
        for (const Found &found : findAll(form, kept, false, &rest))
            if (!found.cut)
                all.push_back(bytesOf(found.packet));
        kept.erase(kept.begin(), kept.begin() + static_cast<long>(rest));
    }
    return all;
}

KIVCS2CaptionPacket summed(Bytes bytes)
{
    bytes.push_back(std::accumulate(bytes.begin(), bytes.end(), uint8_t{0}));
    KIVCS2CaptionPacket packet;
    EXPECT_EQ(kivCS2CaptionPacket_parse(&packet, bytes.data(), static_cast<uint32_t>(bytes.size())),
              KIVCS2STATUS_OK);
    return packet;
}

struct Random
{
    std::mt19937 engine{1313};
    uint32_t below(uint32_t end)
    {
        return static_cast<uint32_t>(engine() % end);
    }
    uint8_t byte()
    {
        return static_cast<uint8_t>(engine());
    }
    KIVCS2CaptionPacket cdp()
    {
        KIVCS2CaptionDTVCC dtvcc{};
        dtvcc.m_count = 2 * below(8);
        for (uint32_t at = 0; at < dtvcc.m_count; ++at)
            dtvcc.m_bytes[at] = byte();
        KIVCS2CaptionPacket packet{};
        EXPECT_EQ(kivCS2CaptionPacket_build(&packet, 1 + below(10), static_cast<uint16_t>(engine()), nullptr,
                                            &dtvcc, nullptr, 0),
                  KIVCS2STATUS_OK);
        return packet;
    }
    KIVCS2CaptionPacket pair()
    {
        return summed({0x61, 0x02, 0x03, static_cast<uint8_t>(below(2) << 7 | below(12)), 0x94, 0x2C});
    }
    KIVCS2CaptionPacket packet()
    {
        if (below(3) > 0)
            return below(2) != 0 ? cdp() : pair();
        Bytes bytes{0x61, 0x01, byte()};
        for (uint32_t left = bytes[2]; left > 0; --left)
            bytes.push_back(byte());
        return summed(bytes);
    }
};

bool isV210(KIVCS2CaptionCarrier form)
{
    return form >= KIVCS2CaptionCarrier_V210Luma && form <= KIVCS2CaptionCarrier_V210SD;
}

KIVCS2CaptionChannel channelOf(KIVCS2CaptionCarrier form)
{
    return form == KIVCS2CaptionCarrier_V210Chroma ? KIVCS2CaptionChannel_Chroma
           : form == KIVCS2CaptionCarrier_V210SD   ? KIVCS2CaptionChannel_Both
                                                   : KIVCS2CaptionChannel_Luma;
}

KIVCS2CaptionRTP header(Random &random)
{
    const auto word = [&] { return static_cast<uint32_t>(random.engine()); };
    const auto below = [&](uint32_t end) { return static_cast<uint8_t>(random.below(end)); };
    return {word(), word(), word(), below(128), below(2), below(3), 0, {}};
}

// Places that the form can express, one after the other.
Places placesFor(KIVCS2CaptionCarrier form, const Packets &packets, Random &random)
{
    Places places;
    uint32_t word = 0;
    for (const KIVCS2CaptionPacket &packet : packets)
    {
        KIVCS2CaptionPlace place{};
        word += random.below(9);
        place.m_channel = channelOf(form);
        place.m_horizontal = static_cast<uint16_t>(isV210(form) ? word : random.below(0x1000));
        word += 7u + packet.m_anc[2];
        if (form == KIVCS2CaptionCarrier_RTP || form == KIVCS2CaptionCarrier_436M)
            place.m_line = static_cast<uint16_t>(random.below(0x800));
        if (form == KIVCS2CaptionCarrier_436M)
        {
            place.m_horizontal = 0;
            place.m_field = static_cast<uint8_t>(random.below(3));
            place.m_coding = static_cast<uint8_t>(4 + random.below(6));
            place.m_channel = static_cast<uint8_t>((place.m_coding - 4) % 3);
        }
        if (form == KIVCS2CaptionCarrier_RTP)
        {
            place.m_channel = static_cast<uint8_t>(random.below(2));
            place.m_hasStream = static_cast<uint8_t>(random.below(2));
            place.m_stream = static_cast<uint8_t>(random.below(128));
        }
        places.push_back(place);
    }
    return places;
}

Bytes wrap(KIVCS2CaptionCarrier form, const Packets &packets, const Places &places,
           const KIVCS2CaptionRTP &rtp)
{
    uint64_t size = 0;
    const auto count = static_cast<uint32_t>(packets.size());
    const KIVCS2CaptionPlace *const at = places.empty() ? nullptr : places.data();
    EXPECT_EQ(kivCS2CaptionPacket_wrap(form, packets.data(), count, at, &rtp, nullptr, &size),
              KIVCS2STATUS_BUFFER_SIZE_ERR);
    Bytes bytes(size);
    for (size_t four = 0; isV210(form) && four + 4 <= size; four += 4) // black: 040 and 200 alternately
        for (size_t byte = 0; byte < 4; ++byte)
            bytes[four + byte] =
                static_cast<uint8_t>((four % 8 == 0 ? 0x20010200u : 0x04080040u) >> 8 * byte);
    --size;
    EXPECT_EQ(kivCS2CaptionPacket_wrap(form, packets.data(), count, at, &rtp, bytes.data(), &size),
              KIVCS2STATUS_BUFFER_SIZE_ERR);
    EXPECT_EQ(kivCS2CaptionPacket_wrap(form, packets.data(), count, at, &rtp, bytes.data(), &size),
              KIVCS2STATUS_OK);
    EXPECT_EQ(size, bytes.size());
    return bytes;
}

bool isSame(const KIVCS2CaptionPacket &one, const KIVCS2CaptionPacket &other)
{
    return bytesOf(one) == bytesOf(other) && one.m_faults == other.m_faults && one.m_flags == other.m_flags &&
           one.m_tripletCount == other.m_tripletCount &&
           std::memcmp(one.m_triplets, other.m_triplets, sizeof one.m_triplets) == 0;
}

TEST(CaptionCarriers, EveryFormThereAndBackByteForByte)
{
    Random random;
    for (KIVCS2CaptionCarrier form = 0; form < KIVCS2CaptionCarrier_MAX; ++form)
        for (int round = 0; round < 150; ++round)
        {
            SCOPED_TRACE(testing::Message() << "form " << form << " round " << round);
            Packets packets;
            for (uint32_t left = 1 + random.below(4); left > 0; --left)
                packets.push_back(random.packet());
            const Places places = placesFor(form, packets, random);
            const KIVCS2CaptionRTP rtp = header(random);
            const Bytes bytes = wrap(form, packets, places, rtp);
            const std::vector<Found> found = findAll(form, bytes);
            ASSERT_EQ(found.size(), packets.size());
            Packets back;
            Places backAt;
            for (size_t index = 0; index < found.size(); ++index)
            {
                ASSERT_TRUE(isSame(found[index].packet, packets[index]));
                const KIVCS2CaptionPlace &place = found[index].place;
                EXPECT_EQ(place.m_channel, places[index].m_channel);
                EXPECT_EQ(place.m_line, places[index].m_line);
                EXPECT_TRUE(place.m_stream == places[index].m_stream &&
                            place.m_hasStream == places[index].m_hasStream);
                EXPECT_EQ(place.m_field,
                          form == KIVCS2CaptionCarrier_RTP ? rtp.m_field : places[index].m_field);
                back.push_back(found[index].packet);
                backAt.push_back(place);
            }
            EXPECT_EQ(wrap(form, back, backAt, backAt[0].m_rtp), bytes);
        }
}

// Worked out by hand from the figures of RFC 8331 and of SMPTE ST 436-1. Field 1's "erase displayed memory"
// is the words 161 102 203 180 194 12C with the sum 2A6; field 2's, at line offset 12, has 20C for 180 and
// the sum 132.
TEST(CaptionCarriers, BytesAsInTheFiguresOfTheStandards)
{
    const Packets packets{summed({0x61, 0x02, 0x03, 0x80, 0x94, 0x2C}),
                          summed({0x61, 0x02, 0x03, 0x0C, 0x94, 0x2C})};
    KIVCS2CaptionPairs pairs;
    EXPECT_EQ(kivCS2CaptionPacket_getPairs(&packets[1], &pairs), KIVCS2STATUS_OK);
    EXPECT_TRUE(pairs.m_count[0] == 0 && pairs.m_count[1] == 1 && pairs.m_pairs[1][0][1] == 0x2C);
    Places places(2);
    places[0].m_line = 9;
    places[1] = {0, {}, 0x7FF, 0xFFF, KIVCS2CaptionChannel_Chroma, 0, 1, 5, 0, 0, {}};
    const KIVCS2CaptionRTP rtp{0x00012345, 0x01020304, 0xA0B0C0D0, 100, 1, 2, 0, {}};
    EXPECT_EQ(wrap(KIVCS2CaptionCarrier_RTP, packets, places, rtp),
              (Bytes{0x80, 0xE4, 0x23, 0x45, 1,    2,    3,    4,    0xA0, 0xB0, 0xC0, 0xD0, 0x00,
                     0x01, 0x00, 0x20, 2,    0xC0, 0,    0,    0x00, 0x90, 0x00, 0x00, 0x58, 0x50,
                     0x28, 0x0D, 0x80, 0x65, 0x12, 0xCA, 0x98, 0,    0,    0,    0xFF, 0xFF, 0xFF,
                     0x85, 0x58, 0x50, 0x28, 0x0E, 0x0C, 0x65, 0x12, 0xC4, 0xC8, 0,    0,    0}));

    // The layout of the figure: packets of 4 and 5 words on lines 9 and 10 make a Length of 32.
    Places lines(2);
    lines[0].m_line = 9;
    lines[1].m_line = 10;
    const Bytes figure =
        wrap(KIVCS2CaptionCarrier_RTP,
             {summed({0x41, 0x05, 4, 1, 2, 3, 4}), summed({0x41, 0x05, 5, 1, 2, 3, 4, 5})}, lines, rtp);
    EXPECT_TRUE(figure.size() == 52 && figure[15] == 32 && figure[16] == 2 && figure[36] == 0x00 &&
                figure[37] == 0xA0);
    const auto all = findAll(KIVCS2CaptionCarrier_RTP | KIVCS2CaptionCarrier_AnyPacket, figure);
    EXPECT_TRUE(all.size() == 2 && all[1].place.m_line == 10 && all[1].packet.m_faults == 0 &&
                all[1].packet.m_did == 0x41);
    EXPECT_TRUE(findAll(KIVCS2CaptionCarrier_RTP, figure).empty());

    places[1].m_line = 13; // of 720p
    places[1].m_coding = 7;
    places[1].m_field = 2;
    EXPECT_EQ(
        wrap(KIVCS2CaptionCarrier_436M, {packets[0], packets[0]}, places, {}),
        (Bytes{0,    2,    0,    9,    4,    4,    0,    6,    0,    0,    0,    8,    0,    0,    0, 1, 0x61,
               0x02, 0x03, 0x80, 0x94, 0x2C, 0,    0,    0,    13,   3,    7,    0,    7,    0,    0, 0, 12,
               0,    0,    0,    1,    0x58, 0x50, 0x28, 0x0C, 0x60, 0x19, 0x44, 0xB0, 0xA9, 0x80, 0, 0}));
    Bytes wrong = wrap(KIVCS2CaptionCarrier_436M, {packets[0]}, {}, {});
    wrong[4] = 5; // one more than the wrapping types that there are
    EXPECT_EQ(findAll(KIVCS2CaptionCarrier_436M, wrong).at(0).packet.m_faults,
              bit(KIVCS2CaptionFault_CarrierCounts));
    EXPECT_EQ(wrap(KIVCS2CaptionCarrier_10BitLittleWithADF, {packets[0]}, {}, {}),
              (Bytes{0x00, 0x00, 0xFF, 0x03, 0xFF, 0x03, 0x61, 0x01, 0x02, 0x01,
                     0x03, 0x02, 0x80, 0x01, 0x94, 0x01, 0x2C, 0x01, 0xA6, 0x02}));
    // Cb0 Y0 Cr0, Y1 Cb2 Y2, ...: the flag 000 3FF 3FF in the first three luma samples.
    const Bytes line = wrap(KIVCS2CaptionCarrier_V210Luma, {packets[0]}, {}, {});
    EXPECT_EQ(Bytes(line.begin(), line.begin() + 8), (Bytes{0x00, 0x02, 0x00, 0x20, 0xFF, 0x03, 0xF8, 0x3F}));

    const Bytes alive = wrap(KIVCS2CaptionCarrier_RTP, {}, {}, rtp);
    EXPECT_EQ(alive.size(), 20u);
    uint64_t at = 0;
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
    EXPECT_EQ(kivCS2CaptionPacket_find(KIVCS2CaptionCarrier_RTP, alive.data(), 20, &at, &packet, &place),
              KIVCS2STATUS_NOT_FOUND_ERR);
    EXPECT_TRUE(place.m_rtp.m_sequence == 0x12345 && place.m_rtp.m_marker == 1 && place.m_rtp.m_field == 2);
}

TEST(CaptionCarriers, CapturesAreTheSameInEveryForm)
{
    KIV_NEED_CORPUS();
    std::ifstream in{kiv::test::corpus() / "anc/1080i-708b.s291-10bit.be16", std::ios::binary};
    const Bytes bytes{std::istreambuf_iterator<char>{in}, {}};
    const auto captured = findAll(KIVCS2CaptionCarrier_10Bit, bytes);
    ASSERT_EQ(captured.size(), 300u);
    for (const Found &found : captured)
    {
        ASSERT_EQ(found.packet.m_faults & ~bit(KIVCS2CaptionFault_Parity), 0u);
        for (KIVCS2CaptionCarrier form = 0; form < KIVCS2CaptionCarrier_MAX; ++form)
        {
            const auto back = findAll(form, wrap(form, {found.packet}, {}, {}));
            ASSERT_EQ(back.size(), 1u);
            ASSERT_TRUE(isSame(back[0].packet, found.packet)) << form;
        }
    }
}

struct Sample
{
    Packets packets;
    Bytes bytes;
    std::vector<Found> whole;
};

Sample sampleOf(KIVCS2CaptionCarrier form, Random &random)
{
    Sample sample;
    sample.packets = {random.cdp(), random.pair(), random.cdp()};
    const KIVCS2CaptionRTP rtp{0x00012345, 0x01020304, 0xA0B0C0D0, 100, 1, 2, 0, {}};
    sample.bytes = wrap(form, sample.packets, placesFor(form, sample.packets, random), rtp);
    sample.whole = findAll(form, sample.bytes);
    EXPECT_EQ(sample.whole.size(), 3u);
    return sample;
}

// One wrong bit anywhere: its packet has a fault or is not found, and the others are unchanged.
TEST(CaptionCarriers, OneWrongBitCostsNoNeighbour)
{
    // Packets are lost by bits of flags, DIDs and SDIDs, by unguarded bits of 436M, and by RTP's first byte.
    constexpr size_t kMostLost[] = {72, 48, 90, 60, 90, 60, 60, 90, 90, 90, 12};
    Random random;
    for (KIVCS2CaptionCarrier form = 0; form < KIVCS2CaptionCarrier_MAX; ++form)
    {
        const Sample sample = sampleOf(form, random);
        size_t lost = 0;
        for (size_t wrong = 0; wrong < 8 * sample.bytes.size(); ++wrong)
        {
            SCOPED_TRACE(testing::Message()
                         << "form " << form << " byte " << wrong / 8 << " bit " << wrong % 8);
            Bytes damaged = sample.bytes;
            damaged[wrong / 8] = static_cast<uint8_t>(damaged[wrong / 8] ^ 1u << wrong % 8);
            const std::vector<Found> found = findAll(form, damaged, true);
            // The first byte of an RTP packet gives the start of its payload.
            const bool isStart = form == KIVCS2CaptionCarrier_RTP && wrong / 8 == 0;
            ASSERT_LE(found.size(), 3u);
            for (size_t index = 0; index < 3; ++index)
            {
                const Found &whole = sample.whole[index];
                const bool hit = wrong / 8 >= whole.place.m_offset && wrong / 8 <= whole.end;
                if (hit || isStart)
                    continue;
                const auto same = std::ranges::find(found, bytesOf(whole.packet),
                                                    [](const Found &one) { return bytesOf(one.packet); });
                ASSERT_NE(same, found.end()) << "packet " << index;
                ASSERT_TRUE(form == KIVCS2CaptionCarrier_RTP ||
                            same->packet.m_faults == whole.packet.m_faults);
            }
            for (const Found &one : found)
            {
                // The 8-bit form of 436M has no check of the byte of field and line.
                const bool isUnchecked = form == KIVCS2CaptionCarrier_436M && one.packet.m_sdid == 2;
                ASSERT_TRUE(one.packet.m_faults != 0 || isUnchecked ||
                            std::ranges::find(sample.packets, bytesOf(one.packet), bytesOf) !=
                                sample.packets.end());
            }
            lost += 3 - found.size();
        }
        EXPECT_LE(lost, kMostLost[form]);
    }
}

// A packet with a wrong DID, SDID or count, cut by the border of a block: the reader waits for its words, and
// finds the same packets as in one piece.
TEST(CaptionCarriers, DamageIsFoundInBlocksAsInOnePiece)
{
    Random random;
    for (const KIVCS2CaptionCarrier form : {0u, 2u, 4u})
    {
        const Bytes whole = wrap(form, {random.cdp(), random.pair()}, {}, {});
        const size_t word = form == 0 ? 1 : 2;
        for (size_t wrong = 8 * 3 * word; wrong < 8 * (form == 0 ? 5 : 6) * word; ++wrong)
        {
            Bytes bytes = whole;
            bytes[wrong / 8] = static_cast<uint8_t>(bytes[wrong / 8] ^ 1u << wrong % 8);
            std::vector<Bytes> inOnePiece;
            for (const Found &found : findAll(form, bytes))
                inOnePiece.push_back(bytesOf(found.packet));
            EXPECT_EQ(foundInBlocks(form, bytes, 1), inOnePiece) << form << ' ' << wrong;
        }
    }
}

// The next packet or record is searched for once, not in every call, which would take over a minute here.
TEST(CaptionCarriers, HostileBytesCostNoMoreThanTheirLength)
{
    const Packets pairs(120, summed({0x61, 0x02, 0x03, 0x80, 0x94, 0x2C}));
    Bytes bytes = wrap(KIVCS2CaptionCarrier_RTP, pairs, {}, {});
    // Before them zeros, whose count has a wrong parity, and words of right parity at any offset.
    Bytes filler(60'000, 0xAA);
    std::fill_n(filler.begin(), 8, uint8_t{0});
    bytes.insert(bytes.begin() + 20, filler.begin(), filler.end());
    bytes[14] = static_cast<uint8_t>((bytes.size() - 20) >> 8);
    bytes[15] = static_cast<uint8_t>(bytes.size() - 20);
    bytes[16] = 121;
    Bytes records; // of 436M, with a count of 6 and a length of 2304
    while (records.size() < 4'000'000)
    {
        records.insert(records.end(), {0, 9, 4, 4, 0, 6, 0, 0, 9, 0, 0, 0, 0, 1});
        records.resize(records.size() + 520);
    }
    const std::clock_t begin = std::clock();
    EXPECT_EQ(findAll(KIVCS2CaptionCarrier_RTP, bytes).size(), 120u);
    (void)findAll(KIVCS2CaptionCarrier_436M, records);
    EXPECT_LT(std::clock() - begin, 3 * CLOCKS_PER_SEC);
}

// Cut at any byte, the packets before the cut are whole. In blocks of any size all packets are found.
TEST(CaptionCarriers, CutAnywhereAndReadInBlocks)
{
    Random random;
    for (KIVCS2CaptionCarrier form = 0; form < KIVCS2CaptionCarrier_MAX; ++form)
    {
        const Sample sample = sampleOf(form, random);
        for (size_t size = 0; size < sample.bytes.size(); ++size)
        {
            SCOPED_TRACE(testing::Message() << "form " << form << " size " << size);
            const auto found =
                findAll(form, Bytes(sample.bytes.begin(), sample.bytes.begin() + static_cast<long>(size)));
            size_t whole = 0;
            // The last samples of v210 share 32 bits, which are whole or missing.
            while (whole < 3 && sample.whole[whole].end <= (isV210(form) ? size / 4 * 4 : size))
                ++whole;
            ASSERT_GE(found.size(), whole);
            ASSERT_LE(found.size(), 3u);
            // A packet may be found without its padding. A v210 line that ends within a packet is a fault.
            for (size_t index = 0; index < found.size(); ++index)
                if (index < whole || !(found[index].cut || isV210(form)))
                {
                    ASSERT_EQ(bytesOf(found[index].packet), bytesOf(sample.whole[index].packet));
                }
        }
        if (isV210(form) || form == KIVCS2CaptionCarrier_RTP)
            continue;
        Bytes stream;
        std::vector<Bytes> packets;
        for (int copy = 0; copy < 20; ++copy)
        {
            stream.insert(stream.end(), sample.bytes.begin(), sample.bytes.end());
            for (const Found &whole : sample.whole)
                packets.push_back(bytesOf(whole.packet));
        }
        for (const size_t block : {1, 7, 100, 1000})
            EXPECT_EQ(foundInBlocks(form, stream, block), packets) << form << ' ' << block;
    }
}

TEST(CaptionCarriers, NoPacketsInNoiseAndNoneHiddenByIt)
{
    Random random;
    for (KIVCS2CaptionCarrier form = 0; form < KIVCS2CaptionCarrier_MAX; ++form)
    {
        Bytes noise(400'000);
        for (uint8_t &byte : noise)
            byte = random.byte();
        if (form == KIVCS2CaptionCarrier_RTP)
            continue;
        EXPECT_TRUE(findAll(form, noise, true).empty()) << form;
        if (isV210(form))
            continue;
        // Bytes like the head of a long packet before a real one, which ends the bytes.
        Bytes head{0x61, 0x01, 0x80};
        head.resize(3 + 0x80);
        Bytes bytes = wrap(form, {summed(head)}, {}, {});
        bytes.resize(form == KIVCS2CaptionCarrier_436M ? 20 : 12);
        const Packets real{random.cdp()};
        const Bytes after = wrap(form, real, {}, {});
        bytes.insert(bytes.end(), after.begin(), after.end());
        const auto found = findAll(form, bytes, true);
        ASSERT_FALSE(found.empty()) << form;
        EXPECT_EQ(bytesOf(found.back().packet), bytesOf(real[0])) << form;
        EXPECT_EQ(found.back().packet.m_faults, 0u) << form;
    }
}

TEST(CaptionCarriers, RecordsAndRefusals)
{
    EXPECT_TRUE(sizeof(KIVCS2CaptionRTP) == 24 && sizeof(KIVCS2CaptionPlace) == 48);
    KIVCS2CaptionPacket packet{};
    KIVCS2CaptionPlace place{};
    KIVCS2CaptionRTP rtp{};
    uint8_t bytes[64] = {0x40};
    uint64_t offset = 0, size = sizeof bytes, beyond = 65;
    EXPECT_EQ(kivCS2CaptionPacket_find(KIVCS2CaptionCarrier_RTP, bytes, 64, &offset, &packet, nullptr),
              KIVCS2STATUS_FORMAT_ERR);
    bytes[0] = 0x80;
    EXPECT_EQ(kivCS2CaptionPacket_find(KIVCS2CaptionCarrier_RTP, bytes, 11, &offset, &packet, nullptr),
              KIVCS2STATUS_EOF_ERR);
    packet.m_size = 9; // neither 3 nor 4 with a count of 0
    EXPECT_EQ(kivCS2CaptionPacket_wrap(0, &packet, 1, nullptr, nullptr, bytes, &size),
              KIVCS2STATUS_FORMAT_ERR);
    const Packets many(256, summed({0x61, 0x02, 0x03, 0x80, 0x94, 0x2C}));
    EXPECT_EQ(
        kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier_RTP, many.data(), 256, nullptr, &rtp, bytes, &size),
        KIVCS2STATUS_OVERFLOW_ERR);
    const KIVCS2CaptionPlace over[2] = {};
    place.m_line = 0x800;
    kiv::test::expectAllRefused(
        {KIV_REQUIRES(kivCS2CaptionPacket_find, "carrier < KIVCS2CaptionCarrier_MAX", 11, bytes, 64, &offset,
                      &packet, nullptr),
         KIV_REQUIRES(kivCS2CaptionPacket_find, "(carrier == form) || kiv::carriers::hasFlag(carrier)", 0x103,
                      bytes, 64, &offset, &packet, nullptr),
         KIV_REQUIRES(kivCS2CaptionPacket_find, "(bytes != nullptr) || (size == 0)", 1, nullptr, 64, &offset,
                      &packet, nullptr),
         KIV_REQUIRES(kivCS2CaptionPacket_find, "*offset <= size", 1, bytes, 64, &beyond, &packet, nullptr),
         KIV_REQUIRES(kivCS2CaptionPacket_wrap,
                      "!isRTP || ((rtp != nullptr) && kiv::carriers::isSendable(*rtp))", 10, nullptr, 0,
                      nullptr, nullptr, bytes, &size),
         KIV_REQUIRES(kivCS2CaptionPacket_wrap, "kiv::carriers::areApart(form, load)",
                      KIVCS2CaptionCarrier_V210Luma, many.data(), 2, over, nullptr, bytes, &size),
         KIV_REQUIRES(kivCS2CaptionPacket_wrap, "!isRTP || kiv::carriers::isSendable(place)", 10, &packet, 1,
                      &place, &rtp, bytes, &size)});
}
} // namespace
