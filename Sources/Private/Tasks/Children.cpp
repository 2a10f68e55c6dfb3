#include "Private/Tasks/Children.h"

#include "Private/Tasks/Tree.h"

#include <sys/mman.h>
#include <sys/wait.h>

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <new>
#include <utility>

namespace
{
// Reports come within microseconds. After two seconds another part of the host must have taken the status.
constexpr uint32_t kIdleSeconds = 2;

enum class Told : uint32_t
{
    nothing,
    signalling, // every descendant, the server too
    signalled,
    leaving, // the same, while the host is exiting
    left,
};
struct Shared
{
    std::array<kiv::ChildNote, 1024> slots;  // more children at once are not ended with the host
    std::array<kiv::ChildNote, 4096> others; // processes found below them, or that have lost their server
    std::atomic<Told> told;
    std::atomic<uint64_t> leftAt;    // when the exiting host signalled all; 0 if not yet, or already handled
    std::atomic<uint64_t> silentEnd; // number of the launch in the upper half, id of its child in the lower
};
constexpr uint32_t kNoSlot = ~uint32_t{0};
constexpr int32_t kTaken = -1;                    // a note that is being written
constexpr uint64_t kStartResolution = 10'000'000; // nanoseconds of a start time in the process table

// Held from before a child is made until it is in the table, so that no report can come too early.
constinit pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
constinit pthread_cond_t g_reported = PTHREAD_COND_INITIALIZER;
constinit kiv::Child *g_first = nullptr;
constinit bool g_reportsCome = false;
constinit uint32_t g_idleSeconds = 0;
constinit thread_local bool t_delivers = false;
constinit Shared *g_shared = nullptr;
constinit uint32_t g_launches = 0; // requested from this server, under the server's mutex
constinit pid_t g_noter = 0;       // the host; in the server's copy the server
constinit std::atomic<pid_t> g_server{0};
constinit pid_t g_host = 0; // the process whose server reads the notes. Its forks launch for themselves

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

// The child that writes its own note there takes the slot.
[[nodiscard]] uint32_t freeSlot()
{
    if (g_shared == nullptr || getpid() != g_host)
        return kNoSlot;
    for (uint32_t index = 0; index < g_shared->slots.size(); ++index)
        if (std::atomic_ref{g_shared->slots[index].pid}.load() == 0)
            return index;
    return kNoSlot;
}

[[nodiscard]] bool isTold(Told told)
{
    return g_shared != nullptr && g_shared->told.load() == told;
}

// A process that was started later is a different process with the same id.
[[nodiscard]] uint64_t latestStart(kiv::ChildNote &noted)
{
    return std::atomic_ref{noted.startedBefore}.load() + kStartResolution;
}

// Finds the noted process, in a tree that has looked for it.
[[nodiscard]] size_t find(kiv::ProcessTree &tree, kiv::ChildNote &noted)
{
    const pid_t pid = std::atomic_ref{noted.pid}.load();
    const size_t index = pid > 0 ? tree.find(pid) : kiv::TreeProcess::kNone;
    return index != kiv::TreeProcess::kNone && tree[index].start <= latestStart(noted)
               ? index
               : kiv::TreeProcess::kNone;
}

// Removes the notes of processes that have ended.
void clearNotes()
{
    const kiv::ProcessTable table;
    for (kiv::ChildNote &other : g_shared->others)
    {
        pid_t pid = std::atomic_ref{other.pid}.load();
        uint64_t start = 0;
        if (pid > 0 && (table.hasEnded(pid, start) || start > latestStart(other)))
            std::atomic_ref{other.pid}.compare_exchange_strong(pid, 0);
    }
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
    // The slot must be taken, and a forked child may not have written its note yet. Do not write the note
    // twice: the start would seem later.
    if (noted.note != nullptr && std::atomic_ref{noted.note->pid}.load() != m_pid)
        noted.note->write(m_pid);
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
        // The child's id is free for another process, whose end must not count as the child's end.
        ChildTable::remove(*this);
        return true;
    }
    // Its id is free: another child that gets it is not this launch's.
    leaveSlot(std::exchange(m_slot, kNoSlot));
    const uint32_t before = g_idleSeconds;
    while (!m_ended && g_reportsCome && !t_delivers && getpid() == g_host &&
           g_idleSeconds - before < kIdleSeconds)
        pthread_cond_wait(&g_reported, &g_mutex);
    status = m_status;
    return m_ended;
}

// ---- All children ----

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
    g_noter = g_host;
    void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) // without the page, children outlive a host that is killed
        g_shared = new (memory) Shared{};
}

void kiv::ChildTable::expectReports(bool come)
{
    const Lock lock;
    g_reportsCome = come;
    pthread_cond_broadcast(&g_reported);
}

