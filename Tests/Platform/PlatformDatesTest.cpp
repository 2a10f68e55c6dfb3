// Dates, the calendar and formatters in a zone with summer time, compared with libc and a slow calendar.
#include "CFText.h"

#include <Foundation/NSDate.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <random>

using kiv::CFRef;
using namespace kiv::test;

namespace
{
// Set before the first date, which reads the zone.
[[maybe_unused]] const int g_zone = setenv("TZ", "Europe/Berlin", 1);

using FormatterRef = CFRef<CFDateFormatterRef>;

FormatterRef formatter(const char *pattern, const char *locale = nullptr)
{
    const CFRef<CFLocaleRef> named{locale != nullptr ? CFLocaleCreate(nullptr, fromBytes(locale).get())
                                                     : nullptr};
    FormatterRef made{
        CFDateFormatterCreate(nullptr, named.get(), kCFDateFormatterNoStyle, kCFDateFormatterNoStyle)};
    CFDateFormatterSetFormat(made.get(), fromBytes(pattern).get());
    return made;
}

std::string textOf(const FormatterRef &format, CFAbsoluteTime at)
{
    const StringRef text{CFDateFormatterCreateStringWithAbsoluteTime(nullptr, format.get(), at)};
    return text ? utf8(text.get()) : "(none)";
}

CFAbsoluteTime composed(int year, int month, int day, int hour = 0, int minute = 0, int second = 0)
{
    const CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    CFAbsoluteTime at = NAN;
    EXPECT_TRUE(
        CFCalendarComposeAbsoluteTime(calendar.get(), &at, "yMdHms", year, month, day, hour, minute, second));
    return at;
}

} // namespace

// Compares texts of random dates with those of the C library.
void expectLikeStrftime(const char *format, const std::function<std::string(CFAbsoluteTime)> &text)
{
    std::mt19937_64 random{20010101};
    std::uniform_int_distribution<time_t> seconds{-2145916800, 4102444800}; // 1902 to 2100
    for (int index = 0; index < 3000; ++index)
    {
        const time_t moment = seconds(random);
        tm local{};
        localtime_r(&moment, &local);
        char expected[200];
        strftime(expected, sizeof expected, format, &local);
        ASSERT_EQ(text(static_cast<double>(moment) - kCFAbsoluteTimeIntervalSince1970), expected);
    }
}

TEST(Formatters, WriteWhatStrftimeWrites)
{
    const FormatterRef format = formatter("yyyy-MM-dd HH:mm:ss EEEE MMM DDD");
    expectLikeStrftime("%Y-%m-%d %H:%M:%S %A %b %j", [&](CFAbsoluteTime at) { return textOf(format, at); });
}

TEST(Formatters, EveryMillisecondPrintsAsItself)
{
    const FormatterRef milliseconds = formatter("SSS");
    const FormatterRef seconds = formatter("s");
    const double kBase = std::floor(composed(2024, 3, 15, 10, 0, 7));
    for (int value = 0; value < 1000; ++value)
    {
        char expected[16];
        snprintf(expected, sizeof expected, "%03d", value);
        ASSERT_EQ(textOf(milliseconds, kBase + value / 1000.0), expected);
        ASSERT_EQ(textOf(seconds, kBase + value / 1000.0), "7");
    }
}

TEST(Formatters, TheLocaleIsTheGivenOneOrEnglishNeverTheEnvironments)
{
    ASSERT_EQ(setenv("LC_ALL", "ar_EG.UTF-8", 1), 0);
    const CFAbsoluteTime at = composed(2024, 12, 30, 9, 8, 7); // Monday, in ISO week 1 of 2025
    using Row = std::tuple<const char *, const char *, const char *>;
    const Row rows[] = {
        {nullptr, "y M d H m s SSS", "2024 12 30 9 8 7 000"},
        {nullptr, "EEEE, MMMM d, YYYY", "Monday, December 30, 2025"}, // YYYY is the year of the week
        {"en_US", "EEEE, MMMM d, YYYY", "Monday, December 30, 2025"},
        {"en_US", "HH:mm:ss", "09:08:07"},
        {"de_DE", "EEEE, d. MMMM", "Montag, 30. Dezember"},
        {"th_TH", "y", "2567"}, // a locale by name keeps its calendar
        {nullptr, "''yy 'text'", "'24 text"},
        {nullptr, "", ""},
        {"\xc3\xa9", "y", "(none)"}, // not the name of a locale
        {nullptr, "\xe2\x82\xac y", "\xe2\x82\xac 2024"},
    };
    for (const auto &[locale, pattern, text] : rows)
        EXPECT_EQ(textOf(formatter(pattern, locale), at), text) << pattern;
    unsetenv("LC_ALL");
}

