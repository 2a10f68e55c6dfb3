// The machine's avahi-daemon, over the system bus.
#include "CFNetwork/AvahiCalls.h"
#include "CFNetwork/AvahiPieces.h"
#include "CFNetwork/Backend.h"

#include <avahi-common/error.h>

#include <new>

namespace kiv::discovery
{
namespace
{
// Loaded before a backend is made.
[[nodiscard]] const ClientCalls &client() noexcept
{
    return *clientCalls();
}

class DaemonBackend final : public Backend
{
public:
    explicit DaemonBackend(BackendOwner &owner) noexcept : m_owner{owner} {}
    ~DaemonBackend() override
    {
        m_silent = true; // the owner itself ends the backend
        if (m_client != nullptr)
            client().avahi_client_free(m_client);
    }

    bool open(const AvahiPoll *poll, bool wait) noexcept
    {
        int error = 0;
        m_client = client().avahi_client_new(poll, wait ? AVAHI_CLIENT_NO_FAIL : AvahiClientFlags{},
                                             stateChanged, this, &error);
        return m_client != nullptr;
    }

    [[nodiscard]] BackendState state() const noexcept override
    {
        return m_state;
    }
    std::unique_ptr<Handle> browseServices(const char *type, const char *domain, ServiceSink &sink,
                                           int &error) noexcept override;
    std::unique_ptr<Handle> browseRecords(const char *name, uint16_t type, RecordSink &sink,
                                          int &error) noexcept override;
    std::unique_ptr<Handle> locate(const char *name, const char *type, const char *domain,
                                   LocationSink &sink) noexcept override;
    std::unique_ptr<Group> makeGroup(GroupSink &sink, int &error) noexcept override;

private:
    // The first call comes from within avahi_client_new().
    static void stateChanged(AvahiClient *, AvahiClientState state, void *context)
    {
        auto &self = *static_cast<DaemonBackend *>(context);
        switch (state)
        {
        case AVAHI_CLIENT_S_RUNNING:
            self.m_state = BackendState::ready;
            break;
        case AVAHI_CLIENT_S_REGISTERING:
        case AVAHI_CLIENT_S_COLLISION:
            self.m_state = BackendState::starting;
            break;
        case AVAHI_CLIENT_CONNECTING:
            self.m_state = BackendState::absent;
            break;
        case AVAHI_CLIENT_FAILURE:
            self.m_state = BackendState::lost;
            break;
        }
        if (!self.m_silent)
            self.m_owner.backendChanged();
    }

    BackendOwner &m_owner;
    AvahiClient *m_client = nullptr;
    BackendState m_state = BackendState::absent;
    bool m_silent = false;
};

void serviceEvent(AvahiServiceBrowser *browser, AvahiIfIndex interface, AvahiProtocol protocol,
                  AvahiBrowserEvent event, const char *name, const char *, const char *,
                  AvahiLookupResultFlags, void *context)
{
    tellServices(*static_cast<ServiceSink *>(context), event, {interface, protocol}, name,
                 [browser]
                 { return client().avahi_client_errno(client().avahi_service_browser_get_client(browser)); });
}

void recordEvent(AvahiRecordBrowser *browser, AvahiIfIndex interface, AvahiProtocol protocol,
                 AvahiBrowserEvent event, const char *, uint16_t, uint16_t, const void *rdata, size_t size,
                 AvahiLookupResultFlags, void *context)
{
    tellRecords(*static_cast<RecordSink *>(context), event, {interface, protocol},
                {static_cast<const uint8_t *>(rdata), size},
                [browser]
                { return client().avahi_client_errno(client().avahi_record_browser_get_client(browser)); });
}

void resolverEvent(AvahiServiceResolver *, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent event,
                   const char *, const char *, const char *, const char *host, const AvahiAddress *,
                   uint16_t port, AvahiStringList *, AvahiLookupResultFlags, void *context)
{
    if (event == AVAHI_RESOLVER_FOUND) // otherwise the service's record may still arrive
        static_cast<LocationSink *>(context)->located(host, port);
}

class DaemonGroup final : public Group
{
public:
    explicit DaemonGroup(GroupSink &sink) noexcept : m_sink{sink} {}
    ~DaemonGroup() override
    {
        if (m_group != nullptr)
            (void)client().avahi_entry_group_free(m_group); // fails if the daemon and so the group is gone
    }
    int open(AvahiClient *of) noexcept
    {
        m_group = client().avahi_entry_group_new(of, stateChanged, this);
        return m_group != nullptr ? 0 : client().avahi_client_errno(of);
    }

