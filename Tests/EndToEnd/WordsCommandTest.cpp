// The completions of the three shells.
#include "CommandRun.h"

#include <cstdlib>
#include <iostream>
#include <utility>

namespace
{

using namespace kiv::test;

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
