// Timecode as a host uses it.
#include <KIVCoreServices2/KIVCS2Timecode.h>

#include "ArgumentCheck.h"

#include <KIVLogger/KIVLogger.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace
{
static_assert(sizeof(KIVCS2Timecode) == 8);

constexpr uint32_t kInvalid = 0xFFFFFFFFu;

// A record of its four stored fields; day and month are zero-based.
constexpr KIVCS2Timecode record(uint32_t frames, uint64_t day = 0, uint64_t month = 0, uint64_t year = 0)
{
    return year << 48 | month << 40 | day << 32 | frames;
}

// A record as text: "frames day.month.year", as stored.
std::string textOf(KIVCS2Timecode tc)
{
    return std::to_string(static_cast<uint32_t>(tc)) + " " + std::to_string(tc >> 32 & 0xFF) + "." +
           std::to_string(tc >> 40 & 0xFF) + "." + std::to_string(tc >> 48);
}

// The value that a successful operation stores in its last argument.
template <class T>
T out(auto operation, auto... arguments)
{
    T value{};
    EXPECT_OK(operation(arguments..., &value));
    return value;
}

// A record after a successful operation.
std::string after(auto operation, KIVCS2Timecode tc, auto... arguments)
{
    EXPECT_OK(operation(&tc, arguments...));
    return textOf(tc);
}

void setRate(KIVCS2FrameRate rate)
{
    ASSERT_OK(kivCS2Timecode_setFrameRate(rate));
}

std::string print(KIVCS2Timecode tc)
{
    char text[32];
    return kivCS2Timecode_timecodeToString(&tc, text, sizeof text) == KIVCS2STATUS_OK ? text : "failed";
}

// Captures the log while the object exists.
class Log
{
public:
    Log()
    {
        KLSetSink([](void *context, os_log_type_t, const char *message)
                  { *static_cast<std::string *>(context) += message; },
                  &m_text);
    }
    ~Log()
    {
        KLSetSink(nullptr, nullptr);
    }
    std::string take()
    {
        return std::exchange(m_text, {});
    }

private:
    std::string m_text;
};

struct RateRow
{
    KIVCS2FrameRate rate;
    uint32_t nominal, framesPerHour, dropped;
    double real;
    uint32_t time, scale;
};
constexpr RateRow kRates[] = {
    {KIVCS2FrameRate_23_98, 24, 86400, 0, 23.98, 1000, 24000},
    {KIVCS2FrameRate_24, 24, 86400, 0, 24.0, 1000, 24000},
    {KIVCS2FrameRate_25, 25, 90000, 0, 25.0, 100, 2500},
    {KIVCS2FrameRate_29_97, 30, 107892, 2, 29.97, 1001, 30000},
    {KIVCS2FrameRate_30, 30, 108000, 0, 30.0, 1000, 30000},
    {KIVCS2FrameRate_50, 50, 180000, 0, 50.0, 100, 5000},
    {KIVCS2FrameRate_59_94, 60, 215784, 4, 59.94, 1001, 60000},
    {KIVCS2FrameRate_60, 60, 216000, 0, 60.0, 1000, 60000},
};

TEST(Timecode, ArgumentChecks)
{
    setRate(KIVCS2FrameRate_25);
    KIVCS2Timecode tc = 0;
    char text[32];
    CFStringRef zero = CFStringCreateWithCString(nullptr, "0", kCFStringEncodingASCII);
    constexpr KIVCS2Status kParam = KIVCS2STATUS_PARAM_ERR;
#define TIMECODE(op, ...) KIV_REQUIRES(kivCS2Timecode_##op, __VA_ARGS__)
    kiv::test::expectAllRefused({
        TIMECODE(isLeapYear, "result", &tc, nullptr),
        TIMECODE(getDaysInYear, "days", &tc, nullptr),
        TIMECODE(getDaysThisYear, "days", &tc, nullptr),
        TIMECODE(compare, "result", &tc, &tc, nullptr),
        TIMECODE(differenceInFrames, "difference", &tc, &tc, nullptr),
        TIMECODE(initWithString, "string", nullptr, nullptr),
        TIMECODE(initWithString, "tc", nullptr, "0"),
        TIMECODE(initWithCFString, "string", nullptr, nullptr),
        TIMECODE(initWithCFString, "tc", nullptr, zero),
        TIMECODE(timecodeToString, "tc", nullptr, text, sizeof text),
        TIMECODE(timecodeToString, "buffer", &tc, nullptr, 32),
    });
#undef TIMECODE
    CFRelease(zero);
    if (kiv::test::hasAssertions())
    {
        EXPECT_DEATH((void)kivCS2Timecode_createCFDate(&tc, nullptr),
                     kiv::test::assertionPattern("kivCS2Timecode_createCFDate", "date"));
    }

    // These refuse null without an assertion.
    uint32_t word = 7;
    EXPECT_EQ(kivCS2Timecode_print(nullptr), kParam);
    EXPECT_EQ(kivCS2Timecode_getBCDFromTimecode(nullptr, &word), kParam);
    EXPECT_EQ(kivCS2Timecode_initWithBCD(nullptr, 0), kParam);
    EXPECT_EQ(word, 7u);
    // These accept null: hosts rely on the success.
    EXPECT_OK(kivCS2Timecode_getDropFrame(nullptr));
    EXPECT_OK(kivCS2Timecode_getTimeAndScale(nullptr, nullptr));
}

TEST(Timecode, EachRateHasItsFigures)
{
    for (const RateRow &row : kRates)
    {
        SCOPED_TRACE(row.real);
        setRate(row.rate);
        uint32_t time = 0;
        for (int round = 0; round < 2; ++round)
        {
            EXPECT_EQ(out<uint32_t>(kivCS2Timecode_getFramesPerSecond), row.nominal);
            EXPECT_EQ(out<double>(kivCS2Timecode_getRealFramesPerSecond), row.real);
            EXPECT_EQ(out<uint32_t>(kivCS2Timecode_getFramesPerDay), 24 * row.framesPerHour);
            EXPECT_EQ(out<bool>(kivCS2Timecode_getDropFrame), row.dropped > 0);
            EXPECT_EQ(out<uint32_t>(kivCS2Timecode_getTimeAndScale, &time), row.scale);
            EXPECT_EQ(time, row.time);
            EXPECT_EQ(kivCS2Timecode_setFrameRate(8), KIVCS2STATUS_FRAME_RATE_ERR); // changes nothing
        }
    }
}

// ---- Every frame of a day, through fields, text and BCD and back

struct Clock
{
    uint8_t h, m, s, f;
};

// Called for millions of frames, so it does not allocate, and uses few macros.
void expectFrame(const RateRow &row, uint32_t frame, const Clock &clock)
{
    const KIVCS2Timecode tc = frame;
    char expected[20], digits[20], text[12];
    std::snprintf(expected, sizeof expected, "%02u:%02u:%02u:%02u", clock.h, clock.m, clock.s, clock.f);
    std::snprintf(digits, sizeof digits, "%02u%02u%02u%02u", clock.h, clock.m, clock.s, clock.f);
    const auto expectedBCD = static_cast<uint32_t>(std::strtoul(digits, nullptr, 16));
    uint32_t h = 99, m = 99, s = 99, f = 99, bcd = 0;
    KIVCS2Timecode fromText = 0, fromBCD = 0, fromFields = 0;
    ASSERT_OK(kivCS2Timecode_getHours(&tc, &h) | kivCS2Timecode_getMinutes(&tc, &m) |
              kivCS2Timecode_getSeconds(&tc, &s) | kivCS2Timecode_getFrames(&tc, &f) |
              kivCS2Timecode_initWithString(&fromText, expected) |
              kivCS2Timecode_timecodeToString(&tc, text, sizeof text) |
              kivCS2Timecode_getBCDFromTimecode(&tc, &bcd) |
              kivCS2Timecode_initWithBCD(&fromBCD, expectedBCD) |
              kivCS2Timecode_initWithTimecodeFields(&fromFields, clock.h, clock.m, clock.s, clock.f))
        << expected;
    ASSERT_TRUE(h == clock.h && m == clock.m && s == clock.s && f == clock.f) << expected;
    ASSERT_TRUE(fromText == tc && fromBCD == tc && fromFields == tc && bcd == expectedBCD) << expected;
    expected[8] = row.dropped > 0 ? ';' : ':'; // ";" is written, but not read
    ASSERT_STREQ(text, expected);
}

TEST(Timecode, EveryFrameOfADayGoesThroughAllForms)
{
    constexpr uint32_t kStride = 89; // prime to every rate, so all combinations of digits occur
    const uint32_t wholeHour = kiv::test::hasAssertions() ? 24 : 23; // the other hours repeat its minutes
    for (const RateRow &row : kRates)
    {
        SCOPED_TRACE(row.real);
        setRate(row.rate);
        Clock clock{};
        for (uint32_t frame = 0; frame < 24 * row.framesPerHour; ++frame)
        {
            if (frame % kStride == 0 || clock.f <= row.dropped || clock.h == wholeHour)
            {
                ASSERT_NO_FATAL_FAILURE(expectFrame(row, frame, clock));
            }
            if (++clock.f < row.nominal)
                continue;
            clock.f = 0;
            if (++clock.s < 60)
                continue;
            clock.s = 0;
            clock.m = static_cast<uint8_t>((clock.m + 1) % 60);
            clock.h = static_cast<uint8_t>(clock.h + (clock.m == 0));
            clock.f = static_cast<uint8_t>(clock.m % 10 != 0 ? row.dropped : 0);
        }
        ASSERT_EQ(clock.h, 24u);
    }
}

// ---- Fields

TEST(Timecode, FieldsThatNameNoFrameKeepTheHoursAndAreLogged)
{
    using Row = std::tuple<KIVCS2FrameRate, uint8_t, uint8_t, uint8_t, uint8_t, uint32_t, const char *>;
    const Row rows[] = {
        {KIVCS2FrameRate_29_97, 0, 1, 0, 0, 0, "Illegal timecode 00:01:00:00"},
        {KIVCS2FrameRate_29_97, 2, 1, 0, 1, 215784, "Illegal timecode 02:01:00:01"},
        {KIVCS2FrameRate_59_94, 0, 1, 0, 3, 0, "Illegal timecode 00:01:00:03"},
        {KIVCS2FrameRate_25, 1, 60, 0, 0, 90000, "Illegal timecode 01:60:00:00"},
        {KIVCS2FrameRate_25, 1, 0, 60, 0, 90000, "Illegal timecode 01:00:60:00"},
        {KIVCS2FrameRate_25, 255, 0, 0, 25, 22950000, "Illegal timecode 255:00:00:25"},
        {KIVCS2FrameRate_60, 0, 255, 255, 255, 0, "Illegal timecode 00:255:255:255"},
        {KIVCS2FrameRate_25, 25, 0, 0, 0, 2250000, ""}, // kept: no limit at 24
    };
    Log log;
    for (const auto &[rate, h, m, s, f, frames, message] : rows)
    {
        setRate(rate);
        KIVCS2Timecode tc = record(1234, 14, 2, 2024);
        EXPECT_EQ(kivCS2Timecode_initWithTimecodeFields(&tc, h, m, s, f),
                  *message == '\0' ? KIVCS2STATUS_OK : KIVCS2STATUS_INVALID_TIMECODE_ERR);
        EXPECT_EQ(textOf(tc), textOf(record(frames, 14, 2, 2024)));
        EXPECT_EQ(log.take(), message);
        EXPECT_EQ(out<uint32_t>(kivCS2Timecode_getHours, &tc), h);
    }
    // Kept: as BCD they are a success.
    const std::tuple<KIVCS2FrameRate, uint32_t, uint32_t, const char *> words[] = {
        {KIVCS2FrameRate_29_97, 0x00010000, 0, "Illegal timecode 00:01:00:00"},
        {KIVCS2FrameRate_25, 0x02000025, 180000, "Illegal timecode 02:00:00:25"},
        {KIVCS2FrameRate_25, 0x01000040, 90000, "Illegal timecode 01:00:00:40"}, // a drop-frame flag
        {KIVCS2FrameRate_25, 0xFFFFFFFF, 165 * 90000, "Illegal timecode 165:165:165:165"},
    };
    for (const auto &[rate, bcd, frames, message] : words)
    {
        setRate(rate);
        EXPECT_EQ(after(kivCS2Timecode_initWithBCD, record(7, 7, 7, 7), bcd), textOf(record(frames)));
        EXPECT_EQ(log.take(), message);
    }
    const KIVCS2Timecode tc = 165 * 90000;
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_getBCDFromTimecode, &tc),
              0x05000000u); // the tens of 165 are 0x10, which the byte loses
}

