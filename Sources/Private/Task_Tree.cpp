#include "Private/Task_Tree.h"

#include <sys/sysctl.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace
{
constexpr size_t kRoomForMore = 10; // processes that may come between the two questions
constexpr pid_t kFirstProcess = 1;  // it and what lies below are groups, everything, or the machine's own
} // namespace

int kiv::signalProcess(pid_t pid, int signal)
{
    if (pid > kFirstProcess)
        return kill(pid, signal);
    errno = ESRCH;
    return -1;
}

kiv::ProcessTable::ProcessTable()
{
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    size_t size = 0;
    if (sysctl(name, 3, nullptr, &size, nullptr, 0) != 0)
        return;
    size += kRoomForMore * sizeof(kinfo_proc);
    m_entries = static_cast<kinfo_proc *>(std::malloc(size));
    if (m_entries == nullptr)
        return;
    // Where still more have come, those that have room are better than none.
    if (sysctl(name, 3, m_entries, &size, nullptr, 0) == 0 || errno == ENOMEM)
        m_count = size / sizeof(kinfo_proc);
}

kiv::ProcessTable::~ProcessTable()
{
    std::free(m_entries);
}

void kiv::ProcessTable::signalDescendants(pid_t parent, int signal)
{
    // Process 1 is no task's, and below 1 are those whose parents cannot be seen from here.
    if (parent <= kFirstProcess)
        return;
    for (size_t index = 0; index < m_count; ++index)
    {
        if (m_entries[index].kp_eproc.e_ppid != parent)
            continue;
        // Taken out before going deeper: entries are read one after the other and may form a circle.
        m_entries[index].kp_eproc.e_ppid = 0;
        const pid_t pid = m_entries[index].kp_proc.p_pid;
        signalDescendants(pid, signal);
        (void)signalProcess(pid, signal); // one that has ended meanwhile is as good
    }
}

const kinfo_proc *kiv::ProcessTable::find(pid_t pid) const
{
    for (size_t index = 0; index < m_count; ++index)
        if (m_entries[index].kp_proc.p_pid == pid)
            return &m_entries[index];
    return nullptr;
}

uint64_t kiv::ProcessTable::startOf(pid_t pid) const
{
    const kinfo_proc *process = find(pid);
    return process != nullptr && process->kp_proc.p_stat != SZOMB ? process->kp_proc.p_starttime : 0;
}

bool kiv::ProcessTable::hasEnded(pid_t pid, uint64_t &start) const
{
    const kinfo_proc *process = find(pid);
    // The table may have had no room for it, or no descriptor to read it by.
    if (process == nullptr)
        return signalProcess(pid, 0) != 0 && errno == ESRCH;
    if (process->kp_proc.p_stat == SZOMB)
        return true;
    if (start == 0)
        start = process->kp_proc.p_starttime;
    return process->kp_proc.p_starttime != start;
}
