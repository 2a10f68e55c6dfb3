// Countings: how the digits of a timecode number frames, at a rate that the caller names.
#ifndef KIV_PRIVATE_CAPTIONS_COUNTING_H
#define KIV_PRIVATE_CAPTIONS_COUNTING_H

#include "KIVCS2CaptionPacket.h"

#include <optional>
#include <string_view>

namespace kiv::cc
{
constexpr size_t kTimecodeSize = 11; // HH:MM:SS:FF

// The row of a counting; null if it is none.
[[nodiscard]] const KIVCS2CaptionCountingInfo *countingInfo(KIVCS2CaptionCounting counting);

[[nodiscard]] constexpr bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

// The eleven characters of a timecode taken apart. The digits may still name no frame.
struct TimeFields
{
    uint32_t hours, minutes, seconds, frames;
    char separator; // before the frames: ":", ";", "." or ","
};
// Takes the timecode that `text` opens with; nothing if it opens otherwise.
[[nodiscard]] std::optional<TimeFields> takeTime(std::string_view text);

// True for numbers that drop-frame leaves out.
[[nodiscard]] bool isDropped(const KIVCS2CaptionCountingInfo &info, const TimeFields &time);
// Frames since midnight, of a number left out the next one; nothing if there is no such time.
[[nodiscard]] std::optional<uint32_t> frameOf(const KIVCS2CaptionCountingInfo &info, const TimeFields &time);
// Writes kTimecodeSize characters without a terminator; `separator` stands before the frames.
void writeTimecode(const KIVCS2CaptionCountingInfo &info, uint32_t frame, char separator, char *text);

// The counting of "Time Code Rate=" in any case; of a text that stands for two, the whole rate.
[[nodiscard]] KIVCS2CaptionCounting countingOfMCCRate(std::string_view text);
// True if CDPs of this rate code belong under the counting's text in an MCC header: "30" stands for
// 29.97 and 30 without dropped numbers alike, "24" for 23.98 and 24.
[[nodiscard]] bool rateAgrees(const KIVCS2CaptionCountingInfo &info, uint8_t rateCode);
// The counting under the same MCC text whose rate is that of the code; `counting` if there is none.
[[nodiscard]] KIVCS2CaptionCounting withRateCode(KIVCS2CaptionCounting counting, uint8_t rateCode);
// The counting of a rate code, with dropped numbers or without; 0 for codes that name no rate.
[[nodiscard]] KIVCS2CaptionCounting countingOfRateCode(uint8_t rateCode, bool drop);
} // namespace kiv::cc

#endif
