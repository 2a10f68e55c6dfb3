// The character sets of CEA-608 and CEA-708 as Unicode, and UTF-8.
#ifndef KIV_PRIVATE_CAPTIONS_CHARACTERS_H
#define KIV_PRIVATE_CAPTIONS_CHARACTERS_H

#include <cstddef>
#include <cstdint>

namespace kiv::cc
{
// CEA-608: the basic set, 20h to 7Fh.
[[nodiscard]] char32_t basicCharacter(uint8_t code);
// 30h to 3Fh after 11h; the transparent space is 0, an empty cell.
[[nodiscard]] char32_t specialCharacter(uint8_t code);
// 20h to 3Fh after 12h or 13h.
[[nodiscard]] char32_t extendedCharacter(uint8_t set, uint8_t code);

// CEA-708: G0 and G1 directly, G2 and G3 after EXT1; "_" for codes without a character.
[[nodiscard]] char32_t serviceCharacter(uint8_t code);
[[nodiscard]] char32_t extendedServiceCharacter(uint8_t code);

// Writes up to 4 bytes without a terminator and returns their count. A value that is not a character is
// written as U+FFFD.
size_t writeUTF8(char32_t character, char *out);
} // namespace kiv::cc

#endif
