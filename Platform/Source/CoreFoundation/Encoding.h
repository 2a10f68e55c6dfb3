// The codec: UTF-16 units (8 bits each if all are ASCII) from and to bytes. Reading is strict.
#ifndef KIV_PLATFORM_ENCODING_H
#define KIV_PLATFORM_ENCODING_H

#include <CoreFoundation/CFString.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace kiv::text
{
// The units of a string: bytes while all of them are ASCII, else 16 bits each.
struct Units
{
    const uint8_t *narrow = nullptr; // one of the two is set
    const char16_t *wide = nullptr;
    size_t length = 0;

    [[nodiscard]] char16_t operator[](size_t index) const noexcept
    {
        return narrow != nullptr ? narrow[index] : wide[index];
    }
    [[nodiscard]] Units part(size_t location, size_t count) const noexcept
    {
        return narrow != nullptr ? Units{narrow + location, nullptr, count}
                                 : Units{nullptr, wide + location, count};
    }
};

// A code point and how many units it took; a lone surrogate is its own code point.
struct Character
{
    char32_t code;
    size_t units;
};

[[nodiscard]] constexpr bool isSurrogate(char32_t code) noexcept
{
    return code >= 0xd800 && code <= 0xdfff;
}
[[nodiscard]] constexpr bool isHighSurrogate(char32_t unit) noexcept
{
    return (unit & 0xfffffc00) == 0xd800;
}
[[nodiscard]] constexpr bool isLowSurrogate(char32_t unit) noexcept
{
    return (unit & 0xfffffc00) == 0xdc00;
}

[[nodiscard]] inline Character characterAt(const Units &units, size_t index) noexcept
{
    const char32_t unit = units[index];
    if (isHighSurrogate(unit) && index + 1 < units.length && isLowSurrogate(units[index + 1]))
        return {0x10000 + ((unit & 0x3ff) << 10) + (units[index + 1] & 0x3ffu), 2};
    return {unit, 1};
}

// The number of bytes at the start that are below 0x80, and whether all units are.
[[nodiscard]] size_t asciiPrefix(std::span<const uint8_t> bytes) noexcept;
[[nodiscard]] bool isAscii(std::span<const char16_t> units) noexcept;

// Copies ASCII bytes to 16-bit units.
void widen(std::span<const uint8_t> ascii, char16_t *out) noexcept;

// UTF-8 to UTF-16; `out` has room for utf16Bound() units. The number of units written, or nothing for
// malformed bytes (Unicode, table 3-7).
[[nodiscard]] std::optional<size_t> utf16FromUtf8(std::span<const uint8_t> bytes, char16_t *out) noexcept;

// The same for any encoding that decodes to more than a copy of ASCII.
[[nodiscard]] std::optional<size_t> decode(std::span<const uint8_t> bytes, CFStringEncoding encoding,
                                           char16_t *out) noexcept;

// The number of units that well-formed `bytes` decode to; decode() never writes more.
[[nodiscard]] size_t utf16Bound(std::span<const uint8_t> bytes, CFStringEncoding encoding) noexcept;

// The most bytes of one unit in `encoding`, or 0 for an unknown encoding.
[[nodiscard]] size_t maximumBytesPerUnit(CFStringEncoding encoding) noexcept;

struct Encoded
{
    size_t units; // converted
    size_t bytes; // written for them
};

// Converts from the start until the encoding lacks a character (unless `lossByte` replaces it) or the room is
// full. A null `out` measures, without limit. The encoding must be known.
[[nodiscard]] Encoded encode(const Units &units, CFStringEncoding encoding, uint8_t lossByte, uint8_t *out,
                             size_t room) noexcept;

// Plain loops with the same results as the vector code; for tests, and for machines without vectors.
[[nodiscard]] size_t asciiPrefixPortable(std::span<const uint8_t> bytes) noexcept;
void widenPortable(std::span<const uint8_t> ascii, char16_t *out) noexcept;
} // namespace kiv::text

#endif
