// One ancillary packet of captions: its contents from its bytes, and its bytes from its contents.
#include "Private/Captions/Packet.h"

#include "Private/Captions/CDP.h"

#include <algorithm>
#include <cstring>

namespace kiv::cc
{
namespace
{
constexpr size_t kANCHead = 3; // DID, SDID, data count (SMPTE ST 291-1)
constexpr uint8_t kCaptionDID = 0x61;
constexpr uint8_t kCaptionSDID = 0x01;
constexpr size_t kCDPMost = 255;
constexpr uint8_t kPairSDID = 0x02; // one pair: a byte of field and line, and the pair (SMPTE ST 334-1)
constexpr size_t kPairSize = 3;
constexpr uint8_t kFirstField = 0x80; // flag of field 1 in the byte of field and line

constexpr size_t kFooterSize = 3;  // id and sequence, without the checksum
constexpr uint8_t kDigital = 0x80; // in a service entry: its captions are CEA-708
constexpr uint8_t kServiceMask = 0x3F;
constexpr uint8_t kEasyReader = 0x80;
constexpr uint8_t kWide = 0x40;

void addFault(KIVCS2CaptionPacket &packet, KIVCS2CaptionFault fault)
{
    packet.m_faults |= faultBit(fault);
}

bool isSectionId(uint8_t byte)
{
    return byte >= cdp::kTimeCodeId && byte <= cdp::kFooterId;
}

// The walk over a CDP. The user data is the bound: a wrong length is reported and not used.
class CDPWalk
{
public:
    // `sum` is that of all bytes.
    CDPWalk(KIVCS2CaptionPacket &packet, std::span<const uint8_t> bytes, uint8_t sum)
        : m_packet{packet}, m_cdp{bytes}, m_sum{sum}
    {
    }

    void run()
    {
        while (m_at < m_cdp.size())
        {
            const uint8_t id = m_cdp[m_at];
            bool whole = true;
            if (id == cdp::kCaptionDataId)
                whole = takeTriplets();
            else if (id == cdp::kServiceInformationId)
                whole = takeServices();
            else if (id == cdp::kTimeCodeId)
                whole = takeTimeCode();
            else if (id == cdp::kFooterId)
                return takeFooter();
            else if (id == cdp::kPaddingId)
                ++m_at;
            else
                whole = passOver();
            if (!whole)
                break;
        }
        // An unknown section has its own fault.
        if ((m_packet.m_faults & faultBit(KIVCS2CaptionFault_SectionUnknown)) == 0)
            addFault(m_packet, KIVCS2CaptionFault_SectionCut);
    }

private:
    bool takeTriplets()
    {
        if (m_cdp.size() - m_at < cdp::kSectionHeadSize)
            return false;
        const size_t count = m_cdp[m_at + 1] & cdp::kTripletCountMask;
        m_at += cdp::kSectionHeadSize;
        // If bytes are missing or too many, they are triplets only as long as their marker bits are set.
        const bool doubtful = (m_packet.m_faults & faultBit(KIVCS2CaptionFault_DataCount)) != 0;
        const size_t there = std::min(count, (m_cdp.size() - m_at) / cdp::kTripletSize);
        size_t taken = doubtful ? 0 : there;
        while (taken < there && (m_cdp[m_at + taken * cdp::kTripletSize] & kMarker) == kMarker)
            ++taken;
        const size_t before = m_packet.m_tripletCount;
        const size_t kept = std::min(taken, KIVCS2_CAPTION_TRIPLETS_MAX - before);
        if (kept < taken)
            addFault(m_packet, KIVCS2CaptionFault_SectionUnknown);
        std::copy_n(m_cdp.data() + m_at, kept * cdp::kTripletSize,
                    &m_packet.m_triplets[0][0] + before * cdp::kTripletSize);
        m_packet.m_tripletCount = static_cast<uint8_t>(before + kept);
        m_at += taken * cdp::kTripletSize;
        return taken == count;
    }

