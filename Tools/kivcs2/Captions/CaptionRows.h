// Captions as rows for people and objects for programs.
#ifndef KIV_TOOL_CAPTION_ROWS_H
#define KIV_TOOL_CAPTION_ROWS_H

#include "Terminal/JSON.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

namespace tool
{

/// from, until, channel, mode and text; timecodes in `counting`.
[[nodiscard]] Json captionJson(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting);

/// The same on standard output, the text's rows below each other.
void printCaption(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting);

} // namespace tool

#endif
