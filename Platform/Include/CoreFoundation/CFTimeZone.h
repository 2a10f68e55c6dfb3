/**
 * @file
 * Time zones: what a clock on the wall is ahead of GMT, at any moment.
 */
#ifndef KIV_CF_TIME_ZONE_H
#define KIV_CF_TIME_ZONE_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFTimeZone *CFTimeZoneRef;

CF_EXPORT CFTypeID CFTimeZoneGetTypeID(void);
/** The zone the process started with (`TZ`). NULL when there is no memory. Any thread. */
CF_EXPORT CFTimeZoneRef CFTimeZoneCopyDefault(void);
/** Seconds that the zone's clock is ahead of GMT at `at`, negative where it is behind; 0 for a moment
    beyond the calendar. Any thread. */
CF_EXPORT CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef tz, CFAbsoluteTime at);

CF_EXTERN_C_END

#endif
