// Packets in wrapped ancillary data (SMPTE ST 436-1): frames of line records.
//
// A frame is a count of 2 bytes and that many records. A search may begin at any record, where the number of
// records left in the frame is unknown. But a record is recognised by its header, and so is a count in front
// of a record. The code does not rely on the count, so a wrong count loses no record.
#include "Private/Carriers/Wrapped.h"

#include "Private/Carriers/Ancillary.h"
#include "Private/Carriers/Numbers.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <optional>

namespace kiv::carriers
{
namespace
{
constexpr size_t kCountSize = 2;
constexpr size_t kHeaderSize = 14;
constexpr uint16_t kUsualLine = 9;

// Wrapping types: VANC of a frame, of field 1, of field 2 and of a progressive frame; with kHANC the same for
// HANC.
constexpr uint8_t kField1 = 2, kField2 = 3, kProgressive = 4, kHANC = 0x10;
// Sample codings: three of VBI, then three each of 8 bits, 10 bits, and 8 bits with a parity error.
constexpr uint8_t kVBI = 1, kEightBits = 4, kTenBits = 7, kWithError = 10, kLastCoding = 12;

bool isTenBits(uint8_t coding)
{
    return coding >= kTenBits && coding < kWithError;
}

bool isWrapping(uint8_t wrapping)
{
    const uint8_t type = wrapping & ~kHANC;
    return type >= 1 && type <= kProgressive;
}

// The header of one line record, and how far it can be trusted.
struct Record
{
    uint16_t line;
    uint8_t wrapping, coding;
    size_t samples, array;
    bool tenBits;
    bool lengthsAgree; // the array is as long as the samples require
    int doubts;        // how many of the four checks of a header fail

    Record(std::span<const uint8_t> bytes, size_t at)
        : line{static_cast<uint16_t>(big(bytes, at, 2))}, wrapping{bytes[at + 2]}, coding{bytes[at + 3]},
          samples{big(bytes, at + 4, 2)}, array{big(bytes, at + 6, 4)}, tenBits{isTenBits(coding)}
    {
        const bool bytesFit = array == samples || array == padded(samples);
        const bool threesFit = array == bytesFor(Packing::Three32, samples);
        lengthsAgree = tenBits ? threesFit : bytesFit;
        if (!lengthsAgree && (tenBits ? bytesFit : threesFit))
            tenBits = !tenBits; // the coding is damaged, or the writer's error
        const bool elementsAreBytes = big(bytes, at + 10, 4) == 1;
        doubts = (lengthsAgree ? 0 : 1) + (elementsAreBytes ? 0 : 1) + (isWrapping(wrapping) ? 0 : 1) +
                 (coding >= kVBI && coding <= kLastCoding ? 0 : 1);
    }

