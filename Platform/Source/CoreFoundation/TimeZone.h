// Time zones inside: what the wall shows at a moment, and the moment at which it shows something.
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
    const char *zoneName; // "CET", "+05"; the C library keeps every name that it has given out
};

// Seconds are counted from 1970, as the C library does.

// Seconds that the wall's clock is ahead of GMT; 0 beyond the C library's calendar.
[[nodiscard]] int32_t secondsFromGMT(int64_t second) noexcept;

// The moment at which the wall shows `local`, the seconds to it as if the wall were in GMT. Of a time that it
// shows twice the second; a time that it leaves out is as far behind the gap as it lies in it.
[[nodiscard]] int64_t momentOfWall(int64_t local) noexcept;

// To the nearest millisecond. False for a moment that is no number.
[[nodiscard]] bool readWall(CFAbsoluteTime at, WallTime &wall) noexcept;
} // namespace kiv::cf

#endif
