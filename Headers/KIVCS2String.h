/**
 * @file
 * Strings: conversion between zero-terminated texts in eight encodings and string objects, detection
 * of an encoding by its byte-order mark, copies, UUID texts, bundle resources, path components and
 * tilde expansion.
 *
 * Texts that an operation makes are released with kivCS2String_freeCString(), string objects and arrays with
 * CFRelease(). A missing argument returns KIVCS2STATUS_PARAM_ERR. Every operation may be called from any
 * thread.
 *
 * @code
 * char *text;
 * const unsigned char latin[] = "Caf\351"; // ISO 8859-1
 * uint32_t bytes;
 * if (KIVCS2_FAILED(kivCS2String_convertCString(latin, KIVCS2_STRING_MEASURE,
 *                                               KIVCS2StringEncoding_ISOLatin1, &text,
 *                                               KIVCS2StringEncoding_UTF8, &bytes)))
 *     return 1;
 * printf("%s, %u bytes\n", text, bytes); // prints: Café, 6 bytes
 * kivCS2String_freeCString(text);
 * @endcode
 */
#ifndef KIVCS2_STRING_H
#define KIVCS2_STRING_H

#include "KIVCS2Base.h"

#include <CoreFoundation/CoreFoundation.h>

KIVCS2_BEGIN_DECLS

/** The encodings of texts; the terminator is one unit of the encoding (1, 2 or 4 zero bytes). */
typedef int32_t KIVCS2StringEncoding;
enum
{
    KIVCS2StringEncoding_ASCII = 0,
    KIVCS2StringEncoding_FileSystem = 1, /**< file-system representation: UTF-8, composed when read */
    KIVCS2StringEncoding_UTF8 = 2,
    KIVCS2StringEncoding_UTF16BE = 3,
    KIVCS2StringEncoding_UTF16LE = 4,
    KIVCS2StringEncoding_UTF32BE = 5,
    KIVCS2StringEncoding_UTF32LE = 6,
    KIVCS2StringEncoding_ISOLatin1 = 7,
    KIVCS2StringEncodingMax = 8 /**< the count; not an encoding */
};

/** As a source's length: measure it up to its terminator. */
#define KIVCS2_STRING_MEASURE 0xFFFFFFFFu

/**
 * Stores the string objects' own code of an encoding; that of the file system is UTF-8.
 * @retval KIVCS2STATUS_PARAM_ERR  `encoding` is outside 0 to 7, or `systemEncoding` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_convertEncoding(KIVCS2StringEncoding encoding,
                                                     CFStringEncoding *systemEncoding);

/**
 * Stores the number of bytes in an encoding's terminator: 1, 2 or 4.
 * @retval KIVCS2STATUS_PARAM_ERR  `encoding` is outside 0 to 7, or `nullTerminatorLen` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_getNullTerminatorLength(KIVCS2StringEncoding encoding,
                                                             uint32_t *nullTerminatorLen);

/**
 * Makes a string object from a text. A byte-order mark stays as a character. A file-system source is read up
 * to its zero byte and composed (canonical composition).
 * @param[in]  source    the text, of any alignment
 * @param[in]  length    its bytes without terminator, or KIVCS2_STRING_MEASURE; not used for the file-system
 *                       encoding
 * @param[out] cfString  the new object, released with CFRelease(); null after a failure
 * @param[in]  encoding  of `source`
 * @retval KIVCS2STATUS_PARAM_ERR   `source` or `cfString` is null (nothing is stored), or `encoding` is
 *                                  outside 0 to 7
 * @retval KIVCS2STATUS_MEMORY_ERR  no room, or the bytes are not valid in the encoding
 */
KIVCS2_API KIVCS2Status kivCS2String_createCFStringWithEncoding(const void *source, uint32_t length,
                                                                CFStringRef *cfString,
                                                                KIVCS2StringEncoding encoding);

