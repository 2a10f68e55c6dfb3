/**
 * @file
 * Immutable blocks of bytes.
 */
#ifndef KIV_CF_DATA_H
#define KIV_CF_DATA_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData *CFDataRef;

CF_EXPORT CFTypeID CFDataGetTypeID(void);
/** A copy of `length` bytes; `bytes` may be NULL if there are none. NULL without memory. */
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8 *bytes, CFIndex length);
CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
/** The bytes, for as long as the object lives. */
CF_EXPORT const UInt8 *CFDataGetBytePtr(CFDataRef theData);
/** Copies the part of `range` that lies inside the data. */
CF_EXPORT void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8 *buffer);

CF_EXTERN_C_END

#endif
