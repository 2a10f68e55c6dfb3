/**
 * @file
 * File streams: a stream over the standard library's buffered file.
 *
 * `init` opens a file, the operations of KIVCS2Stream.h read and write it, `free` closes it and clears the
 * record, which may then be initialised again.
 *
 * A transfer reports all or nothing: the count is the whole request or 0, and the status is
 * KIVCS2STATUS_OK in both cases. A record is used by one thread at a time.
 *
 * @code
 * KIVCS2FileStream file;
 * uint64_t count, size;
 * if (KIVCS2_FAILED(kivCS2FileStream_init(&file, "notes.txt", "w+")))
 *     return 1;
 * kivCS2Stream_writeBytes(&file.m_stream, "On air", 6, &count); // OK even if the count is 0
 * if (count == 6 && KIVCS2_SUCCEEDED(kivCS2Stream_getSize(&file.m_stream, &size)))
 *     printf("%d bytes\n", (int)size); // prints: 6 bytes
 * if (KIVCS2_FAILED(kivCS2FileStream_free(&file.m_stream)))
 *     return 1; // the disk is full
 * @endcode
 */
#ifndef KIVCS2_FILE_STREAM_H
#define KIVCS2_FILE_STREAM_H

#include "KIVCS2Stream.h"

#include <stdio.h>

KIVCS2_BEGIN_DECLS

/** A file stream. */
typedef struct KIVCS2FileStream
{
    KIVCS2Stream m_stream; /**< the operations; pass its address to them */
    FILE *m_file;          /**< the buffered file; null when closed */
} KIVCS2FileStream;

/**
 * Clears the record and fills in its operations; no file is open yet.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_setup(KIVCS2FileStream *stream);

/**
 * Opens a file. Release the stream with kivCS2FileStream_free().
 * @param[out] stream      the record
 * @param[in]  filename    path in the file system's encoding
 * @param[in]  accessMode  as for fopen(), passed on unchanged except for an added "e": the file is closed on
 *                         exec and its descriptor is above 2
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, `filename` or `accessMode` is null
 * @retval KIVCS2STATUS_OPEN_ERR   the file cannot be opened; the operations are filled in, no file is open
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_init(KIVCS2FileStream *stream, const char *filename,
                                              const char *accessMode);

/**
 * Writes `size` bytes as one item.
 * @param[in,out] stream        an open file stream
 * @param[in]     buffer        `size` bytes
 * @param[in]     size          bytes
 * @param[out]    bytesWritten  `size` if all bytes were written, else 0; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no file is open, or `buffer` is null
 * @retval KIVCS2STATUS_OK         also after a short transfer: check the count
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_writeBytes(KIVCS2Stream *stream, const void *buffer, uint64_t size,
                                                    uint64_t *bytesWritten);

/**
 * Reads `size` bytes as one item.
 * @param[in,out] stream     an open file stream
 * @param[out]    buffer     room for `size` bytes
 * @param[in]     size       bytes
 * @param[out]    bytesRead  `size` if all bytes were read, else 0 (the bytes that were left are consumed);
 *                           may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no file is open, or `buffer` is null
 * @retval KIVCS2STATUS_OK         also after a short transfer: check the count
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_readBytes(KIVCS2Stream *stream, void *buffer, uint64_t size,
                                                   uint64_t *bytesRead);

/**
 * Stores the file's size in bytes; the position is unchanged. A directory's size reads as the largest signed
 * 64-bit number.
 * @retval KIVCS2STATUS_PARAM_ERR  no file is open, or `size` is null
 * @retval KIVCS2STATUS_READ_ERR   the file has no positions (a pipe, a terminal)
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_getSize(KIVCS2Stream *stream, uint64_t *size);

/**
 * Moves the position; relative to the end, a positive `offset` moves **past** the end.
 * @param[in,out] stream       an open file stream
 * @param[in]     offset       bytes from the origin, also negative
 * @param[in]     mode         the origin, KIVCS2StreamPosition
 * @param[out]    newPosition  may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no file is open, or `mode` is unknown
 * @retval KIVCS2STATUS_READ_ERR   the position cannot be set or read
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_setPosition(KIVCS2Stream *stream, int64_t offset,
                                                     KIVCS2StreamPosition mode, int64_t *newPosition);

/**
 * Stores 1 if the position equals the file's size, else 0; a position past the end is not at the end.
 * @retval KIVCS2STATUS_PARAM_ERR  no file is open, or `eos` is null
 * @retval KIVCS2STATUS_READ_ERR   the file has no positions
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_isEndOfStream(KIVCS2Stream *stream, uint32_t *eos);

/**
 * Reads the whole file into a new block, released with kivCS2FileStream_freeBytes(). The position stays where
 * the read ended.
 * @param[in,out] stream  an open file stream
 * @param[out]    buffer  the block; null if the file delivered fewer bytes than its size, which is
 *                        KIVCS2STATUS_OK: test the pointer
 * @param[out]    size    the file's size
 * @retval KIVCS2STATUS_PARAM_ERR   no file is open, or `buffer` or `size` is null
 * @retval KIVCS2STATUS_READ_ERR    the file has no positions
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the file; `buffer` is null
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_getBytes(KIVCS2Stream *stream, uint8_t **buffer, uint64_t *size);

/** Releases a block of kivCS2FileStream_getBytes(); null is accepted. Always succeeds. */
KIVCS2_API KIVCS2Status kivCS2FileStream_freeBytes(KIVCS2Stream *stream, uint8_t *buffer);

/**
 * Closes the file if one is open and clears the whole record; a second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 * @retval KIVCS2STATUS_WRITE_ERR  bytes written earlier did not reach the file; the record is cleared
 */
KIVCS2_API KIVCS2Status kivCS2FileStream_close(KIVCS2Stream *stream);

/** The same as kivCS2FileStream_close(). */
KIVCS2_API KIVCS2Status kivCS2FileStream_free(KIVCS2Stream *stream);

KIVCS2_END_DECLS

#endif
