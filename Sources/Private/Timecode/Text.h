// The text form of a timecode: its fields, read from and written to plain C strings.
#ifndef KIV_PRIVATE_TIMECODE_TEXT_H
#define KIV_PRIVATE_TIMECODE_TEXT_H

#include "Private/Timecode/Calendar.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kiv::timecode
{
struct ClockFields
{
    uint32_t hours;
    uint32_t minutes;
    uint32_t seconds;
    uint32_t frames;
};

constexpr uint32_t kMaxTimeFields = 4;

// A text taken apart: an optional date and 1, 3 or 4 time fields.
struct TextFields
{
    bool hasDate;
    Date date;
    uint32_t timeFields;
    std::array<uint32_t, kMaxTimeFields> time;
};

// Stored date of one-based text fields. Kept: the cut to 8 bits, by which a day or month 0 becomes 255.
[[nodiscard]] constexpr Date dateOfFields(uint32_t day, uint32_t month, uint32_t year)
{
    return {static_cast<uint8_t>(day - 1), static_cast<uint8_t>(month - 1), static_cast<uint16_t>(year)};
}

// Takes the plain forms apart: ASCII digits, one to nine a field, single separators. False for every
// other text, which is then left to splitText(); what is true here reads the same there.
[[nodiscard]] bool splitPlainText(const char *text, TextFields &fields);

// Takes any ASCII text apart. False if a field that counts holds anything but digits; `fields` then has what
// was read before it, as the splitter of string objects leaves it.
[[nodiscard]] bool splitText(std::string_view text, TextFields &fields);
[[nodiscard]] bool isASCII(std::string_view text);

// Smallest buffers a host may pass, without and with a date, terminator included.
constexpr uint32_t kTimeBufferSize = 12;
constexpr uint32_t kDateTimeBufferSize = 24;

// Writes the time with its terminator and returns its length without; 0, and nothing written, when `size`
// does not hold it.
[[nodiscard]] size_t writeTime(const ClockFields &clock, char separator, char *buffer, size_t size);
// The same with the one-based date in front.
[[nodiscard]] size_t writeDateAndTime(const Date &date, const ClockFields &clock, char separator,
                                      char *buffer, size_t size);
// "15.3.2024 ", the date alone and the number `frames`, as above.
[[nodiscard]] size_t writeDateAndFrames(const Date &date, int32_t frames, char *buffer, size_t size);
[[nodiscard]] size_t writeFrames(int32_t frames, char *buffer, size_t size);

// One byte a field, hours first; the fields are below 100 for a word that reads back.
[[nodiscard]] uint32_t bcdOfFields(const ClockFields &clock);
[[nodiscard]] ClockFields fieldsOfBCD(uint32_t bcd);
} // namespace kiv::timecode

#endif
