// The project timecode as a host in C++ uses it, beside the C operations that it follows.
#include <KIVCoreServices2/KIVProjectTimecode.h>

#include "CFText.h"

#include <KIVLogger/KIVLogger.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <random>
#include <thread>
#include <vector>

namespace
{
using PT = KIVProjectTimecode;
using kiv::test::fromBytes;

// The object is its record: hosts keep it in files, arrays and registers.
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

// First in this program: nothing has set a rate yet.
TEST(ProjectTimecode, WithoutARateNothingIsReckoned)
{
    if (PT::hasValidFrameRate())
        GTEST_SKIP() << "not the first test";
    EXPECT_EQ(PT::currentFrameRate(), KIVCS2FrameRate_MAX);
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25),
              KIVCS2STATUS_OK); // another rate than the class's
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
    EXPECT_EQ(PT::timecodeWithString("15.3.2024 10:00:00:00"),
              object(0, 14, 2, 2024)); // no frame has these digits
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

// Kept: media time at 23.98 has 1001, which the C operation has not.
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
        EXPECT_EQ(object(2997, 2).totalSeconds(), 2997 / row.real + 2 * 86400.0);
    }
}

// ---- Every frame of a day, through fields, text and BCD and back

void expectFrame(const RateRow &row, uint32_t frame, const uint8_t (&clock)[4])
{
    const PT tc = object(frame);
    ASSERT_TRUE(tc.hours() == clock[0] && tc.minutes() == clock[1] && tc.seconds() == clock[2] &&
                tc.frames() == clock[3])
        << frame;
    char expected[12] = "00:00:00:00";
    uint32_t bcd = 0;
    for (size_t field = 0; field < 4; ++field)
    {
        const auto tens = static_cast<uint8_t>(clock[field] / 10),
                   units = static_cast<uint8_t>(clock[field] % 10);
        expected[3 * field] = static_cast<char>('0' + tens);
        expected[3 * field + 1] = static_cast<char>('0' + units);
        bcd = bcd << 8 | tens << 4 | units;
    }
    if (row.dropped > 0)
        expected[8] = ';';
    char text[PT::kTextSize];
    const std::string_view written = tc.description(text, sizeof text);
    ASSERT_EQ(written, expected);
    ASSERT_EQ(tc.bcdTimecode(), bcd);

    PT back = kInvalid;
    ASSERT_EQ(back.initWithString(written), tc) << expected; // the drop-frame form reads back
    back.setBcdTimecode(bcd);
    ASSERT_EQ(back, tc) << expected;
    ASSERT_EQ(back.initWithHours(clock[0], clock[1], clock[2], clock[3]), tc) << expected;
    if (row.nominal > 30)
    {
        back.setHours(clock[0], clock[1], clock[2], clock[3] / 2, 1 + clock[3] % 2u);
        ASSERT_EQ(back, tc) << expected;
    }
}

TEST(ProjectTimecode, EveryFrameOfADayGoesThroughAllForms)
{
    constexpr uint32_t kStride = 89; // prime to every rate: all digits meet all others
    for (const RateRow &row : kRates)
    {
        SCOPED_TRACE(row.real);
        row.set();
        uint8_t clock[4] = {};
        PT ticked;
        for (uint32_t frame = 0; frame < 24 * row.framesPerHour; ++frame, ticked.tick())
        {
            ASSERT_EQ(ticked.framesSinceMidnight(), frame);
            if (frame % kStride == 0 || clock[3] < row.dropped + 1)
            {
                ASSERT_NO_FATAL_FAILURE(expectFrame(row, frame, clock));
            }
            if (++clock[3] < row.nominal)
                continue;
            clock[3] = 0;
            if (++clock[2] < 60)
                continue;
            clock[2] = 0;
            clock[1] = static_cast<uint8_t>((clock[1] + 1) % 60);
            clock[0] = static_cast<uint8_t>(clock[0] + (clock[1] == 0));
            clock[3] = static_cast<uint8_t>(clock[1] % 10 != 0 ? row.dropped : 0);
        }
        EXPECT_EQ(clock[0], 24);
        EXPECT_EQ(ticked, object(0, 1)); // a duration carries the day
    }
}

