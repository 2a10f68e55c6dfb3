/**
 * @file
 * Access in place to the bytes that a standard-library file has read ahead. With it a block search leaves the
 * file exactly at the position where byte-wise reading would have left it.
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
 * Stores the address of the next bytes of `file` in memory and returns their number; 0 if the next
 * getc() would have to read from the system, and always on a C library that does not show its buffer. Reads
 * nothing from the system. The bytes stay valid until the next operation on `file`. One thread at a time.
 */
    extern __attribute__((visibility("default"))) size_t KIVPFileBuffered(FILE *file,
                                                                          const unsigned char **bytes);

    /** Takes the first `size` bytes that KIVPFileBuffered() showed, as `size` calls of getc() would. */
    extern __attribute__((visibility("default"))) void KIVPFileTakeBuffered(FILE *file, size_t size);

#ifdef __cplusplus
}
#endif

#endif
