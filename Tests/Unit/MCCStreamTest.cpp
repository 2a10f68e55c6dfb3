#include "CaptionFile.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace
{
using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

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

constexpr auto kReadHeader = kivCS2ClosedCaptionsMCCStream_readHeader;
constexpr auto kWriteHeader = kivCS2ClosedCaptionsMCCStream_writeHeader;
constexpr auto kRead = kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode;
constexpr auto kWrite = kivCS2ClosedCaptionsMCCStream_writeCaption;
constexpr auto kNibble = kivCS2ClosedCaptionsMCCStream_writeNibble;
constexpr auto kMake = kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet;
constexpr auto kExtract = kivCS2ClosedCaptionsMCCStream_extractSMPTE334CDP708PacketFromCaption;
constexpr auto kReset = kivCS2ClosedCaptionsMCCStream_reset;
constexpr auto kDecode = kivCS2ClosedCaptionsMCCStream_decodeCaption;

const std::string kHead1 = "File Format=MacCaption_MCC V1.0\n// remark\nUUID=x\nTime Code Rate=25\n\n";

class MCCStream : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_25), KIVCS2STATUS_OK);
    }
};

KIVCS2Status decode(Stream &mcc, std::string_view line)
{
    return kDecode(&mcc, line.data(), static_cast<uint32_t>(line.size()));
}

TEST_F(MCCStream, ArgumentsAreChecked)
{
    CaptionFile reader{kHead1};
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
#define MAKE(...)    MCC(initCaptionWithSMPTE334CDP708Packet, __VA_ARGS__)
#define EXTRACT(...) MCC(extractSMPTE334CDP708PacketFromCaption, __VA_ARGS__)
    const ArgumentCheck checks[] = {
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
    };
    for (const ArgumentCheck &check : checks)
        expectRefused(check);
    EXPECT_EQ(writer.written(), "");
}

TEST_F(MCCStream, ReadHeaderStatuses)
{
    const std::string line = "00:00:01:00\tT5252\n";
    const std::string v1 = "File Format=MacCaption_MCC V1.0\n";
    const struct
    {
        std::string text;
        KIVCS2Status status;
        uint32_t version;
        uint32_t rate;
    } rows[] = {
        {"", KIVCS2STATUS_NO_DATA_ERR, 0, 0},
        {"// only remarks\n\n", KIVCS2STATUS_NO_DATA_ERR, 0, 0},
        {line, KIVCS2STATUS_HEADER_ERR, 0, 0},
        {"File Format=MacCaption_MCC V3.0\n" + line, KIVCS2STATUS_HEADER_ERR, 0, 0},
        {"File Format=MacCaption_MCC V1.\n" + line, KIVCS2STATUS_HEADER_ERR, 0, 0},
        {v1 + line, KIVCS2STATUS_OK, 1, 0},
        {"File Format=MacCaption_MCC V2.0 and more\r\n" + line, KIVCS2STATUS_OK, 2, 0},
        {v1 + "Time Code Rate=24\n" + line, KIVCS2STATUS_OK, 1, KIVCS2FrameRate_24},
        {v1 + "Time Code Rate=25\n" + line, KIVCS2STATUS_OK, 1, KIVCS2FrameRate_25},
        {v1 + "Time Code Rate=30\n" + line, KIVCS2STATUS_OK, 1, KIVCS2FrameRate_30},
        {v1 + "Time Code Rate=50\n" + line, KIVCS2STATUS_OK, 1, KIVCS2FrameRate_50},
        {v1 + "Time Code Rate=60\n" + line, KIVCS2STATUS_OK, 1, KIVCS2FrameRate_60},
        {v1 + "Time Code Rate=23.98\n" + line, KIVCS2STATUS_FRAME_RATE_ERR, 1, 0},
        {v1 + "Time Code Rate=\n" + line, KIVCS2STATUS_FRAME_RATE_ERR, 1, 0},
        {v1 + "time code rate=9\n" + line, KIVCS2STATUS_OK, 1, 0},
        {v1 + "UUID=1\n", KIVCS2STATUS_NO_DATA_ERR, 1, 0},
        {v1 + std::string(1023, 'x') + "\n" + line, KIVCS2STATUS_OK, 1, 0},
        {v1 + std::string(1024, 'x') + "\n" + line, KIVCS2STATUS_NOT_FOUND_ERR, 1, 0},
        // Lines that do not decode belong to the header, damaged captions among them.
        {v1 + "00:00:00:00\t61g1\n00:00:00:25\t61\n" + line, KIVCS2STATUS_OK, 1, 0},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.text.substr(0, 80));
        CaptionFile file{row.text};
        EXPECT_EQ(kReadHeader(&file.mcc), row.status);
        EXPECT_EQ(file.mcc.m_version, row.version);
        EXPECT_EQ(file.mcc.m_frameRate, row.rate);
        EXPECT_EQ(file.mcc.m_caption.m_flags, row.status == KIVCS2STATUS_OK ? 1u : 0u);
        if (row.status == KIVCS2STATUS_OK)
        {
            EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(25));
        }
    }
}