    [[nodiscard]] size_t length() const
    {
        return bytesFor(tenBits ? Packing::Three32 : Packing::Bytes, samples);
    }
};

std::optional<Record> recordAt(std::span<const uint8_t> bytes, size_t at, int doubts)
{
    if (at > bytes.size() || bytes.size() - at < kHeaderSize)
        return std::nullopt;
    const Record record{bytes, at};
    return record.doubts <= doubts ? std::optional{record} : std::nullopt;
}

// Returns true if the data end here, or a record or the count in front of a record begins here.
bool isBoundary(std::span<const uint8_t> bytes, size_t at)
{
    return at == bytes.size() || recordAt(bytes, at, 0) || recordAt(bytes, at + kCountSize, 0);
}

// Returns the first record from `at` on and stores its place in `at`. If there is no record, `at` becomes a
// place where the end may have cut off a record.
std::optional<Record> nextRecord(std::span<const uint8_t> bytes, size_t &at)
{
    for (; bytes.size() - at >= kHeaderSize; at += kCountSize)
    {
        for (const int doubts : {0, 1})
            for (const size_t count : {size_t{0}, kCountSize})
                if (const auto record = recordAt(bytes, at + count, doubts))
                {
                    at += count;
                    return record;
                }
        if (bytes.size() - at < kCountSize + kHeaderSize)
            return std::nullopt;
        if (big(bytes, at, kCountSize) != 0) // a count of 0 is a frame without records
            break;
    }
    for (; bytes.size() - at >= kHeaderSize; ++at)
        if (const auto record = recordAt(bytes, at, 0))
            return record;
    return std::nullopt;
}

// Returns the bytes of a record's payload. If the numbers of the record disagree, the bytes that follow
// decide; otherwise the payload is taken to be as long as that of the longest packet.
size_t payloadOf(std::span<const uint8_t> bytes, size_t begin, const Record &record)
{
    if (record.lengthsAgree)
        return record.array;
    constexpr size_t kLongest = 2 * padded(kMostWords);
    const size_t left = bytes.size() - begin;
    for (const size_t length : {record.array, record.length(), padded(record.length())})
        if (length <= left && isBoundary(bytes, begin + length))
            return length;
    for (size_t length = 0; length < kLongest && length + kHeaderSize <= left; ++length)
        if (recordAt(bytes, begin + length, 0))
            return length;
    return kLongest;
}

void tellPlace(const Record &record, size_t at, KIVCS2CaptionPlace &place)
{
    place.m_offset = at;
    place.m_line = record.line;
    place.m_wrapping = record.wrapping;
    place.m_coding = record.coding;
    const uint8_t type = record.wrapping & ~kHANC;
    place.m_field = type == kField1 ? 1 : type == kField2 ? 2 : 0;
    if (record.coding >= kEightBits && record.coding <= kLastCoding)
        place.m_channel = static_cast<KIVCS2CaptionChannel>((record.coding - kEightBits) % 3);
}

// Judges the packet of a record with this payload; `cut` if the buffer has only a part of the payload.
Verdict tryRecord(const Record &record, std::span<const uint8_t> payload, bool cut, Search &search)
{
    const Trust trust{true, search.any, true};
    const Words words{record.tenBits ? Packing::Three32 : Packing::Bytes, payload};
    Judgement found = judge(words, 0, std::min(record.samples, words.count()), trust);
    const bool counts = found.verdict != Verdict::Cut && found.taken == record.samples;
    if (!counts && words.count() >= kHeadWords)
    {
        // Try again: ignore the number of samples, and use the packet's own count and the payload.
        const size_t ownCount = kHeadWords + words[2];
        const size_t limit = record.tenBits ? words.count() : std::min(words.count(), ownCount);
        found = judge(words, 0, limit, trust);
    }
    if (found.verdict < Verdict::Cut)
        return found.verdict;
    take(words, 0, found.taken, trust, search.packet);
    if ((!counts && !cut) || record.doubts != 0)
        search.packet.m_faults |= faultBit(KIVCS2CaptionFault_CarrierCounts);
    if (record.coding >= kWithError && record.coding <= kLastCoding)
        search.packet.m_faults |= faultBit(KIVCS2CaptionFault_WordParity);
    return Verdict::Whole;
}

uint8_t wrappingOf(const KIVCS2CaptionPlace &place)
{
    if (place.m_wrapping != 0)
        return place.m_wrapping;
    return place.m_field == 1 ? kField1 : place.m_field == 2 ? kField2 : kProgressive;
}

uint8_t codingOf(const KIVCS2CaptionPlace &place)
{
    return place.m_coding != 0 ? place.m_coding : static_cast<uint8_t>(kEightBits + place.m_channel);
}

KIVCS2CaptionPlace placeOf(const Load &load, size_t packet)
{
    if (load.places != nullptr)
        return load.places[packet];
    KIVCS2CaptionPlace usual{};
    usual.m_line = kUsualLine;
    return usual;
}

void putRecord(const KIVCS2CaptionPacket &packet, const KIVCS2CaptionPlace &place, std::span<uint8_t> room,
               size_t &at)
{
    const uint8_t coding = codingOf(place);
    const bool tenBits = isTenBits(coding);
    const Packing packing = tenBits ? Packing::Three32 : Packing::Bytes;
    PacketWords words;
    const size_t count = makeWords(packet, tenBits, words) - (tenBits ? 0 : 1); // 8 bits: no checksum
    const size_t array = padded(bytesFor(packing, count));
    putBig(room, at, 2, place.m_line);
    putBig(room, at, 1, wrappingOf(place));
    putBig(room, at, 1, coding);
    putBig(room, at, 2, count);
    putBig(room, at, 4, array);
    putBig(room, at, 4, 1);
    const std::span<uint8_t> payload = room.subspan(at, array);
    std::fill(payload.begin(), payload.end(), uint8_t{0});
    for (size_t index = 0; index < count; ++index)
        putWord(packing, payload, index, words[index]);
    at += array;
}
} // namespace

KIVCS2Status findInWrapped(Search &search)
{
    const std::span<const uint8_t> bytes = search.bytes;
    size_t at = search.offset;
    while (const std::optional<Record> record = nextRecord(bytes, at))
    {
        const size_t begin = at + kHeaderSize;
        const size_t length = payloadOf(bytes, begin, *record);
        const bool cut = length > bytes.size() - begin;
        Search trial = search;
        const Verdict verdict =
            record->coding >= kVBI && record->coding < kEightBits && record->doubts == 0
                ? Verdict::No
                : tryRecord(*record, bytes.subspan(begin, cut ? bytes.size() - begin : length), cut, trial);
        if (verdict >= Verdict::Cut)
        {
            search.packet = trial.packet;
            tellPlace(*record, at, search.place);
            search.offset = cut ? at : begin + length;
            return cut ? KIVCS2STATUS_EOF_ERR : KIVCS2STATUS_OK;
        }
        if (cut)
            break;
        at = begin + length;
    }
    search.offset = at;
    return KIVCS2STATUS_NOT_FOUND_ERR;
}

bool isWrappable(const KIVCS2CaptionPlace &place)
{
    const uint8_t coding = codingOf(place);
    return isWrapping(wrappingOf(place)) && place.m_field <= 2 &&
           place.m_channel <= KIVCS2CaptionChannel_Both && coding >= kEightBits && coding <= kLastCoding;
}

KIVCS2Status wrapInFrame(const Load &load, std::span<uint8_t> room, size_t &size)
{
    if (load.packets.size() > UINT16_MAX)
        return KIVCS2STATUS_OVERFLOW_ERR;
    PacketWords words;
    size_t needed = kCountSize;
    for (size_t packet = 0; packet < load.packets.size(); ++packet)
    {
        const bool tenBits = isTenBits(codingOf(placeOf(load, packet)));
        const size_t count = makeWords(load.packets[packet], tenBits, words);
        if (count == 0)
            return KIVCS2STATUS_FORMAT_ERR;
        needed += kHeaderSize + padded(tenBits ? bytesFor(Packing::Three32, count) : count - 1);
    }
    KIV_TRY(claim(room, needed, size));
    size_t at = 0;
    putBig(room, at, kCountSize, load.packets.size());
    for (size_t packet = 0; packet < load.packets.size(); ++packet)
        putRecord(load.packets[packet], placeOf(load, packet), room, at);
    return KIVCS2STATUS_OK;
}
} // namespace kiv::carriers
