// Performance timers: what is recorded, and each kind in each unit.
#include <KIVCoreServices2/KIVCS2PerformanceTimer.h>

#include "ArgumentCheck.h"

#include <mach/mach_time.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <tuple>

namespace
{
static_assert(sizeof(KIVCS2PerformanceTimer) == 40 && offsetof(KIVCS2PerformanceTimer, m_start) == 0 &&
              offsetof(KIVCS2PerformanceTimer, m_total) == 8 &&
              offsetof(KIVCS2PerformanceTimer, m_minimum) == 16 &&
              offsetof(KIVCS2PerformanceTimer, m_maximum) == 24 &&
              offsetof(KIVCS2PerformanceTimer, m_count) == 32);

constexpr KIVCS2PerformanceTimerKind kMeasuredKinds[] = {KIVCS2PerformanceTimerKind_Average,
                                                         KIVCS2PerformanceTimerKind_Minimum,
                                                         KIVCS2PerformanceTimerKind_Maximum};

class PerformanceTimer : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(kivCS2_initWithTaskServer(false), KIVCS2STATUS_OK);
        timer = {1, 2, 3, 4, 5};
        ASSERT_EQ(kivCS2PerformanceTimer_init(&timer), KIVCS2STATUS_OK);
    }
    // Stops as if the interval had begun `units` of the clock ago; it comes out a little longer.
    void stopAfter(uint64_t units)
    {
        timer.m_start = mach_absolute_time() - units;
        EXPECT_EQ(kivCS2PerformanceTimer_stop(&timer), KIVCS2STATUS_OK);
    }

    // The statuses of all three units are the same. Returns what was stored, 77 where nothing was.
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
    struct Row
    {
        KIVCS2PerformanceTimer record;
        KIVCS2PerformanceTimerKind kind;
        uint64_t nanoseconds;
        uint32_t milliseconds;
        float seconds;
    };
    constexpr uint64_t kDays50 = 50ull * 86400 * 1000000000;
    const Row rows[] = {
        {{0, 40000000, 10000000, 30000000, 2}, KIVCS2PerformanceTimerKind_Average, 20000000, 20, 0.02f},
        {{0, 40000000, 10000000, 30000000, 2}, KIVCS2PerformanceTimerKind_Minimum, 10000000, 10, 0.01f},
        {{0, 40000000, 10000000, 30000000, 2}, KIVCS2PerformanceTimerKind_Maximum, 30000000, 30, 0.03f},
        {{0, 8, 2, 3, 3}, KIVCS2PerformanceTimerKind_Average, 2, 0, 2e-9f}, // whole units: 8 / 3
        {{0, 1999999, 0, 0, 1}, KIVCS2PerformanceTimerKind_Average, 1999999, 1, 0.001999999f},
        {{0, 0, kDays50, 0, 1}, KIVCS2PerformanceTimerKind_Minimum, kDays50, 25032704, 4320000.0f}, // 32 bits
        {{0, 0, 0x100000002, 0, 1}, KIVCS2PerformanceTimerKind_Minimum, 0x100000002, 4294, 4.2949672f},
        {{0, 7, 7, 7, 1}, 4, 0, 0, 0.0f},
        {{0, 7, 7, 7, 0}, -1, 0, 0, 0.0f}, // no kind, so no interval is asked for
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(testing::Message() << "kind " << row.kind << ", " << row.nanoseconds << " ns");
        const auto [nanoseconds, milliseconds, seconds] = read(row.record, row.kind, KIVCS2STATUS_OK);
        EXPECT_EQ(nanoseconds, row.nanoseconds);
        EXPECT_EQ(milliseconds, row.milliseconds);
        EXPECT_FLOAT_EQ(seconds, row.seconds);
    }
}

TEST_F(PerformanceTimer, SecondsAreRoundedToAFloatBeforeTheDivision)
{
    // 2^40 + 2^16 lies in the middle of two floats and goes down to 2^40.
    const KIVCS2PerformanceTimer record{0, 0, (1ull << 40) + (1ull << 16), 0, 1};
    float seconds = 0;
    EXPECT_EQ(kivCS2PerformanceTimer_getSeconds(&record, KIVCS2PerformanceTimerKind_Minimum, &seconds),
              KIVCS2STATUS_OK);
    EXPECT_EQ(seconds, static_cast<float>(1099511627776.0 / 1e9));
    EXPECT_NE(seconds, static_cast<float>((1099511627776.0 + 65536.0) / 1e9));
}

TEST_F(PerformanceTimer, WithoutAnIntervalThereIsTheElapsedTimeAlone)
{
    EXPECT_EQ(timer.m_total + timer.m_minimum + timer.m_maximum + timer.m_count, 0u);
    for (const KIVCS2PerformanceTimerKind kind : kMeasuredKinds)
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
    constexpr uint64_t kMinute = 60000000000; // no machine is stopped that long in between
    timer.m_minimum = 0;                      // what a count that has wrapped leaves
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
    uint64_t nanoseconds = 0;
    uint32_t milliseconds = 0;
    float seconds = 0;
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2PerformanceTimer_init, "timer", nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_start, "timer", nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_stop, "timer", nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_getNanoseconds, "pTimer", nullptr, 0, &nanoseconds),
        KIV_REQUIRES(kivCS2PerformanceTimer_getNanoseconds, "nanoseconds", &timer, 0, nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_getMilliseconds, "pTimer", nullptr, 0, &milliseconds),
        KIV_REQUIRES(kivCS2PerformanceTimer_getMilliseconds, "milliseconds", &timer, 0, nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_getSeconds, "pTimer", nullptr, 0, &seconds),
        KIV_REQUIRES(kivCS2PerformanceTimer_getSeconds, "seconds", &timer, 0, nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_getElapsedNanoseconds, "timer", nullptr, &nanoseconds),
        KIV_REQUIRES(kivCS2PerformanceTimer_getElapsedMilliseconds, "milliseconds", &timer, nullptr),
        KIV_REQUIRES(kivCS2PerformanceTimer_getElapsedSeconds, "seconds", &timer, nullptr),
    });
}
