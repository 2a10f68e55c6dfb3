// Building caption distribution packets.
#include "Captions/CaptionPacket.h"

#include "Failure.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <algorithm>
#include <cstring>

namespace tool
{
namespace
{

constexpr uint32_t kHead = 9; // header, cc_data id, cc_count
constexpr uint32_t kTriplet = 3;
constexpr uint32_t kLibraryTriplets = 20;

// Triplets a frame by cdp_frame_rate (SMPTE ST 334-2, CEA-708: 9600 bit/s are 600 triplets a second).
constexpr std::array<uint8_t, 9> kTriplets = {0, 25, 25, 24, 20, 20, 12, 10, 10};

} // namespace

BuiltCDP buildCDP(Pair field1, Pair field2, uint16_t sequence, const Counting &counting, bool sdi)
{
    const uint8_t pairs[4] = {field1.first, field1.second, field2.first, field2.second};
    uint16_t words[2] = {};
    std::memcpy(words, pairs, sizeof words); // pairs stand in memory order

    std::array<uint8_t, KIVCS2_CDP_SDI_SIZE> made{};
    uint32_t size = made.size();
    check(kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat(words, sizeof words, made.data(),
                                                                             &size, sequence, sdi),
          "building a caption packet");

    const uint32_t triplets = kTriplets[counting.cdpCode];
    const uint32_t tail = size - kHead - kLibraryTriplets * kTriplet;
    const uint32_t kept = std::min(triplets, kLibraryTriplets);
    BuiltCDP cdp;
    auto at = std::copy_n(made.begin(), kHead + kept * kTriplet, cdp.bytes.begin());
    for (uint32_t more = kept; more < triplets; ++more)
        at = std::ranges::copy(std::array<uint8_t, kTriplet>{0xFA, 0x00, 0x00}, at).out;
    std::copy_n(made.begin() + (size - tail), tail, at);
    cdp.size = kHead + triplets * kTriplet + tail;
    cdp.bytes[2] = static_cast<uint8_t>(cdp.size);
    cdp.bytes[3] = static_cast<uint8_t>(counting.cdpCode << 4 | 0x0F);
    cdp.bytes[8] = static_cast<uint8_t>(0xE0u | triplets);
    check(kivCS2ClosedCaptions_setSMPTE334CDP708PacketSequenceNumber(false, cdp.bytes.data(), cdp.size,
                                                                     sequence),
          "stamping a caption packet");
    return cdp;
}

} // namespace tool
