// The texts in which Linux describes the machine: /proc, /sys, os-release(5), machine-info(5).
#include "System/SystemText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

namespace kiv::system
{
namespace
{
constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();

// Removes the first line from `text` and returns it without its end; empty if no text is left.
std::optional<std::string_view> takeLine(std::string_view &text) noexcept
{
    if (text.empty())
        return std::nullopt;
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

bool isBlank(char character) noexcept
{
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

std::string_view trimmed(std::string_view text) noexcept
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Removes a decimal number from the front.
std::optional<uint64_t> takeNumber(std::string_view &text) noexcept
{
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{})
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return value;
}

bool take(std::string_view &text, std::string_view start) noexcept
{
    const bool starts = text.starts_with(start);
    if (starts)
        text.remove_prefix(start.size());
    return starts;
}

// "   21462436 kB" in bytes.
std::optional<uint64_t> parseKilobytes(std::string_view text) noexcept
{
    text = trimmed(text);
    const auto number = takeNumber(text);
    if (!number || text != " kB" || *number > kMost / 1024)
        return std::nullopt;
    return *number * 1024;
}

enum Kind : size_t
{
    kTotal,
    kFree,
    kInactive,
    kActive,
    kUnevictable,
    kSlabs,
    kStacks,
    kTables,
    kKinds
};
constexpr size_t kNeeded = kUnevictable; // every kernel reports the kinds before this one
constexpr std::string_view kKindNames[kKinds] = {
    "MemTotal:",    "MemFree:",    "Inactive:",    "Active:",
    "Unevictable:", "SUnreclaim:", "KernelStack:", "PageTables:",
};

// Reads a value in shell quotes: in double quotes a backslash escapes the next character, in single quotes no
// character is special. `value` begins after the opening quote.
std::optional<size_t> unquote(std::string_view value, char quote, std::span<char> room) noexcept
{
    size_t length = 0;
    for (size_t at = 0; at < value.size(); ++at)
    {
        char character = value[at];
        if (character == quote)
            return trimmed(value.substr(at + 1)).empty() ? std::optional{length} : std::nullopt;
        if (character == '\\' && quote == '"' && ++at < value.size())
            character = value[at];
        if (length == room.size())
            return std::nullopt;
        room[length++] = character;
    }
    return std::nullopt; // no closing quote
}

std::optional<size_t> copyPlain(std::string_view value, std::span<char> room) noexcept
{
    value = trimmed(value);
    const bool isPlain = value.find_first_of(" \t\"'\\$`") == std::string_view::npos;
    if (!isPlain || value.size() > room.size())
        return std::nullopt;
    std::ranges::copy(value, room.begin());
    return value.size();
}

bool isControl(char character) noexcept
{
    return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
}

std::optional<std::string_view> readValue(std::string_view value, std::span<char> room) noexcept
{
    const bool isQuoted = value.starts_with('"') || value.starts_with('\'');
    const auto length = isQuoted ? unquote(value.substr(1), value.front(), room) : copyPlain(value, room);
    if (!length || *length == 0)
        return std::nullopt;
    const std::string_view result{room.data(), *length};
    return std::ranges::any_of(result, isControl) ? std::nullopt : std::optional{result};
}
} // namespace

std::optional<Memory> parseMemory(std::string_view meminfo) noexcept
{
    std::optional<uint64_t> bytes[kKinds];
    while (auto line = takeLine(meminfo))
        for (size_t kind = 0; kind < kKinds; ++kind)
            if (take(*line, kKindNames[kind]))
            {
                bytes[kind] = parseKilobytes(*line);
                if (!bytes[kind])
                    return std::nullopt;
                break;
            }
    if (!std::all_of(bytes, bytes + kNeeded, [](const auto &value) { return value.has_value(); }))
        return std::nullopt;

    Memory memory{*bytes[kTotal], *bytes[kFree], *bytes[kInactive], *bytes[kActive], 0};
    for (const Kind kind : {kUnevictable, kSlabs, kStacks, kTables})
    {
        const uint64_t more = bytes[kind].value_or(0);
        if (more > kMost - memory.wired)
            return std::nullopt;
        memory.wired += more;
    }
    return memory;
}

std::optional<ProcessPages> parseProcessPages(std::string_view statm) noexcept
{
    const auto mapped = takeNumber(statm);
    if (!mapped || !take(statm, " "))
        return std::nullopt;
    const auto resident = takeNumber(statm);
    if (!resident || !take(statm, " ")) // more numbers must follow; otherwise the line is cut
        return std::nullopt;
    return ProcessPages{*mapped, *resident};
}

uint64_t parseProcessorClock(std::string_view cpuinfo) noexcept
{
    constexpr double kHighest = 1e6; // MHz; no processor comes near
    double highest = 0;
    while (auto line = takeLine(cpuinfo))
    {
        if (!take(*line, "cpu MHz"))
            continue;
        const size_t colon = line->find(':');
        if (colon == std::string_view::npos)
            continue;
        const std::string_view text = trimmed(line->substr(colon + 1));
        double value = 0;
        const auto [end, error] =
            std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
        if (error == std::errc{} && end == text.data() + text.size() && value <= kHighest)
            highest = std::max(highest, value);
    }
    return static_cast<uint64_t>(std::llround(highest * 1e6));
}

std::optional<uint64_t> parseNumber(std::string_view text) noexcept
{
    const auto number = takeNumber(text);
    return number && trimmed(text).empty() ? number : std::nullopt;
}

uint64_t countProcessors(std::string_view list) noexcept
{
    constexpr uint64_t kHighest = 1u << 20; // far above any kernel's limit
    list = trimmed(list);
    uint64_t count = 0;
    uint64_t next = 0; // the lowest number that may follow
    do
    {
        const auto first = takeNumber(list);
        const auto last = first && take(list, "-") ? takeNumber(list) : first;
        if (!last || *first < next || *last < *first || *last > kHighest)
            return 0;
        count += *last - *first + 1;
        next = *last + 1;
    } while (take(list, ","));
    return list.empty() ? count : 0;
}

std::optional<std::string_view> findAssignment(std::string_view text, std::string_view name,
                                               std::span<char> room) noexcept
{
    std::optional<std::string_view> value;
    while (auto line = takeLine(text))
    {
        std::string_view rest = trimmed(*line);
        if (take(rest, name) && take(rest, "="))
            value = readValue(rest, room);
    }
    return value;
}

Version parseVersion(std::string_view text) noexcept
{
    Version version{};
    for (uint32_t &number : version.numbers)
    {
        const auto value = takeNumber(text);
        if (!value)
            break;
        number = static_cast<uint32_t>(std::min<uint64_t>(*value, std::numeric_limits<uint32_t>::max()));
        if (!take(text, "."))
            break;
    }
    return version;
}
} // namespace kiv::system
