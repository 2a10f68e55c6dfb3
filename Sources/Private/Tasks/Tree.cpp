#include "Private/Tasks/Tree.h"

#include <KIVPlatform/KIVPlatform.h>
#include <mach/mach_time.h>
#include <sys/sysctl.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <utility>

namespace
{
constexpr size_t kRoomForMore = 10;   // processes that may be added between the two queries
constexpr size_t kMostRoom = 1 << 14; // the limit on a machine that starts many at once
constexpr pid_t kFirstProcess = 1;    // it and lower ids mean groups, all processes, or the first process
constexpr size_t kFirstRoom = 64;     // processes
constexpr uint64_t kStoppingTime = 250'000'000; // absolute time, nanoseconds
constexpr long kStopPeriod = 200'000;           // nanoseconds between two checks of the stopped processes

// A process whose first thread has ended still lives in its other threads.
[[nodiscard]] bool lives(const kinfo_proc &process)
{
    return process.kp_proc.p_stat != SZOMB ||
           (KIVPThreadStates(process.kp_proc.p_pid) & ~KIVP_THREADS_ENDED) != 0;
}
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
    for (size_t more = kRoomForMore; more <= kMostRoom && !read(more); more *= 4)
    {
    }
}

// Returns false if more than `more` processes were added between the two queries. A table of the
// processes that fitted is better than no table.
bool kiv::ProcessTable::read(size_t more)
{
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    size_t size = 0;
    if (sysctl(name, 3, nullptr, &size, nullptr, 0) != 0)
        return true;
    size += more * sizeof(kinfo_proc);
    auto *entries = static_cast<kinfo_proc *>(std::malloc(size));
    if (entries == nullptr)
        return true;
    std::free(std::exchange(m_entries, entries));
    const int result = sysctl(name, 3, m_entries, &size, nullptr, 0);
    const bool isCut = result != 0 && errno == ENOMEM;
    m_count = result == 0 || isCut ? size / sizeof(kinfo_proc) : 0;
    return !isCut;
}

kiv::ProcessTable::~ProcessTable()
{
    std::free(m_entries);
}

const kinfo_proc *kiv::ProcessTable::begin() const
{
    return m_entries;
}

const kinfo_proc *kiv::ProcessTable::end() const
{
    return m_entries + m_count;
}

const kinfo_proc *kiv::ProcessTable::find(pid_t pid) const
{
    for (const kinfo_proc &process : *this)
        if (process.kp_proc.p_pid == pid)
            return &process;
    return nullptr;
}

const kinfo_proc *kiv::ProcessTable::findLiving(pid_t pid) const
{
    const kinfo_proc *process = find(pid);
    return process != nullptr && lives(*process) ? process : nullptr;
}

bool kiv::ProcessTable::hasEnded(pid_t pid, uint64_t &start) const
{
    const kinfo_proc *process = find(pid);
    // The table may have had no room for the process, or there was no descriptor to read the table.
    if (process == nullptr)
        return signalProcess(pid, 0) != 0 && errno == ESRCH;
    if (!lives(*process))
        return true;
    if (start == 0)
        start = process->kp_proc.p_starttime;
    return process->kp_proc.p_starttime != start;
}

// ---- A tree ----

kiv::ProcessTree::ProcessTree(pid_t server) : m_server{server} {}

kiv::ProcessTree::~ProcessTree()
{
    std::free(m_processes);
}

size_t kiv::ProcessTree::find(pid_t pid) const
{
    for (size_t index = 0; index < m_count; ++index)
        if (m_processes[index].pid == pid && !m_processes[index].hasEnded)
            return index;
    return TreeProcess::kNone;
}

// If there is no memory, the processes found so far are better than no processes.
kiv::TreeProcess *kiv::ProcessTree::add(pid_t pid, size_t parent)
{
    if (m_count == m_room)
    {
        const size_t room = m_room == 0 ? kFirstRoom : m_room * 2;
        void *memory = std::realloc(m_processes, room * sizeof(TreeProcess));
        if (memory == nullptr)
            return nullptr;
        m_processes = static_cast<TreeProcess *>(memory);
        m_room = room;
    }
    TreeProcess &process = m_processes[m_count++];
    process = {};
    process.pid = pid;
    process.parent = parent;
    process.startedBefore = TreeProcess::kAnyStart;
    process.isTarget = true;
    return &process;
}

void kiv::ProcessTree::addRoot(pid_t pid, bool itself, uint64_t startedBefore)
{
    if ((pid <= kFirstProcess && pid != getpid()) || find(pid) != TreeProcess::kNone)
        return;
    if (TreeProcess *process = add(pid, TreeProcess::kNone); process != nullptr)
    {
        process->startedBefore = startedBefore;
        process->isTarget = itself;
    }
}

// Gives a root the parent that it has in the tree. Entries are read one after the other, so they may form a
// circle.
void kiv::ProcessTree::connect(size_t index, pid_t parentPid)
{
    const size_t parent = find(parentPid);
    for (size_t above = parent; above != TreeProcess::kNone; above = m_processes[above].parent)
        if (above == index)
            return;
    m_processes[index].parent = parent;
}

