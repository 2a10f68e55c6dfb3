// The task server's host side: starts the server, hands it tasks and hears of their ends.
#include "KIVCS2TaskServer.h"

#include "Private/Support/Check.h"
#include "Private/Tasks/Children.h"
#include "Private/Tasks/Record.h"
#include "Private/Tasks/ServerProcess.h"
#include "Private/Tasks/ServerWire.h"
#include "Private/Tasks/Tree.h"

#include <KIVPlatform/KIVPlatform.h>
#include <mach/mach_time.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <utility>

constinit KIVCS2TaskServer g_CSTaskServer{};

namespace
{
constexpr int kIdlePeriod = 1000;               // milliseconds
constexpr int kAnswerPeriod = 10;               // milliseconds between two looks for a child that has ended
constexpr uint64_t kNsPerMillisecond = 1000000; // of absolute time as well
constexpr uint64_t kSpin = kNsPerMillisecond / 10;
constexpr uint64_t kPartingTime = 2000 * kNsPerMillisecond;
constexpr pid_t kFirstProcess = 1;
constexpr int32_t kLostExitCode = -1; // neither an exit nor a signal

class ServerLock
{
public:
    ServerLock()
    {
        pthread_mutex_lock(&g_CSTaskServer.m_mutex);
    }
    ~ServerLock()
    {
        pthread_mutex_unlock(&g_CSTaskServer.m_mutex);
    }
    ServerLock(const ServerLock &) = delete;
    ServerLock &operator=(const ServerLock &) = delete;
};

// The link is a task's first member.
[[nodiscard]] KIVCS2Task &taskOf(KIVCS2LinkElem *link)
{
    return *reinterpret_cast<KIVCS2Task *>(link);
}

[[nodiscard]] bool isReadbackThread()
{
    return g_CSTaskServer.m_readbackRuns.load() &&
           pthread_equal(g_CSTaskServer.m_readback, pthread_self()) != 0;
}

[[nodiscard]] bool isUsable()
{
    return g_CSTaskServer.m_usable.load() && g_CSTaskServer.m_hostPid == getpid();
}

// ---- Pipes ----

void closeEnd(uint32_t index)
{
    if (const int32_t descriptor = std::exchange(g_CSTaskServer.m_descriptors[index], 0); descriptor > 0)
        close(descriptor);
}

// Between two launches the host has these. Where it has closed one, as by closing all that it does not know,
// the server is lost to it, and the number may stand for a file of its own by now.
[[nodiscard]] bool hasItsPipes()
{
    for (const uint32_t index : {kRequestWrite, kPidRead, kReportRead, kReportWrite})
        if (g_CSTaskServer.m_descriptors[index] > 0 && !kiv::isOwnPipe(index))
            return false;
    return true;
}

// Who reads or writes waits by poll, with a bound. Children tell their ids through an end that blocks.
[[nodiscard]] bool setUnblocked(const int (&ends)[2], uint32_t readIndex)
{
    return fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0 &&
           (readIndex != kRequestRead || fcntl(ends[1], F_SETFL, O_NONBLOCK) == 0);
}

// Stores both ends at `readIndex` and behind it.
[[nodiscard]] KIVCS2Status makePipe(uint32_t readIndex)
{
    int ends[2];
    if (KIVPPipe(ends) != 0)
        return KIVCS2STATUS_PIPE_ERR;
    g_CSTaskServer.m_descriptors[readIndex] = ends[0];
    g_CSTaskServer.m_descriptors[readIndex + 1] = ends[1];
    struct stat about;
    if (setUnblocked(ends, readIndex) && fstat(ends[0], &about) == 0)
    {
        g_CSTaskServer.m_pipes[readIndex / 2] = about.st_ino;
        return KIVCS2STATUS_OK;
    }
    closeEnd(readIndex);
    closeEnd(readIndex + 1);
    return KIVCS2STATUS_PIPE_ERR;
}

// New pipes for each server: what an old one has left unread, or half written, is nobody's message.
[[nodiscard]] KIVCS2Status makeServerPipes()
{
    KIV_TRY(makePipe(kRequestRead));
    const KIVCS2Status status = makePipe(kPidRead);
    if (KIVCS2_SUCCEEDED(status))
        return status;
    closeEnd(kRequestRead);
    closeEnd(kRequestWrite);
    return status;
}

void closeServerPipes()
{
    for (const uint32_t index : {kRequestRead, kRequestWrite, kPidRead, kPidWrite})
        closeEnd(index);
}

// The server's ends are its own: with the host's copies closed, its end shows in both pipes.
[[nodiscard]] KIVCS2Status startServer()
{
    const KIVCS2Status status = kivCS2TaskServerPrv_createServer();
    if (KIVCS2_FAILED(status))
    {
        closeServerPipes();
        return status;
    }
    closeEnd(kRequestRead);
    closeEnd(kPidWrite);
    return status;
}

// ---- The server's life ----

// Without its parent a process ends unseen; the readback thread looks after those from now on.
void markTasksLost()
{
    for (KIVCS2LinkElem *link = g_CSTaskServer.m_tasks.m_next; link != nullptr; link = link->m_next)
        if (std::exchange(taskOf(link).m_lost, 1) == 0)
            kiv::ChildTable::note(taskOf(link).m_pid);
}

[[nodiscard]] bool serverLives()
{
    const pid_t server = g_CSTaskServer.m_serverPid;
    return server > 0 && g_CSTaskServer.m_serverEnded.load() == 0 && waitpid(server, nullptr, WNOHANG) == 0;
}

[[nodiscard]] KIVCS2Status replaceServer()
{
    markTasksLost();
    g_CSTaskServer.m_serverPid.store(0);
    closeServerPipes();
    // KIVCS2STATUS_PIPE_ERR would tell the host that its task is not to be launched again.
    return KIVCS2_SUCCEEDED(makeServerPipes()) ? startServer() : KIVCS2STATUS_TASK_SERVER_ERR;
}

[[nodiscard]] KIVCS2Status ensureServer()
{
    return serverLives() ? KIVCS2STATUS_OK : replaceServer();
}

// ---- A launch ----

enum class Answer
{
    launched,
    noRequest, // it was not written
    noProcess, // it was, and the server went without launching
    noAnswer,  // the server is there and does nothing
};

// The next id in the pipe: -1 with errno (EAGAIN) if there is none yet, 0 at its end.
[[nodiscard]] pid_t nextPid()
{
    int32_t pid = 0;
    ssize_t count;
    do
        count =
            read(g_CSTaskServer.m_descriptors[kPidRead], &pid, sizeof pid); // whole: it was written at once
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return -1;
    return count == sizeof pid && pid > 1 ? pid : 0;
}

// The new process's id. 0 and no process if neither the server nor a process on its way is there to tell it,
// or if the server does not answer in time.
[[nodiscard]] Answer readPid(uint32_t launch, pid_t &pid)
{
    const uint64_t begin = mach_absolute_time();
    uint64_t lastLook = begin; // at the server's life
    bool last = false;
    for (;;)
    {
        // Asked before the pipe is read: what a child has told before its end is there then.
        const pid_t ended = kiv::ChildTable::silentEnd(launch);
        pid = nextPid();
        if (pid < 0 && errno == EAGAIN && ended > 0)
            pid = ended;
        if (pid >= 0 || errno != EAGAIN || last)
            return pid > 0 ? Answer::launched : Answer::noProcess;
        const uint64_t now = mach_absolute_time();
        if (now - begin >= kiv::g_answerTime)
            return Answer::noAnswer;
        // The answer mostly comes sooner than a sleeping thread wakes up.
        if (now - begin < kSpin)
            continue;
        pollfd entry{g_CSTaskServer.m_descriptors[kPidRead], POLLIN, 0};
        if (poll(&entry, 1, kAnswerPeriod) != 0 || now - lastLook < kIdlePeriod * kNsPerMillisecond)
            continue;
        // Another process may hold the pipe open, so that it does not end with the server.
        last = !serverLives();
        lastLook = now;
    }
}

// Something has stopped it, or holds up the program that it executes. A process that it is about to launch
// finds nobody to tell its id, and ends.
void endStuckServer()
{
    if (serverLives()) // or its id may be another's by now
        (void)kiv::signalProcess(g_CSTaskServer.m_serverPid, SIGKILL);
}

// The task is in the list before its process can end, and its end be looked for there.
[[nodiscard]] Answer askServer(KIVCS2Task &task, const kiv::ExecMessage &message)
{
    const uint32_t launch = kiv::ChildTable::beginLaunch();
    if (const KIVCS2Status sent = message.send(); KIVCS2_FAILED(sent))
    {
        if (sent == KIVCS2STATUS_TIMEOUT_ERR)
            endStuckServer();
        return Answer::noRequest;
    }
    pid_t pid = 0;
    if (const Answer answer = readPid(launch, pid); answer != Answer::launched)
    {
        if (answer == Answer::noAnswer)
            endStuckServer();
        return answer;
    }
    kiv::retainTask(task);
    kivCS2LinkList_appendElem(&g_CSTaskServer.m_tasks, &task.m_link);
    kiv::taskWord(task.m_pid).store(pid);
    return Answer::launched;
}

[[nodiscard]] KIVCS2Status launch(KIVCS2Task &task, const kiv::ExecMessage &message)
{
    Answer answer = askServer(task, message);
    if (answer == Answer::launched)
        return KIVCS2STATUS_OK;
    // The server went before it launched anything, though it may still be on its way out: once more with a
    // new one, and not for ever.
    const KIVCS2Status replaced = replaceServer();
    if (KIVCS2_SUCCEEDED(replaced))
        answer = askServer(task, message);
    if (answer == Answer::launched)
        return KIVCS2STATUS_OK;
    // Kept: hosts rely on a task whose request was not written staying as it is, never to be finished.
    if (answer == Answer::noRequest)
        return KIVCS2STATUS_PIPE_ERR;
    KIVCS2TaskState running = KIVCS2TaskState_RunningAsync; // unless it was freed
    kiv::taskWord(task.m_state).compare_exchange_strong(running, KIVCS2TaskState_Created);
    return KIVCS2_FAILED(replaced) ? replaced : KIVCS2STATUS_TASK_SERVER_ERR;
}

// ---- Readback ----

// Takes the task out of the list and finishes it, with the mutex held.
void finish(KIVCS2Task &task, int32_t exitCode)
{
    kivCS2LinkElem_unlink(&task.m_link);
    task.m_exitCode = exitCode;
    kiv::finishTask(task);
    kiv::releaseTask(task);
}

// The newest of that id: an older one was launched by a server that is gone, and its end not seen yet.
[[nodiscard]] KIVCS2Task *findTask(pid_t pid)
{
    for (KIVCS2LinkElem *link = g_CSTaskServer.m_tasks.m_prev; link != nullptr; link = link->m_prev)
        if (taskOf(link).m_pid == pid)
            return &taskOf(link);
    return nullptr;
}

void handleReport(pid_t pid, int32_t status)
{
    // A child that a launch waits for was the only process of its id until it was reaped; a task of a server
    // that is gone may have had it before.
    if (pid <= 1 || kiv::ChildTable::deliver(pid, status))
        return;
    const ServerLock lock;
    if (pid == g_CSTaskServer.m_serverPid)
    {
        // The handler has not, where it ran before the id was stored.
        g_CSTaskServer.m_serverEnded.store(1);
        markTasksLost();
    }
    else if (KIVCS2Task *task = findTask(pid); task != nullptr)
        finish(*task, status);
}

// The tasks of servers that are gone: finishes those whose process is gone too, with no report left to be
// read.
void finishLostTasks()
{
    KIVCS2LinkList &tasks = g_CSTaskServer.m_tasks;
    KIVCS2LinkElem *link = tasks.m_next;
    while (link != nullptr && taskOf(link).m_lost == 0)
        link = link->m_next;
    if (link == nullptr)
        return;

    const kiv::ProcessTable table;
    while (link != nullptr)
    {
        KIVCS2Task &task = taskOf(link);
        link = link->m_next;
        if (task.m_lost != 0 && table.hasEnded(task.m_pid, task.m_lostStart))
            finish(task, kLostExitCode);
    }
}

void idle()
{
    if (g_CSTaskServer.m_reaping.load() == 0) // or a status has been taken that is not in the pipe yet
        kiv::ChildTable::tick();
    const ServerLock lock;
    // A host may have its SIGCHLD blocked, or not come to handle it, and never launch again.
    if (g_CSTaskServer.m_tasks.m_count > 0 && !serverLives())
        markTasksLost();
    // The server that launched them is gone: what it has reported is in the pipe.
    pollfd entry{g_CSTaskServer.m_descriptors[kReportRead], POLLIN, 0};
    if (poll(&entry, 1, 0) == 0)
        finishLostTasks();
}

// Waits for a report. What is due each second is done as soon as there is none, however many come in between.
void waitForReport(uint64_t &lastIdle)
{
    for (;;)
    {
        if (g_CSTaskServer.m_reapingPostponed.exchange(0) != 0)
            kiv::reapChildren();
        const uint64_t elapsed = (mach_absolute_time() - lastIdle) / kNsPerMillisecond;
        pollfd entry{g_CSTaskServer.m_descriptors[kReportRead], POLLIN, 0};
        const int ready =
            poll(&entry, 1, elapsed < kIdlePeriod ? kIdlePeriod - static_cast<int>(elapsed) : 0);
        if (ready > 0 || (ready < 0 && errno != EINTR))
            return;
        if (ready < 0)
            continue;
        idle();
        lastIdle = mach_absolute_time();
    }
}

// Nobody can be told of an end any more.
void loseEverything()
{
    g_CSTaskServer.m_usable.store(false);
    kiv::ChildTable::expectReports(false);
    const ServerLock lock;
    while (g_CSTaskServer.m_tasks.m_next != nullptr)
        finish(taskOf(g_CSTaskServer.m_tasks.m_next), kLostExitCode);
}

[[nodiscard]] bool startReadback()
{
    KIVCS2TaskServer &server = g_CSTaskServer;
    if (server.m_readbackRuns.load())
        return true;
    // The host's signals are for the host's threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before); // cannot fail with these arguments
    const bool runs =
        pthread_create(&server.m_readback, nullptr, kivCS2TaskServerPrv_readbackThread, nullptr) == 0;
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    server.m_readbackRuns.store(runs);
    if (runs)
        kiv::ChildTable::expectReports(true);
    return runs;
}

// What a launch does with the mutex held.
[[nodiscard]] KIVCS2Status launchLocked(KIVCS2Task &task, KIVCS2TaskFunc callback, void *context)
{
    const ServerLock lock;
    if (!hasItsPipes() || !startReadback())
        return KIVCS2STATUS_TASK_SERVER_ERR;
    KIV_TRY(ensureServer());
    if (kiv::taskWord(task.m_state).load() != KIVCS2TaskState_Created)
        return KIVCS2STATUS_STATE_ERR;
    KIV_TRY(kivCS2TaskPrv_checkLaunchable(&task));
    kiv::ExecMessage message;
    KIV_TRY(message.make(task));
    KIV_TRY(kiv::beginAsync(task, callback, context));
    return launch(task, message);
}

// With process 1 the kernel ends all others at once: they have two seconds to end well.
void waitForAllBelow()
{
    const uint64_t end = mach_absolute_time() + kPartingTime;
    for (;;)
    {
        kiv::ProcessTree tree{g_CSTaskServer.m_serverPid};
        tree.addRoot(getpid(), false);
        (void)tree.look();
        if (!tree.hasLiving(g_CSTaskServer.m_serverPid) || mach_absolute_time() >= end)
            return;
        const timespec period{0, kAnswerPeriod * static_cast<long>(kNsPerMillisecond)};
        (void)nanosleep(&period, nullptr); // a signal only makes it shorter
    }
}
} // namespace

