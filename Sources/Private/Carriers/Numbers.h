// Big-endian numbers in the headers of carriers, and lengths in steps of 4 bytes.
#ifndef KIV_PRIVATE_CARRIERS_NUMBERS_H
#define KIV_PRIVATE_CARRIERS_NUMBERS_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace kiv::carriers
{
[[nodiscard]] inline uint32_t big(std::span<const uint8_t> bytes, size_t at, size_t size)
{
    uint32_t value = 0;
    for (size_t byte = 0; byte < size; ++byte)
        value = value << 8 | bytes[at + byte];
    return value;
}

// Writes at `at` and moves it past the number.
inline void putBig(std::span<uint8_t> room, size_t &at, size_t size, size_t value)
{
    for (size_t byte = size; byte-- > 0;)
        room[at++] = static_cast<uint8_t>(value >> 8 * byte);
}

[[nodiscard]] constexpr size_t padded(size_t size)
{
    return (size + 3) / 4 * 4;
}
} // namespace kiv::carriers

#endif
