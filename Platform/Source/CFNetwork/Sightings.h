// What is seen of something, and where: the network reports every service and record once an interface and
// protocol, a client wants to hear of it once.
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
    // True when `what` was nowhere before. Throws std::bad_alloc with nothing changed but, perhaps, room.
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

    // True when `what` was there and is nowhere any more.
    bool remove(std::string_view what, Place where)
    {
        const auto found = m_seen.find(what);
        if (found == m_seen.end() || std::erase(found->second.places, where) == 0 ||
            !found->second.places.empty())
            return false;
        m_seen.erase(found);
        return true;
    }

    // One of those that are there; null for none.
    [[nodiscard]] const std::string *any() const noexcept
    {
        return m_seen.empty() ? nullptr : &m_seen.begin()->first;
    }

    // The source of the reports is another from now on: what is there has to be reported again.
    void startAnew() noexcept
    {
        for (auto &[what, seen] : m_seen)
        {
            seen.places.clear();
            seen.fromBefore = true;
        }
    }

    // The new source has reported what it knows: calls `gone` for what it did not name.
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
