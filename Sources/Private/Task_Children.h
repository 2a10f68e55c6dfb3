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
    // A readback thread is there, so that statuses taken by the handler come back.
    static void expectReports();
    // A child has ended with `status`; drops it where no launch waits for it.
    static void deliver(pid_t pid, int status);
    // A second has passed in which nothing was reported.
    static void tick();
    // In the task server, when the host is gone: signals its children and their descendants. Returns
    // whether there are any.
    static bool signalShared(int signal);

private:
    friend class Child;

    static void add(Child &child);
    static void remove(Child &child);
};
} // namespace kiv

#endif
