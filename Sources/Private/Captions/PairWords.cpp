// CEA-608 byte pairs in words, as kivCS2CaptionDecoder_describePair() describes them.
#include "Private/Captions/PairWords.h"

#include "Private/Captions/Characters.h"

#include <array>
#include <cstdio>

namespace kiv::cc
{
namespace
{
constexpr std::array kAttributes = {"white", "green", "blue", "cyan", "red", "yellow", "magenta", "italics"};
constexpr std::array kBackgrounds = {"white", "green", "blue", "cyan", "red", "yellow", "magenta", "black"};
constexpr std::array kCommands = {"resume caption loading",
                                  "backspace",
                                  "reserved command 2",
                                  "reserved command 3",
                                  "delete to end of row",
                                  "roll-up captions 2 rows",
                                  "roll-up captions 3 rows",
                                  "roll-up captions 4 rows",
                                  "flash on",
                                  "resume direct captioning",
                                  "text restart",
                                  "resume text display",
                                  "erase displayed memory",
                                  "carriage return",
                                  "erase nondisplayed memory",
                                  "end of caption"};
// Row of a preamble. Index: the low 3 bits of the first byte, then bit 5 of the second.
constexpr std::array<uint8_t, 16> kPreambleRow = {11, 11, 1, 2, 3, 4, 12, 13, 14, 15, 5, 6, 7, 8, 9, 10};

// A pair as its code: the first byte without its channel bit, the second byte, and the words.
struct Code
{
    uint8_t set, second;
    const char *channel;

    [[nodiscard]] bool in(uint8_t from, uint8_t to) const
    {
        return second >= from && second <= to;
    }
    [[nodiscard]] unsigned attribute() const
    {
        return second >> 1 & 7u;
    }
    [[nodiscard]] const char *underline() const
    {
        return (second & 1u) != 0 ? ", underline" : "";
    }
};

struct UTF8
{
    std::array<char, 5> text{};
    explicit UTF8(char32_t character)
    {
        (void)writeUTF8(character, text.data()); // 4 bytes at most
    }
};

void describeCharacter(const Code &code, PairText text)
{
    const bool special = code.set == 0x11;
    const char32_t character =
        special ? specialCharacter(code.second) : extendedCharacter(code.set, code.second);
    if (character == 0)
        std::snprintf(text.data(), text.size(), "transparent space%s", code.channel);
    else
        std::snprintf(text.data(), text.size(), "%s character %s%s", special ? "special" : "extended",
                      UTF8{character}.text.data(), code.channel);
}

void describePreamble(const Code &code, PairText text)
{
    const unsigned row = kPreambleRow[(code.set & 7u) * 2u + (code.second >> 5 & 1u)];
    if ((code.second & 0x10u) != 0)
        std::snprintf(text.data(), text.size(), "row %u indent %u%s%s", row, code.attribute() * 4,
                      code.underline(), code.channel);
    else
        std::snprintf(text.data(), text.size(), "row %u %s%s%s", row, kAttributes[code.attribute()],
                      code.underline(), code.channel);
}

// Returns the meaning of a code of set 17, or null if it is not a code.
const char *tabOrBlack(uint8_t second)
{
    switch (second)
    {
    case 0x21:
        return "tab 1";
    case 0x22:
        return "tab 2";
    case 0x23:
        return "tab 3";
    case 0x2D:
        return "background transparent";
    case 0x2E:
        return "text black";
    case 0x2F:
        return "text black, underline";
    default:
        return nullptr;
    }
}

void describeCode(const Code &code, PairText text)
{
    const bool isLow = code.in(0x20, 0x2F);
    const char *words = nullptr;
    text[0] = '\0';
    if (code.second >= 0x40)
        return describePreamble(code, text);
    if (code.set == 0x11 && isLow)
        std::snprintf(text.data(), text.size(), "%s%s%s", kAttributes[code.attribute()], code.underline(),
                      code.channel);
    else if (code.set >= 0x11 && code.set <= 0x13 && code.in(0x20, 0x3F))
        describeCharacter(code, text);
    else if (code.set == 0x10 && isLow)
        std::snprintf(text.data(), text.size(), "background %s%s%s", kBackgrounds[code.attribute()],
                      (code.second & 1u) != 0 ? " semi-transparent" : "", code.channel);
    else if ((code.set == 0x14 || code.set == 0x15) && isLow)
        words = kCommands[code.second & 0x0Fu];
    else if (code.set == 0x17)
        words = tabOrBlack(code.second);
    if (words != nullptr)
        std::snprintf(text.data(), text.size(), "%s%s", words, code.channel);
    else if (text[0] == '\0')
        std::snprintf(text.data(), text.size(), "unknown code %02x %02x%s", code.set, code.second,
                      code.channel);
}
} // namespace

void describePair(uint8_t first, uint8_t second, PairText text)
{
    if (first >= 0x20)
        std::snprintf(text.data(), text.size(), "characters %s%s", UTF8{basicCharacter(first)}.text.data(),
                      second >= 0x20 ? UTF8{basicCharacter(second)}.text.data() : "");
    else if (first >= 0x10)
        describeCode({static_cast<uint8_t>(first & 0x77), second, (first & 8u) != 0 ? " (channel 2)" : ""},
                     text);
    else
        std::snprintf(text.data(), text.size(), "extended data %02x %02x", first, second);
}
} // namespace kiv::cc
