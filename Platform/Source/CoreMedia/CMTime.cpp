// Media time.
#include <CoreMedia/CMTime.h>

CMTime CMTimeMake(int64_t value, int32_t timescale)
{
    return {value, timescale, kCMTimeFlags_Valid, 0};
}
