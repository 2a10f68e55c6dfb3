// The engine's subscriptions for the waiting calls: a search, a watch, a resolution and a registration.
#ifndef KIV_PLATFORM_DISCOVERY_SUBSCRIPTIONS_H
#define KIV_PLATFORM_DISCOVERY_SUBSCRIPTIONS_H

#include "CFNetwork/Engine.h"
#include "CFNetwork/RecordData.h"
#include "CFNetwork/Waiting.h"

#include <chrono>
#include <mutex>
#include <netinet/in.h>
#include <sys/socket.h>
#include <vector>

namespace kiv::discovery
{
// Names in the form of DNS, checked, without a dot at their end.
struct ServiceNames
{
    std::string name; // "" if none is needed
    std::string type;
    std::string domain;
    bool valid = false;

    // name.type.domain, with special characters of the name escaped.
    [[nodiscard]] std::string full() const;
};

// Throws std::bad_alloc. A null `name` is not needed.
[[nodiscard]] ServiceNames serviceNames(CFStringRef name, CFStringRef type, CFStringRef domain);

// Services of one type: events carry names.
class Search final : public Subscription, ServiceSink
{
public:
    // Prepares a service that the search has found, or returns null. Runs with the engine's lock held. If it
    // throws std::bad_alloc, nothing has begun.
    using Prepare = std::unique_ptr<Preparation> (*)(const ServiceNames &service, const Subscription &search);

    // If `prepare` is null, no service is prepared.
    Search(const ServiceNames &names, Mailbox &mailbox, Prepare prepare) noexcept
        : m_names{names}, m_mailbox{mailbox}, m_prepare{prepare}
    {
    }

    void attach(Backend &backend) noexcept override;
    void detach() noexcept override;

    // Prepares events that have moved up. For the thread that takes the events, without the engine's lock.
    void prepareNext() noexcept;

private:
    void prepareOne(Event &event) const noexcept;
    void serviceSeen(bool there, Place where, const char *name) noexcept override;
    void allServicesForNow() noexcept override;
    void browsingFailed(int error) noexcept override;

    const ServiceNames &m_names;
    Mailbox &m_mailbox;
    Prepare m_prepare;
    Sightings m_sightings;
    std::unique_ptr<Handle> m_browse;
};

// One kind of record of one name: events carry its data; only arrivals are reported.
class Watch final : public Subscription, RecordSink
{
public:
    Watch(std::string name, uint16_t type, Mailbox &mailbox) noexcept
        : m_name{std::move(name)}, m_type{type}, m_mailbox{mailbox}
    {
    }

    void attach(Backend &backend) noexcept override;
    void detach() noexcept override;

private:
    void recordSeen(bool there, Place where, std::span<const uint8_t> data) noexcept override;
    void cacheDone() noexcept override {}
    void allRecordsForNow() noexcept override;
    void recordsFailed(int error) noexcept override;

    std::string m_name;
    uint16_t m_type;
    Mailbox &m_mailbox;
    Sightings m_sightings;
    std::string m_told; // the last record reported
    std::unique_ptr<Handle> m_browse;
};

union SocketAddress
{
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

// Host, port and addresses of one service.
class Resolution final : public Subscription, LocationSink
{
public:
    using Clock = std::chrono::steady_clock;

    Resolution(ServiceNames names, std::string fullName, Waiting &waiting) noexcept
        : m_names{std::move(names)}, m_fullName{std::move(fullName)}, m_waiting{waiting}
    {
    }

    void attach(Backend &backend) noexcept override;
    void detach() noexcept override;

    [[nodiscard]] Clock::time_point begun() const noexcept
    {
        return m_begun;
    }
    // Waits until the resolution is complete or ended, or until `deadline`; returns 0 or the error.
    [[nodiscard]] SInt32 wait(Clock::time_point deadline) noexcept;

    // Call these two only after the resolution is detached.
    [[nodiscard]] const std::optional<ServerLocation> &location() const noexcept
    {
        return m_location;
    }
    // IPv4 first, each family in numerical order.
    [[nodiscard]] const std::vector<SocketAddress> &sortedAddresses() noexcept;

private:
    // The records of one type; each type has its own sink.
    class Records final : public RecordSink
    {
    public:
        Records(Resolution &owner, uint16_t type) noexcept : m_owner{owner}, m_type{type} {}
        void browse(Backend &backend, const char *name) noexcept;
        void stop() noexcept
        {
            m_browse.reset();
        }

