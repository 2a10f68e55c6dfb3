// Output for people and programs: tables, JSON, colour and progress.
#ifndef KIV_TOOL_OUTPUT_H
#define KIV_TOOL_OUTPUT_H

#include "Terminal/JSON.h"
#include "Terminal/Shown.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

/// Thrown if the reader of standard output has closed it (`| head`), or reads nothing while a signal ends the
/// command: the command ends silently.
struct ReaderGone
{
};

/// Standard output or error, written in blocks; a failing write ends the command with a clear line.
class Output
{
public:
    explicit Output(int descriptor) : m_descriptor(descriptor) {}

    /// Writes bytes unchanged: a result that is data, and text that is already visible().
    void write(std::string_view bytes);
    void line(const Shown &text);
    void json(const Json &value);
    void flush();

    /// Returns the bytes since the last flush instead of writing them.
    [[nodiscard]] std::string take();

    /// A heading or an emphasised word; plain if standard output is not a terminal or
    /// NO_COLOR is set.
    [[nodiscard]] static Shown strong(const Shown &text);
    [[nodiscard]] static Shown good(const Shown &text);
    [[nodiscard]] static Shown bad(const Shown &text);

    /// Returns whether to use colours: standard output is a terminal and NO_COLOR is not set.
    [[nodiscard]] static bool hasColour();

    /// Columns for text: the terminal's, or 100 without a terminal.
    [[nodiscard]] static size_t width();

private:
    friend void keepStandardOutput();
    friend int standardOutput();
    static Shown coloured(std::string_view code, const Shown &text);

    int m_descriptor;
    std::string m_buffer;
};

/// The one standard output of the process.
[[nodiscard]] Output &out();

/// From here on only the command writes to standard output: the library's output there is discarded.
void keepStandardOutput();

/// The descriptor of the command's own standard output, also after keepStandardOutput().
[[nodiscard]] int standardOutput();

/// Discards the library's output on standard error during its lifetime: the command prints a line of
/// its own.
class QuietErrors
{
public:
    QuietErrors();
    ~QuietErrors();
    QuietErrors(const QuietErrors &) = delete;
    QuietErrors &operator=(const QuietErrors &) = delete;

private:
    int m_own;
};

/// Standard error, for a summary if a file goes to standard output; without colour.
[[nodiscard]] Output &errors();

/// A JSON value as text, on one line or indented; escaped for a terminal without losing a value.
[[nodiscard]] std::string jsonText(const Json &value, int indent = -1);

/// A JSON array written element by element, so that a long one needs no memory. If a failure ends the
/// listing, the failure becomes its last element, so that programs can read the elements before it.
class JsonArray
{
public:
    JsonArray();
    ~JsonArray();
    JsonArray(const JsonArray &) = delete;
    JsonArray &operator=(const JsonArray &) = delete;

    void add(const Json &value);
    void close();

private:
    bool m_closed = false;
};

/// A JSON object that begins with a list written element by element, so that a long one needs no memory. The
/// other members follow the complete list; after an earlier failure "error" replaces them.
class JsonReport
{
public:
    /// Nothing is written before the first element or close().
    explicit JsonReport(std::string list);
    JsonReport(const JsonReport &) = delete;
    JsonReport &operator=(const JsonReport &) = delete;

    void add(const Json &element);

    /// `rest` must not be empty.
    void close(const Json &rest);

private:
    void open();

    std::string m_list;
    bool m_isOpen = false;
};

/// Returns whether a line of this descriptor can be redrawn in place and coloured: a terminal, but not a dumb
/// one.
[[nodiscard]] bool isScreen(int descriptor);

/// From here on standard output is for a result that is data: documents for programs go to standard error.
void giveStandardOutputToData();

/// The output for documents for programs.
[[nodiscard]] Output &documents();

/// Writes the failure that ends the command as the last document for programs: in the open array, or alone.
void writeFailure(const Json &failure);

/// Rows in aligned columns, two spaces apart.
class Table
{
public:
    enum class Align
    {
        Left,
        Right
    };

    /// A column title that begins with ">" is aligned to the right.
    explicit Table(std::initializer_list<std::string_view> titles);

    void add(std::vector<Shown> cells);

    /// The rows since the last print(), below those; columns only grow wider.
    void print();

    /// Rows that wait for print().
    [[nodiscard]] size_t size() const
    {
        return m_rows.size();
    }

private:
    std::vector<Shown> m_titles;
    std::vector<size_t> m_widths; ///< empty until the titles are printed
    std::vector<Align> m_aligns;
    std::vector<std::vector<Shown>> m_rows;
};

/// "Name   value" pairs with the values in one column.
class Facts
{
public:
    void add(Shown name, Shown value);
    void print(Output &to = out()) const;

private:
    std::vector<std::pair<Shown, Shown>> m_facts;
};

/// Writes the result of a word, for programs or for people; on standard error if standard output is for data.
void report(bool json, const Json &value, const Facts &facts);

/// One line on standard error, redrawn in place after the command has run for a second, and only if
/// standard error is a terminal.
class Progress
{
public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// `total` 0 means that the total is unknown.
    void at(uint64_t done, uint64_t total);

private:
    using Clock = std::chrono::steady_clock;

    std::string m_what;
    Clock::time_point m_next;
    bool m_terminal;
};

/// A line on standard error, after "kivcs2: ".
void note(std::string_view text);

/// The part of a line that fits `width` columns, with its colours and their end.
[[nodiscard]] std::string shortened(std::string_view line, size_t width);

/// "1 packet", "2 packets".
[[nodiscard]] std::string count(uint64_t number, std::string_view noun);

/// printf into a string; for numbers with a fixed form.
[[nodiscard]] __attribute__((format(printf, 1, 2))) std::string print(const char *format, ...);

} // namespace tool

#endif
