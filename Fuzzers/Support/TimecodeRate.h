// The frame rate of a fuzzed timecode, picked by a byte of the input.
#ifndef KIV_FUZZ_TIMECODE_RATE_H
#define KIV_FUZZ_TIMECODE_RATE_H

#include "Require.h"

#include "KIVCS2Timecode.h"

#include <cstdint>

namespace kiv::fuzz
{
// Building the tables of a rate costs more than all else in an input, so that rates must seldom change:
// the bytes below 8 are the rates, and every other byte is 29.97, which leaves numbers out.
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
