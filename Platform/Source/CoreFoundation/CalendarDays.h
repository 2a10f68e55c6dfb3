// The calendar as a count of days: Gregorian, Julian before 15
// October 1582. Without zones or limits of years.
#ifndef KIV_PLATFORM_CALENDAR_DAYS_H
#define KIV_PLATFORM_CALENDAR_DAYS_H

#include <cstdint>

namespace kiv::cf
{
constexpr int64_t kSecondsPerDay = 86400;

struct CalendarDate
{
    int64_t year;  // 0 is the year before 1
    int32_t month; // January is 0
    int32_t day;
    int32_t dayOfYear; // from 1; the days that 1582 left out do not count
};

// Returns the quotient rounded down, also below 0.
[[nodiscard]] constexpr int64_t floorDivide(int64_t value, int64_t divisor) noexcept
{
    return value / divisor - (value % divisor < 0);
}

// Returns the days from 1 January 1970 to a date; a day or month out of range carries over.
[[nodiscard]] int64_t dayNumberOf(int64_t year, int64_t month, int64_t day) noexcept;
[[nodiscard]] CalendarDate dateOfDayNumber(int64_t number) noexcept;
} // namespace kiv::cf

#endif
