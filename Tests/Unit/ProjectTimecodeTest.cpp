// The project timecode of C++ hosts, compared with the C operations that it follows.
#include <KIVCoreServices2/KIVProjectTimecode.h>

#include "CFText.h"

#include <KIVLogger/KIVLogger.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>

namespace
{
using PT = KIVProjectTimecode;
using kiv::test::fromBytes;

// The object is only its record: hosts keep it in files, arrays and registers.
static_assert(sizeof(PT) == sizeof(KIVCS2Timecode) && alignof(PT) == alignof(KIVCS2Timecode));
static_assert(std::is_trivially_copyable_v<PT> && std::is_standard_layout_v<PT>);

constexpr PT object(uint32_t frames, uint64_t day = 0, uint64_t month = 0, uint64_t year = 0)
{
    return PT::timecodeWithCS2Timecode(year << 48 | month << 40 | day << 32 | frames);
}

std::string take(CFStringRef string)
{
    const kiv::test::StringRef owned{string};
    return owned ? kiv::test::utf8(owned.get()) : "(null)";
}

std::string textOf(const PT &tc)
{
    return take(tc.debugDescription());
}

constexpr PT kInvalid = object(0xFFFFFFFFu, 14, 2, 2024);

// Runs first in its process: no rate is set yet.
TEST(ProjectTimecode, WithoutARateNothingIsCalculated)
{
    if (PT::hasValidFrameRate())
        GTEST_SKIP() << "not the first test";
    EXPECT_EQ(PT::currentFrameRate(), KIVCS2FrameRate_MAX);
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK); // not the class's rate
    EXPECT_FALSE(PT::hasValidFrameRate());
    PT::setFrameRate(KIVCS2FrameRate_MAX);
    EXPECT_FALSE(PT::hasValidFrameRate());

    const PT before = object(900000, 14, 2, 2024);
    EXPECT_EQ(before.hours() + before.minutes() + before.seconds() + before.frames(), 0u);
    EXPECT_EQ(before.secondsSinceMidnight(), 0.0);
    EXPECT_EQ(textOf(before), "15.3.2024 00:00:00:00");
    EXPECT_EQ(before.toDate(), nullptr);
    EXPECT_EQ(before.toCFDate(), nullptr);
    EXPECT_EQ(take(before.descriptionWithCalendarFormat("%d")), "(null)");
    EXPECT_EQ(before.CMTimeValue().timescale, 2500); // as at 25
    EXPECT_FALSE(PT::now().isToday());
    PT tc = before;
    tc.addFrames(1);
    tc.subtractFrames(900001);
    tc.multiplyBy(7);
    tc.snapToMinute(1);
    tc.snapToHour(1);
    const kiv::CFRef<CFDateRef> date{CFDateCreate(nullptr, 0)};
    tc.fromDate(date.get(), true);
    tc.fromCFDate(date.get(), true);
    EXPECT_EQ(tc, before);
    EXPECT_EQ(PT::timecodeSubtracting(tc, object(900001, 15, 2, 2024), true), object(1, 15, 2, 2024));
    KLSetEnabled(false);
    EXPECT_EQ(PT::timecodeWithString("15.3.2024 10:00:00:00"), object(0, 14, 2, 2024)); // no such frame
    KLSetEnabled(true);
    EXPECT_EQ(PT::timecodeWithString("900000"), object(900000));
}

struct RateRow
{
    void (*set)() noexcept;
    KIVCS2FrameRate code;
    uint32_t nominal, framesPerHour, dropped;
    double real;
    int64_t duration;
    int32_t timescale;
};
constexpr RateRow kRates[] = {
    {PT::fps2398, 0, 24, 86400, 0, 23.98, 1001, 24000},  {PT::fps24, 1, 24, 86400, 0, 24.0, 100, 2400},
    {PT::fps25, 2, 25, 90000, 0, 25.0, 100, 2500},       {PT::fps2997, 3, 30, 107892, 2, 29.97, 1001, 30000},
    {PT::fps30, 4, 30, 108000, 0, 30.0, 100, 3000},      {PT::fps50, 5, 50, 180000, 0, 50.0, 100, 5000},
    {PT::fps5994, 6, 60, 215784, 4, 59.94, 1001, 60000}, {PT::fps60, 7, 60, 216000, 0, 60.0, 100, 6000},
};

