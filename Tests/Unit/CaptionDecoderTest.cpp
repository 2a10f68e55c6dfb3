// Captions as a viewer sees them: CEA-608 screens, CEA-708 windows, and what is known of real files.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

#include <cstring>
#include <map>

namespace
{
using kiv::test::fileText;
using kiv::test::Reading;

struct Shown
{
    KIVCS2CaptionText text;
    std::string words;
    std::vector<KIVCS2CaptionCell> cells;
};

struct Decoding
{
    KIVCS2CaptionDecoder decoder{};
    std::vector<Shown> shown;

    explicit Decoding(bool screens = false, const KIVCS2CaptionServices *services = nullptr)
    {
        KIVCS2CaptionDecoderOptions options{};
        options.m_screens = screens;
        options.m_counting = KIVCS2CaptionCounting_25;
        const auto onText = [](const KIVCS2CaptionText *text, void *context)
        {
            static_cast<Decoding *>(context)->shown.push_back(
                {*text, text->m_text, {text->m_cells, text->m_cells + text->m_cellCount}});
            return KIVCS2Status{KIVCS2STATUS_OK};
        };
        EXPECT_EQ(kivCS2CaptionDecoder_init(&decoder, services, &options, onText, this), KIVCS2STATUS_OK);
    }
    Decoding(const Decoding &) = delete;
    Decoding &operator=(const Decoding &) = delete;
    ~Decoding()
    {
        EXPECT_EQ(kivCS2CaptionDecoder_free(&decoder), KIVCS2STATUS_OK);
    }
    // Pairs of field 1, one a frame, and the end of the file.
    Decoding &pairs(std::string_view words)
    {
        Reading reading{"Scenarist_SCC V1.0\n\n00:00:00:00\t" + std::string{words} + "\n"};
        reading.all();
        for (const KIVCS2CaptionPacket &packet : reading.packets)
            EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoder, &packet), KIVCS2STATUS_OK);
        finish(static_cast<uint32_t>(reading.packets.size()));
        return *this;
    }
    void finish(uint32_t frame)
    {
        EXPECT_EQ(kivCS2CaptionDecoder_finish(&decoder, frame), KIVCS2STATUS_OK);
    }
    // One service block in a packet of its own at `frame`.
    void block(uint32_t frame, uint32_t service, const std::string &codes)
    {
        std::string bytes(1, '\0');
        bytes += service < 7
                     ? std::string(1, static_cast<char>(service << 5 | codes.size()))
                     : std::string{static_cast<char>(7 << 5 | codes.size()), static_cast<char>(service)};
        packet(frame, bytes + codes);
    }
    // A packet of service blocks behind a byte for its header.
    void packet(uint32_t frame, std::string bytes)
    {
        bytes.resize((bytes.size() + 1) / 2 * 2);
        bytes[0] = static_cast<char>(m_sequence++ << 6 | bytes.size() / 2);
        KIVCS2CaptionPacket packet{};
        packet.m_frame = frame;
        for (size_t at = 0; at < bytes.size(); at += 2)
        {
            uint8_t *const triplet = packet.m_triplets[packet.m_tripletCount++];
            triplet[0] = at == 0 ? 0xFF : 0xFE;
            std::memcpy(triplet + 1, &bytes[at], 2);
        }
        EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoder, &packet), KIVCS2STATUS_OK);
    }
    [[nodiscard]] std::string words() const
    {
        std::string all;
        for (const Shown &one : shown)
            all += "[" + one.words + "]";
        return all;
    }

private:
    unsigned m_sequence = 0;
};

// Loads, writes and shows a pop-on caption.
std::string popOn(const std::string &codes)
{
    return "9420 94ae 9470 " + codes + " 942c 942f";
}

