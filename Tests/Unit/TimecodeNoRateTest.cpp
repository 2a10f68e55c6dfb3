// Timecode before a frame rate is set. A program of its own, because a rate cannot be removed.
#include <KIVCoreServices2/KIVCS2Timecode.h>

#include "CaptionFile.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
constexpr KIVCS2Timecode kDated = 2024ull << 48 | 2ull << 40 | 14ull << 32 | 3; // 15 March 2024, frame 3
constexpr uint32_t kUnset = 0xA5A5A5A5u;

TEST(TimecodeNoRate, OperationsThatNeedARateFailAndChangeNothing)
{
    KIVCS2Timecode tc = kDated;
    uint32_t word = kUnset;
    double real = 1;
    char text[32] = "kept";
    CFDateRef date = nullptr;
    std::vector<KIVCS2Status> statuses;
    for (const auto get : {kivCS2Timecode_getMinutes, kivCS2Timecode_getSeconds, kivCS2Timecode_getFrames,
                           kivCS2Timecode_isToday, kivCS2Timecode_getBCDFromTimecode})
        statuses.push_back(get(&tc, &word));
    for (const auto change :
         {kivCS2Timecode_setHours, kivCS2Timecode_setMinutes, kivCS2Timecode_setSeconds,
          kivCS2Timecode_setFrames, kivCS2Timecode_addFrames, kivCS2Timecode_subtractFrames,
          kivCS2Timecode_multiply, kivCS2Timecode_snapToMinute, kivCS2Timecode_snapToHour,
          kivCS2Timecode_initWithBCD})
        statuses.push_back(change(&tc, 4));
    for (const auto change : {kivCS2Timecode_tick, kivCS2Timecode_ensureLegalDuration,
                              kivCS2Timecode_initWithNow, kivCS2Timecode_initWithCalendarDate})
        statuses.push_back(change(&tc));
    statuses.push_back(kivCS2Timecode_initWithTimecodeFields(&tc, 1, 0, 0, 0));
    statuses.push_back(kivCS2Timecode_getSecondsSinceMidnight(&tc, &real));
    statuses.push_back(kivCS2Timecode_differenceInSeconds(&tc, &tc, &real));
    int64_t frames = 7;
    const KIVCS2Timecode otherDay = 0;
    statuses.push_back(kivCS2Timecode_differenceInFrames(&tc, &otherDay, &frames));
    EXPECT_EQ(frames, 7);
    statuses.push_back(kivCS2Timecode_initBySubtractingTimecodes(&tc, &tc, &tc, 1));
    statuses.push_back(kivCS2Timecode_initWithString(&tc, "10:00:00:00"));
    statuses.push_back(kivCS2Timecode_timecodeToString(&tc, text, sizeof text));
    statuses.push_back(kivCS2Timecode_print(&tc));
    statuses.push_back(kivCS2Timecode_createCFDate(&tc, &date));

    EXPECT_EQ(statuses, std::vector<KIVCS2Status>(statuses.size(), KIVCS2STATUS_FRAME_RATE_ERR));
    EXPECT_EQ(tc, kDated);
    EXPECT_EQ(word, kUnset);
    EXPECT_EQ(real, 1);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(date, nullptr);
}

TEST(TimecodeNoRate, OtherOperationsSucceed)
{
    KIVCS2Timecode tc = kDated;
    uint32_t value = kUnset;
    EXPECT_EQ(kivCS2Timecode_getHours(&tc, &value), KIVCS2STATUS_OK); // kept: a success that stores no value
    EXPECT_EQ(value, kUnset);
    EXPECT_EQ(kivCS2Timecode_tickDown(&tc, &value), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Timecode_addDays(&tc, 17), KIVCS2STATUS_OK);
    EXPECT_EQ(tc, (2024ull << 48 | 3ull << 40 | 2));
    EXPECT_EQ(kivCS2Timecode_addSeconds(&tc, 5), KIVCS2STATUS_OK); // hides the status of the frames
    EXPECT_EQ(kivCS2Timecode_setSecondsSinceMidnight(&tc, 5.0), KIVCS2STATUS_OK);
    EXPECT_EQ(static_cast<uint32_t>(tc), 0u);

    uint32_t scale = 1;
    bool dropFrame = true;
    EXPECT_EQ(kivCS2Timecode_getTimeAndScale(&value, &scale), KIVCS2STATUS_OK);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(scale, 0u);
    EXPECT_EQ(kivCS2Timecode_getDropFrame(&dropFrame), KIVCS2STATUS_OK);
    EXPECT_FALSE(dropFrame);
    EXPECT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_MAX), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(kivCS2Timecode_getFramesPerDay(&value), KIVCS2STATUS_OK);
    EXPECT_EQ(value, 0u);
}

// The last test of this program: it sets a rate.
TEST(TimecodeNoRate, CaptionFilesFailAtTheirFirstCaptionUntilARateIsSet)
{
    const std::string captions = "a note\n00:00:01:00\t9420\n00:00:02:00\t9420\n";
    kiv::test::CaptionFile mcc{"File Format=MacCaption_MCC V2.0\nUUID=1\nTime Code Rate=25\n" + captions};
    kiv::test::CaptionFile scc{"Scenarist_SCC V1.0\n\n" + captions};
    kiv::test::CaptionFile none{"Scenarist_SCC V1.0\n\na note\n"};
    EXPECT_EQ(kivCS2ClosedCaptionsSCCStream_readHeader(&none.mcc), KIVCS2STATUS_NO_DATA_ERR);

    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_readHeader(&mcc.mcc), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(mcc.mcc.m_version, 2u);
    EXPECT_EQ(mcc.mcc.m_frameRate, static_cast<uint32_t>(KIVCS2FrameRate_25));
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_reset(&mcc.mcc), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(kivCS2ClosedCaptionsSCCStream_readHeader(&scc.mcc), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(kivCS2ClosedCaptionsSCCStream_reset(&scc.mcc), KIVCS2STATUS_FRAME_RATE_ERR);
    EXPECT_EQ(mcc.mcc.m_caption.m_flags | scc.mcc.m_caption.m_flags, 0u);

    ASSERT_EQ(kivCS2Timecode_setFrameRate(mcc.mcc.m_frameRate), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_reset(&mcc.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2ClosedCaptionsSCCStream_reset(&scc.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(mcc.mcc.m_caption.m_timecode, kiv::test::frame(25));
    EXPECT_EQ(scc.mcc.m_caption.m_timecode, kiv::test::frame(25));
}
} // namespace
