// Sockets, compared with the same system calls made directly, over the loopback interface. The other end uses
// plain calls in both cases, so that only one side is compared. It is compared by processor time: wall time
// would include the kernel's scheduling of two threads.
#include <KIVCoreServices2/KIVCS2Socket.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
constexpr size_t kBlock = 65536;
constexpr uint32_t kDatagram = 1316; // seven MPEG transport packets

KIVCS2Socket *require(KIVCS2Status status, KIVCS2Socket *const &made)
{
    if (KIVCS2_FAILED(status))
        std::abort();
    return made;
}

// A connection whose far end is served by `peer` on a thread of its own. Both kinds make the near end in the
// same way, so that its options are equal.
class Stream
{
public:
    explicit Stream(const std::function<void(int)> &peer)
    {
        KIVCS2Socket *server = nullptr;
        require(kivCS2Socket_createServer(&server, 0, 1, KIVCS2SocketOption_BindNow), server);
        require(kivCS2Socket_createClient(&near, "127.0.0.1", ntohs(server->m_addr.sin_port), 0), near);
        require(kivCS2Socket_accept(server, 10000, &m_far), m_far);
        (void)kivCS2Socket_free(server);
        for (KIVCS2Socket *end : {near, m_far})
            (void)kivCS2Socket_setTCPNodelay(end, 1);
        m_peer = std::thread{[peer, fd = m_far->m_socket] { peer(fd); }};
    }
    ~Stream()
    {
        (void)kivCS2Socket_free(near); // the peer then sees the end
        m_peer.join();
        (void)kivCS2Socket_free(m_far);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    KIVCS2Socket *near = nullptr;

private:
    KIVCS2Socket *m_far = nullptr;
    std::thread m_peer;
};

void takeAll(int fd)
{
    std::vector<char> buffer(4 * kBlock);
    while (recv(fd, buffer.data(), buffer.size(), 0) > 0)
    {
    }
}

void echo(int fd)
{
    char byte = 0;
    while (recv(fd, &byte, 1, 0) == 1 && send(fd, &byte, 1, MSG_NOSIGNAL) == 1)
    {
    }
}

void throughputOurs(benchmark::State &state)
{
    const Stream stream{takeAll};
    const std::vector<char> block(kBlock, 'x');
    for (auto _ : state)
    {
        for (uint32_t done = 0; done < kBlock;)
        {
            uint32_t sent = 0;
            if (KIVCS2_FAILED(kivCS2Socket_send(stream.near, block.data() + done, kBlock - done, &sent)))
                return state.SkipWithError("send");
            done += sent;
        }
    }
}
BENCHMARK(throughputOurs)->Name("Socket_streamSend/ours/65536");

void throughputPlain(benchmark::State &state)
{
    const Stream stream{takeAll};
    const std::vector<char> block(kBlock, 'x');
    for (auto _ : state)
    {
        for (size_t done = 0; done < kBlock;)
        {
            const ssize_t sent =
                send(stream.near->m_socket, block.data() + done, kBlock - done, MSG_NOSIGNAL);
            if (sent < 0)
                return state.SkipWithError("send");
            done += static_cast<size_t>(sent);
        }
    }
}
BENCHMARK(throughputPlain)->Name("Socket_streamSend/plain/65536");

void pingPongOurs(benchmark::State &state)
{
    const Stream stream{echo};
    char byte = 'x';
    for (auto _ : state)
    {
        if (KIVCS2_FAILED(kivCS2Socket_send(stream.near, &byte, 1, nullptr)) ||
            KIVCS2_FAILED(kivCS2Socket_receive(stream.near, &byte, 1, false, nullptr)))
            return state.SkipWithError("ping-pong");
    }
}
BENCHMARK(pingPongOurs)->Name("Socket_pingPong/ours/1");

void pingPongPlain(benchmark::State &state)
{
    const Stream stream{echo};
    char byte = 'x';
    for (auto _ : state)
    {
        if (send(stream.near->m_socket, &byte, 1, MSG_NOSIGNAL) != 1 ||
            recv(stream.near->m_socket, &byte, 1, 0) != 1)
            return state.SkipWithError("ping-pong");
    }
}
BENCHMARK(pingPongPlain)->Name("Socket_pingPong/plain/1");

// Two UDP sockets of one thread: each datagram is sent and then received, so none is lost and no call waits.
struct Datagrams
{
    Datagrams()
    {
        sockaddr_in *any = nullptr;
        if (KIVCS2_FAILED(kivCS2_createSockAddr(&any, "127.0.0.1", 0, 0)))
            std::abort();
        require(kivCS2Socket_createDatagramReceiver(&receiver, 0, any), receiver);
        (void)kivCS2_freeSockAddr(any);
        require(kivCS2Socket_createDatagramSender(&sender, 0), sender);
        socklen_t size = sizeof address;
        if (getsockname(receiver->m_socket, reinterpret_cast<sockaddr *>(&address), &size) != 0)
            std::abort();
    }
    ~Datagrams()
    {
        (void)kivCS2Socket_free(sender);
        (void)kivCS2Socket_free(receiver);
    }
    Datagrams(const Datagrams &) = delete;
    Datagrams &operator=(const Datagrams &) = delete;

    KIVCS2Socket *receiver = nullptr;
    KIVCS2Socket *sender = nullptr;
    sockaddr_in address{};
    std::array<char, kDatagram> bytes{};
};

void datagramsOurs(benchmark::State &state)
{
    Datagrams pair;
    for (auto _ : state)
    {
        if (KIVCS2_FAILED(
                kivCS2Socket_sendTo(pair.sender, &pair.address, pair.bytes.data(), kDatagram, nullptr)) ||
            KIVCS2_FAILED(kivCS2Socket_receive(pair.receiver, pair.bytes.data(), kDatagram, false, nullptr)))
            return state.SkipWithError("datagram");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(datagramsOurs)->Name("Socket_datagram/ours/1316");

void datagramsPlain(benchmark::State &state)
{
    Datagrams pair;
    const auto *address = reinterpret_cast<const sockaddr *>(&pair.address);
    for (auto _ : state)
    {
        if (sendto(pair.sender->m_socket, pair.bytes.data(), kDatagram, 0, address, sizeof pair.address) <
                0 ||
            recv(pair.receiver->m_socket, pair.bytes.data(), kDatagram, 0) < 0)
            return state.SkipWithError("datagram");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(datagramsPlain)->Name("Socket_datagram/plain/1316");

void readinessOurs(benchmark::State &state)
{
    Datagrams pair;
    for (auto _ : state)
        benchmark::DoNotOptimize(kivCS2Socket_testRead(pair.receiver));
}
BENCHMARK(readinessOurs)->Name("Socket_testRead/ours");

void readinessPlain(benchmark::State &state)
{
    Datagrams pair;
    for (auto _ : state)
    {
        pollfd asked{pair.receiver->m_socket, POLLIN, 0};
        benchmark::DoNotOptimize(poll(&asked, 1, 0));
    }
}
BENCHMARK(readinessPlain)->Name("Socket_testRead/plain");
} // namespace

BENCHMARK_MAIN();
