// The descendants of a process, by the kernel's table, and the ways to signal them.
#ifndef KIV_PRIVATE_TASKS_TREE_H
#define KIV_PRIVATE_TASKS_TREE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct kinfo_proc;

namespace kiv
{
// As kill(), but only for a single process: returns -1 for ids of groups, all processes and process 1.
int signalProcess(pid_t pid, int signal);

// A snapshot of the table. Empty if /proc cannot be read.
class ProcessTable
{
public:
    ProcessTable();
    ~ProcessTable();
    ProcessTable(const ProcessTable &) = delete;
    ProcessTable &operator=(const ProcessTable &) = delete;

    [[nodiscard]] const kinfo_proc *begin() const;
    [[nodiscard]] const kinfo_proc *end() const;

    // Returns null if there is no such process, or if it has ended and was not waited for.
    [[nodiscard]] const kinfo_proc *findLiving(pid_t pid) const;

    // Returns whether the process that was started at `start` has ended. A `start` of 0 means the current
    // process of that id, and is set.
    [[nodiscard]] bool hasEnded(pid_t pid, uint64_t &start) const;

private:
    [[nodiscard]] bool read(size_t more);
    [[nodiscard]] const kinfo_proc *find(pid_t pid) const;

    kinfo_proc *m_entries = nullptr;
    size_t m_count = 0;
};

// A process of a tree.
struct TreeProcess
{
    static constexpr size_t kNone = ~size_t{0};
    static constexpr uint64_t kAnyStart = ~uint64_t{0};

    pid_t pid;
    size_t parent;          // index in the tree; kNone for a root whose parent is not in it
    uint64_t start;         // 0 until the table was read
    uint64_t startedBefore; // a later process with the same id is a different one; kAnyStart for any
    bool isTarget;          // this process is signalled too, not only those below it
    bool isStill;           // it has stopped, or is never stopped
    bool isStopped;         // this tree has stopped it and must continue it
    bool isServersCopy;     // the task server's child before it executes
    bool hasEnded;
    bool isNoted; // in the page that host and server share
};

// Processes with all their descendants. They are stopped before the search: a shell starts its next command
// as soon as its last one is gone, and once the shell is gone too, that command cannot be found. The user of
// a tree must not hold a mutex that a launch needs: a launch waits for its child until it executes, and the
// child may be stopped.
class ProcessTree
{
public:
    // `server` is never stopped: if this process dies meanwhile, the server ends the stopped processes. 0 if
    // there is none.
    explicit ProcessTree(pid_t server);
    ~ProcessTree();
    ProcessTree(const ProcessTree &) = delete;
    ProcessTree &operator=(const ProcessTree &) = delete;

    // Adds the processes below a process, with `itself` the process too. Ids of 1 and less count as without
    // descendants, except that process 1 may name itself.
    void addRoot(pid_t pid, bool itself, uint64_t startedBefore = TreeProcess::kAnyStart);

    // Reads the table once; returns true if a new process was found.
    bool look();
    // Stops the processes found and reads the table again, until there is no new process or for 0.25 s.
    void stopAndLook();
    // Signals the targets, the deepest first, and then continues the processes it has stopped, children
    // before parents. This process itself, if it is a target, comes last of all.
    void signal(int signal);

    // Returns true if the table could be read, so that a process that was not found does not exist.
    [[nodiscard]] bool hasSeen() const
    {
        return m_hasSeen;
    }

    // Returns whether any target but `spared` has not ended.
    [[nodiscard]] bool hasLiving(pid_t spared) const;

    [[nodiscard]] size_t size() const
    {
        return m_count;
    }
    [[nodiscard]] TreeProcess &operator[](size_t index)
    {
        return m_processes[index];
    }
    // Returns the index of the process with an id that has not ended, or TreeProcess::kNone.
    [[nodiscard]] size_t find(pid_t pid) const;

private:
    TreeProcess *add(pid_t pid, size_t parent);
    void refresh(const ProcessTable &table);
    void connect(size_t index, pid_t parent);
    [[nodiscard]] bool mayBeStopped(const TreeProcess &process) const;
    [[nodiscard]] bool stop(TreeProcess &process) const;
    void waitUntilStill(uint64_t end);
    template <class Visit>
    void visitDeepestFirst(size_t parent, Visit visit);

    pid_t m_server;
    TreeProcess *m_processes = nullptr;
    size_t m_count = 0;
    size_t m_room = 0;
    bool m_hasSeen = false;
    pid_t m_ancestors[64] = {}; // of this process: if stopped, they could hold up a process that waits for it
};
} // namespace kiv

#endif
