// Caption files written and read back.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <cstring>
#include <thread>

namespace
{
using kiv::test::fileText;
using kiv::test::Reading;

// A writer into memory.
struct Writing
{
    KIVCS2MemoryStream memory{};
    KIVCS2CaptionFile file{};

    Writing(KIVCS2CaptionFileKind kind, KIVCS2CaptionCounting counting,
            const KIVCS2CaptionWriteOptions &options = {})
    {
        EXPECT_OK(kivCS2MemoryStream_init(&memory, 4096, 65536));
        EXPECT_OK(kivCS2CaptionFile_initWriting(&file, &memory.m_stream, false, kind, counting, &options));
        EXPECT_OK(kivCS2CaptionFile_writeHeader(&file, nullptr));
    }
    Writing(const Writing &) = delete;
    Writing &operator=(const Writing &) = delete;
    ~Writing()
    {
        EXPECT_OK(kivCS2CaptionFile_free(&file));
        EXPECT_OK(kivCS2MemoryStream_free(&memory.m_stream));
    }
    std::string text()
    {
        EXPECT_OK(kivCS2CaptionFile_finish(&file));
        return {reinterpret_cast<const char *>(memory.m_buffer), memory.m_size};
    }
};

std::string copyOf(const Reading &reading, KIVCS2CaptionFileKind kind,
                   const KIVCS2CaptionWriteOptions &options = {})
{
    Writing writing{kind, reading.header.m_counting, options};
    for (const KIVCS2CaptionPacket &packet : reading.packets)
        EXPECT_OK(kivCS2CaptionFile_writePacket(&writing.file, &packet));
    return writing.text();
}

TEST(CaptionWriterMCC, CopiesArePacketForPacketTheSame)
{
    std::vector<std::filesystem::path> files{"pop-on-25.mcc", "suffixes-v2-crlf.mcc", "plain-hex-30df.mcc"};
    for (std::filesystem::path &file : files)
        file = KIV_TEST_DATA / file;
    if (!kiv::test::corpus().empty())
        for (const char *file : {"BigBuckBunny_256x144-24fps.mcc", "premiere2025-30df.mcc"})
            files.push_back(kiv::test::corpus() / "mcc" / file);
    for (const auto &path : files)
        for (const bool plain : {false, true})
        {
            SCOPED_TRACE(path);
            Reading from{fileText(path)};
            from.all();
            KIVCS2CaptionWriteOptions options{};
            options.m_plainHex = plain;
            Reading to{copyOf(from, from.header.m_kind, options)};
            to.all();
            ASSERT_EQ(to.packets.size(), from.packets.size());
            for (size_t index = 0; index < to.packets.size(); ++index)
            {
                KIVCS2CaptionPacket &packet = to.packets[index];
                packet.m_line = from.packets[index].m_line;
                packet.m_offset = from.packets[index].m_offset;
                packet.m_faults = from.packets[index].m_faults;
                ASSERT_EQ(std::memcmp(&packet, &from.packets[index], sizeof packet), 0);
            }
            EXPECT_EQ(to.count(KIVCS2CaptionFault_FourByteU), 0u);
            EXPECT_EQ(to.text.find('U', to.text.rfind("Time Code Rate=")), std::string::npos);
            EXPECT_EQ(to.text.find("\nCreation Program="), to.text.find("\nUUID=") + 42); // one is made
        }
}

// The fuzz target takes pairs from SCC through MCC to SCC.
TEST(CaptionWriterSCC, TextIsAsTheFormatHasIt)
{
    Reading reading{"Scenarist_SCC V1.0\n\n00:00:10;00\t9420 9420\n\n00:00:12;00\t94ae 8080 942f 8080\n"};
    reading.all();
    EXPECT_EQ(copyOf(reading, KIVCS2CaptionFileKind_SCC),
              "Scenarist_SCC V1.0\n\n00:00:10;00\t9420 9420\n\n00:00:12;00\t94ae 8080 942f\n");
    // Each caption has a line, because some peers time captions by their lines.
    Reading captions{"Scenarist_SCC V1.0\n\n00:00:10;00\t9420 c1c2 942f 942f 9420 c1c2 8080 942f\n"};
    captions.all();
    EXPECT_EQ(copyOf(captions, KIVCS2CaptionFileKind_SCC),
              "Scenarist_SCC V1.0\n\n00:00:10;00\t9420 c1c2 942f 942f\n\n00:00:10;04\t9420 c1c2 8080 942f\n");
}

// Further pairs of a frame wait, and the next frames wait for them, also over midnight.
TEST(CaptionWriterSCC, PairsOfOneFrameFollowOneAnother)
{
    Writing writing{KIVCS2CaptionFileKind_SCC, KIVCS2CaptionCounting_29_97NDF};
    const KIVCS2CaptionPairs two{{2, 0}, {{{0x94, 0x20}, {0x94, 0xAE}}}, {}};
    const KIVCS2CaptionPairs one{{1, 0}, {{{0xC1, 0xC2}}}, {}};
    const KIVCS2CaptionPairs none{{1, 0}, {{{0x80, 0x80}}}, {}};
    const KIVCS2CaptionPairs absent{};
    const uint32_t day = 2592000;
    using Step = std::pair<uint32_t, const KIVCS2CaptionPairs *>;
    for (const auto &[frame, pairs] :
         {Step{day - 2, &two}, Step{day - 1, &two}, Step{0, &one}, Step{1, &none}, Step{2, &none},
          Step{3, &one}, Step{3, &one}, Step{9, &one}, Step{10, &absent}, Step{11, &one}})
        ASSERT_OK(kivCS2CaptionFile_writeCaptions(&writing.file, frame, pairs, nullptr));
    EXPECT_EQ(writing.text(), "Scenarist_SCC V1.0\n\n23:59:59:28\t9420 94ae 9420 94ae\n\n"
                              "00:00:00:02\tc1c2 c1c2 c1c2\n\n"
                              "00:00:00:09\tc1c2\n\n"
                              "00:00:00:11\tc1c2\n");

    KIVCS2CaptionWriteOptions options{}; // an MCC file with every frame passes midnight too
    options.m_everyFrame = true;
    Writing every{KIVCS2CaptionFileKind_MCC1, KIVCS2CaptionCounting_59_94NDF, options};
    for (const uint32_t frame : {2 * day - 3, 2u})
        ASSERT_OK(kivCS2CaptionFile_writeCaptions(&every.file, frame, nullptr, nullptr));
    EXPECT_EQ(kivCS2CaptionFile_writeCaptions(&every.file, 2, nullptr, nullptr),
              KIVCS2STATUS_INVALID_TIMECODE_ERR);
    Reading reading{every.text()};
    ASSERT_EQ(reading.all().packets.size(), 6u);
    EXPECT_EQ(reading.report().m_gapFrames + reading.report().m_faults, 0u);
    for (const KIVCS2CaptionPacket &packet : reading.packets) // alternating fields
        EXPECT_EQ(packet.m_triplets[0][0], 0xFC + packet.m_frame % 2);
}

// One caption of two rows at the top left, the second yellow and in italics.
struct Cue
{
    KIVCS2CaptionCell cells[5]{};
    KIVCS2CaptionText text{};

