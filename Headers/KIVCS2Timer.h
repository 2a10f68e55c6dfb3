/**
 * @file
 * Repeating timers: a function called at an interval, on the timer's own thread or by a run loop.
 * This header includes the performance timers (KIVCS2PerformanceTimer.h), which measure durations.
 *
 * `create` makes a timer that runs at once, `cancel` stops its calls and `free` releases it; every timer is
 * freed once, also one that has ended by itself. There are two ways of calling:
 * - Thread (`KIVCS2TimerFlags_Thread`): the timer waits for the fire date, then calls after each interval,
 *   counted from the end of the previous call. So the first call comes one interval after the fire date, and
 *   the calls drift by the time they take.
 * - Run loop (the other flags): the calls are made on the loop's thread at the fire date and at whole
 *   intervals after it, without drift; overdue calls are made as one. Run loops are GLib's: the main one is
 *   the default main context, that of a thread is its thread-default context (see
 *   <CoreFoundation/CFRunLoop.h>). Without an interval above 0 there is one call.
 *
 * A timer's own callback may cancel and free it. `free` by the callback of a thread timer does not wait: the
 * thread ends when the callback has returned and does not read the record again. From outside, `free` of a
 * thread timer waits for the call in progress and up to a quarter of a second. `free` of a run-loop timer
 * never waits: on the loop's thread no call follows it; on another thread a call that had begun is finished,
 * so its context must live until then.
 *
 * A run-loop timer uses a file descriptor. A child of fork() that continues without exec has no calling
 * thread, and shares the descriptors: only one of parent and child may continue to run the loops, while each
 * may free its timers.
 *
 * @code
 * static int32_t onTime(void *semaphore)
 * {
 *     puts("tick"); // prints: tick
 *     kivCS2Semaphore_signal(semaphore);
 *     return KIVCS2TimerResult_End;
 * }
 *
 * KIVCS2Semaphore ended;
 * KIVCS2Timer *timer;
 * if (KIVCS2_FAILED(kivCS2Semaphore_init(&ended, NULL)) ||
 *     KIVCS2_FAILED(kivCS2Timer_create(&timer, onTime, &ended, KIVCS2TimerFlags_Thread, 0.01, 0)))
 *     return 1;
 * kivCS2Semaphore_wait(&ended);
 * kivCS2Timer_free(timer); // waits for the call in progress
 * kivCS2Semaphore_free(&ended);
 * @endcode
 */
#ifndef KIVCS2_TIMER_H
#define KIVCS2_TIMER_H

#include "KIVCS2PThread.h"
#include "KIVCS2PerformanceTimer.h"

#include <CoreFoundation/CFRunLoop.h>

KIVCS2_BEGIN_DECLS

/** Where the calls are made. Without any of these flags a timer never calls. */
typedef uint32_t KIVCS2TimerFlags;
enum
{
    KIVCS2TimerFlags_Thread = 1,        /**< a thread of its own; the other flags are ignored */
    KIVCS2TimerFlags_RunLoop = 2,       /**< the run loop given to kivCS2Timer_addToRunLoop() */
    KIVCS2TimerFlags_MainRunLoop = 4,   /**< the main run loop, in the common modes */
    KIVCS2TimerFlags_CurrentRunLoop = 8 /**< the creating thread's run loop, in the common modes; 4 wins */
};

/** The result of a callback on the timer's thread; any other value waits for the next interval. */
enum
{
    KIVCS2TimerResult_End = 1,  /**< no further call; the timer must still be freed */
    KIVCS2TimerResult_Again = 2 /**< the next call comes at once */
};

/** The function of a timer. Run loops ignore its result. */
typedef int32_t (*KIVCS2TimerFunc)(void *context);

/** A timer. Hosts read the members, only the operations write them. */
typedef struct KIVCS2Timer
{
    uint8_t m_running;                /**< 1 until a timer with a thread is cancelled */
    KIVCS2TimerFlags m_flags;         /**< as given */
    KIVCS2Thread *m_thread;           /**< null unless the timer has a thread */
    CFRunLoopTimerRef m_runLoopTimer; /**< null unless the timer is for a run loop */
    KIVCS2TimerFunc m_callback;       /**< null once cancelled */
    void *m_context;                  /**< null once cancelled */
    double m_interval;                /**< seconds */
    CFAbsoluteTime m_fireDate;        /**< seconds since 2001-01-01 00:00:00 UTC */
} KIVCS2Timer;

/**
 * Makes a timer and starts it. A callback may use `*_timer` from the first call on, even if that call comes
 * before this operation has returned.
 * @param[out] _timer   the timer, released by kivCS2Timer_free(); null on failure
 * @param[in] callback  may be null: then there are no calls
 * @param[in] context   passed to `callback` unchanged; must live until no call can be made any more
 * @param[in] flags     bits of KIVCS2TimerFlags
 * @param[in] interval  seconds. For 0, negative values and NaN a thread does not wait between its calls, and
 *                      a run loop calls once; infinity never comes
 * @param[in] fireDate  seconds since 2001-01-01 00:00:00 UTC; a date that has passed, or NaN, means now
 * @retval KIVCS2STATUS_PARAM_ERR   `_timer` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no memory, or no file descriptor for a run-loop timer
 * @retval KIVCS2STATUS_THREAD_ERR  the thread could not be started
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_create(KIVCS2Timer **_timer, KIVCS2TimerFunc callback, void *context,
                                           KIVCS2TimerFlags flags, double interval, CFAbsoluteTime fireDate);

/**
 * Adds a timer of `KIVCS2TimerFlags_RunLoop` to a run loop of any thread, which keeps what it needs of it. A
 * timer belongs to one loop: a timer that is in another loop stays there, and one that was cancelled or has
 * made its only call is not added; both are a success. Further modes of the same loop add up; adding the same
 * mode again is harmless. In a mode that is neither common nor the running one, the timer waits until the
 * loop is run in that mode.
 * @param[in,out] _timer    made with KIVCS2TimerFlags_RunLoop
 * @param[in]     _runLoop  of any thread
 * @param[in]     _mode     kCFRunLoopCommonModes, kCFRunLoopDefaultMode or a name of the host's own
 * @retval KIVCS2STATUS_PARAM_ERR   an argument is null, or the timer does not have the flag or has a thread
 * @retval KIVCS2STATUS_MEMORY_ERR  no memory for the mode; nothing has changed
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_addToRunLoop(KIVCS2Timer *_timer, CFRunLoopRef _runLoop,
                                                 CFStringRef _mode);

/**
 * Stops the calls without a wait; a call in progress is finished. A second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `_timer` is null
 * Thread safety: one thread at a time; callbacks of the timer may call it.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_cancel(KIVCS2Timer *_timer);

/**
 * Cancels the timer, waits for its thread unless that is the caller, and releases the timer. Callbacks of two
 * timers with threads must not free each other's timer: each would wait for the other.
 * @retval KIVCS2STATUS_PARAM_ERR  `_timer` is null, or has lost the thread or the run-loop timer that its
 *                                 flags name
 * Thread safety: one thread at a time; callbacks of the timer may call it.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_free(KIVCS2Timer *_timer);

KIVCS2_END_DECLS

#endif