TEST(CaptionDecoder608, ScreensShowWhatViewersSee)
{
    struct Row
    {
        const char *what;
        std::string pairs, words;
    };
    for (const Row &row : std::vector<Row>{
             {"pop-on", popOn("c8e9"), "[Hi]"},
             {"a code sent twice counts once, a third time again", popOn("92a1 92a1"), "[É]"},
             {"special and extended characters", popOn("9137 c875 92a5 80"), "[♪Hü]"},
             {"a background code backs up over its space", popOn("c1c2 2080 1022 43c4"), "[AB CD]"},
             {"and over a character, if there is no space", popOn("c1c2 1022 43c4"), "[A CD]"},
             {"black text likewise", popOn("c120 97ae c2"), "[A"},
             {"extended in column 32", "9420 94ae 94fe c1c2 4375 92a5 942c 942f", "[ABCü]"},
             {"behind column 32 the last character is replaced", "9420 94ae 94fe c1c2 43c4 4546 942c 942f",
              "[ABCF]"},
             {"mid-row codes are a space", popOn("c180 91ae c280"), "[A B]"},
             {"backspace and delete to end of row", popOn("c1c2 9421 43c4 9421 94a4"), "[AC]"},
             {"roll-up, row by row", "9425 9470 c1c2 94ad 9470 43c4 94ad", "[AB][CD]"},
             {"paint-on", "9429 9470 c1c2 942c", "[AB]"},
             {"paint-on among rows that rolled up", "9425 9470 c1c2 9429 9152 4380 942c", "[AB][C\nAB]"},
             {"text between words that roll up", "9425 9470 c1c2 942a 4380 9425 43c4 94ad", "[ABCD][C]"},
             {"field 2: a byte of filling is no extended data", "1520 1520 9770 80c1 c8e9 152f", "[Hi]"},
             {"text service", "942a c1c2 94ad 43c4", "[AB][CD]"}})
    {
        SCOPED_TRACE(row.what);
        Decoding decoding;
        decoding.pairs(row.pairs);
        EXPECT_EQ(decoding.words().substr(0, row.words.size()), row.words);
    }
}

TEST(CaptionDecoder608, ExtendedCharacterInColumn32ReplacesItsPlainOne)
{
    Decoding decoding;
    decoding.pairs("9420 94ae 94fe c1c2 4375 92a5 942c 942f"); // from column 29 on
    ASSERT_EQ(decoding.words(), "[ABCü]");
    ASSERT_EQ(decoding.shown[0].cells.size(), 4u);
    EXPECT_EQ(decoding.shown[0].cells[3].m_column, 31);
    EXPECT_STREQ(decoding.shown[0].cells[3].m_text, "ü");
}

TEST(CaptionDecoder608, FramesPlacesStylesAndScreens)
{
    Decoding decoding;
    decoding.pairs("9420 94ae 9152 c180 91ae 4280 942c 942f 8080 942c"); // row 1 indent 4; italics, not blue
    ASSERT_EQ(decoding.shown.size(), 1u);
    const Shown &one = decoding.shown[0];
    EXPECT_TRUE(one.text.m_from == 7 && one.text.m_until == 9 &&
                one.text.m_service == KIVCS2CaptionService_CC1 &&
                one.text.m_mode == KIVCS2CaptionMode_PopOn && one.text.m_anchorRow == 0 &&
                one.text.m_anchorColumn == 4);
    EXPECT_EQ(one.cells.front().m_colour, 0xFFFFFFFFu);
    EXPECT_EQ(one.cells.front().m_background, 0xFF000000u);

    Decoding rows{true};
    rows.pairs("9425 9470 c1c2 94ad 9470 43c4 94ad 4546");
    EXPECT_EQ(rows.words(), "[AB][AB\nCD][CD\nEF]");
    Decoding fewer{true}; // four rows, then two
    fewer.pairs("94a7 9470 c180 94ad c280 94ad 4380 9425 94ad 4480");
    EXPECT_EQ(fewer.words(), "[A][A\nB][A\nB\nC][B\nC][C\nD]");
    Decoding midnight; // between the two of a code sent twice
    KIVCS2CaptionPacket packet{};
    packet.m_tripletCount = 1;
    for (const auto &[frame, pair] : std::vector<std::pair<uint32_t, std::string>>{
             {2159996, "\x94\x20"}, {2159998, "\xC8\xE9"}, {2159999, "\x94\x2F"}, {0, "\x94\x2F"}})
    {
        packet.m_frame = frame;
        packet.m_triplets[0][0] = 0xFC;
        std::memcpy(packet.m_triplets[0] + 1, pair.data(), 2);
        ASSERT_EQ(kivCS2CaptionDecoder_feed(&midnight.decoder, &packet), KIVCS2STATUS_OK);
    }
    midnight.finish(50);
    ASSERT_EQ(midnight.words(), "[Hi]");
    EXPECT_TRUE(midnight.shown[0].text.m_from == 2159999 && midnight.shown[0].text.m_until == 50);
}

