// The engine's subscriptions for the waiting calls.
#include "CFNetwork/Subscriptions.h"

#include <CoreFoundation/CFString.h>

#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace kiv::discovery
{
namespace
{
// The wait for the addresses of a host's other networks, counted from the first address. They
// come in separate packets: the question for them waits 0.1 s, and the response may take 0.12 s more
// (RFC 6762, 6), and the machines may be busy.
constexpr std::chrono::milliseconds kOtherNetworksWait{800};
// The wait if only IPv6 addresses have come; now and then they come over IPv6 before any
// other packet. The question is repeated after a second (RFC 6762, 5.2), and few
// callers can use a list without an IPv4 address.
constexpr std::chrono::milliseconds kIPv4Wait{1300};
// The addresses of one packet arrive one by one over the daemon.
constexpr std::chrono::milliseconds kSamePacketWait{10};

// The number of services waiting for a search's callback that are resolved ahead. Each takes up to four of
// the daemon's objects, and a client may have 1024 of these.
constexpr size_t kPreparedMax = 32;

constexpr const char *kDefaultDomain = "local";

constexpr unsigned kBothKinds = 3; // kinds of addresses, as bits

constexpr int kRenamesMax = 1000;      // so many services of one name are not an accident
constexpr unsigned kConflictsMax = 10; // after these the steps between the names do not grow

// Returns true if the daemon went away during the call: the engine repeats the request to its successor.
[[nodiscard]] bool willBeAskedAgain(int error) noexcept
{
    return error == AVAHI_ERR_DISCONNECTED || error == AVAHI_ERR_NO_DAEMON || error == AVAHI_ERR_DBUS_ERROR;
}

// Returns the string in UTF-8; empty if it has a zero character or no UTF-8 form.
[[nodiscard]] std::optional<std::string> utf8(CFStringRef string)
{
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    if (CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size) != all.length)
        return std::nullopt;
    std::string text(static_cast<size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, reinterpret_cast<UInt8 *>(text.data()),
                     size, &size);
    if (text.find('\0') != std::string::npos)
        return std::nullopt;
    return text;
}

[[nodiscard]] std::string withoutLastDot(std::string text)
{
    if (text.ends_with('.'))
        text.pop_back();
    return text;
}

// The library accepts the root too, but services cannot be offered in it.
[[nodiscard]] bool isDomain(const std::string &text)
{
    return !text.starts_with('.') && avahi_is_valid_domain_name(text.c_str()) != 0;
}

// An empty host means that the service is not offered (RFC 2782). A host whose name
// cannot be queried has no addresses either.
[[nodiscard]] bool isUsableHost(const std::string &name)
{
    return !name.empty() && isDomain(name);
}

void tellFailure(Mailbox &mailbox, int error) noexcept
{
    if (!willBeAskedAgain(error))
        mailbox.put({Event::Kind::failed, serviceError(error)});
}

void tell(Mailbox &mailbox, Event::Kind kind, std::string_view what) noexcept
{
    try
    {
        mailbox.put({kind, 0, std::string{what}});
    }
    catch (const std::bad_alloc &)
    {
        mailbox.putNothing();
    }
}

[[nodiscard]] std::string_view asText(std::span<const uint8_t> data) noexcept
{
    return {reinterpret_cast<const char *>(data.data()), data.size()};
}

// Compares two addresses without their ports, which are the same.
[[nodiscard]] bool sameHost(const SocketAddress &left, const SocketAddress &right) noexcept
{
    if (left.any.sa_family != right.any.sa_family)
        return false;
    if (left.any.sa_family == AF_INET)
        return left.v4.sin_addr.s_addr == right.v4.sin_addr.s_addr;
    return std::memcmp(&left.v6.sin6_addr, &right.v6.sin6_addr, sizeof left.v6.sin6_addr) == 0 &&
           left.v6.sin6_scope_id == right.v6.sin6_scope_id;
}
} // namespace

