// kivcs2 as a user runs it: files, packets, tables and texts.
#include "CommandRun.h"

#include <pty.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace
{

using kiv::test::Command;
using kiv::test::Json;
using kiv::test::parseJson;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::spill;
using kiv::test::Words;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

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
    struct Row
    {
        Words arguments;
        int code;
        std::string out; ///< contained in the output
        std::string err; ///< contained in the errors; empty: there are none
    };
    const std::vector<Row> rows = {
        {{"--version"}, 0, "kivcs2 ", ""},
        {{"--help"}, 0, "Exit codes: 0 yes, 1 no", ""},
        {{"caption", "convert", "--help"}, 0, "--sparse", ""},
        {{}, 2, "", "subcommand"},
        {{"nonsense"}, 2, "", "nonsense"},
        {{"tc", "nonsense"}, 2, "", "unknown word \"nonsense\""},
        {{"tc", "show", "10:00:00:00", "--bogus"}, 2, "", "--bogus"},
        {{"tc", "show", "00:01:00;02"}, 0, "Frames since midnight  1800\n", ""},
        {{"tc", "show", "00:01:00;02"}, 0, "drop-frame (because of \";\")", ""},
        {{"tc", "show", "00:01:00:00"}, 0, "non-drop (no --rate given)", ""},
        {{"tc", "show", "00:01:00:02", "--rate", "29.97"}, 0, "1802", ""},
        {{"tc", "show", "00:01:00:02", "--rate", "29.97df"}, 0, "1800", ""},
        {{"tc", "show", "00:01:00;00"}, 3, "", "names no frame"},
        {{"tc", "show", "00:01:00;02", "--rate", "25"}, 2, "", "drops no frame numbers"},
        {{"tc", "show", "10:00"}, 3, "", "not a timecode"},
        {{"tc", "show", "31.2.2024 10:00:00:00"}, 3, "", "the month is shorter"},
        {{"tc", "add", "23:59:59:24", "1", "--rate", "25"}, 0, "00:00:00:00", ""},
        {{"tc", "add", "28.2.2024 23:59:59:24", "1", "--rate", "25"}, 0, "29.2.2024 00:00:00:00", ""},
        {{"tc", "sub", "00:00:00:00", "1", "--rate", "25"}, 0, "23:59:59:24", ""},
        {{"tc", "add", "10:00:00:00", "90m", "--rate", "25"}, 0, "11:30:00:00", ""},
        {{"tc", "add", "10:00:00:00", "1h30m"}, 0, "11:30:00:00", ""},
        {{"tc", "add", "10:00:00;00", "1.5h", "10m"}, 0, "11:40:00;00", ""},
        {{"tc", "add", "23:00:00;00", "1m", "--json"}, 0, "\"timecode\": \"23:00:59;28\"", ""},
        {{"tc", "add", "23:00:00:00", "1d2h", "--rate", "24"}, 0, "Day                    2 days later", ""},
        {{"tc", "add", "23:59:59:24", "1", "--rate", "25"}, 0, "Day                    the next day", ""},
        {{"tc", "sub", "00:00:00;00", "1", "--json"}, 0, "\"days\": -1", ""},
        {{"tc", "add", "10:00:00:00", "1m1h", "--rate", "25"}, 3, "", "not a timecode"},
        {{"tc", "diff", "00:00:59;29", "00:01:00;02"}, 0, "Frames      1\n", ""},
        {{"tc", "diff", "2.1.2024 01:00:00:00", "31.12.2023 23:00:00:00", "--rate", "25"},
         0,
         "Frames      -2340000\n",
         ""},
        {{"tc", "diff", "00:00:00;00", "00:00:00:00"}, 2, "", "counted differently"},
        {{"tc", "convert", "10:00:00:00", "--rate", "24", "--to", "23.98"}, 0, "09:59:24:01", ""},
        {{"tc", "convert", "01:00:00;00", "--to", "25", "--keep-digits"}, 0, "01:00:00:00", ""},
        {{"tc", "show", "2147483647"}, 0, "19884:06:28:07", ""},
        {{"tc", "show", "2147483648"}, 3, "", "more frames than a timecode holds"},
        {{"tc", "show", "30000000", "--json"}, 0, "\"bcd\": null", ""},
        {{"tc", "bcd", "12:34:56:12", "--rate", "25"}, 0, "0x12345612", ""},
        {{"tc", "bcd", "0x12345612", "--rate", "25"}, 0, "12:34:56:12", ""},
        {{"tc", "bcd", "0x1234561f"}, 3, "", "no decimal digit"},
        {{"tc", "date", "@1710000000.48", "--rate", "25"}, 0, "2024-03-09T16:00:00.480Z", ""},
        {{"tc", "date", "@1710000000.48", "--rate", "25", "--json"}, 0, "\"framesEarlier\": 0", ""},
        {{"tc", "date", "@1710000000.5", "--rate", "29.97df"},
         0,
         "2 earlier than the one that has begun",
         ""},
        {{"tc", "date", "@1710000060.5", "--rate", "59.94df"}, 0, "2 later than the one that has begun", ""},
        {{"tc", "date", "@1710000000.0333334", "--rate", "30", "--json"}, 0, "\"framesEarlier\": 1", ""},
        {{"tc", "date", "@1710000000.9996", "--rate", "24", "--json"}, 0, "\"framesEarlier\": 0", ""},
        {{"tc", "date", "now"}, 0, "Unix time", ""},
        {{"tc", "date", "10:00:00:00"}, 2, "", "without a date"},
        {{"tc", "date", "@12x"}, 3, "", "no seconds since 1970"},
        {{"tc", "date", "@1e12"}, 3, "", "no seconds since 1970"},
        {{"tc", "date", "@-62168000000"}, 3, "", "before the year 1"},
        {{"rate", "29.97"}, 0, "29.97df   30000/1001     2589408  2 a minute", ""},
        {{"rate", "31"}, 2, "", "unknown rate"},
        {{"format", "1080p59.94a"}, 0, "0x54102601", ""},
        {{"format", "0x54222701"}, 0, "1080p60b RGBA", ""},
        {{"format", "1080p61"}, 1, "", "KIVCS2STATUS_VIDEO_FORMAT_ERR 0x80000031"},
        {{"status", "0x8000000b"}, 0, "KIVCS2STATUS_CAPTION_ERR 0x8000000b", ""},
        {{"status", "caption_err"}, 0, "0x8000000b", ""},
        {{"status", "0x12345678"}, 1, "", "no status"},
        {{"json", "name=clean feed", "n:int=-5", "r:float=1.5", "on:bool=true", "n:int=7",
          "\xc3\xa9=\xc3\xbc"},
         0,
         "{\"name\" : \"clean feed\", \"n\" : 7, \"r\" : 1.500000, \"on\" : 1, \"\xc3\xa9\" : "
         "\"\xc3\xbc\"}\n",
         ""},
        {{"json", "a=b", "--passes"}, 0, "{\"a\" : \"b\"}\n", "measured 15 bytes, wrote 11 bytes"},
        {{"json", "a=\"b"}, 3, "", "would make no JSON"},
        {{"json", "a=\xff"}, 3, "", "not valid utf8"},
        {{"json", "a"}, 2, "", "no \"=\""},
        {{"json", "a:int=2147483648"}, 2, "", "does not fit the 32 bits"},
        {{"json", "a:int=+5"}, 2, "", "no integer"},
        {{"json", "a:float=inf"}, 2, "", "finite"},
        {{"json", "a:bool=1"}, 2, "", "neither true nor false"},
        {{"caption", "decode", "942c", "c8e9", "9137", "91ae", "92a1"}, 0, "erase displayed memory", ""},
        {{"caption", "decode", "942c94"}, 3, "", "four hexadecimal digits"},
        {{"caption", "info", "/nowhere.scc"}, 4, "", "kivcs2: /nowhere.scc: No such file or directory\n"},
        {{"caption", "info", "/tmp"}, 4, "", "Is a directory"},
        {{"crc", "/nowhere"}, 4, "", "No such file"},
        {{"cdp", "parse", "--hex", "96694B"}, 3, "", "not a CDP (KIVCS2STATUS_FORMAT_ERR"},
        {{"cdp", "parse", "--hex", "41040201034B"}, 3, "", "another kind, without captions"},
        {{"cdp", "build", "--field1", "942"}, 3, "", "not a pair of four hexadecimal digits"},
        {{"caption", "info", "/no\nwhere.scc"}, 4, "", "/no\\x0awhere.scc: No such file"},
        {{"caption", "info", "/\xc2\x9b\xc3\xa9\xff.scc"},
         4,
         "",
         "/\\xc2\\x9b\xc3\xa9\\xff.scc: No such file"},
        {{"caption", "info", ""}, 4, "", "\"\": No such file"},
        {{"cdp", "build", "--sequence", "65536"}, 2, "", "sequence"},
        {{"cdp", "build", "--json", "--binary"}, 2, "", "give one of them"},
        {{"cdp", "parse", KIV_EXAMPLE_SCC, "--hex", "9669"}, 2, "", "--hex"},
    };
    for (const Row &row : rows)
    {
        std::string line;
        for (const std::string &word : row.arguments)
            line += word + " ";
        SCOPED_TRACE(line);
        const Result result = run(row.arguments);
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_THAT(result.out, HasSubstr(row.out));
        if (row.err.empty())
            EXPECT_THAT(result.err, IsEmpty());
        else
        {
            EXPECT_THAT(result.err, StartsWith("kivcs2: "));
            EXPECT_THAT(result.err, HasSubstr(row.err));
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        }
    }
}

