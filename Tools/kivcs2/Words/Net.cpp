// kivcs2 net: receives and sends data over TCP, UDP and multicast, and reports the amount.
#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Files/Files.h"
#include "Terminal/EndSignals.h"
#include "Terminal/Output.h"
#include "Words/Words.h"

#include <KIVCoreServices2/KIVCS2Socket.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <poll.h>

namespace tool
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kSlice = 100ms;       // longest wait between checks of the end signals and the meter
constexpr uint32_t kLargest = 65507; // bytes in a UDP datagram over IPv4

struct Options
{
    std::string protocol, host;
    int32_t port = 0;
    uint32_t size = 1316;        // seven transport packets
    uint64_t count = UINT64_MAX; // messages
    double rate = 0;             // messages a second; 0: as fast as possible
    uint32_t ttl = 1;
    double timeout = 0; // seconds; 0: without limit
    bool data = false;  // received data to standard output, or standard input to the network
    bool keep = false;  // accept one connection after the other
};

struct FreeSocket
{
    void operator()(KIVCS2Socket *socket) const
    {
        (void)kivCS2Socket_free(socket); // a failure cannot be reported: the peer is gone
    }
};
using Socket = std::unique_ptr<KIVCS2Socket, FreeSocket>;

struct FreeAddress
{
    void operator()(sockaddr_in *address) const
    {
        (void)kivCS2_freeSockAddr(address); // not null: cannot fail
    }
};
using Address = std::unique_ptr<sockaddr_in, FreeAddress>;

std::string place(const Options &options)
{
    return visible(options.host) + ":" + std::to_string(options.port);
}

// Throws the failure of a create operation, with the system's reason if known.
void checkMade(KIVCS2Status status, const std::string &what)
{
    const int error = errno;
    check(status, error != 0 ? what + ": " + std::strerror(error) : what);
}

Address resolve(const Options &options)
{
    sockaddr_in *address = nullptr;
    check(kivCS2_createSockAddr(&address, options.host.c_str(), options.port, 0),
          "no address belongs to " + place(options));
    return Address{address};
}

// Lines that report what happens; on standard error if standard output has data.
class Lines
{
public:
    Lines(bool json, bool onErrors) : m_json{json}, m_to{onErrors ? errors() : out()}
    {
        if (onErrors)
            giveStandardOutputToData();
    }

    void tell(const Json &object, const std::string &text)
    {
        if (m_json)
            m_to.write(jsonText(object) + "\n");
        else
            m_to.line(text);
        m_to.flush();
    }

private:
    bool m_json;
    Output &m_to;
};

// Reports the data transferred: a line each second, and one for the total.
class Meter
{
public:
    explicit Meter(Lines &lines) : m_lines{lines} {}

    void add(uint64_t bytes)
    {
        m_total.bytes += bytes;
        ++m_total.messages;
    }
    void tick()
    {
        const auto now = Clock::now();
        if (now - m_second.from < 1s)
            return;
        line("rate", m_second, now);
        m_second = m_total;
        m_second.from = now;
    }
    void finish()
    {
        line("total", Count{m_total.from, 0, 0}, Clock::now());
    }
    [[nodiscard]] uint64_t messages() const
    {
        return m_total.messages;
    }

private:
    struct Count
    {
        Clock::time_point from = Clock::now();
        uint64_t bytes = 0;
        uint64_t messages = 0;
    };

    void line(const char *kind, const Count &since, Clock::time_point now)
    {
        const double seconds = std::chrono::duration<double>(now - since.from).count();
        const uint64_t bytes = m_total.bytes - since.bytes;
        const uint64_t messages = m_total.messages - since.messages;
        const double bits = seconds > 0 ? static_cast<double>(bytes) * 8 / seconds : 0;
        const double each = seconds > 0 ? static_cast<double>(messages) / seconds : 0;
        m_lines.tell(Json{{"kind", kind},
                          {"seconds", seconds},
                          {"bytes", bytes},
                          {"messages", messages},
                          {"bitsPerSecond", bits},
                          {"messagesPerSecond", each}},
                     print("%-5s  %10.3f Mbit/s  %10.0f messages/s  %s in %.1f s", kind, bits / 1e6, each,
                           count(bytes, "byte").c_str(), seconds));
    }

    Lines &m_lines;
    Count m_total;
    Count m_second;
};

// The work during every wait: updates the meter and checks the end signals.
struct Going
{
    Meter &meter;
    const EndSignals &signals;

