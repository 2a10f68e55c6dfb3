// The time of live captions.
#include "Captions/StreamTime.h"

#include "Failure.h"
#include "Terminal/Output.h"

#include <algorithm>

namespace tool
{
namespace
{

constexpr uint8_t kTimecodeID = 0x60; // DID and SDID
constexpr size_t kHead = 3;           // DID, SDID, data count
constexpr size_t kWords = 16;
constexpr uint32_t kPairsAbove = 30; // numbers a second: two frames share a label
constexpr int64_t kClock = 90000;    // ticks of RTP in a second
constexpr uint8_t kFlag = 0x80;      // field or drop-frame flag of a CDP's time code
constexpr uint64_t kDamage =
    uint64_t{1} << KIVCS2CaptionFault_PacketChecksum | uint64_t{1} << KIVCS2CaptionFault_CDPChecksum |
    uint64_t{1} << KIVCS2CaptionFault_WordParity | uint64_t{1} << KIVCS2CaptionFault_DataCount;

// The sixteen digits of SMPTE ST 12-1, each with its flags; every second one is a binary group.
enum Digit : uint8_t
{
    FrameUnits = 0,
    FrameTens = 2,
    SecondUnits = 4,
    SecondTens = 6,
    MinuteUnits = 8,
    MinuteTens = 10,
    HourUnits = 12,
    HourTens = 14
};
constexpr uint8_t kDrop = 4;  // in FrameTens
constexpr uint8_t kField = 8; // in SecondTens; at 25 frames a second in HourTens

KIVCS2CaptionCountingInfo infoOf(KIVCS2CaptionCounting counting)
{
    KIVCS2CaptionCountingInfo info{};
    check(kivCS2CaptionCounting_getInfo(counting, &info), "counting");
    return info;
}

std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> textOf(KIVCS2CaptionCounting counting, uint32_t frame)
{
    std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> text{};
    check(kivCS2CaptionCounting_textFromFrame(counting, frame, text.data()), "timecode");
    return text;
}

uint8_t binary(uint8_t coded)
{
    return static_cast<uint8_t>((coded >> 4) * 10 + (coded & 0xFu));
}

} // namespace

KIVCS2CaptionPacket ancillaryTimecode(KIVCS2CaptionCounting counting, uint32_t frame)
{
    constexpr uint8_t kVITC1 = 1, kVITC2 = 2; // the payload type, one bit in each word, the low bit first
    const KIVCS2CaptionCountingInfo info = infoOf(counting);
    const auto text = textOf(counting, frame);
    const bool isPaired = info.m_numbers > kPairsAbove;
    const auto digit = [&text](size_t at) { return static_cast<uint8_t>(text[at] - '0'); };
    const int number = digit(9) * 10 + digit(10);
    const int shown = isPaired ? number / 2 : number;
    const bool isSecond = isPaired && number % 2 != 0;

    std::array<uint8_t, kWords> digits{};
    digits[FrameUnits] = static_cast<uint8_t>(shown % 10);
    digits[FrameTens] = static_cast<uint8_t>(shown / 10 | (info.m_drop != 0 ? kDrop : 0));
    digits[SecondUnits] = digit(7);
    digits[SecondTens] = digit(6);
    digits[MinuteUnits] = digit(4);
    digits[MinuteTens] = digit(3);
    digits[HourUnits] = digit(1);
    digits[HourTens] = digit(0);
    digits[info.m_numbers == 50 ? HourTens : SecondTens] |= isSecond ? kField : uint8_t{0};

    const uint8_t type = isPaired ? (isSecond ? kVITC2 : kVITC1) : 0;
    std::array<uint8_t, kHead + kWords + 1> bytes{kTimecodeID, kTimecodeID, kWords};
    for (size_t word = 0; word < kWords; ++word)
        bytes[kHead + word] =
            static_cast<uint8_t>(digits[word] << 4 | (word < 8 ? (type >> word & 1) << 3 : 0));
    for (size_t at = 0; at + 1 < bytes.size(); ++at)
        bytes.back() = static_cast<uint8_t>(bytes.back() + bytes[at]);
    KIVCS2CaptionPacket packet;
    check(kivCS2CaptionPacket_parse(&packet, bytes.data(), bytes.size()), "ancillary timecode");
    return packet;
}

bool isAncillaryTimecode(const KIVCS2CaptionPacket &packet)
{
    return packet.m_did == kTimecodeID && packet.m_sdid == kTimecodeID;
}

std::string_view timeSourceName(TimeSource source)
{
    constexpr std::array<std::string_view, 4> kNames = {"none", "CDP time code", "ancillary timecode",
                                                        "RTP clock"};
    return kNames[static_cast<size_t>(source)];
}

std::optional<StreamTime::Label> StreamTime::labelOf(const KIVCS2CaptionPacket &packet)
{
    if ((packet.m_faults & kDamage) != 0)
        return std::nullopt;
    if (isAncillaryTimecode(packet))
        return labelOfAncillary(packet);
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) == 0)
        return std::nullopt;
    const auto &code = packet.m_timeCode; // SMPTE ST 334-2
    return Label{
        {binary(code[0] & 0x3F), binary(code[1] & 0x7F), binary(code[2] & 0x7F), binary(code[3] & 0x3F)},
        (code[3] & kFlag) != 0,
        (code[2] & kFlag) != 0,
        true,
        TimeSource::CDP};
}

