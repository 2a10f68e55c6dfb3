#include "Private/Tasks/Spawn.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string_view>

namespace
{
constexpr int kExecFailed = 127;
constexpr mode_t kOwnerWritesAllRead = 0644;
constexpr const char *kDefaultPath = "/bin:/usr/bin"; // if there is no PATH, as confstr(_CS_PATH)

char g_shell[] = "/bin/sh";

// Counts the pieces of `text` between the colons, at least one.
[[nodiscard]] size_t pieceCount(std::string_view text)
{
    size_t count = 1;
    for (const char character : text)
        count += character == ':' ? 1 : 0;
    return count;
}

[[noreturn]] void giveUp()
{
    _exit(kExecFailed);
}

void connect(int from, int to)
{
    while (dup2(from, to) < 0)
        if (errno != EINTR)
            giveUp();
}

void connectFile(const char *path, int to)
{
    int file;
    // Kept: hosts rely on an older file keeping its bytes past the child's output.
    while ((file = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, kOwnerWritesAllRead)) < 0)
        if (errno != EINTR)
            giveUp();
    if (file == to)
    {
        (void)fcntl(file, F_SETFD, 0); // a descriptor that is open
        return;
    }
    connect(file, to);
    close(file);
}

[[noreturn]] void runChild(const kiv::ExecPlan &plan, const kiv::ChildSetup &setup)
{
    if (setup.begun != nullptr)
        setup.begun->store(true);
    if (setup.note != nullptr)
    {
        setup.note->write(getpid());
        // The host may have died before the note was written, and the task server checked too early.
        if (getppid() != setup.parent)
            giveUp();
    }
    if (setup.announce >= 0)
    {
        const int32_t pid = getpid();
        const bool written = write(setup.announce, &pid, sizeof pid) == sizeof pid;
        if (setup.announced != nullptr)
            setup.announced->store(true);
        if (!written)
            giveUp(); // a process whose id is unknown must not run
    }
    kiv::resetHandlers(); // a handler of the parent would run on the parent's memory
    sigset_t none;
    sigemptyset(&none);
    (void)pthread_sigmask(SIG_SETMASK, &none, nullptr); // cannot fail with these arguments
    if (setup.piped)
    {
        for (int stream = 0; stream < 3; ++stream)
            if (setup.standardStreams[stream] >= 0)
                connect(setup.standardStreams[stream], stream);
        for (int stream = 0; stream < 3; ++stream)
            (void)fcntl(stream, F_SETFD, 0); // a closed stream stays closed
    }
    for (int stream = 1; stream < 3; ++stream)
        if (setup.files[stream] != nullptr)
            connectFile(setup.files[stream], stream);
    plan.execute();
    giveUp();
}

// Opening a FIFO blocks until it has a reader, which may be the next task that the host launches.
[[nodiscard]] bool mayWait(const kiv::ChildSetup &setup)
{
    struct stat about
    {
    };
    for (const char *file : setup.files)
        if (file != nullptr && stat(file, &about) == 0 && S_ISFIFO(about.st_mode))
            return true;
    return false;
}

// Starts a child that may block: fork gives it its own memory, and the parent does not wait.
[[nodiscard]] pid_t startWaitingChild(const kiv::ExecPlan &plan, const kiv::ChildSetup &setup)
{
    const pid_t pid = fork();
    if (pid == 0)
        runChild(plan, setup);
    return pid;
}

// No variable of this function changes between the child's return from vfork and the parent's.
[[nodiscard]] __attribute__((noinline)) pid_t startChild(const kiv::ExecPlan &plan,
                                                         const kiv::ChildSetup &setup)
{
    const pid_t pid = vfork();
    if (pid == 0)
        runChild(plan, setup);
    return pid;
}
} // namespace

uint64_t kiv::bootTime()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

void kiv::ChildNote::write(pid_t child)
{
    std::atomic_ref{startedBefore}.store(bootTime());
    std::atomic_ref{pid}.store(child);
}

KIVCS2Status kiv::ExecPlan::prepare(const char *command, char *const *argv)
{
    const std::string_view name{command};
    const char *path = nullptr;
    if (name.find('/') == std::string_view::npos)
    {
        path = std::getenv("PATH");
        path = path != nullptr ? path : kDefaultPath;
    }
    const size_t files = path != nullptr ? pieceCount(path) : 1;
    size_t arguments = 0;
    while (argv[arguments] != nullptr)
        ++arguments;

    // Pointers, then texts: each piece of PATH with a slash, the name and a zero byte.
    const size_t pointers = (arguments + 3) + (files + 1);
    const size_t text = path != nullptr ? std::strlen(path) + files * (name.size() + 3) : 0;
    m_block.reset(static_cast<char **>(std::malloc(pointers * sizeof(char *) + text)));
    if (!m_block)
        return KIVCS2STATUS_MEMORY_ERR;

    m_argv = argv;
    m_scriptArgv = m_block.get();
    m_scriptArgv[0] = g_shell;
    m_scriptArgv[1] = nullptr; // replaced by the file that is found later
    for (size_t argument = 1; argument < arguments; ++argument)
        m_scriptArgv[argument + 1] = argv[argument];
    m_scriptArgv[arguments > 0 ? arguments + 1 : 2] = nullptr;

    m_files = m_scriptArgv + arguments + 3;
    m_files[files] = nullptr;
    if (path == nullptr)
    {
        m_files[0] = const_cast<char *>(command); // execve() does not write it, but takes it as writable
        return KIVCS2STATUS_OK;
    }
    char *out = reinterpret_cast<char *>(m_files + files + 1);
    std::string_view rest{path};
    for (size_t file = 0; file < files; ++file)
    {
        const std::string_view piece = rest.substr(0, rest.find(':'));
        rest.remove_prefix(piece.size() < rest.size() ? piece.size() + 1 : rest.size());
        m_files[file] = out;
        out += piece.copy(out, piece.size());
        if (piece.empty())
            *out++ = '.'; // an empty piece is the working directory
        *out++ = '/';
        out += name.copy(out, name.size());
        *out++ = '\0';
    }
    return KIVCS2STATUS_OK;
}

void kiv::ExecPlan::execute() const
{
    for (char **file = m_files; *file != nullptr; ++file)
    {
        execve(*file, m_argv, environ);
        if (errno == ENOEXEC)
        {
            m_scriptArgv[1] = *file;
            execve(g_shell, m_scriptArgv, environ);
            return;
        }
        if (errno != EACCES && errno != ENOENT && errno != ENOTDIR && errno != ESTALE && errno != ENODEV &&
            errno != ETIMEDOUT)
            return;
    }
}

void kiv::resetHandlers()
{
    struct sigaction action;
    for (int signal = 1; signal < NSIG; ++signal)
    {
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_DFL ||
            action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = SIG_DFL;
        (void)sigaction(signal, &action, nullptr); // cannot fail: it had a handler
    }
}

pid_t kiv::spawn(const ExecPlan &plan, const ChildSetup &setup)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before); // cannot fail with these arguments
    const pid_t pid = mayWait(setup) ? startWaitingChild(plan, setup) : startChild(plan, setup);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return pid;
}
