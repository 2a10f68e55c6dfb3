// Launches with system calls that fail, and with a server or a host that is killed at every byte of their
// messages.
#include "KIVCS2Base.h"
#include "KIVCS2TaskServer.h"
#include "Private/Tasks/ServerProcess.h"
#include "Private/Tasks/ServerWire.h"

#include "OwnProcesses.h"
#include "OwnTasks.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>

// ---- Failures and deaths to come, in memory that host, server and children share ----

namespace
{
using namespace kiv::test;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 2; // a sanitizer makes forks many times slower
#else
constexpr int kRounds = 20;
#endif

enum class Call
{
    none,
    open,
    dup2,
    pipe,
    fcntl,
    read,
    write,
    poll,
    waitpid,
    vfork,
    fork,
    thread,
};

struct Faults
{
    std::atomic<Call> call{Call::none};
    std::atomic<int> skip{0};   // calls before that succeed
    std::atomic<int> times{0};  // failures to come
    std::atomic<int> error{0};  // 0 is a short count
    std::atomic<int> failed{0}; // failures so far

    std::atomic<int> deathPipe{-1}; // the index of the descriptor
    std::atomic<bool> hostDies{false};
    std::atomic<bool> childDiesAlone{false}; // without the server
    std::atomic<long> bytes{0};              // before the death
};

Faults &faults()
{
    static auto *shared =
        new (mmap(nullptr, sizeof(Faults), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Faults;
    return *shared;
}

bool fails(Call call)
{
    Faults &now = faults();
    if (now.call != call || now.times <= 0 || now.skip-- > 0)
        return false;
    --now.times;
    ++now.failed;
    errno = now.error;
    return true;
}

void fail(Call call, int skip, int error, int times = 1)
{
    Faults &now = faults();
    now.skip = skip;
    now.times = times;
    now.error = error;
    now.failed = 0;
    now.call = call;
}

[[noreturn]] void die(int pipe)
{
    faults().deathPipe = -1; // once
    if (pipe == kPidWrite && !faults().childDiesAlone)
        kill(getppid(), SIGKILL);
    kill(getpid(), SIGKILL);
    for (;;)
        ::pause();
}

// Cuts a transfer at the byte of its process's death, and kills the process there: the server at a request,
// the launched process at its id (and the server with it), or the host at the other end of both.
void meetDeath(int fd, size_t &size)
{
    Faults &now = faults();
    const int pipe = now.deathPipe;
    // In a host that lives, another thread may be changing the descriptors.
    if (pipe < 0 || (getpid() == g_CSTaskServer.m_hostPid) != now.hostDies ||
        fd != g_CSTaskServer.m_descriptors[static_cast<size_t>(pipe)])
        return;
    if (now.bytes == 0)
        die(pipe);
    size = std::min(size, static_cast<size_t>(now.bytes.load()));
    now.bytes -= static_cast<long>(size);
}

void (*g_beforePipe)() = nullptr; // the action of another thread of the host at the worst moment

// Returns true if a transfer fails; shortens it if it is to be short.
bool failsOrIsShort(Call call, size_t &size)
{
    if (!fails(call))
        return false;
    size = std::min<size_t>(size, 1);
    return errno != 0;
}

size_t openDescriptors()
{
    size_t count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
        count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    return count;
}
} // namespace

// A call that fails on request.
#define KIV_WRAP(result, name, call, failure, parameters, arguments)                                         \
    result __real_##name parameters;                                                                         \
    result __wrap_##name parameters;                                                                         \
    result __wrap_##name parameters                                                                          \
    {                                                                                                        \
        return fails(Call::call) ? (failure) : __real_##name arguments;                                      \
    }

extern "C"
{
    KIV_WRAP(int, open, open, -1, (const char *path, int flags, mode_t mode), (path, flags, mode))
    KIV_WRAP(int, dup2, dup2, -1, (int from, int to), (from, to))
    KIV_WRAP(int, poll, poll, -1, (pollfd * entries, nfds_t count, int time), (entries, count, time))
    KIV_WRAP(pid_t, waitpid, waitpid, -1, (pid_t pid, int *status, int options), (pid, status, options))
    KIV_WRAP(pid_t, fork, fork, -1, (), ())
    using Start = void *(void *);
    KIV_WRAP(int, pthread_create, thread, EAGAIN,
             (pthread_t * thread, const pthread_attr_t *attributes, Start *start, void *context),
             (thread, attributes, start, context))

    int __real_pipe2(int *ends, int flags);
    int __wrap_pipe2(int *ends, int flags);
    int __real_fcntl(int fd, int command, ...);
    int __wrap_fcntl(int fd, int command, long argument);
    ssize_t __real_read(int fd, void *buffer, size_t size);
    ssize_t __wrap_read(int fd, void *buffer, size_t size);
    ssize_t __real_write(int fd, const void *buffer, size_t size);
    ssize_t __wrap_write(int fd, const void *buffer, size_t size);
    int kiv_test_vforkFails();

    int __wrap_pipe2(int *ends, int flags)
    {
        if (auto *const before = std::exchange(g_beforePipe, nullptr); before != nullptr)
            before();
        return fails(Call::pipe) ? -1 : __real_pipe2(ends, flags);
    }
    int __wrap_fcntl(int fd, int command, long argument)
    {
        return command == F_SETFL && fails(Call::fcntl) ? -1 : __real_fcntl(fd, command, argument);
    }
    ssize_t __wrap_read(int fd, void *buffer, size_t size)
    {
        if (failsOrIsShort(Call::read, size))
            return -1;
        meetDeath(fd, size);
        return __real_read(fd, buffer, size);
    }
    ssize_t __wrap_write(int fd, const void *buffer, size_t size)
    {
        if (failsOrIsShort(Call::write, size))
            return -1;
        const size_t whole = size;
        const int pipe = faults().deathPipe;
        meetDeath(fd, size);
        if (size == whole)
            return __real_write(fd, buffer, size);
        // A writer does not return for the rest of its message. No other process dies after these bytes.
        faults().deathPipe = -1;
        (void)!__real_write(fd, buffer, size);
        die(pipe);
    }
    int kiv_test_vforkFails()
    {
        return fails(Call::vfork) ? 1 : 0;
    }
}
// A function that calls vfork must not return twice through its own frame, so this one jumps.
asm(R"(
    .text
    .globl __wrap_vfork
    .type __wrap_vfork, @function
__wrap_vfork:
    subq $8, %rsp
    call kiv_test_vforkFails@PLT
    addq $8, %rsp
    testl %eax, %eax
    jne 1f
    jmp *__real_vfork@GOTPCREL(%rip)
1:  movl $-1, %eax
    ret
    .size __wrap_vfork, . - __wrap_vfork
)");

namespace
{
// ---- System calls ----

TEST(TaskFaults, AFailedCallHasItsStatusAndLeavesNoDescriptor)
{
    for (const auto &[call, skip, error, status] : {
             std::tuple{Call::pipe, 0, EMFILE, KIVCS2STATUS_PIPE_ERR},
             {Call::pipe, 1, ENFILE, KIVCS2STATUS_PIPE_ERR},
             {Call::pipe, 2, EMFILE, KIVCS2STATUS_PIPE_ERR},
             {Call::vfork, 0, EAGAIN, KIVCS2STATUS_FORK_ERR},
             {Call::waitpid, 0, EINTR, KIVCS2STATUS_OK},
             {Call::waitpid, 0, ECHILD, KIVCS2STATUS_SYSTEM_ERR}, // without a server the status is lost
         })
    {
        SCOPED_TRACE(testing::Message() << static_cast<int>(call) << " " << skip << " " << error);
        KIVCS2Task *task = makeShell("exit 3");
        kivCS2Task_setPipedIO(task, 1);
        const size_t before = openDescriptors();
        fail(call, skip, error);
        EXPECT_EQ(kivCS2Task_launch(task), status);
        EXPECT_EQ(faults().failed, 1);
        EXPECT_EQ(task->m_state, uint32_t{KIVCS2TaskState_Finished});
        EXPECT_EQ(task->m_waitStatus, status == 0 ? 768 : status == KIVCS2STATUS_SYSTEM_ERR ? -1 : 0);
        EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
        EXPECT_EQ(openDescriptors(), before);
        while (__real_waitpid(-1, nullptr, 0) > 0)
        {
        }
    }
}

// The child can report a failure only by its exit code: each file and each of the three streams in turn,
// without and with a server.
TEST(TaskFaults, ACallThatFailsInTheChildIsItsExitCode)
{
    using Row = std::tuple<Call, int, bool, bool>; // with the number of these calls in a launch
    faults();                                      // shared with the children
    const auto launches = []
    {
        for (const auto &[call, calls, piped, files] :
             {Row{Call::open, 2, false, true}, Row{Call::open, 2, true, true},
              Row{Call::dup2, 3, true, false}, Row{Call::dup2, 2, false, true},
              Row{Call::dup2, 3, true, true}})
            for (int skip = 0; skip <= calls; ++skip)
                for (const int error : {EMFILE, EINTR})
                {
                    SCOPED_TRACE(testing::Message() << static_cast<int>(call) << " " << skip << " " << error);
                    const size_t before = openDescriptors();
                    KIVCS2Task *task = makeShell("exit 3");
                    kivCS2Task_setPipedIO(task, piped ? 1 : 0);
                    if (files)
                    {
                        kivCS2Task_setStdOutFile(task, "/dev/null");
                        kivCS2Task_setStdErrFile(task, "/dev/null");
                    }
                    fail(call, skip, error);
                    EXPECT_OK(kivCS2Task_launch(task));
                    const bool failed = skip < calls;
                    EXPECT_EQ(faults().failed, failed ? 1 : 0);
                    EXPECT_EQ(task->m_exitCode, failed && error != EINTR ? 127 : 3);
                    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
                    EXPECT_EQ(openDescriptors(), before);
                }
        fail(Call::none, 0, 0, 0);
    };
    inChild(
        [launches]
        {
            launches();
            EXPECT_EQ(__real_waitpid(-1, nullptr, WNOHANG), -1); // no zombie
            EXPECT_OK(kivCS2TaskServer_init());
            launches();
        });
}

// A server's child only executes: it opens no files and connects no pipes, whatever the record has for other
// launches.
TEST(TaskFaults, AServersChildThatCannotExecuteEndsWith127)
{
    TemporaryFolder folder;
    const std::string broken = folder.write("broken", "#!/nowhere/interpreter\n");
    ASSERT_EQ(chmod(broken.c_str(), 0700), 0);
    inChild(
        [&broken]
        {
            EXPECT_OK(kivCS2TaskServer_init());
            Ended ended;
            KIVCS2Task *task = nullptr;
            EXPECT_OK(kivCS2Task_create(&task, broken.c_str(), nullptr));
            kivCS2Task_setPipedIO(task, 1);
            kivCS2Task_setStdOutFile(task, "/nowhere/file");
            const size_t before = openDescriptors();
            fail(Call::dup2, 0, EMFILE);
            EXPECT_OK(kivCS2TaskServer_exec(task, Ended::call, &ended));
            ended.gate.acquire();
            EXPECT_EQ(task->m_exitCode, 127 << 8);
            EXPECT_EQ(faults().failed, 0);
            fail(Call::none, 0, 0, 0);
            EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate));
            EXPECT_EQ(openDescriptors(), before);
        });
}

// Another thread closes or frees a task whose launch has begun, before its pipes and process exist.
TEST(TaskFaults, ALaunchUnderWayIsClosedAndFreed)
{
    static KIVCS2Task *task;
    const auto launch = [](const char *script, void (*meanwhile)())
    {
        task = makeShell(script);
        kivCS2Task_setPipedIO(task, 1);
        g_beforePipe = meanwhile;
        return kivCS2Task_launch(task);
    };
    const size_t before = openDescriptors();
    // The child reads the end of its input.
    EXPECT_OK(launch("cat; exit 3", [] { (void)kivCS2Task_closePipedIO(task); }));
    EXPECT_EQ(task->m_exitCode, 3);
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
    // The free does not wait for a synchronous launch; its child is stopped once it exists.
    EXPECT_OK(launch("exec tail -f --pid=$PPID /dev/null",
                     [] { (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate); }));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(TaskFaults, AnAsynchronousStartThatFailedIsInStateZero)
{
    KIVCS2Task *task = makeShell("exit");
    fail(Call::thread, 0, EAGAIN);
    EXPECT_EQ(kivCS2Task_launchAsync(task, nullptr, nullptr), KIVCS2STATUS_THREAD_ERR);
    EXPECT_EQ(task->m_state, uint32_t{KIVCS2TaskState_Failed});
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
}

TEST(TaskFaults, FailedTransfersHaveAStatusAndNoCount)
{
    KIVCS2Task *task = makeShell("cat");
    kivCS2Task_setPipedIO(task, 1);
    Ended ended;
    ASSERT_OK(kivCS2Task_launchAsync(task, Ended::call, &ended));
    uint32_t count = 0;
    const auto write = [&] { return kivCS2Task_writeInput(task, "hi", 2, &count); };
    const auto read = [&]
    {
        char bytes[2];
        return kivCS2Task_readOutput(task, true, bytes, sizeof bytes, &count);
    };
    while (write() == KIVCS2STATUS_NOT_PIPED_ERR)
    {
    }
    EXPECT_EQ(count, 2u);
    fail(Call::write, 0, EIO);
    EXPECT_EQ(write(), KIVCS2STATUS_TASK_WRITE_ERR);
    EXPECT_EQ(count, 0u);
    fail(Call::write, 0, EINTR);
    EXPECT_OK(write());
    fail(Call::write, 0, 0);
    EXPECT_OK(write());
    EXPECT_EQ(count, 1u);
    fail(Call::read, 0, EIO);
    EXPECT_EQ(read(), KIVCS2STATUS_TASK_READ_ERR);
    EXPECT_EQ(count, 0u);
    fail(Call::read, 0, EINTR);
    EXPECT_OK(read());
    fail(Call::read, 0, 0);
    EXPECT_OK(read());
    EXPECT_EQ(count, 1u);
    fail(Call::poll, 0, EINVAL);
    char byte;
    EXPECT_EQ(kivCS2Task_readOutput(task, false, &byte, 1, &count), KIVCS2STATUS_READ_ERR);
    EXPECT_OK(kivCS2Task_closePipedIO(task));
    ended.gate.acquire();
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate));
}

