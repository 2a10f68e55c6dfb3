// The rows of pixels that suit the machine.
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

// A line of '2vuy' into B, G, R, 255 a pixel; an odd width writes one pixel more than itself.
void ConvertLinetoRGB(const uint8_t *line, uint8_t *pixels, size_t width, bool standardDefinition) noexcept;
} // namespace kiv

#endif
