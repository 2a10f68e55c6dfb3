// Manual pages, the tables of the documentation, and the description for programs.
#include "CommandLine/Generate.h"

#include "Terminal/Output.h"

#include <algorithm>

namespace tool
{
namespace
{

constexpr const char *kEnvironment = R"(.SH ENVIRONMENT
.TP
.B NO_COLOR
When it is set and not empty, nothing is coloured.
.TP
.B TERM
When it is "dumb", nothing is coloured and nothing is renewed in place.
.TP
.B TZ
The time zone of dated timecodes.
)";

constexpr const char *kExitStatus = R"(.SH EXIT STATUS
.TP
.B 0
Done, or yes. Also when the reader of the output went away.
.TP
.B 1
No: nothing was found, or a check failed.
.TP
.B 2
The command line makes no sense.
.TP
.B 3
The input is malformed.
.TP
.B 4
Opening, reading or writing failed.
.TP
.B 5
Not on this machine, or not with this input.
.TP
.B 6
It took too long.
.TP
.B 70
A fault of the command or of the library.
.PP
.B kivcs2 run
exits with the code of what it runs, or with 124 to 127 as its page says.
)";

constexpr const char *kDiagnostics = R"(.SH DIAGNOSTICS
An error is one line on standard error with the file, the line and the status; for programs
.B \-\-json
adds an object "error" to standard output.
)";

// A text of the description as roff: escapes characters that begin a request, an escape or a dash.
std::string roff(std::string_view text)
{
    std::string result;
    bool begins = true;
    for (const char character : text)
    {
        if (begins && (character == '.' || character == '\''))
            result += "\\&";
        result += character == '\\' ? "\\e" : character == '-' ? "\\-" : std::string{character};
        begins = character == '\n';
    }
    return result;
}

std::string bold(std::string_view text)
{
    return "\\fB" + roff(text) + "\\fR";
}

std::string joined(const Names &names, const char *between)
{
    std::string text;
    for (const std::string &name : names)
        text += (text.empty() ? "" : between) + name;
    return text;
}

std::string usage(const Place &place)
{
    std::string text = bold(place.path);
    if (std::ranges::any_of(place.word->options(),
                            [](const Option &option) { return !option.isPositional(); }))
        text += " [\\fIoptions\\fR]";
    if (!place.word->words().empty())
        text += " \\fIword\\fR";
    const std::string behind = positionals(*place.word);
    return text + (behind.empty() ? "" : " \\fI" + roff(behind) + "\\fR") + "\n";
}

void appendOptions(std::string &text, const Word &word)
{
    for (const Option &option : word.options())
    {
        text += ".TP\n";
        if (option.isPositional())
            text += "\\fI" + roff(option.name()) + "\\fR";
        else
            text += bold(joined(option.spellings(), ", "));
        if (!option.isPositional() && !option.isFlag())
            text += " \\fI" + roff(option.placeholder()) + "\\fR";
        text += "\n" + roff(option.facts().help) + ".";
        if (!option.facts().defaultText.empty())
            text += " The default is " + roff(option.facts().defaultText) + ".";
        if (!option.facts().excluded.empty())
            text += " Not together with " + bold(option.facts().excluded) + ".";
        text += "\n";
    }
}

// Keeps paragraphs and fills their lines, except indented ones.
void appendText(std::string &text, const std::string &about)
{
    if (!about.empty())
        text += ".PP\n.nf\n" + roff(about) + "\n.fi\n";
}

void appendExamples(std::string &text, const Word &word)
{
    if (word.facts().examples.empty())
        return;
    text += ".PP\n.nf\n.RS\n";
    for (const std::string &example : word.facts().examples)
        text += roff(example) + "\n";
    text += ".RE\n.fi\n";
}

std::string heading(const std::string &name, std::string_view what)
{
    std::string title = name;
    std::ranges::transform(title, title.begin(),
                           [](char letter)
                           { return letter >= 'a' && letter <= 'z' ? char(letter - 32) : letter; });
    return ".\\\" Made by kivcs2 generate man; changes belong into the words themselves.\n.TH " + title +
           " 1 \"\" \"KIVCoreServices2\" \"User Commands\"\n.SH NAME\n" + name + " \\- " + roff(what) + "\n";
}

// "a|b" would end a cell of a table.
std::string cell(std::string_view text)
{
    std::string result;
    for (const char character : text)
        result += character == '|' ? "\\|" : std::string{character};
    return result;
}

std::string optionCell(const Option &option)
{
    const std::string placeholder = option.isFlag() ? "" : " " + option.placeholder();
    return "`" + cell(option.facts().names + placeholder) + "`";
}

Json optionDescription(const Option &option)
{
    const Option::Facts &facts = option.facts();
    Json object = {{"names", option.spellings()},
                   {"help", facts.help},
                   {"value", option.isFlag() ? Json{} : Json(option.placeholder())},
                   {"required", facts.isRequired},
                   {"list", option.isList()},
                   {"file", facts.isFile}};
    if (!facts.choices.empty())
        object["choices"] = facts.choices;
    if (!facts.defaultText.empty())
        object["default"] = facts.defaultText;
    if (!facts.excluded.empty())
        object["excludes"] = facts.excluded;
    return object;
}

} // namespace

