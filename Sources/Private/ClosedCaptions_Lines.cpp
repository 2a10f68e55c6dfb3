// The lines of caption files.
#include "Private/ClosedCaptions_Lines.h"

namespace kiv::captions
{
namespace
{
constexpr bool endsLine(char c)
{
    return c == '\n' || c == '\r';
}

// A single "/" is a line.
bool isComment(const char *line, uint64_t length)
{
    return length >= 2 && line[0] == '/' && line[1] == '/';
}

bool isWanted(const char *line, uint64_t length)
{
    return length > 0 && !isComment(line, length);
}

KIVCS2Status finish(char *buffer, uint32_t length, uint32_t *size)
{
    buffer[length] = '\0';
    *size = length;
    return KIVCS2STATUS_OK;
}
} // namespace

KIVCS2Status readLineByByte(KIVCS2Stream *stream, char *buffer, uint32_t *size)
{
    uint32_t length = 0;
    while (length < *size)
    {
        // Pipes answer a failed read with success and a count of all ones: only one byte is one byte.
        uint64_t count = 0;
        if (KIVCS2_FAILED(kivCS2Stream_readBytes(stream, &buffer[length], 1, &count)) || count != 1)
            return isWanted(buffer, length) ? finish(buffer, length, size) : KIVCS2STATUS_NO_DATA_ERR;
        if (!endsLine(buffer[length]))
            ++length;
        else if (isWanted(buffer, length))
            return finish(buffer, length, size);
        else
            length = 0;
    }
    return KIVCS2STATUS_NOT_FOUND_ERR;
}

KIVCS2Status readLine(KIVCS2Stream *stream, char *buffer, uint32_t *size)
{
    return readLineByByte(stream, buffer, size);
}
} // namespace kiv::captions
