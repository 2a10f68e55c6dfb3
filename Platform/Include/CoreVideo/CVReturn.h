/**
 * @file
 * Results of the CoreVideo calls.
 */
#ifndef KIV_CV_RETURN_H
#define KIV_CV_RETURN_H

#include <stdint.h>

typedef int32_t CVReturn;
enum
{
    kCVReturnSuccess = 0,
    kCVReturnError = -6660,
    kCVReturnInvalidArgument = -6661,
    kCVReturnAllocationFailed = -6662,
    kCVReturnInvalidPixelFormat = -6680,
    kCVReturnInvalidSize = -6681
};

#endif
