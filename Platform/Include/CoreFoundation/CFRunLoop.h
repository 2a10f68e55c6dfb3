/**
 * @file
 * Run loops and their timers, over GLib's main contexts: a timer fires in the loop that the host runs anyway.
 *
 * The main thread's loop is GLib's default main context. Any other thread's is the context that the thread
 * has made its default (g_main_context_push_thread_default), else the default context while the thread
 * runs it, else a context of the thread's own. So a host runs a loop with g_main_loop_run or
 * g_main_context_iteration on that context, or with CFRunLoopRun(); all of these run the default mode.
 *
 * A timer belongs to at most one loop, in one or more modes. It fires while the loop runs in one of them; in
 * other modes it waits, and if its time has passed it fires once when its mode is back.
 *
 * Each timer has a file descriptor. After fork() without exec, parent and child share the
 * descriptors of earlier timers: only one of the two may keep running loops with them,
 * while both may invalidate and release them.
 */
#ifndef KIV_CF_RUN_LOOP_H
#define KIV_CF_RUN_LOOP_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

CF_EXTERN_C_BEGIN

typedef struct __CFRunLoop *CFRunLoopRef;
typedef struct __CFRunLoopTimer *CFRunLoopTimerRef;
typedef CFStringRef CFRunLoopMode;

/** The mode of a loop that is run by CFRunLoopRun() or by GLib. */
CF_EXPORT const CFRunLoopMode kCFRunLoopDefaultMode;
/** Stands for all common modes, of which the default mode is the only one. No loop runs in it. */
CF_EXPORT const CFRunLoopMode kCFRunLoopCommonModes;

/** Why CFRunLoopRunInMode() has returned. */
typedef SInt32 CFRunLoopRunResult;
enum
{
    kCFRunLoopRunFinished = 1,     /**< no timer is in the mode, or another thread runs the loop */
    kCFRunLoopRunStopped = 2,      /**< CFRunLoopStop() was called */
    kCFRunLoopRunTimedOut = 3,     /**< the time has passed */
    kCFRunLoopRunHandledSource = 4 /**< another source of the host in the context was served */
};

CF_EXPORT CFTypeID CFRunLoopGetTypeID(void);

/** The main thread's loop. Any thread. */
CF_EXPORT CFRunLoopRef CFRunLoopGetMain(void);

/**
 * The calling thread's loop, the same object each time for the same context. A loop of the thread's own lives
 * until the thread ends, and its timers then leave it; a loop of a host's context lives as long as the
 * context, which its timers retain. A loop retained beyond that takes no timers and cannot run. NULL without
 * memory, or without a file descriptor for a loop of the thread's own.
 */
CF_EXPORT CFRunLoopRef CFRunLoopGetCurrent(void);

/** Runs the calling thread's loop in the default mode until it is stopped or the mode has no timer left. */
CF_EXPORT void CFRunLoopRun(void);

/**
 * Runs the calling thread's loop in `mode` for `seconds`; with 0 or less, or NaN, it serves what
 * is ready once and does not wait. With `returnAfterSourceHandled` it also returns once
 * something other than a timer was served. Runs may be nested; the timers of the outer mode then
 * wait, unless they are in the inner one too.
 */
CF_EXPORT CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                                Boolean returnAfterSourceHandled);

/** Ends the innermost run of `rl` by CFRunLoopRun() or CFRunLoopRunInMode(), if there is one. Any thread. */
CF_EXPORT void CFRunLoopStop(CFRunLoopRef rl);

/** Makes a waiting loop check again what is ready. Any thread. */
CF_EXPORT void CFRunLoopWakeUp(CFRunLoopRef rl);

/**
 * Adds `timer` to `mode` of `rl`, which retains it. Nothing happens if the timer is invalid, is in
 * another loop or already in the mode, or if there is no memory for a mode that is not common. Any thread.
 */
CF_EXPORT void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

/** Removes `timer` from `mode` of `rl`; a timer in no mode may then be added to another loop. Any thread. */
CF_EXPORT void CFRunLoopRemoveTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

/** Returns true if `timer` was added to exactly this mode of `rl`. Any thread. */
CF_EXPORT Boolean CFRunLoopContainsTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

/** The context of a timer's callout. Copied when the timer is made. */
typedef struct CFRunLoopTimerContext
{
    CFIndex version; /**< 0 */
    void *info;      /**< passed to the callout */
    const void *(*retain)(
        const void *info); /**< called once when the timer is made; its result is the info; may be NULL */
    void (*release)(const void *info);                /**< called once, after the last callout; may be NULL */
    CFStringRef (*copyDescription)(const void *info); /**< not called; may be NULL */
} CFRunLoopTimerContext;

/** Called on the loop's thread. */
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void *info);

CF_EXPORT CFTypeID CFRunLoopTimerGetTypeID(void);

/**
 * A timer that fires at `fireDate` and then, with an interval above 0, at whole intervals after it. A late
 * timer fires once and continues with the next date to come: lateness does not add up. Without an interval
 * it becomes invalid after its first callout. Setting the clock does not change the intervals of a timer
 * that has fired; a first fire date stays at its clock time. A date of NaN has passed; a date or an interval
 * of infinity never comes. NULL without memory or a file descriptor.
 * @param[in] flags, order  0
 * @param[in] context       copied; NULL for none
 */
CF_EXPORT CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                                 CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                                 CFRunLoopTimerCallBack callout,
                                                 CFRunLoopTimerContext *context);

/** The date when the timer fires next, or should have fired; 0 for an invalid timer. Any thread. */
CF_EXPORT CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer);

/**
 * Ends the timer and removes it from its loop. On the loop's thread no callout follows. On
 * another thread the call does not wait for a callout in progress; the info is released after
 * that. Any thread, also from the callout itself.
 */
CF_EXPORT void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

/** Returns false for an invalidated timer, and for one without an interval that has fired. Any thread. */
CF_EXPORT Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer);

CF_EXTERN_C_END

#endif
