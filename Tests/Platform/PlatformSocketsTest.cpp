// Where Linux's sockets differ: what the kernel says, and what the platform makes of it.
#include <KIVPlatform/KIVPSocket.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
// The kernel's own events of one descriptor.
short kernelEvents(int fd, short events)
{
    pollfd asked{fd, events, 0};
    EXPECT_GE(poll(&asked, 1, 0), 0);
    return asked.revents;
}

void expectPoll(int fd, short events, int count, short found)
{
    short bits = -1;
    EXPECT_EQ(KIVPSocketPoll(fd, events, &bits), count);
    EXPECT_EQ(bits, found);
}

// A connection over the loopback interface: [0] connected, [1] accepted.
struct Pair
{
    Pair()
    {
        const int server = KIVPSocketOpen(AF_INET, SOCK_STREAM);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        EXPECT_EQ(bind(server, generic, size), 0);
        EXPECT_EQ(listen(server, 1), 0);
        EXPECT_EQ(getsockname(server, generic, &size), 0);
        ends[0] = KIVPSocketOpen(AF_INET, SOCK_STREAM);
        EXPECT_EQ(connect(ends[0], generic, size), 0);
        ends[1] = KIVPSocketAccept(server, nullptr, nullptr);
        EXPECT_EQ(KIVPSocketClose(server), 0);
    }
    ~Pair()
    {
        KIVPSocketClose(ends[0]);
        KIVPSocketClose(ends[1]);
    }
    int ends[2];
};

TEST(Sockets, OneThatWasNeverConnectedDoesNotHangUp)
{
    const int fresh = KIVPSocketOpen(AF_INET, SOCK_STREAM);
    EXPECT_EQ(kernelEvents(fresh, POLLIN | POLLOUT), POLLOUT | POLLHUP); // the difference
    expectPoll(fresh, POLLIN | POLLOUT, 1, POLLOUT);
    expectPoll(fresh, POLLIN, 0, 0);

    sockaddr_in nobody{};
    nobody.sin_family = AF_INET;
    nobody.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    nobody.sin_port = htons(1); // tcpmux: nobody listens
    ASSERT_EQ(connect(fresh, reinterpret_cast<sockaddr *>(&nobody), sizeof nobody), -1);
    expectPoll(fresh, POLLIN, 0, 0); // refused is not connected
    KIVPSocketClose(fresh);
}

TEST(Sockets, AHalfClosedPeerIsReadableAndNotHungUp)
{
    const Pair pair;
    ASSERT_EQ(shutdown(pair.ends[1], SHUT_WR), 0);
    pollfd asked{pair.ends[0], POLLIN, 0};
    ASSERT_EQ(poll(&asked, 1, 60000), 1);
    expectPoll(pair.ends[0], POLLIN | POLLOUT, 1, POLLIN | POLLOUT);
    expectPoll(pair.ends[0], POLLIN, 1, POLLIN);
    expectPoll(pair.ends[1], POLLIN, 0, 0);

    // With its buffer full there is nothing to report to who only wants to write.
    const int noWait = fcntl(pair.ends[0], F_SETFL, O_NONBLOCK);
    ASSERT_EQ(noWait, 0);
    const std::vector<char> block(1 << 16);
    while (send(pair.ends[0], block.data(), block.size(), MSG_NOSIGNAL) > 0)
    {
    }
    expectPoll(pair.ends[0], POLLOUT, 0, 0);

    ASSERT_EQ(shutdown(pair.ends[0], SHUT_WR), 0); // both: hung up, as the kernel says
    EXPECT_NE(kernelEvents(pair.ends[0], POLLIN) & POLLHUP, 0);
    expectPoll(pair.ends[0], POLLIN, 1, POLLIN | POLLHUP);
}

TEST(Sockets, NoDescriptorIsInvalidToPollAndToTheWait)
{
    expectPoll(-1, POLLIN, 1, POLLNVAL);
    expectPoll(1 << 20, POLLIN, 1, POLLNVAL);
    for (const int fd : {-1, 1 << 20})
    {
        errno = 0;
        EXPECT_EQ(KIVPSocketWaitReadable(fd, 1000), -1);
        EXPECT_EQ(errno, EBADF);
    }
}

TEST(Sockets, BufferSizesReadAsTheyWereSet)
{
    const Pair pair;
    for (const int name : {SO_RCVBUF, SO_SNDBUF})
    {
        const int wanted = 20000;
        ASSERT_EQ(KIVPSocketSetOption(pair.ends[0], SOL_SOCKET, name, &wanted, sizeof wanted), 0);
        int kernel = 0;
        socklen_t size = sizeof kernel;
        ASSERT_EQ(getsockopt(pair.ends[0], SOL_SOCKET, name, &kernel, &size), 0);
        EXPECT_EQ(kernel, 2 * wanted); // the difference
        uint16_t part = 0;             // a caller with less room
        size = sizeof part;
        ASSERT_EQ(KIVPSocketGetOption(pair.ends[0], SOL_SOCKET, name, &part, &size), 0);
        EXPECT_EQ(part, wanted);
        EXPECT_EQ(size, sizeof part);
    }
}

TEST(Sockets, NoSigpipeBelongsToTheDescriptor)
{
    const auto isSet = [](int fd)
    {
        int value = -1;
        socklen_t size = sizeof value;
        EXPECT_EQ(KIVPSocketGetOption(fd, SOL_SOCKET, SO_NOSIGPIPE, &value, &size), 0);
        return value == 1;
    };
    const int on = 5;
    Pair pair;
    EXPECT_FALSE(isSet(pair.ends[0]));
    EXPECT_EQ(KIVPSocketSetOption(pair.ends[0], SOL_SOCKET, SO_NOSIGPIPE, &on, 2), -1);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(KIVPSocketSetOption(pair.ends[0], SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on), 0);
    EXPECT_TRUE(isSet(pair.ends[0]));
    EXPECT_FALSE(isSet(pair.ends[1]));
    EXPECT_EQ(KIVPSocketSetOption(STDIN_FILENO, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on), -1);
    EXPECT_EQ(errno, ENOTSOCK);

    // Far beyond the usual numbers, from two threads at once.
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < 16500)
        GTEST_SKIP() << "no more than " << limit.rlim_max << " descriptors a process here";
    std::vector<int> far;
    for (int index = 0; index < 64; ++index)
        far.push_back(fcntl(pair.ends[0], F_DUPFD_CLOEXEC, 16352));
    const auto setEvery = [&far](size_t first)
    {
        for (size_t index = first; index < far.size(); index += 2)
        {
            const int mark = index % 4 < 2 ? 1 : 0;
            EXPECT_EQ(KIVPSocketSetOption(far[index], SOL_SOCKET, SO_NOSIGPIPE, &mark, sizeof mark), 0);
        }
    };
    EXPECT_FALSE(isSet(far.front()));
    std::thread other{setEvery, 1};
    setEvery(0);
    other.join();
    for (size_t index = 0; index < far.size(); ++index)
    {
        EXPECT_EQ(isSet(far[index]), index % 4 < 2) << index;
        KIVPSocketClose(far[index]);
    }
}
} // namespace
