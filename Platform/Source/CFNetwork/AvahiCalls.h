// The calls of Avahi's client library and of its stack. Each is loaded when it is first needed,
// with its names kept local: both define avahi_entry_group_free, with different arguments, and a
// process that links both calls the wrong one.
#ifndef KIV_PLATFORM_AVAHI_CALLS_H
#define KIV_PLATFORM_AVAHI_CALLS_H

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-core/core.h>
#include <avahi-core/log.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>

#define KIV_AVAHI_CLIENT_CALLS(CALL)                                                                         \
    CALL(avahi_client_errno)                                                                                 \
    CALL(avahi_client_free)                                                                                  \
    CALL(avahi_client_new)                                                                                   \
    CALL(avahi_entry_group_add_service_strlst)                                                               \
    CALL(avahi_entry_group_commit)                                                                           \
    CALL(avahi_entry_group_free)                                                                             \
    CALL(avahi_entry_group_get_client)                                                                       \
    CALL(avahi_entry_group_new)                                                                              \
    CALL(avahi_entry_group_reset)                                                                            \
    CALL(avahi_entry_group_update_service_txt_strlst)                                                        \
    CALL(avahi_record_browser_free)                                                                          \
    CALL(avahi_record_browser_get_client)                                                                    \
    CALL(avahi_record_browser_new)                                                                           \
    CALL(avahi_service_browser_free)                                                                         \
    CALL(avahi_service_browser_get_client)                                                                   \
    CALL(avahi_service_browser_new)                                                                          \
    CALL(avahi_service_resolver_free)                                                                        \
    CALL(avahi_service_resolver_new)

#define KIV_AVAHI_CORE_CALLS(CALL)                                                                           \
    CALL(avahi_key_new)                                                                                      \
    CALL(avahi_key_unref)                                                                                    \
    CALL(avahi_rdata_serialize)                                                                              \
    CALL(avahi_s_entry_group_commit)                                                                         \
    CALL(avahi_s_entry_group_free)                                                                           \
    CALL(avahi_s_entry_group_new)                                                                            \
    CALL(avahi_s_entry_group_reset)                                                                          \
    CALL(avahi_s_record_browser_free)                                                                        \
    CALL(avahi_s_record_browser_new)                                                                         \
    CALL(avahi_s_service_browser_free)                                                                       \
    CALL(avahi_s_service_browser_new)                                                                        \
    CALL(avahi_server_add_service_strlst)                                                                    \
    CALL(avahi_server_config_free)                                                                           \
    CALL(avahi_server_config_init)                                                                           \
    CALL(avahi_server_errno)                                                                                 \
    CALL(avahi_server_free)                                                                                  \
    CALL(avahi_server_get_host_name)                                                                         \
    CALL(avahi_server_new)                                                                                   \
    CALL(avahi_server_set_host_name)                                                                         \
    CALL(avahi_server_update_service_txt_strlst)                                                             \
    CALL(avahi_set_log_function)

namespace kiv::discovery
{
#define KIV_NAME(name)   name
#define KIV_MEMBER(name) decltype(&::name) KIV_NAME(name) = nullptr;
struct ClientCalls
{
    KIV_AVAHI_CLIENT_CALLS(KIV_MEMBER)
};
struct CoreCalls
{
    KIV_AVAHI_CORE_CALLS(KIV_MEMBER)
};
#undef KIV_MEMBER
#undef KIV_NAME

// Returns null if the library is not installed.
[[nodiscard]] const ClientCalls *clientCalls() noexcept;
[[nodiscard]] const CoreCalls *coreCalls() noexcept;
} // namespace kiv::discovery

#endif
