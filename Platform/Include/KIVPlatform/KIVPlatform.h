/**
 * @file
 * Small functions that Linux needs beyond the documented calls.
 */
#ifndef KIV_PLATFORM_H
#define KIV_PLATFORM_H

#include <semaphore.h>
#include <stddef.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

#define KIVP_EXPORT extern __attribute__((visibility("default")))

/**
 * write(2) that cannot end the process. If the reader is gone, it returns -1 and EPIPE; if the
 * reader leaves in the middle, it returns the bytes written. Neither raises SIGPIPE. A SIGPIPE that
 * was already pending stays pending, and the thread's signal mask is unchanged. Everything else,
 * errno included, is as with write. Any thread.
 */
KIVP_EXPORT ssize_t KIVPWriteWithoutSignal(int fd, const void *buffer, size_t size);

/** The most bytes of an encoded semaphore name, its "/" and zero byte included. */
#define KIVP_SEMAPHORE_NAME_SIZE 256

/**
 * The name under which sem_open and sem_unlink know the semaphore `name`: "/" and the name without its
 * leading slashes. Linux takes 251 bytes and no inner "/": a longer name, or one with a slash, becomes
 * its first 180 bytes (slashes as "!"), "~", and a 64-bit FNV-1a hash of all of it in 16 hexadecimal
 * digits. The same name always gives the same text, in every process. Any thread.
 */
KIVP_EXPORT void KIVPSemaphoreName(const char *name, char encoded[KIVP_SEMAPHORE_NAME_SIZE]);

/**
 * sem_open(3) with O_CREAT and a count of 0. A file that another user left under the name cannot end the
 * process: an existing file is opened only if it is a regular file of a semaphore's size and belongs to the
 * effective user, to root or, if its group may write, to a group of this process. The file is checked before
 * the C library maps it and again after that. Close and remove it with sem_close() and sem_unlink().
 * @param[in] systemName  from KIVPSemaphoreName()
 * @param     mode        permissions of a new one, less the process's mask
 * @return SEM_FAILED and errno: EINVAL for another kind of file, EPERM for another user's, EAGAIN if the name
 *         is made and removed without end, else sem_open's. Any thread.
 */
KIVP_EXPORT sem_t *KIVPSemaphoreOpen(const char *systemName, mode_t mode);

/**
 * Names the calling thread for debuggers and process listings; Linux keeps 15 bytes, so a longer name
 * ends at the last whole UTF-8 character within them.
 * @return 0, or the error number of the system
 */
KIVP_EXPORT int KIVPSetThreadName(const char *name);

/**
 * Closes every descriptor of the process from `first` to `last`; some may
 * not be open. Safe between fork and exec.
 * @return 0, or -1 and errno
 */
KIVP_EXPORT int KIVPCloseDescriptors(unsigned int first, unsigned int last);

/**
 * Makes the calling process the parent of every descendant whose own parent ends, so that none escapes.
 * @return 0, or -1 and errno
 */
KIVP_EXPORT int KIVPAdoptOrphans(void);

/**
 * Gives `fd` a number above the standard streams, closed on exec, and closes the old number. A number
 * above them is returned as it is. Any thread.
 * @return the number, or -1 and errno, with `fd` closed; -1 is returned for -1
 */
KIVP_EXPORT int KIVPAboveStandardStreams(int fd);

/** States of threads, as bits. */
#define KIVP_THREADS_RUN     1u /**< run, are ready to run, or sleep until something comes */
#define KIVP_THREADS_STOPPED 2u /**< stopped by a signal or a debugger */
#define KIVP_THREADS_WAIT    4u /**< wait in the kernel for a sure event, as the parent of a vfork does */
#define KIVP_THREADS_ENDED   8u /**< have ended, and are still listed */

/**
 * The states of all threads of a process, as bits. 0 if there is no such
 * process, or if /proc cannot be read. Any thread.
 */
KIVP_EXPORT unsigned int KIVPThreadStates(pid_t pid);

/** pipe2(2) with both ends closed on exec and above the standard streams, also if those are closed. */
KIVP_EXPORT int KIVPPipe(int ends[2]);

__END_DECLS

#endif
