// Named semaphores of a test program and of the commands it runs, gone with it however it ends: it gets a
// /dev/shm of its own in a mount namespace that the kernel clears when the last process in it is gone, after
// a kill as well. Where that is refused, a guardian process outlives the test and removes the names that it
// has left.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <set>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace
{
constexpr const char *kFolder = "/dev/shm";
constexpr std::string_view kAutomatic = "sem.kivCS2"; // and the nanosecond it was made in

uint64_t nanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// What any process that can be looked into has open.
std::set<std::string> openSemaphores()
{
    std::set<std::string> open;
    std::error_code error;
    for (const auto &process : std::filesystem::directory_iterator{"/proc", error})
    {
        std::ifstream maps{process.path() / "maps"};
        for (std::string line; std::getline(maps, line);)
            if (const size_t at = line.find("/dev/shm/sem."); at != std::string::npos)
                open.insert(line.substr(at + 9));
    }
    return open;
}

// Removes this user's names that were made by nobody else, as far as can be told: during the run, or with the
// test's number, and open nowhere.
void removeNames(pid_t test, uint64_t from)
{
    const std::set<std::string> open = openSemaphores();
    const std::string own = "sem.kivTest" + std::to_string(test) + "-";
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator{kFolder, error})
    {
        const std::string name = entry.path().filename();
        const uint64_t made =
            name.starts_with(kAutomatic) ? std::strtoull(name.c_str() + kAutomatic.size(), nullptr, 10) : 0;
        struct stat status
        {
        };
        if ((made >= from || name.starts_with(own)) && !open.contains(name) &&
            lstat(entry.path().c_str(), &status) == 0 && status.st_uid == geteuid())
            (void)unlink(entry.path().c_str());
    }
}

void startGuardian()
{
    const uint64_t from = nanoseconds();
    const pid_t test = getpid();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) // no program that the test starts keeps the guardian waiting
        std::abort();
    const pid_t between = fork(); // the guardian is no child of the test, which may wait for its children
    if (between < 0)
        std::abort();
    close(ends[between == 0 ? 1 : 0]); // the test keeps its end open until it ends
    if (between != 0)
    {
        (void)waitpid(between, nullptr, 0);
        return;
    }
    if (fork() != 0)
        _exit(0);
    setsid(); // a signal to the test's group is not for the guardian
    char byte = 0;
    while (read(ends[0], &byte, 1) > 0)
    {
    }
    removeNames(test, from);
    _exit(0);
}

// Before the test makes anything, and before it has threads.
[[maybe_unused]] const bool started = []
{
    const bool isApart = unshare(CLONE_NEWNS) == 0 &&
                         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", kFolder, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0;
    if (!isApart)
        startGuardian();
    return true;
}();
} // namespace
