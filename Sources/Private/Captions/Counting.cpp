// Countings: how the digits of a timecode number frames at a rate that the caller names.
#include "Private/Captions/Counting.h"

#include <algorithm>
#include <array>

namespace kiv::cc
{
namespace
{
constexpr uint32_t perDay(uint32_t numbers, uint32_t drop)
{
    constexpr uint32_t kTensOfMinutes = 144;
    return kTensOfMinutes * (600 * numbers - 9 * drop);
}

constexpr KIVCS2CaptionCountingInfo row(const char *name, const char *mcc, uint32_t numerator,
                                        uint32_t denominator, uint32_t triplets, uint8_t code, uint8_t drop)
{
    const uint32_t numbers = (numerator + denominator - 1) / denominator;
    return {name, mcc, numerator, denominator, numbers, perDay(numbers, drop), triplets, code, drop, {}};
}

// Rate codes: SMPTE ST 334-2, table 3. Triplets: CEA-708 carries 9600 bit/s, 600 triplets a second.
// clang-format off
constexpr std::array<KIVCS2CaptionCountingInfo, KIVCS2CaptionCounting_MAX> kCountings = {{
    {},
    //   name        MCC     frames a second  triplets  code  drop
    row("23.98",    "24",   24000, 1001,     25,       1,    0),
    row("24",       "24",   24,    1,        25,       2,    0),
    row("25",       "25",   25,    1,        24,       3,    0),
    row("29.97df",  "30DF", 30000, 1001,     20,       4,    2),
    row("29.97ndf", "30",   30000, 1001,     20,       4,    0),
    row("30",       "30",   30,    1,        20,       5,    0),
    row("50",       "50",   50,    1,        12,       6,    0),
    row("59.94df",  "60DF", 60000, 1001,     10,       7,    4),
    row("59.94ndf", "60",   60000, 1001,     10,       7,    0),
    row("60",       "60",   60,    1,        10,       8,    0),
}};
// clang-format on

constexpr uint32_t twoDigits(const char *text)
{
    return static_cast<uint32_t>(text[0] - '0') * 10 + static_cast<uint32_t>(text[1] - '0');
}

constexpr bool isFieldSeparator(char character)
{
    return character == ':' || character == ';';
}

constexpr char upper(char character)
{
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A') : character;
}

bool equalInAnyCase(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, {}, upper, upper);
}
} // namespace

const KIVCS2CaptionCountingInfo *countingInfo(KIVCS2CaptionCounting counting)
{
    return counting > KIVCS2CaptionCounting_FindOut && counting < kCountings.size() ? &kCountings[counting]
                                                                                    : nullptr;
}

std::optional<TimeFields> takeTime(std::string_view text)
{
    if (text.size() < kTimecodeSize)
        return std::nullopt;
    const char *const at = text.data();
    for (const size_t digit : {0u, 1u, 3u, 4u, 6u, 7u, 9u, 10u})
        if (!isDigit(at[digit]))
            return std::nullopt;
    if (!isFieldSeparator(at[2]) || !isFieldSeparator(at[5]) ||
        (!isFieldSeparator(at[8]) && at[8] != '.' && at[8] != ','))
        return std::nullopt;
    return TimeFields{twoDigits(at), twoDigits(at + 3), twoDigits(at + 6), twoDigits(at + 9), at[8]};
}

bool isDropped(const KIVCS2CaptionCountingInfo &info, const TimeFields &time)
{
    return time.frames < info.m_drop && time.seconds == 0 && time.minutes % 10 != 0;
}

std::optional<uint32_t> frameOf(const KIVCS2CaptionCountingInfo &info, const TimeFields &time)
{
    if (time.hours > 23 || time.minutes > 59 || time.seconds > 59 || time.frames >= info.m_numbers)
        return std::nullopt;
    const uint32_t minutes = time.hours * 60 + time.minutes;
    const uint32_t frames = isDropped(info, time) ? info.m_drop : time.frames;
    return (minutes * 60 + time.seconds) * info.m_numbers + frames - info.m_drop * (minutes - minutes / 10);
}

void writeTimecode(const KIVCS2CaptionCountingInfo &info, uint32_t frame, char separator, char *text)
{
    uint32_t number = frame % info.m_perDay;
    if (info.m_drop != 0)
    {
        const uint32_t perMinute = 60 * info.m_numbers - info.m_drop;
        const uint32_t perTen = 10 * perMinute + info.m_drop; // the tenth minute drops nothing
        const uint32_t tens = number / perTen;
        const uint32_t rest = number % perTen;
        number += 9 * info.m_drop * tens;
        if (rest >= info.m_drop)
            number += info.m_drop * ((rest - info.m_drop) / perMinute);
    }
    const uint32_t seconds = number / info.m_numbers;
    const std::array<uint32_t, 4> fields = {seconds / 3600, seconds / 60 % 60, seconds % 60,
                                            number % info.m_numbers};
    for (size_t field = 0; field < fields.size(); ++field)
    {
        text[3 * field] = static_cast<char>('0' + fields[field] / 10);
        text[3 * field + 1] = static_cast<char>('0' + fields[field] % 10);
        if (field < 3)
            text[3 * field + 2] = field == 2 ? separator : ':';
    }
}

KIVCS2CaptionCounting countingOfMCCRate(std::string_view text)
{
    // From the end: if a text means two rates, the whole rate is the later row.
    for (uint32_t counting = KIVCS2CaptionCounting_MAX - 1; counting > 0; --counting)
        if (equalInAnyCase(text, kCountings[counting].m_mccRate))
            return counting;
    return KIVCS2CaptionCounting_FindOut;
}

bool rateAgrees(const KIVCS2CaptionCountingInfo &info, uint8_t rateCode)
{
    return std::ranges::any_of(kCountings,
                               [&](const KIVCS2CaptionCountingInfo &other)
                               {
                                   return other.m_mccRate != nullptr && other.m_rateCode == rateCode &&
                                          equalInAnyCase(other.m_mccRate, info.m_mccRate);
                               });
}

KIVCS2CaptionCounting withRateCode(KIVCS2CaptionCounting counting, uint8_t rateCode)
{
    for (uint32_t other = 1; other < KIVCS2CaptionCounting_MAX; ++other)
        if (kCountings[other].m_rateCode == rateCode &&
            equalInAnyCase(kCountings[other].m_mccRate, kCountings[counting].m_mccRate))
            return other;
    return counting;
}

KIVCS2CaptionCounting countingOfRateCode(uint8_t rateCode, bool drop)
{
    KIVCS2CaptionCounting found = KIVCS2CaptionCounting_FindOut;
    for (uint32_t counting = 1; counting < KIVCS2CaptionCounting_MAX; ++counting)
        if (kCountings[counting].m_rateCode == rateCode)
        {
            if ((kCountings[counting].m_drop != 0) == drop)
                return counting;
            found = counting;
        }
    return found;
}
} // namespace kiv::cc
