// Sockets across real interfaces: two namespaces with a pair of virtual Ethernet interfaces between them.
#include <KIVCoreServices2/KIVCS2Socket.h>

#include "NetworkNamespace.h"
#include "OwnSocket.h"

#include <cerrno>
#include <string>

namespace
{
using namespace kiv::test;

constexpr auto kOK = KIVCS2STATUS_OK;
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

// Returns the socket that `create` makes inside a namespace.
template <class Create>
OwnSocket makeIn(const NetworkNamespace &where, Create create)
{
    OwnSocket made;
    where.run([&] { made = create(); });
    return made;
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

TEST(SocketNetwork, ACutCableTimesOutAndHeals)
{
    KIV_NEEDS_NETWORK_NAMESPACES();
    Machines machines;
    const OwnSocket server = makeIn(machines.far, [] { return makeServer(); });
    const int32_t port = portOf(server.get());
    const OwnSocket client =
        makeIn(machines.near, [=] { return make(kivCS2Socket_createClient, kFar, port, 0u); });
    const OwnSocket accepted = acceptFrom(server);
    ASSERT_EQ(kivCS2Socket_setRecvTimeout(accepted.get(), 0, 20000), kOK);
    ASSERT_EQ(kivCS2Socket_setSendTimeout(client.get(), 0, 20000), kOK);

    machines.far.setCable(false);
    const std::string block(1 << 16, 'x');
    EXPECT_EQ(send(client, "the system keeps it"), kOK); // half open: no end knows
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

TEST(SocketNetwork, AHostWithoutARouteHasItsOwnFailure)
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
            // No interface leads to groups, so the receiver cannot join and is closed.
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

    // Closing leaves the group, which fails for a member that has left before.
    EXPECT_EQ(kivCS2Socket_dropIPMembership(members[1].get(), group->sin_addr.s_addr), kOK);
    EXPECT_EQ(kivCS2Socket_close(members[1].get()), KIVCS2STATUS_SOCKET_ERR);
    EXPECT_EQ(members[1]->m_errno, uint32_t{EADDRNOTAVAIL});
    EXPECT_EQ(kivCS2Socket_close(members[0].get()), kOK);
    EXPECT_EQ(kivCS2Socket_close(members[0].get()), KIVCS2STATUS_SOCKET_ERR); // it has left the group
}
} // namespace
