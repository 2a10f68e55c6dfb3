// Sockets over the loopback interface.
#include <KIVCoreServices2/KIVCS2Socket.h>

#include "OwnProcesses.h"
#include "OwnSocket.h"
#include "RequiredPointers.h"

#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <thread>
#include <tuple>

static_assert(offsetof(KIVCS2Socket, m_socket) == 0 && offsetof(KIVCS2Socket, m_errno) == 4 &&
              offsetof(KIVCS2Socket, m_type) == 8 && offsetof(KIVCS2Socket, m_options) == 12 &&
              offsetof(KIVCS2Socket, m_bound) == 16 &&
              offsetof(KIVCS2Socket, m_maxPendingConnections) == 20 && offsetof(KIVCS2Socket, m_addr) == 24 &&
              sizeof(sockaddr_in) == 16 && offsetof(KIVCS2Socket, m_host) == 40 &&
              offsetof(KIVCS2Socket, m_port) == 48 && offsetof(KIVCS2Socket, m_multicastAddress) == 52 &&
              sizeof(KIVCS2Socket) == 56);
static_assert(KIVCS2SocketType_Stream == 0 && KIVCS2SocketType_Datagram == 1 &&
              KIVCS2SocketType_Multicast == 2 && KIVCS2SocketOption_ReuseAddress == 0x01 &&
              KIVCS2SocketOption_BindNow == 0x02 && KIVCS2SocketOption_EndOnEOT == 0x04 &&
              KIVCS2SocketOption_IPv6 == 0x08 && KIVCS2SocketOption_Drain == 0x10);

namespace
{
using namespace kiv::test;

constexpr auto kOK = KIVCS2STATUS_OK;
constexpr auto kInvalid = KIVCS2STATUS_SOCKET_INVALID_ERR;
constexpr auto kClosed = KIVCS2STATUS_CONNECTION_CLOSED_ERR;
constexpr auto kSocketError = KIVCS2STATUS_SOCKET_ERR;
constexpr auto kEOF = KIVCS2STATUS_EOF_ERR;
constexpr auto kTimeout = KIVCS2STATUS_TIMEOUT_ERR;
constexpr uint32_t kAllOnes = 0xFFFFFFFF;
const char *const kHere = "127.0.0.1";

// A receiver of datagrams on a port that the system chooses, and the address that reaches it.
struct Receiver
{
    explicit Receiver(KIVCS2SocketOption options = 0)
        : socket{make(kivCS2Socket_createDatagramReceiver, options, addressOf(kHere, 0).get())},
          address{addressOf(kHere, portOf(socket.get()))}
    {
    }
    OwnSocket socket;
    OwnAddress address;
};

// The number that the next descriptor gets.
int nextDescriptor()
{
    const int next = dup(0);
    close(next);
    return next;
}

TEST(Socket, RefusesMissingArguments)
{
    KIVCS2Socket socket{};
    char buffer[1];
    KIV_REQUIRES_NOT_NULL(kivCS2_createSockAddr, "_addr, _host");
    KIV_REQUIRES_NOT_NULL(kivCS2_freeSockAddr, "_addr");
    KIV_REQUIRES_NOT_NULL(kivCS2_sockAddrToString, "_addr, _buf");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_createClient, "_socket, _host");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_createServer, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_createDatagramReceiver, "_receiver, _addr");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_createMulticastDatagramReceiver, "_receiver, _addr");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_connect, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_bindToAddress, "_socket, _addr");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_accept, "_server_socket, _client_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_free, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_send, "_socket, _buf, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_sendTo, "_socket, _addr, _buf, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_receive, "_socket, _buf, -");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_receiveFrom, "_socket, _buf, -, -, -");
    expectAllRefused({
        KIV_REQUIRES(kivCS2Socket_receive, "(s32)(_buf_size) != 0L", &socket, buffer, 0, true, nullptr),
        KIV_REQUIRES(kivCS2Socket_receiveFrom, "(s32)(_buf_size) != 0L", &socket, buffer, 0, true, nullptr,
                     nullptr, nullptr),
    });
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_testRead, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getNoSigpipe, "_socket, _no_sigpipe");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getReuseAddress, "_socket, _reuse_address");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getMinRecvByteCount, "_socket, _byte_count");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getRecvBufSize, "_socket, _buf_size");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getSendBufSize, "_socket, _buf_size");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getRecvTimeout, "_socket, _to_sec, _to_usec");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getSendTimeout, "_socket, _to_sec, _to_usec");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getLinger, "_socket, _linger, _linger_time");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getTCPNodelay, "_socket, _tcp_nodelay");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getMulticastTTL, "_socket, _multicast_ttl");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_getBlocking, "_socket, _blocks");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_createDatagramSender, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_createMulticastDatagramSender, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_bind, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setMaxPendingConnections, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_close, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_testWrite, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_testAlive, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setNoSigpipe, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setReuseAddress, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setMinRecvByteCount, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setRecvBufSize, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setSendBufSize, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setRecvTimeout, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setSendTimeout, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setLinger, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setTCPNodelay, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setMulticastTTL, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_addIPMembership, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_dropIPMembership, "_socket");
    KIV_REQUIRES_NOT_NULL(kivCS2Socket_setBlocking, "_socket");
}