    // Returns whether a signal ends the command before `until`; without `until`, whether one has.
    [[nodiscard]] bool toldToEnd(Clock::time_point until = {}) const
    {
        for (;;)
        {
            const auto left = std::clamp<std::chrono::nanoseconds>(until - Clock::now(), 0ns,
                                                                   std::chrono::nanoseconds{kSlice});
            if (signals.waitFor(left) == EndSignals::Event::End)
                return true;
            meter.tick();
            if (left == 0ns)
                return false;
        }
    }
};

// Returns whether a wait was interrupted: on a socket with a time-out, by stopping and continuing the command
// (Ctrl-Z, fg).
bool wasInterrupted(const KIVCS2Socket *socket)
{
    return socket->m_errno == EINTR;
}

std::string reason(const KIVCS2Socket *socket)
{
    return std::strerror(static_cast<int>(socket->m_errno));
}

bool isOver(Clock::time_point since, double seconds)
{
    return seconds > 0 && Clock::now() - since >= std::chrono::duration<double>(seconds);
}

// How receiving from a socket ended; if no flag is set, the peer or a limit ended it.
struct Taken
{
    bool told = false;
    std::optional<Failure> fault;
};

// Receives until the peer ends, `left` messages have come or a signal ends the command.
Taken take(KIVCS2Socket *from, const Options &options, Lines &lines, const EndSignals &signals,
           uint64_t &left)
{
    check(kivCS2Socket_setRecvTimeout(from, 0, std::chrono::microseconds{kSlice}.count()), "time-out");
    Meter meter{lines};
    const Going going{meter, signals};
    std::array<char, 65536> buffer; // as large as the largest datagram
    auto last = Clock::now();
    Taken taken;
    while (left > 0 && !taken.told && !taken.fault)
    {
        uint32_t received = 0;
        const KIVCS2Status status = kivCS2Socket_receiveFrom(
            from, buffer.data(), static_cast<uint32_t>(buffer.size()), false, &received, nullptr, nullptr);
        const bool isEmptyDatagram =
            status == KIVCS2STATUS_CONNECTION_CLOSED_ERR && from->m_type != KIVCS2SocketType_Stream;
        if (isEmptyDatagram || (KIVCS2_SUCCEEDED(status) && !wasInterrupted(from)))
        {
            meter.add(received);
            --left;
            if (options.data)
                out().write({buffer.data(), received});
            last = Clock::now();
        }
        else if (status == KIVCS2STATUS_TIMEOUT_ERR)
        {
            if (isOver(last, options.timeout))
                taken.fault.emplace(kExitTimedOut, print("no data for %g s", options.timeout));
        }
        else if (status == KIVCS2STATUS_CONNECTION_CLOSED_ERR && from->m_errno == 0)
            break;
        else if (status == KIVCS2STATUS_CONNECTION_CLOSED_ERR)
            taken.fault.emplace(status, "the connection was reset");
        else if (KIVCS2_FAILED(status))
            taken.fault.emplace(status, "receiving: " + reason(from));
        taken.told = going.toldToEnd();
    }
    meter.finish();
    return taken;
}

// Returns the next connection; null if a signal ends the command first.
Socket await(KIVCS2Socket *server, const Options &options, const EndSignals &signals)
{
    const auto from = Clock::now();
    for (;;)
    {
        KIVCS2Socket *client = nullptr;
        const KIVCS2Status status =
            kivCS2Socket_accept(server, std::chrono::milliseconds{kSlice}.count(), &client);
        if (KIVCS2_SUCCEEDED(status))
            return Socket{client};
        if (status != KIVCS2STATUS_TIMEOUT_ERR && !wasInterrupted(server))
            throw Failure(status, "accepting: " + reason(server));
        if (signals.waitFor(0ns) == EndSignals::Event::End)
            return nullptr;
        if (isOver(from, options.timeout))
            throw Failure(kExitTimedOut, print("no connection for %g s", options.timeout));
    }
}

int listen(const Options &options, bool json)
{
    const EndSignals signals;
    KIVCS2Socket *made = nullptr;
    checkMade(kivCS2Socket_createServer(&made, options.port, 16,
                                        KIVCS2SocketOption_ReuseAddress | KIVCS2SocketOption_BindNow),
              "listening on port " + std::to_string(options.port));
    const Socket server{made};
    const uint16_t port = ntohs(server->m_addr.sin_port);
    Lines lines{json, options.data};
    lines.tell(Json{{"kind", "listening"}, {"port", port}}, "listening on port " + std::to_string(port));

    for (uint64_t left = options.count; left > 0;)
    {
        const Socket connection = await(server.get(), options, signals);
        if (!connection)
            break;
        const std::string peer = connection->m_host + (":" + std::to_string(connection->m_port));
        lines.tell(Json{{"kind", "connected"}, {"host", connection->m_host}, {"port", connection->m_port}},
                   "connected: " + peer);
        const Taken taken = take(connection.get(), options, lines, signals, left);
        if (taken.fault && !options.keep)
            throw Failure(*taken.fault);
        if (taken.fault)
            note(peer + ": " + taken.fault->what());
        if (taken.told || !options.keep)
            break;
    }
    return kExitYes;
}

