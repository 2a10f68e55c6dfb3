// Date formatters over ICU. ICU is opened at the first text: it then loads its locale data, which takes half
// a millisecond with a warm cache and more from disk, and most formatters of a process never write a text.
// ICU gets local times and treats them as GMT: its own zone data are older than the machine's.
#include <CoreFoundation/CFDateFormatter.h>

#include "CoreFoundation/Date.h"
#include "CoreFoundation/String.h"
#include "CoreFoundation/TimeZone.h"

#include <unicode/ucal.h>
#include <unicode/udat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string_view>

using kiv::cf::WallTime;

namespace
{
struct NumberPattern;
} // namespace

struct __CFDateFormatter : kiv::cf::Object
{
    explicit __CFDateFormatter(CFLocaleRef forLocale) noexcept; // takes over the reference

    CFLocaleRef locale; // may be null
    CFStringRef pattern = nullptr;
    const NumberPattern *number = nullptr; // set if the pattern is one of these: then ICU is not needed
    UDateFormat *format = nullptr;         // open for `pattern`, or null
    UCalendar *calendar = nullptr;         // has the distance from GMT, for a pattern with a zone; else null
};

namespace
{
constexpr const char *kNoLocale = "en_US_POSIX";

// Patterns of one number, with which modules split a date: without a locale the digits are ASCII.
struct NumberPattern
{
    std::u16string_view pattern;
    int32_t WallTime::*field;
    int32_t offset; // 1 if the calendar counts from 0 and people from 1
    int digits;     // smallest number of digits
};
constexpr NumberPattern kNumberPatterns[] = {
    {u"y", &WallTime::year, 0, 1},          {u"M", &WallTime::month, 1, 1},  {u"d", &WallTime::day, 0, 1},
    {u"H", &WallTime::hour, 0, 1},          {u"m", &WallTime::minute, 0, 1}, {u"s", &WallTime::second, 0, 1},
    {u"SSS", &WallTime::millisecond, 0, 3},
};

const NumberPattern *numberPatternOf(CFStringRef pattern) noexcept
{
    for (const NumberPattern &row : kNumberPatterns)
    {
        const CFIndex length = CFStringGetLength(pattern);
        bool same = length == static_cast<CFIndex>(row.pattern.size());
        for (CFIndex index = 0; same && index < length; ++index)
            same = CFStringGetCharacterAtIndex(pattern, index) == row.pattern[static_cast<size_t>(index)];
        if (same)
            return &row;
    }
    return nullptr;
}

CFStringRef createNumber(const NumberPattern &row, CFAbsoluteTime at) noexcept
{
    WallTime wall;
    if (!kiv::cf::readWall(at, wall))
        return nullptr;
    int32_t value = wall.*row.field + row.offset;
    if (row.field == &WallTime::year && value <= 0)
        value = 1 - value; // a year BC, written without its era
    char text[12];
    const int length = std::snprintf(text, sizeof text, "%0*d", row.digits, static_cast<int>(value));
    return kiv::cf::createString(std::string_view{text, static_cast<size_t>(length)});
}

void close(__CFDateFormatter &formatter) noexcept
{
    if (formatter.format != nullptr)
        udat_close(std::exchange(formatter.format, nullptr));
    if (formatter.calendar != nullptr)
        ucal_close(std::exchange(formatter.calendar, nullptr));
}

void finalizeFormatter(kiv::cf::Object &object)
{
    auto &formatter = static_cast<__CFDateFormatter &>(object);
    close(formatter);
    kiv::cf::releaseIfAny(formatter.pattern);
    kiv::cf::releaseIfAny(formatter.locale);
}

constexpr kiv::cf::Type kFormatterType{kiv::cf::kTypeDateFormatter, finalizeFormatter, nullptr, nullptr};

struct FreeBlock
{
    void operator()(void *block) const noexcept
    {
        std::free(block);
    }
};

// A small buffer on the stack, a larger one on the heap.
class UnitBuffer
{
public:
    [[nodiscard]] char16_t *ofSize(size_t units) noexcept
    {
        if (units <= m_small.size())
            return m_small.data();
        m_large.reset(static_cast<char16_t *>(std::malloc(units * sizeof(char16_t))));
        return m_large.get();
    }
    [[nodiscard]] static constexpr size_t smallSize() noexcept
    {
        return 128;
    }

private:
    std::array<char16_t, 128> m_small;
    std::unique_ptr<char16_t[], FreeBlock> m_large;
};

// Returns the units of a string, in `buffer`; null if the string is too long for ICU or memory is short.
char16_t *unitsOf(CFStringRef string, CFRange range, UnitBuffer &buffer) noexcept
{
    char16_t *units = range.length <= INT32_MAX ? buffer.ofSize(static_cast<size_t>(range.length)) : nullptr;
    if (units != nullptr)
        CFStringGetCharacters(string, range, reinterpret_cast<UniChar *>(units));
    return units;
}

constexpr std::u16string_view kGMT = u"GMT";

// Returns whether a pattern contains a zone field; quoted letters are not fields.
bool hasZone(std::u16string_view pattern) noexcept
{
    bool quoted = false;
    for (const char16_t unit : pattern)
    {
        if (unit == u'\'')
            quoted = !quoted;
        else if (!quoted && std::u16string_view{u"zZOvVXx"}.find(unit) != std::u16string_view::npos)
            return true;
    }
    return false;
}

bool open(__CFDateFormatter &formatter) noexcept
{
    char locale[ULOC_FULLNAME_CAPACITY];
    if (formatter.locale != nullptr && !CFStringGetCString(CFLocaleGetIdentifier(formatter.locale), locale,
                                                           sizeof locale, kCFStringEncodingASCII))
        return false;
    const CFIndex length = CFStringGetLength(formatter.pattern);
    UnitBuffer buffer;
    const char16_t *pattern = unitsOf(formatter.pattern, CFRangeMake(0, length), buffer);
    if (pattern == nullptr)
        return false;

    const char *name = formatter.locale != nullptr ? locale : kNoLocale;
    UErrorCode status = U_ZERO_ERROR;
    formatter.format = udat_open(UDAT_PATTERN, UDAT_PATTERN, name, kGMT.data(), kGMT.size(), pattern,
                                 static_cast<int32_t>(length), &status);
    if (hasZone({pattern, static_cast<size_t>(length)}))
        formatter.calendar = ucal_open(kGMT.data(), kGMT.size(), name, UCAL_DEFAULT, &status);
    if (U_FAILURE(status))
        close(formatter);
    return U_SUCCESS(status);
}

// Sets the calendar to a moment in a zone with a fixed distance from GMT.
void setCalendar(UCalendar *calendar, double time, int32_t secondsFromGMT, UErrorCode &status) noexcept
{
    const int32_t distance = std::abs(secondsFromGMT);
    char name[32];
    const int length = std::snprintf(name, sizeof name, "GMT%c%02d:%02d:%02d", secondsFromGMT < 0 ? '-' : '+',
                                     static_cast<int>(distance / 3600), static_cast<int>(distance / 60 % 60),
                                     static_cast<int>(distance % 60));
    char16_t units[sizeof name];
    std::copy_n(name, length, units);
    ucal_setTimeZone(calendar, units, length, &status);
    ucal_setMillis(calendar, time, &status);
}

// Writes the text of a moment into `room` units; returns its length, even if it does not fit.
int32_t write(const __CFDateFormatter &formatter, CFAbsoluteTime at, char16_t *text, size_t room,
              UErrorCode &status) noexcept
{
    const double time = kiv::cf::icuTime(at);
    const int32_t ahead = kiv::cf::secondsFromGMT(kiv::cf::unixTime(at).seconds);
    if (formatter.calendar == nullptr)
        return udat_format(formatter.format, time + ahead * 1000.0, text, static_cast<int32_t>(room), nullptr,
                           &status);
    setCalendar(formatter.calendar, time, ahead, status);
    return udat_formatCalendar(formatter.format, formatter.calendar, text, static_cast<int32_t>(room),
                               nullptr, &status);
}
} // namespace

