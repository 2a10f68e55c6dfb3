// Caption files read with their faults: a row for each fault, damaged copies of our own samples, and golden
// results of real files.
#include "ArgumentCheck.h"
#include "CaptionReading.h"
#include "HostStream.h"
#include "TemporaryFolder.h"

#include <KIVCoreServices2/KIVCS2FileStream.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <sys/stat.h>
#include <thread>

namespace
{
using kiv::test::fileText;
using kiv::test::Reading;

#define FAULT(name) KIVCS2CaptionFault_##name

const std::string kMCCHead = "File Format=MacCaption_MCC V1.0\n\nUUID=u\nTime Code Rate=30DF\n\n";
const std::string kSCCHead = "Scenarist_SCC V1.0\n\n";
// The packet of one frame without captions: a CDP with a service list and both checksums.
const std::string kData = "T52S524F67ZZ72F4QROO7391UZC13FFF74ZZAEB4";

std::string mcc(std::string_view line)
{
    return kMCCHead + std::string{line} + "\n";
}
std::string scc(std::string_view lines)
{
    return kSCCHead + std::string{lines} + "\n";
}
std::string with(std::string text, std::string_view from, std::string_view to)
{
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}
std::string data(std::string_view from, std::string_view to)
{
    return mcc("00:00:01:00\t" + with(kData, from, to));
}

struct FaultRow
{
    KIVCS2CaptionFault fault;
    std::string content;
    size_t packets;
    uint64_t line;
    uint32_t column;
    bool lost;
};

const std::string kLine = "00:00:01:00\t" + kData;
const std::string kNext = "\n00:00:01:01\t" + with(with(kData, "67ZZ", "67Z01"), "74ZZAEB4", "74Z01ACB4");

const std::string kOther = "00:00:00:05\t41010042\n"; // not a caption packet, so it has no rate

const std::vector<FaultRow> kFaultRows = {
    {FAULT(ByteOrderMark), "\xEF\xBB\xBF" + scc("00:00:01:00\t9420"), 1, 1, 1, false},
    {FAULT(OtherEncoding), std::string("S\0c\0e\0n\0", 8), 0, 1, 1, true},
    {FAULT(HeaderCase), with(scc("00:00:01:00\t9420"), "Scen", "scen"), 1, 1, 1, false},
    {FAULT(HeaderCase), with(mcc(kLine), "Time Code", "time code"), 1, 4, 1, false},
    {FAULT(HeaderBlanks), "\n \n" + scc("00:00:01:00\t9420"), 1, 3, 1, false},
    {FAULT(HeaderUnknown), with(mcc(kLine), "UUID", "Author"), 1, 3, 1, false},
    {FAULT(HeaderLong), with(mcc(kLine), "UUID=u", "UUID=" + std::string(300, 'u')), 1, 3, 1, false},
    {FAULT(HeaderMissing), "00:00:01;00\t9420 9420\n", 2, 1, 1, false},
    {FAULT(HeaderMissing), kLine + "\n", 1, 1, 1, false},
    {FAULT(HeaderMissing), "00:00:01;00\t94209420\n00:00:02;00\t94 942f942f 942c942c\n", 3, 1, 1, false},
    {FAULT(NotACaptionFile), "1\nhello\n", 0, 1, 1, true},
    {FAULT(NotACaptionFile), "", 0, 1, 1, true},
    {FAULT(NotACaptionFile), "1\n00:00:01,000 --> 00:00:02,000\nHello\n", 0, 2, 1, true},
    {FAULT(NotACaptionFile), "WEBVTT\n\n00:01.000 --> 00:02.000\nHello\n", 0, 3, 1, true},
    {FAULT(RateMissing), with(mcc(kLine), "Time Code Rate=30DF\n", ""), 1, 5, 0, false},
    {FAULT(RateUnknown), with(mcc(kLine), "30DF", "29.97"), 1, 4, 16, false},
    {FAULT(RateLate), with(mcc(kLine), "Time Code Rate=30DF\n", "") + "Time Code Rate=30DF\n", 1, 6, 1,
     false},
    {FAULT(RateDisagrees), with(mcc(kLine), "30DF", "24"), 0, 6, 1, true},
    {FAULT(RateDisagrees), mcc(kLine + kNext + kNext + "\n00:00:01:03\t" + with(kData, "4F", "3F")), 4, 9, 13,
     false},
    {FAULT(RateDisagrees),
     with(mcc(kOther + "00:00:00:24\t" + kOther.substr(12) + "00:00:00:29\t" + kOther.substr(12)), "30DF",
          "24"),
     0, 6, 1, true},
    {FAULT(NoSuchTime), with(mcc(kOther + "00:00:00:29\t" + kOther.substr(12)), "30DF", "24"), 1, 7, 1, true},
    {FAULT(Blanks), mcc(with(kLine, "\t", "\t\t")), 1, 6, 12, false},
    {FAULT(Blanks), scc("00:00:01:00 9420"), 1, 3, 12, false},
    {FAULT(BlanksBefore), mcc("  " + kLine), 1, 6, 1, false},
    {FAULT(BlanksBehind), mcc(kLine + " \t"), 1, 6, 53, false},
    {FAULT(BlanksBehind), scc("00:00:01:00\t9420 "), 1, 3, 17, false},
    {FAULT(FrameSeparator), mcc(with(kLine, "01:00\t", "01.00\t")), 1, 6, 9, false},
    {FAULT(OtherCounting), scc("00:00:01:00\t9420\n00:00:02:00\t9420\n00:00:03;00\t9420"), 3, 5, 9, false},
    {FAULT(DroppedNumber), scc("00:01:00;00\t9420\n00:02:10;00\t9420\n00:03:10;00\t942c"), 3, 3, 1, false},
    {FAULT(NoSuchTime), scc("00:00:01:00\t9420\n00:00:61:00\t9420\n00:00:62:30\t9420"), 1, 4, 1, true},
    {FAULT(NotACaption), mcc(kLine + "\nhello" + kNext), 2, 7, 1, true},
    {FAULT(NotACaption), mcc(kLine + "\n00:00:01:00\t"), 1, 7, 13, true},
    {FAULT(Null), with(mcc(kLine + kNext), "T52", std::string("T\00052", 4)), 1, 6, 14, true},
    {FAULT(Null), with(mcc(kLine + kNext), "00:00:01:00", std::string_view{"0\0:00:01:00", 11}), 1, 6, 2,
     true},
    {FAULT(Null), with(mcc(kLine), "UUID=u", std::string_view{"UUID=\0", 6}), 1, 3, 6, false},
    {FAULT(UnknownCharacter), mcc(with(kLine, "T52", "T5?") + kNext), 1, 6, 15, true},
    {FAULT(UnknownCharacter), scc("00:00:01:00\t9420 94x0\n00:00:02:00\t9420"), 1, 3, 20, true},
    {FAULT(UnknownCharacter), scc("00:00:01:00\t9420 9420 9420 9x20\n00:00:02:00\t9420"), 1, 3, 29, true},
    {FAULT(LowerCase), data("QROO", "qrOO"), 1, 6, 29, false},
    {FAULT(LowerCase), data("ZZAEB4", "ZZaEB4"), 1, 6, 49, false},
    {FAULT(LowerCase), data("67ZZ", "67zZ"), 1, 6, 23, false},
    {FAULT(FourByteU), data("UZC1", "UC1"), 1, 6, 37, false},
    {FAULT(EightDigitWord), scc("00:00:01:00\t94209420 94ae"), 2, 3, 13, true},
    {FAULT(WordLength), scc("00:00:01:00\t9420 94 a94ae 942c"), 2, 3, 18, true},
    {FAULT(HalfByte), data("T52S", "T5S"), 1, 6, 14, true},
    {FAULT(Suffix), mcc("00:00:01:00.1\t" + kData), 1, 6, 12, false},
    {FAULT(Suffix), mcc("00:00:01:00.2\t" + kData), 1, 6, 12, false},
    {FAULT(Suffix), mcc("00:00:01:00.0,99999999999\t" + kData), 1, 6, 12, false},
    {FAULT(Suffix), mcc("00:00:01:00.0,12345678901\t" + kData), 1, 6, 12, false},
    {FAULT(Suffix), mcc("00:00:01:00.00\t" + kData), 1, 6, 12, false},
    {FAULT(Suffix), mcc("00:00:01:00,5 " + kData), 1, 6, 12, false},
    {FAULT(LongPacket), mcc(kLine + std::string(600, '0') + kNext), 1, 6, 13, true},
    {FAULT(DataCount), data("AEB4", ""), 1, 6, 13, true},
    {FAULT(NotACDP), mcc("00:00:01:00\tT0252525F\n" + kLine), 2, 6, 13, true},
    {FAULT(CDPLength), data("S52", "S53"), 1, 6, 13, false},
    {FAULT(SectionCut), data("T52S524F67ZZ72F4QROO7391UZC13FFF74ZZAEB4", "T0CS0C4F67ZZ72F4FC94206C52"), 1, 6,
     13, true},
    {FAULT(SectionUnknown), data("7391U", "7591U"), 1, 6, 13, true},
    {FAULT(PacketChecksum), data("AEB4", "AEB5"), 1, 6, 13, false},
    {FAULT(PacketChecksumMissing), data("AEB4", "AE"), 1, 6, 13, false},
    {FAULT(CDPChecksum), data("AEB4", "AFB5"), 1, 6, 13, false},
    {FAULT(CDPChecksumMissing),
     data("T52S524F67ZZ72F4QROO7391UZC13FFF74ZZAEB4", "T51S524F67ZZ72F4QROO7391UZC13FFF74ZZ05"), 1, 6, 13,
     false},
    {FAULT(Counters), data("74ZZAE", "74Z01AD"), 1, 6, 13, false},
    {FAULT(Parity), scc("00:00:01:00\t1420"), 1, 3, 13, false},
    {FAULT(Parity), data("QROO", "FC1420ROO"), 1, 6, 13, false},
    {FAULT(Sequence), mcc(kLine + with(kNext, "01:01", "01:05") + with(kNext, "01:01", "01:06")), 3, 8, 1,
     false},
    {FAULT(Gap), mcc(with(kLine, "01:00", "00:29") + with(with(kNext, "01:01", "01:01"), "67Z01", "67Z02")),
     2, 7, 1, false},
    {FAULT(BackInTime), mcc(kLine + with(kNext, "01:01", "00:01")), 2, 7, 1, false},
    {FAULT(BackInTime), scc("00:00:02:00\t9420\n00:00:01:00\t9420"), 2, 4, 1, false},
    {FAULT(SameFrame), mcc(kLine + with(kNext, "01:01", "01:00")), 2, 7, 1, false},
    {FAULT(Overlap), scc("00:00:02:00\t9420 9420 9420\n00:00:02:01\t942c"), 4, 4, 1, false},
    {FAULT(NoCaptions), kSCCHead, 0, 3, 0, false},
};

TEST(CaptionFileFaults, EachIsReportedInItsPlace)
{
    for (const FaultRow &row : kFaultRows)
    {
        SCOPED_TRACE(std::string{kivCS2CaptionFile_getFaultName(row.fault)} + ": " + row.content);
        Reading reading{row.content};
        reading.all();
        EXPECT_EQ(reading.packets.size(), row.packets);
        uint64_t count = 0;
        KIVCS2CaptionFileFault first;
        ASSERT_EQ(kivCS2CaptionFile_getFaultCount(&reading.file, row.fault, &count, &first), KIVCS2STATUS_OK);
        ASSERT_GT(count, 0u);
        EXPECT_TRUE(first.m_line == row.line && first.m_column == row.column && first.m_lost == row.lost)
            << first.m_line << ", " << first.m_column << ", " << first.m_lost;
        EXPECT_NE(first.m_expected, nullptr);
        const auto reported = std::ranges::find(reading.faults, row.fault, &KIVCS2CaptionFileFault::m_fault);
        ASSERT_NE(reported, reading.faults.end());
        EXPECT_EQ(std::memcmp(&*reported, &first, sizeof first), 0);
        EXPECT_EQ(reading.report().m_faults, reading.faults.size());
        EXPECT_EQ(KIVCS2_FAILED(reading.status), true);
        EXPECT_EQ(reading.status == KIVCS2STATUS_EOF_ERR, row.packets > 0);

        KIVCS2CaptionReadOptions strict{};
        strict.m_strict = true;
        Reading stopped{row.content, strict};
        stopped.all();
        ASSERT_EQ(stopped.faults.size(), 1u);
        EXPECT_EQ(stopped.status, kivCS2CaptionFile_getFaultStatus(stopped.faults[0].m_fault));
        KIVCS2CaptionPacket packet;
        EXPECT_EQ(kivCS2CaptionFile_readPacket(&stopped.file, &packet), stopped.status);
    }
}

TEST(CaptionFileFaults, OnlyRefusedFilesGiveNoHeader)
{
    EXPECT_EQ(Reading{data("AEB4", "AEB5")}.all().header.m_counting, KIVCS2CaptionCounting_29_97DF);
    for (const auto &[content, status] : std::map<std::string, KIVCS2Status>{
             {"hello", KIVCS2STATUS_HEADER_ERR},
             {with(mcc(kLine), "30DF", "25"), KIVCS2STATUS_FRAME_RATE_ERR},
             {with(mcc("00:00:01:00\t414001FF"), "30DF", "29.97"), KIVCS2STATUS_FRAME_RATE_ERR},
             {kMCCHead, KIVCS2STATUS_NO_DATA_ERR}})
        EXPECT_EQ(Reading{content}.all().status, status) << content;
    // The caller's counting takes precedence.
    KIVCS2CaptionReadOptions options{};
    options.m_counting = KIVCS2CaptionCounting_25;
    EXPECT_EQ(Reading(with(mcc(kLine), "30DF", "24"), options).all().packets.size(), 1u);
}

// Peers write U for four bytes, E1 00 00 00, or blanks before each line.
TEST(CaptionFileSamples, OfPeersHaveTheSamePackets)
{
    const std::string sample = fileText(KIV_TEST_DATA "/pop-on-25.mcc");
    std::string four = sample, blanks = sample;
    for (size_t at = four.find("UZC1"); at != std::string::npos; at = four.find("UZC1", at))
        four.replace(at, 4, "UC1");
    for (size_t at = blanks.find("\n00:"); at != std::string::npos; at = blanks.find("\n00:", at + 1))
        blanks.insert(at + 1, " ");
    EXPECT_TRUE(four != sample && Reading{four}.all().hash() == Reading{sample}.all().hash());
    EXPECT_EQ(Reading{blanks}.all().hash(), Reading{sample}.all().hash());
}

// The counting is found even if the first caption is beyond the bytes read ahead.
TEST(CaptionFileHeaders, OfAnyLengthLeaveTheirCaptionsAVote)
{
    for (const std::string &filler :
         {std::string(70000, 'x') + "\n", with(std::string(400, '\n'), "\n", "x\n")})
    {
        Reading drops{kSCCHead + filler + "00:00:01;00\t1520\n00:00:02;00\t1520\n"};
        EXPECT_EQ(drops.all().header.m_counting, KIVCS2CaptionCounting_29_97DF);
        EXPECT_EQ(drops.header.m_field, 2u);
        Reading packets{with(kMCCHead, "Time Code Rate=30DF\n", filler) + with(kLine, "4F", "3F") + "\n"};
        EXPECT_EQ(packets.all().header.m_counting, KIVCS2CaptionCounting_25);
        EXPECT_EQ(packets.count(FAULT(RateMissing)), 1u);
        EXPECT_EQ(packets.packets.size(), 1u);
    }
}

TEST(CaptionFileSCC, WordsKeepTheirFrames)
{
    Reading reading{scc("00:00:10:00\t9420 94 ae 94ae\n00:00:20:00\t94209420 942c")};
    reading.all();
    EXPECT_EQ(reading.pairs(), "9420 94ae 9420 942c ");
    EXPECT_EQ(reading.packets[1].m_frame, 303u); // two words are lost: their frames stay empty
    EXPECT_EQ(reading.report().m_lostPairs, 2u);

    KIVCS2CaptionReadOptions both{};
    both.m_bothTracks = true;
    Reading tracks{scc("00:00:20:00\t94209521"), both};
    tracks.all();
    EXPECT_TRUE(tracks.pairs(0) == "9420 " && tracks.pairs(1) == "9521 ");
}

TEST(CaptionFileSCC, ItsCodesNameTheField)
{
    Reading second{scc("00:00:10:00\t1520 1520 9770 c8e9 152f 152f")};
    EXPECT_EQ(second.all().header.m_field, 2u);
    EXPECT_TRUE(second.pairs(0).empty() && second.pairs(1) == "1520 1520 9770 c8e9 152f 152f ");
    KIVCS2CaptionReadOptions options{};
    options.m_field = 1;
    EXPECT_NE(Reading(second.text, options).all().pairs(0), "");
    // The separation of the words does not matter.
    EXPECT_EQ(Reading{scc("00:00:10:00\t94 1520  1520 152f")}.all().header.m_field, 2u);
    EXPECT_EQ(Reading{scc("00:00:10:00\t15201520 152f152f")}.all().header.m_field, 2u);
}

TEST(CaptionFileSCC, ByFrameLinesWaitAndArePlaced)
{
    KIVCS2CaptionReadOptions options{};
    options.m_order = KIVCS2CaptionOrder_Frame;
    const std::string text =
        scc("00:00:10:00\t9420 9420 94ae\n00:00:10:01\t942c\n00:00:05:00\t942f\n00:00:30:00\t9429");
    Reading reading{text, options};
    reading.all();
    EXPECT_EQ(reading.pairs(), "942f 9420 9420 94ae 942c 9429 ");
    std::vector<uint32_t> frames;
    for (const auto &packet : reading.packets)
        frames.push_back(packet.m_frame);
    EXPECT_EQ(frames, (std::vector<uint32_t>{150, 300, 301, 302, 303, 900}));
    EXPECT_TRUE(reading.count(FAULT(Overlap)) == 1 && reading.count(FAULT(BackInTime)) == 1);
    Reading cut{text.substr(0, text.size() - 1), options}; // the last line end
    EXPECT_TRUE(text.back() == '\n' && cut.all().report().m_lines == reading.report().m_lines);
    // A damaged line is reported in its place. The pairs make one line wait too long, the next one an hour.
    std::string hours;
    for (int pair = 0; pair < 108100; ++pair)
        hours += " 9420";
    Reading late{
        scc("00:00:00:00\t9420" + hours + "\nx\n00:00:00:02\t942c\n00:00:03:12\t942c\n01:00:30:00\t942c"),
        options};
    late.all();
    EXPECT_EQ(late.packets.size(), 108103u);
    EXPECT_TRUE(late.count(FAULT(WaitsTooLong)) == 1 && late.count(FAULT(NotACaption)) == 1);
    // The lost pairs of a line are not waited for. A comma does not decide the counting.
    EXPECT_EQ(Reading{scc("00:00:10,00\t9420")}.all().header.m_counting, KIVCS2CaptionCounting_29_97NDF);
    options.m_counting = KIVCS2CaptionCounting_FindOut;
    Reading lost{"Scenarist_SCC V1.0\n\n00:00:10,00\t9420 9420 942g\n00:00:10;02\t942c\n", options};
    EXPECT_EQ(lost.all().packets.at(0).m_frame, 302u);
    EXPECT_EQ(lost.count(FAULT(Overlap)) + lost.count(FAULT(OtherCounting)), 0u);
}

// ---- Damaged copies of our own samples ----

bool same(const KIVCS2CaptionPacket &a, const KIVCS2CaptionPacket &b)
{
    return a.m_frame == b.m_frame && a.m_size == b.m_size && std::memcmp(a.m_anc, b.m_anc, a.m_size) == 0 &&
           std::memcmp(a.m_triplets, b.m_triplets, sizeof a.m_triplets) == 0;
}

// The packets of the lines before `first` and after `last`.
std::vector<KIVCS2CaptionPacket> outside(const Reading &reading, uint64_t first, uint64_t last)
{
    std::vector<KIVCS2CaptionPacket> packets;
    for (const KIVCS2CaptionPacket &packet : reading.packets)
        if (packet.m_line < first || packet.m_line > last)
            packets.push_back(packet);
    return packets;
}

void expectNeighboursWhole(const std::string &text)
{
    Reading good{text};
    good.all();
    ASSERT_TRUE(good.report().m_lostLines == 0 && good.packets.size() > 10);
    uint64_t line = 1;
    for (size_t at = 0; at < text.size(); line += text[at++] == '\n' ? 1 : 0)
    {
        const char bad = "x\0003 "[at % 4];
        // Without its end a line is joined with the next.
        const uint64_t last = line + (text[at] == '\n' ? 1 : 0);
        const bool joins = text[at] == '\n' && text[at - 1] != '\r';
        std::string damaged = text;
        damaged[at] = bad;
        Reading reading{damaged};
        reading.all();
        ASSERT_EQ(reading.status, KIVCS2STATUS_EOF_ERR) << at;
        const auto kept = outside(reading, line, joins ? line : last);
        const auto wanted = outside(good, line, last);
        ASSERT_EQ(kept.size(), wanted.size()) << at << " line " << line;
        for (size_t index = 0; index < kept.size(); ++index)
            ASSERT_TRUE(same(kept[index], wanted[index])) << at << " line " << line;
        if (reading.packets.size() < good.packets.size())
        {
            ASSERT_GT(reading.report().m_faults, 0u) << at;
        }
    }
}

void expectCutEndsWhole(const std::string &text)
{
    Reading good{text};
    good.all();
    uint64_t line = 1;
    for (size_t size = 0; size < text.size(); line += text[size++] == '\n' ? 1 : 0)
    {
        Reading reading{text.substr(0, size)};
        reading.all();
        const auto whole = outside(good, line, UINT64_MAX);
        ASSERT_GE(reading.packets.size(), whole.size()) << size;
        for (size_t index = 0; index < whole.size(); ++index)
            ASSERT_TRUE(same(reading.packets[index], whole[index])) << size;
        if (reading.packets.empty())
        {
            ASSERT_TRUE(reading.status == KIVCS2STATUS_HEADER_ERR ||
                        reading.status == KIVCS2STATUS_NO_DATA_ERR)
                << size;
        }
        for (size_t index = whole.size(); index < reading.packets.size(); ++index)
            ASSERT_TRUE(same(reading.packets[index], good.packets[index]) ||
                        reading.packets[index].m_faults != 0)
                << size;
    }
}

TEST(CaptionFileSamples, OneBadByteOrACutLeavesTheOtherLinesWhole)
{
    for (const char *sample : {"pop-on-ndf.scc", "roll-up-df-crlf.scc", "pop-on-25.mcc",
                               "suffixes-v2-crlf.mcc", "plain-hex-30df.mcc"})
    {
        SCOPED_TRACE(sample);
        const std::string text = fileText(std::string{KIV_TEST_DATA "/"} + sample);
        expectNeighboursWhole(text);
        expectCutEndsWhole(text);
    }
}

// ---- Streams, seeking, long lines ----

KIVCS2CaptionPacket soughtIn(Reading &reading, uint32_t frame)
{
    KIVCS2CaptionPacket packet{};
    EXPECT_EQ(kivCS2CaptionFile_seek(&reading.file, frame), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionFile_readPacket(&reading.file, &packet), KIVCS2STATUS_OK);
    return packet;
}

TEST(CaptionFileSeek, AFileMayRunOverMidnightInBothOrders)
{
    const uint32_t day = 2592000;
    for (const KIVCS2CaptionOrder order : {KIVCS2CaptionOrder_File, KIVCS2CaptionOrder_Frame})
    {
        KIVCS2CaptionReadOptions options{};
        options.m_order = order;
        Reading reading{scc("23:59:59:28\t9420 9420 94ae 94ae\n00:00:00:01\t942c\n00:00:10:00\t942f"),
                        options};
        const bool waits = order == KIVCS2CaptionOrder_Frame;
        std::vector<uint32_t> frames;
        for (const KIVCS2CaptionPacket &packet : reading.all().packets)
            frames.push_back(packet.m_frame);
        EXPECT_EQ(frames, (std::vector<uint32_t>{day - 2, day - 1, 0, 1, waits ? 2u : 1u, 300}));
        EXPECT_TRUE(reading.count(FAULT(Overlap)) == 1 && reading.report().m_faults == 1);
        Reading fresh{reading.text, options};
        for (Reading *const one : {&reading, &fresh})
            for (const auto &[frame, found] : std::vector<std::pair<uint32_t, uint32_t>>{
                     {0, 0}, {day - 1, day - 1}, {day / 2 + 2000, day - 2}, {100, 300}, {1, 1}})
                EXPECT_EQ(soughtIn(*one, frame).m_frame, found) << frame;
        EXPECT_EQ(kivCS2CaptionFile_seek(&reading.file, 301), KIVCS2STATUS_EOF_ERR);
        Reading tail{scc("23:59:59:28\t9420 9420 94ae 94ae"), options}; // only its words run over
        EXPECT_EQ(soughtIn(tail, 1).m_frame, 1u);
        Reading evening{scc("20:00:00:00\t9420\n21:00:00:00\t942c"), options}; // all of one day
        EXPECT_EQ(soughtIn(evening, 0).m_frame, 2160000u);
        std::string back = "23:59:59:28\t9420 9420 94ae 94ae\n"; // runs over, and the index begins after it
        for (int line = 10; line < 50; ++line)
            back += "23:00:" + std::to_string(line) + ":00\t942c\n";
        Reading jumbled{scc(back), options};
        jumbled.all();
        EXPECT_EQ(kivCS2CaptionFile_seek(&jumbled.file, 2000), KIVCS2STATUS_EOF_ERR);
    }
}

TEST(CaptionFileSeek, LeavesALineThatIsReadInPieces)
{
    std::string words;
    for (int pair = 0; pair < 20000; ++pair)
        words += " 9420";
    Reading reading{scc("00:00:00:00\t9420" + words + "\n01:00:00:00\t942c")};
    KIVCS2CaptionPacket packet;
    for (int time = 0; time < 2; ++time)
        ASSERT_EQ(kivCS2CaptionFile_readPacket(&reading.file, &packet), KIVCS2STATUS_OK);
    EXPECT_EQ(soughtIn(reading, 0).m_frame, 0u);
    EXPECT_EQ(soughtIn(reading, 19000).m_frame, 19000u);
}

TEST(CaptionFileSeek, FindsTheFirstPacketFromAFrameOnInBothOrders)
{
    std::string text = kSCCHead;
    for (int line = 0; line < 900; ++line)
    {
        char time[32];
        std::snprintf(time, sizeof time, "00:%02d:%02d:%02d\t", line / 60, line % 60, line * 7 % 30);
        text += time + std::string{line % 50 == 3 ? "zz\n" : "9420 94ae 942f\n"};
    }
    for (const KIVCS2CaptionOrder order : {KIVCS2CaptionOrder_File, KIVCS2CaptionOrder_Frame})
    {
        KIVCS2CaptionReadOptions options{};
        options.m_order = order;
        Reading all{text, options};
        all.all();
        Reading reading{text, options};
        for (uint32_t step = 0; step < 2000; ++step)
        {
            const uint32_t frame = step * 7919 % 27500;
            const auto wanted =
                std::ranges::lower_bound(all.packets, frame, {}, &KIVCS2CaptionPacket::m_frame);
            KIVCS2CaptionPacket packet{};
            KIVCS2Status status = kivCS2CaptionFile_seek(&reading.file, frame);
            if (KIVCS2_SUCCEEDED(status))
                status = kivCS2CaptionFile_readPacket(&reading.file, &packet);
            ASSERT_EQ(KIVCS2_SUCCEEDED(status), wanted != all.packets.end()) << frame;
            if (wanted != all.packets.end())
            {
                ASSERT_TRUE(packet.m_frame == wanted->m_frame && packet.m_line == wanted->m_line)
                    << frame << ' ' << packet.m_frame;
            }
        }
    }
}

// The index of a file has every 16th line until it is full, after 131,072 lines.
TEST(CaptionFileSeek, FindsEachFrameOfALongProgramme)
{
    std::string text = kSCCHead;
    for (uint32_t frame = 0; frame < 140000; ++frame)
    {
        char time[KIVCS2_CAPTION_TIMECODE_SIZE];
        ASSERT_OK(kivCS2CaptionCounting_textFromFrame(KIVCS2CaptionCounting_29_97NDF, frame, time));
        text += std::string{time} + "\t9420\n";
    }
    Reading reading{text};
    for (uint32_t frame = 139999; frame > 0; frame = frame * 7 / 9)
    {
        KIVCS2CaptionPacket packet{};
        ASSERT_OK(kivCS2CaptionFile_seek(&reading.file, frame));
        ASSERT_OK(kivCS2CaptionFile_readPacket(&reading.file, &packet));
        ASSERT_TRUE(packet.m_frame == frame && packet.m_line == frame + 3) << frame;
    }
}

// A caption file on a stream, open while the object exists.
struct Opened
{
    KIVCS2CaptionFile file{};
    uint64_t faults = 0; // of all packets