TEST(Timecode, SettingOneFieldKeepsTheOthers)
{
    setRate(KIVCS2FrameRate_29_97);
    KIVCS2Timecode tc = 0;
    ASSERT_OK(kivCS2Timecode_initWithString(&tc, "15.3.2024 10:20:30:15"));
    EXPECT_OK(kivCS2Timecode_setHours(&tc, 0x100 + 11)); // the low 8 bits
    EXPECT_OK(kivCS2Timecode_setMinutes(&tc, 21));
    EXPECT_OK(kivCS2Timecode_setSeconds(&tc, 0));
    EXPECT_OK(kivCS2Timecode_setFrames(&tc, 2));
    EXPECT_EQ(print(tc), "15.3.2024 11:21:00;02");
    EXPECT_EQ(kivCS2Timecode_setFrames(&tc, 1), KIVCS2STATUS_INVALID_TIMECODE_ERR);
    EXPECT_EQ(print(tc), "15.3.2024 11:00:00;00"); // kept: only the hours stay

    ASSERT_OK(kivCS2Timecode_setInvalidTimecode(&tc));
    uint32_t value = 7;
    for (const auto set : {kivCS2Timecode_setHours, kivCS2Timecode_setMinutes, kivCS2Timecode_setSeconds,
                           kivCS2Timecode_setFrames})
        EXPECT_EQ(set(&tc, 1), KIVCS2STATUS_INVALID_TIMECODE_ERR);
    for (const auto get : {kivCS2Timecode_getHours, kivCS2Timecode_getMinutes, kivCS2Timecode_getSeconds,
                           kivCS2Timecode_getFrames, kivCS2Timecode_getFramesSinceMidnight})
        EXPECT_EQ(get(&tc, &value), KIVCS2STATUS_INVALID_TIMECODE_ERR);
    EXPECT_EQ(value, 7u);
    const auto dateOf = [&tc](auto get) { return out<uint32_t>(get, &tc); }; // the date stays
    EXPECT_TRUE(dateOf(kivCS2Timecode_getDay) == 14 && dateOf(kivCS2Timecode_getMonth) == 2 &&
                dateOf(kivCS2Timecode_getYear) == 2024);
    EXPECT_OK(kivCS2Timecode_setFramesSinceMidnight(&tc, 0));
    EXPECT_OK(kivCS2Timecode_checkValidTimecode(&tc));
}

