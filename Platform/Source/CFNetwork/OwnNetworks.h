// The networks of this machine; they decide when the addresses of a host are complete.
#ifndef KIV_PLATFORM_OWN_NETWORKS_H
#define KIV_PLATFORM_OWN_NETWORKS_H

#include <netinet/in.h>
#include <span>
#include <vector>

namespace kiv::discovery
{
// The IPv4 networks that multicast DNS uses, at one moment. On each network that it shares with this machine
// a host responds with its address there (RFC 6762, 6.2), in separate packets at different times.
class OwnNetworks
{
public:
    struct Entry
    {
        int interface;
        in_addr address;
        bool isLoopback;
        bool hasCarrier;
    };

    OwnNetworks() = default;
    explicit OwnNetworks(std::vector<Entry> entries) noexcept : m_entries{std::move(entries)} {}
    // Returns the networks of the calling thread's network namespace; empty if the system reports no network.
    // Throws std::bad_alloc.
    [[nodiscard]] static OwnNetworks read();

    // Returns true if `address` is one of this machine's.
    [[nodiscard]] bool isOwn(in_addr address) const noexcept;
    // Returns true if `heardOn` has every interface on which a host's response may arrive. A response from
    // another machine does not arrive on the loopback interface or without a carrier; one from this machine
    // arrives on all interfaces.
    [[nodiscard]] bool areAll(std::span<const int> heardOn, bool isThisMachine) const noexcept;

private:
    std::vector<Entry> m_entries; // one for each address
};
} // namespace kiv::discovery

#endif
