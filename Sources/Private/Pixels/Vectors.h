// Rows of pixels by the vectors of x86-64 and arm64.
#ifndef KIV_PRIVATE_PIXELS_VECTORS_H
#define KIV_PRIVATE_PIXELS_VECTORS_H

#include "Private/Pixels/Rows.h"

namespace kiv
{
#if defined(__x86_64__)
extern const PixelRows kPixelRowsSSE42;
extern const PixelRows kPixelRowsAVX2;
extern const PixelRows kPixelRowsAVX512;
#elif defined(__aarch64__)
extern const PixelRows kPixelRowsNEON;
#endif
} // namespace kiv

#endif
