// Waits of a command that a signal ends, for descriptors that may not be ready for long.
#include "Terminal/EndSignals.h"

#include <cerrno>
#include <climits>
#include <poll.h>
#include <sys/signalfd.h>

namespace tool
{
namespace
{

constexpr int kPatience = 1000; // milliseconds

void pollAgain(pollfd *asked, nfds_t number, int milliseconds)
{
    while (::poll(asked, number, milliseconds) < 0 && errno == EINTR)
    {
    }
}

} // namespace

// Returns whether any of the signals that end the command is blocked, and which.
bool EndSignals::areBlocked(sigset_t &ending)
{
    sigset_t blocked{};
    ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
    ::sigemptyset(&ending);
    bool any = false;
    for (const int signalNumber : kEnding)
        if (::sigismember(&blocked, signalNumber) == 1)
        {
            ::sigaddset(&ending, signalNumber);
            any = true;
        }
    return any;
}

bool EndSignals::await(int descriptor, short events, const sigset_t &ending)
{
    pollfd asked[] = {{descriptor, events, 0}, {-1, POLLIN, 0}};
    if (::poll(asked, 1, 0) != 0)
        return true; // ready, or a fault that the call itself reports
    if (!s_hasEnded)
    {
        asked[1].fd = ::signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK);
        pollAgain(asked, 2, -1);
        if (asked[1].fd >= 0)
            ::close(asked[1].fd);
    }
    if (asked[0].revents == 0 && events == POLLOUT)
        pollAgain(asked, 1, kPatience);
    return asked[0].revents != 0;
}

bool EndSignals::awaitReadable(int descriptor)
{
    sigset_t ending;
    return !areBlocked(ending) || await(descriptor, POLLIN, ending);
}

size_t EndSignals::awaitWritable(int descriptor, size_t size)
{
    sigset_t ending;
    if (!areBlocked(ending))
        return size;
    // A pipe that is ready has room for so much.
    return await(descriptor, POLLOUT, ending) ? std::min<size_t>(size, PIPE_BUF) : 0;
}

} // namespace tool
