// Writing: blocks to standard output, tables, JSON, colour and progress.
#include "Terminal/Output.h"

#include "Failure.h"
#include "Terminal/EndSignals.h"
#include "Terminal/JSON.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{64} * 1024;
constexpr size_t kWidthOfAFile = 100;
constexpr auto kBeforeProgress = std::chrono::seconds{1};
constexpr auto kBetween = std::chrono::milliseconds{200};

// The line of progress on the terminal, to be cleared before any other output.
bool theProgressIsShown = false;

// The JSON array being written; there is one at a time.
enum class ArrayState
{
    None,
    Empty,
    Filled
};
ArrayState theArray = ArrayState::None;

// The list of the report being written; there is one at a time.
ArrayState theReport = ArrayState::None;

bool theOutputIsData = false;

void clearProgress()
{
    if (std::exchange(theProgressIsShown, false))
        std::fputs("\r\x1b[K", stderr);
}

// A line wider than the terminal could not be redrawn in place.
std::string shortenedToTerminal(const std::string &text)
{
    winsize size{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || text.size() < size.ws_col)
        return text;
    return text.substr(text.size() - size.ws_col + 1u); // the number is at the end
}

// The visible width: characters, not bytes, without escape sequences.
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

// The members of an object after the list of a report.
void closeReport(const Json &rest)
{
    const std::string members = jsonText(rest, 2);
    documents().write(theReport == ArrayState::Empty ? "]," : "\n  ],");
    documents().write(std::string_view{members}.substr(1)); // without the brace
    documents().write("\n");
    documents().flush();
    theReport = ArrayState::None;
}

std::string padding(std::string_view text, size_t width)
{
    return std::string(width - std::min(width, columns(text)), ' ');
}

} // namespace

void Output::write(std::string_view bytes)
{
    m_buffer += bytes;
    if (m_buffer.size() >= kBlock)
        flush();
}

void Output::line(const Shown &text)
{
    write(text.text());
    write("\n");
}

void Output::json(const Json &value)
{
    write(jsonText(value, 2) + "\n");
}

std::string jsonText(const Json &value, int indent)
{
    return visibleJson(indent < 0 ? value.line() : value.text());
}

