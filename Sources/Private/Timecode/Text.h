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

// The parts of a text: an optional date and 1, 3 or 4 time fields.
struct TextFields
{
    bool hasDate;
    Date date;
    uint32_t timeFields;
    std::array<uint32_t, kMaxTimeFields> time;
};

// The stored date of one-based text fields. Kept: the cut to 8 bits, which makes a day or month of 0 become
// 255.
[[nodiscard]] constexpr Date dateOfFields(uint32_t day, uint32_t month, uint32_t year)
{
    return {static_cast<uint8_t>(day - 1), static_cast<uint8_t>(month - 1), static_cast<uint16_t>(year)};
}

// Splits the plain forms: ASCII digits, one to nine per field, single separators. False for every other text,
// which is left to splitText(); a text accepted here reads the same there.
[[nodiscard]] bool splitPlainText(const char *text, TextFields &fields);

// Splits any ASCII text. False if a field that counts holds anything but digits; `fields` then holds the
// values read before it, as the splitter of string objects leaves it.
[[nodiscard]] bool splitText(std::string_view text, TextFields &fields);
[[nodiscard]] bool isASCII(std::string_view text);

// Smallest buffers a host may pass, without and with a date, terminator included.
constexpr uint32_t kTimeBufferSize = 12;
constexpr uint32_t kDateTimeBufferSize = 24;

// Writes the time with a terminator and returns its length without the terminator. If `size` is too small,
// returns 0 and writes nothing.
[[nodiscard]] size_t writeTime(const ClockFields &clock, char separator, char *buffer, size_t size);
// As writeTime(), with the one-based date in front.
[[nodiscard]] size_t writeDateAndTime(const Date &date, const ClockFields &clock, char separator,
                                      char *buffer, size_t size);
// As writeTime(): writes "15.3.2024 " before the number of frames; writeFrames() writes only the number.
[[nodiscard]] size_t writeDateAndFrames(const Date &date, int32_t frames, char *buffer, size_t size);
[[nodiscard]] size_t writeFrames(int32_t frames, char *buffer, size_t size);

// One byte per field, hours first; for a word that reads back the fields are below 100.
[[nodiscard]] uint32_t bcdOfFields(const ClockFields &clock);
[[nodiscard]] ClockFields fieldsOfBCD(uint32_t bcd);
} // namespace kiv::timecode

#endif
