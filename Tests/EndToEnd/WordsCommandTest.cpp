// What the command says about its words: examples that run, completions, numbers read by one set of rules.
#include "CommandRun.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <utility>

namespace
{

using kiv::test::Json;
using kiv::test::parseJson;
using kiv::test::Result;
using kiv::test::slurp;
using kiv::test::Words;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

class WordsCommand : public kiv::test::Command
{
protected:
    // A line as a user types it, in the folder of the test, with the command under test found first.
    Result shell(const std::string &line)
    {
        const char *const command = std::exchange(m_command, "/bin/bash");
        const std::string folder = fs::path{command}.parent_path();
        const Result result =
            run({"-c", "cd '" + path("").string() + "' && PATH='" + folder + "':$PATH\n" + line});
        m_command = command;
        return result;
    }
};

// Beside 0. Services find nobody here, few machines have sensors, and some have no room for a segment.
const std::map<std::string, std::set<int>> kOtherCodes = {
    {"kivcs2 sensors show", {4, 5}},  {"kivcs2 sensors watch", {4, 5}},
    {"kivcs2 doctor", {1}},           {"kivcs2 services publish", {124}},
    {"kivcs2 services browse", {1}},  {"kivcs2 services first", {6}},
    {"kivcs2 services monitor", {6}}, {"kivcs2 services types", {0, 1, 5}},
    {"kivcs2 net listen", {6}},       {"kivcs2 net recv", {6}},
    {"kivcs2 shm create", {1, 4}},    {"kivcs2 shm attach", {1, 4}},
    {"kivcs2 shm free", {1, 4}},      {"kivcs2 cdp find", {1}},
    {"kivcs2 caption monitor", {1}}};

TEST_F(WordsCommand, RunsTheExampleOfEveryWord)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1); // no daemon of the machine hears of this
    const Json description = parseJson(run({"generate", "json"}).out);
    write("programme.scc", slurp(KIV_EXAMPLE_SCC));
    for (const char *name : {"in.raw", "in.rgba", "capture.bin"})
        write(name, std::string(size_t{640} * 360 * 4, '\0'));
    write("marked.txt", "\xEF\xBB\xBFtext\n");
    write("text.txt", "text\n");
    ASSERT_EQ(
        shell("kivcs2 caption convert programme.scc programme.mcc && "
              "kivcs2 frame bars in.v210 --video '625i25 10 Bit' && kivcs2 frame bars in.2vuy --video 625i25")
            .code,
        0);
    size_t words = 0;
    for (const Json &word : description["words"])
    {
        const std::string name = word["word"];
        SCOPED_TRACE(name);
        if (!word["runs"])
            continue;
        ++words;
        ASSERT_FALSE(word["examples"].empty());
        for (const std::string example : word["examples"])
        {
            EXPECT_THAT(example, HasSubstr(name));
            const Result result = shell(example);
            const auto others = kOtherCodes.find(name);
            EXPECT_TRUE(result.code == 0 ||
                        (others != kOtherCodes.end() && others->second.contains(result.code)))
                << example << ": " << result.code << "\n"
                << result.err;
        }
    }
    EXPECT_GE(words, 60u);
}

struct Completion
{
    std::string line; ///< what stands on the command line, the last word half written
    std::string found;
};

const std::vector<Completion> kCompletions = {
    {"kivcs2 ca", "<caption>"},
    {"kivcs2 --json caption co", "<convert>"},
    {"kivcs2 help caption co", "<convert>"},
    {"kivcs2 caption convert --ke", "<--keep-going>"},
    {"kivcs2 run --as", "<--async>"},
    {"kivcs2 codec show --format 1080i25\\ HDV\\ R", "<1080i25 HDV RGBA>"},
    {"kivcs2 codec show ProRes\\ 422\\ \\(H", "<ProRes 422 (HQ)>"},
    {"kivcs2 tc convert 1 --to 59", "<59.94df><59.94ndf>"},
    {"kivcs2 curve png out.png Sin", "<SinIn><SinInOut><SinOut>"},
    {"kivcs2 curve plot --json SinO", "<SinOut>"},
    {"kivcs2 net send g", "<group>"},
    {"kivcs2 generate completion z", "<zsh>"},
    {"kivcs2 crc program", "<programme.scc>"},
    {"kivcs2 crc programme.scc ot", "<other.txt>"},
    {"kivcs2 shm attach 1 -w ot", "<other.txt>"},
    {"kivcs2 audio weave 25 2", ""},
    {"kivcs2 tc show 1", ""},
};

// Each shell's own words for: what this line completes to, as <one><two>.
struct Shell
{
    std::string name;
    std::string before; ///< KIV_COMPLETIONS is set
    std::string line;   ///< the line is in the place of @
};

