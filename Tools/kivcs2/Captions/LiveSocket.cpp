// The sockets of live captions.
#include "Captions/LiveSocket.h"

#include "CommandLine/Numbers.h"
#include "Failure.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <net/if.h>

namespace tool
{
namespace
{

constexpr std::chrono::microseconds kSlice = std::chrono::milliseconds{100};
constexpr size_t kLargest = 65536;          // room for any datagram
constexpr uint32_t kReceiveRoom = 1u << 21; // bytes that may wait while a terminal is slow

// Throws the failure of a create operation, with the system's reason if there is one.
void checkMade(KIVCS2Status status, const std::string &what)
{
    const int error = errno;
    check(status, error != 0 ? what + ": " + std::strerror(error) : what);
}

Failure noInterface(const std::string &interface)
{
    return {kExitNotHere, "no interface has the name or the address " + visible(interface)};
}

ip_mreqn membership(const in_addr &group, const std::string &interface)
{
    ip_mreqn request{};
    request.imr_multiaddr = group;
    if (interface.empty() || ::inet_pton(AF_INET, interface.c_str(), &request.imr_address) == 1)
        return request;
    request.imr_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
    if (request.imr_ifindex == 0)
        throw noInterface(interface);
    return request;
}

} // namespace

LiveAddress::LiveAddress(const std::string &url)
{
    constexpr std::string_view kScheme = "udp://";
    const size_t colon = url.rfind(':');
    const bool hasPort = colon < url.size() && colon > kScheme.size();
    // 0 is not a port, so it is used for a text that is not a number.
    const uint64_t number = hasPort ? wholeNumber(std::string_view{url}.substr(colon + 1)).value_or(0) : 0;
    if (!url.starts_with(kScheme) || number == 0 || number > UINT16_MAX)
        throw Failure(kExitUsage, "\"" + visible(url) + "\" is not an address such as udp://239.1.1.1:20000");
    host = url.substr(kScheme.size(), colon - kScheme.size());
    if (host.find(':') != std::string::npos)
        throw Failure(kExitUsage, "\"" + visible(url) + "\" has an IPv6 address; captions go over IPv4");
    port = static_cast<uint16_t>(number);
}

LiveSocket::LiveSocket(const LiveAddress &peer) : m_name(visible(peer.host) + ":" + std::to_string(peer.port))
{
    sockaddr_in *address = nullptr;
    tool::check(kivCS2_createSockAddr(&address, peer.host.c_str(), peer.port, 0),
                "no address belongs to " + m_name);
    m_address = *address;
    (void)kivCS2_freeSockAddr(address); // not null
}

bool LiveSocket::isGroup() const
{
    return IN_MULTICAST(ntohl(m_address.sin_addr.s_addr));
}

// Joins the group, or sends to it, through the interface.
void LiveSocket::setInterface(int option, const std::string &interface, const std::string &what)
{
    const ip_mreqn through = membership(m_address.sin_addr, interface);
    const KIVCS2Status status =
        kivCS2Socket_setOption(m_socket.get(), IPPROTO_IP, option, &through, sizeof through);
    const auto error = static_cast<int>(m_socket->m_errno);
    if (KIVCS2_FAILED(status) && !interface.empty() && (error == ENODEV || error == EADDRNOTAVAIL))
        throw noInterface(interface);
    check(status, what);
}

void LiveSocket::refuseInterface(const std::string &interface) const
{
    if (!interface.empty() && !isGroup())
        throw Failure(kExitUsage, "--interface is for a group, and " + m_name + " is not one");
}

void LiveSocket::check(KIVCS2Status status, const std::string &what) const
{
    if (KIVCS2_FAILED(status))
        throw Failure(status,
                      what + " " + m_name + ": " + std::strerror(static_cast<int>(m_socket->m_errno)));
}

LiveSocket LiveSocket::sender(const LiveAddress &to, const std::string &interface, uint32_t ttl)
{
    LiveSocket made{to};
    made.refuseInterface(interface);
    KIVCS2Socket *socket = nullptr;
    checkMade(made.isGroup() ? kivCS2Socket_createMulticastDatagramSender(&socket, ttl, 0)
                             : kivCS2Socket_createDatagramSender(&socket, 0),
              "socket");
    made.m_socket.reset(socket);
    if (!interface.empty())
        made.setInterface(IP_MULTICAST_IF, interface, "sending through " + visible(interface) + " to");
    return made;
}

LiveSocket LiveSocket::receiver(const LiveAddress &at, const std::string &interface)
{
    LiveSocket made{at};
    made.refuseInterface(interface);
    KIVCS2Socket *socket = nullptr;
    checkMade(kivCS2Socket_createDatagramReceiver(
                  &socket, made.isGroup() ? KIVCS2SocketOption_ReuseAddress : 0, &made.m_address),
              "receiving at " + made.m_name);
    made.m_socket.reset(socket);
    if (made.isGroup())
    {
        // Otherwise the socket also receives groups that other programs on this machine joined through other
        // interfaces.
        constexpr int kOthers = 0;
        made.check(kivCS2Socket_setOption(socket, IPPROTO_IP, IP_MULTICAST_ALL, &kOthers, sizeof kOthers),
                   "joining");
        made.setInterface(IP_ADD_MEMBERSHIP, interface, "joining");
    }
    (void)kivCS2Socket_setRecvBufSize(socket, kReceiveRoom); // may fail: less room will do
    made.check(kivCS2Socket_setRecvTimeout(socket, 0, static_cast<uint32_t>(kSlice.count())), "time-out of");
    return made;
}

void LiveSocket::send(std::span<const uint8_t> datagram)
{
    KIVCS2Status status = KIVCS2STATUS_OK;
    do
        status = kivCS2Socket_sendTo(m_socket.get(), &m_address, datagram.data(),
                                     static_cast<uint32_t>(datagram.size()), nullptr);
    while (KIVCS2_FAILED(status) && m_socket->m_errno == EINTR);
    check(status, "sending to");
}

bool LiveSocket::receive(std::vector<uint8_t> &datagram, bool waits)
{
    if (!waits && kivCS2Socket_testRead(m_socket.get()) == KIVCS2STATUS_EOF_ERR)
        return false;
    datagram.resize(kLargest);
    uint32_t received = 0;
    const KIVCS2Status status = kivCS2Socket_receiveFrom(m_socket.get(), datagram.data(), kLargest, false,
                                                         &received, nullptr, nullptr);
    const bool isEmpty = status == KIVCS2STATUS_CONNECTION_CLOSED_ERR && m_socket->m_errno == 0;
    const bool hasCome = isEmpty || (KIVCS2_SUCCEEDED(status) && m_socket->m_errno != EINTR);
    datagram.resize(hasCome && !isEmpty ? received : 0);
    if (!hasCome && KIVCS2_FAILED(status) && status != KIVCS2STATUS_TIMEOUT_ERR)
        check(status, "receiving at");
    return hasCome;
}

} // namespace tool
