// Time zones inside: what the wall shows at a moment.
#ifndef KIV_PLATFORM_TIME_ZONE_H
#define KIV_PLATFORM_TIME_ZONE_H

#include <CoreFoundation/CFTimeZone.h>

#include <array>
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
    std::array<char, 32> zoneName; // zero-terminated: "CET", "GMT+1"; empty until it is read
};

// To the nearest millisecond. False for a moment that is no number, and without a calendar.
[[nodiscard]] bool readWall(CFTimeZoneRef zone, CFAbsoluteTime at, WallTime &wall) noexcept;
void readZoneName(CFTimeZoneRef zone, CFAbsoluteTime at, WallTime &wall) noexcept;
} // namespace kiv::cf

#endif
