/**
 * @file
 * Common parts of all CoreFoundation objects: types, reference counts, identity.
 *
 * Ownership follows the name of the call: an object from a "Create" or "Copy" call belongs to the
 * caller, who releases it; an object from a "Get" call belongs to someone else, so a caller retains it
 * to keep it. Counts may change on any thread. A call that fails returns NULL or false.
 */
#ifndef KIV_CF_BASE_H
#define KIV_CF_BASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN                                                                                    \
    extern "C"                                                                                               \
    {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif
#define CF_EXPORT extern __attribute__((visibility("default")))
/** Marks a call whose result the caller releases although the name does not say so. */
#ifdef __clang__
#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
#else
#define CF_RETURNS_RETAINED
#endif

CF_EXTERN_C_BEGIN

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef uint16_t UniChar;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode; /**< four characters, the first in the top byte */
typedef FourCharCode OSType;

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

typedef const void *CFTypeRef;
typedef const struct __CFString *CFStringRef;
typedef struct __CFString *CFMutableStringRef;
typedef const struct __CFAllocator *CFAllocatorRef;

/** The allocator argument of every Create call; any value means the system heap. */
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;

typedef CFIndex CFComparisonResult;
enum
{
    kCFCompareLessThan = -1,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
};

enum
{
    kCFNotFound = -1 /**< no such index */
};

typedef struct CFRange
{
    CFIndex location;
    CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length)
{
    CFRange range;
    range.location = location;
    range.length = length;
    return range;
}

/** Adds one reference and returns `cf`, which must not be NULL. Any thread. */
CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);
/** Removes one reference; removing the last one ends the object. `cf` must not be NULL. Any thread. */
CF_EXPORT void CFRelease(CFTypeRef cf);
/** The current number of references; for tests and diagnostics. */
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef cf);
/** The kind of the object; equals the result of its type's own GetTypeID. */
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);
/** Returns true for the same object, and for two objects of one kind with the same value. */
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
/** Equal objects have equal hashes within one process. */
CF_EXPORT CFHashCode CFHash(CFTypeRef cf);

CF_EXTERN_C_END

#endif
