// The words of kivcs2 caption; each has a source file of its own.
#ifndef KIV_TOOL_CAPTION_H
#define KIV_TOOL_CAPTION_H

#include "Captions/OpenCaptions.h"
#include "Captions/Pairs.h"
#include "Words/Words.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

/// Arguments of the words that read captions.
struct CaptionArguments
{
    ReadingArguments reading;
    std::string against;
    std::string timecode;
    std::string from, to;
    std::string service; ///< empty: all
    std::vector<std::string> words;
    uint64_t most = UINT64_MAX; ///< rows of faults; by default those that fit a terminal, or all
    bool keepGoing = false;
    bool captions = false;
    bool fixParity = false;
    bool json = false;
};

int captionInfo(const CaptionArguments &arguments);
int captionShow(const CaptionArguments &arguments);
int captionAt(const CaptionArguments &arguments);
int captionVerify(const CaptionArguments &arguments);

/// Returns the digits, the parity, the words and the characters of a pair.
[[nodiscard]] Json toJson(CaptionPair pair);

/// Each adds the word of another file.
void addConvertWord(Word &caption, Context &context);
void addPlayWord(Word &caption, Context &context);
void addMonitorWord(Word &caption, Context &context);

} // namespace tool

#endif