    bool takeServices()
    {
        if (m_cdp.size() - m_at < cdp::kSectionHeadSize)
            return false;
        const size_t count = m_cdp[m_at + 1] & cdp::kServiceCountMask;
        m_at += cdp::kSectionHeadSize;
        m_packet.m_flags |= KIVCS2CaptionPacketFlag_HasServices;
        size_t taken = 0;
        for (; taken < count && m_cdp.size() - m_at >= cdp::kDescriptorSize; ++taken)
        {
            if (m_packet.m_serviceCount == KIVCS2_CAPTION_SERVICES_MAX)
                addFault(m_packet, KIVCS2CaptionFault_SectionUnknown);
            else
                takeService(m_packet.m_services[m_packet.m_serviceCount++], &m_cdp[m_at]);
            m_at += cdp::kDescriptorSize;
        }
        return taken == count;
    }

    static void takeService(KIVCS2CaptionServiceEntry &entry, const uint8_t *bytes)
    {
        const bool digital = (bytes[4] & kDigital) != 0;
        entry.m_service = digital               ? bytes[4] & kServiceMask
                          : (bytes[4] & 1) == 0 ? uint32_t{KIVCS2CaptionService_CC1}
                                                : uint32_t{KIVCS2CaptionService_CC3};
        const bool letters =
            std::all_of(bytes + 1, bytes + 4, [](uint8_t byte) { return byte > 0x20 && byte < 0x7F; });
        if (letters)
            std::memcpy(entry.m_language, bytes + 1, 3);
        entry.m_easyReader = (bytes[5] & kEasyReader) != 0;
        entry.m_wide = (bytes[5] & kWide) != 0;
    }

    bool takeTimeCode()
    {
        if (m_cdp.size() - m_at < cdp::kTimeCodeSize)
            return false;
        std::memcpy(m_packet.m_timeCode, &m_cdp[m_at + 1], sizeof m_packet.m_timeCode);
        m_packet.m_flags |= KIVCS2CaptionPacketFlag_HasTimeCode;
        m_at += cdp::kTimeCodeSize;
        return true;
    }

    // A section of a later standard has its length after its id. The length is used if a known section
    // follows.
    bool passOver()
    {
        addFault(m_packet, KIVCS2CaptionFault_SectionUnknown);
        if (m_cdp.size() - m_at < cdp::kSectionHeadSize)
            return false;
        m_at += cdp::kSectionHeadSize + m_cdp[m_at + 1];
        return m_at < m_cdp.size() && isSectionId(m_cdp[m_at]);
    }

    void takeFooter()
    {
        const size_t left = m_cdp.size() - m_at;
        if (left < kFooterSize)
            return addFault(m_packet, KIVCS2CaptionFault_SectionCut);
        if (m_cdp[m_at + 1] != m_cdp[5] || m_cdp[m_at + 2] != m_cdp[6])
            addFault(m_packet, KIVCS2CaptionFault_Counters);
        const size_t length = m_cdp[2];
        if (left == kFooterSize)
        {
            addFault(m_packet, KIVCS2CaptionFault_CDPChecksumMissing);
            if (length != m_cdp.size() && length != m_cdp.size() + 1)
                addFault(m_packet, KIVCS2CaptionFault_CDPLength);
            return;
        }
        const size_t end = m_at + kFooterSize + cdp::kChecksumSize;
        if ((end == m_cdp.size() ? m_sum : cdp::sum(m_cdp.first(end))) != 0)
            addFault(m_packet, KIVCS2CaptionFault_CDPChecksum);
        if (length != end || end != m_cdp.size())
            addFault(m_packet, KIVCS2CaptionFault_CDPLength);
    }

