// The calendar: one for the process, because every caller gets the same zone and rules.
#include <CoreFoundation/CFCalendar.h>

#include "CoreFoundation/CalendarDays.h"
#include "CoreFoundation/Object.h"
#include "CoreFoundation/TimeZone.h"

#include <cstdarg>

struct __CFCalendar : kiv::cf::Object
{
    constexpr __CFCalendar() noexcept;
};

namespace
{
constexpr kiv::cf::Type kCalendarType{kiv::cf::kTypeCalendar, nullptr, nullptr, nullptr};

struct Components
{
    int64_t year = 1;
    int64_t month = 1;
    int64_t day = 1;
    int64_t hour = 0;
    int64_t minute = 0;
    int64_t second = 0;
};

struct Component
{
    char letter;
    int64_t Components::*field;
};
constexpr Component kComponents[] = {
    {'y', &Components::year}, {'M', &Components::month},  {'d', &Components::day},
    {'H', &Components::hour}, {'m', &Components::minute}, {'s', &Components::second},
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

constexpr __CFCalendar::__CFCalendar() noexcept : Object{kCalendarType, kiv::cf::kForEver} {}

namespace
{
constinit __CFCalendar g_current;
} // namespace

CFTypeID CFCalendarGetTypeID(void)
{
    return kiv::cf::kTypeCalendar;
}

CFCalendarRef CFCalendarCopyCurrent(void)
{
    CFRetain(&g_current);
    return &g_current;
}

Boolean CFCalendarComposeAbsoluteTime(CFCalendarRef, CFAbsoluteTime *at, const char *componentDesc, ...)
{
    for (const char *letter = componentDesc; *letter != '\0'; ++letter)
    {
        if (componentFor(*letter) == nullptr)
            return false;
    }

    Components given;
    va_list values;
    va_start(values, componentDesc);
    for (const char *letter = componentDesc; *letter != '\0'; ++letter)
        given.*componentFor(*letter)->field = va_arg(values, int);
    va_end(values);
    // With 32-bit components nothing here exceeds 63 bits.
    const int64_t days = kiv::cf::dayNumberOf(given.year, given.month - 1, given.day);
    const int64_t local =
        days * kiv::cf::kSecondsPerDay + given.hour * 3600 + given.minute * 60 + given.second;
    *at = static_cast<double>(kiv::cf::momentOfWall(local)) - kCFAbsoluteTimeIntervalSince1970;
    return true;
}
