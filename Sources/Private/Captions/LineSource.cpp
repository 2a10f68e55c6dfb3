// Lines of a text stream, read in blocks: any stream, including pipes, through one buffer of fixed size.
#include "Private/Captions/LineSource.h"

#include "Private/Streams/View.h"

#include <KIVPlatform/KIVPFileBuffer.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kiv::cc
{
namespace
{
constexpr size_t kNone = static_cast<size_t>(-1);

// Returns the bytes that a file has at once: a block from a terminal or a FIFO may take long to fill.
size_t readAtOnce(FILE *file, char *buffer, size_t size)
{
    const int byte = getc(file); // fills the file's buffer
    if (byte == EOF)
        return 0;
    buffer[0] = static_cast<char>(byte);
    const unsigned char *bytes = nullptr;
    const size_t count = std::min(KIVPFileBuffered(file, &bytes), size - 1);
    if (count > 0)
        std::memcpy(buffer + 1, bytes, count);
    KIVPFileTakeBuffered(file, count);
    return count + 1;
}

// Reads the available bytes, up to `size`; `count` is 0 at the end. Reads the FILE of a file stream directly,
// because the stream returns all or nothing. A failing pipe returns a count with all bits set.
KIVCS2Status readSome(KIVCS2Stream &stream, bool canSeek, char *buffer, size_t size, size_t &count)
{
    count = 0;
    if (const KIVCS2FileStream *const own = asFileStream(stream))
    {
        FILE *const file = own->m_file;
        count = canSeek ? fread(buffer, 1, size, file) : readAtOnce(file, buffer, size);
        return count == 0 && ferror(file) != 0 ? KIVCS2STATUS_READ_ERR : KIVCS2STATUS_OK;
    }
    uint64_t read = 0;
    const KIVCS2Status status = kivCS2Stream_readBytes(&stream, buffer, size, &read);
    if (KIVCS2_FAILED(status))
        return status;
    if (read > size)
        return KIVCS2STATUS_READ_ERR;
    count = static_cast<size_t>(read);
    return KIVCS2STATUS_OK;
}
} // namespace

LineSource::LineSource(KIVCS2Stream *stream) : m_stream{stream}
{
    // If a stream cannot report its position, it is read from here on and never moved.
    int64_t position = 0;
    if (stream->m_setPosition != nullptr &&
        KIVCS2_SUCCEEDED(kivCS2Stream_setPosition(stream, 0, KIVCS2StreamPosition_Current, &position)))
    {
        m_base = position;
        m_canSeek = true;
    }
}

// Moves the remaining bytes to the front and reads one block after them. Returns false if no byte came.
bool LineSource::fill()
{
    if (m_begin > 0)
    {
        std::memmove(m_window.data(), m_window.data() + m_begin, m_end - m_begin);
        m_offset += m_begin;
        m_searched = m_searched > m_begin ? m_searched - m_begin : 0;
        m_end -= m_begin;
        m_begin = 0;
    }
    const size_t room = std::min(m_block, kWindow - m_end);
    if (room == 0 || KIVCS2_FAILED(m_status))
        return false;
    m_block = kWindow;
    size_t count = 0;
    m_status = readSome(*m_stream, m_canSeek, m_window.data() + m_end, room, count);
    if (KIVCS2_SUCCEEDED(m_status) && count == 0)
        m_status = KIVCS2STATUS_EOF_ERR;
    m_end += count;
    return KIVCS2_SUCCEEDED(m_status);
}

// Returns the first line end after m_searched; kNone if there is none in the window.
size_t LineSource::findEnd()
{
    m_searched = std::max(m_searched, m_begin);
    const char *const from = m_window.data() + m_searched;
    size_t size = m_end - m_searched;
    const void *end = nullptr;
    if (const void *const feed = std::memchr(from, '\n', size))
    {
        end = feed;
        size = static_cast<size_t>(static_cast<const char *>(feed) - from);
    }
    if (const void *const carriage = std::memchr(from, '\r', size))
        end = carriage;
    if (end == nullptr)
    {
        m_searched = m_end;
        return kNone;
    }
    return static_cast<size_t>(static_cast<const char *>(end) - m_window.data());
}

bool LineSource::haveEnd(size_t &end)
{
    for (;;)
    {
        end = findEnd();
        if (end != kNone)
            return true;
        if (!fill())
            return false;
    }
}

void LineSource::passLineFeed()
{
    if (!m_skipLineFeed || (m_begin == m_end && !fill()))
        return;
    m_skipLineFeed = false;
    m_begin += m_window[m_begin] == '\n' ? 1 : 0;
}

// Makes the bytes up to `end` the line's text, and skips them and the line end.
void LineSource::take(Line &line, size_t end, bool found)
{
    line.text = {m_window.data() + m_begin, end - m_begin};
    m_begin = end;
    if (!found)
        return;
    m_skipLineFeed = m_window[end] == '\r';
    ++m_begin;
    ++m_number;
    if (m_skipLineFeed && m_begin < m_end)
        passLineFeed();
}

std::string_view LineSource::lookAhead(size_t lines)
{
    size_t found = 0;
    size_t counted = m_begin;
    for (;;)
    {
        found += static_cast<size_t>(std::count(m_window.data() + counted, m_window.data() + m_end, '\n'));
        counted = m_end - m_begin; // fill() moves m_begin to the front
        if (found >= lines || !fill())
            break;
    }
    return {m_window.data() + m_begin, m_end - m_begin};
}

KIVCS2Status LineSource::next(Line &line)
{
    passLineFeed();
    size_t end = 0;
    const bool found = haveEnd(end);
    line.number = m_number;
    line.offset = m_offset + m_begin;
    line.whole = true;
    line.text = {};
    if (!found)
    {
        // The last line of the stream may lack its line end. After a failure it may be cut, so it is not
        // returned; an empty rest is not a line.
        if (KIVCS2_FAILED(m_status) && (m_status != KIVCS2STATUS_EOF_ERR || m_begin == m_end))
            return m_status;
        line.whole = KIVCS2_FAILED(m_status);
        end = m_end;
    }
    take(line, end, found);
    return line.whole ? KIVCS2STATUS_OK : passBlanks(line);
}

KIVCS2Status LineSource::passBlanks(Line &line)
{
    while (!line.whole && line.text.size() > 1)
    {
        const size_t first = line.text.find_first_not_of(" \t");
        const size_t keep =
            first == std::string_view::npos ? 1 : line.text.size() - std::max<size_t>(first, 1) + 1;
        if (keep == line.text.size())
            return KIVCS2STATUS_OK;
        if (const KIVCS2Status status = more(line, keep); KIVCS2_FAILED(status))
            return status;
    }
    return KIVCS2STATUS_OK;
}

void LineSource::unread(const Line &line)
{
    m_begin = static_cast<size_t>(line.text.data() - m_window.data());
    m_searched = m_begin;
    m_number = line.number;
    m_skipLineFeed = false;
}

KIVCS2Status LineSource::more(Line &line, size_t keep)
{
    m_begin = m_end - keep;
    size_t end = 0;
    const bool found = haveEnd(end);
    if (!found && KIVCS2_FAILED(m_status) && m_status != KIVCS2STATUS_EOF_ERR)
        return m_status;
    line.whole = found || KIVCS2_FAILED(m_status);
    take(line, found ? end : m_end, found);
    return KIVCS2STATUS_OK;
}

KIVCS2Status LineSource::skipRest(Line &line)
{
    while (!line.whole)
        if (const KIVCS2Status status = more(line, 0); KIVCS2_FAILED(status))
            return status;
    return KIVCS2STATUS_OK;
}

KIVCS2Status LineSource::moveTo(uint64_t offset, uint64_t number)
{
    m_skipLineFeed = false;
    m_number = number;
    if (offset >= m_offset && offset - m_offset < m_end)
    {
        m_begin = static_cast<size_t>(offset - m_offset);
        m_searched = m_begin;
        return KIVCS2STATUS_OK;
    }
    m_begin = m_end = m_searched = 0;
    m_offset = offset;
    m_block = kFirstBlock;
    m_status = kivCS2Stream_setPosition(m_stream, m_base + static_cast<int64_t>(offset),
                                        KIVCS2StreamPosition_Start, nullptr);
    return m_status;
}
} // namespace kiv::cc
