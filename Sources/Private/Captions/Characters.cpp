// The character sets of CEA-608 and CEA-708 as Unicode, and UTF-8.
#include "Private/Captions/Characters.h"

#include <algorithm>
#include <array>

namespace kiv::cc
{
namespace
{
constexpr std::array<char32_t, 16> kSpecial = {U'®', U'°', U'½', U'¿', U'™', U'¢', U'£', U'♪',
                                               U'à', 0,    U'è', U'â', U'ê', U'î', U'ô', U'û'};

// 12 20 to 12 3F: Spanish, miscellaneous, French.
constexpr std::array<char32_t, 32> kExtended12 = {
    U'Á', U'É', U'Ó', U'Ú', U'Ü', U'ü', U'‘', U'¡', U'*', U'’', U'—', U'©', U'℠', U'•', U'“', U'”',
    U'À', U'Â', U'Ç', U'È', U'Ê', U'Ë', U'ë', U'Î', U'Ï', U'ï', U'Ô', U'Ù', U'ù', U'Û', U'«', U'»'};

// 13 20 to 13 3F: Portuguese, German, Danish.
constexpr std::array<char32_t, 32> kExtended13 = {
    U'Ã', U'ã', U'Í', U'Ì', U'ì', U'Ò', U'ò', U'Õ', U'õ', U'{', U'}', U'\\', U'^', U'_', U'|', U'~',
    U'Ä', U'ä', U'Ö', U'ö', U'ß', U'¥', U'¤', U'│', U'Å', U'å', U'Ø', U'ø',  U'┌', U'┐', U'└', U'┘'};

struct Replaced
{
    uint8_t code;
    char32_t character;
};

// The basic set is ASCII except for these.
constexpr std::array<Replaced, 10> kBasic = {{{0x2A, U'á'},
                                              {0x5C, U'é'},
                                              {0x5E, U'í'},
                                              {0x5F, U'ó'},
                                              {0x60, U'ú'},
                                              {0x7B, U'ç'},
                                              {0x7C, U'÷'},
                                              {0x7D, U'Ñ'},
                                              {0x7E, U'ñ'},
                                              {0x7F, U'█'}}};

// G2 of CEA-708; its other codes have no character.
constexpr std::array<Replaced, 27> kG2 = {
    {
        {0x20, U' '}, {0x21, U'\u00A0'}, {0x25, U'…'},  {0x2A, U'Š'}, {0x2C, U'Œ'}, {0x30, U'█'},
        {0x31, U'‘'}, {0x32, U'’'},      {0x33, U'“'},  {0x34, U'”'}, {0x35, U'•'}, {0x39, U'™'},
        {0x3A, U'š'}, {0x3C, U'œ'},      {0x3D, U'℠'},  {0x3F, U'Ÿ'}, {0x76, U'⅛'}, {0x77, U'⅜'},
        {0x78, U'⅝'}, {0x79, U'⅞'},      {0x7A, U'│'},  {0x7B, U'┐'}, {0x7C, U'└'}, {0x7D, U'─'},
        {0x7E, U'┘'}, {0x7F, U'┌'},      {0xA0, U'㏄'}, // G3: the CC mark
    }};

template <size_t Count>
char32_t find(const std::array<Replaced, Count> &table, uint8_t code, char32_t otherwise)
{
    const auto row = std::ranges::find(table, code, &Replaced::code);
    return row == table.end() ? otherwise : row->character;
}
} // namespace

char32_t basicCharacter(uint8_t code)
{
    return find(kBasic, code, code);
}

char32_t specialCharacter(uint8_t code)
{
    return kSpecial[code & 0x0F];
}

char32_t extendedCharacter(uint8_t set, uint8_t code)
{
    return (set == 0x12 ? kExtended12 : kExtended13)[code & 0x1F];
}

char32_t serviceCharacter(uint8_t code)
{
    return code == 0x7F ? U'♪' : code; // G0 is ASCII, G1 is ISO 8859-1
}

char32_t extendedServiceCharacter(uint8_t code)
{
    return find(kG2, code, U'_');
}

size_t writeUTF8(char32_t character, char *out)
{
    if (character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF))
        character = 0xFFFD;
    const auto put = [&out](char32_t value) { *out++ = static_cast<char>(value); };
    if (character < 0x80)
        return put(character), 1;
    if (character < 0x800)
        return put(0xC0 | character >> 6), put(0x80 | (character & 0x3F)), 2;
    if (character < 0x10000)
        return put(0xE0 | character >> 12), put(0x80 | (character >> 6 & 0x3F)),
               put(0x80 | (character & 0x3F)), 3;
    return put(0xF0 | character >> 18), put(0x80 | (character >> 12 & 0x3F)),
           put(0x80 | (character >> 6 & 0x3F)), put(0x80 | (character & 0x3F)), 4;
}
} // namespace kiv::cc
