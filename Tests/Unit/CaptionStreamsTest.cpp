// Caption files of both kinds, read and written through the streams of captions.
#include "CaptionFile.h"
#include "HostStream.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

namespace
{
using namespace kiv::test;
using testing::ElementsAre;

using Stream = KIVCS2ClosedCaptionsMCCStream;
using Caption = KIVCS2ClosedCaption;

static_assert(sizeof(Caption) == 296 && sizeof(Stream) == 320);
static_assert(offsetof(Caption, m_timecode) == 0 && offsetof(Caption, m_endTimecode) == 8);
static_assert(offsetof(Caption, m_flags) == 16 && offsetof(Caption, m_field) == 20);
static_assert(offsetof(Caption, m_number) == 24 && offsetof(Caption, m_captionSize) == 28);
static_assert(offsetof(Caption, m_captionData) == 32 && sizeof(Caption::m_captionData) == 264);
static_assert(offsetof(Stream, m_reading) == 0 && offsetof(Stream, m_ownsStream) == 1);
static_assert(offsetof(Stream, m_version) == 4 && offsetof(Stream, m_frameRate) == 8);
static_assert(offsetof(Stream, m_stream) == 16 && offsetof(Stream, m_caption) == 24);

// The operations of each kind of file.
const struct Kind
{
    decltype(&kivCS2ClosedCaptionsMCCStream_readHeader) readHeader, reset;
    decltype(&kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode) read;
    decltype(&kivCS2ClosedCaptionsMCCStream_decodeCaption) decodeCaption;
} kMCC{kivCS2ClosedCaptionsMCCStream_readHeader, kivCS2ClosedCaptionsMCCStream_reset,
       kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode, kivCS2ClosedCaptionsMCCStream_decodeCaption},
    kSCC{kivCS2ClosedCaptionsSCCStream_readHeader, kivCS2ClosedCaptionsSCCStream_reset,
         kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode, kivCS2ClosedCaptionsSCCStream_decodeCaption};

constexpr auto kWriteHeader = kivCS2ClosedCaptionsMCCStream_writeHeader;
constexpr auto kWrite = kivCS2ClosedCaptionsMCCStream_writeCaption;
constexpr auto kNibble = kivCS2ClosedCaptionsMCCStream_writeNibble;
constexpr auto kMake = kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet;
constexpr auto kExtract = kivCS2ClosedCaptionsMCCStream_extractSMPTE334CDP708PacketFromCaption;

constexpr KIVCS2Status kOK = KIVCS2STATUS_OK, kNoData = KIVCS2STATUS_NO_DATA_ERR,
                       kNoCaption = KIVCS2STATUS_NOT_FOUND_ERR;

const std::string kVersion1 = "File Format=MacCaption_MCC V1.0\n";
const std::string kMCCHead = kVersion1 + "// remark\nUUID=x\nTime Code Rate=25\n\n";
const std::string kSCCHead = "Scenarist_SCC V1.0\n\n";

class CaptionStreams : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), kOK);
    }
};

KIVCS2Status decode(const Kind &kind, Stream &mcc, std::string_view line)
{
    const std::vector<char> unterminated{line.begin(), line.end()};
    return kind.decodeCaption(&mcc, line.empty() ? "" : unterminated.data(),
                              static_cast<uint32_t>(line.size()));
}