    Cue(uint32_t from, uint32_t until)
    {
        const char *const characters[] = {"A", "&", "<", "é", "!"};
        for (size_t index = 0; index < 5; ++index)
        {
            KIVCS2CaptionCell &cell = cells[index];
            std::strcpy(cell.m_text, characters[index]);
            cell.m_row = index < 3 ? 0 : 1;
            cell.m_column = static_cast<uint8_t>(index < 2 ? index : index == 2 ? 3 : index - 3);
            cell.m_colour = index < 3 ? 0xFFFFFFFF : 0xFFFFFF00;
            cell.m_style = index < 3 ? 0 : KIVCS2CaptionStyle_Italics;
        }
        text.m_from = from;
        text.m_until = until;
        text.m_service = KIVCS2CaptionService_CC1;
        text.m_mode = KIVCS2CaptionMode_PopOn;
        text.m_cells = cells;
        text.m_cellCount = 5;
    }
};

TEST(CaptionWriterCues, HaveTimesStyleAndPlace)
{
    KIVCS2CaptionWriteOptions options{};
    options.m_timeZero = 25;
    const std::string srt = "{\\an7}A& <\n<font color=\"#ffff00\"><i>é!</i></font>\n\n",
                      vtt = " line:10% position:10% align:start\nA&amp; &lt;\n<c.yellow><i>é!</i></c>\n\n";
    for (const auto &[kind, wanted] : std::vector<std::pair<KIVCS2CaptionFileKind, std::string>>{
             {KIVCS2CaptionFileKind_SRT, "1\n00:00:01,000 --> 00:00:02,040\n" + srt +
                                             "2\n23:59:58,000 --> 24:00:00,000\n" + srt +
                                             "3\n24:00:00,960 --> 24:00:01,000\n" + srt},
             {KIVCS2CaptionFileKind_WebVTT, "WEBVTT\n\n00:00:01.000 --> 00:00:02.040" + vtt +
                                                "23:59:58.000 --> 24:00:00.000" + vtt +
                                                "24:00:00.960 --> 24:00:01.000" + vtt}})
    {
        Writing writing{kind, KIVCS2CaptionCounting_25, options};
        const Cue early{24, 30}, first{50, 76}, overMidnight{2159975, 25}, nextDay{49, 50};
        EXPECT_EQ(kivCS2CaptionFile_writeText(&writing.file, &early.text), KIVCS2STATUS_INVALID_TIMECODE_ERR);
        for (const Cue *const cue : {&first, &overMidnight, &nextDay})
            EXPECT_OK(kivCS2CaptionFile_writeText(&writing.file, &cue->text));
        EXPECT_EQ(writing.text(), wanted);
    }
}

// A stream that accepts a limited number of bytes.
struct ShortStream
{
    KIVCS2Stream stream{};
    size_t room;

