// kivcs2 as a user runs it: files, packets, tables and texts.
#include "Terminal.h"

#include <cstdio>
#include <set>

namespace
{

using namespace kiv::test;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kSCC = "Scenarist_SCC V1.0\n\n";

std::string pairs(size_t number)
{
    std::string text;
    for (size_t index = 0; index < number; ++index)
        text += (index > 0 ? " " : "") + std::string{index % 2 == 0 ? "c1c2" : "4343"};
    return text;
}

// ---- words, exit codes, one-line errors ----

TEST_F(Command, AnswersSmallQuestions)
{
    expect({
        {"--version", 0, "kivcs2 "},
        {"--help", 0, "Exit codes: 0 yes, 1 no"},
        {"caption convert --help", 0, "--sparse"},
        {"", 2, "subcommand"},
        {"nonsense", 2, "nonsense"},
        {"tc nonsense", 2, "unknown word \"nonsense\""},
        {"tc show 10:00:00:00 --bogus", 2, "--bogus"},
        {"tc show 00:01:00;02", 0, "Frames since midnight  1800\n"},
        {"tc show 00:01:00;02", 0, "drop-frame (because of \";\")"},
        {"tc show 00:01:00:00", 0, "non-drop (no --rate given)"},
        {"tc show 00:01:00:02 --rate 29.97", 0, "1802"},
        {"tc show 00:01:00:02 --rate 29.97df", 0, "1800"},
        {"tc show 00:01:00;00", 3, "names no frame"},
        {"tc show 00:01:00;02 --rate 25", 2, "drops no frame numbers"},
        {"tc show 10:00", 3, "not a timecode"},
        {"tc show '31.2.2024 10:00:00:00'", 3, "the month is shorter"},
        {"tc add 23:59:59:24 1 --rate 25", 0, "00:00:00:00"},
        {"tc add '28.2.2024 23:59:59:24' 1 --rate 25", 0, "29.2.2024 00:00:00:00"},
        {"tc sub 00:00:00:00 1 --rate 25", 0, "23:59:59:24"},
        {"tc add 10:00:00:00 90m --rate 25", 0, "11:30:00:00"},
        {"tc add 10:00:00:00 1h30m", 0, "11:30:00:00"},
        {"tc add 10:00:00;00 1.5h 10m", 0, "11:40:00;00"},
        {"tc add 23:00:00;00 1m --json", 0, "\"timecode\": \"23:00:59;28\""},
        {"tc add 23:00:00:00 1d2h --rate 24", 0, "Day                    2 days later"},
        {"tc add 23:59:59:24 1 --rate 25", 0, "Day                    the next day"},
        {"tc sub 00:00:00;00 1 --json", 0, "\"days\": -1"},
        {"tc add 10:00:00:00 1m1h --rate 25", 3, "not a timecode"},
        {"tc diff 00:00:59;29 00:01:00;02", 0, "Frames      1\n"},
        {"tc diff '2.1.2024 01:00:00:00' '31.12.2023 23:00:00:00' --rate 25", 0, "Frames      -2340000\n"},
        {"tc diff 00:00:00;00 00:00:00:00", 2, "counted differently"},
        {"tc convert 10:00:00:00 --rate 24 --to 23.98", 0, "09:59:24:01"},
        {"tc convert 01:00:00;00 --to 25 --keep-digits", 0, "01:00:00:00"},
        {"tc show 2147483647", 0, "19884:06:28:07"},
        {"tc show 2147483648", 3, "more frames than a timecode holds"},
        {"tc show 30000000 --json", 0, "\"bcd\": null"},
        {"tc bcd 12:34:56:12 --rate 25", 0, "0x12345612"},
        {"tc bcd 0x12345612 --rate 25", 0, "12:34:56:12"},
        {"tc bcd 0x1234561f", 3, "no decimal digit"},
        {"tc date @1710000000.48 --rate 25", 0, "2024-03-09T16:00:00.480Z"},
        {"tc date @1710000000.48 --rate 25 --json", 0, "\"framesEarlier\": 0"},
        {"tc date @1710000000.5 --rate 29.97df", 0, "2 earlier than the one that has begun"},
        {"tc date @1710000060.5 --rate 59.94df", 0, "2 later than the one that has begun"},
        {"tc date @1710000000.0333334 --rate 30 --json", 0, "\"framesEarlier\": 1"},
        {"tc date @1710000000.9996 --rate 24 --json", 0, "\"framesEarlier\": 0"},
        {"tc date now", 0, "Unix time"},
        {"tc date 10:00:00:00", 2, "without a date"},
        {"tc date @12x", 3, "no seconds since 1970"},
        {"tc date @1e12", 3, "no seconds since 1970"},
        {"tc date @-62168000000", 3, "before the year 1"},
        {"rate 29.97", 0, "29.97df   30000/1001     2589408  2 a minute"},
        {"rate 31", 2, "unknown rate"},
        {"format 1080p59.94a", 0, "0x54102601"},
        {"format 0x54222701", 0, "1080p60b RGBA"},
        {"format 1080p61", 1, "KIVCS2STATUS_VIDEO_FORMAT_ERR 0x80000031"},
        {"status 0x8000000b", 0, "KIVCS2STATUS_CAPTION_ERR 0x8000000b"},
        {"status caption_err", 0, "0x8000000b"},
        {"status 0x12345678", 1, "no status"},
        {"json 'name=clean feed' n:int=-5 r:float=1.5 on:bool=true n:int=7 \xc3\xa9=\xc3\xbc", 0,
         "{\"name\" : \"clean feed\", \"n\" : 7, \"r\" : 1.500000, \"on\" : 1, \"\xc3\xa9\" : "
         "\"\xc3\xbc\"}\n"},
        {"json a=\"b", 3, "would make no JSON"},
        {"json a=\xff", 3, "not valid utf8"},
        {"json a", 2, "no \"=\""},
        {"json a:int=2147483648", 2, "does not fit the 32 bits"},
        {"json a:int=+5", 2, "no integer"},
        {"json a:float=inf", 2, "finite"},
        {"json a:bool=1", 2, "neither true nor false"},
        {"caption decode 942c c8e9 9137 91ae 92a1", 0, "erase displayed memory"},
        {"caption decode 942c94", 3, "four hexadecimal digits"},
        {"caption info /nowhere.scc", 4, "kivcs2: /nowhere.scc: No such file or directory\n"},
        {"caption info /tmp", 4, "Is a directory"},
        {"crc /nowhere", 4, "No such file"},
        {"cdp parse --hex 96694B", 3, "not a CDP (KIVCS2STATUS_FORMAT_ERR"},
        {"cdp parse --hex 41040201034B", 3, "another kind, without captions"},
        {"cdp build --field1 942", 3, "not a pair of four hexadecimal digits"},
        {"caption info '/no\nwhere.scc'", 4, "/no\\x0awhere.scc: No such file"},
        {"caption info /\xc2\x9b\xc3\xa9\xff.scc", 4, "/\\xc2\\x9b\xc3\xa9\\xff.scc: No such file"},
        {"caption info ''", 4, "\"\": No such file"},
        {"cdp build --sequence 65536", 2, "sequence"},
        {"cdp build --binary --json", 2, "give one of them"},
        {"cdp parse " KIV_EXAMPLE_SCC " --hex 9669", 2, "--hex"},
    });
    const Result passes = enter("json a=b --passes");
    EXPECT_EQ(passes.out, "{\"a\" : \"b\"}\n");
    EXPECT_THAT(passes.err, HasSubstr("measured 15 bytes, wrote 11 bytes"));
}

TEST_F(Command, GoesFromADatedTimecodeToItsMomentAndBack)
{
    for (const std::string text : {"15.3.2024 10:00:00:12", "31.12.1999 23:59:59:24", "1.1.1500 00:00:00:00"})
    {
        const Json there = document("tc date '" + text + "' --rate 25");
        EXPECT_EQ(document("tc date @" + there.at("unixSeconds").dump() + " --rate 25"), there);
        EXPECT_EQ(there.at("timecode"), text);
    }
}

TEST_F(Command, KnowsEveryStatusOfTheHeader)
{
    std::istringstream header{slurp(KIV_BASE_HEADER)};
    const Json known = document("status");
    size_t count = 0;
    std::string previous;
    for (std::string word; header >> word; previous = word)
    {
        if (previous != "#define" || !word.starts_with("KIVCS2STATUS_"))
            continue;
        std::string value;
        header >> value;
        if (value == "\\")
            header >> value;
        ASSERT_LT(count, known.size());
        EXPECT_EQ(known[count]["name"], word);
        EXPECT_EQ(known[count]["value"].get<std::string>() + "u", value);
        ++count;
    }
    EXPECT_EQ(count, known.size());
    EXPECT_GT(count, 50u);
    EXPECT_EQ(document("format").size(), 75u);
}

// ---- captions ----

TEST_F(Command, ConvertsVerifiesAndShowsTheExample)
{
    const Json report = document("caption convert " KIV_EXAMPLE_SCC " out.mcc");
    EXPECT_EQ(report["in"], (Json{{"kind", "SCC"},
                                  {"lines", 11},
                                  {"emptyPairs", 0},
                                  {"pairs", 163},
                                  {"captions", 7},
                                  {"services", {{"CC1", 7}}}}));
    EXPECT_EQ(report["out"], (Json{{"kind", "MCC 1"},
                                   {"version", 1},
                                   {"packets", 1920},
                                   {"pairs", 163},
                                   {"captions", 7},
                                   {"emptyPackets", 1757}}));
    EXPECT_EQ(enter("caption verify out.mcc --against " KIV_EXAMPLE_SCC).code, 0);

    // What a viewer sees is the same before and after.
    const std::string shown = enter("caption show out.mcc --captions").out;
    EXPECT_EQ(enter("caption show " KIV_EXAMPLE_SCC " --captions").out, shown);
    for (const std::string &caption :
         {std::string{"01:00:11;26  01:00:14;07  CC1  roll-up  >> It is a señal of hope, café\n"},
          "01:00:00;27  01:00:04;03  CC1  pop-on   GOOD EVENING.\n" + std::string(40, ' ') +
              "HERE IS THE NEWS AT TEN.\n",
          std::string{"01:00:58;24  01:01:04;00  CC1  paint-on Weather: dry until noon,\n"}})
        EXPECT_THAT(shown, HasSubstr(caption));
    EXPECT_THAT(enter("caption at out.mcc 01:00:00;27").out, HasSubstr("end of caption"));
    EXPECT_EQ(enter("caption at out.mcc 02:00:00;00").code, 1);

    // Every frame of a continuous file has one line; a sparse one has the pairs' frames only.
    EXPECT_EQ(document("caption convert " KIV_EXAMPLE_SCC " sparse.mcc --sparse")["out"]["packets"], 163);
    EXPECT_EQ(enter("caption verify sparse.mcc --against " KIV_EXAMPLE_SCC).code, 0);

    // Version 1 to 2 keeps every packet and the header's texts.
    EXPECT_EQ(document("caption convert out.mcc second.mcc --to mcc2")["out"]["version"], 2);
    EXPECT_EQ(enter("caption verify second.mcc --against out.mcc").code, 0);
    EXPECT_EQ(document("caption info second.mcc")["version"], 2);
    EXPECT_EQ(document("caption info second.mcc")["uuid"], document("caption info out.mcc")["uuid"]);
}

// Version 2 tells the fields and packets of one frame apart by suffixes; version 1 has none.
TEST_F(Command, KeepsTheSuffixesOfVersion2)
{
    write("in.scc", kSCC + "00:00:01;00\tc1c2 c1c2\n");
    ASSERT_EQ(enter("caption convert in.scc once.mcc --mcc-version 2").code, 0);
    std::string text = slurp(path("once.mcc"));
    text.replace(text.find("00:00:01:00\t"), 12, "00:00:01:00.0,7\t");
    text.replace(text.find("00:00:01:01\t"), 12, "00:00:01:00.1,8\t");
    write("once.mcc", text);

    expect({{"caption info once.mcc", 0, "MCC version 2.0"},
            {"caption info once.mcc", 0, "2 lines with a field or number"},
            {"caption verify once.mcc", 0}});
    EXPECT_EQ(document("caption convert once.mcc again.mcc")["in"]["version"], 2);
    EXPECT_THAT(slurp(path("again.mcc")), HasSubstr("\n00:00:01:00.1,8\t"));
    const Result first = enter("caption convert once.mcc again.mcc --mcc-version 1");
    EXPECT_EQ(first.code, 3);
    EXPECT_THAT(first.err, HasSubstr("which version 1 cannot hold"));
}

TEST_F(Command, WorksThroughStandardInputAndOutput)
{
    const std::string source = slurp(KIV_EXAMPLE_SCC);
    const Result mcc = enter("caption convert - -", source);
    ASSERT_EQ(mcc.code, 0) << mcc.err;
    EXPECT_THAT(mcc.out, StartsWith("File Format=MacCaption_MCC V1.0\n"));
    EXPECT_THAT(mcc.err, HasSubstr("Out       MCC 1: 1920 packets, 163 pairs, 7 captions"));
    EXPECT_EQ(parseJson(enter("caption convert - - --json", source).err)["out"]["packets"], 1920);
    EXPECT_EQ(enter("caption verify - --against " KIV_EXAMPLE_SCC, mcc.out).code, 0);
    expect({{"caption info -", 0, "1920, of them 1920"}}, mcc.out);
    expect({{"crc -", 0, "cbf43926      9  -\n"}}, "123456789");
}

// No line of a file is lost, whatever its timecode.
TEST_F(Command, AccountsForEveryPair)
{
    struct Row
    {
        const char *name;
        std::string lines;
        int pairs, delayed, backwards, same;
    };
    const std::vector<Row> rows = {
        {"a byte-order mark, comments, upper case, CR LF, blanks, no last line end",
         "// a comment\n00:00:01;00\tC1C2 \r\n\r\n00:00:02;00\t4343", 2, 0, 0, 0},
        {"overlapping", "00:00:01;00\t" + pairs(40) + "\n\n00:00:02;00\tc1c2 4343\n", 42, 2, 0, 0},
        {"back in time", "00:00:09;00\tc1c2\n\n00:00:01;00\t4343 c1c2\n", 3, 0, 1, 0},
        {"same timecode", "00:00:01;00\tc1c2\n\n00:00:01;00\t4343\n", 2, 1, 0, 1},
        {"more pairs than a record holds", "00:00:01;00\t" + pairs(300) + "\n\n00:00:30;00\tc1c2\n", 301, 0,
         0, 0},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.name);
        write("in.scc", (row.delayed == 0 ? "\xEF\xBB\xBF" : "") + kSCC + row.lines);
        const Json report = document("caption convert in.scc out.mcc");
        EXPECT_EQ(report["in"]["pairs"], row.pairs);
        EXPECT_EQ(report["out"]["pairs"], row.pairs);
        EXPECT_EQ(report["delayedPairs"], row.delayed);
        EXPECT_EQ(report["linesBackInTime"], row.backwards);
        EXPECT_EQ(report["linesWithSameTimecode"], row.same);
        EXPECT_EQ(enter("caption verify out.mcc --against in.scc").code, 0);
    }
}