const std::vector<Shell> kShells = {
    // As bash hands it over: the words as they are written, with their backslashes.
    {"bash", "source $KIV_COMPLETIONS/kivcs2; compopt() { :; }\n", R"sh(
        COMP_WORDS=(); line="@"
        while [[ $line =~ ^((\\.|[^\\ ])+)\ *(.*)$ ]]; do
            COMP_WORDS+=("${BASH_REMATCH[1]}"); line=${BASH_REMATCH[3]}
        done
        COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kivcs2
        printf '%s\n' "${COMPREPLY[@]//\\/}" | sort | sed '/./s/.*/<&>/' | tr -d '\n'; echo
        )sh"},
    {"zsh", R"sh(
        compadd() { for one in ${(P)2}; do [[ $one != ${(Q)words[-1]}* ]] || print -r -- "$one"; done }
        _files() { for one in ${(Q)words[-1]}*(N); do print -r -- "$one"; done }
        words=(kivcs2 ''); CURRENT=2; source $KIV_COMPLETIONS/_kivcs2 >/dev/null
        )sh",
     R"sh(
        words=(${(z):-"@"}); CURRENT=$#words; _kivcs2 | sort | sed '/./s/.*/<&>/' | tr -d '\n'; echo
        )sh"},
    {"fish", "source $KIV_COMPLETIONS/kivcs2.fish\n",
     "complete -C '@' | string replace -r '\t.*' '' | sort | sed '/./s/.*/<&>/' | tr -d '\\n'; echo\n"},
};

TEST_F(WordsCommand, CompletesWordsOptionsAndValues)
{
    write("programme.scc", "");
    write("other.txt", "");
    setenv("KIV_COMPLETIONS", KIV_COMPLETIONS, 1);
    for (const Shell &one : kShells)
    {
        SCOPED_TRACE(one.name);
        if (shell("command -v " + one.name).code != 0)
        {
            std::cout << one.name << " is not installed: its completions were not tried\n";
            continue;
        }
        std::string script = one.before, wanted;
        for (const Completion &row : kCompletions)
        {
            script += std::string{one.line}.replace(one.line.find('@'), 1, row.line);
            wanted += row.found + "\n";
        }
        write("complete", script);
        const Result result =
            shell("HOME=. LC_ALL=C " + one.name + (one.name == "zsh" ? " -f" : "") + " complete");
        EXPECT_EQ(result.out, wanted) << result.err;
    }
}

TEST_F(WordsCommand, ReadsNumbersByOneSetOfRules)
{
    const std::vector<Words> options = {
        {"audio", "weave", "--samples"},
        {"cdp", "build", "--sequence"},
        {"net", "send", "udp", "127.0.0.1", "5004", "--count"},
        {"net", "recv", "udp", "127.0.0.1", "5004", "--timeout"},
        {"frame", "bars", "-", "--frames"},
        {"pipe", "--size"},
        {"sys", "watch", "--every"},
        {"sys", "watch", "--count"},
        {"services", "first", "a", "_b._tcp", "--timeout"},
        {"run", "--timeout"},
        {"shm", "create", "1"},
    };
    for (const Words &option : options)
        for (const std::string number :
             {"nan", "inf", "-1", "1e400", "18446744073709551616", "1x", " 1", "+1", ""})
        {
            Words arguments = option;
            const bool isOption = option.back().starts_with("--");
            if (isOption) // with "=", so that a sign is no option of its own
                arguments.back() += "=" + number;
            else
                arguments.push_back(number == "-1" ? "1-" : number);
            if (option[0] == "run")
                arguments.insert(arguments.end(), {"--", "true"});
            SCOPED_TRACE(testing::PrintToString(arguments));
            const Result result = run(arguments);
            EXPECT_EQ(result.code, option[0] == "run" ? 125 : 2);
            EXPECT_THAT(result.err, StartsWith("kivcs2: "));
        }
    EXPECT_EQ(run({"cdp", "build", "--sequence=0x10"}).code, 0);
    EXPECT_EQ(run({"pipe", "--size=64KiB", "--quiet"}).code, 0);
}

TEST_F(WordsCommand, HelpsByWordToo)
{
    EXPECT_EQ(run({"help", "caption", "convert"}).out, run({"caption", "convert", "--help"}).out);
    EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
    EXPECT_EQ(run({"help", "caption", "nonsense"}).code, 2);
    EXPECT_EQ(run({"help", "tc", "show"}).code, 0);
}

