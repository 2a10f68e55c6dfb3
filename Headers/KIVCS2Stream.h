/**
 * @file
 * Byte streams: one interface over memory, files, pipes and named pipes, with length-prefixed
 * UTF-8 strings and a bit reader on top.
 *
 * A stream is a caller-owned record whose first members are its nine operations. A kind of stream
 * (KIVCS2MemoryStream.h, KIVCS2FileStream.h, KIVCS2PipeStream.h, KIVCS2NamedPipeStream.h, or a host's own)
 * begins its record with a whole KIVCS2Stream, fills in the operations in its `setup` and keeps its state
 * after them. Pass `&record.m_stream` to the operations of this header:
 *
 * @code
 * KIVCS2MemoryStream memory;
 * KIVCS2Stream *stream = &memory.m_stream; // the same calls for a file or a pipe
 * char text[16];
 * uint64_t length;
 * if (KIVCS2_FAILED(kivCS2MemoryStream_init(&memory, 64, 64)))
 *     return 1;
 * kivCS2Stream_writeUTF8String(stream, "On air");
 * kivCS2Stream_setPosition(stream, 0, KIVCS2StreamPosition_Start, NULL);
 * if (KIVCS2_SUCCEEDED(kivCS2Stream_readUTF8StringToBuffer(stream, text, sizeof text, &length)))
 *     printf("%s, %d\n", text, (int)length); // prints: On air, 7
 * kivCS2MemoryStream_free(stream);
 * @endcode
 *
 * The generic operations check the stream, its operation and the required pointers, return
 * KIVCS2STATUS_PARAM_ERR if one is missing, and otherwise return exactly the status of the kind. They never
 * retry a short transfer. Nothing is locked: a stream belongs to one thread at a time.
 */
#ifndef KIVCS2_STREAM_H
#define KIVCS2_STREAM_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** Origin of the offset of kivCS2Stream_setPosition(). */
typedef uint32_t KIVCS2StreamPosition;
enum
{
    KIVCS2StreamPosition_Start = 0,   /**< the start of the stream */
    KIVCS2StreamPosition_Current = 1, /**< the current position */
    KIVCS2StreamPosition_End = 2,     /**< the end; the kind defines the direction */
    KIVCS2StreamPosition_MAX = 3      /**< the count; not a mode */
};

/**
 * The first member of every kind's record. An operation receives the stream and treats it as its kind's
 * record; it has the arguments and promises of the generic operation of the same name. A host may fill in its
 * own operations, or replace single ones after an `init`.
 */
typedef struct KIVCS2Stream
{
    /** Writes `size` bytes at the current position. */
    KIVCS2Status (*m_writeBytes)(struct KIVCS2Stream *stream, const void *buffer, uint64_t size,
                                 uint64_t *bytesWritten);
    /** Reads up to `size` bytes from the current position. */
    KIVCS2Status (*m_readBytes)(struct KIVCS2Stream *stream, void *buffer, uint64_t size,
                                uint64_t *bytesRead);
    /** Stores the total size of the content. */
    KIVCS2Status (*m_getSize)(struct KIVCS2Stream *stream, uint64_t *size);
    /** Moves the current position. */
    KIVCS2Status (*m_setPosition)(struct KIVCS2Stream *stream, int64_t offset, KIVCS2StreamPosition mode,
                                  int64_t *newPosition);
    /** Stores whether the position is at the end. */
    KIVCS2Status (*m_isEndOfStream)(struct KIVCS2Stream *stream, uint32_t *eos);
    /** Returns the whole content as one block. */
    KIVCS2Status (*m_getBytes)(struct KIVCS2Stream *stream, uint8_t **buffer, uint64_t *size);
    /** Releases a block from `m_getBytes`. */
    KIVCS2Status (*m_freeBytes)(struct KIVCS2Stream *stream, uint8_t *buffer);
    /** Releases the kind's resources and clears the record. */
    KIVCS2Status (*m_close)(struct KIVCS2Stream *stream);
    /** Final release; every kind of this library makes it the same as its close. */
    KIVCS2Status (*m_free)(struct KIVCS2Stream *stream);

    uint8_t m_bitMask;    /**< mask of the next bit to take from `m_bitByte`; 0x80 after a begin */
    uint8_t m_bitByte;    /**< the bit reader's current byte */
    uint8_t m_bitReading; /**< 1 after kivCS2Stream_beginReadBits(), 0 after kivCS2Stream_beginWriteBits() */
} KIVCS2Stream;

