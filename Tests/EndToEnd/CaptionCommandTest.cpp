// kivcs2 caption as a user reads files with it: damaged ones, those of peers, and CEA-708.
#include "CommandRun.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace
{

using kiv::test::Command;
using kiv::test::Json;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::Words;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class CaptionCommand : public Command
{
protected:
    [[nodiscard]] Result captions(const std::string &file, Words more = {}) const
    {
        more.insert(more.begin(), {"caption", "show", file, "--captions"});
        return run(more);
    }
};

const std::string kHead = "Scenarist_SCC V1.0\n\n";
const std::string kFirst = "00:00:01;00\t94ae 94ae 9420 9420 9470 9470 c849 942f 942f"; // HI
const std::string kSecond = "00:00:09;00\t942c 942c";
const std::string kSCC = kHead + kFirst + "\n\n" + kSecond + "\n";

std::string edited(std::string text, const std::string &from, const std::string &to)
{
    EXPECT_NE(text.find(from), std::string::npos) << from;
    return text.replace(text.find(from), from.size(), to);
}

std::string replacedAll(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// An MCC line with the bytes of CEA-708 packets.
std::string packetLine(const std::string &timecode, uint16_t sequence, const std::string &dtvccBytes)
{
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionDTVCC dtvcc{};
    dtvcc.m_starts = dtvccBytes.empty() ? 0 : 1;
    dtvcc.m_count = static_cast<uint32_t>(dtvccBytes.size());
    std::copy(dtvccBytes.begin(), dtvccBytes.end(), dtvcc.m_bytes);
    EXPECT_EQ(
        kivCS2CaptionPacket_build(&packet, KIVCS2CaptionCounting_25, sequence, nullptr, &dtvcc, nullptr, 0),
        KIVCS2STATUS_OK);
    std::string line = timecode + "\t";
    for (uint32_t index = 0; index < packet.m_size; ++index)
    {
        char text[3];
        std::snprintf(text, sizeof text, "%02X", packet.m_anc[index]);
        line += text;
    }
    return line + "\n";
}

const std::string kMCC = "File Format=MacCaption_MCC V1.0\n\nTime Code Rate=25\n\n";

// Service 1 alone: a window with HI, and its end.
std::string window708(const std::string &from, const std::string &until, uint16_t sequence)
{
    const std::string window = std::string{"\x98\x00\x8A\x05\x01\x1F\x11", 7} + "HI\x89\x01";
    return packetLine(from, sequence, "\x07\x2B" + window + std::string(1, '\0')) +
           packetLine(until, sequence + 1, "\x42\x22\x8C\x01");
}

std::string only708()
{
    return kMCC + window708("00:00:01:00", "00:00:02:00", 0);
}

TEST_F(CaptionCommand, ShowsWhatOthersHaveWritten)
{
    const std::string example = path("example.mcc").string();
    ASSERT_EQ(run({"caption", "convert", KIV_EXAMPLE_SCC, example}).code, 0);
    const std::string shown = captions(KIV_EXAMPLE_SCC).out;
    const std::string hi = "00:00:01;07  00:00:09;00  CC1  pop-on   HI\n";
    struct Row
    {
        const char *name, *file;
        std::string text, out;
        std::string fault; ///< told with its first place; empty: nothing is told
    };
    const std::vector<Row> rows = {
        {"in order", "a.scc", kSCC, hi, ""},
        {"four bytes for U", "u.mcc", replacedAll(slurp(example), "E1ZZZ", "U"), shown,
         "four-byte U in column"},
        {"lower case", "l.mcc", replacedAll(slurp(example), "\tT52S", "\tT52s"), shown,
         "lower case in column"},
        {"CEA-708 alone", "d.mcc", only708(), "00:00:01:00  00:00:02:00  S1   window   HI\n", ""},
        {"field 2", "2.scc",
         kHead + "00:00:01;00\t1520 1520 1570 1570 c849 152f 152f\n\n00:00:09;00\t152c 152c\n",
         "00:00:01;05  00:00:09;00  CC3  pop-on   HI\n", ""},
        {"words of two digits", "w.scc",
         edited(edited(kSCC, "c849", "c849 94 ceef 94"), "00:00:01;00", "00:00:00;28"),
         "00:00:01;08  00:00:09;00  CC1  pop-on   HINo\n", "word length in column 48, \"94\""},
        {"column 32", "c.scc", edited(edited(kSCC, "9470 9470", "94fe 94fe"), "c849", "c1c2 4375 9225 9225"),
         "00:00:01;10  00:00:09;00  CC1  pop-on   ABC\xC3\xBC\n", ""},
        {"no header", "h.scc", kFirst + "\n" + kSecond + "\n", hi, ":1: header missing"},
        {"another case", "k.scc", edited(kSCC, "Scenarist_SCC", "scenarist_scc"), hi, ":1: header case"},
        {"a blank for the tab", "t.scc", edited(kSCC, "\t", "  "), hi, ":3: blanks before data in column 12"},
        {"no tab", "n.scc", edited(kSCC, "\t", ""), hi, ":3: blanks before data"},
        {"a comma", "p.scc", edited(kSCC, "09;00", "09,00"), hi, ":5: frame separator in column 9, \",\""},
        {"a number left out", "x.scc", edited(kSCC, "00:00:09;00", "00:01:00;00"),
         "00:00:01;07  00:01:00;02  CC1  pop-on   HI\n", ":5: dropped number in column 1, \"00:01:00;00\""},
        {"a long line", "o.scc",
         edited(kSCC, "942f 942f", "942f 942f" + replacedAll(std::string(40000, 'x'), "x", " 8080")),
         hi.substr(0, 13) + "00:22:15;29", ":5: overlap in column 1"},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.name);
        const std::string file = write(row.file, row.text);
        const Result result = captions(file);
        EXPECT_THAT(result.out, StartsWith(row.out));
        EXPECT_THAT(result.err, row.fault.empty() ? testing::Matcher<std::string>(IsEmpty())
                                                  : testing::Matcher<std::string>(HasSubstr(row.fault)));
        EXPECT_EQ(result.code, result.err.ends_with("lost\n") ? 3 : 0);
        // The same through a pipe, and from the middle of a file.
        const std::string line = "cat '" + file + "' | " + KIV_COMMAND +
                                 " caption show - --captions 2>&1 >'" + path("piped").string() +
                                 "' | cat >/dev/null";
        EXPECT_EQ(std::system(line.c_str()), 0);
        EXPECT_EQ(slurp(path("piped")), result.out);
        EXPECT_EQ(run({"caption", "show", "-", "--captions"}, "///" + row.text, -1, 3).out, result.out);
    }
}

TEST_F(CaptionCommand, NamesEveryService)
{
    const auto services = [&](const std::string &file) {
        return json({"caption", "info", file})["services"];
    };
    const std::string mcc = write("d.mcc", only708());
    EXPECT_EQ(services(mcc), Json::parse(R"([{"service":"S1","captions":1,"language":null}])"));
    EXPECT_EQ(services(KIV_EXAMPLE_SCC), Json::parse(R"([{"service":"CC1","captions":7,"language":null}])"));
    EXPECT_THAT(run({"caption", "info", mcc}).out, HasSubstr("\n  S1      1\n"));
    EXPECT_EQ(json({"caption", "at", mcc, "00:00:01:05"})["shown"][0]["text"], "HI");
    EXPECT_THAT(run({"caption", "show", mcc}).out,
                HasSubstr("00:00:01:00  line 5, CEA-708, 14 bytes\n    072b"));
    EXPECT_EQ(captions(mcc, {"--service", "CC1,S2"}).out, "");
    EXPECT_NE(captions(mcc, {"--service", "s1"}).out, "");
    EXPECT_EQ(captions(mcc, {"--service", "S64"}).code, 2);
    EXPECT_EQ(captions(KIV_EXAMPLE_SCC, {"--field", "2", "--service", "CC3"}).out,
              replacedAll(captions(KIV_EXAMPLE_SCC).out, "CC1", "CC3"));
}

// What shows, lists or reads nothing is no success, and an option without effect is refused.
TEST_F(CaptionCommand, CallsNothingNoSuccess)
{
    const std::string mcc = write("d.mcc", only708()), scc = write("s.scc", kSCC);
    const std::string unseen = write("unseen.scc", kHead + "00:00:01;00\tc849\n");
    const std::string empty = write("empty.mcc", kMCC + packetLine("00:00:01:00", 0, ""));
    const std::string out = path("out.mcc").string();
    struct Row
    {
        Words words;
        int code;
        std::string text; ///< somewhere in what is printed
    };
    const std::vector<Row> rows = {
        {{"caption", "show", unseen, "--captions"}, 1, "no caption in it comes to the screen"},
        {{"caption", "show", empty}, 1, "no pair in it"},
        {{"caption", "show", mcc, "--service", "CC1"}, 1, "no pair of what was asked for"},
        {{"caption", "show", mcc, "--captions", "--from", "00:00:10:00"}, 1, "no caption of what was"},
        {{"caption", "at", scc, "00:00:01;00", "--service", "S1"}, 1, "No pair goes out"},
        {{"caption", "verify", empty}, 1, "captions    fails   none"},
        {{"caption", "verify", scc}, 0, "captions   ok      CC1 1 captions"},
        {{"caption", "verify", mcc, "--fix-parity"}, 2, "--against"},
        {{"caption", "decode", "-"}, 3, "no pairs to decode"},
        {{"cdp", "parse", "-"}, 3, "standard input: no bytes of a packet"},
        {{"cdp", "parse", "--hex", " "}, 3, "--hex: no bytes of a packet"},
        {{"caption", "convert", unseen, out}, 0, ": no caption in it comes to the screen\n"},
        {{"caption", "convert", unseen, out, "--to", "srt"},
         3,
         "kivcs2: " + unseen + ": shows no captions ("},
        {{"caption", "convert", mcc, out, "--field", "2"}, 2, "--service"},
        {{"caption", "convert", mcc, out, "--both-tracks"}, 2, "of an SCC source"},
        {{"caption", "convert", mcc, out, "--to", "mcc1", "--mcc-version", "2"}, 2, "without a number"},
        {{"caption", "convert", mcc, out, "--strict", "--keep-going"}, 2, "excludes"},
        {{"caption", "convert", mcc, out, "--to", "vtt"}, 0, "WebVTT: 1 caption"},
        {{"caption", "info", write("a.srt", "1\n00:00:01,000 --> 00:00:02,000\nHI\n")},
         3,
         ".srt:2: not a caption file in column 1, \"00:00:01,000 --> 00:00:0...\"; expected an SCC or MCC "
         "file; "
         "SRT and WebVTT are written only"},
        {{"caption", "info", mcc, "--field", "2"}, 2, "--field is of an SCC file"},
        {{"caption", "show", mcc, "--both-tracks"}, 2, "--both-tracks is of an SCC file"},
        {{"caption", "at", mcc, "0", "--field", "1"}, 2, "--field is of an SCC file"},
        {{"caption", "verify", mcc, "--field", "1"}, 2, "--field is of an SCC file"},
    };
    for (const Row &row : rows)
    {
        const Result result = run(row.words);
        EXPECT_EQ(result.code, row.code) << row.text;
        EXPECT_THAT(result.out + result.err, HasSubstr(row.text));
    }
    EXPECT_EQ(json({"caption", "convert", path("a.srt").string(), out}, 3)["faults"].size(), 1u);
}

// The packets of an MCC file that goes back in time are placed for all that follows a programme.
TEST_F(CaptionCommand, PlacesPacketsByFrame)
{
    const std::string early = window708("00:00:01:00", "00:00:02:00", 0);
    const std::string late = window708("00:00:03:00", "00:00:04:00", 2);
    const std::string straight = write("straight.mcc", kMCC + early + late);
    const std::string back = write("back.mcc", kMCC + late + early), out = path("out.srt").string();
    const auto result = [&](const std::string &file)
    {
        EXPECT_EQ(run({"caption", "convert", file, out}).code, 0);
        return slurp(out) + captions(file).out + run({"caption", "at", file, "00:00:03:05"}).out;
    };
    EXPECT_EQ(replacedAll(result(back), "line", "-"), replacedAll(result(straight), "line", "-"));
    EXPECT_EQ(run({"caption", "convert", back, out, "--to-rate", "24"}).code, 0);
    EXPECT_THAT(run({"caption", "verify", back}).out, HasSubstr("back in time")); // as it stands
    std::filesystem::remove(out);
    const std::string told = path("told").string();
    const std::string line =
        "cat '" + back + "' | " + KIV_COMMAND + " caption convert - '" + out + "' 2>'" + told + "'";
    EXPECT_EQ(WEXITSTATUS(std::system(line.c_str())), 3);
    EXPECT_THAT(slurp(told), HasSubstr("standard input:7: goes back in time, and packets cannot be placed"));
    EXPECT_FALSE(std::filesystem::exists(out));
}

// The times of cues go on over midnight, from a time zero of the evening too.
TEST_F(CaptionCommand, CountsCuesOverMidnight)
{
    const std::string srt = path("night.srt").string();
    const std::string night = write("night.mcc", kMCC + window708("23:59:58:00", "23:59:59:00", 0) +
                                                     window708("23:59:59:12", "00:00:00:12", 2) +
                                                     window708("00:00:01:00", "00:00:02:00", 4));
    ASSERT_EQ(run({"caption", "convert", night, srt, "--time-zero", "23:59:00:00"}).code, 0);
    std::string times;
    std::istringstream lines{slurp(srt)};
    for (std::string line; std::getline(lines, line);)
        times += line.find("-->") != std::string::npos ? line + "\n" : "";
    EXPECT_EQ(times, "00:00:58,000 --> 00:00:59,000\n00:00:59,480 --> 00:01:00,480\n"
                     "00:01:01,000 --> 00:01:02,000\n");
}

TEST_F(CaptionCommand, GoesOnBehindWhatIsLost)
{
    std::string text = kHead + "00:00:00;00\tc1c2,c3c4\n" + kFirst + "\nnot a line\n";
    for (int times = 0; times < 3000; ++times)
        text += "00:00:02;00\tc1c2g\n";
    const std::string bad = write("bad.scc", text + kSecond + " \n");
    const Result shown = captions(bad);
    EXPECT_EQ(shown.code, 3);
    EXPECT_THAT(shown.out, HasSubstr("pop-on   HI\n"));
    EXPECT_EQ(
        shown.err,
        "kivcs2: " + bad +
            ":3: unknown character in column 17, \",\"; expected hexadecimal digits or letters "
            "of the format; first of 3001; 3001 lost\nkivcs2: " +
            bad +
            ":5: not a caption in column 1, \"not a line\"; expected HH:MM:SS:FF, a tab and data; lost\n"
            "kivcs2: " +
            bad + ":3006: blanks behind data in column 22, \" \"; expected the end of the line\n");
    EXPECT_EQ(captions(bad, {"--keep-going"}).code, 0);
    EXPECT_EQ(run({"caption", "at", bad, "00:00:03;00"}).code, 3);
    const Result strict = captions(bad, {"--strict"});
    EXPECT_EQ(strict.code, 3);
    EXPECT_EQ(strict.out, "");
    EXPECT_EQ(strict.err, "kivcs2: " + bad +
                              ":3: unknown character in column 17, \",\"; expected hexadecimal "
                              "digits or letters of the format (KIVCS2STATUS_CAPTION_ERR 0x8000000b)\n");

    // Programs get every place, in every word, and one document.
    const Json fault = {{"file", bad},
                        {"name", "not a caption"},
                        {"line", 5},
                        {"column", 1},
                        {"offset", 99},
                        {"frame", nullptr},
                        {"expected", "HH:MM:SS:FF, a tab and data"},
                        {"found", "not a line"},
                        {"lost", true}};
    for (const Words &words :
         {Words{"info"}, {"at", "00:00:03;00"}, {"verify"}, {"show", "--captions"}, {"show"}})
    {
        SCOPED_TRACE(words[0]);
        Words all = words;
        all.insert(all.begin(), "caption");
        all.insert(all.begin() + 2, bad);
        const Json document = json(all, words[0] == "verify" ? 1 : 3);
        Json faults = document.is_object() ? document["faults"] : Json::array();
        for (const Json &element : document)
            if (document.is_array() && element.contains("fault"))
                faults.push_back(element["fault"]);
        EXPECT_EQ(faults.size(), 3003u);
        EXPECT_NE(std::find(faults.begin(), faults.end(), fault), faults.end()) << faults[0] << faults[1];
    }
    const Json stopped = json({"caption", "info", bad, "--strict"}, 3);
    EXPECT_EQ(stopped["faults"].size(), 1u);
    EXPECT_EQ(stopped["error"]["line"], 3);
}

TEST_F(CaptionCommand, VerifyListsEveryFault)
{
    struct Row
    {
        std::string text;
        int code;
        std::string out;
    };
    const std::vector<Row> rows = {
        {kSCC, 0, "parity     ok"},
        {edited(kSCC, "942c 942c", "942c 942c \t"), 0,
         "22  00:00:09;00  blanks behind data       no     \\x09; expected the end of the line\n\n"},
        {edited(kSCC, "c849", "c84"), 1,
         "43  00:00:01;00  word length              yes   c84; expected words of four digits\n\n"},
        {edited(kSCC, "c849", "4849"), 1,
         "parity     fails   1 fault, first line 3: parity in column 43, \"4849\""},
        {kHead, 1, "lines      fails   1 fault, first line 3: no captions"},
        {"nothing", 1, "file   fails"},
    };
    for (const Row &row : rows)
    {
        const Result result = run({"caption", "verify", write("in.scc", row.text)});
        EXPECT_EQ(result.code, row.code) << row.out;
        EXPECT_THAT(result.out, HasSubstr(row.out));
        EXPECT_THAT(result.err, IsEmpty());
    }
    const std::string many = write("many.scc", kHead + "00:00:01;00\t4142 4142 4142\n");
    EXPECT_THAT(run({"caption", "verify", many, "--most", "1"}).out,
                HasSubstr("\n2 more; --most shows them\n"));
    EXPECT_EQ(run({"caption", "verify", "/nowhere"}).code, 4);

    // A file beside its source, in either direction.
    const std::string scc = write("s.scc", kSCC), other = write("o.scc", edited(kSCC, "c849", "c84a"));
    const std::string mcc = path("s.mcc").string();
    ASSERT_EQ(run({"caption", "convert", scc, mcc}).code, 0);
    for (const auto &[file, source, code] : std::vector<std::tuple<std::string, std::string, int>>{
             {mcc, scc, 0}, {scc, mcc, 0}, {scc, scc, 0}, {mcc, mcc, 0}, {mcc, other, 1}, {other, mcc, 1}})
        EXPECT_EQ(run({"caption", "verify", file, "--against", source}).code, code) << file << source;
    EXPECT_THAT(run({"caption", "verify", mcc, "--against", other}).out,
                HasSubstr("10 of 11 pairs in both files, 1 frame differ, first line "));
}

} // namespace
