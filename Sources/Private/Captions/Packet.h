// One ancillary packet of captions: what is in its bytes, and the bytes made of what is in it.
#ifndef KIV_PRIVATE_CAPTIONS_PACKET_H
#define KIV_PRIVATE_CAPTIONS_PACKET_H

#include "KIVCS2CaptionPacket.h"

#include <array>
#include <cstddef>
#include <span>

namespace kiv::cc
{
[[nodiscard]] constexpr uint64_t faultBit(KIVCS2CaptionFault fault)
{
    return uint64_t{1} << fault;
}

// cc_type of a triplet (CEA-708).
enum : uint8_t
{
    kField1 = 0,
    kField2 = 1,
    kDTVCCData = 2,
    kDTVCCStart = 3
};
constexpr uint8_t kTypeMask = 0x03;
constexpr uint8_t kValid = 0x04;
constexpr uint8_t kMarker = 0xF8;

[[nodiscard]] constexpr bool isValidOf(const uint8_t *triplet, uint8_t type)
{
    return (triplet[0] & (kValid | kTypeMask)) == (kValid | type);
}
[[nodiscard]] constexpr bool isEmptyPair(uint8_t first, uint8_t second)
{
    return ((first | second) & 0x7F) == 0;
}
[[nodiscard]] constexpr bool hasOddParity(uint8_t byte)
{
    // Bit n of the constant: n has an odd count of ones.
    return (0x6996u >> ((byte ^ byte >> 4) & 0x0F) & 1u) != 0;
}

// Zeros a packet.
void clear(KIVCS2CaptionPacket &packet);

// Takes apart the `m_size` bytes that stand in `m_anc` of an otherwise cleared packet.
void takeApart(KIVCS2CaptionPacket &packet);
// The triplet of a packet of one pair (61/02), which files do not have: there the pairs are the CDPs'.
void takePair(KIVCS2CaptionPacket &packet);

// Makes a packet's bytes of one frame's captions; see kivCS2CaptionPacket_build().
struct Contents
{
    const KIVCS2CaptionPairs *pairs;
    const KIVCS2CaptionDTVCC *dtvcc;
    std::span<const KIVCS2CaptionServiceEntry> services;
    uint32_t turn = 0; // from 50 frames a second on: even for field 1, odd for field 2
};
[[nodiscard]] KIVCS2Status makePacket(const KIVCS2CaptionCountingInfo &info, uint16_t sequence,
                                      const Contents &contents, KIVCS2CaptionPacket &packet);

// Service 1 without a language: what a packet lists if nothing else is asked for.
extern const std::array<KIVCS2CaptionServiceEntry, 1> kDefaultServices;
[[nodiscard]] bool isService(KIVCS2CaptionService service);
} // namespace kiv::cc

#endif
