/**
 * @file
 * The bytes a standard-library file has read ahead, in place: what a block search needs so that the
 * file still stands exactly where byte-wise reading would have left it.
 */
#ifndef KIVP_FILE_BUFFER_H
#define KIVP_FILE_BUFFER_H

#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C"
{
#endif

    /**
 * Stores where the next bytes of `file` lie in memory and returns how many there are; 0 when the next
 * getc() would have to ask the system, and always on a C library that does not show its buffer. Reads
 * nothing from the system. The bytes stay until the next operation on `file`. One thread at a time.
 */
    extern __attribute__((visibility("default"))) size_t KIVPFileBuffered(FILE *file,
                                                                          const unsigned char **bytes);

    /** Takes the first `size` bytes that KIVPFileBuffered() showed, as `size` calls of getc() would. */
    extern __attribute__((visibility("default"))) void KIVPFileTakeBuffered(FILE *file, size_t size);

#ifdef __cplusplus
}
#endif

#endif
