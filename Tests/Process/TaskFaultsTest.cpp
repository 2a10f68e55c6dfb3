// Launches beside system calls that fail, and server and host killed at every byte of what they tell each
// other.
#include "KIVCS2Base.h"
#include "KIVCS2TaskServer.h"
#include "Private/Tasks/ServerProcess.h"
#include "Private/Tasks/ServerWire.h"

#include "OwnProcesses.h"
#include "OwnTasks.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <semaphore>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <utility>

// ---- What fails, and who dies; in memory that host, server and children share ----

namespace
{
using namespace kiv::test;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 2; // a process takes many times as long to make
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
    std::atomic<int> skip{0};   // of that call let through before
    std::atomic<int> times{0};  // it fails
    std::atomic<int> error{0};  // 0: a short count
    std::atomic<int> failed{0}; // it has

    std::atomic<int> deathPipe{-1}; // index of the descriptor
    std::atomic<bool> hostDies{false};
    std::atomic<bool> childDiesAlone{false}; // and not the server with it
    std::atomic<long> bytes{0};              // until then
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

// Cuts a transfer where its process is to die; kills it there. The server's reading of requests, the launched
// process's writing of its id (with it the server dies) and the same from the host's side.
void meetDeath(int fd, size_t &size)
{
    Faults &now = faults();
    const int pipe = now.deathPipe;
    if (pipe < 0 || fd != g_CSTaskServer.m_descriptors[static_cast<size_t>(pipe)] ||
        (getpid() == g_CSTaskServer.m_hostPid) != now.hostDies)
        return;
    if (now.bytes == 0)
        die(pipe);
    size = std::min(size, static_cast<size_t>(now.bytes.load()));
    now.bytes -= static_cast<long>(size);
}

void (*g_beforePipe)() = nullptr; // what another thread of the host does at the worst moment

size_t openDescriptors()
{
    size_t count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
        count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    return count;
}
} // namespace

// What fails on request and does nothing else.
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
        if (fails(Call::read))
        {
            if (errno != 0)
                return -1;
            size = std::min<size_t>(size, 1);
        }
        meetDeath(fd, size);
        return __real_read(fd, buffer, size);
    }
    ssize_t __wrap_write(int fd, const void *buffer, size_t size)
    {
        if (fails(Call::write))
        {
            if (errno != 0)
                return -1;
            size = std::min<size_t>(size, 1);
        }
        const size_t whole = size;
        const int pipe = faults().deathPipe;
        meetDeath(fd, size);
        if (size == whole)
            return __real_write(fd, buffer, size);
        // Who writes at once does not come back for the rest. Nobody else is to die of what it has written.
        faults().deathPipe = -1;
        (void)!__real_write(fd, buffer, size);
        die(pipe);
    }
    int kiv_test_vforkFails()
    {
        return fails(Call::vfork) ? 1 : 0;
    }
}
// A function that calls vfork cannot return twice through its own frame, so this one leaves by a jump.
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

TEST(TaskFaults, AFailedCallGivesItsStatusAndLeavesNothing)
{
    for (const auto &[call, skip, error, status] : {
             std::tuple{Call::pipe, 0, EMFILE, KIVCS2STATUS_PIPE_ERR},
             {Call::pipe, 1, ENFILE, KIVCS2STATUS_PIPE_ERR},
             {Call::pipe, 2, EMFILE, KIVCS2STATUS_PIPE_ERR},
             {Call::vfork, 0, EAGAIN, KIVCS2STATUS_FORK_ERR},
             {Call::waitpid, 0, EINTR, KIVCS2STATUS_OK},
             {Call::waitpid, 0, ECHILD, KIVCS2STATUS_SYSTEM_ERR}, // without a server nobody hands it over
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
        EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
        EXPECT_EQ(openDescriptors(), before);
        while (__real_waitpid(-1, nullptr, 0) > 0)
        {
        }
    }
}

// In the child, which can tell the host by its exit code only: each file, and each of the three streams in
// turn, alone and beside a server.
TEST(TaskFaults, ACallThatFailsInTheChildIsItsExitCode)
{
    using Row = std::tuple<Call, int, bool, bool>; // calls: that such a launch makes
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
                    EXPECT_EQ(kivCS2Task_launch(task), KIVCS2STATUS_OK);
                    const bool failed = skip < calls;
                    EXPECT_EQ(faults().failed, failed ? 1 : 0);
                    EXPECT_EQ(task->m_exitCode, failed && error != EINTR ? 127 : 3);
                    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
                    EXPECT_EQ(openDescriptors(), before);
                }
        fail(Call::none, 0, 0, 0);
    };
    inChild(
        [launches]
        {
            launches();
            EXPECT_EQ(__real_waitpid(-1, nullptr, WNOHANG), -1); // no zombie
            EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
            launches();
        });
}

