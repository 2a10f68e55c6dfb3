/**
 * @file
 * The form in which calls of the network report their errors.
 */
#ifndef KIV_CF_STREAM_H
#define KIV_CF_STREAM_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef struct CFStreamError
{
    CFIndex domain; /**< whose number `error` is */
    SInt32 error;   /**< 0: none */
} CFStreamError;

CF_EXTERN_C_END

#endif