__CFDateFormatter::__CFDateFormatter(CFLocaleRef forLocale) noexcept
    : Object{kFormatterType}, locale{forLocale}
{
}

CFTypeID CFDateFormatterGetTypeID(void)
{
    return kiv::cf::kTypeDateFormatter;
}

CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef, CFLocaleRef locale, CFDateFormatterStyle dateStyle,
                                         CFDateFormatterStyle timeStyle)
{
    if (dateStyle != kCFDateFormatterNoStyle || timeStyle != kCFDateFormatterNoStyle)
        return nullptr;
    CFDateFormatterRef formatter = kiv::cf::create<__CFDateFormatter>(0, locale);
    if (formatter != nullptr && locale != nullptr)
        CFRetain(locale);
    return formatter;
}

void CFDateFormatterSetFormat(CFDateFormatterRef formatter, CFStringRef formatString)
{
    CFStringRef pattern = CFStringCreateCopy(nullptr, formatString);
    if (pattern == nullptr)
        return;
    close(*formatter);
    kiv::cf::releaseIfAny(std::exchange(formatter->pattern, pattern));
    formatter->number = formatter->locale == nullptr ? numberPatternOf(pattern) : nullptr;
}

CFStringRef CFDateFormatterCreateStringWithDate(CFAllocatorRef allocator, CFDateFormatterRef formatter,
                                                CFDateRef date)
{
    return CFDateFormatterCreateStringWithAbsoluteTime(allocator, formatter, CFDateGetAbsoluteTime(date));
}

CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef, CFDateFormatterRef formatter,
                                                        CFAbsoluteTime at)
{
    if (!std::isfinite(at))
        return nullptr;
    if (formatter->pattern == nullptr || CFStringGetLength(formatter->pattern) == 0)
        return kiv::cf::createString(std::string_view{});
    if (formatter->number != nullptr)
        return createNumber(*formatter->number, at);
    if (formatter->format == nullptr && !open(*formatter))
        return nullptr;

    UnitBuffer buffer;
    char16_t *text = buffer.ofSize(UnitBuffer::smallSize());
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = write(*formatter, at, text, UnitBuffer::smallSize(), status);
    if (status == U_BUFFER_OVERFLOW_ERROR)
    {
        status = U_ZERO_ERROR;
        text = buffer.ofSize(static_cast<size_t>(length));
        if (text == nullptr)
            return nullptr;
        length = write(*formatter, at, text, static_cast<size_t>(length), status);
    }
    if (U_FAILURE(status))
        return nullptr;
    return kiv::cf::createString(kiv::text::Units{nullptr, text, static_cast<size_t>(length)});
}

CFDateRef CFDateFormatterCreateDateFromString(CFAllocatorRef allocator, CFDateFormatterRef formatter,
                                              CFStringRef string, CFRange *rangep)
{
    if (formatter->pattern == nullptr || (formatter->format == nullptr && !open(*formatter)))
        return nullptr;
    const CFRange range = rangep != nullptr ? *rangep : CFRangeMake(0, CFStringGetLength(string));
    UnitBuffer buffer;
    const char16_t *text = unitsOf(string, range, buffer);
    if (text == nullptr)
        return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    int32_t end = 0;
    const double time =
        udat_parse(formatter->format, text, static_cast<int32_t>(range.length), &end, &status);
    if (U_FAILURE(status))
        return nullptr;
    if (rangep != nullptr)
        rangep->length = end;
    const CFAbsoluteTime at = time / 1000.0 - kCFAbsoluteTimeIntervalSince1970;
    if (formatter->calendar != nullptr) // the text contains its distance from GMT
        return CFDateCreate(allocator, at);
    const kiv::cf::UnixTime wall = kiv::cf::unixTime(at);
    const double ahead = static_cast<double>(wall.seconds - kiv::cf::momentOfWall(wall.seconds));
    return CFDateCreate(allocator, at - ahead);
}
