// Chooses the rows of pixels by the level of the processor.
#include "Private/Pixels/Levels.h"

#include "Private/Pixels/Vectors.h"

const kiv::PixelRows &kiv::pixelRows([[maybe_unused]] CpuLevel level) noexcept
{
#if defined(__x86_64__)
    switch (level)
    {
    case CpuLevel::avx512:
        return kPixelRowsAVX512;
    case CpuLevel::avx2:
        return kPixelRowsAVX2;
    case CpuLevel::sse42:
        return kPixelRowsSSE42;
    case CpuLevel::portable:
        break;
    }
#elif defined(__aarch64__)
    if (level == CpuLevel::neon)
        return kPixelRowsNEON;
#endif
    return kPixelRowsPortable;
}

const kiv::PixelRows &kiv::pixelRows() noexcept
{
    return pixelRows(cpuLevel());
}

void kiv::ConvertLinetoRGB(const uint8_t *line, uint8_t *pixels, size_t width,
                           bool standardDefinition) noexcept
{
    const PixelRows &rows = pixelRows();
    (standardDefinition ? rows.toBGRA601 : rows.toBGRA709)(line, pixels, width);
}