    explicit Opened(KIVCS2Stream &stream, bool owns = false)
    {
        EXPECT_EQ(kivCS2CaptionFile_initReading(&file, &stream, owns, nullptr), KIVCS2STATUS_OK);
    }
    ~Opened()
    {
        EXPECT_EQ(kivCS2CaptionFile_free(&file), KIVCS2STATUS_OK);
    }
    // Reads to the status `end`, which repeats. Returns the number of packets.
    size_t packets(KIVCS2Status end = KIVCS2STATUS_EOF_ERR)
    {
        size_t count = 0;
        KIVCS2CaptionPacket packet;
        KIVCS2Status status = KIVCS2STATUS_OK;
        for (; KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(&file, &packet)); ++count)
            faults |= packet.m_faults;
        EXPECT_EQ(status, end);
        EXPECT_EQ(kivCS2CaptionFile_readPacket(&file, &packet), end);
        return count;
    }
};

TEST(CaptionFileStreams, PipesAreReadAndCannotBeMoved)
{
    const std::string text = fileText(KIV_TEST_DATA "/pop-on-25.mcc");
    kiv::test::HostStream host{{text.begin(), text.end()}};
    KIVCS2CaptionReadOptions options{};
    options.m_order = KIVCS2CaptionOrder_Frame;
    KIVCS2CaptionFile file;
    EXPECT_EQ(kivCS2CaptionFile_initReading(&file, &host.m_stream, false, &options),
              KIVCS2STATUS_UNSUPPORTED_ERR);
    Opened opened{host.m_stream};
    EXPECT_EQ(kivCS2CaptionFile_seek(&opened.file, 0), KIVCS2STATUS_UNSUPPORTED_ERR);
    EXPECT_EQ(opened.packets(), 18u);
}