TEST_F(Command, GoesFromADatedTimecodeToItsMomentAndBack)
{
    for (const char *text : {"15.3.2024 10:00:00:12", "31.12.1999 23:59:59:24", "1.1.1500 00:00:00:00"})
    {
        const Json there = parseJson(run({"tc", "date", text, "--rate", "25", "--json"}).out);
        const Result back =
            run({"tc", "date", "@" + there.at("unixSeconds").dump(), "--rate", "25", "--json"});
        EXPECT_EQ(parseJson(back.out), there);
        EXPECT_EQ(there.at("timecode"), text);
    }
}

TEST_F(Command, KnowsEveryStatusOfTheHeader)
{
    std::istringstream header{slurp(KIV_BASE_HEADER)};
    const Json known = json({"status"});
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
}

TEST_F(Command, ListsEveryVideoFormat)
{
    const Json formats = json({"format"});
    EXPECT_EQ(formats.size(), 75u);
}

// ---- captions ----

TEST_F(Command, ConvertsVerifiesAndShowsTheExample)
{
    const std::string target = path("captions.mcc").string();
    const Json report = json({"caption", "convert", KIV_EXAMPLE_SCC, target});
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
    EXPECT_EQ(run({"caption", "verify", target, "--against", KIV_EXAMPLE_SCC}).code, 0);

    // What a viewer sees is the same before and after.
    const Result before = run({"caption", "show", KIV_EXAMPLE_SCC, "--captions"});
    const Result after = run({"caption", "show", target, "--captions"});
    EXPECT_EQ(before.out, after.out);
    EXPECT_THAT(after.out,
                HasSubstr("01:00:11;26  01:00:14;07  CC1  roll-up  >> It is a señal of hope, café\n"));
    EXPECT_THAT(after.out, HasSubstr("01:00:00;27  01:00:04;03  CC1  pop-on   GOOD EVENING.\n" +
                                     std::string(40, ' ') + "HERE IS THE NEWS AT TEN.\n"));
    EXPECT_THAT(after.out, HasSubstr("01:00:58;24  01:01:04;00  CC1  paint-on Weather: dry until noon,\n"));

    EXPECT_THAT(run({"caption", "at", target, "01:00:00;27"}).out, HasSubstr("end of caption"));
    EXPECT_EQ(run({"caption", "at", target, "02:00:00;00"}).code, 1);

    // Every frame of a continuous file has one line; a sparse one has the pairs' frames only.
    const std::string sparse = path("sparse.mcc").string();
    EXPECT_EQ(json({"caption", "convert", KIV_EXAMPLE_SCC, sparse, "--sparse"})["out"]["packets"], 163);
    EXPECT_EQ(run({"caption", "verify", sparse, "--against", KIV_EXAMPLE_SCC}).code, 0);

    // Version 1 to 2 keeps every packet and the header's texts.
    const std::string second = path("second.mcc").string();
    EXPECT_EQ(json({"caption", "convert", target, second, "--to", "mcc2"})["out"]["version"], 2);
    EXPECT_EQ(run({"caption", "verify", second, "--against", target}).code, 0);
    EXPECT_EQ(json({"caption", "info", second})["version"], 2);
    EXPECT_EQ(json({"caption", "info", second})["uuid"], json({"caption", "info", target})["uuid"]);
}

