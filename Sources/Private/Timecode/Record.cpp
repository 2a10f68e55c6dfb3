// The less common parts of a record's arithmetic: days, products, distances, dates.
#include "Private/Timecode/Record.h"

#include "Private/Support/Check.h"

#include <algorithm>

namespace kiv::timecode
{
namespace
{
KIVCS2Status roundDown(KIVCS2Timecode &tc, uint64_t step)
{
    if (step == 0)
        return KIVCS2STATUS_FRAME_RATE_ERR;
    setFrames(tc, static_cast<uint32_t>(framesOf(tc) - framesOf(tc) % step));
    return KIVCS2STATUS_OK;
}

// Whole days from the date of `a` to that of `b`, which is assumed to be the later one.
int64_t daysBetween(const Date &a, const Date &b)
{
    const int64_t dayA = int64_t{dayOfYear(a)} + 1;
    const int64_t dayB = int64_t{dayOfYear(b)} + 1;
    if (a.year == b.year)
        return dayB - dayA;
    // Kept: the years between are counted, in whichever order they come.
    const auto [first, last] = std::minmax(a.year, b.year);
    const int64_t between = int64_t{daysBeforeYear(last)} - int64_t{daysBeforeYear(first + 1u)};
    const int64_t rest = (isLeapYear(a.year) ? 366 : 365) - dayA;
    return between + rest + dayB;
}

[[nodiscard]] KIVCS2Status checkBoth(KIVCS2Timecode a, KIVCS2Timecode b)
{
    return isValid(a) && isValid(b) ? KIVCS2STATUS_OK : KIVCS2STATUS_INVALID_TIMECODE_ERR;
}
} // namespace

uint32_t truncateToFrames(double frames)
{
    constexpr double kLimit = 9223372036854775808.0; // 2 to the 63rd
    if (!(frames >= -kLimit && frames < kLimit))
        return 0;
    return static_cast<uint32_t>(static_cast<int64_t>(frames));
}

KIVCS2Status secondsOf(const RateState &state, KIVCS2Timecode tc, double &seconds)
{
    if (!isValid(tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    seconds = framesOf(tc) / state.realFramesPerSecond;
    return KIVCS2STATUS_OK;
}

void setFromReading(const RateState &state, KIVCS2Timecode &tc, const DateReading &reading, bool includeTime)
{
    tc = 0;
    setDate(tc, dateOfFields(reading.day, reading.month, reading.year));
    if (includeTime)
        setFrames(tc, reading.hours * state.framesPerHour + frameOfClockTime(state.numbering, reading.minutes,
                                                                             reading.seconds,
                                                                             reading.milliseconds));
}

KIVCS2Status carryDays(KIVCS2Timecode &tc, const Carry &carry)
{
    if (carry.days > 0)
    {
        if (!hasMonth(tc))
            return KIVCS2STATUS_PARAM_ERR;
        setDate(tc, addDays(dateOf(tc), carry.days));
    }
    setFrames(tc, carry.frames);
    return KIVCS2STATUS_OK;
}

KIVCS2Status borrowDays(const RateState &state, KIVCS2Timecode &tc, uint32_t frames)
{
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    if (!hasMonth(tc))
        return KIVCS2STATUS_PARAM_ERR;
    // One frame before midnight is the last frame of the day before; from there count in whole days.
    const uint32_t before = frames - framesOf(tc) - 1;
    setDate(tc, subtractDays(dateOf(tc), uint64_t{before / state.framesPerDay} + 1));
    setFrames(tc, state.framesPerDay - 1 - before % state.framesPerDay);
    return KIVCS2STATUS_OK;
}

KIVCS2Status addDays(KIVCS2Timecode &tc, uint32_t count)
{
    if (!hasMonth(tc))
        return KIVCS2STATUS_PARAM_ERR;
    setDate(tc, addDays(dateOf(tc), count));
    return KIVCS2STATUS_OK;
}

KIVCS2Status subtractDays(KIVCS2Timecode &tc, uint32_t count)
{
    if (!hasMonth(tc))
        return KIVCS2STATUS_PARAM_ERR;
    setDate(tc, subtractDays(dateOf(tc), count));
    return KIVCS2STATUS_OK;
}

KIVCS2Status multiplyFrames(const RateState &state, KIVCS2Timecode &tc, uint32_t factor)
{
    if (factor <= 1 || !isValid(tc))
        return KIVCS2STATUS_OK;
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    return carryDays(tc, addRepeatedly(framesOf(tc), factor - 1, state.framesPerDay));
}

KIVCS2Status snapToMinutes(const RateState &state, KIVCS2Timecode &tc, uint32_t minutes)
{
    if (!isValid(tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (minutes >= kMinutesPerHour)
        return snapToHours(state, tc, minutes / kMinutesPerHour);
    return roundDown(tc, uint64_t{state.framesPerSecond} * kSecondsPerMinute * std::max(minutes, 1u));
}

KIVCS2Status snapToHours(const RateState &state, KIVCS2Timecode &tc, uint32_t hours)
{
    if (!isValid(tc))
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    if (hours == 0)
        return KIVCS2STATUS_PARAM_ERR;
    return roundDown(tc, uint64_t{state.framesPerHour} * hours);
}

KIVCS2Status compareFrames(KIVCS2Timecode a, KIVCS2Timecode b, int32_t &result)
{
    KIV_TRY(checkBoth(a, b));
    result = (framesOf(a) > framesOf(b)) - (framesOf(a) < framesOf(b));
    return KIVCS2STATUS_OK;
}

KIVCS2Status framesBetween(const RateState &state, KIVCS2Timecode a, KIVCS2Timecode b, int64_t &difference)
{
    KIV_TRY(checkBoth(a, b));
    if (dateBitsOf(a) == dateBitsOf(b))
    {
        difference = static_cast<int32_t>(framesOf(b) - framesOf(a));
        return KIVCS2STATUS_OK;
    }
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    if (!hasMonth(a) || !hasMonth(b))
        return KIVCS2STATUS_PARAM_ERR;
    const int64_t perDay = state.framesPerDay;
    const int64_t days = daysBetween(dateOf(a), dateOf(b));
    difference = perDay - framesOf(a) + perDay * (days - 1) + framesOf(b);
    return KIVCS2STATUS_OK;
}

KIVCS2Status secondsBetween(const RateState &state, KIVCS2Timecode a, KIVCS2Timecode b, double &difference)
{
    if (dateBitsOf(a) != dateBitsOf(b))
        return KIVCS2STATUS_OK;
    if (!hasRate(state))
        return KIVCS2STATUS_FRAME_RATE_ERR;
    double secondsA = 0;
    double secondsB = 0;
    (void)secondsOf(state, a, secondsA); // an invalid record counts as 0
    (void)secondsOf(state, b, secondsB);
    difference = secondsA - secondsB;
    return KIVCS2STATUS_OK;
}
} // namespace kiv::timecode
