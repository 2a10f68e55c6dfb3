/**
 * @file
 * Services of the machine's devices: found by name, opened, and called with structures.
 *
 * The only service is "AppleSMC"; it exists if the kernel's applesmc driver has bound. Objects are
 * numbers; 0 means no object. Any thread may call; one thread at a time uses an object.
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

/** Stores the port for the calls below; `bootstrapPort` is MACH_PORT_NULL. The port is never released. */
CF_EXPORT kern_return_t IOMasterPort(mach_port_t bootstrapPort, mach_port_t *masterPort);

/** A dictionary that services of the class `name` match; the caller releases it. NULL without memory. */
CF_EXPORT CFMutableDictionaryRef IOServiceMatching(const char *name);

/**
 * Stores an iterator over the services that match; it may be empty. Releases `matching`, also on failure.
 * The caller releases the iterator.
 * @return kIOReturnBadArgument for no dictionary, kIOReturnNoMemory; nothing is stored then
 */
CF_EXPORT kern_return_t IOServiceGetMatchingServices(mach_port_t masterPort, CFDictionaryRef matching,
                                                     io_iterator_t *existing);

/** The next service, which the caller releases; IO_OBJECT_NULL after the last. */
CF_EXPORT io_object_t IOIteratorNext(io_iterator_t iterator);

/** Releases a service or an iterator. kIOReturnBadArgument for anything else. */
CF_EXPORT kern_return_t IOObjectRelease(io_object_t object);

/**
 * Opens a service; `owningTask` is mach_task_self() and `type` 0. The caller closes the
 * connection and may release the service first.
 * @return kIOReturnNotPermitted if the driver does not let this user choose a key (by default only root may),
 *         kIOReturnIOError if it does not respond, kIOReturnNoResources for an impossible number of keys,
 *         kIOReturnNoMemory, kIOReturnBadArgument; nothing is stored then
 */
CF_EXPORT kern_return_t IOServiceOpen(io_service_t service, task_port_t owningTask, uint32_t type,
                                      io_connect_t *connect);

CF_EXPORT kern_return_t IOServiceClose(io_connect_t connect);

/**
 * Calls a connection's method `selector` with a structure, and receives one: `outputStructCnt` holds the room
 * in bytes and then the bytes stored.
 *
 * "AppleSMC" has selector 2, with 80 bytes each way: the key in bytes 0 to 3, the size and type of
 * its data in 28 to 31 and 32 to 35, in byte 42 the command (5 reads the data, 8 gets the key at an index, 9
 * reads size and type), the index in 44 to 47 and the data from 48. Numbers are in the machine's byte order.
 * @return kIOReturnNotFound for a key or index that is not there, kIOReturnUnsupported for another command,
 *         kIOReturnIOError if the driver does not respond, kIOReturnBadArgument for anything else
 */
CF_EXPORT kern_return_t IOConnectCallStructMethod(mach_port_t connection, uint32_t selector,
                                                  const void *inputStruct, size_t inputStructCnt,
                                                  void *outputStruct, size_t *outputStructCnt);

CF_EXTERN_C_END

#endif
