// Any triplets retimed there and back: none is lost, and the order stays. Input: two bytes of options; then
// for each packet of one triplet the frames to it, the triplet, and flags.
#include "Require.h"

#include "KIVCS2CaptionRetime.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace
{
using Packets = std::vector<KIVCS2CaptionPacket>;
// The contents of the queues in their order: pairs of field 1, of field 2, CEA-708.
using Queued = std::array<std::string, 3>;

KIVCS2Status onPacket(const KIVCS2CaptionPacket *packet, void *context)
{
    Packets &before = *static_cast<Packets *>(context);
    require((packet->m_faults & ~(uint64_t{1} << KIVCS2CaptionFault_Parity)) == 0);
    require(packet->m_sequence == before.size());
    require(before.empty() || packet->m_frame == before.back().m_frame + 1);
    before.push_back(*packet);
    return KIVCS2STATUS_OK;
}

Queued queuedIn(const Packets &packets)
{
    Queued found;
    for (const KIVCS2CaptionPacket &packet : packets)
        for (size_t index = 0; index < packet.m_tripletCount; ++index)
            if (const auto &[head, a, b] = packet.m_triplets[index];
                (head & 4u) != 0 && ((head & 2u) != 0 || ((a | b) & 0x7F) != 0))
                found[std::min(head & 3u, 2u)] +=
                    {static_cast<char>(head & 3u), static_cast<char>(a), static_cast<char>(b)};
    return found;
}

Packets retime(const KIVCS2CaptionRetimeOptions &options, const Packets &source)
{
    Packets made;
    KIVCS2CaptionRetime retime;
    KIVCS2CaptionRetimeReport report;
    require(kivCS2CaptionRetime_init(&retime, &options, onPacket, &made) == KIVCS2STATUS_OK);
    for (const KIVCS2CaptionPacket &packet : source)
        require(kivCS2CaptionRetime_feed(&retime, &packet) == KIVCS2STATUS_OK);
    const KIVCS2Status status = kivCS2CaptionRetime_finish(&retime, &report);
    require(status == (report.m_packetsIn > 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_NO_DATA_ERR));
    require(made.size() == report.m_packetsOut && report.m_bytesIn == report.m_bytesOut &&
            report.m_pairsIn[0] + report.m_pairsIn[1] == report.m_pairsOut[0] + report.m_pairsOut[1]);
    require(kivCS2CaptionRetime_free(&retime) == KIVCS2STATUS_OK);
    return made;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr size_t kMost = 102; // 20 packets: those between them are made too
    if (size < 2 || size > kMost)
        return 0;
    KIVCS2CaptionRetimeOptions there{1 + data[0] % 10u, 1 + data[0] / 10 % 10u, 0, 0, 0, data[1] % 16, {}};
    const KIVCS2CaptionRetimeOptions back{there.m_to, there.m_from, 0, 0, 0, 0, {}};
    Packets source((size - 2) / 5);
    uint32_t frame = 0;
    for (KIVCS2CaptionPacket &packet : source)
    {
        const uint8_t *const from = data + 2 + (&packet - source.data()) * 5;
        packet.m_frame = frame += from[0] < 250 ? from[0] % 3 : frame < 40 ? from[0] - 220u : 0;
        std::memcpy(packet.m_triplets[0], from + 1, 3);
        packet.m_tripletCount = 1;
        packet.m_flags = from[4];
        packet.m_serviceCount = from[4] / 16;
        packet.m_services[0].m_service = from[0];
    }
    const bool isPart = data[1] >= 128; // the report shows that a part loses no data either
    there.m_first = isPart ? frame / 4 : 0;
    there.m_last = isPart ? frame / 2 : 0;
    there.m_mode = isPart ? KIVCS2CaptionRetimeMode_HasLast : 0;
    const Packets result = retime(there, source);
    require(isPart || queuedIn(result) == queuedIn(source));
    require(queuedIn(retime(back, result)) == queuedIn(result));
    return 0;
}