// The status of a failed start, the status of a launch after it, and no open descriptors.
TEST(TaskFaults, AServerThatDidNotStart)
{
    using Row = std::tuple<Call, int, KIVCS2Status, KIVCS2Status>;
    for (const auto &row : {
             Row{Call::pipe, 0, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::pipe, 1, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::pipe, 2, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::fcntl, 1, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::fork, 0, KIVCS2STATUS_FORK_ERR, KIVCS2STATUS_OK},
             Row{Call::thread, 0, KIVCS2STATUS_OK, KIVCS2STATUS_OK},
         })
        inChild(
            [&row]
            {
                const auto &[call, skip, started, launched] = row;
                SCOPED_TRACE(testing::Message() << static_cast<int>(call) << " " << skip);
                const size_t before = openDescriptors();
                fail(call, skip, EAGAIN);
                EXPECT_EQ(kivCS2TaskServer_init(), started);
                EXPECT_EQ(faults().failed, 1);
                EXPECT_TRUE(started != KIVCS2STATUS_PIPE_ERR || openDescriptors() == before);
                EXPECT_EQ(runThroughServer(), launched == 0 ? 768 : static_cast<int32_t>(launched));
            });
}

// A single failure is repaired by another attempt or another server.
TEST(TaskFaults, ALaunchThroughTheServer)
{
    using Row = std::tuple<Call, int, int, KIVCS2Status>;
    constexpr int kAlways = 1000000;
    for (const auto &row : {
             Row{Call::write, EINTR, 1, KIVCS2STATUS_OK},
             Row{Call::write, EPIPE, 1, KIVCS2STATUS_OK},
             Row{Call::write, EPIPE, kAlways, KIVCS2STATUS_PIPE_ERR},
             Row{Call::vfork, EAGAIN, 1, KIVCS2STATUS_OK},
             Row{Call::vfork, EAGAIN, kAlways, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::waitpid, ECHILD, 1, KIVCS2STATUS_OK}, // of the server, which is replaced
             Row{Call::read, EINTR, 3, KIVCS2STATUS_OK},
         })
        inChild(
            [&row]
            {
                const auto &[call, error, times, status] = row;
                SCOPED_TRACE(testing::Message() << static_cast<int>(call) << " " << error << " " << times);
                EXPECT_OK(kivCS2TaskServer_init());
                EXPECT_EQ(runThroughServer(), 768);
                const size_t before = openDescriptors();
                fail(call, 0, error, times);
                EXPECT_EQ(runThroughServer(), status == 0 ? 768 : static_cast<int32_t>(status));
                fail(Call::none, 0, 0, 0);
                EXPECT_EQ(runThroughServer(), 768);
                EXPECT_EQ(openDescriptors(), before);
            });
}

