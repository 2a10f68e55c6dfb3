/**
 * @file
 * Adds a timer to a run loop and reports missing memory.
 */
#ifndef KIVP_RUN_LOOP_H
#define KIVP_RUN_LOOP_H

#include <CoreFoundation/CFRunLoop.h>

CF_EXTERN_C_BEGIN

/**
 * CFRunLoopAddTimer() with a result: false, and nothing has changed, if there is no memory for the mode. A
 * timer that is invalid or in another loop is not added either, but that is not a failure. Any thread.
 */
CF_EXPORT Boolean KIVPRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode);

CF_EXTERN_C_END

#endif