// Codes of CEA-708: window 0 of two rows, hidden; text; display. A form of each command.
const std::string kDefine{"\x98\x00\x8A\x05\x01\x1F\x11", 7};
const std::string kShow = "\x89\x01";

TEST(CaptionDecoder708, WindowsShowTheirText)
{
    struct Row
    {
        const char *what;
        std::vector<std::pair<uint32_t, std::string>> blocks; // frame and codes
        std::string words;
    };
    using std::string;
    for (const Row &row : std::vector<Row>{
             {"define, write, display, hide", {{1, kDefine + "Hi" + kShow}, {9, "\x8A\x01"}}, "[Hi]"},
             {"hidden text is not shown", {{1, kDefine + "Hi"}, {9, "\x8C\x01"}}, ""},
             {"two rows, a backspace and a column",
              {{1, kDefine +
                       "Ab\x08"
                       "c\r" +
                       string("\x92\x01\x04", 3) + "D" + kShow}},
              "[Ac\nD]"},
             {"G1, G2, G3 and P16",
              {{1, kDefine + "\xE9\x10\x39\x10\xA0" + string("\x18\x20\xAC", 3) + "\x7F" + kShow}},
              "[é™㏄€♪]"},
             {"codes without a meaning are passed over by their lengths",
              {{1, kDefine},
               {1, string("A\x11\x41\x1F\x42\x43\x10\x08\x44\x10\x81\x45\x46\x47\x48"
                          "B\x10\x90\x02\x43\x44"
                          "C",
                          22) +
                       kShow}},
              "[ABC]"},
             {"toggle and clear",
              {{1, kDefine + "A\x8B\x01"},
               {3, "\x88\x01"
                   "B"},
               {5, "\x8B\x01"}},
              "[A][B]"},
             {"form feed and reset",
              {{1, kDefine + "A" + kShow +
                       "\x0C"
                       "B"},
               {3, "\x8F"},
               {4, "C"}},
              "[A][B]"},
             {"row by row where it scrolls on the screen",
              {{1, kDefine + kShow + "A\rB\rC\rD"}, {5, "\x8C\x01"}},
              "[A\nB][C][D]"},
             {"a horizontal return where print runs down",
              {{1, string("\x98\x20\x8A\x05\x01\x05\x39") + "AB\x0E" + "C"}},
              "[C]"},
             {"a control character of P16 ends no line",
              {{1, kDefine + string("\x18\x00\x0A", 3) + "A" + kShow}},
              "[\uFFFDA]"},
             {"a pen that leaves the row that rolled",
              {{1, kDefine + kShow + "A\rB\rC" + string("\x92\x00\x00", 3) + "D"}, {5, "\x8C\x01"}},
              "[A\nB][D\nC]"},
             {"what reaches over the edge is lost",
              {{1, string("\x98\x20\x8A\x05\x01\x01\x11") + "ABC"}},
              "[AB]"},
             {"a wrapped word where the window wraps",
              {{1, string("\x98\x20\x8A\x05\x01\x01\x21") + "ABC"}},
              "[AB\nC]"},
             {"a window made smaller",
              {{1, kDefine + "ABC" + kShow}, {3, "\x98\x20\x8A\x05\x01\x01\x01"}},
              "[ABC][AB]"},
             {"two windows",
              {{1, "\x99" + kDefine.substr(1) + "B\x98" + kDefine.substr(1) + "A\x89\x03"}},
              "[A][B]"},
             {"current window",
              {{1, "\x99" + kDefine.substr(1) + "\x98" + kDefine.substr(1) +
                       "\x81"
                       "B\x89\x03"}},
              "[B]"},
             {"cut in the middle of a code", {{1, kDefine + "A" + kShow + "\x97\x01"}, {2, "B"}}, "[AB]"}})
    {
        SCOPED_TRACE(row.what);
        Decoding decoding;
        for (const auto &[frame, codes] : row.blocks)
            decoding.block(frame, 1, codes);
        decoding.finish(20);
        EXPECT_EQ(decoding.words(), row.words);
    }
}

