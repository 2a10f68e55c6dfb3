// The task server and its host: launches, statuses, replacement, and the processes left when either dies.
#include <KIVCoreServices2/KIVCS2Base.h>
#include <KIVCoreServices2/KIVCS2TaskServer.h>

#include "OwnProcesses.h"
#include "OwnTasks.h"
#include "TemporaryFolder.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>

namespace
{
using namespace kiv::test;

#ifdef __SANITIZE_THREAD__
constexpr int kLaunches = 1000; // ThreadSanitizer copies the process for each of them
#else
constexpr int kLaunches = 5000;
#endif
constexpr const char *kServerName = "kivcs2-tasks";
using Bodies = std::vector<std::function<void()>>;

pid_t serverPid()
{
    // A new server has the host's name at first.
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf(kServerName) > 0; }));
    for (const Process &process : processes())
        if (process.name == kServerName)
            return process.pid;
    return 0;
}

uint32_t running()
{
    uint32_t tasks = 99;
    EXPECT_OK(kivCS2TaskServer_tasksRunning(&tasks));
    return tasks;
}

std::vector<int> openDescriptors()
{
    std::vector<int> open;
    for (int descriptor = 0; descriptor < 4096; ++descriptor)
        if (fcntl(descriptor, F_GETFD) >= 0)
            open.push_back(descriptor);
    return open;
}

KIV_TEST_RUN(inChild, TaskServer, StoresTheRawStatusAndALaunchTheExitCode)
{
    EXPECT_OK(kivCS2_init());
    EXPECT_OK(kivCS2TaskServer_init()); // has been started already
    EXPECT_EQ(runThroughServer(), 768);
    EXPECT_EQ(runThroughServer("kill -TERM $$"), SIGTERM);
    KIVCS2Task *task = makeShell("exit 3");
    EXPECT_OK(kivCS2Task_launch(task));
    EXPECT_EQ(task->m_exitCode, 3);
    EXPECT_EQ(kivCS2TaskServer_exec(task, nullptr, nullptr), KIVCS2STATUS_STATE_ERR);
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));

    Ended ended;
    task = makeShell("exec sleep 60");
    EXPECT_OK(kivCS2TaskServer_exec(task, Ended::call, &ended));
    EXPECT_EQ(running(), 1u);
    int32_t result = -1;
    EXPECT_OK(kivCS2Task_terminate(task, &result));
    EXPECT_EQ(result, 0);
    ended.gate.acquire();
    EXPECT_EQ(ended.state, uint32_t{KIVCS2TaskState_FinishedAsync});
    EXPECT_EQ(running(), 0u);
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
}

// The handler and the launch both wait for the child: the exit code arrives whichever is first.
KIV_TEST_RUN(inChild, TaskServer, LosesNoExitCodeOfFourThreads)
{
    EXPECT_OK(kivCS2_init());
    const auto before = openDescriptors();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back(
            [&wrong, thread]
            {
                for (int launch = 0; launch < kLaunches / 4; ++launch)
                {
                    const int code = (launch * 4 + thread) % 256;
                    KIVCS2Task *task = makeShell("exit " + std::to_string(code));
                    const KIVCS2Status status = kivCS2Task_launch(task);
                    wrong += KIVCS2_FAILED(status) || task->m_exitCode != code ? 1 : 0;
                    (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse);
                }
            });
    for (int launch = 0; launch < 100; ++launch)
        EXPECT_EQ(runThroughServer("exit 1"), 256);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(openDescriptors(), before);
}

// Above those that fit a descriptor set.
KIV_TEST_RUN(inChild, TaskServer, WorksOnHighDescriptors)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    while (fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3) < 1500)
    {
    }
    EXPECT_OK(kivCS2_init());
    EXPECT_EQ(runThroughServer(), 768);

    KIVCS2Task *task = makeShell("echo hi");
    kivCS2Task_setPipedIO(task, 1);
    EXPECT_OK(kivCS2Task_launch(task));
    EXPECT_GT(task->m_stdOutPipe[0], FD_SETSIZE);
    char bytes[8];
    uint32_t count = 0;
    EXPECT_OK(kivCS2Task_readOutput(task, false, bytes, sizeof bytes, &count));
    EXPECT_EQ(std::string(bytes, count), "hi\n");
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
}