TEST_F(CaptionStreams, ArgumentsAreChecked)
{
    CaptionFile reader{kMCCHead};
    CaptionFile writer;
    Stream *const in = &reader.mcc;
    Stream *const out = &writer.mcc;
    Caption caption{};
    const KIVCS2Timecode tc = 0;
    uint8_t cdp[255] = {};
    bool lowHalf = false;
    uint32_t size = sizeof cdp;
    const char *const mcc = "(mcc) != NULL";
    const char *const isReading = "(mcc->m_reading == 1)";
    const char *const isWriting = "(mcc->m_reading == 0)";
#define MCC(op, ...) KIV_REFUSED(kivCS2ClosedCaptionsMCCStream_##op, __VA_ARGS__)
#define SCC(op, ...) KIV_REFUSED(kivCS2ClosedCaptionsSCCStream_##op, __VA_ARGS__)
#define MAKE(...)    MCC(initCaptionWithSMPTE334CDP708Packet, __VA_ARGS__)
#define EXTRACT(...) MCC(extractSMPTE334CDP708PacketFromCaption, __VA_ARGS__)
    expectAllRefused({
        MCC(init, mcc, nullptr, &reader.memory.m_stream, true, false),
        MCC(init, "(stream) != NULL", in, nullptr, true, false),
        MCC(readHeader, mcc, nullptr),
        MCC(readHeader, isReading, out),
        MCC(writeHeader, mcc, nullptr, 1, nullptr, "a", nullptr, nullptr),
        MCC(writeHeader, "(applicationName) != NULL", out, 1, nullptr, nullptr, nullptr, nullptr),
        MCC(writeHeader, isWriting, in, 1, nullptr, "a", nullptr, nullptr),
        MCC(writeHeader, "((version >=1) && (version <= 2))", out, 0, nullptr, "a", nullptr, nullptr),
        MCC(writeHeader, "((version >=1) && (version <= 2))", out, 3, nullptr, "a", nullptr, nullptr),
        MCC(readCaptionForTimecode, mcc, nullptr, &tc, &caption),
        MCC(readCaptionForTimecode, "(timecode) != NULL", in, nullptr, &caption),
        MCC(readCaptionForTimecode, "(caption) != NULL", in, &tc, nullptr),
        MCC(readCaptionForTimecode, isReading, out, &tc, &caption),
        MCC(writeCaption, mcc, nullptr, &caption),
        MCC(writeCaption, "(caption) != NULL", out, nullptr),
        MCC(writeCaption, isWriting, in, &caption),
        MCC(decodeCaption, mcc, nullptr, "", 0),
        MCC(decodeCaption, "(line) != NULL", in, nullptr, 0),
        MCC(writeNibble, mcc, nullptr, &lowHalf, 0),
        MCC(writeNibble, "(lowHalf) != NULL", in, nullptr, 0),
        MAKE(mcc, nullptr, &caption, &tc, cdp, 1),
        MAKE("(caption) != NULL", out, nullptr, &tc, cdp, 1),
        MAKE("(timecode) != NULL", out, &caption, nullptr, cdp, 1),
        MAKE("(captionData) != NULL", out, &caption, &tc, nullptr, 1),
        MAKE("(captionSize <= 255)", out, &caption, &tc, cdp, 256),
        EXTRACT(mcc, nullptr, &caption, false, cdp, &size),
        EXTRACT("(caption) != NULL", in, nullptr, false, cdp, &size),
        MCC(freeCaption, mcc, nullptr, &caption),
        MCC(freeCaption, "(caption) != NULL", in, nullptr),
        MCC(reset, mcc, nullptr),
        MCC(reset, isReading, out),
        MCC(free, mcc, nullptr),
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
    });
    EXPECT_EQ(writer.written(), "");
}

TEST_F(CaptionStreams, ReadHeaderStatuses)
{
    const std::string line = "00:00:01:00\tT5252\n", pair = "00:00:01:00\t9420";
    const struct
    {
        const Kind &kind;
        std::string text;
        KIVCS2Status status;
        uint32_t version = 0;
        uint32_t rate = 0;
    } rows[] = {
        {kMCC, "", kNoData},
        {kMCC, "// only remarks\n\n", kNoData},
        {kMCC, line, KIVCS2STATUS_HEADER_ERR},
        {kMCC, "File Format=MacCaption_MCC V3.0\n" + line, KIVCS2STATUS_HEADER_ERR},
        {kMCC, "File Format=MacCaption_MCC V1.\n" + line, KIVCS2STATUS_HEADER_ERR},
        {kMCC, kVersion1 + line, kOK, 1},
        {kMCC, "File Format=MacCaption_MCC V2.0 and more\r\n" + line, kOK, 2},
        {kMCC, kVersion1 + "Time Code Rate=23.98\n" + line, KIVCS2STATUS_FRAME_RATE_ERR, 1},
        {kMCC, kVersion1 + "Time Code Rate=\n" + line, KIVCS2STATUS_FRAME_RATE_ERR, 1},
        {kMCC, kVersion1 + "time code rate=9\n" + line, kOK, 1},
        {kMCC, kVersion1 + "UUID=1\n", kNoData, 1},
        {kMCC, kVersion1 + std::string(1023, 'x') + "\n" + line, kOK, 1},
        {kMCC, kVersion1 + std::string(1024, 'x') + "\n" + line, kNoCaption, 1},
        // Lines that do not decode belong to the header, even damaged captions.
        {kMCC, kVersion1 + "00:00:00:00\t61g1\n00:00:00:25\t61\n" + line, kOK, 1},
        {kSCC, "", kNoData},
        {kSCC, kSCCHead, kNoData},
        {kSCC, "Scenarist_SCC V1\n" + pair, KIVCS2STATUS_HEADER_ERR},
        {kSCC, "Scenarist_SCC V2.0\n" + pair, KIVCS2STATUS_HEADER_ERR},
        {kSCC, "\xEF\xBB\xBF" + kSCCHead + pair, KIVCS2STATUS_HEADER_ERR},
        {kSCC, kSCCHead + pair, kOK},
        {kSCC, "\r\nScenarist_SCC V1.0 \r\n\r\nremark\r\n00:00:01;00\t9420 \r\n", kOK},
        {kSCC, kSCCHead + std::string(1024, 'x') + "\n" + pair, kNoCaption},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.text.substr(0, 80));
        CaptionFile file{row.text};
        EXPECT_EQ(row.kind.readHeader(&file.mcc), row.status);
        EXPECT_TRUE(file.mcc.m_version == row.version && file.mcc.m_frameRate == row.rate);
        EXPECT_EQ(file.mcc.m_caption.m_flags, row.status == kOK ? 1u : 0u);
        EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(row.status == kOK ? 25 : 0));
    }
}