// Updates the known processes from the table.
void kiv::ProcessTree::refresh(const ProcessTable &table)
{
    const kinfo_proc *server = m_server > kFirstProcess ? table.findLiving(m_server) : nullptr;
    for (size_t index = 0; index < m_count; ++index)
    {
        TreeProcess &process = m_processes[index];
        process.hasEnded = process.hasEnded || table.hasEnded(process.pid, process.start);
        const kinfo_proc *entry = process.hasEnded ? nullptr : table.findLiving(process.pid);
        if (entry == nullptr)
        {
            // The table could not be read. The process is still signalled, and continued, if it is known to
            // be the right one.
            process.hasEnded =
                process.hasEnded || (process.start == 0 && process.startedBefore != TreeProcess::kAnyStart);
            continue;
        }
        if (entry->kp_proc.p_starttime > process.startedBefore)
        {
            process.hasEnded = true;
            continue;
        }
        // Until a child executes, it has the server's name.
        process.isServersCopy = server != nullptr && m_server != getpid() &&
                                entry->kp_eproc.e_ppid == m_server &&
                                std::strcmp(entry->kp_proc.p_comm, server->kp_proc.p_comm) == 0;
        if (process.parent == TreeProcess::kNone)
            connect(index, entry->kp_eproc.e_ppid);
    }
    size_t depth = 0;
    for (const kinfo_proc *above = table.findLiving(getpid());
         above != nullptr && above->kp_eproc.e_ppid > 0 && depth < std::size(m_ancestors);
         above = table.findLiving(above->kp_eproc.e_ppid))
        m_ancestors[depth++] = above->kp_eproc.e_ppid;
}

bool kiv::ProcessTree::look()
{
    const ProcessTable table;
    const size_t before = m_count;
    m_hasSeen = m_hasSeen || table.begin() != table.end();
    refresh(table);
    for (bool more = true; more;)
    {
        more = false;
        for (const kinfo_proc &entry : table)
        {
            const pid_t pid = entry.kp_proc.p_pid;
            const size_t parent = find(entry.kp_eproc.e_ppid);
            if (parent == TreeProcess::kNone || find(pid) != TreeProcess::kNone || !lives(entry))
                continue;
            TreeProcess *process = add(pid, parent);
            if (process == nullptr)
                return false;
            process->start = entry.kp_proc.p_starttime;
            more = true;
        }
    }
    if (m_count > before)
        refresh(table);
    return m_count > before;
}

bool kiv::ProcessTree::mayBeStopped(const TreeProcess &process) const
{
    // A root that is not a target is stopped too: otherwise it would continue to make processes.
    return process.pid > kFirstProcess && process.pid != getpid() && process.pid != m_server &&
           std::find(std::begin(m_ancestors), std::end(m_ancestors), process.pid) == std::end(m_ancestors);
}

// Stops a process; returns false while it has not stopped yet. A process stopped by another process stays so.
bool kiv::ProcessTree::stop(TreeProcess &process) const
{
    // Until a child of the server executes, the server waits for it and could not continue it.
    if (process.isStill || process.hasEnded || process.isServersCopy)
        return true;
    const unsigned states = KIVPThreadStates(process.pid);
    if (!process.isStopped)
    {
        // If its state is unknown, no process below it would be found either.
        if (!mayBeStopped(process) || states == 0 || states == KIVP_THREADS_STOPPED ||
            signalProcess(process.pid, SIGSTOP) != 0)
        {
            process.isStill = true;
            return true;
        }
        process.isStopped = true;
        return false;
    }
    process.isStill = (states & KIVP_THREADS_RUN) == 0;
    return process.isStill;
}

void kiv::ProcessTree::waitUntilStill(uint64_t end)
{
    for (;;)
    {
        bool all = true;
        for (size_t index = 0; index < m_count; ++index)
            all = stop(m_processes[index]) && all;
        if (all || mach_absolute_time() >= end)
            return;
        const timespec period{0, kStopPeriod};
        (void)nanosleep(&period, nullptr); // a signal only makes it shorter
    }
}

void kiv::ProcessTree::stopAndLook()
{
    const uint64_t end = mach_absolute_time() + kStoppingTime;
    look();
    for (bool more = true; more && mach_absolute_time() < end;)
    {
        waitUntilStill(end);
        more = look();
        for (size_t index = 0; index < m_count; ++index)
            more = more || (m_processes[index].isServersCopy && !m_processes[index].hasEnded);
    }
}

template <class Visit>
void kiv::ProcessTree::visitDeepestFirst(size_t parent, Visit visit)
{
    for (size_t index = 0; index < m_count; ++index)
        if (m_processes[index].parent == parent)
        {
            visitDeepestFirst(index, visit);
            if (!m_processes[index].hasEnded)
                visit(m_processes[index]);
        }
}

void kiv::ProcessTree::signal(int signal)
{
    const pid_t self = getpid();
    bool isTarget = false;
    visitDeepestFirst(TreeProcess::kNone,
                      [signal, self, &isTarget](const TreeProcess &process)
                      {
                          isTarget = isTarget || (process.isTarget && process.pid == self);
                          if (process.isTarget && process.pid != self)
                              (void)signalProcess(process.pid, signal); // it may have ended
                      });
    // A parent that continued first would end, and the group of its stopped child would get SIGHUP before the
    // child's handler has run.
    visitDeepestFirst(TreeProcess::kNone,
                      [](TreeProcess &process)
                      {
                          if (process.isStopped)
                              (void)signalProcess(process.pid, SIGCONT);
                          process.isStopped = false;
                      });
    if (isTarget)
        (void)signalProcess(self, signal);
}

bool kiv::ProcessTree::hasLiving(pid_t spared) const
{
    for (size_t index = 0; index < m_count; ++index)
        if (m_processes[index].isTarget && !m_processes[index].hasEnded && m_processes[index].pid != spared)
            return true;
    return false;
}
