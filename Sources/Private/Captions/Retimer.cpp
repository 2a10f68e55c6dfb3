// Captions at another frame rate.
#include "Private/Captions/Retimer.h"

#include "Private/Captions/Counting.h"
#include "Private/Captions/Packet.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace kiv::cc
{
namespace
{
constexpr int64_t kLastFrame = INT32_MAX;

// A receiver treats a control code as a repeat if it comes again within two frames: at 24 frames a second
// there may be a frame without a pair between the two, and from 50 on there is one.
constexpr uint64_t kFramesOfARepeat = 2;
// Frames of the source that are read ahead before captions of the first of them go out. So a repeat is
// already in the queue when its code goes out.
constexpr uint64_t kFramesAhead = kFramesOfARepeat;

constexpr size_t kTripletSize = 3;

// Returns the number of line 21 pairs that the frames from 0 up to `frame` have room for. Line 21 carries 60
// pairs a second and the fields take turns. So at 24 frames a second a frame gets three or two in turn, at 30
// it gets two, one of each field, and at 60 one. At 50 it gets one too, because from 50 on a frame carries
// one field (CEA-708).
uint64_t pairsBefore(const KIVCS2CaptionCountingInfo &info, uint64_t frame)
{
    constexpr uint64_t kPairs = 60;
    const uint64_t frames = info.m_numbers > 30 ? kPairs : info.m_numbers; // sharing the pairs of a second
    return (frame * kPairs + frames - 1) / frames;
}
} // namespace

FrameMap::FrameMap(const KIVCS2CaptionCountingInfo &from, const KIVCS2CaptionCountingInfo &to,
                   const KIVCS2CaptionRetimeOptions &options)
    : m_times{1}, m_over{1}, m_offset{options.m_offset}
{
    if (modeOf(options) == KIVCS2CaptionRetimeMode_SameFrames)
        return;
    m_times = uint64_t{from.m_denominator} * to.m_numerator;
    m_over = uint64_t{from.m_numerator} * to.m_denominator;
    const uint64_t common = std::gcd(m_times, m_over);
    m_times /= common;
    m_over /= common;
}

// ---- Queues ----

Mark FieldQueue::markOf(uint64_t frame, uint8_t first, uint8_t second)
{
    const uint32_t now = (first & 0x7Fu) << 8 | (second & 0x7Fu);
    if (now < 0x1000 || now >= 0x2000)
    {
        mayRepeat = false;
        return Mark::Plain;
    }
    const bool same = mayRepeat && now == code;
    const bool repeats = same && frame - lastIn <= kFramesOfARepeat;
    mayRepeat = !repeats;
    code = now;
    lastIn = frame;
    if (repeats)
        return Mark::Repeat;
    return same ? Mark::Again : Mark::Plain;
}

bool FieldQueue::isDue(uint64_t frame) const
{
    if (pairs.empty())
        return false;
    const Waiting &first = pairs.front();
    if (first.mark == Mark::Repeat)
        return true;
    return first.ready <= frame && (first.mark != Mark::Again || frame - lastOut > kFramesOfARepeat);
}

// ---- In ----

Retimer::Retimer(const KIVCS2CaptionRetimeOptions &options, KIVCS2CaptionRetimeFunc onPacket, void *context)
    : m_options{options}, m_from{*countingInfo(options.m_from)}, m_to{*countingInfo(options.m_to)},
      m_map{m_from, m_to, options}, m_onPacket{onPacket}, m_context{context}, m_maker{m_to}
{
}

KIVCS2Status Retimer::feed(const KIVCS2CaptionPacket &packet)
{
    uint64_t source = 0;
    uint64_t midnights = 0;
    const uint64_t taken = m_now.report.m_packetsIn;
    KIVCS2Status status = place(packet.m_frame, source, midnights);
    if (KIVCS2_SUCCEEDED(status))
        status = select(packet, source);
    if (KIVCS2_FAILED(status))
    {
        ++m_now.report.m_packetsRefused;
        return status;
    }
    m_now.seen = source;
    m_now.midnights = midnights;
    m_now.hasSeen = true;
    status = handOver(std::min(m_map(source - std::min(source, kFramesAhead)), m_now.end));
    if (m_now.report.m_packetsIn > taken) // its service list is valid from here on
        takeSections(packet);
    return status;
}

KIVCS2Status Retimer::select(const KIVCS2CaptionPacket &packet, uint64_t source)
{
    if (source < m_options.m_first)
    {
        ++m_now.report.m_packetsLeftOut;
        m_now.dtvcc.startLost = true;
        return KIVCS2STATUS_OK;
    }
    if (hasLast(m_options) && source > m_options.m_last)
        return takeTail(packet, source);
    if (m_map(source) < 0)
    {
        ++m_now.report.m_packetsBefore;
        m_now.dtvcc.startLost = true;
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    }
    return take(packet, source);
}

// Stores the packet's frame, counted from the midnight before the first packet.
KIVCS2Status Retimer::place(uint32_t frame, uint64_t &source, uint64_t &midnights) const
{
    const uint64_t day = m_from.m_perDay;
    midnights = m_now.midnights;
    if (m_now.hasSeen && frame + midnights + day / 2 < m_now.seen)
        midnights += day;
    source = frame + midnights;
    const bool follows = !m_now.hasSeen || (source >= m_now.seen && source - m_now.seen <= day);
    return follows ? KIVCS2STATUS_OK : KIVCS2STATUS_INVALID_TIMECODE_ERR;
}

// Makes room for the largest packet, so that no packet is taken only in part.
KIVCS2Status Retimer::reserve()
{
    for (FieldQueue &field : m_now.fields)
        KIV_TRY(field.pairs.reserve(KIVCS2_CAPTION_TRIPLETS_MAX));
    return m_now.dtvcc.triplets.reserve(KIVCS2_CAPTION_TRIPLETS_MAX);
}

KIVCS2Status Retimer::take(const KIVCS2CaptionPacket &packet, uint64_t source)
{
    const int64_t ready = m_map(source);
    if (ready > kLastFrame)
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    KIV_TRY(reserve());

    if (m_now.report.m_packetsIn++ == 0)
    {
        m_now.next = ready;
        m_now.report.m_firstFrame = static_cast<uint32_t>(ready);
    }
    m_now.end = std::max(ready + 1, m_map(source + 1));
    const size_t count = std::min<size_t>(packet.m_tripletCount, KIVCS2_CAPTION_TRIPLETS_MAX);
    for (size_t index = 0; index < count; ++index)
    {
        const uint8_t *const triplet = packet.m_triplets[index];
        if ((triplet[0] & kValid) == 0)
            continue;
        if ((triplet[0] & kTypeMask) >= kDTVCCData)
            takeDTVCC(triplet, static_cast<uint32_t>(ready));
        else if (!isEmptyPair(triplet[1], triplet[2]))
            takePair(triplet, source, static_cast<uint32_t>(ready));
    }
    return KIVCS2STATUS_OK;
}

// After the last frame: takes the rest of a CEA-708 packet that began earlier.
KIVCS2Status Retimer::takeTail(const KIVCS2CaptionPacket &packet, uint64_t source)
{
    const int64_t ready = std::min(m_map(source), m_now.end); // however late the rest comes
    if (m_now.dtvcc.left > 0)
        KIV_TRY(reserve());
    ++m_now.report.m_packetsLeftOut;
    const size_t count = std::min<size_t>(packet.m_tripletCount, KIVCS2_CAPTION_TRIPLETS_MAX);
    for (size_t index = 0; index < count && m_now.dtvcc.left > 0; ++index)
    {
        const uint8_t *const triplet = packet.m_triplets[index];
        if (isValidOf(triplet, kDTVCCStart))
            m_now.dtvcc.left = 0;
        else if (isValidOf(triplet, kDTVCCData))
            takeDTVCC(triplet, static_cast<uint32_t>(ready));
    }
    return KIVCS2STATUS_OK;
}

void Retimer::takePair(const uint8_t *triplet, uint64_t source, uint32_t ready)
{
    const uint8_t field = triplet[0] & kTypeMask;
    const Mark mark = m_now.fields[field].markOf(source, triplet[1], triplet[2]);
    m_now.fields[field].pairs.push({ready, field, {triplet[1], triplet[2]}, mark});
    ++m_now.report.m_pairsIn[field];
}

void Retimer::takeDTVCC(const uint8_t *triplet, uint32_t ready)
{
    DTVCCQueue &dtvcc = m_now.dtvcc;
    const uint8_t type = triplet[0] & kTypeMask;
    if (type == kDTVCCStart)
    {
        constexpr size_t kPacket = 64; // triplets of a packet with 0 in its header
        const size_t triplets = triplet[1] & 0x3Fu;
        dtvcc.left = (triplets == 0 ? kPacket : triplets) - 1;
        dtvcc.startLost = false;
    }
    else
        dtvcc.left -= dtvcc.left > 0 ? 1 : 0;
    if (dtvcc.startLost)
    {
        m_now.report.m_bytesLeftOut += 2;
        return;
    }
    dtvcc.triplets.push({ready, type, {triplet[1], triplet[2]}, Mark::Plain});
    m_now.report.m_bytesIn += 2;
}

void Retimer::takeSections(const KIVCS2CaptionPacket &packet)
{
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_CDP) == 0)
    {
        m_now.report.m_packetsOther += packet.m_size > 0 ? 1 : 0;
        return;
    }
    m_now.hasTimeCode = (packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0;
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_HasServices) != 0)
        takeServices(packet);
    else if (!m_now.hasCDP)
        m_maker.setServices({});
    m_now.hasCDP = true;
}

