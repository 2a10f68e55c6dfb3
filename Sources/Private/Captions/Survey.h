// What the first lines of a caption file say about it, before any of them is read: which kind it is,
// how its frames are counted, of which field its pairs are. Every line has a vote, so that one damaged
// line decides nothing.
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
    uint32_t semicolons = 0, colons = 0;  // before the frames
    uint32_t wordLines = 0;               // data of four-digit words: SCC
    uint32_t packetLines = 0;             // data of another form: MCC
    uint32_t cueLines = 0;                // times of SRT or WebVTT
    uint32_t suffixes = 0;                // lines with a suffix of MCC 2
    uint32_t fieldCodes[2] = {};          // control codes of CEA-608 that name their field
    std::array<uint32_t, 16> rateCodes{}; // CDPs, by cdp_frame_rate
    std::array<uint8_t, 100> frames{};    // lines, by the number of their frame
    std::string_view rate;                // behind "Time Code Rate=", wherever it stands

    [[nodiscard]] bool drops() const;
    // The rate code of more than half of the CDPs; 0 if there is none.
    [[nodiscard]] uint8_t rateCode() const;
    // True if several lines name frames that a second of `numbers` does not have.
    [[nodiscard]] bool exceeds(uint32_t numbers) const;
    [[nodiscard]] KIVCS2CaptionFileKind kind() const;
    // True for SRT and WebVTT, which are not read.
    [[nodiscard]] bool isCues() const
    {
        return cueLines > 0 && captionLines == 0;
    }
};

// "00:00:01,000 --> 00:00:02,000", and without the hours.
[[nodiscard]] bool isCueLine(std::string_view line);

[[nodiscard]] Survey surveyText(std::string_view text);

// The kind that a line names. `exact` is false if it is spelled in another case.
[[nodiscard]] KIVCS2CaptionFileKind kindOfLine(std::string_view line, bool &exact);

// What stands behind `key` in a line that begins with it in any case; null data if it does not.
[[nodiscard]] std::string_view valueOf(std::string_view line, std::string_view key, bool &exact);

constexpr std::string_view kRateKey = "Time Code Rate=";

// The counting of a file, and why; a fault if it cannot be known or must not be believed.
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
