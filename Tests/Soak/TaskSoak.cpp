// Launches whose child is killed at a random moment: TaskSoak COUNT. No launch hangs, no status is lost, and
// no process is left. It runs in its own process namespace, where the id of the next process is known in
// advance.
#include <KIVCoreServices2/KIVCS2Base.h>
#include <KIVCoreServices2/KIVCS2TaskServer.h>

#include "OwnProcesses.h"
#include "OwnTasks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <semaphore>
#include <sys/mman.h>

namespace
{
using namespace kiv::test;

int g_launches = 100;

// Shared with the process that kills.
struct Aim
{
    std::atomic<int> target{0}; // the child of the next launch; -1: no more
    std::atomic<int> killed{0};
};

// Half of the children are killed as soon as they exist, before they can report their ids; the others later.
[[noreturn]] void killThem(Aim &aim)
{
    std::minstd_rand random{1};
    for (int last = 0;;)
    {
        const int target = aim.target.load();
        if (target < 0)
            _exit(0);
        if (target == last)
            continue;
        last = target;
        while (aim.target.load() == target && kill(target, 0) != 0)
        {
        }
        for (uint32_t spin = random() % 2 == 0 ? 0 : static_cast<uint32_t>(random()) % 200000; spin > 0;
             --spin)
            (void)aim.target.load();
        if (aim.target.load() == target && kill(target, SIGKILL) == 0)
            ++aim.killed;
    }
}

// Process ids: the next one is a step above the newest. A sanitizer may start a thread after each child,
// which takes an id too.
struct Ids
{
    int newest = 0;
    int step = 1;
};

// Returns the whole wait status of one launch.
int launch(bool throughServer, Aim &aim, Ids &ids)
{
    KIVCS2Task *task = makeShell("exit 3");
    Ended ended;
    aim.target = ids.newest + ids.step;
    if (throughServer)
    {
        EXPECT_EQ(kivCS2TaskServer_exec(task, Ended::call, &ended), KIVCS2STATUS_OK);
        EXPECT_TRUE(ended.gate.try_acquire_for(std::chrono::seconds{30})) << "no end";
    }
    else
        EXPECT_EQ(kivCS2Task_launch(task), KIVCS2STATUS_OK);
    ids.step = task->m_pid - ids.newest;
    ids.newest = task->m_pid;
    const int status = throughServer ? task->m_exitCode : task->m_waitStatus;
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
    return status;
}

void host(Aim &aim)
{
    EXPECT_EQ(kivCS2_init(), KIVCS2STATUS_OK);
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf("kivcs2-tasks") == 1; }));
    Ids ids;
    while (kill(ids.newest + 1, 0) == 0 || ids.newest < getpid()) // threads too
        ++ids.newest;
    int ended = 0;
    int killed = 0;
    for (int count = 0; count < g_launches && !testing::Test::HasFailure(); ++count)
    {
        const int status = launch(count % 2 == 0, aim, ids);
        ended += status == 3 << 8 ? 1 : 0;
        killed += status == SIGKILL ? 1 : 0;
    }
    aim.target = -1;
    EXPECT_EQ(ended + killed, g_launches) << "statuses lost";
    // A child that ended by itself may have received the signal before it was reaped.
    EXPECT_LE(killed, aim.killed);
    EXPECT_GT(killed, 0);
    EXPECT_EQ(countOf("sh"), 0u);
    EXPECT_EQ(countOf("kivcs2-tasks"), 1u);
    std::printf("%d launches: %d ended, %d killed\n", g_launches, ended, killed);
}

TEST(TaskSoak, LosesNoStatusOfKilledChildren)
{
    auto *aim =
        new (mmap(nullptr, sizeof(Aim), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Aim;
    const auto body = [aim]
    {
        if (fork() == 0)
            killThem(*aim);
        inChild([aim] { host(*aim); });
        EXPECT_TRUE(holdsWithin(10000, [] { return processes().size() == 1; }))
            << processes().size() - 1 << " left";
    };
    inOwnProcesses(body);
}
} // namespace

int main(int count, char **arguments)
{
    testing::InitGoogleTest(&count, arguments);
    if (count > 1)
        g_launches = std::atoi(arguments[1]);
    return RUN_ALL_TESTS();
}
