/**
 * @file
 * Adding a timer to a run loop by a call that tells of missing memory.
 */
#ifndef KIVP_RUN_LOOP_H
#define KIVP_RUN_LOOP_H

#include <CoreFoundation/CFRunLoop.h>

CF_EXTERN_C_BEGIN

/**
 * CFRunLoopAddTimer() with an answer: false when there is no memory for the mode, and nothing has happened. A
 * timer that is invalid or in another loop is not added either, which is no failure. Any thread.
 */
CF_EXPORT Boolean KIVPRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

CF_EXTERN_C_END

#endif
