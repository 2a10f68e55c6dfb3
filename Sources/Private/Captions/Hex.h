// Hexadecimal text of caption files to packet bytes.
#ifndef KIV_PRIVATE_CAPTIONS_HEX_H
#define KIV_PRIVATE_CAPTIONS_HEX_H

#include "KIVCS2ClosedCaptions.h"
#include "Private/Support/Cpu.h"

#include <span>
#include <string_view>

namespace kiv
{
// One byte more than a whole ancillary packet needs never fits: DID, SDID, DC, 255 words, checksum.
constexpr uint32_t kCaptionBytesMax = 259;

// Values of the digits, kNoDigit for every other character; upper case only, or either case.
constexpr uint8_t kNoDigit = 0xFF;
[[nodiscard]] uint8_t upperHexValue(char digit) noexcept;
[[nodiscard]] uint8_t anyHexValue(char digit) noexcept;

// Appends half a byte to the caption, as kivCS2ClosedCaptionsMCCStream_writeNibble() promises.
[[nodiscard]] KIVCS2Status storeNibble(KIVCS2ClosedCaption &caption, bool &lowHalf, uint8_t nibble) noexcept;

// Decodes pairs of upper-case digits from the front of `text` until one is no pair of digits, the text
// ends or `out` is full; returns the count of bytes. Nothing is written behind the last byte except
// zeros, which a cleared record holds there anyway.
[[nodiscard]] size_t decodeHexPairs(std::string_view text, std::span<uint8_t> out) noexcept;
// The same with the instructions of one level, which this machine must have.
[[nodiscard]] size_t decodeHexPairs(CpuLevel level, std::string_view text, std::span<uint8_t> out) noexcept;

// Decodes words of either case, spaces skipped wherever they stand, into a cleared caption.
[[nodiscard]] KIVCS2Status decodeHexWords(std::string_view text, KIVCS2ClosedCaption &caption) noexcept;
} // namespace kiv

#endif