// A stream that fails within a line gives only the whole lines before it, and its status.
TEST(CaptionFileStreams, AFailureIsReportedAndNoCutPacketReturned)
{
    const std::string text = fileText(KIV_TEST_DATA "/pop-on-25.mcc");
    for (size_t cut = 0; cut < text.size(); cut += 37)
    {
        kiv::test::HostStream host{{text.begin(), text.begin() + static_cast<ptrdiff_t>(cut)}};
        host.m_failsAt = cut;
        Opened opened{host.m_stream};
        (void)opened.packets(KIVCS2STATUS_READ_ERR);
        EXPECT_EQ(opened.faults, 0u) << cut;
    }
}

// Of a file, and of a FIFO, whose bytes come as they are written.
TEST(CaptionFileStreams, AFileStreamThatReportsAllOrNothingLosesNoBytes)
{
    const kiv::test::TemporaryFolder folder;
    for (const size_t lines : {1, 100, 5000})
    {
        std::string text = kSCCHead;
        for (size_t line = 0; line < lines; ++line)
            text += "00:00:01:00\t9420 94ae\r\n";
        const std::string path = folder.write("file.scc", text);
        KIVCS2FileStream stream;
        ASSERT_EQ(kivCS2FileStream_init(&stream, path.c_str(), "r"), KIVCS2STATUS_OK);
        EXPECT_EQ(Opened(stream.m_stream, true).packets(), 2 * lines);

        const std::string fifo = path + std::to_string(lines);
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        std::thread writer{[&] { std::ofstream{fifo} << text; }};
        ASSERT_EQ(kivCS2FileStream_init(&stream, fifo.c_str(), "r"), KIVCS2STATUS_OK);
        EXPECT_EQ(Opened(stream.m_stream, true).packets(), 2 * lines);
        writer.join();
    }
}

