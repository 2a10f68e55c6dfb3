// Texts of dates by calendar formats: those of strftime, and milliseconds.
#include <Foundation/NSDate.h>

#include "CoreFoundation/String.h"
#include "CoreFoundation/TimeZone.h"

#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>

using kiv::cf::WallTime;

namespace
{
constexpr const char *kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};
constexpr const char *kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                   "July",    "August",   "September", "October", "November", "December"};
constexpr size_t kShortName = 3;

// Writes units, or only counts them without a destination: a text is
// written twice, to measure and to keep it.
class Writer
{
public:
    explicit Writer(char16_t *at) noexcept : m_at{at} {}

    void unit(char16_t value) noexcept
    {
        if (m_at != nullptr)
            m_at[m_length] = value;
        ++m_length;
    }
    void text(std::string_view ascii) noexcept
    {
        for (const char letter : ascii)
            unit(static_cast<unsigned char>(letter));
    }
    void number(int32_t value, ptrdiff_t digits) noexcept
    {
        char buffer[12];
        const char *end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
        for (ptrdiff_t length = end - buffer; length < digits; ++length)
            unit(u'0');
        text({buffer, end});
    }
    [[nodiscard]] size_t length() const noexcept
    {
        return m_length;
    }

private:
    char16_t *m_at;
    size_t m_length = 0;
};

struct NumberConversion
{
    int32_t WallTime::*field;
    ptrdiff_t digits;
    int32_t offset; // 1 if the calendar counts from 0 and people from 1
    char16_t letter;
};
constexpr NumberConversion kNumbers[] = {
    {&WallTime::day, 2, 0, u'd'},     {&WallTime::day, 1, 0, u'e'},
    {&WallTime::month, 2, 1, u'm'},   {&WallTime::year, 1, 0, u'Y'},
    {&WallTime::hour, 2, 0, u'H'},    {&WallTime::minute, 2, 0, u'M'},
    {&WallTime::second, 2, 0, u'S'},  {&WallTime::dayOfYear, 3, 0, u'j'},
    {&WallTime::weekday, 1, 0, u'w'}, {&WallTime::millisecond, 3, 0, u'F'},
};

// Without a locale these are the forms of the C locale.
struct ShortConversion
{
    char16_t letter;
    std::string_view format;
};
constexpr ShortConversion kShort[] = {{u'c', "%X %x"}, {u'x', "%m/%d/%y"}, {u'X', "%H:%M:%S"}};

void writeDistance(Writer &writer, int32_t secondsFromGMT) noexcept
{
    const int32_t minutes = std::abs(secondsFromGMT) / 60;
    writer.unit(secondsFromGMT < 0 ? u'-' : u'+');
    writer.number(minutes / 60, 2);
    writer.number(minutes % 60, 2);
}

kiv::text::Units ascii(std::string_view text) noexcept
{
    return {reinterpret_cast<const uint8_t *>(text.data()), nullptr, text.size()};
}

void writeFormat(Writer &writer, const kiv::text::Units &format, const WallTime &wall) noexcept;

// Returns false for a letter that is not a conversion.
bool writeConversion(Writer &writer, char16_t letter, const WallTime &wall) noexcept
{
    for (const NumberConversion &row : kNumbers)
        if (row.letter == letter)
        {
            writer.number(wall.*row.field + row.offset, row.digits);
            return true;
        }
    for (const ShortConversion &row : kShort)
        if (row.letter == letter)
        {
            writeFormat(writer, ascii(row.format), wall);
            return true;
        }
    const std::string_view weekday = kWeekdays[wall.weekday];
    const std::string_view month = kMonths[wall.month];
    switch (letter)
    {
    case u'a':
        writer.text(weekday.substr(0, kShortName));
        break;
    case u'A':
        writer.text(weekday);
        break;
    case u'b':
        writer.text(month.substr(0, kShortName));
        break;
    case u'B':
        writer.text(month);
        break;
    case u'I':
        writer.number((wall.hour + 11) % 12 + 1, 2);
        break;
    case u'p':
        writer.text(wall.hour < 12 ? "AM" : "PM");
        break;
    case u'y':
        writer.number(std::abs(wall.year % 100), 2);
        break;
    case u'z':
        writeDistance(writer, wall.secondsFromGMT);
        break;
    case u'Z':
        writer.text(wall.zoneName);
        break;
    case u'%':
        writer.unit(u'%');
        break;
    default:
        return false;
    }
    return true;
}

void writeFormat(Writer &writer, const kiv::text::Units &format, const WallTime &wall) noexcept
{
    for (size_t index = 0; index < format.length; ++index)
    {
        const bool conversion = format[index] == u'%' && index + 1 < format.length;
        if (conversion && writeConversion(writer, format[index + 1], wall))
            ++index;
        else
            writer.unit(format[index]);
    }
}

struct FreeBlock
{
    void operator()(void *block) const noexcept
    {
        std::free(block);
    }
};
} // namespace

CFStringRef NSDate_descriptionWithCalendarFormat(CFDateRef date, CFStringRef format, CFTimeZoneRef, CFTypeRef)
{
    WallTime wall;
    if (!kiv::cf::readWall(CFDateGetAbsoluteTime(date), wall))
        return nullptr;

    Writer measure{nullptr};
    writeFormat(measure, format->units, wall);
    const size_t length = measure.length();
    constexpr size_t kSmall = 64;
    char16_t small[kSmall];
    std::unique_ptr<char16_t[], FreeBlock> large;
    if (length > kSmall)
    {
        large.reset(static_cast<char16_t *>(std::malloc(length * sizeof(char16_t))));
        if (!large)
            return nullptr;
    }
    char16_t *units = large ? large.get() : small;
    Writer writer{units};
    writeFormat(writer, format->units, wall);
    return kiv::cf::createString(kiv::text::Units{nullptr, units, length});
}