TEST(Timecode, BuildingAndCopying)
{
    setRate(KIVCS2FrameRate_25);
    const KIVCS2Timecode a = record(100, 30, 11, 2023), b = record(200, 1, 2, 1999);
    KIVCS2Timecode tc = b;
    const auto step = [&tc](KIVCS2Status status, KIVCS2Timecode expected)
    {
        EXPECT_OK(status);
        EXPECT_EQ(textOf(tc), textOf(expected));
    };
    step(kivCS2Timecode_copyTimecode(&tc, &a), record(100, 1, 2, 1999));
    step(kivCS2Timecode_copyDate(&tc, &a), a);
    step(kivCS2Timecode_initWithDateAndTimecode(&tc, &b, &a), record(100, 1, 2, 1999));
    step(kivCS2Timecode_copy(&tc, &b), b);
    step(kivCS2Timecode_zeroTime(&tc), record(0, 1, 2, 1999));
    step(kivCS2Timecode_initWithFrames(&tc, kInvalid), record(kInvalid));
    step(kivCS2Timecode_initWithHours(&tc, 255), record(255 * 90000));
    step(kivCS2Timecode_initWithDuration(&tc, 5), record(5));
    step(kivCS2Timecode_initWithTimeAndScale(&tc, 1001, 1000), record(25));
    step(kivCS2Timecode_initWithTimeAndScale(&tc, 1, 0), record(0));
    step(kivCS2Timecode_init(&tc), 0);
    tc = a;
    step(kivCS2Timecode_initWithTimecodeFieldsForDuration(&tc, 1, 90, 255, 255),
         record(255 + 255 * 25 + 90 * 1500 + 90000, 30, 11, 2023)); // fields without limits; the date stays
    step(kivCS2Timecode_zeroDate(&tc), record(255 + 255 * 25 + 90 * 1500 + 90000));
}

