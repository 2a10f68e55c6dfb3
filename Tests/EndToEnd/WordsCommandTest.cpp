// What the command says about its words: examples that run, completions, numbers read by one set of rules.
#include "CommandRun.h"

#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <utility>

namespace
{

using namespace kiv::test;
using testing::HasSubstr;
using testing::StartsWith;

class WordsCommand : public Command
{
protected:
    // A line of the shell.
    Result shell(const std::string &line)
    {
        const char *const command = std::exchange(m_command, "/bin/bash");
        const Result result = run({"-c", line});
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
    const Json description = parseJson(enter("generate json").out);
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
    for (const std::string option : {
             "audio weave --samples=",
             "cdp build --sequence=",
             "net send udp 127.0.0.1 5004 --count=",
             "net recv udp 127.0.0.1 5004 --timeout=",
             "frame bars - --frames=",
             "pipe --size=",
             "sys watch --every=",
             "sys watch --count=",
             "services first a _b._tcp --timeout=",
             "run --timeout=",
             "shm create 1 ",
         })
        for (const std::string number :
             {"nan", "inf", "-1", "1e400", "18446744073709551616", "1x", " 1", "+1", ""})
        {
            Words words = wordsOf(option);
            if (option.ends_with('='))
                words.back() += number;
            else
                words.push_back(number == "-1" ? "1-" : number);
            if (words[0] == "run")
                words.insert(words.end(), {"--", "true"});
            const Result result = run(words);
            EXPECT_EQ(result.code, words[0] == "run" ? 125 : 2) << option << number;
            EXPECT_THAT(result.err, StartsWith("kivcs2: "));
        }
    EXPECT_EQ(enter("cdp build --sequence=0x10").code, 0);
    EXPECT_EQ(enter("pipe --size=64KiB --quiet").code, 0);
}

TEST_F(WordsCommand, HelpsByWordToo)
{
    EXPECT_EQ(enter("help caption convert").out, enter("caption convert --help").out);
    EXPECT_EQ(enter("help").out, enter("--help").out);
    expect({{"help caption nonsense", 2}, {"help tc show", 0}});
}

TEST_F(WordsCommand, TakesNamesInAnyCaseAndNamesTheNearest)
{
    expect({
        {"format '1080I25 10 bit'", 0, "1080i25 10 Bit"},
        {"format 1080I25", 0, "1080i25 8 Bit"},
        {"format 525i23", 0, "525i23.98 8 Bit"},
        {"format 1080p2", 1, "; it begins 1080p2"},
        {"format 1081i25", 1, "; did you mean \"1080i25\"?"},
        {"codec show 'prores 422 (hq)'", 0, "ProRes 422 (HQ)"},
        {"codec show ProRes", 1, "; it begins ProRes 422, ProRes 422 (HQ)"},
        {"curve run sininO:2:0:1 hold:1", 0, "1"},
        {"curve run SinInuot:2:0:1", 2, "; did you mean \"SinInOut\"?"},
        {"str convert - --to UTF-16LE", 0},
        {"str convert - --to utf61le", 2, "; did you mean \"utf16le\"?"},
        {"audio convert - - --channels 1 --input s16el", 2, "; did you mean \"s16le\"?"},
        {"pipe --mode REJECT --quiet", 0},
        {"status CAPTOIN_ERR", 1, "; did you mean \"CAPTION_ERR\"?"},
        {"captoin info", 2, "unknown word \"captoin\"; did you mean \"caption\"?"},
        {"caption shwo", 2, "unknown word \"shwo\"; did you mean \"show\"?"},
        {"help tc ad", 2, "; did you mean \"add\"?"},
        {"caption convert a b --spares", 2, "unknown option \"--spares\"; did you mean \"--sparse\"?"},
        {"tc show 1 --jsno", 2, "; did you mean \"--json\"?"},
        {"nothing-like-it", 2, "unknown word \"nothing-like-it\" ("},
    });
}

// One document always: what failed says so in it, with the same text as the line on standard error.
TEST_F(WordsCommand, WritesFailuresAsDocuments)
{
    const struct
    {
        const char *line;
        int code;
        Json status = {}, file = {}, place = {};
    } rows[] = {
        {"nonsense", 2},
        {"tc show", 2},
        {"tc show 25:00", 3},
        {"tc show 1 --rate 31", 2},
        {"caption info nowhere", 4, {}, "nowhere"},
        {"caption show broken.scc --strict", 3, "KIVCS2STATUS_CAPTION_ERR", "broken.scc", 3},
        {"caption convert nowhere x.mcc", 4, {}, "nowhere"},
        {"cdp parse nowhere", 4, {}, "nowhere"},
        {"cdp build --field1 94", 3},
        {"cdp find --in other -", 2},
        {"format 1080p61", 1},
        {"codec show none", 1},
        {"codec unpack apcn toolong", 2},
        {"curve plot", 2},
        {"frame info nowhere --video 625i25", 4, {}, "nowhere"},
        {"audio describe x", 2},
        {"crc nowhere", 4, {}, "nowhere"},
        {"str detect nowhere", 4, {}, "nowhere"},
        {"json a", 2},
        {"shm show 0x7e57da7a", 1},
        {"net recv udp 127.0.0.1 0", 2},
        {"services first a nonsense", 2},
        {"status nonsense", 1},
        {"run --timeout x -- true", 125},
        {"help nonsense", 2},
    };
    write("broken.scc", "Scenarist_SCC V1.0\n\n00:00:00:00\t94\n");
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.line);
        const Result result = enter(std::string{"--json "} + row.line);
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
        EXPECT_EQ(error["line"], row.place);
        EXPECT_EQ("kivcs2: " + error["message"].get<std::string>() + "\n", result.err);
    }
    // Standard output that was to hold data holds nothing else.
    const Result piped = enter("caption convert nowhere - --json");
    EXPECT_EQ(piped.out, "");
    EXPECT_EQ(parseJson(piped.err.substr(0, piped.err.find('\n')))["error"]["exitCode"], 4);
}

} // namespace
