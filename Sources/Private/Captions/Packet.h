// One ancillary packet of captions: its contents from its bytes, and its bytes from its contents.
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
    // Bit n of the constant is set if n has an odd count of ones.
    return (0x6996u >> ((byte ^ byte >> 4) & 0x0F) & 1u) != 0;
}

// Sets a packet to zeros.
void clear(KIVCS2CaptionPacket &packet);

// Parses the `m_size` bytes in `m_anc` of an otherwise cleared packet.
void takeApart(KIVCS2CaptionPacket &packet);
// Makes the triplet of a packet of one pair (61/02). Not used for files: there the pairs are those of CDPs.
void takePair(KIVCS2CaptionPacket &packet);

// Makes a packet's bytes from one frame's captions; see kivCS2CaptionPacket_build().
struct Contents
{
    const KIVCS2CaptionPairs *pairs;
    const KIVCS2CaptionDTVCC *dtvcc;
    std::span<const KIVCS2CaptionServiceEntry> services;
    uint32_t turn = 0; // from 50 frames a second on: even for field 1, odd for field 2
};
[[nodiscard]] KIVCS2Status makePacket(const KIVCS2CaptionCountingInfo &info, uint16_t sequence,
                                      const Contents &contents, KIVCS2CaptionPacket &packet);

// Service 1 without a language: the default service list of a packet.
extern const std::array<KIVCS2CaptionServiceEntry, 1> kDefaultServices;
[[nodiscard]] bool isService(KIVCS2CaptionService service);
} // namespace kiv::cc

#endif
