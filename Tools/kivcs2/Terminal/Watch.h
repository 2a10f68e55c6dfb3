// Figures that are shown again and again: in place on a terminal, as lines elsewhere.
#ifndef KIV_TOOL_WATCH_H
#define KIV_TOOL_WATCH_H

#include "CommandLine/CommandLine.h"
#include "Terminal/Output.h"

#include <functional>
#include <string>

namespace tool
{

struct WatchOptions
{
    double seconds = 1;    ///< from one reading to the next
    uint64_t readings = 0; ///< 0: until interrupted
};

/// Adds "watch" to a word of the command, with --every and --count; `run` is given them and `json`, as it is
/// when the word runs.
Word &addWatchWord(Word &command, const bool &json, const std::string &description,
                   int (*run)(const WatchOptions &options, bool json));

/// One reading in its three forms, of which one is asked for each time.
struct Watched
{
    std::function<void()> page;        ///< written to out(), for a terminal
    std::function<std::string()> line; ///< for a file or a pipe, after the time of day
    std::function<Json()> json;        ///< with --json, one object a line
};

/// Shows readings until they are enough or an interrupt comes, which is the usual end. On a terminal each
/// takes the place of the one before and the last stays; the terminal's state is never changed, so that
/// nothing has to be put right after a kill. Elsewhere every reading is a line, written at once.
int watch(const WatchOptions &options, bool json, const Watched &watched);

} // namespace tool

#endif
