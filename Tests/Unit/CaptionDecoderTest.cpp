// Captions as viewers see them: CEA-608 screens, CEA-708 windows, and golden results of real files.
#include "ArgumentCheck.h"
#include "CaptionReading.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

#include <cstring>
#include <map>

namespace
{
using kiv::test::fileText;
using kiv::test::Reading;
using namespace std::string_literals;

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
    // Pairs of field 1, one on each frame, and the end of the file.
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
    // A packet of service blocks after a byte for its header.
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
    using Row = std::tuple<const char *, std::string, std::string>;
    for (const auto &[what, pairs, words] : std::vector<Row>{
             {"pop-on", popOn("c8e9"), "[Hi]"},
             {"a code sent twice counts once, a third time again", popOn("92a1 92a1"), "[É]"},
             {"special and extended characters", popOn("9137 c875 92a5 80"), "[♪Hü]"},
             {"a background code backs up over its space", popOn("c1c2 2080 1022 43c4"), "[AB CD]"},
             {"and over a character, if there is no space", popOn("c1c2 1022 43c4"), "[A CD]"},
             {"black text likewise", popOn("c120 97ae c2"), "[A"},
             {"past column 32 the last character is replaced", "9420 94ae 94fe c1c2 43c4 4546 942c 942f",
              "[ABCF]"},
             {"mid-row codes are a space", popOn("c180 91ae c280"), "[A B]"},
             {"backspace and delete to end of row", popOn("c1c2 9421 43c4 9421 94a4"), "[AC]"},
             {"roll-up, row by row", "9425 9470 c1c2 94ad 9470 43c4 94ad", "[AB][CD]"},
             {"paint-on", "9429 9470 c1c2 942c", "[AB]"},
             {"paint-on among rows that rolled up", "9425 9470 c1c2 9429 9152 4380 942c", "[AB][C\nAB]"},
             {"text between words that roll up", "9425 9470 c1c2 942a 4380 9425 43c4 94ad", "[ABCD][C]"},
             {"field 2: a filler byte does not start extended data", "1520 1520 9770 80c1 c8e9 152f", "[Hi]"},
             {"two channels at once", "9420 94ae 9470 1c20 1cae 1c70 c1c2 9420 43c4 942f 1c2f", "[CD][AB]"},
             {"text service", "942a c1c2 94ad 43c4", "[AB][CD]"}})
    {
        SCOPED_TRACE(what);
        Decoding decoding;
        decoding.pairs(pairs);
        EXPECT_EQ(decoding.words().substr(0, words.size()), words);
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
    Decoding green; // half transparent, behind the letters
    EXPECT_EQ(green.pairs(popOn("2080 10a3 c1c2")).shown.at(0).cells.back().m_background, 0x8000FF00u);

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

// Codes of CEA-708: defining window 0 of two rows, hidden; displaying it.
const std::string kDefine = "\x98\x00\x8A\x05\x01\x1F\x11"s;
const std::string kShow = "\x89\x01";

TEST(CaptionDecoder708, WindowsShowTheirText)
{
    using Row =
        std::tuple<const char *, std::vector<std::string>, std::string>; // blocks on every second frame
    const std::string define = kDefine.substr(1), size = "\x98\x20\x8A\x05\x01";
    for (const auto &[what, blocks, words] : std::vector<Row>{
             {"define, write, display, hide", {kDefine + "Hi" + kShow, "\x8A\x01"}, "[Hi]"},
             {"hidden text is not shown", {kDefine + "Hi", "\x8C\x01"}, ""},
             {"two rows, a backspace and a column", {kDefine + "Ab\bc\r\x92\x01\004D" + kShow}, "[Ac\nD]"},
             {"G1, G2, G3 and P16", {kDefine + "\xE9\x10\x39\x10\xA0\x18\x20\xAC\x7F" + kShow}, "[é™㏄€♪]"},
             {"codes without a meaning are skipped by their lengths",
              {kDefine,
               "A\x11\101\x1F\102\103\x10\b\104\x10\201EFGHB\x10\220\002\103\104\x10\210EFGHIC" + kShow},
              "[ABC]"},
             {"toggle and clear", {kDefine + "A\x8B\x01", "\x88\001B", "\x8B\x01"}, "[A][B]"},
             {"form feed and reset", {kDefine + "A" + kShow + "\fB", "\x8F", "C"}, "[A][B]"},
             {"row by row if it scrolls on the screen",
              {kDefine + kShow + "A\rB\rC\rD", "\x8C\x01"},
              "[A\nB][C][D]"},
             {"a horizontal return if print runs down", {size + "\x05\x39" + "AB\x0E" + "C"}, "[C]"},
             {"a horizontal return if print runs left",
              {size + "\x05\x11" + "\x97\x3F\x3F\x1C\x04\fAB\x0E" + "CD"},
              "[DC]"},
             {"a control character of P16 does not end a line",
              {kDefine + "\x18\x00\nA"s + kShow},
              "[\uFFFDA]"},
             {"a pen that leaves the row that rolled",
              {kDefine + kShow + "A\rB\rC\x92\x00\x00"s + "D", "\x8C\x01"},
              "[A\nB][D\nC]"},
             {"text past the edge is lost", {size + "\x01\x11" + "ABC"}, "[AB]"},
             {"a wrapped word if the window wraps", {size + "\x01\x21" + "ABC"}, "[AB\nC]"},
             {"columns that go to the left", {size + "\x01\x39" + "AB\rCD\rEF"}, "[AC\nBD][CE\nDF]"},
             {"columns that go to the right",
              {size + "\x01\x11\x97\x00\x00\x20\x00"s + "AB\rCD"},
              "[A\nB][CA\nDB]"},
             {"rows that go down", {size + "\x01\x11\x97\x00\x00\x08\x00"s + "A\rB"}, "[A][B]"},
             {"print to the left, with a backspace",
              {size + "\x01\x11\x97\x00\x00\x1C\x00\x92\x00\x01"s + "AC\bB"},
              "[BA]"},
             {"a window made smaller", {kDefine + "ABC" + kShow, size + "\x01\x01"}, "[ABC][AB]"},
             {"two windows", {"\x99" + define + "B\x98" + define + "A\x89\x03"}, "[A][B]"},
             {"current window", {"\x99" + define + "\x98" + define + "\201B\x89\x03"}, "[B]"},
             {"cut within a code", {kDefine + "A" + kShow + "\x97\x01", "B"}, "[AB]"}})
    {
        SCOPED_TRACE(what);
        Decoding decoding;
        for (uint32_t index = 0; index < blocks.size(); ++index)
            decoding.block(1 + 2 * index, 1, blocks[index]);
        decoding.finish(20);
        EXPECT_EQ(decoding.words(), words);
    }
}

// A delay of one second at 25 frames: later codes wait, except the one that ends it.
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
    Decoding full; // 128 bytes end the delay
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

    Decoding again; // defined once more, and displayed by that
    again.block(1, 1, kDefine + "A");
    again.block(3, 1, "\x98\x20" + kDefine.substr(2));
    again.finish(20);
    ASSERT_EQ(again.words(), "[A]");
    EXPECT_EQ(again.shown[0].text.m_from, 3u);

    Decoding after; // an empty block; pen attributes keep the flashing of a colour
    after.packet(0, std::string(1, '\0') + "\x40" + static_cast<char>(1 << 5 | 17) + kDefine +
                        std::string("\x91\x7F\x00\x00\x90\x00\x00", 7) + "x" + kShow.substr(0, 1) + "\x01");
    after.finish(20);
    ASSERT_EQ(after.words(), "[x]");
    const KIVCS2CaptionCell &flashing = after.shown[0].cells[0];
    EXPECT_TRUE(flashing.m_style == KIVCS2CaptionStyle_Flash && flashing.m_colour == 0xFFFFFFFFu);
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
        {{0x20, 0xC8}, "characters  H"},
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
}

TEST(CaptionDecoderCorpus, RealFilesShowTheGoldenTexts)
{
    KIV_NEED_CORPUS();
    // File; services with the numbers of their texts; window definitions; hash of texts, times and cells.
    const std::tuple<const char *, const char *, uint64_t, uint64_t> rows[] = {
        // Of each service one window fewer is shown than is defined, and the codes at the start belong to
        // windows defined before the file.
        {"mcc/BigBuckBunny_256x144-24fps.mcc", "1:12 2:13 3:15 4:14 5:14 6:14 CC1:13 CC3:13 ", 88,
         11016305152451551415u},
        {"mcc/premiere2025-30df.mcc", "1:9 CC1:9 ", 9, 16466966216224973263u},
        {"scc/df-crlf-out-of-order.scc", "CC1:512 ", 0, 10128774093135331870u},
        {"scc/df-rollup-no-final-newline.scc", "CC1:16 ", 0, 10342306942204115089u},
        {"scc/df-short.scc", "CC1:9 ", 0, 11249917337831943548u},
        {"scc/df-simple.scc", "", 0, 14695981039346656037u},
        {"scc/ndf-crlf.scc", "CC1:3 ", 0, 6270575730994056077u},
        {"scc/ndf-overlap.scc", "CC1:1 ", 0, 16500092812345907594u},
        {"scc/ndf-tears-of-steel.scc", "CC1:76 ", 0, 1825480747177584685u}};
    for (const auto &[file, knownTexts, windows, knownHash] : rows)
    {
        SCOPED_TRACE(file);
        KIVCS2CaptionReadOptions options{};
        options.m_order = KIVCS2CaptionOrder_Frame;
        Reading reading{fileText(kiv::test::corpus() / file), options};
        Decoding decoding;
        for (const KIVCS2CaptionPacket &packet : reading.all().packets)
            EXPECT_EQ(kivCS2CaptionDecoder_feed(&decoding.decoder, &packet), KIVCS2STATUS_OK);
        KIVCS2CaptionDecoderReport report;
        EXPECT_EQ(kivCS2CaptionDecoder_getReport(&decoding.decoder, &report), KIVCS2STATUS_OK);
        EXPECT_EQ(report.m_windows, windows);
        decoding.finish(reading.packets.back().m_frame + 1);
        std::map<KIVCS2CaptionService, size_t> counts;
        kiv::test::Hash hash;
        for (const Shown &one : decoding.shown)
        {
            ++counts[one.text.m_service];
            hash.add(&one.text.m_from, 2 * sizeof one.text.m_from).add(one.words.data(), one.words.size());
            hash.add(one.cells.data(), one.cells.size() * sizeof one.cells[0]);
        }
        std::string texts;
        for (const auto &[service, count] : counts)
            texts +=
                (service < KIVCS2CaptionService_CC1 ? "" : "CC") +
                std::to_string(service < KIVCS2CaptionService_CC1 ? service
                                                                  : service - KIVCS2CaptionService_CC1 + 1) +
                ":" + std::to_string(count) + " ";
        EXPECT_EQ(texts, knownTexts);
        EXPECT_EQ(hash.value, knownHash);
    }
}

TEST(CaptionDecoderRecords, SizesAndArguments)
{
    EXPECT_TRUE(sizeof(KIVCS2CaptionServices) == 16 && sizeof(KIVCS2CaptionCell) == 20 &&
                sizeof(KIVCS2CaptionText) == 72 && sizeof(KIVCS2CaptionDecoderOptions) == 32 &&
                sizeof(KIVCS2CaptionDecoderReport) == 96);
    KIVCS2CaptionDecoder decoder{};
    const KIVCS2CaptionPacket packet{};
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2CaptionDecoder_init, "onText", &decoder, nullptr, nullptr, nullptr, nullptr),
        KIV_REQUIRES(kivCS2CaptionDecoder_feed, "decoder->m_state", &decoder, &packet),
        KIV_REQUIRES(kivCS2CaptionDecoder_free, "decoder", nullptr),
        KIV_REQUIRES(kivCS2CaptionDecoder_describePair, "buffer", 0x94, 0x20, nullptr),
    });
}
} // namespace
