/**
 * @file
 * Pixel buffers: one picture in memory, in rows of equal length, with a reference count and a count of locks.
 *
 * A buffer is a CoreFoundation object, so CFRetain, CFRelease and CFGetRetainCount take it too. Its memory is
 * accessible between CVPixelBufferLockBaseAddress() and CVPixelBufferUnlockBaseAddress(). These only count
 * and do not exclude other threads: threads that share a buffer must synchronise themselves. Counts may
 * change on any thread. Every call accepts a NULL buffer.
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

/** The supported pixel formats: the older ones are small numbers, the others four characters. */
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

/** Called once, when the last reference goes and the bytes of a buffer are no longer needed. */
typedef void (*CVPixelBufferReleaseBytesCallback)(void *releaseRefCon, const void *baseAddress);

CF_EXPORT CFTypeID CVPixelBufferGetTypeID(void);

/**
 * A buffer with memory of its own. Each row starts at a multiple of 64 bytes ('v210': of 128 bytes for 48
 * pixels). The padding of the rows is zero; the pixels are not set.
 * @param[in] width, height         pixels, at least 1 each
 * @param[in] pixelBufferAttributes  ignored; may be NULL
 * @param[out] pixelBufferOut        the buffer, released by the caller; NULL on a failure
 * @return kCVReturnInvalidPixelFormat, kCVReturnInvalidSize for a size of 0 or one too large for any memory,
 *         kCVReturnAllocationFailed, or kCVReturnInvalidArgument for a NULL `pixelBufferOut`
 */
CF_EXPORT CVReturn CVPixelBufferCreate(CFAllocatorRef allocator, size_t width, size_t height,
                                       OSType pixelFormatType, CFDictionaryRef pixelBufferAttributes,
                                       CVPixelBufferRef *pixelBufferOut);

/**
 * A buffer over the caller's memory: `height` rows of `bytesPerRow` bytes each, of any alignment.
 * @param[in] baseAddress      not NULL; must stay valid until `releaseCallback`
 * @param[in] bytesPerRow      at least the bytes of whole groups: pairs of 4 bytes in '2vuy', six pixels of
 *                             16 bytes in 'v210'
 * @param[in] releaseCallback  may be NULL; called on the thread that releases last, not after a failure
 * @return as CVPixelBufferCreate(), and kCVReturnInvalidArgument for a NULL
 *         address and for rows that are too short
 */
CF_EXPORT CVReturn CVPixelBufferCreateWithBytes(CFAllocatorRef allocator, size_t width, size_t height,
                                                OSType pixelFormatType, void *baseAddress, size_t bytesPerRow,
                                                CVPixelBufferReleaseBytesCallback releaseCallback,
                                                void *releaseRefCon, CFDictionaryRef pixelBufferAttributes,
                                                CVPixelBufferRef *pixelBufferOut);

/** Adds one reference and returns the buffer; returns NULL for NULL. */
CF_EXPORT CVPixelBufferRef CVPixelBufferRetain(CVPixelBufferRef texture);
/** Removes one reference; removing the last one ends the buffer, locked or not. NULL is ignored. */
CF_EXPORT void CVPixelBufferRelease(CVPixelBufferRef texture);

/** Adds one lock: the base address is valid until it is removed. kCVReturnInvalidArgument for NULL. */
CF_EXPORT CVReturn CVPixelBufferLockBaseAddress(CVPixelBufferRef pixelBuffer,
                                                CVPixelBufferLockFlags lockFlags);
/** Removes one lock. kCVReturnInvalidArgument for NULL, kCVReturnError without a lock. */
CF_EXPORT CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBufferRef pixelBuffer,
                                                  CVPixelBufferLockFlags unlockFlags);

/** Pixels; 0 for NULL. */
CF_EXPORT size_t CVPixelBufferGetWidth(CVPixelBufferRef pixelBuffer);
/** Rows; 0 for NULL. */
CF_EXPORT size_t CVPixelBufferGetHeight(CVPixelBufferRef pixelBuffer);
/** The format that the buffer was made with; 0 for NULL. */
CF_EXPORT OSType CVPixelBufferGetPixelFormatType(CVPixelBufferRef pixelBuffer);
/** The first row while the buffer is locked, otherwise NULL. */
CF_EXPORT void *CVPixelBufferGetBaseAddress(CVPixelBufferRef pixelBuffer);
/** Bytes from one row to the next, padding included; 0 for NULL. */
CF_EXPORT size_t CVPixelBufferGetBytesPerRow(CVPixelBufferRef pixelBuffer);

CF_EXTERN_C_END

#endif
