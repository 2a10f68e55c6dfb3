/**
 * @file
 * Information for a process about its machine. The messages of the class are functions here, named after
 * class and message; like messages, they return 0 for a null object.
 */
#ifndef KIV_NS_PROCESS_INFO_H
#define KIV_NS_PROCESS_INFO_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef long NSInteger;
typedef unsigned long NSUInteger;

typedef struct NSOperatingSystemVersion
{
    NSInteger majorVersion;
    NSInteger minorVersion;
    NSInteger patchVersion;
} NSOperatingSystemVersion;

typedef const struct __NSProcessInfo NSProcessInfo;

/** The one object of the process; it is never released. Any thread. */
CF_EXPORT NSProcessInfo *NSProcessInfo_processInfo(void);

/** Bytes of memory that the kernel manages ("MemTotal"); 0 if it does not report them. Any thread. */
CF_EXPORT unsigned long long NSProcessInfo_physicalMemory(NSProcessInfo *processInfo);

/**
 * The version of the distribution (VERSION_ID of os-release), up to three numbers; 0 for missing ones. A
 * rolling distribution has none. Any thread.
 */
CF_EXPORT NSOperatingSystemVersion NSProcessInfo_operatingSystemVersion(NSProcessInfo *processInfo);

/** Processors that are online, 1 at least. Any thread. */
CF_EXPORT NSUInteger NSProcessInfo_activeProcessorCount(NSProcessInfo *processInfo);

CF_EXTERN_C_END

#endif
