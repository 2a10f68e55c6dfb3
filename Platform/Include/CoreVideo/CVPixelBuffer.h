/**
 * @file
 * Pixel buffers: one picture in memory, in rows of equal length, with a reference count and a count of locks.
 *
 * A buffer is an object of CoreFoundation, so CFRetain, CFRelease and CFGetRetainCount take it too. Its memory is
 * reached between CVPixelBufferLockBaseAddress() and CVPixelBufferUnlockBaseAddress(), which count, and
 * which keep nobody else away: threads that share a buffer agree among themselves. Counts may change on any
 * thread. A NULL buffer is answered and not followed.
 */
#ifndef KIV_CV_PIXEL_BUFFER_H
#define KIV_CV_PIXEL_BUFFER_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreVideo/CVReturn.h>

CF_EXTERN_C_BEGIN

typedef struct __CVBuffer *CVBufferRef;
typedef CVBufferRef CVImageBufferRef;
typedef CVImageBufferRef CVPixelBufferRef;

/** The pixel formats that buffers are made in: a number of the older ones, else four characters. */
enum
{
    kCVPixelFormatType_24RGB = 0x00000018,           /**< bytes R G B */
    kCVPixelFormatType_32ARGB = 0x00000020,          /**< four bytes a pixel */
    kCVPixelFormatType_32BGRA = 0x42475241,          /**< 'BGRA' */
    kCVPixelFormatType_422YpCbCr8 = 0x32767579,      /**< '2vuy': bytes Cb Y0 Cr Y1 for two pixels */
    kCVPixelFormatType_422YpCbCr8_yuvs = 0x79757673, /**< 'yuvs': bytes Y0 Cb Y1 Cr for two pixels */
    kCVPixelFormatType_422YpCbCr10 = 0x76323130      /**< 'v210': three components a 32-bit word */
};

typedef uint64_t CVPixelBufferLockFlags;
enum
{
    kCVPixelBufferLock_ReadOnly = 0x00000001 /**< the holder does not write; both calls take the same flags */
};

/** Called once, with the last reference, when the bytes of a buffer are no longer needed. */
typedef void (*CVPixelBufferReleaseBytesCallback)(void *releaseRefCon, const void *baseAddress);

CF_EXPORT CFTypeID CVPixelBufferGetTypeID(void);

/**
 * A buffer with memory of its own. The first row and each that follows stand at a multiple of 64 bytes ('v210': of
 * 128 bytes for 48 pixels); what the rows have beyond their pixels is zero, the pixels are not set.
 * @param[in] width, height         pixels, at least 1 each
 * @param[in] pixelBufferAttributes  not looked at; may be NULL
 * @param[out] pixelBufferOut        the buffer, released by the caller; NULL on a failure
 * @return kCVReturnInvalidPixelFormat, kCVReturnInvalidSize for a size of 0 or one that no memory can have,
 *         kCVReturnAllocationFailed, or kCVReturnInvalidArgument for a NULL `pixelBufferOut`
 */
CF_EXPORT CVReturn CVPixelBufferCreate(CFAllocatorRef allocator, size_t width, size_t height,
                                       OSType pixelFormatType, CFDictionaryRef pixelBufferAttributes,
                                       CVPixelBufferRef *pixelBufferOut);

/**
 * A buffer over the caller's memory: `height` rows of `bytesPerRow` bytes each, of any alignment.
 * @param[in] baseAddress      not NULL; the caller's until `releaseCallback`
 * @param[in] bytesPerRow      at least what whole pixels need: pairs of 4 bytes in '2vuy', six pixels of 16 bytes in 'v210'
 * @param[in] releaseCallback  may be NULL; called on the thread that releases last, not after a failure
 * @return as CVPixelBufferCreate(), and kCVReturnInvalidArgument for no memory and for rows that are too short
 */
CF_EXPORT CVReturn CVPixelBufferCreateWithBytes(CFAllocatorRef allocator, size_t width, size_t height,
                                                OSType pixelFormatType, void *baseAddress, size_t bytesPerRow,
                                                CVPixelBufferReleaseBytesCallback releaseCallback,
                                                void *releaseRefCon, CFDictionaryRef pixelBufferAttributes,
                                                CVPixelBufferRef *pixelBufferOut);

/** Adds one reference and returns the buffer; NULL is returned. */
CF_EXPORT CVPixelBufferRef CVPixelBufferRetain(CVPixelBufferRef texture);
/** Takes one reference away; the last one ends the buffer, locked or not. NULL is left alone. */
CF_EXPORT void CVPixelBufferRelease(CVPixelBufferRef texture);

/** Adds one lock: the base address stands until it is taken away. kCVReturnInvalidArgument for NULL. */
CF_EXPORT CVReturn CVPixelBufferLockBaseAddress(CVPixelBufferRef pixelBuffer,
                                                CVPixelBufferLockFlags lockFlags);
/** Takes one lock away. kCVReturnInvalidArgument for NULL, kCVReturnError without a lock. */
CF_EXPORT CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBufferRef pixelBuffer,
                                                  CVPixelBufferLockFlags unlockFlags);

/** Pixels; 0 for NULL. */
CF_EXPORT size_t CVPixelBufferGetWidth(CVPixelBufferRef pixelBuffer);
/** Rows; 0 for NULL. */
CF_EXPORT size_t CVPixelBufferGetHeight(CVPixelBufferRef pixelBuffer);
/** The format the buffer was made in; 0 for NULL. */
CF_EXPORT OSType CVPixelBufferGetPixelFormatType(CVPixelBufferRef pixelBuffer);
/** The first row while the buffer is locked, otherwise NULL. */
CF_EXPORT void *CVPixelBufferGetBaseAddress(CVPixelBufferRef pixelBuffer);
/** From one row to the next, padding included; 0 for NULL. */
CF_EXPORT size_t CVPixelBufferGetBytesPerRow(CVPixelBufferRef pixelBuffer);

CF_EXTERN_C_END

#endif
