// The codec: UTF-16 units (8 bits each where all are ASCII) from and to bytes. Strict in reading.
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

// How many bytes at the start are below 0x80, and how many units.
[[nodiscard]] size_t asciiPrefix(std::span<const uint8_t> bytes) noexcept;
[[nodiscard]] bool isAscii(std::span<const char16_t> units) noexcept;

// Copies ASCII bytes to 16-bit units.
void widen(std::span<const uint8_t> ascii, char16_t *out) noexcept;

// UTF-8 to UTF-16; `out` has room for utf16Bound() units. The units written, or nothing when the
// bytes are not well formed (Unicode, table 3-7).
[[nodiscard]] std::optional<size_t> utf16FromUtf8(std::span<const uint8_t> bytes, char16_t *out) noexcept;

// The same for any encoding that decodes to more than a copy of ASCII.
[[nodiscard]] std::optional<size_t> decode(std::span<const uint8_t> bytes, CFStringEncoding encoding,
                                           char16_t *out) noexcept;

// The units that `bytes` decode to when they are well formed, and a bound for what decode() writes
// in any case.
[[nodiscard]] size_t utf16Bound(std::span<const uint8_t> bytes, CFStringEncoding encoding) noexcept;

// Bytes one unit can take at most in `encoding`, or 0 for an unknown one.
[[nodiscard]] size_t maximumBytesPerUnit(CFStringEncoding encoding) noexcept;

struct Encoded
{
    size_t units; // converted
    size_t bytes; // that they took
};

// Converts from the start until a character has no form (unless `lossByte` stands for it) or no
// room. A null `out` measures, without limit. The encoding is a known one.
[[nodiscard]] Encoded encode(const Units &units, CFStringEncoding encoding, uint8_t lossByte, uint8_t *out,
                             size_t room) noexcept;

// The plain loops that the vector code must equal; for tests, and for machines without vectors.
[[nodiscard]] size_t asciiPrefixPortable(std::span<const uint8_t> bytes) noexcept;
void widenPortable(std::span<const uint8_t> ascii, char16_t *out) noexcept;
} // namespace kiv::text

#endif
