// kivcs2 shm as a user runs it, on a machine without other segments (see OwnIPC.h).
#include "CommandRun.h"
#include "OwnIPC.h"

#include <csignal>
#include <sys/prctl.h>

namespace
{

using kiv::test::Command;
using kiv::test::Result;
using kiv::test::Words;
using testing::HasSubstr;

const kiv::test::OwnIPC theIPC;

std::string key(uint32_t index)
{
    return std::to_string(theIPC.key(index));
}

TEST_F(Command, MakesFillsReadsAndRemovesASegment)
{
    const std::string made = key(0);
    EXPECT_EQ(run({"shm", "show", made}).code, 1);
    EXPECT_EQ(run({"shm", "create", made, "4K"}).code, 0);
    auto shown = json({"shm", "show", made});
    EXPECT_EQ(shown["key"], theIPC.key(0));
    EXPECT_EQ(shown["size"], 4096);
    EXPECT_EQ(shown["attached"], 0); // left on the machine, and looking does not count
    EXPECT_EQ(shown["mode"], "0666");

    EXPECT_EQ(run({"shm", "attach", made, "-w", "-", "--offset", "10"}, "on air").code, 0);
    EXPECT_EQ(run({"shm", "attach", made, "-r", "-", "--offset", "8", "--length", "9"}).out,
              std::string("\0\0on air\0", 9));
    const std::string file = write("out", "old");
    EXPECT_EQ(run({"shm", "attach", made, "-r", file}).code, 0);
    EXPECT_EQ(kiv::test::slurp(file).size(), 4096u);

    // What has data is not cleared unless it is asked for, and never found too small.
    const Result again = run({"shm", "create", made, "16"});
    EXPECT_EQ(again.code, 1);
    EXPECT_THAT(again.err, HasSubstr("has a segment of 4096 bytes; --clear takes it"));
    EXPECT_EQ(run({"shm", "create", made, "5000", "--clear"}).code, 1);
    EXPECT_EQ(json({"shm", "create", made, "12", "--clear"})["id"], shown["id"]);
    EXPECT_EQ(run({"shm", "attach", made, "-r", "-", "--offset", "10", "--length", "6"}).out,
              std::string("\0\0 air", 6));

    EXPECT_EQ(json({"shm", "free", made})["removed"], true);
    EXPECT_EQ(run({"shm", "free", made}).code, 1);
    EXPECT_EQ(run({"shm", "show", made}).code, 1);
}

TEST_F(Command, RefusesWhatNoSegmentTakes)
{
    const std::string made = key(1);
    ASSERT_EQ(run({"shm", "create", made, "8"}).code, 0);
    struct Row
    {
        Words arguments;
        int code;
        std::string err;
    };
    for (const Row &row : {
             Row{{"shm", "create", "0", "8"}, 2, "key 0 belongs to private segments"},
             {{"shm", "create", "0x100000000", "8"}, 2, "is no key"},
             {{"shm", "create", "1", "4G"}, 2, "is no size"},
             {{"shm", "create", "1", "0"}, 2, "one byte"},
             {{"shm", "attach", made}, 2, "--write or --read"},
             {{"shm", "attach", made, "-w", "-"}, 3, "standard input: 9 bytes, and there is room for 8"},
             {{"shm", "attach", made, "-r", "-", "--offset", "9"}, 3, "ends at byte 8"},
             {{"shm", "attach", made, "-r", "-", "--offset", "4", "--length", "5"}, 3, "ends at byte 8"},
             {{"shm", "attach", key(2), "-r", "-"}, 1, "has no segment"},
         })
    {
        const Result result = run(row.arguments, "123456789");
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_THAT(result.err, HasSubstr(row.err));
    }
    EXPECT_EQ(run({"shm", "attach", made, "-r", "-", "--free"}).out, std::string(8, '\0'));
    EXPECT_EQ(run({"shm", "show", made}).code, 1);
}

TEST_F(Command, FindsTheFirstKeyWithoutASegmentAndListsThem)
{
    for (const uint32_t index : {3u, 4u})
        ASSERT_EQ(run({"shm", "create", key(index), "8"}).code, 0);
    EXPECT_EQ(json({"shm", "find", key(3)})["key"], theIPC.key(5));
    size_t listed = 0;
    for (const auto &segment : json({"shm", "show"}))
        listed += segment["key"] == theIPC.key(3) || segment["key"] == theIPC.key(4) ? 1u : 0u;
    EXPECT_EQ(listed, 2u);
    EXPECT_THAT(run({"shm", "show"}).out, HasSubstr("shared"));
    for (const uint32_t index : {3u, 4u})
        ASSERT_EQ(run({"shm", "free", key(index)}).code, 0);
}

TEST_F(Command, HoldsASegmentUntilItIsInterrupted)
{
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGKILL})
    {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t holder = fork();
        ASSERT_GE(holder, 0);
        if (holder == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that is killed leaves no holder
            dup2(ends[1], 1);
            execl(KIV_COMMAND, "kivcs2", "shm", "create", key(6).c_str(), "8", "--hold", "--json", nullptr);
            _exit(127);
        }
        char byte = 0;
        ASSERT_EQ(read(ends[0], &byte, 1), 1); // it stands and says so
        EXPECT_EQ(json({"shm", "show", key(6)})["attached"], 1);
        EXPECT_EQ(json({"shm", "free", key(6)}, 1)["removed"], false);
        ASSERT_EQ(kill(holder, signalNumber), 0);
        int ended = 0;
        ASSERT_EQ(waitpid(holder, &ended, 0), holder);
        if (signalNumber == SIGKILL) // nobody could free it: that is left to the user
        {
            EXPECT_EQ(json({"shm", "free", key(6)})["removed"], true);
        }
        else
        {
            EXPECT_TRUE(WIFEXITED(ended) && WEXITSTATUS(ended) == 0);
        }
        EXPECT_EQ(run({"shm", "show", key(6)}).code, 1);
        for (const int end : ends)
            close(end);
    }
}

} // namespace
