/**
 * @file
 * Repeating timers: a function called at an interval, on a thread of the timer's own or by a run loop.
 * Durations are measured by performance timers (KIVCS2PerformanceTimer.h), which come along.
 *
 * `create` makes a timer that runs at once, `cancel` stops its calls and `free` releases it; every timer is
 * freed once, also one that has ended by itself. The two ways differ:
 * - Thread (`KIVCS2TimerFlags_Thread`): the timer waits for the fire date, then calls after each interval,
 *   counted from the end of the call before. The first call so comes one interval after the fire date, and
 *   the calls drift by the time they take.
 * - Run loop (the other flags): the calls are made on the loop's thread at the fire date and at whole
 *   intervals after it, without drift; a late call is made once. Run loops are GLib's: the main one is
 *   the default main context, a thread's own its thread-default context (see <CoreFoundation/CFRunLoop.h>).
 *   Without an interval above 0 there is one call.
 *
 * A timer may be cancelled and freed by its own callback. `free` by the callback of a thread timer does not
 * wait: the thread ends when the callback has returned and looks at the record no more. From outside,
 * `free` of a thread timer waits for the call in progress and up to a quarter of a second; `free` of a
 * run-loop timer never waits: on the loop's thread no call follows it, on another thread a call that had
 * begun is finished, so that its context has to live until then.
 *
 * A run-loop timer takes a file descriptor. A child of fork() that goes on without exec has no thread that
 * calls, and shares the descriptors: only one of parent and child may go on running the loops, while each may
 * free its timers.
 */
#ifndef KIVCS2_TIMER_H
#define KIVCS2_TIMER_H

#include "KIVCS2PThread.h"
#include "KIVCS2PerformanceTimer.h"

#include <CoreFoundation/CFRunLoop.h>

KIVCS2_BEGIN_DECLS

/** Who makes the calls. Without any of these a timer never calls. */
typedef uint32_t KIVCS2TimerFlags;
enum
{
    KIVCS2TimerFlags_Thread = 1,        /**< a thread of its own; the other flags are ignored */
    KIVCS2TimerFlags_RunLoop = 2,       /**< the run loop it is added to by kivCS2Timer_addToRunLoop() */
    KIVCS2TimerFlags_MainRunLoop = 4,   /**< the main run loop, in the common modes */
    KIVCS2TimerFlags_CurrentRunLoop = 8 /**< the creating thread's run loop, in the common modes; 4 wins */
};

/** What a callback on the timer's thread asks for; any other value waits for the next interval. */
enum
{
    KIVCS2TimerResult_End = 1,  /**< no further call; the timer is still to be freed */
    KIVCS2TimerResult_Again = 2 /**< the next call comes at once */
};

/** The function of a timer. Run loops ignore its result. */
typedef int32_t (*KIVCS2TimerFunc)(void *context);

/** A timer. The members are read by hosts and written by the operations alone. */
typedef struct KIVCS2Timer
{
    uint8_t m_running;                /**< 1 until a timer with a thread is cancelled */
    KIVCS2TimerFlags m_flags;         /**< as given */
    KIVCS2Thread *m_thread;           /**< of a timer with a thread, else null */
    CFRunLoopTimerRef m_runLoopTimer; /**< of a timer for a run loop, else null */
    KIVCS2TimerFunc m_callback;       /**< null once cancelled */
    void *m_context;                  /**< null once cancelled */
    double m_interval;                /**< seconds */
    CFAbsoluteTime m_fireDate;        /**< seconds since 2001-01-01 00:00:00 UTC */
} KIVCS2Timer;

/**
 * Makes a timer and lets it run. A callback may use `*_timer` from the first call on, also when that comes
 * before this operation has returned.
 * @param[out] _timer   the timer, released by kivCS2Timer_free(); null on failure
 * @param[in] callback  may be null: nothing is called
 * @param[in] context   handed to `callback` unchanged; has to live until no call can be made any more
 * @param[in] flags     bits of KIVCS2TimerFlags
 * @param[in] interval  seconds. A thread does not wait between its calls for 0 and less and for NaN, a run
 *                      loop calls once; infinity never comes
 * @param[in] fireDate  seconds since 2001-01-01 00:00:00 UTC; one that has passed, or NaN, is now
 * @retval KIVCS2STATUS_PARAM_ERR   `_timer` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no memory, or no file descriptor for a run-loop timer
 * @retval KIVCS2STATUS_THREAD_ERR  no thread
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_create(KIVCS2Timer **_timer, KIVCS2TimerFunc callback, void *context,
                                           KIVCS2TimerFlags flags, double interval, CFAbsoluteTime fireDate);

/**
 * Adds a timer of `KIVCS2TimerFlags_RunLoop` to a run loop of any thread, which keeps what it needs of it. A
 * timer belongs to one loop: one that is in another stays there, with success, and one that was cancelled
 * or has made its only call is not added, with success too. Further modes of the same loop add up; the same
 * one twice is harmless. In a mode that is neither common nor the running one it waits until the loop is run
 * in that mode.
 * @param[in] _mode  kCFRunLoopCommonModes, kCFRunLoopDefaultMode or a name of the host's own
 * @retval KIVCS2STATUS_PARAM_ERR   an argument is null, or the timer has not the flag or has a thread
 * @retval KIVCS2STATUS_MEMORY_ERR  no memory for the mode; nothing has changed
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_addToRunLoop(KIVCS2Timer *_timer, CFRunLoopRef _runLoop,
                                                 CFStringRef _mode);

/**
 * Stops the calls without a wait; a call in progress is finished. Twice is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `_timer` is null
 * Thread safety: one thread at a time; callbacks of the timer may call it.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_cancel(KIVCS2Timer *_timer);

/**
 * Cancels the timer, waits for its thread unless that is the caller, and releases it. Callbacks of two timers
 * with threads must not free each other's: each would wait for the other.
 * @retval KIVCS2STATUS_PARAM_ERR  `_timer` is null, or has lost the thread or the run-loop timer its flags
 *                                 name
 * Thread safety: one thread at a time; callbacks of the timer may call it.
 */
KIVCS2_API KIVCS2Status kivCS2Timer_free(KIVCS2Timer *_timer);

KIVCS2_END_DECLS

#endif
