// The thread that uses the network for all callers of the process. It runs while there are
// subscriptions. With the daemon it ends with the last subscription; with the embedded stack it stays some
// seconds longer, to keep the stack's cache.
#ifndef KIV_PLATFORM_DISCOVERY_ENGINE_H
#define KIV_PLATFORM_DISCOVERY_ENGINE_H

#include "CFNetwork/Backend.h"

namespace kiv::discovery
{
class Engine;

// A standing request to the network, in force while it is in the engine's list. Every member is called with
// the engine's lock held. When a backend goes, the subscription detaches from it and attaches to the next
// one.
class Subscription
{
public:
    virtual void attach(Backend &backend) noexcept = 0;
    virtual void detach() noexcept = 0;
    virtual void readyChanged(bool /*ready*/) noexcept {} // `ready`: services can be announced

protected:
    ~Subscription() = default;

private:
    friend class Engine;
    Engine *m_engine = nullptr; // the engine with this subscription
    Subscription *m_next = nullptr;
    Subscription *m_previous = nullptr;
};

// Returns 0, or an error if there is no network.
[[nodiscard]] int subscribe(Subscription &subscription) noexcept;
// The subscription is detached when this returns. A subscription that belongs to the
// parent of a forked process is left alone.
void unsubscribe(Subscription &subscription) noexcept;
// Like subscribe(), for a subscription that a member of `beside` makes; the engine's lock is held.
void subscribeBeside(Subscription &subscription, const Subscription &beside) noexcept;

// Runs `body` with the engine's lock held; a subscription must be in force.
void withEngineLocked(void (*body)(void *context), void *context) noexcept;

// Sets the maker of the backends of new engines; null for the real backends. Ends an unused engine.
using BackendMaker = std::unique_ptr<Backend> (*)(BackendOwner &owner);
void setBackendForTesting(BackendMaker maker) noexcept;
} // namespace kiv::discovery

#endif
