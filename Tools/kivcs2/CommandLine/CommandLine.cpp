// Builds the option parser from the description. Only this source includes the parser.
#include "CommandLine/CommandLine.h"

#include "Failure.h"
#include "Terminal/Output.h"

#include <CLI/CLI.hpp>

#include <map>
#include <stdexcept>

namespace tool
{
namespace
{

constexpr size_t kColumnOfHelp = 34;

using Parsers = std::map<const CLI::App *, const Word *>;

void addOption(CLI::App &parser, const Option &option)
{
    const Option::Facts &facts = option.facts();
    const auto take = [&option](const CLI::results_t &texts)
    {
        try
        {
            option.take(texts);
        }
        catch (const std::invalid_argument &error)
        {
            throw CLI::ValidationError(option.name(), error.what());
        }
        return true;
    };
    CLI::Option *added = nullptr;
    if (option.isFlag())
        added = parser.add_flag_function(
            facts.names, [&option](int64_t count) { option.take({count > 0 ? "true" : "false"}); },
            facts.help);
    else
        added = parser.add_option(facts.names, take, facts.help)
                    ->type_name(option.placeholder())
                    ->expected(static_cast<int>(facts.least), static_cast<int>(facts.most));
    if (option.isList())
        added->take_all()->allow_extra_args();
    if (facts.isOneAtATime)
        added->expected(1)->take_all()->allow_extra_args(false);
    if (facts.isRequired)
        added->required();
    if (!facts.defaultText.empty())
        added->default_str(facts.defaultText);
}

std::string footer(const Word &word)
{
    const Word::Facts &facts = word.facts();
    std::string text = facts.about;
    if (!facts.examples.empty())
        text +=
            std::string{text.empty() ? "" : "\n\n"} + (facts.examples.size() > 1 ? "Examples:" : "Example:");
    for (const std::string &example : facts.examples)
        text += "\n  " + example;
    return text;
}

void describe(CLI::App &parser, const Word &word, Parsers &parsers)
{
    const Word::Facts &facts = word.facts();
    parsers[&parser] = &word;
    parser.fallthrough(!facts.keepsToItself);
    parser.footer(footer(word));
    if (!facts.group.empty())
        parser.group(facts.group);
    for (const Option &option : word.options())
        addOption(parser, option);
    for (const Option &option : word.options())
        if (!option.facts().excluded.empty())
            parser.get_option(option.name())->excludes(parser.get_option(option.facts().excluded));
    if (!word.words().empty())
        parser.require_subcommand(1);
    for (const auto &below : word.words())
        describe(*parser.add_subcommand(below->facts().name, below->facts().help), *below, parsers);
}

// The parser and the words that its parts represent.
struct Parser
{
    explicit Parser(const Word &root) : app(root.facts().help, root.facts().name)
    {
        app.get_formatter()->column_width(kColumnOfHelp);
        app.set_version_flag("--version", root.facts().name); // parse() sets the text
        describe(app, root, words);
    }

    /// The lowest given word.
    [[nodiscard]] const Word &given()
    {
        const CLI::App *last = &app;
        for (auto below = app.get_subcommands(); !below.empty(); below = last->get_subcommands())
            last = below.front();
        return *words.at(last);
    }

    CLI::App app;
    Parsers words;
};

} // namespace

namespace
{

Names namesBelow(const Word &word)
{
    Names names;
    for (const auto &below : word.words())
        names.push_back(below->facts().name);
    return names;
}

Names optionsOf(const Word &root, const Word &word)
{
    Names names = {"--help", "--json"};
    for (const Word *one : {&root, &word})
        for (const Option &option : one->options())
            if (!option.isPositional())
                names.push_back(option.name());
    return names;
}

// Why the command line is invalid, with the word or option that was probably meant.
std::string reasonOf(const CLI::ParseError &error, const Word &root, const Word &given, const Names &extras)
{
    if (extras.empty())
        return error.what();
    const std::string &first = extras.front();
    if (first.starts_with('-') && first.size() > 1)
        return "unknown option \"" + visible(first) + "\"" +
               hint(optionsOf(root, given), first.substr(0, first.find('=')));
    // The parser reports an unknown word as a missing one.
    const bool isWord = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError);
    return isWord ? "unknown word \"" + visible(first) + "\"" + hint(namesBelow(given), first) : error.what();
}

} // namespace

Asked parse(const Word &root, const std::string &version, int argc, char **argv)
{
    Parser parser{root};
    const auto refuse = [&](const std::string &reason) {
        return Failure(static_cast<ExitCode>(parser.given().facts().usageCode),
                       reason + " (see kivcs2 --help)");
    };
    try
    {
        parser.app.parse(argc, argv);
    }
    catch (const CLI::CallForHelp &)
    {
        return {nullptr, parser.app.help()}; // the page of the given word
    }
    catch (const CLI::CallForVersion &)
    {
        return {nullptr, version + "\n"};
    }
    catch (const CLI::ParseError &error)
    {
        throw refuse(reasonOf(error, root, parser.given(), parser.app.remaining(true)));
    }
    const Word &word = parser.given();
    const std::string reason = word.refusal();
    if (!reason.empty())
        throw refuse(reason);
    return {&word, {}};
}

std::string helpPage(const Word &root, const Names &path)
{
    Parser parser{root};
    CLI::App *part = &parser.app;
    const Word *word = &root;
    std::string prefix;
    for (const std::string &name : path)
    {
        const Word *below = word->find(name);
        if (below == nullptr)
            throw Failure(kExitUsage,
                          "unknown word \"" + visible(name) + "\"" + hint(namesBelow(*word), name));
        prefix += (prefix.empty() ? "" : " ") + word->facts().name;
        word = below;
        part = part->get_subcommand(name);
    }
    return part->help(prefix);
}

} // namespace tool
