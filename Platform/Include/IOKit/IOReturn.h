/**
 * @file
 * Results of the IOKit calls.
 */
#ifndef KIV_IOKIT_IORETURN_H
#define KIV_IOKIT_IORETURN_H

#include <mach/kern_return.h>

typedef kern_return_t IOReturn;

#define kIOReturnSuccess      KERN_SUCCESS
#define kIOReturnError        ((IOReturn)0xe00002bc)
#define kIOReturnNoMemory     ((IOReturn)0xe00002bd)
#define kIOReturnNoResources  ((IOReturn)0xe00002be)
#define kIOReturnBadArgument  ((IOReturn)0xe00002c2)
#define kIOReturnUnsupported  ((IOReturn)0xe00002c7)
#define kIOReturnIOError      ((IOReturn)0xe00002ca)
#define kIOReturnNotPermitted ((IOReturn)0xe00002e2)
#define kIOReturnNotFound     ((IOReturn)0xe00002f0)

#endif
