// The text forms of MCC files: the header's items, the letter compression, and the timecode that
// opens a line of MCC and SCC files alike.
#ifndef KIV_PRIVATE_CAPTIONS_MCC_H
#define KIV_PRIVATE_CAPTIONS_MCC_H

#include "KIVCS2ClosedCaptions.h"

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace kiv
{
// The items of a header in the order they are written; MCC 1.0 and 2.0.
extern const std::string_view mccComment;
constexpr std::string_view mccUUID = "\nUUID=";
constexpr std::string_view mccCreationProgram = "\nCreation Program=";
constexpr std::string_view mccCreationDate = "\nCreation Date=";
constexpr std::string_view mccCreationTime = "\nCreation Time=";
constexpr std::string_view mccTimeCodeRate = "\nTime Code Rate=";

// One letter of the compression; V to Y stand for no bytes.
constexpr size_t kLetterRoom = 32;
using MCCLetterBytes = std::array<uint8_t, kLetterRoom>; // with zeros behind the letter's: copied at once
struct MCCLetter
{
    char letter;
    uint8_t size;
    const uint8_t *bytes; // kLetterRoom of them; null for V to Y
};
extern const std::array<MCCLetter, 20> mccEncoding;

// Writes `packet` as letters and upper-case digits to `text`, which has room for two characters a
// byte, and returns the count of characters. The letter `without` is not used.
size_t compressMCCPacket(std::span<const uint8_t> packet, char *text, char without = '\0') noexcept;

// Decodes what stands behind the tab of a line into a cleared caption.
[[nodiscard]] KIVCS2Status decodeMCCPacket(std::string_view text, KIVCS2ClosedCaption &caption) noexcept;

// The first 11 characters of a line, "HH:MM:SS:FF" with ":" or ";" at each separator, and a terminator.
using TimecodeText = std::array<char, 12>;
constexpr size_t kTimecodeLength = 11;

// Copies the timecode that opens a line, every separator as ":"; false if the line opens otherwise.
[[nodiscard]] bool copyTimecodeText(std::string_view line, TimecodeText &text) noexcept;

// The suffixes of a version 2 line, ".f" and ",n", from its position 11 on. Fills the caption's field,
// number and flags and moves `position` behind them; false if they are malformed.
[[nodiscard]] bool readMCCSuffixes(std::string_view line, size_t &position,
                                   KIVCS2ClosedCaption &caption) noexcept;
} // namespace kiv

#endif