std::optional<StreamTime::Label> StreamTime::labelOfAncillary(const KIVCS2CaptionPacket &packet)
{
    if (packet.m_size < kHead + kWords)
        return std::nullopt;
    const auto digit = [&packet](size_t at, unsigned mask = 0xF)
    { return static_cast<uint8_t>((packet.m_anc[kHead + at] >> 4) & mask); };
    const auto two = [&digit](size_t tens, unsigned mask, size_t units)
    { return static_cast<uint8_t>(digit(tens, mask) * 10 + digit(units)); };
    unsigned type = 0;
    for (size_t word = 0; word < 8; ++word)
        type |= (packet.m_anc[kHead + word] >> 3 & 1u) << word;
    return Label{{two(HourTens, 3, HourUnits), two(MinuteTens, 7, MinuteUnits),
                  two(SecondTens, 7, SecondUnits), two(FrameTens, 3, FrameUnits)},
                 digit(FrameTens, kDrop) != 0,
                 type == 2,
                 type == 1 || type == 2,
                 TimeSource::Ancillary};
}

// Takes the rate from the CDP; the time labels decide if numbers are dropped.
void StreamTime::settleCounting(std::span<const KIVCS2CaptionPacket> packets)
{
    constexpr uint8_t kCaptionID = 0x61, k2997 = 4;
    const auto caption =
        std::ranges::find_if(packets, [](const KIVCS2CaptionPacket &packet)
                             { return packet.m_did == kCaptionID && (packet.m_faults & kDamage) == 0; });
    if (m_counting != KIVCS2CaptionCounting_FindOut || caption == packets.end())
        return;
    const bool isCDP = (caption->m_flags & KIVCS2CaptionPacketFlag_CDP) != 0;
    const uint8_t rate = isCDP ? caption->m_rateCode : k2997;
    for (KIVCS2CaptionCounting counting = 1; counting < KIVCS2CaptionCounting_MAX; ++counting)
    {
        const KIVCS2CaptionCountingInfo info = infoOf(counting);
        const bool fits = info.m_rateCode == rate;
        if (fits && (m_counting == KIVCS2CaptionCounting_FindOut || (info.m_drop != 0) == m_drops))
            m_counting = counting;
    }
}

std::optional<uint32_t> StreamTime::frameOf(const Label &label) const
{
    const bool isPaired = infoOf(m_counting).m_numbers > kPairsAbove;
    const unsigned number =
        isPaired ? 2u * label.digits[3] + (label.isSecond ? 1u : 0u) : unsigned{label.digits[3]};
    const std::string text =
        print("%02u:%02u:%02u:%02u", label.digits[0], label.digits[1], label.digits[2], number);
    uint32_t frame = 0;
    if (KIVCS2_FAILED(kivCS2CaptionCounting_frameFromText(m_counting, text.c_str(), &frame, nullptr)))
        return std::nullopt; // not a time of this counting
    const uint32_t expected = frameByClock();
    if (isPaired && !label.tellsPair && m_source != TimeSource::None && expected / 2 == frame / 2)
        return expected;
    return frame;
}

uint32_t StreamTime::frameByClock() const
{
    const KIVCS2CaptionCountingInfo info = infoOf(m_counting);
    const int64_t unit = kClock * info.m_denominator;
    // Without its whole days, which are whole ticks in every counting, no time is too long to be multiplied:
    // a damaged clock may jump by hours with each packet.
    const int64_t ofDay = unit * info.m_perDay / info.m_numerator;
    // A packet up to a quarter of a frame early still belongs to this frame, and so does a second field, half
    // a frame late.
    const int64_t since = (m_ticks - m_anchor) % ofDay * info.m_numerator + unit / 4;
    const int64_t frames = since / unit - (since % unit < 0 ? 1 : 0);
    const int64_t day = info.m_perDay;
    return static_cast<uint32_t>(((m_anchorFrame + frames) % day + day) % day);
}

void StreamTime::take(uint32_t timestamp, std::span<const KIVCS2CaptionPacket> packets, bool isNew)
{
    if (isNew)
    {
        m_anchorFrame = m_frame + 1;
        m_anchor = m_ticks;
        m_timestamp = timestamp;
    }
    m_ticks += m_timestamp ? static_cast<int32_t>(timestamp - *m_timestamp) : 0;
    m_timestamp = timestamp;

    std::optional<Label> best;
    for (const KIVCS2CaptionPacket &packet : packets)
        if (const auto label = labelOf(packet); label && (!best || label->source < best->source))
            best = label;
    if (best)
        m_drops = best->drops;
    settleCounting(packets);
    if (m_counting == KIVCS2CaptionCounting_FindOut)
        return;
    const std::optional<uint32_t> told = best ? frameOf(*best) : std::nullopt;
    if (told)
        m_source = best->source;
    else if (m_source == TimeSource::None)
        m_source = TimeSource::RTP;
    m_frame = told ? *told : frameByClock();
    if (!told)
        return;
    m_anchorFrame = m_frame;
    m_anchor = m_ticks;
}

std::string StreamTime::timecode() const
{
    return m_counting == KIVCS2CaptionCounting_FindOut ? "" : textOf(m_counting, m_frame).data();
}

} // namespace tool