// Kept: media time at 23.98 has 1001, unlike the C operation.
TEST(ProjectTimecode, EachRateHasItsFigures)
{
    for (const RateRow &row : kRates)
    {
        SCOPED_TRACE(row.real);
        row.set();
        for (int round = 0; round < 2; ++round)
        {
            EXPECT_TRUE(PT::hasValidFrameRate());
            EXPECT_EQ(PT::currentFrameRate(), row.code);
            EXPECT_EQ(PT::framesPerSecond(), row.nominal);
            EXPECT_EQ(PT::realFramesPerSecond(), row.real);
            EXPECT_EQ(PT::dropFrameTimecode(), row.dropped > 0);
            EXPECT_EQ(PT::framesPerHour(), row.framesPerHour);
            EXPECT_EQ(PT::framesPerDay(), 24 * row.framesPerHour);
            PT::setFrameRate(8); // is ignored
        }
        const CMTime time = object(4000000000u).CMTimeValue();
        EXPECT_EQ(time.value, 4000000000 * row.duration);
        EXPECT_EQ(time.timescale, row.timescale);
        EXPECT_EQ(time.flags, kCMTimeFlags_Valid);
        EXPECT_EQ(time.epoch, 0);
        EXPECT_EQ(object(2997).secondsSinceMidnight(), 2997 / row.real);
        EXPECT_EQ(PT{}.initWithSeconds(100.0), object(static_cast<uint32_t>(100.0 * row.real)));
        EXPECT_EQ(object(2997, 2).totalSeconds(), 2997 / row.real + 2 * 86400.0);
    }
}

TEST(ProjectTimecode, FieldsThatNameNoFrameKeepTheHoursAndAreLogged)
{
    using Row =
        std::tuple<void (*)() noexcept, uint8_t, uint8_t, uint8_t, uint8_t, uint32_t, uint32_t, const char *>;
    const Row rows[] = {
        {PT::fps5994, 1, 0, 0, 10, 2, 215784 + 21, ""},
        {PT::fps5994, 1, 0, 0, 10, 1, 215784 + 20, ""},
        {PT::fps5994, 1, 0, 0, 10, 0, 215784 + 10, ""},
        {PT::fps5994, 1, 0, 0, 10, 3, 215784 + 10, ""}, // no such format
        {PT::fps30, 1, 0, 0, 10, 2, 108000 + 10, ""},   // no pairs at 30
        {PT::fps50, 0, 0, 0, 24, 2, 49, ""},
        {PT::fps50, 2, 0, 0, 25, 1, 360000, "Illegal timecode 02:00:00:50"},
        {PT::fps60, 2, 0, 0, 138, 1, 432000, "Illegal timecode 02:00:00:276"}, // not 20, its low 8 bits
        {PT::fps2997, 2, 1, 0, 1, 0, 215784, "Illegal timecode 02:01:00:01"},
        {PT::fps5994, 0, 1, 0, 1, 2, 0, "Illegal timecode 00:01:00:03"},
        {PT::fps25, 255, 0, 60, 0, 0, 22950000, "Illegal timecode 255:00:60:00"},
    };
    for (const auto &[setRate, h, m, s, f, format, frames, wanted] : rows)
    {
        setRate();
        std::string logged;
        KLSetSink([](void *context, os_log_type_t, const char *message)
                  { *static_cast<std::string *>(context) += message; },
                  &logged);
        PT tc = kInvalid;
        tc.setHours(h, m, s, f, format);
        KLSetSink(nullptr, nullptr);
        EXPECT_EQ(textOf(tc), textOf(object(frames, 14, 2, 2024)));
        EXPECT_EQ(logged, wanted);
    }
}

