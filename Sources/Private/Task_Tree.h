// The descendants of a process, by the kernel's table.
#ifndef KIV_PRIVATE_TASK_TREE_H
#define KIV_PRIVATE_TASK_TREE_H

#include <sys/types.h>

#include <cstdint>

struct kinfo_proc;

namespace kiv
{
// kill(), which reaches one process and never a group, all processes or process 1: -1 for such ids.
int signalProcess(pid_t pid, int signal);

// The table at one moment. Where it cannot be had it is empty.
class ProcessTable
{
public:
    ProcessTable();
    ~ProcessTable();
    ProcessTable(const ProcessTable &) = delete;
    ProcessTable &operator=(const ProcessTable &) = delete;

    // Signals every descendant of `parent`, the deepest first. Each is signalled once.
    void signalDescendants(pid_t parent, int signal);

    // When a process that has not ended was started, in nanoseconds of CLOCK_BOOTTIME; 0 where there is none.
    [[nodiscard]] uint64_t startOf(pid_t pid) const;

    // Whether the process that was started at `start` has ended. A `start` of 0 stands for the one that has the
    // id now, and is set.
    [[nodiscard]] bool hasEnded(pid_t pid, uint64_t &start) const;

private:
    [[nodiscard]] const kinfo_proc *find(pid_t pid) const;

    kinfo_proc *m_entries = nullptr;
    size_t m_count = 0;
};
} // namespace kiv

#endif
