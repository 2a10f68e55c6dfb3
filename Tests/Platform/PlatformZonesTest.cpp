// Every zone of the machine, each in a process that starts in it: offsets, texts and composed dates compared
// with the C library, and moments with known rules.
#include "CFText.h"
#include "OwnProcesses.h"

#include <Foundation/NSDate.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <set>

using kiv::CFRef;
using namespace kiv::test;

namespace
{
// Runs `body` in a child that reads TZ like a new program. This process uses no date before the fork.
void inZone(const std::string &zone, const std::function<void()> &body)
{
    inChild(
        [&]
        {
            SCOPED_TRACE(zone);
            setenv("TZ", zone.c_str(), 1);
            body();
        });
}

CFAbsoluteTime absolute(time_t moment)
{
    return static_cast<double>(moment) - kCFAbsoluteTimeIntervalSince1970;
}

double secondsFromGMT(time_t moment)
{
    const CFRef<CFTimeZoneRef> zone{CFTimeZoneCopyDefault()};
    return CFTimeZoneGetSecondsFromGMT(zone.get(), absolute(moment));
}

// The moment at which the calendar shows a local time, which is given in seconds as if it were GMT.
time_t composed(time_t wall)
{
    tm fields{};
    gmtime_r(&wall, &fields);
    const CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    CFAbsoluteTime at = NAN;
    EXPECT_TRUE(CFCalendarComposeAbsoluteTime(calendar.get(), &at, "yMdHms", fields.tm_year + 1900,
                                              fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                                              fields.tm_min, fields.tm_sec));
    return static_cast<time_t>(at + kCFAbsoluteTimeIntervalSince1970);
}

time_t utc(int year, int month, int day, int hour = 0, int minute = 0)
{
    tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    return timegm(&fields);
}

tm wallOf(time_t moment)
{
    tm wall{};
    localtime_r(&moment, &wall);
    return wall;
}

// A formatter that the child keeps.
CFDateFormatterRef formatterOf(const char *pattern)
{
    const CFDateFormatterRef made = CFDateFormatterCreate(nullptr, nullptr, 0, 0);
    CFDateFormatterSetFormat(made, fromBytes(pattern).get());
    return made;
}

std::string textAt(CFDateFormatterRef formatter, time_t moment)
{
    return utf8(
        StringRef{CFDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter, absolute(moment))}.get());
}

// Of the moments that have this local time, the last one.
time_t lastShowing(time_t local, const std::set<long> &offsets)
{
    for (const long offset : offsets) // a smaller offset is a later moment
        if (wallOf(local - offset).tm_gmtoff == offset)
            return local - offset;
    return local;
}

void expectMoment(time_t moment, const std::set<long> &offsets)
{
    static const CFDateFormatterRef hours = formatterOf("H");
    static const StringRef format = fromBytes("%Y-%m-%d %H:%M:%S %z %Z");
    SCOPED_TRACE(moment);
    const tm wall = wallOf(moment);
    char expected[100];
    strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S %z %Z", &wall);
    EXPECT_EQ(secondsFromGMT(moment), static_cast<double>(wall.tm_gmtoff));
    EXPECT_EQ(textAt(hours, moment), std::to_string(wall.tm_hour));
    const CFRef<CFDateRef> date{CFDateCreate(nullptr, absolute(moment))};
    const StringRef text{NSDate_descriptionWithCalendarFormat(date.get(), format.get(), nullptr, nullptr)};
    EXPECT_EQ(utf8(text.get()), expected);
    EXPECT_EQ(composed(moment + wall.tm_gmtoff), lastShowing(moment + wall.tm_gmtoff, offsets));
}

// The same through ICU, which takes a child some time to load.
void expectTexts(time_t moment, const std::set<long> &offsets)
{
    static const CFDateFormatterRef plain = formatterOf("yyyy-MM-dd HH:mm:ss");
    static const CFDateFormatterRef zoned = formatterOf("yyyy-MM-dd HH:mm:ss xx");
    SCOPED_TRACE(moment);
    const tm wall = wallOf(moment);
    char expected[100];
    strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S %z", &wall);
    EXPECT_EQ(textAt(zoned, moment), expected);
    const auto read = [](CFDateFormatterRef formatter, const std::string &text)
    {
        const CFRef<CFDateRef> date{
            CFDateFormatterCreateDateFromString(nullptr, formatter, fromBytes(text.c_str()).get(), nullptr)};
        return date ? CFDateGetAbsoluteTime(date.get()) : NAN;
    };
    EXPECT_EQ(read(zoned, expected), absolute(moment));
    EXPECT_EQ(read(plain, textAt(plain, moment)), absolute(lastShowing(moment + wall.tm_gmtoff, offsets)));
}

