// Numbers: one table row a type, and "%f" by integer arithmetic where its digits fit 64 bits.
#include "Private/JSON_Number.h"

#include <bit>
#include <charconv>
#include <cstdint>

namespace
{
using kiv::json::NumberText;

enum class Format : uint8_t
{
    none,
    integer,             // "%hhi", "%hi", "%i", "%li", "%lli": a value prints alike as any of them
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
    return fixedTextPortable(value, buffer);
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
