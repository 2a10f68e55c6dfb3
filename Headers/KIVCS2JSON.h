/**
 * @file
 * JSON: a property list of strings, numbers, arrays and dictionaries as text in a caller's buffer.
 *
 * The text is made in two passes. The first measures, with a null cursor; the caller then allocates what was
 * counted plus 1 byte, sets the counter back and passes a cursor at the start of the buffer:
 *
 *     uint32_t length = 0;
 *     KIVCS2Status status = kivCS2JSON_createFromPlist(plist, NULL, &length);
 *     char *text = KIVCS2_FAILED(status) ? NULL : malloc((size_t)length + 1);
 *     char *cursor = text;
 *     length = 0;
 *     if (text != NULL)
 *         status = kivCS2JSON_createFromPlist(plist, &cursor, &length);
 *
 * Strings are not escaped: with a quote, a backslash or a control character in one the text is no JSON, and
 * it is the caller's part to keep them out. See kivCS2JSON_createFromPlist() for the other values that JSON
 * lacks.
 */
#ifndef KIVCS2_JSON_H
#define KIVCS2_JSON_H

#include "KIVCS2Base.h"

#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

/** Arrays and dictionaries inside each other, counted from the outermost; deeper ones are refused. */
#define KIVCS2_JSON_MAX_DEPTH 65536u

/**
 * Appends the text of `plist` at the cursor, zero-terminated, or only measures it.
 *
 * A string is its UTF-8 bytes between quotes, a number is what printf writes in the C locale for its
 * type ("%hhi", "%hi", "%i", "%li" or "%lli" for integers, "%f" for fractions, infinities and NaN as "inf"
 * and "nan"; "%hhui" for kCFNumberCharType, so that 7 is "7i"), an array "[a, b]", a dictionary
 * {"k" : v, "l" : w} in the order of its keys. Anything else, CFBoolean included, writes nothing, and where
 * that is the whole list no zero byte either.
 *
 * A failure inside a dictionary ends its entries there, and with its closing brace the dictionary is a
 * success; inside an array it is returned at once. Measuring counts a string as long as UTF-8 can get, so
 * that it is never less than what is written, and a failure that would make it less, no memory or a count of
 * more than 32 bits, is always returned. The property list may not change between the passes.
 *
 * @param[in]     plist   the property list
 * @param[in,out] cursor  the end of the text so far, which moves on to the new zero byte; null, or at null,
 *                        to measure
 * @param[in,out] length  the bytes written, or that may be written, are added
 * @retval KIVCS2STATUS_PARAM_ERR        `plist` or `length` is null
 * @retval KIVCS2STATUS_MEMORY_ERR       no room for the keys and values of a dictionary, or the count
 *                                       would pass 32 bits
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  a string has no UTF-8 form (half of a surrogate pair; only when
 *                                       writing), or the nesting is deeper than KIVCS2_JSON_MAX_DEPTH
 * After a failure cursor and length stand behind what was written before it.
 * Thread safety: any thread, as long as none changes the property list.
 */
KIVCS2_API KIVCS2Status kivCS2JSON_createFromPlist(CFTypeRef plist, char **cursor, uint32_t *length);

KIVCS2_END_DECLS

#endif
