/**
 * @file
 * Moments: seconds since 2001-01-01 00:00:00 UTC, as a double.
 */
#ifndef KIV_CF_DATE_H
#define KIV_CF_DATE_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;
typedef const struct __CFDate *CFDateRef;

/** Seconds from 1970-01-01 to 2001-01-01. */
CF_EXPORT const CFTimeInterval kCFAbsoluteTimeIntervalSince1970;

CF_EXPORT CFTypeID CFDateGetTypeID(void);
/** Now, by the system's real-time clock; it may go back when the clock is set. */
CF_EXPORT CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);
/** A date at `at`. NULL when there is no memory. */
CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef theDate);

CF_EXTERN_C_END

#endif
