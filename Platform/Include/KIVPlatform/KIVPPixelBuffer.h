/**
 * @file
 * The locks of a pixel buffer, for tests and diagnostics: CoreVideo counts them but does not report them.
 */
#ifndef KIVP_PIXEL_BUFFER_H
#define KIVP_PIXEL_BUFFER_H

#include <CoreVideo/CVPixelBuffer.h>

CF_EXTERN_C_BEGIN

/** The number of locks currently held on the buffer's base address; 0 for NULL. Any thread. */
CF_EXPORT size_t KIVPPixelBufferGetLockCount(CVPixelBufferRef pixelBuffer);

CF_EXTERN_C_END

#endif