TEST_F(Command, CountsAsTheFileSays)
{
    const struct
    {
        std::string separator, options, rate; ///< "Time Code Rate="
        const char *cdpRate;                  ///< of the packets
    } rows[] = {
        {";", "", "30DF", "29.97"},
        {":", "", "30", "29.97"},
        {":", " --rate 29.97df", "30DF", "29.97"},
        {":", " --rate 30", "30", "30"},
        {":", " --rate 25", "25", "25"},
        {":", " --rate 24", "24", "24"},
        {":", " --rate 23.98", "24", "23.98"},
    };
    for (const auto &row : rows)
    {
        write("in.scc", kSCC + "00:00:01" + row.separator + "02\tc1c2\n");
        ASSERT_EQ(enter("caption convert in.scc out.mcc" + row.options).code, 0) << row.cdpRate;
        EXPECT_THAT(slurp(path("out.mcc")), HasSubstr("Time Code Rate=" + row.rate + "\n"));
        EXPECT_EQ(document("caption info out.mcc")["cdpFrameRate"], row.cdpRate);
        EXPECT_EQ(enter("caption verify out.mcc").code, 0);
    }
    // Line 21 has one pair a frame only up to 30 frames a second: another rate has to be asked for.
    const char *const error = "the rates from 23.98 to 30 can be written";
    expect({{"caption convert in.scc x.mcc --rate 50", 2, error},
            {"caption convert in.scc x.mcc --rate 59.94", 2, error},
            {"caption convert in.scc x.mcc --rate 60", 2, error}});
}