/**
 * Writes `size` bytes of `buffer` at the current position.
 * @param[in,out] stream        any kind
 * @param[in]     buffer        `size` bytes
 * @param[in]     size          bytes
 * @param[out]    bytesWritten  the bytes written; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its operation or `buffer` is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_writeBytes(KIVCS2Stream *stream, const void *buffer, uint64_t size,
                                                uint64_t *bytesWritten);

/**
 * Reads up to `size` bytes into `buffer`. At the end the kinds of this library succeed with a count of 0.
 * @param[in,out] stream     any kind
 * @param[out]    buffer     room for `size` bytes
 * @param[in]     size       bytes
 * @param[out]    bytesRead  the bytes read; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its operation or `buffer` is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_readBytes(KIVCS2Stream *stream, void *buffer, uint64_t size,
                                               uint64_t *bytesRead);

/**
 * Stores the size of the content in bytes.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its operation or `size` is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_getSize(KIVCS2Stream *stream, uint64_t *size);

/**
 * Moves the current position by `offset` bytes, counted from the origin `mode`. With assertions an unknown
 * mode stops the process; without them, the kind decides.
 * @param[in,out] stream       any kind
 * @param[in]     offset       bytes from the origin; may be negative
 * @param[in]     mode         the origin, KIVCS2StreamPosition
 * @param[out]    newPosition  bytes from the start; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or its operation is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_setPosition(KIVCS2Stream *stream, int64_t offset,
                                                 KIVCS2StreamPosition mode, int64_t *newPosition);

/**
 * Stores 1 if the position is at the end, else 0.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its `m_setPosition` (the one that is asserted) or its
 *                                 `m_isEndOfStream` is missing
 * @return otherwise the kind's status; the kind may refuse a null `eos`
 */
KIVCS2_API KIVCS2Status kivCS2Stream_isEndOfStream(KIVCS2Stream *stream, uint32_t *eos);

/**
 * Returns the whole content as one block, released with kivCS2Stream_freeBytes(). The kind defines whether
 * the block is a copy.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its operation, `buffer` or `size` is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_getBytes(KIVCS2Stream *stream, uint8_t **buffer, uint64_t *size);

/**
 * Releases a block of kivCS2Stream_getBytes().
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its operation or `buffer` is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_freeBytes(KIVCS2Stream *stream, uint8_t *buffer);

/**
 * Releases the stream's resources and clears its record, which may then be initialised again.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or its operation is missing
 * @return otherwise the kind's status
 */
KIVCS2_API KIVCS2Status kivCS2Stream_close(KIVCS2Stream *stream);

/**
 * Closes the stream, then calls its `m_free` for the final release. For every kind of this library, closing
 * clears the record, so the stream is released completely and the status is always KIVCS2STATUS_PARAM_ERR;
 * call the kind's own `free` for a clean status.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or its `m_free` is missing, or closing cleared `m_free`
 * @return otherwise the status of the kind's `m_free`
 */
KIVCS2_API KIVCS2Status kivCS2Stream_free(KIVCS2Stream *stream);

/**
 * Writes the text as 8 bytes of length (host byte order, terminator not counted) and then its bytes.
 * @param[in,out] stream  any kind
 * @param[in]     string  zero-terminated UTF-8; null is written as a length of 0
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or its write operation is missing
 * @retval KIVCS2STATUS_WRITE_ERR  the kind wrote fewer bytes; those stay written
 * @return otherwise the status of a failing write, or KIVCS2STATUS_OK
 */
KIVCS2_API KIVCS2Status kivCS2Stream_writeUTF8String(KIVCS2Stream *stream, const char *string);

