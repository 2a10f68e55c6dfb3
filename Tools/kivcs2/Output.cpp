// Writing: blocks to standard output, tables, JSON, colour and progress.
#include "Output.h"

#include "Failure.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{64} * 1024;
constexpr size_t kWidthOfAFile = 100;
constexpr auto kBeforeProgress = std::chrono::seconds{1};
constexpr auto kBetween = std::chrono::milliseconds{200};

bool wantsColour()
{
    const char *refused = std::getenv("NO_COLOR");
    return ::isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0');
}

std::string coloured(std::string_view code, std::string_view text)
{
    static const bool wanted = wantsColour();
    return wanted ? "\x1b[" + std::string{code} + "m" + std::string{text} + "\x1b[0m" : std::string{text};
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
        const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
        {
            const int error = errno;
            m_buffer.clear();
            if (error == EPIPE)
                throw ReaderGone{};
            throw Failure::system("standard output", error);
        }
        rest.remove_prefix(static_cast<size_t>(written));
    }
    m_buffer.clear();
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
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 40)
        return size.ws_col;
    return kWidthOfAFile;
}

Output &out()
{
    static Output output;
    return output;
}

JsonArray::JsonArray()
{
    out().write("[");
}

void JsonArray::add(const Json &value)
{
    out().write(m_first ? "\n  " : ",\n  ");
    out().write(value.dump(-1, ' ', false, Json::error_handler_t::replace));
    m_first = false;
}

void JsonArray::close()
{
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

void Facts::print() const
{
    size_t width = 0;
    for (const auto &[name, value] : m_facts)
        width = std::max(width, columns(name));
    for (const auto &[name, value] : m_facts)
        out().line(Output::strong(name) + padding(name, width) + "  " + value);
}

Progress::Progress(std::string what)
    : m_what(std::move(what)), m_next(Clock::now() + kBeforeProgress),
      m_terminal(::isatty(STDERR_FILENO) != 0)
{
}

Progress::~Progress()
{
    if (m_shown)
        std::fputs("\r\x1b[K", stderr);
}

void Progress::at(uint64_t done, uint64_t total)
{
    // The clock is asked every 256th time: the work is short and the calls are many.
    if (!m_terminal || (m_calls++ & 0xFFu) != 0)
        return;
    const auto now = Clock::now();
    if (now < m_next)
        return;
    m_next = now + kBetween;
    m_shown = true;
    if (total > 0)
        std::fprintf(stderr, "\r\x1b[K%s %3llu %%", m_what.c_str(),
                     static_cast<unsigned long long>(std::min(done, total) * 100 / total));
    else
        std::fprintf(stderr, "\r\x1b[K%s %.1f MB", m_what.c_str(), static_cast<double>(done) / 1e6);
    std::fflush(stderr);
}

void note(std::string_view text)
{
    const std::string line = "kivcs2: " + std::string{text} + "\n";
    std::fputs(line.c_str(), stderr);
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

std::string visible(std::string_view text)
{
    std::string result;
    for (const char character : text)
    {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7F)
            result += print("\\x%02x", byte);
        else
            result += character;
    }
    return result;
}

} // namespace tool
