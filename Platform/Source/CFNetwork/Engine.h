// The one thread that speaks with the network for all callers of the process. It runs while something is asked
// for. Over the daemon it ends with the last of it; the embedded stack, whose memory of the network would go with it,
// stays some seconds longer.
#ifndef KIV_PLATFORM_DISCOVERY_ENGINE_H
#define KIV_PLATFORM_DISCOVERY_ENGINE_H

#include "CFNetwork/Backend.h"

namespace kiv::discovery
{
class Engine;

// Something that is asked of the network for as long as the engine knows it. The engine's lock is held in every
// member; a backend that goes away is let go of, and the next one is asked anew.
class Subscription
{
public:
    virtual void attach(Backend &backend) noexcept = 0;
    virtual void detach() noexcept = 0;
    virtual void readyChanged(bool /*ready*/) noexcept {} // whether services can be announced

protected:
    ~Subscription() = default;

private:
    friend class Engine;
    Engine *m_engine = nullptr; // that knows it
    Subscription *m_next = nullptr;
    Subscription *m_previous = nullptr;
};

// 0, or the error for which there is no network at all.
[[nodiscard]] int subscribe(Subscription &subscription) noexcept;
// What was subscribed to is let go of when it returns. A subscription of a process that has forked this one is left
// alone.
void unsubscribe(Subscription &subscription) noexcept;
// The same as subscribe() for a subscription that `beside` begets in one of its members.
void subscribeBeside(Subscription &subscription, const Subscription &beside) noexcept;

// Runs `body` with the lock held; a subscription must be in force.
void withEngineLocked(void (*body)(void *context), void *context) noexcept;

// What every new engine asks instead of the network; null for the network again. An engine that nobody uses ends.
using BackendMaker = std::unique_ptr<Backend> (*)(BackendOwner &owner);
void setBackendForTesting(BackendMaker maker) noexcept;
} // namespace kiv::discovery

#endif
