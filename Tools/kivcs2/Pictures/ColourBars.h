// Colour bars: the patterns for adjusting lines and monitors.
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

/// The name of the pattern for a picture with so many lines.
[[nodiscard]] std::string_view barPatternName(BarPattern pattern, uint32_t height);

/// One frame of bars. 4:2:2 by the matrix, rounded once to 10 or 8 bits, Y from 64 to 940 (16 to 235) and
/// lower in the PLUGE; RGB clipped to 0 to 255. Edges lie between pairs of pixels.
[[nodiscard]] Frame colourBars(BarPattern pattern, Matrix matrix, const PixelLayout &pixels, uint32_t width,
                               uint32_t height);

} // namespace tool

#endif