// Version 2 tells the fields and packets of one frame apart by suffixes; version 1 has none.
TEST_F(Command, KeepsTheSuffixesOfVersion2)
{
    const std::string once = path("once.mcc").string(), again = path("again.mcc").string();
    const std::string scc = write("in.scc", kSCC + "00:00:01;00\tc1c2 c1c2\n");
    ASSERT_EQ(run({"caption", "convert", scc, once, "--mcc-version", "2"}).code, 0);
    std::string text = slurp(once);
    text.replace(text.find("00:00:01:00\t"), 12, "00:00:01:00.0,7\t");
    text.replace(text.find("00:00:01:01\t"), 12, "00:00:01:00.1,8\t");
    spill(once, text);

    const Result info = run({"caption", "info", once});
    EXPECT_EQ(info.code, 0) << info.err;
    EXPECT_THAT(info.out, HasSubstr("MCC version 2.0"));
    EXPECT_THAT(info.out, HasSubstr("2 lines with a field or number"));
    EXPECT_EQ(run({"caption", "verify", once}).code, 0);
    EXPECT_EQ(json({"caption", "convert", once, again})["in"]["version"], 2);
    EXPECT_THAT(slurp(again), HasSubstr("\n00:00:01:00.1,8\t"));
    const Result first = run({"caption", "convert", once, again, "--mcc-version", "1"});
    EXPECT_EQ(first.code, 3);
    EXPECT_THAT(first.err, HasSubstr("which version 1 cannot hold"));
}

TEST_F(Command, WorksThroughStandardInputAndOutput)
{
    const std::string source = slurp(KIV_EXAMPLE_SCC);
    const Result mcc = run({"caption", "convert", "-", "-"}, source);
    ASSERT_EQ(mcc.code, 0) << mcc.err;
    EXPECT_THAT(mcc.out, StartsWith("File Format=MacCaption_MCC V1.0\n"));
    EXPECT_THAT(mcc.err, HasSubstr("Out       MCC 1: 1920 packets, 163 pairs, 7 captions"));
    const Result forPrograms = run({"caption", "convert", "-", "-", "--json"}, source);
    EXPECT_EQ(parseJson(forPrograms.err)["out"]["packets"], 1920);
    EXPECT_EQ(run({"caption", "verify", "-", "--against", KIV_EXAMPLE_SCC}, mcc.out).code, 0);
    EXPECT_THAT(run({"caption", "info", "-"}, mcc.out).out, HasSubstr("1920, of them 1920"));
    EXPECT_THAT(run({"crc", "-"}, "123456789").out, HasSubstr("cbf43926      9  -\n"));
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
        {"in order", "00:00:01;00\tc1c2 4343\n\n00:00:02;00\tc1c2\n", 3, 0, 0, 0},
        {"overlapping", "00:00:01;00\t" + pairs(40) + "\n\n00:00:02;00\tc1c2 4343\n", 42, 2, 0, 0},
        {"back in time", "00:00:09;00\tc1c2\n\n00:00:01;00\t4343 c1c2\n", 3, 0, 1, 0},
        {"same timecode", "00:00:01;00\tc1c2\n\n00:00:01;00\t4343\n", 2, 1, 0, 1},
        {"more pairs than a record holds", "00:00:01;00\t" + pairs(300) + "\n\n00:00:30;00\tc1c2\n", 301, 0,
         0, 0},
        {"CR LF, blanks, no last line end", "00:00:01;00\tc1c2 \r\n\r\n00:00:02;00\t4343", 2, 0, 0, 0},
        {"comments", "// a comment\n00:00:01;00\tc1c2\n", 1, 0, 0, 0},
        {"upper case", "00:00:01;00\tC1C2\n", 1, 0, 0, 0},
    };
    for (const Row &row : rows)
        for (const char *mark : {"", "\xEF\xBB\xBF"})
        {
            SCOPED_TRACE(row.name);
            const std::string source = write("in.scc", mark + kSCC + row.lines);
            const std::string target = path("out.mcc").string();
            const Json report = json({"caption", "convert", source, target});
            EXPECT_EQ(report["in"]["pairs"], row.pairs);
            EXPECT_EQ(report["out"]["pairs"], row.pairs);
            EXPECT_EQ(report["delayedPairs"], row.delayed);
            EXPECT_EQ(report["linesBackInTime"], row.backwards);
            EXPECT_EQ(report["linesWithSameTimecode"], row.same);
            EXPECT_EQ(run({"caption", "verify", target, "--against", source}).code, 0);
        }
}

