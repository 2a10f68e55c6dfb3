// Writing: blocks to standard output, tables, JSON, colour and progress.
#include "Output.h"

#include "Failure.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{64} * 1024;
constexpr size_t kWidthOfAFile = 100;
constexpr auto kBeforeProgress = std::chrono::seconds{1};
constexpr auto kBetween = std::chrono::milliseconds{200};

// The line of progress that stands on the terminal, to be cleared before anything else is said.
bool theProgressIsShown = false;

void clearProgress()
{
    if (std::exchange(theProgressIsShown, false))
        std::fputs("\r\x1b[K", stderr);
}

// A line that is longer than the terminal is wide would not be renewed in place.
std::string shortenedToTerminal(const std::string &text)
{
    winsize size{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || text.size() < size.ws_col)
        return text;
    return text.substr(text.size() - size.ws_col + 1u); // the end has the number
}

std::string coloured(std::string_view code, std::string_view text)
{
    return Output::hasColour() ? "\x1b[" + std::string{code} + "m" + std::string{text} + "\x1b[0m"
                               : std::string{text};
}

// Characters, not bytes, and none for an escape sequence: what the eye counts.
size_t columns(std::string_view text)
{
    size_t count = 0;
    bool escape = false;
    for (const char byte : text)
    {
        if (byte == '\x1b')
            escape = true;
        else if (escape)
            escape = byte != 'm';
        else if ((static_cast<unsigned char>(byte) & 0xC0u) != 0x80u)
            ++count;
    }
    return count;
}

std::string withoutColour(std::string_view text)
{
    std::string result;
    bool escape = false;
    for (const char byte : text)
    {
        escape = escape || byte == '\x1b';
        if (!escape)
            result += byte;
        escape = escape && byte != 'm';
    }
    return result;
}

std::string padding(std::string_view text, size_t width)
{
    return std::string(width - std::min(width, columns(text)), ' ');
}

} // namespace

void Output::write(std::string_view text)
{
    m_buffer += text;
    if (m_buffer.size() >= kBlock)
        flush();
}

void Output::line(std::string_view text)
{
    write(text);
    write("\n");
}

void Output::json(const Json &value)
{
    line(value.dump(2, ' ', false, Json::error_handler_t::replace));
}