using Expectation = void (*)(time_t moment, const std::set<long> &offsets);

// Every second month of some years, both sides of each change between two of them, and the times in gaps.
void expectZoneOfTheCLibrary(Expectation expect)
{
    constexpr time_t kStep = 61 * 86400;
    for (const int year : {1944, 2024, 2025, 2040})
    {
        for (time_t at = utc(year, 1, 1); at < utc(year + 1, 1, 1); at += kStep)
        {
            const long before = wallOf(at).tm_gmtoff;
            expect(at, {before});
            if (wallOf(at + kStep).tm_gmtoff == before)
                continue;
            time_t low = at, high = at + kStep;
            while (high - low > 1)
                (wallOf((low + high) / 2).tm_gmtoff == before ? low : high) = (low + high) / 2;
            const long after = wallOf(high).tm_gmtoff;
            for (const time_t distance : {-86401, -1800, -1, 0, 1800, 86400})
                expect(high + distance, {before, after});
            for (time_t local = high + before; local < high + after; local += 900)
                EXPECT_EQ(composed(local), local - before);
        }
    }
}

TEST(Zones, EveryNameOfTheMachineIsAsInTheCLibrary)
{
    const std::filesystem::path root = "/usr/share/zoneinfo";
    size_t zones = 0;
    std::error_code error;
    for (auto entry = std::filesystem::recursive_directory_iterator{root, error};
         entry != std::filesystem::recursive_directory_iterator{}; entry.increment(error))
    {
        const std::string name = entry->path().lexically_relative(root);
        if (name == "right" || name == "posix")
            entry.disable_recursion_pending(); // the same zones again, with leap seconds
        char magic[4] = {};
        if (FILE *file = entry->is_regular_file() ? std::fopen(entry->path().c_str(), "rb") : nullptr)
        {
            (void)!std::fread(magic, 1, sizeof magic, file);
            std::fclose(file);
        }
        if (std::string_view{magic, sizeof magic} != "TZif" || name == "posixrules" || name == "Factory")
            continue;
        ++zones;
        inZone(name, [] { expectZoneOfTheCLibrary(expectMoment); });
    }
    if (zones == 0)
        GTEST_SKIP() << "this machine has no zones";
    RecordProperty("zones", static_cast<int>(zones));
}

TEST(Zones, RulesPathsAndNamesThatAreNoneToo)
{
    for (const char *zone :
         {"CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "<+0330>-3:30",
          "AEST-10AEDT,M10.1.0,M4.1.0/3", "IST-1GMT0,M10.5.0,M3.5.0/1", "XXX3YYY,J60,J300", ":/etc/localtime",
          "/usr/share/zoneinfo/Europe/Berlin", ":Africa/Cairo", "Africa/Cairo", "Asia/Almaty",
          "Asia/Kathmandu", "Australia/Lord_Howe", "Nowhere/Town", ""})
        inZone(zone,
               []
               {
                   expectZoneOfTheCLibrary(expectMoment);
                   expectZoneOfTheCLibrary(expectTexts);
               });
}

TEST(Zones, KnownGapsAndRepeatedHours)
{
    struct Row
    {
        const char *zone;
        time_t wall, moment;
    };
    const Row rows[] = {
        {"Europe/Berlin", utc(2024, 3, 31, 2, 30), utc(2024, 3, 31, 1, 30)},  // 03:30
        {"Africa/Cairo", utc(2024, 4, 26, 0, 30), utc(2024, 4, 25, 22, 30)},  // 01:30, a gap at midnight
        {"Pacific/Apia", utc(2011, 12, 30, 12, 0), utc(2011, 12, 30, 22, 0)}, // a day that does not exist
        {"CET-1CEST,M3.5.0,M10.5.0/3", utc(2024, 10, 27, 2, 30), utc(2024, 10, 27, 1, 30)},
    };
    for (const Row &row : rows)
        inZone(row.zone, [&row] { EXPECT_EQ(composed(row.wall), row.moment); });
}

// The zone is that of the C library. If a host changes TZ and calls tzset, the zone follows; if it only sets
// TZ, it does not.
TEST(Zones, AChangedZoneIsFollowedFromTzsetOn)
{
    inZone("Europe/Berlin",
           []
           {
               const time_t july = utc(2024, 7, 15);
               EXPECT_EQ(secondsFromGMT(july), 7200.0);
               setenv("TZ", "Asia/Tokyo", 1);
               EXPECT_EQ(secondsFromGMT(july), 7200.0);
               tzset();
               EXPECT_EQ(secondsFromGMT(july), 32400.0);
               EXPECT_EQ(composed(july), july - 32400);
           });
}
} // namespace