SInt32 serviceError(int avahiError) noexcept
{
    switch (avahiError)
    {
    case 0:
        return 0;
    case AVAHI_ERR_COLLISION:
        return kCFNetServicesErrorCollision;
    case AVAHI_ERR_NOT_FOUND:
        return kCFNetServicesErrorNotFound;
    case AVAHI_ERR_TIMEOUT:
        return kCFNetServicesErrorTimeout;
    case AVAHI_ERR_NO_NETWORK:
    case AVAHI_ERR_NO_DAEMON:
    case AVAHI_ERR_DISCONNECTED:
        return kCFNetServicesErrorInvalid;
    case AVAHI_ERR_INVALID_HOST_NAME:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_PORT:
    case AVAHI_ERR_INVALID_KEY:
    case AVAHI_ERR_INVALID_RECORD:
    case AVAHI_ERR_INVALID_ARGUMENT:
        return kCFNetServicesErrorBadArgument;
    default:
        return kCFNetServicesErrorUnknown;
    }
}

std::string ServiceNames::full() const
{
    std::array<char, AVAHI_DOMAIN_NAME_MAX> joined{};
    const char *inDomain = domain.empty() ? kDefaultDomain : domain.c_str();
    if (avahi_service_name_join(joined.data(), joined.size(), name.c_str(), type.c_str(), inDomain) != 0)
        return {};
    return joined.data();
}

ServiceNames serviceNames(CFStringRef name, CFStringRef type, CFStringRef domain)
{
    ServiceNames names;
    const std::optional<std::string> nameText = name != nullptr ? utf8(name) : std::string{};
    const std::optional<std::string> typeText = utf8(type);
    const std::optional<std::string> domainText = utf8(domain);
    if (!nameText || !typeText || !domainText)
        return names;
    names.name = *nameText;
    names.type = withoutLastDot(*typeText);
    names.domain = withoutLastDot(*domainText);
    names.valid = avahi_is_valid_service_type_generic(names.type.c_str()) != 0 &&
                  (names.domain.empty() || isDomain(names.domain)) &&
                  (name == nullptr || avahi_is_valid_service_name(names.name.c_str()) != 0);
    return names;
}

// ---- Search ----

void Search::attach(Backend &backend) noexcept
{
    m_sightings.startAnew();
    int error = 0;
    m_browse = backend.browseServices(m_names.type.c_str(), m_names.domain.c_str(), *this, error);
    if (!m_browse)
        tellFailure(m_mailbox, error);
}

void Search::detach() noexcept
{
    m_browse.reset();
}

void Search::serviceSeen(bool there, Place where, const char *name) noexcept
{
    try
    {
        if (!(there ? m_sightings.add(name, where) : m_sightings.remove(name, where)))
            return;
        std::list<Event> event;
        event.push_back({there ? Event::Kind::came : Event::Kind::went, 0, name});
        if (there && m_mailbox.holdsLessThan(kPreparedMax))
            prepareOne(event.front());
        m_mailbox.put(std::move(event));
    }
    catch (const std::bad_alloc &)
    {
        m_mailbox.putNothing();
    }
}

void Search::prepareOne(Event &event) const noexcept
{
    if (m_prepare == nullptr)
        return;
    try
    {
        ServiceNames service = m_names;
        service.name = event.what;
        event.prepared = m_prepare(service, *this);
    }
    catch (const std::bad_alloc &)
    {
        // it is resolved when its turn comes
    }
}

void Search::prepareNext() noexcept
{
    struct Next
    {
        const Search *search;
        Event *event;
    } next{this, nullptr};
    while (m_prepare != nullptr && (next.event = m_mailbox.unprepared(kPreparedMax)) != nullptr)
    {
        withEngineLocked(
            [](void *context)
            {
                const auto &what = *static_cast<Next *>(context);
                what.search->prepareOne(*what.event);
            },
            &next);
        if (!next.event->prepared)
            return;
    }
}

void Search::allServicesForNow() noexcept
{
    m_sightings.settle([this](std::string_view name) { tell(m_mailbox, Event::Kind::went, name); });
}

