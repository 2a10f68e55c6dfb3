// Numbers on the command line: taken as they are written, or refused. The parser's own conversion takes the nearest
// number for one that is too large, octal for a leading 0, and nan and inf for times.
#ifndef KIV_TOOL_NUMBERS_H
#define KIV_TOOL_NUMBERS_H

#include "Output.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool
{

/// The whole text as a number: decimal digits for a whole one, a finite decimal number for a double.
template <class Number>
[[nodiscard]] std::optional<Number> parseNumber(std::string_view text)
{
    Number number{};
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stopped != end || !std::isfinite(static_cast<double>(number)))
        return std::nullopt;
    return number;
}

/// For CLI::Option::transform(): accepts what parseNumber() reads from `least` to `most`; a refusal says that the
/// text is not `what`.
template <class Number>
[[nodiscard]] CLI::Validator numberFrom(Number least, Number most, const std::string &what)
{
    return CLI::Validator{[least, most, what](std::string &text) -> std::string
                          {
                              const std::optional<Number> number = parseNumber<Number>(text);
                              if (!number || *number < least || *number > most)
                                  return "\"" + visible(text) + "\" is not " + what;
                              if constexpr (std::is_integral_v<Number>)
                                  text = std::to_string(*number); // without zeros in front
                              return "";
                          },
                          ""};
}

} // namespace tool

#endif
