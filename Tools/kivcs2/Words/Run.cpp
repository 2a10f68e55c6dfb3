// kivcs2 run: a command as a task of the library, with a time limit for it and all its descendants.
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2TaskServer.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <thread>

namespace tool
{
namespace
{

// These codes are those of env and timeout, so that scripts can treat all three alike. Lower codes are those
// of the command that is run.
enum RunCode : int
{
    kRunTimedOut = 124,
    kRunFailed = 125,        ///< kivcs2 failed, not the command
    kRunNotExecutable = 126, ///< found, but may not be executed
    kRunNotFound = 127,
    kRunSignal = 128, ///< plus the number of the signal that ended it
};

constexpr double kGrace = 1.0;       // seconds between SIGTERM and SIGKILL
using Deadline = double;             // seconds of the monotonic clock
constexpr double kMostSeconds = 1e9; // longest time limit, some thirty years
constexpr Deadline kNoDeadline = std::numeric_limits<double>::infinity();
constexpr double kLongestWait = 1e6;       // seconds; a longer wait is divided
constexpr timespec kShortWait{0, 1000000}; // for a child that is about to start

struct RunOptions
{
    std::vector<std::string> words;
    bool direct = false;
    bool async = false;
    std::string stdOut;
    std::string stdErr;
    double timeout = 0; // seconds, 0 for none
};

struct ReleaseTask
{
    void operator()(KIVCS2Task *task) const
    {
        (void)kivCS2Task_free(task, KIVCS2TaskFreeMode_Abort);
    }
};
using Task = std::unique_ptr<KIVCS2Task, ReleaseTask>;

// The path of a command: searches PATH for a name without a slash, because the library does not.
std::string findCommand(const std::string &name)
{
    const auto isFile = [](const std::string &path)
    {
        struct stat about
        {
        };
        return stat(path.c_str(), &about) == 0 && !S_ISDIR(about.st_mode);
    };
    std::string found;
    if (name.find('/') != std::string::npos)
    {
        if (!isFile(name) && access(name.c_str(), F_OK) == 0)
            throw Failure(static_cast<ExitCode>(kRunNotExecutable), "\"" + visible(name) + "\" is a folder");
        found = isFile(name) ? name : "";
    }
    else
    {
        const char *path = std::getenv("PATH");
        std::string_view rest = path != nullptr ? path : "/bin:/usr/bin";
        for (bool more = true; more;)
        {
            const size_t colon = rest.find(':');
            const std::string folder{rest.substr(0, colon)};
            std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
            more = colon != std::string_view::npos;
            rest.remove_prefix(more ? colon + 1 : rest.size());
            if (isFile(candidate) && access(candidate.c_str(), X_OK) == 0)
                return candidate;
            if (found.empty() && isFile(candidate))
                found = candidate;
        }
    }
    if (found.empty())
        throw Failure(static_cast<ExitCode>(kRunNotFound), "\"" + visible(name) + "\": no such command");
    return found;
}

Task makeTask(const RunOptions &options)
{
    const std::string command = findCommand(options.words.front());
    std::vector<const char *> arguments;
    for (size_t index = 1; index < options.words.size(); ++index)
        arguments.push_back(options.words[index].c_str());
    arguments.push_back(nullptr);

    standardInputIsASource(); // the command reads it
    for (const std::string &target : {options.stdOut, options.stdErr})
        refuseSource(target, static_cast<ExitCode>(kRunFailed));

    KIVCS2Task *made = nullptr;
    KIVCS2Status status = kivCS2Task_create(&made, command.c_str(), arguments.data());
    Task task{made};
    if (KIVCS2_SUCCEEDED(status) && !options.stdOut.empty())
        status = kivCS2Task_setStdOutFile(made, options.stdOut.c_str());
    if (KIVCS2_SUCCEEDED(status) && !options.stdErr.empty())
        status = kivCS2Task_setStdErrFile(made, options.stdErr.c_str());
    if (KIVCS2_FAILED(status))
        throw Failure(static_cast<ExitCode>(kRunFailed), "task (" + statusText(status) + ")");
    if (KIVCS2_FAILED(kivCS2TaskPrv_checkLaunchable(made)))
        throw Failure(static_cast<ExitCode>(kRunNotExecutable),
                      "\"" + visible(command) + "\" may not be executed");
    return task;
}

// Signals the end of the task. It queues, so that a signal of another process cannot replace it.
int endedSignal()
{
    return SIGRTMIN;
}

// The signals that this thread waits for; every thread of the process blocks them.
sigset_t awaited()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {endedSignal(), SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&set, signal);
    return set;
}

double now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The next awaited signal, or 0 at `deadline`.
int nextSignal(Deadline deadline, siginfo_t &about)
{
    const sigset_t set = awaited();
    for (;;)
    {
        const double left = deadline - now();
        if (left <= 0)
            return 0;
        const double wait = std::min(left, kLongestWait);
        timespec time{};
        time.tv_sec = static_cast<time_t>(wait);
        time.tv_nsec = static_cast<long>((wait - std::floor(wait)) * 1e9);
        const int signal = sigtimedwait(&set, &about, &time);
        if (signal > 0)
            return signal;
    }
}

void tellEnd(KIVCS2Task *, void *)
{
    kill(getpid(), endedSignal());
}

// Starts the task; in each way of running, a signal reports its end.
class Running
{
public:
    Running(KIVCS2Task *task, const RunOptions &options)
        : m_task{task}, m_direct{options.direct}, m_server{!options.direct && !options.async}
    {
        KIVCS2Status status = KIVCS2STATUS_OK;
        if (options.direct)
            m_thread = std::thread{[this]
                                   {
                                       m_launch.store(kivCS2Task_launch(m_task));
                                       tellEnd(m_task, nullptr);
                                   }};
        else
            status = options.async ? kivCS2Task_launchAsync(task, tellEnd, nullptr)
                                   : kivCS2TaskServer_exec(task, tellEnd, nullptr);
        if (KIVCS2_FAILED(status))
            throw Failure(static_cast<ExitCode>(kRunFailed), "launch (" + statusText(status) + ")");
    }
    ~Running()
    {
        if (m_thread.joinable())
            m_thread.join();
    }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    // Waits for the end and forwards the signals of this process; returns false at the deadline.
    [[nodiscard]] bool waitForEnd(Deadline deadline)
    {
        for (;;)
        {
            siginfo_t about{};
            const int signal = nextSignal(deadline, about);
            if (signal == 0)
                return false;
            if (signal != endedSignal())
                handOn(signal, about);
            else if (about.si_pid == getpid())
                return true;
        }
    }

