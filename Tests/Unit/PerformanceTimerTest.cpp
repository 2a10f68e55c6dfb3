// Performance timers: recording, and each kind in each unit.
#include <KIVCoreServices2/KIVCS2PerformanceTimer.h>

#include "RequiredPointers.h"

#include <mach/mach_time.h>

#include <cstddef>

namespace
{
static_assert(sizeof(KIVCS2PerformanceTimer) == 40 && offsetof(KIVCS2PerformanceTimer, m_start) == 0 &&
              offsetof(KIVCS2PerformanceTimer, m_total) == 8 &&
              offsetof(KIVCS2PerformanceTimer, m_minimum) == 16 &&
              offsetof(KIVCS2PerformanceTimer, m_maximum) == 24 &&
              offsetof(KIVCS2PerformanceTimer, m_count) == 32);

constexpr KIVCS2PerformanceTimerKind kAverage = KIVCS2PerformanceTimerKind_Average;
constexpr KIVCS2PerformanceTimerKind kMinimum = KIVCS2PerformanceTimerKind_Minimum;
constexpr KIVCS2PerformanceTimerKind kMaximum = KIVCS2PerformanceTimerKind_Maximum;

class PerformanceTimer : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(kivCS2_initWithTaskServer(false), KIVCS2STATUS_OK);
        timer = {1, 2, 3, 4, 5};
        ASSERT_EQ(kivCS2PerformanceTimer_init(&timer), KIVCS2STATUS_OK);
    }
    // Stops as if the interval had begun `units` of the clock ago; the interval is a little longer.
    void stopAfter(uint64_t units)
    {
        timer.m_start = mach_absolute_time() - units;
        EXPECT_EQ(kivCS2PerformanceTimer_stop(&timer), KIVCS2STATUS_OK);
    }

    // Returns the value in all three units, 77 if none was stored. Their statuses must be equal.
    static std::tuple<uint64_t, uint32_t, float> read(const KIVCS2PerformanceTimer &record,
                                                      KIVCS2PerformanceTimerKind kind, KIVCS2Status status)
    {
        uint64_t nanoseconds = 77;
        uint32_t milliseconds = 77;
        float seconds = 77;
        EXPECT_EQ(kivCS2PerformanceTimer_getNanoseconds(&record, kind, &nanoseconds), status);
        EXPECT_EQ(kivCS2PerformanceTimer_getMilliseconds(&record, kind, &milliseconds), status);
        EXPECT_EQ(kivCS2PerformanceTimer_getSeconds(&record, kind, &seconds), status);
        return {nanoseconds, milliseconds, seconds};
    }

    KIVCS2PerformanceTimer timer{};
};
} // namespace

TEST_F(PerformanceTimer, KindsAndUnits)
{
    constexpr uint64_t kDays50 = 50ull * 86400 * 1000000000;
    using Row = std::tuple<KIVCS2PerformanceTimer, KIVCS2PerformanceTimerKind, uint64_t, uint32_t, float>;
    for (const auto &[record, kind, inNanoseconds, inMilliseconds, inSeconds] : {
             Row{{0, 40000000, 10000000, 30000000, 2}, kAverage, 20000000, 20, 0.02f},
             {{0, 40000000, 10000000, 30000000, 2}, kMinimum, 10000000, 10, 0.01f},
             {{0, 40000000, 10000000, 30000000, 2}, kMaximum, 30000000, 30, 0.03f},
             {{0, 8, 2, 3, 3}, kAverage, 2, 0, 2e-9f}, // whole units: 8 / 3
             {{0, 1999999, 0, 0, 1}, kAverage, 1999999, 1, 0.001999999f},
             {{0, 0, kDays50, 0, 1}, kMinimum, kDays50, 25032704, 4320000.0f}, // 32 bits
             {{0, 0, 0x100000002, 0, 1}, kMinimum, 0x100000002, 4294, 4.2949672f},
             {{0, 7, 7, 7, 1}, 4, 0, 0, 0.0f},
             {{0, 7, 7, 7, 0}, -1, 0, 0, 0.0f}, // not a kind, so no interval is needed
         })
    {
        SCOPED_TRACE(testing::Message() << "kind " << kind << ", " << inNanoseconds << " ns");
        const auto [nanoseconds, milliseconds, seconds] = read(record, kind, KIVCS2STATUS_OK);
        EXPECT_EQ(nanoseconds, inNanoseconds);
        EXPECT_EQ(milliseconds, inMilliseconds);
        EXPECT_FLOAT_EQ(seconds, inSeconds);
    }
}

