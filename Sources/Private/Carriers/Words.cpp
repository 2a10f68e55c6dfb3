// Ancillary data words in their packing: single words, and the search for a data flag or a DID among many.
#include "Private/Carriers/Words.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kiv::carriers
{
namespace
{
constexpr uint16_t kTenBits = 0x3FF;
constexpr size_t kGroup = 16; // bytes after which v210 repeats: 12 samples
constexpr size_t kBlock = 64; // bytes that are checked together

bool is210(Packing packing)
{
    return packing == Packing::Luma210 || packing == Packing::Chroma210 || packing == Packing::Both210;
}

uint32_t little32(const uint8_t *bytes)
{
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

uint32_t big32(const uint8_t *bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

size_t sampleOfWord(Packing packing, size_t index)
{
    return packing == Packing::Both210 ? index : 2 * index + (packing == Packing::Luma210 ? 1 : 0);
}

// Both kinds of search skip 64 bytes at once as long as no word in them can be the wanted one. Every
// processor that the library supports has vectors of 16 bytes.
using Vector16 = uint16_t __attribute__((vector_size(16)));
using Vector32 = uint32_t __attribute__((vector_size(16)));

template <typename Vector>
bool any(const Vector &hits)
{
    std::array<uint64_t, 2> halves;
    std::memcpy(halves.data(), &hits, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

template <typename Vector>
Vector load(const uint8_t *bytes)
{
    Vector vector;
    std::memcpy(&vector, bytes, sizeof vector);
    return vector;
}

// Returns a 16-bit number with the same bytes in memory as a unit with this word.
uint16_t asUnit(Packing packing, uint16_t word)
{
    const std::array<uint8_t, 2> big{static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)};
    const std::array<uint8_t, 2> little{big[1], big[0]};
    uint16_t unit = 0;
    std::memcpy(&unit, (packing == Packing::Big16 ? big : little).data(), sizeof unit);
    return unit;
}

// Returns the start of the first block from `at` on that has a unit of this word; otherwise the place after
// the last whole block.
size_t passUnits(Packing packing, std::span<const uint8_t> bytes, size_t at, uint16_t word)
{
    const Vector16 mask = Vector16{} + asUnit(packing, kTenBits);
    const Vector16 value = Vector16{} + asUnit(packing, word);
    for (; bytes.size() - at >= kBlock; at += kBlock)
    {
        auto hits = (load<Vector16>(&bytes[at]) & mask) == value;
        for (size_t next = sizeof(Vector16); next < kBlock; next += sizeof(Vector16))
            hits |= (load<Vector16>(&bytes[at + next]) & mask) == value;
        if (any(hits))
            break;
    }
    return at;
}

// If two neighbouring words of a channel are 3FF, one of them is at one of these samples of a group. A 32-bit
// word without such a sample gets a value that no masked word has, so its comparison fails.
struct Samples
{
    Vector32 mask, value;
};
constexpr uint32_t sampleAt(uint32_t place)
{
    return uint32_t{kTenBits} << 10 * place;
}
constexpr uint32_t kNone = 1; // a value that no masked 32-bit word has
constexpr Samples kLuma{{0, sampleAt(0), sampleAt(1), sampleAt(2)},
                        {kNone, sampleAt(0), sampleAt(1), sampleAt(2)}}; // samples 3, 7 and 11
constexpr Samples kChroma{{sampleAt(2), 0, sampleAt(0), sampleAt(1)},
                          {sampleAt(2), kNone, sampleAt(0), sampleAt(1)}}; // samples 2, 6 and 10
constexpr Samples kOdd{{sampleAt(1), sampleAt(0), sampleAt(1), sampleAt(0)},
                       {sampleAt(1), sampleAt(0), sampleAt(1), sampleAt(0)}}; // samples 1, 3, 7 and 9
constexpr Samples kOddRest{{0, sampleAt(2), 0, sampleAt(2)},
                           {kNone, sampleAt(2), kNone, sampleAt(2)}}; // samples 5 and 11

template <bool Both>
size_t passGroups(std::span<const uint8_t> bytes, size_t at, const Samples &samples)
{
    for (; bytes.size() - at >= kBlock; at += kBlock)
    {
        auto hits = Vector32{} != Vector32{};
        for (size_t group = 0; group < kBlock; group += kGroup)
        {
            const auto four = load<Vector32>(&bytes[at + group]);
            hits |= (four & samples.mask) == samples.value;
            if constexpr (Both)
                hits |= (four & kOddRest.mask) == kOddRest.value;
        }
        if (any(hits))
            break;
    }
    return at;
}
} // namespace

Words::Words(Packing packing, std::span<const uint8_t> bytes) : m_bytes{bytes}, m_packing{packing}
{
    const size_t samples = bytes.size() / 4 * 3;
    switch (packing)
    {
    case Packing::Bytes:
        m_count = bytes.size();
        break;
    case Packing::Big16:
    case Packing::Little16:
        m_count = bytes.size() / 2;
        break;
    case Packing::Luma210:
        m_count = samples / 2;
        break;
    case Packing::Chroma210:
        m_count = (samples + 1) / 2;
        break;
    case Packing::Both210:
    case Packing::Three32:
        m_count = samples;
        break;
    case Packing::Dense:
        m_count = bytes.size() / 5 * 4 + bytes.size() % 5 * 8 / 10;
        break;
    }
}

uint16_t Words::operator[](size_t index) const
{
    const uint8_t *const bytes = m_bytes.data();
    switch (m_packing)
    {
    case Packing::Bytes:
        return bytes[index];
    case Packing::Big16:
        return (bytes[2 * index] << 8 | bytes[2 * index + 1]) & kTenBits;
    case Packing::Little16:
        return (bytes[2 * index + 1] << 8 | bytes[2 * index]) & kTenBits;
    case Packing::Three32:
        return big32(bytes + index / 3 * 4) >> (22 - 10 * (index % 3)) & kTenBits;
    case Packing::Dense:
    {
        const size_t bit = 10 * index;
        return (bytes[bit / 8] << 8 | bytes[bit / 8 + 1]) >> (6 - bit % 8) & kTenBits;
    }
    default:
        break;
    }
    const size_t sample = sampleOfWord(m_packing, index);
    return little32(bytes + sample / 3 * 4) >> 10 * (sample % 3) & kTenBits;
}

size_t Words::byteOf(size_t index) const
{
    size_t byte = index;
    if (m_packing == Packing::Big16 || m_packing == Packing::Little16)
        byte = 2 * index;
    else if (is210(m_packing))
    {
        // A sample begins in byte 0, 1 or 2 of its four bytes.
        const size_t sample = sampleOfWord(m_packing, index);
        byte = sample / 3 * 4 + sample % 3;
    }
    return std::min(byte, m_bytes.size());
}

size_t Words::indexAt(size_t byte) const
{
    size_t index = byte;
    if (m_packing == Packing::Big16 || m_packing == Packing::Little16)
        index = (byte + 1) / 2;
    else if (is210(m_packing))
    {
        const size_t sample = byte / 4 * 3 + byte % 4;
        index = m_packing == Packing::Both210   ? sample
                : m_packing == Packing::Luma210 ? sample / 2
                                                : (sample + 1) / 2;
    }
    return std::min(index, m_count);
}

// Returns the first word from `from` on that may begin a data flag; checks only whole blocks.
size_t Words::mayBegin(size_t from) const
{
    size_t block = byteOf(from);
    if (!is210(m_packing))
        block = passUnits(m_packing, m_bytes, block, kTenBits);
    else
    {
        block = block / kGroup * kGroup;
        if (m_packing == Packing::Both210)
            block = passGroups<true>(m_bytes, block, kOdd);
        else
            block = passGroups<false>(m_bytes, block, m_packing == Packing::Luma210 ? kLuma : kChroma);
    }
    // The word that was found may be the last of the flag.
    const size_t seen = indexAt(block);
    return std::max(from, seen - std::min<size_t>(seen, kFlagWords - 1));
}

Words::Flag Words::findFlag(size_t from) const
{
    if (m_packing == Packing::Bytes)
        return findByteFlag(from);
    constexpr size_t kStep = kBlock / 2; // at least the words of a block
    size_t at = from;
    while (at + kFlagWords <= m_count)
    {
        at = mayBegin(at);
        const size_t end = std::min(at + kStep, m_count - std::min(m_count, kFlagWords - 1));
        for (; at < end; ++at)
            if ((*this)[at + 1] == kTenBits && (*this)[at + 2] == kTenBits && (*this)[at] == 0)
                return {at, true};
    }
    at = std::max(from, m_count - std::min(m_count, kFlagWords - 1));
    while (at < m_count && ((*this)[at] != 0 || (at + 1 < m_count && (*this)[at + 1] != kTenBits)))
        ++at;
    return {at, false};
}

Words::Flag Words::findByteFlag(size_t from) const
{
    constexpr std::array<uint8_t, kFlagWords> kFlag{0xFF, 0xA0, 0x09};
    for (size_t at = from; (at = findWord(at, kFlag[0])) < m_count; ++at)
    {
        const size_t there = std::min(kFlagWords, m_count - at);
        if (std::equal(kFlag.begin(), kFlag.begin() + there, &m_bytes[at]))
            return {at, there == kFlagWords};
    }
    return {m_count, false};
}

size_t Words::findWord(size_t from, uint16_t value) const
{
    if (from >= m_count)
        return m_count;
    if (m_packing == Packing::Bytes)
    {
        const void *const found = std::memchr(&m_bytes[from], value, m_count - from);
        return found == nullptr ? m_count
                                : static_cast<size_t>(static_cast<const uint8_t *>(found) - m_bytes.data());
    }
    size_t at = passUnits(m_packing, m_bytes, 2 * from, value) / 2;
    while (at < m_count && (*this)[at] != value)
        ++at;
    return at;
}

size_t bytesFor(Packing packing, size_t count)
{
    switch (packing)
    {
    case Packing::Bytes:
        return count;
    case Packing::Big16:
    case Packing::Little16:
        return 2 * count;
    case Packing::Dense:
        return (10 * count + 7) / 8;
    case Packing::Three32:
        return (count + 2) / 3 * 4;
    default:
        return count == 0 ? 0 : sampleOfWord(packing, count - 1) / 3 * 4 + 4;
    }
}

void putWord(Packing packing, std::span<uint8_t> bytes, size_t index, uint16_t word)
{
    // Position of the word's highest bit in its bytes, which are read as one big-endian number.
    const auto put = [&](size_t at, size_t size, size_t shift)
    {
        uint32_t whole = 0;
        for (size_t byte = 0; byte < size; ++byte)
            whole = whole << 8 | bytes[at + byte];
        whole = (whole & ~(uint32_t{kTenBits} << shift)) | static_cast<uint32_t>(word) << shift;
        for (size_t byte = size; byte-- > 0; whole >>= 8)
            bytes[at + byte] = static_cast<uint8_t>(whole);
    };
    switch (packing)
    {
    case Packing::Bytes:
        bytes[index] = static_cast<uint8_t>(word);
        return;
    case Packing::Big16:
        return put(2 * index, 2, 0);
    case Packing::Little16:
        bytes[2 * index] = static_cast<uint8_t>(word);
        bytes[2 * index + 1] = static_cast<uint8_t>(word >> 8);
        return;
    case Packing::Dense:
        return put(10 * index / 8, 2, 6 - 10 * index % 8);
    case Packing::Three32:
        return put(index / 3 * 4, 4, 22 - 10 * (index % 3));
    default:
        break;
    }
    const size_t sample = sampleOfWord(packing, index);
    uint8_t *const four = &bytes[sample / 3 * 4];
    const size_t shift = 10 * (sample % 3);
    const uint32_t whole = (little32(four) & ~(uint32_t{kTenBits} << shift)) | static_cast<uint32_t>(word)
                                                                                   << shift;
    for (size_t byte = 0; byte < 4; ++byte)
        four[byte] = static_cast<uint8_t>(whole >> 8 * byte);
}
} // namespace kiv::carriers
