// Hexadecimal text of caption files to packet bytes.
#ifndef KIV_PRIVATE_CAPTIONS_HEX_H
#define KIV_PRIVATE_CAPTIONS_HEX_H

#include "KIVCS2ClosedCaptions.h"
#include "Private/Support/Cpu.h"

#include <span>
#include <string_view>

namespace kiv
{
// Bytes of the longest ancillary packet: DID, SDID, DC, 255 words, checksum.
constexpr uint32_t kCaptionBytesMax = 259;

// Values of the digits, in upper case only or in either case; kNoDigit for every other character.
constexpr uint8_t kNoDigit = 0xFF;
[[nodiscard]] uint8_t upperHexValue(char digit) noexcept;
[[nodiscard]] uint8_t anyHexValue(char digit) noexcept;

// Appends half a byte to the caption, as kivCS2ClosedCaptionsMCCStream_writeNibble() documents.
[[nodiscard]] KIVCS2Status storeNibble(KIVCS2ClosedCaption &caption, bool &lowHalf, uint8_t nibble) noexcept;

// Decodes pairs of upper-case digits from the start of `text` until a pair is not two digits, the text
// ends or `out` is full; returns the count of bytes. After the last byte it writes only zeros, which a
// cleared record holds there anyway.
[[nodiscard]] size_t decodeHexPairs(std::string_view text, std::span<uint8_t> out) noexcept;
// The same with the instructions of one level, which the machine must have.
[[nodiscard]] size_t decodeHexPairs(CpuLevel level, std::string_view text, std::span<uint8_t> out) noexcept;

// Decodes words of either case into a cleared caption and skips all spaces.
[[nodiscard]] KIVCS2Status decodeHexWords(std::string_view text, KIVCS2ClosedCaption &caption) noexcept;
} // namespace kiv

#endif