    // Sends SIGTERM to the child and its descendants, which are stopped meanwhile, so that the child starts
    // no other. The task server kills what remains, with its descendants, after this process has ended; a
    // SIGKILL to the child alone would miss those.
    void stopAll()
    {
        int32_t ignored = 0;
        (void)kivCS2Task_signal(m_task, SIGSTOP, &ignored);
        (void)kivCS2Task_terminate(m_task, &ignored);
        (void)kivCS2Task_killAllChildProcesses(m_task);
        (void)kivCS2Task_signal(m_task, SIGCONT, &ignored);
        if (waitForEnd(now() + kGrace))
            return;
        out().flush();
        _exit(kRunTimedOut); // cannot wait for the launch
    }

    [[nodiscard]] int code()
    {
        if (m_thread.joinable())
            m_thread.join();
        KIVCS2Status status = m_launch.load();
        bool finished = true;
        if (!m_direct)
            (void)kivCS2Task_finishedAsync(m_task, &finished, &status); // asynchronous launch: cannot fail
        const int waited = m_server ? m_task->m_exitCode : m_task->m_waitStatus;
        if (KIVCS2_FAILED(status) || waited == -1)
            throw Failure(static_cast<ExitCode>(kRunFailed), "launch (" + statusText(status) + ")");
        return WIFSIGNALED(waited) ? kRunSignal + WTERMSIG(waited) : WEXITSTATUS(waited);
    }

private:
    void handOn(int signal, const siginfo_t &about)
    {
        // The child may run before its id is known here, so the signal waits: sent again to this process,
        // it would lose the mark of a key press.
        pid_t child = 0;
        while ((child = std::atomic_ref{m_task->m_pid}.load()) <= 0)
        {
            if (std::atomic_ref{m_task->m_state}.load() > KIVCS2TaskState_RunningAsync)
                return; // the child did not start
            nanosleep(&kShortWait, nullptr);
        }
        // A key press signals the terminal's whole group, and to many programs a second signal means "at
        // once". A terminal that hangs up signals only the leader of its session.
        const bool isKey = signal == SIGINT || signal == SIGQUIT;
        if (isKey && about.si_code == SI_KERNEL && getpgid(child) == getpgrp())
            return;
        int32_t ignored = 0; // fails if the child has ended, which is harmless
        (void)kivCS2Task_signal(m_task, signal, &ignored);
    }

    KIVCS2Task *m_task;
    bool m_direct;
    bool m_server;
    std::atomic<KIVCS2Status> m_launch{KIVCS2STATUS_OK};
    std::thread m_thread;
};

int runCommand(const RunOptions &options)
{
    const sigset_t set = awaited();
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // before a second thread starts; children block no signals
    const Task task = makeTask(options);
    Running running{task.get(), options};
    const Deadline deadline = options.timeout > 0 ? now() + options.timeout : kNoDeadline;
    if (running.waitForEnd(deadline))
        return running.code();
    running.stopAll();
    return kRunTimedOut;
}

} // namespace

void addRunCommand(Word &root, Context &)
{
    const auto options = std::make_shared<RunOptions>();
    Word &word = root.word("run", "Run a command through the task server").group(kGroupMachine);
    word.launches().keepsToItself().usageCode(kExitRunFailed);
    word.about("When this command ends, it also ends every process that the command has left.\n"
               "Exit codes: the command's own, 128 and its signal, 124 time-out, 125 a failure of\n"
               "this command, 126 not executable, 127 not found.");
    word.flag("--direct", options->direct, "Launch it without the server, and wait");
    word.flag("--async", options->async, "Launch it without the server, on a thread").excludes("--direct");
    word.option("--stdout", options->stdOut, "Its standard output goes to this file").isFile();
    word.option("--stderr", options->stdErr, "Its standard error goes to this file").isFile();
    word.option("--timeout", options->timeout, {0, kMostSeconds},
                "Seconds; then it is ended with all processes that it started");
    word.option("command", options->words, "The command and its arguments, after --").required();
    word.example("kivcs2 run --timeout 10 -- ls -l /");
    word.refuses(
        [options]
        {
            const bool isFiled = !options->stdOut.empty() || !options->stdErr.empty();
            return isFiled && !options->direct && !options->async
                       ? "--stdout, --stderr: need --direct or --async"
                       : "";
        });
    word.runs([options] { return runCommand(*options); });
}

} // namespace tool
