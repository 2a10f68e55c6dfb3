// Sockets across real interfaces: two namespaces with a pair of virtual Ethernet interfaces between them,
// and relays that delay, lose, reorder, reset and half-close.
#include <KIVCoreServices2/KIVCS2Socket.h>

#include "NetworkNamespace.h"
#include "OwnSocket.h"
#include "Relay.h"

#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{
using kiv::test::acceptFrom;
using kiv::test::addressOf;
using kiv::test::awaitEvents;
using kiv::test::DatagramRelay;
using kiv::test::make;
using kiv::test::makeServer;
using kiv::test::NetworkNamespace;
using kiv::test::OwnAddress;
using kiv::test::OwnSocket;
using kiv::test::portOf;
using kiv::test::receive;
using kiv::test::send;
using kiv::test::StreamRelay;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kOK = KIVCS2STATUS_OK;
constexpr auto kDelay = 60ms; // one way through a relay
const char *const kNear = "10.77.0.1";
const char *const kFar = "10.77.0.2";
const char *const kGroup = "239.255.0.1";
constexpr int32_t kPort = 5004;

// Two machines with a cable between them.
struct Machines
{
    Machines()
    {
        near.join(kNear, far, kFar);
    }
    NetworkNamespace near;
    NetworkNamespace far;
};

// What `create` makes inside a namespace.
template <class Create>
OwnSocket makeIn(const NetworkNamespace &where, Create create)
{
    OwnSocket made;
    where.run([&] { made = create(); });
    return made;
}

OwnSocket connectIn(const NetworkNamespace &where, const char *host, int32_t port)
{
    return makeIn(where, [&] { return make(kivCS2Socket_createClient, host, port, 0u); });
}

OwnSocket receiverIn(const NetworkNamespace &where, const OwnAddress &address, KIVCS2SocketOption options = 0)
{
    return makeIn(where, [&] { return make(kivCS2Socket_createDatagramReceiver, options, address.get()); });
}

OwnSocket memberIn(const NetworkNamespace &where)
{
    const OwnAddress group = addressOf(kGroup, kPort);
    return makeIn(where,
                  [&]
                  {
                      return make(kivCS2Socket_createMulticastDatagramReceiver,
                                  uint32_t{KIVCS2SocketOption_ReuseAddress}, group.get());
                  });
}

void sendTo(const OwnSocket &sender, const OwnAddress &address, const std::string &bytes)
{
    EXPECT_EQ(kivCS2Socket_sendTo(sender.get(), address.get(), bytes.data(),
                                  static_cast<uint32_t>(bytes.size()), nullptr),
              kOK);
}

// What comes after time-outs of the receive, which have received nothing.
std::string receiveLate(const OwnSocket &socket)
{
    EXPECT_EQ(kivCS2Socket_setRecvTimeout(socket.get(), 0, 10000), kOK);
    char bytes[16];
    uint32_t count = 0;
    KIVCS2Status status = KIVCS2STATUS_TIMEOUT_ERR;
    while (status == KIVCS2STATUS_TIMEOUT_ERR && count == 0)
        status = kivCS2Socket_receive(socket.get(), bytes, sizeof bytes, false, &count);
    EXPECT_EQ(status, kOK);
    return {bytes, count};
}

TEST(SocketNetwork, StreamsCrossTheCable)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    const Machines machines;
    const OwnSocket server = makeIn(machines.far, [] { return makeServer(); });
    const OwnSocket client = connectIn(machines.near, kFar, portOf(server.get()));
    const OwnSocket accepted = acceptFrom(server);
    EXPECT_STREQ(accepted->m_host, kNear);
    // More than any buffer, both ways at once.
    const std::string block(1 << 16, 'x');
    constexpr size_t kBlocks = 100;
    std::thread sender{[&]
                       {
                           for (size_t index = 0; index < kBlocks; ++index)
                               EXPECT_EQ(send(client, block), kOK);
                       }};
    size_t received = 0;
    while (received < kBlocks * block.size())
    {
        const std::string bytes = receive(accepted);
        ASSERT_FALSE(bytes.empty());
        received += bytes.size();
    }
    sender.join();
}

