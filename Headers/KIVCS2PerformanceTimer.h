/**
 * @file
 * Performance timers: measure how long work takes, by the machine's absolute clock, with the count, the
 * average, the shortest and the longest of the measured intervals.
 *
 * The caller owns the record; `init` clears and starts it, and nothing has to be released. `start` and
 * `stop` around the work measure one interval. The clock stands still while the machine sleeps. Reading
 * converts with the library's time base, so kivCS2_init() must have run.
 *
 * @code
 * KIVCS2PerformanceTimer timer;
 * uint64_t nanoseconds;
 * kivCS2PerformanceTimer_init(&timer);
 * kivCS2PerformanceTimer_start(&timer);
 * // the work
 * kivCS2PerformanceTimer_stop(&timer);
 * if (KIVCS2_FAILED(kivCS2PerformanceTimer_getNanoseconds(&timer, KIVCS2PerformanceTimerKind_Maximum,
 *                                                         &nanoseconds)))
 *     return 1;
 * printf("%u interval, below a minute: %d\n", timer.m_count,
 *        nanoseconds < 60000000000); // prints: 1 interval, below a minute: 1
 * @endcode
 */
#ifndef KIVCS2_PERFORMANCE_TIMER_H
#define KIVCS2_PERFORMANCE_TIMER_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** The value to read; any other kind reads 0. */
typedef int32_t KIVCS2PerformanceTimerKind;
enum
{
    KIVCS2PerformanceTimerKind_Elapsed = 0, /**< from the last start until now */
    KIVCS2PerformanceTimerKind_Average = 1, /**< total divided by count, in whole units of the clock */
    KIVCS2PerformanceTimerKind_Minimum = 2,
    KIVCS2PerformanceTimerKind_Maximum = 3
};

/** A performance timer; times are in units of the absolute clock. */
typedef struct KIVCS2PerformanceTimer
{
    uint64_t m_start;   /**< time of the last start */
    uint64_t m_total;   /**< sum of the measured intervals */
    uint64_t m_minimum; /**< the shortest of them */
    uint64_t m_maximum; /**< the longest of them */
    uint32_t m_count;   /**< number of measured intervals */
} KIVCS2PerformanceTimer;

/**
 * Clears the record and starts it.
 * @retval KIVCS2STATUS_PARAM_ERR  `timer` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_init(KIVCS2PerformanceTimer *timer);

/**
 * Starts an interval now; earlier measurements stay.
 * @retval KIVCS2STATUS_PARAM_ERR  `timer` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_start(KIVCS2PerformanceTimer *timer);

/**
 * Records the interval from the last start until now. It does not start another interval: a second stop
 * records a second interval from the same start.
 * @retval KIVCS2STATUS_PARAM_ERR  `timer` is null
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_stop(KIVCS2PerformanceTimer *timer);

/**
 * Reads `kind` in nanoseconds.
 * @param[in]  pTimer       initialised
 * @param[in]  kind         any other value than the four reads 0
 * @param[out] nanoseconds  64 bits, in memory as two halves of 32 bits with the low one first
 * @retval KIVCS2STATUS_PARAM_ERR  `pTimer` or `nanoseconds` is null
 * @retval KIVCS2STATUS_DATA_ERR   average, minimum or maximum without a measured interval; nothing is stored
 * Thread safety: any thread while no thread starts or stops the timer.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_getNanoseconds(const KIVCS2PerformanceTimer *pTimer,
                                                              KIVCS2PerformanceTimerKind kind,
                                                              uint64_t *nanoseconds);

/**
 * Reads `kind` in whole milliseconds, rounded down; the low 32 bits are stored (49 days).
 * @retval KIVCS2STATUS_PARAM_ERR  `pTimer` or `milliseconds` is null
 * @retval KIVCS2STATUS_DATA_ERR   as kivCS2PerformanceTimer_getNanoseconds()
 * Thread safety: any thread while no thread starts or stops the timer.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_getMilliseconds(const KIVCS2PerformanceTimer *pTimer,
                                                               KIVCS2PerformanceTimerKind kind,
                                                               uint32_t *milliseconds);

/**
 * Reads `kind` in seconds with fractions, to the seven digits of a 32-bit float.
 * @retval KIVCS2STATUS_PARAM_ERR  `pTimer` or `seconds` is null
 * @retval KIVCS2STATUS_DATA_ERR   as kivCS2PerformanceTimer_getNanoseconds()
 * Thread safety: any thread while no thread starts or stops the timer.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_getSeconds(const KIVCS2PerformanceTimer *pTimer,
                                                          KIVCS2PerformanceTimerKind kind, float *seconds);

/**
 * As kivCS2PerformanceTimer_getNanoseconds(), for the time since the last start.
 * @retval KIVCS2STATUS_PARAM_ERR  `timer` or `nanoseconds` is null
 * Thread safety: any thread while no thread starts or stops the timer.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_getElapsedNanoseconds(const KIVCS2PerformanceTimer *timer,
                                                                     uint64_t *nanoseconds);

/**
 * As kivCS2PerformanceTimer_getMilliseconds(), for the time since the last start.
 * @retval KIVCS2STATUS_PARAM_ERR  `timer` or `milliseconds` is null
 * Thread safety: any thread while no thread starts or stops the timer.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_getElapsedMilliseconds(const KIVCS2PerformanceTimer *timer,
                                                                      uint32_t *milliseconds);

/**
 * As kivCS2PerformanceTimer_getSeconds(), for the time since the last start.
 * @retval KIVCS2STATUS_PARAM_ERR  `timer` or `seconds` is null
 * Thread safety: any thread while no thread starts or stops the timer.
 */
KIVCS2_API KIVCS2Status kivCS2PerformanceTimer_getElapsedSeconds(const KIVCS2PerformanceTimer *timer,
                                                                 float *seconds);

KIVCS2_END_DECLS

#endif