TEST(CaptionFileLines, OfAnyLengthAreReadInPieces)
{
    std::string words;
    for (int word = 0; word < 40000; ++word)
        words += word % 3 == 0 ? " 9420" : "  94ae";
    Reading reading{scc("00:00:01:00\t9420" + words + "\n00:20:00:00\t942c")};
    reading.all();
    ASSERT_EQ(reading.packets.size(), 40002u);
    EXPECT_TRUE(reading.packets[40000].m_frame == 40030 && reading.packets[40001].m_line == 4);
    // Endless digits are one word, which is lost; the next line is read.
    Reading digits{scc("00:00:01:00\t9420 " + std::string(300000, '9') + " 94ae\n00:20:00:00\t942c")};
    digits.all();
    EXPECT_EQ(digits.pairs(), "9420 94ae 942c ");
    EXPECT_TRUE(digits.packets[1].m_frame == 32 && digits.report().m_lostPairs == 1);
}

// A line of digits that a stream makes as it is read. No byte is read twice, and the next line is found. A
// gigabyte; less with sanitizers, which are slower.
const uint64_t kDigits = kiv::test::hasAssertions() ? 40'000'000 : 1'000'000'000;
struct EndlessLine
{
    KIVCS2Stream m_stream{}; // first, as in every kind
    std::string front, back;
    uint64_t at = 0;

