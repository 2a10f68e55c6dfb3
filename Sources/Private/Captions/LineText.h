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

// A fault of a line and its place in the line's text.
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

// The front of a line, before its data.
struct LineHead
{
    TimeFields time{};
    size_t timeAt = 0;
    bool hasField = false, hasNumber = false, badSuffix = false;
    uint32_t field = 0, number = 0;
    size_t dataAt = 0; // start of the data after the blanks
};

// Reads the front of a line up to its data. Returns false if the line does not begin with a timecode.
[[nodiscard]] bool takeHead(std::string_view line, LineHead &head, Notes &notes);

// The packet in the data of an MCC line.
struct MCCData
{
    size_t size = 0;           // whole bytes
    size_t lowerAt = kNowhere; // the first lower-case character
    size_t halfAt = kNowhere;  // the first digit without its other half
    size_t badAt = kNowhere;   // a character without a meaning; the decoding ends there
    size_t uAt = kNowhere;     // the first letter U
    bool fourByteU = false;
    bool tooLong = false; // more bytes than `out` holds; the decoding ends there
};
// Decodes digits and letters of either case. A letter U means three or four bytes: both are tried against
// the data count, then against the checksum.
[[nodiscard]] MCCData decodeMCC(std::string_view text, std::span<uint8_t, KIVCS2_CAPTION_ANC_SIZE> out);

// Value of a hexadecimal digit of either case; kBlankValue for blanks, kBadValue for other characters.
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
// Returns the first character that is neither a blank nor a digit, or kNowhere.
[[nodiscard]] size_t findBadOfWords(std::string_view text);
// Returns the number of words that begin in `text`.
[[nodiscard]] size_t countWords(std::string_view text, bool &inWord);
} // namespace kiv::cc

#endif