TEST_F(WordsCommand, TakesNamesInAnyCaseAndNamesTheNearest)
{
    struct Row
    {
        Words arguments;
        int code;
        std::string found; ///< in the output if the code is 0, otherwise in the error
    };
    const std::vector<Row> rows = {
        {{"format", "1080I25 10 bit"}, 0, "1080i25 10 Bit"},
        {{"format", "1080I25"}, 0, "1080i25 8 Bit"},
        {{"format", "525i23"}, 0, "525i23.98 8 Bit"},
        {{"format", "1080p2"}, 1, "; it begins 1080p2"},
        {{"format", "1081i25"}, 1, "; did you mean \"1080i25\"?"},
        {{"codec", "show", "prores 422 (hq)"}, 0, "ProRes 422 (HQ)"},
        {{"codec", "show", "ProRes"}, 1, "; it begins ProRes 422, ProRes 422 (HQ)"},
        {{"curve", "run", "sininO:2:0:1", "hold:1"}, 0, "1"},
        {{"curve", "run", "SinInuot:2:0:1"}, 2, "; did you mean \"SinInOut\"?"},
        {{"str", "convert", "-", "--to", "UTF-16LE"}, 0, ""},
        {{"str", "convert", "-", "--to", "utf61le"}, 2, "; did you mean \"utf16le\"?"},
        {{"audio", "convert", "-", "-", "--channels", "1", "--input", "s16el"},
         2,
         "; did you mean \"s16le\"?"},
        {{"pipe", "--mode", "REJECT", "--quiet"}, 0, ""},
        {{"status", "CAPTOIN_ERR"}, 1, "; did you mean \"CAPTION_ERR\"?"},
        {{"captoin", "info"}, 2, "unknown word \"captoin\"; did you mean \"caption\"?"},
        {{"caption", "shwo"}, 2, "unknown word \"shwo\"; did you mean \"show\"?"},
        {{"help", "tc", "ad"}, 2, "; did you mean \"add\"?"},
        {{"caption", "convert", "a", "b", "--spares"},
         2,
         "unknown option \"--spares\"; did you mean \"--sparse\"?"},
        {{"tc", "show", "1", "--jsno"}, 2, "; did you mean \"--json\"?"},
        {{"nothing-like-it"}, 2, "unknown word \"nothing-like-it\" ("},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        const Result result = run(row.arguments);
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_THAT(row.code == 0 ? result.out : result.err, HasSubstr(row.found));
    }
}

// One document always: what failed says so in it, with the same text as the line on standard error.
TEST_F(WordsCommand, WritesFailuresAsDocuments)
{
    struct Row
    {
        Words arguments;
        int code;
        Json status, file, line;
    };
    const std::string broken = write("broken.scc", "Scenarist_SCC V1.0\n\n00:00:00:00\t94\n");
    const std::string nowhere = path("nowhere").string();
    const Json none;
    const std::vector<Row> rows = {
        {{"nonsense"}, 2, none, none, none},
        {{"tc", "show"}, 2, none, none, none},
        {{"tc", "show", "25:00"}, 3, none, none, none},
        {{"tc", "show", "1", "--rate", "31"}, 2, none, none, none},
        {{"caption", "info", nowhere}, 4, none, nowhere, none},
        {{"caption", "show", broken, "--strict"}, 3, "KIVCS2STATUS_CAPTION_ERR", broken, 3},
        {{"caption", "convert", nowhere, path("x.mcc")}, 4, none, nowhere, none},
        {{"cdp", "parse", nowhere}, 4, none, nowhere, none},
        {{"cdp", "build", "--field1", "94"}, 3, none, none, none},
        {{"cdp", "find", "--in", "other", "-"}, 2, none, none, none},
        {{"format", "1080p61"}, 1, none, none, none},
        {{"codec", "show", "none"}, 1, none, none, none},
        {{"codec", "unpack", "apcn", "toolong"}, 2, none, none, none},
        {{"curve", "plot"}, 2, none, none, none},
        {{"frame", "info", nowhere, "--video", "625i25"}, 4, none, nowhere, none},
        {{"audio", "describe", "x"}, 2, none, none, none},
        {{"crc", nowhere}, 4, none, nowhere, none},
        {{"str", "detect", nowhere}, 4, none, nowhere, none},
        {{"json", "a"}, 2, none, none, none},
        {{"shm", "show", "0x7e57da7a"}, 1, none, none, none},
        {{"net", "recv", "udp", "127.0.0.1", "0"}, 2, none, none, none},
        {{"services", "first", "a", "nonsense"}, 2, none, none, none},
        {{"status", "nonsense"}, 1, none, none, none},
        {{"run", "--timeout", "x", "--", "true"}, 125, none, none, none},
        {{"help", "nonsense"}, 2, none, none, none},
    };
    for (Row row : rows)
    {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        row.arguments.insert(row.arguments.begin(), "--json");
        const Result result = run(row.arguments);
        EXPECT_EQ(result.code, row.code);
        Json document = parseJson(result.out);
        ASSERT_FALSE(document.is_discarded()) << result.out;
        if (document.is_array()) // a listing, of which the failure is the last element
            document = document.back();
        ASSERT_TRUE(document.contains("error")) << result.out;
        const Json error = document["error"];
        EXPECT_EQ(error["exitCode"], row.code);
        EXPECT_EQ(error["status"], row.status);
        EXPECT_EQ(error["file"], row.file);
        EXPECT_EQ(error["line"], row.line);
        EXPECT_EQ("kivcs2: " + error["message"].get<std::string>() + "\n", result.err);
    }
    // Standard output that was to hold data holds nothing else.
    const Result piped = run({"caption", "convert", nowhere, "-", "--json"});
    EXPECT_EQ(piped.out, "");
    EXPECT_EQ(parseJson(piped.err.substr(0, piped.err.find('\n')))["error"]["exitCode"], 4);
}

} // namespace