    explicit ShortStream(size_t bytes) : room{bytes}
    {
        stream.m_writeBytes = [](KIVCS2Stream *self, const void *, uint64_t size, uint64_t *written)
        {
            auto *own = reinterpret_cast<ShortStream *>(self);
            *written = std::min<uint64_t>({size, own->room, 1000});
            own->room -= *written;
            return KIVCS2Status{KIVCS2STATUS_OK};
        };
    }
};

TEST(CaptionWriterCues, WithoutCellsOrBackInTimeAreWholeToo)
{
    for (const auto &[kind, wanted] : {std::pair{KIVCS2CaptionFileKind_SRT, "a & <b>\n"},
                                       std::pair{KIVCS2CaptionFileKind_WebVTT, "a &amp; &lt;b&gt;\n"}})
    {
        Writing writing{static_cast<KIVCS2CaptionFileKind>(kind), KIVCS2CaptionCounting_25};
        Cue cue{10, 5};
        cue.text.m_cells = nullptr;
        cue.text.m_text = "a & <b>";
        cue.text.m_textSize = 7;
        EXPECT_OK(kivCS2CaptionFile_writeText(&writing.file, &cue.text));
        const std::string text = writing.text();
        EXPECT_NE(text.find(wanted), std::string::npos) << text;
        EXPECT_NE(text.find("--> 00:00:00"), std::string::npos) << text;
    }
}

TEST(CaptionWriterFailures, ShortWritesAndWrongCalls)
{
    Reading reading{fileText(KIV_TEST_DATA "/pop-on-25.mcc")};
    const KIVCS2CaptionPacket packet = reading.all().packets[0];
    for (const size_t room : {0, 2500, 1000000}) // accepted in parts, as by a pipe
    {
        ShortStream stream{room};
        KIVCS2CaptionFile file;
        ASSERT_OK(kivCS2CaptionFile_initWriting(&file, &stream.stream, false, KIVCS2CaptionFileKind_MCC1,
                                                KIVCS2CaptionCounting_25, nullptr));
        EXPECT_EQ(kivCS2CaptionFile_writePacket(&file, &packet), KIVCS2STATUS_STATE_ERR);
        EXPECT_OK(kivCS2CaptionFile_writeHeader(&file, nullptr));
        for (int count = 0; count < 100; ++count)
            (void)kivCS2CaptionFile_writePacket(&file, &packet); // the end reports it too
        EXPECT_EQ(kivCS2CaptionFile_finish(&file), room < 1000000 ? KIVCS2STATUS_WRITE_ERR : KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2CaptionFile_writePacket(&file, &packet), KIVCS2STATUS_STATE_ERR);
        KIVCS2CaptionPacket none;
        EXPECT_EQ(kivCS2CaptionFile_readPacket(&file, &none), KIVCS2STATUS_STATE_ERR);
        kivCS2CaptionFile_free(&file);
    }
    KIVCS2CaptionFile file;
    ShortStream stream{0};
    EXPECT_EQ(kivCS2CaptionFile_initWriting(&file, &stream.stream, false, KIVCS2CaptionFileKind_SCC,
                                            KIVCS2CaptionCounting_25, nullptr),
              KIVCS2STATUS_FRAME_RATE_ERR);
    Writing mcc1{KIVCS2CaptionFileKind_MCC1, KIVCS2CaptionCounting_25};
    KIVCS2CaptionPacket suffixed = packet;
    suffixed.m_flags |= KIVCS2CaptionPacketFlag_HasField;
    EXPECT_EQ(kivCS2CaptionFile_writePacket(&mcc1.file, &suffixed), KIVCS2STATUS_FORMAT_ERR);
    KIVCS2CaptionWriteOptions everyFrame{};
    const KIVCS2CaptionServiceEntry spanish{KIVCS2CaptionService_CC3, "spa", 0, 1, {}};
    everyFrame.m_everyFrame = true;
    everyFrame.m_serviceCount = 1;
    everyFrame.m_services = &spanish;
    Writing rising{KIVCS2CaptionFileKind_MCC2, KIVCS2CaptionCounting_25, everyFrame};
    EXPECT_OK(kivCS2CaptionFile_writeCaptions(&rising.file, 7, nullptr, nullptr));
    EXPECT_EQ(kivCS2CaptionFile_writeCaptions(&rising.file, 7, nullptr, nullptr),
              KIVCS2STATUS_INVALID_TIMECODE_ERR);
    Reading risen{rising.text()};
    ASSERT_TRUE(risen.all().packets.size() == 1 && risen.packets[0].m_serviceCount == 1);
    EXPECT_EQ(std::memcmp(risen.packets[0].m_services, &spanish, sizeof spanish), 0);
    EXPECT_EQ(sizeof(KIVCS2CaptionWriteOptions), 56u);
}

// Eight files at eight countings in eight threads, each as if it were the only one.
TEST(CaptionWriterThreads, FilesAtTheirOwnRatesDoNotMeet)
{
    const auto roundTrip = [](KIVCS2CaptionCounting counting)
    {
        Writing writing{KIVCS2CaptionFileKind_MCC2, counting};
        for (uint32_t frame = 1500; frame < 2100; ++frame)
        {
            const KIVCS2CaptionPairs pairs{{1, 0}, {{{0x94, static_cast<uint8_t>(frame | 0x80)}}, {}}, {}};
            (void)kivCS2CaptionFile_writeCaptions(&writing.file, frame, &pairs, nullptr); // seen in the text
        }
        Reading reading{writing.text()};
        reading.all();
        std::string frames;
        for (const KIVCS2CaptionPacket &packet : reading.packets)
            frames += std::to_string(packet.m_frame) + ' ';
        return frames + reading.pairs();
    };
    const KIVCS2CaptionCounting kCountings[] = {1, 3, 4, 5, 7, 8, 9, 10};
    std::vector<std::string> alone, together(8);
    for (const KIVCS2CaptionCounting counting : kCountings)
        alone.push_back(roundTrip(counting));
    std::vector<std::thread> threads;
    for (size_t index = 0; index < 8; ++index)
        threads.emplace_back([&, index] { together[index] = roundTrip(kCountings[index]); });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(together, alone);
}
} // namespace