TEST(Timecode, SecondsAreCutToWholeFrames)
{
    const double inf = std::numeric_limits<double>::infinity();
    const std::tuple<KIVCS2FrameRate, double, uint32_t> rows[] = {
        {KIVCS2FrameRate_29_97, 1.0, 29},
        {KIVCS2FrameRate_25, -1.0, static_cast<uint32_t>(-25)}, // the low 32 bits
        {KIVCS2FrameRate_25, 171798692.0, 4},                   // 4294967300 frames, cut
        {KIVCS2FrameRate_25, inf, 0},
        {KIVCS2FrameRate_25, -inf, 0},
        {KIVCS2FrameRate_25, std::nan(""), 0},
        {KIVCS2FrameRate_25, 1e18, 0},
        {KIVCS2FrameRate_60, -1e300, 0},
    };
    for (const auto &[rate, seconds, frames] : rows)
    {
        setRate(rate);
        EXPECT_EQ(after(kivCS2Timecode_setSecondsSinceMidnight, record(7, 1, 1, 1), seconds),
                  textOf(record(frames, 1, 1, 1)))
            << seconds;
    }
    setRate(KIVCS2FrameRate_29_97);
    const KIVCS2Timecode tc = 2997;
    EXPECT_EQ(out<double>(kivCS2Timecode_getSecondsSinceMidnight, &tc), 100.0);
    // Kept: millisecondsPerFrame holds frames per millisecond, and multiplying by it gives frames.
    const auto all = static_cast<uint32_t>(static_cast<uint64_t>(1.8446744073709552e19 * (29.97 / 1000.0)));
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_convertMillisecondsToDuration, uint64_t{1000}), 29u);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_convertMillisecondsToDuration, uint64_t{0}), 0u);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_convertMillisecondsToDuration, UINT64_MAX), all);
}

// ---- Arithmetic

TEST(Timecode, CarriesAndBorrowsOverMidnightMonthsAndYears)
{
    setRate(KIVCS2FrameRate_25);
    constexpr uint32_t kLast = 2159999;
    using Operation = KIVCS2Status (*)(KIVCS2Timecode *, uint32_t);
    using Row = std::tuple<KIVCS2Timecode, Operation, uint32_t, KIVCS2Timecode>;
    const Row rows[] = {
        {record(kLast, 30, 11, 2023), kivCS2Timecode_addFrames, 1, record(0, 0, 0, 2024)},
        {record(0, 0, 2, 2024), kivCS2Timecode_subtractFrames, 1, record(kLast, 28, 1, 2024)},
        {record(0, 0, 2, 2023), kivCS2Timecode_subtractFrames, 2160000, record(0, 27, 1, 2023)},
        {record(0, 0, 2, 2023), kivCS2Timecode_subtractFrames, 2160001, record(kLast, 26, 1, 2023)},
        {record(2160007, 0, 2, 2023), kivCS2Timecode_subtractFrames, 2160008, record(kLast, 27, 1, 2023)},
        {record(5, 0, 0, 2024), kivCS2Timecode_subtractFrames, 0xFFFFFFFFu, record(1272710, 21, 6, 2018)},
        {record(2160007, 30, 11, 2023), kivCS2Timecode_addFrames, 0, record(7, 0, 0, 2024)},
        {record(kLast, 30, 11, 2023), kivCS2Timecode_addFrames, 0xFF000000u, record(1390079, 2, 5, 2029)},
        {record(5, 27, 1, 2024), kivCS2Timecode_addDays, 1, record(5, 28, 1, 2024)},
        {record(0, 30, 0, 2024), kivCS2Timecode_addMonths, 1, record(0, 30, 1, 2024)}, // kept: not clamped
        {record(0, 30, 1, 2024), kivCS2Timecode_addDays, 1, record(0, 2, 2, 2024)},
        {record(0, 30, 1, 2024), kivCS2Timecode_addDays, 0, record(0, 30, 1, 2024)},
        {record(0, 3, 11, 2024), kivCS2Timecode_addMonths, 25, record(0, 3, 0, 2027)},
        {record(0, 3, 0, 2024), kivCS2Timecode_subtractMonths, 25, record(0, 3, 11, 2021)},
        {record(0, 3, 0, 0), kivCS2Timecode_subtractMonths, 1, record(0, 3, 11, 0)},
        {record(0, 3, 0, 2), kivCS2Timecode_subtractYears, 3, record(0, 3, 0, 0)},
        {record(0, 3, 0, 65535), kivCS2Timecode_addYears, 65538, record(0, 3, 0, 1)},
        {record(0, 0, 0, 0), kivCS2Timecode_subtractDays, 1, record(0, 30, 11, 0)},
        {record(0), kivCS2Timecode_addHours, 25, record(90000, 1)},           // a duration counts days
        {record(0), kivCS2Timecode_addFrames, 31 * 2160000, record(0, 0, 1)}, // and months after 31
        {record(500, 3, 3, 3), kivCS2Timecode_subtractSeconds, 21, record(2159975, 2, 3, 3)},
        {record(1499, 3, 3, 3), kivCS2Timecode_subtractMinutes, 1, record(kLast, 2, 3, 3)},
        {record(0, 3, 3, 3), kivCS2Timecode_subtractHours, 25, record(2070000, 1, 3, 3)},
        {record(100, 3, 3, 3), kivCS2Timecode_addFrames, 0xFFFFFFFEu, record(98, 3, 3, 3)}, // modulo 2^32
        {record(60 * 1500), kivCS2Timecode_snapToMinute, 0, record(60 * 1500)},
        {record(90000 + 1501), kivCS2Timecode_snapToMinute, 0, record(91500)},
        {record(90000 + 1501), kivCS2Timecode_snapToMinute, 90, record(90000)},
        {record(5 * 90000 + 1), kivCS2Timecode_snapToHour, 2, record(4 * 90000)},
        {record(5 * 90000 + 1, 9, 9, 9), kivCS2Timecode_snapToHour, 0xFFFFFFFFu, record(0, 9, 9, 9)},
    };
    for (const auto &[before, operation, count, result] : rows)
        EXPECT_EQ(after(operation, before, count), textOf(result)) << textOf(before) << " and " << count;
}

