/**
 * @file
 * The form in which network calls report their errors.
 */
#ifndef KIV_CF_STREAM_H
#define KIV_CF_STREAM_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef struct CFStreamError
{
    CFIndex domain; /**< the set of numbers that `error` belongs to */
    SInt32 error;   /**< 0: no error */
} CFStreamError;

CF_EXTERN_C_END

#endif