// ---- The same results as the C operations

// The result of a C operation; zero if it fails.
template <class T>
T out(auto operation, auto... arguments)
{
    T value{};
    (void)operation(arguments..., &value);
    return value;
}

// The digits of a frame of the day, in all forms and back.
void expectForms(const RateRow &row, const PT &tc)
{
    const KIVCS2Timecode record = tc.ticks();
    const uint32_t h = out<uint32_t>(kivCS2Timecode_getHours, &record),
                   m = out<uint32_t>(kivCS2Timecode_getMinutes, &record),
                   s = out<uint32_t>(kivCS2Timecode_getSeconds, &record),
                   f = out<uint32_t>(kivCS2Timecode_getFrames, &record);
    char text[12], written[PT::kTextSize];
    ASSERT_EQ(kivCS2Timecode_timecodeToString(&record, text, sizeof text), KIVCS2STATUS_OK);
    ASSERT_TRUE(tc.hours() == h && tc.minutes() == m && tc.seconds() == s && tc.frames() == f) << text;
    ASSERT_EQ(tc.bcdTimecode(), out<uint32_t>(kivCS2Timecode_getBCDFromTimecode, &record)) << text;
    ASSERT_EQ(tc.description(written, sizeof written), text);
    const auto hours = static_cast<uint8_t>(h), minutes = static_cast<uint8_t>(m),
               seconds = static_cast<uint8_t>(s);
    const bool pairs = row.nominal > 30;
    PT back = kInvalid, paired = object(0);
    ASSERT_EQ(back.initWithString(text), tc) << text; // also with the drop-frame separator
    ASSERT_EQ(back.initWithHours(hours, minutes, seconds, static_cast<uint8_t>(f)), tc) << text;
    paired.setHours(hours, minutes, seconds, static_cast<uint8_t>(pairs ? f / 2 : f), pairs ? 1 + f % 2 : 0);
    ASSERT_EQ(paired, tc) << text;
}

