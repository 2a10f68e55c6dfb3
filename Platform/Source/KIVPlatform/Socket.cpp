// Socket behaviour that the modules need and Linux does not have.
#include <KIVPlatform/KIVPSocket.h>

#include <KIVPlatform/KIVPlatform.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{
// One bit for each descriptor, by its number: sends on it raise no SIGPIPE. A page is made when a
// number in it is first marked, and stays, because a process reuses its numbers. The first page
// always exists, so few programs need another.
class DescriptorMarks
{
public:
    [[nodiscard]] bool has(int fd) const noexcept
    {
        const Page *page = pageOf(fd);
        return page != nullptr && ((*page)[wordOf(fd)].load(std::memory_order_relaxed) & bitOf(fd)) != 0;
    }
    // Returns false if there is no memory for a mark; clearing always succeeds.
    [[nodiscard]] bool set(int fd, bool marked) noexcept
    {
        Page *page = pageOf(fd);
        if (page == nullptr)
        {
            if (!marked)
                return true;
            page = makePage(m_furtherPages[static_cast<size_t>(fd) / kPerPage]);
            if (page == nullptr)
                return false;
        }
        if (marked)
            (*page)[wordOf(fd)].fetch_or(bitOf(fd), std::memory_order_relaxed);
        else
            (*page)[wordOf(fd)].fetch_and(~bitOf(fd), std::memory_order_relaxed);
        return true;
    }

private:
    static constexpr size_t kPerWord = 64;
    static constexpr size_t kPerPage = 8192; // descriptors; 1 KiB of bits
    static constexpr size_t kPages = (size_t{1} << 31) / kPerPage;
    using Page = std::array<std::atomic<uint64_t>, kPerPage / kPerWord>;

    [[nodiscard]] Page *pageOf(int fd) const noexcept
    {
        const size_t index = static_cast<size_t>(fd) / kPerPage;
        return index == 0 ? &m_first : m_furtherPages[index].load(std::memory_order_acquire);
    }
    static size_t wordOf(int fd) noexcept
    {
        return static_cast<size_t>(fd) % kPerPage / kPerWord;
    }
    static uint64_t bitOf(int fd) noexcept
    {
        return uint64_t{1} << (static_cast<size_t>(fd) % kPerWord);
    }
    static Page *makePage(std::atomic<Page *> &slot) noexcept
    {
        auto *made = static_cast<Page *>(std::calloc(1, sizeof(Page)));
        Page *there = nullptr;
        if (made == nullptr || slot.compare_exchange_strong(there, made, std::memory_order_acq_rel))
            return made;
        std::free(made); // another thread has made the page first
        return there;
    }

    // The table is all zero, so that only its used parts take memory.
    mutable Page m_first{};
    std::array<std::atomic<Page *>, kPages> m_furtherPages{};
};

constinit DescriptorMarks s_noSigpipe;

// Clears the mark that an earlier descriptor with this number, closed elsewhere, may have left.
int fresh(int fd, bool noSigpipe) noexcept
{
    const int made = KIVPAboveStandardStreams(fd);
    if (made < 0 || s_noSigpipe.set(made, noSigpipe))
        return made;
    (void)close(made);
    errno = ENOMEM;
    return -1;
}

bool isNoSigpipe(int level, int name) noexcept
{
    return level == SOL_SOCKET && name == SO_NOSIGPIPE;
}

// Returns 0 if the descriptor is an open socket, otherwise -1 with errno, as for any option.
int requireSocket(int fd) noexcept
{
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size);
}

// Stores as much of the number as the caller has room for.
void storeOption(int number, void *value, socklen_t *size) noexcept
{
    if (*size > sizeof number)
        *size = sizeof number;
    std::memcpy(value, &number, *size);
}
} // namespace

int KIVPSocketOpen(int family, int type)
{
    return fresh(socket(family, type | SOCK_CLOEXEC, 0), false);
}

int KIVPSocketAccept(int fd, struct sockaddr *address, socklen_t *size)
{
    const int accepted = accept4(fd, address, size, SOCK_CLOEXEC);
    return accepted < 0 ? -1 : fresh(accepted, s_noSigpipe.has(fd));
}

int KIVPSocketClose(int fd)
{
    // Clear the mark first: after close() the system may reuse the number.
    if (fd >= 0)
        (void)s_noSigpipe.set(fd, false);
    return close(fd);
}

ssize_t KIVPSocketSend(int fd, const void *buffer, size_t size, const struct sockaddr *to, socklen_t toSize)
{
    const int flags = fd >= 0 && s_noSigpipe.has(fd) ? MSG_NOSIGNAL : 0;
    return sendto(fd, buffer, size, flags, to, toSize);
}

int KIVPSocketGetOption(int fd, int level, int name, void *value, socklen_t *size)
{
    if (isNoSigpipe(level, name))
    {
        if (requireSocket(fd) < 0)
            return -1;
        storeOption(s_noSigpipe.has(fd) ? 1 : 0, value, size);
        return 0;
    }
    if (level == SOL_SOCKET && (name == SO_RCVBUF || name == SO_SNDBUF))
    {
        int doubled = 0;
        socklen_t doubledSize = sizeof doubled;
        if (getsockopt(fd, level, name, &doubled, &doubledSize) < 0)
            return -1;
        storeOption(doubled / 2, value, size);
        return 0;
    }
    return getsockopt(fd, level, name, value, size);
}

int KIVPSocketSetOption(int fd, int level, int name, const void *value, socklen_t size)
{
    if (!isNoSigpipe(level, name))
        return setsockopt(fd, level, name, value, size);

    if (requireSocket(fd) < 0)
        return -1;
    int noSigpipe = 0;
    if (size < sizeof noSigpipe)
    {
        errno = EINVAL;
        return -1;
    }
    std::memcpy(&noSigpipe, value, sizeof noSigpipe);
    if (s_noSigpipe.set(fd, noSigpipe != 0))
        return 0;
    errno = ENOMEM;
    return -1;
}

int KIVPSocketPoll(int fd, short events, short *found)
{
    *found = 0;
    if (fd < 0)
    {
        *found = POLLNVAL; // poll would ignore it
        return 1;
    }
    // A connection that has ended is shut down for receiving, so it has POLLRDHUP. A hang-up without
    // POLLRDHUP means that the socket was never connected.
    pollfd asked{fd, static_cast<short>(events | POLLRDHUP), 0};
    if (poll(&asked, 1, 0) < 0)
        return -1;
    unsigned bits = static_cast<unsigned short>(asked.revents);
    if ((bits & POLLRDHUP) == 0)
        bits &= ~static_cast<unsigned>(POLLHUP);
    // A peer that has only stopped sending does not count either, unless the caller requested reading.
    bits &= static_cast<unsigned short>(events) | static_cast<unsigned>(POLLERR | POLLHUP | POLLNVAL);
    *found = static_cast<short>(bits);
    return bits != 0 ? 1 : 0;
}

int KIVPSocketWaitReadable(int fd, int32_t milliseconds)
{
    pollfd asked{fd, POLLIN, 0};
    const int ready = fd < 0 ? 1 : poll(&asked, 1, milliseconds);
    if (fd < 0 || (ready > 0 && (asked.revents & POLLNVAL) != 0))
    {
        errno = EBADF; // as select does
        return -1;
    }
    return ready;
}
