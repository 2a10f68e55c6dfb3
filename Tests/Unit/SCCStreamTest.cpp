#include "CaptionFile.h"
#include "HostStream.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace
{
using namespace kiv::test;
using testing::ElementsAre;

using Stream = KIVCS2ClosedCaptionsMCCStream;
using Caption = KIVCS2ClosedCaption;

constexpr auto kReadHeader = kivCS2ClosedCaptionsSCCStream_readHeader;
constexpr auto kReset = kivCS2ClosedCaptionsSCCStream_reset;
constexpr auto kRead = kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode;
const std::string kHead = "Scenarist_SCC V1.0\n\n";

class SCCStream : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    }
};

KIVCS2Status decode(Stream &mcc, std::string_view line)
{
    const std::vector<char> unterminated{line.begin(), line.end()};
    return kivCS2ClosedCaptionsSCCStream_decodeCaption(&mcc, line.empty() ? "" : unterminated.data(),
                                                       static_cast<uint32_t>(line.size()));
}

// The status of asking for `count`, and the pair that came.
std::pair<KIVCS2Status, unsigned> pairAt(Stream &mcc, uint32_t count)
{
    Caption caption;
    std::memset(&caption, 0xEE, sizeof caption);
    const KIVCS2Timecode tc = frame(count);
    const KIVCS2Status status = kRead(&mcc, &tc, &caption);
    if (status != KIVCS2STATUS_OK)
    {
        EXPECT_EQ(caption.m_flags | caption.m_captionSize | caption.m_timecode, 0u);
        return {status, 0};
    }
    EXPECT_EQ(caption.m_timecode, tc);
    EXPECT_EQ(caption.m_captionSize, 2u);
    EXPECT_EQ(caption.m_flags, 1u);
    return {status, caption.m_captionData[0] << 8 | caption.m_captionData[1]};
}

std::pair<KIVCS2Status, unsigned> found(unsigned pair)
{
    return {KIVCS2STATUS_OK, pair};
}
const std::pair<KIVCS2Status, unsigned> kNotFound{KIVCS2STATUS_NOT_FOUND_ERR, 0};
const std::pair<KIVCS2Status, unsigned> kNoData{KIVCS2STATUS_NO_DATA_ERR, 0};

TEST_F(SCCStream, ArgumentsAreChecked)
{
    CaptionFile reader{kHead};
    CaptionFile writer;
    Stream *const in = &reader.mcc;
    Stream *const out = &writer.mcc;
    Caption caption{};
    const KIVCS2Timecode tc = 0;
    const char *const mcc = "(mcc) != NULL";
    const char *const isReading = "(mcc->m_reading == 1)";
#define SCC(op, ...) KIV_REFUSED(kivCS2ClosedCaptionsSCCStream_##op, __VA_ARGS__)
    const ArgumentCheck checks[] = {
        SCC(readHeader, mcc, nullptr),
        SCC(readHeader, isReading, out),
        SCC(decodeCaption, mcc, nullptr, "", 0),
        SCC(decodeCaption, "(line) != NULL", in, nullptr, 0),
        SCC(readCaptionForTimecode, mcc, nullptr, &tc, &caption),
        SCC(readCaptionForTimecode, "(timecode) != NULL", in, nullptr, &caption),
        SCC(readCaptionForTimecode, "(caption) != NULL", in, &tc, nullptr),
        SCC(readCaptionForTimecode, isReading, out, &tc, &caption),
        SCC(reset, mcc, nullptr),
        SCC(reset, isReading, out),
    };
    for (const ArgumentCheck &check : checks)
        expectRefused(check);
}

TEST_F(SCCStream, ReadHeaderStatuses)
{
    const struct
    {
        std::string text;
        KIVCS2Status status;
    } rows[] = {
        {"", KIVCS2STATUS_NO_DATA_ERR},
        {kHead, KIVCS2STATUS_NO_DATA_ERR},
        {"Scenarist_SCC V1\n00:00:01:00\t9420", KIVCS2STATUS_HEADER_ERR},
        {"Scenarist_SCC V2.0\n00:00:01:00\t9420", KIVCS2STATUS_HEADER_ERR},
        {"\xEF\xBB\xBF" + kHead + "00:00:01:00\t9420", KIVCS2STATUS_HEADER_ERR},
        {kHead + "00:00:01:00\t9420", KIVCS2STATUS_OK},
        {"\r\nScenarist_SCC V1.0 \r\n\r\nremark\r\n00:00:01;00\t9420 \r\n", KIVCS2STATUS_OK},
        {kHead + std::string(1024, 'x') + "\n00:00:01:00\t9420", KIVCS2STATUS_NOT_FOUND_ERR},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.text.substr(0, 40));
        CaptionFile file{row.text};
        EXPECT_EQ(kReadHeader(&file.mcc), row.status);
        if (row.status == KIVCS2STATUS_OK)
        {
            EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(25));
        }
        EXPECT_EQ(file.mcc.m_version | file.mcc.m_frameRate, 0u);
    }
}