TEST_F(CaptionStreams, DecodeCaption)
{
    const struct
    {
        const Kind &kind;
        uint32_t version;
        std::string line;
        KIVCS2Status status;
        uint32_t flags, field, number;
        std::vector<uint8_t> bytes;
        uint32_t frames = 0; // from the line's start to its end
    } rows[] = {
        {kMCC, 1, "00:00:01:00\tT5252", kOK, 1, 0, 0, {0x61, 0x01, 0x52, 0x52}},
        {kMCC, 1, "00;00;01;00\t", kOK, 1, 0, 0, {}},
        {kMCC, 1, "00:00:01:00\tABC", kOK, 1, 0, 0, {0xAB}}, // the half byte is dropped
        {kMCC, 1, "00:00:01:00\tAHC", kOK, 1, 0, 0, {0xAF, 0xA0, 0x00, 0x0F, 0xA0, 0x00, 0x0C}},
        {kMCC, 1, "00:00:01:00", kNoCaption, 0, 0, 0, {}},
        {kMCC, 1, "", kNoCaption, 0, 0, 0, {}},
        {kMCC, 1, "00:00:01:00 T", kNoCaption, 0, 0, 0, {}},
        {kMCC, 1, "00:00:01.00\tT", kNoCaption, 0, 0, 0, {}},
        {kMCC, 1, "0a:00:01:00\tT", kNoCaption, 0, 0, 0, {}},
        {kMCC, 1, "00:00:01:25\tT", KIVCS2STATUS_INVALID_TIMECODE_ERR, 0, 0, 0, {}},
        {kMCC, 1, "00:00:01:00\t61ab", KIVCS2STATUS_CAPTION_ERR, 0, 0, 0, {0x61}},
        // The first version has no suffixes.
        {kMCC, 1, "00:00:01:00.1\tT", kNoCaption, 0, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0\tT", kOK, 3, 0, 0, {0x61, 0x01}},
        {kMCC, 2, "00:00:01:00.1\tT", kOK, 3, 1, 0, {0x61, 0x01}},
        {kMCC, 2, "00:00:01:00.1,7\t", kOK, 7, 1, 7, {}},
        {kMCC, 2, "00:00:01:00.0,\t", kOK, 7, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0,0000000000000012\tZ", kOK, 7, 0, 12, {0}},
        // 17 digits; no tab after the number.
        {kMCC, 2, "00:00:01:00.0,00000000000000012\tZ", kNoCaption, 2, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0,12", kNoCaption, 2, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0,-1\tZ", kNoCaption, 2, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.2\tT", kNoCaption, 0, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.", kNoCaption, 0, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0", kNoCaption, 2, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0,", kNoCaption, 2, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0T", kNoCaption, 2, 0, 0, {}},
        {kMCC, 2, "00:00:01:00,1\tT", kNoCaption, 0, 0, 0, {}},
        {kMCC, 2, "00:00:01:00.0,4294967301\tZ", kOK, 7, 0, 5, {0}}, // the low 32 bits
        {kSCC, 0, "00:00:10:00\t9420 9420 94ae", kOK, 1, 0, 0, {0x94, 0x20, 0x94, 0x20, 0x94, 0xAE}, 3},
        {kSCC, 0, "00;00:10;00\t94AE94aE ", kOK, 1, 0, 0, {0x94, 0xAE, 0x94, 0xAE}, 2},
        {kSCC, 0, "00:00:10:00\t 9 4 2 0  1 ", kOK, 1, 0, 0, {0x94, 0x20}, 1}, // the half byte is dropped
        {kSCC, 0, "00:00:10:00\t942094", kOK, 1, 0, 0, {0x94, 0x20, 0x94}, 1}, // half a pair takes no frame
        {kSCC, 0, "00:00:10:00", kNoCaption, 0, 0, 0, {}, 0},
        {kSCC, 0, "00:00:10:00 9420", kNoCaption, 0, 0, 0, {}, 0},
        {kSCC, 0, "00:00:10:00.0\t9420", kNoCaption, 0, 0, 0, {}, 0},
        {kSCC, 0, "00:00.10:00\t9420", kNoCaption, 0, 0, 0, {}, 0},
        {kSCC, 0, "", kNoCaption, 0, 0, 0, {}, 0},
        {kSCC, 0, "00:61:10:00\t9420", KIVCS2STATUS_INVALID_TIMECODE_ERR, 0, 0, 0, {}, 0},
        {kSCC, 0, "00:00:10:00\t9420,9420", KIVCS2STATUS_CAPTION_ERR, 0, 0, 0, {0x94, 0x20}, 0},
        {kSCC, 0, "00:00:10:00\t   ", kOK, 1, 0, 0, {}}, // a caption without a frame
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.line);
        CaptionFile file{""};
        file.mcc.m_version = row.version;
        std::memset(&file.mcc.m_caption, 0xEE, sizeof file.mcc.m_caption);
        EXPECT_EQ(decode(row.kind, file.mcc, row.line), row.status);
        const Caption &caption = file.mcc.m_caption;
        EXPECT_EQ(std::tuple(caption.m_flags, caption.m_field, caption.m_number, bytesOf(caption)),
                  std::tuple(row.flags, row.field, row.number, row.bytes));
        EXPECT_EQ(caption.m_endTimecode, row.frames != 0 ? caption.m_timecode + row.frames : 0u);
    }
}

TEST_F(CaptionStreams, HalfBytesStopAt259Bytes)
{
    CaptionFile file{""};
    const std::string whole(2 * 259, 'A');
    for (const auto &[kind, line, status] :
         {std::tuple{&kMCC, "00:00:01:00\t" + whole + "VWXY", kOK},
          {&kMCC, "00:00:01:00\t" + whole + "1", KIVCS2Status{KIVCS2STATUS_OVERFLOW_ERR}},
          {&kSCC, "00:00:01:00\t" + whole, kOK},
          {&kSCC, "00:00:01:00\t" + whole + " 20", KIVCS2Status{KIVCS2STATUS_OVERFLOW_ERR}}})
    {
        EXPECT_EQ(decode(*kind, file.mcc, line), status);
        EXPECT_EQ(file.mcc.m_caption.m_captionSize, 259u);
        EXPECT_EQ(file.mcc.m_caption.m_captionData[259], 0u);
    }
    bool lowHalf = false;
    file.mcc.m_caption.m_captionSize = 258;
    EXPECT_TRUE(kNibble(&file.mcc, &lowHalf, 0x1C) == kOK && lowHalf);
    EXPECT_TRUE(kNibble(&file.mcc, &lowHalf, 0x1D) == kOK && !lowHalf);
    EXPECT_EQ(file.mcc.m_caption.m_captionData[258], 0xCDu);
    EXPECT_TRUE(kNibble(&file.mcc, &lowHalf, 1) == KIVCS2STATUS_OVERFLOW_ERR && !lowHalf);
}

TEST_F(CaptionStreams, CaptionsAreFoundForward)
{
    CaptionFile file{kMCCHead + "00:00:01:00\tT01\n00:00:03:00\tT02\n00:00:03:00\tT03\n00:00:04:00\tT04"};
    ASSERT_EQ(kMCC.readHeader(&file.mcc), kOK);
    // Requests and the last byte of their captions. A later caption becomes the pending one, the second line
    // of a timecode is not reached, and the last caption stays.
    std::istringstream words{
        "24 none 25 1 25 1 50 none 75 2 75 2 25 none 100 4 101 end 101 end 100 4 4294967295 end"};
    std::string wanted;
    for (uint32_t request = 0; words >> request >> wanted;)
    {
        SCOPED_TRACE(request);
        Caption caption;
        std::memset(&caption, 0xEE, sizeof caption);
        const KIVCS2Timecode dated = frame(request) | uint64_t{2024} << 48; // the date is ignored
        const KIVCS2Status status = kMCC.read(&file.mcc, &dated, &caption);
        EXPECT_EQ(status, wanted == "none" ? kNoCaption : wanted == "end" ? kNoData : kOK);
        if (status == kOK)
            EXPECT_THAT(bytesOf(caption), ElementsAre(0x61, 0x01, std::stoi(wanted)));
        else
            EXPECT_EQ(caption.m_flags | caption.m_captionSize | caption.m_timecode, 0u);
    }
    ASSERT_EQ(kMCC.reset(&file.mcc), kOK);
    EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(25));
    EXPECT_EQ(file.mcc.m_frameRate, KIVCS2FrameRate_25);
}

TEST_F(CaptionStreams, ADamagedLineLeavesNothingPendingUntilReset)
{
    for (const auto &[kind, text] :
         {std::pair{&kMCC, kMCCHead + "00:00:01:00\tT01\n00:00:02:00\tT,\n00:00:03:00\tT03\n"},
          {&kSCC, kSCCHead + "00:00:01:00\t9420\n00:00:02:00\t94,20\n00:00:03:00\t942f"}})
    {
        CaptionFile file{text};
        ASSERT_EQ(kind->readHeader(&file.mcc), kOK);
        Caption caption;
        const KIVCS2Timecode first = frame(25), third = frame(75);
        EXPECT_EQ(kind->read(&file.mcc, &third, &caption), KIVCS2STATUS_CAPTION_ERR);
        EXPECT_EQ(kind->read(&file.mcc, &third, &caption), kNoCaption);
        EXPECT_EQ(kind->reset(&file.mcc), kOK);
        EXPECT_EQ(kind->read(&file.mcc, &first, &caption), kOK);
    }
}

TEST_F(CaptionStreams, WriteHeader)
{
    CaptionFile file;
    ASSERT_EQ(kWriteHeader(&file.mcc, 2, "U", "app", "today", "now"), kOK);
    EXPECT_EQ(file.mcc.m_version, 2u);
    const std::string text = file.written();
    const std::string slashes(83, '/');
    EXPECT_TRUE(text.starts_with("File Format=MacCaption_MCC V2.0\n" + slashes +
                                 "\n// Computer Prompting and Captioning Company\n"
                                 "// Ancillary Data Packet Transfer File\n//\n// Permission"));
    EXPECT_TRUE(text.ends_with("\n// U E1h 00h 00h\n// Z 00h\n//\n" + slashes +
                               "\nUUID=U\nCreation Program=app\nCreation Date=today\nCreation Time=now\n"
                               "Time Code Rate=25\n"));
    // The published comment block of 35 lines and 1,360 characters.
    const size_t first = text.find('\n') + 1;
    const std::string block = text.substr(first, text.find("\nUUID=") - first);
    EXPECT_EQ(std::count(block.begin(), block.end(), '\n') + 1, 35);
    EXPECT_EQ(block.size(), 1360u);
    uint32_t crc = 0;
    ASSERT_EQ(kivCS2Utils_calcCRC32(reinterpret_cast<const uint8_t *>(block.data()),
                                    static_cast<uint32_t>(block.size()), &crc),
              kOK);
    EXPECT_EQ(crc, 0xEC66EF97u);
}

TEST_F(CaptionStreams, WriteHeaderMakesWhatIsNotGiven)
{
    CaptionFile file;
    ASSERT_EQ(kWriteHeader(&file.mcc, 1, nullptr, "app", nullptr, nullptr), kOK);
    const std::string text = file.written();
    EXPECT_THAT(text.substr(text.find("\nUUID=")),
                testing::MatchesRegex("\nUUID=[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"
                                      "\nCreation Program=app"
                                      "\nCreation Date=[A-Z][a-z]+day, [A-Z][a-z]+ [0-9]{1,2}, [0-9]{4}"
                                      "\nCreation Time=[0-2][0-9]:[0-5][0-9]:[0-6][0-9]"
                                      "\nTime Code Rate=25\n"));
}

TEST_F(CaptionStreams, HeadersHaveTheRate)
{
    // Rate, text, and the rate read back, which follows from two characters.
    const std::tuple<uint32_t, const char *, uint32_t> rows[] = {
        {KIVCS2FrameRate_23_98, nullptr, 0},
        {KIVCS2FrameRate_24, "24", KIVCS2FrameRate_24},
        {KIVCS2FrameRate_25, "25", KIVCS2FrameRate_25},
        {KIVCS2FrameRate_29_97, "30DF", KIVCS2FrameRate_30},
        {KIVCS2FrameRate_30, "30", KIVCS2FrameRate_30},
        {KIVCS2FrameRate_50, "50", KIVCS2FrameRate_50},
        {KIVCS2FrameRate_59_94, "60DF", KIVCS2FrameRate_60},
        {KIVCS2FrameRate_60, "60", KIVCS2FrameRate_60},
    };
    for (const auto &[rate, text, readBack] : rows)
    {
        SCOPED_TRACE(rate);
        ASSERT_EQ(kivCS2Timecode_setFrameRate(rate), kOK);
        const bool has = text != nullptr;
        CaptionFile file;
        EXPECT_EQ(kWriteHeader(&file.mcc, 1, "U", "app", "d", "t"), has ? kOK : KIVCS2STATUS_FRAME_RATE_ERR);
        const std::string end = "\nCreation Time=t";
        EXPECT_TRUE(file.written().ends_with(has ? end + "\nTime Code Rate=" + text + "\n" : end));
        CaptionFile back{file.written() + "\n00:00:01:00\tT"};
        EXPECT_EQ(kMCC.readHeader(&back.mcc), kOK);
        EXPECT_EQ(back.mcc.m_frameRate, readBack);
    }
}

Caption exampleCaption(Stream &mcc)
{
    const uint8_t pair[2] = {0x80, 0x80};
    uint16_t buffer608;
    std::memcpy(&buffer608, pair, sizeof pair);
    uint8_t cdp[82];
    uint32_t size = sizeof cdp;
    EXPECT_EQ(kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(&buffer608, 2, cdp, &size, 0),
              kOK);
    Caption caption;
    const KIVCS2Timecode tc = frame(25);
    EXPECT_EQ(kMake(&mcc, &caption, &tc, cdp, size), kOK);
    return caption;
}

TEST_F(CaptionStreams, WriteCaption)
{
    CaptionFile scratch;
    const Caption example = exampleCaption(scratch.mcc);
    EXPECT_EQ(example.m_flags, 1u);
    EXPECT_EQ(example.m_captionSize, 86u);
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, KIVCS2Status, std::string> rows[] = {
        {1, 1, 9, 9, kOK, "\n00:00:01:00\t"},
        {1, 5, 0, 9, kOK, "\n00:00:01:00\t"}, // the number needs a field to be written
        {1, 3, 0, 0, KIVCS2STATUS_FORMAT_ERR, ""},
        {2, 3, 0, 0, kOK, "\n00:00:01:00.0\t"},
        {2, 3, 1, 0, kOK, "\n00:00:01:00.1\t"},
        {2, 3, 2, 0, KIVCS2STATUS_FORMAT_ERR, ""},
        {2, 7, 1, 2147483647u, kOK, "\n00:00:01:00.1,2147483647\t"},
    };
    for (const auto &[version, flags, field, number, status, head] : rows)
    {
        SCOPED_TRACE(head);
        CaptionFile file;
        file.mcc.m_version = version;
        Caption caption = example;
        caption.m_flags = flags;
        caption.m_field = field;
        caption.m_number = number;
        EXPECT_EQ(kWrite(&file.mcc, &caption), status);
        EXPECT_EQ(file.written(), status == kOK ? head + "T52S524F67ZZ72F4QROO7391UZC13FFF74ZZAEB4" : "");
    }
}

TEST_F(CaptionStreams, NumbersFrom2To31OnAreWrittenSignedAndDoNotReadBack)
{
    CaptionFile file;
    file.mcc.m_version = 2;
    Caption caption{};
    caption.m_flags = 7;
    caption.m_number = 0x80000000u;
    EXPECT_EQ(kWrite(&file.mcc, &caption), kOK);
    EXPECT_EQ(file.written(), "\n00:00:00:00.0,-2147483648\t");
    EXPECT_EQ(decode(kMCC, file.mcc, file.written().substr(1)), kNoCaption);
}

TEST_F(CaptionStreams, TheLongestLineFitsAndMoreIsRefused)
{
    CaptionFile file;
    file.mcc.m_version = 2;
    Caption caption{};
    caption.m_timecode = frame(0xFFFFFFFE); // 47721 hours
    caption.m_flags = 7;
    caption.m_number = 0x80000001u;
    caption.m_captionSize = sizeof caption.m_captionData;
    std::memset(caption.m_captionData, 0xAB, sizeof caption.m_captionData);
    EXPECT_EQ(kWrite(&file.mcc, &caption), kOK);
    EXPECT_TRUE(file.written().starts_with("\n47721:51:31:19.0,-2147483647\tABAB"));
    EXPECT_TRUE(file.written().ends_with("\tAB" + file.written().substr(file.written().size() - 526)));

    const std::string before = file.written();
    caption.m_captionSize = sizeof caption.m_captionData + 1;
    EXPECT_EQ(kWrite(&file.mcc, &caption), KIVCS2STATUS_PARAM_ERR);
    uint8_t buffer[300];
    uint32_t size = sizeof buffer;
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &size), KIVCS2STATUS_PARAM_ERR);
    caption.m_captionSize = 1;
    kivCS2Timecode_setInvalidTimecode(&caption.m_timecode);
    EXPECT_EQ(kWrite(&file.mcc, &caption), KIVCS2STATUS_INVALID_TIMECODE_ERR);
    EXPECT_EQ(file.written(), before);
}

