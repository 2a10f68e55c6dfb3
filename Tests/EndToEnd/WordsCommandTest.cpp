// The description of the words: examples that run, and completions.
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

class WordsCommand : public Command
{
protected:
    // Runs a line of the shell.
    Result shell(const std::string &line)
    {
        const char *const command = std::exchange(m_command, "/bin/bash");
        const Result result = run({"-c", line});
        m_command = command;
        return result;
    }
};

// Other exit codes than 0. No services are found here, few machines have sensors, and some have no room for a
// segment.
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
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1); // keeps the daemon of the machine out
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
    std::string line; ///< the command line; its last word is incomplete
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

// How each shell prints the completions of a line, as <one><two>.
struct Shell
{
    std::string name;
    std::string before; ///< KIV_COMPLETIONS is set
    std::string line;   ///< @ stands for the line
};

const std::vector<Shell> kShells = {
    // Bash passes the words as they are written, with their backslashes.
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

} // namespace
