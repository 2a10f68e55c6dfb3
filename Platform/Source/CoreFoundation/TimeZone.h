// Internals of time zones: the local time of a moment, and the moment of a
// local time. A wall time is a local time.
#ifndef KIV_PLATFORM_TIME_ZONE_H
#define KIV_PLATFORM_TIME_ZONE_H

#include <CoreFoundation/CFTimeZone.h>

#include <cstdint>

namespace kiv::cf
{
// Calendar and clock of a zone; Julian before 15 October 1582.
struct WallTime
{
    int32_t year;  // 0 is the year before 1
    int32_t month; // January is 0
    int32_t day;
    int32_t dayOfYear;
    int32_t weekday; // Sunday is 0
    int32_t hour;
    int32_t minute;
    int32_t second;
    int32_t millisecond;
    int32_t secondsFromGMT;
    const char *zoneName; // "CET", "+05"; the C library keeps every name it returns
};

// Seconds are counted from 1970, as the C library does.

// Seconds by which local time is ahead of GMT; 0 outside the C library's calendar.
[[nodiscard]] int32_t secondsFromGMT(int64_t second) noexcept;

// The moment of the local time `local`, which counts seconds as if it were GMT. A time that the clock shows
// twice means the second one; a time inside a gap means one as far after the gap as it lies inside it.
[[nodiscard]] int64_t momentOfWall(int64_t local) noexcept;

// To the nearest millisecond. False for a moment that is not a number.
[[nodiscard]] bool readWall(CFAbsoluteTime at, WallTime &wall) noexcept;
} // namespace kiv::cf

#endif
