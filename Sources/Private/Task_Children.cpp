#include "Private/Task_Children.h"

#include "Private/Task_Tree.h"

#include <sys/mman.h>
#include <sys/wait.h>

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <new>

namespace
{
// Reports come within microseconds. After two seconds another part of the host has taken the status.
constexpr uint32_t kIdleSeconds = 2;

enum class Told : uint32_t
{
    nothing,
    signalled, // every descendant has been, the server too
    leaving,   // and the host is on its way out
};
struct Shared
{
    std::array<kiv::ChildNote, 1024> slots; // more than that at once are not taken along
    std::atomic<Told> told;
    std::atomic<uint64_t> silentEnd; // number of the launch in the upper half, id of its child in the lower
};
constexpr uint32_t kNoSlot = ~uint32_t{0};
constexpr uint64_t kStartResolution = 10'000'000; // of the process table, nanoseconds

// Held from before a child is made until it is in the table, so that no report can come too early.
constinit pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit pthread_cond_t g_reported = PTHREAD_COND_INITIALIZER;
constinit kiv::Child *g_first = nullptr;
constinit bool g_reportsCome = false;
constinit uint32_t g_idleSeconds = 0;
constinit Shared *g_shared = nullptr;
constinit uint32_t g_launches = 0; // asked of this server, under the server's mutex
constinit pid_t g_host = 0; // whose server reads them. A process that it has forked launches for itself

class Lock
{
public:
    Lock()
    {
        pthread_mutex_lock(&g_mutex);
    }
    ~Lock()
    {
        pthread_mutex_unlock(&g_mutex);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;
};

// Taken by the child that writes itself down there.
[[nodiscard]] uint32_t freeSlot()
{
    if (g_shared == nullptr || getpid() != g_host)
        return kNoSlot;
    for (uint32_t index = 0; index < g_shared->slots.size(); ++index)
        if (std::atomic_ref{g_shared->slots[index].pid}.load() == 0)
            return index;
    return kNoSlot;
}

void leaveSlot(uint32_t index)
{
    if (g_shared != nullptr && index != kNoSlot)
        std::atomic_ref{g_shared->slots[index].pid}.store(0);
}
} // namespace

// ---- A child ----

kiv::Child::~Child()
{
    const Lock lock;
    ChildTable::remove(*this);
}

bool kiv::Child::start(const ExecPlan &plan, const ChildSetup &setup, int32_t &pid)
{
    const Lock lock;
    m_slot = freeSlot();
    ChildSetup noted = setup;
    noted.note = m_slot != kNoSlot ? &g_shared->slots[m_slot] : nullptr;
    noted.parent = g_host;
    m_pid = spawn(plan, noted);
    if (m_pid < 0)
        return false;
    if (noted.note != nullptr)
        noted.note->write(m_pid); // one that was forked may not have come to it, and the slot must be taken
    ChildTable::add(*this);
    std::atomic_ref{pid}.store(m_pid);
    return true;
}

bool kiv::Child::wait(int &status)
{
    pid_t waited;
    do
        waited = waitpid(m_pid, &status, 0);
    while (waited < 0 && errno == EINTR);
    const Lock lock;
    if (waited == m_pid)
    {
        // Its id is free for another process, whose end is another's.
        ChildTable::remove(*this);
        return true;
    }
    const uint32_t before = g_idleSeconds;
    while (!m_ended && g_reportsCome && getpid() == g_host && g_idleSeconds - before < kIdleSeconds)
        pthread_cond_wait(&g_reported, &g_mutex);
    status = m_status;
    return m_ended;
}

// ---- All of them ----

void kiv::ChildTable::add(Child &child)
{
    child.m_next = g_first;
    g_first = &child;
}

void kiv::ChildTable::remove(Child &child)
{
    for (Child **link = &g_first; *link != nullptr; link = &(*link)->m_next)
        if (*link == &child)
        {
            *link = child.m_next;
            leaveSlot(child.m_slot);
            return;
        }
}

void kiv::ChildTable::share()
{
    const Lock lock;
    g_host = getpid();
    void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) // without it the children outlive a host that is killed
        g_shared = new (memory) Shared{};
}

void kiv::ChildTable::expectReports(bool come)
{
    const Lock lock;
    g_reportsCome = come;
    pthread_cond_broadcast(&g_reported);
}

bool kiv::ChildTable::deliver(pid_t pid, int status)
{
    const Lock lock;
    for (Child *child = g_first; child != nullptr; child = child->m_next)
        if (child->m_pid == pid && !child->m_ended)
        {
            child->m_status = status;
            child->m_ended = true;
            pthread_cond_broadcast(&g_reported);
            return true;
        }
    return false;
}

void kiv::ChildTable::tick()
{
    const Lock lock;
    ++g_idleSeconds;
    if (g_first != nullptr)
        pthread_cond_broadcast(&g_reported);
}

bool kiv::ChildTable::signalShared(int signal)
{
    // No lock: the host's threads are not here, and one may have held it at the fork.
    bool any = false;
    if (g_shared == nullptr)
        return any;
    for (ChildNote &slot : g_shared->slots)
        any = any || std::atomic_ref{slot.pid}.load() != 0;
    if (!any)
        return any;
    any = false;
    ProcessTable table;
    for (ChildNote &slot : g_shared->slots)
    {
        const pid_t pid = std::atomic_ref{slot.pid}.load();
        const uint64_t start = pid != 0 ? table.startOf(pid) : 0;
        if (start == 0 || start > slot.startedBefore + kStartResolution)
            continue;
        any = true;
        table.signalDescendants(pid, signal);
        (void)signalProcess(pid, signal);
    }
    return any;
}

void kiv::ChildTable::tellSignalled(bool leaves)
{
    if (g_shared != nullptr && getpid() == g_host)
        g_shared->told.store(leaves ? Told::leaving : Told::signalled);
}

bool kiv::ChildTable::allAreSignalled()
{
    return g_shared != nullptr && g_shared->told.load() != Told::nothing;
}

bool kiv::ChildTable::hostLeaves()
{
    return g_shared != nullptr && g_shared->told.load() == Told::leaving;
}

uint32_t kiv::ChildTable::beginLaunch()
{
    return ++g_launches;
}

bool kiv::ChildTable::tellSilentEnd(uint32_t launch, pid_t child)
{
    if (g_shared == nullptr)
        return false;
    g_shared->silentEnd.store(uint64_t{launch} << 32 | static_cast<uint32_t>(child));
    return true;
}

pid_t kiv::ChildTable::silentEnd(uint32_t launch)
{
    const uint64_t told = g_shared != nullptr ? g_shared->silentEnd.load() : 0;
    return told >> 32 == launch ? static_cast<pid_t>(told & 0xFFFFFFFFu) : 0;
}

void kiv::ChildTable::beginServer()
{
    g_launches = 0;
    if (g_shared != nullptr)
        g_shared->silentEnd.store(0);
    Told told = Told::signalled;
    if (g_shared != nullptr)
        g_shared->told.compare_exchange_strong(told, Told::nothing);
}
