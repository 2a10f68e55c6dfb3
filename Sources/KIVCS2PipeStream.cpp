// Pipe streams: an anonymous pipe pair behind the stream operations.
#include "KIVCS2PipeStream.h"

#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPlatform.h>

#include <unistd.h>

#include <array>
#include <utility>

namespace
{
[[nodiscard]] KIVCS2PipeStream *record(KIVCS2Stream *stream)
{
    return reinterpret_cast<KIVCS2PipeStream *>(stream);
}
} // namespace

KIVCS2Status kivCS2PipeStream_setup(KIVCS2PipeStream *stream)
{
    KIV_CHECK(stream);

    *stream = {};
    stream->m_stream.m_writeBytes = kivCS2PipeStream_writeBytes;
    stream->m_stream.m_readBytes = kivCS2PipeStream_readBytes;
    stream->m_stream.m_getSize = kivCS2PipeStream_getSize;
    stream->m_stream.m_setPosition = kivCS2PipeStream_setPosition;
    stream->m_stream.m_isEndOfStream = kivCS2PipeStream_isEndOfStream;
    stream->m_stream.m_getBytes = kivCS2PipeStream_getBytes;
    stream->m_stream.m_freeBytes = kivCS2PipeStream_freeBytes;
    stream->m_stream.m_close = kivCS2PipeStream_close;
    stream->m_stream.m_free = kivCS2PipeStream_free;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PipeStream_init(KIVCS2PipeStream *stream)
{
    KIV_TRY(kivCS2PipeStream_setup(stream));

    // Closed on exec: otherwise a program launched elsewhere in the host would keep the pipe open for ever.
    // Above the standard streams: a daemon without standard input would get descriptor 0, which marks a
    // closed end.
    std::array<int, 2> pipes{};
    if (KIVPPipe(pipes.data()) != 0)
        return KIVCS2STATUS_PIPE_ERR;
    return kivCS2PipeStream_initWithPipes(stream, pipes[0], pipes[1]);
}

KIVCS2Status kivCS2PipeStream_initWithPipes(KIVCS2PipeStream *stream, int32_t readPipe, int32_t writePipe)
{
    KIV_CHECK(stream);
    // Kept: asserted for the whole range, but only 0 is refused; 0 marks a closed end in the record.
    KIV_ASSERT(readPipe > 0);
    KIV_ASSERT(writePipe > 0);
    if (readPipe == 0 || writePipe == 0)
        return KIVCS2STATUS_PARAM_ERR;

    KIV_TRY(kivCS2PipeStream_setup(stream));
    stream->m_readPipe = readPipe;
    stream->m_writePipe = writePipe;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PipeStream_writeBytes(KIVCS2Stream *_stream, const void *buffer, uint64_t size,
                                         uint64_t *bytesWritten)
{
    const KIVCS2PipeStream *stream = record(_stream);
    KIV_CHECK_AS(stream != nullptr && stream->m_writePipe > 0, "stream->m_writePipe > 0",
                 KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK(buffer);

    const ssize_t count = KIVPWriteWithoutSignal(stream->m_writePipe, buffer, size);
    if (count < 0)
        return KIVCS2STATUS_PIPE_ERR;
    if (bytesWritten != nullptr)
        *bytesWritten = static_cast<uint64_t>(count);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PipeStream_readBytes(KIVCS2Stream *_stream, void *buffer, uint64_t size,
                                        uint64_t *bytesRead)
{
    const KIVCS2PipeStream *stream = record(_stream);
    KIV_CHECK_AS(stream != nullptr && stream->m_readPipe > 0, "stream->m_readPipe > 0",
                 KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK(buffer);

    const ssize_t count = read(stream->m_readPipe, buffer, size);
    // Kept: the system's own result, -1 as all ones, always with success.
    if (bytesRead != nullptr)
        *bytesRead = static_cast<uint64_t>(count);
    return KIVCS2STATUS_OK;
}

// Kept: an operation that a pipe lacks is a pipe failure here and "unsupported" in a named pipe.
KIVCS2Status kivCS2PipeStream_getSize(KIVCS2Stream *, uint64_t *)
{
    return KIVCS2STATUS_PIPE_ERR;
}

KIVCS2Status kivCS2PipeStream_setPosition(KIVCS2Stream *, int64_t, KIVCS2StreamPosition, int64_t *)
{
    return KIVCS2STATUS_PIPE_ERR;
}

KIVCS2Status kivCS2PipeStream_isEndOfStream(KIVCS2Stream *, uint32_t *eos)
{
    KIV_CHECK(eos);

    *eos = 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PipeStream_getBytes(KIVCS2Stream *, uint8_t **, uint64_t *)
{
    return KIVCS2STATUS_PIPE_ERR;
}

KIVCS2Status kivCS2PipeStream_freeBytes(KIVCS2Stream *, uint8_t *)
{
    return KIVCS2STATUS_OK; // there is never a block to release
}

KIVCS2Status kivCS2PipeStream_close(KIVCS2Stream *_stream)
{
    KIVCS2PipeStream *stream = record(_stream);
    KIV_CHECK_AS(stream != nullptr, "stream", KIVCS2STATUS_PARAM_ERR);

    const KIVCS2PipeStream closing = std::exchange(*stream, {});
    for (const int32_t descriptor : {closing.m_readPipe, closing.m_writePipe})
        if (descriptor > 0)
            close(descriptor);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2PipeStream_free(KIVCS2Stream *stream)
{
    return kivCS2PipeStream_close(stream);
}
