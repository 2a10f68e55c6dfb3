// Dates inside: the way to the milliseconds since 1970 that ICU counts and the seconds of the C library.
#ifndef KIV_PLATFORM_DATE_H
#define KIV_PLATFORM_DATE_H

#include "CoreFoundation/CalendarDays.h"

#include <CoreFoundation/CFDate.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace kiv::cf
{
constexpr double kMillisecondsPerSecond = 1000.0;

// ICU counts milliseconds from 1970. The half keeps an exact millisecond, which as a sum of doubles
// often lies a little low, from printing one less.
[[nodiscard]] inline double icuTime(CFAbsoluteTime at) noexcept
{
    return std::floor((at + kCFAbsoluteTimeIntervalSince1970) * kMillisecondsPerSecond + 0.5);
}

struct UnixTime
{
    int64_t seconds;
    int32_t milliseconds;
};

// The same time, of a number; what lies beyond the five million years of ICU is cut to them.
[[nodiscard]] inline UnixTime unixTime(CFAbsoluteTime at) noexcept
{
    constexpr double kFirst = -184303902528000000.0; // the ends of the calendar that ICU has
    constexpr double kLast = 183882168921600000.0;
    constexpr int64_t kPerSecond = 1000;
    const auto milliseconds = static_cast<int64_t>(std::clamp(icuTime(at), kFirst, kLast));
    const int64_t seconds = floorDivide(milliseconds, kPerSecond);
    return {seconds, static_cast<int32_t>(milliseconds - seconds * kPerSecond)};
}
} // namespace kiv::cf

#endif
