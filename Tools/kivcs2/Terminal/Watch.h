// Figures shown repeatedly: in place on a terminal, as lines elsewhere.
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

/// Adds "watch" to a word of the command, with --every and --count; `run` gets these options and the value
/// of `json` at that time.
Word &addWatchWord(Word &command, const bool &json, const std::string &description,
                   int (*run)(const WatchOptions &options, bool json));

/// One reading in its three forms, of which one is used each time.
struct Watched
{
    std::function<void()> page;        ///< writes to out(), for a terminal
    std::function<std::string()> line; ///< for a file or a pipe, after the time of day
    std::function<Json()> json;        ///< with --json, one object for each line
};

/// Shows readings until the count is reached or an interrupt comes, which is the usual end. On a terminal
/// each reading replaces the previous one and the last stays; the terminal's state is never changed, so that
/// a kill leaves it intact. Elsewhere every reading is a line, written at once.
int watch(const WatchOptions &options, bool json, const Watched &watched);

} // namespace tool

#endif
