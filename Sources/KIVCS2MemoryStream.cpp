// Memory streams: a growing block, or a view of the caller's bytes.
#include "KIVCS2MemoryStream.h"

#include "Private/Support/Check.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace
{
// Block sizes and positions stay within 32 bits, as this kind of stream promises.
constexpr uint64_t kLargestSize = std::numeric_limits<uint32_t>::max();

[[nodiscard]] KIVCS2MemoryStream *record(KIVCS2Stream *stream)
{
    return reinterpret_cast<KIVCS2MemoryStream *>(stream);
}

// Kept: for missing arguments this kind returns the memory status; hosts distinguish the kinds by it.
#define CHECK_MEMORY(expr, text) KIV_CHECK_AS(expr, text, KIVCS2STATUS_MEMORY_ERR)

// Makes room for `size` bytes at the position; on failure the stream is unchanged.
[[nodiscard]] KIVCS2Status makeRoom(KIVCS2MemoryStream *stream, uint64_t size)
{
    const uint64_t room = stream->m_capacity - static_cast<uint64_t>(stream->m_position);
    if (size <= room)
        return KIVCS2STATUS_OK;
    // A view has no step to grow by, and the block is not ours to move.
    if (stream->m_growSize == 0 || size > kLargestSize)
        return KIVCS2STATUS_MEMORY_ERR;

    // Always one step more than the shortfall needs.
    const uint64_t steps = (size - room) / stream->m_growSize + 1;
    uint64_t capacity = 0;
    if (__builtin_mul_overflow(steps, stream->m_growSize, &capacity) ||
        __builtin_add_overflow(capacity, stream->m_capacity, &capacity) || capacity > kLargestSize)
        return KIVCS2STATUS_MEMORY_ERR;
    auto *block = static_cast<uint8_t *>(std::realloc(stream->m_buffer, capacity));
    if (block == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    stream->m_buffer = block;
    stream->m_capacity = capacity;
    return KIVCS2STATUS_OK;
}
} // namespace

KIVCS2Status kivCS2MemoryStream_setup(KIVCS2MemoryStream *stream)
{
    KIV_CHECK(stream);

    *stream = {};
    stream->m_stream.m_writeBytes = kivCS2MemoryStream_writeBytes;
    stream->m_stream.m_readBytes = kivCS2MemoryStream_readBytes;
    stream->m_stream.m_getSize = kivCS2MemoryStream_getSize;
    stream->m_stream.m_setPosition = kivCS2MemoryStream_setPosition;
    stream->m_stream.m_isEndOfStream = kivCS2MemoryStream_isEndOfStream;
    stream->m_stream.m_getBytes = kivCS2MemoryStream_getBytes;
    stream->m_stream.m_freeBytes = kivCS2MemoryStream_freeBytes;
    stream->m_stream.m_close = kivCS2MemoryStream_close;
    stream->m_stream.m_free = kivCS2MemoryStream_free;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_init(KIVCS2MemoryStream *stream, uint64_t initialSize, uint64_t growSize)
{
    KIV_CHECK(stream);
    KIV_CHECK(initialSize > 0);
    KIV_CHECK(growSize > 0);

    KIV_TRY(kivCS2MemoryStream_setup(stream));
    if (initialSize > kLargestSize)
        return KIVCS2STATUS_MEMORY_ERR;
    stream->m_buffer = static_cast<uint8_t *>(std::malloc(initialSize));
    if (stream->m_buffer == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    stream->m_capacity = initialSize;
    stream->m_growSize = growSize;
    stream->m_ownsBuffer = true;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_initWithBytes(KIVCS2MemoryStream *stream, void *bytes, uint64_t size)
{
    KIV_CHECK(stream);
    KIV_CHECK(bytes);

    KIV_TRY(kivCS2MemoryStream_setup(stream));
    if (size > kLargestSize)
        return KIVCS2STATUS_MEMORY_ERR;
    stream->m_buffer = static_cast<uint8_t *>(bytes);
    stream->m_capacity = size;
    stream->m_size = size;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_writeBytes(KIVCS2Stream *_stream, const void *buffer, uint64_t size,
                                           uint64_t *bytesWritten)
{
    KIVCS2MemoryStream *stream = record(_stream);
    CHECK_MEMORY(stream != nullptr && stream->m_buffer != nullptr, "stream->m_buffer");
    CHECK_MEMORY(buffer != nullptr, "buffer");

    KIV_TRY(makeRoom(stream, size));
    std::memcpy(stream->m_buffer + stream->m_position, buffer, size);
    stream->m_position += static_cast<int64_t>(size);
    stream->m_size = std::max(stream->m_size, static_cast<uint64_t>(stream->m_position));
    if (bytesWritten != nullptr)
        *bytesWritten = size;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_readBytes(KIVCS2Stream *_stream, void *buffer, uint64_t size,
                                          uint64_t *bytesRead)
{
    KIVCS2MemoryStream *stream = record(_stream);
    CHECK_MEMORY(stream != nullptr && stream->m_buffer != nullptr, "stream->m_buffer");
    CHECK_MEMORY(buffer != nullptr, "buffer");

    const uint64_t count = std::min(size, stream->m_size - static_cast<uint64_t>(stream->m_position));
    std::memcpy(buffer, stream->m_buffer + stream->m_position, count);
    stream->m_position += static_cast<int64_t>(count);
    if (bytesRead != nullptr)
        *bytesRead = count;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_getSize(KIVCS2Stream *_stream, uint64_t *size)
{
    const KIVCS2MemoryStream *stream = record(_stream);
    CHECK_MEMORY(stream != nullptr && stream->m_buffer != nullptr, "stream->m_buffer");
    CHECK_MEMORY(size != nullptr, "size");

    *size = stream->m_size;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_setPosition(KIVCS2Stream *_stream, int64_t offset, KIVCS2StreamPosition mode,
                                            int64_t *newPosition)
{
    KIVCS2MemoryStream *stream = record(_stream);
    CHECK_MEMORY(stream != nullptr && stream->m_buffer != nullptr, "stream->m_buffer");

    const auto size = static_cast<int64_t>(stream->m_size);
    int64_t target = offset; // Kept: also for an unknown mode
    bool overflows = false;
    if (mode == KIVCS2StreamPosition_Current)
        overflows = __builtin_add_overflow(stream->m_position, offset, &target);
    else if (mode == KIVCS2StreamPosition_End)
        overflows = __builtin_sub_overflow(size, offset, &target); // Kept: counted backwards, unlike a file
    if (overflows || target < 0 || target > size)
        return KIVCS2STATUS_PARAM_ERR;

    stream->m_position = target;
    if (newPosition != nullptr)
        *newPosition = target;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_isEndOfStream(KIVCS2Stream *_stream, uint32_t *eos)
{
    const KIVCS2MemoryStream *stream = record(_stream);
    CHECK_MEMORY(stream != nullptr && stream->m_buffer != nullptr, "stream->m_buffer");
    CHECK_MEMORY(eos != nullptr, "eos");

    *eos = stream->m_position >= static_cast<int64_t>(stream->m_size) ? 1 : 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_getBytes(KIVCS2Stream *_stream, uint8_t **buffer, uint64_t *size)
{
    const KIVCS2MemoryStream *stream = record(_stream);
    CHECK_MEMORY(stream != nullptr && stream->m_buffer != nullptr, "stream->m_buffer");
    CHECK_MEMORY(buffer != nullptr, "buffer");
    CHECK_MEMORY(size != nullptr, "size");

    *buffer = stream->m_buffer;
    *size = stream->m_size;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_freeBytes(KIVCS2Stream *, uint8_t *)
{
    return KIVCS2STATUS_OK; // the block belongs to the stream
}

KIVCS2Status kivCS2MemoryStream_close(KIVCS2Stream *_stream)
{
    KIVCS2MemoryStream *stream = record(_stream);
    KIV_CHECK_AS(stream != nullptr, "stream", KIVCS2STATUS_PARAM_ERR);

    if (stream->m_ownsBuffer)
        std::free(stream->m_buffer);
    *stream = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryStream_free(KIVCS2Stream *stream)
{
    return kivCS2MemoryStream_close(stream);
}
