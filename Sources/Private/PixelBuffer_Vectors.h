// Rows of pixels by the vectors of x86-64.
#ifndef KIV_PRIVATE_PIXEL_BUFFER_VECTORS_H
#define KIV_PRIVATE_PIXEL_BUFFER_VECTORS_H

#include "Private/PixelBuffer_Rows.h"

namespace kiv
{
#if defined(__x86_64__)
extern const PixelRows kPixelRowsSSE42;
extern const PixelRows kPixelRowsAVX2;
extern const PixelRows kPixelRowsAVX512;
#endif
} // namespace kiv

#endif
