// The input and result of a search in a carrier, and the packets to be put into a carrier.
#ifndef KIV_PRIVATE_CARRIERS_CARRIER_H
#define KIV_PRIVATE_CARRIERS_CARRIER_H

#include "KIVCS2CaptionPacket.h"

#include <cstddef>
#include <span>

namespace kiv::carriers
{
// A search sets only the packet's bytes and the faults of the carrier; it does not check the bytes' contents.
struct Search
{
    std::span<const uint8_t> bytes;
    size_t offset; // as in kivCS2CaptionPacket_find()
    bool any;      // also find packets other than captions
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
};

struct Load
{
    std::span<const KIVCS2CaptionPacket> packets;
    const KIVCS2CaptionPlace *places; // one for each packet, or null
    const KIVCS2CaptionRTP *rtp;
};

// Checks that a result of `needed` bytes fits; always stores `needed` in `size`.
[[nodiscard]] inline KIVCS2Status claim(std::span<uint8_t> room, size_t needed, size_t &size)
{
    size = needed;
    return needed > room.size() ? KIVCS2STATUS_BUFFER_SIZE_ERR : KIVCS2STATUS_OK;
}
} // namespace kiv::carriers

#endif
