// The frame rate of a fuzzed timecode, picked by a byte of the input.
#ifndef KIV_FUZZ_TIMECODE_RATE_H
#define KIV_FUZZ_TIMECODE_RATE_H

#include "Require.h"

#include "KIVCS2Timecode.h"

#include <cstdint>

namespace kiv::fuzz
{
// Building the tables of a rate takes longer than the rest of an input, so the rate seldom changes: a byte
// below 8 is a rate, every other byte is 29.97, which drops frame numbers.
inline void setRate(uint8_t choice)
{
    static KIVCS2FrameRate current = KIVCS2FrameRate_MAX;
    const KIVCS2FrameRate rate =
        choice < KIVCS2FrameRate_MAX ? choice : KIVCS2FrameRate{KIVCS2FrameRate_29_97};
    if (rate == current)
        return;
    require(kivCS2Timecode_setFrameRate(rate) == KIVCS2STATUS_OK);
    current = rate;
}
} // namespace kiv::fuzz

#endif