TEST(SocketNetwork, ACutCableTimesOutAndHeals)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    Machines machines;
    const OwnSocket server = makeIn(machines.far, [] { return makeServer(); });
    const OwnSocket client = connectIn(machines.near, kFar, portOf(server.get()));
    const OwnSocket accepted = acceptFrom(server);
    ASSERT_EQ(kivCS2Socket_setRecvTimeout(accepted.get(), 0, 20000), kOK);
    ASSERT_EQ(kivCS2Socket_setSendTimeout(client.get(), 0, 20000), kOK);

    machines.far.setCable(false);
    const std::string block(1 << 16, 'x');
    EXPECT_EQ(send(client, "the system keeps it"), kOK); // half open: nothing tells
    char byte = 0;
    uint32_t count = 7;
    EXPECT_EQ(kivCS2Socket_receive(accepted.get(), &byte, 1, false, &count), KIVCS2STATUS_TIMEOUT_ERR);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(kivCS2Socket_testAlive(client.get()), kOK);
    KIVCS2Status status = kOK;
    while (KIVCS2_SUCCEEDED(status))
        status = kivCS2Socket_send(client.get(), block.data(), 1 << 16, nullptr);
    EXPECT_EQ(status, KIVCS2STATUS_TIMEOUT_ERR);

    machines.far.setCable(true);
    awaitEvents(accepted, POLLIN); // sent again by the system
    EXPECT_EQ(receive(accepted).substr(0, 19), "the system keeps it");
}

TEST(SocketNetwork, NoWayToAHostIsAFailureOfItsOwn)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    const NetworkNamespace alone;
    const OwnAddress elsewhere = addressOf(kFar, kPort);
    alone.run(
        [&]
        {
            KIVCS2Socket *none = nullptr;
            EXPECT_EQ(kivCS2Socket_createClient(&none, kFar, kPort, 0), KIVCS2STATUS_CONNECT_ERR);
            const OwnSocket sender = make(kivCS2Socket_createDatagramSender, 0u);
            EXPECT_EQ(kivCS2Socket_sendTo(sender.get(), elsewhere.get(), "x", 1, nullptr),
                      KIVCS2STATUS_SOCKET_ERR);
            EXPECT_EQ(sender->m_errno, uint32_t{ENETUNREACH});
            // No interface leads to groups: the receiver is bound, cannot join and is given up.
            const OwnAddress group = addressOf(kGroup, kPort);
            EXPECT_EQ(kivCS2Socket_createMulticastDatagramReceiver(&none, 0, group.get()),
                      KIVCS2STATUS_SOCKET_ERR);
            EXPECT_EQ(none, nullptr);
        });
}

TEST(SocketNetwork, GroupsReachTheirMembers)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    const Machines machines;
    const OwnAddress group = addressOf(kGroup, kPort);
    const OwnSocket members[] = {memberIn(machines.far), memberIn(machines.far), memberIn(machines.near)};
    EXPECT_EQ(members[0]->m_type, KIVCS2SocketType_Multicast);
    EXPECT_EQ(members[0]->m_multicastAddress, group->sin_addr.s_addr);
    const auto makeSender = [](uint32_t ttl)
    { return [ttl] { return make(kivCS2Socket_createMulticastDatagramSender, ttl, 0u); }; };
    const OwnSocket inHouse = makeIn(machines.near, makeSender(0));
    const OwnSocket onTheCable = makeIn(machines.near, makeSender(1));
    sendTo(inHouse, group, "in house");
    sendTo(onTheCable, group, "on the cable");
    // A time-to-live of 0 does not leave the machine.
    EXPECT_EQ(receive(members[0]), "on the cable");
    EXPECT_EQ(receive(members[1]), "on the cable");
    EXPECT_EQ(receive(members[2]), "in house");
    EXPECT_EQ(receive(members[2]), "on the cable");

    // A member that has left hears nothing more; closing leaves, so that leaving twice fails.
    EXPECT_EQ(kivCS2Socket_dropIPMembership(members[1].get(), group->sin_addr.s_addr), kOK);
    EXPECT_EQ(kivCS2Socket_close(members[1].get()), KIVCS2STATUS_SOCKET_ERR);
    EXPECT_EQ(members[1]->m_errno, uint32_t{EADDRNOTAVAIL});
    EXPECT_EQ(kivCS2Socket_close(members[0].get()), kOK);
    EXPECT_EQ(kivCS2Socket_close(members[0].get()), KIVCS2STATUS_SOCKET_ERR); // in no group any more
}

