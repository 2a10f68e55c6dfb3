// Tasks launched by the host itself: exit codes, pipes, files, signals and every way to free one.
#include <KIVCoreServices2/KIVCS2Task.h>
#include <KIVCoreServices2/KIVCS2TaskServer.h>

#include "RequiredPointers.h"
#include "TemporaryFolder.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <semaphore>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
using namespace kiv::test;

static_assert(offsetof(KIVCS2Task, m_link) == 0 && offsetof(KIVCS2Task, m_command) == 24 &&
              offsetof(KIVCS2Task, m_argv) == 32 && offsetof(KIVCS2Task, m_pid) == 40 &&
              offsetof(KIVCS2Task, m_state) == 44 && offsetof(KIVCS2Task, m_waitStatus) == 48 &&
              offsetof(KIVCS2Task, m_exitCode) == 52 && offsetof(KIVCS2Task, m_piped) == 56 &&
              offsetof(KIVCS2Task, m_thread) == 64 && offsetof(KIVCS2Task, m_asyncError) == 80 &&
              offsetof(KIVCS2Task, m_callback) == 88 && offsetof(KIVCS2Task, m_context) == 96 &&
              offsetof(KIVCS2Task, m_stdInPipe) == 104 && offsetof(KIVCS2Task, m_stdOutPipe) == 112 &&
              offsetof(KIVCS2Task, m_stdErrPipe) == 120 && offsetof(KIVCS2Task, m_stdOutFile) == 128 &&
              offsetof(KIVCS2Task, m_stdErrFile) == 136);

using Gate = std::binary_semaphore;

// The last command of a script that waits for its end, at most as long as the test runs.
#define WAIT "exec tail -f --pid=$PPID /dev/null"

// A task, freed at the end unless it has been before. A running task must end before that, because its
// callback needs this record.
struct Own
{
    Own(const char *command, std::vector<const char *> arguments)
    {
        arguments.push_back(nullptr);
        EXPECT_EQ(kivCS2Task_create(&task, command, arguments.data()), KIVCS2STATUS_OK);
    }
    ~Own()
    {
        if (task != nullptr)
        {
            EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate), KIVCS2STATUS_OK);
        }
    }
    Own(const Own &) = delete;
    Own &operator=(const Own &) = delete;

    KIVCS2Task *task = nullptr;
};

// A shell script as a task.
struct Shell : Own
{
    explicit Shell(const std::string &script) : Own{"/bin/sh", {"-c", script.c_str()}} {}
    void startAsync()
    {
        ASSERT_EQ(kivCS2Task_launchAsync(task, &ended, this), KIVCS2STATUS_OK);
    }
    // Waits for the child's first byte, so it has executed the commands before that.
    void awaitByte()
    {
        char byte = 0;
        uint32_t count = 0;
        KIVCS2Status status;
        while ((status = kivCS2Task_readOutput(task, true, &byte, 1, &count)) == KIVCS2STATUS_NOT_PIPED_ERR)
            std::this_thread::yield();
        ASSERT_EQ(status, KIVCS2STATUS_OK);
        ASSERT_EQ(count, 1u);
        while (std::atomic_ref{task->m_pid}.load() == 0) // the id may be stored later than the output comes
            std::this_thread::yield();
    }
    // Ends the child, and waits for the callback, which may come after the free.
    void terminate()
    {
        EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate), KIVCS2STATUS_OK);
        task = nullptr;
        end.acquire();
    }
    static void ended(KIVCS2Task *, void *context)
    {
        static_cast<Shell *>(context)->end.release();
    }

    Gate end{0};
};

// The number of entries: /proc/self/fd has the open descriptors, /proc/self/task the threads.
size_t entries(const char *folder)
{
    using Entries = std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(Entries{folder}, Entries{}));
}

// Returns the output of a task that writes little.
std::string outputOf(const char *command, const char *argument)
{
    const Own own{command, {argument}};
    EXPECT_EQ(kivCS2Task_setPipedIO(own.task, 1), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Task_launch(own.task), KIVCS2STATUS_OK);
    std::string text(4096, '\0');
    uint32_t count = 0;
    EXPECT_EQ(kivCS2Task_readOutput(own.task, true, text.data(), 4096, &count), KIVCS2STATUS_OK);
    text.resize(count);
    return text;
}