TEST(Timecode, ASecondHasTheNominalFramesAtDropFrameRates)
{
    setRate(KIVCS2FrameRate_29_97);
    EXPECT_EQ(after(kivCS2Timecode_addSeconds, 0, 60), textOf(1800));
    EXPECT_EQ(after(kivCS2Timecode_addMinutes, 1800, 59), textOf(108000)); // 01:00:03;18
    // Already a multiple of 1800, although not a whole minute.
    EXPECT_EQ(after(kivCS2Timecode_snapToMinute, 108000, 1), textOf(108000));
}

TEST(Timecode, InvalidRecordsAndBadMonthsAreRefusedUnchanged)
{
    setRate(KIVCS2FrameRate_25);
    const KIVCS2Timecode invalid = record(kInvalid, 5, 5, 5), badMonth = record(0, 5, 12, 5), good = 1;
    uint32_t word = 7;
    int32_t order = 7;
    int64_t frames = 7;
    KIVCS2Timecode tc = invalid;
    std::vector<KIVCS2Status> statuses;
    for (const auto operation : {kivCS2Timecode_addFrames, kivCS2Timecode_subtractFrames,
                                 kivCS2Timecode_snapToMinute, kivCS2Timecode_snapToHour})
        statuses.push_back(operation(&tc, 1));
    statuses.insert(statuses.end(),
                    {kivCS2Timecode_tick(&tc), kivCS2Timecode_tickDown(&tc, &word),
                     kivCS2Timecode_compare(&tc, &good, &order), kivCS2Timecode_compare(&good, &tc, &order),
                     kivCS2Timecode_differenceInFrames(&good, &tc, &frames),
                     kivCS2Timecode_subtractTimecode(&tc, &good)});
    EXPECT_THAT(statuses, testing::Each(KIVCS2STATUS_INVALID_TIMECODE_ERR));
    for (const auto operation :
         {kivCS2Timecode_addSeconds, kivCS2Timecode_addMinutes, kivCS2Timecode_addHours,
          kivCS2Timecode_subtractSeconds, kivCS2Timecode_subtractMinutes, kivCS2Timecode_subtractHours})
        EXPECT_OK(operation(&tc, 1)); // kept: these hide the failure
    EXPECT_EQ(tc, invalid);

    tc = badMonth;
    statuses = {kivCS2Timecode_addDays(&tc, 1),
                kivCS2Timecode_subtractDays(&tc, 1),
                kivCS2Timecode_addFrames(&tc, 2160000),
                kivCS2Timecode_subtractFrames(&tc, 1),
                kivCS2Timecode_getDaysInMonth(&tc, &word),
                kivCS2Timecode_getDaysThisYear(&tc, &word),
                kivCS2Timecode_differenceInFrames(&tc, &good, &frames)};
    EXPECT_THAT(statuses, testing::Each(KIVCS2STATUS_PARAM_ERR));
    EXPECT_EQ(tc, badMonth);
    EXPECT_OK(kivCS2Timecode_addFrames(&tc, 1)); // the month is not needed
    EXPECT_EQ(kivCS2Timecode_snapToHour(&tc, 0), KIVCS2STATUS_PARAM_ERR);
    EXPECT_TRUE(word == 7 && order == 7 && frames == 7);
}

