// kivcs2 run: exit codes as env and timeout have them, output files, and the end of all that was started.
#include "CommandRun.h"

#include <csignal>

namespace
{
using namespace kiv::test;

class Run : public Command
{
};

TEST_F(Run, ExitCodesAreThoseOfTheCommand)
{
    const std::string plain = write("plain", "");
    const std::string none = path("none").string();
    struct Row
    {
        Words words;
        int code;
    };
    for (const std::string way : {"", "--direct", "--async"})
        for (const Row &row :
             {Row{{"--", "true"}, 0}, Row{{"--", "sh", "-c", "exit 3"}, 3},
              Row{{"--", "sh", "-c", "kill -9 $$"}, 137}, Row{{"--", plain}, 126}, Row{{"--", none}, 127},
              Row{{"--", "no-such-command"}, 127}, Row{{"--bogus", "--", "true"}, 125}, Row{{}, 125},
              Row{{"--timeout", "0.2", "--", "sh", "-c", "sleep 60 & sleep 60"}, 124},
              Row{{"--", "/usr"}, 126}, Row{{"--timeout", "nan", "--", "true"}, 125},
              Row{{"--timeout", "60", "--", "sh", "-c", "exit 4"}, 4}})
        {
            Words words{"run"};
            if (!way.empty())
                words.push_back(way);
            words.insert(words.end(), row.words.begin(), row.words.end());
            EXPECT_EQ(run(words).code, row.code) << way << " " << testing::PrintToString(row.words);
        }
}

TEST_F(Run, StreamsAndFiles)
{
    const Result piped = run({"run", "--", "sh", "-c", "cat; echo --json; echo problem >&2"}, "input\n");
    EXPECT_EQ(piped.out, "input\n--json\n");
    EXPECT_EQ(piped.err, "problem\n");
    for (const std::string way : {"--direct", "--async"})
    {
        const std::string out = path("out" + way).string(), err = path("err" + way).string();
        const Result result =
            run({"run", way, "--stdout", out, "--stderr", err, "--", "sh", "-c", "echo a; echo b >&2"});
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(slurp(out) + slurp(err), "a\nb\n");
    }
    EXPECT_EQ(run({"run", "--stdout", path("x").string(), "--", "true"}).code, 125);
    // A writer whose reader has gone ends as it would without us.
    EXPECT_EQ(run({"run", "--", "sh", "-c", "yes | head -n 1; kill -PIPE $$"}).code, 128 + SIGPIPE);
}
} // namespace
