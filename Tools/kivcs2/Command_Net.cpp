// kivcs2 net: takes and sends data over TCP, UDP and multicast, and says how much of it goes by.
#include "Command.h"
#include "EndSignals.h"
#include "Failure.h"
#include "Output.h"

#include <KIVCoreServices2/KIVCS2Socket.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <poll.h>

namespace tool
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kSlice = 100000;  // microseconds a wait lasts before the end signals are looked at
constexpr uint32_t kLargest = 65507; // bytes in a UDP datagram over IPv4

struct Options
{
    std::string protocol, host;
    int32_t port = 0;
    uint32_t size = 1316; // seven transport packets
    uint64_t count = 0;   // messages; 0: without end
    double rate = 0;      // messages a second; 0: as fast as it goes
    uint32_t ttl = 1;
    double timeout = 0; // seconds; 0: without end
    bool data = false;  // received data to standard output, or standard input to the network
};

struct FreeSocket
{
    void operator()(KIVCS2Socket *socket) const
    {
        (void)kivCS2Socket_free(socket); // of what the peer no longer hears, nothing can be told
    }
};
using Socket = std::unique_ptr<KIVCS2Socket, FreeSocket>;

struct FreeAddress
{
    void operator()(sockaddr_in *address) const
    {
        (void)kivCS2_freeSockAddr(address); // not null
    }
};
using Address = std::unique_ptr<sockaddr_in, FreeAddress>;

std::string place(const Options &options)
{
    return visible(options.host) + ":" + std::to_string(options.port);
}

Address resolve(const Options &options)
{
    sockaddr_in *address = nullptr;
    check(kivCS2_createSockAddr(&address, options.host.c_str(), options.port, 0), place(options));
    return Address{address};
}

// What went by: a line a second, and one for all of it. With data on standard output the lines are on
// standard error.
class Meter
{
public:
    Meter(bool json, bool onErrors) : m_json{json}, m_to{onErrors ? errors() : out()} {}

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
        if (m_json)
            m_to.line(Json{
                {"kind", kind},
                {"seconds", seconds},
                {"bytes", bytes},
                {"messages", messages},
                {"bitsPerSecond", bits},
                {"messagesPerSecond",
                 each}}.dump());
        else
            m_to.line(print("%-5s  %10.3f Mbit/s  %10.0f messages/s  %s in %.1f s", kind, bits / 1e6, each,
                            count(bytes, "byte").c_str(), seconds));
        m_to.flush();
    }

    bool m_json;
    Output &m_to;
    Count m_total;
    Count m_second;
};

bool toldToEnd(const EndSignals &signals)
{
    return signals.waitFor(0ns) == EndSignals::Event::End;
}

// Takes what comes until the peer ends, a limit is reached or the command is told to end.
int take(KIVCS2Socket *from, const Options &options, bool json, const EndSignals &signals)
{
    check(kivCS2Socket_setRecvTimeout(from, 0, kSlice), "time-out");
    Meter meter{json, options.data};
    std::array<char, 65536> buffer; // as large as the largest datagram
    auto last = Clock::now();
    bool timedOut = false;
    while ((options.count == 0 || meter.messages() < options.count) && !timedOut)
    {
        uint32_t received = 0;
        // receiveFrom prints nothing, and standard output is taken.
        const KIVCS2Status status = kivCS2Socket_receiveFrom(
            from, buffer.data(), static_cast<uint32_t>(buffer.size()), false, &received, nullptr, nullptr);
        if (status == KIVCS2STATUS_TIMEOUT_ERR)
        {
            timedOut =
                options.timeout > 0 && Clock::now() - last >= std::chrono::duration<double>(options.timeout);
        }
        else if (status == KIVCS2STATUS_CONNECTION_CLOSED_ERR)
        {
            if (from->m_errno != 0)
                throw Failure(status, "the connection was reset");
            if (from->m_type == KIVCS2SocketType_Stream)
                break;
            meter.add(0); // a datagram without contents
        }
        else
        {
            check(status, "receiving");
            meter.add(received);
            if (options.data)
                out().write({buffer.data(), received});
            last = Clock::now();
        }
        meter.tick();
        if (toldToEnd(signals))
            break;
    }
    meter.finish();
    if (timedOut)
        throw Failure(kExitTimedOut, print("nothing came for %g s", options.timeout));
    return kExitYes;
}

