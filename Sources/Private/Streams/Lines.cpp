// Line ends in streams: the block search and the three ways to read the bytes.
#include "Private/Streams/Lines.h"

#include "Private/Streams/View.h"

#include <KIVPlatform/KIVPFileBuffer.h>

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace
{
constexpr bool isLineEnd(int byte)
{
    return byte == '\n' || byte == '\r';
}

// A line is too short for the processor to notice that memory is read in order. Asking for the bytes of some
// twenty lines on makes reading 1.7 times as fast.
constexpr size_t kAhead = 2048;

kiv::LinePiece readFromMemory(KIVCS2MemoryStream &memory, char *buffer, size_t room)
{
    const std::span<const uint8_t> unread = kiv::unreadBytes(memory);
    const size_t limit = std::min(room, unread.size());
    for (const size_t ahead : {kAhead, kAhead + 64}) // a line of captions is longer than one of the cache
        __builtin_prefetch(unread.data() + std::min(ahead, unread.size()));
    const size_t length = kiv::findLineEnd(unread.data(), limit);
    if (length > 0)
        std::memcpy(buffer, unread.data(), length);
    if (length < limit)
    {
        kiv::takeBytes(memory, length + 1);
        return {length, kiv::LineStop::lineEnd};
    }
    kiv::takeBytes(memory, length);
    return {length, length == room ? kiv::LineStop::noRoom : kiv::LineStop::noData};
}

kiv::LinePiece readFromFile(FILE *file, char *buffer, size_t room)
{
    size_t length = 0;
    while (length < room)
    {
        const unsigned char *bytes = nullptr;
        const size_t buffered = std::min(KIVPFileBuffered(file, &bytes), room - length);
        if (buffered == 0)
        {
            // Fills the file's buffer, or reports that there are no more bytes.
            const int byte = getc(file);
            if (byte == EOF)
                return {length, kiv::LineStop::noData};
            if (isLineEnd(byte))
                return {length, kiv::LineStop::lineEnd};
            buffer[length++] = static_cast<char>(byte);
            continue;
        }
        const size_t found = kiv::findLineEnd(bytes, buffered);
        std::memcpy(buffer + length, bytes, found);
        length += found;
        if (found < buffered)
        {
            KIVPFileTakeBuffered(file, found + 1);
            return {length, kiv::LineStop::lineEnd};
        }
        KIVPFileTakeBuffered(file, found);
    }
    return {length, kiv::LineStop::noRoom};
}

kiv::LinePiece readThroughOperation(KIVCS2Stream &stream, char *buffer, size_t room)
{
    for (size_t length = 0; length < room;)
    {
        uint8_t byte = 0;
        uint64_t count = 0;
        // Pipes report a failed read as a success with a count of all ones.
        if (KIVCS2_FAILED(stream.m_readBytes(&stream, &byte, 1, &count)) || count != 1)
            return {length, kiv::LineStop::noData};
        if (isLineEnd(byte))
            return {length, kiv::LineStop::lineEnd};
        buffer[length++] = static_cast<char>(byte);
    }
    return {room, kiv::LineStop::noRoom};
}
} // namespace

size_t kiv::findLineEnd(const unsigned char *bytes, size_t size) noexcept
{
    size_t index = 0;
#if defined(__SSE2__) // every x86-64 machine has it, so there is no choice at run time
    const __m128i lineFeed = _mm_set1_epi8('\n');
    const __m128i carriageReturn = _mm_set1_epi8('\r');
    for (; size - index >= sizeof(__m128i); index += sizeof(__m128i))
    {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + index));
        const int ends = _mm_movemask_epi8(
            _mm_or_si128(_mm_cmpeq_epi8(block, lineFeed), _mm_cmpeq_epi8(block, carriageReturn)));
        if (ends != 0)
            return index + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(ends)));
    }
#endif
    while (index < size && !isLineEnd(bytes[index]))
        ++index;
    return index;
}

kiv::LinePiece kiv::readThroughLineEnd(KIVCS2Stream &stream, char *buffer, size_t room) noexcept
{
    if (KIVCS2MemoryStream *memory = asMemoryStream(stream))
        return readFromMemory(*memory, buffer, room);
    if (KIVCS2FileStream *file = asFileStream(stream))
        return readFromFile(file->m_file, buffer, room);
    return readThroughOperation(stream, buffer, room);
}
