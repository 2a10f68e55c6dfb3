/**
 * @file
 * Time zones: how far local time is ahead of GMT at any moment.
 *
 * There is one zone, the C library's: its rules are those of the machine, and it knows every form of `TZ`
 * (a name, a path, a rule such as "CET-1CEST,M3.5.0,M10.5.0/3"). `TZ` is read at the process's first date.
 * As with localtime_r(), a later change takes effect when the host calls tzset().
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
/** Seconds by which the zone's clock is ahead of GMT at `at`, negative if it is behind; 0 for a date that is
    not a number. Any thread. */
CF_EXPORT CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef tz, CFAbsoluteTime at);

CF_EXTERN_C_END

#endif
