// The caption data block of a CDP, compared with a plain reading. Input: room; then the packet.
#include "../Tests/Support/PlainCDP.h"
#include "Require.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const std::vector<uint8_t> packet(data + 1, data + size);
    std::vector<uint8_t> block(std::max<size_t>(data[0], 1));
    auto room = static_cast<uint32_t>(block.size());
    const auto packetSize = static_cast<uint32_t>(packet.size());
    const KIVCS2Status status = kivCS2ClosedCaptions_convertSMPTE334CDP708PacketToCEA708DPacket(
        packet.data(), packetSize, false, block.data(), &room);
    require(room <= block.size());

    kiv::test::PlainPairs plain = kiv::test::readPlainly(packet.data(), packet.size());
    if (plain.status == KIVCS2STATUS_EOF_ERR) // a packet without a pair of field 1 does not fail here
        plain.status = KIVCS2STATUS_OK;
    if (KIVCS2_FAILED(plain.status)) // or the block is too small before that
        require(status == plain.status || status == KIVCS2STATUS_BUFFER_SIZE_ERR);
    else if (KIVCS2_SUCCEEDED(status) && plain.hasCaptionData)
        require(room == plain.blockSize && std::equal(plain.block, plain.block + room, block.begin()));

    uint32_t asked = 0;
    (void)kivCS2ClosedCaptions_convertSMPTE334CDP708PacketToCEA708DPacket(packet.data(), packetSize, false,
                                                                          nullptr, &asked);
    require(asked <= sizeof plain.block);
    return 0;
}
