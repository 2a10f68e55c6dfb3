// The text and the place of a caption as SRT and WebVTT write them.
#ifndef KIV_PRIVATE_CAPTIONS_CUE_TEXT_H
#define KIV_PRIVATE_CAPTIONS_CUE_TEXT_H

#include "Private/Captions/Output.h"

#include "KIVCS2CaptionDecoder.h"

namespace kiv::cc
{
// Write the rows with their styles, each with a line feed.
void putSRTText(Output &out, const KIVCS2CaptionText &text);
void putVTTText(Output &out, const KIVCS2CaptionText &text);
// Writes the settings after the times of a WebVTT cue.
void putVTTPlace(Output &out, const KIVCS2CaptionText &text);
} // namespace kiv::cc

#endif
