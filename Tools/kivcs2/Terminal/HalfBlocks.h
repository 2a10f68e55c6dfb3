// Pictures on a terminal: two pixels a character.
#ifndef KIV_TOOL_HALF_BLOCKS_H
#define KIV_TOOL_HALF_BLOCKS_H

#include "Pictures/Picture.h"

namespace tool
{

/// Draws the picture to out(), `columns` characters wide: on a terminal with colours as upper half blocks,
/// whose character has the colour of the upper pixel on the colour of the lower one; elsewhere, and with
/// NO_COLOR, as characters from dark to bright. Every character is the mean of the pixels it stands for,
/// alpha over black. `pixelAspect` is the width of a pixel by its height, 1 for square ones.
void drawHalfBlocks(const PictureView &picture, size_t columns, double pixelAspect = 1.0);

} // namespace tool

#endif