// What is lost is told with its place, and nothing is written unless the rest is asked for.
TEST_F(Command, NamesWhatIsLost)
{
    const std::string mcc = "File Format=MacCaption_MCC V1.0\n\nTime Code Rate=25\n\n";
    const std::string good = "00:00:09;00\tc1c2\n";
    struct Row
    {
        std::string lines;
        const char *what;
        int lines_, pairs_, parts_; ///< lost; -1: nothing is left to write
    };
    const std::vector<Row> rows = {
        {kSCC + "00:61:00;00\tc1c2\n" + good, ":3: no such time in column 1", 1, 0, 0},
        {kSCC + "00:00:01;00\tc1c2,4343\n" + good, ":3: unknown character in column 17, \",\"", 1, 0, 0},
        {kSCC + "00:00:01;00\tc1c2 43 c1c2\n", ":3: word length in column 18, \"43\"", 0, 1, 0},
        {kSCC + "00:00:01;00\tc1c2 9420942f c1c2\n", ":3: word of two tracks in column 18", 0, 0, 1},
        {kSCC + "00:00:01;00\t" + pairs(300) + "x\n" + good, ":3: unknown character", 1, 0, 0},
        {kSCC + good + "nothing here\n", ":4: not a caption in column 1, \"nothing here\"", 1, 0, 0},
        {kSCC, ": holds no captions", -1, 0, 0},
        {"\xFF\xFES\0c\0", ":1: other encoding", -1, 0, 0},
        {"", ":1: not a caption file in column 1; expected an SCC or MCC file (KIVCS2STATUS_HEADER_ERR", -1,
         0, 0},
        {std::string(300000, 'x'), ":1: not a caption file", -1, 0, 0},
        {"File Format=MacCaption_MCC V1.0\n\n00:00:01:00\tT5252\n", ":3: rate missing", -1, 0, 0},
        {mcc + "00:00:01:00\tT5x2\n", ":5: unknown character", -1, 0, 0},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.what);
        write("in.scc", row.lines);
        const Result result = enter("caption convert in.scc out.mcc");
        EXPECT_EQ(result.code, 3);
        EXPECT_THAT(result.err, HasSubstr("kivcs2: in.scc" + std::string{row.what}));
        EXPECT_THAT(files(), testing::ElementsAre("in.scc")); // no target, no half-written file
        const Json rest = document("caption convert in.scc out.mcc --keep-going", row.lines_ < 0 ? 3 : 0);
        if (row.lines_ < 0)
            continue;
        EXPECT_EQ(rest["lost"], (Json{{"lines", row.lines_}, {"pairs", row.pairs_}, {"parts", row.parts_}}));
        EXPECT_EQ(rest["faults"].at(0)["lost"], true);
        EXPECT_EQ(enter("caption verify out.mcc").code, 0);
        fs::remove(path("out.mcc"));
    }
    write("in.scc", kSCC + "00:00:01;00\tc1c2,\n" + good);
    EXPECT_EQ(document("caption info in.scc", 3)["malformedLines"], 1);
}

