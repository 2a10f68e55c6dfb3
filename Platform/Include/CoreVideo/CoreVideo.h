/**
 * @file
 * CoreVideo: the part of it that this system supplies. See Platform/README.md.
 */
#ifndef KIV_COREVIDEO_H
#define KIV_COREVIDEO_H

#include <CoreVideo/CVPixelBuffer.h>
#include <CoreVideo/CVReturn.h>

#endif
