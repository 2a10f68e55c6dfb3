// Publishing and resolving services.
#include <CFNetwork/CFNetServices.h>
#include <KIVPlatform/KIVPNetService.h>

#include "CFNetwork/NetService.h"
#include "CoreFoundation/Array.h"
#include "CoreFoundation/String.h"

#include <climits>
#include <unistd.h>

using kiv::discovery::Event;

const SInt32 kCFStreamErrorDomainNetServices = 10;

namespace
{
constexpr SInt32 kPortMax = 65535;
constexpr CFIndex kTextMax = 8900; // leaves room for the rest of a packet (RFC 6762, 17)

void finalizeService(kiv::cf::Object &object)
{
    auto &service = static_cast<__CFNetService &>(object);
    CFRelease(service.domain);
    CFRelease(service.type);
    CFRelease(service.name);
    kiv::cf::releaseIfAny(service.host);
    kiv::cf::releaseIfAny(service.addresses);
    delete service.state;
}

constexpr kiv::cf::Type kServiceType{kiv::cf::kTypeNetService, finalizeService, nullptr, nullptr};

// Returns the name to publish under if none was given: the host's name up to its first dot.
[[nodiscard]] std::string ownHostName()
{
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0)
        return {};
    const std::string_view whole = name;
    return std::string{whole.substr(0, whole.find('.'))};
}

[[nodiscard]] CFArrayRef createAddresses(const std::vector<kiv::discovery::SocketAddress> &addresses)
{
    kiv::cf::ArrayBuilder array{addresses.size()};
    for (const kiv::discovery::SocketAddress &address : addresses)
    {
        const size_t size = address.any.sa_family == AF_INET ? sizeof address.v4 : sizeof address.v6;
        array.append(
            CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(&address), static_cast<CFIndex>(size)));
    }
    return array.finish();
}

[[nodiscard]] CFStringRef retained(CFStringRef text)
{
    return CFStringCreateCopy(nullptr, text);
}

[[nodiscard]] SInt32 publish(__CFNetService &service, CFOptionFlags options)
{
    kiv::discovery::ServiceNames names = kiv::discovery::serviceNames(
        CFStringGetLength(service.name) > 0 ? service.name : nullptr, service.type, service.domain);
    if (names.name.empty())
        names.name = ownHostName();
    if (!names.valid || names.name.empty() || service.port < 0)
        return kCFNetServicesErrorBadArgument;

    __CFNetService::State &state = *service.state;
    std::unique_lock textLock{state.textMutex};
    kiv::discovery::Registration registration{names,         static_cast<uint16_t>(service.port),
                                              state.text,    (options & kCFNetServiceFlagNoAutoRename) == 0,
                                              state.mailbox, state.published};
    kiv::discovery::Subscribed subscribed{registration};
    if (subscribed.error() != 0)
        return kiv::discovery::serviceError(subscribed.error());
    state.registration = &registration;
    textLock.unlock();

    const SInt32 error = kiv::discovery::handleEvents(state.mailbox, [](Event &, bool) {});

    textLock.lock();
    state.registration = nullptr;
    subscribed.end();
    state.published.clear();
    return error;
}

[[nodiscard]] SInt32 resolve(__CFNetService &service, CFTimeInterval timeout)
{
    using Clock = kiv::discovery::Resolution::Clock;
    constexpr CFTimeInterval kLongest = 86400; // a day, in place of longer times

    std::unique_ptr<kiv::discovery::BegunResolution> begun = std::move(service.state->begun);
    if (!begun)
    {
        const kiv::discovery::ServiceNames names =
            kiv::discovery::serviceNames(service.name, service.type, service.domain);
        std::string fullName = names.valid ? names.full() : std::string{};
        if (fullName.empty())
            return kCFNetServicesErrorBadArgument;
        begun = std::make_unique<kiv::discovery::BegunResolution>(names, std::move(fullName),
                                                                  service.state->mailbox);
    }
    if (begun->subscribed.error() != 0)
        return kiv::discovery::serviceError(begun->subscribed.error());
    kiv::discovery::Resolution &resolution = begun->resolution;
    const CFTimeInterval seconds = timeout > 0 ? std::min(timeout, kLongest) : 0; // 0 for NaN too
    const SInt32 error = resolution.wait(resolution.begun() + std::chrono::duration_cast<Clock::duration>(
                                                                  std::chrono::duration<double>{seconds}));
    begun->subscribed.end();

    if (!resolution.location())
        return error;
    const CFStringRef host = kiv::cf::createString(std::string_view{resolution.location()->host});
    const CFArrayRef addresses = createAddresses(resolution.sortedAddresses());
    if (host == nullptr || addresses == nullptr)
    {
        kiv::cf::releaseIfAny(host);
        kiv::cf::releaseIfAny(addresses);
        return kCFNetServicesErrorUnknown;
    }
    kiv::cf::releaseIfAny(service.host);
    kiv::cf::releaseIfAny(service.addresses);
    service.host = host;
    service.addresses = addresses;
    service.port = resolution.location()->port;
    return error;
}
} // namespace

