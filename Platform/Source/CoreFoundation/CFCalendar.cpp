// The calendar: one for the process, since every caller gets the same zone and rules, and ICU takes
// longer to open one than to compose a date.
#include <CoreFoundation/CFCalendar.h>

#include "CoreFoundation/Object.h"

#include <unicode/ucal.h>

#include <cstdarg>
#include <mutex>

struct __CFCalendar : kiv::cf::Object
{
    explicit __CFCalendar(UCalendar *opened) noexcept;

    UCalendar *calendar;
};

namespace
{
// Guards the one calendar: its creation, and its fields while a date is composed.
std::mutex g_mutex;
CFCalendarRef g_current = nullptr; // with a reference of the library's own, so it never ends

constexpr kiv::cf::Type kCalendarType{kiv::cf::kTypeCalendar, nullptr, nullptr, nullptr};

CFCalendarRef openCalendar() noexcept
{
    UErrorCode status = U_ZERO_ERROR;
    UCalendar *calendar = ucal_open(nullptr, 0, "en_US_POSIX", UCAL_GREGORIAN, &status);
    if (U_FAILURE(status))
    {
        ucal_close(calendar);
        return nullptr;
    }
    ucal_setAttribute(calendar, UCAL_LENIENT, true);
    CFCalendarRef object = kiv::cf::create<__CFCalendar>(0, calendar);
    if (object == nullptr)
        ucal_close(calendar);
    return object;
}

struct Component
{
    char letter;
    UCalendarDateFields field;
    int offset; // what ICU counts from 0 and callers from 1
};
constexpr Component kComponents[] = {
    {'y', UCAL_YEAR, 0},        {'M', UCAL_MONTH, -1}, {'d', UCAL_DATE, 0},
    {'H', UCAL_HOUR_OF_DAY, 0}, {'m', UCAL_MINUTE, 0}, {'s', UCAL_SECOND, 0},
};

const Component *componentFor(char letter) noexcept
{
    for (const Component &component : kComponents)
    {
        if (component.letter == letter)
            return &component;
    }
    return nullptr;
}
} // namespace

__CFCalendar::__CFCalendar(UCalendar *opened) noexcept : Object{kCalendarType}, calendar{opened} {}

CFTypeID CFCalendarGetTypeID(void)
{
    return kiv::cf::kTypeCalendar;
}

CFCalendarRef CFCalendarCopyCurrent(void)
{
    const std::lock_guard lock{g_mutex};
    if (g_current == nullptr)
        g_current = openCalendar();
    if (g_current != nullptr)
        CFRetain(g_current);
    return g_current;
}

Boolean CFCalendarComposeAbsoluteTime(CFCalendarRef calendar, CFAbsoluteTime *at, const char *componentDesc,
                                      ...)
{
    for (const char *letter = componentDesc; *letter != '\0'; ++letter)
    {
        if (componentFor(*letter) == nullptr)
            return false;
    }

    const std::lock_guard lock{g_mutex};
    UErrorCode status = U_ZERO_ERROR;
    ucal_clear(calendar->calendar);
    ucal_setDateTime(calendar->calendar, 1, UCAL_JANUARY, 1, 0, 0, 0, &status);
    va_list values;
    va_start(values, componentDesc);
    for (const char *letter = componentDesc; *letter != '\0'; ++letter)
    {
        const Component &component = *componentFor(*letter);
        // One below the smallest int would wrap; no calendar reaches that far anyway.
        const int value = va_arg(values, int);
        ucal_set(calendar->calendar, component.field, value == INT32_MIN ? value : value + component.offset);
    }
    va_end(values);
    const double milliseconds = ucal_getMillis(calendar->calendar, &status);
    if (U_FAILURE(status))
        return false;
    *at = milliseconds / 1000.0 - kCFAbsoluteTimeIntervalSince1970;
    return true;
}