void Search::browsingFailed(int error) noexcept
{
    tellFailure(m_mailbox, error);
}

// ---- Watch ----

void Watch::attach(Backend &backend) noexcept
{
    m_sightings.startAnew();
    int error = 0;
    m_browse = backend.browseRecords(m_name.c_str(), m_type, *this, error);
    if (!m_browse)
        tellFailure(m_mailbox, error);
}

void Watch::detach() noexcept
{
    m_browse.reset();
}

void Watch::recordSeen(bool there, Place where, std::span<const uint8_t> data) noexcept
{
    try
    {
        // A changed record arrives as a new one, and the old one is removed a second later; removals are not
        // reported. A watch that begins in that second sees both, in any order: if it reported the old one
        // last, the remaining one is reported again.
        const std::string *changed = nullptr;
        std::string record{asText(data)};
        if (there && m_sightings.add(record, where))
            changed = &record;
        else if (!there && m_sightings.remove(record, where) && record == m_told)
            changed = m_sightings.any();
        if (changed == nullptr)
            return;
        m_told = *changed;
        tell(m_mailbox, Event::Kind::came, m_told);
    }
    catch (const std::bad_alloc &)
    {
        m_mailbox.putNothing();
    }
}

void Watch::allRecordsForNow() noexcept
{
    m_sightings.settle([](std::string_view) {});
}

void Watch::recordsFailed(int error) noexcept
{
    tellFailure(m_mailbox, error);
}

// ---- Resolution ----

void Resolution::attach(Backend &backend) noexcept
{
    const bool isLocated = m_location.has_value(); // by the last backend, perhaps without addresses
    m_backend = &backend;
    m_hint = backend.locate(m_names.name.c_str(), m_names.type.c_str(), m_names.domain.c_str(), *this);
    m_server.browse(backend, m_fullName.c_str());
    if (isLocated)
    {
        m_v4.browse(backend, m_location->host.c_str());
        m_v6.browse(backend, m_location->host.c_str());
    }
}

void Resolution::detach() noexcept
{
    m_hint.reset();
    m_server.stop();
    m_v4.stop();
    m_v6.stop();
    m_backend = nullptr;
}

SInt32 Resolution::wait(Clock::time_point deadline) noexcept
{
    m_waiting.waitWhile([this, deadline] { return waitUntil(deadline); });
    SInt32 error = 0;
    if (const auto reason = m_waiting.reason(); reason)
        return reason->error;
    m_waiting.update(
        [this, &error]
        {
            if (m_progress.hasAny)
                return;
            error = m_progress.error != 0              ? m_progress.error
                    : m_progress.refused == kBothKinds ? SInt32{kCFNetServicesErrorNotFound}
                                                       : SInt32{kCFNetServicesErrorTimeout};
        });
    return error;
}

// Returns the current end of the wait. The caller holds the lock of `Waiting`.
Resolution::Clock::time_point Resolution::waitUntil(Clock::time_point deadline) const noexcept
{
    if (m_progress.error != 0 || m_progress.refused == kBothKinds)
        return Clock::time_point::min();
    if (!m_progress.hasAny)
        return deadline;
    if (m_progress.hasIPv4 && m_progress.knownTold == kBothKinds && m_progress.heardOnAll)
        return std::min(deadline, m_progress.quietAt);
    return std::min(deadline, m_progress.firstAt + (m_progress.hasIPv4 ? kOtherNetworksWait : kIPv4Wait));
}

const std::vector<SocketAddress> &Resolution::sortedAddresses() noexcept
{
    std::ranges::sort(m_addresses,
                      [](const SocketAddress &left, const SocketAddress &right)
                      {
                          if (left.any.sa_family != right.any.sa_family)
                              return left.any.sa_family == AF_INET;
                          if (left.any.sa_family == AF_INET)
                              return ntohl(left.v4.sin_addr.s_addr) < ntohl(right.v4.sin_addr.s_addr);
                          const int order =
                              std::memcmp(&left.v6.sin6_addr, &right.v6.sin6_addr, sizeof left.v6.sin6_addr);
                          return order != 0 ? order < 0 : left.v6.sin6_scope_id < right.v6.sin6_scope_id;
                      });
    return m_addresses;
}

