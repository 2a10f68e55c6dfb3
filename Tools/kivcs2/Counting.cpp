// The countings, and timecode text in and out.
#include "Counting.h"

#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <array>

namespace tool
{
namespace
{

// clang-format off
constexpr std::array<Counting, 10> kCountings = {{
    // name      alias       title                               code                   drop   frames a second cdp MCC
    {"23.98",    "23.976", "23.98 frames a second, non-drop",   KIVCS2FrameRate_24,    false, 24000, 1001, 1, "24"},
    {"24",       "",       "24 frames a second, non-drop",      KIVCS2FrameRate_24,    false, 24,    1,    2, "24"},
    {"25",       "",       "25 frames a second, non-drop",      KIVCS2FrameRate_25,    false, 25,    1,    3, "25"},
    {"29.97df",  "30df",   "29.97 frames a second, drop-frame", KIVCS2FrameRate_29_97, true,  30000, 1001, 4, "30DF"},
    {"29.97ndf", "30ndf",  "29.97 frames a second, non-drop",   KIVCS2FrameRate_30,    false, 30000, 1001, 4, "30"},
    {"30",       "",       "30 frames a second, non-drop",      KIVCS2FrameRate_30,    false, 30,    1,    5, "30"},
    {"50",       "",       "50 frames a second, non-drop",      KIVCS2FrameRate_50,    false, 50,    1,    6, "50"},
    {"59.94df",  "60df",   "59.94 frames a second, drop-frame", KIVCS2FrameRate_59_94, true,  60000, 1001, 7, "60DF"},
    {"59.94ndf", "60ndf",  "59.94 frames a second, non-drop",   KIVCS2FrameRate_60,    false, 60000, 1001, 7, "60"},
    {"60",       "",       "60 frames a second, non-drop",      KIVCS2FrameRate_60,    false, 60,    1,    8, "60"},
}};
// clang-format on

constexpr std::array<std::string_view, 9> kCDPRates = {"forbidden", "23.98", "24",    "25", "29.97",
                                                       "30",        "50",    "59.94", "60"};

const Counting *find(std::string_view name)
{
    const auto row = std::ranges::find_if(
        kCountings, [&](const Counting &counting)
        { return counting.name == name || (!counting.alias.empty() && counting.alias == name); });
    return row == kCountings.end() ? nullptr : &*row;
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool areDigits(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, isDigit);
}

[[noreturn]] void refuse(std::string_view text, const char *why)
{
    throw Failure(kExitMalformed, "\"" + visible(text) + "\": " + why);
}

// HH:MM:SS:FF: the library's parser accepts more shapes (two fields, three fields with rules of
// their own) and reads some of them as midnight; a command should not guess.
void checkTime(std::string_view whole, std::string_view time)
{
    int fields = 1, digits = 0;
    for (const char character : time)
    {
        if (isDigit(character))
            ++digits;
        else if ((character == ':' || (character == ';' && fields == 3)) && (digits == 1 || digits == 2))
        {
            ++fields;
            digits = 0;
        }
        else
            refuse(whole, "not a timecode; HH:MM:SS:FF, HH:MM:SS;FF or a number of frames is");
    }
    if (fields != 4 || digits < 1 || digits > 2)
        refuse(whole, "not a timecode; HH:MM:SS:FF, HH:MM:SS;FF or a number of frames is");
}

uint32_t number(std::string_view text)
{
    const auto value = wholeNumber(text);
    return value && *value < UINT32_MAX ? static_cast<uint32_t>(*value) : UINT32_MAX;
}

// day.month.year, one-based. A day that its month does not have is refused here, because the record
// accepts any value that fits its bits.
void checkDate(std::string_view whole, std::string_view date)
{
    const size_t first = date.find('.');
    const size_t last = date.rfind('.');
    if (first == std::string_view::npos || first == last)
        refuse(whole, "not a date; day.month.year is");
    const std::array fields = {date.substr(0, first), date.substr(first + 1, last - first - 1),
                               date.substr(last + 1)};
    if (!std::ranges::all_of(fields, areDigits))
        refuse(whole, "not a date; day.month.year is");

    const uint32_t day = number(fields[0]), month = number(fields[1]), year = number(fields[2]);
    if (day < 1 || day > 31 || month < 1 || month > 12 || year < 1 || year > 9999)
        refuse(whole, "no such date; day.month.year with a year of 1 to 9999 is");
    KIVCS2Timecode probe = (static_cast<uint64_t>(year) << 48) | (static_cast<uint64_t>(month - 1) << 40);
    uint32_t days = 0;
    check(kivCS2Timecode_getDaysInMonth(&probe, &days), "days of the month");
    if (day > days)
        refuse(whole, "no such date: the month is shorter");
}

} // namespace

std::span<const Counting> countings()
{
    return kCountings;
}

std::vector<std::string> rateNames()
{
    std::vector<std::string> names;
    names.reserve(std::size(kCountings));
    for (const Counting &counting : kCountings)
        names.emplace_back(counting.name);
    return names;
}

const Counting &countingFor(std::string_view rate, std::optional<char> separator)
{
    std::string name{rate};
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (name == "29.97" || name == "59.94")
        name += separator == ':' ? "ndf" : "df";
    const Counting *counting = find(name);
    if (counting == nullptr)
    {
        std::string known;
        for (const Counting &row : kCountings)
            known += (known.empty() ? "" : ", ") + std::string{row.name};
        throw Failure(kExitUsage, "unknown rate \"" + visible(rate) + "\"; known are " + known);
    }
    if (separator == ';' && !counting->drop)
        throw Failure(kExitUsage, "\";\" means drop-frame, but " + std::string{counting->name} +
                                      " drops no frame numbers");
    return *counting;
}

const Counting &countingFor(std::optional<char> separator)
{
    return *find(separator == ';' ? "29.97df" : "29.97ndf");
}

const Counting *countingForMCC(std::string_view text)
{
    // If a text means two rates, the plain one comes first: the file does not show which it is.
    if (text == "30" || text == "60" || text == "24")
        return find(text);
    const auto row = std::ranges::find(kCountings, text, &Counting::mccText);
    return row != kCountings.end() ? &*row : find(text);
}

std::string_view cdpRateName(uint8_t cdpCode)
{
    return cdpCode < kCDPRates.size() ? kCDPRates[cdpCode] : "reserved";
}

void use(const Counting &counting)
{
    check(kivCS2Timecode_setFrameRate(counting.code), "frame rate " + std::string{counting.name});
}

std::optional<char> separatorOf(std::string_view text)
{
    const size_t at = text.find_last_of(":;");
    return at == std::string_view::npos ? std::nullopt : std::optional{text[at]};
}

KIVCS2Timecode parseTimecode(std::string_view text, const Counting &counting)
{
    const size_t space = text.rfind(' ');
    const std::string_view time = space == std::string_view::npos ? text : text.substr(space + 1);
    KIVCS2Timecode timecode = 0;
    if (space != std::string_view::npos)
        checkDate(text, text.substr(0, space));
    if (areDigits(time))
    {
        // The library's parser reads a larger number as the largest that it supports.
        if (number(time) > INT32_MAX)
            refuse(text, "more frames than a timecode holds");
    }
    else
        checkTime(text, time);

    std::string digits{text};
    std::ranges::replace(digits, ';', ':'); // the library's parser accepts only ":"
    const KIVCS2Status status = kivCS2Timecode_initWithString(&timecode, digits.c_str());
    if (status == KIVCS2STATUS_INVALID_TIMECODE_ERR)
        throw Failure(status, "\"" + visible(text) + "\": names no frame at " + std::string{counting.title});
    check(status, "\"" + visible(text) + "\": not a timecode");
    return timecode;
}

std::string timecodeText(const KIVCS2Timecode &timecode)
{
    std::array<char, 64> text{};
    check(kivCS2Timecode_timecodeToString(&timecode, text.data(), text.size()), "timecode text");
    return text.data();
}

std::string timecodeText(uint32_t frames)
{
    KIVCS2Timecode timecode = 0;
    check(kivCS2Timecode_initWithFrames(&timecode, frames), "timecode of frames");
    return timecodeText(timecode);
}

uint32_t framesOf(const KIVCS2Timecode &timecode)
{
    uint32_t frames = 0;
    check(kivCS2Timecode_getFramesSinceMidnight(&timecode, &frames), "frames of a timecode");
    return frames;
}

double exactSeconds(uint32_t frames, const Counting &counting)
{
    return static_cast<double>(frames) * counting.denominator / counting.numerator;
}

} // namespace tool
