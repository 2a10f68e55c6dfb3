// Named semaphores of a test program and of the commands it runs, gone with it however it ends: it gets a
// /dev/shm of its own in a mount namespace that the kernel clears when the last process in it is gone, after
// a kill as well. Where that is refused, a guardian process outlives the test and removes the names that it
// has left.
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
constexpr std::string_view kAutomatic = "sem.kivCS2"; // and the nanosecond it was made in

uint64_t nanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// Removes this user's names that were made during the run or have the test's number. The automatic name of
// another test is known to that process only, which does not need it again.
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

// Before the test makes anything, and before it has threads.
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