void Output::flush()
{
    std::string_view rest = m_buffer;
    while (!rest.empty())
    {
        const size_t piece = EndSignals::awaitWritable(m_descriptor, rest.size());
        const ssize_t written = piece > 0 ? ::write(m_descriptor, rest.data(), piece) : 0;
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
        if (piece == 0)
        {
            m_buffer.clear();
            throw ReaderGone{};
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
        return isScreen(standardOutput()) && (refused == nullptr || *refused == '\0');
    }();
    return wanted;
}

Shown Output::coloured(std::string_view code, const Shown &text)
{
    Shown result = text;
    if (hasColour())
        result.m_text = "\x1b[" + std::string{code} + "m" + text.text() + "\x1b[0m";
    return result;
}

Shown Output::strong(const Shown &text)
{
    return coloured("1", text);
}

Shown Output::good(const Shown &text)
{
    return coloured("32", text);
}

Shown Output::bad(const Shown &text)
{
    return coloured("31", text);
}

size_t Output::width()
{
    winsize size{};
    if (::ioctl(standardOutput(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
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

int standardOutput()
{
    return out().m_descriptor;
}

QuietErrors::QuietErrors() : m_own(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (m_own >= 0 && nowhere >= 0)
        ::dup2(nowhere, STDERR_FILENO);
    if (nowhere >= 0)
        ::close(nowhere);
}

QuietErrors::~QuietErrors()
{
    if (m_own < 0)
        return;
    ::dup2(m_own, STDERR_FILENO);
    ::close(m_own);
}

Output &errors()
{
    static Output output{STDERR_FILENO};
    return output;
}

bool isScreen(int descriptor)
{
    const char *kind = std::getenv("TERM");
    return ::isatty(descriptor) != 0 && (kind == nullptr || std::string_view{kind} != "dumb");
}

void giveStandardOutputToData()
{
    theOutputIsData = true;
}

Output &documents()
{
    return theOutputIsData ? errors() : out();
}

// After a failure writeFailure() closes the array; if the reader has gone, it stays open.
JsonArray::JsonArray()
{
    theArray = ArrayState::Empty;
    out().write("[");
}

JsonArray::~JsonArray()
{
    try
    {
        if (!m_closed && std::uncaught_exceptions() == 0)
            close();
    }
    catch (...)
    {
        // A failing standard output is reported at the last flush.
    }
}

void JsonArray::add(const Json &value)
{
    out().write(theArray == ArrayState::Empty ? "\n  " : ",\n  ");
    out().write(jsonText(value));
    theArray = ArrayState::Filled;
}

void JsonArray::close()
{
    m_closed = true;
    out().write(theArray == ArrayState::Empty ? "]\n" : "\n]\n");
    theArray = ArrayState::None;
}

JsonReport::JsonReport(std::string list) : m_list(std::move(list)) {}

void JsonReport::open()
{
    if (!std::exchange(m_isOpen, true))
    {
        documents().write("{\n  " + jsonText(m_list) + ": [");
        theReport = ArrayState::Empty;
    }
}

void JsonReport::add(const Json &element)
{
    open();
    documents().write(theReport == ArrayState::Empty ? "\n    " : ",\n    ");
    documents().write(jsonText(element));
    theReport = ArrayState::Filled;
}

void JsonReport::close(const Json &rest)
{
    open();
    closeReport(rest);
}

void writeFailure(const Json &failure)
{
    if (theReport != ArrayState::None)
        closeReport(failure);
    else if (theArray == ArrayState::None)
        documents().write(jsonText(failure) + "\n");
    else
        out().write((theArray == ArrayState::Empty ? "\n  " : ",\n  ") + jsonText(failure) + "\n]\n");
    documents().flush();
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

void Table::add(std::vector<Shown> cells)
{
    cells.resize(m_titles.size());
    m_rows.push_back(std::move(cells));
}

void Table::print()
{
    const bool isFirst = m_widths.empty();
    m_widths.resize(m_titles.size());
    for (size_t column = 0; column < m_titles.size(); ++column)
        m_widths[column] = std::max(m_widths[column], columns(m_titles[column].text()));
    for (const auto &row : m_rows)
        for (size_t column = 0; column < row.size(); ++column)
            m_widths[column] = std::max(m_widths[column], columns(row[column].text()));

    const auto printRow = [&](const std::vector<Shown> &cells, bool title)
    {
        Shown text;
        for (size_t column = 0; column < cells.size(); ++column)
        {
            const Shown cell = title ? Output::strong(cells[column]) : cells[column];
            const Shown space = padding(cell.text(), m_widths[column]);
            text += column > 0 ? "  " : "";
            text += m_aligns[column] == Align::Right ? space + cell : cell + space;
        }
        text.trimEnd();
        out().line(text);
    };
    if (isFirst)
        printRow(m_titles, true);
    for (const auto &row : m_rows)
        printRow(row, false);
    m_rows.clear();
}

void Facts::add(Shown name, Shown value)
{
    m_facts.emplace_back(std::move(name), std::move(value));
}

void Facts::print(Output &to) const
{
    const bool plain = &to != &out();
    size_t width = 0;
    for (const auto &[name, value] : m_facts)
        width = std::max(width, columns(name.text()));
    for (const auto &[name, value] : m_facts)
    {
        const Shown between = padding(name.text(), width) + "  ";
        to.line(plain ? name + between + withoutColour(value.text())
                      : Output::strong(name) + between + value);
    }
}

void report(bool json, const Json &value, const Facts &facts)
{
    Output &to = documents();
    if (json)
        to.json(value);
    else
        facts.print(to);
    if (theOutputIsData)
        to.flush();
}

Progress::Progress(std::string what) : m_what(std::move(what)), m_terminal(isScreen(STDERR_FILENO))
{
    // Several steps of less than a second each may take more than a second.
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
    // In floating point, because done * 100 may overflow.
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
    const std::string line = "kivcs2: " + visible(text) + "\n"; // one line for any file name
    if (EndSignals::awaitWritable(STDERR_FILENO, line.size()) > 0)
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

} // namespace tool
