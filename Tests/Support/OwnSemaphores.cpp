// Named semaphores of a test program and of its commands, which end with it however it ends. The program has
// its own /dev/shm in a mount namespace, which the kernel clears after the last process in it, even if that
// is killed. If namespaces are refused, a guardian process outlives the test and removes the names that are
// left.
#include "Guardian.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace
{
constexpr const char *kFolder = "/dev/shm";
constexpr std::string_view kAutomatic = "sem.kivCS2"; // and the nanosecond of its creation

uint64_t nanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// Removes the names of this user that were made during the run or have the number of the test. Only the other
// process knows the automatic name of another test, and it does not need the name again.
void removeNames(pid_t test, uint64_t from)
{
    const std::string own = "sem.kivTest" + std::to_string(test) + "-";
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator{kFolder, error})
    {
        const std::string name = entry.path().filename();
        const uint64_t made =
            name.starts_with(kAutomatic) ? std::strtoull(name.c_str() + kAutomatic.size(), nullptr, 10) : 0;
        struct stat status = {};
        if ((made >= from || name.starts_with(own)) && lstat(entry.path().c_str(), &status) == 0 &&
            status.st_uid == geteuid())
            (void)unlink(entry.path().c_str());
    }
}

// Runs before the test makes semaphores or threads.
[[maybe_unused]] const bool started = []
{
    const bool isApart = unshare(CLONE_NEWNS) == 0 &&
                         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", kFolder, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0;
    if (!isApart)
        kiv::test::startGuardian([test = getpid(), from = nanoseconds()] { removeNames(test, from); });
    return true;
}();
} // namespace
