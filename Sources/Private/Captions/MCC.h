// The text forms of MCC files: the header's items, the letter compression, and the timecode at the start
// of a line, which SCC files have too.
#ifndef KIV_PRIVATE_CAPTIONS_MCC_H
#define KIV_PRIVATE_CAPTIONS_MCC_H

#include "KIVCS2ClosedCaptions.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace kiv
{
// The items of a header in their order in the file; MCC 1.0 and 2.0.
extern const std::string_view mccComment;
constexpr std::string_view mccUUID = "\nUUID=";
constexpr std::string_view mccCreationProgram = "\nCreation Program=";
constexpr std::string_view mccCreationDate = "\nCreation Date=";
constexpr std::string_view mccCreationTime = "\nCreation Time=";
constexpr std::string_view mccTimeCodeRate = "\nTime Code Rate=";

// One letter of the compression; V to Y have no bytes.
constexpr size_t kLetterRoom = 32;
using MCCLetterBytes = std::array<uint8_t, kLetterRoom>; // zeros follow the letter's bytes: copied at once
struct MCCLetter
{
    char letter;
    uint8_t size;
    const uint8_t *bytes; // kLetterRoom of them; null for V to Y
};
extern const std::array<MCCLetter, 20> mccEncoding;

// Writes `packet` as letters and upper-case digits to `text`, which has room for two characters for each
// byte, and returns the count of characters. The letter `without` is not used.
size_t compressMCCPacket(std::span<const uint8_t> packet, char *text, char without = '\0') noexcept;

// Decodes the text after the tab of a line into a cleared caption.
[[nodiscard]] KIVCS2Status decodeMCCPacket(std::string_view text, KIVCS2ClosedCaption &caption) noexcept;

// The first 11 characters of a line, "HH:MM:SS:FF" with ":" or ";" at each separator, and a terminator.
using TimecodeText = std::array<char, 12>;
constexpr size_t kTimecodeLength = 11;

// Copies the timecode at the start of a line, with ":" for each separator; returns false if there is none.
[[nodiscard]] bool copyTimecodeText(std::string_view line, TimecodeText &text) noexcept;

// Reads the suffixes of a version 2 line, ".f" and ",n", from position 11 on. Fills the caption's field,
// number and flags and moves `position` past them; returns false if they are malformed.
[[nodiscard]] bool readMCCSuffixes(std::string_view line, size_t &position,
                                   KIVCS2ClosedCaption &caption) noexcept;
} // namespace kiv

#endif
