/**
 * @file
 * The locks of a pixel buffer, for tests and diagnostics: CoreVideo counts them and does not tell.
 */
#ifndef KIVP_PIXEL_BUFFER_H
#define KIVP_PIXEL_BUFFER_H

#include <CoreVideo/CVPixelBuffer.h>

CF_EXTERN_C_BEGIN

/** How many locks of the buffer's base address are held at this moment; 0 for NULL. Any thread. */
CF_EXPORT size_t KIVPPixelBufferGetLockCount(CVPixelBufferRef pixelBuffer);

CF_EXTERN_C_END

#endif
