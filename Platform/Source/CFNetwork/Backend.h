// The connection to the network: the machine's daemon through its client library, or the embedded stack. All
// members, and all sinks, are called with the engine's lock held.
#ifndef KIV_PLATFORM_DISCOVERY_BACKEND_H
#define KIV_PLATFORM_DISCOVERY_BACKEND_H

#include "CFNetwork/OwnNetworks.h"
#include "CFNetwork/Sightings.h"

#include <cstdint>
#include <memory>
#include <span>

struct AvahiPoll;

namespace kiv::discovery
{
// Errors are those of <avahi-common/error.h>: negative, or 0 for success.

class ServiceSink
{
public:
    virtual void serviceSeen(bool there, Place where, const char *name) noexcept = 0;
    virtual void allServicesForNow() noexcept = 0;
    virtual void browsingFailed(int error) noexcept = 0;

protected:
    ~ServiceSink() = default;
};

class RecordSink
{
public:
    virtual void recordSeen(bool there, Place where, std::span<const uint8_t> data) noexcept = 0;
    virtual void cacheDone() noexcept = 0; // all cached records have been reported
    virtual void allRecordsForNow() noexcept = 0;
    virtual void recordsFailed(int error) noexcept = 0;

protected:
    ~RecordSink() = default;
};

class LocationSink
{
public:
    virtual void located(const char *host, uint16_t port) noexcept = 0;

protected:
    ~LocationSink() = default;
};

class GroupSink
{
public:
    virtual void announced() noexcept = 0; // only this service has the name
    virtual void nameTaken() noexcept = 0;
    virtual void groupFailed(int error) noexcept = 0;

protected:
    ~GroupSink() = default;
};

// A request to a backend; destroying it cancels it, and its sink is not called any more.
class Handle
{
public:
    Handle() = default;
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    virtual ~Handle() = default;
};

struct Announcement
{
    const char *name;
    const char *type;
    const char *domain; // "" for the default one
    uint16_t port;
    std::span<const uint8_t> text; // TXT data, as in DNS
};

// One announced service.
class Group : public Handle
{
public:
    // Replaces the earlier announcement. AVAHI_ERR_COLLISION: the name is taken on this machine.
    virtual int announce(const Announcement &what) noexcept = 0;
    virtual int updateText(const Announcement &what) noexcept = 0;
    virtual void withdraw() noexcept = 0;
};

// The maker of a backend, called when its state changes; it must not destroy the backend in the call.
class BackendOwner
{
public:
    virtual void backendChanged() noexcept = 0;

protected:
    ~BackendOwner() = default;
};

enum class BackendState
{
    absent,   // a daemon that has not come yet
    starting, // the host's name is not settled: browsing works, announcing waits
    ready,
    lost // for ever
};

class Backend
{
public:
    Backend() = default;
    Backend(const Backend &) = delete;
    Backend &operator=(const Backend &) = delete;
    virtual ~Backend() = default;

    [[nodiscard]] virtual BackendState state() const noexcept = 0;
    // Returns the networks on which responses arrive. Throws std::bad_alloc.
    [[nodiscard]] virtual OwnNetworks networks() const
    {
        return OwnNetworks::read();
    }
    // Returns null and an error if the request is refused. Sinks may be called before the call returns.
    [[nodiscard]] virtual std::unique_ptr<Handle> browseServices(const char *type, const char *domain,
                                                                 ServiceSink &sink, int &error) noexcept = 0;
    [[nodiscard]] virtual std::unique_ptr<Handle> browseRecords(const char *name, uint16_t type,
                                                                RecordSink &sink, int &error) noexcept = 0;
    // Finds the host and port of a service before its record comes; null if the backend cannot do so.
    [[nodiscard]] virtual std::unique_ptr<Handle> locate(const char * /*name*/, const char * /*type*/,
                                                         const char * /*domain*/,
                                                         LocationSink & /*sink*/) noexcept
    {
        return nullptr;
    }
    [[nodiscard]] virtual std::unique_ptr<Group> makeGroup(GroupSink &sink, int &error) noexcept = 0;
};

// Returns the running daemon, or with `wait` a future one; null if no daemon can be reached.
[[nodiscard]] std::unique_ptr<Backend> makeDaemonBackend(const AvahiPoll *poll, BackendOwner &owner,
                                                         bool wait) noexcept;
// Returns the stack in this process; null if there is no network.
[[nodiscard]] std::unique_ptr<Backend> makeEmbeddedBackend(const AvahiPoll *poll,
                                                           BackendOwner &owner) noexcept;
} // namespace kiv::discovery

#endif