// A delay of one second at 25 frames: what comes meanwhile waits, but for its end.
TEST(CaptionDecoder708, DelaysWait)
{
    for (const bool cancelled : {false, true})
    {
        Decoding decoding;
        decoding.block(0, 1, kDefine + "A" + kShow + "\x8D\x0A\x8A\x01");
        decoding.block(10, 1, "B");
        if (cancelled)
            decoding.block(12, 1, "\x8E");
        decoding.block(30, 1, "C");
        ASSERT_EQ(decoding.words(), "[A]");
        EXPECT_EQ(decoding.shown[0].text.m_until, cancelled ? 12u : 30u);
    }
    Decoding full; // more than 128 bytes wait no longer
    full.block(0, 1, kDefine + "A" + kShow + "\x8D\xFF\x8A\x01");
    for (uint32_t frame = 1; frame < 8; ++frame)
        full.block(frame, 1, std::string(25, 'x'));
    EXPECT_EQ(full.words(), "[A]");
}

TEST(CaptionDecoder708, PlacesStylesAndServices)
{
    KIVCS2CaptionServices services{uint64_t{1} << 63, 0, 0};
    Decoding decoding{false, &services};
    decoding.block(5, 1, kDefine + "no" + kShow);
    decoding.block(6, 63, kDefine + std::string("\x90\x00\xC0\x91\x30\x80\x00", 7) + "x" + kShow);
    KIVCS2CaptionDecoderReport report;
    ASSERT_EQ(kivCS2CaptionDecoder_getReport(&decoding.decoder, &report), KIVCS2STATUS_OK);
    EXPECT_EQ(report.m_met.m_dtvcc, uint64_t{1} << 63 | 2);
    EXPECT_TRUE(report.m_dtvccPackets == 2 && report.m_windows == 1 && report.m_dtvccBreaks == 0);
    decoding.finish(20);
    ASSERT_EQ(decoding.shown.size(), 1u);
    const KIVCS2CaptionText &text = decoding.shown[0].text;
    EXPECT_TRUE(text.m_service == 63 && text.m_anchorRelative == 1 && text.m_anchorRow == 10 &&
                text.m_anchorColumn == 5 && text.m_rows == 2 && text.m_columns == 32 && text.m_from == 6 &&
                text.m_until == 20);
    const KIVCS2CaptionCell &cell = decoding.shown[0].cells[0];
    EXPECT_EQ(cell.m_style, KIVCS2CaptionStyle_Italics | KIVCS2CaptionStyle_Underline);
    EXPECT_EQ(cell.m_colour, 0xFFFF0000u);
    EXPECT_EQ(cell.m_background, 0x80000000u);

    Decoding behind; // an empty block; attributes leave the flashing of a colour
    behind.packet(0, std::string(1, '\0') + "\x40" + static_cast<char>(1 << 5 | 17) + kDefine +
                         std::string("\x91\x7F\x00\x00\x90\x00\x00", 7) + "x" + kShow.substr(0, 1) + "\x01");
    behind.finish(20);
    ASSERT_EQ(behind.words(), "[x]");
    EXPECT_EQ(behind.shown[0].cells[0].m_style, KIVCS2CaptionStyle_Flash);
}

