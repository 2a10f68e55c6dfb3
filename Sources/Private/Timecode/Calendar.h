// The calendar of a timecode record: zero-based day and month, a 16-bit year. Functions that look up a month
// need one below 12; the callers refuse others.
#ifndef KIV_PRIVATE_TIMECODE_CALENDAR_H
#define KIV_PRIVATE_TIMECODE_CALENDAR_H

#include <cstdint>

namespace kiv::timecode
{
constexpr uint32_t kMonthsPerYear = 12;

struct Date
{
    uint8_t day;
    uint8_t month;
    uint16_t year;

    friend bool operator==(const Date &, const Date &) = default;
};

[[nodiscard]] constexpr bool isLeapYear(uint32_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// The days before 1 January of `year`, counted from 1 January of year 0, leap years included.
[[nodiscard]] constexpr uint32_t daysBeforeYear(uint32_t year)
{
    if (year == 0)
        return 0;
    const uint32_t past = year - 1;
    return year * 365 + past / 4 - past / 100 + past / 400 + 1; // year 0 is a leap year
}

[[nodiscard]] uint32_t daysInMonth(uint32_t month, uint32_t year);

// Returns the zero-based day of the year; a day past the end of its month counts into the next months.
[[nodiscard]] uint32_t dayOfYear(const Date &date);

// Month by month this would take 130 million steps for the largest count; the calendar is linear, so both use
// the number of the day. A count of 0 does not correct a day beyond its month.
[[nodiscard]] Date addDays(const Date &date, uint64_t count);
[[nodiscard]] Date subtractDays(const Date &date, uint64_t count);

// The day is not clamped to the new month.
[[nodiscard]] Date addMonths(const Date &date, uint32_t count);
[[nodiscard]] Date subtractMonths(const Date &date, uint32_t count);
[[nodiscard]] Date addYears(const Date &date, uint32_t count);
[[nodiscard]] Date subtractYears(const Date &date, uint32_t count);

// A frame count and the days carried out of it.
struct Carry
{
    uint32_t frames;
    uint64_t days;
};

// Adds `frames` to itself `times` times, each sum modulo 2 to the 32nd and then within a day.
[[nodiscard]] Carry addRepeatedly(uint32_t frames, uint32_t times, uint32_t framesPerDay);
} // namespace kiv::timecode

#endif
