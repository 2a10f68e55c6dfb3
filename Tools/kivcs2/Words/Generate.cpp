// kivcs2 generate and kivcs2 help: the documents of the command.
#include "CommandLine/Generate.h"
#include "Failure.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

namespace tool
{
namespace
{

void addManual(Word &generate, const Word &root)
{
    const auto wanted = std::make_shared<std::string>();
    Word &word = generate.word("man", "A manual page: of the command, or of one of its words");
    word.option("word", *wanted, "The word; without it the whole command");
    word.about(
        "Prints roff, which man -l - shows. A page of a word has those below it, with options and examples.");
    word.example("kivcs2 generate man caption > kivcs2-caption.1");
    word.runs(
        [wanted, &root]
        {
            const Word *one = wanted->empty() ? nullptr : root.find(*wanted);
            if (one == nullptr && !wanted->empty())
                throw Failure(kExitUsage, "unknown word \"" + visible(*wanted) + "\"");
            out().write(one != nullptr ? manualPage(root, *one) : manualPage(root));
            return kExitYes;
        });
}

void addCompletion(Word &generate, const Word &root)
{
    const auto shell = std::make_shared<std::string>();
    Word &word = generate.word("completion", "A script with which a shell completes words and options");
    word.option("shell", *shell, "The shell").required().among({"bash", "zsh", "fish"});
    word.about("Prints a script: bash and fish read it by source, zsh finds it as _kivcs2 in a folder of its "
               "fpath.\n"
               "Words, options, files, formats, rates, curves and codecs are completed.");
    word.example("kivcs2 generate completion bash > kivcs2.bash");
    word.runs(
        [shell, &root]
        {
            out().write(completion(root, *shell));
            return kExitYes;
        });
}

} // namespace

void addGenerateCommand(Word &root)
{
    Word &generate = root.word("generate", "Manual pages, completions and tables of the words and options");
    generate.group(kGroupItself);
    addManual(generate, root);
    addCompletion(generate, root);
    generate.word("markdown", "Tables of the words, their options and examples")
        .about("Prints the tables of Docs/command.md.")
        .example("kivcs2 generate markdown > words.md")
        .runs(
            [&root]
            {
                out().write(markdown(root));
                return kExitYes;
            });
    generate.word("json", "All words, options and examples for programs")
        .about(
            "Prints one object: each word with its help, and each option with its names, value and default.")
        .example("kivcs2 generate json > words.json")
        .runs(
            [&root]
            {
                out().json(description(root));
                return kExitYes;
            });
}

void addHelpCommand(Word &root)
{
    const auto path = std::make_shared<Names>();
    Word &word = root.word("help", "The help of a word, as its --help prints it").group(kGroupItself);
    word.option("words", *path, "The word and those below it; without them the whole command");
    word.about("Prints only the page; the word does not run. Exit code 2: there is no such word.");
    word.example("kivcs2 help caption convert");
    word.runs(
        [path, &root]
        {
            out().write(helpPage(root, *path));
            return kExitYes;
        });
}

} // namespace tool
