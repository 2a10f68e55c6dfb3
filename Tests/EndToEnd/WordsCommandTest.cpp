// What the command says about its words: examples that run, completions, numbers read by one set of rules.
#include "CommandRun.h"

#include <cstdlib>
#include <map>
#include <set>
#include <utility>

namespace
{

using kiv::test::Json;
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

// Beside 0. Services find nobody here, and few machines have sensors.
const std::map<std::string, std::set<int>> kOtherCodes = {
    {"kivcs2 sensors show", {4, 5}},  {"kivcs2 sensors watch", {4, 5}},
    {"kivcs2 doctor", {1}},           {"kivcs2 services publish", {124}},
    {"kivcs2 services browse", {1}},  {"kivcs2 services first", {6}},
    {"kivcs2 services monitor", {6}}, {"kivcs2 services types", {0, 1, 5}},
    {"kivcs2 net listen", {6}},       {"kivcs2 net recv", {6}},
    {"kivcs2 cdp find", {1}}};

TEST_F(WordsCommand, RunsTheExampleOfEveryWord)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1); // no daemon of the machine hears of this
    const Json description = Json::parse(run({"generate", "json"}).out);
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

TEST_F(WordsCommand, CompletesWordsOptionsAndValues)
{
    struct Row
    {
        std::string line; ///< what stands on the command line, the last word half written
        std::string found;
    };
    const std::vector<Row> rows = {
        {"kivcs2 ca", "<caption>"},
        {"kivcs2 --json caption co", "<convert>"},
        {"kivcs2 caption convert --ke", "<--keep-going>"},
        {"kivcs2 run --as", "<--async>"},
        {"kivcs2 codec show --format 1080i25\\ HDV\\ R", R"(<1080i25\ HDV\ RGBA>)"},
        {"kivcs2 codec show ProRes\\ 422\\ \\(H", R"(<ProRes\ 422\ \(HQ\)>)"},
        {"kivcs2 tc convert 1 --to 59", "<59.94df><59.94ndf>"},
        {"kivcs2 curve png out.png Sin", "<SinIn><SinOut><SinInOut>"},
        {"kivcs2 net send g", "<group>"},
        {"kivcs2 generate completion z", "<zsh>"},
        {"kivcs2 crc program", "<programme.scc>"},
        {"kivcs2 crc programme.scc ot", "<other.txt>"},
        {"kivcs2 shm attach 1 -w ot", "<other.txt>"},
        {"kivcs2 tc show 1", ""},
    };
    write("programme.scc", "");
    write("other.txt", "");
    std::string script = "source '" KIV_COMPLETION "'; compopt() { :; }\n";
    std::string wanted;
    for (const Row &row : rows)
    {
        // As bash hands it over: the words as they are written, with their backslashes.
        script += "read -ra given <<<'" + row.line + "'; COMP_WORDS=()\n" + R"sh(
            line=")sh" +
                  row.line + R"sh("
            while [[ $line =~ ^((\\.|[^\\ ])+)\ *(.*)$ ]]; do
                COMP_WORDS+=("${BASH_REMATCH[1]}"); line=${BASH_REMATCH[3]}
            done
            COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kivcs2
            for reply in "${COMPREPLY[@]}"; do printf '<%s>' "$reply"; done; echo
            )sh";
        wanted += row.found + "\n";
    }
    const Result result = shell(script);
    EXPECT_EQ(result.out, wanted) << result.err;
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

} // namespace
