#include "CFNetwork/Inherited.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/ioctl.h>
#include <sys/stat.h>

namespace kiv::discovery
{
namespace
{
// Calls `take` with each open descriptor; returns false if the system does not list them.
template <class Take>
[[nodiscard]] bool forEachDescriptor(Take take)
{
    struct Close
    {
        void operator()(DIR *folder) const noexcept
        {
            closedir(folder);
        }
    };
    const std::unique_ptr<DIR, Close> folder{opendir("/proc/self/fd")};
    if (!folder)
        return false;
    const int own = dirfd(folder.get());
    while (const dirent *entry = readdir(folder.get()))
    {
        int descriptor = -1;
        (void)std::from_chars(entry->d_name, entry->d_name + std::strlen(entry->d_name), descriptor);
        if (descriptor >= 0 && descriptor != own)
            take(descriptor);
    }
    return true;
}

void setCloseOnExec(int descriptor) noexcept
{
    (void)fcntl(descriptor, F_SETFD, FD_CLOEXEC); // it is open
}

[[nodiscard]] bool isInheritedPipeWithData(int descriptor) noexcept
{
    struct stat about = {};
    int bytes = 0;
    return fstat(descriptor, &about) == 0 && S_ISFIFO(about.st_mode) && fcntl(descriptor, F_GETFD) == 0 &&
           (fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0 && ioctl(descriptor, FIONREAD, &bytes) == 0 &&
           bytes > 0;
}

// The same call in every poll of this library.
constinit std::atomic<decltype(AvahiPoll::watch_new)> newWatch = nullptr;
} // namespace

WakeUpPipe::WakeUpPipe() noexcept
{
    try
    {
        m_knowsThem = forEachDescriptor([this](int descriptor) { m_before.push_back(descriptor); });
        std::ranges::sort(m_before);
    }
    catch (const std::bad_alloc &)
    {
        m_knowsThem = false;
    }
}

void WakeUpPipe::closeOnExec() const noexcept
{
    if (m_knowsThem)
        (void)forEachDescriptor(
            [this](int descriptor)
            {
                if (!std::ranges::binary_search(m_before, descriptor) && isInheritedPipeWithData(descriptor))
                    setCloseOnExec(descriptor);
            });
}

AvahiPoll closingOnExec(const AvahiPoll &poll) noexcept
{
    AvahiPoll closing = poll;
    newWatch.store(poll.watch_new);
    closing.watch_new = [](const AvahiPoll *api, int descriptor, AvahiWatchEvent event,
                           AvahiWatchCallback callback, void *context)
    {
        setCloseOnExec(descriptor);
        return newWatch.load()(api, descriptor, event, callback, context);
    };
    return closing;
}
} // namespace kiv::discovery