    private:
        void recordSeen(bool there, Place where, std::span<const uint8_t> data) noexcept override;
        void cacheDone() noexcept override;
        void allRecordsForNow() noexcept override {}
        void recordsFailed(int error) noexcept override;

        Resolution &m_owner;
        uint16_t m_type;
        std::unique_ptr<Handle> m_browse;
    };
    // Read by the waiting thread, under the lock of `Waiting`.
    struct Progress
    {
        bool hasIPv4 = false;
        bool hasAny = false;
        bool heardOnAll = false;     // an IPv4 address came from every network that the host may be on
        Clock::time_point firstAt{}; // time of the first address
        Clock::time_point quietAt{}; // after this no other address of the last packet is expected
        unsigned knownTold = 0;      // kinds of addresses, as bits, whose cached addresses have been reported
        unsigned refused = 0;        // kinds that cannot be requested
        SInt32 error = 0;
    };
    [[nodiscard]] static unsigned kindBit(uint16_t type) noexcept
    {
        return type == kTypeA ? 1u : 2u;
    }

    void located(const char *host, uint16_t port) noexcept override;
    void locate(ServerLocation location);
    [[nodiscard]] Clock::time_point waitUntil(Clock::time_point deadline) const noexcept;
    void noteNetwork(int interface, in_addr address);
    void addAddress(uint16_t type, Place where, std::span<const uint8_t> data);
    void fail(SInt32 error) noexcept;

    ServiceNames m_names;
    std::string m_fullName;
    Waiting &m_waiting;
    Clock::time_point m_begun = Clock::now();
    Backend *m_backend = nullptr;
    std::unique_ptr<Handle> m_hint;
    Records m_server{*this, kTypeSRV};
    Records m_v4{*this, kTypeA};
    Records m_v6{*this, kTypeAAAA};
    std::optional<ServerLocation> m_location;
    std::vector<SocketAddress> m_addresses;
    OwnNetworks m_networks; // at the time when the addresses were requested
    std::vector<int> m_heardOn;
    bool m_isThisMachine = false;
    Progress m_progress;
};

// The current name of a service on the network; "" while it is not announced.
class PublishedName
{
public:
    void set(const std::string &name) noexcept
    {
        const std::lock_guard lock{m_mutex};
        try
        {
            m_name = name;
        }
        catch (const std::bad_alloc &)
        {
            m_name.clear();
        }
    }
    void clear() noexcept
    {
        const std::lock_guard lock{m_mutex};
        m_name.clear();
    }
    // Throws std::bad_alloc.
    [[nodiscard]] std::string get()
    {
        const std::lock_guard lock{m_mutex};
        return m_name;
    }

private:
    std::mutex m_mutex;
    std::string m_name;
};

// A service that is published.
class Registration final : public Subscription, GroupSink
{
public:
    // Throws std::bad_alloc.
    Registration(const ServiceNames &names, uint16_t port, std::string text, bool mayRename, Mailbox &mailbox,
                 PublishedName &published)
        : m_names{names}, m_name{names.name}, m_port{port}, m_text{std::move(text)},
          m_mayRename{mayRename}, m_mailbox{mailbox}, m_published{published}
    {
    }

    void attach(Backend &backend) noexcept override;
    void detach() noexcept override;
    void readyChanged(bool ready) noexcept override;

    // With the engine's lock held.
    void setText(std::string &text) noexcept;

private:
    void announced() noexcept override;
    void nameTaken() noexcept override;
    void groupFailed(int error) noexcept override;

    void announce() noexcept;
    [[nodiscard]] bool takeAnotherName() noexcept;
    [[nodiscard]] Announcement announcement() const noexcept;

    const ServiceNames &m_names;
    std::string m_name;
    uint16_t m_port;
    std::string m_text;
    bool m_mayRename;
    bool m_announced = false;
    unsigned m_conflicts = 0;
    Mailbox &m_mailbox;
    PublishedName &m_published;
    std::unique_ptr<Group> m_group;
};
} // namespace kiv::discovery

#endif