// ---- Making ----

TEST(Task, CopiesItsTexts)
{
    char text[] = "first";
    Own own{"/bin/true", {text, "second"}};
    text[0] = 'F';
    EXPECT_STREQ(own.task->m_command, "/bin/true");
    EXPECT_STREQ(own.task->m_argv[0], "/bin/true");
    EXPECT_STREQ(own.task->m_argv[1], "first");
    EXPECT_STREQ(own.task->m_argv[2], "second");
    EXPECT_EQ(own.task->m_argv[3], nullptr);
    EXPECT_EQ(own.task->m_state, uint32_t{KIVCS2TaskState_Created});
    EXPECT_EQ(kivCS2Task_free(own.task, 99), KIVCS2STATUS_OK); // without a process, any mode is accepted

    ASSERT_EQ(kivCS2Task_create(&own.task, "/bin/true", nullptr), KIVCS2STATUS_OK);
    EXPECT_STREQ(own.task->m_argv[0], "/bin/true");
    EXPECT_EQ(own.task->m_argv[1], nullptr);
}

// ---- Synchronous ----

TEST(TaskLaunch, KeepsTheExitCode)
{
    using Row = std::tuple<const char *, int32_t, int32_t>;
    for (const auto &[script, waitStatus, exitCode] :
         {Row{"exit 0", 0, 0}, Row{"exit 3", 0x300, 3}, Row{"exit 255", 0xFF00, 255},
          Row{"kill -9 $$", SIGKILL, 0}})
    {
        Shell shell{script};
        EXPECT_EQ(kivCS2Task_launch(shell.task), KIVCS2STATUS_OK);
        EXPECT_EQ(shell.task->m_waitStatus, waitStatus) << script;
        EXPECT_EQ(shell.task->m_exitCode, exitCode) << script;
        EXPECT_EQ(shell.task->m_state, uint32_t{KIVCS2TaskState_Finished});
        EXPECT_EQ(kivCS2Task_launch(shell.task), KIVCS2STATUS_STATE_ERR);
        EXPECT_EQ(kivCS2Task_launchAsync(shell.task, nullptr, nullptr), KIVCS2STATUS_STATE_ERR);
    }
}

TEST(TaskLaunch, RunsFilesAsExecvpDoes)
{
    TemporaryFolder folder;
    const std::string plain = folder.write("plain", "exit $1\n"); // not a program, so the shell runs it
    const std::string broken = folder.write("broken", "#!/nowhere/interpreter\n");
    const std::string unexecutable = folder.write("unexecutable", "");
    ASSERT_EQ(chmod(plain.c_str(), 0700) | chmod(broken.c_str(), 0700), 0);
    using Row = std::tuple<std::string, KIVCS2Status, int32_t>;
    for (const auto &[command, status, exitCode] :
         {Row{plain, KIVCS2STATUS_OK, 4}, Row{broken, KIVCS2STATUS_OK, 127},
          Row{unexecutable, KIVCS2STATUS_NOT_LAUNCHABLE_ERR, 0},
          Row{folder.path("missing"), KIVCS2STATUS_NOT_LAUNCHABLE_ERR, 0},
          Row{"true", KIVCS2STATUS_NOT_LAUNCHABLE_ERR, 0}}) // kept: no search in PATH
    {
        const Own own{command.c_str(), {"4"}};
        EXPECT_EQ(kivCS2TaskPrv_checkLaunchable(own.task), KIVCS2_FAILED(status) ? status : 0);
        EXPECT_EQ(kivCS2Task_launch(own.task), status) << command;
        EXPECT_EQ(own.task->m_exitCode, exitCode) << command;
        EXPECT_EQ(own.task->m_state, uint32_t{KIVCS2TaskState_Finished});
    }
}