void kiv::ChildTable::deliverHere()
{
    t_delivers = true;
}

bool kiv::ChildTable::isAwaited(pid_t child)
{
    if (g_shared == nullptr || getpid() != g_host)
        return false;
    return std::any_of(g_shared->slots.begin(), g_shared->slots.end(),
                       [child](ChildNote &note) { return std::atomic_ref{note.pid}.load() == child; });
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

// ---- Processes that must not outlive the host ----

// These take no lock: a server may have been forked while another thread held it.
void kiv::ChildTable::note(pid_t pid)
{
    if (g_shared == nullptr || getpid() != g_noter)
        return;
    for (bool cleared : {false, true})
    {
        for (ChildNote &other : g_shared->others)
            if (int32_t none = 0; std::atomic_ref{other.pid}.compare_exchange_strong(none, kTaken))
            {
                other.write(pid);
                return;
            }
        if (!cleared)
            clearNotes();
    }
}

void kiv::ChildTable::note(ProcessTree &tree)
{
    if (g_shared == nullptr || getpid() != g_noter)
        return;
    const auto mark = [&tree](ChildNote &noted)
    {
        const size_t index = find(tree, noted);
        if (index != TreeProcess::kNone)
            tree[index].isNoted = true;
    };
    std::for_each(g_shared->slots.begin(), g_shared->slots.end(), mark);
    std::for_each(g_shared->others.begin(), g_shared->others.end(), mark);
    for (size_t index = 0; index < tree.size(); ++index)
    {
        TreeProcess &process = tree[index];
        if (process.isNoted || process.hasEnded || process.parent == TreeProcess::kNone ||
            !tree[process.parent].isNoted)
            continue;
        process.isNoted = true;
        note(process.pid);
    }
}

void kiv::ChildTable::actForHost()
{
    g_noter = getpid();
}

void kiv::ChildTable::addShared(ProcessTree &tree)
{
    if (g_shared == nullptr)
        return;
    const auto add = [&tree](ChildNote &noted)
    {
        if (const pid_t pid = std::atomic_ref{noted.pid}.load(); pid > 0)
            tree.addRoot(pid, true, latestStart(noted));
    };
    std::for_each(g_shared->slots.begin(), g_shared->slots.end(), add);
    std::for_each(g_shared->others.begin(), g_shared->others.end(), add);
}

void kiv::ChildTable::addLate(ProcessTree &tree)
{
    const uint64_t leftAt = g_shared != nullptr ? g_shared->leftAt.exchange(0) : 0;
    if (leftAt == 0)
        return;
    for (ChildNote &noted : g_shared->slots)
        if (const pid_t pid = std::atomic_ref{noted.pid}.load();
            pid > 0 && std::atomic_ref{noted.startedBefore}.load() > leftAt)
            tree.addRoot(pid, true, latestStart(noted));
}

void kiv::ChildTable::serverIs(pid_t server)
{
    g_server.store(server);
}

bool kiv::ChildTable::terminateTree(pid_t root, bool itself)
{
    // A fork of the host has the host's variables, but no server.
    ProcessTree tree{getpid() == g_host ? g_server.load() : 0};
    tree.addRoot(root, itself);
    if (hostLeaves() && getpid() == g_host)
        addShared(tree); // a process that has lost its parent is no longer a descendant
    tree.stopAndLook();
    note(tree);
    if (isTold(Told::leaving) && root == g_host && getpid() == g_host)
        g_shared->leftAt.store(bootTime());
    tree.signal(SIGTERM);
    return tree.hasSeen();
}

void kiv::ChildTable::beginSignalling(bool leaves)
{
    if (g_shared != nullptr && getpid() == g_host && !hostLeaves())
        g_shared->told.store(leaves ? Told::leaving : Told::signalling);
}

void kiv::ChildTable::endSignalling(bool done)
{
    if (g_shared == nullptr || getpid() != g_host || !isSignalling())
        return;
    if (done)
        g_shared->told.store(hostLeaves() ? Told::left : Told::signalled);
    else if (!hostLeaves())
        g_shared->told.store(Told::nothing);
}

bool kiv::ChildTable::isSignalling()
{
    return isTold(Told::signalling) || isTold(Told::leaving);
}

bool kiv::ChildTable::allAreSignalled()
{
    return isTold(Told::signalled) || isTold(Told::left);
}

bool kiv::ChildTable::hostLeaves()
{
    return isTold(Told::leaving) || isTold(Told::left);
}

bool kiv::ChildTable::hostHasLeft()
{
    return isTold(Told::left);
}

// ---- Launches through the server ----

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
