// Caption distribution packets (SMPTE ST 334-2) as plain bytes: the packet's place, the walk over its
// sections, the counters and the checksum, and the templates that packets are built from.
#ifndef KIV_PRIVATE_CAPTIONS_CDP_H
#define KIV_PRIVATE_CAPTIONS_CDP_H

#include "KIVCS2Base.h"
#include "KIVCS2ClosedCaptions.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kiv::cdp
{
// The ancillary packet that carries a CDP (SMPTE ST 334-1). Both bytes have an odd count of ones, so as
// 10-bit words they have bit 8 set and bit 9 clear (SMPTE ST 291-1).
constexpr uint8_t kDID = 0x61;
constexpr uint8_t kSDID = 0x01;
constexpr uint16_t kOddParity = 0x100;

constexpr size_t kHeaderSize = 7;        // identifier, length, frame rate, flags, sequence counter
constexpr size_t kChecksumSize = 1;      // the last byte
constexpr size_t kSectionHeadSize = 2;   // section id, and marker bits with the count of entries
constexpr size_t kTripletSize = 3;       // marker bits, cc_valid and cc_type; two data bytes
constexpr size_t kDescriptorSize = 7;    // one caption service
constexpr size_t kTimeCodeSize = 5;      // section id and 4 bytes of time code
constexpr size_t kFooterSectionSize = 3; // the footer without the checksum

constexpr size_t kSequenceOffset = 5;
constexpr size_t kTripletsOffset = kHeaderSize + kSectionHeadSize;
constexpr size_t kTriplets = 20; // triplets of one frame at 29.97 frames per second

constexpr uint8_t kTimeCodeId = 0x71;
constexpr uint8_t kCaptionDataId = 0x72;
constexpr uint8_t kServiceInformationId = 0x73;
constexpr uint8_t kFooterId = 0x74;
constexpr uint8_t kPaddingId = 0xFF;

constexpr uint8_t kTripletCountMask = 0x1F;
constexpr uint8_t kServiceCountMask = 0x0F;
// The first byte of a triplet that holds a CEA-608 pair: cc_valid is set and cc_type, 0 or 1, is the
// field counted from 0.
constexpr uint8_t kPairMask = 0x06;
constexpr uint8_t kPairValue = 0x04;
constexpr uint8_t kFieldMask = 0x01;

// Packets that hold 608 pairs: triplet 0 is field 1, triplet 1 field 2, the rest is empty 708 data.
extern const std::array<uint8_t, KIVCS2_CDP_SIZE> kTemplate608in708;
extern const std::array<uint8_t, KIVCS2_CDP_SDI_SIZE> kTemplateSDI608in708;

// The bytes before and after 708 triplets: an atom header with the packet's head, and the packet's foot.
extern const std::array<uint8_t, 17> kTemplate708DataTo708Header;
extern const std::array<uint8_t, 13> kTemplate708DataTo708Footer;

// Stores the packet, without its atom header if it has one. Does not check the bytes.
[[nodiscard]] KIVCS2Status skipAtom(std::span<const uint8_t> bytes, bool withAtom,
                                    std::span<const uint8_t> &packet);

// One cc_data section.
struct CaptionData
{
    uint8_t count;                     // cc_count of the packet
    std::span<const uint8_t> triplets; // whole triplets only; fewer than `count` in a cut packet
};

// The walk over a packet's sections:
//
//     cdp::Sections sections;
//     KIV_TRY(sections.begin(packet));
//     for (cdp::CaptionData data; sections.next(data);)
//         ...
//     return sections.status();
class Sections
{
public:
    // Checks the header. The walk covers everything between header and checksum.
    [[nodiscard]] KIVCS2Status begin(std::span<const uint8_t> packet);
    // Moves to the next cc_data section and checks the sections between. Returns false at the end of the
    // packet and after a section that is unknown or cut short; status() says which.
    [[nodiscard]] bool next(CaptionData &data);
    [[nodiscard]] KIVCS2Status status() const
    {
        return m_status;
    }

private:
    [[nodiscard]] bool skip(size_t size);

    std::span<const uint8_t> m_rest;
    KIVCS2Status m_status = KIVCS2STATUS_OK;
};

// Returns the sum of the bytes modulo 256.
[[nodiscard]] uint8_t sum(std::span<const uint8_t> bytes);

// Writes the sequence number into header and footer, then the checksum. The packet has at least 10 bytes.
void stamp(std::span<uint8_t> packet, uint16_t sequenceNumber);
} // namespace kiv::cdp

#endif
