// Loads Avahi's two libraries without linking them.
#include "CFNetwork/AvahiCalls.h"

#include <dlfcn.h>
#include <optional>

// A sanitizer's runtime replaces system functions; a library that searches itself first would miss them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KIV_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KIV_IS_SANITIZED 1
#endif
#endif

namespace kiv::discovery
{
namespace
{
// The libraries of the headers' interfaces; they stay loaded.
constexpr const char *kClientLibrary = "libavahi-client.so.3";
constexpr const char *kCoreLibrary = "libavahi-core.so.7";

// Both libraries define the same name. If the host links one of them, that name resolves to the host's, so
// the other library must search itself first. Otherwise it need not, and it uses the host's own allocator.
[[nodiscard]] int loadFlags() noexcept
{
    constexpr int kBeside = RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE;
#ifdef KIV_IS_SANITIZED
    return kBeside;
#else
    return dlsym(RTLD_DEFAULT, "avahi_entry_group_free") != nullptr ? kBeside | RTLD_DEEPBIND : kBeside;
#endif
}

template <class Call>
[[nodiscard]] bool find(void *library, const char *name, Call &call) noexcept
{
    call = reinterpret_cast<Call>(dlsym(library, name));
    return call != nullptr;
}

#define KIV_FIND(name) &&find(library, #name, calls.name)
[[nodiscard]] std::optional<ClientCalls> loadClient() noexcept
{
    ClientCalls calls;
    void *library = dlopen(kClientLibrary, loadFlags());
    const bool isWhole = library != nullptr KIV_AVAHI_CLIENT_CALLS(KIV_FIND);
    return isWhole ? std::optional{calls} : std::nullopt;
}

[[nodiscard]] std::optional<CoreCalls> loadCore() noexcept
{
    CoreCalls calls;
    void *library = dlopen(kCoreLibrary, loadFlags());
    const bool isWhole = library != nullptr KIV_AVAHI_CORE_CALLS(KIV_FIND);
    return isWhole ? std::optional{calls} : std::nullopt;
}
#undef KIV_FIND
} // namespace

const ClientCalls *clientCalls() noexcept
{
    static const std::optional<ClientCalls> calls = loadClient();
    return calls ? &*calls : nullptr;
}

const CoreCalls *coreCalls() noexcept
{
    static const std::optional<CoreCalls> calls = loadCore();
    return calls ? &*calls : nullptr;
}
} // namespace kiv::discovery
