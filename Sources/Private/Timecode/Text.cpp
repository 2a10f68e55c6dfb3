// Splits and writes timecode text without string objects.
#include "Private/Timecode/Text.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace kiv::timecode
{
namespace
{
constexpr ptrdiff_t kMaxPlainDigits = 9; // fit a 32-bit number whatever the digits

constexpr std::array<char, 200> kDigitPairs = []
{
    std::array<char, 200> pairs{};
    for (size_t value = 0; value < 100; ++value)
    {
        pairs[2 * value] = static_cast<char>('0' + value / 10);
        pairs[2 * value + 1] = static_cast<char>('0' + value % 10);
    }
    return pairs;
}();

char *putPair(char *at, uint32_t value)
{
    std::memcpy(at, &kDigitPairs[size_t{2} * value], 2);
    return at + 2;
}

// Writes ":MM:SS" and the frames after their separator, with the terminator.
char *putBelowHours(char *at, const ClockFields &clock, char separator)
{
    *at++ = ':';
    at = putPair(at, clock.minutes);
    *at++ = ':';
    at = putPair(at, clock.seconds);
    *at++ = separator;
    at = putPair(at, clock.frames);
    *at++ = '\0';
    return at;
}

constexpr size_t kMaxDigits = 5;                                 // 49710 hours at 24 frames; year 65535
constexpr size_t kMaxTimeSize = kMaxDigits + sizeof ":MM:SS:FF"; // terminator included
constexpr size_t kMaxFramesSize = sizeof "-2147483648";
constexpr size_t kMaxTextSize = 3 * (kMaxDigits + 1) + kMaxTimeSize; // three numbers, each with its separator
static_assert(kMaxFramesSize <= kMaxTimeSize);

char *putNumber(char *at, uint32_t value)
{
    return std::to_chars(at, at + kMaxDigits, value).ptr;
}

char *putTime(char *at, const ClockFields &clock, char separator)
{
    if (clock.hours < 100)
        at = putPair(at, clock.hours);
    else
        at = putNumber(at, clock.hours);
    return putBelowHours(at, clock, separator);
}

// "15.3.2024 "
char *putDate(char *at, const Date &date)
{
    at = putNumber(at, date.day + 1u);
    *at++ = '.';
    at = putNumber(at, date.month + 1u);
    *at++ = '.';
    at = putNumber(at, date.year);
    *at++ = ' ';
    return at;
}

char *putFrames(char *at, int32_t frames)
{
    at = std::to_chars(at, at + kMaxFramesSize, frames).ptr;
    *at++ = '\0';
    return at;
}

// Copies a text that ends with its terminator, and returns its length without the terminator.
size_t copyWhole(const char *text, const char *end, char *buffer, size_t size)
{
    const auto length = static_cast<size_t>(end - text);
    if (length > size)
        return 0;
    std::memcpy(buffer, text, length);
    return length - 1;
}

// Hours of any size. It is a function of its own, because its array is guarded, and usual times need none.
[[gnu::noinline]] size_t writeAnyTime(const ClockFields &clock, char separator, char *buffer, size_t size)
{
    std::array<char, kMaxTimeSize> text;
    return copyWhole(text.data(), putTime(text.data(), clock, separator), buffer, size);
}

// Moves `at` over one number; false if there is no digit or too many.
bool takeNumber(const char *&at, uint32_t &value)
{
    const char *const start = at;
    uint32_t number = 0;
    for (uint32_t digit; (digit = static_cast<uint32_t>(*at) - '0') < 10; ++at)
        number = number * 10 + digit;
    value = number;
    return at != start && at - start <= kMaxPlainDigits;
}

// The pieces of a text between separators; pieces beyond the room of `Most` are only counted.
template <size_t Most>
struct Pieces
{
    std::array<std::string_view, Most> pieces{};
    size_t count = 0;

    Pieces(std::string_view text, char separator)
    {
        for (;;)
        {
            const size_t end = text.find(separator);
            if (count < Most)
                pieces[count] = text.substr(0, end);
            ++count;
            if (end == std::string_view::npos)
                return;
            text.remove_prefix(end + 1);
        }
    }
};

// Stores the number of a field: empty gives 0, and a number too large for 31 bits the largest one. False if
// it is not all digits.
bool readField(std::string_view field, uint32_t &value)
{
    constexpr uint64_t kLargest = INT32_MAX;
    uint64_t number = 0;
    for (const char letter : field)
    {
        const uint32_t digit = static_cast<uint8_t>(letter) - uint32_t{'0'};
        if (digit > 9)
            return false;
        number = std::min(number * 10 + digit, kLargest);
    }
    value = static_cast<uint32_t>(number);
    return true;
}

template <size_t Most>
bool readFields(const Pieces<Most> &fields, uint32_t *values)
{
    for (size_t index = 0; index < fields.count; ++index)
        if (!readField(fields.pieces[index], values[index]))
            return false;
    return true;
}

bool splitDate(std::string_view text, TextFields &fields)
{
    const Pieces<3> pieces{text, '.'};
    if (pieces.count != 3)
        return true; // Kept: a date of another shape is ignored
    uint32_t values[3];
    if (!readFields(pieces, values))
        return false;
    fields.hasDate = true;
    fields.date = dateOfFields(values[0], values[1], values[2]);
    return true;
}
} // namespace

bool isASCII(std::string_view text)
{
    return std::ranges::all_of(text, [](char letter) { return static_cast<uint8_t>(letter) < 0x80; });
}

bool splitText(std::string_view text, TextFields &fields)
{
    fields = {};
    const Pieces<2> parts{text, ' '};
    const bool dated = parts.count == 2;
    if (dated && !splitDate(parts.pieces[0], fields))
        return false;
    const Pieces<kMaxTimeFields> time{parts.pieces[dated ? 1 : 0], ':'};
    if (time.count != 1 && time.count != 3 && time.count != 4)
        return true; // Kept: any other number of fields is midnight, not an error
    if (!readFields(time, fields.time.data()))
        return false;
    fields.timeFields = static_cast<uint32_t>(time.count);
    return true;
}

bool splitPlainText(const char *text, TextFields &fields)
{
    const char *at = text;
    uint32_t number = 0;
    if (!takeNumber(at, number))
        return false;
    fields.hasDate = *at == '.';
    if (fields.hasDate)
    {
        const uint32_t day = number;
        uint32_t month = 0;
        uint32_t year = 0;
        if (!takeNumber(++at, month) || *at != '.' || !takeNumber(++at, year) || *at != ' ' ||
            !takeNumber(++at, number))
            return false;
        fields.date = dateOfFields(day, month, year);
    }
    uint32_t count = 0;
    fields.time[count++] = number;
    while (*at == ':')
    {
        if (count == kMaxTimeFields || !takeNumber(++at, fields.time[count]))
            return false;
        ++count;
    }
    fields.timeFields = count;
    return *at == '\0' && count != 2;
}

size_t writeTime(const ClockFields &clock, char separator, char *buffer, size_t size)
{
    if (clock.hours < 100 && size >= kTimeBufferSize)
    {
        putBelowHours(putPair(buffer, clock.hours), clock, separator);
        return kTimeBufferSize - 1;
    }
    return writeAnyTime(clock, separator, buffer, size);
}

size_t writeDateAndTime(const Date &date, const ClockFields &clock, char separator, char *buffer, size_t size)
{
    std::array<char, kMaxTextSize> text;
    return copyWhole(text.data(), putTime(putDate(text.data(), date), clock, separator), buffer, size);
}

size_t writeDateAndFrames(const Date &date, int32_t frames, char *buffer, size_t size)
{
    std::array<char, kMaxTextSize> text;
    return copyWhole(text.data(), putFrames(putDate(text.data(), date), frames), buffer, size);
}

size_t writeFrames(int32_t frames, char *buffer, size_t size)
{
    std::array<char, kMaxFramesSize> text;
    return copyWhole(text.data(), putFrames(text.data(), frames), buffer, size);
}

uint32_t bcdOfFields(const ClockFields &clock)
{
    const auto digits = [](uint32_t value) { return value / 10 << 4 | value % 10; };
    return digits(clock.hours) << 24 | digits(clock.minutes) << 16 | digits(clock.seconds) << 8 |
           digits(clock.frames);
}

ClockFields fieldsOfBCD(uint32_t bcd)
{
    const auto value = [bcd](uint32_t shift)
    {
        const uint32_t byte = bcd >> shift & 0xFF;
        return (byte >> 4) * 10 + (byte & 0xF); // nibbles above 9 count on: at most 165
    };
    return {value(24), value(16), value(8), value(0)};
}
} // namespace kiv::timecode