TEST_F(CaptionStreams, PacketsGoInAndOutOfCaptions)
{
    CaptionFile file;
    Caption caption = exampleCaption(file.mcc);
    EXPECT_EQ(caption.m_captionData[85], 0xB4u);
    uint8_t buffer[98];
    for (const bool withAtom : {false, true})
    {
        uint32_t size = sizeof buffer;
        EXPECT_EQ(kExtract(&file.mcc, &caption, withAtom, buffer, &size), kOK);
        const size_t atom = withAtom ? 8 : 0;
        EXPECT_EQ(size, 82 + atom);
        EXPECT_EQ(std::memcmp(buffer + atom, caption.m_captionData + 3, 82), 0);
    }
    uint32_t tooSmall = 81;
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &tooSmall), KIVCS2STATUS_BUFFER_SIZE_ERR);
    caption.m_captionSize = 0; // without a DID
    uint32_t size = sizeof buffer;
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &size), KIVCS2STATUS_DATA_ERR);
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_freeCaption(&file.mcc, &caption), kOK);
    EXPECT_EQ(caption.m_timecode | caption.m_flags | caption.m_captionData[0], 0u);
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &size), KIVCS2STATUS_FORMAT_ERR);
}

TEST_F(CaptionStreams, OwnedStreamsAreFreedWithTheRecord)
{
    for (const bool owns : {false, true})
    {
        KIVCS2MemoryStream memory;
        ASSERT_EQ(kivCS2MemoryStream_init(&memory, 16, 16), kOK);
        Stream mcc;
        ASSERT_EQ(kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, false, owns), kOK);
        EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_free(&mcc), kOK);
        EXPECT_EQ(memory.m_buffer == nullptr, owns);
        EXPECT_EQ(mcc.m_stream, nullptr);
        EXPECT_FALSE(mcc.m_ownsStream);
        EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_free(&mcc), kOK);
        kivCS2MemoryStream_free(&memory.m_stream);
    }
}