    EndlessLine(std::string begins, std::string ends) : front{std::move(begins)}, back{std::move(ends)}
    {
        m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *bytesRead)
        {
            auto &line = *reinterpret_cast<EndlessLine *>(stream);
            const uint64_t digitsEnd = line.front.size() + kDigits;
            const std::string &text = line.at < digitsEnd ? line.front : line.back;
            const uint64_t from = line.at < digitsEnd ? line.at : line.at - digitsEnd;
            const bool isDigits = line.at >= line.front.size() && line.at < digitsEnd;
            const uint64_t count = std::min(size, isDigits ? digitsEnd - line.at : text.size() - from);
            if (isDigits)
                std::memset(buffer, '9', count);
            else
                std::memcpy(buffer, text.data() + from, count);
            line.at += count;
            *bytesRead = count;
            return KIVCS2Status{KIVCS2STATUS_OK};
        };
    }
};

TEST(CaptionFileLines, OfAGigabyteTakeLinearTimeAndNoMemory)
{
    const std::string second = "\n00:20:00:00\t942c 942c\n", packet = "\n" + kLine + "\n";
    for (const auto &[begins, ends, packets, fault] :
         std::vector<std::tuple<std::string, std::string, size_t, KIVCS2CaptionFault>>{
             {kSCCHead + "00:00:01:00\t9420 ", " 94ae" + second, 4, FAULT(WordLength)},
             {kSCCHead + "00:00:01:00\t9420\n", second, 3, FAULT(NotACaption)},
             {kMCCHead + "00:00:00:28\tT5", packet, 1, FAULT(LongPacket)},
             {kMCCHead + "Author=", packet, 1, FAULT(HeaderLong)}})
    {
        EndlessLine line{begins, ends};
        Opened opened{line.m_stream};
        EXPECT_EQ(opened.packets(), packets) << begins;
        uint64_t count = 0;
        EXPECT_EQ(kivCS2CaptionFile_getFaultCount(&opened.file, fault, &count, nullptr), KIVCS2STATUS_OK);
        EXPECT_EQ(count, 1u) << begins;
        EXPECT_EQ(line.at, line.front.size() + kDigits + line.back.size());
    }
}