// Whole files on the way from their text to the viewer: what once came out empty or in another place.
TEST(CaptionDecoderFiles, OfPeersShowTheirCaptions)
{
    const std::string sample = fileText(KIV_TEST_DATA "/pop-on-25.mcc");
    const auto shown = [](const std::string &text)
    {
        Reading reading{text};
        Decoding decoding;
        for (const KIVCS2CaptionPacket &packet : reading.all().packets)
            EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoding.decoder, &packet), KIVCS2STATUS_OK);
        decoding.finish(reading.packets.empty() ? 0 : reading.packets.back().m_frame + 1);
        std::string services;
        for (const Shown &one : decoding.shown)
            services += one.text.m_service == KIVCS2CaptionService_CC1   ? "CC1 "
                        : one.text.m_service == KIVCS2CaptionService_CC3 ? "CC3 "
                                                                         : "S1 ";
        return services + decoding.words();
    };
    const std::string wanted = shown(sample);
    EXPECT_EQ(wanted.substr(0, 5), "CC1 [");
    // Every U stands for four bytes: E1 00 00 00.
    std::string four = sample;
    for (size_t at = four.find("UZC1"); at != std::string::npos; at = four.find("UZC1", at))
        four.replace(at, 4, "UC1");
    EXPECT_NE(four, sample);
    EXPECT_EQ(shown(four), wanted);
    // Blanks in front of each line.
    std::string blanks = sample;
    for (size_t at = blanks.find("\n00:"); at != std::string::npos; at = blanks.find("\n00:", at + 1))
        blanks.insert(at + 1, " ");
    EXPECT_EQ(shown(blanks), wanted);
    // Nothing but CEA-708: a window of service 1 and "A" in it.
    const KIVCS2CaptionDTVCC window{1, 10, {0x05, 0x28, 0x98, 0x20, 0x8A, 0x05, 0x01, 0x1F, 0x11, 'A'}, {}};
    KIVCS2CaptionPacket packet;
    ASSERT_EQ(kivCS2CaptionPacket_build(&packet, KIVCS2CaptionCounting_25, 0, nullptr, &window, nullptr, 0),
              KIVCS2STATUS_OK);
    std::string line = "File Format=MacCaption_MCC V1.0\n\nTime Code Rate=25\n\n00:00:00:05\t";
    for (size_t byte = 0; byte < packet.m_size; ++byte)
    {
        line += "0123456789ABCDEF"[packet.m_anc[byte] >> 4];
        line += "0123456789ABCDEF"[packet.m_anc[byte] & 15];
    }
    EXPECT_EQ(shown(line), "S1 [A]");
    // An SCC file of field 2.
    EXPECT_EQ(shown("Scenarist_SCC V1.0\n\n00:00:00:00\t1520 15ae 1570 c8e9 152c 152f\n"), "CC3 [Hi]");
    // Words of two digits in front of the text.
    EXPECT_EQ(shown("Scenarist_SCC V1.0\n\n00:00:00:00\t94 20 9420 94ae 9470 c8e9 942c 942f\n"), "CC1 [Hi]");
}

TEST(CaptionDecoderCallback, ItsFailureEndsTheCall)
{
    KIVCS2CaptionDecoder decoder;
    const auto refuse = [](const KIVCS2CaptionText *, void *)
    { return KIVCS2Status{KIVCS2STATUS_OVERFLOW_ERR}; };
    ASSERT_EQ(kivCS2CaptionDecoder_init(&decoder, nullptr, nullptr, refuse, nullptr), KIVCS2STATUS_OK);
    Reading reading{"Scenarist_SCC V1.0\n\n00:00:00:00\t9429 9470 c1c2 942c\n"};
    KIVCS2Status status = KIVCS2STATUS_OK;
    for (const KIVCS2CaptionPacket &packet : reading.all().packets)
        status = kivCS2CaptionDecoder_feed(&decoder, &packet);
    EXPECT_EQ(status, KIVCS2STATUS_OVERFLOW_ERR);
    EXPECT_EQ(kivCS2CaptionDecoder_finish(&decoder, 9), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2CaptionDecoder_free(&decoder), KIVCS2STATUS_OK);
}

