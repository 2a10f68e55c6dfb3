// Pictures on a terminal: two pixels for each character.
#ifndef KIV_TOOL_HALF_BLOCKS_H
#define KIV_TOOL_HALF_BLOCKS_H

#include "Pictures/Picture.h"

namespace tool
{

/// Draws the picture to out(), `columns` characters wide: on a terminal with colours as upper half blocks,
/// with the upper pixel's colour as foreground and the lower one's as background; elsewhere, and with
/// NO_COLOR, as characters from dark to bright. Every character is the mean of the pixels it represents,
/// alpha over black. `pixelAspect` is a pixel's width divided by its height, 1 for square pixels.
void drawHalfBlocks(const PictureView &picture, size_t columns, double pixelAspect = 1.0);

} // namespace tool

#endif
