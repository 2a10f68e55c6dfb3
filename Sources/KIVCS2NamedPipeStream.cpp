// Named-pipe streams: one end of a FIFO behind the stream operations.
#include "KIVCS2NamedPipeStream.h"

#include "KIVCS2String.h"
#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPlatform.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace
{
constexpr int32_t kClosed = -1;
constexpr mode_t kOwnerReadsAndWrites = 0600;

struct OpenMode
{
    int permission; // checked before opening
    int flags;      // for open()
};

[[nodiscard]] KIVCS2NamedPipeStream *record(KIVCS2Stream *stream)
{
    return reinterpret_cast<KIVCS2NamedPipeStream *>(stream);
}

// Reading wins over writing; with neither flag the path only has to exist, and is opened for reading.
[[nodiscard]] OpenMode openMode(uint32_t flags)
{
    // Closed on exec: a program launched elsewhere in the host would hold the pipe open.
    OpenMode mode{F_OK, O_RDONLY | O_CLOEXEC};
    if ((flags & KIVCS2NamedPipeFlag_Read) != 0)
        mode.permission = R_OK;
    else if ((flags & KIVCS2NamedPipeFlag_Write) != 0)
        mode = {W_OK, O_WRONLY | O_CLOEXEC};
    if ((flags & KIVCS2NamedPipeFlag_NonBlocking) != 0)
        mode.flags |= O_NONBLOCK;
    return mode;
}

[[nodiscard]] bool isFifo(const struct stat &info)
{
    return S_ISFIFO(info.st_mode);
}

// Opens the FIFO that `path` leads to; -1 and errno for anything else. The path is checked before opening,
// because opening a device may wait or act; the descriptor is checked afterwards, because the path may have
// changed.
[[nodiscard]] int openFifo(const char *path, int flags)
{
    struct stat info
    {
    };
    if (stat(path, &info) == 0 && !isFifo(info))
    {
        errno = EEXIST;
        return -1;
    }
    const int descriptor = KIVPAboveStandardStreams(open(path, flags));
    if (descriptor < 0 || (fstat(descriptor, &info) == 0 && isFifo(info)))
        return descriptor;
    close(descriptor);
    errno = EEXIST;
    return -1;
}

#define CHECK_GIVEN(argument)                                                                                \
    KIV_CHECK_AS((argument) != nullptr, "(" #argument ") != NULL", KIVCS2STATUS_PARAM_ERR)
// A record cleared by a close holds 0, which is the descriptor of some other part of the process.
#define CHECK_OPEN(stream)                                                                                   \
    KIV_CHECK_AS((stream) != nullptr && isSetUp(*(stream)) && (stream)->m_fileDescriptor >= 0,               \
                 "(stream->m_fileDescriptor >= 0)", KIVCS2STATUS_PARAM_ERR)

[[nodiscard]] bool isSetUp(const KIVCS2NamedPipeStream &stream)
{
    return stream.m_stream.m_close != nullptr;
}
} // namespace

KIVCS2Status kivCS2NamedPipeStream_setup(KIVCS2NamedPipeStream *stream)
{
    CHECK_GIVEN(stream);

    *stream = {};
    stream->m_stream.m_writeBytes = kivCS2NamedPipeStream_writeBytes;
    stream->m_stream.m_readBytes = kivCS2NamedPipeStream_readBytes;
    stream->m_stream.m_getSize = kivCS2NamedPipeStream_getSize;
    stream->m_stream.m_setPosition = kivCS2NamedPipeStream_setPosition;
    stream->m_stream.m_isEndOfStream = kivCS2NamedPipeStream_isEndOfStream;
    stream->m_stream.m_getBytes = kivCS2NamedPipeStream_getBytes;
    stream->m_stream.m_freeBytes = kivCS2NamedPipeStream_freeBytes;
    stream->m_stream.m_close = kivCS2NamedPipeStream_close;
    stream->m_stream.m_free = kivCS2NamedPipeStream_free;
    stream->m_fileDescriptor = kClosed;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2NamedPipeStream_init(KIVCS2NamedPipeStream *stream, const char *filename, uint32_t flags)
{
    CHECK_GIVEN(stream);
    CHECK_GIVEN(filename);

    KIV_TRY(kivCS2NamedPipeStream_setup(stream));
    stream->m_flags = flags;
    const OpenMode mode = openMode(flags);
    if (access(filename, mode.permission) != 0)
    {
        if ((flags & KIVCS2NamedPipeFlag_Create) == 0)
            return KIVCS2STATUS_DATA_ERR;
        // The opening shows whether it worked; a FIFO that another process made meanwhile is as good.
        (void)mkfifo(filename, kOwnerReadsAndWrites);
    }
    stream->m_fileDescriptor = openFifo(filename, mode.flags);
    if (stream->m_fileDescriptor < 0)
        return errno == ENOENT ? KIVCS2STATUS_FIFO_ERR : KIVCS2STATUS_OPEN_ERR;
    return kivCS2String_createCopy(&stream->m_path, filename);
}

KIVCS2Status kivCS2NamedPipeStream_writeBytes(KIVCS2Stream *_stream, const void *buffer, uint64_t size,
                                              uint64_t *bytesWritten)
{
    const KIVCS2NamedPipeStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(buffer);

    const ssize_t count = KIVPWriteWithoutSignal(stream->m_fileDescriptor, buffer, size);
    if (count < 0)
        return KIVCS2STATUS_WRITE_ERR;
    if (bytesWritten != nullptr)
        *bytesWritten = static_cast<uint64_t>(count);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2NamedPipeStream_readBytes(KIVCS2Stream *_stream, void *buffer, uint64_t size,
                                             uint64_t *bytesRead)
{
    const KIVCS2NamedPipeStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(buffer);

    if (bytesRead != nullptr)
        *bytesRead = 0;
    const ssize_t count = read(stream->m_fileDescriptor, buffer, size);
    if (count < 0)
        return KIVCS2STATUS_READ_ERR;
    if (bytesRead != nullptr)
        *bytesRead = static_cast<uint64_t>(count);
    return KIVCS2STATUS_OK;
}

// Kept: an operation that a FIFO lacks is "unsupported" here and a pipe failure in an anonymous pipe.
KIVCS2Status kivCS2NamedPipeStream_getSize(KIVCS2Stream *, uint64_t *)
{
    return KIVCS2STATUS_UNSUPPORTED_ERR;
}

KIVCS2Status kivCS2NamedPipeStream_setPosition(KIVCS2Stream *, int64_t, KIVCS2StreamPosition, int64_t *)
{
    return KIVCS2STATUS_UNSUPPORTED_ERR;
}

KIVCS2Status kivCS2NamedPipeStream_isEndOfStream(KIVCS2Stream *, uint32_t *)
{
    return KIVCS2STATUS_UNSUPPORTED_ERR;
}

KIVCS2Status kivCS2NamedPipeStream_getBytes(KIVCS2Stream *, uint8_t **, uint64_t *)
{
    return KIVCS2STATUS_UNSUPPORTED_ERR;
}

KIVCS2Status kivCS2NamedPipeStream_freeBytes(KIVCS2Stream *, uint8_t *)
{
    return KIVCS2STATUS_UNSUPPORTED_ERR;
}

KIVCS2Status kivCS2NamedPipeStream_close(KIVCS2Stream *_stream)
{
    KIVCS2NamedPipeStream *stream = record(_stream);
    CHECK_GIVEN(stream);

    if (isSetUp(*stream) && stream->m_fileDescriptor >= 0)
    {
        close(std::exchange(stream->m_fileDescriptor, kClosed));
        if ((stream->m_flags & KIVCS2NamedPipeFlag_Unlink) != 0)
        {
            KIV_CHECK_AS(stream->m_path != nullptr, "(stream->m_path) != NULL", KIVCS2STATUS_PARAM_ERR);
            (void)unlink(stream->m_path); // a path that is gone already is as good
        }
    }
    // After an init that opened nothing there is no path. That comes from the host's input and is not a fault
    // of the program, so the status is that of releasing a null path, but without its assertion.
    if (stream->m_path == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    KIV_TRY(kivCS2String_freeCString(stream->m_path));
    *stream = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2NamedPipeStream_free(KIVCS2Stream *stream)
{
    return kivCS2NamedPipeStream_close(stream);
}
