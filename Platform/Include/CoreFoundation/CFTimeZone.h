/**
 * @file
 * Time zones: what a clock on the wall is ahead of GMT, at any moment.
 *
 * There is one zone, the C library's: its rules are those of the machine, and it knows every form of `TZ`
 * (a name, a path, a rule such as "CET-1CEST,M3.5.0,M10.5.0/3"). `TZ` is read with the first date that the
 * process looks at. A host that changes it later and calls tzset() is followed, as by localtime_r().
 */
#ifndef KIV_CF_TIME_ZONE_H
#define KIV_CF_TIME_ZONE_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFTimeZone *CFTimeZoneRef;

CF_EXPORT CFTypeID CFTimeZoneGetTypeID(void);
/** The zone of the process. Any thread. */
CF_EXPORT CFTimeZoneRef CFTimeZoneCopyDefault(void);
/** Seconds that the zone's clock is ahead of GMT at `at`, negative where it is behind; 0 for a date that is
    not a number. Any thread. */
CF_EXPORT CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef tz, CFAbsoluteTime at);

CF_EXTERN_C_END

#endif
