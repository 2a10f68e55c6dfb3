// Children that a launch of the host's own waits for. The SIGCHLD handler takes whatever child has ended, so
// a launch may find its child gone: the status then comes back over the report pipe and is handed over here.
#ifndef KIV_PRIVATE_TASKS_CHILDREN_H
#define KIV_PRIVATE_TASKS_CHILDREN_H

#include "Private/Tasks/Spawn.h"

#include <cstdint>

namespace kiv
{
class ProcessTree;

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

    // Process ids that the task server finds when the host is gone, beside the children that launches wait
    // for: what was below those, and tasks whose server has ended.
    static void note(ProcessTree &tree);
    static void note(pid_t pid);
    // In the task server: from now on this process may note, for the host.
    static void actForHost();
    // Adds the host's children and what was noted.
    static void addShared(ProcessTree &tree);
    // Adds the children that the host has launched after it had signalled all on its way out; once, for one
    // server.
    static void addLate(ProcessTree &tree);

    // The task server's id, 0 for none: it is never stopped.
    static void serverIs(pid_t server);
    // SIGTERM to all that is below `root`, the deepest first, and with `itself` to that process at last. Hold
    // no mutex that a launch needs. False if the process table could not be read, so that nothing below was
    // found.
    static bool terminateTree(pid_t root, bool itself);

    // The host asks its server for a process; the server's counts the same launches from 1 on.
    [[nodiscard]] static uint32_t beginLaunch();
    // In the task server: the child of a launch has ended and may not have told its id. False without shared
    // memory.
    [[nodiscard]] static bool tellSilentEnd(uint32_t launch, pid_t child);
    // That child, or 0. Whatever it has told is in the pipe by then.
    [[nodiscard]] static pid_t silentEnd(uint32_t launch);

    // The host signals all its descendants, the server among them; `leaves` for good.
    static void beginSignalling(bool leaves);
    // `done`: they were found. Otherwise the server signals them, once the host is gone.
    static void endSignalling(bool done);
    // In the task server: whether it does, whether it has, whether it is on its way out, and whether it has
    // signalled them on that way.
    [[nodiscard]] static bool isSignalling();
    [[nodiscard]] static bool allAreSignalled();
    [[nodiscard]] static bool hostLeaves();
    [[nodiscard]] static bool hostHasLeft();
    // A new server has been told nothing yet, and counts its launches anew.
    static void beginServer();

private:
    friend class Child;

    static void add(Child &child);
    static void remove(Child &child);
};
} // namespace kiv

#endif