// Some writers put blanks in front of their caption lines; such a file is read, and nothing is no success.
TEST_F(Command, ReadsIndentedPacketsAndNeverSucceedsOverNothing)
{
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " plain.mcc").code, 0);
    std::string text = slurp(path("plain.mcc"));
    const size_t lines = text.find("\n01:");
    const std::string header = text.substr(0, lines);
    EXPECT_THAT(header, HasSubstr("// U E1h 00h 00h")); // the format's own text stays
    EXPECT_THAT(text.substr(lines), Not(HasSubstr("U")));
    EXPECT_THAT(text.substr(lines), HasSubstr("91E1ZZ"));
    for (size_t at = lines; (at = text.find("\n01:", at)) != std::string::npos; at += 3)
        text.insert(at + 1, at % 2 == 0 ? "  " : " \t");
    write("indented.mcc", text);
    EXPECT_EQ(document("caption info indented.mcc")["packets"], 1920);
    EXPECT_EQ(enter("caption verify indented.mcc --against " KIV_EXAMPLE_SCC).code, 1); // blanks in front
    EXPECT_EQ(document("caption convert indented.mcc again.mcc")["out"]["packets"], 1920);

    write("head.mcc", header + "\n");
    write("head.scc", kSCC);
    write("note.mcc", header + "\n a note\n");
    for (const std::string nothing : {"head.mcc", "head.scc", "note.mcc"})
        for (const std::string &line : {"info " + nothing, "show " + nothing, "show --captions " + nothing,
                                        "at " + nothing + " 00:00:00:00", "convert " + nothing + " out.mcc",
                                        "convert --keep-going " + nothing + " out.mcc"})
        {
            const Result result = enter("caption " + line);
            EXPECT_EQ(result.code, 3) << line;
            EXPECT_THAT(result.err, HasSubstr("holds no captions"));
        }
    write("bad.mcc", header + "\n01:00:00:00\tT52x\n");
    EXPECT_EQ(enter("caption convert bad.mcc out.mcc --keep-going").code, 3);
    EXPECT_FALSE(fs::exists(path("out.mcc")));
}

