/**
 * @file
 * Memory streams: a block that grows as it is written, or a view of the caller's bytes that can be
 * read and overwritten in place.
 *
 * `init` or `initWithBytes` fills the record, the operations of KIVCS2Stream.h read and write it, `free`
 * releases a block that the stream allocated and clears the record, which may then be initialised again.
 *
 * For missing arguments the byte operations return KIVCS2STATUS_MEMORY_ERR here, while other kinds of streams
 * return KIVCS2STATUS_PARAM_ERR. A memory stream holds less than 4 GiB. One record is used
 * by one thread at a time.
 *
 * @code
 * uint8_t bytes[4] = {0x61, 0x01, 0x49, 0x96};
 * uint8_t bits;
 * KIVCS2MemoryStream view;
 * kivCS2MemoryStream_initWithBytes(&view, bytes, sizeof bytes); // no copy
 * kivCS2Stream_beginReadBits(&view.m_stream);
 * kivCS2Stream_skipBits(&view.m_stream, 4);
 * if (KIVCS2_SUCCEEDED(kivCS2Stream_readBits(&view.m_stream, 4, &bits)))
 *     printf("%u\n", bits); // prints: 1
 * kivCS2MemoryStream_free(&view.m_stream); // the bytes stay the caller's
 * @endcode
 */
#ifndef KIVCS2_MEMORY_STREAM_H
#define KIVCS2_MEMORY_STREAM_H

#include "KIVCS2Stream.h"

KIVCS2_BEGIN_DECLS

/** A memory stream. */
typedef struct KIVCS2MemoryStream
{
    KIVCS2Stream m_stream; /**< the operations; pass its address to them */
    uint8_t *m_buffer;     /**< the content */
    uint64_t m_capacity;   /**< bytes allocated for `m_buffer` */
    uint64_t m_growSize;   /**< growth step in bytes; 0 for a view, which cannot grow */
    int64_t m_position;    /**< bytes from the start */
    uint64_t m_size;       /**< bytes of content: the furthest position written */
    bool m_ownsBuffer;     /**< the stream allocated `m_buffer` and releases it */
} KIVCS2MemoryStream;

/**
 * Clears the record and fills in its operations; the record holds no bytes yet.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_setup(KIVCS2MemoryStream *stream);

/**
 * Makes an empty stream with room for `initialSize` bytes that grows by multiples of `growSize`.
 * Release it with kivCS2MemoryStream_free().
 * @retval KIVCS2STATUS_PARAM_ERR   `stream` is null, or a size is 0
 * @retval KIVCS2STATUS_MEMORY_ERR  no room, or 4 GiB or more; the operations are filled in, the rest is empty
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_init(KIVCS2MemoryStream *stream, uint64_t initialSize,
                                                uint64_t growSize);

/**
 * Makes a stream over the caller's block: it reads and overwrites `bytes` in place and never grows.
 * The caller keeps the block alive and releases it after the stream.
 * @retval KIVCS2STATUS_PARAM_ERR   `stream` or `bytes` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  4 GiB or more; the operations are filled in, the rest is empty
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_initWithBytes(KIVCS2MemoryStream *stream, void *bytes,
                                                         uint64_t size);

/**
 * Copies `size` bytes to the position and advances it; the content ends at the furthest position written. If
 * the room is too small, the block grows by (shortfall / `m_growSize` + 1) steps.
 * @param[in,out] stream        a memory stream
 * @param[in]     buffer        `size` bytes outside the stream's block
 * @param[in]     size          bytes
 * @param[out]    bytesWritten  `size`; may be null
 * @retval KIVCS2STATUS_MEMORY_ERR  no content, `buffer` is null, no room, a view past its end, or the
 *                                  content would reach 4 GiB; the stream is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_writeBytes(KIVCS2Stream *stream, const void *buffer, uint64_t size,
                                                      uint64_t *bytesWritten);

/**
 * Copies at most `size` bytes from the position and advances it; at the end the count is 0.
 * @param[in,out] stream     a memory stream
 * @param[out]    buffer     room for `size` bytes
 * @param[in]     size       bytes
 * @param[out]    bytesRead  the bytes copied; may be null
 * @retval KIVCS2STATUS_MEMORY_ERR  no content, or `buffer` is null
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_readBytes(KIVCS2Stream *stream, void *buffer, uint64_t size,
                                                     uint64_t *bytesRead);

/**
 * Stores the bytes of content, not the capacity.
 * @retval KIVCS2STATUS_MEMORY_ERR  no content, or `size` is null
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_getSize(KIVCS2Stream *stream, uint64_t *size);

/**
 * Moves to `offset` (start, and any unknown mode), by `offset` (current), or to `offset` bytes
 * **before** the end (end).
 * @param[in,out] stream       a memory stream
 * @param[in]     offset       bytes
 * @param[in]     mode         the origin, KIVCS2StreamPosition
 * @param[out]    newPosition  may be null
 * @retval KIVCS2STATUS_MEMORY_ERR  no content
 * @retval KIVCS2STATUS_PARAM_ERR   before the start or past the content; the position is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_setPosition(KIVCS2Stream *stream, int64_t offset,
                                                       KIVCS2StreamPosition mode, int64_t *newPosition);

/**
 * Stores 1 if the position has reached the size, else 0.
 * @retval KIVCS2STATUS_MEMORY_ERR  no content, or `eos` is null
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_isEndOfStream(KIVCS2Stream *stream, uint32_t *eos);

/**
 * Returns the stream's own block, which the next growing write may move.
 * @retval KIVCS2STATUS_MEMORY_ERR  no content, or `buffer` or `size` is null
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_getBytes(KIVCS2Stream *stream, uint8_t **buffer, uint64_t *size);

/** Does nothing and succeeds: the block of kivCS2MemoryStream_getBytes() still belongs to the stream. */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_freeBytes(KIVCS2Stream *stream, uint8_t *buffer);

/**
 * Releases the block if the stream allocated it and clears the whole record; a second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_close(KIVCS2Stream *stream);

/** The same as kivCS2MemoryStream_close(). */
KIVCS2_API KIVCS2Status kivCS2MemoryStream_free(KIVCS2Stream *stream);

KIVCS2_END_DECLS

#endif
