// Documents made of the description of words and options.
#ifndef KIV_TOOL_GENERATE_H
#define KIV_TOOL_GENERATE_H

#include "CommandLine/CommandLine.h"
#include "Terminal/JSON.h"

namespace tool
{

/// The manual page of the whole command, with the options of all words in short.
[[nodiscard]] std::string manualPage(const Word &root);

/// The manual page of one word directly below `root`, "kivcs2-caption(1)".
[[nodiscard]] std::string manualPage(const Word &root, const Word &word);

/// Completion for "bash", "zsh" or "fish".
[[nodiscard]] std::string completion(const Word &root, std::string_view shell);

/// The tables of Docs/command.md: a row a word that does something, with its options and its example.
[[nodiscard]] std::string markdown(const Word &root);

/// All of it for programs.
[[nodiscard]] Json description(const Word &root);

/// A word and the names that lead to it.
struct Place
{
    const Word *word;
    std::string path; ///< "kivcs2 caption convert"
};

/// The word itself and all below it, in their order.
[[nodiscard]] std::vector<Place> placesFrom(const Word &word, const std::string &path);

/// "file target", a positional that may be left out in brackets, a list with dots.
[[nodiscard]] std::string positionals(const Word &word);

} // namespace tool

#endif