/**
 * Makes a zero-terminated text from a string object. Conversion stops at the first character that the
 * encoding lacks; the text before it is a success ("ab\u00e9" to ASCII gives "ab").
 * @param[in]  cfString   not changed or released
 * @param[out] cString    the new text, released with kivCS2String_freeCString(); null after
 *                        KIVCS2STATUS_CAPTION_ERR
 * @param[in]  encoding   of the new text
 * @param[out] bytesUsed  bytes of the text with its terminator; may be null
 * @retval KIVCS2STATUS_PARAM_ERR    `cfString` or `cString` is null, or `encoding` is outside 0 to 7; for the
 *                                   file-system encoding also an empty string with `bytesUsed` given, in
 *                                   which case the caller must still release the text
 * @retval KIVCS2STATUS_MEMORY_ERR   no room; or the string has no file-system form, in which case the caller
 *                                   must still release the block
 * @retval KIVCS2STATUS_CAPTION_ERR  no character was converted; also for an empty string
 */
KIVCS2_API KIVCS2Status kivCS2String_createCStringFromCFStringWithEncoding(CFStringRef cfString,
                                                                           char **cString,
                                                                           KIVCS2StringEncoding encoding,
                                                                           uint32_t *bytesUsed);

/**
 * Stores how many bytes the string takes in the encoding, with its terminator.
 * @retval KIVCS2STATUS_PARAM_ERR        an argument is null, `encoding` is outside 0 to 7, or the string
 *                                       is empty
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  no character converts
 * @retval KIVCS2STATUS_MEMORY_ERR       4 GiB or more
 */
KIVCS2_API KIVCS2Status kivCS2String_getBytesUsed(CFStringRef string, KIVCS2StringEncoding encoding,
                                                  uint32_t *bytesUsed);

/**
 * Converts a text from one encoding into a new text in another, with the rules of
 * kivCS2String_createCFStringWithEncoding() and kivCS2String_createCStringFromCFStringWithEncoding().
 * @param[in]  source               the text, of any alignment
 * @param[in]  length               its bytes without terminator, or KIVCS2_STRING_MEASURE
 * @param[in]  sourceEncoding       KIVCS2StringEncoding
 * @param[out] destination          the new text, released with kivCS2String_freeCString(); null after a
 *                                  failure, except for the block left by a text without file-system form
 * @param[in]  destinationEncoding  KIVCS2StringEncoding
 * @param[out] bytesUsed            bytes of the new text with its terminator; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `source` or `destination` is null, or an encoding is outside 0 to 7
 * @return otherwise the first failing status of the two steps
 */
KIVCS2_API KIVCS2Status kivCS2String_convertCString(const void *source, uint32_t length,
                                                    KIVCS2StringEncoding sourceEncoding, char **destination,
                                                    KIVCS2StringEncoding destinationEncoding,
                                                    uint32_t *bytesUsed);

/**
 * Releases a text made by this module.
 * @retval KIVCS2STATUS_PARAM_ERR  `string` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_freeCString(char *string);

/**
 * Detects an encoding by its byte-order mark: UTF-8, UTF-16 big-endian, UTF-16 little-endian, UTF-32
 * big-endian, in this order. UTF-32 little-endian begins like UTF-16 little-endian and is reported as that.
 * @param[in]  source     the first bytes of a text
 * @param[in]  length     bytes of `source` that may be read
 * @param[out] encoding   unchanged after a failure
 * @param[out] bomLength  bytes of the mark; may be null; unchanged after a failure
 * @retval KIVCS2STATUS_PARAM_ERR        `source` or `encoding` is null
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  no mark
 * Source: Unicode Standard, 2.6 and 23.8.
 */
KIVCS2_API KIVCS2Status kivCS2String_detectEncoding(const void *source, uint32_t length,
                                                    KIVCS2StringEncoding *encoding, uint32_t *bomLength);

