// One ancillary packet among words (SMPTE ST 291-1): whether it is one, how far it goes, and its words from
// its bytes.
#ifndef KIV_PRIVATE_CARRIERS_ANCILLARY_H
#define KIV_PRIVATE_CARRIERS_ANCILLARY_H

#include "KIVCS2CaptionPacket.h"

#include "Private/Carriers/Words.h"

#include <array>

namespace kiv::carriers
{
constexpr size_t kHeadWords = 3;                    // DID, SDID, data count
constexpr size_t kMostWords = kHeadWords + 255 + 1; // with user data and checksum

[[nodiscard]] constexpr uint64_t faultBit(KIVCS2CaptionFault fault)
{
    return uint64_t{1} << fault;
}

// What makes a place in the words that of a packet.
struct Trust
{
    bool placed;          // something in front of the DID shows it: a flag, a record
    bool any;             // other packets than captions are looked for too
    bool checksumMayMiss; // the words end with the user data in this carrier
};

enum class Verdict : uint8_t
{
    No,        // no packet that is looked for
    Undecided, // the words end before it shows
    Cut,       // the words end within the packet
    Damaged,
    Whole
};

struct Judgement
{
    Verdict verdict;
    size_t taken;   // words from the DID on; 0 without a packet
    bool isCaption; // DID and SDID are those of captions, or were before one bit changed
};

// Looks at the words from a DID at `at` on, of which those before `limit` may be the packet's.
[[nodiscard]] Judgement judge(const Words &words, size_t at, size_t limit, Trust trust);

// Fills the bytes of an otherwise cleared packet with `taken` words. A missing checksum is added if that is
// how the carrier stores packets. Faults of the words alone are set; what is in the bytes is not looked at.
void take(const Words &words, size_t at, size_t taken, Trust trust, KIVCS2CaptionPacket &packet);

// The words of a packet, parity and checksum made anew; 0 if its count and its size disagree.
using PacketWords = std::array<uint16_t, kMostWords>;
[[nodiscard]] size_t makeWords(const KIVCS2CaptionPacket &packet, bool tenBits, PacketWords &words);
} // namespace kiv::carriers

#endif
