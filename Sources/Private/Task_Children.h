// Children that a launch of the host's own waits for. The SIGCHLD handler takes whatever child has ended, so
// a launch may find its child gone: the status then comes back over the report pipe and is handed over here.
#ifndef KIV_PRIVATE_TASK_CHILDREN_H
#define KIV_PRIVATE_TASK_CHILDREN_H

#include "Private/Task_Spawn.h"

#include <cstdint>

namespace kiv
{
// A child of this process: started, signalled by others through its id, waited for. On the launch's stack.
class Child
{
public:
    Child() = default;
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Starts the plan and stores the id for other threads; false where there is no process.
    [[nodiscard]] bool start(const ExecPlan &plan, const ChildSetup &setup, int32_t &pid);

    // Waits for its end; false where nobody can tell the status.
    [[nodiscard]] bool wait(int &status);

private:
    friend class ChildTable;

    Child *m_next = nullptr;
    pid_t m_pid = 0;
    uint32_t m_slot = 0;
    int m_status = 0;
    bool m_ended = false;
};

// What the readback thread and the task server do with all children of that kind.
class ChildTable
{
public:
    // Memory that a task server forked later shares: it names the children that must not outlive the host.
    static void share();
    // Whether there is a readback thread, so that statuses taken by the handler come back.
    static void expectReports(bool come);
    // A child has ended with `status`; false where no launch waits for it.
    static bool deliver(pid_t pid, int status);
    // A second has passed, and nothing is left to be reported.
    static void tick();
    // In the task server, when the host is gone: signals its children and their descendants. Returns
    // whether there are any.
    static bool signalShared(int signal);

    // The host asks its server for a process; the server's counts the same launches from 1 on.
    [[nodiscard]] static uint32_t beginLaunch();
    // In the task server: the child of a launch has ended and may not have told its id. False without shared memory.
    [[nodiscard]] static bool tellSilentEnd(uint32_t launch, pid_t child);
    // That child, or 0. Whatever it has told is in the pipe by then.
    [[nodiscard]] static pid_t silentEnd(uint32_t launch);

    // The host has signalled all its descendants, the server among them; `leaves` for good.
    static void tellSignalled(bool leaves);
    // In the task server: whether it has, and whether it is on its way out.
    [[nodiscard]] static bool allAreSignalled();
    [[nodiscard]] static bool hostLeaves();
    // A new server has been told nothing yet, and counts its launches anew.
    static void beginServer();

private:
    friend class Child;

    static void add(Child &child);
    static void remove(Child &child);
};
} // namespace kiv

#endif