TEST_F(CaptionStreams, FailuresOfTheStreamPassThrough)
{
    CaptionFile out;
    out.memory.m_stream.m_writeBytes = [](KIVCS2Stream *, const void *, uint64_t, uint64_t *)
    { return KIVCS2STATUS_WRITE_ERR; };
    EXPECT_EQ(kWriteHeader(&out.mcc, 1, "u", "a", "d", "t"), KIVCS2STATUS_WRITE_ERR);
    const Caption caption = exampleCaption(out.mcc);
    EXPECT_EQ(kWrite(&out.mcc, &caption), KIVCS2STATUS_WRITE_ERR);

    CaptionFile in{kMCCHead + "00:00:01:00\tT01\n"};
    ASSERT_EQ(kMCC.readHeader(&in.mcc), kOK);
    in.memory.m_stream.m_setPosition = [](KIVCS2Stream *, int64_t, KIVCS2StreamPosition, int64_t *)
    { return KIVCS2STATUS_READ_ERR; };
    EXPECT_EQ(kMCC.reset(&in.mcc), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(in.mcc.m_caption.m_timecode, frame(25));
}

// ---- Pairs of an SCC file

// The pair on frame `count` in hexadecimal, or a word for the status.
std::string pairAt(Stream &mcc, uint32_t count)
{
    Caption caption;
    std::memset(&caption, 0xEE, sizeof caption);
    const KIVCS2Timecode tc = frame(count);
    const KIVCS2Status status = kSCC.read(&mcc, &tc, &caption);
    if (status != kOK)
    {
        EXPECT_EQ(caption.m_flags | caption.m_captionSize | caption.m_timecode, 0u);
        return status == kNoCaption ? "none" : status == kNoData ? "end" : "error";
    }
    EXPECT_TRUE(caption.m_timecode == tc && caption.m_captionSize == 2 && caption.m_flags == 1);
    char pair[5];
    std::snprintf(pair, sizeof pair, "%02x%02x", caption.m_captionData[0], caption.m_captionData[1]);
    return pair;
}

TEST_F(CaptionStreams, PairsFallOnTheirFrames)
{
    const std::string longLine = "00:00:10:00\t9420\n" + std::string(1024, '/') + "\n00:00:11:00\t942f\n";
    // Name, lines, requests with their pairs, and at the end the first and last frame of the pending caption.
    const std::tuple<const char *, std::string, const char *, uint32_t, uint32_t> rows[] = {
        {"requests go back within a caption, not past a line read; the last line stays",
         "00:00:10:00\t9420 9420 94ae\n00:00:10:05\t942c\n00:00:11:00\t942f 8080",
         "249 none 250 9420 252 94ae 251 9420 253 none 252 none 255 942c 276 8080 277 end 2159999 end 275 "
         "942f",
         275, 277},
        {"an overlap loses the pairs before the request, and a line back in time is skipped",
         "00:00:10:00\t0001 0002 0003 0004\n00:00:10:02\t0101 0102 0103 0104\n00:00:05:00\t0201",
         "253 0004 254 0103 256 end 125 0201", 125, 126},
        {"a caption past midnight has no frame", "23:59:59:23\t0001 0002 0003\n",
         "2159998 none 2159999 end 0 none", 2159998, 1},
        {"nor has one that ends the day", "23:59:59:24\t0001\n", "2159999 none", 2159999, 0},
        {"half a pair has no frame", "00:00:10:00\t94\n00:00:11:00\t942f", "250 none 275 942f", 275, 276},
        {"a long line leaves the caption before it", longLine, "249 none 260 none", 250, 251},
        {"the caption after a long line is found", longLine, "260 none 275 942f 276 end 300 end", 275, 276},
        {"after a note nothing is pending", "00:00:10:00\t9420\na note\n00:00:11:00\t942f\n",
         "260 none 275 none", 0, 0},
    };
    for (const auto &[what, lines, requests, start, end] : rows)
    {
        SCOPED_TRACE(what);
        CaptionFile file{kSCCHead + lines};
        ASSERT_EQ(kSCC.readHeader(&file.mcc), kOK);
        std::istringstream words{requests};
        std::string pair;
        for (uint32_t request = 0; words >> request >> pair;)
            EXPECT_EQ(pairAt(file.mcc, request), pair) << request;
        const Caption &pending = file.mcc.m_caption;
        EXPECT_EQ(pending.m_timecode, start);
        EXPECT_EQ(static_cast<uint32_t>(pending.m_endTimecode), end);
        EXPECT_EQ(pending.m_flags, start > 0 ? 1u : 0u);
    }
}

TEST_F(CaptionStreams, TheRestOfTheLineFollowsThePair)
{
    CaptionFile file{kSCCHead + "00:00:10:00\t9420 9425 94ae"};
    ASSERT_EQ(kSCC.readHeader(&file.mcc), kOK);
    Caption caption;
    const KIVCS2Timecode tc = frame(251) | uint64_t{2024} << 48; // the date is ignored
    ASSERT_EQ(kSCC.read(&file.mcc, &tc, &caption), kOK);
    EXPECT_EQ(caption.m_timecode, frame(251));
    EXPECT_EQ(caption.m_endTimecode, frame(253));
    caption.m_captionSize = 6;
    EXPECT_THAT(bytesOf(caption), ElementsAre(0x94, 0x25, 0x94, 0x25, 0x94, 0xAE));
}

TEST_F(CaptionStreams, AFailingReadIsTheEndAndTheLineItCutsIsHandedOut)
{
    const std::string text = kSCCHead + "00:00:10:00\t9420 9420\n00:00:11:00\t942f\n";
    HostStream stream{{text.begin(), text.end()}};
    stream.m_failsAt = text.find(" 9420\n");
    Stream mcc;
    ASSERT_EQ(kivCS2ClosedCaptionsSCCStream_init(&mcc, &stream.m_stream, true, false), kOK);
    ASSERT_EQ(kSCC.readHeader(&mcc), kOK);
    EXPECT_EQ(pairAt(mcc, 250), "9420");
    EXPECT_EQ(pairAt(mcc, 251), "end"); // the pair after the failure
    EXPECT_EQ(kSCC.reset(&mcc), KIVCS2STATUS_UNSUPPORTED_ERR);
}

TEST_F(CaptionStreams, AnEndThatTheCallerMovedReadsNothingBeyondTheRecord)
{
    CaptionFile file{kSCCHead + "00:00:10:00\t9420"};
    ASSERT_EQ(kSCC.readHeader(&file.mcc), kOK);
    file.mcc.m_caption.m_endTimecode = frame(0xFFFFFFFF);
    EXPECT_EQ(pairAt(file.mcc, 250 + 131), "0000");
    EXPECT_EQ(pairAt(file.mcc, 250 + 132), "error");
    EXPECT_EQ(pairAt(file.mcc, 0xFFFFFFFE), "error");
}

TEST_F(CaptionStreams, SeparatorsDoNotDecideDropFrameCounting)
{
    ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97), kOK);
    CaptionFile file{""};
    for (const char *line : {"00:01:00;02\t9420", "00:01:00:02\t9420", "00;01;00;02\t9420"})
    {
        EXPECT_EQ(decode(kSCC, file.mcc, line), kOK);
        EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(1800));
    }
    EXPECT_EQ(decode(kSCC, file.mcc, "00:01:00:00\t9420"), KIVCS2STATUS_INVALID_TIMECODE_ERR);
}
} // namespace
