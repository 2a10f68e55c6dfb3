// Runs the body of a test where it may kill every process that it finds: as process 1 of its own process
// namespace, with its own /proc. Every process in the namespace ends with the body, and with the test,
// however it ends.
#ifndef KIV_TEST_OWN_PROCESSES_H
#define KIV_TEST_OWN_PROCESSES_H

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

// A test whose body one of the functions below runs in its own process.
#define KIV_TEST_RUN(run, suite, name)                                                                       \
    void suite##name();                                                                                      \
    TEST(suite, name)                                                                                        \
    {                                                                                                        \
        kiv::test::run(suite##name);                                                                         \
    }                                                                                                        \
    void suite##name()

namespace kiv::test
{
constexpr int kNoNamespace = 77; // exit code of a helper that could not make one

inline void exitWithResult()
{
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

inline int exitCodeOf(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
}

// Runs `body` in a child, whose failed expectations also fail this process. The child ends with this process,
// which the runner may end.
inline void inChild(const std::function<void()> &body)
{
    fflush(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(1);
        body();
        exitWithResult();
    }
    EXPECT_EQ(exitCodeOf(child), 0) << "of the body's process";
}

// Starts `body` as process 1 of a new namespace. Returns a helper process that exits with its code.
[[nodiscard]] inline pid_t startInOwnProcesses(const std::function<void()> &body)
{
    fflush(nullptr);
    const pid_t helper = fork();
    if (helper != 0)
        return helper;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        _exit(kNoNamespace);
    const pid_t first = fork();
    if (first == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (mount("proc", "/proc", "proc", 0, nullptr) != 0)
            _exit(kNoNamespace);
        body();
        exitWithResult();
    }
    _exit(first > 0 ? exitCodeOf(first) & 0xFF : kNoNamespace);
}

// Runs the bodies at the same time, each in its own namespace. Skips the test if no namespace can be made.
inline void inOwnProcesses(const std::vector<std::function<void()>> &bodies)
{
    std::vector<pid_t> helpers;
    for (const auto &body : bodies)
        helpers.push_back(startInOwnProcesses(body));
    bool made = true;
    for (const pid_t helper : helpers)
    {
        const int code = exitCodeOf(helper);
        EXPECT_TRUE(code == 0 || code == kNoNamespace) << "exit code " << code;
        made = made && code != kNoNamespace;
    }
    if (!made)
        GTEST_SKIP() << "no process namespace can be made here (that needs root)";
}

inline void inOwnProcesses(const std::function<void()> &body)
{
    inOwnProcesses(std::vector<std::function<void()>>{body});
}

// Runs the body in a namespace, but not as process 1, which is the parent of all orphans.
inline void inOwnChild(const std::function<void()> &body)
{
    inOwnProcesses([&body] { inChild(body); });
}

struct Process
{
    pid_t pid;
    pid_t parent;
    char state;
    std::string name;
};

// The visible processes without zombies.
inline std::vector<Process> processes()
{
    std::vector<Process> found;
    for (const auto &entry : std::filesystem::directory_iterator{"/proc"})
    {
        std::ifstream file{entry.path() / "stat"};
        std::string line;
        if (!std::isdigit(entry.path().filename().c_str()[0]) || !std::getline(file, line))
            continue;
        const size_t open = line.find('(');
        const size_t close = line.rfind(')');
        Process process{std::stoi(line), 0, line[close + 2], line.substr(open + 1, close - open - 1)};
        process.parent = std::stoi(line.substr(close + 4));
        if (process.state != 'Z' && process.state != 'X')
            found.push_back(process);
    }
    return found;
}

inline size_t countOf(const std::string &name)
{
    size_t count = 0;
    for (const Process &process : processes())
        count += process.name == name ? 1 : 0;
    return count;
}

inline void pause(int milliseconds)
{
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    nanosleep(&time, nullptr);
}

// Checks every few milliseconds until `condition` holds; false after `milliseconds`. Process 1 also reaps.
inline bool holdsWithin(int milliseconds, const std::function<bool()> &condition)
{
    for (int waited = 0; waited <= milliseconds; waited += 5)
    {
        if (condition())
            return true;
        pause(5);
    }
    return false;
}
} // namespace kiv::test

#endif
