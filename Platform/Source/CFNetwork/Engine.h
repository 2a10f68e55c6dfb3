// The one thread that speaks with the network for all callers of the process. It runs while something is asked
// for and ends with the last of it.
#ifndef KIV_PLATFORM_DISCOVERY_ENGINE_H
#define KIV_PLATFORM_DISCOVERY_ENGINE_H

#include "CFNetwork/Backend.h"

namespace kiv::discovery
{
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
    Subscription *m_next = nullptr;
    Subscription *m_previous = nullptr;
};

// 0, or the error for which there is no network at all.
[[nodiscard]] int subscribe(Subscription &subscription) noexcept;
// What was subscribed to is let go of when it returns.
void unsubscribe(Subscription &subscription) noexcept;

// Runs `body` with the lock held; a subscription must be in force.
void withEngineLocked(void (*body)(void *context), void *context) noexcept;

// What every new engine asks instead of the network; null for the network again.
using BackendMaker = std::unique_ptr<Backend> (*)(BackendOwner &owner);
void setBackendForTesting(BackendMaker maker) noexcept;
} // namespace kiv::discovery

#endif
