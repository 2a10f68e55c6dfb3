/**
 * @file
 * Pixel buffers: conversion of 4:2:2 video from 10 to 8 bits and of 8-bit 4:2:2 to RGB, filling, scaling down
 * by point sampling, doubling of lines, and a dump to a file.
 *
 * The buffers are those of CoreVideo. A buffer made by an operation belongs to the caller, who ends it with
 * CVPixelBufferRelease(). The formats are:
 *   'v210'  10 bits per component, three in the low 30 bits of a little-endian word: Cb Y Cr, Y Cb Y, Cr Y
 *   Cb, Y Cr Y
 *   '2vuy'  8 bits per component, bytes Cb Y0 Cr Y1 for two pixels
 *   32      kCVPixelFormatType_32ARGB; within this library its bytes are R, G, B, A
 *   24      kCVPixelFormatType_24RGB, bytes R, G, B
 * Colours are converted by the matrix of standard definition (ITU-R BT.601), video range to full range, in
 * fixed point with 16 bits of fraction, rounded and limited: bit for bit the same on every machine.
 *
 * Every operation locks the base address of the buffers it touches, with flags 0, and unlocks it again;
 * kivCS2PixelBuffer_scale() names its exceptions. The rows of a buffer over the caller's own memory must hold
 * whole pairs of pixels, as CVPixelBufferCreateWithBytes() requires. No state is shared between calls: any
 * thread may call, with buffers that no other thread uses meanwhile.
 *
 * @code
 * CVPixelBufferRef grey, rgb = NULL;
 * if (CVPixelBufferCreate(NULL, 1920, 1080, kCVPixelFormatType_422YpCbCr8, NULL, &grey) != kCVReturnSuccess)
 *     return 1;
 * kivCS2PixelBuffer_clear(grey, KIVCS2PixelBuffer_ClearGrey);
 * if (KIVCS2_SUCCEEDED(kivCS2PixelBuffer_convert(grey, &rgb, KIVCS2PixelBuffer_Convert2vuyToRGBA)))
 * {
 *     CVPixelBufferLockBaseAddress(rgb, 0);
 *     printf("%u\n", *(uint8_t *)CVPixelBufferGetBaseAddress(rgb)); // prints: 130
 *     CVPixelBufferUnlockBaseAddress(rgb, 0);
 * }
 * CVPixelBufferRelease(rgb); // null is ignored
 * CVPixelBufferRelease(grey);
 * @endcode
 */
#ifndef KIVCS2_PIXEL_BUFFER_H
#define KIVCS2_PIXEL_BUFFER_H

#include "KIVCS2Base.h"

#include <CoreVideo/CoreVideo.h>

KIVCS2_BEGIN_DECLS

/** A colour to fill with. */
typedef uint32_t KIVCS2PixelBufferClearColour;
enum
{
    KIVCS2PixelBuffer_ClearWhite = 0,
    KIVCS2PixelBuffer_ClearBlack = 1,
    KIVCS2PixelBuffer_ClearGrey = 2,
    KIVCS2PixelBuffer_ClearMAX = 3 /**< the count; not a colour */
};

/** A conversion; 1 has no meaning. */
typedef uint32_t KIVCS2PixelBufferConvertMode;
enum
{
    KIVCS2PixelBuffer_ConvertV210To2vuy = 0, /**< drops the two low bits of every component */
    KIVCS2PixelBuffer_Convert2vuyToRGBA = 2  /**< into kCVPixelFormatType_32ARGB, as R, G, B, 255 */
};

/**
 * Makes a new buffer of the same width and height with the picture in another format.
 *
 * To RGB, a pixel at an odd place gets the mean of its pair's chroma and the next pair's. Past the end of a
 * line chroma counts as 0, so the last odd pixel of a line is tinted. With an odd width one more pixel is
 * written into the padding of each row, in the order B, G, R, A.
 * @param[in]  pixelBufferIn   'v210' or '2vuy', depending on the mode
 * @param[out] pixelBufferOut  the new buffer, owned by the caller; untouched on a failure
 * @param[in]  mode            KIVCS2PixelBufferConvertMode
 * @retval KIVCS2STATUS_PARAM_ERR   a null argument, an unknown mode, or an input of another format
 * @retval KIVCS2STATUS_MEMORY_ERR  the new buffer could not be made
 * Thread safety: any thread. Source: ITU-R BT.601.
 */
