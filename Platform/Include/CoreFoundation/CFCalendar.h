/**
 * @file
 * The Gregorian calendar in the process's zone (CFTimeZone.h); Julian before 15 October 1582.
 */
#ifndef KIV_CF_CALENDAR_H
#define KIV_CF_CALENDAR_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>

CF_EXTERN_C_BEGIN

typedef struct __CFCalendar *CFCalendarRef;

CF_EXPORT CFTypeID CFCalendarGetTypeID(void);
/** The process's calendar, Gregorian whatever the locale. */
CF_EXPORT CFCalendarRef CFCalendarCopyCurrent(void);

/**
 * The moment at which the calendar shows the given components; the others are those of year 1, January 1,
 * 00:00:00. One `int` for each letter of `componentDesc`: y year, M month (January is 1), d day, H hour, m
 * minute, s second. Values out of range carry: month 0 is the December before, day 0 the last day of the
 * month before. A time that the clock shows twice means the second one; a time inside a gap means one as far
 * after the gap as it lies inside it. False, `at` untouched, for any other letter. Thread safety: any thread.
 */
CF_EXPORT Boolean CFCalendarComposeAbsoluteTime(CFCalendarRef calendar, CFAbsoluteTime *at,
                                                const char *componentDesc, ...);

CF_EXTERN_C_END

#endif
