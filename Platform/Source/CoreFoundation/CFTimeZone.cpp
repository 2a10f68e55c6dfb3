// Time zones over ICU's calendar: one for the process, whose zone ICU reads once.
#include "CoreFoundation/TimeZone.h"

#include "CoreFoundation/Date.h"
#include "CoreFoundation/Object.h"

#include <unicode/ucal.h>
#include <unicode/ustring.h>

#include <mutex>

struct __CFTimeZone : kiv::cf::Object
{
    explicit __CFTimeZone(UCalendar *opened) noexcept;

    UCalendar *calendar;
};

namespace
{
// Guards the one zone: its creation, and its calendar while a moment is looked at.
std::mutex g_mutex;
CFTimeZoneRef g_default = nullptr; // with a reference of the library's own, so it never ends

constexpr kiv::cf::Type kTimeZoneType{kiv::cf::kTypeTimeZone, nullptr, nullptr, nullptr};

CFTimeZoneRef openZone() noexcept
{
    UErrorCode status = U_ZERO_ERROR;
    UCalendar *calendar = ucal_open(nullptr, 0, "en_US_POSIX", UCAL_GREGORIAN, &status);
    CFTimeZoneRef object = U_SUCCESS(status) ? kiv::cf::create<__CFTimeZone>(0, calendar) : nullptr;
    if (object == nullptr)
        ucal_close(calendar);
    return object;
}

// The fields of one moment; after a failure every further one is 0.
class Moment
{
public:
    Moment(CFTimeZoneRef zone, CFAbsoluteTime at) noexcept : m_calendar{zone->calendar}
    {
        if (!std::isfinite(at))
            m_status = U_ILLEGAL_ARGUMENT_ERROR;
        ucal_setMillis(m_calendar, kiv::cf::icuTime(at), &m_status);
    }
    int32_t field(UCalendarDateFields which) noexcept
    {
        const int32_t value = ucal_get(m_calendar, which, &m_status);
        return U_SUCCESS(m_status) ? value : 0;
    }
    int32_t secondsFromGMT() noexcept
    {
        return (field(UCAL_ZONE_OFFSET) + field(UCAL_DST_OFFSET)) / 1000;
    }
    template <size_t Size>
    void name(std::array<char, Size> &text) noexcept
    {
        const bool summer = field(UCAL_DST_OFFSET) != 0;
        char16_t units[Size];
        const int32_t length =
            ucal_getTimeZoneDisplayName(m_calendar, summer ? UCAL_SHORT_DST : UCAL_SHORT_STANDARD,
                                        "en_US_POSIX", units, static_cast<int32_t>(Size), &m_status);
        const bool fits = U_SUCCESS(m_status) && length < static_cast<int32_t>(Size);
        u_UCharsToChars(units, text.data(), fits ? length : 0); // names in English are ASCII
        text[fits ? static_cast<size_t>(length) : 0] = '\0';
    }
    bool failed() const noexcept
    {
        return U_FAILURE(m_status);
    }

private:
    UCalendar *m_calendar;
    UErrorCode m_status = U_ZERO_ERROR;
};
} // namespace

__CFTimeZone::__CFTimeZone(UCalendar *opened) noexcept : Object{kTimeZoneType}, calendar{opened} {}

CFTypeID CFTimeZoneGetTypeID(void)
{
    return kiv::cf::kTypeTimeZone;
}

CFTimeZoneRef CFTimeZoneCopyDefault(void)
{
    const std::lock_guard lock{g_mutex};
    if (g_default == nullptr)
        g_default = openZone();
    if (g_default != nullptr)
        CFRetain(g_default);
    return g_default;
}

CFTimeInterval CFTimeZoneGetSecondsFromGMT(CFTimeZoneRef tz, CFAbsoluteTime at)
{
    const std::lock_guard lock{g_mutex};
    return Moment{tz, at}.secondsFromGMT();
}

bool kiv::cf::readWall(CFTimeZoneRef zone, CFAbsoluteTime at, WallTime &wall) noexcept
{
    const std::lock_guard lock{g_mutex};
    Moment moment{zone, at};
    wall.year = moment.field(UCAL_EXTENDED_YEAR);
    wall.month = moment.field(UCAL_MONTH);
    wall.day = moment.field(UCAL_DATE);
    wall.dayOfYear = moment.field(UCAL_DAY_OF_YEAR);
    wall.weekday = moment.field(UCAL_DAY_OF_WEEK) - UCAL_SUNDAY;
    wall.hour = moment.field(UCAL_HOUR_OF_DAY);
    wall.minute = moment.field(UCAL_MINUTE);
    wall.second = moment.field(UCAL_SECOND);
    wall.millisecond = moment.field(UCAL_MILLISECOND);
    wall.secondsFromGMT = moment.secondsFromGMT();
    wall.zoneName[0] = '\0';
    return !moment.failed();
}

void kiv::cf::readZoneName(CFTimeZoneRef zone, CFAbsoluteTime at, WallTime &wall) noexcept
{
    const std::lock_guard lock{g_mutex};
    Moment{zone, at}.name(wall.zoneName);
}
