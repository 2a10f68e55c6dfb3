// The items seen, and where: the network reports every service and record once for each interface and
// protocol, but a client wants one report.
#ifndef KIV_PLATFORM_SIGHTINGS_H
#define KIV_PLATFORM_SIGHTINGS_H

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::discovery
{
// One interface and address family of the machine.
struct Place
{
    int interface = 0;
    int protocol = 0;

    bool operator==(const Place &) const = default;
};

class Sightings
{
public:
    // Returns true if `what` was nowhere before. If this throws std::bad_alloc, the contents are unchanged.
    bool add(std::string_view what, Place where)
    {
        const auto found = m_seen.find(what);
        if (found == m_seen.end())
        {
            Seen seen;
            seen.places.push_back(where);
            m_seen.emplace(std::string{what}, std::move(seen));
            return true;
        }
        Seen &seen = found->second;
        if (std::ranges::find(seen.places, where) == seen.places.end())
            seen.places.push_back(where);
        seen.fromBefore = false;
        return false;
    }

    // Returns true if `what` was somewhere and now is nowhere.
    bool remove(std::string_view what, Place where)
    {
        const auto found = m_seen.find(what);
        if (found == m_seen.end() || std::erase(found->second.places, where) == 0 ||
            !found->second.places.empty())
            return false;
        m_seen.erase(found);
        return true;
    }

    // Returns one of the items, or null if there is no item.
    [[nodiscard]] const std::string *any() const noexcept
    {
        return m_seen.empty() ? nullptr : &m_seen.begin()->first;
    }

    // Called when the source changes: the new source must report every item again.
    void startAnew() noexcept
    {
        for (auto &[what, seen] : m_seen)
        {
            seen.places.clear();
            seen.fromBefore = true;
        }
    }

    // Called when the new source has reported all its items: calls `gone` for each item not reported.
    template <class Gone>
    void settle(Gone gone)
    {
        for (auto at = m_seen.begin(); at != m_seen.end();)
        {
            if (!at->second.fromBefore)
            {
                ++at;
                continue;
            }
            gone(std::string_view{at->first});
            at = m_seen.erase(at);
        }
    }

private:
    struct Seen
    {
        std::vector<Place> places;
        bool fromBefore = false;
    };
    std::map<std::string, Seen, std::less<>> m_seen;
};
} // namespace kiv::discovery

#endif
