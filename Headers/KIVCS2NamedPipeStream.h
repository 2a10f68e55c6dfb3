/**
 * @file
 * Named-pipe streams: a stream over one end of a FIFO, which it can create when opening and remove when
 * closing.
 *
 * `init` opens one end, the operations of KIVCS2Stream.h read or write it, `free` closes it and clears the
 * record, which may then be initialised again.
 *
 * For operations that a FIFO lacks this kind returns KIVCS2STATUS_UNSUPPORTED_ERR, while the anonymous pipe
 * returns KIVCS2STATUS_PIPE_ERR. Writing to a FIFO whose reader is gone is a failed write and never raises
 * SIGPIPE. One record is used by one thread at a time.
 *
 * The descriptor is above 2, even in a host whose standard streams are closed, and is closed on exec. To pass
 * it to a program that the host executes itself, copy it to a number of the program's choice between fork and
 * exec, `dup2(pipe.m_fileDescriptor, STDIN_FILENO)`: the copy stays open. Or pass the path.
 *
 * @code
 * KIVCS2NamedPipeStream reader, writer;
 * char text[16] = "";
 * uint32_t flags = KIVCS2NamedPipeFlag_Create | KIVCS2NamedPipeFlag_Unlink |
 *                  KIVCS2NamedPipeFlag_NonBlocking; // otherwise it waits for the other end
 * if (KIVCS2_FAILED(kivCS2NamedPipeStream_init(&reader, "cues", flags | KIVCS2NamedPipeFlag_Read)) ||
 *     KIVCS2_FAILED(kivCS2NamedPipeStream_init(&writer, "cues", KIVCS2NamedPipeFlag_Write)))
 *     return 1;
 * kivCS2Stream_writeBytes(&writer.m_stream, "take 2", 6, NULL);
 * kivCS2Stream_readBytes(&reader.m_stream, text, sizeof text - 1, NULL);
 * puts(text); // prints: take 2
 * kivCS2NamedPipeStream_free(&writer.m_stream);
 * kivCS2NamedPipeStream_free(&reader.m_stream); // removes the path
 * @endcode
 */
#ifndef KIVCS2_NAMED_PIPE_STREAM_H
#define KIVCS2_NAMED_PIPE_STREAM_H

#include "KIVCS2Stream.h"

KIVCS2_BEGIN_DECLS

/** How a named pipe is opened; bits that may be combined. Other bits have no meaning. */
typedef uint32_t KIVCS2NamedPipeFlag;
enum
{
    KIVCS2NamedPipeFlag_Read = 0x02,        /**< open for reading */
    KIVCS2NamedPipeFlag_Write = 0x04,       /**< open for writing; ignored together with Read */
    KIVCS2NamedPipeFlag_NonBlocking = 0x08, /**< neither opening nor transfers wait */
    KIVCS2NamedPipeFlag_Create = 0x10,      /**< create the FIFO if the path is missing or refused */
    KIVCS2NamedPipeFlag_Unlink = 0x20       /**< remove the path on close */
};

/** A named-pipe stream. */
typedef struct KIVCS2NamedPipeStream
{
    KIVCS2Stream m_stream;    /**< the operations; pass its address to them */
    char *m_path;             /**< the FIFO's path, copied at opening; null when closed */
    int32_t m_fileDescriptor; /**< -1 when no pipe is open */
    uint32_t m_flags;         /**< KIVCS2NamedPipeFlag, kept for close */
} KIVCS2NamedPipeStream;

/**
 * Clears the record, fills in its operations and sets the descriptor to -1.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null
 */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_setup(KIVCS2NamedPipeStream *stream);

/**
 * Opens a FIFO for reading, or for writing if only KIVCS2NamedPipeFlag_Write is given. Without
 * KIVCS2NamedPipeFlag_NonBlocking the call waits for the other end. A created FIFO has permissions 0600.
 * Release the stream with kivCS2NamedPipeStream_free(), also after KIVCS2STATUS_MEMORY_ERR. If the path names
 * anything else (a file, a device, a folder), it is neither opened nor changed; a link counts as its target.
 * @param[out] stream    the record
 * @param[in]  filename  path in the file system's encoding, copied
 * @param[in]  flags     bits of KIVCS2NamedPipeFlag
 * @retval KIVCS2STATUS_PARAM_ERR   `stream` or `filename` is null
 * @retval KIVCS2STATUS_DATA_ERR    the path is missing or refused, and Create was not given
 * @retval KIVCS2STATUS_FIFO_ERR    the FIFO could not be created
 * @retval KIVCS2STATUS_OPEN_ERR    the path leads to something other than a FIFO, or could not be opened for
 *                                  another reason, such as a non-blocking opening for writing without a
 *                                  reader
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the path; the pipe is open, and `close` closes it
 */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_init(KIVCS2NamedPipeStream *stream, const char *filename,
                                                   uint32_t flags);

/**
 * One write of `size` bytes.
 * @param[in,out] stream        an open named pipe
 * @param[in]     buffer        `size` bytes
 * @param[in]     size          bytes
 * @param[out]    bytesWritten  the bytes written, possibly fewer; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no pipe is open, or `buffer` is null
 * @retval KIVCS2STATUS_WRITE_ERR  the write failed, or would wait; `bytesWritten` is unchanged
 */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_writeBytes(KIVCS2Stream *stream, const void *buffer,
                                                         uint64_t size, uint64_t *bytesWritten);

/**
 * One read of up to `size` bytes.
 * @param[in,out] stream     an open named pipe
 * @param[out]    buffer     room for `size` bytes
 * @param[in]     size       bytes
 * @param[out]    bytesRead  the bytes read, 0 if the last writer is gone and after a failure; may be null
 * @retval KIVCS2STATUS_PARAM_ERR  no pipe is open, or `buffer` is null
 * @retval KIVCS2STATUS_READ_ERR   the read failed, or would wait
 */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_readBytes(KIVCS2Stream *stream, void *buffer, uint64_t size,
                                                        uint64_t *bytesRead);

/** KIVCS2STATUS_UNSUPPORTED_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_getSize(KIVCS2Stream *stream, uint64_t *size);

/** KIVCS2STATUS_UNSUPPORTED_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_setPosition(KIVCS2Stream *stream, int64_t offset,
                                                          KIVCS2StreamPosition mode, int64_t *newPosition);

/** KIVCS2STATUS_UNSUPPORTED_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_isEndOfStream(KIVCS2Stream *stream, uint32_t *eos);

/** KIVCS2STATUS_UNSUPPORTED_ERR, nothing is stored. */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_getBytes(KIVCS2Stream *stream, uint8_t **buffer,
                                                       uint64_t *size);

/** KIVCS2STATUS_UNSUPPORTED_ERR, nothing is released. */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_freeBytes(KIVCS2Stream *stream, uint8_t *buffer);

/**
 * Closes the pipe, removes its path if KIVCS2NamedPipeFlag_Unlink was given, releases the path's copy
 * and clears the whole record.
 * @retval KIVCS2STATUS_PARAM_ERR  `stream` is null; or there is no path to release (after a failed `init`,
 *                                 after a close): then the descriptor is closed if it was open, nothing else
 *                                 is held, and the record may be initialised again
 */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_close(KIVCS2Stream *stream);

/** The same as kivCS2NamedPipeStream_close(). */
KIVCS2_API KIVCS2Status kivCS2NamedPipeStream_free(KIVCS2Stream *stream);

KIVCS2_END_DECLS

#endif