// From SCC to each kind, and back without a pair on another frame.
TEST_F(Command, WritesEachKindAndReadsItBack)
{
    const auto convert = [&](const std::string &line) { return document("caption convert " + line); };
    const auto packets = [&](const char *name)
    {
        const std::string file = slurp(path(name));
        return file.substr(file.find("\n\n01:"));
    };
    EXPECT_EQ(convert(KIV_EXAMPLE_SCC " a.MCC")["out"]["kind"], "MCC 1");
    EXPECT_EQ(convert(KIV_EXAMPLE_SCC " a.scc")["out"]["pairs"], 163);
    EXPECT_EQ(convert("a.MCC b.scc")["out"]["captions"], 7);
    EXPECT_EQ(convert("b.scc b.mcc")["out"]["packets"], 1920);
    EXPECT_TRUE(packets("b.mcc") == packets("a.MCC"));
    convert("a.MCC c.mcc");
    EXPECT_TRUE(slurp(path("c.mcc")) == slurp(path("a.MCC"))); // there was nothing to repair
    EXPECT_EQ(convert("a.MCC d --to Mcc2")["out"]["version"], 2);
    EXPECT_EQ(convert("a.MCC e.srt")["out"]["captions"], 7);
    EXPECT_THAT(slurp(path("e.srt")), HasSubstr("1\n01:00:00,897 --> 01:00:04,101\n"));
    EXPECT_EQ(convert("a.MCC e.vtt --time-zero 01:00:00:00")["service"], "CC1");
    EXPECT_THAT(slurp(path("e.vtt")), StartsWith("WEBVTT\n\n00:00:00.901 --> 00:00:04.104"));
    EXPECT_EQ(enter("caption convert a.MCC /dev/null").code, 0); // a place has no kind
    const size_t before = files().size();
    for (const std::string line : {"b", "b.mcc.txt", ".mcc", "x.scc --mcc-version 1", "x.mcc --service CC1",
                                   "x.srt --service CC1,CC2", "x.mcc --sparse", "x.mcc --fix-parity"})
        EXPECT_EQ(enter("caption convert a.MCC " + line).code, 2) << line;
    EXPECT_EQ(files().size(), before);
}

// To the same kind everything comes out as the format wants it, and each change is told.
TEST_F(Command, RepairsAFileAndSaysWhatItChanged)
{
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " good.mcc").code, 0);
    std::string mcc = slurp(path("good.mcc"));
    for (const auto &[from, to] : {std::pair{"UUID=", "Nobody=knows\nUUID="},
                                   {"\n01:00:00:00\tT52S", "\n01:00:00:00  t52s"},
                                   {"\n01:00:00:01\t", "\n01:00:00.01\t"}})
        mcc.replace(mcc.find(from), std::strlen(from), to);
    struct Row
    {
        std::string kind, text;
        std::vector<std::string> changes;
        std::string made;
    };
    const std::vector<Row> rows = {
        {"scc",
         "\xEF\xBB\xBF\nscenarist_scc v1.0\n 00:00:09.02  c1c2\n00:01:00;00\t4343\n00:00:01;00\tc1c2 4343\n",
         {"byte-order mark", "blanks before header", "header case", "back in time", "blanks before timecode",
          "frame separator", "blanks before data", "dropped number"},
         kSCC + "00:00:01;00\tc1c2 4343\n\n00:00:09;02\tc1c2\n\n00:01:00;02\t4343\n"},
        {"mcc",
         mcc,
         {"unknown header line", "blanks before data", "lower case", "frame separator"},
         slurp(path("good.mcc"))},
    };
    for (const Row &row : rows)
    {
        write("in", row.text);
        const Result told = enter("caption convert in out --to " + row.kind);
        EXPECT_EQ(told.code, 0);
        std::multiset<std::string> changes;
        const Json report = document("caption convert in out --to " + row.kind);
        for (const Json &fault : report["faults"])
            if (!fault["changedTo"].is_null())
                changes.insert(fault["name"].get<std::string>());
        EXPECT_THAT(changes, testing::UnorderedElementsAreArray(row.changes));
        for (const std::string &change : row.changes)
            EXPECT_THAT(told.err, testing::ContainsRegex(":[0-9]+: changed: " + change));
        EXPECT_TRUE(slurp(path("out")) == row.made) << row.kind;
        // Where nothing is written nothing has changed.
        write("in", row.text + "bad\n");
        const Result refused = enter("caption convert in out --to " + row.kind);
        EXPECT_EQ(refused.code, 3);
        EXPECT_THAT(refused.err, Not(HasSubstr("changed:")));
    }
}

