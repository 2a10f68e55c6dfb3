// Text that is safe for a terminal: without characters that control it.
#ifndef KIV_TOOL_SHOWN_H
#define KIV_TOOL_SHOWN_H

#include <string>
#include <string_view>

namespace tool
{

/// Escapes characters that break a line or control a terminal: control characters of both sets (U+0000 to
/// U+001F, U+007F to U+009F), line and paragraph separators, marks that change the direction of writing, the
/// byte-order mark, and bytes that are not UTF-8 become \xNN, byte by byte. Escaped text stays unchanged.
[[nodiscard]] std::string visible(std::string_view text);

/// Writes the same characters of a JSON text as \uNNNN, so that a reader gets the original values.
[[nodiscard]] std::string visibleJson(std::string_view json);

/// Text after visible(): tables, facts, lines and failures take only this type, so that no name from outside
/// bypasses it. Only Output adds colour.
class Shown
{
public:
    Shown() = default;
    Shown(std::string_view text) : m_text(visible(text)) {}
    Shown(const std::string &text) : m_text(visible(text)) {}
    Shown(const char *text) : m_text(visible(text)) {}

    [[nodiscard]] const std::string &text() const
    {
        return m_text;
    }
    Shown &operator+=(const Shown &more)
    {
        m_text += more.m_text;
        return *this;
    }
    friend Shown operator+(Shown left, const Shown &right)
    {
        left += right;
        return left;
    }

    /// Appends the next cell of a line for programs, with a tabulator between cells.
    void addCell(const Shown &cell)
    {
        m_text += (m_text.empty() ? "" : "\t") + cell.m_text;
    }
    void trimEnd()
    {
        m_text.erase(m_text.find_last_not_of(' ') + 1);
    }

private:
    friend class Output;

    std::string m_text;
};

} // namespace tool

#endif