TEST_F(MCCStream, DropFrameRatesAreRecordedByTheirFirstTwoCharacters)
{
    for (const auto &[text, rate] : {std::pair{"30DF", KIVCS2FrameRate_30}, {"60DF", KIVCS2FrameRate_60}})
    {
        CaptionFile file{"File Format=MacCaption_MCC V1.0\nTime Code Rate=" + std::string{text} +
                         "\n00:00:01:00\t6101"};
        EXPECT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
        EXPECT_EQ(file.mcc.m_frameRate, static_cast<uint32_t>(rate));
    }
}

TEST_F(MCCStream, DecodeCaption)
{
    const KIVCS2Status notFound = KIVCS2STATUS_NOT_FOUND_ERR;
    const struct
    {
        uint32_t version;
        std::string line;
        KIVCS2Status status;
        uint32_t flags, field, number;
        std::vector<uint8_t> bytes;
    } rows[] = {
        {1, "00:00:01:00\tT5252", KIVCS2STATUS_OK, 1, 0, 0, {0x61, 0x01, 0x52, 0x52}},
        {1, "00;00;01;00\t", KIVCS2STATUS_OK, 1, 0, 0, {}},
        {1, "00:00:01:00\tABC", KIVCS2STATUS_OK, 1, 0, 0, {0xAB}}, // half a byte is not counted
        {1, "00:00:01:00\tAHC", KIVCS2STATUS_OK, 1, 0, 0, {0xAF, 0xA0, 0x00, 0x0F, 0xA0, 0x00, 0x0C}},
        {1, "00:00:01:00", notFound, 0, 0, 0, {}},
        {1, "", notFound, 0, 0, 0, {}},
        {1, "00:00:01:00 T", notFound, 0, 0, 0, {}},
        {1, "00:00:01.00\tT", notFound, 0, 0, 0, {}},
        {1, "0a:00:01:00\tT", notFound, 0, 0, 0, {}},
        {1, "00:00:01:25\tT", KIVCS2STATUS_INVALID_TIMECODE_ERR, 0, 0, 0, {}},
        {1, "00:00:01:00\t61ab", KIVCS2STATUS_CAPTION_ERR, 0, 0, 0, {0x61}},
        // The first version has no suffixes.
        {1, "00:00:01:00.1\tT", notFound, 0, 0, 0, {}},
        {2, "00:00:01:00.0\tT", KIVCS2STATUS_OK, 3, 0, 0, {0x61, 0x01}},
        {2, "00:00:01:00.1\tT", KIVCS2STATUS_OK, 3, 1, 0, {0x61, 0x01}},
        {2, "00:00:01:00.1,7\t", KIVCS2STATUS_OK, 7, 1, 7, {}},
        {2, "00:00:01:00.0,\t", KIVCS2STATUS_OK, 7, 0, 0, {}},
        {2, "00:00:01:00.0,0000000000000012\tZ", KIVCS2STATUS_OK, 7, 0, 12, {0}},
        // 17 digits, and no tab behind the number.
        {2, "00:00:01:00.0,00000000000000012\tZ", notFound, 2, 0, 0, {}},
        {2, "00:00:01:00.0,12", notFound, 2, 0, 0, {}},
        {2, "00:00:01:00.0,-1\tZ", notFound, 2, 0, 0, {}},
        {2, "00:00:01:00.2\tT", notFound, 0, 0, 0, {}},
        {2, "00:00:01:00.", notFound, 0, 0, 0, {}},
        {2, "00:00:01:00.0", notFound, 2, 0, 0, {}},
        {2, "00:00:01:00.0,", notFound, 2, 0, 0, {}},
        {2, "00:00:01:00.0T", notFound, 2, 0, 0, {}},
        {2, "00:00:01:00,1\tT", notFound, 0, 0, 0, {}},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.line);
        CaptionFile file{""};
        file.mcc.m_version = row.version;
        std::memset(&file.mcc.m_caption, 0xEE, sizeof file.mcc.m_caption);
        const std::vector<char> unterminated{row.line.begin(), row.line.end()};
        EXPECT_EQ(kDecode(&file.mcc, row.line.empty() ? "" : unterminated.data(),
                          static_cast<uint32_t>(unterminated.size())),
                  row.status);
        EXPECT_EQ(file.mcc.m_caption.m_flags, row.flags);
        EXPECT_EQ(file.mcc.m_caption.m_field, row.field);
        EXPECT_EQ(file.mcc.m_caption.m_number, row.number);
        EXPECT_EQ(bytesOf(file.mcc.m_caption), row.bytes);
        EXPECT_EQ(file.mcc.m_caption.m_endTimecode, 0u);
    }
}

