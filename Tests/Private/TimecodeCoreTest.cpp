// The computing parts of timecode, compared with the plain loops that they replace.
#include "Private/Timecode/Calendar.h"
#include "Private/Timecode/Formatting.h"
#include "Private/Timecode/Numbering.h"

#include "KIVCS2Base.h"
#include "Private/Support/CFRef.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using namespace kiv::timecode;

namespace
{
struct Table : Numbering
{
    explicit Table(const Rate &rate)
    {
        EXPECT_TRUE(makeNumbering(rate, *this));
    }
    ~Table()
    {
        freeNumbering(*this);
    }
};

// Every frame is found by its own digits and by no others: as many hits as frames, each correct.
TEST(TimecodeNumbering, FindsEveryFrameAndNothingElse)
{
    std::vector<uint32_t> values;
    for (uint32_t value = 0; value < 256; ++value)
#ifndef NDEBUG
        if (value < 66 || value % 61 == 0 || value == 255)
#endif
            values.push_back(value);
    for (const Rate &rate : kRates)
    {
        const Table table{rate};
        uint32_t hits = 0;
        for (const uint32_t minute : values)
            for (const uint32_t second : values)
                for (uint32_t frame = 0; frame < 256; ++frame)
                {
                    const uint32_t at = frameOfHour(table, minute, second, frame);
                    if (at == kNoFrame)
                        continue;
                    ++hits;
                    ASSERT_TRUE(at < rate.framesPerHour && table.convertFrame[at] == frame &&
                                table.convertSecond[at] == second && table.convertMinute[at] == minute)
                        << minute << ':' << second << ':' << frame;
                }
        EXPECT_EQ(hits, rate.framesPerHour) << rate.realFramesPerSecond;
    }
}

TEST(TimecodeNumbering, ClockTimesLandOnFramesThatExist)
{
    for (const Rate &rate : kRates)
    {
        const Table table{rate};
        const uint32_t dropped = rate.droppedPerMinute;
        for (uint32_t minute = 0; minute < 60; ++minute)
            for (uint32_t second = 0; second < 60; ++second)
                for (uint32_t ms : {0u, 1u, 33u, 41u, 42u, 66u, 67u, 500u, 950u, 967u, 983u, 984u, 999u})
                {
                    const uint32_t skipped = second == 0 && minute % 10 != 0 ? dropped : 0;
                    uint32_t offset = ms * rate.framesPerSecond / 1000;
                    if (dropped > 0 && offset >= 2)
                        offset -= 2;
                    offset = std::min(offset, rate.framesPerSecond - skipped - 1);
                    const uint32_t expected = frameOfHour(table, minute, second, skipped) + offset;
                    ASSERT_EQ(frameOfClockTime(table, minute, second, ms), expected)
                        << rate.realFramesPerSecond << ' ' << minute << ':' << second << '.' << ms;
                }
    }
}

// ---- Calendar: one month for each step

Date plainAddDays(Date date, uint64_t n)
{
    while (n > 0)
    {
        const uint32_t length = daysInMonth(date.month, date.year);
        if (date.day + n < length)
        {
            date.day = static_cast<uint8_t>(date.day + n);
            break;
        }
        n = n + date.day - length;
        date = addMonths(date, 1);
        date.day = 0;
    }
    return date;
}

Date plainSubtractDays(Date date, uint64_t n)
{
    while (n > 0)
    {
        if (n <= date.day)
        {
            date.day = static_cast<uint8_t>(date.day - n);
            break;
        }
        n -= date.day + 1u;
        date = subtractMonths(date, 1);
        date.day = static_cast<uint8_t>(daysInMonth(date.month, date.year) - 1);
    }
    return date;
}

std::string textOf(const Date &date)
{
    return std::to_string(date.day) + "." + std::to_string(date.month) + "." + std::to_string(date.year);
}

TEST(TimecodeCalendar, DayArithmeticEqualsTheWalkOverMonths)
{
    std::mt19937 random{20240229};
    const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    const uint16_t years[] = {0, 1, 3, 4, 99, 100, 399, 400, 1582, 1900, 2000, 2023, 2024, 65535, 65136};
    for (int round = 0; round < 8000; ++round)
    {
        const uint32_t any = below(65536);
        const Date date{static_cast<uint8_t>(below(8) == 0 ? below(256) : below(31)),
                        static_cast<uint8_t>(below(12)),
                        static_cast<uint16_t>(below(2) == 0 ? years[below(std::size(years))] : any)};
        // Up to 2700 years, so that both ends of the range of years are passed often.
        const uint32_t count = below(4) == 0 ? below(1000000) : below(800);
        ASSERT_EQ(addDays(date, count), plainAddDays(date, count)) << textOf(date) << " + " << count;
        ASSERT_EQ(subtractDays(date, count), plainSubtractDays(date, count))
            << textOf(date) << " - " << count;
    }
    // Whole turns of the 16 bits of the year, and the largest count.
    const Date date{27, 1, 2024};
    EXPECT_EQ(addDays(date, 0xFFFFFFFFu), plainAddDays(date, 0xFFFFFFFFu % daysBeforeYear(65536)));
    EXPECT_EQ(subtractDays(date, 0xFFFFFFFFu), plainSubtractDays(date, 0xFFFFFFFFu % 366 + 366u * 5000));
}

// Counts within a day, and counts less than a day below 2 to the 32nd, whose sums wrap. In a short day they
// soon repeat, so that whole periods are skipped.
TEST(TimecodeCalendar, RepeatedAdditionEqualsTheLoop)
{
    for (const uint32_t perDay : {7u, 24u, 1000u, 2589408u, 5184000u})
        for (const uint32_t part : {1u, 2u, 3u, 5u, 7u, 18u, 20u, perDay / 3, perDay / 2, perDay - 1, perDay})
            for (const uint32_t frames : {part, 2 * part + perDay, 0u - part})
            {
                Carry plain{frames, 0};
                for (uint32_t times = 0; times < 3000; ++times)
                {
                    if (times < 4 || times % 199 == 0)
                    {
                        const Carry got = addRepeatedly(frames, times, perDay);
                        ASSERT_EQ(got.frames, plain.frames) << frames << " * " << times << " in " << perDay;
                        ASSERT_EQ(got.days, plain.days) << frames << " * " << times << " in " << perDay;
                    }
                    const uint32_t sum = plain.frames + frames;
                    plain = {sum % perDay, plain.days + sum / perDay};
                }
            }
}

TEST(TimecodeFormatting, AFieldReadsAsZeroWhenTheFormattersCannotBeLocked)
{
    Formatting formatting{};
    ASSERT_EQ(ensureFormatting(formatting), KIVCS2STATUS_OK);
    const kiv::CFRef<CFDateRef> date{CFDateCreate(nullptr, 0)};
    EXPECT_EQ(getValueFromDate(formatting, date.get(), formatting.formatYear), 2001u);

#ifdef __GLIBC__
    // A recursive mutex that is locked as often as it can count refuses another lock.
    ASSERT_EQ(kivCS2Mutex_lock(&formatting.dateFormatMutex), KIVCS2STATUS_OK);
    formatting.dateFormatMutex.m_mutex.__data.__count = 0xFFFFFFFFu;
    testing::internal::CaptureStdout();
    const uint32_t value = getValueFromDate(formatting, date.get(), formatting.formatYear);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "getValueFormDate failed!\n");
    EXPECT_EQ(value, 0u);
    formatting.dateFormatMutex.m_mutex.__data.__count = 1;
    EXPECT_EQ(kivCS2Mutex_unlock(&formatting.dateFormatMutex), KIVCS2STATUS_OK);
#endif
    EXPECT_EQ(kivCS2Mutex_free(&formatting.dateFormatMutex), KIVCS2STATUS_OK);
    for (const CFTypeRef object : std::initializer_list<CFTypeRef>{
             formatting.formatYear, formatting.formatMonth, formatting.formatDay, formatting.formatHour,
             formatting.formatMinute, formatting.formatSecond, formatting.formatMilliSecond,
             formatting.spaceString, formatting.dotString, formatting.colonString,
             formatting.invertDecimalCharSet})
        CFRelease(object);
}
} // namespace
