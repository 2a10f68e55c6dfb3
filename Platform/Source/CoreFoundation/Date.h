// Internals of dates: conversion to ICU's milliseconds since 1970 and to the C library's seconds.
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

// ICU counts milliseconds from 1970. An exact millisecond is often a little low as a sum of doubles; adding
// 0.5 keeps it from printing one less.
[[nodiscard]] inline double icuTime(CFAbsoluteTime at) noexcept
{
    return std::floor((at + kCFAbsoluteTimeIntervalSince1970) * kMillisecondsPerSecond + 0.5);
}

struct UnixTime
{
    int64_t seconds;
    int32_t milliseconds;
};

// The same time for a finite `at`; times outside ICU's five million years are cut to them.
[[nodiscard]] inline UnixTime unixTime(CFAbsoluteTime at) noexcept
{
    constexpr double kFirst = -184303902528000000.0; // the limits of ICU's calendar
    constexpr double kLast = 183882168921600000.0;
    constexpr int64_t kPerSecond = 1000;
    const auto milliseconds = static_cast<int64_t>(std::clamp(icuTime(at), kFirst, kLast));
    const int64_t seconds = floorDivide(milliseconds, kPerSecond);
    return {seconds, static_cast<int32_t>(milliseconds - seconds * kPerSecond)};
}
} // namespace kiv::cf

#endif
