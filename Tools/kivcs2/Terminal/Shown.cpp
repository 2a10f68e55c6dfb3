// Which characters a terminal gets, and how the others are written.
#include "Terminal/Shown.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace tool
{
namespace
{

struct PointRange
{
    uint32_t first, last;
};

// Characters that control a terminal or hide the order of the text.
constexpr std::array kSteering = {
    PointRange{0x00, 0x1F},     // ISO 6429's first set
    PointRange{0x7F, 0x9F},     // DEL and the second set
    PointRange{0x061C, 0x061C}, // Arabic letter mark
    PointRange{0x200E, 0x200F}, // left-to-right and right-to-left mark
    PointRange{0x2028, 0x202E}, // line and paragraph separator, embeddings and overrides
    PointRange{0x2066, 0x2069}, // isolates
    PointRange{0xFEFF, 0xFEFF}, // byte-order mark, which nothing shows
};

struct Character
{
    size_t length;  ///< bytes; 1 if they are not UTF-8
    bool isValid;   ///< UTF-8
    uint32_t point; ///< if it is valid
};

// The first character of a text that is not empty.
Character firstCharacter(std::string_view text)
{
    constexpr Character kNone{1, false, 0};
    const auto byteAt = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byteAt(0);
    if (lead < 0x80)
        return {1, true, lead};
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return kNone;
    uint32_t point = lead & (0x7Fu >> length);
    for (size_t index = 1; index < length; ++index)
    {
        if ((byteAt(index) & 0xC0) != 0x80)
            return kNone;
        point = point << 6 | (byteAt(index) & 0x3Fu);
    }
    constexpr uint32_t kLeast[] = {0x80, 0x800, 0x10000}; // shorter ones have a shorter form
    if (point < kLeast[length - 2] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF))
        return kNone;
    return {length, true, point};
}

bool isPlain(char byte)
{
    return byte >= 0x20 && byte < 0x7F;
}

// Copies a text; `quote` rewrites every controlling character and every byte that is not UTF-8.
template <class Quote>
std::string rewritten(std::string_view text, Quote quote)
{
    std::string result;
    while (!text.empty())
    {
        const auto plain = static_cast<size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
        result += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty())
            break;
        const Character character = firstCharacter(text);
        const bool steers =
            std::ranges::any_of(kSteering, [&](const PointRange &range)
                                { return character.point >= range.first && character.point <= range.last; });
        const std::string_view bytes = text.substr(0, character.length);
        if (character.isValid && !steers)
            result += bytes;
        else
            quote(result, character, bytes);
        text.remove_prefix(character.length);
    }
    return result;
}

} // namespace

std::string visible(std::string_view text)
{
    return rewritten(text,
                     [](std::string &result, const Character &, std::string_view bytes)
                     {
                         for (const char byte : bytes)
                         {
                             char quoted[8];
                             std::snprintf(quoted, sizeof quoted, "\\x%02x",
                                           static_cast<unsigned char>(byte));
                             result += quoted;
                         }
                     });
}

std::string visibleJson(std::string_view json)
{
    return rewritten(json,
                     [](std::string &result, const Character &character, std::string_view bytes)
                     {
                         char quoted[8];
                         std::snprintf(quoted, sizeof quoted, "\\u%04x",
                                       static_cast<unsigned>(character.point));
                         if (!character.isValid)
                             result += "\xEF\xBF\xBD"; // the replacement character: JSON is UTF-8
                         else if (bytes == "\n")
                             result += bytes; // between values; inside a value it is escaped
                         else
                             result += quoted;
                     });
}

} // namespace tool