TEST(ProjectTimecode, CalculatesAsTheCOperations)
{
    // clang-format off
#define ROW(name, operation) {#name, &PT::name, kivCS2Timecode_##operation}
#define BOTH(name)           ROW(name, name)
    using Counted = KIVCS2Status (*)(KIVCS2Timecode *, uint32_t);
    using Joined = KIVCS2Status (*)(KIVCS2Timecode *, const KIVCS2Timecode *);
    const std::tuple<const char *, void (PT::*)(uint32_t), Counted> counted[] = {
        BOTH(addFrames), BOTH(addSeconds), BOTH(addMinutes), BOTH(addHours), BOTH(addDays), BOTH(addMonths),
        BOTH(addYears), BOTH(subtractFrames), BOTH(subtractSeconds), BOTH(subtractMinutes),
        BOTH(subtractHours), BOTH(subtractDays), BOTH(subtractMonths), BOTH(subtractYears),
        BOTH(snapToMinute), BOTH(snapToHour), BOTH(setFramesSinceMidnight), ROW(setBcdTimecode, initWithBCD)};
    const std::tuple<const char *, void (PT::*)(const PT &), Joined> joined[] = {
        BOTH(addTimecode), BOTH(subtractTimecode), ROW(takeValues, copy),
        ROW(takeTimecodeValues, copyTimecode), ROW(takeDateValues, copyDate),
        ROW(takeCalendarDataValues, copyDate)};
#undef BOTH
#undef ROW
    // clang-format on
    std::mt19937 random{204};
    const auto number = [&random]
    {
        const uint32_t value = static_cast<uint32_t>(random());
        return random() % 8 == 0 ? 0xFFFFFFFFu : value >> random() % 32;
    };
    const auto record = [&]
    {
        // Durations, days of all months and sometimes a month that does not exist.
        const PT tc =
            object(number(), random() % 32, random() % 13, random() % 4 == 0 ? 0 : random() % 4 + 1999);
        return random() % 4 == 0 ? object(tc.framesSinceMidnight()) : tc;
    };
    KLSetEnabled(false);
    for (const RateRow &row : kRates)
    {
        row.set();
        ASSERT_EQ(kivCS2Timecode_setFrameRate(row.code), KIVCS2STATUS_OK);
        for (int round = 0; round < 400; ++round)
        {
            ASSERT_NO_FATAL_FAILURE(
                expectForms(row, object(static_cast<uint32_t>(random()) % (24 * row.framesPerHour))));
            const PT tc = record(), other = record();
            const uint32_t count = number();
            const KIVCS2Timecode a = tc.ticks(), b = other.ticks();
            SCOPED_TRACE(testing::Message() << row.real << ": " << a << ", " << b << ", " << count);
            PT result;
            KIVCS2Timecode expected = 0;
            for (const auto &[name, change, operation] : counted)
            {
                ((result = tc).*change)(count);
                (void)operation(&(expected = a), count);
                ASSERT_EQ(result.ticks(), expected) << name;
            }
            for (const auto &[name, change, operation] : joined)
            {
                ((result = tc).*change)(other);
                (void)operation(&(expected = a), &b);
                ASSERT_EQ(result.ticks(), expected) << name;
            }
            const bool down = out<uint32_t>(kivCS2Timecode_tickDown, &(expected = a)) != 0;
            EXPECT_EQ((result = tc).tickDown(), down);
            EXPECT_EQ(result.ticks(), expected);
            (void)kivCS2Timecode_initByAddingTimecodes(&expected, &b, &a);
            EXPECT_EQ(PT::timecodeAdding(other, tc).ticks(), expected);
            (void)kivCS2Timecode_initBySubtractingTimecodes(&expected, &b, &a, 0);
            EXPECT_EQ(PT::timecodeSubtracting(other, tc, false).ticks(), expected);
            const auto order = out<int32_t>(kivCS2Timecode_compare, &a, &b);
            EXPECT_TRUE(tc.compareTo(other) == order && tc.compareToTimecode(other) == order);
            EXPECT_EQ(tc.isSameTimecode(other), out<uint32_t>(kivCS2Timecode_isSameTimecode, &a, &b) != 0);
            const bool isSameDay = out<uint32_t>(kivCS2Timecode_isSameDay, &a, &b) != 0;
            EXPECT_TRUE(tc.isSameDay(other) == isSameDay && tc.isSameCalendarDate(other) == isSameDay);
            EXPECT_EQ(tc.isDuration(), out<uint32_t>(kivCS2Timecode_isDuration, &a) != 0);
            EXPECT_EQ(tc.daysInMonth(), out<uint32_t>(kivCS2Timecode_getDaysInMonth, &a));
            EXPECT_EQ(tc.differenceInFramesTo(other),
                      out<int64_t>(kivCS2Timecode_differenceInFrames, &a, &b));
            EXPECT_EQ(tc.framesSinceTimecode(other), out<int64_t>(kivCS2Timecode_differenceInFrames, &b, &a));
            EXPECT_EQ(tc.differenceInSecondsTo(other),
                      out<double>(kivCS2Timecode_differenceInSeconds, &a, &b));
        }
    }
    KLSetEnabled(true);
}

// ---- The differences from the C operations