TEST(SocketAddresses, AreResolvedToIPv4AndWritten)
{
    for (const auto &[host, port, status, written, storedPort] : {
             std::tuple{kHere, 5004, kOK, "127.0.0.1", 5004},
             {"239.255.0.1", 0, kOK, "239.255.0.1", 0},
             {"255.255.255.255", 65535, kOK, "255.255.255.255", 65535},
             {"localhost", 1, kOK, "127.0.0.1", 1},
             {kHere, -1, kOK, "127.0.0.1", 0}, // no port
             {kHere, 65536, KIVCS2STATUS_ADDRESS_ERR, "", 0},
             {"::1", 5004, KIVCS2STATUS_ADDRESS_ERR, "", 0},
         })
    {
        SCOPED_TRACE(host);
        char untouched[] = "x";
        auto *made = reinterpret_cast<sockaddr_in *>(untouched);
        ASSERT_EQ(kivCS2_createSockAddr(&made, host, port, kAllOnes), status);
        if (KIVCS2_FAILED(status))
        {
            EXPECT_EQ(made, nullptr);
            continue;
        }
        const OwnAddress address{made};
        EXPECT_EQ(address->sin_family, AF_INET);
        EXPECT_EQ(ntohs(address->sin_port), storedPort);
        char text[17] = "unchanged";
        EXPECT_EQ(kivCS2_sockAddrToString(address.get(), text, 15), KIVCS2STATUS_BUFFER_SIZE_ERR);
        EXPECT_STREQ(text, "unchanged");
        EXPECT_EQ(kivCS2_sockAddrToString(address.get(), text, 16), kOK);
        EXPECT_STREQ(text, written);
    }
}

// ---- Creation ----

TEST(SocketCreation, AFailureLeavesOnlyItsReason)
{
    const OwnSocket server = makeServer();
    const int32_t taken = portOf(server.get());
    OwnSocket gone = makeServer();
    const int32_t nobody = portOf(gone.get());
    gone.reset();
    const Receiver receiver;
    const auto notHere = addressOf("192.0.2.1", 5004); // TEST-NET-1, not of any machine
    const auto noGroup = addressOf("192.168.1.1", 5004);
    const auto below = addressOf("223.255.255.255", 5004);
    const auto above = addressOf("240.0.0.0", 5004);
    constexpr uint32_t kNow = KIVCS2SocketOption_BindNow;
    constexpr uint32_t kIPv6 = KIVCS2SocketOption_IPv6;

    const int before = nextDescriptor();
    using Create = std::function<KIVCS2Status(KIVCS2Socket **)>;
    for (const auto &[status, error, create] :
         std::initializer_list<std::tuple<KIVCS2Status, int, Create>>{
             {KIVCS2STATUS_CONNECT_ERR, ECONNREFUSED,
              [&](auto out) { return kivCS2Socket_createClient(out, kHere, nobody, 0); }},
             {KIVCS2STATUS_ADDRESS_ERR, 0,
              [&](auto out) { return kivCS2Socket_createClient(out, "::1", taken, 0); }},
             {KIVCS2STATUS_BIND_ERR, EADDRINUSE,
              [&](auto out) { return kivCS2Socket_createServer(out, taken, 1, kNow); }},
             {KIVCS2STATUS_BIND_ERR, EADDRINUSE,
              [&](auto out) { return kivCS2Socket_createDatagramReceiver(out, 0, receiver.address.get()); }},
             {KIVCS2STATUS_BIND_ERR, EADDRNOTAVAIL,
              [&](auto out) { return kivCS2Socket_createDatagramReceiver(out, 0, notHere.get()); }},
             {KIVCS2STATUS_MULTICAST_ADDRESS_ERR, 0,
              [&](auto out) { return kivCS2Socket_createMulticastDatagramReceiver(out, 0, noGroup.get()); }},
             {KIVCS2STATUS_MULTICAST_ADDRESS_ERR, 0,
              [&](auto out) { return kivCS2Socket_createMulticastDatagramReceiver(out, 0, below.get()); }},
             {KIVCS2STATUS_MULTICAST_ADDRESS_ERR, 0,
              [&](auto out) { return kivCS2Socket_createMulticastDatagramReceiver(out, 0, above.get()); }},
             // An IPv6 descriptor refuses a 16-byte address before the range of groups is checked.
             {KIVCS2STATUS_CONNECT_ERR, EINVAL,
              [&](auto out) { return kivCS2Socket_createClient(out, kHere, taken, kIPv6); }},
             {KIVCS2STATUS_BIND_ERR, EINVAL,
              [&](auto out) { return kivCS2Socket_createServer(out, 0, 1, kNow | kIPv6); }},
             {KIVCS2STATUS_BIND_ERR, EINVAL,
              [&](auto out)
              { return kivCS2Socket_createMulticastDatagramReceiver(out, kIPv6, noGroup.get()); }},
         })
    {
        KIVCS2Socket *made = server.get();
        errno = EDOM; // of an earlier failure
        EXPECT_EQ(create(&made), status);
        EXPECT_EQ(errno, error) << std::hex << status;
        EXPECT_EQ(made, nullptr);
    }
    EXPECT_EQ(nextDescriptor(), before); // every descriptor was closed again
}

