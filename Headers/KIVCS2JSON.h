/**
 * @file
 * JSON: a property list of strings, numbers, arrays and dictionaries as text in a caller's buffer.
 *
 * The text is made in two passes. The first pass measures, with a null cursor. The caller then allocates the
 * counted bytes plus 1, sets the counter back and passes a cursor at the start of the buffer:
 *
 * @code
 * CFStringRef plist = CFStringCreateWithCString(NULL, "on air", kCFStringEncodingUTF8);
 * uint32_t length = 0;
 * KIVCS2Status status = kivCS2JSON_createFromPlist(plist, NULL, &length); // measures
 * char *text = KIVCS2_FAILED(status) ? NULL : malloc((size_t)length + 1);
 * char *cursor = text;
 * length = 0;
 * if (text == NULL || KIVCS2_FAILED(kivCS2JSON_createFromPlist(plist, &cursor, &length)))
 *     return 1;
 * puts(text); // prints: "on air"
 * free(text);
 * CFRelease(plist);
 * @endcode
 *
 * The caller owns the property list and the buffer. No state is kept, so any thread may call.
 *
 * Strings are not escaped: with a quote, a backslash or a control character in a string, the text is not
 * JSON. The caller must keep such characters out. See kivCS2JSON_createFromPlist() for the other values that
 * JSON lacks.
 */
#ifndef KIVCS2_JSON_H
#define KIVCS2_JSON_H

#include "KIVCS2Base.h"

#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

/** The deepest allowed nesting of arrays and dictionaries, counted from the outermost; deeper is refused. */
#define KIVCS2_JSON_MAX_DEPTH 65536u

/**
 * Appends the text of `plist` at the cursor, zero-terminated, or only measures it.
 *
 * A string is written as its UTF-8 bytes between quotes, a number as printf writes its type in the C locale
 * ("%hhi", "%hi", "%i", "%li" or "%lli" for integers, "%f" for fractions, infinities and NaN as "inf" and
 * "nan"; "%hhui" for kCFNumberCharType, so that 7 is "7i"), an array as "[a, b]", a dictionary as {"k" : v,
 * "l" : w} in the order of its keys. Any other value, CFBoolean included, writes nothing; if it is the whole
 * list, no zero byte either.
 *
 * A failure inside a dictionary ends its entries; the closing brace is written and the dictionary counts as a
 * success. A failure inside an array is returned at once. Measuring assumes the longest UTF-8 form of each
 * string, so the measure is never less than the bytes written. A failure that would make it less (no memory,
 * or a count of more than 32 bits) is always returned. The property list must not change between the passes.
 *
 * @param[in]     plist   the property list
 * @param[in,out] cursor  the end of the text so far, advanced to the new zero byte; null, or a null
 *                        `*cursor`, to measure
 * @param[in,out] length  increased by the bytes written, or by the bytes that may be written
 * @retval KIVCS2STATUS_PARAM_ERR        `plist` or `length` is null
 * @retval KIVCS2STATUS_MEMORY_ERR       no room for the keys and values of a dictionary, or the count
 *                                       would pass 32 bits
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  a string has no UTF-8 form (half of a surrogate pair; only when
 *                                       writing), or the nesting is deeper than KIVCS2_JSON_MAX_DEPTH
 * After a failure, cursor and length count the bytes written before it.
 * Thread safety: any thread, as long as no thread changes the property list.
 */
KIVCS2_API KIVCS2Status kivCS2JSON_createFromPlist(CFTypeRef plist, char **cursor, uint32_t *length);

KIVCS2_END_DECLS

#endif