void Output::flush()
{
    std::string_view rest = m_buffer;
    while (!rest.empty())
    {
        const ssize_t written = ::write(m_descriptor, rest.data(), rest.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
        {
            const int error = errno;
            m_buffer.clear();
            if (error == EPIPE)
                throw ReaderGone{};
            throw Failure::system(this == &out() ? "standard output" : "standard error", error);
        }
        rest.remove_prefix(static_cast<size_t>(written));
    }
    m_buffer.clear();
}

std::string Output::take()
{
    return std::exchange(m_buffer, {});
}

bool Output::hasColour()
{
    static const bool wanted = []
    {
        const char *refused = std::getenv("NO_COLOR");
        return ::isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0');
    }();
    return wanted;
}

std::string Output::strong(std::string_view text)
{
    return coloured("1", text);
}

std::string Output::good(std::string_view text)
{
    return coloured("32", text);
}

std::string Output::bad(std::string_view text)
{
    return coloured("31", text);
}

size_t Output::width()
{
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return kWidthOfAFile;
}

Output &out()
{
    static Output output{STDOUT_FILENO};
    return output;
}

void keepStandardOutput()
{
    const int own = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (own < 0 || nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0)
        throw Failure::system("standard output", errno);
    ::close(nowhere);
    out().m_descriptor = own;
}

Output &errors()
{
    static Output output{STDERR_FILENO};
    return output;
}

JsonArray::JsonArray()
{
    out().write("[");
}

JsonArray::~JsonArray()
{
    try
    {
        if (!m_closed)
            close();
    }
    catch (...)
    {
        // A failing standard output tells itself at the last flush.
    }
}

void JsonArray::add(const Json &value)
{
    out().write(m_first ? "\n  " : ",\n  ");
    out().write(value.dump(-1, ' ', false, Json::error_handler_t::replace));
    m_first = false;
}

void JsonArray::close()
{
    m_closed = true;
    out().write(m_first ? "]\n" : "\n]\n");
}

Table::Table(std::initializer_list<std::string_view> titles)
{
    for (std::string_view title : titles)
    {
        const bool right = !title.empty() && title.front() == '>';
        m_aligns.push_back(right ? Align::Right : Align::Left);
        m_titles.emplace_back(right ? title.substr(1) : title);
    }
}

void Table::add(std::vector<std::string> cells)
{
    cells.resize(m_titles.size());
    m_rows.push_back(std::move(cells));
}

void Table::print() const
{
    std::vector<size_t> widths;
    for (const std::string &title : m_titles)
        widths.push_back(columns(title));
    for (const auto &row : m_rows)
        for (size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], columns(row[column]));

    const auto printRow = [&](const std::vector<std::string> &cells, bool title)
    {
        std::string text;
        for (size_t column = 0; column < cells.size(); ++column)
        {
            const std::string cell = title ? Output::strong(cells[column]) : cells[column];
            const std::string space = padding(cell, widths[column]);
            text += column > 0 ? "  " : "";
            text += m_aligns[column] == Align::Right ? space + cell : cell + space;
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out().line(text);
    };
    printRow(m_titles, true);
    for (const auto &row : m_rows)
        printRow(row, false);
}

void Facts::add(std::string_view name, std::string value)
{
    m_facts.emplace_back(name, std::move(value));
}

void Facts::print(Output &to) const
{
    const bool plain = &to != &out();
    size_t width = 0;
    for (const auto &[name, value] : m_facts)
        width = std::max(width, columns(name));
    for (const auto &[name, value] : m_facts)
        to.line((plain ? std::string{name} : Output::strong(name)) + padding(name, width) + "  " +
                (plain ? withoutColour(value) : value));
}

Progress::Progress(std::string what) : m_what(std::move(what)), m_terminal(::isatty(STDERR_FILENO) != 0)
{
    // Several steps of less than a second each are work of more than a second.
    static const Clock::time_point start = Clock::now();
    m_next = start + kBeforeProgress;
}

Progress::~Progress()
{
    clearProgress();
}

void Progress::at(uint64_t done, uint64_t total)
{
    if (!m_terminal)
        return;
    const auto now = Clock::now();
    if (now < m_next)
        return;
    m_next = now + kBetween;
    theProgressIsShown = true;
    // In floating point: done * 100 does not fit for every size.
    const std::string number =
        total > 0 ? tool::print(" %3.0f %%", 100.0 * static_cast<double>(std::min(done, total)) /
                                                 static_cast<double>(total))
                  : tool::print(" %.1f MB", static_cast<double>(done) / 1e6);
    std::fprintf(stderr, "\r\x1b[K%s", shortenedToTerminal(visible(m_what) + number).c_str());
    std::fflush(stderr);
}

void note(std::string_view text)
{
    clearProgress();
    const std::string line = "kivcs2: " + visible(text) + "\n"; // one line, whatever a file is called
    std::fputs(line.c_str(), stderr);
}

std::string shortened(std::string_view line, size_t width)
{
    std::string result;
    size_t column = 0;
    bool escape = false;
    for (const char byte : line)
    {
        escape = escape || byte == '\x1b';
        const bool begins = !escape && (static_cast<unsigned char>(byte) & 0xC0u) != 0x80u;
        column += begins ? 1 : 0;
        if (escape || column <= width)
            result += byte;
        escape = escape && byte != 'm';
    }
    return result;
}

std::string count(uint64_t number, std::string_view noun)
{
    return std::to_string(number) + " " + std::string{noun} + (number == 1 ? "" : "s");
}

std::string print(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char text[512];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return {text, static_cast<size_t>(std::clamp(length, 0, static_cast<int>(sizeof text) - 1))};
}

namespace
{
// How many bytes of `text` are one UTF-8 character that a terminal shows: 0 where it starts with something else, a
// control character of ISO 6429's second set (U+0080 to U+009F) included.
[[nodiscard]] size_t shownCharacter(std::string_view text)
{
    const auto byteAt = [text](size_t index)
    {
        return static_cast<unsigned char>(text[index]);
    };
    const unsigned char lead = byteAt(0);
    if (lead < 0x80)
        return lead >= 0x20 && lead != 0x7F ? 1 : 0;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return 0;
    uint32_t point = lead & (0x7Fu >> length);
    for (size_t index = 1; index < length; ++index)
    {
        if ((byteAt(index) & 0xC0) != 0x80)
            return 0;
        point = point << 6 | (byteAt(index) & 0x3Fu);
    }
    constexpr uint32_t kLeast[] = {0xA0, 0x800, 0x10000}; // shorter ones have a shorter form
    const bool isCharacter =
        point >= kLeast[length - 2] && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
    return isCharacter ? length : 0;
}
} // namespace

std::string visible(std::string_view text)
{
    std::string result;
    while (!text.empty())
    {
        const size_t shown = shownCharacter(text);
        if (shown > 0)
            result += text.substr(0, shown);
        else
            result += print("\\x%02x", static_cast<unsigned char>(text.front()));
        text.remove_prefix(std::max(shown, size_t{1}));
    }
    return result;
}

} // namespace tool
