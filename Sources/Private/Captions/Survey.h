// A survey of the first lines of a caption file before any of them is read: the kind of file, the counting
// of its frames, and the field of its pairs. Every line has a vote, so one damaged line does not decide.
#ifndef KIV_PRIVATE_CAPTIONS_SURVEY_H
#define KIV_PRIVATE_CAPTIONS_SURVEY_H

#include "KIVCS2CaptionFile.h"

#include <array>
#include <string_view>

namespace kiv::cc
{
struct Survey
{
    uint32_t captionLines = 0;
    uint32_t semicolons = 0, colons = 0;  // separators before the frames
    uint32_t wordLines = 0;               // data of four-digit words: SCC
    uint32_t packetLines = 0;             // data of another form: MCC
    uint32_t cueLines = 0;                // times of SRT or WebVTT
    uint32_t suffixes = 0;                // lines with a suffix of MCC 2
    uint32_t fieldCodes[2] = {};          // control codes of CEA-608 that name their field
    std::array<uint32_t, 16> rateCodes{}; // CDPs, by cdp_frame_rate
    std::array<uint8_t, 100> frames{};    // lines, by the number of their frame
    std::string_view rate;                // after "Time Code Rate=", on any line

    [[nodiscard]] bool drops() const;
    // Returns the rate code of more than half of the CDPs; 0 if there is none.
    [[nodiscard]] uint8_t rateCode() const;
    // Returns true if several lines have frame numbers that a second of `numbers` frames does not have.
    [[nodiscard]] bool exceeds(uint32_t numbers) const;
    [[nodiscard]] KIVCS2CaptionFileKind kind() const;
    // Returns true for SRT and WebVTT, which are not read.
    [[nodiscard]] bool isCues() const
    {
        return cueLines > 0 && captionLines == 0;
    }
};

// Returns true for "00:00:01,000 --> 00:00:02,000", also without the hours.
[[nodiscard]] bool isCueLine(std::string_view line);

[[nodiscard]] Survey surveyText(std::string_view text);

// Returns the kind that a line names. `exact` is false if it is spelled in another case.
[[nodiscard]] KIVCS2CaptionFileKind kindOfLine(std::string_view line, bool &exact);

// Returns the text after `key` if the line begins with `key` in any case, otherwise a view with null data.
[[nodiscard]] std::string_view valueOf(std::string_view line, std::string_view key, bool &exact);

constexpr std::string_view kRateKey = "Time Code Rate=";

// The counting of a file and its source; a fault if the counting is unknown or cannot be trusted.
struct CountingChoice
{
    KIVCS2CaptionCounting counting = KIVCS2CaptionCounting_FindOut;
    KIVCS2CaptionReason reason = KIVCS2CaptionReason_None;
    KIVCS2CaptionFault fault = KIVCS2CaptionFault_None;
};
[[nodiscard]] CountingChoice chooseCounting(KIVCS2CaptionFileKind kind, std::string_view rate,
                                            const Survey &survey);
} // namespace kiv::cc

#endif
