// System dates to timecodes and back, by the C operations and the class, in the time zone of the process. The
// program runs in several zones.
#include <KIVCoreServices2/KIVProjectTimecode.h>

#include "CFText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <thread>
#include <vector>

namespace
{
using PT = KIVProjectTimecode;

constexpr PT object(uint32_t frames, uint64_t day = 0, uint64_t month = 0, uint64_t year = 0)
{
    return PT::timecodeWithCS2Timecode(year << 48 | month << 40 | day << 32 | frames);
}

std::string textOf(const PT &tc)
{
    char text[PT::kTextSize];
    return std::string{tc.debugDescription(text, sizeof text)};
}

double take(CFDateRef date)
{
    const kiv::CFRef<CFDateRef> owned{date};
    return owned ? CFDateGetAbsoluteTime(owned.get()) : NAN;
}

// For the class and the C operations.
void setRate(KIVCS2FrameRate rate)
{
    PT::setFrameRate(rate);
    ASSERT_EQ(kivCS2Timecode_setFrameRate(rate), KIVCS2STATUS_OK);
}

// Seconds from 2001 of a wall clock as if it showed UTC.
int64_t wallSeconds(const struct tm &wall)
{
    struct tm copy = wall;
    return timegm(&copy) - static_cast<int64_t>(kCFAbsoluteTimeIntervalSince1970);
}

int64_t gmtOffset(int64_t at)
{
    const time_t seconds = at + static_cast<int64_t>(kCFAbsoluteTimeIntervalSince1970);
    struct tm wall = {};
    localtime_r(&seconds, &wall);
    return wall.tm_gmtoff;
}

// By the zones of the C library: the last moment at which the wall clock shows this. A time in a gap lies as
// far after the change as after the start of the gap.
int64_t expectedMoment(int64_t local)
{
    const int64_t before = gmtOffset(local - 86400), after = gmtOffset(local + 86400);
    for (const int64_t offset : {std::min(before, after), std::max(before, after)})
        if (gmtOffset(local - offset) == offset)
            return local - offset;
    return local - before;
}

PT objectOfWall(int64_t local, uint32_t frame)
{
    const time_t seconds = local + static_cast<int64_t>(kCFAbsoluteTimeIntervalSince1970);
    struct tm wall = {};
    gmtime_r(&seconds, &wall);
    return object(static_cast<uint32_t>(wall.tm_hour * 3600 + wall.tm_min * 60 + wall.tm_sec) * 25 + frame,
                  static_cast<uint64_t>(wall.tm_mday - 1), static_cast<uint64_t>(wall.tm_mon),
                  static_cast<uint64_t>(wall.tm_year + 1900));
}

// Wall clocks around each change of the zone, leap days and the turns of years at which the code paths
// change.
std::vector<int64_t> wallTimes()
{
    std::vector<int64_t> times;
    const auto around = [&times](int64_t local)
    {
        for (int64_t minute = -200; minute <= 200; minute += 5)
            for (const int64_t second : {int64_t{0}, int64_t{59}})
                times.push_back(local + minute * 60 + second);
    };
    for (const int year :
         {1880, 1900, 1970, 1999, 2000, 2001, 2002, 2019, 2020, 2021, 2022, 2024, 2038, 2100})
    {
        struct tm january = {};
        january.tm_year = year - 1900;
        january.tm_mday = 1;
        const int64_t first = wallSeconds(january);
        around(first);
        around(first + 59 * 86400);
        for (int64_t day = first; day < first + 366 * 86400; day += 86400)
            if (const int64_t offset = gmtOffset(day); offset != gmtOffset(day + 86400))
            {
                int64_t change = day;
                while (gmtOffset(change + 900) == offset)
                    change += 900;
                around(change + 900 + offset);
                around(change + 900 + gmtOffset(change + 900));
            }
    }
    return times;
}

// Expects the same timecode from the three readers of a date.
void expectRead(CFDateRef date, const PT &tc, bool includeTime)
{
    PT foundation = object(7, 7, 7, 7), core = foundation;
    KIVCS2Timecode record = foundation.ticks();
    foundation.fromDate(date, includeTime);
    core.fromCFDate(date, includeTime);
    ASSERT_EQ(kivCS2Timecode_initWithDate(&record, date, includeTime), KIVCS2STATUS_OK);
    EXPECT_EQ(textOf(foundation), textOf(tc));
    EXPECT_EQ(core, foundation);
    EXPECT_EQ(record, foundation.ticks());
}

TEST(TimecodeDates, ShowTheWallClockOfTheZoneAndReadIt)
{
    setRate(KIVCS2FrameRate_25);
    size_t gaps = 0;
    for (const int64_t local : wallTimes())
    {
        const PT tc = objectOfWall(local, 20);
        SCOPED_TRACE(textOf(tc));
        int64_t moment = expectedMoment(local);
        const int64_t odd = (local - moment) % 60; // local mean time: the text has no seconds of an offset
        const bool byText = tc.year() < 2001 || tc.year() > 2020;
        EXPECT_EQ(take(tc.toCFDate()), static_cast<double>(moment + odd));
        moment += byText ? odd : 0;
        EXPECT_NEAR(take(tc.toDate()), static_cast<double>(moment) + 0.8, 1e-6);
        const int64_t midnight = local - ((local % 86400) + 86400) % 86400;
        const int64_t dayBegins = expectedMoment(midnight);
        EXPECT_EQ(take(tc.toCalendarDate()),
                  static_cast<double>(dayBegins + (byText ? (midnight - dayBegins) % 60 : 0)));
        const kiv::CFRef<CFDateRef> date{tc.toDate()};
        if (local - gmtOffset(moment) != moment && odd == 0)
            ++gaps;
        else if (odd == 0)
        {
            PT day = tc;
            day.zeroTime();
            expectRead(date.get(), tc, true);
            expectRead(date.get(), day, false);
        }
    }
    const bool summerTime = gmtOffset(20 * 86400) != gmtOffset(200 * 86400);
    EXPECT_EQ(gaps > 0, summerTime);
}

// Kept: month and day are composed zero-based.
TEST(TimecodeDates, CreatedDatesLieAMonthAndADayEarly)
{
    setRate(KIVCS2FrameRate_25);
    for (const PT &tc :
         {object(900024, 14, 2, 2024), object(2159999, 0, 0, 2024), object(1200000, 28, 1, 2000),
          object(900000, 30, 11, 2037), object(36 * 90000, 5, 6, 1999)})
    {
        struct tm wall = {};
        wall.tm_year = static_cast<int>(tc.year()) - 1900;
        wall.tm_mon = static_cast<int>(tc.month()) - 1;
        wall.tm_mday = static_cast<int>(tc.day());
        wall.tm_hour = static_cast<int>(tc.framesSinceMidnight() / 90000);
        wall.tm_sec = static_cast<int>(tc.framesSinceMidnight() % 90000 / 25); // whole seconds
        wall.tm_isdst = -1;
        CFDateRef date = nullptr;
        const KIVCS2Timecode record = tc.ticks();
        ASSERT_EQ(kivCS2Timecode_createCFDate(&record, &date), KIVCS2STATUS_OK);
        EXPECT_EQ(take(date), static_cast<double>(mktime(&wall)) - kCFAbsoluteTimeIntervalSince1970)
            << textOf(tc);
    }
}

TEST(TimecodeDates, TheTwoPathsDifferAsSecondsOfTimecodeDo)
{
    // Rate, timecode, and its seconds since midnight.
    using Row = std::tuple<KIVCS2FrameRate, PT, double>;
    const Row rows[] = {
        {KIVCS2FrameRate_25, object(900000, 0, 0, 2019), 36000.0},
        {KIVCS2FrameRate_25, object(900000, 0, 0, 2024), 36000.0},
        {KIVCS2FrameRate_23_98, object(864000, 0, 0, 2000), 36000.0},
        {KIVCS2FrameRate_23_98, object(864000, 0, 0, 2001), 36030.025020850},
        {KIVCS2FrameRate_23_98, object(864000, 0, 0, 2020), 36030.025020850},
        {KIVCS2FrameRate_23_98, object(864000, 0, 0, 2021), 36000.0},
        {KIVCS2FrameRate_29_97, object(1800, 0, 0, 2019), 60.060060060},
        {KIVCS2FrameRate_29_97, object(1800, 0, 0, 2024), 60.066733400},
        {KIVCS2FrameRate_29_97, object(29, 0, 0, 2024), 0.967634301}, // frames of the real rate
        {KIVCS2FrameRate_25, object(0xFFFFFFFFu, 0, 0, 2019), 0.0},
        {KIVCS2FrameRate_25, object(25 * 90000, 0, 0, 2019), 90000.0},
        {KIVCS2FrameRate_25, object(25 * 90000, 0, 0, 2024), 90000.0}, // beyond the day
    };
    for (const auto &[rate, tc, seconds] : rows)
    {
        setRate(rate);
        EXPECT_NEAR(take(tc.toDate()) - take(tc.toCalendarDate()), seconds, 1e-6) << textOf(tc);
    }
    // Up to 1582 the formatters of the system have the Julian calendar.
    const kiv::CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    for (const PT &tc :
         {object(900000, 28, 1, 1500), object(900000, 3, 9, 1582), object(900000, 14, 9, 1582),
          object(900000, 0, 0, 1583), object(49 * 90000, 0, 0, 1), object(900000, 30, 11, 1582)})
    {
        double at = 0;
        ASSERT_TRUE(CFCalendarComposeAbsoluteTime(
            calendar.get(), &at, "yMdH", static_cast<int>(tc.year()), static_cast<int>(tc.month() + 1),
            static_cast<int>(tc.day() + 1), static_cast<int>(tc.hours())));
        EXPECT_NEAR(take(tc.toCFDate()), at, 59.0) << textOf(tc); // local mean time has seconds
    }
    EXPECT_EQ(object(0, 0, 12, 2019).toDate(), nullptr);
    EXPECT_EQ(object(0, 0, 12, 2024).toCFDate(), nullptr);
}

TEST(TimecodeDates, NowIsToday)
{
    setRate(KIVCS2FrameRate_25);
    for (int attempt = 0; attempt < 10; ++attempt)
    {
        const time_t before = time(nullptr);
        const PT now = PT::now(), today = PT::calendarDate();
        const bool isToday = today.isToday(), wasToday = object(0, 0, 0, 2001).isToday();
        KIVCS2Timecode nowToo = 0, day = 7;
        uint32_t dayIsToday = 0;
        ASSERT_EQ(kivCS2Timecode_initWithNow(&nowToo) | kivCS2Timecode_initWithCalendarDate(&day) |
                      kivCS2Timecode_isToday(&day, &dayIsToday),
                  KIVCS2STATUS_OK);
        if (time(nullptr) / 900 != before / 900)
            continue; // midnight or a change of the clock may have passed
        struct tm wall = {};
        localtime_r(&before, &wall);
        const int seconds = wall.tm_hour * 3600 + wall.tm_min * 60 + wall.tm_sec;
        for (const PT &tc : {now, PT::timecodeWithCS2Timecode(nowToo)})
        {
            EXPECT_GE(tc.secondsSinceMidnight(), seconds);
            EXPECT_LT(tc.secondsSinceMidnight(), seconds + 900);
        }
        EXPECT_TRUE(isToday && dayIsToday == 1 && now.isSameDay(today) && today.isZeroTime());
        EXPECT_FALSE(wasToday);
        EXPECT_EQ(day, today.ticks());
        EXPECT_EQ(textOf(today), textOf(object(0, static_cast<uint64_t>(wall.tm_mday - 1),
                                               static_cast<uint64_t>(wall.tm_mon),
                                               static_cast<uint64_t>(wall.tm_year + 1900))));
        const kiv::CFRef<CFDateRef> date{today.toDate()};
        EXPECT_EQ(PT::valueFromDate(date.get(), "%j"), wall.tm_yday + 1);
        EXPECT_EQ(PT::valueFromDate(date.get(), "x%d"), 0);
        EXPECT_EQ(PT::valueFromDate(nullptr, "%d"), 0);
        return;
    }
    FAIL() << "the clock jumped ten times";
}

// For ThreadSanitizer: the threads have records of their own and share the formatters.
TEST(TimecodeDates, ThreadsShareTheFormatters)
{
    setRate(KIVCS2FrameRate_29_97);
    std::vector<std::thread> threads;
    std::vector<int> wrong(4, 0);
    for (size_t thread = 0; thread < wrong.size(); ++thread)
        threads.emplace_back(
            [&wrong, thread]
            {
                for (uint32_t index = 0; index < 100; ++index)
                {
                    const PT tc = object(index * 20000, index % 28, index % 12, 2015 + index % 10);
                    const kiv::CFRef<CFDateRef> date{tc.toCFDate()};
                    PT day = tc, core, foundation;
                    KIVCS2Timecode record = 0;
                    day.zeroTime();
                    core.fromCFDate(date.get(), false);
                    foundation.fromDate(date.get(), false);
                    (void)kivCS2Timecode_initWithDate(&record, date.get(), false);
                    wrong[thread] += core != day || foundation != day || record != day.ticks();
                }
            });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}
} // namespace