KIV_TEST_RUN(inChild, TaskFaults, AServerThatCannotBeReplacedLeavesTheTaskAsItWas)
{
    EXPECT_OK(kivCS2TaskServer_init());
    for (const auto &[call, status] :
         {std::pair{Call::pipe, KIVCS2STATUS_TASK_SERVER_ERR}, {Call::fork, KIVCS2STATUS_FORK_ERR}})
    {
        const pid_t server = g_CSTaskServer.m_serverPid;
        ASSERT_GT(server, 1);
        ASSERT_EQ(kill(server, SIGKILL), 0);
        EXPECT_TRUE(holdsWithin(10000, [] { return g_CSTaskServer.m_serverEnded.load() != 0; }));
        KIVCS2Task *task = makeShell("exit 3");
        fail(call, 0, EMFILE);
        EXPECT_EQ(kivCS2TaskServer_exec(task, nullptr, nullptr), status);
        EXPECT_EQ(faults().failed, 1);
        EXPECT_EQ(task->m_state, uint32_t{KIVCS2TaskState_Created});
        EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
        EXPECT_EQ(runThroughServer(), 768);
    }
}

// ---- Deaths ----

constexpr long kRequestBytes = 1 + (4 + 7) + 4 + (4 + 7) + (4 + 2) + (4 + 6); // /bin/sh -c "exit 3"
constexpr long kPidBytes = 4;

