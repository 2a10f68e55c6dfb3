// The task server's host side: starts the server, sends it tasks and receives the reports of their ends.
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
constexpr int kAnswerPeriod = 10;               // milliseconds between two checks for a child that has ended
constexpr uint64_t kNsPerMillisecond = 1000000; // the unit of absolute time is the nanosecond too
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

// The link is the first member of a task.
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

// Checks the host's pipe ends between two launches. If the host has closed one, for example by closing all
// descriptors that are not its own, the server is lost, and the number may belong to a file of the host.
[[nodiscard]] bool hasItsPipes()
{
    for (const uint32_t index : {kRequestWrite, kPidRead, kReportRead, kReportWrite})
        if (g_CSTaskServer.m_descriptors[index] > 0 && !kiv::isOwnPipe(index))
            return false;
    return true;
}

// Readers and writers wait with poll(), with a limit. Only children write their ids to an end that blocks.
[[nodiscard]] bool setUnblocked(const int (&ends)[2], uint32_t readIndex)
{
    return fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0 &&
           (readIndex != kRequestRead || fcntl(ends[1], F_SETFL, O_NONBLOCK) == 0);
}

// Makes a pipe and stores its ends at `readIndex` and at the next index.
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

// Makes new pipes for each server, so that messages of an old server, unread or half written, are not read.
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

// The server's ends belong only to it: with the host's copies closed, both pipes show the server's end.
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

// ---- Start and end of the server ----

// A process without its parent ends unnoticed; from now on the readback thread watches these tasks.
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
    // KIVCS2STATUS_PIPE_ERR would mean to the host that its task must not be launched again.
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
    noRequest, // the request was not written
    noProcess, // the request was written, but the server ended without launching
    noAnswer,  // the server is there but does not respond
};

// Returns the next id in the pipe: 0 at the end of the pipe, -1 with errno (EAGAIN if there is no id yet).
[[nodiscard]] pid_t nextPid()
{
    int32_t pid = 0;
    ssize_t count;
    do
        count =
            read(g_CSTaskServer.m_descriptors[kPidRead], &pid, sizeof pid); // complete: one write wrote it
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return -1;
    return count == sizeof pid && pid > 1 ? pid : 0;
}

// Reads the new process's id. It is 0, and there is no process, if neither the server nor a new process is
// left to send the id, or if the server does not respond in time.
[[nodiscard]] Answer readPid(uint32_t launch, pid_t &pid)
{
    const uint64_t begin = mach_absolute_time();
    uint64_t lastLook = begin; // time of the last check whether the server lives
    bool last = false;
    for (;;)
    {
        // Checked before the pipe is read: an id that a child wrote before its end is then in the pipe.
        const pid_t ended = kiv::ChildTable::silentEnd(launch);
        pid = nextPid();
        if (pid < 0 && errno == EAGAIN && ended > 0)
            pid = ended;
        if (pid >= 0 || errno != EAGAIN || last)
            return pid > 0 ? Answer::launched : Answer::noProcess;
        const uint64_t now = mach_absolute_time();
        if (now - begin >= kiv::g_answerTime)
            return Answer::noAnswer;
        // The report usually comes before a sleeping thread would wake up.
        if (now - begin < kSpin)
            continue;
        pollfd entry{g_CSTaskServer.m_descriptors[kPidRead], POLLIN, 0};
        if (poll(&entry, 1, kAnswerPeriod) != 0 || now - lastLook < kIdlePeriod * kNsPerMillisecond)
            continue;
        // Another process may hold the pipe open, so the pipe need not end with the server.
        last = !serverLives();
        lastLook = now;
    }
}

// The server is stopped, or the program that it executes is held up. A process that it is about to launch
// cannot send its id any more, and ends.
void endStuckServer()
{
    if (serverLives()) // otherwise its id may belong to another process
        (void)kiv::signalProcess(g_CSTaskServer.m_serverPid, SIGKILL);
}