/**
 * Writes the four bytes of a code, most significant first, and a terminator: 0x63636470 is "ccdp".
 * @param[in]  code    a four-character code
 * @param[out] buffer  four characters and a zero byte
 * @param[in]  size    bytes of `buffer`, at least 5
 * @retval KIVCS2STATUS_PARAM_ERR        `buffer` is null
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  fewer than 5 bytes; the buffer is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2String_OSTypeToString(uint32_t code, char *buffer, uint32_t size);

/**
 * Copies a text with its terminator.
 * @param[out] dest    the copy
 * @param[in]  source  zero-terminated, in an encoding with terminators of one byte
 * @param[in]  size    bytes of `dest`
 * @retval KIVCS2STATUS_PARAM_ERR        `dest` or `source` is null
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the text does not fit; `dest` is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2String_copy(char *dest, const char *source, uint32_t size);

/**
 * Copies a text into a new block of its length plus 2 bytes, released with kivCS2String_freeCString().
 * @retval KIVCS2STATUS_PARAM_ERR   `dest` or `source` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; `dest` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_createCopy(char **dest, const char *source);

/**
 * Splits a string at every separator into a new array of strings, released with CFRelease(). Splitting
 * the empty string gives one empty piece.
 * @param[in]  cfString   not changed or released
 * @param[in]  separator  ASCII
 * @param[out] array      elements: CFStringRef, owned by the array
 * @retval KIVCS2STATUS_PARAM_ERR   `cfString`, `separator` or `array` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room, or the separator is not ASCII; `array` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_separateCFString(CFStringRef cfString, const char *separator,
                                                      CFArrayRef *array);

/**
 * Finds a resource of the main bundle and stores its POSIX path as a new string, released with
 * CFRelease().
 * @param[in]  name          ASCII, without the extension
 * @param[in]  type          the extension, ASCII; null if there is none
 * @param[out] resourcePath  the path
 * @retval KIVCS2STATUS_PARAM_ERR   `name` or `resourcePath` is null
 * @retval KIVCS2STATUS_PATH_ERR    there is no main bundle
 * @retval KIVCS2STATUS_MEMORY_ERR  no room, or a text is not ASCII
 * @retval KIVCS2STATUS_SYSTEM_ERR  there is no such resource; `resourcePath` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_createBundleResourcePath(const char *name, const char *type,
                                                              CFStringRef *resourcePath);

/**
 * Makes a new UUID as a string (36 characters), released with CFRelease().
 * @retval KIVCS2STATUS_PARAM_ERR   `cfString` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; `cfString` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_createUIDCFString(CFStringRef *cfString);

/**
 * Writes a new UUID into the caller's buffer as ASCII text.
 * @param[out] buffer  36 characters and a zero byte
 * @param[in]  size    bytes of `buffer`, at least 37
 * @retval KIVCS2STATUS_PARAM_ERR        `buffer` is null
 * @retval KIVCS2STATUS_MEMORY_ERR       no room for the string
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  the buffer is too small
 */
KIVCS2_API KIVCS2Status kivCS2String_createUIDCString(char *buffer, uint32_t size);

/**
 * Stores the last component of a path as a string released with CFRelease(); a string that is not a path is
 * itself returned, retained.
 * @retval KIVCS2STATUS_PARAM_ERR  `cfString` or `cfLastPathComponent` is null, or the string is empty
 * @return otherwise the status of kivCS2String_createCStringFromCFStringWithEncoding() for the file system
 * After a failure `cfLastPathComponent` is null.
 */
KIVCS2_API KIVCS2Status kivCS2String_getCFStringLastPathComponent(CFStringRef cfString,
                                                                  CFStringRef *cfLastPathComponent);

/**
 * Copies a path and replaces a leading "~" with the home directory: HOME, or if that is missing or empty the
 * directory in the user's entry. "~name/x" is the home directory followed by "name/x".
 * @param[in]  path          zero-terminated
 * @param[out] expandedPath  the new text, released with kivCS2String_freeCString(); null if there was no room
 *                           to copy a path without "~", which is reported as success
 * @retval KIVCS2STATUS_PARAM_ERR        `path` or `expandedPath` is null
 * @retval KIVCS2STATUS_UNSUPPORTED_ERR  the home directory is not known; `expandedPath` is null
 * @retval KIVCS2STATUS_MEMORY_ERR       no room; `expandedPath` is null
 */
KIVCS2_API KIVCS2Status kivCS2String_createStringByExpandingTilde(const char *path, char **expandedPath);

KIVCS2_END_DECLS

#endif