TEST_F(SCCStream, DecodeCaption)
{
    const struct
    {
        std::string_view line;
        KIVCS2Status status;
        uint32_t frames; // from the line's start to its end
        std::vector<uint8_t> bytes;
    } rows[] = {
        {"00:00:10:00\t9420 9420 94ae", KIVCS2STATUS_OK, 3, {0x94, 0x20, 0x94, 0x20, 0x94, 0xAE}},
        {"00;00:10;00\t94AE94aE ", KIVCS2STATUS_OK, 2, {0x94, 0xAE, 0x94, 0xAE}},
        {"00:00:10:00\t 9 4 2 0  1 ", KIVCS2STATUS_OK, 1, {0x94, 0x20}}, // half a byte is not counted
        {"00:00:10:00\t9 4209 420", KIVCS2STATUS_OK, 2, {0x94, 0x20, 0x94, 0x20}},
        {"00:00:10:00\t942094", KIVCS2STATUS_OK, 1, {0x94, 0x20, 0x94}}, // nor half a pair
        {"00:00:10:00", KIVCS2STATUS_NOT_FOUND_ERR, 0, {}},
        {"00:00:10:00 9420", KIVCS2STATUS_NOT_FOUND_ERR, 0, {}},
        {"00:00:10:00.0\t9420", KIVCS2STATUS_NOT_FOUND_ERR, 0, {}},
        {"00:00.10:00\t9420", KIVCS2STATUS_NOT_FOUND_ERR, 0, {}},
        {"", KIVCS2STATUS_NOT_FOUND_ERR, 0, {}},
        {"00:61:10:00\t9420", KIVCS2STATUS_INVALID_TIMECODE_ERR, 0, {}},
        {"00:00:10:00\t9420,9420", KIVCS2STATUS_CAPTION_ERR, 0, {0x94, 0x20}},
        {"00:00:10:00\t94g0", KIVCS2STATUS_CAPTION_ERR, 0, {0x94}},
        {"00:00:10:00\t9420\t9420", KIVCS2STATUS_CAPTION_ERR, 0, {0x94, 0x20}},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.line);
        CaptionFile file{""};
        std::memset(&file.mcc.m_caption, 0xEE, sizeof file.mcc.m_caption);
        EXPECT_EQ(decode(file.mcc, row.line), row.status);
        const Caption &caption = file.mcc.m_caption;
        EXPECT_EQ(caption.m_flags, row.status == KIVCS2STATUS_OK ? 1u : 0u);
        EXPECT_EQ(bytesOf(caption), row.bytes);
        EXPECT_EQ(caption.m_endTimecode, row.frames != 0 ? caption.m_timecode + row.frames : 0u);
    }
    CaptionFile file{""};
    EXPECT_EQ(decode(file.mcc, "00:00:10:00\t   "), KIVCS2STATUS_OK); // a caption without a frame
    EXPECT_EQ(file.mcc.m_caption.m_endTimecode, 0u);
    std::string line = "00:00:10:00\t";
    for (int word = 0; word < 129; ++word)
        line += "9420 ";
    EXPECT_EQ(decode(file.mcc, line + "94"), KIVCS2STATUS_OK);
    EXPECT_EQ(file.mcc.m_caption.m_captionSize, 259u);
    EXPECT_EQ(decode(file.mcc, line + "9420"), KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_EQ(file.mcc.m_caption.m_captionSize, 259u);
    EXPECT_EQ(file.mcc.m_caption.m_captionData[259], 0u);
}

