// Networks for one test: namespaces joined by pairs of virtual Ethernet interfaces, with real addresses
// and multicast routes. A namespace has no name and no file, so the kernel removes it with its interfaces
// after the last descriptor, socket and thread in it, even if the test is killed.
#ifndef KIV_TEST_NETWORK_NAMESPACE_H
#define KIV_TEST_NETWORK_NAMESPACE_H

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <net/route.h>
#include <optional>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

// First line of a test that makes namespaces. If that is not allowed, the test is skipped with a message.
#define KIV_NEEDS_NETWORK_NAMESPACES()                                                                       \
    do                                                                                                       \
    {                                                                                                        \
        if (const std::string reason = kiv::test::NetworkNamespace::unavailable(); !reason.empty())          \
            GTEST_SKIP() << reason;                                                                          \
    } while (false)

namespace kiv::test
{
namespace detail
{
class Descriptor
{
public:
    Descriptor(int fd, const char *what) : m_fd{fd}
    {
        if (fd < 0)
            throw std::system_error{errno, std::generic_category(), what};
    }
    Descriptor(Descriptor &&other) noexcept : m_fd{std::exchange(other.m_fd, -1)} {}
    Descriptor &operator=(Descriptor &&) = delete;
    ~Descriptor()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    [[nodiscard]] int get() const
    {
        return m_fd;
    }

private:
    int m_fd;
};

inline void require(int result, const char *what)
{
    if (result < 0)
        throw std::system_error{errno, std::generic_category(), what};
}

// A message to the routing part of the kernel, built by appending.
class NetlinkRequest
{
public:
    NetlinkRequest(uint16_t type, uint16_t flags)
    {
        header().nlmsg_len = NLMSG_LENGTH(0);
        header().nlmsg_type = type;
        header().nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    }
    void append(const void *data, size_t size)
    {
        if (NLMSG_ALIGN(header().nlmsg_len) + NLMSG_ALIGN(size) > sizeof m_bytes)
            throw std::length_error{"netlink message"};
        if (size > 0)
            std::memcpy(m_bytes + NLMSG_ALIGN(header().nlmsg_len), data, size);
        header().nlmsg_len = static_cast<uint32_t>(NLMSG_ALIGN(header().nlmsg_len) + NLMSG_ALIGN(size));
    }
    void attribute(uint16_t type, const void *data, size_t size)
    {
        const rtattr head{static_cast<uint16_t>(RTA_LENGTH(size)), type};
        append(&head, sizeof head);
        append(data, size);
    }
    void attribute(uint16_t type, const std::string &text)
    {
        attribute(type, text.c_str(), text.size() + 1);
    }
    // Begins an attribute that contains all appended bytes until endNested() receives the result.
    [[nodiscard]] uint32_t beginNested(uint16_t type)
    {
        const uint32_t at = header().nlmsg_len;
        attribute(type, nullptr, 0);
        return at;
    }
    void endNested(uint32_t at)
    {
        const auto size = static_cast<uint16_t>(header().nlmsg_len - at);
        std::memcpy(m_bytes + at, &size, sizeof size); // rtattr::rta_len
    }
    // Sends the message in the namespace of the calling thread and waits for the reply of the kernel.
    void send()
    {
        const Descriptor netlink{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE), "netlink"};
        require(static_cast<int>(::send(netlink.get(), m_bytes, header().nlmsg_len, 0)), "netlink send");
        alignas(nlmsghdr) char answer[4096];
        const ssize_t size = recv(netlink.get(), answer, sizeof answer, 0);
        require(static_cast<int>(size), "netlink receive");
        nlmsgerr error{};
        std::memcpy(&error, answer + NLMSG_HDRLEN, sizeof error.error);
        if (error.error != 0)
            throw std::system_error{-error.error, std::generic_category(), "netlink"};
    }

private:
    nlmsghdr &header()
    {
        return *reinterpret_cast<nlmsghdr *>(m_bytes);
    }
    alignas(nlmsghdr) char m_bytes[1024]{};
};

inline sockaddr addressOf(const char *text)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (inet_pton(AF_INET, text, &address.sin_addr) != 1)
        throw std::invalid_argument{text};
    sockaddr generic{};
    std::memcpy(&generic, &address, sizeof generic);
    return generic;
}

// Makes this user root in a user namespace of the process, unless it is root already. The kernel
// refuses this to processes with more than one thread.
inline void becomeRoot()
{
    if (geteuid() == 0)
        return;
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    require(unshare(CLONE_NEWUSER), "user namespace");
    const auto write = [](const char *path, const std::string &text)
    {
        const Descriptor file{open(path, O_WRONLY | O_CLOEXEC), path};
        require(static_cast<int>(::write(file.get(), text.data(), text.size())), path);
    };
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", "0 " + user + " 1");
    write("/proc/self/gid_map", "0 " + group + " 1");
}
} // namespace detail

class NetworkNamespace
{
public:
    // Empty if a test may make namespaces with interfaces; otherwise the reason why not.
    static const std::string &unavailable()
    {
        static const std::string reason = []() -> std::string
        {
            try
            {
                detail::becomeRoot();
                NetworkNamespace near;
                NetworkNamespace far;
                near.join("10.255.255.1", far, "10.255.255.2");
                return "";
            }
            catch (const std::exception &error)
            {
                return std::string{"network namespaces cannot be made here: "} + error.what();
            }
        }();
        return reason;
    }

    // Makes a namespace with its loopback interface up. Throws std::system_error.
    NetworkNamespace() : m_namespace{make()}
    {
        run([] { setUp("lo"); });
    }