TEST(ProjectTimecode, HasRulesOfItsOwn)
{
    PT::fps25();
    using Change = std::function<void(PT &)>;
    using Row = std::tuple<const char *, PT, Change, PT>;
    const uint32_t day = 2160000;
    const Row rows[] = {
        {"a product carries days", object(day - 1, 30, 11, 2023), [](PT &tc) { tc.multiplyBy(3); },
         object(day - 3, 1, 0, 2024)},
        {"a product by 0 keeps the date", object(5, 1, 1, 2024), [](PT &tc) { tc.multiplyBy(0); },
         object(5, 1, 1, 2024)},
        {"a new product", object(5), [](PT &tc) { tc = PT::timecodeMultiplying(tc, 3); }, object(15)},
        {"no clamp", object(9, 1), [](PT &tc) { tc.ensureLegalDuration(); }, object(9, 1)},
        {"no date subtracted", object(9, 1), [](PT &tc) { tc.subtractDate(tc); }, object(9, 1)},
        {"down", object(5), [](PT &tc) { tc.adjustFrames(-6); }, object(day - 1, 30, 11, 0)},
        {"far down", object(0x80000000u), [](PT &tc) { tc.adjustFrames(INT32_MIN); }, object(0)},
        {"up", object(5), [](PT &tc) { tc.adjustFrames(6); }, object(11)},
        {"with days", object(9, 5, 2, 2024), [](PT &tc) { tc.subtractTimecodeIncludingDays(object(10, 6)); },
         object(day - 1, 27, 1, 2024)},
        {"onto itself", object(9, 5, 2, 2024), [](PT &tc) { tc.addTimecode(tc); }, object(18, 10, 2, 2024)},
        {"onto itself over midnight", object(day - 1, 2), [](PT &tc) { tc.addTimecode(tc); },
         object(day - 2, 5)},
        {"to seconds", object(9, 5, 2, 2024), [](PT &tc) { tc.snapToSeconds(86399.98); },
         object(day - 1, 5, 2, 2024)},
        {"to a day", object(9, 30, 2, 2024), [](PT &tc) { tc.snapToSeconds(86400.0); },
         object(0, 0, 3, 2024)},
        {"to two days", object(9, 30, 2, 2024), [](PT &tc) { tc.snapToSeconds(172800.0); },
         object(day, 0, 3, 2024)},
        {"to no number", object(9, 5, 2, 2024), [](PT &tc) { tc.snapToSeconds(NAN); }, object(0, 5, 2, 2024)},
        {"a tick", object(day - 1, 30, 11, 2023), [](PT &tc) { tc.tick(); }, object(0, 0, 0, 2024)},
        {"no time", object(9, 5, 2, 2024), [](PT &tc) { tc.zeroTime(); }, object(0, 5, 2, 2024)},
        {"only time", object(9, 5, 2, 2024), [](PT &tc) { tc.zeroDate(); }, object(9)},
        {"frames", kInvalid, [](PT &tc) { tc.initWithFrames(7); }, object(7)},
        {"hours", kInvalid, [](PT &tc) { tc.initWithHours(255); }, object(255 * 90000)},
        {"seconds", kInvalid, [](PT &tc) { tc.initWithSeconds(1.96); }, object(49)},
        {"media time", kInvalid, [](PT &tc) { tc.initWithTime(1001, 1000); }, object(25)},
        {"a date and a time", object(9), [](PT &tc) { tc = PT::timecodeCombiningDate(kInvalid, tc); },
         object(9, 14, 2, 2024)},
        {"a copy", object(9, 5, 2, 2024), [](PT &tc) { tc = tc.copyWithZone(nullptr); },
         object(9, 5, 2, 2024)},
        {"zero", kInvalid, [](PT &tc) { tc = PT::timecodeWithZeroTime(); }, object(0)},
        {"no date", object(9, 5, 2, 2024), [](PT &tc) { tc.fromDate(nullptr, true); }, object(9, 5, 2, 2024)},
        {"no date at first", kInvalid, [](PT &tc) { tc.initWithCFDate(nullptr); }, object(0)},
    };
    for (const auto &[name, before, change, after] : rows)
    {
        PT tc = before;
        change(tc);
        EXPECT_EQ(textOf(tc), textOf(after)) << name;
    }
    EXPECT_TRUE(object(day / 4).canMultiplyBy(4)); // kept: a whole day passes
    EXPECT_FALSE(object(day / 4 + 1).canMultiplyBy(4));
    EXPECT_FALSE(object(0x80000000u).canMultiplyBy(2)); // not its low 32 bits
    EXPECT_EQ(object(7).maximumMultiplePerDay(), day / 7);
    EXPECT_EQ(object(0).maximumMultiplePerDay(), 0u);
    EXPECT_TRUE(object(0, 1).isZeroTime());
    EXPECT_FALSE(object(1).isZeroTime());
    EXPECT_EQ(object(1, 2, 3, 2024).dayOfWeek(), 0u);
    EXPECT_EQ(object(1, 2, 3, 2024).timeIntervalSinceReferenceDate(), 0.0);
    EXPECT_EQ(object(1, 2, 3, 2024).dayIntervalSinceProjectDate(object(0)), 0);
}

