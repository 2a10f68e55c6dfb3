// Children that a launch by the host itself waits for. The SIGCHLD handler leaves them to their launches as
// long as there is a note of them. It reaps every other child that has ended, so a launch without a note may
// find its child gone: the status then comes back over the report pipe and is delivered here.
#ifndef KIV_PRIVATE_TASKS_CHILDREN_H
#define KIV_PRIVATE_TASKS_CHILDREN_H

#include "Private/Tasks/Spawn.h"

#include <cstdint>

namespace kiv
{
class ProcessTree;

// A child of this process, on the stack of its launch: it is started, signalled by other threads through its
// id, and waited for.
class Child
{
public:
    Child() = default;
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Starts the plan and stores the id for other threads; false if no process was made.
    [[nodiscard]] bool start(const ExecPlan &plan, const ChildSetup &setup, int32_t &pid);

    // Waits for the child's end; returns false if the status is lost. Children behind it may now be reaped.
    [[nodiscard]] bool wait(int &status);

private:
    friend class ChildTable;

    Child *m_next = nullptr;
    pid_t m_pid = 0;
    uint32_t m_slot = 0;
    int m_status = 0;
    bool m_ended = false;
};

// The operations of the readback thread and the task server on all children that launches wait for.
class ChildTable
{
public:
    // Makes memory that is shared with a task server forked later. It lists the children that must not
    // outlive the host.
    static void share();
    // Stores whether there is a readback thread, so that statuses taken by the handler come back.
    static void expectReports(bool come);
    // The calling thread delivers: a launch by it cannot wait for a report.
    static void deliverHere();
    // Returns whether a launch has a note of this child, and takes its status itself. Async-signal-safe.
    [[nodiscard]] static bool isAwaited(pid_t child);
    // Delivers the `status` of an ended child; returns false if no launch waits for the child.
    static bool deliver(pid_t pid, int status);
    // Call it if a second has passed and no report is left.
    static void tick();

    // Notes process ids that the task server must find once the host is gone, in addition to the children
    // that launches wait for: processes below those children, and tasks whose server has ended.
    static void note(ProcessTree &tree);
    static void note(pid_t pid);
    // In the task server: lets this process note ids for the host from now on.
    static void actForHost();
    // Adds the host's children and the noted processes.
    static void addShared(ProcessTree &tree);
    // Adds the children that the exiting host has launched after it had signalled all; once, for one server.
    static void addLate(ProcessTree &tree);

    // Stores the task server's id, 0 if there is none: the server is never stopped.
    static void serverIs(pid_t server);
    // Sends SIGTERM to all processes below `root`, the deepest first, and with `itself` to that process last.
    // Hold no mutex that a launch needs. False if the process table could not be read, so that no process
    // below was found.
    static bool terminateTree(pid_t root, bool itself);

    // Returns the number of a launch that the host requests from its server; the server counts the same
    // launches from 1.
    [[nodiscard]] static uint32_t beginLaunch();
    // In the task server: notes that the child of a launch has ended and may not have written its id. Returns
    // false if there is no shared memory.
    [[nodiscard]] static bool tellSilentEnd(uint32_t launch, pid_t child);
    // Returns the noted child of a launch, or 0. By then an id that it has written is in the pipe.
    [[nodiscard]] static pid_t silentEnd(uint32_t launch);

    // Notes that the host signals all its descendants, including the server; `leaves` if it is exiting.
    static void beginSignalling(bool leaves);
    // `done`: the descendants were found. Otherwise the server signals them, once the host is gone.
    static void endSignalling(bool done);
    // In the task server: return whether the host is signalling, has signalled, is exiting, and has signalled
    // while exiting.
    [[nodiscard]] static bool isSignalling();
    [[nodiscard]] static bool allAreSignalled();
    [[nodiscard]] static bool hostLeaves();
    [[nodiscard]] static bool hostHasLeft();
    // Resets the state for a new server, which counts its launches from the start.
    static void beginServer();

private:
    friend class Child;

    static void add(Child &child);
    static void remove(Child &child);
};
} // namespace kiv

#endif