TEST(SocketCreation, RecordsHoldWhatWasGiven)
{
    const OwnSocket unbound = make(kivCS2Socket_createServer, 0, 3u, 0u);
    EXPECT_EQ(unbound->m_bound, 0u);
    EXPECT_EQ(unbound->m_addr.sin_port, 0);
    const OwnSocket server = makeServer(KIVCS2SocketOption_ReuseAddress | KIVCS2SocketOption_Drain);
    EXPECT_EQ(server->m_bound, 1u);
    EXPECT_EQ(server->m_maxPendingConnections, 4096u);
    EXPECT_EQ(server->m_port, 0u); // as given; the system's choice is in the address
    EXPECT_EQ(ntohs(server->m_addr.sin_port), portOf(server.get()));
    EXPECT_EQ(server->m_addr.sin_addr.s_addr, 0u);
    EXPECT_EQ(server->m_host, nullptr);
    bool reuses = false;
    EXPECT_EQ(kivCS2Socket_getReuseAddress(server.get(), &reuses), kOK);
    EXPECT_TRUE(reuses);

    const OwnSocket client = make(kivCS2Socket_createClient, "localhost", portOf(server.get()), 0x25u);
    EXPECT_STREQ(client->m_host, "localhost");
    EXPECT_EQ(client->m_options, 0x25u); // including bits without a meaning
    EXPECT_EQ(client->m_port, static_cast<uint32_t>(portOf(server.get())));
    EXPECT_EQ(client->m_addr.sin_addr.s_addr, htonl(INADDR_LOOPBACK));

    const OwnSocket sender = make(kivCS2Socket_createMulticastDatagramSender, 0x102u, 0u);
    EXPECT_EQ(sender->m_type, KIVCS2SocketType_Multicast);
    uint8_t ttl = 0;
    EXPECT_EQ(kivCS2Socket_getMulticastTTL(sender.get(), &ttl), kOK);
    EXPECT_EQ(ttl, 2);
}

TEST(SocketCreation, DescriptorsAreAboveTheStandardOnesAndClosedOnExec)
{
    inChild(
        []
        {
            for (const bool hasInput : {true, false})
            {
                const Connection connection;
                for (const OwnSocket *socket : {&connection.server, &connection.client, &connection.accepted})
                {
                    EXPECT_GT((*socket)->m_socket, STDERR_FILENO);
                    EXPECT_NE(fcntl((*socket)->m_socket, F_GETFD) & FD_CLOEXEC, 0);
                }
                EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD) >= 0, hasInput);
                close(STDIN_FILENO); // a number that the next ones must not get
            }
        });
}

// ---- Servers ----

TEST(SocketServer, ListensFromTheFirstAcceptOn)
{
    const uint32_t options = KIVCS2SocketOption_EndOnEOT | KIVCS2SocketOption_Drain;
    const OwnSocket server = make(kivCS2Socket_createServer, 0, 1u, options);
    KIVCS2Socket *none = server.get();
    EXPECT_EQ(kivCS2Socket_accept(server.get(), 0, &none), kTimeout);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(server->m_bound, 1u);
    EXPECT_EQ(kivCS2Socket_bind(server.get()), KIVCS2STATUS_BIND_ERR);
    for (const int32_t milliseconds : {1, 1010})
    {
        const auto from = std::chrono::steady_clock::now();
        EXPECT_EQ(kivCS2Socket_accept(server.get(), milliseconds, &none), kTimeout);
        EXPECT_GE(std::chrono::steady_clock::now() - from, std::chrono::milliseconds{milliseconds});
    }

    const OwnSocket client = make(kivCS2Socket_createClient, kHere, portOf(server.get()), 0u);
    const OwnSocket accepted = acceptFrom(server, -1); // would wait without a limit
    EXPECT_STREQ(accepted->m_host, kHere);
    EXPECT_EQ(accepted->m_port, static_cast<uint32_t>(portOf(client.get())));
    EXPECT_EQ(ntohs(accepted->m_addr.sin_port), accepted->m_port);
    EXPECT_EQ(accepted->m_type, KIVCS2SocketType_Stream);
    EXPECT_EQ(accepted->m_options, 0u); // kept: not those of the server
    EXPECT_EQ(kivCS2Socket_setMaxPendingConnections(server.get(), 2), kOK);
    EXPECT_EQ(server->m_maxPendingConnections, 1u);
}

TEST(SocketServer, AFailedAcceptIsPrinted)
{
    const OwnSocket datagrams =
        make(kivCS2Socket_createDatagramSender, 0u); // can be bound, but cannot accept
    KIVCS2Socket *none = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(kivCS2Socket_accept(datagrams.get(), -1, &none), KIVCS2STATUS_ACCEPT_ERR);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "kivCS2Socket_accept error " +
                                                          std::to_string(EOPNOTSUPP) +
                                                          " in accept, returning KIVCS2STATUS_ACCEPT_ERR\n");
    EXPECT_EQ(datagrams->m_errno, uint32_t{EOPNOTSUPP});
    EXPECT_EQ(none, nullptr);

    const OwnSocket closed = makeServer();
    EXPECT_EQ(kivCS2Socket_close(closed.get()), kOK);
    EXPECT_EQ(kivCS2Socket_accept(closed.get(), 0, &none), kSocketError); // its wait fails
    EXPECT_EQ(closed->m_errno, uint32_t{EBADF});
}

TEST(SocketServer, APeerWithoutAnIPv4AddressIsClosedAgain)
{
    const OwnSocket server = make(kivCS2Socket_createServer, 0, 1u, uint32_t{KIVCS2SocketOption_IPv6});
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof address;
    if (bind(server->m_socket, reinterpret_cast<sockaddr *>(&address), size) != 0)
        GTEST_SKIP() << "no IPv6 loopback on this machine";
    server->m_bound = 1; // as if the host had bound the descriptor itself
    ASSERT_EQ(kivCS2Socket_setMaxPendingConnections(server.get(), 1), kOK);
    ASSERT_EQ(getsockname(server->m_socket, reinterpret_cast<sockaddr *>(&address), &size), 0);
    const int peer = socket(AF_INET6, SOCK_STREAM, 0);
    ASSERT_EQ(connect(peer, reinterpret_cast<sockaddr *>(&address), size), 0);
    KIVCS2Socket *none = nullptr;
    EXPECT_EQ(kivCS2Socket_accept(server.get(), 10000, &none), KIVCS2STATUS_ADDRESS_ERR);
    EXPECT_EQ(none, nullptr);
    char byte = 0;
    EXPECT_EQ(recv(peer, &byte, 1, 0), 0);
    close(peer);
}

