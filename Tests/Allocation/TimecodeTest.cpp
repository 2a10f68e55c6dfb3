// Timecode when memory runs out.
#include "KIVCS2Timecode.h"

#include "FailingAllocator.h"

#include <gtest/gtest.h>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;

// First in this program: the shared formatters are made with the first rate.
TEST(TimecodeAllocation, ARateThatCannotBeSetLeavesTheOldOne)
{
    uint32_t perDay = 0;
    const auto trySet = [&](KIVCS2FrameRate rate, uint32_t before, uint32_t after)
    {
        const size_t count = forEachAllocation(
            [&](size_t index)
            {
                const KIVCS2Status status = kivCS2Timecode_setFrameRate(rate);
                EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK) << index;
                EXPECT_EQ(kivCS2Timecode_getFramesPerDay(&perDay), KIVCS2STATUS_OK);
                EXPECT_EQ(perDay, allocationFailed() ? before : after) << index;
            });
        EXPECT_GT(count, 0u);
    };
    trySet(KIVCS2FrameRate_25, 0, 2160000);
    trySet(KIVCS2FrameRate_29_97, 2160000, 2589408);

    // The tables of the old rate still serve after a failure.
    kiv::test::failAllocation(0);
    EXPECT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_60), KIVCS2STATUS_MEMORY_ERR);
    kiv::test::allowAllocations();
    KIVCS2Timecode tc = 0;
    EXPECT_EQ(kivCS2Timecode_initWithTimecodeFields(&tc, 0, 1, 0, 2), KIVCS2STATUS_OK);
    EXPECT_EQ(tc, 1800u);
}

TEST(TimecodeAllocation, TextAndDatesReportIt)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    KIVCS2Timecode tc = 0;
    // The plain form needs no memory; this one (an empty field) goes through string objects.
    EXPECT_EQ(forEachAllocation(
                  [&](size_t) {
                      EXPECT_EQ(kivCS2Timecode_initWithString(&tc, "15.3.2024 10:00:00:00"), KIVCS2STATUS_OK);
                  }),
              0u);
    EXPECT_GT(forEachAllocation(
                  [&](size_t index)
                  {
                      const KIVCS2Status status = kivCS2Timecode_initWithString(&tc, "15.3.2024 10:00::00");
                      EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK)
                          << index;
                  }),
              0u);
    EXPECT_GT(forEachAllocation(
                  [&](size_t index)
                  {
                      CFDateRef date = nullptr;
                      const KIVCS2Status status = kivCS2Timecode_createCFDate(&tc, &date);
                      EXPECT_EQ(KIVCS2_FAILED(status), allocationFailed()) << index;
                      EXPECT_EQ(date == nullptr, allocationFailed()) << index;
                      if (date != nullptr)
                          CFRelease(date);
                  }),
              0u);
    // Without a date object nothing is read; a field that cannot be formatted reads as 0.
    tc = 7;
    kiv::test::failAllocation(0);
    EXPECT_EQ(kivCS2Timecode_initWithNow(&tc), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(tc, 7u);
    EXPECT_GT(forEachAllocation([&](size_t) { (void)kivCS2Timecode_initWithNow(&tc); }), 0u);
    uint32_t today = 0;
    EXPECT_EQ(kivCS2Timecode_isToday(&tc, &today), KIVCS2STATUS_OK);
    EXPECT_EQ(today, 1u);
}
} // namespace
