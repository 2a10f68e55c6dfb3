// Makes packets from triplets.
#include "Private/Captions/PacketMaker.h"

#include "Private/Captions/CDP.h"
#include "Private/Captions/Counting.h"
#include "Private/Captions/Packet.h"

#include <algorithm>

namespace kiv::cc
{
namespace
{
constexpr size_t kANCHead = 3; // DID, SDID, data count (SMPTE ST 291-1)

constexpr uint8_t binaryCoded(uint32_t number)
{
    return static_cast<uint8_t>(number / 10 << 4 | number % 10);
}
} // namespace

PacketMaker::PacketMaker(const KIVCS2CaptionCountingInfo &info) : m_info{info}
{
    setServices(kDefaultServices);
}

void PacketMaker::setServices(std::span<const KIVCS2CaptionServiceEntry> services)
{
    (void)makePacket(m_info, 0, {nullptr, nullptr, services}, m_empty); // the longest list fits a CDP
}

void PacketMaker::make(uint32_t frame, uint16_t sequence, bool withTimeCode,
                       std::span<const uint8_t> triplets, KIVCS2CaptionPacket &packet) const
{
    constexpr size_t kLengthOffset = 2;
    constexpr size_t kFlagsOffset = 4;
    constexpr uint8_t kTimeCodePresent = 0x80;

    packet = {};
    uint8_t *const cdp = packet.m_anc + kANCHead;
    const uint8_t *in = m_empty.m_anc;
    uint8_t *out = std::copy_n(in, kANCHead + cdp::kHeaderSize, packet.m_anc);
    in += kANCHead + cdp::kHeaderSize;
    if (withTimeCode)
    {
        cdp[kFlagsOffset] |= kTimeCodePresent;
        out = putTimeCode(frame, out);
    }
    out = std::copy_n(in, cdp::kSectionHeadSize, out);
    in += cdp::kSectionHeadSize + triplets.size();
    out = std::ranges::copy(triplets, out).out;
    out = std::copy(in, m_empty.m_anc + m_empty.m_size - 1, out); // services, footer

    const auto size = static_cast<size_t>(out - cdp);
    cdp[-1] = cdp[kLengthOffset] = static_cast<uint8_t>(size);
    cdp::stamp({cdp, size}, sequence);
    *out = cdp::sum({packet.m_anc, kANCHead + size});
    packet.m_size = static_cast<uint16_t>(kANCHead + size + 1);
    packet.m_frame = frame;
    takeApart(packet);
}

// Source: SMPTE ST 334-2, 5.3. The frame number has two bits for its tens: from 50 frames a second on two
// frames share a number, and the field flag distinguishes them.
uint8_t *PacketMaker::putTimeCode(uint32_t frame, uint8_t *out) const
{
    constexpr uint32_t kNumbersMost = 30;
    constexpr uint8_t kFlag = 0x80; // field flag or drop-frame flag
    char text[kTimecodeSize];
    writeTimecode(m_info, frame, ':', text);
    const TimeFields time = *takeTime({text, kTimecodeSize});
    const bool paired = m_info.m_numbers > kNumbersMost;
    *out++ = cdp::kTimeCodeId;
    *out++ = static_cast<uint8_t>(0xC0 | binaryCoded(time.hours));
    *out++ = static_cast<uint8_t>(0x80 | binaryCoded(time.minutes));
    *out++ = static_cast<uint8_t>((paired && time.frames % 2 != 0 ? kFlag : 0) | binaryCoded(time.seconds));
    *out++ = static_cast<uint8_t>((m_info.m_drop != 0 ? kFlag : 0) |
                                  binaryCoded(paired ? time.frames / 2 : time.frames));
    return out;
}
} // namespace kiv::cc