void *kivCS2TaskServerPrv_readbackThread(void *)
{
    (void)KIVPSetThreadName("kivcs2-readback"); // a thread without a name works as well
    uint64_t lastIdle = mach_absolute_time();
    for (;;)
    {
        waitForReport(lastIdle);
        int32_t pid = 0;
        int32_t status = 0;
        if (!kiv::isOwnPipe(kReportRead) ||
            KIVCS2_FAILED(kivCS2TaskServerPrv_readBytes(kReportRead, &pid, sizeof pid, false)) ||
            KIVCS2_FAILED(kivCS2TaskServerPrv_readBytes(kReportRead, &status, sizeof status, false)))
        {
            // The host has closed the pipe. Nobody joins this thread.
            loseEverything();
            (void)pthread_detach(pthread_self());
            g_CSTaskServer.m_readbackRuns.store(false);
            return nullptr;
        }
        handleReport(pid, status);
    }
}

void kivCS2TaskServerPrv_infanticide()
{
    kiv::ChildTable::beginSignalling(true);
    (void)kivCS2TaskServer_killAllChildProcesses(getpid()); // always succeeds
    if (getpid() == kFirstProcess)
        waitForAllBelow();
}

// ---- Operations ----

KIVCS2Status kivCS2TaskServer_init(void)
{
    KIVCS2TaskServer &server = g_CSTaskServer;
    if (server.m_initialised != 0)
        return KIVCS2STATUS_OK;
    server.m_initialised = 1;
    server.m_hostPid = getpid();

    KIV_TRY(makeServerPipes());
    if (const KIVCS2Status status = makePipe(kReportRead); KIVCS2_FAILED(status))
    {
        closeServerPipes();
        return status;
    }
    if (pthread_mutex_init(&server.m_mutex, nullptr) != 0)
    {
        closeServerPipes();
        closeEnd(kReportRead);
        closeEnd(kReportWrite);
        return KIVCS2STATUS_MUTEX_ERR;
    }
    server.m_usable.store(true);
    kiv::ChildTable::share();
    server.m_reaper.store(getpid());
    (void)std::atexit(
        kivCS2TaskServerPrv_infanticide); // without it the server does the same, when the host is gone

    // Forked before there is a second thread; only then is there anything for the handler to hand over to.
    kiv::installChildHandler();
    const KIVCS2Status status = startServer();
    (void)startReadback(); // tried again at each launch
    return status;
}