TEST(SocketServer, WaitsOnDescriptorsAboveThoseOfSelect)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    if (limit.rlim_max <= 2 * FD_SETSIZE)
        GTEST_SKIP() << "no more than " << limit.rlim_max << " descriptors a process here";
    const OwnSocket server = makeServer();
    const int moved = fcntl(server->m_socket, F_DUPFD_CLOEXEC, FD_SETSIZE + 1);
    ASSERT_GT(moved, FD_SETSIZE);
    close(server->m_socket);
    server->m_socket = moved;
    KIVCS2Socket *none = nullptr;
    EXPECT_EQ(kivCS2Socket_accept(server.get(), 1, &none), kTimeout);
    const OwnSocket client = make(kivCS2Socket_createClient, kHere, portOf(server.get()), 0u);
    EXPECT_TRUE(acceptFrom(server));
    EXPECT_EQ(kivCS2Socket_testRead(server.get()), kEOF);
}

// ---- Data ----

TEST(SocketData, DatagramsNameTheirSender)
{
    const Receiver receiver;
    const Receiver other;
    uint32_t count = 0;
    EXPECT_EQ(kivCS2Socket_sendTo(other.socket.get(), receiver.address.get(), "abc", 3, &count), kOK);
    EXPECT_EQ(count, 3u);
    char buffer[8];
    std::memset(buffer, 'x', sizeof buffer);
    sockaddr_in sender{};
    uint32_t size = 0;
    EXPECT_EQ(
        kivCS2Socket_receiveFrom(receiver.socket.get(), buffer, sizeof buffer, true, &count, &sender, &size),
        kOK);
    EXPECT_EQ(std::string_view(buffer, 8), std::string_view("abc\0\0\0\0\0", 8)); // cleared after the data
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(size, 16u);
    EXPECT_EQ(std::memcmp(&sender, other.address.get(), sizeof sender), 0);

    EXPECT_EQ(kivCS2Socket_sendTo(other.socket.get(), receiver.address.get(), "d", 1, nullptr), kOK);
    EXPECT_EQ(kivCS2Socket_receiveFrom(receiver.socket.get(), buffer, 8, false, nullptr, nullptr, nullptr),
              kOK);
    EXPECT_EQ(std::string_view(buffer, 3), std::string_view("dbc", 3)); // not cleared

    const std::string tooLong(70000, 'x');
    EXPECT_EQ(kivCS2Socket_sendTo(other.socket.get(), receiver.address.get(), tooLong.data(), 70000, &count),
              kSocketError);
    EXPECT_EQ(count, kAllOnes);
    EXPECT_EQ(other.socket->m_errno, uint32_t{EMSGSIZE});
}

TEST(SocketData, AnIPv6DescriptorStillSpeaksIPv4)
{
    const OwnSocket both = make(kivCS2Socket_createDatagramSender, uint32_t{KIVCS2SocketOption_IPv6});
    sockaddr_in6 any{};
    any.sin6_family = AF_INET6;
    if (bind(both->m_socket, reinterpret_cast<sockaddr *>(&any), sizeof any) != 0)
        GTEST_SKIP() << "no IPv6 on this machine";
    const Receiver receiver;
    EXPECT_EQ(kivCS2Socket_sendTo(both.get(), receiver.address.get(), "abc", 3, nullptr), kOK);
    EXPECT_EQ(receive(receiver.socket), "abc");

    // The sender's address is longer than the record's: it is cut, and its size shows that.
    sockaddr_in6 bound{};
    socklen_t boundSize = sizeof bound;
    ASSERT_EQ(getsockname(both->m_socket, reinterpret_cast<sockaddr *>(&bound), &boundSize), 0);
    const auto address = addressOf(kHere, ntohs(bound.sin6_port));
    EXPECT_EQ(kivCS2Socket_sendTo(receiver.socket.get(), address.get(), "d", 1, nullptr), kOK);
    char byte = 0;
    sockaddr_in sender{};
    uint32_t size = 0;
    EXPECT_EQ(kivCS2Socket_receiveFrom(both.get(), &byte, 1, false, nullptr, &sender, &size), kOK);
    EXPECT_EQ(sender.sin_family, AF_INET6);
    EXPECT_EQ(size, sizeof any);
}

// Fuzzers/SocketReceiveFuzzer.cpp sends EOT bytes at any place.
TEST(SocketData, AnEOTByteAtTheStartIsPrinted)
{
    const Connection connection{KIVCS2SocketOption_EndOnEOT};
    ASSERT_EQ(send(connection.accepted, "\x04 and more"), kOK);
    char buffer[32] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(kivCS2Socket_receive(connection.client.get(), buffer, sizeof buffer, false, nullptr), kClosed);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "EOT!: 4 4\n");
    EXPECT_STREQ(buffer, "\x04 and more"); // the data is stored all the same
}

void shutDown(const OwnSocket &socket, int how)
{
    ASSERT_EQ(shutdown(socket->m_socket, how), 0);
}