    // Makes a pair of interfaces between this namespace and another, both up, with addresses in a
    // /24 network. The route to all groups uses the first pair. A second pair has its own interface name.
    void join(const char *address, NetworkNamespace &other, const char *otherAddress,
              const char *interface = kInterface)
    {
        run(
            [&other, interface]
            {
                detail::NetlinkRequest request{RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL};
                const ifinfomsg link{};
                request.append(&link, sizeof link);
                request.attribute(IFLA_IFNAME, interface);
                const uint32_t info = request.beginNested(IFLA_LINKINFO);
                request.attribute(IFLA_INFO_KIND, "veth");
                const uint32_t data = request.beginNested(IFLA_INFO_DATA);
                const uint32_t peer = request.beginNested(VETH_INFO_PEER);
                request.append(&link, sizeof link);
                request.attribute(IFLA_IFNAME, interface);
                const int namespaceOfPeer = other.m_namespace.get();
                request.attribute(IFLA_NET_NS_FD, &namespaceOfPeer, sizeof namespaceOfPeer);
                request.endNested(peer);
                request.endNested(data);
                request.endNested(info);
                request.send();
            });
        run([&] { configure(address, interface); });
        other.run([&] { configure(otherAddress, interface); });
        awaitTraffic(other, otherAddress);
        other.awaitTraffic(*this, address);
    }

    // Takes the interface down, as if its cable were pulled, or up again.
    void setCable(bool plugged)
    {
        run(
            [plugged]
            {
                setUp(kInterface, plugged);
                if (plugged)
                    addGroupRoute();
            });
    }

    // Moves the calling thread into the namespace for ever: for a child process or a thread of a test.
    void enter() const
    {
        detail::require(setns(m_namespace.get(), CLONE_NEWNET), "setns");
    }

    // Runs `body` on its own thread inside the namespace and waits for it. Sockets that it makes stay in the
    // namespace, whichever thread uses them later.
    void run(const std::function<void()> &body) const
    {
        std::exception_ptr failure;
        std::thread inside{[&]
                           {
                               try
                               {
                                   enter();
                                   body();
                               }
                               catch (...)
                               {
                                   failure = std::current_exception();
                               }
                           }};
        inside.join();
        if (failure)
            std::rethrow_exception(failure);
    }

    static constexpr const char *kInterface = "pair0"; // in both namespaces

private:
    static detail::Descriptor make()
    {
        int made = -1;
        int error = 0;
        std::thread maker{[&made, &error]
                          {
                              if (unshare(CLONE_NEWNET) == 0)
                                  made = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
                              error = errno;
                          }};
        maker.join();
        errno = error;
        return detail::Descriptor{made, "network namespace"};
    }

    static ifreq named(const char *interface)
    {
        ifreq request{};
        std::strncpy(request.ifr_name, interface, IFNAMSIZ - 1);
        return request;
    }
    static detail::Descriptor control()
    {
        return detail::Descriptor{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"};
    }
    static void setUp(const char *interface, bool up = true)
    {
        const detail::Descriptor descriptor = control();
        ifreq request = named(interface);
        detail::require(ioctl(descriptor.get(), SIOCGIFFLAGS, &request), "interface flags");
        const int flags = up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP;
        request.ifr_flags = static_cast<short>(flags);
        detail::require(ioctl(descriptor.get(), SIOCSIFFLAGS, &request), "interface up");
    }
    static void addGroupRoute()
    {
        const detail::Descriptor descriptor = control();
        std::string interface {
            kInterface
        };
        rtentry route{};
        route.rt_dst = detail::addressOf("224.0.0.0");
        route.rt_genmask = detail::addressOf("240.0.0.0");
        route.rt_flags = RTF_UP;
        route.rt_dev = interface.data();
        detail::require(ioctl(descriptor.get(), SIOCADDRT, &route), "route to groups");
    }
    static void configure(const char *address, const std::string &interface)
    {
        const detail::Descriptor descriptor = control();
        ifreq request = named(interface.c_str());
        request.ifr_addr = detail::addressOf(address);
        detail::require(ioctl(descriptor.get(), SIOCSIFADDR, &request), "address");
        request.ifr_netmask = detail::addressOf("255.255.255.0");
        detail::require(ioctl(descriptor.get(), SIOCSIFNETMASK, &request), "mask");
        setUp(interface.c_str());
        if (interface == kInterface)
            addGroupRoute();
    }

    // The kernel drops packets for some time after an interface is up.
    void awaitTraffic(const NetworkNamespace &other, const char *otherAddress) const
    {
        std::optional<detail::Descriptor> from;
        std::optional<detail::Descriptor> to;
        sockaddr meeting = detail::addressOf(otherAddress);
        const uint16_t port = htons(9); // discard
        std::memcpy(meeting.sa_data, &port, sizeof port);
        other.run(
            [&]
            {
                to.emplace(control());
                detail::require(bind(to->get(), &meeting, sizeof meeting), "probe");
            });
        run(
            [&]
            {
                from.emplace(control());
                detail::require(connect(from->get(), &meeting, sizeof meeting), "probe");
            });
        for (int attempt = 0; attempt < 3000; ++attempt)
        {
            (void)::send(from->get(), "", 1, 0); // fails until there is a route
            pollfd asked{to->get(), POLLIN, 0};
            if (poll(&asked, 1, 10) == 1)
                return;
        }
        throw std::runtime_error{std::string{"nothing reaches "} + otherAddress};
    }

    detail::Descriptor m_namespace;
};
} // namespace kiv::test

#endif
