/**
 * @file
 * The monotonic clock.
 */
#ifndef KIV_MACH_TIME_H
#define KIV_MACH_TIME_H

#include <mach/kern_return.h>

#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

/** Nanoseconds are absolute time times `numer`, divided by `denom`. */
typedef struct mach_timebase_info_data
{
    uint32_t numer;
    uint32_t denom;
} mach_timebase_info_data_t;
typedef mach_timebase_info_data_t *mach_timebase_info_t;

/** Stores the ratio, here 1 to 1. Always KERN_SUCCESS. Any thread. */
extern __attribute__((visibility("default"))) kern_return_t mach_timebase_info(mach_timebase_info_t info);

/** Ticks since an arbitrary start, not counting sleep. Never goes back; two readings may be equal. Any
thread; safe in a signal handler. */
extern __attribute__((visibility("default"))) uint64_t mach_absolute_time(void);

__END_DECLS

#endif