// Steps that bring a connection into a state of its client.
using Step = void (*)(Connection &);
constexpr Step kDoesNotWait = [](Connection &c) { kivCS2Socket_setBlocking(c.client.get(), false); };
constexpr Step kWaitsShortly = [](Connection &c) { kivCS2Socket_setRecvTimeout(c.client.get(), 0, 1000); };
constexpr Step kPeerSends = [](Connection &c) { ASSERT_EQ(send(c.accepted, "x"), kOK); };
constexpr Step kPeerStops = [](Connection &c) { shutDown(c.accepted, SHUT_WR); };
constexpr Step kPeerResets = [](Connection &c) { reset(c.accepted); };
constexpr Step kStops = [](Connection &c) { shutDown(c.client, SHUT_WR); };
constexpr Step kInputCame = [](Connection &c) { awaitEvents(c.client, POLLIN); };
constexpr Step kHungUp = [](Connection &c) { awaitEvents(c.client, POLLHUP); };
constexpr Step kIsNew = [](Connection &c) { c.client = make(kivCS2Socket_createServer, 0, 1u, 0u); };
constexpr Step kListens = [](Connection &c) { c.client = makeServer(); };
constexpr Step kIsDatagrams = [](Connection &c) { c.client = make(kivCS2Socket_createDatagramSender, 0u); };
constexpr Step kIsClosed = [](Connection &c) { kivCS2Socket_close(c.client.get()); };
constexpr int kNeverOpen = 1 << 20;
constexpr Step kIsClosedOutside = [](Connection &c) { close(std::exchange(c.client->m_socket, kNeverOpen)); };

template <uint32_t Error>
void isRefused(Connection &c)
{
    const auto closed = addressOf(kHere, portOf(c.server.get()));
    c.server.reset();
    kIsNew(c);
    c.client->m_addr = *closed;
    EXPECT_EQ(kivCS2Socket_setBlocking(c.client.get(), Error != EINPROGRESS), kOK);
    EXPECT_EQ(kivCS2Socket_connect(c.client.get()), KIVCS2STATUS_CONNECT_ERR);
    EXPECT_EQ(c.client->m_errno, Error);
}

// Statuses of the tests whether a socket can be read, can be written and is alive.
using Ready = std::array<KIVCS2Status, 3>;
constexpr Ready kReadable{kOK, kOK, kOK};
constexpr Ready kIdle{kEOF, kOK, kOK};
constexpr Ready kLost{kInvalid, kInvalid, kInvalid};

// What each operation returns in each state: the tests of readiness, then a receive, then two sends.
struct StateRow
{
    const char *state;
    std::vector<Step> steps;
    Ready ready;
    KIVCS2Status receive;
    uint32_t count;
    KIVCS2Status send;
};

const StateRow kStates[] = {
    {"data is there", {kPeerSends, kInputCame}, kReadable, kOK, 1, kOK},
    {"empty, not waiting", {kDoesNotWait}, kIdle, kEOF, 0, kOK},
    {"empty within the time", {kWaitsShortly}, kIdle, kTimeout, 0, kOK},
    {"the peer has stopped sending", {kPeerStops, kInputCame}, kReadable, kClosed, 0, kOK},
    {"this end has stopped sending", {kDoesNotWait, kStops}, kIdle, kEOF, 0, kInvalid},
    {"both have stopped", {kPeerStops, kStops, kHungUp}, kLost, kClosed, 0, kInvalid},
    {"the peer has reset", {kPeerResets, kHungUp}, kLost, kClosed, kAllOnes, kInvalid},
    {"not connected", {kIsNew}, kIdle, kSocketError, kAllOnes, kInvalid},
    {"refused", {isRefused<ECONNREFUSED>}, kIdle, kSocketError, kAllOnes, kInvalid},
    {"refused later", {isRefused<EINPROGRESS>, kHungUp}, kLost, kSocketError, kAllOnes, kInvalid},
    {"listening", {kListens}, {kEOF, KIVCS2STATUS_NOT_WRITABLE_ERR, kOK}, kSocketError, kAllOnes, kInvalid},
    {"datagrams", {kIsDatagrams, kDoesNotWait}, kIdle, kEOF, 0, kSocketError},
    {"closed", {kIsClosed}, kLost, kInvalid, kAllOnes, kInvalid},
    {"closed by the host", {kIsClosedOutside}, kLost, kInvalid, kAllOnes, kInvalid},
};

TEST(SocketData, EveryStateHasItsStatuses)
{
    for (const StateRow &row : kStates)
    {
        SCOPED_TRACE(row.state);
        Connection connection;
        for (const Step step : row.steps)
            step(connection);
        KIVCS2Socket *socket = connection.client.get();
        EXPECT_EQ((Ready{kivCS2Socket_testRead(socket), kivCS2Socket_testWrite(socket),
                         kivCS2Socket_testAlive(socket)}),
                  row.ready);

        char byte = 0;
        uint32_t count = 7;
        testing::internal::CaptureStdout();
        EXPECT_EQ(kivCS2Socket_receive(socket, &byte, 1, true, &count), row.receive);
        // A count of all ones is a failed call: the failure is printed and its error number kept.
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  row.count == kAllOnes ? "recv error: " + std::to_string(socket->m_errno) + "\n" : "");
        EXPECT_EQ(count, row.count);
        EXPECT_EQ(socket->m_errno == 0, row.receive == kOK || (row.receive == kClosed && row.count == 0));
        EXPECT_EQ(socket->m_errno == EAGAIN, row.count == 0 && row.receive != kClosed);

        EXPECT_EQ(kivCS2Socket_send(socket, "y", 1, &count), row.send);
        EXPECT_EQ(count, KIVCS2_FAILED(row.send) ? kAllOnes : 1u);
        EXPECT_EQ(kivCS2Socket_send(socket, "y", 1, nullptr), row.send);
    }
}

TEST(SocketData, AResetThatWasNotReportedFailsTheSend)
{
    Connection connection;
    reset(connection.accepted);
    awaitEvents(connection.client, POLLHUP);
    EXPECT_EQ(send(connection.client, "x"), kSocketError);
    EXPECT_EQ(connection.client->m_errno, uint32_t{ECONNRESET});
    EXPECT_EQ(send(connection.client, "x"), kInvalid);
    EXPECT_EQ(connection.client->m_errno, uint32_t{EPIPE});
}