int listen(const Options &options, bool json)
{
    const EndSignals signals;
    KIVCS2Socket *made = nullptr;
    check(kivCS2Socket_createServer(&made, options.port, 16,
                                    KIVCS2SocketOption_ReuseAddress | KIVCS2SocketOption_BindNow),
          "port " + std::to_string(options.port));
    const Socket server{made};
    const uint16_t port = ntohs(server->m_addr.sin_port);
    Output &to = options.data ? errors() : out();
    if (json)
        to.line(Json{{"kind", "listening"}, {"port", port}}.dump());
    else
        to.line("listening on port " + std::to_string(port));
    to.flush();

    const auto from = Clock::now();
    KIVCS2Socket *client = nullptr;
    for (;;)
    {
        const KIVCS2Status status = kivCS2Socket_accept(server.get(), kSlice / 1000, &client);
        if (KIVCS2_SUCCEEDED(status))
            break;
        if (status != KIVCS2STATUS_TIMEOUT_ERR)
            throw Failure(status, "accepting");
        if (toldToEnd(signals))
            return kExitYes;
        if (options.timeout > 0 && Clock::now() - from >= std::chrono::duration<double>(options.timeout))
            throw Failure(kExitTimedOut, print("nobody came for %g s", options.timeout));
    }
    const Socket connection{client};
    if (json)
        to.line(Json{{"kind", "connected"}, {"host", client->m_host}, {"port", client->m_port}}.dump());
    else
        to.line("connected: " + std::string{client->m_host} + ":" + std::to_string(client->m_port));
    to.flush();
    return take(client, options, json, signals);
}

int receive(const Options &options, bool json)
{
    const EndSignals signals;
    KIVCS2Socket *made = nullptr;
    if (options.protocol == "tcp")
        check(kivCS2Socket_createClient(&made, options.host.c_str(), options.port, 0), place(options));
    else if (options.protocol == "udp")
        check(kivCS2Socket_createDatagramReceiver(&made, KIVCS2SocketOption_ReuseAddress,
                                                  resolve(options).get()),
              place(options));
    else
        check(kivCS2Socket_createMulticastDatagramReceiver(&made, KIVCS2SocketOption_ReuseAddress,
                                                           resolve(options).get()),
              place(options));
    const Socket socket{made};
    return take(socket.get(), options, json, signals);
}

// The next message: standard input, or bytes that count. Empty at the end of the input, and when told to end.
class Messages
{
public:
    explicit Messages(const Options &options) : m_input{options.data}, m_buffer(options.size, '\0') {}

