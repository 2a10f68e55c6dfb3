// Day numbers and dates, computed from the leap years before them.
#include "CoreFoundation/CalendarDays.h"

namespace kiv::cf
{
namespace
{
constexpr int64_t kFirstGregorianDay = -141427; // 15 October 1582
constexpr int64_t kFirstGregorianYear = 1582;
constexpr int64_t kMonths = 12;
constexpr int32_t kDaysBeforeMonth[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

enum class Calendar
{
    Julian,
    Gregorian
};

bool isLeapYear(Calendar calendar, int64_t year) noexcept
{
    return year % 4 == 0 && (calendar == Calendar::Julian || year % 100 != 0 || year % 400 == 0);
}

// Days from 1 January 1970 to 1 January of `year`.
int64_t firstDay(Calendar calendar, int64_t year) noexcept
{
    const int64_t past = year - 1;
    const int64_t days = past * 365 + floorDivide(past, 4);
    if (calendar == Calendar::Julian)
        return days - 719164; // its 1 January 1 is two days before the Gregorian one
    return days - floorDivide(past, 100) + floorDivide(past, 400) - 719162;
}

int32_t daysBeforeMonth(Calendar calendar, int64_t year, int32_t month) noexcept
{
    return kDaysBeforeMonth[month] + (month > 1 && isLeapYear(calendar, year) ? 1 : 0);
}
} // namespace

int64_t dayNumberOf(int64_t year, int64_t month, int64_t day) noexcept
{
    year += floorDivide(month, kMonths);
    const auto monthOfYear = static_cast<int32_t>(month - floorDivide(month, kMonths) * kMonths);
    const auto number = [&](Calendar calendar)
    { return firstDay(calendar, year) + daysBeforeMonth(calendar, year, monthOfYear) + day - 1; };
    // The year chooses the calendar; if the day then falls into the other calendar's time, use that one.
    const bool gregorian = year >= kFirstGregorianYear;
    const int64_t first = number(gregorian ? Calendar::Gregorian : Calendar::Julian);
    if ((first >= kFirstGregorianDay) == gregorian)
        return first;
    return number(gregorian ? Calendar::Julian : Calendar::Gregorian);
}

CalendarDate dateOfDayNumber(int64_t number) noexcept
{
    const Calendar calendar = number >= kFirstGregorianDay ? Calendar::Gregorian : Calendar::Julian;
    // The right year or one next to it: years have 365.2425 or 365.25 days.
    int64_t year = 1970 + floorDivide(number * 400, 146097);
    while (firstDay(calendar, year) > number)
        --year;
    while (firstDay(calendar, year + 1) <= number)
        ++year;
    const auto dayOfYear = static_cast<int32_t>(number - firstDay(calendar, year));
    int32_t month = dayOfYear / 31;
    while (month + 1 < kMonths && daysBeforeMonth(calendar, year, month + 1) <= dayOfYear)
        ++month;
    const int32_t day = dayOfYear - daysBeforeMonth(calendar, year, month) + 1;
    // In 1582 the days before the change count as in the Julian calendar.
    return {year, month, day, static_cast<int32_t>(number - dayNumberOf(year, 0, 1)) + 1};
}
} // namespace kiv::cf