int receive(const Options &options, bool json)
{
    const EndSignals signals;
    KIVCS2Socket *made = nullptr;
    if (options.protocol == "tcp")
        checkMade(kivCS2Socket_createClient(&made, options.host.c_str(), options.port, 0),
                  "connecting to " + place(options));
    else if (options.protocol == "udp")
        checkMade(kivCS2Socket_createDatagramReceiver(&made, KIVCS2SocketOption_ReuseAddress,
                                                      resolve(options).get()),
                  "receiving at " + place(options));
    else
        checkMade(kivCS2Socket_createMulticastDatagramReceiver(&made, KIVCS2SocketOption_ReuseAddress,
                                                               resolve(options).get()),
                  "joining " + place(options));
    const Socket socket{made};
    Lines lines{json, options.data};
    uint64_t left = options.count;
    const Taken taken = take(socket.get(), options, lines, signals, left);
    if (taken.fault)
        throw Failure(*taken.fault);
    return kExitYes;
}

// Returns the next message: standard input, or counting bytes. Empty at the end of input or on an end signal.
class Messages
{
public:
    explicit Messages(const Options &options) : m_input{options.data}, m_buffer(options.size, '\0')
    {
        if (m_input)
        {
            const Input source{"-"}; // refuses a file that is standard output too
        }
    }

    [[nodiscard]] std::string_view next(const Going &going)
    {
        if (!m_input)
        {
            const uint32_t number = htonl(m_number++);
            std::memcpy(m_buffer.data(), &number, std::min(sizeof number, m_buffer.size()));
            return m_buffer;
        }
        size_t filled = 0;
        while (filled < m_buffer.size())
        {
            // The end signals are blocked, so a read alone would not notice them.
            pollfd input{STDIN_FILENO, POLLIN, 0};
            if (::poll(&input, 1, std::chrono::milliseconds{kSlice}.count()) == 0)
            {
                if (going.toldToEnd())
                    return {};
                continue;
            }
            const ssize_t size = ::read(STDIN_FILENO, m_buffer.data() + filled, m_buffer.size() - filled);
            if (size < 0)
                throw Failure::system("standard input", errno);
            if (size == 0)
                break;
            filled += static_cast<size_t>(size);
        }
        return {m_buffer.data(), filled};
    }

private:
    bool m_input;
    std::string m_buffer;
    uint32_t m_number = 0;
};

Socket makeSender(const Options &options)
{
    KIVCS2Socket *made = nullptr;
    if (options.protocol == "tcp")
        checkMade(kivCS2Socket_createClient(&made, options.host.c_str(), options.port, 0),
                  "connecting to " + place(options));
    else if (options.protocol == "udp")
        checkMade(kivCS2Socket_createDatagramSender(&made, 0), "socket");
    else
        checkMade(kivCS2Socket_createMulticastDatagramSender(&made, options.ttl, 0), "socket");
    return Socket{made};
}

// Sends the whole message; returns false if a signal ends the command first.
bool sendAll(KIVCS2Socket *socket, const sockaddr_in *to, std::string_view message, const Going &going)
{
    while (!message.empty())
    {
        uint32_t sent = 0;
        const auto size = static_cast<uint32_t>(message.size());
        const KIVCS2Status status = to != nullptr
                                        ? kivCS2Socket_sendTo(socket, to, message.data(), size, &sent)
                                        : kivCS2Socket_send(socket, message.data(), size, &sent);
        if (KIVCS2_SUCCEEDED(status))
            message.remove_prefix(sent);
        else if (status != KIVCS2STATUS_TIMEOUT_ERR && !wasInterrupted(socket))
            throw Failure(status, "sending: " + reason(socket));
        else if (going.toldToEnd())
            return false;
    }
    return true;
}