TEST(CaptionDecoderDescribe, EveryKindOfPair)
{
    const std::map<std::pair<uint8_t, uint8_t>, std::string> kPairs = {
        {{0x94, 0x20}, "resume caption loading"},
        {{0x1C, 0x2F}, "end of caption (channel 2)"},
        {{0x91, 0x54}, "row 1 indent 8"},
        {{0x11, 0x73}, "row 2 indent 4, underline"},
        {{0x94, 0x70}, "row 15 indent 0"},
        {{0x91, 0x21}, "white, underline"},
        {{0x91, 0x2E}, "italics"},
        {{0x10, 0x25}, "background blue semi-transparent"},
        {{0x17, 0x2D}, "background transparent"},
        {{0x12, 0x25}, "extended character ü"},
        {{0x13, 0x20}, "extended character Ã"},
        {{0x91, 0x37}, "special character ♪"},
        {{0x11, 0x39}, "transparent space"},
        {{0x97, 0xA2}, "tab 2"},
        {{0xC8, 0x5C}, "characters Hé"},
        {{0x01, 0x03}, "extended data 01 03"},
        {{0x14, 0x30}, "unknown code 14 30"}};
    char text[KIVCS2_CAPTION_DESCRIPTION_SIZE];
    for (const auto &[pair, words] : kPairs)
    {
        EXPECT_EQ(kivCS2CaptionDecoder_describePair(pair.first, pair.second, text), KIVCS2STATUS_OK);
        EXPECT_EQ(text, words);
    }
    EXPECT_EQ(kivCS2CaptionDecoder_describePair(0x80, 0x80, text), KIVCS2STATUS_DATA_ERR);
    EXPECT_STREQ(text, "");
    for (unsigned pair = 0; pair < 0x10000; ++pair)
        (void)kivCS2CaptionDecoder_describePair(static_cast<uint8_t>(pair >> 8), static_cast<uint8_t>(pair),
                                                text);
}

// Stretches of one row in one style.
size_t runsOf(const std::vector<KIVCS2CaptionCell> &cells)
{
    const auto differ = [](const KIVCS2CaptionCell &a, const KIVCS2CaptionCell &b)
    {
        return a.m_row != b.m_row || a.m_style != b.m_style || a.m_colour != b.m_colour ||
               a.m_background != b.m_background;
    };
    size_t runs = cells.empty() ? 0 : 1;
    for (size_t cell = 1; cell < cells.size(); ++cell)
        runs += differ(cells[cell - 1], cells[cell]) ? 1 : 0;
    return runs;
}

struct Known
{
    size_t texts, runs;
    uint64_t windows; // definitions
    bool operator==(const Known &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Known &known)
{
    return out << known.texts << ' ' << known.runs << ' ' << known.windows;
}
using KnownServices = std::map<KIVCS2CaptionService, Known>;

KIVCS2CaptionServices only(KIVCS2CaptionService service)
{
    if (service <= KIVCS2CaptionService_S63)
        return {uint64_t{1} << service, 0, 0};
    return {0, 1u << (service - KIVCS2CaptionService_CC1), 0};
}

// Each service of its own, which counts its windows; `hash` is of all texts.
KnownServices decodeEach(const Reading &reading, const std::vector<KIVCS2CaptionService> &services,
                         uint64_t &hash)
{
    kiv::test::Hash texts;
    KnownServices found;
    for (const KIVCS2CaptionService service : services)
    {
        const KIVCS2CaptionServices wanted = only(service);
        Decoding decoding{false, &wanted};
        for (const KIVCS2CaptionPacket &packet : reading.packets)
            EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoding.decoder, &packet), KIVCS2STATUS_OK);
        decoding.finish(reading.packets.back().m_frame + 1);
        Known known{decoding.shown.size(), 0, 0};
        for (const Shown &one : decoding.shown)
        {
            EXPECT_EQ(one.text.m_service, service);
            known.runs += runsOf(one.cells);
            texts.add(&one.text.m_from, 2 * sizeof one.text.m_from).add(one.words.data(), one.words.size());
        }
        KIVCS2CaptionDecoderReport report;
        EXPECT_EQ(kivCS2CaptionDecoder_getReport(&decoding.decoder, &report), KIVCS2STATUS_OK);
        known.windows = report.m_windows;
        found[service] = known;
    }
    hash = texts.value;
    return found;
}

