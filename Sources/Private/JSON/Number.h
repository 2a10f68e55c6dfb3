// Numbers as printf writes them in the C locale, whatever the locale of the process.
#ifndef KIV_PRIVATE_JSON_NUMBER_H
#define KIV_PRIVATE_JSON_NUMBER_H

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <limits>
#include <string_view>

namespace kiv::json
{
// The longest is "%f" of the smallest double: a sign, 309 digits, the point and 6 digits.
using NumberText = std::array<char, 1 + std::numeric_limits<double>::max_exponent10 + 1 + 1 + 6>;

// Returns the text of a number by its type, in `buffer` or constant; empty for a type without a format.
[[nodiscard]] std::string_view textOf(CFNumberRef number, NumberText &buffer) noexcept;

// "%f": exact, rounded to even at a tie.
[[nodiscard]] std::string_view fixedText(double value, NumberText &buffer) noexcept;
// The same only by the standard library, for values out of the quick way's range, and for tests.
[[nodiscard]] std::string_view fixedTextPortable(double value, NumberText &buffer) noexcept;
} // namespace kiv::json

#endif