TEST_F(Command, CountsAsTheFileSays)
{
    struct Row
    {
        std::string separator;
        Words options;
        std::string rate;    ///< "Time Code Rate="
        std::string cdpRate; ///< of the packets
        int triplets;
    };
    const std::vector<Row> rows = {
        {";", {}, "30DF", "29.97", 20},
        {":", {}, "30", "29.97", 20},
        {":", {"--rate", "29.97df"}, "30DF", "29.97", 20},
        {":", {"--rate", "30"}, "30", "30", 20},
        {":", {"--rate", "25"}, "25", "25", 24},
        {":", {"--rate", "24"}, "24", "24", 25},
        {":", {"--rate", "23.98"}, "24", "23.98", 25},
    };
    for (const Row &row : rows)
    {
        const std::string source = write("in.scc", kSCC + "00:00:01" + row.separator + "02\tc1c2\n");
        const std::string target = path("out.mcc").string();
        Words words{"caption", "convert", source, target};
        words.insert(words.end(), row.options.begin(), row.options.end());
        ASSERT_EQ(run(words).code, 0) << row.cdpRate;
        EXPECT_THAT(slurp(target), HasSubstr("Time Code Rate=" + row.rate + "\n"));
        EXPECT_EQ(json({"caption", "info", target})["cdpFrameRate"], row.cdpRate);
        EXPECT_EQ(run({"caption", "verify", target}).code, 0);
    }
    // Line 21 has one pair a frame only up to 30 frames a second: another rate has to be asked for.
    const std::string source = write("in.scc", kSCC + "00:00:01:02\tc1c2\n");
    for (const char *rate : {"50", "59.94", "60"})
    {
        const Result result = run({"caption", "convert", source, path("x.mcc").string(), "--rate", rate});
        EXPECT_EQ(result.code, 2);
        EXPECT_THAT(result.err, HasSubstr("the rates from 23.98 to 30 can be written"));
    }
}

// What is lost is told with its place, and nothing is written unless the rest is asked for.
TEST_F(Command, NamesWhatIsLost)
{
    const std::string mcc = "File Format=MacCaption_MCC V1.0\n\nTime Code Rate=25\n\n";
    const std::string good = "00:00:09;00\tc1c2\n";
    struct Row
    {
        std::string lines;
        const char *where;
        const char *what;
        int lines_, pairs_, parts_; ///< lost; -1: nothing is left to write
    };
    const std::vector<Row> rows = {
        {kSCC + "00:61:00;00\tc1c2\n" + good, ":3: ", "no such time in column 1", 1, 0, 0},
        {kSCC + "00:00:01;00\tc1c2,4343\n" + good, ":3: ", "unknown character in column 17, \",\"", 1, 0, 0},
        {kSCC + "00:00:01;00\t\n" + good, ":3: ", "not a caption", 1, 0, 0},
        {kSCC + "00:00:01;00\tc1c2 43 c1c2\n", ":3: ", "word length in column 18, \"43\"", 0, 1, 0},
        {kSCC + "00:00:01;00\tc1c2 9420942f c1c2\n", ":3: ", "word of two tracks in column 18", 0, 0, 1},
        {kSCC + "00:00:01;00\t" + pairs(300) + "x\n" + good, ":3: ", "unknown character", 1, 0, 0},
        {kSCC + good + "nothing here\n", ":4: ", "not a caption in column 1, \"nothing here\"", 1, 0, 0},
        {kSCC, ": ", "holds no captions", -1, 0, 0},
        {"", ":1: ", "KIVCS2STATUS_HEADER_ERR", -1, 0, 0},
        {"Scenarist_SCC V2.0\n", ":1: ", "not a caption file", -1, 0, 0},
        {"\xFF\xFES\0c\0", ":1: ", "other encoding", -1, 0, 0},
        {std::string(300000, 'x'), ":1: ", "not a caption file", -1, 0, 0},
        {"File Format=MacCaption_MCC V1.0\n\n00:00:01:00\tT5252\n", ":3: ", "rate missing", -1, 0, 0},
        {mcc + "00:00:01:00\tT5x2\n", ":5: ", "unknown character", -1, 0, 0},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.what);
        const std::string source = write("in.scc", row.lines);
        const std::string target = path("out.mcc").string();
        const Result result = run({"caption", "convert", source, target});
        EXPECT_EQ(result.code, 3);
        EXPECT_THAT(result.err, HasSubstr("kivcs2: " + source + row.where));
        EXPECT_THAT(result.err, HasSubstr(row.what));
        EXPECT_THAT(files(), testing::ElementsAre("in.scc")); // no target, no half-written file
        const Json rest =
            json({"caption", "convert", source, target, "--keep-going"}, row.lines_ < 0 ? 3 : 0);
        if (row.lines_ < 0)
            continue;
        EXPECT_EQ(rest["lost"], (Json{{"lines", row.lines_}, {"pairs", row.pairs_}, {"parts", row.parts_}}));
        EXPECT_EQ(rest["faults"].at(0)["lost"], true);
        EXPECT_EQ(run({"caption", "verify", target}).code, 0);
        fs::remove(target);
    }
    const Json info = json({"caption", "info", write("in.scc", kSCC + "00:00:01;00\tc1c2,\n" + good)}, 3);
    EXPECT_EQ(info["malformedLines"], 1);
}