// A bare name passes the check if the working directory has such a file; then it is searched in PATH.
TEST(TaskLaunch, ABareNameIsCheckedHereAndSearchedInPath)
{
    TemporaryFolder folder;
    const std::string here = folder.write("kivtool", "#!/bin/sh\nexit 5\n");
    std::filesystem::create_directory(folder.path("path"));
    const std::string found = folder.write("path/kivtool", "#!/bin/sh\nexit 6\n");
    ASSERT_EQ(chmod(here.c_str(), 0700) | chmod(found.c_str(), 0700), 0);
    const std::string before = std::filesystem::current_path();
    const std::string oldPath = getenv("PATH");
    ASSERT_EQ(chdir(folder.path("").c_str()), 0);
    for (const auto &[path, exitCode] :
         {std::pair{"/nowhere:" + folder.path("path"), 6},
          std::pair{std::string{"/nowhere:"}, 5}, // an empty entry is the working directory
          std::pair{std::string{"/nowhere"}, 127}})
    {
        setenv("PATH", path.c_str(), 1);
        const Own own{"kivtool", {}};
        EXPECT_EQ(kivCS2Task_launch(own.task), KIVCS2STATUS_OK);
        EXPECT_EQ(own.task->m_exitCode, exitCode) << path;
    }
    setenv("PATH", oldPath.c_str(), 1);
    ASSERT_EQ(chdir(before.c_str()), 0);
}

// The child has no blocked signals, no handlers of the host and no descriptors that are closed on exec.
TEST(TaskLaunch, TheChildStartsClean)
{
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    signal(SIGUSR1, [](int) {});
    size_t inherited = 3; // the standard streams, and descriptors of this process that stay open on exec
    for (int descriptor = 3; descriptor < 1024; ++descriptor)
        inherited += fcntl(descriptor, F_GETFD) == 0 ? 1 : 0;
    EXPECT_THAT(outputOf("/bin/cat", "/proc/self/status"),
                testing::AllOf(testing::HasSubstr("SigBlk:\t0000000000000000\n"),
                               testing::HasSubstr("SigCgt:\t0000000000000000\n")));
    const std::string listed = outputOf("/bin/ls", "/proc/self/fd");
    EXPECT_EQ(static_cast<size_t>(std::count(listed.begin(), listed.end(), '\n')), inherited + 1) << listed;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    signal(SIGUSR1, SIG_DFL);
}