std::string positionals(const Word &word)
{
    std::string text;
    for (const Option &option : word.options())
        if (option.isPositional())
        {
            const std::string name = option.name() + (option.facts().most > 1 ? "..." : "");
            text += (text.empty() ? "" : " ") + (option.facts().isRequired ? name : "[" + name + "]");
        }
    return text;
}

std::vector<Place> placesFrom(const Word &word, const std::string &path)
{
    std::vector<Place> places = {{&word, path}};
    for (const auto &below : word.words())
        for (Place &place : placesFrom(*below, path + " " + below->facts().name))
            places.push_back(std::move(place));
    return places;
}

std::string manualPage(const Word &root)
{
    const std::string &name = root.facts().name;
    std::string text = heading(name, "timecode, captions, video formats and text from the shell");
    text += ".SH SYNOPSIS\n" + bold(name) + " [\\fB\\-\\-json\\fR] \\fIword\\fR [\\fIarguments\\fR]\n.br\n" +
            bold(name) + " \\fBhelp\\fR [\\fIword\\fR...]\n";
    text +=
        ".SH DESCRIPTION\n" + roff(root.facts().help) +
        "\nTables are for people; with \\fB\\-\\-json\\fR every word writes JSON for programs.\nA file named "
        "\\fB\\-\\fR is standard input, a target named \\fB\\-\\fR standard output.\n.SH OPTIONS\n";
    appendOptions(text, root);
    text += ".TP\n\\fB\\-h, \\-\\-help\\fR\nThe help of the word in front of "
            "it.\n.TP\n\\fB\\-\\-version\\fR\nThe version.\n";
    std::string group;
    text += ".SH WORDS\n";
    for (const auto &word : root.words())
    {
        if (word->facts().group != group)
            text += ".SS " + roff(group = word->facts().group) + "\n";
        text += ".TP\n" + bold(word->facts().name) + "\n" + roff(word->facts().help) + ".\nSee " +
                bold(name + "-" + word->facts().name) + "(1).\n";
    }
    text.append(kExitStatus).append(kDiagnostics).append(kEnvironment).append(".SH EXAMPLES\n");
    appendExamples(text, root);
    return text;
}

std::string manualPage(const Word &root, const Word &word)
{
    const std::string &command = root.facts().name;
    const std::vector<Place> places = placesFrom(word, command + " " + word.facts().name);
    std::string text = heading(command + "-" + word.facts().name, word.facts().help) + ".SH SYNOPSIS\n";
    const char *between = "";
    for (const Place &place : places)
        if (place.word->words().empty())
        {
            text += between + usage(place);
            between = ".br\n";
        }
    text += ".SH DESCRIPTION\n" + roff(word.facts().help) + ".\n";
    appendText(text, word.facts().about);
    if (word.words().empty())
        appendOptions(text, word);
    else
        appendExamples(text, word);
    for (const Place &place : places)
        if (place.word != &word)
        {
            text += ".SH " + roff(place.path.substr(command.size() + 1)) + "\n" + usage(place) + ".PP\n" +
                    roff(place.word->facts().help) + ".\n";
            appendOptions(text, *place.word);
            appendText(text, place.word->facts().about);
            appendExamples(text, *place.word);
        }
    if (word.words().empty() && !word.facts().examples.empty())
    {
        text += ".SH EXAMPLES\n";
        appendExamples(text, word);
    }
    return text + ".SH SEE ALSO\n" + bold(command) +
           "(1), which has the exit codes and the options of all words.\n";
}

std::string markdown(const Word &root)
{
    std::string text;
    std::string group;
    for (const Place &place : placesFrom(root, root.facts().name))
    {
        const std::string &own = place.word->facts().group; // only words directly below the command have one
        if (!own.empty() && own != group)
        {
            group = own;
            text += "\n### " + group + "\n\n| Word | What it does | Options | Example |\n|---|---|---|---|\n";
        }
        if (!place.word->words().empty())
            continue;
        std::string options;
        for (const Option &option : place.word->options())
            if (!option.isPositional())
                options.append(options.empty() ? "" : ", ").append(optionCell(option));
        const std::string behind = positionals(*place.word);
        std::string word = place.path.substr(root.facts().name.size() + 1);
        if (!behind.empty())
            word.append(" ").append(behind);
        const auto &examples = place.word->facts().examples;
        text.append("| `").append(cell(word)).append("` | ").append(cell(place.word->facts().help));
        text.append(" | ").append(options).append(" | `");
        text.append(cell(examples.empty() ? "" : examples.front())).append("` |\n");
    }
    return text;
}

Json description(const Word &root)
{
    Json words;
    for (const Place &place : placesFrom(root, root.facts().name))
    {
        Json options = Json::array();
        for (const Option &option : place.word->options())
            options.push_back(optionDescription(option));
        words.push_back({{"word", place.path},
                         {"help", place.word->facts().help},
                         {"group", place.word->facts().group},
                         {"runs", place.word->words().empty()},
                         {"options", options},
                         {"examples", place.word->facts().examples}});
    }
    return {{"words", words}};
}

} // namespace tool