// Some writers put blanks in front of their caption lines; such a file is read, and nothing is no success.
TEST_F(Command, ReadsIndentedPacketsAndNeverSucceedsOverNothing)
{
    const std::string plain = path("plain.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, plain}).code, 0);
    std::string text = slurp(plain);
    const size_t lines = text.find("\n01:");
    const std::string header = text.substr(0, lines);
    EXPECT_THAT(header, HasSubstr("// U E1h 00h 00h")); // the format's own text stays
    EXPECT_THAT(text.substr(lines), Not(HasSubstr("U")));
    EXPECT_THAT(text.substr(lines), HasSubstr("91E1ZZ"));
    for (size_t at = lines; (at = text.find("\n01:", at)) != std::string::npos; at += 3)
        text.insert(at + 1, at % 2 == 0 ? "  " : " \t");
    const std::string indented = write("indented.mcc", text);
    EXPECT_EQ(json({"caption", "info", indented})["packets"], 1920);
    EXPECT_EQ(run({"caption", "verify", indented, "--against", KIV_EXAMPLE_SCC}).code, 1); // blanks in front
    EXPECT_EQ(json({"caption", "convert", indented, path("again.mcc").string()})["out"]["packets"], 1920);

    const std::string out = path("nothing.mcc").string();
    for (const std::string &nothing : {write("head.mcc", header + "\n"), write("head.scc", kSCC),
                                       write("note.mcc", header + "\n a note\n")})
        for (const Words &words : {Words{"info", nothing},
                                   {"show", nothing},
                                   {"show", nothing, "--captions"},
                                   {"at", nothing, "00:00:00:00"},
                                   {"convert", nothing, out},
                                   {"convert", nothing, out, "--keep-going"}})
        {
            Words all{"caption"};
            all.insert(all.end(), words.begin(), words.end());
            const Result result = run(all);
            EXPECT_EQ(result.code, 3) << words[0] << ' ' << nothing;
            EXPECT_THAT(result.err, HasSubstr("holds no captions"));
        }
    const std::string bad = write("bad.mcc", header + "\n01:00:00:00\tT52x\n");
    EXPECT_EQ(run({"caption", "convert", bad, out, "--keep-going"}).code, 3);
    EXPECT_FALSE(fs::exists(out));
}

// From SCC to each kind, and back without a pair on another frame.
TEST_F(Command, WritesEachKindAndReadsItBack)
{
    const auto convert = [&](const std::string &from, const std::string &name, const Words &options = {})
    {
        Words words{"caption", "convert", from, path(name).string()};
        words.insert(words.end(), options.begin(), options.end());
        return json(words);
    };
    const auto text = [&](const char *name) { return slurp(path(name)); };
    const std::string mcc = path("a.MCC").string();
    EXPECT_EQ(convert(KIV_EXAMPLE_SCC, "a.MCC")["out"]["kind"], "MCC 1");
    EXPECT_EQ(convert(KIV_EXAMPLE_SCC, "a.scc")["out"]["pairs"], 163);
    EXPECT_EQ(convert(mcc, "b.scc")["out"]["captions"], 7);
    EXPECT_EQ(convert(path("b.scc").string(), "b.mcc")["out"]["packets"], 1920);
    const auto packets = [](const std::string &file) { return file.substr(file.find("\n\n01:")); };
    EXPECT_TRUE(packets(text("b.mcc")) == packets(text("a.MCC")));
    convert(mcc, "c.mcc");
    EXPECT_TRUE(text("c.mcc") == text("a.MCC")); // there was nothing to repair
    EXPECT_EQ(convert(mcc, "d", {"--to", "Mcc2"})["out"]["version"], 2);
    EXPECT_EQ(convert(mcc, "e.srt")["out"]["captions"], 7);
    EXPECT_THAT(text("e.srt"), HasSubstr("1\n01:00:00,897 --> 01:00:04,101\n"));
    EXPECT_EQ(convert(mcc, "e.vtt", {"--time-zero", "01:00:00:00"})["service"], "CC1");
    EXPECT_THAT(text("e.vtt"), StartsWith("WEBVTT\n\n00:00:00.901 --> 00:00:04.104"));
    EXPECT_EQ(run({"caption", "convert", mcc, "/dev/null"}).code, 0); // a place has no kind
    for (const Words &words : std::vector<Words>{{"b"},
                                                 {"b.mcc.txt"},
                                                 {".mcc"},
                                                 {"x.scc", "--mcc-version", "1"},
                                                 {"x.mcc", "--service", "CC1"},
                                                 {"x.srt", "--service", "CC1,CC2"},
                                                 {"x.mcc", "--sparse"},
                                                 {"x.mcc", "--fix-parity"}})
    {
        Words all{"caption", "convert", mcc, path(words[0]).string()};
        all.insert(all.end(), words.begin() + 1, words.end());
        EXPECT_EQ(run(all).code, 2) << words[0];
        EXPECT_FALSE(fs::exists(path(words[0])));
    }
}

// To the same kind everything comes out as the format wants it, and each change is told.
TEST_F(Command, RepairsAFileAndSaysWhatItChanged)
{
    const std::string good = path("good.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, good}).code, 0);
    std::string mcc = slurp(good);
    const auto edit = [&mcc](const std::string &from, const std::string &to)
    { mcc.replace(mcc.find(from), from.size(), to); };
    edit("UUID=", "Nobody=knows\nUUID=");
    edit("\n01:00:00:00\tT52S", "\n01:00:00:00  t52s");
    edit("\n01:00:00:01\t", "\n01:00:00.01\t");
    const std::string scc = "\xEF\xBB\xBF\nscenarist_scc v1.0\n 00:00:09.02  c1c2\n00:01:00;00\t4343\n"
                            "00:00:01;00\tc1c2 4343\n";
    struct Row
    {
        const char *kind;
        std::string text;
        std::vector<std::string> changes;
        std::string made;
    };
    const std::vector<Row> rows = {
        {"scc",
         scc,
         {"byte-order mark", "blanks before header", "header case", "back in time", "blanks before timecode",
          "frame separator", "blanks before data", "dropped number"},
         kSCC + "00:00:01;00\tc1c2 4343\n\n00:00:09;02\tc1c2\n\n00:01:00;02\t4343\n"},
        {"mcc",
         mcc,
         {"unknown header line", "blanks before data", "lower case", "frame separator"},
         slurp(good)},
    };
    for (const Row &row : rows)
    {
        const std::string source = write("in", row.text), target = path("out").string();
        const Words words{"caption", "convert", source, target, "--to", row.kind};
        const Result told = run(words);
        EXPECT_EQ(told.code, 0);
        std::multiset<std::string> changes;
        const Json report = json(words);
        for (const Json &fault : report["faults"])
            if (!fault["changedTo"].is_null())
                changes.insert(fault["name"].get<std::string>());
        EXPECT_THAT(changes, testing::UnorderedElementsAreArray(row.changes));
        for (const std::string &change : row.changes)
            EXPECT_THAT(told.err, testing::ContainsRegex(":[0-9]+: changed: " + change));
        EXPECT_TRUE(slurp(target) == row.made) << row.kind;
        // Where nothing is written nothing has changed.
        Words lost = words;
        lost[2] = write("lost", row.text + "bad\n");
        const Result refused = run(lost);
        EXPECT_EQ(refused.code, 3);
        EXPECT_THAT(refused.err, testing::Not(HasSubstr("changed:")));
    }
}

// A field keeps its number, SCC takes one of two, and SRT one service; what is left out is told.
TEST_F(Command, KeepsTheFieldAndTakesOneService)
{
    const std::string one = write("one.scc", kSCC + "00:00:01;00\t1520 c1c2 152f\n\n00:00:02;00\t152c\n");
    const std::string two =
        write("two.scc", kSCC + "00:00:01;00\t94201520 c1c24343 942f152f\n\n00:00:02;00\t942c152c\n");
    const std::string mcc = path("x.mcc").string(), scc = path("x.scc").string(),
                      srt = path("x.srt").string();
    ASSERT_EQ(run({"caption", "convert", one, mcc}).code, 0);
    EXPECT_EQ(json({"caption", "convert", mcc, srt})["service"], "CC3");
    const Result none = run({"caption", "convert", mcc, scc}); // field 1
    EXPECT_EQ(none.code, 3);
    EXPECT_THAT(none.err, HasSubstr("--field 2 takes the other"));
    EXPECT_FALSE(fs::exists(scc));
    EXPECT_EQ(run({"caption", "convert", mcc, scc, "--field", "2"}).code, 0);
    EXPECT_EQ(slurp(scc), slurp(one));

    ASSERT_EQ(run({"caption", "convert", two, mcc, "--both-tracks"}).code, 0);
    const Json first = json({"caption", "convert", mcc, scc});
    EXPECT_EQ(first["out"]["pairs"], 4);
    EXPECT_EQ(first["leftOut"]["pairs"], 4);
    EXPECT_EQ(first["leftOut"]["captions"], (Json{{"CC3", 1}}));
    EXPECT_THAT(slurp(scc), HasSubstr("9420 c1c2 942f"));
    const Json cues = json({"caption", "convert", mcc, srt});
    EXPECT_EQ(cues["service"], "CC1");
    EXPECT_EQ(cues["leftOut"]["captions"], (Json{{"CC3", 1}}));
    EXPECT_THAT(run({"caption", "convert", mcc, srt, "--service", "cc2"}).err,
                HasSubstr("CC1 1, CC3 1 captions"));
    const std::string pal = write("pal.scc", kSCC + "00:00:01:00\t9420\n");
    const Result rate = run({"caption", "convert", pal, scc, "--rate", "25"});
    EXPECT_EQ(rate.code, 5);
    EXPECT_THAT(rate.err, HasSubstr("SCC is written at 29.97 only"));
}

TEST_F(Command, VerifyFindsWhatIsWrong)
{
    const std::string target = path("good.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, target}).code, 0);
    const std::string good = slurp(target);
    const auto edit = [&](const std::string &from, const std::string &to)
    {
        std::string text = good;
        const auto at = text.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    };
    struct Row
    {
        const char *check;
        std::string text;
    };
    const std::string line2 =
        good.substr(good.find("\n01:00:00:01"), good.find("\n01:00:00:02") - good.find("\n01:00:00:01"));
    const std::vector<Row> rows = {
        {"lines", edit("\n01:00:00:01\t", "\n01:00:00:01\tx")},
        {"packets", edit("72F4FC94AE", "72F4FC94AF")}, // CDP and packet checksums no longer fit
        {"packets", edit("\tT52S", "\tT51S")},
        {"sequence", edit(line2, "")},
        {"timecodes", edit(line2, line2 + line2)},
        {"timecodes", edit("\n01:00:00:05\t", "\n00:59:59:29\t")},
        {"frame rate", edit("Time Code Rate=30DF", "Time Code Rate=25")},
        {"pairs", edit("\n01:00:00:05\t", "\n01:30:00:05\t")},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.check);
        const std::string bad = write("bad.mcc", row.text);
        const Json report = json({"caption", "verify", bad, "--against", KIV_EXAMPLE_SCC}, 1);
        EXPECT_FALSE(report["ok"]);
        for (const Json &check : report["checks"])
        {
            if (check["check"] == row.check)
            {
                EXPECT_FALSE(check["ok"]) << check["detail"];
            }
        }
    }
}

TEST_F(Command, KeepsParityUnlessAskedTo)
{
    const std::string source = write("in.scc", kSCC + "00:00:01;00\t4142 c1c2\n");
    const std::string target = path("out.mcc").string();
    EXPECT_EQ(json({"caption", "convert", source, target})["pairsWithWrongParity"], 1);
    EXPECT_EQ(run({"caption", "verify", target, "--against", source}).code, 1);
    EXPECT_EQ(json({"caption", "convert", source, target, "--fix-parity"})["pairsWithParityRepaired"], 1);
    EXPECT_EQ(run({"caption", "verify", target, "--against", source, "--fix-parity"}).code, 0);
}

// ---- files that appear whole or not at all ----

TEST_F(Command, ReplacesATargetWholeAndKeepsItsMode)
{
    const std::string target = write("out.mcc", "old");
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("out.mcc", path("link.mcc"));
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, path("link.mcc").string()}).code, 0);
    EXPECT_TRUE(fs::is_symlink(path("link.mcc")));
    EXPECT_THAT(slurp(target), StartsWith("File Format="));
    EXPECT_EQ(fs::status(target).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    const std::string before = slurp(target);
    const std::string source = write("bad.scc", kSCC + "00:00:01;00\tc1c2\nbad\n");
    EXPECT_EQ(run({"caption", "convert", source, target}).code, 3);
    EXPECT_EQ(slurp(target), before);
    EXPECT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, path("no/out.mcc").string()}).code, 4);
    EXPECT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, path("").string()}).code, 4);
}