KIVCS2Status kivCS2TaskServer_exec(KIVCS2Task *task, KIVCS2TaskFunc callback, void *context)
{
    KIV_CHECK_AS(task != nullptr, "(task) != NULL", KIVCS2STATUS_PARAM_ERR);

    if (!isUsable())
        return KIVCS2STATUS_TASK_SERVER_ERR;
    if (isReadbackThread())
        return KIVCS2STATUS_MUTEX_ERR; // a callback holds it
    kiv::retainTask(*task);            // another thread may free it meanwhile
    const KIVCS2Status status = launchLocked(*task, callback, context);
    kiv::stopIfFreed(*task); // without the mutex: to stop a child may hold up the server that launches it
    kiv::releaseTask(*task);
    return status;
}

KIVCS2Status kivCS2TaskServer_tasksRunning(uint32_t *tasks)
{
    KIV_CHECK_AS(tasks != nullptr, "(tasks) != NULL", KIVCS2STATUS_PARAM_ERR);

    *tasks = 0;
    if (!isUsable())
        return KIVCS2STATUS_TASK_SERVER_ERR;
    if (isReadbackThread()) // a callback, which holds the mutex
    {
        *tasks = g_CSTaskServer.m_tasks.m_count;
        return KIVCS2STATUS_OK;
    }
    const ServerLock lock;
    *tasks = g_CSTaskServer.m_tasks.m_count;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2TaskServer_killAllChildProcesses(pid_t parent)
{
    // The server is one of the host's, and does not signal once more what is signalled with it.
    if (parent == getpid())
        kiv::ChildTable::beginSignalling(false);
    const bool found = kiv::ChildTable::terminateTree(parent, false);
    if (parent == getpid())
        kiv::ChildTable::endSignalling(found);
    return KIVCS2STATUS_OK;
}
