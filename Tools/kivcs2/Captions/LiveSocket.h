// The sockets of live captions: a sender to an address or a group, and a receiver at one.
#ifndef KIV_TOOL_CAPTION_LIVE_SOCKET_H
#define KIV_TOOL_CAPTION_LIVE_SOCKET_H

#include <KIVCoreServices2/KIVCS2Socket.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tool
{

/// "udp://239.1.1.1:20000" with a host name, an address or a group.
struct LiveAddress
{
    std::string host;
    uint16_t port = 0;

    /// Throws a usage failure for any other text.
    explicit LiveAddress(const std::string &url);
};

/// A datagram socket. Throws failures of the system with their reason.
class LiveSocket
{
public:
    /// Sends to `to`. A group is reached through `interface`, an address or a name; if empty, by the routes.
    [[nodiscard]] static LiveSocket sender(const LiveAddress &to, const std::string &interface, uint32_t ttl);

    /// Receives datagrams sent to `at`, and joins it if it is a group.
    [[nodiscard]] static LiveSocket receiver(const LiveAddress &at, const std::string &interface);

    void send(std::span<const uint8_t> datagram);

    /// Receives a datagram; waits at most 100 ms for it, or not at all if `waits` is false. Returns false if
    /// none came.
    [[nodiscard]] bool receive(std::vector<uint8_t> &datagram, bool waits);

private:
    struct Free
    {
        void operator()(KIVCS2Socket *socket) const
        {
            (void)kivCS2Socket_free(socket); // fails for a sender, which has no group to leave
        }
    };

    explicit LiveSocket(const LiveAddress &peer);
    [[nodiscard]] bool isGroup() const;
    void refuseInterface(const std::string &interface) const;
    void setInterface(int option, const std::string &interface, const std::string &what);
    void check(KIVCS2Status status, const std::string &what) const;

    std::string m_name;
    sockaddr_in m_address{};
    std::unique_ptr<KIVCS2Socket, Free> m_socket;
};

} // namespace tool

#endif
