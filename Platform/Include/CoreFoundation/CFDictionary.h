/**
 * @file
 * Values under keys; with kCFTypeDictionaryKeyCallBacks and kCFTypeDictionaryValueCallBacks a dictionary
 * retains both and finds keys by value.
 *
 * Keys and values are reported in the order in which the keys came. A mutable dictionary is used by one
 * thread at a time; an immutable one by any number.
 */
#ifndef KIV_CF_DICTIONARY_H
#define KIV_CF_DICTIONARY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFDictionary *CFDictionaryRef;
typedef struct __CFDictionary *CFMutableDictionaryRef;

typedef const void *(*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void *value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void *value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void *value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void *value1, const void *value2);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void *value);

/** What a dictionary does with its keys; any member may be NULL. */
typedef struct CFDictionaryKeyCallBacks
{
    CFIndex version; /**< 0 */
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription; /**< not called by this system */
    CFDictionaryEqualCallBack equal;                     /**< NULL compares pointers */
    CFDictionaryHashCallBack hash;                       /**< NULL takes the pointer */
} CFDictionaryKeyCallBacks;

/** What a dictionary does with its values; any member may be NULL. */
typedef struct CFDictionaryValueCallBacks
{
    CFIndex version; /**< 0 */
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription; /**< not called by this system */
    CFDictionaryEqualCallBack equal;                     /**< NULL compares pointers */
} CFDictionaryValueCallBacks;

/** For keys that are CoreFoundation objects: CFRetain, CFRelease, CFEqual, CFHash. */
CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
/** For values that are CoreFoundation objects: CFRetain, CFRelease, CFEqual. */
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

/**
 * A dictionary of `numValues` keys and values, each retained; of equal keys the first counts.
 * Callbacks NULL: keys or values are plain pointers.
 */
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void **keys, const void **values,
                                             CFIndex numValues, const CFDictionaryKeyCallBacks *keyCallBacks,
                                             const CFDictionaryValueCallBacks *valueCallBacks);

/** An empty dictionary that grows; `capacity` is a hint, 0 for none. */
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                           const CFDictionaryKeyCallBacks *keyCallBacks,
                                                           const CFDictionaryValueCallBacks *valueCallBacks);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);

CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void *key);

/** The value under `key`, not retained. NULL for none; a NULL value is told by the next call. */
CF_EXPORT const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key);

/** True when there is the key; `value`, which may be NULL, then receives its value, not retained. */
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void *key, const void **value);

/** Stores all keys and values, not retained, in the order of the keys' arrival; each array may be NULL. */
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void **keys, const void **values);

/** Retains key and value and adds them, unless there is the key. Without memory nothing changes. */
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void *key, const void *value);

/**
 * Retains `value` and puts it under `key`. A key that is there stays, at its place; one that is not is
 * retained and comes last. Without memory nothing changes: ask CFDictionaryContainsKey().
 */
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void *key, const void *value);

/** Releases key and value, where there are such. */
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void *key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict);

CF_EXTERN_C_END

#endif