void Retimer::takeServices(const KIVCS2CaptionPacket &packet)
{
    const std::span<const KIVCS2CaptionServiceEntry> list{
        packet.m_services, std::min<size_t>(packet.m_serviceCount, KIVCS2_CAPTION_SERVICES_MAX)};
    if (m_now.hasCDP && list.size() == m_now.listed &&
        (list.empty() || std::memcmp(list.data(), m_now.services.data(), list.size_bytes()) == 0))
        return;
    std::ranges::copy(list, m_now.services.begin());
    m_now.listed = list.size();
    std::array<KIVCS2CaptionServiceEntry, KIVCS2_CAPTION_SERVICES_MAX> kept;
    const auto [in, out] =
        std::ranges::copy_if(list, kept.begin(), isService, &KIVCS2CaptionServiceEntry::m_service);
    m_maker.setServices({kept.begin(), out});
}

// ---- Out ----

KIVCS2Status Retimer::handOver(int64_t end)
{
    while (m_hasMade || m_now.next < end)
    {
        if (!m_hasMade)
            makeNext();
        m_hasMade = true; // until the callback has taken it
        KIV_TRY(m_onPacket(&m_made, m_context));
        m_hasMade = false;
        ++m_now.report.m_packetsOut;
    }
    return KIVCS2STATUS_OK;
}