// A field keeps its number, SCC takes one of two, and SRT one service; what is left out is told.
TEST_F(Command, KeepsTheFieldAndTakesOneService)
{
    const std::string one = kSCC + "00:00:01;00\t1520 c1c2 152f\n\n00:00:02;00\t152c\n";
    write("one.scc", one);
    write("two.scc", kSCC + "00:00:01;00\t94201520 c1c24343 942f152f\n\n00:00:02;00\t942c152c\n");
    write("pal.scc", kSCC + "00:00:01:00\t9420\n");
    ASSERT_EQ(enter("caption convert one.scc x.mcc").code, 0);
    EXPECT_EQ(document("caption convert x.mcc x.srt")["service"], "CC3");
    const Result none = enter("caption convert x.mcc x.scc"); // field 1
    EXPECT_EQ(none.code, 3);
    EXPECT_THAT(none.err, HasSubstr("--field 2 takes the other"));
    EXPECT_FALSE(fs::exists(path("x.scc")));
    EXPECT_EQ(enter("caption convert x.mcc x.scc --field 2").code, 0);
    EXPECT_EQ(slurp(path("x.scc")), one);

    ASSERT_EQ(enter("caption convert two.scc x.mcc --both-tracks").code, 0);
    const Json first = document("caption convert x.mcc x.scc");
    EXPECT_EQ(first["out"]["pairs"], 4);
    EXPECT_EQ(first["leftOut"]["pairs"], 4);
    EXPECT_EQ(first["leftOut"]["captions"], (Json{{"CC3", 1}}));
    EXPECT_THAT(slurp(path("x.scc")), HasSubstr("9420 c1c2 942f"));
    const Json cues = document("caption convert x.mcc x.srt");
    EXPECT_EQ(cues["service"], "CC1");
    EXPECT_EQ(cues["leftOut"]["captions"], (Json{{"CC3", 1}}));
    EXPECT_THAT(enter("caption convert x.mcc x.srt --service cc2").err, HasSubstr("CC1 1, CC3 1 captions"));
    expect({{"caption convert pal.scc x.scc --rate 25", 5, "SCC is written at 29.97 only"}});
}

TEST_F(Command, VerifyFindsWhatIsWrong)
{
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " good.mcc").code, 0);
    const std::string good = slurp(path("good.mcc"));
    const std::string line2 =
        good.substr(good.find("\n01:00:00:01"), good.find("\n01:00:00:02") - good.find("\n01:00:00:01"));
    const struct
    {
        const char *check;
        std::string from, to;
    } rows[] = {
        {"lines", "\n01:00:00:01\t", "\n01:00:00:01\tx"},
        {"packets", "72F4FC94AE", "72F4FC94AF"}, // CDP and packet checksums no longer fit
        {"packets", "\tT52S", "\tT51S"},
        {"sequence", line2, ""},
        {"timecodes", line2, line2 + line2},
        {"timecodes", "\n01:00:00:05\t", "\n00:59:59:29\t"},
        {"frame rate", "Time Code Rate=30DF", "Time Code Rate=25"},
        {"pairs", "\n01:00:00:05\t", "\n01:30:00:05\t"},
    };
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.check);
        write("bad.mcc", std::string{good}.replace(good.find(row.from), row.from.size(), row.to));
        const Json report = document("caption verify bad.mcc --against " KIV_EXAMPLE_SCC, 1);
        EXPECT_FALSE(report["ok"]);
        for (const Json &check : report["checks"])
            EXPECT_TRUE(check["check"] != row.check || !check["ok"]) << check["detail"];
    }

    // Parity is kept unless it is asked for.
    write("in.scc", kSCC + "00:00:01;00\t4142 c1c2\n");
    EXPECT_EQ(document("caption convert in.scc out.mcc")["pairsWithWrongParity"], 1);
    EXPECT_EQ(enter("caption verify out.mcc --against in.scc").code, 1);
    EXPECT_EQ(document("caption convert in.scc out.mcc --fix-parity")["pairsWithParityRepaired"], 1);
    EXPECT_EQ(enter("caption verify out.mcc --against in.scc --fix-parity").code, 0);
}

// ---- files that appear whole or not at all ----

TEST_F(Command, ReplacesATargetWholeAndKeepsItsMode)
{
    const std::string target = write("out.mcc", "old");
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("out.mcc", path("link.mcc"));
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " link.mcc").code, 0);
    EXPECT_TRUE(fs::is_symlink(path("link.mcc")));
    EXPECT_THAT(slurp(target), StartsWith("File Format="));
    EXPECT_EQ(fs::status(target).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    const std::string before = slurp(target);
    write("bad.scc", kSCC + "00:00:01;00\tc1c2\nbad\n");
    EXPECT_EQ(enter("caption convert bad.scc out.mcc").code, 3);
    EXPECT_EQ(slurp(target), before);
    EXPECT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " no/out.mcc").code, 4);
    EXPECT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, path("")}).code, 4);
}

