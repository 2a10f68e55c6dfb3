// The text of one caption line: timecode, suffixes, and the data of an MCC packet or of SCC words.
#ifndef KIV_PRIVATE_CAPTIONS_LINE_TEXT_H
#define KIV_PRIVATE_CAPTIONS_LINE_TEXT_H

#include "Private/Captions/Counting.h"

#include "KIVCS2CaptionPacket.h"

#include <array>
#include <span>
#include <string_view>

namespace kiv::cc
{
constexpr size_t kNowhere = static_cast<size_t>(-1);

[[nodiscard]] constexpr bool isBlank(char character)
{
    return character == ' ' || character == '\t';
}
[[nodiscard]] std::string_view withoutBlanks(std::string_view text);

// A fault of a line and where it stands in the line's text.
struct Note
{
    KIVCS2CaptionFault fault;
    size_t at, size;
};

class Notes
{
public:
    void add(KIVCS2CaptionFault fault, size_t at, size_t size)
    {
        if (m_count < m_notes.size())
            m_notes[m_count++] = {fault, at, size};
    }
    void clear()
    {
        m_count = 0;
    }
    [[nodiscard]] std::span<const Note> all() const
    {
        return {m_notes.data(), m_count};
    }

private:
    std::array<Note, 12> m_notes; // more than one line can have
    size_t m_count = 0;
};

// What a line opens with.
struct LineHead
{
    TimeFields time{};
    size_t timeAt = 0;
    bool hasField = false, hasNumber = false, badSuffix = false;
    uint32_t field = 0, number = 0;
    size_t dataAt = 0; // of the data behind the blanks
};

// Takes the front of a line up to its data. False if the line does not open with a timecode.
[[nodiscard]] bool takeHead(std::string_view line, LineHead &head, Notes &notes);

// The packet in the data of an MCC line.
struct MCCData
{
    size_t size = 0;           // bytes; whole ones only
    size_t lowerAt = kNowhere; // the first lower-case character
    size_t halfAt = kNowhere;  // the first digit without its other half
    size_t badAt = kNowhere;   // a character that stands for nothing ends the decoding
    size_t uAt = kNowhere;     // the first letter U
    bool fourByteU = false;
    bool tooLong = false; // more bytes than `out` holds end the decoding
};
// Decodes digits and letters of either case. A letter U stands for three or for four bytes: both are
// tried against the data count, then against the checksum.
[[nodiscard]] MCCData decodeMCC(std::string_view text, std::span<uint8_t, KIVCS2_CAPTION_ANC_SIZE> out);

// Value of a hexadecimal digit of either case; kBlankValue for blanks, kBadValue for all else.
constexpr uint8_t kBlankValue = 0x10;
constexpr uint8_t kBadValue = 0xFF;
inline constexpr std::array<uint8_t, 256> kWordValues = []
{
    std::array<uint8_t, 256> values{};
    values.fill(kBadValue);
    for (uint8_t digit = 0; digit < 10; ++digit)
        values[static_cast<size_t>('0' + digit)] = digit;
    for (uint8_t digit = 10; digit < 16; ++digit)
        values[static_cast<size_t>('A' + digit - 10)] = values[static_cast<size_t>('a' + digit - 10)] = digit;
    values[' '] = values['\t'] = kBlankValue;
    return values;
}();
[[nodiscard]] constexpr uint8_t wordValue(char character)
{
    return kWordValues[static_cast<uint8_t>(character)];
}
// The first character that is neither blank nor digit, or kNowhere.
[[nodiscard]] size_t findBadOfWords(std::string_view text);
// How many words there are.
[[nodiscard]] size_t countWords(std::string_view text, bool &inWord);
} // namespace kiv::cc

#endif
