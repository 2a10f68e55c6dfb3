// Reading allocates nothing; writing a header makes a UUID and two dates, each of whose allocations
// may fail.
#include "CaptionFile.h"
#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <array>

namespace
{
using namespace kiv::test;

TEST(CaptionFiles, EveryAllocationOfAHeaderMayFail)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    size_t failures = 0;
    const size_t allocations = forEachAllocation(
        [&](size_t index)
        {
            std::array<char, 8192> room{};
            KIVCS2MemoryStream memory;
            EXPECT_EQ(kivCS2MemoryStream_initWithBytes(&memory, room.data(), room.size()), KIVCS2STATUS_OK);
            KIVCS2ClosedCaptionsMCCStream mcc;
            EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, false, false),
                      KIVCS2STATUS_OK);
            const KIVCS2Status status =
                kivCS2ClosedCaptionsMCCStream_writeHeader(&mcc, 1, nullptr, "app", nullptr, nullptr);
            if (!allocationFailed())
            {
                EXPECT_EQ(status, KIVCS2STATUS_OK) << index;
            }
            failures += KIVCS2_FAILED(status) ? 1 : 0;
            EXPECT_TRUE(std::string_view{room.data()}.starts_with("File Format=MacCaption_MCC V1.0\n"));
            allowAllocations();
            // The record goes on working: the next header is whole.
            EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_writeHeader(&mcc, 1, "u", "app", "d", "t"),
                      KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_free(&mcc), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2MemoryStream_free(&memory.m_stream), KIVCS2STATUS_OK);
        });
    EXPECT_GE(allocations, 3u);
    EXPECT_GE(failures, 3u); // a UUID, a date, a time
}

TEST(CaptionFiles, ReadingAllocatesNothing)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    CaptionFile mccFile{"File Format=MacCaption_MCC V1.0\n00:00:01:00\tT01\n00:00:02:00\tT02"};
    CaptionFile sccFile{"Scenarist_SCC V1.0\n00:00:01:00\t9420\n00:00:02:00\t942f"};
    const KIVCS2Timecode second = frame(50);
    KIVCS2ClosedCaption caption;
    failAllocation(0);
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_readHeader(&mccFile.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&mccFile.mcc, &second, &caption),
              KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_reset(&mccFile.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2ClosedCaptionsSCCStream_readHeader(&sccFile.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(&sccFile.mcc, &second, &caption),
              KIVCS2STATUS_OK);
    EXPECT_FALSE(allocationFailed());
    allowAllocations();
}
} // namespace
