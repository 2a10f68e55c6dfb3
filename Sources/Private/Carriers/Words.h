// Ancillary data words in their packing: single words, and the search for a data flag or a DID among many.
#ifndef KIV_PRIVATE_CARRIERS_WORDS_H
#define KIV_PRIVATE_CARRIERS_WORDS_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace kiv::carriers
{
enum class Packing : uint8_t
{
    Bytes,     // 8 bits
    Big16,     // 10 bits in the low bits of 16, the higher byte first
    Little16,  // as Big16, but the lower byte first
    Luma210,   // every second v210 sample; three samples in 32 bits, little-endian, low bits first
    Chroma210, // the samples between the luma samples
    Both210,   // every v210 sample
    Dense,     // 10 bits without gaps, high bits first (RFC 8331)
    Three32    // three in 32 bits, big-endian, high bits first (SMPTE ST 436-1)
};

constexpr size_t kFlagWords = 3; // the ancillary data flag (SMPTE ST 291-1)

class Words
{
public:
    Words(Packing packing, std::span<const uint8_t> bytes);

    [[nodiscard]] size_t count() const
    {
        return m_count;
    }
    [[nodiscard]] bool tenBits() const
    {
        return m_packing != Packing::Bytes;
    }
    [[nodiscard]] uint16_t operator[](size_t index) const;

    // byteOf() returns the byte in which word `index` begins, at most the size; indexAt() the first word that
    // begins at a byte or later.
    [[nodiscard]] size_t byteOf(size_t index) const;
    [[nodiscard]] size_t indexAt(size_t byte) const;

    // Finds the first data flag from `from` on. If there is no flag, `found` is false, and `at` is a place
    // where the end may have cut off a flag.
    struct Flag
    {
        size_t at;
        bool found;
    };
    [[nodiscard]] Flag findFlag(size_t from) const;

    // Returns the first word with this value from `from` on, or the count. Only for bytes and 16-bit units.
    [[nodiscard]] size_t findWord(size_t from, uint16_t value) const;

private:
    [[nodiscard]] Flag findByteFlag(size_t from) const;
    [[nodiscard]] size_t mayBegin(size_t from) const;
    [[nodiscard]] size_t sampleOf(size_t index) const;

    std::span<const uint8_t> m_bytes;
    Packing m_packing;
    size_t m_count;
};

// Returns the bytes that `count` words need.
[[nodiscard]] size_t bytesFor(Packing packing, size_t count);

// Writes word `index`; other bits in the same bytes are kept.
void putWord(Packing packing, std::span<uint8_t> bytes, size_t index, uint16_t word);
} // namespace kiv::carriers

#endif
