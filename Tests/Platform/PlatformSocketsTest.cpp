// Socket options that differ on Linux. Unit/SocketTest.cpp tests readiness through its states.
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

TEST(Sockets, NoDescriptorIsInvalidToPollAndToTheWait)
{
    for (const int fd : {-1, 1 << 20})
    {
        short found = 0;
        EXPECT_EQ(KIVPSocketPoll(fd, POLLIN, &found), 1);
        EXPECT_EQ(found, POLLNVAL);
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
        EXPECT_EQ(kernel, 2 * wanted); // Linux reports twice the size
        uint16_t part = 0;             // the caller has less room
        size = sizeof part;
        ASSERT_EQ(KIVPSocketGetOption(pair.ends[0], SOL_SOCKET, name, &part, &size), 0);
        EXPECT_EQ(part, wanted);
        EXPECT_EQ(size, sizeof part);
        EXPECT_EQ(KIVPSocketGetOption(-1, SOL_SOCKET, name, &part, &size), -1);
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

    // Descriptors far above the usual ones, from two threads at once.
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
