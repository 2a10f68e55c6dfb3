/**
 * @file
 * Media time: a count of units, of which `timescale` make a second.
 */
#ifndef KIV_CM_TIME_H
#define KIV_CM_TIME_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef int64_t CMTimeValue;
typedef int32_t CMTimeScale; /**< units a second */
typedef int64_t CMTimeEpoch; /**< distinguishes the rounds of a loop; 0 otherwise */

typedef uint32_t CMTimeFlags;
enum
{
    kCMTimeFlags_Valid = 1u << 0,
    kCMTimeFlags_HasBeenRounded = 1u << 1,
    kCMTimeFlags_PositiveInfinity = 1u << 2,
    kCMTimeFlags_NegativeInfinity = 1u << 3,
    kCMTimeFlags_Indefinite = 1u << 4
};

typedef struct
{
    CMTimeValue value;
    CMTimeScale timescale;
    CMTimeFlags flags; /**< without kCMTimeFlags_Valid the other members mean nothing */
    CMTimeEpoch epoch;
} CMTime;

/** The valid time `value` / `timescale` seconds, in epoch 0. Any thread. */
CF_EXPORT CMTime CMTimeMake(int64_t value, int32_t timescale);

CF_EXTERN_C_END

#endif
