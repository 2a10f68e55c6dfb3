// File streams: the standard library's buffered file behind the stream operations.
#include "KIVCS2FileStream.h"

#include "Private/Support/Check.h"
#include "Private/Support/HeapLimit.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace
{
// Seek origins by position mode. The offset from the end is added here, unlike in a memory stream.
constexpr std::array<int, KIVCS2StreamPosition_MAX> kSeekOrigin = {
    SEEK_SET, // Start
    SEEK_CUR, // Current
    SEEK_END, // End
};

[[nodiscard]] KIVCS2FileStream *record(KIVCS2Stream *stream)
{
    return reinterpret_cast<KIVCS2FileStream *>(stream);
}

#define CHECK_OPEN(stream)                                                                                   \
    KIV_CHECK_AS((stream) != nullptr && (stream)->m_file != nullptr, "(stream->m_file) != NULL",             \
                 KIVCS2STATUS_PARAM_ERR)
#define CHECK_GIVEN(argument)                                                                                \
    KIV_CHECK_AS((argument) != nullptr, "(" #argument ") != NULL", KIVCS2STATUS_PARAM_ERR)

// fopen(), closed on exec from the start: a program that another thread launches meanwhile must not keep the
// file open. The "e" goes after the first character, because the C library reads only six flags.
[[nodiscard]] FILE *openClosedOnExec(const char *filename, const char *accessMode)
{
    constexpr size_t kLongestMode = 6; // the first character and five flags; "e" is the sixth flag
    const size_t length = std::strlen(accessMode);
    if (length > 0 && length <= kLongestMode)
    {
        char mode[kLongestMode + 2];
        (void)std::snprintf(mode, sizeof mode, "%ce%s", accessMode[0], accessMode + 1);
        return std::fopen(filename, mode);
    }
    FILE *const file = std::fopen(filename, accessMode);
    if (file != nullptr)
        (void)fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
    return file;
}

// If the host's standard streams are closed, the file would become one of them, and messages for standard
// error would be written into it.
[[nodiscard]] FILE *moveAboveStandardStreams(FILE *file, const char *accessMode)
{
    if (file == nullptr || fileno(file) > STDERR_FILENO)
        return file;
    const int descriptor = fcntl(fileno(file), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    FILE *const moved = descriptor >= 0 ? fdopen(descriptor, accessMode) : nullptr;
    if (moved == nullptr && descriptor >= 0)
        close(descriptor);
    (void)std::fclose(file); // no bytes have been written yet
    return moved;
}

// Stores the size and restores the position.
[[nodiscard]] KIVCS2Status measure(FILE *file, uint64_t *size)
{
    const off_t position = ftello(file);
    if (position < 0 || fseeko(file, 0, SEEK_END) != 0)
        return KIVCS2STATUS_READ_ERR;
    const off_t end = ftello(file);
    if (fseeko(file, position, SEEK_SET) != 0 || end < 0)
        return KIVCS2STATUS_READ_ERR;
    *size = static_cast<uint64_t>(end);
    return KIVCS2STATUS_OK;
}
} // namespace

KIVCS2Status kivCS2FileStream_setup(KIVCS2FileStream *stream)
{
    CHECK_GIVEN(stream);

    *stream = {};
    stream->m_stream.m_writeBytes = kivCS2FileStream_writeBytes;
    stream->m_stream.m_readBytes = kivCS2FileStream_readBytes;
    stream->m_stream.m_getSize = kivCS2FileStream_getSize;
    stream->m_stream.m_setPosition = kivCS2FileStream_setPosition;
    stream->m_stream.m_isEndOfStream = kivCS2FileStream_isEndOfStream;
    stream->m_stream.m_getBytes = kivCS2FileStream_getBytes;
    stream->m_stream.m_freeBytes = kivCS2FileStream_freeBytes;
    stream->m_stream.m_close = kivCS2FileStream_close;
    stream->m_stream.m_free = kivCS2FileStream_free;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2FileStream_init(KIVCS2FileStream *stream, const char *filename, const char *accessMode)
{
    CHECK_GIVEN(stream);
    CHECK_GIVEN(filename);
    CHECK_GIVEN(accessMode);

    KIV_TRY(kivCS2FileStream_setup(stream));
    stream->m_file = moveAboveStandardStreams(openClosedOnExec(filename, accessMode), accessMode);
    return stream->m_file != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_OPEN_ERR;
}

// Kept: one item of `size` bytes, so that the count is all or nothing and only the count shows a short
// transfer.
KIVCS2Status kivCS2FileStream_writeBytes(KIVCS2Stream *_stream, const void *buffer, uint64_t size,
                                         uint64_t *bytesWritten)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(buffer);

    const size_t items = std::fwrite(buffer, size, 1, stream->m_file);
    if (bytesWritten != nullptr)
        *bytesWritten = items == 1 ? size : 0;
    return KIVCS2STATUS_OK;
}

// Kept: see kivCS2FileStream_writeBytes().
KIVCS2Status kivCS2FileStream_readBytes(KIVCS2Stream *_stream, void *buffer, uint64_t size,
                                        uint64_t *bytesRead)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(buffer);

    const size_t items = std::fread(buffer, size, 1, stream->m_file);
    if (bytesRead != nullptr)
        *bytesRead = items == 1 ? size : 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2FileStream_getSize(KIVCS2Stream *_stream, uint64_t *size)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(size);

    return measure(stream->m_file, size);
}

KIVCS2Status kivCS2FileStream_setPosition(KIVCS2Stream *_stream, int64_t offset, KIVCS2StreamPosition mode,
                                          int64_t *newPosition)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_OPEN(stream);
    if (mode >= KIVCS2StreamPosition_MAX)
        return KIVCS2STATUS_PARAM_ERR;

    if (fseeko(stream->m_file, offset, kSeekOrigin[mode]) != 0)
        return KIVCS2STATUS_READ_ERR;
    if (newPosition == nullptr)
        return KIVCS2STATUS_OK;
    const off_t position = ftello(stream->m_file);
    if (position < 0)
        return KIVCS2STATUS_READ_ERR;
    *newPosition = position;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2FileStream_isEndOfStream(KIVCS2Stream *_stream, uint32_t *eos)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(eos);

    // The position decides: the file's own end flag is set only by a read past the end.
    uint64_t size = 0;
    KIV_TRY(measure(stream->m_file, &size));
    const off_t position = ftello(stream->m_file);
    if (position < 0)
        return KIVCS2STATUS_READ_ERR;
    *eos = static_cast<uint64_t>(position) == size ? 1 : 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2FileStream_getBytes(KIVCS2Stream *_stream, uint8_t **buffer, uint64_t *size)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_OPEN(stream);
    CHECK_GIVEN(buffer);
    CHECK_GIVEN(size);

    *buffer = nullptr;
    KIV_TRY(measure(stream->m_file, size));
    if (fseeko(stream->m_file, 0, SEEK_SET) != 0)
        return KIVCS2STATUS_READ_ERR;
    // A directory opens for reading and reports the largest possible size; a sparse file may report more than
    // the machine has.
    if (!kiv::fitsMemory(*size))
        return KIVCS2STATUS_MEMORY_ERR;
    auto *block = static_cast<uint8_t *>(std::malloc(*size > 0 ? *size : 1));
    if (block == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;

    uint64_t count = 0;
    const KIVCS2Status status = kivCS2FileStream_readBytes(_stream, block, *size, &count);
    if (KIVCS2_FAILED(status) || count < *size)
    {
        // Kept: a short read is a success without a block; callers test the pointer.
        std::free(block);
        return status;
    }
    *buffer = block;
    return status;
}

KIVCS2Status kivCS2FileStream_freeBytes(KIVCS2Stream *, uint8_t *buffer)
{
    std::free(buffer);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2FileStream_close(KIVCS2Stream *_stream)
{
    KIVCS2FileStream *stream = record(_stream);
    CHECK_GIVEN(stream);

    FILE *file = std::exchange(*stream, {}).m_file;
    // The last buffered bytes are written here; losing them must not look like success.
    return file == nullptr || std::fclose(file) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_WRITE_ERR;
}

KIVCS2Status kivCS2FileStream_free(KIVCS2Stream *stream)
{
    return kivCS2FileStream_close(stream);
}
