// The task server itself: forked from the host, it launches the requested commands and reports their ends.
#include "Private/Tasks/ServerProcess.h"

#include "Private/Support/Check.h"
#include "Private/Tasks/Children.h"
#include "Private/Tasks/ServerWire.h"
#include "Private/Tasks/Tree.h"

#include <KIVPlatform/KIVPlatform.h>
#include <mach/mach_time.h>

#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

namespace
{
// The time that a launched process has to end after SIGTERM; then it is killed.
constexpr uint64_t kGrace = 10000; // milliseconds; a recorder closes its file
constexpr uint64_t kGraceAfterDeath =
    750; // milliseconds; a process fed by a host that died has no more data to wait for
constexpr uint64_t kKillingTime = 500; // milliseconds for the killed processes to disappear
constexpr int kLookPeriod = 10;        // milliseconds
constexpr int kSlowLookPeriod = 50;    // milliseconds, in a long wait
constexpr int kPartingTime = 300;      // milliseconds at most between the end of a host's pipe and its own
constexpr int kTellingTime =
    5000; // milliseconds for a forked child to write its id; less than the host waits for it
constexpr uint64_t kNsPerMillisecond = 1000000;

// The server must not run the host's signal handlers. Signals that might end or stop it are blocked, here but
// not in the launched processes: SIGTERM is checked whenever there is work, the others have no effect.
// SIGCHLD and the signals of the server's own faults are not blocked.
void setUpSignals()
{
    kiv::resetHandlers();
    kiv::installChildHandler();

    sigset_t blocked;
    sigfillset(&blocked);
    for (const int signal : {SIGCHLD, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP})
        sigdelset(&blocked, signal);
    (void)pthread_sigmask(SIG_SETMASK, &blocked, nullptr); // cannot fail with these arguments
}

// A descriptor of the host in the server would stay open after the host closes it.
void closeAllBut(std::array<int32_t, 3> kept)
{
    std::sort(kept.begin(), kept.end());
    unsigned first = STDERR_FILENO + 1;
    for (const int32_t descriptor : kept)
    {
        const auto number = static_cast<unsigned>(descriptor);
        if (number > first)
            (void)KIVPCloseDescriptors(first, number - 1);
        first = number + 1;
    }
    (void)KIVPCloseDescriptors(first, ~0u);
}

[[nodiscard]] bool hasChildren()
{
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

// Whether the child of this launch has written its id; null without memory. Shared, because under some tools
// a child of vfork has its own memory, and the parent does not wait for it.
constinit std::atomic<bool> *g_announced = nullptr;

void shareAnnouncement()
{
    void *memory =
        mmap(nullptr, sizeof *g_announced, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED)
        g_announced = new (memory) std::atomic<bool>{false};
}

void wait(int milliseconds)
{
    const timespec period{0, milliseconds * 1000000L};
    (void)nanosleep(&period, nullptr); // a signal only makes it shorter
}

constinit uint32_t g_launches = 0; // number of launches that this server has read
constinit bool g_isLate = false;   // forked after the exiting host had signalled all

// Returns whether the child has ended, at once or after a wait; it is not reaped here. If there is no child
// of that id, it has ended: the handler has reaped it.
[[nodiscard]] bool hasEnded(pid_t child, int wait)
{
    siginfo_t info{};
    int result;
    do
        result = waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT | wait);
    while (result != 0 && errno == EINTR);
    return result != 0 || info.si_pid == child;
}

// Checks until the child of a fork, which runs in parallel to the server, has written its id or has ended. A
// child that does neither in time is killed: the host will not wait for it.
void waitForAForkedChild(pid_t child)
{
    const uint64_t end = mach_absolute_time() + kTellingTime * kNsPerMillisecond;
    while (!g_announced->load() && !hasEnded(child, WNOHANG))
    {
        if (mach_absolute_time() >= end)
        {
            (void)kiv::signalProcess(child, SIGKILL);
            (void)hasEnded(child, 0);
            return;
        }
        wait(1);
    }
}

// Returns whether the child has ended and may not have written its id. After a real vfork (`memoryIsShared`)
// the server only continues once the child executes, and has written the id, or once it is dead or about to
// be. A kernel lets the server continue before the dead child can be waited for, so a check without waiting
// finds it alive.
[[nodiscard]] bool diedSilently(pid_t child, bool memoryIsShared)
{
    if (g_announced == nullptr || g_announced->load())
        return false;
    if (memoryIsShared)
        (void)hasEnded(child, 0);
    else
        waitForAForkedChild(child);
    return !g_announced->load();
}

// Reaps the children that have ended and reports them if the report pipe has room.
void buryChildren()
{
    kiv::reapChildren();
    if (!kiv::canReport())
        while (waitpid(-1, nullptr, WNOHANG) > 0)
        {
        }
}

// Signals the processes below the server (`own`), and the processes that the host has launched (`shared`).
void sweep(int signal, bool own, bool shared)
{
    kiv::ProcessTree tree{getpid()};
    if (own)
        tree.addRoot(getpid(), false);
    if (shared)
        kiv::ChildTable::addShared(tree);
    tree.stopAndLook();
    kiv::ChildTable::note(tree);
    tree.signal(signal);
}

// Sends SIGTERM to the processes that the exiting host launched too late to signal them itself.
void sweepLate()
{
    kiv::ProcessTree tree{getpid()};
    kiv::ChildTable::addLate(tree);
    if (tree.size() == 0)
        return;
    tree.stopAndLook();
    kiv::ChildTable::note(tree);
    tree.signal(SIGTERM);
}

// Returns true if a process launched by the host itself is left. Processes that it makes meanwhile are noted
// before it can be gone.
[[nodiscard]] bool sharedAreLeft()
{
    kiv::ProcessTree tree{getpid()};
    kiv::ChildTable::addShared(tree);
    if (tree.size() == 0)
        return false;
    (void)tree.look();
    kiv::ChildTable::note(tree);
    return tree.hasLiving(0);
}

// The time between SIGTERM and SIGKILL, in milliseconds. A host that died has not begun to end in order.
[[nodiscard]] uint64_t graceNow()
{
    return kiv::isOrphaned() && !kiv::ChildTable::hostHasLeft() ? kGraceAfterDeath : kGrace;
}

[[nodiscard]] uint64_t killingTime()
{
    return kKillingTime;
}

// Signals all processes until no process is left or the time is over; true if no process is left. SIGTERM is
// sent once, because a second one could cut short the work started by the first, and not to processes that
// already had it (`told`). Processes that are made meanwhile, or lose their parent, become the server's
// children. Processes launched by the host itself are signalled once the host is gone.
[[nodiscard]] bool clear(int signal, bool told, uint64_t (*time)())
{
    const uint64_t begin = mach_absolute_time();
    bool ownAreTold = told && !g_isLate;
    bool sharedAreTold = told;
    for (;;)
    {
        const bool orphaned = kiv::isOrphaned();
        const bool own = signal == SIGKILL || !ownAreTold;
        const bool shared = orphaned && (signal == SIGKILL || !sharedAreTold);
        if (own || shared)
            sweep(signal, own, shared);
        ownAreTold = true;
        if (orphaned && told)
            sweepLate();
        sharedAreTold = sharedAreTold || orphaned;
        buryChildren();
        const bool left = orphaned && sharedAreLeft();
        if (!left && !hasChildren())
            return true;
        const uint64_t elapsed = (mach_absolute_time() - begin) / kNsPerMillisecond;
        if (elapsed >= time())
            return false;
        wait(elapsed < kGraceAfterDeath ? kLookPeriod : kSlowLookPeriod);
    }
}

void clearAll()
{
    // If the host has signalled its processes, they have begun to end.
    while (kiv::ChildTable::isSignalling() && !kiv::isOrphaned())
        wait(kLookPeriod);
    if (!clear(SIGTERM, kiv::ChildTable::allAreSignalled(), graceNow))
        (void)clear(SIGKILL, false, killingTime);
}

// Closes the pipes, so that the host does not wait for the result of a request that is never read.
void closeRequests()
{
    for (const uint32_t index : {kRequestRead, kPidWrite})
        close(std::exchange(g_CSTaskServer.m_descriptors[index], -1));
}

// The host is gone, or has ended the server: no launched process may stay.
void takeAllAlong()
{
    closeRequests();
    // A host's pipes are closed a moment before it is gone. A host that stays, because it closed them itself
    // or ended the server, keeps the children that it has launched directly.
    for (int left = kPartingTime; !kiv::isOrphaned() && !kiv::isToldToEnd() && left > 0; left -= kLookPeriod)
        wait(kLookPeriod);
    const bool wasOrphaned = kiv::isOrphaned();
    clearAll();
    // At its exit the host notifies the server first; its other work may then take any time.
    while (kiv::ChildTable::hostLeaves() && !kiv::isOrphaned())
        wait(kLookPeriod);
    if (!wasOrphaned && kiv::isOrphaned())
        clearAll();
}

[[nodiscard]] KIVCS2Status serve()
{
    for (;;)
    {
        uint8_t command = 0;
        KIV_TRY(kivCS2TaskServerPrv_readBytes(kRequestRead, &command, sizeof command, true));
        if (command == kiv::kCommandQuit)
            return KIVCS2STATUS_OK;
        if (command != kiv::kCommandExec)
            continue;
        kiv::ExecRequest request;
        KIV_TRY(request.read(true));
        // A request written after the server had to end is for the next server.
        if (kiv::isToldToEnd())
            return KIVCS2STATUS_PIPE_ERR;
        KIV_TRY(kivCS2TaskServerPrv_exec(request.command(), request.argv()));
    }
}
} // namespace

