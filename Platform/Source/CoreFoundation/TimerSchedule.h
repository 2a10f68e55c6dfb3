// When a run-loop timer fires: plain arithmetic on the real-time clock, in nanoseconds since 1970.
#ifndef KIV_PLATFORM_TIMER_SCHEDULE_H
#define KIV_PLATFORM_TIMER_SCHEDULE_H

#include <CoreFoundation/CFDate.h>

#include <cstdint>
#include <limits>

namespace kiv::cf
{
class TimerSchedule
{
public:
    static constexpr int64_t kNever = std::numeric_limits<int64_t>::max(); // in the year 2262

    // A date of NaN means `now`; a date outside 64 bits means the nearest limit.
    TimerSchedule(CFAbsoluteTime fireDate, CFTimeInterval interval, int64_t now) noexcept;

    [[nodiscard]] bool repeats() const noexcept
    {
        return m_interval > 0;
    }
    // The next date; kNever if there is none.
    [[nodiscard]] int64_t next() const noexcept;
    // The same as an absolute time, as exact as that type is.
    [[nodiscard]] CFAbsoluteTime nextDate() const noexcept;

    // After this the dates follow a clock that is set.
    void fired() noexcept
    {
        m_hasFired = true;
    }
    // The timer has fired and is free again at `now`: the next date is the first one after `now` that is a
    // whole number of intervals after the first. Dates that have passed meanwhile are skipped.
    void advance(int64_t now) noexcept;
    // The clock was set by `step`: running intervals keep their length, a first date stays at its clock time.
    void clockWasSet(int64_t step) noexcept;

private:
    // Multiples of the interval are counted from the first date, so that rounding does not add up. The 64
    // bits of a long double hold every nanosecond.
    [[nodiscard]] long double at(long double intervals) const noexcept
    {
        return static_cast<long double>(m_first) + intervals * m_interval;
    }

    int64_t m_first;
    long double m_interval;   // 0 for a timer that fires once
    long double m_passed = 0; // whole intervals from the first date to the next one
    bool m_hasFired = false;
};
} // namespace kiv::cf

#endif
