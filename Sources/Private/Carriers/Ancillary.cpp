// One ancillary packet among words (SMPTE ST 291-1): whether it is a packet, how long it is, and its words
// made from its bytes.
#include "Private/Carriers/Ancillary.h"

#include <algorithm>
#include <bit>
#include <optional>

namespace kiv::carriers
{
namespace
{
constexpr uint8_t kCaptionDID = 0x61;
constexpr uint8_t kCDP = 0x01;  // SDID of a caption distribution packet
constexpr uint8_t kPair = 0x02; // SDID of one CEA-608 pair (SMPTE ST 334-1)
constexpr size_t kPairBytes = 3;
constexpr std::array<uint8_t, 2> kIdentifier{0x96, 0x69}; // begins a CDP (SMPTE ST 334-2), before its length
constexpr size_t kLengthAt = kHeadWords + 2;

// Bit 8 makes the parity of bits 0 to 8 even, bit 9 is its inverse.
constexpr uint16_t withParity(uint8_t byte)
{
    return static_cast<uint16_t>(byte | (std::popcount(byte) % 2 != 0 ? 0x100 : 0x200));
}

bool hasParity(uint16_t word)
{
    return word == withParity(static_cast<uint8_t>(word));
}

// A copy of the words from a DID on, as far as the packet can reach by its own count or by the CDP's length.
class Look
{
public:
    Look(const Words &words, size_t at, size_t limit)
        : m_ten{words.tenBits()}, m_count{std::min(limit - at, kMostWords)}
    {
        const auto copy = [&](size_t from, size_t end)
        {
            for (size_t index = from; index < std::min(end, m_count); ++index)
                m_words[index] = words[at + index];
        };
        copy(0, kLengthAt + 1);
        if (m_count > kLengthAt)
            copy(kLengthAt + 1,
                 kHeadWords + 1 + std::max({size_t{byte(2)}, size_t{byte(kLengthAt)}, kPairBytes}));
    }

    [[nodiscard]] size_t count() const
    {
        return m_count;
    }
    [[nodiscard]] uint8_t byte(size_t index) const
    {
        return static_cast<uint8_t>(m_words[index]);
    }
    [[nodiscard]] bool isRight(size_t index) const
    {
        return !m_ten || hasParity(m_words[index]);
    }
    void set(size_t index, uint8_t byte)
    {
        m_words[index] = m_ten ? withParity(byte) : byte;
    }
    // The number of bits in which a word differs from the right one.
    [[nodiscard]] int distance(size_t index, uint8_t byte) const
    {
        return std::popcount(static_cast<uint16_t>(m_words[index] ^ (m_ten ? withParity(byte) : byte)));
    }

    // Returns true if all words of a packet with this count exist and are right, and its checksum is right.
    [[nodiscard]] bool isWhole(size_t data) const
    {
        const size_t last = kHeadWords + data;
        if (last >= m_count || !allRight(last))
            return false;
        uint32_t sum = 0;
        for (size_t index = 0; index < last; ++index)
            sum += m_words[index] & 0x1FFu;
        if (!m_ten)
            return static_cast<uint8_t>(sum) == m_words[last];
        const uint32_t low = sum & 0x1FFu;
        return m_words[last] == (low | ((low & 0x100u) != 0 ? 0 : 0x200u));
    }
    // Returns true if the words end with the user data and are right.
    [[nodiscard]] bool isWholeWithoutChecksum(size_t data) const
    {
        return m_count == kHeadWords + data && allRight(m_count);
    }

private:
    [[nodiscard]] bool allRight(size_t end) const
    {
        return !m_ten ||
               std::all_of(m_words.begin(), m_words.begin() + static_cast<ptrdiff_t>(end), hasParity);
    }

