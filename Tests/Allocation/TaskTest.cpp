// Tasks when memory runs out: an incomplete task can be released, and a launch that could not be prepared
// leaves nothing.
#include "KIVCS2Task.h"
#include "KIVCS2TaskServer.h"
#include "Private/Tasks/ServerRecord.h"
#include "Private/Tasks/ServerWire.h"

#include "FailingAllocator.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <unistd.h>

namespace
{
using namespace kiv::test;

const char *kArguments[] = {"-c", "exit 3", nullptr};

KIVCS2Task *makeTask()
{
    KIVCS2Task *task = nullptr;
    EXPECT_EQ(kivCS2Task_create(&task, "/bin/sh", kArguments), KIVCS2STATUS_OK);
    return task;
}

TEST(TaskAllocations, APartOfATaskIsReleased)
{
    const size_t count = forEachAllocation(
        [](size_t index)
        {
            KIVCS2Task *task = nullptr;
            expectOkOrMemory(kivCS2Task_create(&task, "/bin/sh", kArguments));
            EXPECT_EQ(task == nullptr, allocationFailed() && index == 0);
            if (task != nullptr)
            {
                EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
            }
        });
    EXPECT_GE(count, 6u); // the record, the command, the arguments' array and three texts
}

TEST(TaskAllocations, LaunchesPathsAndRequestsTell)
{
    const size_t count = forEachAllocation(
        [](size_t)
        {
            KIVCS2Task *task = nullptr;
            if (KIVCS2_FAILED(kivCS2Task_create(&task, "/bin/sh", kArguments)))
            {
                if (task != nullptr)
                    (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse);
                return;
            }
            expectOkOrMemory(kivCS2Task_setStdOutFile(task, "/dev/null"));
            EXPECT_EQ(task->m_stdOutFile == nullptr, allocationFailed());
            const bool before = allocationFailed();
            kiv::ExecMessage message;
            const KIVCS2Status made = message.make(*task);
            EXPECT_EQ(made, allocationFailed() != before ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            const bool beforeLaunch = allocationFailed();
            const KIVCS2Status launched = kivCS2Task_launch(task);
            EXPECT_EQ(launched,
                      allocationFailed() != beforeLaunch ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(task->m_exitCode, KIVCS2_FAILED(launched) ? 0 : 3);
            // Without the process table no process is found, which is not a failure.
            EXPECT_EQ(kivCS2TaskServer_killAllChildProcesses(getpid()), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
        });
    EXPECT_GE(count, 10u);
    KIVCS2Task *task = makeTask();
    EXPECT_EQ(kivCS2Task_launch(task), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
}

TEST(TaskAllocations, ARequestIsReadWholeOrNotAtAll)
{
    KIVCS2Task *task = makeTask();
    kiv::ExecMessage message;
    ASSERT_EQ(message.make(*task), KIVCS2STATUS_OK);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
    g_CSTaskServer.m_descriptors[kRequestRead] = ends[0];
    g_CSTaskServer.m_descriptors[kRequestWrite] = ends[1];
    const size_t count = forEachAllocation(
        [&](size_t)
        {
            std::array<char, 256> rest{};
            EXPECT_EQ(message.send(), KIVCS2STATUS_OK);
            ASSERT_EQ(read(ends[0], rest.data(), 1), 1); // the command byte
            kiv::ExecRequest request;
            expectOkOrMemory(request.read(false));
            EXPECT_EQ(read(ends[0], rest.data(), rest.size()) > 0, allocationFailed());
        });
    EXPECT_EQ(count, 5u); // the command, the array, and three texts
    for (const int end : ends)
        close(end);
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
}
} // namespace
