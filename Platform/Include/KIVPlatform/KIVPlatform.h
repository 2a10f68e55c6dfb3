/**
 * @file
 * What Linux needs beyond the documented calls: small functions, one reason each.
 */
#ifndef KIV_PLATFORM_H
#define KIV_PLATFORM_H

#include <stddef.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

#define KIVP_EXPORT extern __attribute__((visibility("default")))

/**
 * write(2) that cannot end the process: a reader that is gone gives -1 and EPIPE, one that leaves in the
 * middle of the write gives the part that was written, and neither raises SIGPIPE. A SIGPIPE that was
 * pending before stays pending, and the thread's signal mask is as before. Everything else, errno
 * included, is write's. Any thread.
 */
KIVP_EXPORT ssize_t KIVPWriteWithoutSignal(int fd, const void *buffer, size_t size);

/** Bytes that an encoded semaphore name can take, its "/" and zero byte included. */
#define KIVP_SEMAPHORE_NAME_SIZE 256

/**
 * The name under which sem_open and sem_unlink know the semaphore `name`: "/" and the name, leading
 * slashes not counted. Linux takes 251 bytes and no inner "/": a longer name, or one with a slash, becomes
 * its first 180 bytes (slashes as "!"), "~", and a 64-bit FNV-1a hash of all of it in 16 hexadecimal
 * digits. The same name always gives the same text, in every process. Any thread.
 */
KIVP_EXPORT void KIVPSemaphoreName(const char *name, char encoded[KIVP_SEMAPHORE_NAME_SIZE]);

/**
 * Names the calling thread for debuggers and process listings; Linux keeps 15 bytes, so a longer name
 * ends at the last whole UTF-8 character within them.
 * @return 0, or the error number of the system
 */
KIVP_EXPORT int KIVPSetThreadName(const char *name);

/**
 * Closes every descriptor of the process from `first` to `last`, those that are not open included. Safe
 * between fork and exec.
 * @return 0, or -1 and errno
 */
KIVP_EXPORT int KIVPCloseDescriptors(unsigned int first, unsigned int last);

/**
 * Makes the calling process the parent of every descendant whose own parent ends, so that none gets away.
 * @return 0, or -1 and errno
 */
KIVP_EXPORT int KIVPAdoptOrphans(void);

/** pipe2(2) with both ends closed on exec and above the standard streams, also where those are closed. */
KIVP_EXPORT int KIVPPipe(int ends[2]);

__END_DECLS

#endif
