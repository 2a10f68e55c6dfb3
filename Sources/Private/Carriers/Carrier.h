// The input and result of a search in a carrier, and the packets to be put into a carrier.
#ifndef KIV_PRIVATE_CARRIERS_CARRIER_H
#define KIV_PRIVATE_CARRIERS_CARRIER_H

#include "KIVCS2CaptionPacket.h"

#include <cstddef>
#include <span>

namespace kiv::carriers
{
// Of a packet only its bytes and the carrier's faults are set; the contents of the bytes are not checked.
struct Search
{
    std::span<const uint8_t> bytes;
    size_t offset; // as in kivCS2CaptionPacket_find()
    bool any;      // packets other than captions too
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
};

struct Load
{
    std::span<const KIVCS2CaptionPacket> packets;
    const KIVCS2CaptionPlace *places; // one for each packet, or null
    const KIVCS2CaptionRTP *rtp;
};

// Checks that a result fits; `size` becomes its bytes in any case.
[[nodiscard]] inline KIVCS2Status claim(std::span<uint8_t> room, size_t needed, size_t &size)
{
    size = needed;
    return needed > room.size() ? KIVCS2STATUS_BUFFER_SIZE_ERR : KIVCS2STATUS_OK;
}
} // namespace kiv::carriers

#endif