// Renaming the result over its source would leave nothing of the source.
TEST_F(Command, RefusesToWriteOverItsSource)
{
    const std::string source = write("in.scc", slurp(KIV_EXAMPLE_SCC));
    fs::create_symlink("in.scc", path("link.scc"));
    fs::create_hard_link(source, path("hard.scc"));
    for (const std::string name : {"in.scc", "link.scc", "hard.scc"})
        expect({{"caption convert in.scc " + name, 2, "is the source itself"}});
    EXPECT_EQ(slurp(source), slurp(KIV_EXAMPLE_SCC));
}

// A standard stream that the caller closed must not become the number of a file that is opened later.
TEST_F(Command, KeepsItsFilesApartFromClosedStandardStreams)
{
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " good.mcc").code, 0);
    write("bad.mcc", slurp(path("good.mcc")) + "bad line\n");
    const std::string line = "cd '" + path("").string() +
                             "' && exec " KIV_COMMAND " caption convert - out.mcc --keep-going <bad.mcc ";
    // The note about the bad line goes nowhere; the summary has no place to go.
    for (const auto &[redirections, code] : {std::pair{">/dev/null 2>&-", 0}, {"2>/dev/null >&-", 4}})
    {
        EXPECT_EQ(codeOf(std::system((line + redirections).c_str())), code);
        EXPECT_EQ(enter("caption verify out.mcc --against good.mcc").code, 0);
    }
}

TEST_F(Command, LeavesNothingBehindWhenInterrupted)
{
    // Four hours of captions: work that an interrupt reaches in time.
    std::string text = kSCC;
    for (int second = 0; second < 4 * 3600; second += 2)
    {
        char time[32];
        std::snprintf(time, sizeof time, "%02d:%02d:%02d:00\t", second / 3600, second / 60 % 60, second % 60);
        text += time + pairs(50) + "\n\n";
    }
    write("long.scc", text);
    const auto interrupted = [&](int signalNumber, bool ignored)
    {
        const pid_t child = start(wordsOf("caption convert long.scc out.mcc"),
                                  [&]
                                  {
                                      signal(signalNumber, ignored ? SIG_IGN : SIG_DFL);
                                      const int nowhere = open("/dev/null", O_RDWR);
                                      dup2(nowhere, 1);
                                      dup2(nowhere, 2);
                                  });
        waitForUnnamedFile(child);
        kill(child, signalNumber);
        int status = 0;
        waitpid(child, &status, 0);
        return codeOf(status);
    };
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP})
    {
        EXPECT_EQ(interrupted(signalNumber, false), 128 + signalNumber);
        EXPECT_THAT(files(), testing::ElementsAre("long.scc"));
    }
    EXPECT_EQ(interrupted(SIGHUP, true), 0); // nohup
    EXPECT_THAT(files(), testing::UnorderedElementsAre("long.scc", "out.mcc"));
}

TEST_F(Command, ChecksumsTheOtherFilesWhenOneIsMissing)
{
    write("file", "123456789");
    const Result table = enter("crc /nowhere file");
    EXPECT_EQ(table.code, 4);
    EXPECT_THAT(table.out, HasSubstr("cbf43926"));
    EXPECT_THAT(table.err, HasSubstr("/nowhere: No such file"));
    const Json list = document("crc file /nowhere file", 4);
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list.at(1).at("error").at("file"), "/nowhere");
    // A listing that ends in a failure is JSON all the same, with the failure at its end.
    write("bad.scc", kSCC + "00:00:01;00\tc1c2\nbad\n");
    EXPECT_EQ(document("caption show bad.scc --strict", 3).back().at("error").at("line"), 4);
}

TEST_F(Command, ReportsAFullDiskAndEndsSilentlyWhenItsReaderHasGone)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    for (const char *line : {"format", "caption show " KIV_EXAMPLE_SCC, "status --json",
                             "caption convert " KIV_EXAMPLE_SCC " -"})
    {
        const Result cut = run(wordsOf(line), "", full), unread = run(wordsOf(line), "", ends[1]);
        EXPECT_EQ(cut.code, 4) << line;
        EXPECT_THAT(cut.err, HasSubstr("standard output: No space left on device"));
        EXPECT_EQ(unread.code, 0) << line;
        EXPECT_THAT(unread.err, IsEmpty());
    }
    close(full);
    close(ends[1]);
    EXPECT_THAT(enter("caption convert " KIV_EXAMPLE_SCC " /dev/full").err,
                HasSubstr("/dev/full: No space left on device"));
}

TEST_F(Command, ColoursATerminalOnlyAndNeverUnderNoColor)
{
    for (const auto &[variable, colours] :
         {std::pair{"TERM=xterm", true}, {"TERM=dumb", false}, {"NO_COLOR=1", false}})
    {
        Terminal terminal{{"env", "-u", "NO_COLOR", variable, KIV_COMMAND, "status", "0"}};
        EXPECT_EQ(terminal.shows("\x1b[1m"), colours) << variable;
        EXPECT_EQ(terminal.shows("\x1b"), colours) << variable;
    }
    EXPECT_THAT(enter("status 0").out, Not(HasSubstr("\x1b")));
}

