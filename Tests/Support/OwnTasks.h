// Tasks of tests that launch through a task server.
#ifndef KIV_TEST_OWN_TASKS_H
#define KIV_TEST_OWN_TASKS_H

#include "Status.h"

#include <KIVCoreServices2/KIVCS2TaskServer.h>

#include <gtest/gtest.h>

#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

namespace kiv::test
{
inline KIVCS2Task *makeShell(const std::string &script)
{
    const char *arguments[] = {"-c", script.c_str(), nullptr};
    KIVCS2Task *task = nullptr;
    EXPECT_EQ(kivCS2Task_create(&task, "/bin/sh", arguments), KIVCS2STATUS_OK);
    // A host that ends with tasks has not leaked them.
    static auto &made = *new std::vector<KIVCS2Task *>;
    static std::mutex mutex;
    const std::lock_guard lock{mutex};
    made.push_back(task);
    return task;
}

inline KIVCS2Status launchAsync(KIVCS2Task *task, bool throughServer)
{
    return throughServer ? kivCS2TaskServer_exec(task, nullptr, nullptr)
                         : kivCS2Task_launchAsync(task, nullptr, nullptr);
}

// The context of a launch whose callback opens the gate.
struct Ended
{
    std::binary_semaphore gate{0};
    int32_t exitCode = -2;
    KIVCS2TaskState state = 0;
    static void call(KIVCS2Task *task, void *context)
    {
        auto &ended = *static_cast<Ended *>(context);
        ended.exitCode = task->m_exitCode;
        ended.state = task->m_state;
        ended.gate.release();
    }
};

// Launches a script through the server. Returns its raw exit status, or the status of a failed launch, which
// is below 0.
inline int32_t runThroughServer(const std::string &script = "exit 3")
{
    Ended ended;
    KIVCS2Task *task = makeShell(script);
    const KIVCS2Status status = kivCS2TaskServer_exec(task, Ended::call, &ended);
    if (KIVCS2_SUCCEEDED(status))
        ended.gate.acquire();
    else
        EXPECT_EQ(task->m_exitCode, 0);
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate), KIVCS2STATUS_OK);
    return KIVCS2_SUCCEEDED(status) ? ended.exitCode : static_cast<int32_t>(status);
}
} // namespace kiv::test

#endif