// A host may be started without them, and the pipes must not take their numbers.
KIV_TEST_RUN(inChild, TaskServer, WorksWithoutStandardStreams)
{
    const int kept = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 20);
    for (const int stream : {0, 1, 2})
        close(stream);
    const bool started = kivCS2_init() == KIVCS2STATUS_OK;
    const int32_t status = runThroughServer();
    dup2(kept, STDOUT_FILENO);
    dup2(kept, STDERR_FILENO);
    EXPECT_TRUE(started);
    EXPECT_EQ(status, 768);
}

KIV_TEST_RUN(inChild, TaskServer, ACallbackFreesItsTaskAndLaunchesOnlyDirectly)
{
    EXPECT_OK(kivCS2_init());
    struct Seen
    {
        std::binary_semaphore gate{0};
        KIVCS2Task *other = makeShell("exit 3");
        KIVCS2Status exec = 0;
        KIVCS2Status freed = 1;
        KIVCS2Status launched = 1;
        uint32_t tasks = 9;
    } seen;
    EXPECT_OK(kivCS2TaskServer_exec(
        makeShell("exit 0"),
        [](KIVCS2Task *task, void *context)
        {
            auto &result = *static_cast<Seen *>(context);
            result.exec = kivCS2TaskServer_exec(result.other, nullptr, nullptr);
            result.launched = kivCS2Task_launch(result.other); // its status does not need this thread
            (void)kivCS2TaskServer_tasksRunning(&result.tasks);
            result.freed = kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse);
            result.gate.release();
        },
        &seen));
    seen.gate.acquire();
    EXPECT_EQ(seen.exec, KIVCS2STATUS_MUTEX_ERR);
    EXPECT_OK(seen.freed);
    EXPECT_EQ(seen.tasks, 0u);
    EXPECT_OK(seen.launched);
    EXPECT_EQ(seen.other->m_exitCode, 3);
    EXPECT_OK(kivCS2Task_free(seen.other, KIVCS2TaskFreeMode_Refuse));
}

KIV_TEST_RUN(inChild, TaskServer, TheHandlerEndsNoThreadThatIsToBeCancelled)
{
    EXPECT_OK(kivCS2_init());
    const auto signalled = [](void *) -> void *
    {
        (void)pthread_cancel(pthread_self());        // takes effect in the next call that waits
        (void)pthread_kill(pthread_self(), SIGCHLD); // handled before this returns
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, signalled, nullptr), 0);
    void *result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, nullptr) << "cancelled in the handler";
}

KIV_TEST_RUN(inOwnProcesses, TaskServer, EveryModeOfFreeEndsARunningTask)
{
    EXPECT_OK(kivCS2_init());
    for (KIVCS2TaskFreeMode mode = KIVCS2TaskFreeMode_Interrupt; mode < KIVCS2TaskFreeMode_MAX; ++mode)
    {
        KIVCS2Task *task = makeShell("sleep 60 & exec sleep 60");
        ASSERT_OK(kivCS2TaskServer_exec(task, nullptr, nullptr));
        EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 2; }));
        EXPECT_EQ(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse), KIVCS2STATUS_TASK_RUNNING_ERR);
        EXPECT_OK(kivCS2Task_free(task, mode));
        const size_t left = mode == KIVCS2TaskFreeMode_TerminateTree ? 0 : 1;
        EXPECT_TRUE(holdsWithin(10000, [left] { return countOf("sleep") == left && running() == 0; }))
            << "mode " << mode;
        for (const Process &process : processes())
            if (process.name == "sleep")
                kill(process.pid, SIGKILL);
        EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 0; }));
    }
}

