// Colour bars: the patterns that lines and monitors are set by.
#ifndef KIV_TOOL_COLOUR_BARS_H
#define KIV_TOOL_COLOUR_BARS_H

#include "Pictures/RawFrames.h"

namespace tool
{

enum class BarPattern
{
    Smpte,  ///< 75 % bars over the PLUGE: SMPTE EG 1 up to 576 lines, SMPTE RP 219 above
    Ebu75,  ///< eight bars 100/0/75/0 (ITU-R BT.471)
    Ebu100, ///< eight bars 100/0/100/0
};

/// The name of the pattern that a picture of so many lines gets.
[[nodiscard]] std::string_view barPatternName(BarPattern pattern, uint32_t height);

/// One frame of bars. 4:2:2 by the matrix, rounded once to 10 or 8 bits, Y from 64 to 940 (16 to 235) and
/// below where the PLUGE goes; RGB from 0 to 255 and no further. Edges stand between pairs of pixels.
[[nodiscard]] Frame colourBars(BarPattern pattern, Matrix matrix, const PixelLayout &pixels, uint32_t width,
                               uint32_t height);

} // namespace tool

#endif
