// Every allocation of the sockets fails once in turn.
#include "KIVCS2Socket.h"

#include "FailingAllocator.h"
#include "OwnSocket.h"

#include <KIVPlatform/KIVPSocket.h>

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/resource.h>

namespace
{
using namespace kiv::test;

// Fails each allocation of a creation, which must leave nothing, not even a descriptor.
size_t expectNothingLeft(const std::function<KIVCS2Status(KIVCS2Socket **)> &create)
{
    return forEachAllocation(
        [&create](size_t)
        {
            const int before = dup(0);
            close(before);
            KIVCS2Socket *made = nullptr;
            expectOkOrMemory(create(&made));
            EXPECT_EQ(made == nullptr, allocationFailed());
            const OwnSocket socket{made};
            const int after = dup(0);
            close(after);
            EXPECT_EQ(after == before, allocationFailed());
        });
}

TEST(SocketAllocation, CreationsLeaveNothing)
{
    const OwnSocket server = makeServer();
    const int32_t port = portOf(server.get());
    const auto address = addressOf("127.0.0.1", 0);
    EXPECT_EQ(
        expectNothingLeft([&](auto out) { return kivCS2Socket_createClient(out, "127.0.0.1", port, 0); }),
        2u); // record and host
    EXPECT_EQ(expectNothingLeft([](auto out) { return kivCS2Socket_createServer(out, 0, 1, 2); }), 1u);
    EXPECT_EQ(expectNothingLeft([](auto out) { return kivCS2Socket_createDatagramSender(out, 0); }), 1u);
    EXPECT_EQ(expectNothingLeft([&](auto out)
                                { return kivCS2Socket_createDatagramReceiver(out, 0, address.get()); }),
              1u);

    EXPECT_EQ(forEachAllocation(
                  [](size_t)
                  {
                      sockaddr_in *made = nullptr;
                      expectOkOrMemory(kivCS2_createSockAddr(&made, "127.0.0.1", 1, 0));
                      EXPECT_EQ(made == nullptr, allocationFailed());
                      const OwnAddress own{made};
                  }),
              1u);
}

TEST(SocketAllocation, AConnectionWithoutARecordIsClosed)
{
    const OwnSocket server = makeServer();
    const int32_t port = portOf(server.get());
    const size_t count = forEachAllocation(
        [&](size_t index)
        {
            allowAllocations();
            const OwnSocket client = make(kivCS2Socket_createClient, "127.0.0.1", port, 0u);
            failAllocation(index);
            KIVCS2Socket *made = nullptr;
            expectOkOrMemory(kivCS2Socket_accept(server.get(), 10000, &made));
            EXPECT_EQ(made == nullptr, allocationFailed());
            const OwnSocket accepted{made};
            pollfd end{client->m_socket, POLLIN, 0}; // the peer sees it
            EXPECT_EQ(poll(&end, 1, made == nullptr ? 60000 : 0), made == nullptr ? 1 : 0);
        });
    EXPECT_EQ(count, 2u); // record and address text
}

TEST(SocketAllocation, AnOptionOfAHighDescriptorIsSetOrRefused)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0 || limit.rlim_max <= 9000)
        GTEST_SKIP() << "no more than " << limit.rlim_max << " descriptors a process here";
    const OwnSocket server = makeServer();
    const int high = fcntl(server->m_socket, F_DUPFD_CLOEXEC, 9000);
    const auto setOption = [high](size_t)
    {
        int value = 1;
        const int result = KIVPSocketSetOption(high, SOL_SOCKET, SO_NOSIGPIPE, &value, sizeof value);
        EXPECT_EQ(result, allocationFailed() ? -1 : 0);
        EXPECT_TRUE(result == 0 || errno == ENOMEM);
        socklen_t size = sizeof value;
        EXPECT_EQ(KIVPSocketGetOption(high, SOL_SOCKET, SO_NOSIGPIPE, &value, &size), 0);
        EXPECT_EQ(value, allocationFailed() ? 0 : 1);
    };
    EXPECT_EQ(forEachAllocation(setOption), 1u);
    EXPECT_EQ(KIVPSocketClose(high), 0);
}
} // namespace