TEST(TaskPipes, FeedAndDrainFromAnotherThread)
{
    Shell shell{"cat; echo problem >&2"};
    EXPECT_EQ(kivCS2Task_setPipedIO(shell.task, 1), KIVCS2STATUS_OK);
    const size_t before = entries("/proc/self/fd");
    std::string echoed;
    std::string errors(64, '\0');
    std::thread other{
        [&]
        {
            KIVCS2Status status;
            uint32_t count = 0;
            do
                status = kivCS2Task_writeInput(shell.task, "hi", 2, &count);
            while (status == KIVCS2STATUS_TASK_NOT_RUNNING_ERR || status == KIVCS2STATUS_NOT_PIPED_ERR);
            EXPECT_EQ(status, KIVCS2STATUS_OK);
            EXPECT_EQ(count, 2u);
            char bytes[16];
            EXPECT_EQ(kivCS2Task_readOutput(shell.task, true, bytes, sizeof bytes, &count), KIVCS2STATUS_OK);
            echoed.assign(bytes, count);
            EXPECT_EQ(kivCS2Task_readOutput(shell.task, false, bytes, sizeof bytes, &count),
                      KIVCS2STATUS_EOF_ERR); // kept: an empty pipe has the status of the end
            EXPECT_EQ(count, 0u);
            EXPECT_EQ(kivCS2Task_setPipedIO(shell.task, 0), KIVCS2STATUS_TASK_RUNNING_ERR);
            // Closes only the input, because the child's output is still to be read.
            close(std::atomic_ref{shell.task->m_stdInPipe[1]}.exchange(0));
        }};
    EXPECT_EQ(kivCS2Task_launch(shell.task), KIVCS2STATUS_OK);
    other.join();
    EXPECT_EQ(echoed, "hi");
    uint32_t count = 0;
    EXPECT_EQ(kivCS2Task_readError(shell.task, true, errors.data(), 64, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(errors.substr(0, count), "problem\n");
    EXPECT_EQ(kivCS2Task_readError(shell.task, false, errors.data(), 64, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 0u); // the end of the stream
    EXPECT_EQ(kivCS2Task_writeInput(shell.task, "x", 1, &count), KIVCS2STATUS_TASK_NOT_RUNNING_ERR);
    EXPECT_EQ(kivCS2Task_closePipedIO(shell.task), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Task_closePipedIO(shell.task), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Task_readOutput(shell.task, true, errors.data(), 1, &count), KIVCS2STATUS_STATE_ERR);
    EXPECT_EQ(entries("/proc/self/fd"), before);
}

TEST(TaskPipes, WritingToAChildThatIsGoneRaisesNoSignal)
{
    Shell shell{"exec 0<&-; echo; " WAIT};
    kivCS2Task_setPipedIO(shell.task, 1);
    shell.startAsync();
    shell.awaitByte();
    // The child may run before the host has closed its copy of the child's end.
    while (std::atomic_ref{shell.task->m_stdInPipe[0]}.load() != 0)
        std::this_thread::yield();
    uint32_t count = 9;
    EXPECT_EQ(kivCS2Task_writeInput(shell.task, "x", 1, &count), KIVCS2STATUS_TASK_WRITE_ERR);
    EXPECT_EQ(count, 0u);
    shell.terminate();
}

TEST(TaskFiles, KeepTheTailOfAnOlderFile)
{
    TemporaryFolder folder;
    const std::string out = folder.write("out", "a longer old text");
    Shell shell{"printf new; printf problem >&2"};
    EXPECT_EQ(kivCS2Task_setStdOutFile(shell.task, "/nowhere"), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Task_setStdOutFile(shell.task, out.c_str()), KIVCS2STATUS_OK); // replaces it
    EXPECT_EQ(kivCS2Task_setStdErrFile(shell.task, folder.path("err").c_str()), KIVCS2STATUS_OK);
    kivCS2Task_setPipedIO(shell.task, 1);
    EXPECT_EQ(kivCS2Task_launch(shell.task), KIVCS2STATUS_OK);
    EXPECT_EQ(shell.task->m_exitCode, 0);
    EXPECT_EQ(folder.read("out"), "newonger old text");
    EXPECT_EQ(folder.read("err"), "problem");
    char byte;
    EXPECT_EQ(kivCS2Task_readOutput(shell.task, false, &byte, 1, nullptr), KIVCS2STATUS_NOT_PIPED_ERR);

    Shell nowhere{"exit 0"};
    EXPECT_EQ(kivCS2Task_setStdErrFile(nowhere.task, folder.path("no/folder").c_str()), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Task_launch(nowhere.task), KIVCS2STATUS_OK);
    EXPECT_EQ(nowhere.task->m_exitCode, 127);
}

// The FIFO's reader is launched after its writer.
TEST(TaskFiles, AFIFODoesNotDelayOtherLaunches)
{
    TemporaryFolder folder;
    const std::string fifo = folder.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Shell writer{"echo hi"};
    EXPECT_EQ(kivCS2Task_setStdOutFile(writer.task, fifo.c_str()), KIVCS2STATUS_OK);
    writer.startAsync();
    while (std::atomic_ref{writer.task->m_pid}.load() == 0)
        std::this_thread::yield();
    EXPECT_EQ(outputOf("/bin/cat", fifo.c_str()), "hi\n");
    writer.end.acquire();
    EXPECT_EQ(writer.task->m_exitCode, 0);

    Shell waiting{"exit 0"}; // waits for a reader that never comes
    EXPECT_EQ(kivCS2Task_setStdOutFile(waiting.task, fifo.c_str()), KIVCS2STATUS_OK);
    waiting.startAsync();
    waiting.terminate();
}

// ---- Asynchronous ----

TEST(TaskAsync, CallsBackAndReportsItsEnd)
{
    Shell shell{"read line; exit $line"};
    kivCS2Task_setPipedIO(shell.task, 1);
    bool finished = true;
    KIVCS2Status error = KIVCS2STATUS_ERR;
    EXPECT_EQ(kivCS2Task_finishedAsync(shell.task, &finished, &error), KIVCS2STATUS_STATE_ERR);
    shell.startAsync();
    EXPECT_EQ(kivCS2Task_finishedAsync(shell.task, &finished, &error), KIVCS2STATUS_OK);
    EXPECT_FALSE(finished);
    EXPECT_EQ(error, KIVCS2STATUS_OK);
    while (kivCS2Task_writeInput(shell.task, "7\n", 2, nullptr) == KIVCS2STATUS_NOT_PIPED_ERR)
        std::this_thread::yield();
    shell.end.acquire();
    EXPECT_EQ(kivCS2Task_finishedAsync(shell.task, &finished, &error), KIVCS2STATUS_OK);
    EXPECT_TRUE(finished);
    EXPECT_EQ(shell.task->m_exitCode, 7);
    EXPECT_EQ(shell.task->m_state, uint32_t{KIVCS2TaskState_FinishedAsync});

    const Own missing{"no-such-command", {}};
    EXPECT_EQ(kivCS2Task_launchAsync(missing.task, nullptr, nullptr), KIVCS2STATUS_NOT_LAUNCHABLE_ERR);
    EXPECT_EQ(missing.task->m_state, uint32_t{KIVCS2TaskState_Created});
}

TEST(TaskAsync, OneOfSeveralThreadsLaunches)
{
    for (int round = 0; round < 20; ++round)
    {
        Shell shell{"exit 0"};
        std::atomic<int> launched{0};
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back(
                [&]
                {
                    const KIVCS2Status status = kivCS2Task_launchAsync(shell.task, &Shell::ended, &shell);
                    EXPECT_TRUE(status == KIVCS2STATUS_OK || status == KIVCS2STATUS_STATE_ERR);
                    launched += KIVCS2_SUCCEEDED(status) ? 1 : 0;
                });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(launched, 1);
        shell.end.acquire();
    }
}

TEST(TaskAsync, AFreeThatIsRefusedClosesThePipes)
{
    for (const auto &[mode, status] : {std::pair{KIVCS2TaskFreeMode_Refuse, KIVCS2STATUS_TASK_RUNNING_ERR},
                                       {KIVCS2TaskFreeMode_MAX, KIVCS2STATUS_PARAM_ERR}})
    {
        Shell shell{"echo; " WAIT};
        kivCS2Task_setPipedIO(shell.task, 1);
        shell.startAsync();
        shell.awaitByte();
        EXPECT_EQ(kivCS2Task_free(shell.task, mode), status);
        EXPECT_EQ(kivCS2Task_writeInput(shell.task, "x", 1, nullptr), KIVCS2STATUS_STATE_ERR);
        EXPECT_EQ(std::atomic_ref{shell.task->m_state}.load(), uint32_t{KIVCS2TaskState_RunningAsync});
        EXPECT_EQ(kill(std::atomic_ref{shell.task->m_pid}.load(), 0), 0);
        shell.terminate();
    }
}

// The free comes before the process exists, and after.
TEST(TaskAsync, EveryModeOfFreeEndsARunningChild)
{
    for (KIVCS2TaskFreeMode mode = KIVCS2TaskFreeMode_Interrupt; mode < KIVCS2TaskFreeMode_MAX; ++mode)
        for (const bool early : {true, false})
        {
            SCOPED_TRACE(testing::Message() << "mode " << mode << (early ? ", early" : ""));
            const size_t before = entries("/proc/self/task");
            Shell shell{"echo; " WAIT};
            kivCS2Task_setPipedIO(shell.task, 1);
            shell.startAsync();
            if (!early)
                shell.awaitByte();
            const pid_t pid = std::atomic_ref{shell.task->m_pid}.load();
            EXPECT_EQ(kivCS2Task_free(shell.task, mode), KIVCS2STATUS_OK);
            shell.task = nullptr;
            if (mode != KIVCS2TaskFreeMode_Abort)
                shell.end.acquire();
            EXPECT_TRUE(early || mode == KIVCS2TaskFreeMode_Abort || kill(pid, 0) == -1);
            // The launch's thread ends with the child.
            for (int look = 0; look < 1000 && entries("/proc/self/task") > before; ++look)
                std::this_thread::sleep_for(std::chrono::milliseconds{10});
            EXPECT_LE(entries("/proc/self/task"), before);
        }
}

// The process table cannot be read then. The task itself is stopped without it, and free waits for its end.
TEST(TaskAsync, AFreedTreeEndsWithoutADescriptorToSpare)
{
    Shell shell{"exec sleep 30"};
    shell.startAsync();
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    while (std::atomic_ref{shell.task->m_pid}.load() == 0)
        std::this_thread::yield();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(kivCS2Task_free(shell.task, KIVCS2TaskFreeMode_TerminateTree), KIVCS2STATUS_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds{20});
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    shell.task = nullptr;
    shell.end.acquire();
}

TEST(TaskAsync, ACallbackMayFreeItsTask)
{
    Own own{"/bin/true", {}};
    Gate freed{0};
    const auto freeTask = [](KIVCS2Task *ended, void *context)
    {
        EXPECT_EQ(kivCS2Task_free(ended, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_OK);
        static_cast<Gate *>(context)->release();
    };
    ASSERT_EQ(kivCS2Task_launchAsync(std::exchange(own.task, nullptr), freeTask, &freed), KIVCS2STATUS_OK);
    freed.acquire();
}

TEST(TaskSignals, ReachOnlyTheChild)
{
    Shell shell{"trap 'exit 9' INT; echo; while kill -0 $PPID; do sleep 0.05; done"};
    kivCS2Task_setPipedIO(shell.task, 1);
    int32_t result = 5;
    EXPECT_EQ(kivCS2Task_interrupt(shell.task, &result), KIVCS2STATUS_TASK_NOT_RUNNING_ERR);
    EXPECT_EQ(kivCS2Task_killAllChildProcesses(shell.task), KIVCS2STATUS_TASK_NOT_RUNNING_ERR);
    EXPECT_EQ(result, 5);
    shell.startAsync();
    shell.awaitByte();
    EXPECT_EQ(kivCS2Task_signal(shell.task, 0, &result), KIVCS2STATUS_OK);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(kivCS2Task_signal(shell.task, 4711, &result), KIVCS2STATUS_OK);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(kivCS2Task_interrupt(shell.task, &result), KIVCS2STATUS_OK);
    shell.end.acquire();
    EXPECT_EQ(shell.task->m_exitCode, 9);
}

TEST(Task, RefusesMissingArguments)
{
    KIV_REQUIRES_NOT_NULL(kivCS2Task_create, "_task, _command, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_free, "_task");
    KIV_REQUIRES_NOT_NULL(kivCS2TaskPrv_checkLaunchable, "_task");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_launch, "_task");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_launchAsync, "_task, -, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_finishedAsync, "_task, _finished, _asyncError");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_setASyncCallback, "_task, -, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_setPipedIO, "_task");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_setStdOutFile, "_task, _path");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_setStdErrFile, "_task, _path");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_readOutput, "_task, _buffer, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_readError, "_task, _buffer, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_writeInput, "_task, _buffer, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_closePipedIO, "_task");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_signal, "_task, _killResult");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_interrupt, "_task, _killResult");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_terminate, "_task, _killResult");
    KIV_REQUIRES_NOT_NULL(kivCS2Task_killAllChildProcesses, "_task");
    KIV_REQUIRES_NOT_NULL(kivCS2TaskServer_exec, "task, -, -");
    KIV_REQUIRES_NOT_NULL(kivCS2TaskServer_tasksRunning, "tasks");
    const Shell shell{"exit"};
    uint32_t tasks = 7; // without a server
    EXPECT_EQ(kivCS2TaskServer_tasksRunning(&tasks), KIVCS2STATUS_TASK_SERVER_ERR);
    EXPECT_EQ(tasks, 0u);
    EXPECT_EQ(kivCS2TaskServer_exec(shell.task, nullptr, nullptr), KIVCS2STATUS_TASK_SERVER_ERR);
    EXPECT_EQ(shell.task->m_state, uint32_t{KIVCS2TaskState_Created});
}
} // namespace