TEST(Timecode, CalendarFigures)
{
    using Row = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t>;
    for (const auto &[day, month, year, leap, inYear, ofYear, inMonth] : {Row{0, 0, 2023, 0, 365, 1, 31},
                                                                          {30, 11, 2023, 0, 365, 365, 31},
                                                                          {28, 1, 2024, 1, 366, 60, 29},
                                                                          {0, 2, 2024, 1, 366, 61, 31},
                                                                          {30, 11, 2000, 1, 366, 366, 31},
                                                                          {0, 2, 1900, 0, 365, 60, 31}})
    {
        const KIVCS2Timecode tc = record(0, day, month, year);
        uint32_t value = 0;
        EXPECT_EQ(out<uint32_t>(kivCS2Timecode_isLeapYear, &tc), leap);
        EXPECT_EQ(out<uint32_t>(kivCS2Timecode_getDaysInMonth, &tc), inMonth);
        // Kept: a parameter error with the right value.
        EXPECT_EQ(kivCS2Timecode_getDaysInYear(&tc, &value), KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(value, inYear);
        EXPECT_EQ(kivCS2Timecode_getDaysThisYear(&tc, &value), KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(value, ofYear);
    }
}

TEST(Timecode, ComparesFrameCountsAndMeasuresDays)
{
    setRate(KIVCS2FrameRate_25);
    const KIVCS2Timecode ten = record(900000, 0, 0, 2024), nineLater = record(810000, 4, 6, 2025);
    const KIVCS2Timecode tenToo = record(900000), invalid = kInvalid;
    EXPECT_EQ(out<int32_t>(kivCS2Timecode_compare, &ten, &nineLater), 1); // kept: dates are ignored
    EXPECT_EQ(out<int32_t>(kivCS2Timecode_compare, &nineLater, &ten), -1);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_isSameTimecode, &ten, &tenToo), 1u);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_isSameTimecode, &invalid, &invalid), 0u);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_isSameDay, &ten, &tenToo), 0u);

    constexpr int64_t kDay = 2160000;
    using Row = std::tuple<KIVCS2Timecode, KIVCS2Timecode, int64_t>;
    for (const auto &[a, b, difference] :
         {Row{record(2070000, 0, 0, 2024), record(90000, 1, 0, 2024), 180000},
          {record(0, 0, 0, 2023), record(0, 0, 0, 2025), 731 * kDay},
          {record(10, 30, 11, 2023), record(5, 0, 0, 2024), kDay - 5},
          {record(0, 0, 0, 1999), record(0, 0, 0, 2101), (102 * 365 + 25) * kDay},
          {record(0, 9, 0, 2024), record(0, 4, 0, 2024), -5 * kDay},
          // Kept: an earlier year counts positive.
          {record(0, 0, 0, 2024), record(0, 30, 11, 2023), (365 + 365) * kDay},
          {record(0, 0, 0, 2024), record(0, 0, 0, 2020), 1461 * kDay},
          {record(10, 1, 1, 1), record(5, 1, 1, 1), -5},
          // Kept: 32 bits with a sign on one day.
          {record(1, 1, 1, 1), record(0xFFFFFFFEu, 1, 1, 1), -3}})
    {
        EXPECT_EQ(out<int64_t>(kivCS2Timecode_differenceInFrames, &a, &b), difference)
            << textOf(a) << " to " << textOf(b);
    }
    double seconds = 7;
    EXPECT_OK(kivCS2Timecode_differenceInSeconds(&ten, &nineLater, &seconds));
    EXPECT_EQ(seconds, 7); // kept: not stored for two days
    const KIVCS2Timecode nine = record(810000, 0, 0, 2024);
    EXPECT_EQ(out<int64_t>(kivCS2Timecode_differenceInFrames, &ten, &nine), -90000);
    EXPECT_EQ(out<double>(kivCS2Timecode_differenceInSeconds, &ten, &nine),
              3600.0); // kept: the other sign
}

TEST(Timecode, AddsAndSubtractsRecords)
{
    setRate(KIVCS2FrameRate_25);
    const KIVCS2Timecode twenty = 1800000, five = 450000, dated = record(2000000, 30, 11, 2023),
                         dayAndHour = record(90000, 1);
    EXPECT_EQ(after(kivCS2Timecode_initByAddingTimecodes, 0, &twenty, &five), textOf(dayAndHour));
    EXPECT_EQ(after(kivCS2Timecode_initByAddingTimecodes, 0, &dayAndHour, &dated),
              textOf(record(2090000, 0, 0, 2024))); // the day field is added
    EXPECT_EQ(after(kivCS2Timecode_subtractTimecode, record(2090000, 0, 0, 2024), &dayAndHour),
              textOf(record(2000000, 0, 0, 2024))); // kept: but not subtracted
    EXPECT_EQ(after(kivCS2Timecode_ensureLegalDuration, dayAndHour), textOf(record(2159999)));

    using Row = std::tuple<KIVCS2Timecode, KIVCS2Timecode, KIVCS2Timecode, uint32_t, KIVCS2Timecode>;
    for (const auto &[result, a, b, includeDays, expected] : {
             Row{0, record(100), record(150, 3, 3, 3), 0, record(50, 3, 3, 3)},
             {record(0, 3, 3, 3), record(100, 3, 3, 3), record(150, 3, 3, 3), 1, record(50)},
             {record(2500, 4, 3, 3), record(100, 3, 3, 3), record(0, 4, 3, 3), 1, record(2500)},
             {record(2500, 4, 3, 3), record(100, 3, 3, 3), record(0, 5, 3, 3), 1, record(0)},
             {record(4 * 2160000u, 4, 3, 3), record(0), record(0, 4, 3, 3), 1, record(2159999)},
             {record(2160000, 4, 3, 3), record(0), record(0, 4, 3, 3), 1, record(2159999)}, // 86400 s
             {record(2159999, 4, 3, 3), record(0), record(0, 4, 3, 3), 1, record(2159999)},
         })
        EXPECT_EQ(after(kivCS2Timecode_initBySubtractingTimecodes, result, &a, &b, includeDays),
                  textOf(expected));
}