TEST_F(SCCStream, PairsFallOnTheirFrames)
{
    CaptionFile file{kHead + "00:00:10:00\t9420 9420 94ae\n00:00:10:05\t942c\n00:00:11:00\t942f 8080"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 249), kNotFound);
    EXPECT_EQ(pairAt(file.mcc, 250), found(0x9420));
    EXPECT_EQ(pairAt(file.mcc, 252), found(0x94AE));
    EXPECT_EQ(pairAt(file.mcc, 251), found(0x9420)); // back within the caption
    EXPECT_EQ(pairAt(file.mcc, 253), kNotFound);     // between two lines: the next is now pending
    EXPECT_EQ(pairAt(file.mcc, 252), kNotFound);     // and the last one gone
    EXPECT_EQ(pairAt(file.mcc, 255), found(0x942C));
    EXPECT_EQ(pairAt(file.mcc, 276), found(0x8080));
    EXPECT_EQ(pairAt(file.mcc, 277), kNoData);
    EXPECT_EQ(pairAt(file.mcc, 275), found(0x942F)); // the last one stays
    ASSERT_EQ(kReset(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 250), found(0x9420));
}

TEST_F(SCCStream, WhatStandsBehindThePairIsTheRestOfTheLine)
{
    CaptionFile file{kHead + "00:00:10:00\t9420 9425 94ae"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    Caption caption;
    const KIVCS2Timecode tc = frame(251) | uint64_t{2024} << 48; // a date does not count
    ASSERT_EQ(kRead(&file.mcc, &tc, &caption), KIVCS2STATUS_OK);
    EXPECT_EQ(caption.m_timecode, frame(251));
    EXPECT_EQ(caption.m_endTimecode, frame(253));
    caption.m_captionSize = 6;
    EXPECT_THAT(bytesOf(caption), ElementsAre(0x94, 0x25, 0x94, 0x25, 0x94, 0xAE));
}

TEST_F(SCCStream, OverlappingLinesLoseThePairsBeforeTheRequest)
{
    CaptionFile file{kHead + "00:00:10:00\t0001 0002 0003 0004\n00:00:10:02\t0101 0102 0103 0104\n"
                             "00:00:05:00\t0201"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 253), found(0x0004));
    EXPECT_EQ(pairAt(file.mcc, 254), found(0x0103));
    EXPECT_EQ(pairAt(file.mcc, 256), kNoData); // a line that goes back in time is passed over
    EXPECT_EQ(pairAt(file.mcc, 125), found(0x0201));
}

TEST_F(SCCStream, ADamagedLineEndsTheSearchUntilReset)
{
    CaptionFile file{kHead + "00:00:10:00\t9420\n00:00:11:00\t94,20\n00:00:12:00\t942f"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 300).first, KIVCS2STATUS_CAPTION_ERR);
    EXPECT_EQ(pairAt(file.mcc, 300), kNotFound);
    EXPECT_EQ(kReset(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 250), found(0x9420));
}

TEST_F(SCCStream, CaptionsPastMidnightHoldNoFrame)
{
    CaptionFile file{kHead + "23:59:59:23\t0001 0002 0003\n"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(static_cast<uint32_t>(file.mcc.m_caption.m_endTimecode), 1u);
    EXPECT_EQ(pairAt(file.mcc, 2159998), kNotFound);
    EXPECT_EQ(pairAt(file.mcc, 2159999), kNoData);
    EXPECT_EQ(pairAt(file.mcc, 0), kNotFound);

    // Nor does one whose last pair is on the last frame of the day.
    CaptionFile last{kHead + "23:59:59:24\t0001\n"};
    ASSERT_EQ(kReadHeader(&last.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(static_cast<uint32_t>(last.mcc.m_caption.m_endTimecode), 0u);
    EXPECT_EQ(pairAt(last.mcc, 2159999), kNotFound);
    EXPECT_EQ(last.mcc.m_caption.m_flags, 1u);
}

// The four meanings of "not found", by what is pending; and the end, which stays the end.
TEST_F(SCCStream, WhatIsPendingTellsWhyNothingWasFound)
{
    CaptionFile file{kHead + "00:00:10:00\t9420\n" + std::string(1024, '/') + "\n00:00:11:00\t942f\n"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 249), kNotFound);
    EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(250)); // later than the request
    EXPECT_EQ(pairAt(file.mcc, 260), kNotFound);
    EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(250)); // earlier: a long line was lost
    EXPECT_EQ(pairAt(file.mcc, 275), found(0x942F));
    for (const uint32_t beyond : {276u, 300u, 300u, 2159999u})
        EXPECT_EQ(pairAt(file.mcc, beyond), kNoData);
    EXPECT_EQ(file.mcc.m_caption.m_flags, 1u);

    CaptionFile note{kHead + "00:00:10:00\t9420\na note\n00:00:11:00\t942f\n"};
    ASSERT_EQ(kReadHeader(&note.mcc), KIVCS2STATUS_OK);
    for (const uint32_t request : {260u, 275u}) // the line, and from then on
    {
        EXPECT_EQ(pairAt(note.mcc, request), kNotFound);
        EXPECT_EQ(note.mcc.m_caption.m_flags & KIVCS2ClosedCaptionFlag_Valid, 0u);
    }
}