void Resolution::located(const char *host, uint16_t port) noexcept
{
    if (m_location)
        return;
    try
    {
        ServerLocation location{port, host};
        if (isUsableHost(location.host)) // if not, wait for the record, which has the reason
            locate(std::move(location));
    }
    catch (const std::bad_alloc &)
    {
        // the record will follow
    }
}

void Resolution::locate(ServerLocation location)
{
    if (location == m_location)
        return;
    // Before any change: without memory for it, the next report of this location is a new one.
    OwnNetworks networks = isLocalName(location.host.c_str()) ? m_backend->networks() : OwnNetworks{};
    m_v4.stop();
    m_v6.stop();
    m_addresses.clear();
    m_heardOn.clear();
    m_isThisMachine = false;
    m_location = std::move(location);
    m_waiting.update([this] { m_progress = {}; });
    if (!isUsableHost(m_location->host))
    {
        fail(kCFNetServicesErrorNotFound);
        return;
    }
    m_networks = std::move(networks);
    m_v4.browse(*m_backend, m_location->host.c_str());
    m_v6.browse(*m_backend, m_location->host.c_str());
}

void Resolution::noteNetwork(int interface, in_addr address)
{
    if (std::ranges::find(m_heardOn, interface) == m_heardOn.end())
        m_heardOn.push_back(interface);
    m_isThisMachine = m_isThisMachine || m_networks.isOwn(address);
    const bool isAll = m_networks.areAll(m_heardOn, m_isThisMachine);
    m_waiting.update([this, isAll] { m_progress.heardOnAll = isAll; });
}

void Resolution::addAddress(uint16_t type, Place where, std::span<const uint8_t> data)
{
    SocketAddress address{};
    if (type == kTypeA && data.size() == sizeof address.v4.sin_addr)
    {
        address.v4.sin_family = AF_INET;
        address.v4.sin_port = htons(m_location->port);
        std::memcpy(&address.v4.sin_addr, data.data(), data.size());
    }
    else if (type == kTypeAAAA && data.size() == sizeof address.v6.sin6_addr)
    {
        address.v6.sin6_family = AF_INET6;
        address.v6.sin6_port = htons(m_location->port);
        std::memcpy(&address.v6.sin6_addr, data.data(), data.size());
        if (IN6_IS_ADDR_LINKLOCAL(&address.v6.sin6_addr) && where.interface > 0)
            address.v6.sin6_scope_id = static_cast<uint32_t>(where.interface);
    }
    else
    {
        return;
    }
    const auto isThis = [&address](const SocketAddress &other) { return sameHost(address, other); };
    if (std::ranges::none_of(m_addresses, isThis))
    {
        m_addresses.push_back(address);
        m_waiting.update(
            [this, type]
            {
                if (!m_progress.hasAny)
                    m_progress.firstAt = Clock::now();
                m_progress.hasAny = true;
                m_progress.hasIPv4 = m_progress.hasIPv4 || type == kTypeA;
                if ((m_progress.knownTold & kindBit(type)) != 0)
                    m_progress.quietAt = Clock::now() + kSamePacketWait;
            });
    }
    // Set this last: after addresses from all networks, the wait ends at the `quietAt` set by this address.
    if (type == kTypeA)
        noteNetwork(where.interface, address.v4.sin_addr);
}

void Resolution::fail(SInt32 error) noexcept
{
    m_waiting.update([this, error] { m_progress.error = error; });
}

void Resolution::Records::browse(Backend &backend, const char *name) noexcept
{
    int error = 0;
    m_browse = backend.browseRecords(name, m_type, *this, error);
    if (!m_browse)
        recordsFailed(error);
}