TEST(Timecode, ASourceMayBeTheResult)
{
    setRate(KIVCS2FrameRate_25);
    using Operation = KIVCS2Status (*)(KIVCS2Timecode *, const KIVCS2Timecode *, const KIVCS2Timecode *);
    using Record = const KIVCS2Timecode *;
    const Operation operations[] = {kivCS2Timecode_initWithDateAndTimecode,
                                    kivCS2Timecode_initByAddingTimecodes,
                                    [](KIVCS2Timecode *result, Record a, Record b)
                                    { return kivCS2Timecode_initBySubtractingTimecodes(result, a, b, 0); },
                                    [](KIVCS2Timecode *result, Record a, Record b)
                                    { return kivCS2Timecode_initBySubtractingTimecodes(result, a, b, 1); }};
    const KIVCS2Timecode a = record(1800000, 3, 1, 2024), b = record(1900000, 3, 1, 2024);
    for (const Operation operation : operations)
    {
        KIVCS2Timecode expected = a, first = a, second = b, both = a, expectedBoth = a;
        EXPECT_OK(operation(&expected, &a, &b) | operation(&first, &first, &b) |
                  operation(&second, &a, &second) | operation(&expectedBoth, &a, &a) |
                  operation(&both, &both, &both));
        EXPECT_EQ(textOf(first), textOf(expected));
        EXPECT_EQ(textOf(second), textOf(expected));
        EXPECT_EQ(textOf(both), textOf(expectedBoth));
    }
    KIVCS2Timecode tc = record(1800000, 2);
    EXPECT_OK(kivCS2Timecode_addTimecode(&tc, &tc));
    EXPECT_EQ(textOf(tc), textOf(record(1440000, 5))); // 2 days and 20 hours, twice
    EXPECT_OK(kivCS2Timecode_subtractTimecode(&tc, &tc));
    EXPECT_EQ(textOf(tc), textOf(record(0, 5)));
}

TEST(Timecode, MultipliesAndClampsToADay)
{
    setRate(KIVCS2FrameRate_25);
    using Row = std::tuple<KIVCS2Timecode, uint32_t, KIVCS2Timecode>;
    for (const auto &[before, factor, result] :
         {Row{record(900, 0, 3, 3), 0, record(900)},
          {record(900, 0, 3, 3), 1, record(900)},
          {record(900, 4, 3, 3), 1, record(2159999)}, // a day field counts as whole days
          {record(900), 3, record(2700)},
          {record(2000000), 2, record(2159999)},
          {record(2160000 - 1), 0xFFFFFFFFu, record(2159999)},
          {record(1080000), 62, record(0)}, // kept: 31 days are a month and no days
          {record(kInvalid, 3, 0, 0), 2, record(2159999)}})
        EXPECT_EQ(after(kivCS2Timecode_initByMultiplyingTimecode, 7, &before, factor), textOf(result))
            << textOf(before) << " * " << factor;
    KIVCS2Timecode tc = record(1, 3, 3, 3);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_tickDown, &tc), 0u);
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_tickDown, &tc), 1u);
    EXPECT_EQ(textOf(tc), textOf(record(2159999, 2, 3, 3)));
    EXPECT_EQ(after(kivCS2Timecode_tick, tc), textOf(record(0, 3, 3, 3)));
    EXPECT_EQ(out<uint32_t>(kivCS2Timecode_isDuration, &tc), 0u);
}

// ---- Text and BCD

