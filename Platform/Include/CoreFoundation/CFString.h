/**
 * @file
 * Strings: sequences of UTF-16 units, and their conversion from and to bytes.
 *
 * Positions and lengths count UTF-16 units. Any number of threads may use an immutable string; one
 * thread at a time uses a mutable one.
 */
#ifndef KIV_CF_STRING_H
#define KIV_CF_STRING_H

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFCharacterSet.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;
enum
{
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingUTF8 = 0x08000100,
    kCFStringEncodingUTF16BE = 0x10000100,
    kCFStringEncodingUTF16LE = 0x14000100,
    kCFStringEncodingUTF32BE = 0x18000100,
    kCFStringEncodingUTF32LE = 0x1c000100
};

/** Options to compare or search: only 0 here. */
typedef CFOptionFlags CFStringCompareFlags;

typedef CFIndex CFStringNormalizationForm;
enum
{
    kCFStringNormalizationFormD = 0,  /**< canonical decomposition */
    kCFStringNormalizationFormKD = 1, /**< compatibility decomposition */
    kCFStringNormalizationFormC = 2,  /**< canonical decomposition, then composition */
    kCFStringNormalizationFormKC = 3  /**< compatibility decomposition, then composition */
};

CF_EXPORT CFTypeID CFStringGetTypeID(void);

/**
 * A string from `numBytes` bytes in `encoding`. Strict: bytes that are not valid in the encoding
 * (overlong forms, surrogates or values above 10FFFF, a truncated sequence, ASCII above 7F) give NULL,
 * as do an unknown encoding and missing memory. UTF-16 keeps lone surrogates; an odd byte at the end of
 * UTF-16 and up to three at the end of UTF-32 are ignored. A byte-order mark stays as U+FEFF
 * unless `isExternalRepresentation` is true, which drops it.
 */
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8 *bytes, CFIndex numBytes,
                                              CFStringEncoding encoding, Boolean isExternalRepresentation);

/** Like CFStringCreateWithBytes(), for a zero-terminated text (one-byte encodings, UTF-8). */
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr,
                                                CFStringEncoding encoding);

/** A string of `numChars` UTF-16 units, taken as they are. */
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar *chars,
                                                   CFIndex numChars);

/** The string of a path as the file system names it: UTF-8, strict, ended by a zero byte. */
CF_EXPORT CFStringRef CFStringCreateWithFileSystemRepresentation(CFAllocatorRef alloc, const char *buffer);

/** An immutable string of the same characters; for an immutable string the same object, retained. */
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString);

/** A mutable string of the same characters; `maxLength` is a hint, 0 for none. */
CF_EXPORT CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength,
                                                       CFStringRef theString);

/** Brings `theString` into a Unicode normalisation form; without memory it stays as it is. */
CF_EXPORT void CFStringNormalize(CFMutableStringRef theString, CFStringNormalizationForm theForm);

CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);

/** The unit at `idx`, 0 to length - 1; 0 out of range. */
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx);

/** Copies the units of `range`, which must lie inside the string, to `buffer`. */
CF_EXPORT void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar *buffer);

/**
 * Converts the units of `range` to bytes. Returns the number of units converted, and stores the
 * number of bytes they take in `usedBufLen`. Stops before the first character that the encoding lacks
 * (a `lossByte` other than 0 replaces it instead) or that does not fit into `maxBufLen`. A part is a
 * success: "ab" followed by an acute e gives 2 in ASCII. A character is never split.
 * A NULL `buffer` measures without limit. No byte-order mark is written, whatever `isExternalRepresentation`
 * says: every encoding here names its byte order. 0 for an unknown encoding.
 * @param[out] usedBufLen  may be NULL
 */
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef theString, CFRange range, CFStringEncoding encoding,
                                   UInt8 lossByte, Boolean isExternalRepresentation, UInt8 *buffer,
                                   CFIndex maxBufLen, CFIndex *usedBufLen);

/** Stores the whole string and a zero byte in `buffer`; false if it does not convert completely or fit. */
CF_EXPORT Boolean CFStringGetCString(CFStringRef theString, char *buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);

/**
 * The string's own bytes, zero-terminated, if it stores them in `encoding`: ASCII texts as ASCII, ISO Latin 1
 * or UTF-8, one byte a unit. Otherwise NULL: convert instead. Valid until the string ends or changes.
 */
CF_EXPORT const char *CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

/** The most bytes that `length` units can take: UTF-8 3, UTF-16 2, UTF-32 4, the others 1 a unit.
    kCFNotFound for an unknown encoding and if the product overflows. */
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

/** The most bytes a path of this string can take, with its zero byte: 9 a unit, and 1. */
CF_EXPORT CFIndex CFStringGetMaximumSizeOfFileSystemRepresentation(CFStringRef string);

/** Stores the path in `buffer` as the file system names it (UTF-8, the characters as they are) with a zero
    byte; false if it does not convert or fit. */
CF_EXPORT Boolean CFStringGetFileSystemRepresentation(CFStringRef string, char *buffer, CFIndex maxBufLen);

/** The decimal number at the start, after white space and one sign; the nearest 32-bit value if it is
    out of range; 0 if there is none. */
CF_EXPORT SInt32 CFStringGetIntValue(CFStringRef str);

/** Orders two strings by their UTF-16 units. */
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                             CFStringCompareFlags compareOptions);

/** The pieces between the separators, one more than there are separators: "" gives one empty piece.
    An empty separator gives the whole string. NULL when there is no memory. */
CF_EXPORT CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef alloc, CFStringRef theString,
                                                            CFStringRef separatorString);

/** Searches `rangeToSearch` for a member of `theSet`; `result`, which may be NULL, receives its range. */
CF_EXPORT Boolean CFStringFindCharacterFromSet(CFStringRef theString, CFCharacterSetRef theSet,
                                               CFRange rangeToSearch, CFStringCompareFlags searchOptions,
                                               CFRange *result);

CF_EXTERN_C_END

#endif