// Puts the task in the list before its process can end and be looked up there.
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
    // The server has launched no process and is ending or has ended. Try once more with a new server, but not
    // for ever.
    const KIVCS2Status replaced = replaceServer();
    if (KIVCS2_SUCCEEDED(replaced))
        answer = askServer(task, message);
    if (answer == Answer::launched)
        return KIVCS2STATUS_OK;
    // Kept: hosts rely on a task whose request was not written staying unchanged, never to be finished.
    if (answer == Answer::noRequest)
        return KIVCS2STATUS_PIPE_ERR;
    KIVCS2TaskState running = KIVCS2TaskState_RunningAsync; // unless the task was freed
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

// Finds the newest task with an id. An older task with the same id was launched by a lost server, and its end
// was not seen yet.
[[nodiscard]] KIVCS2Task *findTask(pid_t pid)
{
    for (KIVCS2LinkElem *link = g_CSTaskServer.m_tasks.m_prev; link != nullptr; link = link->m_prev)
        if (taskOf(link).m_pid == pid)
            return &taskOf(link);
    return nullptr;
}

void handleReport(pid_t pid, int32_t status)
{
    // A child that a launch waits for was the only process with its id until it was reaped; a task of a lost
    // server may have had the id before.
    if (pid <= 1 || kiv::ChildTable::deliver(pid, status))
        return;
    const ServerLock lock;
    if (pid == g_CSTaskServer.m_serverPid)
    {
        // The handler has not done this if it ran before the id was stored.
        g_CSTaskServer.m_serverEnded.store(1);
        markTasksLost();
    }
    else if (KIVCS2Task *task = findTask(pid); task != nullptr)
        finish(*task, status);
}

// Finishes the tasks of lost servers whose process is gone too and whose report is not waiting to be read.
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
    if (g_CSTaskServer.m_reaping.load() == 0) // otherwise a status taken may not be in the pipe yet
        kiv::ChildTable::tick();
    const ServerLock lock;
    // The host may have SIGCHLD blocked, or not handle it in time, and never launch again.
    if (g_CSTaskServer.m_tasks.m_count > 0 && !serverLives())
        markTasksLost();
    // The server that launched them is gone: all its reports are in the pipe.
    pollfd entry{g_CSTaskServer.m_descriptors[kReportRead], POLLIN, 0};
    if (poll(&entry, 1, 0) == 0)
        finishLostTasks();
}

// Waits for a report. The work due each second is done as soon as no report is waiting, however many come in
// between.
void waitForReport(uint64_t &lastIdle)
{
    for (;;)
    {
        kiv::reapPostponed();
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

// Called if no end can be reported any more.
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
    // The host's signals must reach only the host's threads.
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

// The part of a launch that needs the mutex.
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

// When process 1 ends, the kernel ends all others at once: give them two seconds to end properly.
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
    (void)KIVPSetThreadName("kivcs2-readback"); // the thread also works without a name
    kiv::ChildTable::deliverHere();
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
            // The host has closed the pipe. No thread joins this one.
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
        kivCS2TaskServerPrv_infanticide); // if this fails, the server does the same once the host is gone

    // Forked before there is a second thread; only then can the handler deliver to the readback thread.
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
        return KIVCS2STATUS_MUTEX_ERR; // the caller is a callback, which holds the mutex
    kiv::retainTask(*task);            // another thread may free it meanwhile
    const KIVCS2Status status = launchLocked(*task, callback, context);
    kiv::stopIfFreed(*task); // without the mutex: stopping a child may hold up the server that launches it
    kiv::releaseTask(*task);
    return status;
}

KIVCS2Status kivCS2TaskServer_tasksRunning(uint32_t *tasks)
{
    KIV_CHECK_AS(tasks != nullptr, "(tasks) != NULL", KIVCS2STATUS_PARAM_ERR);

    *tasks = 0;
    if (!isUsable())
        return KIVCS2STATUS_TASK_SERVER_ERR;
    if (isReadbackThread()) // in a callback, which holds the mutex
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
    // The server is a child of the host, and must not signal again the processes signalled here.
    if (parent == getpid())
        kiv::ChildTable::beginSignalling(false);
    const bool found = kiv::ChildTable::terminateTree(parent, false);
    if (parent == getpid())
        kiv::ChildTable::endSignalling(found);
    return KIVCS2STATUS_OK;
}
