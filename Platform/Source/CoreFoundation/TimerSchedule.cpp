// The dates of run-loop timers.
#include "CoreFoundation/TimerSchedule.h"

#include <algorithm>
#include <cmath>

namespace
{
constexpr long double kPerSecond = 1e9L;

// Values outside 64 bits become the nearest limit.
int64_t toNanoseconds(long double value) noexcept
{
    if (value >= 0x1p63L)
        return std::numeric_limits<int64_t>::max();
    if (value <= -0x1p63L)
        return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(std::floor(value + 0.5L));
}

// Nanoseconds; 0 if the timer does not repeat, else at least 1, so that there is always a next date.
long double intervalOf(CFTimeInterval seconds) noexcept
{
    return seconds > 0 ? std::max(1.0L, static_cast<long double>(seconds) * kPerSecond) : 0.0L;
}
} // namespace

namespace kiv::cf
{
TimerSchedule::TimerSchedule(CFAbsoluteTime fireDate, CFTimeInterval interval, int64_t now) noexcept
    : m_first{std::isnan(fireDate)
                  ? now
                  : toNanoseconds((static_cast<long double>(fireDate) + kCFAbsoluteTimeIntervalSince1970) *
                                  kPerSecond)},
      m_interval{intervalOf(interval)}
{
}

int64_t TimerSchedule::next() const noexcept
{
    if (m_passed == 0) // also for an infinite interval, of which 0 is not a multiple
        return m_first;
    return toNanoseconds(at(m_passed));
}

CFAbsoluteTime TimerSchedule::nextDate() const noexcept
{
    return static_cast<CFAbsoluteTime>(static_cast<long double>(next()) / kPerSecond -
                                       kCFAbsoluteTimeIntervalSince1970);
}

void TimerSchedule::advance(int64_t now) noexcept
{
    const long double since = static_cast<long double>(now) - static_cast<long double>(m_first);
    m_passed = std::max(m_passed, std::floor(since / m_interval)) + 1;
    while (next() <= now && next() != kNever) // the date was rounded down to a nanosecond that has passed
        ++m_passed;
}

void TimerSchedule::clockWasSet(int64_t step) noexcept
{
    if (m_hasFired)
        m_first = toNanoseconds(static_cast<long double>(m_first) + static_cast<long double>(step));
}
} // namespace kiv::cf