// A server's child neither opens nor connects anything, whatever is set for other launches; it only executes.
TEST(TaskFaults, AServersChildThatExecutesNothingEndsWith127)
{
    TemporaryFolder folder;
    const std::string broken = folder.write("broken", "#!/nowhere/interpreter\n");
    ASSERT_EQ(chmod(broken.c_str(), 0700), 0);
    inChild(
        [&broken]
        {
            EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
            Ended ended;
            KIVCS2Task *task = nullptr;
            EXPECT_EQ(kivCS2Task_create(&task, broken.c_str(), nullptr), KIVCS2STATUS_OK);
            kivCS2Task_setPipedIO(task, 1);
            kivCS2Task_setStdOutFile(task, "/nowhere/file");
            const size_t before = openDescriptors();
            fail(Call::dup2, 0, EMFILE);
            EXPECT_EQ(kivCS2TaskServer_exec(task, Ended::call, &ended), KIVCS2STATUS_OK);
            ended.gate.acquire();
            EXPECT_EQ(task->m_exitCode, 127 << 8);
            EXPECT_EQ(faults().failed, 0);
            fail(Call::none, 0, 0, 0);
            EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate), KIVCS2STATUS_OK);
            EXPECT_EQ(openDescriptors(), before);
        });
}

// What another thread does to a task whose launch has begun, and whose pipes and process are still to come.
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
    EXPECT_EQ(launch("cat; exit 3", [] { (void)kivCS2Task_closePipedIO(task); }), KIVCS2STATUS_OK);
    EXPECT_EQ(task->m_exitCode, 3);
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
    // A synchronous launch is not waited for; its child is stopped when it comes.
    EXPECT_EQ(launch("exec tail -f --pid=$PPID /dev/null",
                     [] { (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate); }),
              KIVCS2STATUS_OK);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(TaskFaults, AnAsynchronousStartThatFailedIsInStateZero)
{
    KIVCS2Task *task = makeShell("exit");
    fail(Call::thread, 0, EAGAIN);
    EXPECT_EQ(kivCS2Task_launchAsync(task, nullptr, nullptr), KIVCS2STATUS_THREAD_ERR);
    EXPECT_EQ(task->m_state, uint32_t{KIVCS2TaskState_Failed});
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
}

TEST(TaskFaults, FailedTransfersHaveAStatusAndNoCount)
{
    KIVCS2Task *task = makeShell("cat");
    kivCS2Task_setPipedIO(task, 1);
    Ended ended;
    ASSERT_EQ(kivCS2Task_launchAsync(task, Ended::call, &ended), KIVCS2STATUS_OK);
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
    EXPECT_EQ(write(), KIVCS2STATUS_OK);
    fail(Call::write, 0, 0);
    EXPECT_EQ(write(), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 1u);
    fail(Call::read, 0, EIO);
    EXPECT_EQ(read(), KIVCS2STATUS_TASK_READ_ERR);
    EXPECT_EQ(count, 0u);
    fail(Call::read, 0, EINTR);
    EXPECT_EQ(read(), KIVCS2STATUS_OK);
    fail(Call::read, 0, 0);
    EXPECT_EQ(read(), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 1u);
    fail(Call::poll, 0, EINVAL);
    char byte;
    EXPECT_EQ(kivCS2Task_readOutput(task, false, &byte, 1, &count), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(kivCS2Task_closePipedIO(task), KIVCS2STATUS_OK);
    ended.gate.acquire();
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate), KIVCS2STATUS_OK);
}

// Of the server's start: what is told, whether a launch works afterwards, and that nothing is left open.
TEST(TaskFaults, AServerThatDidNotStart)
{
    struct Row
    {
        Call call;
        int skip;
        KIVCS2Status started;
        KIVCS2Status launched;
    };
    for (const Row &row : {
             Row{Call::pipe, 0, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::pipe, 1, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::pipe, 2, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::fcntl, 1, KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::fork, 0, KIVCS2STATUS_FORK_ERR, KIVCS2STATUS_OK},
             Row{Call::thread, 0, KIVCS2STATUS_OK, KIVCS2STATUS_OK},
         })
    {
        SCOPED_TRACE(testing::Message() << static_cast<int>(row.call) << " " << row.skip);
        inChild(
            [&row]
            {
                const size_t before = openDescriptors();
                fail(row.call, row.skip, EAGAIN);
                EXPECT_EQ(kivCS2TaskServer_init(), row.started);
                EXPECT_EQ(faults().failed, 1);
                EXPECT_TRUE(row.started != KIVCS2STATUS_PIPE_ERR || openDescriptors() == before);
                EXPECT_EQ(runThroughServer(), row.launched == 0 ? 768 : static_cast<int32_t>(row.launched));
            });
    }
}

