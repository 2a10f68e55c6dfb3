/**
 * @file
 * Dictionaries: a CoreFoundation mutable dictionary filled from C values, under keys that are C strings
 * or string objects.
 *
 * The caller owns the record: `init` or `initWithCFDictionary` fills it, `free` releases the dictionary and
 * zeroes the record, which may then be initialised again. The dictionary retains what is stored, so an object
 * passed in still belongs to its owner. `m_dictionary` may be passed to any call of the system, for example
 * kivCS2JSON_createFromPlist(); it lists its keys in the order in which they were added.
 *
 * One thread at a time fills or reads a record.
 *
 * @code
 * KIVCS2Dictionary dictionary;
 * if (KIVCS2_FAILED(kivCS2Dictionary_init(&dictionary)))
 *     return 1;
 * kivCS2Dictionary_setInteger(&dictionary, "channel", 3, KIVCS2DictionaryKey_CString);
 * kivCS2Dictionary_setCString(&dictionary, "state", "on air", KIVCS2DictionaryKey_CString);
 * printf("%d\n", (int)CFDictionaryGetCount(dictionary.m_dictionary)); // prints: 2
 * kivCS2Dictionary_free(&dictionary);
 * @endcode
 */
#ifndef KIVCS2_DICTIONARY_H
#define KIVCS2_DICTIONARY_H

#include "KIVCS2Base.h"

#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

/** The type of a setter's key: 0 for a C string, any other value for a string object. */
typedef uint32_t KIVCS2DictionaryKey;
enum
{
    KIVCS2DictionaryKey_CString = 0, /**< `const char *`, ASCII, up to its zero byte */
    KIVCS2DictionaryKey_CFString = 1 /**< CFStringRef */
};

/** A dictionary. */
typedef struct KIVCS2Dictionary
{
    CFMutableDictionaryRef m_dictionary; /**< owned; null while not initialised */
} KIVCS2Dictionary;

/**
 * Makes an empty dictionary with the standard callbacks for objects. The record's previous contents are
 * ignored.
 * @retval KIVCS2STATUS_PARAM_ERR   `dictionary` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; `m_dictionary` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_init(KIVCS2Dictionary *dictionary);

/**
 * Retains `cfDictionary` and stores it in the record, whose previous contents are ignored. Setters need a
 * mutable dictionary and change it for all its owners.
 * @retval KIVCS2STATUS_PARAM_ERR  an argument is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_initWithCFDictionary(CFDictionaryRef cfDictionary,
                                                              KIVCS2Dictionary *dictionary);

/**
 * Releases the dictionary and zeroes the record. Freeing a zeroed record is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `dictionary` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_free(KIVCS2Dictionary *dictionary);

/**
 * Stores an object under a key and replaces any value already there.
 * @param[in,out] dictionary  initialised
 * @param[in]     key         by `keyKind` a C string, not kept, or a CFStringRef, retained
 * @param[in]     value       retained
 * @param[in]     keyKind     KIVCS2DictionaryKey
 * @retval KIVCS2STATUS_PARAM_ERR   a pointer is null, or the record is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  the C string is not ASCII, or there is no room; the dictionary is
 *                                  unchanged. Also for a dictionary that is not mutable
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_setCFValue(KIVCS2Dictionary *dictionary, const void *key,
                                                    CFTypeRef value, KIVCS2DictionaryKey keyKind);

/**
 * Stores a number of type kCFNumberSInt32Type.
 * @param[in,out] dictionary  initialised
 * @param[in]     key         as for kivCS2Dictionary_setCFValue()
 * @param[in]     value       any
 * @param[in]     keyKind     KIVCS2DictionaryKey
 * @retval KIVCS2STATUS_PARAM_ERR   a pointer is null, or the record is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  as kivCS2Dictionary_setCFValue()
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_setInteger(KIVCS2Dictionary *dictionary, const void *key,
                                                    int32_t value, KIVCS2DictionaryKey keyKind);

/**
 * Stores a number of type kCFNumberFloat32Type.
 * @param[in,out] dictionary  initialised
 * @param[in]     key         as for kivCS2Dictionary_setCFValue()
 * @param[in]     value       any, NaN and infinities included
 * @param[in]     keyKind     KIVCS2DictionaryKey
 * @retval KIVCS2STATUS_PARAM_ERR   a pointer is null, or the record is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  as kivCS2Dictionary_setCFValue()
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_setFloat(KIVCS2Dictionary *dictionary, const void *key, float value,
                                                  KIVCS2DictionaryKey keyKind);

/**
 * Stores the low 8 bits of a flag as a number of type kCFNumberSInt8Type (not a CFBoolean), which JSON writes
 * as 0 or 1.
 * @param[in,out] dictionary  initialised
 * @param[in]     key         as for kivCS2Dictionary_setCFValue()
 * @param[in]     value       only its low 8 bits count
 * @param[in]     keyKind     KIVCS2DictionaryKey
 * @retval KIVCS2STATUS_PARAM_ERR   a pointer is null, or the record is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  as kivCS2Dictionary_setCFValue()
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_setBool(KIVCS2Dictionary *dictionary, const void *key,
                                                 uint32_t value, KIVCS2DictionaryKey keyKind);

/**
 * Stores a string object made from a C string.
 * @param[in,out] dictionary  initialised
 * @param[in]     key         as for kivCS2Dictionary_setCFValue()
 * @param[in]     value       ASCII, up to its zero byte, not kept
 * @param[in]     keyKind     KIVCS2DictionaryKey
 * @retval KIVCS2STATUS_PARAM_ERR   a pointer is null, or the record is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  `value` is not ASCII, or as kivCS2Dictionary_setCFValue()
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Dictionary_setCString(KIVCS2Dictionary *dictionary, const void *key,
                                                    const char *value, KIVCS2DictionaryKey keyKind);

KIVCS2_END_DECLS

#endif
