// Packets among 291M words: consecutive bytes and 10-bit units, and the samples of a v210 line.
#include "Private/Carriers/WordForms.h"

#include "Private/Carriers/Ancillary.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <array>

namespace kiv::carriers
{
namespace
{
struct Form
{
    Packing packing;
    bool flag;
    bool isLine; // the place of a packet is that of its first word in the line
    KIVCS2CaptionChannel channel;
};
// clang-format off
constexpr std::array<Form, KIVCS2CaptionCarrier_MAX> kForms = {{
    {Packing::Bytes,     true,  false, KIVCS2CaptionChannel_Luma},
    {Packing::Bytes,     false, false, KIVCS2CaptionChannel_Luma},
    {Packing::Big16,     true,  false, KIVCS2CaptionChannel_Luma},
    {Packing::Big16,     false, false, KIVCS2CaptionChannel_Luma},
    {Packing::Little16,  true,  false, KIVCS2CaptionChannel_Luma},
    {Packing::Little16,  false, false, KIVCS2CaptionChannel_Luma},
    {Packing::Three32,   true,  false, KIVCS2CaptionChannel_Luma}, // 436M: not searched here
    {Packing::Luma210,   true,  true,  KIVCS2CaptionChannel_Luma},
    {Packing::Chroma210, true,  true,  KIVCS2CaptionChannel_Chroma},
    {Packing::Both210,   true,  true,  KIVCS2CaptionChannel_Both},
    {Packing::Dense,     true,  false, KIVCS2CaptionChannel_Luma}, // RTP: not searched here
}};
// clang-format on
constexpr std::array<uint16_t, kFlagWords> kByteFlag{0xFF, 0xA0, 0x09};
constexpr std::array<uint16_t, kFlagWords> kWordFlag{0x000, 0x3FF, 0x3FF};

// Returns the place where the next packet may begin: its flag or its DID.
Words::Flag nextStart(const Words &words, bool flag, size_t from)
{
    if (flag)
        return words.findFlag(from);
    const size_t at = words.findWord(from, words.tenBits() ? 0x161 : 0x61);
    return {at, at < words.count()};
}

// The next packet may have cut a damaged packet: returns the place of the next packet, or `end`.
size_t startInside(const Words &words, bool flag, size_t from, size_t end)
{
    for (size_t at = from; at < end; ++at)
    {
        const Words::Flag next = nextStart(words, flag, at);
        if (!next.found || next.at >= end)
            return end;
        at = next.at;
        if (judge(words, at + (flag ? kFlagWords : 0), words.count(), {flag, flag, false}).verdict ==
            Verdict::Whole)
            return at;
    }
    return end;
}

// Judges the packet whose flag or DID is at `start`, and stores it in the search if it is a packet.
Verdict tryAt(const Words &words, const Form &form, size_t start, Search &search)
{
    const Trust trust{form.flag, form.flag && search.any, false};
    const size_t did = start + (form.flag ? kFlagWords : 0);
    Judgement found = judge(words, did, words.count(), trust);
    if (found.verdict == Verdict::Cut || found.verdict == Verdict::Damaged)
    {
        const size_t end = startInside(words, form.flag, did + 1, did + found.taken);
        if (end < did + found.taken)
            found = {Verdict::Damaged, end - did, found.isCaption};
    }
    if (found.verdict < Verdict::Cut)
        return found.verdict;
    take(words, did, found.taken, trust, search.packet);
    search.place.m_offset = words.byteOf(start);
    search.offset = words.byteOf(found.verdict == Verdict::Cut ? start : did + found.taken);
    search.place.m_channel = form.channel;
    if (form.isLine)
        search.place.m_horizontal = static_cast<uint16_t>(std::min<size_t>(start, UINT16_MAX));
    return found.verdict;
}

// Visits the words of one packet after another and the beginning of each.
template <typename Use>
KIVCS2Status forEach(const Form &form, const Load &load, Use use)
{
    const bool tenBits = form.packing != Packing::Bytes;
    PacketWords words;
    size_t at = 0;
    for (size_t packet = 0; packet < load.packets.size(); ++packet)
    {
        const size_t count = makeWords(load.packets[packet], tenBits, words);
        if (count == 0)
            return KIVCS2STATUS_FORMAT_ERR;
        if (form.isLine && load.places != nullptr)
            at = load.places[packet].m_horizontal;
        use(at, std::span{words}.first(count));
        at += (form.flag ? kFlagWords : 0) + count;
    }
    return KIVCS2STATUS_OK;
}
} // namespace

bool hasFlag(KIVCS2CaptionCarrier form)
{
    return kForms[form].flag;
}

bool areApart(KIVCS2CaptionCarrier form, const Load &load)
{
    if (!kForms[form].isLine || load.places == nullptr)
        return true;
    const auto end = [&load](size_t packet)
    {
        return size_t{load.places[packet].m_horizontal} + kFlagWords + kHeadWords +
               load.packets[packet].m_anc[2] + 1;
    };
    for (size_t packet = 1; packet < load.packets.size(); ++packet)
        for (size_t other = 0; other < packet; ++other)
            if (load.places[packet].m_horizontal < end(other) &&
                load.places[other].m_horizontal < end(packet))
                return false;
    return true;
}

KIVCS2Status findInWords(KIVCS2CaptionCarrier form, Search &search)
{
    const Form &row = kForms[form];
    const Words words{row.packing, search.bytes};
    size_t pending = SIZE_MAX;
    size_t from = words.indexAt(search.offset);
    for (;; ++from)
    {
        const Words::Flag next = nextStart(words, row.flag, from);
        from = next.at;
        if (!next.found)
            break;
        const Verdict verdict = tryAt(words, row, from, search);
        if (verdict == Verdict::Cut)
            return KIVCS2STATUS_EOF_ERR;
        if (verdict >= Verdict::Damaged)
            return KIVCS2STATUS_OK;
        // Words that only look like the beginning of a packet must not hide the packets after them.
        if (verdict == Verdict::Undecided)
            pending = std::min(pending, from);
    }
    search.offset = words.byteOf(std::min(pending, from));
    return KIVCS2STATUS_NOT_FOUND_ERR;
}

KIVCS2Status wrapInWords(KIVCS2CaptionCarrier form, const Load &load, std::span<uint8_t> room, size_t &size)
{
    const Form &row = kForms[form];
    const size_t flagWords = row.flag ? kFlagWords : 0;
    size_t end = 0;
    KIV_TRY(forEach(row, load,
                    [&](size_t at, std::span<const uint16_t> words)
                    { end = std::max(end, at + flagWords + words.size()); }));
    KIV_TRY(claim(room, bytesFor(row.packing, end), size));
    const auto &flag = row.packing == Packing::Bytes ? kByteFlag : kWordFlag;
    return forEach(row, load,
                   [&](size_t at, std::span<const uint16_t> words)
                   {
                       for (size_t word = 0; word < flagWords; ++word)
                           putWord(row.packing, room, at++, flag[word]);
                       for (const uint16_t word : words)
                           putWord(row.packing, room, at++, word);
                   });
}
} // namespace kiv::carriers