// ---- Real files ----

// Every word of an SCC file is a packet. ndf-tears-of-steel.scc has 152 empty pairs (80 80).
struct Golden
{
    const char *file;
    KIVCS2CaptionCounting counting;
    size_t packets, pairs1, pairs2; // empty pairs not counted
    uint64_t hash;
    std::string faults; // with their counts
};

TEST(CaptionFileCorpus, RealFilesGiveTheGoldenResults)
{
    KIV_NEED_CORPUS();
    const KIVCS2CaptionCounting df = KIVCS2CaptionCounting_29_97DF, ndf = KIVCS2CaptionCounting_29_97NDF;
    const std::vector<Golden> files = {
        {"mcc/BigBuckBunny_256x144-24fps.mcc", KIVCS2CaptionCounting_23_98, 688, 323, 344,
         1834093209773326977u, "CDP checksum missing 688, sequence 42, "},
        {"mcc/premiere2025-30df.mcc", df, 533, 198, 0, 17863962859161499553u, ""},
        {"scc/df-crlf-out-of-order.scc", df, 12370, 12370, 0, 3531358988449529362u,
         "blanks after data 632, back in time 1, overlap 2, "},
        {"scc/df-rollup-no-final-newline.scc", df, 259, 259, 0, 8201492743205152756u, "parity 6, "},
        {"scc/df-short.scc", df, 265, 265, 0, 7049566880893957213u, "blanks after data 15, "},
        {"scc/df-simple.scc", df, 31, 31, 0, 2669425433593298955u, "parity 12, "},
        {"scc/ndf-crlf.scc", ndf, 93, 93, 0, 15213636595646879u, ""},
        {"scc/ndf-overlap.scc", ndf, 83, 83, 0, 7048860838568202523u, "parity 56, overlap 1, "},
        {"scc/ndf-tears-of-steel.scc", ndf, 1438, 1286, 0, 13818637304905125186u, ""},
    };
    for (const Golden &golden : files)
    {
        SCOPED_TRACE(golden.file);
        Reading reading{fileText(kiv::test::corpus() / golden.file)};
        reading.all();
        EXPECT_EQ(reading.header.m_counting, golden.counting);
        EXPECT_EQ(reading.packets.size(), golden.packets);
        EXPECT_EQ(reading.pairs(0).size() / 5, golden.pairs1);
        EXPECT_EQ(reading.pairs(1).size() / 5, golden.pairs2);
        EXPECT_EQ(reading.hash(), golden.hash);
        std::string faults;
        for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
            if (const uint64_t count = reading.count(fault); count > 0)
                faults +=
                    std::string{kivCS2CaptionFile_getFaultName(fault)} + ' ' + std::to_string(count) + ", ";
        EXPECT_EQ(faults, golden.faults);
    }
    EXPECT_EQ(Reading(fileText(kiv::test::corpus() / "mcc/empty.mcc")).all().status, KIVCS2STATUS_HEADER_ERR);
}

