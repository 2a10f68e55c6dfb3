// Sockets, compared with the same system calls made directly, over the loopback interface. The other end uses
// plain calls in both cases, so that only one side is compared. Both ends are in one thread, because the
// price of a call is lost in the time that the kernel takes to wake up another.
#include <KIVCoreServices2/KIVCS2Socket.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
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

// A connection. Both kinds make the near end in the same way, so that its options are equal.
class Stream
{
public:
    Stream()
    {
        KIVCS2Socket *server = nullptr;
        require(kivCS2Socket_createServer(&server, 0, 1, KIVCS2SocketOption_BindNow), server);
        require(kivCS2Socket_createClient(&near, "127.0.0.1", ntohs(server->m_addr.sin_port), 0), near);
        require(kivCS2Socket_accept(server, 10000, &far), far);
        (void)kivCS2Socket_free(server);
        for (KIVCS2Socket *end : {near, far})
            (void)kivCS2Socket_setTCPNodelay(end, 1);
    }
    ~Stream()
    {
        (void)kivCS2Socket_free(near);
        (void)kivCS2Socket_free(far);
    }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    KIVCS2Socket *near = nullptr;
    KIVCS2Socket *far = nullptr;
};

// Sends blocks and takes each at the far end. `send` returns how many bytes it sent, or a negative number.
template <class Send>
void throughput(benchmark::State &state, Send send)
{
    const Stream stream;
    const int room = 4 * kBlock; // the system's default may be less than a block
    (void)setsockopt(stream.near->m_socket, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    (void)setsockopt(stream.far->m_socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    const std::vector<char> block(kBlock, 'x');
    std::vector<char> taken(kBlock);
    for (auto _ : state)
    {
        const ssize_t sent = send(stream.near, block);
        if (sent <= 0 ||
            recv(stream.far->m_socket, taken.data(), static_cast<size_t>(sent), MSG_WAITALL) != sent)
            return state.SkipWithError("a block did not arrive");
    }
}

void throughputOurs(benchmark::State &state)
{
    throughput(state,
               [](KIVCS2Socket *near, const std::vector<char> &block) -> ssize_t
               {
                   uint32_t sent = 0;
                   return KIVCS2_FAILED(kivCS2Socket_send(near, block.data(), kBlock, &sent)) ? -1 : sent;
               });
}
BENCHMARK(throughputOurs)->Name("Socket_streamSend/ours/65536");

void throughputPlain(benchmark::State &state)
{
    throughput(state, [](KIVCS2Socket *near, const std::vector<char> &block)
               { return send(near->m_socket, block.data(), kBlock, MSG_NOSIGNAL); });
}
BENCHMARK(throughputPlain)->Name("Socket_streamSend/plain/65536");

// Sends a byte that the far end sends back. `put` and `take` are the calls of the near end.
template <class Put, class Take>
void pingPong(benchmark::State &state, Put put, Take take)
{
    const Stream stream;
    const int far = stream.far->m_socket;
    char byte = 'x';
    for (auto _ : state)
        if (!put(stream.near, byte) || recv(far, &byte, 1, 0) != 1 ||
            send(far, &byte, 1, MSG_NOSIGNAL) != 1 || !take(stream.near, byte))
            return state.SkipWithError("ping-pong");
}

void pingPongOurs(benchmark::State &state)
{
    pingPong(
        state,
        [](KIVCS2Socket *near, char byte)
        { return KIVCS2_SUCCEEDED(kivCS2Socket_send(near, &byte, 1, nullptr)); },
        [](KIVCS2Socket *near, char &byte)
        { return KIVCS2_SUCCEEDED(kivCS2Socket_receive(near, &byte, 1, false, nullptr)); });
}
BENCHMARK(pingPongOurs)->Name("Socket_pingPong/ours/1");

void pingPongPlain(benchmark::State &state)
{
    pingPong(
        state,
        [](KIVCS2Socket *near, char byte) { return send(near->m_socket, &byte, 1, MSG_NOSIGNAL) == 1; },
        [](KIVCS2Socket *near, char &byte) { return recv(near->m_socket, &byte, 1, 0) == 1; });
}
BENCHMARK(pingPongPlain)->Name("Socket_pingPong/plain/1");

// Two UDP sockets: each datagram is sent and then received, so none is lost and no call waits.
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
