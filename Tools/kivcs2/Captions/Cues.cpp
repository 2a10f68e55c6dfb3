// The cues of SRT and WebVTT, to compare a file with the captions that it was made from.
#include "Captions/Cues.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <istream>
#include <optional>
#include <utility>

namespace tool
{
namespace
{

struct Times
{
    uint64_t from, until;
};

// Removes "HH:MM:SS,mmm" from the front of `text` and returns it in milliseconds.
std::optional<uint64_t> takeTime(std::string_view &text)
{
    constexpr std::array<std::pair<uint64_t, std::string_view>, 4> kParts = {
        {{3'600'000, ":"}, {60'000, ":"}, {1000, ",."}, {1, ""}}};
    uint64_t time = 0;
    for (const auto &[milliseconds, ends] : kParts)
    {
        uint64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        const bool isEnded = ends.empty() || (!text.empty() && ends.find(text.front()) != ends.npos);
        if (error != std::errc{} || !isEnded)
            return std::nullopt;
        text.remove_prefix(ends.empty() ? 0 : 1);
        time += number * milliseconds;
    }
    return time;
}

std::optional<Times> timesOf(std::string_view line)
{
    constexpr std::string_view kArrow = " --> ";
    const auto from = takeTime(line);
    if (!from || !line.starts_with(kArrow))
        return std::nullopt;
    line.remove_prefix(kArrow.size());
    const auto until = takeTime(line);
    return until ? std::optional<Times>{{*from, *until}} : std::nullopt;
}

// Returns true for the tags of SRT that the library writes. Other tags are text.
bool isTag(std::string_view text)
{
    constexpr std::array<std::string_view, 5> kTags = {"<i>", "</i>", "<u>", "</u>", "</font>"};
    constexpr std::string_view kFont = "<font color=\"#", kPlace = "{\\an";
    return std::ranges::find(kTags, text) != kTags.end() ||
           (text.starts_with(kFont) && text.ends_with("\">") && text.size() == kFont.size() + 8) ||
           (text.starts_with(kPlace) && text.size() == kPlace.size() + 2);
}

// Returns the text without tags. A tag may stand inside text that looks like a tag.
std::string withoutTags(std::string_view text)
{
    std::string plain;
    for (const char character : text)
    {
        plain += character;
        const char opening = character == '>' ? '<' : '{';
        const size_t begin = character == '>' || character == '}' ? plain.rfind(opening) : plain.npos;
        if (begin != plain.npos && isTag(std::string_view{plain}.substr(begin)))
            plain.resize(begin);
    }
    return plain;
}

// Returns WebVTT text without markup: every "<" begins a tag, and the text has escapes.
std::string withoutMarkup(std::string_view text)
{
    constexpr std::array<std::pair<std::string_view, char>, 3> kEscapes = {
        {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}}};
    std::string plain;
    while (!text.empty())
    {
        const auto escape =
            std::ranges::find_if(kEscapes, [&](const auto &row) { return text.starts_with(row.first); });
        const bool isTag = text.front() == '<';
        if (!isTag)
            plain += escape != kEscapes.end() ? escape->second : text.front();
        const size_t size = isTag                      ? text.find('>') + 1 // 0 if it has no end
                            : escape != kEscapes.end() ? escape->first.size()
                                                       : 1;
        text.remove_prefix(size == 0 ? text.size() : size);
    }
    return plain;
}

} // namespace

void Cues::add(uint64_t from, uint64_t until, std::string_view text)
{
    addPlain(from, until, m_isWebVTT ? std::string{text} : withoutTags(text));
}

// Leaves out blanks, which are trimmed in the file, and empty rows.
void Cues::addPlain(uint64_t from, uint64_t until, std::string text)
{
    std::erase_if(text, [](char character) { return character == ' ' || character == '\n'; });
    ++m_number;
    for (const uint64_t number : {from, until, uint64_t{text.size()}})
    {
        const std::array<uint32_t, 2> halves = {static_cast<uint32_t>(number >> 32),
                                                static_cast<uint32_t>(number)};
        m_digest.add(std::span<const uint32_t>{halves});
    }
    m_digest.add({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

void Cues::read(std::istream &file)
{
    std::optional<Times> times;
    std::string text;
    const auto end = [&]
    {
        if (times)
            addPlain(times->from, times->until, m_isWebVTT ? withoutMarkup(text) : withoutTags(text));
        times.reset();
        text.clear();
    };
    for (std::string line; std::getline(file, line);)
        if (line.empty()) // an empty line ends a cue
            end();
        else if (times)
            text += line + '\n';
        else
            times = timesOf(line);
    end();
}

} // namespace tool
