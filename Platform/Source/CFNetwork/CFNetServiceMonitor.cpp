// Monitors: report the TXT record of a service when it changes.
#include <CFNetwork/CFNetServices.h>

#include "CFNetwork/NetService.h"

using kiv::discovery::Event;

struct __CFNetServiceMonitor : kiv::cf::Object
{
    struct State
    {
        State(CFNetServiceMonitorClientCallBack call, const CFNetServiceClientContext *with) noexcept
            : callback{call}, context{with}
        {
        }

        CFNetServiceMonitorClientCallBack callback;
        kiv::discovery::ClientContext context;
        kiv::discovery::Mailbox mailbox;
    };

    __CFNetServiceMonitor(CFNetServiceRef ofService, State *ownState) noexcept;

    CFNetServiceRef service; // retained
    State *state;
};

namespace
{
void finalizeMonitor(kiv::cf::Object &object)
{
    auto &monitor = static_cast<__CFNetServiceMonitor &>(object);
    CFRelease(monitor.service);
    delete monitor.state;
}

constexpr kiv::cf::Type kMonitorType{kiv::cf::kTypeNetServiceMonitor, finalizeMonitor, nullptr, nullptr};

void tellClient(CFNetServiceMonitorRef monitor, CFNetServiceMonitorType type, const Event &event)
{
    const CFDataRef data = CFDataCreate(nullptr, reinterpret_cast<const UInt8 *>(event.what.data()),
                                        static_cast<CFIndex>(event.what.size()));
    if (data == nullptr)
        throw std::bad_alloc{};
    CFStreamError none{};
    monitor->state->callback(monitor, monitor->service, type, data, &none, monitor->state->context.info());
    CFRelease(data);
}

[[nodiscard]] SInt32 watch(CFNetServiceMonitorRef monitor, CFNetServiceMonitorType type)
{
    const __CFNetService &service = *monitor->service;
    const kiv::discovery::ServiceNames names =
        kiv::discovery::serviceNames(service.name, service.type, service.domain);
    std::string fullName = names.valid ? names.full() : std::string{};
    if (type != kCFNetServiceMonitorTXT || fullName.empty())
        return kCFNetServicesErrorBadArgument;
    kiv::discovery::Watch wanted{std::move(fullName), kiv::discovery::kTypeTXT, monitor->state->mailbox};
    const kiv::discovery::Subscribed subscribed{wanted};
    if (subscribed.error() != 0)
        return kiv::discovery::serviceError(subscribed.error());
    return kiv::discovery::handleEvents(monitor->state->mailbox, [monitor, type](Event &event, bool)
                                        { tellClient(monitor, type, event); });
}
} // namespace

__CFNetServiceMonitor::__CFNetServiceMonitor(CFNetServiceRef ofService, State *ownState) noexcept
    : Object{kMonitorType}, service{ofService}, state{ownState}
{
}

CFTypeID CFNetServiceMonitorGetTypeID(void)
{
    return kiv::cf::kTypeNetServiceMonitor;
}

CFNetServiceMonitorRef CFNetServiceMonitorCreate(CFAllocatorRef, CFNetServiceRef theService,
                                                 CFNetServiceMonitorClientCallBack clientCB,
                                                 CFNetServiceClientContext *clientContext)
{
    std::unique_ptr<__CFNetServiceMonitor::State> state{
        new (std::nothrow) __CFNetServiceMonitor::State{clientCB, clientContext}};
    if (!state)
        return nullptr;
    __CFNetServiceMonitor *monitor = kiv::cf::create<__CFNetServiceMonitor>(0, theService, state.get());
    if (monitor == nullptr)
        return nullptr;
    (void)state.release();
    CFRetain(theService);
    return monitor;
}

void CFNetServiceMonitorInvalidate(CFNetServiceMonitorRef monitor)
{
    CFNetServiceMonitorStop(monitor, nullptr);
}

Boolean CFNetServiceMonitorStart(CFNetServiceMonitorRef monitor, CFNetServiceMonitorType recordType,
                                 CFStreamError *error)
{
    return kiv::discovery::runWaiting(monitor->state->mailbox, error,
                                      [monitor, recordType] { return watch(monitor, recordType); });
}

void CFNetServiceMonitorStop(CFNetServiceMonitorRef monitor, CFStreamError *error)
{
    monitor->state->mailbox.end(kiv::discovery::endedBy(error));
}