TEST_F(PerformanceTimer, SecondsAreRoundedToAFloatBeforeTheDivision)
{
    // 2^40 + 2^16 is halfway between two floats and is rounded down to 2^40.
    const KIVCS2PerformanceTimer record{0, 0, (1ull << 40) + (1ull << 16), 0, 1};
    float seconds = 0;
    EXPECT_EQ(kivCS2PerformanceTimer_getSeconds(&record, kMinimum, &seconds), KIVCS2STATUS_OK);
    EXPECT_EQ(seconds, static_cast<float>(1099511627776.0 / 1e9));
    EXPECT_NE(seconds, static_cast<float>((1099511627776.0 + 65536.0) / 1e9));
}

TEST_F(PerformanceTimer, WithoutAnIntervalOnlyTheElapsedTimeIsThere)
{
    EXPECT_EQ(timer.m_total + timer.m_minimum + timer.m_maximum + timer.m_count, 0u);
    for (const KIVCS2PerformanceTimerKind kind : {kAverage, kMinimum, kMaximum})
        EXPECT_EQ(read(timer, kind, KIVCS2STATUS_DATA_ERR), std::tuple(77u, 77u, 77.0f));
    timer.m_start -= 5000000000; // five seconds ago
    uint64_t nanoseconds = 0;
    uint32_t milliseconds = 0;
    float seconds = 0;
    EXPECT_EQ(kivCS2PerformanceTimer_getElapsedNanoseconds(&timer, &nanoseconds), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2PerformanceTimer_getElapsedMilliseconds(&timer, &milliseconds), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2PerformanceTimer_getElapsedSeconds(&timer, &seconds), KIVCS2STATUS_OK);
    EXPECT_GE(nanoseconds, 5000000000u);
    EXPECT_GE(milliseconds, 5000u);
    EXPECT_GE(seconds, 5.0f);
}

TEST_F(PerformanceTimer, StopsRecordShortestAndLongestAndDoNotStartAgain)
{
    constexpr uint64_t kMinute = 60000000000; // no machine stops this long between two calls
    timer.m_minimum = 0;                      // as after a count that has wrapped
    timer.m_maximum = 60 * kMinute;
    stopAfter(3 * kMinute);
    EXPECT_EQ(timer.m_minimum, timer.m_total);
    EXPECT_EQ(timer.m_maximum, timer.m_total);
    stopAfter(kMinute);
    stopAfter(5 * kMinute);
    EXPECT_EQ(timer.m_count, 3u);
    EXPECT_EQ(timer.m_minimum / kMinute, 1u);
    EXPECT_EQ(timer.m_maximum / kMinute, 5u);
    EXPECT_EQ(timer.m_total / kMinute, 9u);

    const uint64_t start = timer.m_start;
    EXPECT_EQ(kivCS2PerformanceTimer_stop(&timer), KIVCS2STATUS_OK);
    EXPECT_EQ(timer.m_start, start);
    EXPECT_EQ(timer.m_total / kMinute, 14u);
    EXPECT_EQ(kivCS2PerformanceTimer_start(&timer), KIVCS2STATUS_OK);
    EXPECT_GT(timer.m_start, start);
    EXPECT_EQ(timer.m_count, 4u);
}

TEST_F(PerformanceTimer, RefusesMissingArguments)
{
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_init, "timer");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_start, "timer");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_stop, "timer");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_getNanoseconds, "pTimer, nanoseconds");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_getMilliseconds, "pTimer, milliseconds");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_getSeconds, "pTimer, seconds");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_getElapsedNanoseconds, "timer, nanoseconds");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_getElapsedMilliseconds, "timer, milliseconds");
    KIV_REQUIRES_EACH(kivCS2PerformanceTimer_getElapsedSeconds, "timer, seconds");
}