TEST(ProjectTimecode, SubtractingAcrossDaysCountsFrames)
{
    PT::fps25();
    const uint32_t day = 2160000;
    using Row = std::tuple<PT, PT, bool, PT>;
    const Row rows[] = {
        {object(day - 10, 30, 11, 2023), object(5, 0, 0, 2024), true, object(15)},
        {object(10, 27, 1, 2024), object(5, 1, 2, 2024), true, object(3 * day - 5)},
        {object(10, 27, 1, 2024), object(5, 1, 2, 2024), false, object(day - 5, 0, 2, 2024)},
        {object(10, 1, 2, 2024), object(25, 1, 2, 2024), true, object(15, 1, 2, 2024)}, // of one day
        // Days that walking forward does not reach: an earlier one, or none of the calendar.
        {object(10, 1, 2, 2024), object(25, 0, 2, 2024), true, object(15, 0, 2, 2024)},
        {object(10, 1, 1, 2024), object(25, 30, 1, 2024), true, object(15, 30, 1, 2024)},
        {object(10, 1, 1, 2024), object(25, 0, 12, 2024), true, object(15, 0, 12, 2024)},
        {object(0, 0, 0, 1), object(0, 0, 0, 65535), true, object(23935801u * day)}, // modulo 2 to the 32nd
    };
    for (const auto &[timecode, from, timecodeOnly, result] : rows)
        for (const bool framesOnly : {false, true})
            EXPECT_EQ(textOf(PT::timecodeSubtracting(timecode, from, timecodeOnly, framesOnly)),
                      textOf(result));
}

// ---- Text

// The fuzz target compares more texts with a parser that splits system strings.
TEST(ProjectTimecode, ParsesLeniently)
{
    PT::fps25();
    const std::pair<const char *, PT> rows[] = {
        {"15.3.2024 10:00:00:00", object(900000, 14, 2, 2024)},
        {"10:00:01", object(900025)},
        {"00:00:01;5;9", object(30)},
        {"10:30:05:06:07", object(945000)},
        {"15.3.2024 2500", object(2500, 14, 2, 2024)},
        {"15.3.2024  2500", object(15)}, // two spaces: three pieces, and the first is the time
        {"1.2 10:00:00:00", object(900000)},
        {"x.-5.y -7", object(static_cast<uint32_t>(-7), 255, 250, 0)},
        {"99999999999", object(0x7FFFFFFF)},
        {"\t+10:\n1x:2", object(901550)},
        {"257:0:0:0", object(90000)},       // hours of 8 bits
        {"10:00:00:1\xff", object(900001)}, // not UTF-8, but read
    };
    for (const auto &[text, result] : rows)
    {
        EXPECT_EQ(textOf(PT::timecodeWithString(text)), textOf(result)) << text;
        if (const auto string = fromBytes(text))
        {
            EXPECT_EQ(PT::timecodeWithString(string.get()), result) << text;
        }
    }
    EXPECT_EQ(PT::timecodeWithString(nullptr), object(0));
    EXPECT_EQ(PT::timecodeWithString(std::string_view{}), object(0));
    EXPECT_EQ(PT::timecodeWithString(std::string_view{"1\0002", 3}), object(1));
    PT::fps2997();
    EXPECT_EQ(PT::timecodeWithString("00:01:00"), object(0)); // a dropped frame, which is not replaced
}

