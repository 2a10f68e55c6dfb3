// CEA-608 byte pairs in words, as the operations of KIVCS2ClosedCaptions.h describe them.
#include "Private/Captions/Describe.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace kiv::captions
{
namespace
{
// Second byte minus 0x30.
constexpr std::array<const char *, 16> kSpecialCharMap = {
    "Registered mark",
    "Degree sign",
    "1/2",
    "Inverse query",
    "Trademark symbol",
    "Cents sign",
    "Pounds Sterling sign",
    "Music note",
    "Lower-case a grave accent",
    "Transparent space",
    "Lower-case e grave accent",
    "Lower-case a circumflex",
    "Lower-case e circumflex",
    "Lower-case i circumflex",
    "Lower-case o circumflex",
    "Lower-case u circumflex",
};

constexpr std::array<const char *, 16> kAttributeMap = {
    "white",    "green",    "blue",     "cyan",      "red",       "yellow",    "magenta",   "italics",
    "indent 0", "indent 4", "indent 8", "indent 12", "indent 16", "indent 20", "indent 24", "indent 28",
};

// Low 4 bits of the second byte.
constexpr std::array<const char *, 16> kCommandMap = {
    "resume caption loading",                  // 0
    "backspace",                               // 1
    "invalid",                                 // 2
    "invalid",                                 // 3
    "delete to end of row",                    // 4
    "roll-up captions 2-rows",                 // 5
    "roll-up captions 3-rows",                 // 6
    "roll-up captions 4-rows",                 // 7
    "flash on (0.25 seconds once per second)", // 8
    "resume direct captioning",                // 9
    "text restart",                            // 10
    "resume text display",                     // 11
    "erase displayed memory",                  // 12
    "carriage return",                         // 13
    "erase nondisplayed memory",               // 14
    "end of caption",                          // 15
};

// Index: the low 3 bits of the first byte, then bit 5 of the second. -1: not a row.
constexpr std::array<int32_t, 16> kRowMap = {11, -1, 1, 2, 3, 4, 12, 13, 14, 15, 5, 6, 7, 8, 9, 10};

using Text = std::span<char, KIVCS2_CEA608_DESCRIPTION_SIZE>;

[[gnu::format(printf, 2, 3)]] KIVCS2Status print(Text text, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text.data(), text.size(), format, arguments); // the size is that of the longest text
    va_end(arguments);
    return KIVCS2STATUS_OK;
}
} // namespace

KIVCS2Status describePair(uint8_t byte1, uint8_t byte2, std::span<char, KIVCS2_CEA608_DESCRIPTION_SIZE> text)
{
    const int c1 = byte1 & 0x7F;
    const int c2 = byte2 & 0x7F;
    const int channel = (byte1 >> 3) & 1;

    if ((byte1 & 0x60) != 0)
        return print(text, "Character pair %c%c", c1, c2);
    if (c1 == 0x11 || c1 == 0x19)
    {
        if (c2 >= 0x30 && c2 <= 0x3F)
            return print(text, "Channel %i special character %s", channel,
                         kSpecialCharMap[static_cast<size_t>(c2 - 0x30)]);
        return print(text, "Channel %i unknown special character %02x", channel, c2);
    }
    // Kept: the second byte is tested for 0x40 to 0x5F, but the extended characters of CEA-608 are at 0x20 to
    // 0x3F; those fall through to the unknown pairs.
    if ((byte1 & 0x1E) == 0x12 && (byte2 & 0x60) == 0x40)
        return print(text, "Extended character %02x", ((byte1 & 1) * 32) | (byte2 & 0x1F));
    if ((byte1 & 0x70) == 0x10 && (byte2 & 0x40) != 0)
        return print(text, "Preamble channel %i = row %i, attribute %s, underline %i", channel,
                     kRowMap[(byte1 & 7u) * 2u + ((byte2 >> 5) & 1u)],
                     kAttributeMap[static_cast<size_t>((c2 >> 1) & 15)], c2 & 1);
    // Kept: unreachable, because every such first byte was treated as a special character above.
    if ((byte1 & 0x77) == 0x11 && (byte2 & 0x70) == 0x20)
        return print(text, "Midrow channel %i = attribute %s, underline %i", channel,
                     kAttributeMap[static_cast<size_t>((c2 >> 1) & 7)], c2 & 1);
    if ((byte1 & 0x76) == 0x14 && (byte2 & 0x70) == 0x20)
        return print(text, "Control channel %i = command %s, line %s", channel,
                     kCommandMap[static_cast<size_t>(byte2 & 15)], (byte1 & 1) != 0 ? "284" : "21");
    if ((byte1 & 0x77) == 0x17 && (byte2 & 0x7C) == 0x20)
        return print(text, "Tab channel %i = %i", channel, c2 & 3);
    if (c1 == 0 && c2 == 0)
        return KIVCS2STATUS_DATA_ERR;
    return print(text, "? %02x %02x", c1, c2);
}
} // namespace kiv::captions