int send(const Options &options, bool json)
{
    if (options.protocol != "tcp" && options.size > kLargest)
        throw Failure(kExitUsage, "a datagram has " + std::to_string(kLargest) + " bytes at most");
    const EndSignals signals;
    const Address to = options.protocol == "tcp" ? nullptr : resolve(options);
    const Socket socket = makeSender(options);
    check(kivCS2Socket_setSendTimeout(socket.get(), 0, std::chrono::microseconds{kSlice}.count()),
          "time-out");

    Messages messages{options};
    Lines lines{json, false};
    Meter meter{lines};
    const Going going{meter, signals};
    constexpr double kLongest = 1e9; // seconds: 31 years, and within the numbers of the clock
    const std::chrono::duration<double> interval{options.rate > 0 ? std::min(1 / options.rate, kLongest) : 0};
    auto due = Clock::now();
    try
    {
        for (;;)
        {
            const std::string_view message = messages.next(going);
            if (message.empty() || !sendAll(socket.get(), to.get(), message, going))
                break;
            meter.add(message.size());
            due += std::chrono::duration_cast<Clock::duration>(interval);
            if (meter.messages() == options.count || going.toldToEnd(due))
                break;
        }
    }
    catch (const Failure &)
    {
        meter.finish(); // the amount until then
        throw;
    }
    meter.finish();
    return kExitYes;
}

void addPlace(Word &word, Options &options, const char *host)
{
    word.option("protocol", options.protocol, "tcp, udp or group (multicast)")
        .required()
        .among({"tcp", "udp", "group"});
    word.option("host", options.host, host).required();
    word.option("port", options.port, {1, 65535}, "Port").required();
}

void addCount(Word &word, Options &options)
{
    word.option("--count", options.count, Bounds{1}, "End after this many messages");
}

void addTaking(Word &word, Options &options)
{
    addCount(word, options);
    word.option("--timeout", options.timeout, {0.0, 1e6}, "Fail if no data comes for this many seconds");
    word.flag("--data", options.data, "Write the data to standard output, the meter to standard error");
}

void addSending(Word &word, Options &options)
{
    addCount(word, options);
    word.option("--size", options.size, {1, 1u << 20}, "Bytes of a message").shownDefault();
    word.option("--rate", options.rate, {0.0, 1e7}, "Messages a second; 0 sends as fast as possible");
    word.option("--ttl", options.ttl, {0, 255}, "Routers that a datagram to a group may pass, plus 1")
        .shownDefault();
    word.flag("--input", options.data, "Send standard input in messages of --size bytes");
}

} // namespace

void addNetCommand(Word &root, Context &context)
{
    const auto options = std::make_shared<Options>();
    Word &net = root.word("net", "Send and receive over TCP, UDP and multicast, with a rate meter");
    net.group(kGroupNetwork);
    net.about("A line each second reports the traffic; with --json each line is an object.");
    const auto runs = [&context, options](Word &word, int (*body)(const Options &, bool))
    {
        word.runs(
            [&context, options, body]
            {
                // The library's messages must not mix with the lines; each comes with a status.
                keepStandardOutput();
                return body(*options, context.json);
            });
    };

    Word &listening = net.word("listen", "Accept a TCP connection and receive its data");
    listening.option("port", options->port, {0, 65535}, "Port").required();
    addTaking(listening, *options);
    listening.flag("--keep", options->keep, "Accept one connection after the other");
    listening.about(
        "Binds all addresses of the machine, accepts one connection, and ends with it. Exit code 6: no\n"
        "connection or no data for --timeout seconds.");
    listening.example("kivcs2 net listen 5004 --timeout 2 --data > received.bin");
    runs(listening, listen);

    Word &receiving = net.word("recv", "Receive from a TCP server, on a UDP address or in a group");
    addPlace(receiving, *options, "Server, local address or group");
    addTaking(receiving, *options);
    receiving.about(
        "Joins the group, binds the address, or connects to the server, and counts the data until\n"
        "--count messages or a signal. Exit code 6: no data for --timeout seconds.");
    receiving.example("kivcs2 net recv udp 127.0.0.1 5004 --timeout 2");
    runs(receiving, receive);

    Word &sending = net.word("send", "Send numbered messages, or standard input");
    addPlace(sending, *options, "Server, receiver or group");
    addSending(sending, *options);
    sending.about(
        "Sends --count messages, or until a signal or the end of the input, --rate of them a second.\n"
        "Prints messages and bytes. Exit code 4: the peer is not there, or has gone.");
    sending.example("kivcs2 net send udp 127.0.0.1 5004 --rate 1000 --count 1500");
    runs(sending, send);
}

} // namespace tool