// A terminal or a supervisor may signal the host's whole group.
KIV_TEST_RUN(inOwnProcesses, TaskServer, IgnoresTheSignalsOfTheHostsGroup)
{
    EXPECT_OK(kivCS2_init());
    const pid_t server = serverPid();
    ASSERT_GT(server, 1);
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGUSR1, SIGALRM, SIGTSTP, SIGIO, SIGRTMIN + 1})
        ASSERT_EQ(kill(server, signal), 0);
    EXPECT_EQ(runThroughServer("kill -USR1 $$"), SIGUSR1); // its children do not ignore them
    EXPECT_EQ(serverPid(), server);
}

KIV_TEST_RUN(inOwnProcesses, TaskServer, IsReplacedAfterItsDeath)
{
    EXPECT_OK(kivCS2_init());
    const auto before = openDescriptors();
    for (const int signal : {SIGKILL, SIGTERM, SIGKILL})
    {
        const pid_t server = serverPid();
        ASSERT_GT(server, 1);
        ASSERT_EQ(kill(server, signal), 0); // without a wait, so the launch may come while it dies
        EXPECT_EQ(runThroughServer(), 768);
        EXPECT_TRUE(holdsWithin(10000, [server] { return serverPid() != server; })); // it may still be ending
    }
    EXPECT_EQ(openDescriptors().size(), before.size());
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf(kServerName) == 1; }));
}

// Its process is still watched, however busy the host is, but its status is lost.
KIV_TEST_RUN(inOwnChild, TaskServer, ATaskThatOutlivesItsServerStillEnds)
{
    EXPECT_OK(kivCS2_init());
    Ended ended;
    KIVCS2Task *task = makeShell("exec sleep 60");
    ASSERT_OK(kivCS2TaskServer_exec(task, Ended::call, &ended));
    ASSERT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 1; }));
    kill(serverPid(), SIGKILL);
    EXPECT_EQ(runThroughServer(), 768);
    EXPECT_EQ(countOf("sleep"), 1u);
    EXPECT_EQ(running(), 1u);
    int32_t result = -1;
    EXPECT_OK(kivCS2Task_terminate(task, &result));
    EXPECT_TRUE(holdsWithin(2000,
                            [&ended]
                            {
                                EXPECT_EQ(runThroughServer(), 768);
                                return ended.gate.try_acquire();
                            }));
    EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate));
    EXPECT_EQ(ended.exitCode, -1);
    EXPECT_EQ(running(), 0u);
}

// Starts tasks of the server: a plain one, one that ignores SIGTERM and one that leaves its parent. Then two
// children of the host's own launches, of which one ignores SIGTERM.
void startFamily()
{
    EXPECT_OK(kivCS2_init());
    for (const char *script :
         {"exec sleep 601", "trap '' TERM; sleep 602", "(setsid sleep 603 &) ; exec sleep 604"})
        EXPECT_OK(kivCS2TaskServer_exec(makeShell(script), nullptr, nullptr));
    for (const char *script : {"sleep 605 & exec sleep 606", "trap '' TERM; exec sleep 607"})
        EXPECT_OK(kivCS2Task_launchAsync(makeShell(script), nullptr, nullptr));
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 7; })) << countOf("sleep");
}

// The server of the first task dies before the host.
void startBesideTwoServers()
{
    EXPECT_OK(kivCS2_init());
    EXPECT_OK(kivCS2TaskServer_exec(makeShell("trap '' TERM; sleep 608; :"), nullptr, nullptr));
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 1; }));
    kill(serverPid(), SIGKILL);
    EXPECT_OK(kivCS2TaskServer_exec(makeShell("exec sleep 609"), nullptr, nullptr));
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 2; }));
}

enum class End
{
    killed,
    aborted,
    exited,
    exitedSlowly,
    leftAtOnce,
};

