/**
 * @file
 * Universally unique identifiers, immutable (RFC 4122, version 4: random).
 */
#ifndef KIV_CF_UUID_H
#define KIV_CF_UUID_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFUUID *CFUUIDRef;

CF_EXPORT CFTypeID CFUUIDGetTypeID(void);
/** A new random identifier. NULL without memory or without random numbers. */
CF_EXPORT CFUUIDRef CFUUIDCreate(CFAllocatorRef alloc);
/** Its 36 characters, upper case: "68753A44-4D6F-1226-9C60-0050E4C00067". */
CF_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef alloc, CFUUIDRef uuid);

CF_EXTERN_C_END

#endif
