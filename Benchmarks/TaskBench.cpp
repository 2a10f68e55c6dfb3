// Launches, compared with fork, vfork and posix_spawn from the same host with 50 MB to 8 GB resident: the
// pause of the host, and the time of a command from its launch to its end.
#include <KIVCoreServices2/KIVCS2Base.h>
#include <KIVCoreServices2/KIVCS2TaskServer.h>

#include "Private/Tasks/Spawn.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <semaphore>
#include <spawn.h>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;

char g_true[] = "/bin/true";
char *g_argv[] = {g_true, nullptr};

// Memory of the host in pages of 4 KiB, as a host has it after some hours of work.
class Resident
{
public:
    void resize(size_t megabytes)
    {
        const size_t size = megabytes << 20;
        if (size == m_size)
            return;
        if (m_memory != nullptr)
            munmap(m_memory, m_size);
        void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            std::abort();
        madvise(memory, size, MADV_NOHUGEPAGE);
        m_memory = static_cast<char *>(memory);
        m_size = size;
        for (size_t at = 0; at < size; at += 4096)
            m_memory[at] = 1;
    }

private:
    char *m_memory = nullptr;
    size_t m_size = 0;
};
Resident g_resident;

void await(pid_t pid)
{
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || status != 0)
        std::abort();
}

// ---- Ways to make a process; each returns when the host continues ----

pid_t byFork()
{
    const pid_t pid = fork();
    if (pid == 0)
    {
        execv(g_true, g_argv);
        _exit(127);
    }
    return pid;
}

pid_t byVfork()
{
    const pid_t pid = vfork();
    if (pid == 0)
    {
        execv(g_true, g_argv);
        _exit(127);
    }
    return pid;
}

// Uses the settings of our children: no signal is blocked, no handler is inherited.
pid_t byPosixSpawn()
{
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t pid = -1;
    if (posix_spawn(&pid, g_true, nullptr, &attributes, g_argv, environ) != 0)
        pid = -1;
    posix_spawnattr_destroy(&attributes);
    return pid;
}

pid_t byOurs()
{
    kiv::ExecPlan plan;
    if (KIVCS2_FAILED(plan.prepare(g_true, g_argv)))
        return -1;
    return kiv::spawn(plan, {});
}

struct Ended
{
    std::binary_semaphore gate{0};
    static void call(KIVCS2Task *, void *context)
    {
        static_cast<Ended *>(context)->gate.release();
    }
};

KIVCS2Task *makeTask()
{
    KIVCS2Task *task = nullptr;
    if (KIVCS2_FAILED(kivCS2Task_create(&task, g_true, nullptr)))
        std::abort();
    return task;
}

// The time of an iteration is the lower quartile of several launches. A mean, or on a busy machine a median,
// would mostly measure how long the child waited for a processor.
template <class Launch>
void run(benchmark::State &state, Launch launch)
{
    g_resident.resize(static_cast<size_t>(state.range(0)));
    std::array<double, 15> seconds{};
    const auto quartile = seconds.begin() + seconds.size() / 4;
    for (auto _ : state)
    {
        for (double &one : seconds)
            one = std::chrono::duration<double>(launch()).count();
        std::nth_element(seconds.begin(), quartile, seconds.end());
        state.SetIterationTime(*quartile);
    }
}

// ---- The pause of the host ----

template <pid_t (*Make)()>
void pause(benchmark::State &state)
{
    run(state,
        []
        {
            const auto from = Clock::now();
            const pid_t pid = Make();
            const auto to = Clock::now();
            await(pid);
            return to - from;
        });
}

void pauseByServer(benchmark::State &state)
{
    run(state,
        []
        {
            Ended ended;
            KIVCS2Task *task = makeTask();
            const auto from = Clock::now();
            const KIVCS2Status status = kivCS2TaskServer_exec(task, Ended::call, &ended);
            const auto to = Clock::now();
            if (KIVCS2_FAILED(status))
                std::abort();
            ended.gate.acquire();
            if (task->m_exitCode != 0 || KIVCS2_FAILED(kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate)))
                std::abort();
            return to - from;
        });
}

// ---- From the launch to the end ----

template <pid_t (*Make)()>
void whole(benchmark::State &state)
{
    run(state,
        []
        {
            const auto from = Clock::now();
            await(Make());
            return Clock::now() - from;
        });
}

void wholeByTask(benchmark::State &state)
{
    run(state,
        []
        {
            const auto from = Clock::now();
            KIVCS2Task *task = makeTask();
            if (KIVCS2_FAILED(kivCS2Task_launch(task)) || task->m_exitCode != 0)
                std::abort();
            (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Refuse);
            return Clock::now() - from;
        });
}

void wholeByServer(benchmark::State &state)
{
    run(state,
        []
        {
            const auto from = Clock::now();
            Ended ended;
            KIVCS2Task *task = makeTask();
            if (KIVCS2_FAILED(kivCS2TaskServer_exec(task, Ended::call, &ended)))
                std::abort();
            ended.gate.acquire();
            (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Terminate);
            return Clock::now() - from;
        });
}

void add(const char *name, void (*function)(benchmark::State &))
{
    // The measured pause is a small part of a launch: without a count these rows take minutes.
    benchmark::RegisterBenchmark(name, function)
        ->Arg(50)
        ->Arg(1024)
        ->Arg(4096)
        ->Arg(8192)
        ->UseManualTime()
        ->Iterations(20);
}
} // namespace

int main(int argc, char **argv)
{
    (void)kivCS2_init(); // starts the server while the host is small
    // Without the library's handler, peers and direct launches wait in the same way. The server's children
    // are not affected, because they are not children of this process.
    std::signal(SIGCHLD, SIG_DFL);
    for (const char *operation : {"LaunchPauseDirect", "LaunchPauseServer"})
    {
        const std::string name{operation};
        add((name + "/ours").c_str(), operation[11] == 'D' ? pause<byOurs> : pauseByServer);
        add((name + "/fork").c_str(), pause<byFork>);
        add((name + "/vfork").c_str(), pause<byVfork>);
        add((name + "/posix_spawn").c_str(), pause<byPosixSpawn>);
    }
    for (const char *operation : {"LaunchWholeDirect", "LaunchWholeServer"})
    {
        const std::string name{operation};
        add((name + "/ours").c_str(), operation[11] == 'D' ? wholeByTask : wholeByServer);
        add((name + "/fork").c_str(), whole<byFork>);
        add((name + "/vfork").c_str(), whole<byVfork>);
        add((name + "/posix_spawn").c_str(), whole<byPosixSpawn>);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
