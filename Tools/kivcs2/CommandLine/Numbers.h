// Numbers as people write them on a command line; one set of rules for all words.
#ifndef KIV_TOOL_NUMBERS_H
#define KIV_TOOL_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace tool
{

/// Decimal digits, or 0x and hexadecimal ones. Empty for a sign, for text after the digits, and for more
/// than 64 bits.
[[nodiscard]] std::optional<uint64_t> wholeNumber(std::string_view text);

/// The same with an optional sign, within 64 bits.
[[nodiscard]] std::optional<int64_t> signedNumber(std::string_view text);

/// Hexadecimal digits, with or without 0x.
[[nodiscard]] std::optional<uint64_t> hexadecimalNumber(std::string_view text);

/// A finite number such as "-1.5" or "2e3". Empty for "nan", "inf", an overflow, and text after the
/// number.
[[nodiscard]] std::optional<double> realNumber(std::string_view text);

/// A number of bytes such as "188", "64k", "4M" or "1GiB", in powers of 1024. Empty for more than 64 bits.
[[nodiscard]] std::optional<uint64_t> byteNumber(std::string_view text);

} // namespace tool

#endif
