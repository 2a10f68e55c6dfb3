// Reaps children for the task server, in the host and in the server, and checks whether host and server
// still live.
#include "Private/Tasks/ServerRecord.h"

#include "Private/Tasks/Children.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

namespace
{
struct Report
{
    int32_t pid;
    int32_t status;
};
static_assert(sizeof(Report) == 8);

// Prints "Unexpected SIGCHLD error %i\n" without printf(), which a handler must not call.
void complain(int error)
{
    char text[64] = "Unexpected SIGCHLD error ";
    char digits[12];
    size_t count = 0;
    for (auto value = static_cast<unsigned>(error); value > 0 || count == 0; value /= 10)
        digits[count++] = static_cast<char>('0' + value % 10);
    size_t size = std::strlen(text);
    while (count > 0)
        text[size++] = digits[--count];
    text[size++] = '\n';
    (void)!write(STDERR_FILENO, text, size); // a failure here cannot be reported
}
} // namespace

bool kiv::canReport()
{
    pollfd entry{g_CSTaskServer.m_descriptors[kReportWrite], POLLOUT, 0};
    return kiv::isOwnPipe(kReportWrite) && poll(&entry, 1, 0) > 0 && entry.revents == POLLOUT;
}

void kiv::reapChildren()
{
    // A thread that is to be cancelled would end in the handler, wherever the signal has interrupted it.
    struct Reaping
    {
        Reaping()
        {
            (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
            g_CSTaskServer.m_reaping.fetch_add(1);
        }
        ~Reaping()
        {
            g_CSTaskServer.m_reaping.fetch_sub(1);
            (void)pthread_setcancelstate(m_cancelState, nullptr);
        }
        int m_cancelState = PTHREAD_CANCEL_ENABLE;
    };
    const Reaping reaping;
    for (pid_t left = 0;;)
    {
        if (!canReport())
        {
            g_CSTaskServer.m_reapingPostponed.store(1);
            return;
        }
        siginfo_t ended{};
        if (waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) != 0)
        {
            if (errno == EINTR)
                continue;
            if (errno != ECHILD)
                complain(errno);
            return;
        }
        if (ended.si_pid == 0)
            return;
        if (ChildTable::isAwaited(ended.si_pid))
        {
            // It hides the children behind it until its launch has taken it. Look twice: the launch may have
            // done so before it could see the mark.
            g_CSTaskServer.m_reapingPostponed.store(1);
            if (std::exchange(left, ended.si_pid) == ended.si_pid)
                return;
            continue;
        }
        Report report{};
        report.pid = waitpid(ended.si_pid, &report.status, WNOHANG);
        if (report.pid <= 0) // interrupted, or another thread has taken it
            continue;
        if (report.pid == g_CSTaskServer.m_serverPid)
            g_CSTaskServer.m_serverEnded.store(1);
        // Write in one piece, because host and server write to the same pipe. If the host is gone, no process
        // reads.
        (void)!write(g_CSTaskServer.m_descriptors[kReportWrite], &report, sizeof report);
    }
}

void kiv::reapPostponed()
{
    if (getpid() == g_CSTaskServer.m_reaper.load() && g_CSTaskServer.m_reapingPostponed.exchange(0) != 0)
        reapChildren();
}

bool kiv::isOwnPipe(uint32_t index)
{
    struct stat about;
    return fstat(g_CSTaskServer.m_descriptors[index], &about) == 0 && S_ISFIFO(about.st_mode) &&
           about.st_ino == g_CSTaskServer.m_pipes[index / 2];
}

bool kiv::isOrphaned()
{
    return getppid() != g_CSTaskServer.m_hostPid;
}

bool kiv::isToldToEnd()
{
    sigset_t pending;
    sigemptyset(&pending);
    return sigpending(&pending) == 0 && sigismember(&pending, SIGTERM) == 1;
}

void kiv::installChildHandler()
{
    struct sigaction action
    {
    };
    action.sa_handler = kivCS2TaskServerPrv_sigChildHandler;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    (void)sigaction(SIGCHLD, &action, nullptr); // cannot fail: SIGCHLD can be handled
}

void kivCS2TaskServerPrv_sigChildHandler(int)
{
    // A process that the host has forked itself keeps its children.
    if (getpid() != g_CSTaskServer.m_reaper.load())
        return;
    const int interrupted = errno;
    kiv::reapChildren();
    errno = interrupted;
}