KIV_TEST_RUN(inChild, TaskFaults, TheServerIsKilledAtEveryByte)
{
    EXPECT_OK(kivCS2TaskServer_init());
    EXPECT_EQ(runThroughServer(), 768);
    const size_t before = openDescriptors();
    for (int round = 0; round < kRounds; ++round)
        for (const auto &[pipe, size] : {std::pair{kRequestRead, kRequestBytes}, {kPidWrite, kPidBytes}})
            for (long byte = 0; byte < size; ++byte)
            {
                faults().bytes = byte;
                faults().deathPipe = static_cast<int>(pipe);
                ASSERT_EQ(runThroughServer(), 768) << pipe << " " << byte;
                ASSERT_EQ(faults().deathPipe, -1) << "no death at " << byte;
            }
    EXPECT_EQ(openDescriptors(), before);
}

// Its end is reported, and the server and its other children go on.
KIV_TEST_RUN(inChild, TaskFaults, AChildIsKilledBeforeItsIdIsKnown)
{
    EXPECT_OK(kivCS2TaskServer_init());
    const pid_t server = g_CSTaskServer.m_serverPid;
    Ended other;
    KIVCS2Task *task = makeShell("exec sleep 60");
    EXPECT_OK(kivCS2TaskServer_exec(task, Ended::call, &other));
    for (int round = 0; round < 2 * kRounds; ++round)
    {
        faults().childDiesAlone = true;
        faults().bytes = 0;
        faults().deathPipe = static_cast<int>(kPidWrite);
        EXPECT_EQ(runThroughServer(), SIGKILL);
        EXPECT_EQ(faults().deathPipe, -1) << "no death";
        faults().childDiesAlone = false;
        EXPECT_EQ(runThroughServer(), 768);
    }
    EXPECT_EQ(g_CSTaskServer.m_serverPid, server);
    int32_t result = -1;
    EXPECT_OK(kivCS2Task_terminate(task, &result));
    other.gate.acquire();
    EXPECT_EQ(task->m_exitCode, SIGTERM);
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
}

