// Every allocation of the sockets fails once in turn.
#include "KIVCS2Socket.h"

#include "FailingAllocator.h"
#include "OwnSocket.h"

#include <functional>

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
} // namespace
