// Pictures as PNG files.
#ifndef KIV_TOOL_PNG_FILE_H
#define KIV_TOOL_PNG_FILE_H

#include "Pictures/Picture.h"

#include <string>

namespace tool
{

/// Writes the picture as an 8-bit PNG in sRGB. The file appears whole or not at all; "-" is standard output,
/// which must not be a terminal. Throws the command's failures: a picture without pixels or too large for the
/// format, a target that cannot be written.
void writePNG(const std::string &target, const PictureView &picture);

} // namespace tool

#endif
