/**
 * @file
 * Values under keys; with kCFTypeDictionaryKeyCallBacks and kCFTypeDictionaryValueCallBacks a dictionary
 * retains both and finds keys by value.
 *
 * Keys and values are reported in the order in which the keys were added. One thread at a time uses a mutable
 * dictionary; any number may use an immutable one.
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

/** The operations of a dictionary on its keys; any member may be NULL. */
typedef struct CFDictionaryKeyCallBacks
{
    CFIndex version; /**< 0 */
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription; /**< not called by this system */
    CFDictionaryEqualCallBack equal;                     /**< NULL compares pointers */
    CFDictionaryHashCallBack hash;                       /**< NULL takes the pointer */
} CFDictionaryKeyCallBacks;

/** The operations of a dictionary on its values; any member may be NULL. */
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
 * A dictionary of `numValues` keys and values, each retained; the first of equal keys counts.
 * With NULL callbacks, keys or values are plain pointers.
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

/** The value under `key`, not retained. NULL if there is none; the next call detects a NULL value. */
CF_EXPORT const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key);

/** Returns true if the key exists; `value`, which may be NULL, then receives its value, not retained. */
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void *key, const void **value);

/** Stores all keys and values, not retained, in the order of adding; each array may be NULL. */
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void **keys, const void **values);

/** Retains key and value and adds them, unless the key exists. Without memory nothing changes. */
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void *key, const void *value);

/**
 * Retains `value` and puts it under `key`. An existing key keeps its place; a new one is retained and comes
 * last. Without memory nothing changes; check with CFDictionaryContainsKey().
 */
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void *key, const void *value);

/** Removes and releases the key and its value, if they exist. */
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void *key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict);

CF_EXTERN_C_END

#endif