    std::array<uint16_t, kMostWords> m_words;
    bool m_ten;
    size_t m_count;
};

// Returns the data count that the content of a caption packet implies, or kUnknown.
constexpr size_t kUnknown = SIZE_MAX;
size_t countInside(const Look &look, uint8_t sdid)
{
    if (sdid == kPair)
        return kPairBytes;
    if (look.count() > kLengthAt && look.byte(kHeadWords) == kIdentifier[0] &&
        look.byte(kHeadWords + 1) == kIdentifier[1])
        return look.byte(kLengthAt);
    return kUnknown;
}

// Returns true if enough of the content is right to accept a damaged packet as one.
bool hasMarks(const Look &look, uint8_t sdid)
{
    const uint8_t data = look.byte(2);
    if (sdid == kPair)
        return data == kPairBytes && look.isRight(2);
    return look.count() > kLengthAt && (look.byte(kHeadWords) == kIdentifier[0] ? 1 : 0) +
                                               (look.byte(kHeadWords + 1) == kIdentifier[1] ? 1 : 0) +
                                               (look.byte(kLengthAt) == data ? 1 : 0) >=
                                           2;
}

bool isWholeAs(const Look &look, size_t data, Trust trust)
{
    return look.isWhole(data) || (trust.checksumMayMiss && look.isWholeWithoutChecksum(data));
}

size_t wordsOf(const Look &look, size_t data)
{
    return std::min(look.count(), kHeadWords + data + 1);
}

// Accepts a packet with one wrong bit in DID or SDID only if all other words are right.
std::optional<Judgement> judgeNear(const Look &look, size_t left, Trust trust)
{
    for (const uint8_t sdid : {kCDP, kPair})
    {
        Look mended = look;
        if (look.distance(0, kCaptionDID) + look.distance(1, sdid) != 1)
            continue;
        mended.set(0, kCaptionDID);
        mended.set(1, sdid);
        const size_t data = look.byte(2);
        const size_t inside = countInside(mended, sdid);
        if (look.isRight(2) && inside == data && mended.isWhole(data))
            return Judgement{Verdict::Damaged, wordsOf(look, data), true};
        // The words that follow decide, if the words up to here allow a packet.
        const bool mayBe = look.isRight(2) && (inside == data || look.count() <= kLengthAt);
        if (!trust.any && mayBe && kHeadWords + data >= left)
            return Judgement{Verdict::Undecided, 0, true};
    }
    return trust.any ? std::nullopt : std::optional<Judgement>{{Verdict::No, 0, false}};
}

Judgement judgeBody(const Look &look, size_t left, std::optional<uint8_t> sdid, Trust trust)
{
    const bool isCaption = sdid.has_value();
    const size_t data = look.byte(2);
    if (isWholeAs(look, data, trust))
        return {Verdict::Whole, wordsOf(look, data), isCaption};
    const size_t inside = isCaption ? countInside(look, *sdid) : kUnknown;
    if (inside != kUnknown && (inside != data || !look.isRight(2)))
    {
        Look mended = look;
        mended.set(2, static_cast<uint8_t>(inside));
        if (isWholeAs(mended, inside, trust))
            return {Verdict::Damaged, wordsOf(look, inside), true};
    }
    if (!trust.placed && !(isCaption && hasMarks(look, *sdid)))
        return {kHeadWords + data < left ? Verdict::No : Verdict::Undecided, 0, isCaption};
    if (!look.isRight(2) && isCaption && left <= kLengthAt)
        return {Verdict::Cut, left, true}; // the CDP's own length may follow
    if (!look.isRight(2) && inside == kUnknown)
        return {Verdict::Damaged, kHeadWords, isCaption}; // the length is unknown
    const size_t length = kHeadWords + (look.isRight(2) ? data : inside) + 1;
    return {length > left ? Verdict::Cut : Verdict::Damaged, std::min(length, left), isCaption};
}
} // namespace

Judgement judge(const Words &words, size_t at, size_t limit, Trust trust)
{
    const size_t left = limit - at;
    const auto isCaption = [&](uint8_t sdid)
    { return words.tenBits() ? words[at + 1] == withParity(sdid) : words[at + 1] == sdid; };
    if (left < 2)
        return {Verdict::Undecided, 0, false};
    const bool did = words.tenBits() ? words[at] == withParity(kCaptionDID) : words[at] == kCaptionDID;
    std::optional<uint8_t> sdid;
    for (const uint8_t known : {kCDP, kPair})
        if (did && isCaption(known))
            sdid = known;
    if (!sdid && !trust.placed)
        return {Verdict::No, 0, false};
    if (left < kHeadWords)
        return {Verdict::Undecided, 0, sdid.has_value()};

    const Look look{words, at, limit};
    if (!sdid)
        if (const auto near = judgeNear(look, left, trust))
            return *near;
    return judgeBody(look, left, sdid, trust);
}

void take(const Words &words, size_t at, size_t taken, Trust trust, KIVCS2CaptionPacket &packet)
{
    uint32_t sum = 0;
    bool parity = true;
    for (size_t index = 0; index < taken; ++index)
    {
        const uint16_t word = words[at + index];
        const size_t data = index > 2 ? packet.m_anc[2] : 255;
        // Bit 8 of the checksum belongs to the sum and is not a parity bit.
        if (words.tenBits() && index == kHeadWords + data)
        {
            parity = parity && (word >> 9 & 1) != (word >> 8 & 1);
            if ((word & 0x1FF) != (sum & 0x1FF))
                packet.m_faults |= faultBit(KIVCS2CaptionFault_PacketChecksum);
        }
        else if (words.tenBits())
            parity = parity && hasParity(word);
        sum += word & 0x1FFu;
        packet.m_anc[index] = static_cast<uint8_t>(word);
    }
    if (!parity)
        packet.m_faults |= faultBit(KIVCS2CaptionFault_WordParity);
    if (trust.checksumMayMiss && taken >= kHeadWords && taken == kHeadWords + packet.m_anc[2])
        packet.m_anc[taken++] = static_cast<uint8_t>(sum);
    packet.m_size = static_cast<uint16_t>(taken);
}

size_t makeWords(const KIVCS2CaptionPacket &packet, bool tenBits, PacketWords &words)
{
    const size_t data = packet.m_anc[2];
    if (packet.m_size != kHeadWords + data && packet.m_size != kHeadWords + data + 1)
        return 0;
    uint32_t sum = 0;
    for (size_t index = 0; index < kHeadWords + data; ++index)
    {
        words[index] = tenBits ? withParity(packet.m_anc[index]) : packet.m_anc[index];
        sum += words[index] & 0x1FFu;
    }
    const uint32_t low = sum & (tenBits ? 0x1FFu : 0xFFu);
    words[kHeadWords + data] = static_cast<uint16_t>(low | (tenBits && (low & 0x100u) == 0 ? 0x200u : 0));
    return kHeadWords + data + 1;
}
} // namespace kiv::carriers