TEST_F(MCCStream, NumberSuffixKeepsItsLow32Bits)
{
    CaptionFile file{""};
    file.mcc.m_version = 2;
    EXPECT_EQ(decode(file.mcc, "00:00:01:00.0,4294967301\tZ"), KIVCS2STATUS_OK);
    EXPECT_EQ(file.mcc.m_caption.m_number, 5u);
}

TEST_F(MCCStream, HalfBytesStopAt259Bytes)
{
    CaptionFile file{""};
    const std::string head = "00:00:01:00\t";
    EXPECT_EQ(decode(file.mcc, head + std::string(2 * 259, 'A') + "VWXY"), KIVCS2STATUS_OK);
    EXPECT_EQ(file.mcc.m_caption.m_captionSize, 259u);
    EXPECT_EQ(decode(file.mcc, head + std::string(2 * 259, 'A') + "1"), KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_EQ(file.mcc.m_caption.m_captionSize, 259u);
    EXPECT_EQ(file.mcc.m_caption.m_captionData[259], 0u);
    bool lowHalf = false;
    file.mcc.m_caption.m_captionSize = 258;
    EXPECT_EQ(kNibble(&file.mcc, &lowHalf, 0x1C), KIVCS2STATUS_OK);
    EXPECT_TRUE(lowHalf);
    EXPECT_EQ(kNibble(&file.mcc, &lowHalf, 0x1D), KIVCS2STATUS_OK);
    EXPECT_FALSE(lowHalf);
    EXPECT_EQ(file.mcc.m_caption.m_captionData[258], 0xCDu);
    EXPECT_EQ(kNibble(&file.mcc, &lowHalf, 1), KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_FALSE(lowHalf);
}

TEST_F(MCCStream, CaptionsAreFoundForward)
{
    CaptionFile file{kHead1 + "00:00:01:00\tT01\n00:00:03:00\tT02\n00:00:03:00\tT03\n00:00:04:00\tT04"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    const struct
    {
        uint32_t frame;
        KIVCS2Status status;
        uint8_t lastByte;
    } steps[] = {
        {24, KIVCS2STATUS_NOT_FOUND_ERR, 0}, // before the pending one, which is kept
        {25, KIVCS2STATUS_OK, 1},            //
        {25, KIVCS2STATUS_OK, 1},            // again
        {50, KIVCS2STATUS_NOT_FOUND_ERR, 0}, // the next is later: read, and kept
        {75, KIVCS2STATUS_OK, 2},            //
        {75, KIVCS2STATUS_OK, 2},            // the second line of that timecode is not reached
        {25, KIVCS2STATUS_NOT_FOUND_ERR, 0}, // never back
        {100, KIVCS2STATUS_OK, 4},           //
        {101, KIVCS2STATUS_NO_DATA_ERR, 0},  // the end of the file
        {101, KIVCS2STATUS_NO_DATA_ERR, 0},  //
        {100, KIVCS2STATUS_OK, 4},           // the last one stays
        {0xFFFFFFFF, KIVCS2STATUS_NO_DATA_ERR, 0},
    };
    for (const auto &step : steps)
    {
        SCOPED_TRACE(step.frame);
        Caption caption;
        std::memset(&caption, 0xEE, sizeof caption);
        const KIVCS2Timecode dated = frame(step.frame) | uint64_t{2024} << 48; // the date does not count
        EXPECT_EQ(kRead(&file.mcc, &dated, &caption), step.status);
        if (step.status == KIVCS2STATUS_OK)
            EXPECT_THAT(bytesOf(caption), ElementsAre(0x61, 0x01, step.lastByte));
        else
            EXPECT_EQ(caption.m_flags | caption.m_captionSize | caption.m_timecode, 0u);
    }

    ASSERT_EQ(kReset(&file.mcc), KIVCS2STATUS_OK);
    EXPECT_EQ(file.mcc.m_caption.m_timecode, frame(25));
    EXPECT_EQ(file.mcc.m_frameRate, KIVCS2FrameRate_25);
}

TEST_F(MCCStream, ADamagedLineLeavesNothingPendingUntilReset)
{
    CaptionFile file{kHead1 + "00:00:01:00\tT01\n00:00:02:00\tT,\n00:00:03:00\tT03\n"};
    ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
    Caption caption;
    const KIVCS2Timecode third = frame(75);
    EXPECT_EQ(kRead(&file.mcc, &third, &caption), KIVCS2STATUS_CAPTION_ERR);
    EXPECT_EQ(kRead(&file.mcc, &third, &caption), KIVCS2STATUS_NOT_FOUND_ERR);
    EXPECT_EQ(kReset(&file.mcc), KIVCS2STATUS_OK);
    const KIVCS2Timecode first = frame(25);
    EXPECT_EQ(kRead(&file.mcc, &first, &caption), KIVCS2STATUS_OK);
}

TEST_F(MCCStream, WriteHeader)
{
    CaptionFile file;
    ASSERT_EQ(kWriteHeader(&file.mcc, 2, "U", "app", "today", "now"), KIVCS2STATUS_OK);
    EXPECT_EQ(file.mcc.m_version, 2u);
    const std::string text = file.written();
    const std::string slashes(83, '/');
    EXPECT_TRUE(text.starts_with("File Format=MacCaption_MCC V2.0\n" + slashes +
                                 "\n// Computer Prompting and Captioning Company\n"
                                 "// Ancillary Data Packet Transfer File\n//\n// Permission"));
    EXPECT_TRUE(text.ends_with("\n// U E1h 00h 00h\n// Z 00h\n//\n" + slashes +
                               "\nUUID=U\nCreation Program=app\nCreation Date=today\nCreation Time=now\n"
                               "Time Code Rate=25\n"));
    // The comment block: 35 lines, each a remark, whose 1,360 characters are published.
    const size_t first = text.find('\n') + 1;
    const std::string block = text.substr(first, text.find("\nUUID=") - first);
    EXPECT_EQ(std::count(block.begin(), block.end(), '\n') + 1, 35);
    EXPECT_EQ(block.size(), 1360u);
    uint32_t crc = 0;
    ASSERT_EQ(kivCS2Utils_calcCRC32(reinterpret_cast<const uint8_t *>(block.data()),
                                    static_cast<uint32_t>(block.size()), &crc),
              KIVCS2STATUS_OK);
    EXPECT_EQ(crc, 0xEC66EF97u);
}

TEST_F(MCCStream, WriteHeaderMakesWhatIsNotGiven)
{
    CaptionFile file;
    ASSERT_EQ(kWriteHeader(&file.mcc, 1, nullptr, "app", nullptr, nullptr), KIVCS2STATUS_OK);
    const std::string text = file.written();
    EXPECT_THAT(text.substr(text.find("\nUUID=")),
                MatchesRegex("\nUUID=[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"
                             "\nCreation Program=app"
                             "\nCreation Date=[A-Z][a-z]+day, [A-Z][a-z]+ [0-9]{1,2}, [0-9]{4}"
                             "\nCreation Time=[0-2][0-9]:[0-5][0-9]:[0-6][0-9]"
                             "\nTime Code Rate=25\n"));
}

TEST_F(MCCStream, WriteHeaderRates)
{
    const struct
    {
        uint32_t rate;
        const char *text;
    } rows[] = {
        {KIVCS2FrameRate_23_98, nullptr}, {KIVCS2FrameRate_24, "24"}, {KIVCS2FrameRate_25, "25"},
        {KIVCS2FrameRate_29_97, "30DF"},  {KIVCS2FrameRate_30, "30"}, {KIVCS2FrameRate_50, "50"},
        {KIVCS2FrameRate_59_94, "60DF"},  {KIVCS2FrameRate_60, "60"},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.rate);
        ASSERT_EQ(kivCS2Timecode_setFrameRate(row.rate), KIVCS2STATUS_OK);
        CaptionFile file;
        const KIVCS2Status status = kWriteHeader(&file.mcc, 1, "U", "app", "d", "t");
        EXPECT_EQ(status, row.text != nullptr ? KIVCS2STATUS_OK : KIVCS2STATUS_FRAME_RATE_ERR);
        const std::string end = "\nCreation Time=t";
        EXPECT_TRUE(file.written().ends_with(row.text != nullptr ? end + "\nTime Code Rate=" + row.text + "\n"
                                                                 : end));
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
              KIVCS2STATUS_OK);
    Caption caption;
    const KIVCS2Timecode tc = frame(25);
    EXPECT_EQ(kMake(&mcc, &caption, &tc, cdp, size), KIVCS2STATUS_OK);
    return caption;
}

TEST_F(MCCStream, WriteCaption)
{
    CaptionFile scratch;
    const Caption example = exampleCaption(scratch.mcc);
    EXPECT_EQ(example.m_flags, 1u);
    EXPECT_EQ(example.m_captionSize, 86u);
    const struct
    {
        uint32_t version, flags, field, number;
        KIVCS2Status status;
        std::string head;
    } rows[] = {
        {1, 1, 9, 9, KIVCS2STATUS_OK, "\n00:00:01:00\t"},
        {1, 5, 0, 9, KIVCS2STATUS_OK, "\n00:00:01:00\t"}, // a number without a field is not written
        {1, 3, 0, 0, KIVCS2STATUS_FORMAT_ERR, ""},
        {2, 3, 0, 0, KIVCS2STATUS_OK, "\n00:00:01:00.0\t"},
        {2, 3, 1, 0, KIVCS2STATUS_OK, "\n00:00:01:00.1\t"},
        {2, 3, 2, 0, KIVCS2STATUS_FORMAT_ERR, ""},
        {2, 7, 1, 2147483647u, KIVCS2STATUS_OK, "\n00:00:01:00.1,2147483647\t"},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.head);
        CaptionFile file;
        file.mcc.m_version = row.version;
        Caption caption = example;
        caption.m_flags = row.flags;
        caption.m_field = row.field;
        caption.m_number = row.number;
        EXPECT_EQ(kWrite(&file.mcc, &caption), row.status);
        EXPECT_EQ(file.written(),
                  row.status == KIVCS2STATUS_OK ? row.head + "T52S524F67ZZ72F4QROO7391UZC13FFF74ZZAEB4" : "");
    }
}

TEST_F(MCCStream, NumbersFrom2To31OnAreWrittenSignedAndDoNotReadBack)
{
    CaptionFile file;
    file.mcc.m_version = 2;
    Caption caption{};
    caption.m_flags = 7;
    caption.m_number = 0x80000000u;
    EXPECT_EQ(kWrite(&file.mcc, &caption), KIVCS2STATUS_OK);
    EXPECT_EQ(file.written(), "\n00:00:00:00.0,-2147483648\t");
    EXPECT_EQ(decode(file.mcc, file.written().substr(1)), KIVCS2STATUS_NOT_FOUND_ERR);
}

TEST_F(MCCStream, TheLongestLineFitsAndMoreIsRefused)
{
    CaptionFile file;
    file.mcc.m_version = 2;
    Caption caption{};
    caption.m_timecode = frame(0xFFFFFFFE); // 47721 hours
    caption.m_flags = 7;
    caption.m_number = 0x80000001u;
    caption.m_captionSize = sizeof caption.m_captionData;
    std::memset(caption.m_captionData, 0xAB, sizeof caption.m_captionData);
    EXPECT_EQ(kWrite(&file.mcc, &caption), KIVCS2STATUS_OK);
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

TEST_F(MCCStream, PacketsGoInAndOutOfCaptions)
{
    CaptionFile file;
    Caption caption = exampleCaption(file.mcc);
    EXPECT_EQ(caption.m_captionData[85], 0xB4u);
    uint8_t buffer[98];
    for (const bool withAtom : {false, true})
    {
        uint32_t size = sizeof buffer;
        EXPECT_EQ(kExtract(&file.mcc, &caption, withAtom, buffer, &size), KIVCS2STATUS_OK);
        const size_t atom = withAtom ? 8 : 0;
        EXPECT_EQ(size, 82 + atom);
        EXPECT_EQ(std::memcmp(buffer + atom, caption.m_captionData + 3, 82), 0);
    }
    uint32_t tooSmall = 81;
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &tooSmall), KIVCS2STATUS_BUFFER_SIZE_ERR);
    caption.m_captionSize = 0; // the view is empty: no DID
    uint32_t size = sizeof buffer;
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &size), KIVCS2STATUS_DATA_ERR);
    EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_freeCaption(&file.mcc, &caption), KIVCS2STATUS_OK);
    EXPECT_EQ(caption.m_timecode | caption.m_flags | caption.m_captionData[0], 0u);
    EXPECT_EQ(kExtract(&file.mcc, &caption, false, buffer, &size), KIVCS2STATUS_FORMAT_ERR);
}

