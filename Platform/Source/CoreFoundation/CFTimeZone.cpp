// The only time zone is the C library's, with the machine's rules and all forms of TZ.
#include "CoreFoundation/TimeZone.h"

#include "CoreFoundation/CalendarDays.h"
#include "CoreFoundation/Date.h"
#include "CoreFoundation/Object.h"

#include <ctime>

struct __CFTimeZone : kiv::cf::Object
{
    constexpr __CFTimeZone() noexcept;
};

namespace
{
constexpr kiv::cf::Type kTimeZoneType{kiv::cf::kTypeTimeZone, nullptr, nullptr, nullptr};

// Stores the C library's zone at a moment; false outside its calendar, whose years have 32 bits.
bool readZone(int64_t second, std::tm &wall) noexcept
{
    // localtime_r() need not read TZ, so read it here, once: hosts set it before their first date.
    [[maybe_unused]] static const bool zoneIsRead = (tzset(), true);
    const time_t moment = second;
    return localtime_r(&moment, &wall) != nullptr;
}
} // namespace

constexpr __CFTimeZone::__CFTimeZone() noexcept : Object{kTimeZoneType, kiv::cf::kForEver} {}

namespace
{
constinit __CFTimeZone g_default;
} // namespace

CFTypeID CFTimeZoneGetTypeID(void)
{
    return kiv::cf::kTypeTimeZone;
}

CFTimeZoneRef CFTimeZoneCopyDefault(void)
{
    CFRetain(&g_default);
    return &g_default;
}

CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef, CFAbsoluteTime at)
{
    return std::isfinite(at) ? kiv::cf::secondsFromGMT(kiv::cf::unixTime(at).seconds) : 0;
}

int32_t kiv::cf::secondsFromGMT(int64_t second) noexcept
{
    std::tm wall{};
    return readZone(second, wall) ? static_cast<int32_t>(wall.tm_gmtoff) : 0;
}

int64_t kiv::cf::momentOfWall(int64_t local) noexcept
{
    // No zone is a whole day ahead or behind, and none changes twice in two days: the moment lies between
    // these two, which have at most one change between them.
    const int32_t before = secondsFromGMT(local - kSecondsPerDay);
    const int32_t after = secondsFromGMT(local + kSecondsPerDay);
    if (before == after)
        return local - before;
    return local - (secondsFromGMT(local - after) == after ? after : before);
}

bool kiv::cf::readWall(CFAbsoluteTime at, WallTime &wall) noexcept
{
    if (!std::isfinite(at))
        return false;
    const UnixTime moment = unixTime(at);
    std::tm zone{};
    const bool known = readZone(moment.seconds, zone);
    wall.secondsFromGMT = known ? static_cast<int32_t>(zone.tm_gmtoff) : 0;
    wall.zoneName = known ? zone.tm_zone : "";

    const int64_t local = moment.seconds + wall.secondsFromGMT;
    const int64_t number = floorDivide(local, kSecondsPerDay);
    const auto clock = static_cast<int32_t>(local - number * kSecondsPerDay);
    const CalendarDate date = dateOfDayNumber(number);
    wall.year = static_cast<int32_t>(date.year);
    wall.month = date.month;
    wall.day = date.day;
    wall.dayOfYear = date.dayOfYear;
    constexpr int64_t kThursday = 4; // weekday of 1 January 1970
    constexpr int64_t kDaysPerWeek = 7;
    const int64_t weekday = number + kThursday;
    wall.weekday = static_cast<int32_t>(weekday - floorDivide(weekday, kDaysPerWeek) * kDaysPerWeek);
    wall.hour = clock / 3600;
    wall.minute = clock / 60 % 60;
    wall.second = clock % 60;
    wall.millisecond = moment.milliseconds;
    return true;
}
