// The frame rate of a fuzzed timecode, chosen by a byte of the input.
#ifndef KIV_FUZZ_TIMECODE_RATE_H
#define KIV_FUZZ_TIMECODE_RATE_H

#include "Require.h"

#include "KIVCS2Timecode.h"

#include <cstdint>

namespace kiv::fuzz
{
// The tables of a rate cost more than all else in an input, so the rate must seldom change: a byte below 8
// is a rate, and every other byte is 29.97, which leaves numbers out.
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