    [[nodiscard]] std::string_view next(const EndSignals &signals)
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
            // The end signals are blocked, so that a read alone would wait through them.
            pollfd input{STDIN_FILENO, POLLIN, 0};
            if (::poll(&input, 1, kSlice / 1000) == 0)
            {
                if (toldToEnd(signals))
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
        check(kivCS2Socket_createClient(&made, options.host.c_str(), options.port, 0), place(options));
    else if (options.protocol == "udp")
        check(kivCS2Socket_createDatagramSender(&made, 0), "socket");
    else
        check(kivCS2Socket_createMulticastDatagramSender(&made, options.ttl, 0), "socket");
    return Socket{made};
}

// Sends the whole message; false when the command is to end first.
bool sendAll(KIVCS2Socket *socket, const sockaddr_in *to, std::string_view message, const EndSignals &signals)
{
    while (!message.empty())
    {
        uint32_t sent = 0;
        const auto size = static_cast<uint32_t>(message.size());
        const KIVCS2Status status = to != nullptr
                                        ? kivCS2Socket_sendTo(socket, to, message.data(), size, &sent)
                                        : kivCS2Socket_send(socket, message.data(), size, &sent);
        if (status == KIVCS2STATUS_TIMEOUT_ERR)
        {
            if (toldToEnd(signals))
                return false;
            continue;
        }
        if (KIVCS2_FAILED(status))
            throw Failure(status,
                          std::string{"sending: "} + std::strerror(static_cast<int>(socket->m_errno)));
        message.remove_prefix(sent);
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
    check(kivCS2Socket_setSendTimeout(socket.get(), 0, kSlice), "time-out");

    Messages messages{options};
    Meter meter{json, false};
    auto due = Clock::now();
    while (options.count == 0 || meter.messages() < options.count)
    {
        const std::string_view message = messages.next(signals);
        if (message.empty() || !sendAll(socket.get(), to.get(), message, signals))
            break;
        meter.add(message.size());
        meter.tick();
        if (options.rate > 0)
            due +=
                std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / options.rate));
        const auto wait =
            options.rate > 0 ? std::max<std::chrono::nanoseconds>(due - Clock::now(), 0ns) : 0ns;
        if (signals.waitFor(wait) == EndSignals::Event::End)
            break;
    }
    meter.finish();
    return kExitYes;
}

} // namespace

void addNetCommand(CLI::App &app, Context &context)
{
    const auto options = std::make_shared<Options>();
    CLI::App *group =
        app.add_subcommand("net", "Send and receive over TCP, UDP and multicast, with a rate meter");
    group->require_subcommand(1);
    group->footer("A line a second says how much goes by; with --json each line is an object.");

    const auto withPort = [options](CLI::App *word, int least)
    {
        word->add_option("port", options->port, "Port")->required()->check(CLI::Range(least, 65535));
    };
    const auto withPlace = [options, withPort](CLI::App *word, const char *host)
    {
        word->add_option("protocol", options->protocol, "tcp, udp or group (multicast)")
            ->required()
            ->check(CLI::IsMember({"tcp", "udp", "group"}));
        word->add_option("host", options->host, host)->required();
        withPort(word, 1);
    };
    const auto withLimits = [options](CLI::App *word)
    {
        word->add_option("--count", options->count, "End after so many messages");
    };
    const auto withTaking = [options, withLimits](CLI::App *word)
    {
        withLimits(word);
        word->add_option("--timeout", options->timeout, "Fail when nothing comes for so many seconds")
            ->check(CLI::Range(0.0, 1e6));
        word->add_flag("--data", options->data,
                       "Write what comes to standard output, the meter to standard error");
    };

    CLI::App *word = group->add_subcommand("listen", "Take one TCP connection and what it sends");
    withPort(word, 0);
    withTaking(word);
    word->callback(
        [&context, options]
        {
            context.run = [&context, options]
            {
                return listen(*options, context.json);
            };
        });

    word = group->add_subcommand("recv", "Receive from a TCP server, on a UDP address or in a group");
    withPlace(word, "Server, local address or group");
    withTaking(word);
    word->callback(
        [&context, options]
        {
            context.run = [&context, options]
            {
                return receive(*options, context.json);
            };
        });

    word = group->add_subcommand("send", "Send numbered messages, or standard input");
    withPlace(word, "Server, receiver or group");
    withLimits(word);
    word->add_option("--size", options->size, "Bytes a message")
        ->capture_default_str()
        ->check(CLI::Range(1, 1 << 20));
    word->add_option("--rate", options->rate, "Messages a second; 0 sends as fast as it goes")
        ->check(CLI::Range(0.0, 1e7));
    word->add_option("--ttl", options->ttl, "Routers that a datagram to a group may pass, plus 1")
        ->capture_default_str()
        ->check(CLI::Range(0, 255));
    word->add_flag("--input", options->data, "Send standard input in messages of --size bytes");
    word->callback(
        [&context, options]
        {
            context.run = [&context, options]
            {
                return send(*options, context.json);
            };
        });
}

} // namespace tool