TEST_F(SCCStream, AFailingReadIsTheEndAndTheLineItCutsIsHandedOut)
{
    const std::string text = kHead + "00:00:10:00\t9420 9420\n00:00:11:00\t942f\n";
    HostStream stream{{text.begin(), text.end()}};
    stream.m_failsAt = text.find(" 9420\n");
    Stream mcc;
    ASSERT_EQ(kivCS2ClosedCaptionsSCCStream_init(&mcc, &stream.m_stream, true, false), KIVCS2STATUS_OK);
    ASSERT_EQ(kReadHeader(&mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(mcc, 250), found(0x9420));
    EXPECT_EQ(pairAt(mcc, 251), kNoData); // the pair behind the failure
    EXPECT_EQ(kReset(&mcc), KIVCS2STATUS_UNSUPPORTED_ERR);
}

TEST_F(SCCStream, CaptionsWithoutAFrameAreKeptUntilTheyArePassed)
{
    CaptionFile file{kHead + "00:00:10:00\t94\n00:00:11:00\t942f"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(pairAt(file.mcc, 250), kNotFound);
    EXPECT_EQ(file.mcc.m_caption.m_captionSize, 1u);
    EXPECT_EQ(pairAt(file.mcc, 275), found(0x942F));
}

TEST_F(SCCStream, AnEndThatTheCallerMovedReadsNothingBeyondTheRecord)
{
    CaptionFile file{kHead + "00:00:10:00\t9420"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    file.mcc.m_caption.m_endTimecode = frame(0xFFFFFFFF);
    EXPECT_EQ(pairAt(file.mcc, 250 + 131), found(0));
    EXPECT_EQ(pairAt(file.mcc, 250 + 132).first, KIVCS2STATUS_DATA_ERR);
    EXPECT_EQ(pairAt(file.mcc, 0xFFFFFFFE).first, KIVCS2STATUS_DATA_ERR);
}

TEST_F(SCCStream, SeparatorsDoNotDecideDropFrameCounting)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97), KIVCS2STATUS_OK);
    CaptionFile file{""};
    for (const char *line : {"00:01:00;02\t9420", "00:01:00:02\t9420", "00;01;00;02\t9420"})
    {
        EXPECT_EQ(decode(file.mcc, line), KIVCS2STATUS_OK);
        EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(1800));
    }
    EXPECT_EQ(decode(file.mcc, "00:01:00:00\t9420"), KIVCS2STATUS_INVALID_TIMECODE_ERR);
}

TEST_F(SCCStream, SampleFiles)
{
    const struct
    {
        const char *name;
        uint32_t rate, firstFrame, frames, pairs;
        unsigned lastPair;
    } rows[] = {
        // Every pair of a file without overlap is handed out once.
        {"pop-on-ndf.scc", KIVCS2FrameRate_30, 60, 152, 40, 0x942C},
        {"roll-up-df-crlf.scc", KIVCS2FrameRate_29_97, 1760, 130, 42, 0x54AE},
        // 15 pairs from frame 108000 on reach into the line at 108010, whose first five are lost.
        {"paint-on-overlap.scc", KIVCS2FrameRate_30, 108000, 100, 29, 0xC14C},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(kivCS2Timecode_setFrameRate(row.rate), KIVCS2STATUS_OK);
        CaptionFile file{sample(row.name)};
        ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
        uint32_t pairs = 0;
        unsigned lastPair = 0;
        for (uint32_t count = row.firstFrame; count < row.firstFrame + row.frames; ++count)
        {
            const auto [status, pair] = pairAt(file.mcc, count);
            if (status != KIVCS2STATUS_OK)
                continue;
            ++pairs;
            lastPair = pair;
        }
        EXPECT_EQ(pairs, row.pairs);
        EXPECT_EQ(lastPair, row.lastPair);
    }
}
} // namespace