void Resolution::Records::recordSeen(bool there, Place where, std::span<const uint8_t> data) noexcept
{
    if (!there)
        return;
    try
    {
        if (m_type != kTypeSRV)
            m_owner.addAddress(m_type, where, data);
        else if (std::optional<ServerLocation> location = readServerLocation(data); location)
            m_owner.locate(std::move(*location));
    }
    catch (const std::bad_alloc &)
    {
        m_owner.fail(kCFNetServicesErrorUnknown);
    }
}

void Resolution::Records::cacheDone() noexcept
{
    if (m_type != kTypeSRV)
        m_owner.m_waiting.update([this] { m_owner.m_progress.knownTold |= kindBit(m_type); });
}

void Resolution::Records::recordsFailed(int error) noexcept
{
    if (willBeAskedAgain(error))
        return;
    if (m_type == kTypeSRV)
        m_owner.fail(serviceError(error));
    else
        m_owner.m_waiting.update(
            [this]
            {
                m_owner.m_progress.knownTold |= kindBit(m_type);
                m_owner.m_progress.refused |= kindBit(m_type);
            });
}

// ---- Registration ----

void Registration::attach(Backend &backend) noexcept
{
    int error = 0;
    m_group = backend.makeGroup(*this, error);
    if (!m_group)
        tellFailure(m_mailbox, error);
    else if (backend.state() == BackendState::ready)
        announce();
}

void Registration::detach() noexcept
{
    m_group.reset();
    m_announced = false;
    m_published.clear();
}

void Registration::readyChanged(bool ready) noexcept
{
    if (!m_group || ready == m_announced)
        return;
    if (ready)
    {
        announce();
        return;
    }
    // The host's name changes: records that point at the old one must be announced again.
    m_group->withdraw();
    m_announced = false;
    m_published.clear();
}

void Registration::setText(std::string &text) noexcept
{
    m_text.swap(text);
    if (!m_announced)
        return;
    const int error = m_group->updateText(announcement());
    // The daemon may already have withdrawn the service because its name is taken.
    if (error != 0 && error != AVAHI_ERR_NO_CHANGE && !willBeAskedAgain(error))
        announce();
}

void Registration::announced() noexcept
{
    m_published.set(m_name);
}

// Another machine has the name: "Ingest" becomes "Ingest #2" and then, by a random step of 1 to 4, "Ingest
// #3" to "#6". If two machines of one name start together and count in step, they contend for every further
// name too and neither wins: each of a service's records is compared by itself.
void Registration::nameTaken() noexcept
{
    const uint32_t longest = 1u << 2 * std::min(m_conflicts++, kConflictsMax / 2);
    for (uint32_t step = arc4random_uniform(longest) + 1; step > 0; --step)
        if (!takeAnotherName())
            return;
    announce();
}

void Registration::groupFailed(int error) noexcept
{
    tellFailure(m_mailbox, error);
}

void Registration::announce() noexcept
{
    m_announced = true;
    m_published.clear();
    int error = 0;
    for (int tries = 0; tries < kRenamesMax; ++tries)
    {
        error = m_group->announce(announcement());
        if (error != AVAHI_ERR_COLLISION)
            break;
        if (!takeAnotherName())
            return;
    }
    if (error != 0)
        tellFailure(m_mailbox, error);
}

bool Registration::takeAnotherName() noexcept
{
    if (!m_mayRename)
    {
        tellFailure(m_mailbox, AVAHI_ERR_COLLISION);
        return false;
    }
    char *other = avahi_alternative_service_name(m_name.c_str());
    try
    {
        m_name = other;
    }
    catch (const std::bad_alloc &)
    {
        m_mailbox.putNothing();
        avahi_free(other);
        return false;
    }
    avahi_free(other);
    return true;
}

Announcement Registration::announcement() const noexcept
{
    return {m_name.c_str(),
            m_names.type.c_str(),
            m_names.domain.c_str(),
            m_port,
            {reinterpret_cast<const uint8_t *>(m_text.data()), m_text.size()}};
}
} // namespace kiv::discovery
