// Reads numbers by std::from_chars: the whole text or nothing.
#include "CommandLine/Numbers.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace tool
{
namespace
{

// std::from_chars, if it took the whole text; it accepts no "+" and skips no blanks.
template <class Number, class... Base>
std::optional<Number> read(std::string_view text, Base... base)
{
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base...);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool isHexadecimal(std::string_view text)
{
    return text.starts_with("0x") || text.starts_with("0X");
}

} // namespace

std::optional<uint64_t> wholeNumber(std::string_view text)
{
    return isHexadecimal(text) ? read<uint64_t>(text.substr(2), 16) : read<uint64_t>(text, 10);
}

std::optional<int64_t> signedNumber(std::string_view text)
{
    return read<int64_t>(text, 10);
}

std::optional<uint64_t> hexadecimalNumber(std::string_view text)
{
    return read<uint64_t>(isHexadecimal(text) ? text.substr(2) : text, 16);
}

std::optional<double> realNumber(std::string_view text)
{
    const auto value = read<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<uint64_t> byteNumber(std::string_view text)
{
    constexpr std::string_view kUnits = "kmgtpe";
    const auto lower = [](char letter)
    { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; };
    const bool isPlain = isHexadecimal(text); // hexadecimal digits may be letters
    if (!isPlain && !text.empty() && lower(text.back()) == 'b')
        text.remove_suffix(1);
    if (!isPlain && text.size() > 1 && lower(text.back()) == 'i')
        text.remove_suffix(1);
    unsigned shift = 0;
    if (!isPlain && !text.empty())
        if (const size_t unit = kUnits.find(lower(text.back())); unit != std::string_view::npos)
        {
            shift = 10 * (static_cast<unsigned>(unit) + 1);
            text.remove_suffix(1);
        }
    const auto number = wholeNumber(text);
    if (!number || *number > std::numeric_limits<uint64_t>::max() >> shift)
        return std::nullopt;
    return *number << shift;
}

} // namespace tool