TEST(Formatters, APatternMayChangeAndALongTextIsWhole)
{
    const FormatterRef format{CFDateFormatterCreate(nullptr, nullptr, 0, 0)};
    EXPECT_EQ(textOf(format, 0), "");
    CFDateFormatterSetFormat(format.get(), fromBytes("y").get());
    EXPECT_EQ(textOf(format, 0), "2001");
    const std::string longText(300, 'x');
    CFDateFormatterSetFormat(format.get(), fromBytes("'" + longText + "'M").get());
    EXPECT_EQ(textOf(format, 0), longText + "1");
    const CFRef<CFDateRef> date{CFDateCreate(nullptr, 0.0)};
    const StringRef same{CFDateFormatterCreateStringWithDate(nullptr, format.get(), date.get())};
    EXPECT_EQ(utf8(same.get()), longText + "1");
    EXPECT_EQ(CFDateFormatterCreate(nullptr, nullptr, 1, 0), nullptr);
    for (const double none : {NAN, INFINITY, -INFINITY})
        EXPECT_EQ(textOf(format, none), "(none)");
    EXPECT_NE(textOf(format, 1e300), "(none)"); // ICU stops at the last date that it has
}

TEST(Calendars, ComposingCarriesLikeMktime)
{
    std::mt19937 random{1582};
    const auto pick = [&random](int from, int to) {
        return std::uniform_int_distribution<int>{from, to}(random);
    };
    for (int index = 0; index < 3000; ++index)
    {
        // Hours away from the clock changes, where the results of libc are arbitrary.
        const int year = pick(1985, 2030);
        const int month = pick(-24, 36);
        const int day = pick(-400, 400);
        const int hour = pick(5, 22);
        const int minute = pick(0, 59);
        const int second = pick(0, 59);
        tm local{};
        local.tm_year = year - 1900;
        local.tm_mon = month - 1;
        local.tm_mday = day;
        local.tm_hour = hour;
        local.tm_min = minute;
        local.tm_sec = second;
        local.tm_isdst = -1;
        ASSERT_EQ(composed(year, month, day, hour, minute, second) + kCFAbsoluteTimeIntervalSince1970,
                  static_cast<double>(mktime(&local)))
            << year << '-' << month << '-' << day;
    }
}

TEST(Calendars, MonthAndDayZeroFallOneBack)
{
    const FormatterRef format = formatter("d.M.yyyy HH:mm:ss");
    EXPECT_EQ(textOf(format, composed(2024, 2, 14, 10, 0, 0)), "14.2.2024 10:00:00");
    EXPECT_EQ(textOf(format, composed(2024, 0, 0)), "30.11.2023 00:00:00");
    EXPECT_EQ(textOf(format, composed(2024, 3, 0)), "29.2.2024 00:00:00");
    EXPECT_EQ(textOf(format, composed(2023, 3, 0)), "28.2.2023 00:00:00");
    EXPECT_EQ(textOf(format, composed(1900, 3, 0)), "28.2.1900 00:00:00");
    EXPECT_EQ(textOf(format, composed(2024, 1, 1, 24, 60, 60)), "2.1.2024 01:01:00");
}

