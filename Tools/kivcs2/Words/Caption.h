// The words of kivcs2 caption, each in the file that does its work.
#ifndef KIV_TOOL_CAPTION_H
#define KIV_TOOL_CAPTION_H

#include "Words/Words.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

struct CaptionArguments
{
    std::string file;
    std::string target;
    std::string rate;
    std::string against;
    std::string timecode;
    std::string from, to;
    std::vector<std::string> words;
    uint32_t mccVersion = 0; ///< 0: 1 from SCC, 2 from MCC
    uint32_t field = 1;
    bool sparse = false;
    bool sdi = false;
    bool keepGoing = false;
    bool captions = false;
    bool fixParity = false;
    bool json = false;
};

int captionInfo(const CaptionArguments &arguments);
int captionShow(const CaptionArguments &arguments);
int captionAt(const CaptionArguments &arguments);
int captionDecode(const CaptionArguments &arguments);
int captionVerify(const CaptionArguments &arguments);

/// Words of their own files.
void addConvertWord(Word &caption, Context &context);

} // namespace tool

#endif