// The fuzz target compares the same texts as C strings and as string objects.
TEST(Timecode, ParsesText)
{
    constexpr KIVCS2Status kOK = KIVCS2STATUS_OK, kParam = KIVCS2STATUS_PARAM_ERR,
                           kIllegal = KIVCS2STATUS_INVALID_TIMECODE_ERR;
    using Row = std::tuple<KIVCS2FrameRate, const char *, KIVCS2Status, KIVCS2Timecode>;
    const Row rows[] = {
        {KIVCS2FrameRate_25, "10:00:00:00", kOK, record(900000)},
        {KIVCS2FrameRate_25, "15.3.2024 10:00:00:00", kOK, record(900000, 14, 2, 2024)},
        {KIVCS2FrameRate_25, "15.3.2024 2500", kOK, record(2500, 14, 2, 2024)},
        {KIVCS2FrameRate_25, "2500", kOK, record(2500)},
        {KIVCS2FrameRate_25, "99999999999", kOK, record(2147483647)},      // numbers end at 31 bits
        {KIVCS2FrameRate_25, "1:2:3:4294967297", kIllegal, record(90000)}, // in fields too
        {KIVCS2FrameRate_25, "1.1.4294967297 0000000007", kOK, record(7, 0, 0, 65535)},
        {KIVCS2FrameRate_25, "", kOK, record(0)},
        {KIVCS2FrameRate_25, "15.3.2024", kParam, record(0)}, // without a space this is the time
        {KIVCS2FrameRate_25, "1.2.3.4 5", kOK, record(5)},
        {KIVCS2FrameRate_25, "1.2.3 4:5", kOK, record(0, 0, 1, 3)},
        {KIVCS2FrameRate_25, "1..3 5", kOK, record(5, 0, 255, 3)},
        {KIVCS2FrameRate_25, "1:2:3.4", kParam, record(0)},
        {KIVCS2FrameRate_25, "::", kOK, record(0)}, // an empty field is 0
        {KIVCS2FrameRate_29_97, "00:01:00", kOK, record(1800)},
        {KIVCS2FrameRate_29_97, "00:10:00", kOK, record(17982)},
        {KIVCS2FrameRate_29_97, "00:00:59", kOK, record(1770)},
        {KIVCS2FrameRate_59_94, "00:01:00", kIllegal, record(0)}, // kept: 2 where 4 would be needed
        {KIVCS2FrameRate_29_97, "00:01:00;02", kParam, record(0)},
        {KIVCS2FrameRate_25, "10:00", kOK, record(0)}, // kept: no error
        {KIVCS2FrameRate_25, "1:2:3:4:5", kOK, record(0)},
        {KIVCS2FrameRate_25, "1.2 10:00:00:00", kOK, record(900000)}, // kept: a short date is ignored
        {KIVCS2FrameRate_25, "1.2.3 4 5", kParam, record(0)},
        {KIVCS2FrameRate_25, " 10:00:00:00", kOK, record(900000)},
        {KIVCS2FrameRate_25, "10:00:00:00 ", kOK, record(0)},
        {KIVCS2FrameRate_25, "0.0.2024 10:00:00:00", kOK, record(900000, 255, 255, 2024)},
        {KIVCS2FrameRate_25, "1.1.65537 0", kOK, record(0, 0, 0, 1)},
        {KIVCS2FrameRate_25, "15.3.2024 1:00:00:25", kIllegal, record(90000, 14, 2, 2024)},
        {KIVCS2FrameRate_25, "15.3.2024 1:00:x:00", kParam, record(0, 14, 2, 2024)},
        {KIVCS2FrameRate_25, "15.x.2024 1:00:00:00", kParam, record(0)},
        {KIVCS2FrameRate_25, "257:00:00:00", kOK, record(90000)},      // the hours are cut to 8 bits,
        {KIVCS2FrameRate_25, "01:00:00:256", kIllegal, record(90000)}, // the others name no frame
        {KIVCS2FrameRate_25, "01:00:256:00", kIllegal, record(90000)},
        {KIVCS2FrameRate_25, "01:256:00:00", kIllegal, record(90000)},
        {KIVCS2FrameRate_25, "1.1.2024 257:0:4294967040", kIllegal, record(90000, 0, 0, 2024)},
        {KIVCS2FrameRate_29_97, "0:1:256", kIllegal, record(0)},
        {KIVCS2FrameRate_29_97, "0:257:0", kIllegal, record(0)},
        {KIVCS2FrameRate_25, "-1:00:00:00", kParam, record(0)},
        {KIVCS2FrameRate_25, "1:00:00:00\n", kParam, record(0)},
        {KIVCS2FrameRate_25, "\xd9\xa1:00:00:00", kParam, record(0)}, // an Arabic digit one
    };
    for (const auto &[rate, text, status, expected] : rows)
    {
        SCOPED_TRACE(text);
        setRate(rate);
        KIVCS2Timecode tc = record(7, 7, 7, 7);
        EXPECT_EQ(kivCS2Timecode_initWithString(&tc, text), status);
        EXPECT_EQ(textOf(tc), textOf(expected));
    }
    KIVCS2Timecode tc = record(7, 7, 7, 7);
    EXPECT_EQ(kivCS2Timecode_initWithString(&tc, "10:00:00:\xff"), KIVCS2STATUS_MEMORY_ERR); // not UTF-8
    EXPECT_EQ(tc, record(7, 7, 7, 7));
}

TEST(Timecode, WritesTextThatFitsOrNothing)
{
    using Row = std::tuple<KIVCS2FrameRate, KIVCS2Timecode, const char *, uint32_t>;
    for (const auto &[rate, tc, text, needed] : {
             Row{KIVCS2FrameRate_25, record(0), "00:00:00:00", 12},
             {KIVCS2FrameRate_29_97, record(1800), "00:01:00;02", 12},
             {KIVCS2FrameRate_25, record(900000, 14, 2, 2024), "15.3.2024 10:00:00:00", 24},
             {KIVCS2FrameRate_25, record(kInvalid, 14, 2, 2024), "15.3.2024 00:00:00:00", 24},
             {KIVCS2FrameRate_25, record(900000, 14, 2, 0), "10:00:00:00", 12}, // no year, no date
             {KIVCS2FrameRate_25, record(99 * 90000 + 89999), "99:59:59:24", 12},
             {KIVCS2FrameRate_25, record(100 * 90000), "100:00:00:00", 13},
             {KIVCS2FrameRate_24, record(0xFFFFFFFE), "49710:16:10:14", 15},
             {KIVCS2FrameRate_24, record(0xFFFFFFFE, 255, 255, 65535), "256.256.65535 49710:16:10:14", 29},
         })
    {
        SCOPED_TRACE(text);
        setRate(rate);
        for (uint32_t size = 0; size <= 32; ++size)
        {
            const std::unique_ptr<char[]> buffer{new char[size + 1]}; // AddressSanitizer checks its end
            std::fill_n(buffer.get(), size + 1, '#');
            const KIVCS2Status status = kivCS2Timecode_timecodeToString(&tc, buffer.get(), size);
            if (size >= needed)
            {
                ASSERT_OK(status);
                ASSERT_STREQ(buffer.get(), text);
            }
            else
            {
                ASSERT_EQ(status, KIVCS2STATUS_BUFFER_SIZE_ERR) << size;
                ASSERT_EQ(std::count(buffer.get(), buffer.get() + size + 1, '#'), size + 1);
            }
        }
    }
    Log log;
    const KIVCS2Timecode tc = 0xFFFFFFFE;
    EXPECT_OK(kivCS2Timecode_print(&tc));
    setRate(KIVCS2FrameRate_29_97);
    const KIVCS2Timecode dropped = 1800;
    EXPECT_OK(kivCS2Timecode_print(&dropped));
    EXPECT_EQ(log.take(), "49710:16:10:1400:01:00;02");
}
} // namespace
