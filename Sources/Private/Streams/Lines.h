// Line ends in streams, searched in blocks if the kind of stream gives access to its bytes.
#ifndef KIV_PRIVATE_STREAMS_LINES_H
#define KIV_PRIVATE_STREAMS_LINES_H

#include "KIVCS2Stream.h"

#include <cstddef>

namespace kiv
{
enum class LineStop
{
    lineEnd, // a line feed or carriage return came; it is taken from the stream and not in the buffer
    noRoom,  // the buffer is full and no line end came; no byte after it was read
    noData,  // the input ended: a read failed or delivered no byte
};

struct LinePiece
{
    size_t length; // bytes now in the buffer
    LineStop stop;
};

// Reads bytes into `buffer` through the first line feed or carriage return, but at most `room` of them, the
// line end counted. The result and the stream's position are exactly those of reading one byte at a time with
// kivCS2Stream_readBytes(): no byte after the line end is taken, a carriage return and line feed pair ends
// two lines, and no more is read from the system than the line needs. Memory and file streams are searched in
// blocks; a stream with another read operation than the library's own kinds is read byte by byte through that
// operation. `buffer` is not written past `length`.
// `stream.m_readBytes` is not null.
[[nodiscard]] LinePiece readThroughLineEnd(KIVCS2Stream &stream, char *buffer, size_t room) noexcept;

// The number of bytes before the first line feed or carriage return of `bytes`, or `size`.
[[nodiscard]] size_t findLineEnd(const unsigned char *bytes, size_t size) noexcept;
} // namespace kiv

#endif
