// Lines of a text stream, read in blocks: any stream, including pipes, through one buffer of fixed size.
#ifndef KIV_PRIVATE_CAPTIONS_LINE_SOURCE_H
#define KIV_PRIVATE_CAPTIONS_LINE_SOURCE_H

#include "KIVCS2Stream.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kiv::cc
{
// One line without its end.
struct Line
{
    std::string_view text;
    uint64_t number = 0; // from 1
    uint64_t offset = 0; // bytes from the start to the line
    bool whole = true;   // false: `text` is the start of a line; more() reads the rest
};

class LineSource
{
public:
    static constexpr size_t kWindow =
        size_t{64} * 1024; // longer lines come in pieces; far above any caption's length

    explicit LineSource(KIVCS2Stream *stream);

    [[nodiscard]] KIVCS2Stream *stream() const
    {
        return m_stream;
    }
    [[nodiscard]] bool canSeek() const
    {
        return m_canSeek;
    }

    // Reads ahead until the window is full, the stream ends, or `lines` line ends are in it, and returns the
    // buffered text. Consumes nothing; next() reports a failure of the stream.
    [[nodiscard]] std::string_view lookAhead(size_t lines);
    // Skips bytes that lookAhead() returned.
    void skip(size_t count)
    {
        m_begin += count;
    }

    // Reads the next line, which may be blank. Skips all but one of the leading blanks of a line that is not
    // whole. Returns KIVCS2STATUS_EOF_ERR at the end. Returns a stream's failure after the whole lines before
    // it, with `line` at the place of the failure. `line.text` is valid until the next call.
    [[nodiscard]] KIVCS2Status next(Line &line);
    // Puts back the line that next() has just returned.
    void unread(const Line &line);
    // Reads on in a line that is not whole; keeps only the last `keep` bytes of its text.
    [[nodiscard]] KIVCS2Status more(Line &line, size_t keep);
    // Skips the rest of a line that is not whole.
    [[nodiscard]] KIVCS2Status skipRest(Line &line);

    // Moves back or forward to the start of a line.
    [[nodiscard]] KIVCS2Status moveTo(uint64_t offset, uint64_t number);

    [[nodiscard]] uint64_t lineNumber() const // of the line that next() reads
    {
        return m_number;
    }

private:
    [[nodiscard]] bool fill();
    [[nodiscard]] size_t findEnd();
    [[nodiscard]] bool haveEnd(size_t &end);
    void passLineFeed();
    [[nodiscard]] KIVCS2Status passBlanks(Line &line);
    void take(Line &line, size_t end, bool found);

    static constexpr size_t kFirstBlock = size_t{8} * 1024; // after a move little may be needed

    KIVCS2Stream *m_stream;
    int64_t m_base = 0;    // position of the stream at the start of the file
    uint64_t m_offset = 0; // offset of m_window[0] from m_base
    uint64_t m_number = 1;
    size_t m_begin = 0, m_end = 0; // bounds of the buffered text
    size_t m_searched = 0;         // there is no line end from m_begin up to here
    size_t m_block = kWindow;
    KIVCS2Status m_status = KIVCS2STATUS_OK; // status of the stream; EOF_ERR at its end
    bool m_canSeek = false;
    bool m_skipLineFeed = false; // the last line ended in CR: an LF belongs to it
    std::array<char, kWindow> m_window;
};
} // namespace kiv::cc

#endif