// Kept: it neither looks for EOT nor corrects the count of a call that failed.
TEST(SocketData, ReceivingFromReportsTheSystemsCall)
{
    const Connection connection{KIVCS2SocketOption_EndOnEOT};
    EXPECT_EQ(kivCS2Socket_setBlocking(connection.client.get(), false), kOK);
    char buffer[4];
    uint32_t count = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(kivCS2Socket_receiveFrom(connection.client.get(), buffer, 4, false, &count, nullptr, nullptr),
              kEOF);
    EXPECT_EQ(count, kAllOnes);
    ASSERT_EQ(send(connection.accepted, "\x04"), kOK);
    awaitEvents(connection.client, POLLIN);
    EXPECT_EQ(kivCS2Socket_receiveFrom(connection.client.get(), buffer, 4, false, &count, nullptr, nullptr),
              kOK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(SocketData, AFullBufferIsNotWritable)
{
    for (const bool blocks : {false, true})
    {
        const Connection connection;
        KIVCS2Socket *client = connection.client.get();
        ASSERT_EQ(kivCS2Socket_setSendTimeout(client, 0, 20000), kOK);
        ASSERT_EQ(kivCS2Socket_setBlocking(client, blocks), kOK);
        const std::string block(1 << 16, 'x');
        KIVCS2Status status = kOK;
        uint32_t count = 0;
        while (KIVCS2_SUCCEEDED(status))
            status = kivCS2Socket_send(client, block.data(), 1 << 16, &count);
        EXPECT_EQ(status, kTimeout);
        EXPECT_EQ(count, kAllOnes);
        EXPECT_EQ(client->m_errno, uint32_t{EAGAIN});
        EXPECT_EQ(kivCS2Socket_testWrite(client), KIVCS2STATUS_NOT_WRITABLE_ERR);
        EXPECT_EQ(kivCS2Socket_testAlive(client), kOK);
        shutDown(connection.accepted, SHUT_WR);
        awaitEvents(connection.client, POLLRDHUP); // does not concern a host that wants to write
        EXPECT_EQ(kivCS2Socket_testWrite(client), KIVCS2STATUS_NOT_WRITABLE_ERR);
    }
}

TEST(SocketData, AnInterruptedReceiveIsAnEmptySuccess)
{
    const Connection connection{KIVCS2SocketOption_EndOnEOT};
    struct sigaction handler = {};
    struct sigaction before = {};
    handler.sa_handler = [](int) {}; // without SA_RESTART
    ASSERT_EQ(sigaction(SIGALRM, &handler, &before), 0);
    const itimerval often{{0, 20000}, {0, 20000}}; // repeated, so that a signal comes while the receive waits
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    const std::string interrupted = "Interrupt, recv with 0 bytes\n";
    for (const bool clear : {true, false})
    {
        char byte = 0x04; // left by an earlier receive
        uint32_t count = 7;
        testing::internal::CaptureStdout();
        EXPECT_EQ(kivCS2Socket_receive(connection.client.get(), &byte, 1, clear, &count),
                  clear ? kOK : kClosed);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), interrupted + (clear ? "" : "EOT!: 4 4\n"));
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(connection.client->m_errno, uint32_t{EINTR});
    }
    KIVCS2Socket *none = nullptr;
    EXPECT_EQ(kivCS2Socket_accept(connection.server.get(), 60000, &none), kSocketError);
    EXPECT_EQ(connection.server->m_errno, uint32_t{EINTR});
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

// ---- Options ----

TEST(SocketOptions, ReadBackAsTheyWereSet)
{
    const OwnSocket socket = make(kivCS2Socket_createServer, 0, 1u, 0u);
    KIVCS2Socket *s = socket.get();
    const auto expectRead = [&s]<class T>(KIVCS2Status (*get)(KIVCS2Socket *, T *), auto set,
                                          std::initializer_list<int32_t> values)
    {
        for (const int32_t value : values)
        {
            auto read = static_cast<T>(value == 0);
            EXPECT_EQ(set(s, value), kOK);
            EXPECT_EQ(get(s, &read), kOK);
            EXPECT_EQ(read, static_cast<T>(value));
        }
    };
    expectRead(kivCS2Socket_getNoSigpipe, kivCS2Socket_setNoSigpipe, {1, 0, 2, 0});
    expectRead(kivCS2Socket_getReuseAddress, kivCS2Socket_setReuseAddress, {1, 0, 2, 0});
    expectRead(kivCS2Socket_getTCPNodelay, kivCS2Socket_setTCPNodelay, {1, 0, 2, 0});
    expectRead(kivCS2Socket_getBlocking, kivCS2Socket_setBlocking, {1, 0, 1});
    expectRead(kivCS2Socket_getMinRecvByteCount, kivCS2Socket_setMinRecvByteCount, {188});
    expectRead(kivCS2Socket_getRecvBufSize, kivCS2Socket_setRecvBufSize, {20000});
    expectRead(kivCS2Socket_getSendBufSize, kivCS2Socket_setSendBufSize, {30000});
    const OwnSocket sender = make(kivCS2Socket_createMulticastDatagramSender, 1u, 0u);
    s = sender.get();
    const auto setTTL = [](KIVCS2Socket *on, int32_t ttl)
    { return kivCS2Socket_setMulticastTTL(on, static_cast<uint8_t>(ttl)); };
    expectRead(kivCS2Socket_getMulticastTTL, setTTL, {255});
    s = socket.get();

    for (const auto &[get, set] : {std::pair{&kivCS2Socket_getRecvTimeout, &kivCS2Socket_setRecvTimeout},
                                   std::pair{&kivCS2Socket_getSendTimeout, &kivCS2Socket_setSendTimeout}})
    {
        uint32_t seconds = 9;
        uint32_t microseconds = 9;
        EXPECT_EQ(set(s, 2, 500000), kOK);
        EXPECT_EQ(get(s, &seconds, &microseconds), kOK);
        EXPECT_TRUE(seconds == 2 && microseconds == 500000) << seconds << " s, " << microseconds << " us";
    }
    bool lingers = false;
    uint32_t time = 0;
    EXPECT_EQ(kivCS2Socket_setLinger(s, true, 3), kOK);
    EXPECT_EQ(kivCS2Socket_getLinger(s, &lingers, &time), kOK);
    EXPECT_TRUE(lingers && time == 3);
    int raw = 0;
    uint32_t size = sizeof raw;
    EXPECT_EQ(kivCS2Socket_getOption(s, SOL_SOCKET, SO_TYPE, &raw, &size), kOK);
    EXPECT_EQ(raw, SOCK_STREAM);
    EXPECT_EQ(size, 4u);
}

TEST(SocketOptions, AClosedSocketHasNone)
{
    for (const int32_t descriptor : {0, kNeverOpen})
    {
        KIVCS2Socket closed{};
        closed.m_socket = descriptor;
        KIVCS2Socket *s = &closed;
        bool flag = true;
        uint8_t byte = 7;
        uint32_t first = 7;
        uint32_t second = 7;
        for (const KIVCS2Status status :
             {kivCS2Socket_getNoSigpipe(s, &flag), kivCS2Socket_setNoSigpipe(s, 1),
              kivCS2Socket_setReuseAddress(s, 1), kivCS2Socket_setMinRecvByteCount(s, 1),
              kivCS2Socket_getRecvBufSize(s, &first), kivCS2Socket_setSendBufSize(s, 4096),
              kivCS2Socket_getSendTimeout(s, &first, &second), kivCS2Socket_setRecvTimeout(s, 1, 0),
              kivCS2Socket_setLinger(s, true, 1), kivCS2Socket_setTCPNodelay(s, 1),
              kivCS2Socket_getMulticastTTL(s, &byte), kivCS2Socket_addIPMembership(s, htonl(0xefff0001)),
              kivCS2Socket_getBlocking(s, &flag), kivCS2Socket_setBlocking(s, true)})
        {
            EXPECT_EQ(status, kInvalid);
            EXPECT_EQ(closed.m_errno, uint32_t{EBADF});
        }
        EXPECT_TRUE(!flag && byte == 0 && first == 0 && second == 0);
    }
}

TEST(SocketOptions, OnlyTheReceiveTimeoutChecksItsMicroseconds)
{
    const OwnSocket socket = make(kivCS2Socket_createServer, 0, 1u, 0u);
    EXPECT_EQ(kivCS2Socket_setRecvTimeout(socket.get(), 1, 1000000), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2Socket_setSendTimeout(socket.get(), 1, 1000000), kSocketError); // by the system
    EXPECT_EQ(socket->m_errno, uint32_t{EDOM});
}

TEST(SocketOptions, APeerThatIsGoneRaisesASignalOnlyOnRequest)
{
    const auto sendTwiceWithoutPeer = [](int32_t noSigpipe, bool fromAccepted)
    {
        Connection connection;
        OwnSocket &end = fromAccepted ? connection.accepted : connection.client;
        OwnSocket &peer = fromAccepted ? connection.client : connection.accepted;
        if (noSigpipe == 0)
            (void)kivCS2Socket_setNoSigpipe(end.get(), 0);
        reset(peer);
        awaitEvents(end, POLLHUP);
        (void)send(end, "x"); // reports the reset
        _exit(send(end, "x") == kInvalid ? 7 : 8);
    };
    for (const bool fromAccepted : {false, true})
    {
        EXPECT_EXIT(sendTwiceWithoutPeer(1, fromAccepted), testing::ExitedWithCode(7), "");
        EXPECT_EXIT(sendTwiceWithoutPeer(0, fromAccepted), testing::KilledBySignal(SIGPIPE), "");
    }
    // A closed socket gives up the mark of its number.
    OwnSocket server = makeServer();
    const int number = server->m_socket;
    server.reset();
    const OwnSocket sender = make(kivCS2Socket_createDatagramSender, 0u);
    ASSERT_EQ(sender->m_socket, number);
    bool marked = true;
    EXPECT_EQ(kivCS2Socket_getNoSigpipe(sender.get(), &marked), kOK);
    EXPECT_FALSE(marked);
}

// ---- Closing ----

TEST(SocketClose, MayBeCalledTwiceAndFreedAfterwards)
{
    KIVCS2Socket *server = makeServer().release();
    EXPECT_EQ(kivCS2Socket_close(server), kOK);
    EXPECT_EQ(server->m_socket, 0);
    EXPECT_EQ(kivCS2Socket_close(server), kOK);
    EXPECT_EQ(kivCS2Socket_free(server), kOK);

    KIVCS2Socket *lost = makeServer().release();
    close(lost->m_socket);
    EXPECT_EQ(kivCS2Socket_free(lost), kSocketError); // the record is gone although closing failed
}

TEST(SocketClose, AMulticastSenderHasNoGroupToLeave)
{
    KIVCS2Socket *sender = make(kivCS2Socket_createMulticastDatagramSender, 1u, 0u).release();
    const int number = sender->m_socket;
    EXPECT_EQ(kivCS2Socket_close(sender), kSocketError);
    EXPECT_NE(sender->m_errno, 0u);
    EXPECT_EQ(fcntl(number, F_GETFD), -1); // closed all the same
    EXPECT_EQ(kivCS2Socket_close(sender), kSocketError);
    EXPECT_EQ(sender->m_errno, uint32_t{EBADF}); // does not close descriptor 0
    EXPECT_EQ(kivCS2Socket_free(sender), kSocketError);
}

TEST(SocketClose, DrainTakesTheDataUnderWay)
{
    for (const uint32_t options : {0u, uint32_t{KIVCS2SocketOption_Drain}})
    {
        Connection connection{options};
        ASSERT_EQ(send(connection.accepted, std::string(100, 'x')), kOK);
        shutDown(connection.accepted, SHUT_WR);
        awaitEvents(connection.client, POLLRDHUP);
        EXPECT_EQ(kivCS2Socket_free(connection.client.release()), kOK);
        // The system resets a connection that is closed with unread data.
        char byte = 0;
        uint32_t count = 0;
        testing::internal::CaptureStdout();
        awaitEvents(connection.accepted, POLLIN);
        EXPECT_EQ(kivCS2Socket_receive(connection.accepted.get(), &byte, 1, false, &count), kClosed);
        (void)testing::internal::GetCapturedStdout();
        EXPECT_TRUE(options == 0 || count == 0);
    }
    // Datagrams have no end, so there is no wait.
    const Receiver receiver{KIVCS2SocketOption_Drain};
    const OwnSocket sender = make(kivCS2Socket_createDatagramSender, 0u);
    for (int index = 0; index < 3; ++index)
        ASSERT_EQ(kivCS2Socket_sendTo(sender.get(), receiver.address.get(), "abc", 3, nullptr), kOK);
    EXPECT_EQ(kivCS2Socket_close(receiver.socket.get()), kOK);
}

TEST(SocketClose, DrainSendsZeroBytesUntilThePeerIsGone)
{
    Connection connection{KIVCS2SocketOption_Drain};
    std::thread peer{[&connection]
                     {
                         uint32_t zeros = 0;
                         while (zeros < 1000)
                         {
                             const std::string bytes = receive(connection.accepted);
                             zeros += static_cast<uint32_t>(std::ranges::count(bytes, '\0'));
                         }
                         reset(connection.accepted);
                     }};
    EXPECT_EQ(kivCS2Socket_close(connection.client.get()), kOK); // returns when the peer has reset
    peer.join();
}

TEST(SocketClose, ASendTimeoutBoundsTheDrain)
{
    const Connection connection{KIVCS2SocketOption_Drain};
    KIVCS2Socket *client = connection.client.get();
    ASSERT_EQ(kivCS2Socket_setSendBufSize(client, 4096), kOK);
    ASSERT_EQ(kivCS2Socket_setRecvBufSize(connection.accepted.get(), 4096), kOK);
    ASSERT_EQ(kivCS2Socket_setSendTimeout(client, 0, 20000), kOK);
    EXPECT_EQ(kivCS2Socket_close(client), kOK); // the peer stays and does not read
    EXPECT_EQ(kivCS2Socket_testAlive(connection.accepted.get()), kOK);
}

TEST(SocketClose, DrainEndsAtOnceWithoutAPeer)
{
    constexpr uint32_t kDrain = KIVCS2SocketOption_Drain;
    const OwnSocket sockets[] = {makeServer(kDrain), make(kivCS2Socket_createServer, 0, 1u, kDrain),
                                 make(kivCS2Socket_createDatagramSender, kDrain)};
    for (const OwnSocket &socket : sockets)
        EXPECT_EQ(kivCS2Socket_close(socket.get()), kOK);
}

// ---- Kept ----

TEST(SocketQuirks, BindingToAnAddressLeavesTheRecordUnbound)
{
    const Receiver receiver;
    EXPECT_EQ(receiver.socket->m_bound, 0u);
    EXPECT_EQ(kivCS2Socket_bindToAddress(receiver.socket.get(), receiver.address.get()),
              KIVCS2STATUS_BIND_ERR); // the system's refusal, not the record's
    EXPECT_EQ(receiver.socket->m_errno, uint32_t{EINVAL});
    receiver.socket->m_bound = 1;
    EXPECT_EQ(kivCS2Socket_bindToAddress(receiver.socket.get(), receiver.address.get()),
              KIVCS2STATUS_BIND_ERR);
    EXPECT_EQ(receiver.socket->m_errno, 0u);
    EXPECT_EQ(kivCS2Socket_bindToAddress(makeServer().get(), receiver.address.get()),
              KIVCS2STATUS_BIND_ADDRESS_ERR);
}

// ---- Many ----

// KIV_SOCKET_CONNECTIONS sets another number: the long run makes a million.
TEST(SocketMany, ConnectingAndClosingLeavesNoDescriptor)
{
    const char *wanted = std::getenv("KIV_SOCKET_CONNECTIONS");
    const long connections = wanted != nullptr ? std::strtol(wanted, nullptr, 10) : 5000;
    const OwnSocket server = makeServer();
    const int before = nextDescriptor();
    for (long index = 0; index < connections; ++index)
    {
        OwnSocket client = make(kivCS2Socket_createClient, kHere, portOf(server.get()), 0u);
        const OwnSocket accepted = acceptFrom(server);
        ASSERT_TRUE(accepted);
        reset(client); // so that no port waits for stray packets
        ASSERT_LE(nextDescriptor(), before + 2) << index;
    }
    EXPECT_EQ(nextDescriptor(), before);
}
} // namespace
