// Caption distribution packets as plain bytes: templates, section walk, counters and checksum.
#include "Private/Captions/CDP.h"

#include "Private/Support/Check.h"

#include <algorithm>
#include <cstring>

namespace kiv::cdp
{
namespace
{
constexpr uint8_t kIdentifier0 = 0x96;
constexpr uint8_t kIdentifier1 = 0x69;
constexpr size_t kLengthOffset = 2;
} // namespace

// clang-format off
const std::array<uint8_t, KIVCS2_CDP_SIZE> kTemplate608in708 = {
    0x96, 0x69, 0x52, 0x4F, 0x67, 0x00, 0x00, // 82 bytes, 29.97; data and service information, active
    kCaptionDataId, 0xF4,                     // marker bits and 20 triplets
    0xFC, 0x80, 0x80,                         // valid, 608 of field 1
    0xFD, 0x80, 0x80,                         // valid, 608 of field 2
    0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00,
    0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00,
    0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00,
    kServiceInformationId, 0x91,              // complete, one service
    0xE1, 0x00, 0x00, 0x00, 0xC1, 0x3F, 0xFF,
    kFooterId, 0x00, 0x00, 0x00,
};

const std::array<uint8_t, KIVCS2_CDP_SDI_SIZE> kTemplateSDI608in708 = {
    0x96, 0x69, 0x59, 0x4F, 0x67, 0x00, 0x00, // 89 bytes, otherwise as in the first template
    kCaptionDataId, 0xF4,
    0xFC, 0x80, 0x80,
    0xFD, 0x80, 0x80,
    0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00,
    0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00,
    0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00, 0xFA, 0x00, 0x00,
    kServiceInformationId, 0xF2,              // two services
    0xE0, 0x20, 0x20, 0x20, 0x7E, 0x3F, 0xFF, // line 21, no language
    0xE1, 0x65, 0x6E, 0x67, 0xC1, 0x3F, 0xFF, // "eng"
    kFooterId, 0x00, 0x00, 0x00,
};

const std::array<uint8_t, 17> kTemplate708DataTo708Header = {
    0x00, 0x00, 0x00, 0x5A, 'c', 'c', 'd', 'p',
    0x96, 0x69, 0x52, 0x4F, 0x67, 0x00, 0x00,
    kCaptionDataId, 0xF4,
};

const std::array<uint8_t, 13> kTemplate708DataTo708Footer = {
    kServiceInformationId, 0x91,
    0xE1, 0x00, 0x00, 0x00, 0xC1, 0x3F, 0xFF,
    kFooterId, 0x00, 0x00, 0x00,
};
// clang-format on

KIVCS2Status skipAtom(std::span<const uint8_t> bytes, bool withAtom, std::span<const uint8_t> &packet)
{
    const size_t atom = withAtom ? KIVCS2_CAPTION_ATOM_SIZE : 0;
    if (bytes.size() < atom)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    packet = bytes.subspan(atom);
    return KIVCS2STATUS_OK;
}

KIVCS2Status Sections::begin(std::span<const uint8_t> packet)
{
    if (packet.size() <= kLengthOffset)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    if (packet[0] != kIdentifier0 || packet[1] != kIdentifier1)
        return KIVCS2STATUS_DATA_ERR;

    // A length of 7 would pass its own check, but leaves -1 bytes for the sections: counted in 8 bits the
    // walk would cover 255 bytes, beyond the packet.
    const size_t length = packet[kLengthOffset];
    if (length < kHeaderSize + kChecksumSize || length > packet.size())
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    m_rest = packet.subspan(kHeaderSize, length - kHeaderSize - kChecksumSize);
    m_status = KIVCS2STATUS_OK;
    return KIVCS2STATUS_OK;
}

bool Sections::skip(size_t size)
{
    if (m_rest.size() < size)
    {
        m_rest = {};
        m_status = KIVCS2STATUS_BUFFER_SIZE_ERR;
        return false;
    }
    m_rest = m_rest.subspan(size);
    return true;
}

bool Sections::next(CaptionData &data)
{
    while (!m_rest.empty())
    {
        const std::span<const uint8_t> section = m_rest;
        switch (section[0])
        {
        case kCaptionDataId:
        {
            if (!skip(kSectionHeadSize))
                return false;
            data.count = section[1] & kTripletCountMask;
            const size_t whole = std::min<size_t>(data.count, m_rest.size() / kTripletSize);
            data.triplets = m_rest.first(whole * kTripletSize);
            // A cut section is still returned: its triplets count before the failure does.
            (void)skip(data.count * kTripletSize);
            return true;
        }
        case kServiceInformationId:
            if (!skip(kSectionHeadSize) || !skip((section[1] & kServiceCountMask) * kDescriptorSize))
                return false;
            break;
        case kTimeCodeId:
            if (!skip(kTimeCodeSize))
                return false;
            break;
        case kFooterId:
            if (!skip(kFooterSectionSize))
                return false;
            break;
        case kPaddingId:
            m_rest = m_rest.subspan(1);
            break;
        default:
            m_rest = {};
            m_status = KIVCS2STATUS_DATA_ERR;
            return false;
        }
    }
    return false;
}

uint8_t sum(std::span<const uint8_t> bytes)
{
    // Adds eight bytes at a time, in four lanes of 16 bits: the even and the odd bytes. 128 rounds of two
    // bytes below 256 stay below 65,536.
    constexpr uint64_t kEvenBytes = 0x00FF00FF00FF00FFu;
    constexpr size_t kRoundsAtOnce = 128;

    uint32_t total = 0;
    while (bytes.size() >= sizeof(uint64_t))
    {
        const size_t rounds = std::min(bytes.size() / sizeof(uint64_t), kRoundsAtOnce);
        uint64_t lanes = 0;
        for (size_t round = 0; round < rounds; ++round)
        {
            uint64_t word;
            memcpy(&word, bytes.data() + round * sizeof word, sizeof word);
            lanes += (word & kEvenBytes) + ((word >> 8) & kEvenBytes);
        }
        total += static_cast<uint32_t>((lanes & 0xFFFF) + ((lanes >> 16) & 0xFFFF) +
                                       ((lanes >> 32) & 0xFFFF) + (lanes >> 48));
        bytes = bytes.subspan(rounds * sizeof(uint64_t));
    }
    for (const uint8_t byte : bytes)
        total += byte;
    return static_cast<uint8_t>(total);
}

void stamp(std::span<uint8_t> packet, uint16_t sequenceNumber)
{
    const auto high = static_cast<uint8_t>(sequenceNumber >> 8);
    const auto low = static_cast<uint8_t>(sequenceNumber);
    packet[kSequenceOffset] = high;
    packet[kSequenceOffset + 1] = low;
    packet[packet.size() - 3] = high;
    packet[packet.size() - 2] = low;
    packet.back() = static_cast<uint8_t>(-sum(packet.first(packet.size() - kChecksumSize)));
}
} // namespace kiv::cdp