// A stopped server takes a small request but not a large one. Both waits are bounded, and another server
// launches.
KIV_TEST_RUN(inChild, TaskFaults, AStoppedServerIsReplaced)
{
    kiv::g_answerTime = 1'500'000'000;
    EXPECT_OK(kivCS2TaskServer_init());
    for (const size_t size : {1, 100'000})
    {
        const pid_t server = g_CSTaskServer.m_serverPid;
        ASSERT_EQ(kill(server, SIGSTOP), 0);
        Ended ended;
        KIVCS2Task *task = makeShell(("exit 3 #" + std::string(size, 'x')).c_str());
        EXPECT_OK(kivCS2TaskServer_exec(task, Ended::call, &ended));
        ended.gate.acquire();
        EXPECT_EQ(task->m_exitCode, 768);
        EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate));
        EXPECT_NE(g_CSTaskServer.m_serverPid, server);
        EXPECT_TRUE(holdsWithin(10000, [server] { return kill(server, 0) != 0; }));
    }
}

// A report is written in one piece, so the server dies before it, and the status is lost.
KIV_TEST_RUN(inOwnChild, TaskFaults, TheServerIsKilledBeforeAReport)
{
    EXPECT_OK(kivCS2TaskServer_init());
    faults().bytes = 0;
    faults().deathPipe = kReportWrite;
    EXPECT_EQ(runThroughServer(), -1);
    EXPECT_EQ(runThroughServer(), 768);
}