TEST(ProjectTimecode, FieldsThatNameNoFrameKeepTheHoursAndAreLogged)
{
    struct Row
    {
        void (*rate)() noexcept;
        uint8_t h, m, s, f;
        uint32_t format;
        uint32_t frames;
        const char *message;
    };
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
    for (const Row &row : rows)
    {
        row.rate();
        std::string logged;
        KLSetSink([](void *context, os_log_type_t, const char *message)
                  { *static_cast<std::string *>(context) += message; },
                  &logged);
        PT tc = kInvalid;
        tc.setHours(row.h, row.m, row.s, row.f, row.format);
        KLSetSink(nullptr, nullptr);
        EXPECT_EQ(textOf(tc), textOf(object(row.frames, 14, 2, 2024)));
        EXPECT_EQ(logged, row.message);
    }
}

// ---- What follows the C operations, against them

TEST(ProjectTimecode, ReckonsAsTheCOperations)
{
    struct Pair
    {
        const char *name;
        void (*member)(PT &, uint32_t, PT);
        void (*operation)(KIVCS2Timecode *, uint32_t, KIVCS2Timecode *);
    };
#define COUNTED(name)                                                                                        \
    {                                                                                                        \
#name, [](PT & tc, uint32_t count, PT)                                                               \
        { tc.name(count); }, [](KIVCS2Timecode * tc, uint32_t count, KIVCS2Timecode *)                       \
        { kivCS2Timecode_##name(tc, count); }                                                                \
    }
#define WITH_OTHER(name, operation)                                                                          \
    {                                                                                                        \
#name, [](PT & tc, uint32_t, PT other)                                                               \
        { tc.name(other); }, [](KIVCS2Timecode * tc, uint32_t, KIVCS2Timecode * other)                       \
        { kivCS2Timecode_##operation(tc, other); }                                                           \
    }
#define ALONE(name)                                                                                          \
    {                                                                                                        \
#name, [](PT & tc, uint32_t, PT) { tc.name(); }, [](KIVCS2Timecode * tc, uint32_t, KIVCS2Timecode *) \
        { kivCS2Timecode_##name(tc); }                                                                       \
    }
    const Pair pairs[] = {
        COUNTED(addFrames),
        COUNTED(addSeconds),
        COUNTED(addMinutes),
        COUNTED(addHours),
        COUNTED(addDays),
        COUNTED(addMonths),
        COUNTED(addYears),
        COUNTED(subtractFrames),
        COUNTED(subtractSeconds),
        COUNTED(subtractMinutes),
        COUNTED(subtractHours),
        COUNTED(subtractDays),
        COUNTED(subtractMonths),
        COUNTED(subtractYears),
        COUNTED(snapToMinute),
        COUNTED(snapToHour),
        COUNTED(setFramesSinceMidnight),
        COUNTED(setSecondsSinceMidnight),
        COUNTED(initWithFrames),
        COUNTED(initWithSeconds),
        WITH_OTHER(addTimecode, addTimecode),
        WITH_OTHER(subtractTimecode, subtractTimecode),
        WITH_OTHER(takeValues, copy),
        WITH_OTHER(takeTimecodeValues, copyTimecode),
        WITH_OTHER(takeDateValues, copyDate),
        WITH_OTHER(takeCalendarDataValues, copyDate),
        ALONE(tick),
        ALONE(zeroTime),
        ALONE(zeroDate),
        {"tickDown", [](PT &tc, uint32_t, PT) { tc.setFramesSinceMidnight(tc.tickDown()); },
         [](KIVCS2Timecode *tc, uint32_t, KIVCS2Timecode *)
         {
             uint32_t nonZero = 0;
             kivCS2Timecode_tickDown(tc, &nonZero);
             kivCS2Timecode_setFramesSinceMidnight(tc, nonZero);
         }},
        {"initWithHours", [](PT &tc, uint32_t count, PT) { tc.initWithHours(static_cast<uint8_t>(count)); },
         [](KIVCS2Timecode *tc, uint32_t count, KIVCS2Timecode *)
         { kivCS2Timecode_initWithHours(tc, static_cast<uint8_t>(count)); }},
        {"initWithTime", [](PT &tc, uint32_t count, PT) { tc.initWithTime(count, 30000); },
         [](KIVCS2Timecode *tc, uint32_t count, KIVCS2Timecode *)
         { kivCS2Timecode_initWithTimeAndScale(tc, count, 30000); }},
        {"combining", [](PT &tc, uint32_t, PT other) { tc = PT::timecodeCombiningDate(other, tc); },
         [](KIVCS2Timecode *tc, uint32_t, KIVCS2Timecode *other)
         { kivCS2Timecode_initWithDateAndTimecode(tc, other, tc); }},
        {"adding", [](PT &tc, uint32_t, PT other) { tc = PT::timecodeAdding(other, tc); },
         [](KIVCS2Timecode *tc, uint32_t, KIVCS2Timecode *other)
         {
             KIVCS2Timecode sum = 0;
             kivCS2Timecode_initByAddingTimecodes(&sum, other, tc);
             *tc = sum;
         }},
        {"subtracting", [](PT &tc, uint32_t, PT other) { tc = PT::timecodeSubtracting(other, tc, false); },
         [](KIVCS2Timecode *tc, uint32_t, KIVCS2Timecode *other)
         {
             KIVCS2Timecode difference = 0;
             kivCS2Timecode_initBySubtractingTimecodes(&difference, other, tc, 0);
             *tc = difference;
         }},
        {"setBcdTimecode", [](PT &tc, uint32_t count, PT) { tc.setBcdTimecode(count); },
         [](KIVCS2Timecode *tc, uint32_t count, KIVCS2Timecode *) { kivCS2Timecode_initWithBCD(tc, count); }},
    };
    std::mt19937 random{204};
    const auto number = [&random]
    {
        const uint32_t value = static_cast<uint32_t>(random());
        return random() % 8 == 0 ? 0xFFFFFFFFu : value >> random() % 32;
    };
    const auto record = [&]
    {
        // Durations, days of all months and now and then a month that there is not.
        const PT tc =
            object(number(), random() % 32, random() % 13, random() % 4 == 0 ? 0 : random() % 4 + 1999);
        return random() % 4 == 0 ? object(tc.framesSinceMidnight()) : tc;
    };
    KLSetEnabled(false);
    for (const RateRow &row : kRates)
    {
        row.set();
        ASSERT_EQ(kivCS2Timecode_setFrameRate(row.code), KIVCS2STATUS_OK);
        for (int round = 0; round < 200; ++round)
        {
            const PT tc = record(), other = record();
            const uint32_t count = number();
            const KIVCS2Timecode a = tc.CS2Timecode(), b = other.CS2Timecode();
            for (const Pair &pair : pairs)
            {
                PT result = tc;
                KIVCS2Timecode expected = a, second = b;
                pair.member(result, count, other);
                pair.operation(&expected, count, &second);
                ASSERT_EQ(result.ticks(), expected) << pair.name << ' ' << count << " at " << row.real << ": "
                                                    << textOf(tc) << ", " << textOf(other);
            }
            int32_t order = 0;
            uint32_t same = 0, sameDay = 0, duration = 0, bcd = 0, days = 0;
            int64_t frames = 0, back = 0;
            double seconds = 0;
            (void)kivCS2Timecode_compare(&a, &b, &order);
            (void)kivCS2Timecode_isSameTimecode(&a, &b, &same);
            (void)kivCS2Timecode_isSameDay(&a, &b, &sameDay);
            (void)kivCS2Timecode_isDuration(&a, &duration);
            (void)kivCS2Timecode_getBCDFromTimecode(&a, &bcd);
            (void)kivCS2Timecode_getDaysInMonth(&a, &days);
            (void)kivCS2Timecode_differenceInFrames(&a, &b, &frames);
            (void)kivCS2Timecode_differenceInFrames(&b, &a, &back);
            (void)kivCS2Timecode_differenceInSeconds(&a, &b, &seconds);
            ASSERT_EQ(tc.compareTo(other), order);
            ASSERT_EQ(tc.compareToTimecode(other), order);
            ASSERT_EQ(tc.isSameTimecode(other), same != 0);
            ASSERT_EQ(tc.isSameDay(other), sameDay != 0);
            ASSERT_EQ(tc.isSameCalendarDate(other), sameDay != 0);
            ASSERT_EQ(tc.isDuration(), duration != 0);
            ASSERT_EQ(tc.bcdTimecode(), bcd);
            ASSERT_EQ(tc.daysInMonth(), days);
            ASSERT_EQ(tc.differenceInFramesTo(other), frames);
            ASSERT_EQ(tc.framesSinceTimecode(other), back);
            ASSERT_EQ(tc.differenceInSecondsTo(other), seconds);
        }
    }
    KLSetEnabled(true);
}

// ---- What the class does differently

TEST(ProjectTimecode, HasRulesOfItsOwn)
{
    PT::fps25();
    using Change = std::function<void(PT &)>;
    struct Row
    {
        const char *name;
        PT before;
        Change change;
        PT after;
    };
    const uint32_t day = 2160000;
    const Row rows[] = {
        {"a product carries days", object(day - 1, 30, 11, 2023), [](PT &tc) { tc.multiplyBy(3); },
         object(day - 3, 1, 0, 2024)},
        {"a product by 0 keeps the date", object(5, 1, 1, 2024), [](PT &tc) { tc.multiplyBy(0); },
         object(5, 1, 1, 2024)},
        {"a product anew", object(5), [](PT &tc) { tc = PT::timecodeMultiplying(tc, 3); }, object(15)},
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
        {"a copy", object(9, 5, 2, 2024), [](PT &tc) { tc = tc.copyWithZone(nullptr); },
         object(9, 5, 2, 2024)},
        {"zero", kInvalid, [](PT &tc) { tc = PT::timecodeWithZeroTime(); }, object(0)},
        {"no date", object(9, 5, 2, 2024), [](PT &tc) { tc.fromDate(nullptr, true); }, object(9, 5, 2, 2024)},
        {"a date of nothing", kInvalid, [](PT &tc) { tc.initWithCFDate(nullptr); }, object(0)},
    };
    for (const Row &row : rows)
    {
        PT tc = row.before;
        row.change(tc);
        EXPECT_EQ(textOf(tc), textOf(row.after)) << row.name;
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
    struct Row
    {
        PT timecode, from;
        bool timecodeOnly;
        PT result;
    };
    const Row rows[] = {
        {object(day - 10, 30, 11, 2023), object(5, 0, 0, 2024), true, object(15)},
        {object(10, 27, 1, 2024), object(5, 1, 2, 2024), true, object(3 * day - 5)},
        {object(10, 27, 1, 2024), object(5, 1, 2, 2024), false, object(day - 5, 0, 2, 2024)},
        {object(10, 1, 2, 2024), object(25, 1, 2, 2024), true,
         object(15, 1, 2, 2024)}, // one day: a plain difference
        // A day that walking forward does not reach: earlier, or in no calendar.
        {object(10, 1, 2, 2024), object(25, 0, 2, 2024), true, object(15, 0, 2, 2024)},
        {object(10, 1, 1, 2024), object(25, 30, 1, 2024), true, object(15, 30, 1, 2024)},
        {object(10, 1, 1, 2024), object(25, 0, 12, 2024), true, object(15, 0, 12, 2024)},
        {object(0, 0, 0, 1), object(0, 0, 0, 65535), true, object(23935801u * day)}, // modulo 2 to the 32nd
    };
    for (const Row &row : rows)
        for (const bool framesOnly : {false, true})
            EXPECT_EQ(textOf(PT::timecodeSubtracting(row.timecode, row.from, row.timecodeOnly, framesOnly)),
                      textOf(row.result));
}

// ---- Text

TEST(ProjectTimecode, ParsesLeniently)
{
    struct Row
    {
        const char *text;
        PT result;
        void (*rate)() noexcept = PT::fps25;
    };
    const Row rows[] = {
        {"10:00:00:00", object(900000)},
        {"15.3.2024 10:00:00:00", object(900000, 14, 2, 2024)},
        {"00:01:00;02", object(1800), PT::fps2997},
        {"00:01:00;04", object(3600), PT::fps5994},
        {"00:01:00", object(0), PT::fps2997}, // frame 0 of this minute is dropped, and none is made up
        {"10:00:01", object(900025)},
        {"00:00:01;5;9", object(30)},
        {"10:30", object(945000)},
        {"10:30:05:06:07", object(945000)},
        {"2500", object(2500)},
        {"15.3.2024 2500", object(2500, 14, 2, 2024)},
        {"15.3.2024  2500", object(15)}, // two spaces: three pieces, and the first is the time
        {"1.2 10:00:00:00", object(900000)},
        {"1.2.3.4 10:00:00:00", object(900000)},
        {"", object(0)},
        {" ", object(0)},
        {"x.-5.y -7", object(static_cast<uint32_t>(-7), 255, 250, 0)},
        {"99999999999", object(0x7FFFFFFF)},
        {"-99999999999", object(0x80000000u)},
        {"\t+10:\n1x:2 ", object(0)}, // the second piece is the time, and empty
        {"\t+10:\n1x:2", object(901550)},
        {"257:0:0:0", object(90000)}, // hours of 8 bits
        {"\xc3\xa9"
         "10:00:00:00",
         object(0)},
        {"10:00:00:1\xc3\xa9", object(900001)},
        {"10:00:00:1\xff", object(900001)}, // no UTF-8, and no less readable
    };
    for (const Row &row : rows)
    {
        row.rate();
        EXPECT_EQ(textOf(PT::timecodeWithString(row.text)), textOf(row.result)) << row.text;
        if (const auto string = fromBytes(row.text))
        {
            EXPECT_EQ(PT::timecodeWithString(string.get()), PT::timecodeWithString(row.text)) << row.text;
        }
    }
    PT::fps25();
    EXPECT_EQ(PT::timecodeWithString(nullptr), object(0));
    EXPECT_EQ(PT::timecodeWithString(std::string_view{}), object(0));
    EXPECT_EQ(PT::timecodeWithString(std::string_view{"1\0002", 3}), object(1));
}

TEST(ProjectTimecode, WritesItsTexts)
{
    struct Row
    {
        void (*rate)() noexcept;
        PT tc;
        const char *description, *debug, *smpte, *xml;
    };
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
    for (const Row &row : rows)
    {
        row.rate();
        char text[PT::kTextSize];
        EXPECT_EQ(take(row.tc.description()), row.description);
        EXPECT_EQ(take(row.tc.debugDescription()), row.debug);
        EXPECT_EQ(take(row.tc.SMPTERepresentation()), row.smpte);
        EXPECT_EQ(take(row.tc.XMLRepresentation()), row.xml);
        EXPECT_EQ(row.tc.description(text, sizeof text), row.description);
        EXPECT_EQ(row.tc.debugDescription(text, sizeof text), row.debug);
        EXPECT_EQ(row.tc.SMPTERepresentation(text, sizeof text), row.smpte);
        EXPECT_EQ(row.tc.XMLRepresentation(text, sizeof text), row.xml);
        EXPECT_EQ(PT::timecodeWithString(row.xml), row.tc); // what is archived comes back whole
        // To the byte: whole with its zero byte, or not at all.
        const size_t room = std::strlen(row.debug) + 1;
        text[room] = '#';
        EXPECT_EQ(row.tc.debugDescription(text, room), row.debug);
        EXPECT_EQ(text[room - 1], '\0');
        text[0] = '#';
        EXPECT_TRUE(row.tc.debugDescription(text, room - 1).empty());
        EXPECT_EQ(text[0], '#');
    }
    PT::fps2997();
    const PT tc = object(1800, 14, 2, 2024);
    EXPECT_EQ(take(tc.descriptionWithPrefix("TC \xe2\x82\xac ")), "TC \xe2\x82\xac 00:01:00;02");
    EXPECT_EQ(take(tc.descriptionWithPrefix(nullptr)), "00:01:00;02");
    EXPECT_EQ(take(tc.descriptionWithPrefix("\xff")), "(null)"); // no UTF-8
    EXPECT_EQ(take(tc.descriptionWithPrefix(std::string(300, 'x'))), std::string(300, 'x') + "00:01:00;02");
    EXPECT_EQ(take(PT::timecodeStringFromTimecode(tc, ".")), "00.01.00.02");
    EXPECT_EQ(take(PT::timecodeStringFromTimecode(tc, std::string(99, '-'))),
              "00" + std::string(99, '-') + "01" + std::string(99, '-') + "00" + std::string(99, '-') + "02");
    EXPECT_EQ(take(PT::timecodeStringFromTimecode(object(107892u * 100), nullptr)), "100000000");
    EXPECT_EQ(take(object(54015, 28, 1, 2024).descriptionWithCalendarFormat("%a %d %b %Y %H:%M:%S.%F")),
              "Thu 29 Feb 2024 00:30:02.300"); // frame 9 of 30
    EXPECT_EQ(take(tc.descriptionWithCalendarFormat(nullptr)), "");
    EXPECT_EQ(take(object(0, 0, 12, 2024).descriptionWithCalendarFormat("%m")), "(null)");
    PT::fps2398(); // kept: as its digits say, although toDate() is half a minute later
    EXPECT_EQ(take(object(864000, 0, 0, 2019).descriptionWithCalendarFormat("%c")), "10:00:00 01/01/19");
}

// ---- Dates, in the zone of the process; the program is run in several

// Seconds of a wall clock as if it were one of UTC, from 2001.
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

// By the C library's zones: the last moment at which the wall shows this; in a gap, as far after the change
// as the time is behind the beginning of the gap.
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
    PT tc = object(0, static_cast<uint64_t>(wall.tm_mday - 1), static_cast<uint64_t>(wall.tm_mon),
                   static_cast<uint64_t>(wall.tm_year + 1900));
    tc.setHours(static_cast<uint8_t>(wall.tm_hour), static_cast<uint8_t>(wall.tm_min),
                static_cast<uint8_t>(wall.tm_sec), static_cast<uint8_t>(frame), 0);
    return tc;
}

double take(CFDateRef date)
{
    const kiv::CFRef<CFDateRef> owned{date};
    return owned ? CFDateGetAbsoluteTime(owned.get()) : NAN;
}

// Wall clocks around each change of the zone and around the turns of the years that change the path.
std::vector<int64_t> wallTimes()
{
    std::vector<int64_t> times;
    const auto around = [&times](int64_t local)
    {
        for (int64_t minute = -200; minute <= 200; minute += 5)
            for (const int64_t second : {int64_t{0}, int64_t{59}})
                times.push_back(local + minute * 60 + second);
    };
    for (const int year : {1880, 1999, 2000, 2001, 2002, 2019, 2020, 2021, 2022, 2024})
    {
        struct tm january = {};
        january.tm_year = year - 1900;
        january.tm_mday = 1;
        const int64_t first = wallSeconds(january);
        around(first);
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

TEST(ProjectTimecodeDates, BothPathsShowTheWallClockOfTheZone)
{
    PT::fps25();
    size_t gaps = 0;
    for (const int64_t local : wallTimes())
    {
        const PT tc = objectOfWall(local, 20);
        SCOPED_TRACE(textOf(tc));
        int64_t moment = expectedMoment(local);
        const int64_t odd = (local - moment) % 60; // the text has no seconds of an offset: local mean time
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
            EXPECT_EQ(textOf(PT::timecodeWithDate(date.get())), textOf(tc)); // and back
        }
    }
    const bool summerTime = gmtOffset(20 * 86400) != gmtOffset(200 * 86400);
    EXPECT_EQ(gaps > 0, summerTime);
}

TEST(ProjectTimecodeDates, BothReadersAgreeWithTheCOperation)
{
    std::mt19937 random{2001};
    for (const RateRow &row : kRates)
    {
        row.set();
        ASSERT_EQ(kivCS2Timecode_setFrameRate(row.code), KIVCS2STATUS_OK);
        for (int round = 0; round < 100; ++round)
        {
            const double at = std::uniform_real_distribution<double>{-3e9, 3e9}(random);
            const kiv::CFRef<CFDateRef> date{CFDateCreate(nullptr, at)};
            for (const bool time : {false, true})
            {
                PT foundation = kInvalid, core = kInvalid;
                KIVCS2Timecode expected = 0;
                foundation.fromDate(date.get(), time);
                core.fromCFDate(date.get(), time);
                ASSERT_EQ(kivCS2Timecode_initWithDate(&expected, date.get(), time), KIVCS2STATUS_OK);
                ASSERT_EQ(core.ticks(), expected) << std::to_string(at);
                ASSERT_EQ(foundation.ticks(), expected) << std::to_string(at);
            }
        }
    }
}

TEST(ProjectTimecodeDates, TheTwoPathsDifferWhereSecondsOfTimecodeDo)
{
    struct Row
    {
        void (*rate)() noexcept;
        PT tc;
        double seconds; // since midnight
    };
    const Row rows[] = {
        {PT::fps25, object(900000, 0, 0, 2019), 36000.0},
        {PT::fps25, object(900000, 0, 0, 2024), 36000.0},
        {PT::fps2398, object(864000, 0, 0, 2000), 36000.0},
        {PT::fps2398, object(864000, 0, 0, 2001), 36030.025020850},
        {PT::fps2398, object(864000, 0, 0, 2020), 36030.025020850},
        {PT::fps2398, object(864000, 0, 0, 2021), 36000.0},
        {PT::fps2997, object(1800, 0, 0, 2019), 60.060060060},
        {PT::fps2997, object(1800, 0, 0, 2024), 60.066733400},
        {PT::fps2997, object(29, 0, 0, 2024), 0.967634301}, // frames of the real rate
        {PT::fps25, object(0xFFFFFFFFu, 0, 0, 2019), 0.0},
        {PT::fps25, object(25 * 90000, 0, 0, 2019), 90000.0},
        {PT::fps25, object(25 * 90000, 0, 0, 2024), 90000.0}, // beyond the day
    };
    for (const Row &row : rows)
    {
        row.rate();
        EXPECT_NEAR(take(row.tc.toDate()) - take(row.tc.toCalendarDate()), row.seconds, 1e-6)
            << textOf(row.tc);
    }
    // Up to 1582 the calendar is the Julian one of the system's formatters.
    const kiv::CFRef<CFCalendarRef> calendar{CFCalendarCopyCurrent()};
    for (const PT &tc :
         {object(900000, 28, 1, 1500), object(900000, 3, 9, 1582), object(900000, 14, 9, 1582),
          object(900000, 0, 0, 1583), object(49 * 90000, 0, 0, 1), object(900000, 30, 11, 1582)})
    {
        double at = 0;
        const double hours = tc.hours();
        ASSERT_TRUE(CFCalendarComposeAbsoluteTime(calendar.get(), &at, "yMdH", static_cast<int>(tc.year()),
                                                  static_cast<int>(tc.month() + 1),
                                                  static_cast<int>(tc.day() + 1), static_cast<int>(hours)));
        EXPECT_NEAR(take(tc.toCFDate()), at, 59.0) << textOf(tc); // local mean time has seconds
    }
    EXPECT_EQ(object(0, 0, 12, 2019).toDate(), nullptr);
    EXPECT_EQ(object(0, 0, 12, 2024).toCFDate(), nullptr);
}

TEST(ProjectTimecodeDates, NowIsToday)
{
    PT::fps25();
    for (int attempt = 0; attempt < 10; ++attempt)
    {
        const time_t before = time(nullptr);
        const PT now = PT::now(), today = PT::calendarDate();
        const bool isToday = today.isToday(), wasToday = object(0, 0, 0, 2001).isToday();
        if (time(nullptr) / 900 != before / 900)
            continue; // midnight, or a change of the clock, may have passed in between
        struct tm wall = {};
        localtime_r(&before, &wall);
        const int seconds = wall.tm_hour * 3600 + wall.tm_min * 60 + wall.tm_sec;
        EXPECT_GE(now.secondsSinceMidnight(), seconds);
        EXPECT_LT(now.secondsSinceMidnight(), seconds + 900);
        EXPECT_TRUE(isToday && now.isSameDay(today) && today.isZeroTime());
        EXPECT_FALSE(wasToday);
        EXPECT_EQ(today.day() + 1, static_cast<uint32_t>(wall.tm_mday));
        const kiv::CFRef<CFDateRef> date{today.toDate()};
        EXPECT_EQ(PT::valueFromDate(date.get(), "%j"), wall.tm_yday + 1);
        EXPECT_EQ(PT::valueFromDate(date.get(), "x%d"), 0);
        EXPECT_EQ(PT::valueFromDate(nullptr, "%d"), 0);
        return;
    }
    FAIL() << "the clock jumped ten times";
}

// ThreadSanitizer's test: each thread has its own objects, all have the formatters.
TEST(ProjectTimecodeDates, ThreadsShareTheFormatters)
{
    PT::fps2997();
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
                    PT back;
                    back.fromCFDate(date.get(), false);
                    PT other;
                    other.fromDate(date.get(), false);
                    wrong[thread] += !back.isSameDay(tc) || !other.isSameDay(tc);
                }
            });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}
} // namespace
