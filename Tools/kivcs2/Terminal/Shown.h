// What a terminal may be shown: text without what would steer it.
#ifndef KIV_TOOL_SHOWN_H
#define KIV_TOOL_SHOWN_H

#include <string>
#include <string_view>

namespace tool
{

/// Quotes what would break a line or steer a terminal: control characters of both sets (U+0000 to U+001F,
/// U+007F to U+009F), line and paragraph separators, marks that turn the direction of writing, and bytes that
/// are no UTF-8 become \xNN, byte by byte. Quoted text stays as it is.
[[nodiscard]] std::string visible(std::string_view text);

/// The same characters of a JSON text as \uNNNN, so that a reader gets the values that were written.
[[nodiscard]] std::string visibleJson(std::string_view json);

/// Text that has gone through visible(): tables, facts, lines and failures take nothing else, so that no name
/// from outside gets around it. Colour is added by Output alone.
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

    /// The next cell of a line for programs, behind a tabulator; none in front of the first.
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
