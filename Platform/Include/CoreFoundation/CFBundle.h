/**
 * @file
 * The program's own files.
 */
#ifndef KIV_CF_BUNDLE_H
#define KIV_CF_BUNDLE_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

CF_EXTERN_C_BEGIN

typedef struct __CFBundle *CFBundleRef;

CF_EXPORT CFTypeID CFBundleGetTypeID(void);

/** The directory of the executable, found once; belongs to the system. NULL if the directory is unknown. */
CF_EXPORT CFBundleRef CFBundleGetMainBundle(void);

/**
 * The location of a resource: `resourceName`, with "." and `resourceType` if that is given, in the
 * bundle's "Resources" or else in "../share/<executable>", under `subDirName` if given.
 * NULL if no such file exists.
 * @param[in] resourceType, subDirName  may be NULL
 */
CF_EXPORT CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                           CFStringRef resourceType, CFStringRef subDirName);

CF_EXTERN_C_END

#endif
