// CRC-32 with the reflected polynomial 0xEDB88320 (IEEE 802.3), by the machine's fastest means.
#ifndef KIV_PRIVATE_SUPPORT_CRC32_H
#define KIV_PRIVATE_SUPPORT_CRC32_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace kiv
{
using Crc32Table = std::array<uint32_t, 256>;

inline constexpr uint32_t kCrc32Polynomial = 0xEDB88320u;

// The byte-wise table: entry n is n carried over eight bits.
[[nodiscard]] constexpr Crc32Table makeCrc32Table() noexcept
{
    Crc32Table table{};
    for (uint32_t n = 0; n < table.size(); ++n)
    {
        uint32_t c = n;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1u) != 0 ? (c >> 1) ^ kCrc32Polynomial : c >> 1;
        table[n] = c;
    }
    return table;
}

// Carries `crc` over `length` bytes; no inversion.
using Crc32Update = uint32_t (*)(uint32_t crc, const uint8_t *data, size_t length) noexcept;

// The implementations, slowest first. Only those that the machine offers may be called.
enum class Crc32Kind
{
    portable,   // slicing by eight
    pclmul,     // 128-bit carry-less multiply
    vpclmul512, // 512-bit carry-less multiply
    // Of arm64, with the numbers of the kinds above, so that a loop over all kinds reaches them.
    crc32 = pclmul,     // CRC instructions
    pmull = vpclmul512, // 128-bit carry-less multiply, then CRC instructions
};

// The best kind of this machine.
[[nodiscard]] Crc32Kind crc32Kind() noexcept;
// The update of one kind.
[[nodiscard]] Crc32Update crc32UpdateOf(Crc32Kind kind) noexcept;
// The update of this machine.
[[nodiscard]] uint32_t crc32Update(uint32_t crc, const uint8_t *data, size_t length) noexcept;
} // namespace kiv

#endif
