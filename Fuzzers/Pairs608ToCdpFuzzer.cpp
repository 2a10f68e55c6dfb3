// A CDP of two pairs: it has its own length and checksum, and the same pairs are read back.
// Input: SDI form (bit 0), one pair only (bit 1), sequence number, pairs.
#include "../Tests/Support/PlainCDP.h"
#include "Require.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <cstring>
#include <numeric>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 7)
        return 0;
    const bool sdi = (data[0] & 1) != 0;
    const uint32_t pairBytes = (data[0] & 2) != 0 ? 2 : 4;
    const auto sequenceNumber = static_cast<uint16_t>(data[1] << 8 | data[2]);
    uint16_t pairs[2];
    memcpy(pairs, data + 3, sizeof pairs);
    uint8_t packet[KIVCS2_CDP_SDI_SIZE];
    uint32_t packetSize = sdi ? KIVCS2_CDP_SDI_SIZE : KIVCS2_CDP_SIZE;
    require(kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat(
                pairs, pairBytes, packet, &packetSize, sequenceNumber, sdi) == KIVCS2STATUS_OK);
    require(packetSize == packet[2]);
    require(std::accumulate(packet, packet + packetSize, 0u) % 256 == 0);
    if (pairBytes == 4 && !sdi)
    {
        uint8_t plain[KIVCS2_CDP_SIZE];
        kiv::test::buildPlainly(data + 3, sequenceNumber, plain);
        require(memcmp(packet, plain, sizeof plain) == 0);
    }

    uint16_t back[2];
    const uint32_t room = sizeof back;
    require(kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(packet, packetSize, false, back,
                                                                            &room) == KIVCS2STATUS_OK);
    require(memcmp(back, pairs, pairBytes) == 0);
    return 0;
}
