/**
 * @file
 * Locations of files, immutable.
 */
#ifndef KIV_CF_URL_H
#define KIV_CF_URL_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFURL *CFURLRef;

typedef CFIndex CFURLPathStyle;
enum
{
    kCFURLPOSIXPathStyle = 0
};

CF_EXPORT CFTypeID CFURLGetTypeID(void);
/** The location of a path of `bufLen` bytes, which need not end in a zero byte. NULL for no bytes and for
    bytes that are not UTF-8. */
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8 *buffer,
                                                           CFIndex bufLen, Boolean isDirectory);
/** The part after the last "/"; slashes at the end do not count. "/" for the root. */
CF_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
/** The path, without slashes at the end. NULL for another style than POSIX. */
CF_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);

CF_EXTERN_C_END

#endif
