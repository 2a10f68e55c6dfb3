// The networks of this machine, from the system's list of addresses.
#include "CFNetwork/OwnNetworks.h"

#include <algorithm>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <sys/socket.h>

namespace kiv::discovery
{
OwnNetworks OwnNetworks::read()
{
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0)
        return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> list{first, freeifaddrs};
    OwnNetworks networks;
    for (const ifaddrs *each = first; each != nullptr; each = each->ifa_next)
    {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET)
            continue;
        const bool isLoopback = (each->ifa_flags & IFF_LOOPBACK) != 0;
        const bool hasGroups = isLoopback || (each->ifa_flags & IFF_MULTICAST) != 0;
        if ((each->ifa_flags & IFF_UP) == 0 || (each->ifa_flags & IFF_POINTOPOINT) != 0 || !hasGroups)
            continue;
        sockaddr_in address{};
        std::memcpy(&address, each->ifa_addr, sizeof address);
        networks.m_entries.push_back({static_cast<int>(if_nametoindex(each->ifa_name)), address.sin_addr,
                                      isLoopback, (each->ifa_flags & IFF_RUNNING) != 0});
    }
    return networks;
}

bool OwnNetworks::isOwn(in_addr address) const noexcept
{
    return std::ranges::any_of(m_entries, [address](const Entry &entry)
                               { return entry.address.s_addr == address.s_addr; });
}

bool OwnNetworks::areAll(std::span<const int> heardOn, bool isThisMachine) const noexcept
{
    return std::ranges::all_of(
        m_entries,
        [&](const Entry &entry)
        {
            const bool isAwaited = isThisMachine || (!entry.isLoopback && entry.hasCarrier);
            return !isAwaited || std::ranges::find(heardOn, entry.interface) != heardOn.end();
        });
}
} // namespace kiv::discovery
