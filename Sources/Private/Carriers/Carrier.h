// What a search in a carrier begins with and fills, and what is to be put into one.
#ifndef KIV_PRIVATE_CARRIERS_CARRIER_H
#define KIV_PRIVATE_CARRIERS_CARRIER_H

#include "KIVCS2CaptionPacket.h"

#include <cstddef>
#include <span>

namespace kiv::carriers
{
// Of a packet its bytes and the carrier's faults are set; what is in the bytes is not looked at.
struct Search
{
    std::span<const uint8_t> bytes;
    size_t offset; // as that of kivCS2CaptionPacket_find()
    bool any;      // other packets than captions too
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
};

struct Load
{
    std::span<const KIVCS2CaptionPacket> packets;
    const KIVCS2CaptionPlace *places; // one a packet, or null
    const KIVCS2CaptionRTP *rtp;
};

// A result that fits: `size` becomes its bytes in any case.
[[nodiscard]] inline KIVCS2Status claim(std::span<uint8_t> room, size_t needed, size_t &size)
{
    size = needed;
    return needed > room.size() ? KIVCS2STATUS_BUFFER_SIZE_ERR : KIVCS2STATUS_OK;
}
} // namespace kiv::carriers

#endif
