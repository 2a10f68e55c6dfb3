// The rows of pixels for this machine.
#ifndef KIV_PRIVATE_PIXELS_LEVELS_H
#define KIV_PRIVATE_PIXELS_LEVELS_H

#include "Private/Pixels/Rows.h"
#include "Private/Support/Cpu.h"

namespace kiv
{
// The rows of one level, which the machine must have.
[[nodiscard]] const PixelRows &pixelRows(CpuLevel level) noexcept;
// The rows of this machine.
[[nodiscard]] const PixelRows &pixelRows() noexcept;

// Converts a line of '2vuy' to B, G, R, 255 for each pixel; an odd width writes one pixel more.
void ConvertLinetoRGB(const uint8_t *line, uint8_t *pixels, size_t width, bool standardDefinition) noexcept;
} // namespace kiv

#endif
