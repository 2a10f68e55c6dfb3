// The words of the command and their options: one description, from which the parser, the help, the manual
// pages and the completions are made. Only CommandLine.cpp includes the option parser.
#ifndef KIV_TOOL_COMMAND_LINE_H
#define KIV_TOOL_COMMAND_LINE_H

#include "CommandLine/Names.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tool
{

/// The inclusive bounds of a whole number.
struct Bounds
{
    uint64_t least = 0;
    uint64_t most = std::numeric_limits<uint64_t>::max();
};

/// The inclusive bounds of a number with a fraction.
struct RealBounds
{
    double least;
    double most;
};

/// One option or positional of a word. Its value is stored in the variable given at construction, which must
/// live as long as the word.
class Option
{
public:
    /// A number of bytes, "64k".
    struct Bytes
    {
        uint64_t *value;
    };
    using Target = std::variant<bool *, std::string *, std::optional<std::string> *, Names *, int32_t *,
                                uint32_t *, uint64_t *, double *, Bytes>;

    /// The description, for its readers.
    struct Facts
    {
        std::string names; ///< "-s,--size", or the name of a positional
        std::string help;
        Names choices;           ///< the only values; empty: any
        std::string excluded;    ///< the option that it cannot be given together with
        std::string defaultText; ///< shown as the default; may be empty
        std::string list;        ///< the name of the suggestions; empty: none
        Names (*suggestions)() = nullptr;
        size_t least = 1, most = 1; ///< how many values
        bool isRequired = false;
        bool isFile = false;
        bool isTarget = false;
        bool isOneAtATime = false;
    };

    Option(std::string names, Target target, std::string help);

    Option &required();

    /// The number of texts in a row that a list takes.
    Option &times(size_t least, size_t most);

    /// One value for each use of the option, so that a positional may follow.
    Option &oneAtATime();

    /// Only these texts, in any case; the value gets the spelling of the list.
    Option &among(Names choices);

    /// Completed with these texts, but others are possible too. `list` is a one-word name for them.
    Option &suggests(std::string list, Names (*names)());

    /// The name of a file.
    Option &isFile();

    /// The name of a file to write. If it is "-", standard output is for data, and documents for
    /// programs go to standard error.
    Option &isTarget();

    /// Excludes the option of this name.
    Option &excludes(const std::string &name);

    /// Shows the variable's current value as the default.
    Option &shownDefault();

    Option &within(Bounds bounds);
    Option &within(RealBounds bounds);

    /// Stores the given texts; throws std::invalid_argument with the reason if they are not valid.
    void take(const Names &texts) const;

    [[nodiscard]] bool isFlag() const;
    [[nodiscard]] bool isList() const;
    [[nodiscard]] bool isPositional() const;

    /// "--size" of "-s,--size"; the name of a positional.
    [[nodiscard]] std::string name() const;

    /// "-s" and "--size"; the name of a positional.
    [[nodiscard]] Names spellings() const;

    /// The placeholder of the value in help: "FILE", "NUMBER", "a|b"; empty for a flag.
    [[nodiscard]] std::string placeholder() const;

    [[nodiscard]] const Facts &facts() const
    {
        return m_facts;
    }

private:
    [[nodiscard]] uint64_t whole(const std::string &text) const;
    [[nodiscard]] double real(const std::string &text) const;
    [[nodiscard]] const std::string &chosen(const std::string &text) const;

    Target m_target;
    Facts m_facts;
    Bounds m_bounds;
    RealBounds m_realBounds{};
};

/// A word: the whole command, a group of words, or a word with a body.
class Word
{
public:
    /// The description, for its readers.
    struct Facts
    {
        std::string name;
        std::string help;
        std::string group; ///< the heading under which the help of the word above lists it
        std::string about; ///< the help text after the options
        Names examples;    ///< lines as typed into a shell
        int usageCode = 2; ///< the exit code of an invalid command line
        bool launches = false;
        bool keepsToItself = false;
    };

    Word(std::string name, std::string help);
    Word(const Word &) = delete;
    Word &operator=(const Word &) = delete;

    /// Adds a word below this one.
    Word &word(const std::string &name, const std::string &help);

    /// The word of this name below, which must exist.
    Word &below(std::string_view name);

    Option &flag(const std::string &names, bool &value, const std::string &help);
    Option &option(const std::string &names, std::string &value, const std::string &help);
    Option &option(const std::string &names, std::optional<std::string> &value, const std::string &help);
    Option &option(const std::string &names, Names &values, const std::string &help);
    Option &option(const std::string &names, int32_t &value, Bounds bounds, const std::string &help);
    Option &option(const std::string &names, uint32_t &value, Bounds bounds, const std::string &help);
    Option &option(const std::string &names, uint64_t &value, Bounds bounds, const std::string &help);
    Option &option(const std::string &names, double &value, RealBounds bounds, const std::string &help);
    Option &bytes(const std::string &names, uint64_t &value, const std::string &help);

    /// The heading under which the help of the word above lists this one.
    Word &group(std::string heading);

    /// Sets the help text after the options.
    Word &about(std::string text);

    /// Adds an example: a line as typed into a shell.
    Word &example(std::string line);

    /// Sets the body of the word; its result is the exit code.
    Word &runs(std::function<int()> body);

    /// Sets the check after parsing: it returns why the command line is invalid, or an empty text.
    Word &refuses(std::function<std::string()> reason);

    /// The word launches child processes: the library starts its task server, and signals stay unchanged.
    Word &launches();

    /// Sets the exit code of an invalid command line, if it is not 2.
    Word &usageCode(int code);

    /// Options of the words above are not accepted after this word.
    Word &keepsToItself();

    [[nodiscard]] const Facts &facts() const
    {
        return m_facts;
    }
    [[nodiscard]] const std::deque<Option> &options() const
    {
        return m_options;
    }
    [[nodiscard]] const std::vector<std::unique_ptr<Word>> &words() const
    {
        return m_words;
    }

    /// The word of this name below; null if there is none.
    [[nodiscard]] const Word *find(std::string_view name) const;

    /// See refuses().
    [[nodiscard]] std::string refusal() const
    {
        return m_reason ? m_reason() : std::string{};
    }

    /// See runs().
    [[nodiscard]] int run() const
    {
        return m_body();
    }

private:
    Option &add(const std::string &names, Option::Target target, const std::string &help);

    Facts m_facts;
    std::deque<Option> m_options; // a deque keeps their addresses
    std::vector<std::unique_ptr<Word>> m_words;
    std::function<int()> m_body;
    std::function<std::string()> m_reason;
};

/// The request of a command line.
struct Asked
{
    const Word *word = nullptr; ///< the word to run; null if `text` is to be printed
    std::string text;           ///< the page of --help, or the version
};

/// Reads the arguments into the words' variables. Throws a Failure with the usage code of the given
/// word.
[[nodiscard]] Asked parse(const Word &root, const std::string &version, int argc, char **argv);

/// The --help page of the word at `path` from `root`. Throws a usage failure if there is no such
/// word.
[[nodiscard]] std::string helpPage(const Word &root, const Names &path);

} // namespace tool

#endif
