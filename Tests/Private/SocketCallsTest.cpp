// The system calls of sockets: their number, and the state after a failure. The objects of the library are
// linked with functions of this program instead of the calls.
#include "KIVCS2Socket.h"

#include "OwnSocket.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace
{
struct Calls
{
    int made = 0;         // number of calls of all kinds below
    int failOption = 0;   // the error of getsockopt, or 0
    int failShutdown = 0; // the error of shutdown
    int failPoll = 0;     // the error of poll
    int afterClose = 0;   // the error of close, after it has closed the descriptor
};
thread_local Calls t_calls;

template <class... Arguments>
long call(int failure, long number, Arguments... arguments)
{
    ++t_calls.made;
    if (failure != 0)
    {
        errno = failure;
        return -1;
    }
    return syscall(number, arguments...);
}
} // namespace

extern "C"
{
    int getsockopt(int fd, int level, int name, void *value, socklen_t *size) noexcept
    {
        return static_cast<int>(call(t_calls.failOption, SYS_getsockopt, fd, level, name, value, size));
    }
    int shutdown(int fd, int how) noexcept
    {
        return static_cast<int>(call(t_calls.failShutdown, SYS_shutdown, fd, how));
    }
    int close(int fd)
    {
        const long result = syscall(SYS_close, fd);
        return static_cast<int>(t_calls.afterClose == 0 ? result : call(t_calls.afterClose, SYS_close, fd));
    }
    int poll(pollfd *fds, nfds_t count, int timeout)
    {
        return static_cast<int>(call(t_calls.failPoll, SYS_poll, fds, count, timeout));
    }
    ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *to, socklen_t toSize)
    {
        return call(0, SYS_sendto, fd, bytes, size, flags, to, toSize);
    }
    ssize_t recv(int fd, void *bytes, size_t size, int flags)
    {
        return call(0, SYS_recvfrom, fd, bytes, size, flags, nullptr, nullptr);
    }
    ssize_t recvfrom(int fd, void *bytes, size_t size, int flags, sockaddr *from, socklen_t *fromSize)
    {
        return call(0, SYS_recvfrom, fd, bytes, size, flags, from, fromSize);
    }
}

namespace
{
using namespace kiv::test;

TEST(SocketCalls, ATransferAndATestAreOneCallEach)
{
    const Connection connection;
    KIVCS2Socket *client = connection.client.get();
    KIVCS2Socket *accepted = connection.accepted.get();
    char byte = 'x';
    const auto expectCalls = [](int calls, auto operation)
    {
        t_calls = {};
        const KIVCS2Status status = operation();
        EXPECT_EQ(t_calls.made, calls);
        return status;
    };
    EXPECT_EQ(expectCalls(1, [&] { return kivCS2Socket_send(client, &byte, 1, nullptr); }), KIVCS2STATUS_OK);
    EXPECT_EQ(expectCalls(1, [&] { return kivCS2Socket_receive(accepted, &byte, 1, true, nullptr); }),
              KIVCS2STATUS_OK);
    EXPECT_EQ(expectCalls(1, [&] { return kivCS2Socket_testRead(client); }), KIVCS2STATUS_EOF_ERR);
    EXPECT_EQ(expectCalls(1, [&] { return kivCS2Socket_testWrite(client); }), KIVCS2STATUS_OK);
    EXPECT_EQ(expectCalls(1, [&] { return kivCS2Socket_testAlive(client); }), KIVCS2STATUS_OK);
}

// Kept: the host keeps the record if no-SIGPIPE cannot be set.
TEST(SocketQuirks, AFailureOfNoSigpipeHandsTheRecordOut)
{
    const OwnSocket server = makeServer();
    const auto address = addressOf("127.0.0.1", 0);
    using Row = std::tuple<int, KIVCS2Status>;
    for (const auto &[error, status] :
         {Row{ENOPROTOOPT, KIVCS2STATUS_SOCKET_ERR}, Row{EBADF, KIVCS2STATUS_SOCKET_INVALID_ERR}})
    {
        KIVCS2Socket *made[3] = {};
        const int32_t port = portOf(server.get());
        t_calls.failOption = error;
        EXPECT_EQ(kivCS2Socket_createClient(&made[0], "127.0.0.1", port, 0), status);
        EXPECT_EQ(kivCS2Socket_createServer(&made[1], 0, 1, KIVCS2SocketOption_BindNow), status);
        EXPECT_EQ(kivCS2Socket_createDatagramReceiver(&made[2], 0, address.get()), status);
        t_calls.failOption = 0;
        for (KIVCS2Socket *socket : made)
        {
            ASSERT_NE(socket, nullptr);
            EXPECT_EQ(socket->m_errno, static_cast<uint32_t>(error));
            EXPECT_EQ(socket->m_bound, 0u);
            EXPECT_EQ(kivCS2Socket_free(socket), KIVCS2STATUS_OK);
        }
    }
}

TEST(SocketCalls, AFailedCloseOfWhatIsGivenUpDoesNotHideTheReason)
{
    const OwnSocket server = makeServer();
    KIVCS2Socket *made = nullptr;
    t_calls.afterClose = EIO;
    EXPECT_EQ(kivCS2Socket_createServer(&made, portOf(server.get()), 1, KIVCS2SocketOption_BindNow),
              KIVCS2STATUS_BIND_ERR);
    EXPECT_EQ(errno, EADDRINUSE);
    t_calls = {};
}

TEST(SocketCalls, ACloseGoesOnAfterItsFailuresButOne)
{
    using Row = std::tuple<int, int, KIVCS2Status, uint32_t, bool>;
    for (const auto &[poll, shutdown, status, error, closed] :
         {Row{0, 0, KIVCS2STATUS_OK, 0, true}, Row{ENOMEM, 0, KIVCS2STATUS_SOCKET_ERR, ENOMEM, true},
          Row{0, ENOTCONN, KIVCS2STATUS_OK, 0, true}, Row{0, EINVAL, KIVCS2STATUS_SOCKET_ERR, EINVAL, true},
          Row{0, EBADF, KIVCS2STATUS_SOCKET_INVALID_ERR, EBADF, false}})
    {
        const Connection connection;
        ASSERT_EQ(send(connection.accepted, "x"), KIVCS2STATUS_OK);
        awaitEvents(connection.client, POLLIN);
        KIVCS2Socket *client = connection.client.get();
        const int fd = client->m_socket;
        t_calls = {0, 0, shutdown, poll};
        EXPECT_EQ(kivCS2Socket_close(client), status);
        t_calls = {};
        EXPECT_EQ(client->m_errno, error);
        EXPECT_EQ(client->m_socket, 0);
        EXPECT_EQ(close(fd) != 0, closed);
    }
}

TEST(SocketCalls, AFailedTestOfReadinessIsAFailure)
{
    const OwnSocket server = makeServer();
    t_calls.failPoll = ENOMEM;
    EXPECT_EQ(kivCS2Socket_testRead(server.get()), KIVCS2STATUS_SOCKET_ERR);
    EXPECT_EQ(server->m_errno, uint32_t{ENOMEM});
    t_calls = {};
}
} // namespace