void Retimer::makeNext()
{
    const auto frame = static_cast<uint64_t>(m_now.next);
    std::array<uint8_t, KIVCS2_CAPTION_TRIPLETS_MAX * kTripletSize> triplets;
    uint8_t *out = triplets.data();
    uint8_t *const end = out + m_to.m_triplets * kTripletSize;
    for (uint64_t pair = pairsBefore(m_to, frame); pair < pairsBefore(m_to, frame + 1); ++pair)
    {
        const size_t which = pair % 2;
        FieldQueue &field = m_now.fields[which];
        if (field.isDue(frame))
        {
            leave(field.pairs, which, out);
            field.lastOut = frame;
            ++m_now.report.m_pairsOut[which];
        }
        else
            std::ranges::copy(
                std::array{static_cast<uint8_t>(kMarker | kValid | which), uint8_t{0x80}, uint8_t{0x80}},
                out);
        out += kTripletSize;
    }
    CaptionQueue &dtvcc = m_now.dtvcc.triplets;
    for (; out < end && !dtvcc.empty() && dtvcc.front().ready <= frame; out += kTripletSize)
    {
        leave(dtvcc, KIVCS2CaptionRetimeQueue_DTVCC, out);
        m_now.report.m_bytesOut += 2;
    }
    for (; out < end; out += kTripletSize)
        std::ranges::copy(std::array<uint8_t, kTripletSize>{kMarker | kDTVCCData, 0, 0}, out);

    m_maker.make(static_cast<uint32_t>(frame), m_now.sequence++, m_now.hasTimeCode, {triplets.data(), end},
                 m_made);
    m_now.report.m_packetsBehind += m_now.next >= m_now.end ? 1 : 0;
    ++m_now.next;
}

// Puts the first item of the queue on the frame that is being made.
void Retimer::leave(CaptionQueue &queue, size_t which, uint8_t *triplet)
{
    const Waiting &first = queue.front();
    triplet[0] = static_cast<uint8_t>(kMarker | kValid | first.type);
    std::copy_n(first.bytes, sizeof first.bytes, triplet + 1);
    // A repeat may be early.
    const auto wait = static_cast<uint32_t>(std::max<int64_t>(m_now.next - first.ready, 0));
    m_now.report.m_wait[which] = std::max(m_now.report.m_wait[which], wait);
    queue.pop();
}

bool Retimer::isWaiting() const
{
    return !m_now.fields[0].pairs.empty() || !m_now.fields[1].pairs.empty() || !m_now.dtvcc.triplets.empty();
}

KIVCS2Status Retimer::finish(KIVCS2CaptionRetimeReport *report)
{
    KIV_TRY(handOver(m_now.end));
    while (isWaiting())
        KIV_TRY(handOver(m_now.next + 1));

    KIVCS2CaptionRetimeReport &done = m_now.report;
    const bool any = done.m_packetsIn > 0;
    for (size_t queue = 0; queue < std::size(done.m_wait); ++queue)
        (void)kivCS2CaptionCounting_nanosecondsOfFrame(m_options.m_to, done.m_wait[queue],
                                                       &done.m_waitTime[queue]); // m_to is a counting
    if (any)
        done.m_lastFrame = static_cast<uint32_t>(m_now.next - 1);
    if (report != nullptr)
        *report = done;
    m_now = {};
    m_maker.setServices(kDefaultServices);
    return any ? KIVCS2STATUS_OK : KIVCS2STATUS_NO_DATA_ERR;
}
} // namespace kiv::cc