// Renaming the result over its source would leave nothing of the source.
TEST_F(Command, RefusesToWriteOverItsSource)
{
    const std::string source = write("in.scc", slurp(KIV_EXAMPLE_SCC));
    fs::create_symlink("in.scc", path("link.scc"));
    fs::create_hard_link(source, path("hard.scc"));
    for (const char *name : {"in.scc", "link.scc", "hard.scc"})
    {
        const Result result = run({"caption", "convert", source, path(name).string()});
        EXPECT_EQ(result.code, 2) << name;
        EXPECT_THAT(result.err, HasSubstr("is the source itself"));
    }
    EXPECT_EQ(slurp(source), slurp(KIV_EXAMPLE_SCC));
}

// A standard stream that the caller closed must not become the number of a file that is opened later.
TEST_F(Command, KeepsItsFilesApartFromClosedStandardStreams)
{
    const std::string mcc = path("good.mcc").string(), bad = path("bad.mcc").string();
    const std::string target = path("out.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, mcc}).code, 0);
    spill(bad, slurp(mcc) + "bad line\n");
    const auto shell = [&](const std::string &redirections)
    {
        const std::string line = std::string{"exec "} + KIV_COMMAND + " caption convert - " + target +
                                 " --keep-going <" + bad + " " + redirections;
        const int status = std::system(line.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(shell(">/dev/null 2>&-"), 0); // the note about the bad line goes nowhere
    EXPECT_EQ(run({"caption", "verify", target, "--against", mcc}).code, 0);
    EXPECT_EQ(shell("2>/dev/null >&-"), 4); // the summary has no place to go
    EXPECT_EQ(run({"caption", "verify", target, "--against", mcc}).code, 0);
}

TEST_F(Command, LeavesNothingBehindWhenInterrupted)
{
    // Four hours of captions: work that an interrupt reaches in time.
    {
        std::ofstream file{path("long.scc")};
        file << kSCC;
        for (int second = 0; second < 4 * 3600; second += 2)
        {
            char time[32];
            std::snprintf(time, sizeof time, "%02d:%02d:%02d:00\t", second / 3600, second / 60 % 60,
                          second % 60);
            file << time << pairs(50) << "\n\n";
        }
    }
    const auto interrupted = [&](int signalNumber, bool ignored)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            signal(signalNumber, ignored ? SIG_IGN : SIG_DFL);
            const int nowhere = open("/dev/null", O_RDWR);
            dup2(nowhere, 1);
            dup2(nowhere, 2);
            execl(KIV_COMMAND, "kivcs2", "caption", "convert", path("long.scc").c_str(),
                  path("out.mcc").c_str(), nullptr);
            _exit(127);
        }
        int status = 0;
        while (!hasUnnamedFile(child) && waitpid(child, &status, WNOHANG) == 0)
            usleep(2000);
        kill(child, signalNumber);
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
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
    const std::string file = write("file", "123456789");
    const Result table = run({"crc", "/nowhere", file});
    EXPECT_EQ(table.code, 4);
    EXPECT_THAT(table.out, HasSubstr("cbf43926"));
    EXPECT_THAT(table.err, HasSubstr("/nowhere: No such file"));
    const Json list = json({"crc", file, "/nowhere", file}, 4);
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list.at(1).at("error").at("file"), "/nowhere");
    // A listing that ends in a failure is JSON all the same, with the failure at its end.
    const std::string bad = write("bad.scc", kSCC + "00:00:01;00\tc1c2\nbad\n");
    EXPECT_EQ(json({"caption", "show", bad, "--strict"}, 3).back().at("error").at("line"), 4);
}

TEST_F(Command, ReportsAFullDisk)
{
    for (const Words &words : {Words{"format"}, Words{"caption", "convert", KIV_EXAMPLE_SCC, "-"}})
    {
        const int full = open("/dev/full", O_WRONLY);
        const Result result = run(words, "", full);
        close(full);
        EXPECT_EQ(result.code, 4);
        EXPECT_THAT(result.err, HasSubstr("standard output: No space left on device"));
    }
    EXPECT_THAT(run({"caption", "convert", KIV_EXAMPLE_SCC, "/dev/full"}).err,
                HasSubstr("/dev/full: No space left on device"));
}

TEST_F(Command, EndsSilentlyWhenItsReaderHasGone)
{
    for (const Words &words : {Words{"format"}, Words{"caption", "show", KIV_EXAMPLE_SCC},
                               Words{"status", "--json"}, Words{"caption", "convert", KIV_EXAMPLE_SCC, "-"}})
    {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        close(ends[0]);
        const Result result = run(words, "", ends[1]);
        close(ends[1]);
        EXPECT_EQ(result.code, 0) << words[0];
        // A conversion's summary may come before its reader turns out to be gone.
        EXPECT_THAT(result.err, IsEmpty());
    }
}

TEST_F(Command, ColoursATerminalOnlyAndNeverUnderNoColor)
{
    const auto onTerminal = [&](const char *variable, const char *value)
    {
        int master = -1;
        const int child = forkpty(&master, nullptr, nullptr, nullptr);
        if (child == 0)
        {
            unsetenv("NO_COLOR");
            setenv(variable, value, 1);
            execl(KIV_COMMAND, "kivcs2", "status", "0", nullptr);
            _exit(127);
        }
        std::string text;
        char block[512];
        for (ssize_t got; (got = read(master, block, sizeof block)) > 0;)
            text.append(block, static_cast<size_t>(got));
        close(master);
        waitpid(child, nullptr, 0);
        return text;
    };
    EXPECT_THAT(onTerminal("TERM", "xterm"), HasSubstr("\x1b[1m"));
    EXPECT_THAT(onTerminal("TERM", "dumb"), testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(onTerminal("NO_COLOR", "1"), testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(run({"status", "0"}).out, testing::Not(HasSubstr("\x1b")));
}

TEST_F(Command, ReadsLongFilesInLittleMemory)
{
    // Every packet of the example's file again and again: about 190,000 lines, 11 MB.
    const std::string once = path("once.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, once}).code, 0);
    const std::string text = slurp(once);
    const size_t start = text.find("\n01:");
    {
        std::ofstream file{path("long.mcc")};
        file << text;
        for (int times = 1; times < 100; ++times)
            file << text.substr(start + 1);
    }
    [[maybe_unused]] const Result small = run({"tc", "show", "0"});
    const Result large = run({"caption", "info", path("long.mcc").string()});
    EXPECT_EQ(large.code, 0) << large.err;
    EXPECT_THAT(large.out, HasSubstr("192000, of them 192000"));
#ifndef __SANITIZE_ADDRESS__ // which keeps freed memory back
    EXPECT_LT(large.kilobytes - small.kilobytes, 10 * 1024);
#endif
}

// ---- packets and text ----

TEST_F(Command, BuildsParsesAndFindsPackets)
{
    const Result built = run({"cdp", "build", "--field1", "9420", "--sequence", "4660"});
    EXPECT_THAT(built.out, HasSubstr("9669524F67123472F4FC9420FD8080"));
    const Result parsed = run({"cdp", "parse", "-"}, built.out);
    EXPECT_EQ(parsed.code, 0) << parsed.err;
    EXPECT_THAT(parsed.out, HasSubstr("resume caption loading"));
    std::string damaged = built.out;
    damaged[20] = damaged[20] == '0' ? '1' : '0';
    EXPECT_EQ(json({"cdp", "parse", "--hex", damaged}, 3)["faults"].at(0)["fault"], "CDP checksum");

    for (const char *rate : {"23.98", "24", "25", "29.97", "30", "50", "59.94", "60"})
    {
        const Result other = run({"cdp", "build", "--rate", rate, "--sdi", "--atom"});
        EXPECT_EQ(run({"cdp", "parse", "-"}, other.out).code, 0) << rate;
    }

    // As ancillary packets of 8-bit words, one behind a byte of something else.
    const std::string cdp = run({"cdp", "build", "--binary"}).out;
    ASSERT_EQ(cdp.size(), 82u);
    std::string packet = "\x61\x01R" + cdp;
    uint8_t sum = 0;
    for (const char byte : packet)
        sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(byte));
    packet += static_cast<char>(sum);
    const std::string capture = write("capture", "?" + packet + packet);
    EXPECT_EQ(json({"cdp", "find", capture, "--in", "291m"}).size(), 2u);
    EXPECT_EQ(run({"cdp", "parse", write("anc", packet)}).code, 0);
    // As words of 10 bits behind the flag; the second one is cut.
    std::string words;
    for (const std::string &part : {packet, packet.substr(0, 60)})
    {
        words += std::string{"\0\0\3\xFF\3\xFF", 6};
        for (const char byte : part)
            words += std::string{'\1', byte};
    }
    const std::string cut = write("words", words);
    const Result found = run({"cdp", "find", cut, "--in", "291m", "--words", "10bit-adf"});
    EXPECT_EQ(found.code, 3);
    EXPECT_THAT(found.err, HasSubstr("section cut: 1 packet, first at byte 178 (KIVCS2STATUS_FORMAT_ERR"));
    EXPECT_EQ(run({"cdp", "find", cut, "--in", "291m", "--words", "8bit-adf"}).code, 1);
    // Wrapped, on line 9, after a line that is not looked at.
    const auto header = [](char line, char coding, char size)
    { return std::string{'\0', line, 1, coding, 0, size, 0, 0, 0, size, 0, 0, 0, 1}; };
    const std::string frame = std::string{"\0\2", 2} + header(7, 4, 1) + "x" +
                              header(9, 4, static_cast<char>(packet.size())) + packet;
    EXPECT_EQ(json({"cdp", "find", write("wrapped", frame + frame), "--in", "436m"}).size(), 2u);
    EXPECT_EQ(json({"cdp", "find", path("wrapped").string(), "--in", "436M"}).size(), 2u);
    EXPECT_EQ(run({"cdp", "build", "--json", "-o", path("cdp.json").string()}).out, "");
    EXPECT_EQ(parseJson(slurp(path("cdp.json")))["bytes"], 82);
    EXPECT_EQ(run({"cdp", "find", write("cut", frame.substr(0, 40)), "--in", "436m"}).code, 3);
    EXPECT_EQ(run({"cdp", "find", write("none", "nothing"), "--in", "291m"}).code, 1);
}

TEST_F(Command, ConvertsTextWithoutDroppingAnything)
{
    EXPECT_EQ(run({"str", "convert", "-", "--to", "utf16le", "--mark"}, "aé").out, std::string("\xFF\xFE"
                                                                                               "a\0\xE9\0",
                                                                                               6));
    EXPECT_EQ(run({"str", "convert", "-", "--to", "utf8"}, std::string("\xFE\xFF\0a\0\xE9", 6)).out, "aé");
    EXPECT_EQ(run({"str", "convert", "-", "--from", "latin1", "--to", "utf8"}, "\xE9").out, "é");
    EXPECT_EQ(run({"str", "convert", "-", "--to", "ascii"}, "").code, 0);
    const Result lost = run({"str", "convert", "-", "--to", "ascii"}, "ab\xC3\xA9");
    EXPECT_EQ(lost.code, 3);
    EXPECT_THAT(lost.out, IsEmpty());
    EXPECT_EQ(run({"str", "convert", "-", "--to", "latin1"}, "\xC3").code, 3);
    EXPECT_EQ(run({"str", "detect", "-"}, "\xEF\xBB\xBFx").out, "utf8, by a byte-order mark of 3 bytes\n");
    EXPECT_EQ(run({"str", "detect", "-"}, "plain").code, 1);
}

} // namespace
