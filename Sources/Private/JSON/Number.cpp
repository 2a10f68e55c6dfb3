// Numbers: one table row for each type, and "%f" by integer arithmetic if its digits fit 64 bits.
#include "Private/JSON/Number.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace
{
using kiv::json::NumberText;

enum class Format : uint8_t
{
    none,
    integer,             // "%hhi", "%hi", "%i", "%li", "%lli": a value prints the same with each of them
    characterWithLetter, // "%hhui"
    fixed,               // "%f"
};

constexpr std::array<Format, kCFNumberMaxType + 1> kFormats = {{
    Format::none,                // no type has the value 0
    Format::integer,             // SInt8     "%hhi"
    Format::integer,             // SInt16    "%hi"
    Format::integer,             // SInt32    "%i"
    Format::integer,             // SInt64    "%lli"
    Format::fixed,               // Float32   "%f"
    Format::fixed,               // Float64   "%f"
    Format::characterWithLetter, // Char      "%hhui"
    Format::integer,             // Short     "%hi"
    Format::integer,             // Int       "%i"
    Format::integer,             // Long      "%li"
    Format::integer,             // LongLong  "%lli"
    Format::fixed,               // Float     "%f"
    Format::fixed,               // Double    "%f"
    Format::integer,             // CFIndex   "%li"
    Format::integer,             // NSInteger "%li"
    Format::fixed,               // CGFloat   "%f"
}};

constexpr int kDecimals = 6;
constexpr uint64_t kMillion = 1000000;

// IEEE 754 binary64.
constexpr int kMantissaBits = 52;
constexpr int kExponentOfOne = 1023;
constexpr uint64_t kExponentMask = 0x7ff;
constexpr uint64_t kHiddenBit = uint64_t{1} << kMantissaBits;

template <class Number>
std::string_view integerText(Number value, NumberText &buffer) noexcept
{
    const char *end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    return {buffer.data(), static_cast<size_t>(end - buffer.data())};
}

Format formatOf(CFNumberType type) noexcept
{
    return type >= 0 && type <= kCFNumberMaxType ? kFormats[static_cast<size_t>(type)] : Format::none;
}
} // namespace

std::string_view kiv::json::fixedTextPortable(double value, NumberText &buffer) noexcept
{
    const char *end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                    std::chars_format::fixed, kDecimals)
                          .ptr;
    return {buffer.data(), static_cast<size_t>(end - buffer.data())};
}

std::string_view kiv::json::fixedText(double value, NumberText &buffer) noexcept
{
    // value = mantissa / 2^shift. With 1 to 63 binary places the fraction, multiplied by a million, fits 128
    // bits. So the part cut off is known to the last bit and a tie is recognised as one.
    const auto bits = std::bit_cast<uint64_t>(value);
    const int shift =
        kExponentOfOne + kMantissaBits - static_cast<int>(bits >> kMantissaBits & kExponentMask);
    if (shift < 1 || shift > 63) [[unlikely]]
        return fixedTextPortable(value, buffer);

    const uint64_t mantissa = (bits & (kHiddenBit - 1)) | kHiddenBit;
    const uint64_t behindPoint = mantissa & ((uint64_t{1} << shift) - 1);
    const auto scaled = static_cast<unsigned __int128>(behindPoint) * kMillion;
    auto decimals = static_cast<uint64_t>(scaled >> shift);
    const uint64_t cutOff = static_cast<uint64_t>(scaled) & ((uint64_t{1} << shift) - 1);
    const uint64_t half = uint64_t{1} << (shift - 1);
    if (cutOff > half || (cutOff == half && decimals % 2 != 0))
        ++decimals;
    uint64_t whole = shift <= kMantissaBits ? mantissa >> shift : 0;
    if (decimals == kMillion)
    {
        ++whole;
        decimals = 0;
    }

    char *at = buffer.data();
    if (std::signbit(value))
        *at++ = '-';
    at = std::to_chars(at, buffer.data() + buffer.size(), whole).ptr;
    *at = '.';
    for (int place = kDecimals; place > 0; --place)
    {
        at[place] = static_cast<char>('0' + decimals % 10);
        decimals /= 10;
    }
    return {buffer.data(), static_cast<size_t>(at + 1 + kDecimals - buffer.data())};
}

std::string_view kiv::json::textOf(CFNumberRef number, NumberText &buffer) noexcept
{
    int64_t integer = 0;
    double real = 0;
    switch (formatOf(CFNumberGetType(number)))
    {
    case Format::integer:
        CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
        return integerText(integer, buffer);
    case Format::characterWithLetter:
    {
        CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
        // Kept: the letter of a format that was meant to be "%hhu" or "%hhi".
        const std::string_view digits = integerText(static_cast<uint8_t>(integer), buffer);
        buffer[digits.size()] = 'i';
        return {digits.data(), digits.size() + 1};
    }
    case Format::fixed:
        CFNumberGetValue(number, kCFNumberFloat64Type, &real);
        return fixedText(real, buffer);
    case Format::none:
        break;
    }
    return {};
}