    KIVCS2CaptionPacket &m_packet;
    std::span<const uint8_t> m_cdp;
    uint8_t m_sum;
    size_t m_at = cdp::kHeaderSize;
};

void checkParity(KIVCS2CaptionPacket &packet)
{
    for (size_t index = 0; index < packet.m_tripletCount; ++index)
    {
        const uint8_t *triplet = packet.m_triplets[index];
        if ((triplet[0] & cdp::kPairMask) == cdp::kPairValue && !isEmptyPair(triplet[1], triplet[2]) &&
            !(hasOddParity(triplet[1]) && hasOddParity(triplet[2])))
            return addFault(packet, KIVCS2CaptionFault_Parity);
    }
}

void takeCDP(KIVCS2CaptionPacket &packet, std::span<const uint8_t> bytes, uint8_t sum)
{
    if (bytes.size() < cdp::kHeaderSize || bytes[0] != 0x96 || bytes[1] != 0x69)
        return addFault(packet, KIVCS2CaptionFault_NotACDP);
    packet.m_flags |= KIVCS2CaptionPacketFlag_CDP;
    packet.m_rateCode = bytes[3] >> 4;
    packet.m_sequence = static_cast<uint16_t>(bytes[5] << 8 | bytes[6]);
    CDPWalk{packet, bytes, sum}.run();
    checkParity(packet);
}

uint8_t *put(uint8_t *out, std::initializer_list<uint8_t> bytes)
{
    return std::copy(bytes.begin(), bytes.end(), out);
}

size_t pairsOf(const Contents &contents, uint8_t field)
{
    return contents.pairs == nullptr ? 0 : contents.pairs->m_count[field];
}

// Returns true if the field gets an empty pair: up to 30 frames a second a frame has both fields of line 21,
// from 50 on one of them in turn (CEA-708-E, 4.3.6).
bool hasEmptyPair(const KIVCS2CaptionCountingInfo &info, const Contents &contents, uint8_t field)
{
    constexpr uint32_t kBothFieldsMost = 30;
    if (pairsOf(contents, field) > 0)
        return false;
    return info.m_numbers <= kBothFieldsMost ||
           (pairsOf(contents, 1 - field) == 0 && contents.turn % 2 == field);
}

uint8_t *putField(uint8_t *out, const KIVCS2CaptionCountingInfo &info, const Contents &contents,
                  uint8_t field)
{
    const auto head = static_cast<uint8_t>(kMarker | kValid | field);
    if (hasEmptyPair(info, contents, field))
        return put(out, {head, 0x80, 0x80});
    for (size_t index = 0; index < pairsOf(contents, field); ++index)
        out = put(out,
                  {head, contents.pairs->m_pairs[field][index][0], contents.pairs->m_pairs[field][index][1]});
    return out;
}

uint8_t *putDTVCC(uint8_t *out, const KIVCS2CaptionDTVCC *dtvcc)
{
    for (size_t index = 0; dtvcc != nullptr && index < dtvcc->m_count / 2; ++index)
    {
        const uint8_t type = (dtvcc->m_starts >> index & 1u) != 0 ? kDTVCCStart : kDTVCCData;
        out = put(out, {static_cast<uint8_t>(kMarker | kValid | type), dtvcc->m_bytes[2 * index],
                        dtvcc->m_bytes[2 * index + 1]});
    }
    return out;
}

uint8_t *putServices(uint8_t *out, std::span<const KIVCS2CaptionServiceEntry> services)
{
    constexpr uint8_t kComplete = 0x90; // marker, and the list is complete in this packet
    out = put(out, {cdp::kServiceInformationId, static_cast<uint8_t>(kComplete | services.size())});
    for (const KIVCS2CaptionServiceEntry &entry : services)
    {
        const bool digital = entry.m_service <= KIVCS2CaptionService_S63;
        const bool field2 = entry.m_service == KIVCS2CaptionService_CC3;
        // A number up to 31 goes into 5 bits after csn_size, larger ones into 6 bits.
        const auto number = static_cast<uint8_t>(digital ? entry.m_service : 0);
        out = put(out, {static_cast<uint8_t>(number > 31 ? 0x80 | number : 0xE0 | number)});
        out = std::copy_n(reinterpret_cast<const uint8_t *>(entry.m_language), 3, out);
        out = put(out, {static_cast<uint8_t>(digital ? 0xC0 | number : 0x7E | (field2 ? 1 : 0)),
                        static_cast<uint8_t>(0x3F | (entry.m_easyReader != 0 ? kEasyReader : 0) |
                                             (entry.m_wide != 0 ? kWide : 0)),
                        0xFF});
    }
    return out;
}
} // namespace

const std::array<KIVCS2CaptionServiceEntry, 1> kDefaultServices = {{{KIVCS2CaptionService_S1, {}, 0, 0, {}}}};

bool isService(KIVCS2CaptionService service)
{
    return (service >= KIVCS2CaptionService_S1 && service <= KIVCS2CaptionService_S63) ||
           service == KIVCS2CaptionService_CC1 || service == KIVCS2CaptionService_CC3;
}

void clear(KIVCS2CaptionPacket &packet)
{
    // For a constant size the compiler uses "rep stos", whose start alone takes longer than memset().
    const volatile size_t size = sizeof packet;
    std::memset(&packet, 0, size);
}

void takeApart(KIVCS2CaptionPacket &packet)
{
    const std::span<const uint8_t> anc{packet.m_anc, packet.m_size};
    if (anc.size() >= 2)
    {
        packet.m_did = anc[0];
        packet.m_sdid = anc[1];
    }
    if (anc.size() < kANCHead)
        return addFault(packet, KIVCS2CaptionFault_DataCount);

    const size_t count = anc[2];
    const size_t there = anc.size() - kANCHead;
    const std::span<const uint8_t> data = anc.subspan(kANCHead, std::min(count, there));
    const uint8_t sum = cdp::sum(data);
    if (there == count)
        addFault(packet, KIVCS2CaptionFault_PacketChecksumMissing);
    else if (there != count + 1)
        addFault(packet, KIVCS2CaptionFault_DataCount);
    else if (static_cast<uint8_t>(anc[0] + anc[1] + anc[2] + sum) != anc.back())
        addFault(packet, KIVCS2CaptionFault_PacketChecksum);
    if (packet.m_did == kCaptionDID && packet.m_sdid == kCaptionSDID)
        takeCDP(packet, data, sum);
}

void takePair(KIVCS2CaptionPacket &packet)
{
    if (packet.m_did != kCaptionDID || packet.m_sdid != kPairSDID || packet.m_size < kANCHead)
        return;
    if (packet.m_anc[2] != kPairSize)
        addFault(packet, KIVCS2CaptionFault_DataCount);
    if (packet.m_size < kANCHead + kPairSize)
        return;
    const uint8_t *const data = packet.m_anc + kANCHead;
    const uint8_t field = (data[0] & kFirstField) != 0 ? kField1 : kField2;
    put(packet.m_triplets[0], {static_cast<uint8_t>(kMarker | kValid | field), data[1], data[2]});
    packet.m_tripletCount = 1;
    checkParity(packet);
}

KIVCS2Status makePacket(const KIVCS2CaptionCountingInfo &info, uint16_t sequence, const Contents &contents,
                        KIVCS2CaptionPacket &packet)
{
    size_t used = contents.dtvcc == nullptr ? 0 : contents.dtvcc->m_count / 2;
    for (const uint8_t field : {kField1, kField2})
        used += pairsOf(contents, field) + (hasEmptyPair(info, contents, field) ? 1 : 0);
    const size_t size = cdp::kTripletsOffset + info.m_triplets * cdp::kTripletSize +
                        (contents.services.empty() ? 0 : cdp::kSectionHeadSize) +
                        contents.services.size() * cdp::kDescriptorSize + kFooterSize + cdp::kChecksumSize;
    if (used > info.m_triplets || size > kCDPMost)
        return KIVCS2STATUS_OVERFLOW_ERR;

    constexpr uint8_t kData = 0x43;     // caption data present, caption service active, marker
    constexpr uint8_t kServices = 0x24; // service information present and complete
    packet = {};
    uint8_t *const bytes = packet.m_anc + kANCHead;
    uint8_t *out = put(packet.m_anc, {kCaptionDID, kCaptionSDID, static_cast<uint8_t>(size)});
    out = put(out, {0x96, 0x69, static_cast<uint8_t>(size), static_cast<uint8_t>(info.m_rateCode << 4 | 0x0F),
                    static_cast<uint8_t>(contents.services.empty() ? kData : kData | kServices), 0, 0,
                    cdp::kCaptionDataId, static_cast<uint8_t>(0xE0 | info.m_triplets)});
    out = putField(out, info, contents, kField1);
    out = putField(out, info, contents, kField2);
    out = putDTVCC(out, contents.dtvcc);
    for (size_t empty = used; empty < info.m_triplets; ++empty)
        out = put(out, {kMarker | kDTVCCData, 0, 0});
    if (!contents.services.empty())
        out = putServices(out, contents.services);
    put(out, {cdp::kFooterId, 0, 0, 0});
    cdp::stamp({bytes, size}, sequence);
    packet.m_size = static_cast<uint16_t>(kANCHead + size + 1);
    packet.m_anc[packet.m_size - 1] = cdp::sum({packet.m_anc, packet.m_size - size_t{1}});
    takeApart(packet);
    return KIVCS2STATUS_OK;
}
} // namespace kiv::cc
