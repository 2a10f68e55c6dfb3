// The multicast DNS stack in this process, used if no daemon runs.
#include "CFNetwork/AvahiCalls.h"
#include "CFNetwork/AvahiPieces.h"
#include "CFNetwork/Backend.h"

#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <linux/netlink.h>
#include <new>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace kiv::discovery
{
namespace
{
// Loaded before a backend is made.
[[nodiscard]] const CoreCalls &core() noexcept
{
    return *coreCalls();
}

// Avahi ends the process with an assertion if it has no socket for watching the interfaces. So what it opens
// at its start is tried before: sockets of IPv4, IPv6, netlink and one of this machine.
[[nodiscard]] bool hasDescriptorsForAvahi() noexcept
{
    std::array<int, 4> tried{};
    size_t count = 0;
    while (count < tried.size() &&
           (tried[count] = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_ROUTE)) >= 0)
        ++count;
    for (size_t index = 0; index < count; ++index)
        close(tried[index]);
    return count == tried.size();
}

class EmbeddedBackend final : public Backend
{
public:
    explicit EmbeddedBackend(BackendOwner &owner) noexcept : m_owner{owner} {}
    ~EmbeddedBackend() override
    {
        m_silent = true; // the owner itself ends the backend
        if (m_server != nullptr)
            core().avahi_server_free(m_server);
    }

    bool open(const AvahiPoll *poll) noexcept
    {
        if (!hasDescriptorsForAvahi())
            return false;
        // Without this the stack's messages (another stack on this machine, an invalid packet) go to standard
        // error, which belongs to the host.
        core().avahi_set_log_function([](AvahiLogLevel, const char *) {});

        // Use the system's host name, as the daemon does: several stacks on one machine then claim the same
        // name with the same addresses, which is not a conflict.
        AvahiServerConfig config;
        core().avahi_server_config_init(&config);
        config.publish_hinfo = 0;
        config.publish_workstation = 0;
        config.publish_domain = 0;
        config.enable_wide_area = 0;
        int error = 0;
        m_server = core().avahi_server_new(poll, &config, stateChanged, this, &error);
        core().avahi_server_config_free(&config);
        return m_server != nullptr;
    }

    [[nodiscard]] BackendState state() const noexcept override
    {
        return m_state;
    }
    std::unique_ptr<Handle> browseServices(const char *type, const char *domain, ServiceSink &sink,
                                           int &error) noexcept override;
    std::unique_ptr<Handle> browseRecords(const char *name, uint16_t type, RecordSink &sink,
                                          int &error) noexcept override;
    std::unique_ptr<Group> makeGroup(GroupSink &sink, int &error) noexcept override;

private:
    // The first call comes from within avahi_server_new().
    static void stateChanged(AvahiServer *server, AvahiServerState state, void *context)
    {
        auto &self = *static_cast<EmbeddedBackend *>(context);
        switch (state)
        {
        case AVAHI_SERVER_RUNNING:
            self.m_state = BackendState::ready;
            break;
        case AVAHI_SERVER_INVALID:
        case AVAHI_SERVER_REGISTERING:
            self.m_state = BackendState::starting;
            break;
        case AVAHI_SERVER_COLLISION:
            self.m_state = BackendState::starting;
            self.takeAnotherHostName(server);
            break;
        case AVAHI_SERVER_FAILURE:
            self.m_state = BackendState::lost;
            break;
        }
        if (!self.m_silent)
            self.m_owner.backendChanged();
    }

    // Another machine has the name: "encoder" becomes "encoder-2", and after that "encoder-" and a random
    // number. If two machines of one name start together and count in step, they contend for every further
    // name too and neither wins: each of a host's several addresses is compared by itself.
    void takeAnotherHostName(AvahiServer *server) noexcept
    {
        constexpr size_t kRoomForNumber = 5;
        constexpr uint32_t kNumbers = 10000;
        char text[AVAHI_LABEL_MAX];
        const char *name = core().avahi_server_get_host_name(server);
        if (++m_conflicts > 1)
        {
            std::string_view stem = name;
            stem = stem.substr(0, std::min(stem.rfind('-'), sizeof text - 1 - kRoomForNumber));
            (void)std::snprintf(text, sizeof text, "%.*s-%u", static_cast<int>(stem.size()), stem.data(),
                                arc4random_uniform(kNumbers));
            (void)core().avahi_server_set_host_name(server, text); // if refused, the next conflict retries
            return;
        }
        char *next = avahi_alternative_host_name(name);
        (void)core().avahi_server_set_host_name(server, next); // if refused, the next conflict retries
        avahi_free(next);
    }

    BackendOwner &m_owner;
    AvahiServer *m_server = nullptr;
    BackendState m_state = BackendState::starting;
    unsigned m_conflicts = 0;
    bool m_silent = false;
};

// The objects of the stack have no pointer to their server. An object fails if its network has gone.
int failure()
{
    return AVAHI_ERR_FAILURE;
}

void serviceEvent(AvahiSServiceBrowser *, AvahiIfIndex interface, AvahiProtocol protocol,
                  AvahiBrowserEvent event, const char *name, const char *, const char *,
                  AvahiLookupResultFlags, void *context)
{
    tellServices(*static_cast<ServiceSink *>(context), event, {interface, protocol}, name, failure);
}

void recordEvent(AvahiSRecordBrowser *, AvahiIfIndex interface, AvahiProtocol protocol,
                 AvahiBrowserEvent event, AvahiRecord *record, AvahiLookupResultFlags, void *context)
{
    uint8_t data[0xffff]; // the most a record carries (RFC 1035, 3.2.1)
    size_t size = 0;
    if (record != nullptr)
    {
        size = core().avahi_rdata_serialize(record, data, sizeof data);
        if (size == static_cast<size_t>(-1))
            return;
    }
    tellRecords(*static_cast<RecordSink *>(context), event, {interface, protocol}, {data, size}, failure);
}

class EmbeddedGroup final : public Group
{
public:
    EmbeddedGroup(AvahiServer *server, GroupSink &sink) noexcept : m_server{server}, m_sink{sink} {}
    ~EmbeddedGroup() override
    {
        if (m_group != nullptr)
            core().avahi_s_entry_group_free(m_group);
    }
    int open() noexcept
    {
        m_group = core().avahi_s_entry_group_new(m_server, stateChanged, this);
        return m_group != nullptr ? 0 : core().avahi_server_errno(m_server);
    }

    int announce(const Announcement &what) noexcept override
    {
        withdraw();
        const TextList text{what.text};
        const int error = core().avahi_server_add_service_strlst(
            m_server, m_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{}, what.name, what.type,
            domainOrNull(what.domain), nullptr, what.port, text.get());
        return error != 0 ? error : core().avahi_s_entry_group_commit(m_group);
    }
    int updateText(const Announcement &what) noexcept override
    {
        const TextList text{what.text};
        return core().avahi_server_update_service_txt_strlst(
            m_server, m_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{}, what.name, what.type,
            domainOrNull(what.domain), text.get());
    }
    void withdraw() noexcept override
    {
        core().avahi_s_entry_group_reset(m_group);
    }

private:
    static void stateChanged(AvahiServer *, AvahiSEntryGroup *, AvahiEntryGroupState state, void *context)
    {
        tellGroup(static_cast<EmbeddedGroup *>(context)->m_sink, state, failure);
    }

    AvahiServer *m_server;
    GroupSink &m_sink;
    AvahiSEntryGroup *m_group = nullptr;
};

std::unique_ptr<Handle> EmbeddedBackend::browseServices(const char *type, const char *domain,
                                                        ServiceSink &sink, int &error) noexcept
{
    AvahiSServiceBrowser *browser =
        core().avahi_s_service_browser_new(m_server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type,
                                           domainOrNull(domain), AvahiLookupFlags{}, serviceEvent, &sink);
    error = browser != nullptr ? 0 : core().avahi_server_errno(m_server);
    return holding(browser, core().avahi_s_service_browser_free, error);
}

std::unique_ptr<Handle> EmbeddedBackend::browseRecords(const char *name, uint16_t type, RecordSink &sink,
                                                       int &error) noexcept
{
    AvahiKey *key = core().avahi_key_new(name, AVAHI_DNS_CLASS_IN, type);
    if (key == nullptr)
    {
        error = AVAHI_ERR_INVALID_KEY;
        return nullptr;
    }
    AvahiSRecordBrowser *browser = core().avahi_s_record_browser_new(
        m_server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, key, lookupFlags(name), recordEvent, &sink);
    core().avahi_key_unref(key);
    error = browser != nullptr ? 0 : core().avahi_server_errno(m_server);
    return holding(browser, core().avahi_s_record_browser_free, error);
}

std::unique_ptr<Group> EmbeddedBackend::makeGroup(GroupSink &sink, int &error) noexcept
{
    std::unique_ptr<EmbeddedGroup> group{new (std::nothrow) EmbeddedGroup{m_server, sink}};
    error = group ? group->open() : AVAHI_ERR_NO_MEMORY;
    if (error != 0)
        return nullptr;
    return group;
}
} // namespace

std::unique_ptr<Backend> makeEmbeddedBackend(const AvahiPoll *poll, BackendOwner &owner) noexcept
{
    if (coreCalls() == nullptr)
        return nullptr;
    std::unique_ptr<EmbeddedBackend> backend{new (std::nothrow) EmbeddedBackend{owner}};
    if (!backend || !backend->open(poll))
        return nullptr;
    return backend;
}
} // namespace kiv::discovery
