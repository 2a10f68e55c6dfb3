// Captions as rows for people and JSON objects for programs.
#ifndef KIV_TOOL_CAPTION_ROWS_H
#define KIV_TOOL_CAPTION_ROWS_H

#include "Terminal/JSON.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

namespace tool
{

/// Returns from, until, channel, mode and text, with timecodes in `counting`.
[[nodiscard]] Json captionJson(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting);

/// Prints the same on standard output, each row of the text on its own line.
void printCaption(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting);

} // namespace tool

#endif
