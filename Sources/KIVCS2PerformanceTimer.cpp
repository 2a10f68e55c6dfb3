// Performance timers: intervals of the absolute clock, counted and compared.
#include "KIVCS2PerformanceTimer.h"

#include "Private/Support/Check.h"

#include <mach/mach_time.h>

#include <algorithm>
#include <bit>

// The promised order of the two halves is the machine's own.
static_assert(std::endian::native == std::endian::little);

namespace
{
// Reads units of the clock; the kinds below need at least one interval.
[[nodiscard]] uint64_t readUnits(const KIVCS2PerformanceTimer &timer, KIVCS2PerformanceTimerKind kind)
{
    switch (kind)
    {
    case KIVCS2PerformanceTimerKind_Elapsed:
        return mach_absolute_time() - timer.m_start;
    case KIVCS2PerformanceTimerKind_Average:
        return timer.m_total / timer.m_count;
    case KIVCS2PerformanceTimerKind_Minimum:
        return timer.m_minimum;
    case KIVCS2PerformanceTimerKind_Maximum:
        return timer.m_maximum;
    default:
        return 0; // Kept: hosts rely on an unknown kind reading 0.
    }
}

[[nodiscard]] bool needsInterval(KIVCS2PerformanceTimerKind kind)
{
    return kind >= KIVCS2PerformanceTimerKind_Average && kind <= KIVCS2PerformanceTimerKind_Maximum;
}
} // namespace

KIVCS2Status kivCS2PerformanceTimer_init(KIVCS2PerformanceTimer *timer)
{
    KIV_CHECK(timer);

    *timer = {};
    return kivCS2PerformanceTimer_start(timer);
}

KIVCS2Status kivCS2PerformanceTimer_start(KIVCS2PerformanceTimer *timer)
{
    KIV_CHECK(timer);

    timer->m_start = mach_absolute_time();
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PerformanceTimer_stop(KIVCS2PerformanceTimer *timer)
{
    // Read the clock first, so the check is not timed.
    const uint64_t now = mach_absolute_time();
    KIV_CHECK(timer);

    const uint64_t interval = now - timer->m_start;
    timer->m_total += interval;
    const bool isFirst = timer->m_count == 0;
    timer->m_minimum = isFirst ? interval : std::min(timer->m_minimum, interval);
    timer->m_maximum = isFirst ? interval : std::max(timer->m_maximum, interval);
    ++timer->m_count;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PerformanceTimer_getNanoseconds(const KIVCS2PerformanceTimer *pTimer,
                                                   KIVCS2PerformanceTimerKind kind, uint64_t *nanoseconds)
{
    KIV_CHECK(pTimer);
    KIV_CHECK(nanoseconds);

    if (needsInterval(kind) && pTimer->m_count == 0)
        return KIVCS2STATUS_DATA_ERR;
    *nanoseconds = kivCS2AbsoluteToNanoseconds(readUnits(*pTimer, kind));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PerformanceTimer_getMilliseconds(const KIVCS2PerformanceTimer *pTimer,
                                                    KIVCS2PerformanceTimerKind kind, uint32_t *milliseconds)
{
    KIV_CHECK(pTimer);
    KIV_CHECK(milliseconds);

    uint64_t nanoseconds = 0;
    KIV_TRY(kivCS2PerformanceTimer_getNanoseconds(pTimer, kind, &nanoseconds));
    *milliseconds = static_cast<uint32_t>(nanoseconds / 1000000);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PerformanceTimer_getSeconds(const KIVCS2PerformanceTimer *pTimer,
                                               KIVCS2PerformanceTimerKind kind, float *seconds)
{
    KIV_CHECK(pTimer);
    KIV_CHECK(seconds);

    uint64_t nanoseconds = 0;
    KIV_TRY(kivCS2PerformanceTimer_getNanoseconds(pTimer, kind, &nanoseconds));
    // Kept: hosts compare with seconds that are rounded twice, to a float before the division and after it.
    *seconds = static_cast<float>(static_cast<double>(static_cast<float>(nanoseconds)) / 1e9);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PerformanceTimer_getElapsedNanoseconds(const KIVCS2PerformanceTimer *timer,
                                                          uint64_t *nanoseconds)
{
    KIV_CHECK(timer);
    KIV_CHECK(nanoseconds);

    return kivCS2PerformanceTimer_getNanoseconds(timer, KIVCS2PerformanceTimerKind_Elapsed, nanoseconds);
}

KIVCS2Status kivCS2PerformanceTimer_getElapsedMilliseconds(const KIVCS2PerformanceTimer *timer,
                                                           uint32_t *milliseconds)
{
    KIV_CHECK(timer);
    KIV_CHECK(milliseconds);

    return kivCS2PerformanceTimer_getMilliseconds(timer, KIVCS2PerformanceTimerKind_Elapsed, milliseconds);
}

KIVCS2Status kivCS2PerformanceTimer_getElapsedSeconds(const KIVCS2PerformanceTimer *timer, float *seconds)
{
    KIV_CHECK(timer);
    KIV_CHECK(seconds);

    return kivCS2PerformanceTimer_getSeconds(timer, KIVCS2PerformanceTimerKind_Elapsed, seconds);
}
