// Calendar arithmetic on zero-based dates, in a bounded number of steps for every count.
#include "Private/Timecode/Calendar.h"

#include <array>
#include <cstddef>
#include <limits>

namespace kiv::timecode
{
namespace
{
constexpr std::array<uint8_t, kMonthsPerYear> kDaysInMonth = {
    31, // January
    28, // February, one more in a leap year
    31, // March
    30, // April
    31, // May
    30, // June
    31, // July
    31, // August
    30, // September
    31, // October
    30, // November
    31, // December
};

constexpr std::array<uint16_t, kMonthsPerYear> kDaysBeforeMonth = []
{
    std::array<uint16_t, kMonthsPerYear> days{};
    for (size_t month = 1; month < kMonthsPerYear; ++month)
        days[month] = static_cast<uint16_t>(days[month - 1] + kDaysInMonth[month - 1]);
    return days;
}();

constexpr uint32_t kYears = 65536; // a year of 16 bits wraps
constexpr uint32_t kDaysInAllYears = daysBeforeYear(kYears);
constexpr int64_t kDaysInYearZero = 366;

// Days since 1 January of year 0.
int64_t dayNumber(const Date &date)
{
    return int64_t{daysBeforeYear(date.year)} + dayOfYear(date);
}

Date dateOfDayNumber(uint32_t number)
{
    uint32_t year = number / 365; // at most 44 years too late at the end of 65536
    while (daysBeforeYear(year) > number)
        year -= (daysBeforeYear(year) - number + 365) / 366;
    uint32_t day = number - daysBeforeYear(year);
    uint32_t month = 0;
    for (uint32_t length; day >= (length = daysInMonth(month, year)); ++month)
        day -= length;
    return {static_cast<uint8_t>(day), static_cast<uint8_t>(month), static_cast<uint16_t>(year)};
}
} // namespace

uint32_t daysInMonth(uint32_t month, uint32_t year)
{
    const uint32_t days = kDaysInMonth[month];
    return days == 28 && isLeapYear(year) ? days + 1 : days;
}

uint32_t dayOfYear(const Date &date)
{
    const uint32_t leapDay = date.month > 1 && isLeapYear(date.year) ? 1 : 0;
    return kDaysBeforeMonth[date.month] + leapDay + date.day;
}

Date addDays(const Date &date, uint64_t count)
{
    if (count == 0)
        return date;
    if (date.day + count < daysInMonth(date.month, date.year))
        return {static_cast<uint8_t>(date.day + count), date.month, date.year};
    const uint64_t number = static_cast<uint64_t>(dayNumber(date)) + count % kDaysInAllYears;
    return dateOfDayNumber(static_cast<uint32_t>(number % kDaysInAllYears));
}

Date subtractDays(const Date &date, uint64_t count)
{
    if (count <= date.day)
        return {static_cast<uint8_t>(date.day - count), date.month, date.year};
    const uint64_t number = static_cast<uint64_t>(dayNumber(date));
    if (count <= number)
        return dateOfDayNumber(static_cast<uint32_t>(number - count));
    // Kept: the year stops at 0, so going back from January of year 0 leads to its December.
    const int64_t below = static_cast<int64_t>((count - number) % kDaysInYearZero);
    return dateOfDayNumber(static_cast<uint32_t>((kDaysInYearZero - below) % kDaysInYearZero));
}

Date addMonths(const Date &date, uint32_t count)
{
    Date result = date;
    if (count >= kMonthsPerYear)
        result = addYears(result, count / kMonthsPerYear);
    uint32_t month = result.month + count % kMonthsPerYear;
    if (month >= kMonthsPerYear)
    {
        result = addYears(result, 1);
        month -= kMonthsPerYear;
    }
    result.month = static_cast<uint8_t>(month); // Kept: the day is not clamped to the new month
    return result;
}

Date subtractMonths(const Date &date, uint32_t count)
{
    Date result = date;
    if (count >= kMonthsPerYear)
        result = subtractYears(result, count / kMonthsPerYear);
    uint32_t month = result.month;
    const uint32_t months = count % kMonthsPerYear;
    if (months > month)
    {
        result = subtractYears(result, 1);
        month += kMonthsPerYear;
    }
    result.month = static_cast<uint8_t>(month - months);
    return result;
}

Date addYears(const Date &date, uint32_t count)
{
    return {date.day, date.month, static_cast<uint16_t>(date.year + count)};
}

Date subtractYears(const Date &date, uint32_t count)
{
    return {date.day, date.month, static_cast<uint16_t>(count <= date.year ? date.year - count : 0)};
}

Carry addRepeatedly(uint32_t frames, uint32_t times, uint32_t framesPerDay)
{
    const auto step = [=](Carry &carry)
    {
        const uint32_t sum = carry.frames + frames;
        carry.days += sum / framesPerDay;
        carry.frames = sum % framesPerDay;
    };

    Carry total{frames, 0};
    if (times == 0)
        return total;
    step(total);
    --times;
    // From here on the count is within a day: only a summand close to 2 to the 32nd still wraps.
    if (frames <= std::numeric_limits<uint32_t>::max() - framesPerDay)
    {
        const uint64_t sum = total.frames + uint64_t{frames} * times;
        return {static_cast<uint32_t>(sum % framesPerDay), total.days + sum / framesPerDay};
    }
    // The count takes at most framesPerDay values, so it soon repeats (Brent's search for the period);
    // whole periods are then added at once.
    Carry anchor = total;
    for (uint32_t length = 0, power = 1; times > 0;)
    {
        step(total);
        --times;
        ++length;
        if (total.frames == anchor.frames)
        {
            total.days += (total.days - anchor.days) * (times / length);
            for (times %= length; times > 0; --times)
                step(total);
        }
        else if (length == power)
        {
            anchor = total;
            power *= 2;
            length = 0;
        }
    }
    return total;
}
} // namespace kiv::timecode