TEST_F(MCCStream, OwnedStreamsAreFreedWithTheRecord)
{
    for (const bool owns : {false, true})
    {
        KIVCS2MemoryStream memory;
        ASSERT_EQ(kivCS2MemoryStream_init(&memory, 16, 16), KIVCS2STATUS_OK);
        Stream mcc;
        ASSERT_EQ(kivCS2ClosedCaptionsMCCStream_init(&mcc, &memory.m_stream, false, owns), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_free(&mcc), KIVCS2STATUS_OK);
        EXPECT_EQ(memory.m_buffer == nullptr, owns);
        EXPECT_EQ(mcc.m_stream, nullptr);
        EXPECT_FALSE(mcc.m_ownsStream);
        EXPECT_EQ(kivCS2ClosedCaptionsMCCStream_free(&mcc), KIVCS2STATUS_OK);
        kivCS2MemoryStream_free(&memory.m_stream);
    }
}

TEST_F(MCCStream, FailuresOfTheStreamPassThrough)
{
    CaptionFile out;
    out.memory.m_stream.m_writeBytes = [](KIVCS2Stream *, const void *, uint64_t, uint64_t *)
    { return KIVCS2STATUS_WRITE_ERR; };
    EXPECT_EQ(kWriteHeader(&out.mcc, 1, "u", "a", "d", "t"), KIVCS2STATUS_WRITE_ERR);
    const Caption caption = exampleCaption(out.mcc);
    EXPECT_EQ(kWrite(&out.mcc, &caption), KIVCS2STATUS_WRITE_ERR);

    CaptionFile in{kHead1 + "00:00:01:00\tT01\n"};
    ASSERT_EQ(kReadHeader(&in.mcc), KIVCS2STATUS_OK);
    in.memory.m_stream.m_setPosition = [](KIVCS2Stream *, int64_t, KIVCS2StreamPosition, int64_t *)
    { return KIVCS2STATUS_READ_ERR; };
    EXPECT_EQ(kReset(&in.mcc), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(in.mcc.m_caption.m_timecode, frame(25));
}

TEST_F(MCCStream, SampleFiles)
{
    const struct
    {
        const char *name;
        uint32_t rate, version, firstFrame, captions, size;
    } rows[] = {
        {"pop-on-25.mcc", KIVCS2FrameRate_25, 1, 50, 18, 98},
        {"suffixes-v2-crlf.mcc", KIVCS2FrameRate_30, 2, 300, 13, 86},
        {"plain-hex-30df.mcc", KIVCS2FrameRate_29_97, 1, 107892, 17, 86},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(kivCS2Timecode_setFrameRate(row.rate), KIVCS2STATUS_OK);
        CaptionFile file{sample(row.name)};
        ASSERT_EQ(kReadHeader(&file.mcc), KIVCS2STATUS_OK);
        EXPECT_EQ(file.mcc.m_version, row.version);
        uint32_t found = 0;
        for (uint32_t count = row.firstFrame;; ++count)
        {
            Caption caption;
            const KIVCS2Timecode tc = frame(count);
            if (KIVCS2_FAILED(kRead(&file.mcc, &tc, &caption)))
                break;
            ++found;
            uint8_t cdp[255];
            uint32_t size = sizeof cdp;
            EXPECT_EQ(kExtract(&file.mcc, &caption, false, cdp, &size), KIVCS2STATUS_OK);
            EXPECT_EQ(size + 4, row.size);
            uint8_t sum = 0; // of the whole CDP, its checksum included
            for (uint32_t index = 0; index < size; ++index)
                sum = static_cast<uint8_t>(sum + cdp[index]);
            EXPECT_EQ(sum, 0u);
        }
        EXPECT_EQ(found, row.captions);
    }
}
} // namespace
