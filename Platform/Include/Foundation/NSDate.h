/**
 * @file
 * Messages of the date class, as functions named after class and message. A Foundation date is a CFDate.
 */
#ifndef KIV_NS_DATE_H
#define KIV_NS_DATE_H

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFTimeZone.h>

CF_EXTERN_C_BEGIN

/**
 * The text of `date` by a calendar format, to be released with CFRelease(). Each conversion of `format`
 * stands for a part of the date, all other characters for themselves:
 * %a %A weekday (Mon, Monday), %w as a number, Sunday is 0; %b %B month (Mar, March), %m 01 to 12;
 * %d day 01 to 31, %e without the zero; %j day of the year 001 to 366; %y year 00 to 99, %Y with its century;
 * %H hour 00 to 23, %I 01 to 12 with %p AM or PM; %M minute; %S second; %F milliseconds 000 to 999;
 * %Z zone as the C library names it (CET, +05), %z its distance from GMT (+0100);
 * %x "%m/%d/%y", %X "%H:%M:%S", %c "%X %x"; %% "%".
 * @param[in] timeZone  ignored: the process's zone is the only one
 * @param[in] locale    ignored: names are English
 * NULL for a date that is not a number and without memory. Any thread.
 */
CF_EXPORT CFStringRef NSDate_descriptionWithCalendarFormat(CFDateRef date, CFStringRef format,
                                                           CFTimeZoneRef timeZone,
                                                           CFTypeRef locale) CF_RETURNS_RETAINED;

CF_EXTERN_C_END

#endif
