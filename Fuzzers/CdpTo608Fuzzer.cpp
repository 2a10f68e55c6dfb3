// The pairs of a CDP, compared with a plain reading. Input: with atom (bit 0); then the packet.
#include "../Tests/Support/PlainCDP.h"
#include "Require.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const std::vector<uint8_t> packet(data + 1, data + size);
    const bool withAtom = (data[0] & 1) != 0;
    uint16_t pairs[2] = {};
    const uint32_t room = sizeof pairs;
    const KIVCS2Status status = kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(
        packet.data(), static_cast<uint32_t>(packet.size()), withAtom, pairs, &room);
    if (withAtom && packet.size() < KIVCS2_CAPTION_ATOM_SIZE)
    {
        require(status == KIVCS2STATUS_BUFFER_SIZE_ERR);
        return 0;
    }
    const size_t atom = withAtom ? KIVCS2_CAPTION_ATOM_SIZE : 0;
    const kiv::test::PlainPairs plain = kiv::test::readPlainly(packet.data() + atom, packet.size() - atom);
    require(status == plain.status);
    require(memcmp(pairs, plain.fields, sizeof pairs) == 0);
    return 0;
}
