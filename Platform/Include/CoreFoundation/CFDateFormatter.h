/**
 * @file
 * Texts of dates by a Unicode pattern ("yyyy-MM-dd HH:mm:ss.SSS", UTS 35), in the process's zone
 * (CFTimeZone.h). A zone name in a pattern ("z") is written as the distance from GMT.
 *
 * One thread at a time uses a formatter. Making one is cheap; the first
 * text of a process loads the locale data.
 */
#ifndef KIV_CF_DATE_FORMATTER_H
#define KIV_CF_DATE_FORMATTER_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFLocale.h>

CF_EXTERN_C_BEGIN

typedef struct __CFDateFormatter *CFDateFormatterRef;

typedef CFIndex CFDateFormatterStyle;
enum
{
    kCFDateFormatterNoStyle = 0 /**< the pattern alone decides; the only style this system has */
};

CF_EXPORT CFTypeID CFDateFormatterGetTypeID(void);

/** A formatter without a pattern, whose texts are empty. A NULL `locale` is en_US_POSIX, never the
    environment's. NULL for another style and without memory. */
CF_EXPORT CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef allocator, CFLocaleRef locale,
                                                   CFDateFormatterStyle dateStyle,
                                                   CFDateFormatterStyle timeStyle);

/** Gives the formatter its pattern; without memory it keeps the one it had. */
CF_EXPORT void CFDateFormatterSetFormat(CFDateFormatterRef formatter, CFStringRef formatString);

/** The text of `date`, to the nearest millisecond. NULL when the date cannot be written. */
CF_EXPORT CFStringRef CFDateFormatterCreateStringWithDate(CFAllocatorRef allocator,
                                                          CFDateFormatterRef formatter, CFDateRef date);
/** The same for a plain absolute time. */
CF_EXPORT CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef allocator,
                                                                  CFDateFormatterRef formatter,
                                                                  CFAbsoluteTime at);

/**
 * The date that `string` shows in the formatter's pattern, to be released with CFRelease(). Numbers may have
 * fewer or more digits than the pattern, and all but the hours may be out of range and carry. Without a zone
 * in the pattern the time is in the process's zone; repeated and missing times count as in CFCalendar.h.
 * @param[in,out] rangep  the units to read, then the units read; NULL for the whole string, which need not
 *                        be read to its end
 * NULL for a text of another form and when there is no memory.
 */
CF_EXPORT CFDateRef CFDateFormatterCreateDateFromString(CFAllocatorRef allocator,
                                                        CFDateFormatterRef formatter, CFStringRef string,
                                                        CFRange *rangep);

CF_EXTERN_C_END

#endif