// Across centuries, in the early local mean time of a zone and through its summer times, compared with the
// calendar of ICU, which is Julian before 1582.
TEST(Calendars, TextsAndComposingAgree)
{
    const FormatterRef plain = formatter("d.M.y");
    std::mt19937 random{1583};
    for (int index = 0; index < 5000; ++index)
    {
        const int year = static_cast<int>(1 + random() % 2030), month = static_cast<int>(1 + random() % 12),
                  day = static_cast<int>(1 + random() % 28);
        if (year == 1582 && month == 10)
            continue; // ten days do not exist
        ASSERT_EQ(textOf(plain, composed(year, month, day, 12)),
                  std::to_string(day) + "." + std::to_string(month) + "." + std::to_string(year));
    }
    const FormatterRef format = formatter("d.M.yyyy G");
    EXPECT_EQ(textOf(format, composed(1582, 10, 4, 12) + 86400.0), "15.10.1582 AD");
    EXPECT_EQ(textOf(format, composed(1500, 2, 29)), "29.2.1500 AD");
    EXPECT_EQ(textOf(format, composed(0, 0, 0)), "30.11.0002 BC"); // an unset record
}

TEST(Calendars, ComponentsLeftOutAreThoseOfTheFirstOfJanuaryOfYearOne)
{
    const CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    CFAbsoluteTime at = 0;
    ASSERT_TRUE(CFCalendarComposeAbsoluteTime(calendar.get(), &at, ""));
    EXPECT_EQ(at, composed(1, 1, 1));
    ASSERT_TRUE(CFCalendarComposeAbsoluteTime(calendar.get(), &at, "dy", 3, 2024));
    EXPECT_EQ(at, composed(2024, 1, 3));
    at = 7;
    EXPECT_FALSE(CFCalendarComposeAbsoluteTime(calendar.get(), &at, "yQ", 2024, 1));
    EXPECT_EQ(at, 7);
    for (const int extreme : {INT_MIN, INT_MAX})
        EXPECT_TRUE(std::isfinite(composed(extreme, extreme, extreme, extreme, extreme, extreme)));
    const CFRef<CFCalendarRef> same{CFCalendarCopyCurrent()};
    EXPECT_EQ(calendar.get(), same.get());
}

TEST(Dates, NowIsTheRealTimeClock)
{
    const auto seconds = []
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9 -
               kCFAbsoluteTimeIntervalSince1970;
    };
    const double before = seconds();
    const double now = CFAbsoluteTimeGetCurrent();
    const double after = seconds();
    EXPECT_LE(before - 1e-6, now);
    EXPECT_LE(now, after + 1e-6);
    const CFRef<CFDateRef> date{CFDateCreate(nullptr, now)};
    EXPECT_EQ(CFDateGetAbsoluteTime(date.get()), now);
}

TEST(Locales, TheEnvironmentNamesTheCurrentOne)
{
    const std::pair<const char *, const char *> rows[] = {
        {"de_DE.UTF-8@euro", "de_DE"}, {"C.UTF-8", "en_US_POSIX"}, {"POSIX", "en_US_POSIX"}, {"fr", "fr"},
        {".UTF-8", "en_US_POSIX"},
    };
    for (const auto &[variable, name] : rows)
    {
        setenv("LC_ALL", variable, 1);
        const CFRef<CFLocaleRef> locale{CFLocaleCopyCurrent()};
        EXPECT_EQ(utf8(CFLocaleGetIdentifier(locale.get())), name);
        const CFRef<CFLocaleRef> same{CFLocaleCreate(nullptr, fromBytes(name).get())};
        EXPECT_TRUE(CFEqual(locale.get(), same.get()));
    }
    for (const char *variable : {"LC_ALL", "LC_TIME", "LANG"})
        unsetenv(variable);
    const CFRef<CFLocaleRef> none{CFLocaleCopyCurrent()};
    EXPECT_EQ(utf8(CFLocaleGetIdentifier(none.get())), "en_US_POSIX");
}