// Expects that no process of `start` is left after the host has ended in this way.
void hostDies(End end, bool underSubreaper, void (*start)() = startFamily)
{
    SCOPED_TRACE(static_cast<int>(end));
    if (underSubreaper)
        prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t host = fork();
    if (host == 0)
    {
        signal(SIGABRT, SIG_DFL);
        if (end == End::exitedSlowly) // outlives the processes that end by themselves
            (void)std::atexit([] { (void)holdsWithin(10000, [] { return countOf("sleep") == 2; }); });
        start();
        if (end == End::exited || end == End::exitedSlowly)
            std::exit(0);
        if (end == End::leftAtOnce)
            _exit(0);
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        kill(getpid(), end == End::killed ? SIGKILL : SIGABRT);
        pause();
    }
    (void)exitCodeOf(host);
    // It takes about two seconds; a loaded machine needs more.
    const int most = end == End::killed || end == End::aborted || end == End::leftAtOnce ? 10000 : 20000;
    const auto isGone = [] { return countOf("sleep") + countOf("sh") + countOf(kServerName) == 0; };
    EXPECT_TRUE(holdsWithin(most, isGone)) << countOf("sleep") << " and " << countOf("sh") << " shells left";
}

TEST(TaskServer, NoProcessOutlivesTheHost)
{
    Bodies bodies;
    for (const End end : {End::killed, End::aborted, End::exited, End::exitedSlowly, End::leftAtOnce})
        bodies.emplace_back([end] { hostDies(end, false); });
    bodies.emplace_back([] { hostDies(End::killed, false, startBesideTwoServers); });
    inOwnProcesses(bodies);
}

// Starts shells that launch commands in a loop, with and without one in the background.
void startLoops(bool throughServer)
{
    EXPECT_OK(kivCS2_init());
    for (int loop = 0; loop < 4; ++loop)
    {
        KIVCS2Task *task =
            makeShell(loop < 3 ? "while :; do sleep 100 & sleep 0.01; done" : "while :; do sleep 0.01; done");
        EXPECT_OK(launchAsync(task, throughServer));
    }
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") > 100; })) << countOf("sleep");
}

TEST(TaskServer, NoForkingLoopOutlivesTheHost)
{
    for (const End end : {End::killed, End::exited})
    {
        Bodies bodies;
        bodies.emplace_back([end] { hostDies(end, false, [] { startLoops(false); }); });
        bodies.emplace_back([end] { hostDies(end, false, [] { startLoops(true); }); });
        inOwnProcesses(bodies);
    }
}

// The host lives: it frees the tree, or kills all descendants; as a child and as process 1.
TEST(TaskServer, NoForkingLoopOutlivesItsKill)
{
    const auto isGone = []
    { return holdsWithin(10000, [] { return countOf("sleep") + countOf("sh") == 0; }); };
    const auto host = [isGone]
    {
        EXPECT_OK(kivCS2_init());
        for (const bool throughServer : {false, true})
        {
            KIVCS2Task *task = makeShell("while :; do sleep 100 & sleep 0.01; done");
            ASSERT_OK(launchAsync(task, throughServer));
            EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") > 20; }));
            EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_TerminateTree));
            EXPECT_TRUE(isGone()) << throughServer;
        }
        for (const bool throughServer : {false, true})
        {
            startLoops(throughServer);
            EXPECT_OK(kivCS2TaskServer_killAllChildProcesses(getpid()));
            EXPECT_TRUE(isGone()) << throughServer;
        }
    };
    const auto child = [host] { inChild(host); };
    inOwnProcesses(Bodies{host, child});
}