KIVCS2_API KIVCS2Status kivCS2PixelBuffer_convert(CVPixelBufferRef pixelBufferIn,
                                                  CVPixelBufferRef *pixelBufferOut,
                                                  KIVCS2PixelBufferConvertMode mode);

/**
 * Fills every pixel with one colour and leaves the padding of the rows untouched. RGB gets an alpha of 0,
 * unlike converted pixels; '2vuy' gets chroma 128 and luma 235, 16 or 128.
 * @param[in] pixelBufferIn  kCVPixelFormatType_32ARGB or '2vuy'
 * @param[in] clearColour    below KIVCS2PixelBuffer_ClearMAX
 * @retval KIVCS2STATUS_PARAM_ERR         a null buffer or an unknown colour
 * @retval KIVCS2STATUS_PIXEL_FORMAT_ERR  a buffer of another format
 * Thread safety: any thread. Source: ITU-R BT.601 (the levels).
 */
KIVCS2_API KIVCS2Status kivCS2PixelBuffer_clear(CVPixelBufferRef pixelBufferIn,
                                                KIVCS2PixelBufferClearColour clearColour);

/**
 * Makes a smaller picture from the pixels at the multiples of source size / scale size, rounded down to
 * 1/65536: no filter. 32-bit RGB is copied into 32-bit RGB; '2vuy' is converted into 24-bit RGB, each pixel
 * with the chroma it has in kivCS2PixelBuffer_convert().
 *
 * The two failures marked below leave the input locked once more; the caller undoes this with
 * CVPixelBufferUnlockBaseAddress().
 * @param[in]  pixelBufferIn            32-bit RGB or '2vuy'
 * @param[out] pixelBufferOut           the new buffer, owned by the caller; untouched on a failure
 * @param[in]  scaleWidth, scaleHeight  pixels; must be below those of the input, which assertions check.
 *                                      Without assertions equal sizes pass as well
 * @retval KIVCS2STATUS_PARAM_ERR   a null argument, an input smaller than the scale size, or one of another
 *                                  format (leaves the input locked)
 * @retval KIVCS2STATUS_MEMORY_ERR  the new buffer could not be made, as for a scale size of 0 (leaves the
 *                                  input locked)
 * Thread safety: any thread. Source: ITU-R BT.601.
 */
KIVCS2_API KIVCS2Status kivCS2PixelBuffer_scale(CVPixelBufferRef pixelBufferIn,
                                                CVPixelBufferRef *pixelBufferOut, uint32_t scaleWidth,
                                                uint32_t scaleHeight);

/**
 * Replaces every odd line with the line above it, padding included. If the number of lines is odd, the last
 * line has no line below it and is unchanged. Any pixel format. A null buffer fails an assertion; without
 * assertions the call does nothing and succeeds.
 * @retval KIVCS2STATUS_OK  always
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2PixelBuffer_deinterlace(CVPixelBufferRef pixelBuffer);

/**
 * Converts a '2vuy' buffer as KIVCS2PixelBuffer_Convert2vuyToRGBA and writes its memory to a file, bytes per
 * row times height: rows with their padding, no header. A file that cannot be opened or written is not
 * reported.
 * @param[in] pixelBuffer  '2vuy'
 * @param[in] path         created, or emptied first
 * @param[in] unused       any value; ignored
 * @retval KIVCS2STATUS_PARAM_ERR   a null buffer or one of another format; no file is opened
 * @retval KIVCS2STATUS_MEMORY_ERR  the converted buffer could not be made; no file is opened
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2PixelBuffer_save(CVPixelBufferRef pixelBuffer, const char *path, bool unused);

KIVCS2_END_DECLS

#endif