TEST(CaptionFileArguments, AreChecked)
{
    KIVCS2CaptionFile file{};
    KIVCS2MemoryStream memory{};
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionReadOptions options{};
    options.m_kind = KIVCS2CaptionFileKind_SRT;
    uint64_t count = 0;
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2CaptionFile_initReading, "file", nullptr, &memory.m_stream, false, nullptr),
        KIV_REQUIRES(kivCS2CaptionFile_initReading, "stream", &file, nullptr, false, nullptr),
        KIV_REQUIRES(kivCS2CaptionFile_initReading, "used.m_kind <= KIVCS2CaptionFileKind_MCC2", &file,
                     &memory.m_stream, false, &options),
        KIV_REQUIRES(kivCS2CaptionFile_readHeader, "file->m_state", &file, nullptr),
        KIV_REQUIRES(kivCS2CaptionFile_readPacket, "packet", &file, nullptr),
        KIV_REQUIRES(kivCS2CaptionFile_readPacket, "file->m_state", &file, &packet),
        KIV_REQUIRES(kivCS2CaptionFile_getFaultCount, "kiv::cc::faultRow(fault) != nullptr", &file, 0, &count,
                     nullptr),
        KIV_REQUIRES(kivCS2CaptionFile_getFaultCount, "count", &file, KIVCS2CaptionFault_Blanks, nullptr,
                     nullptr),
        KIV_REQUIRES(kivCS2CaptionFile_free, "file", nullptr),
    });
    EXPECT_EQ(kivCS2CaptionFile_free(&file), KIVCS2STATUS_OK);
    EXPECT_TRUE(sizeof(KIVCS2CaptionFileFault) == 136 && sizeof(KIVCS2CaptionReadOptions) == 48 &&
                sizeof(KIVCS2CaptionFileHeader) == 2144 && sizeof(KIVCS2CaptionFileReport) == 96);
}
} // namespace
