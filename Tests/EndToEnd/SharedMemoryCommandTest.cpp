// kivcs2 shm as a user runs it, on a machine without other segments (see OwnIPC.h).
#include "CommandRun.h"
#include "OwnIPC.h"

#include <csignal>
#include <linux/capability.h>
#include <sys/prctl.h>

namespace
{

using namespace kiv::test;
using testing::HasSubstr;

const OwnIPC theIPC;

std::string key(uint32_t index)
{
    return std::to_string(theIPC.key(index));
}

TEST_F(Command, MakesFillsReadsAndRemovesASegment)
{
    const std::string made = key(0), attach = "shm attach " + made;
    expect({{"shm show " + made, 1}, {"shm create " + made + " 4K", 0}});
    const Json shown = document("shm show " + made);
    EXPECT_EQ(shown["key"], theIPC.key(0));
    EXPECT_EQ(shown["size"], 4096);
    EXPECT_EQ(shown["attached"], 0); // it stays on the machine, and `show` does not count
    EXPECT_EQ(shown["mode"], "0666");

    EXPECT_EQ(enter(attach + " -w - --offset 10", "on air").code, 0);
    EXPECT_EQ(enter(attach + " -r - --offset 8 --length 9").out, std::string("\0\0on air\0", 9));
    write("out", "old");
    EXPECT_EQ(enter(attach + " -r out").code, 0);
    EXPECT_EQ(slurp(path("out")).size(), 4096u);

    // A segment with data is cleared only with --clear, and one that is too small is never taken.
    expect({{"shm create " + made + " 16", 1, "has a segment of 4096 bytes; --clear takes it"},
            {"shm create " + made + " 5000 --clear", 1}});
    EXPECT_EQ(document("shm create " + made + " 12 --clear")["id"], shown["id"]);
    EXPECT_EQ(enter(attach + " -r - --offset 10 --length 6").out, std::string("\0\0 air", 6));

    EXPECT_EQ(document("shm free " + made)["removed"], true);
    expect({{"shm free " + made, 1}, {"shm show " + made, 1}});
}

TEST_F(Command, RefusesWhatNoSegmentTakes)
{
    const std::string made = key(1), attach = "shm attach " + made;
    ASSERT_EQ(enter("shm create " + made + " 8").code, 0);
    expect({{"shm create 0 8", 2, "key 0 belongs to private segments"},
            {"shm create 0x100000000 8", 2, "is not a valid key"},
            {"shm create 1 4G", 2, "\"4G\" is not a valid size"}, // the text as typed
            {"shm show ''", 2, "\"\" is not a valid key"},        // it must not mean every segment
            {attach + " -r - --length ''", 2, "\"\" is not a valid length"},
            {"shm create 1 0", 2, "one byte"},
            {attach, 2, "--write or --read"},
            {attach + " -w -", 3, "standard input: 9 bytes, and there is room for 8"},
            {attach + " -r - --offset 9", 3, "ends at byte 8"},
            {attach + " -r - --offset 4 --length 5", 3, "ends at byte 8"},
            {"shm attach " + key(2) + " -r -", 1, "has no segment"}},
           "123456789");
    EXPECT_EQ(enter(attach + " -r - --free").out, std::string(8, '\0'));
    EXPECT_EQ(enter("shm show " + made).code, 1);
}

TEST_F(Command, FindsTheFirstKeyWithoutASegmentAndListsThem)
{
    for (const uint32_t index : {3u, 4u})
        ASSERT_EQ(enter("shm create " + key(index) + " 8").code, 0);
    EXPECT_EQ(document("shm find " + key(3))["key"], theIPC.key(5));
    size_t listed = 0;
    for (const Json &segment : document("shm show"))
        listed += segment["key"] == theIPC.key(3) || segment["key"] == theIPC.key(4) ? 1u : 0u;
    EXPECT_EQ(listed, 2u);
    EXPECT_THAT(enter("shm show").out, HasSubstr("shared"));
    for (const uint32_t index : {3u, 4u})
        ASSERT_EQ(enter("shm free " + key(index)).code, 0);
}

// The system lets another user attach, but not remove.
TEST_F(Command, TellsThatASegmentIsAnotherUsers)
{
    const pid_t other = fork();
    if (other == 0)
        _exit(setuid(65534) != 0 ? 77 : shmget(static_cast<key_t>(theIPC.key(7)), 8, IPC_CREAT | 0666) < 0);
    int ended = 0;
    ASSERT_EQ(waitpid(other, &ended, 0), other);
    if (WEXITSTATUS(ended) == 77 || prctl(PR_CAPBSET_DROP, CAP_SYS_ADMIN) != 0)
        GTEST_SKIP() << "needs a second user";
    ASSERT_EQ(ended, 0);
    expect({{"shm free " + key(7), 4, "the segment stays: Operation not permitted"},
            {"shm attach " + key(7) + " -r - --free", 4, "the segment stays: Operation not permitted"}});
    EXPECT_EQ(document("shm show " + key(7))["attached"], 0);
    shmctl(shmget(static_cast<key_t>(theIPC.key(7)), 0, 0), IPC_RMID, nullptr); // this process may remove it
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
            execlp(KIV_COMMAND, KIV_COMMAND, "shm", "create", key(6).c_str(), "8", "--hold", "--json",
                   nullptr);
            _exit(127);
        }
        char byte = 0;
        ASSERT_EQ(read(ends[0], &byte, 1), 1); // the segment exists
        EXPECT_EQ(document("shm show " + key(6))["attached"], 1);
        EXPECT_EQ(document("shm free " + key(6), 1)["removed"], false);
        ASSERT_EQ(kill(holder, signalNumber), 0);
        int ended = 0;
        ASSERT_EQ(waitpid(holder, &ended, 0), holder);
        if (signalNumber == SIGKILL) // the holder could not free it: the user has to
        {
            EXPECT_EQ(document("shm free " + key(6))["removed"], true);
        }
        else
        {
            EXPECT_TRUE(WIFEXITED(ended) && WEXITSTATUS(ended) == 0);
        }
        EXPECT_EQ(enter("shm show " + key(6)).code, 1);
        for (const int end : ends)
            close(end);
    }
}

} // namespace
