/**
 * @file
 * Services of the machine's devices: found by name, opened, and called with structures.
 *
 * There is one service here, "AppleSMC", where the kernel's applesmc driver has bound. Objects are
 * numbers; 0 is none. Any number of threads may call, an object being used by one at a time.
 */
#ifndef KIV_IOKIT_IOKITLIB_H
#define KIV_IOKIT_IOKITLIB_H

#include <CoreFoundation/CFDictionary.h>
#include <IOKit/IOReturn.h>
#include <mach/mach_init.h>

#include <stddef.h>
#include <stdint.h>

CF_EXTERN_C_BEGIN

typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_service_t;
typedef io_object_t io_connect_t;
typedef mach_port_t task_port_t;
#define IO_OBJECT_NULL ((io_object_t)0)

/** The key under which IOServiceMatching() puts the name. */
#define kIOProviderClassKey "IOProviderClass"

/** Stores the port that the calls below ask; `bootstrapPort` is MACH_PORT_NULL. The caller keeps it for good. */
CF_EXPORT kern_return_t IOMasterPort(mach_port_t bootstrapPort, mach_port_t *masterPort);

/** What services of the class `name` match, for the caller to release. NULL without memory. */
CF_EXPORT CFMutableDictionaryRef IOServiceMatching(const char *name);

/**
 * Stores the services that match, none being an iterator without any. Releases `matching`, also when it fails.
 * The caller releases the iterator.
 * @return kIOReturnBadArgument for no dictionary, kIOReturnNoMemory; nothing is stored then
 */
CF_EXPORT kern_return_t IOServiceGetMatchingServices(mach_port_t masterPort, CFDictionaryRef matching,
                                                     io_iterator_t *existing);

/** The next service, for the caller to release; IO_OBJECT_NULL after the last. */
CF_EXPORT io_object_t IOIteratorNext(io_iterator_t iterator);

/** Gives a service or an iterator back. kIOReturnBadArgument for what is neither. */
CF_EXPORT kern_return_t IOObjectRelease(io_object_t object);

/**
 * Opens a service; `owningTask` is mach_task_self() and `type` 0. The caller closes the connection and may
 * release the service before.
 * @return kIOReturnNotPermitted where the driver lets this user not choose a key (it takes root by default),
 *         kIOReturnIOError where it does not answer, kIOReturnNoResources for more keys than there can be,
 *         kIOReturnNoMemory, kIOReturnBadArgument; nothing is stored then
 */
CF_EXPORT kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, uint32_t type,
                                      io_connect_t *connect);

CF_EXPORT kern_return_t IOServiceClose(io_connect_t connect);

/**
 * Calls a connection's method `selector` with a structure, and receives one: `outputStructCnt` says how many
 * bytes there are and then how many were stored.
 *
 * Of "AppleSMC" there is selector 2, with 80 bytes each way: the key in bytes 0 to 3, the size and type of
 * its data in 28 to 31 and 32 to 35, in byte 42 the command (5 reads the data, 8 gets the key at an index, 9
 * reads size and type), the index in 44 to 47 and the data from 48. Numbers are in the machine's byte order.
 * @return kIOReturnNotFound for a key or index that is not there, kIOReturnUnsupported for another command,
 *         kIOReturnIOError where the driver does not answer, kIOReturnBadArgument for anything else
 */
CF_EXPORT kern_return_t IOConnectCallStructMethod(mach_port_t connection, uint32_t selector,
                                                  const void *inputStruct, size_t inputStructCnt,
                                                  void *outputStruct, size_t *outputStructCnt);

CF_EXTERN_C_END

#endif
