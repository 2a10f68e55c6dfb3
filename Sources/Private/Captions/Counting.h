// Countings: how the digits of a timecode number frames at a rate that the caller names.
#ifndef KIV_PRIVATE_CAPTIONS_COUNTING_H
#define KIV_PRIVATE_CAPTIONS_COUNTING_H

#include "KIVCS2CaptionPacket.h"

#include <optional>
#include <string_view>

namespace kiv::cc
{
constexpr size_t kTimecodeSize = 11; // HH:MM:SS:FF

// Returns the row of a counting; null if it is not a counting.
[[nodiscard]] const KIVCS2CaptionCountingInfo *countingInfo(KIVCS2CaptionCounting counting);

[[nodiscard]] constexpr bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

// The fields of a timecode's eleven characters. A frame of this number may not exist.
struct TimeFields
{
    uint32_t hours, minutes, seconds, frames;
    char separator; // before the frames: ":", ";", "." or ","
};
// Reads the timecode at the start of `text`; empty if there is none.
[[nodiscard]] std::optional<TimeFields> takeTime(std::string_view text);

// Returns true for numbers that drop-frame leaves out.
[[nodiscard]] bool isDropped(const KIVCS2CaptionCountingInfo &info, const TimeFields &time);
// Returns the frames since midnight: the next frame if the number is left out, empty if the time does not
// exist.
[[nodiscard]] std::optional<uint32_t> frameOf(const KIVCS2CaptionCountingInfo &info, const TimeFields &time);
// Writes kTimecodeSize characters without a terminator, with `separator` before the frames.
void writeTimecode(const KIVCS2CaptionCountingInfo &info, uint32_t frame, char separator, char *text);

// Returns the counting of a "Time Code Rate=" text in any case; the whole rate if the text means two rates.
[[nodiscard]] KIVCS2CaptionCounting countingOfMCCRate(std::string_view text);
// Returns true if CDPs of this rate code belong under the counting's text in an MCC header: "30" means
// 29.97 or 30 without dropped numbers, "24" means 23.98 or 24.
[[nodiscard]] bool rateAgrees(const KIVCS2CaptionCountingInfo &info, uint8_t rateCode);
// Returns the counting with the same MCC text whose rate is that of the code; `counting` if there is none.
[[nodiscard]] KIVCS2CaptionCounting withRateCode(KIVCS2CaptionCounting counting, uint8_t rateCode);
// Returns the counting of a rate code, with or without dropped numbers; 0 for codes without a rate.
[[nodiscard]] KIVCS2CaptionCounting countingOfRateCode(uint8_t rateCode, bool drop);
} // namespace kiv::cc

#endif
