// Any triplets retimed there and back: two bytes of countings, then five a packet of one triplet: how many frames
// on, three bytes, and flags. Nothing is lost, and the order stays.
#include "Expect.h"

#include "KIVCS2CaptionRetime.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{
struct Way
{
    std::vector<KIVCS2CaptionPacket> packets;
    KIVCS2CaptionRetimeReport report{};
};

KIVCS2Status onPacket(const KIVCS2CaptionPacket *packet, void *context)
{
    constexpr uint64_t kParity = uint64_t{1} << KIVCS2CaptionFault_Parity;
    Way &way = *static_cast<Way *>(context);
    KIV_FUZZ_EXPECT((packet->m_faults & ~kParity) == 0);
    KIV_FUZZ_EXPECT(packet->m_sequence == static_cast<uint16_t>(way.packets.size()));
    KIV_FUZZ_EXPECT(way.packets.empty() || packet->m_frame == way.packets.back().m_frame + 1);
    way.packets.push_back(*packet);
    return KIVCS2STATUS_OK;
}

// What waits in a queue, as it goes by.
std::string bytesOf(const std::vector<KIVCS2CaptionPacket> &packets, unsigned queue)
{
    std::string found;
    for (const KIVCS2CaptionPacket &packet : packets)
        for (size_t index = 0; index < packet.m_tripletCount; ++index)
            if (const auto &[head, a, b] = packet.m_triplets[index];
                (head & 4u) != 0 && std::min(head & 3u, 2u) == queue && (queue == 2 || ((a | b) & 0x7F) != 0))
                for (const uint8_t byte : {static_cast<uint8_t>(head & 7u), a, b})
                    found += static_cast<char>(byte);
    return found;
}

Way retime(const KIVCS2CaptionRetimeOptions &options, const std::vector<KIVCS2CaptionPacket> &source)
{
    Way way;
    KIVCS2CaptionRetime record;
    KIV_FUZZ_EXPECT(kivCS2CaptionRetime_init(&record, &options, onPacket, &way) == KIVCS2STATUS_OK);
    for (const KIVCS2CaptionPacket &packet : source)
        KIV_FUZZ_EXPECT(kivCS2CaptionRetime_feed(&record, &packet) == KIVCS2STATUS_OK);
    const KIVCS2Status status = kivCS2CaptionRetime_finish(&record, &way.report);
    KIV_FUZZ_EXPECT(status == (way.report.m_packetsIn > 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_NO_DATA_ERR));
    KIV_FUZZ_EXPECT(way.packets.size() == way.report.m_packetsOut);
    KIV_FUZZ_EXPECT(kivCS2CaptionRetime_free(&record) == KIVCS2STATUS_OK);
    return way;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr size_t kMost = 4096; // bytes: as many empty frames lie between as flags say
    if (size < 2 || size > kMost)
        return 0;
    KIVCS2CaptionRetimeOptions there{1 + data[0] % 10u, 1 + data[0] / 10 % 10u, 0, 0, 0, data[1] % 16, {}};
    const KIVCS2CaptionRetimeOptions back{there.m_to, there.m_from, 0, 0, 0, 0, {}};
    std::vector<KIVCS2CaptionPacket> source;
    uint32_t frame = 0;
    for (size_t at = 2; at + 5 <= size; at += 5)
    {
        frame += data[at] % 32;
        KIVCS2CaptionPacket &packet = source.emplace_back();
        packet.m_frame = frame;
        packet.m_flags = data[at + 4];
        packet.m_serviceCount = data[at + 4] / 16;
        packet.m_services[0].m_service = data[at];
        packet.m_tripletCount = 1;
        std::memcpy(packet.m_triplets[0], data + at + 1, 3);
    }
    const Way first = retime(there, source);
    const Way second = retime(back, first.packets);
    for (unsigned queue = 0; queue < 3; ++queue)
    {
        const std::string sent = bytesOf(source, queue);
        KIV_FUZZ_EXPECT(bytesOf(first.packets, queue) == sent && bytesOf(second.packets, queue) == sent);
    }
    // A part of it: whatever is taken comes out.
    there.m_first = frame / 4;
    there.m_last = frame / 2;
    const KIVCS2CaptionRetimeReport part = retime(there, source).report;
    KIV_FUZZ_EXPECT(part.m_pairsIn[0] == part.m_pairsOut[0] && part.m_pairsIn[1] == part.m_pairsOut[1] &&
                    part.m_bytesIn == part.m_bytesOut);
    return 0;
}
