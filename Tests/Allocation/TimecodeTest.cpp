// Timecode when memory runs out.
#include "KIVCS2Timecode.h"

#include "Private/Support/CFRef.h"

#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <tuple>

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
    // ASCII needs no memory, also with an empty field; a system string is taken apart by string objects.
    EXPECT_EQ(forEachAllocation(
                  [&](size_t)
                  { EXPECT_EQ(kivCS2Timecode_initWithString(&tc, "15.3.2024 10:00::00"), KIVCS2STATUS_OK); }),
              0u);
    const kiv::CFRef<CFStringRef> text{
        CFStringCreateWithCString(nullptr, "15.3.2024 10:00::00", kCFStringEncodingASCII)};
    EXPECT_GT(forEachAllocation(
                  [&](size_t index)
                  {
                      const KIVCS2Status status = kivCS2Timecode_initWithCFString(&tc, text.get());
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
    // Without a date object nothing is read.
    tc = 7;
    kiv::test::failAllocation(0);
    EXPECT_EQ(kivCS2Timecode_initWithNow(&tc), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(tc, 7u);
}

// Kept: a field that cannot be formatted reads as 0, and the others as they are.
TEST(TimecodeAllocation, ADateLosesTheFieldThatFails)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    CFDateRef date = CFDateCreate(nullptr, 757503912.5); // 2 January 2025 09:45:12.5 UTC
    KIVCS2Timecode whole = 0;
    ASSERT_EQ(kivCS2Timecode_initWithDate(&whole, date, 1), KIVCS2STATUS_OK);
    size_t lost = 0;
    const size_t count = forEachAllocation(
        [&](size_t index)
        {
            KIVCS2Timecode tc = 7;
            EXPECT_EQ(kivCS2Timecode_initWithDate(&tc, date, 1), KIVCS2STATUS_OK) << index;
            int fields = static_cast<uint32_t>(tc) != static_cast<uint32_t>(whole);
            // A day or month of 0 is stored as 255.
            for (const auto &[shift, mask, lostValue] :
                 {std::tuple{32, 0xFFu, 255u}, {40, 0xFFu, 255u}, {48, 0xFFFFu, 0u}})
            {
                if (((tc ^ whole) >> shift & mask) == 0)
                    continue;
                ++fields;
                EXPECT_EQ(tc >> shift & mask, lostValue) << index;
            }
            EXPECT_LE(fields, allocationFailed() ? 1 : 0) << index;
            lost += static_cast<size_t>(fields);
        });
    EXPECT_GT(count, 0u);
    EXPECT_GT(lost, 0u);
    CFRelease(date);
}
} // namespace