// A group that loses its last tie to its session gets SIGHUP if one of its processes is stopped; the SIGTERM
// handler must run before that. A process that another has stopped stays stopped, and a caller that kills its
// own siblings leaves none of them stopped.
KIV_TEST_RUN(inOwnChild, TaskServer, AKilledTreeIsContinuedAsItWas)
{
    setsid();
    int up[2];
    ASSERT_EQ(pipe(up), 0);
    const pid_t parent = fork();
    if (parent == 0)
    {
        if (fork() == 0)
        {
            setpgid(0, 0);
            signal(SIGTERM, [](int) { _exit(write(STDOUT_FILENO, "told\n", 5) == 5 ? 0 : 1); });
            dup2(up[1], STDOUT_FILENO);
            (void)!write(STDOUT_FILENO, "up\n", 3);
        }
        close(up[1]);
        for (;;)
            ::pause();
    }
    const auto stateOf = [](pid_t pid)
    {
        for (const Process &process : processes())
            if (process.pid == pid)
                return process.state;
        return '-';
    };
    const pid_t stopped = fork();
    if (stopped == 0)
        execl("/bin/sleep", "sleep", "60", nullptr);
    close(up[1]);
    char text[8] = {};
    EXPECT_EQ(read(up[0], text, 3), 3);
    kill(stopped, SIGSTOP);
    EXPECT_TRUE(holdsWithin(10000, [=] { return stateOf(stopped) == 'T'; }));
    const pid_t killer = fork();
    if (killer == 0)
    {
        (void)kivCS2TaskServer_killAllChildProcesses(getppid());
        _exit(0); // not reached: SIGTERM comes first
    }
    EXPECT_EQ(exitCodeOf(killer), 1000 + SIGTERM);
    EXPECT_EQ(exitCodeOf(parent), 1000 + SIGTERM);
    EXPECT_EQ(read(up[0], text, sizeof text), 5) << "SIGHUP came first";
    EXPECT_EQ(stateOf(stopped), 'T');
    kill(stopped, SIGCONT);
    EXPECT_EQ(exitCodeOf(stopped), 1000 + SIGTERM);
}

// A task has time to close its file after its host's normal exit, also if the host is process 1 and the
// kernel ends all others.
TEST(TaskServer, ARecorderClosesItsFileAtTheHostsExit)
{
    TemporaryFolder folder;
    const auto host = [](const std::string &log, const char *seconds, bool throughServer)
    {
        EXPECT_OK(kivCS2_init());
        KIVCS2Task *task =
            makeShell("trap 'trap : TERM; sleep " + std::string{seconds} + "; echo closed >>" + log +
                      "; exit' TERM; echo up >" + log + "; while :; do sleep 0.05; done");
        EXPECT_OK(launchAsync(task, throughServer));
        EXPECT_TRUE(holdsWithin(10000, [&log] { return std::filesystem::exists(log); }));
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    };
    Bodies bodies;
    for (const bool throughServer : {false, true})
    {
        bodies.emplace_back(
            [&, throughServer]
            {
                inChild([&] { host(folder.path(throughServer ? "server" : "direct"), "2", throughServer); });
                EXPECT_TRUE(holdsWithin(20000, [] { return countOf("sh") + countOf(kServerName) == 0; }));
            });
        bodies.emplace_back(
            [&, throughServer]
            { host(folder.path(throughServer ? "server-1" : "direct-1"), "0.2", throughServer); });
    }
    inOwnProcesses(bodies);
    if (IsSkipped())
        return;
    for (const char *log : {"direct", "server", "direct-1", "server-1"})
        EXPECT_EQ(folder.read(log), "up\nclosed\n") << log;
}

