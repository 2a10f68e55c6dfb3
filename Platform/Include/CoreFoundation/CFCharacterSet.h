/**
 * @file
 * Sets of 16-bit characters, immutable.
 */
#ifndef KIV_CF_CHARACTER_SET_H
#define KIV_CF_CHARACTER_SET_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFCharacterSet *CFCharacterSetRef;

CF_EXPORT CFTypeID CFCharacterSetGetTypeID(void);

/** The set of the characters that occur in `theString`. NULL when there is no memory. */
CF_EXPORT CFCharacterSetRef CFCharacterSetCreateWithCharactersInString(CFAllocatorRef alloc,
                                                                       CFStringRef theString);

/** Every character that is not in `theSet`. NULL when there is no memory. */
CF_EXPORT CFCharacterSetRef CFCharacterSetCreateInvertedSet(CFAllocatorRef alloc, CFCharacterSetRef theSet);

/** Returns true if `theChar`, one UTF-16 unit, is in `theSet`. */
CF_EXPORT Boolean CFCharacterSetIsCharacterMember(CFCharacterSetRef theSet, UniChar theChar);

CF_EXTERN_C_END

#endif
