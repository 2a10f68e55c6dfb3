// Counting: how a timecode's digits name frames. The library numbers frames by one rate for the
// whole process; the command chooses it from the text or the file.
#ifndef KIV_TOOL_COUNTING_H
#define KIV_TOOL_COUNTING_H

#include <KIVCoreServices2/KIVCS2Timecode.h>
#include <KIVCoreServices2/KIVCS2VideoFormat.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

/// A frame rate with the numbering of its frames. 29.97 and 59.94 occur twice, with
/// and without dropped frame numbers; the library numbers the second kind as 30 and 60.
struct Counting
{
    std::string_view name;  ///< as on the command line: "29.97df"
    std::string_view alias; ///< a second name, or empty
    std::string_view title; ///< for people
    KIVCS2FrameRate code;   ///< the library rate with this numbering
    bool drop;              ///< frame numbers are dropped
    uint32_t numerator;     ///< frames a second, exactly, as a fraction
    uint32_t denominator;
    uint8_t cdpCode;          ///< cdp_frame_rate (SMPTE ST 334-2, table 3)
    std::string_view mccText; ///< "Time Code Rate=" of an MCC file
};

[[nodiscard]] std::span<const Counting> countings();
[[nodiscard]] std::vector<std::string> rateNames();

/// The counting named by `rate` ("25", "29.97df"; for "29.97" and "59.94" the separator decides:
/// ";" drops frame numbers, ":" does not, and no separator does).
/// Throws a usage failure for an unknown rate, and for ";" at a rate that drops nothing.
[[nodiscard]] const Counting &countingFor(std::string_view rate, std::optional<char> separator);

/// Without a rate: ";" is 29.97 drop-frame, anything else 29.97 non-drop.
[[nodiscard]] const Counting &countingFor(std::optional<char> separator);

/// The counting of an MCC file's "Time Code Rate="; null if it names none.
[[nodiscard]] const Counting *countingForMCC(std::string_view text);

/// "23.98", "29.97" ... for a cdp_frame_rate code; "reserved" for the others.
[[nodiscard]] std::string_view cdpRateName(uint8_t cdpCode);

/// Makes the library number frames this way from now on.
void use(const Counting &counting);

/// The separator before the frames: the last of the three in a timecode text, if it is there.
[[nodiscard]] std::optional<char> separatorOf(std::string_view text);

/// Reads "10:00:00:00", "10:00:00;00", "15.3.2024 10:00:00:00" or a number of frames with the
/// counting in use. Throws if the text is none of these or names no frame.
[[nodiscard]] KIVCS2Timecode parseTimecode(std::string_view text, const Counting &counting);

/// The text of a timecode in the counting in use, with its date if it has one.
[[nodiscard]] std::string timecodeText(const KIVCS2Timecode &timecode);
[[nodiscard]] std::string timecodeText(uint32_t frames);

/// Frames since midnight.
[[nodiscard]] uint32_t framesOf(const KIVCS2Timecode &timecode);

/// Seconds of real time that `frames` last, from the exact rate.
[[nodiscard]] double exactSeconds(uint32_t frames, const Counting &counting);

} // namespace tool

#endif