TEST(SocketNetwork, DatagramsAreLateLostAndOutOfOrder)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    const Machines machines;
    const OwnAddress end = addressOf("127.0.0.1", kPort);
    const OwnAddress relayed = addressOf(kFar, kPort);
    const OwnSocket receiver = receiverIn(machines.far, end);
    std::optional<DatagramRelay> relay;
    machines.far.run([&] { relay.emplace(*relayed, *end); });
    const OwnSocket sender =
        makeIn(machines.near, [] { return make(kivCS2Socket_createDatagramSender, 0u); });

    relay->delay(kDelay);
    const auto from = Clock::now();
    sendTo(sender, relayed, "first");
    EXPECT_EQ(receiveLate(receiver), "first");
    EXPECT_GE(Clock::now() - from, kDelay);
    relay->delay(0ms);
    relay->hold();
    for (const char *datagram : {"0", "1", "2", "3"})
        sendTo(sender, relayed, datagram);
    relay->awaitHeld(4);
    EXPECT_EQ(kivCS2Socket_testRead(receiver.get()), KIVCS2STATUS_EOF_ERR); // late
    relay->release({2, 0, 3});
    sendTo(sender, relayed, "last");
    std::string order;
    for (int count = 0; count < 4; ++count)
        order += receive(receiver) + " ";
    EXPECT_EQ(order, "2 0 3 last "); // 1 was lost
}

TEST(SocketNetwork, ConnectionsAreLateHalfClosedAndReset)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    const Machines machines;
    const OwnSocket server = makeIn(machines.far, [] { return makeServer(); });
    const OwnAddress end = addressOf("127.0.0.1", portOf(server.get()));
    const OwnAddress relayed = addressOf(kFar, kPort);
    std::optional<StreamRelay> relay;
    machines.far.run([&] { relay.emplace(*relayed, *end); });
    const OwnSocket client = connectIn(machines.near, kFar, kPort);
    const OwnSocket accepted = acceptFrom(server);

    // There and back, each way through the delay.
    relay->delay(kDelay);
    const auto from = Clock::now();
    ASSERT_EQ(send(client, "late"), kOK);
    EXPECT_EQ(receiveLate(accepted), "late");
    ASSERT_EQ(send(accepted, "later"), kOK);
    EXPECT_EQ(receiveLate(client), "later");
    EXPECT_GE(Clock::now() - from, 2 * kDelay);

    relay->halfClose();
    awaitEvents(client, POLLIN);
    EXPECT_EQ(kivCS2Socket_testRead(client.get()), kOK);
    EXPECT_EQ(kivCS2Socket_testAlive(client.get()), kOK);
    EXPECT_EQ(receive(client), "");
    ASSERT_EQ(send(client, "still heard"), kOK);
    EXPECT_EQ(receive(accepted), "still heard");

    relay->reset();
    awaitEvents(client, POLLHUP);
    EXPECT_EQ(kivCS2Socket_testRead(client.get()), KIVCS2STATUS_SOCKET_INVALID_ERR);
    // The end of the data was taken above; the reset comes after it.
    EXPECT_EQ(send(client, "x"), KIVCS2STATUS_SOCKET_INVALID_ERR);
    char byte = 0;
    EXPECT_EQ(kivCS2Socket_receive(accepted.get(), &byte, 1, false, nullptr),
              KIVCS2STATUS_CONNECTION_CLOSED_ERR);
}
} // namespace
