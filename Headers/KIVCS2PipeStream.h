/**
 * @file
 * Pipe streams: a stream over an anonymous pipe pair, written at one end and read at the other.
 *
 * `init` makes both ends, the operations of KIVCS2Stream.h write and read them, `free` closes them and clears
 * the record, which may then be initialised again.
 *
 * The two descriptors may serve two parties (a parent and its child after a fork); one record is used
 * by one thread at a time. Writing to a pipe whose reader is gone is a failed write and never raises
 * SIGPIPE.
 *
 * The descriptors that kivCS2PipeStream_init() makes are above 2, even in a host whose standard streams are
 * closed, and are closed on exec. To pass an end to a program that the host executes itself, copy it to a
 * number of the program's choice between fork and exec; the copy stays open:
 *
 *     dup2(pipe.m_readPipe, STDIN_FILENO);
 *     execv(path, arguments);
 *
 * @code
 * KIVCS2PipeStream pipe;
 * char text[16] = "";
 * uint64_t count;
 * if (KIVCS2_FAILED(kivCS2PipeStream_init(&pipe)))
 *     return 1;
 * kivCS2Stream_writeBytes(&pipe.m_stream, "On air", 6, &count);
 * kivCS2Stream_readBytes(&pipe.m_stream, text, sizeof text - 1, &count); // waits for data
 * puts(text); // prints: On air
 * kivCS2PipeStream_free(&pipe.m_stream);
 * @endcode
 */
#ifndef KIVCS2_PIPE_STREAM_H
#define KIVCS2_PIPE_STREAM_H

#include "KIVCS2Stream.h"

KIVCS2_BEGIN_DECLS

/** A pipe stream. */
typedef struct KIVCS2PipeStream
{
    KIVCS2Stream m_stream; /**< the operations; pass its address to them */
    int32_t m_readPipe;    /**< descriptor read from; 0 when closed */
    int32_t m_writePipe;   /**< descriptor written to; 0 when closed */
} KIVCS2PipeStream;

/**
 * Clears the record and fills in its operations; no pipe is open yet.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_setup(KIVCS2PipeStream *stream);

/**
 * Makes a pipe pair. Release the stream with kivCS2PipeStream_free().
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 * @retval KIVCS2STATUS_PIPE_ERR   no pipe could be made, or no descriptor above 2 is left; the operations
 *                                 are filled in, nothing is open
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_init(KIVCS2PipeStream *stream);

/**
 * Takes over two open descriptors; the stream closes them from then on. After a failure they still belong to
 * the caller.
 * @param[out] stream     the record
 * @param[in]  readPipe   descriptor to read from, above 0
 * @param[in]  writePipe  descriptor to write to, above 0
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null, or a descriptor is 0; builds with assertions also refuse
 *                                 a negative descriptor
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_initWithPipes(KIVCS2PipeStream *stream, int32_t readPipe,
                                                       int32_t writePipe);

/**
 * One write of `size` bytes.
 * @param[in,out] stream        an open pipe
 * @param[in]     buffer        `size` bytes
 * @param[in]     size          bytes
 * @param[out]    bytesWritten  the bytes written, possibly fewer; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no pipe is open, or `buffer` is null
 * @retval KIVCS2STATUS_PIPE_ERR   the write failed; `bytesWritten` is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_writeBytes(KIVCS2Stream *stream, const void *buffer, uint64_t size,
                                                    uint64_t *bytesWritten);

/**
 * One read of up to `size` bytes; blocks until there are bytes or the last writer is gone.
 * @param[in,out] stream     an open pipe
 * @param[out]    buffer     room for `size` bytes
 * @param[in]     size       bytes
 * @param[out]    bytesRead  the system's own result: 0 at the end of file, all ones (the unsigned form of -1)
 *                           for a failed read; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no pipe is open, or `buffer` is null
 * @retval KIVCS2STATUS_OK         also after a failed read: check the count
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_readBytes(KIVCS2Stream *stream, void *buffer, uint64_t size,
                                                   uint64_t *bytesRead);

/** A pipe has no size: KIVCS2STATUS_PIPE_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2PipeStream_getSize(KIVCS2Stream *stream, uint64_t *size);

/** A pipe has no position: KIVCS2STATUS_PIPE_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2PipeStream_setPosition(KIVCS2Stream *stream, int64_t offset,
                                                     KIVCS2StreamPosition mode, int64_t *newPosition);

/**
 * Stores 0: a pipe's end shows only in a read.
 * @retval KIVCS2STATUS_PARAM_ERR  `eos` is null
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_isEndOfStream(KIVCS2Stream *stream, uint32_t *eos);

/** A pipe has no whole content: KIVCS2STATUS_PIPE_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2PipeStream_getBytes(KIVCS2Stream *stream, uint8_t **buffer, uint64_t *size);

/** Does nothing and succeeds. */
KIVCS2_API KIVCS2Status kivCS2PipeStream_freeBytes(KIVCS2Stream *stream, uint8_t *buffer);

/**
 * Closes each descriptor above 0 and clears the whole record; a second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2PipeStream_close(KIVCS2Stream *stream);

/** The same as kivCS2PipeStream_close(). */
KIVCS2_API KIVCS2Status kivCS2PipeStream_free(KIVCS2Stream *stream);

KIVCS2_END_DECLS

#endif
