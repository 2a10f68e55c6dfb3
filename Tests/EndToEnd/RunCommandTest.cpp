// kivcs2 run: exit codes as env and timeout have them, output files, and the end of all that was started.
#include "Terminal.h"

#include <sys/stat.h>

namespace
{
using namespace kiv::test;

class Run : public Command
{
};

TEST_F(Run, ExitCodesAreThoseOfTheCommand)
{
    write("plain", "");
    for (const std::string way : {"", " --direct", " --async"})
        for (const Line &row : {Line{" -- true", 0},
                                {" -- sh -c 'exit 3'", 3},
                                {" -- sh -c 'kill -9 $$'", 137},
                                {" -- ./plain", 126},
                                {" -- ./none", 127},
                                {" -- no-such-command", 127},
                                {" --bogus -- true", 125},
                                {"", 125},
                                {" --timeout 0.2 -- sh -c 'sleep 60 & sleep 60'", 124},
                                {" -- /usr", 126},
                                {" --timeout nan -- true", 125},
                                {" --timeout 60 -- sh -c 'exit 4'", 4}})
            EXPECT_EQ(enter("run" + way + row.line).code, row.code) << way << row.line;
}

TEST_F(Run, StreamsAndFiles)
{
    const Result piped = enter("run -- sh -c 'cat; echo --json; echo problem >&2'", "input\n");
    EXPECT_EQ(piped.out, "input\n--json\n");
    EXPECT_EQ(piped.err, "problem\n");
    for (const std::string way : {"--direct", "--async"})
    {
        EXPECT_EQ(enter("run " + way + " --stdout out --stderr err -- sh -c 'echo a; echo b >&2'").code, 0);
        EXPECT_EQ(slurp(path("out")) + slurp(path("err")), "a\nb\n");
    }
    EXPECT_EQ(enter("run --stdout x -- true").code, 125);
    // A writer whose reader has gone ends as it would without us.
    EXPECT_EQ(enter("run -- sh -c 'yes | head -n 1; kill -PIPE $$'").code, 128 + SIGPIPE);
}

// A key tells the command once, as without us; a signal to us alone is handed on; and all that is left goes.
TEST_F(Run, InterruptsReachTheCommandOnceAndEndTheTree)
{
    struct Row
    {
        char key; // 0: SIGINT to kivcs2 alone; kHangUp: the terminal goes
        const char *script;
        int code;
    };
    constexpr char kHangUp = 'h';
    const char *const waits = "echo ready; wait";
    const char *const counts = "trap 'echo told; n=1$n' INT; echo ready; read x; read x; exit ${n:-0}";
    const std::string fifo = path("fifo").string();
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string left = "(trap '' INT; exec sleep 60 3>'" + fifo + "') & ";
    for (const std::string way : {"--timeout=60", "--direct", "--async"})
        for (const Row &row : {Row{'\003', waits, 128 + SIGINT},
                               {'\034', waits, 128 + SIGQUIT},
                               {kHangUp, waits, 128 + SIGHUP},
                               {'\003', counts, 1},
                               {'\0', counts, 1}})
        {
            SCOPED_TRACE(way + " " + row.script);
            Terminal terminal{{m_command, "run", way, "--", "sh", "-c", left + row.script}};
            const int reader = open(fifo.c_str(), O_RDONLY); // ends with the last of the tree
            ASSERT_TRUE(terminal.shows("ready"));
            if (row.key == kHangUp)
                terminal.hangUp();
            else if (row.key != 0)
                terminal.type({row.key});
            else
                terminal.tell(SIGINT);
            if (row.code == 1)
            {
                EXPECT_TRUE(terminal.shows("told"));
                terminal.type("\n\n");
            }
            EXPECT_EQ(terminal.code(), row.code);
            char byte = 0;
            EXPECT_EQ(read(reader, &byte, 1), 0);
            close(reader);
        }
}
} // namespace