// Of a launch: what fails once is made good by another try or another server.
TEST(TaskFaults, ALaunchThroughTheServer)
{
    struct Row
    {
        Call call;
        int error;
        int times;
        KIVCS2Status status;
    };
    constexpr int kAlways = 1000000;
    for (const Row &row : {
             Row{Call::write, EINTR, 1, KIVCS2STATUS_OK},
             Row{Call::write, EPIPE, 1, KIVCS2STATUS_OK},
             Row{Call::write, EPIPE, kAlways, KIVCS2STATUS_PIPE_ERR},
             Row{Call::vfork, EAGAIN, 1, KIVCS2STATUS_OK},
             Row{Call::vfork, EAGAIN, kAlways, KIVCS2STATUS_TASK_SERVER_ERR},
             Row{Call::waitpid, ECHILD, 1, KIVCS2STATUS_OK}, // of the server: it is replaced
             Row{Call::read, EINTR, 3, KIVCS2STATUS_OK},
         })
    {
        SCOPED_TRACE(testing::Message()
                     << static_cast<int>(row.call) << " " << row.error << " " << row.times);
        inChild(
            [&row]
            {
                EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
                EXPECT_EQ(runThroughServer(), 768);
                const size_t before = openDescriptors();
                fail(row.call, 0, row.error, row.times);
                EXPECT_EQ(runThroughServer(), row.status == 0 ? 768 : static_cast<int32_t>(row.status));
                fail(Call::none, 0, 0, 0);
                EXPECT_EQ(runThroughServer(), 768);
                EXPECT_EQ(openDescriptors(), before);
            });
    }
}

KIV_TEST_RUN(inChild, TaskFaults, AServerThatCannotBeReplacedLeavesTheTaskAsItWas)
{
    EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
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
        EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
        EXPECT_EQ(runThroughServer(), 768);
    }
}

// ---- Deaths ----

constexpr long kRequestBytes = 1 + (4 + 7) + 4 + (4 + 7) + (4 + 2) + (4 + 6); // /bin/sh -c "exit 3"
constexpr long kPidBytes = 4;

KIV_TEST_RUN(inChild, TaskFaults, TheServerIsKilledAtEveryByte)
{
    EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
    EXPECT_EQ(runThroughServer(), 768);
    const size_t before = openDescriptors();
    for (int round = 0; round < kRounds; ++round)
        for (const auto &[pipe, size] : {std::pair{kRequestRead, kRequestBytes}, {kPidWrite, kPidBytes}})
            for (long byte = 0; byte < size; ++byte)
            {
                faults().bytes = byte;
                faults().deathPipe = static_cast<int>(pipe);
                ASSERT_EQ(runThroughServer(), 768) << pipe << " " << byte;
                ASSERT_EQ(faults().deathPipe, -1) << "nobody died at " << byte;
            }
    EXPECT_EQ(openDescriptors(), before);
}

// Its end is told, and the server and the others that it has launched go on.
KIV_TEST_RUN(inChild, TaskFaults, AChildIsKilledBeforeItsIdIsKnown)
{
    EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
    const pid_t server = g_CSTaskServer.m_serverPid;
    Ended other;
    KIVCS2Task *task = makeShell("exec sleep 60");
    EXPECT_EQ(kivCS2TaskServer_exec(task, Ended::call, &other), KIVCS2STATUS_OK);
    for (int round = 0; round < 2 * kRounds; ++round)
    {
        faults().childDiesAlone = true;
        faults().bytes = 0;
        faults().deathPipe = static_cast<int>(kPidWrite);
        EXPECT_EQ(runThroughServer(), SIGKILL);
        EXPECT_EQ(faults().deathPipe, -1) << "nobody died";
        faults().childDiesAlone = false;
        EXPECT_EQ(runThroughServer(), 768);
    }
    EXPECT_EQ(g_CSTaskServer.m_serverPid, server);
    int32_t result = -1;
    EXPECT_EQ(kivCS2Task_terminate(task, &result), KIVCS2STATUS_OK);
    other.gate.acquire();
    EXPECT_EQ(task->m_exitCode, SIGTERM);
    EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
}

// Stopped, it takes a small request and no large one; both are bounded, and another server launches.
KIV_TEST_RUN(inChild, TaskFaults, AServerThatDoesNothingIsReplaced)
{
    kiv::g_answerTime = 1'500'000'000;
    EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
    for (const size_t size : {1, 100'000})
    {
        const pid_t server = g_CSTaskServer.m_serverPid;
        ASSERT_EQ(kill(server, SIGSTOP), 0);
        Ended ended;
        KIVCS2Task *task = makeShell(("exit 3 #" + std::string(size, 'x')).c_str());
        EXPECT_EQ(kivCS2TaskServer_exec(task, Ended::call, &ended), KIVCS2STATUS_OK);
        ended.gate.acquire();
        EXPECT_EQ(task->m_exitCode, 768);
        EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate), KIVCS2STATUS_OK);
        EXPECT_NE(g_CSTaskServer.m_serverPid, server);
        EXPECT_TRUE(holdsWithin(10000, [server] { return kill(server, 0) != 0; }));
    }
}

// A report is written in one piece, so there is no middle of one: the server dies before it, with a status
// that it alone knew.
KIV_TEST_RUN(inOwnChild, TaskFaults, TheServerIsKilledBeforeAReport)
{
    EXPECT_EQ(kivCS2TaskServer_init(), KIVCS2STATUS_OK);
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
                    // About two seconds; what more is given here is for a loaded machine.
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
