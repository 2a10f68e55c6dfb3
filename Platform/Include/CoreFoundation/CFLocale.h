/**
 * @file
 * Locales: the name of a language and region, immutable.
 */
#ifndef KIV_CF_LOCALE_H
#define KIV_CF_LOCALE_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFLocale *CFLocaleRef;
typedef CFStringRef CFLocaleIdentifier;

CF_EXPORT CFTypeID CFLocaleGetTypeID(void);
/** The locale of that name ("en_US_POSIX", "de_DE"). NULL when there is no memory. */
CF_EXPORT CFLocaleRef CFLocaleCreate(CFAllocatorRef allocator, CFLocaleIdentifier localeIdentifier);
/** The locale of the environment (LC_ALL, LC_TIME, LANG); en_US_POSIX if that names none. */
CF_EXPORT CFLocaleRef CFLocaleCopyCurrent(void);
/** Its name; belongs to the locale. */
CF_EXPORT CFLocaleIdentifier CFLocaleGetIdentifier(CFLocaleRef locale);

CF_EXTERN_C_END

#endif