__CFNetService::__CFNetService(CFStringRef inDomain, CFStringRef ofType, CFStringRef itsName, SInt32 atPort,
                               State *ownState) noexcept
    : Object{kServiceType}, domain{inDomain}, type{ofType}, name{itsName}, port{atPort}, state{ownState}
{
}

CFTypeID CFNetServiceGetTypeID(void)
{
    return kiv::cf::kTypeNetService;
}

CFNetServiceRef CFNetServiceCreate(CFAllocatorRef, CFStringRef domain, CFStringRef serviceType,
                                   CFStringRef name, SInt32 port)
{
    return kiv::discovery::createService(
        domain, serviceType, name, port,
        std::unique_ptr<__CFNetService::State>{new (std::nothrow) __CFNetService::State});
}

CFNetServiceRef kiv::discovery::createService(CFStringRef domain, CFStringRef serviceType, CFStringRef name,
                                              SInt32 port,
                                              std::unique_ptr<__CFNetService::State> state) noexcept
{
    if (port < -1 || port > kPortMax)
        return nullptr;
    const CFStringRef ownDomain = retained(domain);
    const CFStringRef ownType = retained(serviceType);
    const CFStringRef ownName = retained(name);
    __CFNetService *service = nullptr;
    if (state && ownDomain != nullptr && ownType != nullptr && ownName != nullptr)
        service = kiv::cf::create<__CFNetService>(0, ownDomain, ownType, ownName, port, state.get());
    if (service == nullptr)
    {
        kiv::cf::releaseIfAny(ownDomain);
        kiv::cf::releaseIfAny(ownType);
        kiv::cf::releaseIfAny(ownName);
        return nullptr;
    }
    (void)state.release();
    return service;
}

CFStringRef CFNetServiceGetDomain(CFNetServiceRef theService)
{
    return theService->domain;
}

CFStringRef CFNetServiceGetType(CFNetServiceRef theService)
{
    return theService->type;
}

CFStringRef CFNetServiceGetName(CFNetServiceRef theService)
{
    return theService->name;
}

CFStringRef CFNetServiceGetTargetHost(CFNetServiceRef theService)
{
    return theService->host;
}

SInt32 CFNetServiceGetPortNumber(CFNetServiceRef theService)
{
    return theService->port;
}

CFArrayRef CFNetServiceGetAddressing(CFNetServiceRef theService)
{
    return theService->addresses;
}

Boolean CFNetServiceSetTXTData(CFNetServiceRef theService, CFDataRef txtRecord)
{
    const auto size = static_cast<size_t>(CFDataGetLength(txtRecord));
    const UInt8 *bytes = CFDataGetBytePtr(txtRecord);
    if (size > static_cast<size_t>(kTextMax) || !kiv::discovery::isTextRecord({bytes, size}))
        return false;
    __CFNetService::State &state = *theService->state;
    try
    {
        std::string text{reinterpret_cast<const char *>(bytes), size};
        const std::lock_guard lock{state.textMutex};
        if (state.registration != nullptr)
        {
            struct Update
            {
                kiv::discovery::Registration *registration;
                std::string text;
            } update{state.registration, text};
            kiv::discovery::withEngineLocked(
                [](void *context)
                {
                    auto &what = *static_cast<Update *>(context);
                    what.registration->setText(what.text);
                },
                &update);
        }
        state.text.swap(text);
    }
    catch (const std::bad_alloc &)
    {
        return false;
    }
    return true;
}

Boolean CFNetServiceRegisterWithOptions(CFNetServiceRef theService, CFOptionFlags options,
                                        CFStreamError *error)
{
    return kiv::discovery::runWaiting(theService->state->mailbox, error,
                                      [theService, options] { return publish(*theService, options); });
}

Boolean CFNetServiceResolveWithTimeout(CFNetServiceRef theService, CFTimeInterval timeout,
                                       CFStreamError *error)
{
    return kiv::discovery::runWaiting(theService->state->mailbox, error,
                                      [theService, timeout] { return resolve(*theService, timeout); });
}

void CFNetServiceCancel(CFNetServiceRef theService)
{
    theService->state->mailbox.end(kiv::discovery::endedBy(nullptr));
}

CFStringRef KIVPNetServiceCopyPublishedName(CFNetServiceRef service)
{
    try
    {
        const std::string name = service->state->published.get();
        return name.empty() ? nullptr : kiv::cf::createString(std::string_view{name});
    }
    catch (const std::bad_alloc &)
    {
        return nullptr;
    }
}