TEST(Formatters, ReadWhatTheyWrite)
{
    const FormatterRef format = formatter("yyyy-MM-dd HH:mm:ss ZZZ");
    const auto read = [&format](const char *text, CFRange *range = nullptr)
    {
        const CFRef<CFDateRef> date{
            CFDateFormatterCreateDateFromString(nullptr, format.get(), fromBytes(text).get(), range)};
        return date ? CFDateGetAbsoluteTime(date.get()) : NAN;
    };
    for (double at = -1e10; at < 1e10; at += 12345678.0)
        ASSERT_EQ(read(textOf(format, at).c_str()), at);
    const std::pair<const char *, const char *> same[] = {
        {"2024-3-5 1:2:3 +0100", "2024-03-05 01:02:03 +0100"},
        {"2024-02-30 00:00:00 +0000", "2024-03-01 00:00:00 +0000"},
        {"2024-13-01 00:61:60 +0000", "2025-01-01 01:02:00 +0000"},
        {"2024-01-256 24:00:00 -0330", "2024-09-13 03:30:00 +0000"},
        {"65535-01-01 00:00:00 +0545", "65534-12-31 18:15:00 +0000"},
    };
    for (const auto &[given, meant] : same)
        EXPECT_EQ(read(given), read(meant)) << given;
    for (const char *none : {"", "2024", "2024-01-01 25:00:00 +0000", "x2024-01-01 00:00:00 +0000"})
        EXPECT_TRUE(std::isnan(read(none))) << none;
    CFRange range = CFRangeMake(2, 27);
    EXPECT_EQ(read("x 2001-01-01 00:00:00 +0000 y", &range), 0.0);
    EXPECT_EQ(range.length, 25);
    EXPECT_EQ(CFDateFormatterCreateDateFromString(
                  nullptr, FormatterRef{CFDateFormatterCreate(nullptr, nullptr, 0, 0)}.get(),
                  fromBytes("2001").get(), nullptr),
              nullptr); // without a pattern
}

TEST(Zones, DatesThatAreNoneHaveNoOffset)
{
    const CFRef<CFTimeZoneRef> zone{CFTimeZoneCopyDefault()};
    for (const double none : {NAN, INFINITY, -INFINITY})
        EXPECT_EQ(CFTimeZoneGetSecondsFromGMT(zone.get(), none), 0.0);
    EXPECT_TRUE(std::isfinite(CFTimeZoneGetSecondsFromGMT(zone.get(), 1e300)));
    EXPECT_EQ(CFGetTypeID(zone.get()), CFTimeZoneGetTypeID());
}

std::string described(CFAbsoluteTime at, const char *format)
{
    const CFRef<CFDateRef> date{CFDateCreate(nullptr, at)};
    const StringRef text{
        NSDate_descriptionWithCalendarFormat(date.get(), fromBytes(format).get(), nullptr, nullptr)};
    return text ? utf8(text.get()) : "(none)";
}

TEST(CalendarFormats, WriteWhatStrftimeWrites)
{
    constexpr const char *kFormat = "%a %A %b %B %d %H %I %j %m %M %p %S %w %x %X %y %Y %z %%";
    expectLikeStrftime(kFormat, [](CFAbsoluteTime at) { return described(at, kFormat); });
    const CFAbsoluteTime at = composed(2024, 3, 5, 0, 7, 8) + 0.0625;
    const std::pair<const char *, std::string> rows[] = {
        {"%e.%m. %F %c", "5.03. 063 00:07:08 03/05/24"},
        {"%I %p", "12 AM"},
        {"%q%", "%q%"}, // not a conversion
        {"", ""},
        {"\xe2\x82\xac%%Z", "\xe2\x82\xac%Z"},
        {"%Z", "CET"},
    };
    for (const auto &[format, text] : rows)
        EXPECT_EQ(described(at, format), text) << format;
    EXPECT_EQ(described(composed(2024, 7, 1), "%Z"), "CEST");
    EXPECT_EQ(described(composed(-4, 1, 1), "%Y %y"), "-4 04");
    EXPECT_EQ(described(at, (std::string(300, 'x') + "%d").c_str()), std::string(300, 'x') + "05");
    for (const double none : {NAN, INFINITY, -INFINITY})
        EXPECT_EQ(described(none, "%d"), "(none)");
}
