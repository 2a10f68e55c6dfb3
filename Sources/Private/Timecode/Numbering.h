// The numbering of the frames of one hour: three digit tables, and the conversion from digits to frames.
#ifndef KIV_PRIVATE_TIMECODE_NUMBERING_H
#define KIV_PRIVATE_TIMECODE_NUMBERING_H

#include "KIVCS2VideoFormat.h"

#include <array>
#include <cstdint>

namespace kiv::timecode
{
constexpr uint32_t kMinutesPerHour = 60;
constexpr uint32_t kSecondsPerMinute = 60;
constexpr uint32_t kNoFrame = 0xFFFFFFFFu;

struct Rate
{
    uint32_t framesPerSecond; // nominal
    uint32_t framesPerHour;
    uint32_t droppedPerMinute; // frame numbers skipped in every minute that is not a multiple of ten
    double realFramesPerSecond;
};

// By KIVCS2FrameRate. These are not the rates of the video formats: here the fractional rates are these
// two-decimal values, and 23.98 counts without dropping (SMPTE ST 12-1 defines no drop frame for it).
inline constexpr std::array<Rate, KIVCS2FrameRate_MAX> kRates = {{
    {24, 86400, 0, 23.98},
    {24, 86400, 0, 24.0},
    {25, 90000, 0, 25.0},
    {30, 107892, 2, 29.97},
    {30, 108000, 0, 30.0},
    {50, 180000, 0, 50.0},
    {60, 215784, 4, 59.94},
    {60, 216000, 0, 60.0},
}};

// Entry i of the digit tables belongs to the i-th frame of an hour. The tables are one heap block.
struct Numbering
{
    uint32_t framesPerSecond;
    uint32_t framesPerHour; // 0 while there are no tables
    uint32_t droppedPerMinute;
    uint32_t *firstFrameOfSecond; // the block; 3600 frames of the hour
    uint8_t *convertFrame;
    uint8_t *convertSecond;
    uint8_t *convertMinute;
};

// Builds the tables of `rate`; false, and an empty record, without memory.
[[nodiscard]] bool makeNumbering(const Rate &rate, Numbering &numbering);
void freeNumbering(Numbering &numbering);

// The frame of the hour with these digits, or kNoFrame. The first frame of the second gives the only
// candidate, and the three tables decide whether it is the right one: a dropped number points at a neighbour,
// whose digits differ.
[[nodiscard]] inline uint32_t frameOfHour(const Numbering &numbering, uint32_t minute, uint32_t second,
                                          uint32_t frame)
{
    if (minute >= kMinutesPerHour || second >= kSecondsPerMinute)
        return kNoFrame;
    const uint32_t first = numbering.firstFrameOfSecond[minute * kSecondsPerMinute + second];
    const uint32_t candidate = first + frame - numbering.convertFrame[first]; // wraps below 0: no frame
    if (candidate >= numbering.framesPerHour || numbering.convertFrame[candidate] != frame ||
        numbering.convertSecond[candidate] != second || numbering.convertMinute[candidate] != minute)
        return kNoFrame;
    return candidate;
}

// The frame of the hour for a clock time: it always exists and belongs to that second. At drop-frame rates it
// is two before the frame that has begun, or next to a dropped number.
[[nodiscard]] uint32_t frameOfClockTime(const Numbering &numbering, uint32_t minute, uint32_t second,
                                        uint32_t millisecond);
} // namespace kiv::timecode

#endif