    int announce(const Announcement &what) noexcept override
    {
        withdraw();
        const TextList text{what.text};
        const int error = client().avahi_entry_group_add_service_strlst(
            m_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{}, what.name, what.type,
            domainOrNull(what.domain), nullptr, what.port, text.get());
        return error != 0 ? error : client().avahi_entry_group_commit(m_group);
    }
    int updateText(const Announcement &what) noexcept override
    {
        const TextList text{what.text};
        return client().avahi_entry_group_update_service_txt_strlst(
            m_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{}, what.name, what.type,
            domainOrNull(what.domain), text.get());
    }
    void withdraw() noexcept override
    {
        (void)client().avahi_entry_group_reset(m_group); // fails like the free
    }

private:
    // The first call comes from within avahi_entry_group_new().
    static void stateChanged(AvahiEntryGroup *group, AvahiEntryGroupState state, void *context)
    {
        tellGroup(static_cast<DaemonGroup *>(context)->m_sink, state,
                  [group]
                  { return client().avahi_client_errno(client().avahi_entry_group_get_client(group)); });
    }

    GroupSink &m_sink;
    AvahiEntryGroup *m_group = nullptr;
};

std::unique_ptr<Handle> DaemonBackend::browseServices(const char *type, const char *domain, ServiceSink &sink,
                                                      int &error) noexcept
{
    AvahiServiceBrowser *browser =
        client().avahi_service_browser_new(m_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type,
                                           domainOrNull(domain), AvahiLookupFlags{}, serviceEvent, &sink);
    error = browser != nullptr ? 0 : client().avahi_client_errno(m_client);
    return holding(browser, client().avahi_service_browser_free, error);
}

std::unique_ptr<Handle> DaemonBackend::browseRecords(const char *name, uint16_t type, RecordSink &sink,
                                                     int &error) noexcept
{
    AvahiRecordBrowser *browser =
        client().avahi_record_browser_new(m_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, name,
                                          AVAHI_DNS_CLASS_IN, type, lookupFlags(name), recordEvent, &sink);
    error = browser != nullptr ? 0 : client().avahi_client_errno(m_client);
    return holding(browser, client().avahi_record_browser_free, error);
}

// The daemon responds to a resolver at once, but to a browser only after 10 ms. The address is not requested
// from the resolver: it reports only one address, and a host may have several.
std::unique_ptr<Handle> DaemonBackend::locate(const char *name, const char *type, const char *domain,
                                              LocationSink &sink) noexcept
{
    constexpr auto kHostAndPort =
        static_cast<AvahiLookupFlags>(AVAHI_LOOKUP_NO_ADDRESS | AVAHI_LOOKUP_NO_TXT);
    AvahiServiceResolver *resolver = client().avahi_service_resolver_new(
        m_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, name, type, domainOrNull(domain), AVAHI_PROTO_UNSPEC,
        kHostAndPort, resolverEvent, &sink);
    int error = 0;
    return holding(resolver, client().avahi_service_resolver_free, error);
}

std::unique_ptr<Group> DaemonBackend::makeGroup(GroupSink &sink, int &error) noexcept
{
    std::unique_ptr<DaemonGroup> group{new (std::nothrow) DaemonGroup{sink}};
    error = group ? group->open(m_client) : AVAHI_ERR_NO_MEMORY;
    if (error != 0)
        return nullptr;
    return group;
}
} // namespace

std::unique_ptr<Backend> makeDaemonBackend(const AvahiPoll *poll, BackendOwner &owner, bool wait) noexcept
{
    if (clientCalls() == nullptr)
        return nullptr;
    std::unique_ptr<DaemonBackend> backend{new (std::nothrow) DaemonBackend{owner}};
    if (!backend || !backend->open(poll, wait))
        return nullptr;
    return backend;
}
} // namespace kiv::discovery