// Refuses all new descriptors, or allows them again.
void limitDescriptors(bool allow)
{
    rlimit limit{};
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = allow ? limit.rlim_max : 0;
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// A second SIGTERM makes many programs abandon the end that the first one has begun. If a host cannot read
// the process table, for lack of a descriptor, or launches after it has signalled, the server sends the first
// one.
TEST(TaskServer, SignalsOnceAtTheHostsExit)
{
    TemporaryFolder folder;
    static constexpr std::array kEnds = {"at exit", "on request", "blind", "late, by the server", "late"};
    Bodies bodies;
    for (const std::string end : kEnds)
        bodies.emplace_back(
            [log = folder.path(end), end]
            {
                static const std::string *path = &log;
                static const auto launch = +[](bool throughServer)
                {
                    KIVCS2Task *task = makeShell("trap 'echo told >>\"" + *path + "\"' TERM; echo up >\"" +
                                                 *path + "\"; while :; do sleep 0.05; done");
                    EXPECT_OK(launchAsync(task, throughServer));
                    EXPECT_TRUE(holdsWithin(10000, [] { return std::filesystem::exists(*path); }));
                };
                const auto host = [&end]
                {
                    // Handlers run in reverse order: this one runs after the library's.
                    if (end == "late")
                        std::atexit([] { launch(false); });
                    else if (end == "late, by the server")
                        std::atexit([] { launch(true); });
                    else if (end == "blind") // LeakSanitizer needs descriptors at the end
                        std::atexit([] { limitDescriptors(true); });
                    EXPECT_OK(kivCS2_init());
                    if (!end.starts_with("late"))
                        launch(true);
                    if (end == "blind")
                        limitDescriptors(false);
                    if (end != "on request")
                        std::exit(testing::Test::HasFailure() ? 1 : 0);
                    EXPECT_OK(kivCS2TaskServer_killAllChildProcesses(getpid()));
                    EXPECT_TRUE(holdsWithin(20000, [] { return running() == 0; }));
                };
                inChild(host);
                EXPECT_TRUE(holdsWithin(20000, [] { return countOf("sh") + countOf(kServerName) == 0; }));
            });
    inOwnProcesses(bodies);
    if (IsSkipped())
        return;
    for (const char *log : kEnds)
        EXPECT_EQ(folder.read(log), "up\ntold\n") << log;
}

// The fork keeps its own children, whichever of the two dies first.
TEST(TaskServer, AForkOfTheHostIsOnItsOwn)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer starts no thread in the fork of a process that has several";
#endif
    inOwnProcesses(
        []
        {
            const pid_t host = fork();
            if (host == 0)
            {
                EXPECT_OK(kivCS2_init());
                EXPECT_OK(kivCS2TaskServer_exec(makeShell("exec sleep 60"), nullptr, nullptr));
                if (fork() == 0)
                    std::exit(0); // runs the handler at exit, which must not find the host's tasks
                if (fork() == 0)
                {
                    KIVCS2Task *task = makeShell("exec sleep 700");
                    EXPECT_OK(kivCS2Task_launchAsync(task, nullptr, nullptr));
                    EXPECT_TRUE(
                        holdsWithin(10000, [task] { return std::atomic_ref{task->m_pid}.load() > 0; }));
                    EXPECT_EQ(kivCS2TaskServer_exec(makeShell("exit"), nullptr, nullptr),
                              KIVCS2STATUS_TASK_SERVER_ERR);
                    signal(SIGCHLD, SIG_IGN); // the kernel drops the status
                    task = makeShell("exit 3");
                    EXPECT_EQ(kivCS2Task_launch(task), KIVCS2STATUS_SYSTEM_ERR);
                    if (!testing::Test::HasFailure())
                        execl("/bin/sleep", "sleep", "800", nullptr);
                }
                for (;;)
                    ::pause(); // interrupted by the ends of its children
            }
            ASSERT_GT(host, 1);
            ASSERT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 3; })) << countOf("sleep");
            kill(host, SIGKILL);
            EXPECT_EQ(exitCodeOf(host), 1000 + SIGKILL);
            ASSERT_TRUE(holdsWithin(10000, [] { return countOf(kServerName) == 0; }));
            EXPECT_EQ(countOf("sleep"), 2u);
        });
}

