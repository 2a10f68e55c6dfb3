// The base's data for the whole library. Hidden: no host can write it.
#ifndef KIV_PRIVATE_SUPPORT_FRAME_H
#define KIV_PRIVATE_SUPPORT_FRAME_H

#include "KIVCS2Base.h"

#include <mach/mach_time.h>

// The standard CRC-32 table, filled when the library is compiled.
extern const KIVCS2CRC32Param crc32Param;

// Nanoseconds are absolute time times the numerator, divided by the denominator.
extern mach_timebase_info_data_t timebaseInfo;

#endif
