// Internals of services, for browsers and monitors.
#ifndef KIV_PLATFORM_NET_SERVICE_H
#define KIV_PLATFORM_NET_SERVICE_H

#include "CFNetwork/Subscriptions.h"
#include "CoreFoundation/Object.h"

namespace kiv::discovery
{
// A subscription in force for a scope.
class Subscribed
{
public:
    explicit Subscribed(Subscription &subscription) noexcept
        : m_subscription{subscription}, m_error{subscribe(subscription)}
    {
    }
    // Made by a member of `beside` with the engine's lock held; end() is called without the lock, as always.
    Subscribed(Subscription &subscription, const Subscription &beside) noexcept : m_subscription{subscription}
    {
        subscribeBeside(subscription, beside);
    }
    ~Subscribed()
    {
        end();
    }
    Subscribed(const Subscribed &) = delete;
    Subscribed &operator=(const Subscribed &) = delete;

    void end() noexcept
    {
        if (m_error == 0)
            unsubscribe(m_subscription);
        m_error = -1;
    }
    [[nodiscard]] int error() const noexcept
    {
        return m_error;
    }

private:
    Subscription &m_subscription;
    int m_error = 0;
};

// A resolution in force.
struct BegunResolution
{
    BegunResolution(const ServiceNames &names, std::string fullName, Waiting &waiting)
        : resolution{names, std::move(fullName), waiting}, subscribed{resolution}
    {
    }
    BegunResolution(const ServiceNames &names, std::string fullName, Waiting &waiting,
                    const Subscription &beside)
        : resolution{names, std::move(fullName), waiting}, subscribed{resolution, beside}
    {
    }

    Resolution resolution;
    Subscribed subscribed;
};
} // namespace kiv::discovery

struct __CFNetService : kiv::cf::Object
{
    struct State final : kiv::discovery::Preparation
    {
        kiv::discovery::Mailbox mailbox;                      // for the call that waits, of any kind
        std::mutex textMutex;                                 // taken before the engine's lock
        std::string text;                                     // TXT data to publish
        kiv::discovery::Registration *registration = nullptr; // while it is published
        kiv::discovery::PublishedName published;
        std::unique_ptr<kiv::discovery::BegunResolution> begun; // made by its browser, until it is needed
    };

    __CFNetService(CFStringRef inDomain, CFStringRef ofType, CFStringRef itsName, SInt32 atPort,
                   State *ownState) noexcept;

    CFStringRef domain;
    CFStringRef type;
    CFStringRef name;
    SInt32 port;
    CFStringRef host = nullptr; // set once resolved, like the next member
    CFArrayRef addresses = nullptr;
    State *state;
};

namespace kiv::discovery
{
// The context of a browser's or monitor's client, retained by its own callback.
class ClientContext
{
public:
    explicit ClientContext(const CFNetServiceClientContext *context) noexcept
    {
        if (context == nullptr)
            return;
        m_info = context->info;
        m_release = context->release;
        if (context->retain != nullptr)
            m_info = const_cast<void *>(context->retain(m_info));
    }
    ~ClientContext()
    {
        if (m_release != nullptr)
            m_release(m_info);
    }
    ClientContext(const ClientContext &) = delete;
    ClientContext &operator=(const ClientContext &) = delete;

    [[nodiscard]] void *info() const noexcept
    {
        return m_info;
    }

private:
    void *m_info = nullptr;
    CFNetServiceReleaseCallBack m_release = nullptr;
};

// Runs one waiting call: `body` prepares and waits, and returns the error that ended it.
template <class Body>
Boolean runWaiting(Mailbox &mailbox, CFStreamError *error, Body body) noexcept
{
    if (!mailbox.begin())
    {
        report(error, kCFNetServicesErrorInProgress);
        return false;
    }
    mailbox.clear();
    SInt32 result = kCFNetServicesErrorUnknown;
    try
    {
        result =
            mailbox.reason() ? SInt32{kCFNetServicesErrorCancel} : body(); // an ended call needs no network
    }
    catch (const std::bad_alloc &)
    {
        // `result` already holds the error
    }
    report(error, result);
    if (const auto reason = mailbox.reason(); reason && result != 0 && error != nullptr)
        *error = *reason;
    mailbox.finish();
    return result == 0;
}

// Passes every event to `handle` until the call is ended or fails; returns the error.
template <class Handle>
SInt32 handleEvents(Mailbox &mailbox, Handle handle)
{
    bool more = false;
    while (std::optional<Event> event = mailbox.take(more))
    {
        if (event->kind == Event::Kind::failed)
            return event->error;
        handle(*event, more);
    }
    return kCFNetServicesErrorCancel;
}

[[nodiscard]] inline CFStreamError endedBy(const CFStreamError *error) noexcept
{
    return error != nullptr ? *error
                            : CFStreamError{kCFStreamErrorDomainNetServices, kCFNetServicesErrorCancel};
}

// CFNetServiceCreate() with an existing state; null also for a null state.
[[nodiscard]] CFNetServiceRef createService(CFStringRef domain, CFStringRef serviceType, CFStringRef name,
                                            SInt32 port,
                                            std::unique_ptr<__CFNetService::State> state) noexcept;
} // namespace kiv::discovery

#endif