/**
 * Reads a text written by kivCS2Stream_writeUTF8String() into a new block that ends in two zero
 * bytes. Release it with kivCS2Stream_freeUTF8String(), also after a failure that left a block.
 *
 * A text above 1 MiB is read in steps, each doubling the block, so that a damaged length costs little
 * more memory than the stream has bytes.
 * @param[in,out] stream  any kind
 * @param[out]    string  the block; null for a text of length 0
 * @retval KIVCS2STATUS_PARAM_ERR   `stream`, its read operation or `string` is missing
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the text, or it is longer than the machine's memory; `string`
 *                                  is null
 * @retval KIVCS2STATUS_READ_ERR    fewer than 8 bytes of length (`string` is null), or fewer bytes of
 *                                  text than announced (`string` holds a block for the caller to free)
 * @return otherwise the status of a failing read, `string` as for KIVCS2STATUS_READ_ERR
 */
KIVCS2_API KIVCS2Status kivCS2Stream_readUTF8String(KIVCS2Stream *stream, char **string);

/** Releases a text of kivCS2Stream_readUTF8String(); null is accepted, `stream` is not used. */
KIVCS2_API KIVCS2Status kivCS2Stream_freeUTF8String(KIVCS2Stream *stream, char *string);

/**
 * Reads a text written by kivCS2Stream_writeUTF8String() into the caller's buffer and ends it with
 * two zero bytes.
 * @param[in,out] stream      any kind
 * @param[out]    string      the text and two zero bytes
 * @param[in]     bufferSize  bytes of `string`; at least the text's length plus 2
 * @param[out]    length      the text's length plus 1 (one terminator counted); may be null
 * @retval KIVCS2STATUS_PARAM_ERR  `stream`, its read operation or `string` is missing; or the buffer is too
 *                                 small, in which case the length is consumed and the text is not
 * @retval KIVCS2STATUS_READ_ERR   fewer bytes than announced; the buffer's content is undefined
 * @return otherwise the status of a failing read, or KIVCS2STATUS_OK
 */
KIVCS2_API KIVCS2Status kivCS2Stream_readUTF8StringToBuffer(KIVCS2Stream *stream, char *string,
                                                            uint64_t bufferSize, uint64_t *length);

/**
 * Starts bit reading: takes one byte from the stream.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or its read operation is missing
 * @return otherwise the status of a failing read, which leaves the bit state unchanged
 */
KIVCS2_API KIVCS2Status kivCS2Stream_beginReadBits(KIVCS2Stream *stream);

/** Resets the bit state for writing. @retval KIVCS2STATUS_PARAM_ERR  `stream` is null */
KIVCS2_API KIVCS2Status kivCS2Stream_beginWriteBits(KIVCS2Stream *stream);

/**
 * Reads 1 to 8 bits, most significant first, into the low bits of `value`.
 *
 * The next byte is taken from the stream as soon as the last bit of the current one is taken, and the count
 * of that read is ignored. So a read that ends on a byte boundary has consumed the following byte, and at the
 * end of the data the current byte is delivered again.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` or `value` is missing, or `count` is 0 or above 8; `value` is
 *                                 unchanged
 * @return otherwise the status of a failing read, `value` holding the bits so far, or KIVCS2STATUS_OK
 */
KIVCS2_API KIVCS2Status kivCS2Stream_readBits(KIVCS2Stream *stream, uint32_t count, uint8_t *value);

/**
 * Skips any number of bits and takes bytes as kivCS2Stream_readBits() does; does nothing unless
 * kivCS2Stream_beginReadBits() was called before.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 * @return otherwise the status of a failing read, or KIVCS2STATUS_OK
 */
KIVCS2_API KIVCS2Status kivCS2Stream_skipBits(KIVCS2Stream *stream, uint32_t count);

/** Writes nothing and succeeds: bit writing is outside this library. */
KIVCS2_API KIVCS2Status kivCS2Stream_writeBits(KIVCS2Stream *stream, uint32_t count, uint8_t value);
/** Writes nothing and succeeds, as kivCS2Stream_writeBits(). */
KIVCS2_API KIVCS2Status kivCS2Stream_setBits(KIVCS2Stream *stream, uint32_t count);
/** Writes nothing and succeeds, as kivCS2Stream_writeBits(). */
KIVCS2_API KIVCS2Status kivCS2Stream_clearBits(KIVCS2Stream *stream, uint32_t count);
/** Returns no partly used byte to the stream and succeeds, as kivCS2Stream_writeBits(). */
KIVCS2_API KIVCS2Status kivCS2Stream_endBits(KIVCS2Stream *stream);

KIVCS2_END_DECLS

#endif