// A host that becomes a daemon does this. Then no end of a child can be reported, and the numbers may be
// those of the host's own files.
TEST(TaskServer, AHostThatClosesItsPipesKeepsItsExitCodesAndItsFiles)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer reports what this host does: it closes another thread's descriptor";
#endif
    TemporaryFolder folder;
    inChild(
        [&folder]
        {
            EXPECT_OK(kivCS2_init());
            Ended lost;
            KIVCS2Task *running = makeShell("exec sleep 60");
            EXPECT_OK(kivCS2TaskServer_exec(running, Ended::call, &lost));
            for (int descriptor = 3; descriptor < 64; ++descriptor)
                close(descriptor);
            std::vector<int> files;
            for (const char *name : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"})
                files.push_back(open(folder.write(name, "").c_str(), O_RDWR | O_CLOEXEC));
            KIVCS2Task *refused = makeShell("exit");
            EXPECT_EQ(kivCS2TaskServer_exec(refused, nullptr, nullptr), KIVCS2STATUS_TASK_SERVER_ERR);
            EXPECT_EQ(refused->m_state, uint32_t{KIVCS2TaskState_Created});
            EXPECT_OK(kivCS2Task_free(refused, KIVCS2TaskFreeMode_Refuse));
            lost.gate.acquire();
            EXPECT_EQ(lost.exitCode, -1);
            EXPECT_OK(kivCS2Task_free(running, KIVCS2TaskFreeMode_Terminate));
            for (int launch = 0; launch < 20; ++launch)
            {
                KIVCS2Task *task = makeShell("exit 3");
                EXPECT_OK(kivCS2Task_launch(task));
                EXPECT_EQ(task->m_exitCode, 3);
                EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse));
            }
            for (const int file : files)
                EXPECT_EQ(lseek(file, 0, SEEK_END), 0) << "written to, or closed";
        });
}

// The new parent of orphans is not process 1 then.
KIV_TEST_RUN(inOwnChild, TaskServer, NoProcessOutlivesTheHostUnderASubreaper)
{
    hostDies(End::killed, true);
}

KIV_TEST_RUN(inOwnChild, TaskServer, KillsOnlyDescendants)
{
    const pid_t other = fork();
    if (other == 0)
        execl("/bin/sleep", "bystander", "60", nullptr);
    const pid_t tree = fork();
    if (tree == 0)
        execl("/bin/sh", "sh", "-c", "(sleep 60; :) & sh -c 'sleep 60 & wait' & wait", nullptr);
    EXPECT_TRUE(holdsWithin(10000, [] { return countOf("sleep") == 3; }));
    for (const pid_t none : {1, 0, -1, -tree})
        EXPECT_OK(kivCS2TaskServer_killAllChildProcesses(none));
    EXPECT_EQ(countOf("sleep"), 3u); // descendants of process 1, which is not one of these
    EXPECT_OK(kivCS2TaskServer_killAllChildProcesses(tree));
    EXPECT_TRUE(holdsWithin(10000,
                            []
                            {
                                while (waitpid(-1, nullptr, WNOHANG) > 0)
                                {
                                }
                                return countOf("sleep") == 1 && countOf("sh") == 0;
                            }));
    EXPECT_EQ(kill(other, 0), 0);
}

// A record has such an id before its process exists, and no process may get a signal then.
KIV_TEST_RUN(inOwnProcesses, TaskServer, NeverSignalsAnIdOfOneOrLess)
{
    const pid_t bystander = fork();
    if (bystander == 0)
        for (;;)
            ::pause();
    for (const int32_t pid : {1, 0, -1, -bystander})
    {
        KIVCS2Task *task = makeShell("exit");
        task->m_state = KIVCS2TaskState_RunningAsync;
        task->m_pid = pid;
        int32_t result = 5;
        EXPECT_OK(kivCS2Task_signal(task, SIGKILL, &result));
        EXPECT_EQ(result, -1);
        EXPECT_OK(kivCS2Task_killAllChildProcesses(task));
        EXPECT_OK(kivCS2Task_free(task, KIVCS2TaskFreeMode_TerminateTree));
    }
    EXPECT_EQ(kill(bystander, 0), 0);
    EXPECT_EQ(waitpid(bystander, nullptr, WNOHANG), 0);
    kill(bystander, SIGKILL);
}
} // namespace
