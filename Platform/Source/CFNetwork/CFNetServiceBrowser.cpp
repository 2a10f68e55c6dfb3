// Browsers: report every service of a type as it comes and goes.
#include <CFNetwork/CFNetServices.h>
#include <KIVPlatform/KIVPNetService.h>

#include "CFNetwork/NetService.h"
#include "CoreFoundation/String.h"

using kiv::discovery::Event;

struct __CFNetServiceBrowser : kiv::cf::Object
{
    struct State
    {
        State(CFNetServiceBrowserClientCallBack call, const CFNetServiceClientContext *with) noexcept
            : callback{call}, context{with}
        {
        }

        CFNetServiceBrowserClientCallBack callback;
        kiv::discovery::ClientContext context;
        kiv::discovery::Mailbox mailbox;
        bool resolvesAhead = false; // set before the search
    };

    explicit __CFNetServiceBrowser(State *ownState) noexcept;

    State *state;
};

namespace
{
void finalizeBrowser(kiv::cf::Object &object)
{
    delete static_cast<__CFNetServiceBrowser &>(object).state;
}

constexpr kiv::cf::Type kBrowserType{kiv::cf::kTypeNetServiceBrowser, finalizeBrowser, nullptr, nullptr};

[[nodiscard]] std::unique_ptr<kiv::discovery::Preparation>
beginResolving(const kiv::discovery::ServiceNames &service, const kiv::discovery::Subscription &search)
{
    std::string fullName = service.full();
    if (fullName.empty())
        return nullptr;
    auto state = std::make_unique<__CFNetService::State>();
    state->begun = std::make_unique<kiv::discovery::BegunResolution>(service, std::move(fullName),
                                                                     state->mailbox, search);
    return state;
}

void tellClient(CFNetServiceBrowserRef browser, CFStringRef domain, CFStringRef type, Event &event, bool more)
{
    const CFStringRef name = kiv::cf::createString(std::string_view{event.what});
    if (name == nullptr) // not UTF-8, so not a name (RFC 6763, 4.1.1)
        return;
    std::unique_ptr<__CFNetService::State> begun{
        static_cast<__CFNetService::State *>(event.prepared.release())};
    const CFNetServiceRef service =
        begun ? kiv::discovery::createService(domain, type, name, -1, std::move(begun))
              : CFNetServiceCreate(nullptr, domain, type, name, -1);
    CFRelease(name);
    if (service == nullptr)
        throw std::bad_alloc{};
    CFStreamError none{};
    const CFOptionFlags flags =
        (event.kind == Event::Kind::went ? CFOptionFlags{kCFNetServiceFlagRemove} : 0) |
        (more ? CFOptionFlags{kCFNetServiceFlagMoreComing} : 0);
    browser->state->callback(browser, flags, service, &none, browser->state->context.info());
    CFRelease(service);
}

[[nodiscard]] SInt32 search(CFNetServiceBrowserRef browser, CFStringRef domain, CFStringRef type)
{
    __CFNetServiceBrowser::State &state = *browser->state;
    const kiv::discovery::ServiceNames names = kiv::discovery::serviceNames(nullptr, type, domain);
    if (!names.valid)
        return kCFNetServicesErrorBadArgument;
    kiv::discovery::Search wanted{names, state.mailbox, state.resolvesAhead ? beginResolving : nullptr};
    kiv::discovery::Subscribed subscribed{wanted};
    if (subscribed.error() != 0)
        return kiv::discovery::serviceError(subscribed.error());
    const SInt32 error = kiv::discovery::handleEvents(state.mailbox,
                                                      [&](Event &event, bool more)
                                                      {
                                                          if (more)
                                                              wanted.prepareNext();
                                                          tellClient(browser, domain, type, event, more);
                                                      });
    subscribed.end();
    state.mailbox.clear(); // ends resolutions that are not needed any more
    return error;
}
} // namespace

__CFNetServiceBrowser::__CFNetServiceBrowser(State *ownState) noexcept : Object{kBrowserType}, state{ownState}
{
}

CFTypeID CFNetServiceBrowserGetTypeID(void)
{
    return kiv::cf::kTypeNetServiceBrowser;
}

CFNetServiceBrowserRef CFNetServiceBrowserCreate(CFAllocatorRef, CFNetServiceBrowserClientCallBack clientCB,
                                                 CFNetServiceClientContext *clientContext)
{
    std::unique_ptr<__CFNetServiceBrowser::State> state{
        new (std::nothrow) __CFNetServiceBrowser::State{clientCB, clientContext}};
    if (!state)
        return nullptr;
    __CFNetServiceBrowser *browser = kiv::cf::create<__CFNetServiceBrowser>(0, state.get());
    if (browser != nullptr)
        (void)state.release();
    return browser;
}

void KIVPNetServiceBrowserResolveAhead(CFNetServiceBrowserRef browser)
{
    browser->state->resolvesAhead = true;
}

void CFNetServiceBrowserInvalidate(CFNetServiceBrowserRef browser)
{
    CFNetServiceBrowserStopSearch(browser, nullptr);
}

Boolean CFNetServiceBrowserSearchForServices(CFNetServiceBrowserRef browser, CFStringRef domain,
                                             CFStringRef serviceType, CFStreamError *error)
{
    CFStreamError result{};
    const Boolean succeeded = kiv::discovery::runWaiting(browser->state->mailbox, &result,
                                                         [browser, domain, serviceType]
                                                         { return search(browser, domain, serviceType); });
    if (error != nullptr)
        *error = result;
    if (result.error != kCFNetServicesErrorInProgress && !browser->state->mailbox.reason())
        browser->state->callback(browser, 0, nullptr, &result, browser->state->context.info());
    return succeeded;
}

void CFNetServiceBrowserStopSearch(CFNetServiceBrowserRef browser, CFStreamError *error)
{
    browser->state->mailbox.end(kiv::discovery::endedBy(error));
}