TEST(TaskFaults, TheHostIsKilledAtEveryByte)
{
    const auto body = []
    {
        const std::pair<uint32_t, long> pipes[] = {
            {kRequestWrite, kRequestBytes}, {kPidRead, kPidBytes}, {kReportRead, 8}};
        for (int round = 0; round < kRounds; ++round)
            for (const auto &[pipe, size] : pipes)
                for (long byte = 0; byte < size; ++byte)
                {
                    const pid_t host = fork();
                    if (host == 0)
                    {
                        (void)kivCS2TaskServer_init();
                        (void)kivCS2TaskServer_exec(makeShell("exec sleep 60"), nullptr, nullptr);
                        faults().hostDies = true;
                        faults().bytes = byte;
                        faults().deathPipe = static_cast<int>(pipe);
                        (void)runThroughServer();
                        _exit(0);
                    }
                    ASSERT_EQ(exitCodeOf(host), 1000 + SIGKILL) << pipe << " " << byte;
                    // It takes about two seconds; a loaded machine needs more.
                    ASSERT_TRUE(holdsWithin(10000,
                                            []
                                            {
                                                while (__real_waitpid(-1, nullptr, WNOHANG) > 0)
                                                {
                                                }
                                                return processes().size() == 1;
                                            }))
                        << pipe << " " << byte;
                }
    };
    faults(); // shared with all of them
    inOwnProcesses(body);
}
} // namespace