TEST(CaptionDecoderCorpus, RealFilesShowWhatIsKnownOfThem)
{
    KIV_NEED_CORPUS();
    const uint32_t cc1 = KIVCS2CaptionService_CC1, cc3 = KIVCS2CaptionService_CC3;
    struct Row
    {
        const char *file;
        KnownServices services; // all that it has
        uint64_t hash;
    };
    // Of each service of the first file one window fewer is shown than is defined: the last is written, but
    // not yet displayed where the file ends. What the file opens with belongs to windows defined before it.
    const std::vector<Row> rows = {
        {"mcc/BigBuckBunny_256x144-24fps.mcc",
         {{1, {12, 20, 13}},
          {2, {13, 27, 14}},
          {3, {15, 37, 16}},
          {4, {14, 38, 15}},
          {5, {14, 35, 15}},
          {6, {14, 25, 15}},
          {cc1, {13, 22, 0}},
          {cc3, {13, 30, 0}}},
         6506869469305100421u},
        {"mcc/premiere2025-30df.mcc", {{1, {9, 15, 9}}, {cc1, {9, 15, 0}}}, 5729115743643262149u},
        {"scc/df-crlf-out-of-order.scc", {{cc1, {512, 800, 0}}}, 6568763678347347514u},
        {"scc/df-rollup-no-final-newline.scc", {{cc1, {16, 20, 0}}}, 5285436152913560472u},
        {"scc/df-short.scc", {{cc1, {9, 13, 0}}}, 15251875109687067503u},
        {"scc/df-simple.scc", {{cc1, {0, 0, 0}}}, 14695981039346656037u},
        {"scc/ndf-crlf.scc", {{cc1, {3, 5, 0}}}, 13830968673575303497u},
        {"scc/ndf-overlap.scc", {{cc1, {1, 2, 0}}}, 14235987555428827915u},
        {"scc/ndf-tears-of-steel.scc", {{cc1, {76, 83, 0}}}, 8161667877043704550u}};
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.file);
        KIVCS2CaptionReadOptions options{};
        options.m_order = KIVCS2CaptionOrder_Frame;
        Reading reading{fileText(kiv::test::corpus() / row.file), options};
        reading.all();
        std::vector<KIVCS2CaptionService> services;
        size_t texts = 0;
        for (const auto &[service, known] : row.services)
        {
            services.push_back(service);
            texts += known.texts;
        }
        uint64_t hash = 0;
        EXPECT_EQ(decodeEach(reading, services, hash), row.services);
        EXPECT_EQ(hash, row.hash);
        Decoding all;
        for (const KIVCS2CaptionPacket &packet : reading.packets)
            EXPECT_EQ(kivCS2CaptionDecoder_feed(&all.decoder, &packet), KIVCS2STATUS_OK);
        all.finish(reading.packets.back().m_frame + 1);
        EXPECT_EQ(all.shown.size(), texts);
    }
}

TEST(CaptionDecoderRecords, SizesAndArguments)
{
    EXPECT_EQ(sizeof(KIVCS2CaptionServices), 16u);
    EXPECT_EQ(sizeof(KIVCS2CaptionCell), 20u);
    EXPECT_EQ(sizeof(KIVCS2CaptionText), 72u);
    EXPECT_EQ(sizeof(KIVCS2CaptionDecoderOptions), 32u);
    EXPECT_EQ(sizeof(KIVCS2CaptionDecoderReport), 96u);
    KIVCS2CaptionDecoder decoder{};
    const KIVCS2CaptionPacket packet{};
    const KIVCS2Status refused = KIVCS2STATUS_PARAM_ERR;
    kiv::test::expectAllRefused({
        KIV_REFUSES(refused, kivCS2CaptionDecoder_init, "onText", &decoder, nullptr, nullptr, nullptr,
                    nullptr),
        KIV_REFUSES(refused, kivCS2CaptionDecoder_feed, "decoder->m_state", &decoder, &packet),
        KIV_REFUSES(refused, kivCS2CaptionDecoder_free, "decoder", nullptr),
        KIV_REFUSES(refused, kivCS2CaptionDecoder_describePair, "buffer", 0x94, 0x20, nullptr),
    });
}
} // namespace