TEST(ProjectTimecode, WritesItsTexts)
{
    // The rate, the timecode, and its four texts.
    using Row = std::tuple<void (*)() noexcept, PT, const char *, const char *, const char *, const char *>;
    const Row rows[] = {
        {PT::fps25, object(2500), "00:01:40:00", "1.1.0 00:01:40:00", "00:01:40:00", "2500"},
        {PT::fps25, object(900000, 14, 2, 2024), "10:00:00:00", "15.3.2024 10:00:00:00",
         "15.3.2024 10:00:00:00", "15.3.2024 900000"},
        {PT::fps5994, object(3600), "00:01:00;04", "1.1.0 00:01:00;04", "00:01:00;04", "3600"},
        {PT::fps25, kInvalid, "00:00:00:00", "15.3.2024 00:00:00:00", "15.3.2024 00:00:00:00",
         "15.3.2024 -1"},
        {PT::fps24, object(0xFFFFFFFEu, 255, 255, 65535), "49710:16:10:14", "256.256.65535 49710:16:10:14",
         "256.256.65535 49710:16:10:14", "256.256.65535 -2"}, // the longest
    };
    for (const auto &[setRate, tc, description, debug, smpte, xml] : rows)
    {
        setRate();
        char text[PT::kTextSize];
        EXPECT_EQ(take(tc.description()), description);
        EXPECT_EQ(take(tc.debugDescription()), debug);
        EXPECT_EQ(take(tc.SMPTERepresentation()), smpte);
        EXPECT_EQ(take(tc.XMLRepresentation()), xml);
        EXPECT_EQ(tc.description(text, sizeof text), description);
        EXPECT_EQ(tc.debugDescription(text, sizeof text), debug);
        EXPECT_EQ(tc.SMPTERepresentation(text, sizeof text), smpte);
        EXPECT_EQ(tc.XMLRepresentation(text, sizeof text), xml);
        EXPECT_EQ(PT::timecodeWithString(xml), tc); // the archived text is read back
        // The text is written with its zero byte, or not at all.
        const size_t room = std::strlen(debug) + 1;
        text[room] = '#';
        EXPECT_EQ(tc.debugDescription(text, room), debug);
        EXPECT_EQ(text[room - 1], '\0');
        text[0] = '#';
        EXPECT_TRUE(tc.debugDescription(text, room - 1).empty());
        EXPECT_EQ(text[0], '#');
    }
    PT::fps2997();
    const PT tc = object(1800, 14, 2, 2024);
    EXPECT_EQ(take(tc.descriptionWithPrefix("TC \xe2\x82\xac ")), "TC \xe2\x82\xac 00:01:00;02");
    EXPECT_EQ(take(tc.descriptionWithPrefix(nullptr)), "00:01:00;02");
    EXPECT_EQ(take(tc.descriptionWithPrefix("\xff")), "(null)"); // not UTF-8
    EXPECT_EQ(take(tc.descriptionWithPrefix(std::string(300, 'x'))), std::string(300, 'x') + "00:01:00;02");
    EXPECT_EQ(take(PT::timecodeStringFromTimecode(tc, ".")), "00.01.00.02");
    EXPECT_EQ(take(PT::timecodeStringFromTimecode(tc, std::string(99, '-'))),
              "00" + std::string(99, '-') + "01" + std::string(99, '-') + "00" + std::string(99, '-') + "02");
    EXPECT_EQ(take(PT::timecodeStringFromTimecode(object(107892u * 100), nullptr)), "100000000");
    EXPECT_EQ(take(object(54015, 28, 1, 2024).descriptionWithCalendarFormat("%a %d %b %Y %H:%M:%S.%F")),
              "Thu 29 Feb 2024 00:30:02.300"); // frame 9 of 30
    EXPECT_EQ(take(tc.descriptionWithCalendarFormat(nullptr)), "");
    EXPECT_EQ(take(object(0, 0, 12, 2024).descriptionWithCalendarFormat("%m")), "(null)");
    PT::fps2398(); // kept: the digits, although toDate() is half a minute later
    EXPECT_EQ(take(object(864000, 0, 0, 2019).descriptionWithCalendarFormat("%c")), "10:00:00 01/01/19");
}
} // namespace
