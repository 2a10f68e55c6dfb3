/**
 * @file
 * Ordered collections of pointers; with kCFTypeArrayCallBacks an array retains its values.
 *
 * One thread at a time uses a mutable array; any number may use an immutable one.
 */
#ifndef KIV_CF_ARRAY_H
#define KIV_CF_ARRAY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFArray *CFArrayRef;
typedef struct __CFArray *CFMutableArrayRef;

typedef const void *(*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void *value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void *value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void *value);
typedef Boolean (*CFArrayEqualCallBack)(const void *value1, const void *value2);

/** The operations of an array on its values; any member may be NULL. */
typedef struct CFArrayCallBacks
{
    CFIndex version; /**< 0 */
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription; /**< not called by this system */
    CFArrayEqualCallBack equal;                     /**< NULL compares pointers */
} CFArrayCallBacks;

/** For values that are CoreFoundation objects: CFRetain, CFRelease, CFEqual. */
CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

/** An array of `numValues` values, each retained. `callBacks` NULL: the values are plain pointers. */
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void **values, CFIndex numValues,
                                   const CFArrayCallBacks *callBacks);

/** An empty array that grows; `capacity` is a hint, 0 for none. */
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks *callBacks);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef theArray);

/** The value at `idx`, 0 to count - 1, not retained. NULL out of range. */
CF_EXPORT const void *CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);

/** Retains `value` and appends it. Without memory the array stays as it is; compare counts to find out. */
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef theArray, const void *value);

CF_EXTERN_C_END

#endif
