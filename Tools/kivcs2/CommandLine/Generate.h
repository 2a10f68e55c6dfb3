// Documents made from the description of words and options.
#ifndef KIV_TOOL_GENERATE_H
#define KIV_TOOL_GENERATE_H

#include "CommandLine/CommandLine.h"
#include "Terminal/JSON.h"

namespace tool
{

/// The manual page of the whole command, with a short list of the options of all words.
[[nodiscard]] std::string manualPage(const Word &root);

/// The manual page of one word directly below `root`, "kivcs2-caption(1)".
[[nodiscard]] std::string manualPage(const Word &root, const Word &word);

/// Completion for "bash", "zsh" or "fish".
[[nodiscard]] std::string completion(const Word &root, std::string_view shell);

/// The tables of Docs/command.md: a row for each word with a body, with its options and its example.
[[nodiscard]] std::string markdown(const Word &root);

/// The whole description, for programs.
[[nodiscard]] Json description(const Word &root);

/// A word and the names that lead to it.
struct Place
{
    const Word *word;
    std::string path; ///< "kivcs2 caption convert"
};

/// The word itself and all below it, in their order.
[[nodiscard]] std::vector<Place> placesFrom(const Word &word, const std::string &path);

/// "file target": an optional positional is in brackets, a list has dots.
[[nodiscard]] std::string positionals(const Word &word);

} // namespace tool

#endif