KIVCS2Status kivCS2TaskServerPrv_exec(const char *command, char *const *argv)
{
    ++g_launches;
    kiv::ExecPlan plan;
    KIV_TRY(plan.prepare(command, argv));
    kiv::ChildSetup setup;
    setup.announce = g_CSTaskServer.m_descriptors[kPidWrite];
    setup.announced = g_announced;
    std::atomic<bool> begun{false};
    setup.begun = &begun;
    if (g_announced != nullptr)
        g_announced->store(false);
    const pid_t child = kiv::spawn(plan, setup);
    // Without a child, the end of this server informs the host, which tries once more with another server.
    if (child < 0)
        return KIVCS2STATUS_FORK_ERR;
    // The host waits for the id of a child that was killed before it could write it, and gets it in another
    // way.
    if (diedSilently(child, begun.load()) && !kiv::ChildTable::tellSilentEnd(g_launches, child))
        return KIVCS2STATUS_FORK_ERR;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2TaskServerPrv_childProcess()
{
    KIVCS2TaskServer &server = g_CSTaskServer;
    server.m_reaper.store(getpid());
    server.m_reaping.store(0); // threads of the host may have been reaping
    server.m_serverPid = 0;
    closeAllBut({server.m_descriptors[kRequestRead], server.m_descriptors[kPidWrite],
                 server.m_descriptors[kReportWrite]});
    (void)KIVPAdoptOrphans(); // otherwise processes that lose their parent survive the end
    (void)KIVPSetThreadName("kivcs2-tasks");
    shareAnnouncement();
    kiv::ChildTable::actForHost();
    g_isLate = kiv::ChildTable::hostHasLeft();
    setUpSignals();

    const KIVCS2Status status = serve();
    // After a quit, and if this machine could not serve, running tasks continue without the server.
    if (status == KIVCS2STATUS_PIPE_ERR)
        takeAllAlong();
    return status;
}

KIVCS2Status kivCS2TaskServerPrv_createServer()
{
    KIVCS2TaskServer &server = g_CSTaskServer;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before); // cannot fail with these arguments
    server.m_serverEnded.store(0);
    kiv::ChildTable::beginServer();
    const pid_t pid = fork();
    if (pid == 0)
        std::_Exit(static_cast<int>(kivCS2TaskServerPrv_childProcess()));
    if (pid > 0)
    {
        server.m_serverPid.store(pid);
        kiv::ChildTable::serverIs(pid);
    }
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return pid > 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_FORK_ERR;
}
