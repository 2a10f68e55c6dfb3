// Packets in one RTP packet of ancillary data (RFC 3550, RFC 8331).
#include "Private/Carriers/RTP.h"

#include "Private/Carriers/Ancillary.h"
#include "Private/Carriers/Numbers.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <optional>

namespace kiv::carriers
{
namespace
{
constexpr uint8_t kVersion = 2;
constexpr size_t kFixedSize = 12;  // the RTP header without sources and extension
constexpr size_t kPayloadHead = 8; // extended sequence number, Length, ANC_Count, F
constexpr size_t kPlaceSize = 4;   // C, line, horizontal offset, S and StreamNum of one packet
constexpr size_t kLeastSize = 8;   // bytes of the smallest packet with its place
constexpr uint16_t kAnyLine = 0x7FF, kAnyOffset = 0xFFF;
constexpr size_t kMostPackets = 255; // the largest ANC_Count
constexpr size_t kTellingCount = 8;  // this much user data does not look like a packet by chance

struct Payload
{
    size_t begin, end; // bounds of the ancillary packets, by the size of the RTP packet
    size_t length;     // bytes of the packets by the header's Length
    bool padding;      // the padding is right
};

// Reads the headers. Returns FORMAT_ERR if they are not RTP, EOF_ERR if they are cut.
KIVCS2Status readHeaders(std::span<const uint8_t> bytes, KIVCS2CaptionRTP &rtp, Payload &payload)
{
    if (bytes.empty())
        return KIVCS2STATUS_EOF_ERR;
    if (bytes[0] >> 6 != kVersion)
        return KIVCS2STATUS_FORMAT_ERR;
    size_t head = kFixedSize + size_t{4} * (bytes[0] & 0x0Fu);
    if ((bytes[0] & 0x10) != 0)
    {
        if (bytes.size() < head + 4)
            return KIVCS2STATUS_EOF_ERR;
        head += 4 + size_t{4} * big(bytes, head + 2, 2);
    }
    if (bytes.size() < head + kPayloadHead)
        return KIVCS2STATUS_EOF_ERR;
    rtp.m_marker = bytes[1] >> 7;
    rtp.m_payloadType = bytes[1] & 0x7F;
    rtp.m_sequence = big(bytes, head, 2) << 16 | big(bytes, 2, 2);
    rtp.m_timestamp = big(bytes, 4, 4);
    rtp.m_source = big(bytes, 8, 4);
    rtp.m_count = bytes[head + 4];
    const uint8_t field = bytes[head + 5] >> 6;
    rtp.m_field = field == 0 ? 0 : field == 1 ? 3 : field - 1; // bits 00, 01 (not valid), 10 and 11
    payload = {head + kPayloadHead, bytes.size(), big(bytes, head + 2, 2), true};
    if ((bytes[0] & 0x20) != 0)
    {
        const size_t padding = bytes.back();
        payload.padding = padding > 0 && padding <= bytes.size() - payload.begin;
        payload.end -= payload.padding ? padding : 0;
    }
    return KIVCS2STATUS_OK;
}

// One ancillary packet: its words follow the header, and the next header begins on the next 32 bits.
struct Item
{
    Judgement found;
    size_t next;
    bool leads; // the packet's own count leads to the next packet
};

Judgement judgeAt(std::span<const uint8_t> bytes, size_t at)
{
    const Words words{Packing::Dense, bytes.subspan(at + kPlaceSize)};
    return judge(words, 0, words.count(), {true, true, false});
}

// Returns the beginning of the next recognisable packet from `at` on, or the end.
size_t startBehind(std::span<const uint8_t> bytes, size_t at)
{
    for (; at + kPlaceSize <= bytes.size(); at += 4)
    {
        const Judgement found = judgeAt(bytes, at);
        if (found.verdict == Verdict::Whole &&
            (found.isCaption || found.taken >= kHeadWords + kTellingCount + 1))
            return at;
    }
    return bytes.size();
}

Item itemAt(std::span<const uint8_t> bytes, size_t at)
{
    const Judgement found = judgeAt(bytes, at);
    const size_t next = at + kPlaceSize + padded(bytesFor(Packing::Dense, found.taken));
    // The packet's own count cannot be trusted if its parity is wrong or it leads past the bytes.
    const bool lost = found.verdict == Verdict::Damaged && found.taken == kHeadWords;
    return {found, std::min(bytes.size(), next), found.verdict > Verdict::Cut && !lost};
}

// If a packet's count does not lead to the next packet, ends it at the next recognisable packet.
void endAtNext(std::span<const uint8_t> bytes, size_t at, Item &item)
{
    const bool lost = item.found.verdict == Verdict::Damaged;
    const size_t start = startBehind(bytes, std::min(bytes.size(), at + kLeastSize));
    if (start == bytes.size() && !lost)
        return;
    const Words words{Packing::Dense,
                      bytes.subspan(at + kPlaceSize, start - std::min(start, at + kPlaceSize))};
    item.next = start;
    item.found.verdict = Verdict::Damaged;
    item.found.taken = std::min(lost ? kHeadWords : words.count(), kMostWords);
}

void tellPlace(std::span<const uint8_t> bytes, size_t at, KIVCS2CaptionPlace &place)
{
    const uint32_t head = big(bytes, at, kPlaceSize);
    place.m_offset = at;
    place.m_channel = (head >> 31) != 0 ? KIVCS2CaptionChannel_Chroma : KIVCS2CaptionChannel_Luma;
    place.m_line = head >> 20 & kAnyLine;
    place.m_horizontal = head >> 8 & kAnyOffset;
    place.m_hasStream = head >> 7 & 1;
    place.m_stream = head & 0x7F;
}

// Returns the place, not before `least`, at which a search from `offset` continues. The call before left
// `offset` at a packet or, if it is not on 32 bits, within a cut packet.
size_t resumeAt(std::span<const uint8_t> bytes, size_t begin, size_t offset, size_t least)
{
    const size_t at = begin + padded(offset - begin);
    if (at == offset && at >= least)
        return at;
    return startBehind(bytes, std::min(bytes.size(), std::max(at, least)));
}

// A walk over every packet, also past the wanted one, to compare their number with ANC_Count.
struct Walk
{
    std::optional<Item> item; // the first wanted packet
    size_t at;                // place of `item`
    size_t count, end;
    bool isComplete; // every packet was counted
};

// A packet that does not lead to the next one costs a search. Only the call that finds the packet makes it:
// otherwise hostile bytes would take a time that grows with the square of their number.
Walk walk(std::span<const uint8_t> bytes, const Payload &payload, const Search &search)
{
    const std::span<const uint8_t> whole = bytes.first(payload.end);
    Walk result{std::nullopt, 0, 0, payload.begin, true};
    size_t at = payload.begin;
    while (at + kPlaceSize < whole.size() && result.count <= kMostPackets)
    {
        Item item = itemAt(whole, at);
        // Past the end by Length only a packet without faults counts.
        if (item.found.verdict < Verdict::Cut ||
            (at >= payload.begin + payload.length && item.found.verdict != Verdict::Whole))
            break;
        if (!item.leads && (result.item || at < search.offset))
        {
            result.isComplete = false;
            if (result.item)
                break;
            ++result.count;
            at = resumeAt(whole, payload.begin, search.offset, at + kLeastSize);
            continue;
        }
        if (!item.leads)
            endAtNext(whole, at, item);
        if (!result.item && at >= search.offset && (search.any || item.found.isCaption))
        {
            result.item = item;
            result.at = at;
        }
        ++result.count;
        at = std::max(item.next, at + kLeastSize);
    }
    result.end = std::min(at, whole.size());
    return result;
}

uint32_t headOf(const KIVCS2CaptionPlace *place)
{
    if (place == nullptr)
        return uint32_t{kAnyLine} << 20 | uint32_t{kAnyOffset} << 8;
    const uint32_t chroma = place->m_channel == KIVCS2CaptionChannel_Chroma ? 1 : 0;
    return chroma << 31 | uint32_t{place->m_line} << 20 | uint32_t{place->m_horizontal} << 8 |
           uint32_t{place->m_hasStream} << 7 | place->m_stream;
}
} // namespace

KIVCS2Status findInRTP(Search &search)
{
    const auto nothing = [](Search &done)
    {
        done.offset = done.bytes.size();
        return KIVCS2STATUS_NOT_FOUND_ERR;
    };
    Payload payload{};
    const bool isFirst = search.offset == 0;
    const KIVCS2Status headers = readHeaders(search.bytes, search.place.m_rtp, payload);
    if (headers == KIVCS2STATUS_EOF_ERR && !isFirst)
        return nothing(search);
    KIV_TRY(headers);
    const KIVCS2CaptionRTP &rtp = search.place.m_rtp;
    search.place.m_field = rtp.m_field;
    const Walk found = walk(search.bytes, payload, search);
    const size_t told = payload.begin + payload.length;
    const bool agrees = !found.isComplete || (found.count == rtp.m_count && found.end == told);
    if (!agrees || payload.end != told || !payload.padding)
        search.packet.m_faults |= faultBit(KIVCS2CaptionFault_CarrierCounts);
    if (rtp.m_field == 3)
        search.packet.m_faults |= faultBit(KIVCS2CaptionFault_CarrierField);
    if (!found.item)
    {
        // The bytes end before the next packet could be recognised.
        if (payload.end >= told || found.count >= rtp.m_count || search.offset > found.end)
            return nothing(search);
        search.offset = found.end;
        return KIVCS2STATUS_EOF_ERR;
    }
    const Words words{Packing::Dense, search.bytes.first(payload.end).subspan(found.at + kPlaceSize)};
    take(words, 0, found.item->found.taken, {true, search.any, false}, search.packet);
    tellPlace(search.bytes, found.at, search.place);
    const bool cut = found.item->found.verdict == Verdict::Cut;
    search.offset = cut ? found.at : found.item->next;
    return cut ? KIVCS2STATUS_EOF_ERR : KIVCS2STATUS_OK;
}

bool isSendable(const KIVCS2CaptionRTP &rtp)
{
    return rtp.m_payloadType <= 0x7F && rtp.m_marker <= 1 && rtp.m_field <= 2;
}

bool isSendable(const KIVCS2CaptionPlace &place)
{
    return place.m_line <= kAnyLine && place.m_horizontal <= kAnyOffset && place.m_hasStream <= 1 &&
           place.m_stream <= 0x7F && place.m_channel <= KIVCS2CaptionChannel_Both;
}

KIVCS2Status wrapInRTP(const Load &load, std::span<uint8_t> room, size_t &size)
{
    PacketWords words;
    size_t length = 0;
    for (const KIVCS2CaptionPacket &packet : load.packets)
    {
        const size_t count = makeWords(packet, true, words);
        if (count == 0)
            return KIVCS2STATUS_FORMAT_ERR;
        length += kPlaceSize + padded(bytesFor(Packing::Dense, count));
    }
    if (load.packets.size() > kMostPackets || length > UINT16_MAX)
        return KIVCS2STATUS_OVERFLOW_ERR;
    KIV_TRY(claim(room, kFixedSize + kPayloadHead + length, size));

    const KIVCS2CaptionRTP &rtp = *load.rtp;
    size_t at = 0;
    putBig(room, at, 1, kVersion << 6);
    putBig(room, at, 1, uint32_t{rtp.m_marker} << 7 | rtp.m_payloadType);
    putBig(room, at, 2, rtp.m_sequence);
    putBig(room, at, 4, rtp.m_timestamp);
    putBig(room, at, 4, rtp.m_source);
    putBig(room, at, 2, rtp.m_sequence >> 16);
    putBig(room, at, 2, length);
    putBig(room, at, 1, load.packets.size());
    putBig(room, at, 3, (rtp.m_field == 0 ? 0 : rtp.m_field + uint32_t{1}) << 22);
    for (size_t packet = 0; packet < load.packets.size(); ++packet)
    {
        putBig(room, at, kPlaceSize, headOf(load.places == nullptr ? nullptr : load.places + packet));
        const size_t count = makeWords(load.packets[packet], true, words);
        const std::span<uint8_t> data = room.subspan(at, padded(bytesFor(Packing::Dense, count)));
        std::fill(data.begin(), data.end(), uint8_t{0});
        for (size_t index = 0; index < count; ++index)
            putWord(Packing::Dense, data, index, words[index]);
        at += data.size();
    }
    return KIVCS2STATUS_OK;
}
} // namespace kiv::carriers
