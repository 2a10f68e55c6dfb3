// Line ends in streams, searched in blocks where the stream kind lets us look at its bytes.
#ifndef KIV_PRIVATE_STREAMS_LINES_H
#define KIV_PRIVATE_STREAMS_LINES_H

#include "KIVCS2Stream.h"

#include <cstddef>

namespace kiv
{
enum class LineStop
{
    lineEnd, // a line feed or carriage return came; it is taken from the stream and not in the buffer
    noRoom,  // the buffer is full and no line end came; nothing behind it was read
    noData,  // the input ended: a read failed or brought no byte
};

struct LinePiece
{
    size_t length; // bytes now in the buffer
    LineStop stop;
};

// Reads bytes into `buffer` through the first line feed or carriage return, and at most `room` of them,
// the line end counted. What the caller gets, and where the stream stands afterwards, is exactly what
// reading one byte at a time with kivCS2Stream_readBytes() gives: no byte behind the line end is taken,
// a carriage return and line feed pair ends two lines, and no more is asked of the system than reading
// the line takes. Memory and file streams are searched in blocks; a stream whose read operation is not
// that of our own kinds is read byte by byte through it. `buffer` beyond `length` is not written.
// `stream.m_readBytes` is not null.
[[nodiscard]] LinePiece readThroughLineEnd(KIVCS2Stream &stream, char *buffer, size_t room) noexcept;

// The number of bytes before the first line feed or carriage return of `bytes`, or `size`.
[[nodiscard]] size_t findLineEnd(const unsigned char *bytes, size_t size) noexcept;
} // namespace kiv

#endif
