// Sockets of a test, freed at the end of the scope, and common steps of their tests.
#ifndef KIV_TEST_OWN_SOCKET_H
#define KIV_TEST_OWN_SOCKET_H

#include <KIVCoreServices2/KIVCS2Socket.h>

#include <gtest/gtest.h>

#include <poll.h>

#include <memory>
#include <string>
#include <utility>

namespace kiv::test
{
struct FreeSocket
{
    void operator()(KIVCS2Socket *socket) const
    {
        (void)kivCS2Socket_free(socket); // always fails for a multicast sender
    }
};
using OwnSocket = std::unique_ptr<KIVCS2Socket, FreeSocket>;

struct FreeAddress
{
    void operator()(sockaddr_in *address) const
    {
        (void)kivCS2_freeSockAddr(address);
    }
};
using OwnAddress = std::unique_ptr<sockaddr_in, FreeAddress>;

// Returns the socket of a create operation, which must succeed.
template <class Operation, class... Arguments>
OwnSocket make(Operation create, Arguments... arguments)
{
    KIVCS2Socket *made = nullptr;
    EXPECT_EQ(create(&made, arguments...), KIVCS2STATUS_OK);
    EXPECT_NE(made, nullptr);
    return OwnSocket{made};
}

inline OwnAddress addressOf(const char *host, int32_t port)
{
    sockaddr_in *made = nullptr;
    EXPECT_EQ(kivCS2_createSockAddr(&made, host, port, 0), KIVCS2STATUS_OK);
    return OwnAddress{made};
}

// The port of a socket, in host order.
inline int32_t portOf(const KIVCS2Socket *socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(socket->m_socket, reinterpret_cast<sockaddr *>(&address), &size), 0);
    return ntohs(address.sin_port);
}

inline OwnSocket makeServer(KIVCS2SocketOption options = 0)
{
    return make(kivCS2Socket_createServer, 0, 4096u, options | KIVCS2SocketOption_BindNow);
}

inline OwnSocket acceptFrom(const OwnSocket &server, int32_t timeout = 10000)
{
    return make([&](KIVCS2Socket **client) { return kivCS2Socket_accept(server.get(), timeout, client); });
}

// Two ends of a connection over the loopback interface.
struct Connection
{
    explicit Connection(KIVCS2SocketOption options = 0)
        : server{makeServer()}, client{make(kivCS2Socket_createClient, "127.0.0.1", portOf(server.get()),
                                            options)},
          accepted{acceptFrom(server)}
    {
    }
    OwnSocket server;
    OwnSocket client;
    OwnSocket accepted;
};

inline KIVCS2Status send(const OwnSocket &socket, const std::string &bytes)
{
    uint32_t sent = 0;
    const KIVCS2Status status =
        kivCS2Socket_send(socket.get(), bytes.data(), static_cast<uint32_t>(bytes.size()), &sent);
    EXPECT_TRUE(KIVCS2_FAILED(status) || sent == bytes.size());
    return status;
}

// Waits until the system reports the events, long enough for a very slow machine.
inline void awaitEvents(const OwnSocket &socket, short events)
{
    pollfd asked{socket->m_socket, events, 0};
    EXPECT_EQ(poll(&asked, 1, 30000), 1);
}

// Waits for one receive of up to 2048 bytes and returns them; "" if it fails.
inline std::string receive(const OwnSocket &socket)
{
    awaitEvents(socket, POLLIN); // so that missing bytes fail the test and do not block it
    std::string bytes(2048, '\0');
    uint32_t count = 0;
    const KIVCS2Status status =
        kivCS2Socket_receive(socket.get(), bytes.data(), static_cast<uint32_t>(bytes.size()), false, &count);
    bytes.resize(KIVCS2_FAILED(status) ? 0 : count);
    return bytes;
}

// Ends the connection with a reset, like a peer that crashed.
inline void reset(OwnSocket &socket)
{
    EXPECT_EQ(kivCS2Socket_setLinger(socket.get(), true, 0), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Socket_free(socket.release()), KIVCS2STATUS_OK);
}
} // namespace kiv::test

#endif
