// One ancillary packet among words (SMPTE ST 291-1): whether it is a packet, how long it is, and its words
// made from its bytes.
#ifndef KIV_PRIVATE_CARRIERS_ANCILLARY_H
#define KIV_PRIVATE_CARRIERS_ANCILLARY_H

#include "KIVCS2CaptionPacket.h"

#include "Private/Carriers/Words.h"

#include <array>

namespace kiv::carriers
{
constexpr size_t kHeadWords = 3;                    // DID, SDID, data count
constexpr size_t kMostWords = kHeadWords + 255 + 1; // a head, the most user data, and a checksum

[[nodiscard]] constexpr uint64_t faultBit(KIVCS2CaptionFault fault)
{
    return uint64_t{1} << fault;
}

// The signs by which a place in the words is accepted as a packet.
struct Trust
{
    bool placed;          // a flag or a record before the DID marks it
    bool any;             // packets other than captions are searched for too
    bool checksumMayMiss; // the words end with the user data in this carrier
};

enum class Verdict : uint8_t
{
    No,        // not a packet of the wanted kind
    Undecided, // the words end before this can be decided
    Cut,       // the words end within the packet
    Damaged,
    Whole
};

struct Judgement
{
    Verdict verdict;
    size_t taken;   // words from the DID on; 0 without a packet
    bool isCaption; // DID and SDID are those of captions, or were until one bit changed
};

// Judges the words from a DID at `at` on; only those before `limit` may belong to the packet.
[[nodiscard]] Judgement judge(const Words &words, size_t at, size_t limit, Trust trust);

// Fills the bytes of an otherwise cleared packet with `taken` words. A missing checksum is added if the
// carrier stores packets without it. Only faults of the words are set; the contents of the bytes are not
// checked.
void take(const Words &words, size_t at, size_t taken, Trust trust, KIVCS2CaptionPacket &packet);

// Makes the words of a packet with new parity and checksum; 0 if its count and its size disagree.
using PacketWords = std::array<uint16_t, kMostWords>;
[[nodiscard]] size_t makeWords(const KIVCS2CaptionPacket &packet, bool tenBits, PacketWords &words);
} // namespace kiv::carriers

#endif