TEST_F(Command, ReadsLongFilesInLittleMemory)
{
    // Every packet of the example's file again and again: about 190,000 lines, 11 MB.
    ASSERT_EQ(enter("caption convert " KIV_EXAMPLE_SCC " once.mcc").code, 0);
    std::string text = slurp(path("once.mcc"));
    const std::string packets = text.substr(text.find("\n01:") + 1);
    for (int times = 1; times < 100; ++times)
        text += packets;
    write("long.mcc", text);
    const Result small = enter("tc show 0");
    const Result large = enter("caption info long.mcc");
    EXPECT_EQ(large.code, 0) << large.err;
    EXPECT_THAT(large.out, HasSubstr("192000, of them 192000"));
    if (!kiv::test::keepsFreedMemory())
    {
        EXPECT_LT(large.kilobytes - small.kilobytes, 10 * 1024);
    }
}

// ---- packets and text ----

TEST_F(Command, BuildsParsesAndFindsPackets)
{
    const Result built = enter("cdp build --field1 9420 --sequence 4660");
    EXPECT_THAT(built.out, HasSubstr("9669524F67123472F4FC9420FD8080"));
    expect({{"cdp parse -", 0, "resume caption loading"}}, built.out);
    std::string damaged = built.out;
    damaged[20] = damaged[20] == '0' ? '1' : '0';
    EXPECT_EQ(json({"cdp", "parse", "--hex", damaged}, 3)["faults"].at(0)["fault"], "CDP checksum");
    for (const std::string rate : {"23.98", "24", "25", "29.97", "30", "50", "59.94", "60"})
        EXPECT_EQ(enter("cdp parse -", enter("cdp build --sdi --atom --rate " + rate).out).code, 0) << rate;

    // As ancillary packets of 8-bit words, one behind a byte of something else.
    const std::string cdp = enter("cdp build --binary").out;
    ASSERT_EQ(cdp.size(), 82u);
    std::string packet = "\x61\x01R" + cdp;
    uint8_t sum = 0;
    for (const char byte : packet)
        sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(byte));
    packet += static_cast<char>(sum);
    write("anc", packet);
    write("capture", "?" + packet + packet);
    // As words of 10 bits behind the flag; the second one is cut.
    std::string words;
    for (const std::string &part : {packet, packet.substr(0, 60)})
    {
        words += std::string{"\0\0\3\xFF\3\xFF", 6};
        for (const char byte : part)
            words += std::string{'\1', byte};
    }
    write("words", words);
    const Result found = enter("cdp find words --in 291m --words 10bit-adf");
    EXPECT_EQ(found.code, 3);
    EXPECT_THAT(found.err, HasSubstr("section cut: 1 packet, first at byte 178 (KIVCS2STATUS_FORMAT_ERR"));
    // Wrapped, on line 9, after a line that is not looked at.
    const auto header = [](char line, char coding, char size)
    { return std::string{'\0', line, 1, coding, 0, size, 0, 0, 0, size, 0, 0, 0, 1}; };
    const std::string frame = std::string{"\0\2", 2} + header(7, 4, 1) + "x" +
                              header(9, 4, static_cast<char>(packet.size())) + packet;
    write("wrapped", frame + frame);
    write("cut", frame.substr(0, 40));
    write("none", "nothing");
    for (const char *line :
         {"cdp find capture --in 291m", "cdp find wrapped --in 436m", "cdp find wrapped --in 436M"})
        EXPECT_EQ(document(line).size(), 2u) << line;
    for (const Line &row : {Line{"cdp parse anc", 0},
                            {"cdp find words --in 291m --words 8bit-adf", 1},
                            {"cdp find cut --in 436m", 3},
                            {"cdp find none --in 291m", 1}})
        EXPECT_EQ(enter(row.line).code, row.code) << row.line;
    EXPECT_EQ(enter("cdp build --json -o cdp.json").out, "");
    EXPECT_EQ(parseJson(slurp(path("cdp.json")))["bytes"], 82);
}

TEST_F(Command, ConvertsTextWithoutDroppingAnything)
{
    const struct
    {
        std::string line, input;
        int code;
        std::string output;
    } rows[] = {
        {"convert - --to utf16le --mark",
         "aé",
         0,
         {"\xFF\xFE"
          "a\0\xE9\0",
          6}},
        {"convert - --to utf8", {"\xFE\xFF\0a\0\xE9", 6}, 0, "aé"},
        {"convert - --from latin1 --to utf8", "\xE9", 0, "é"},
        {"convert - --to ascii", "", 0, ""},
        {"convert - --to ascii", "ab\xC3\xA9", 3, ""},
        {"convert - --to latin1", "\xC3", 3, ""},
        {"detect -", "\xEF\xBB\xBFx", 0, "utf8, by a byte-order mark of 3 bytes\n"},
        {"detect -", "plain", 1, ""},
    };
    for (const auto &row : rows)
    {
        const Result result = enter("str " + row.line, row.input);
        EXPECT_EQ(result.code, row.code) << row.line;
        if (row.code != 1)
        {
            EXPECT_EQ(result.out, row.output) << row.line;
        }
    }
}

} // namespace
