// The engine thread, and the choice between the daemon and the embedded stack.
#include "CFNetwork/Engine.h"

#include <avahi-common/error.h>
#include <avahi-common/thread-watch.h>
#include <avahi-common/timeval.h>

#include <mutex>
#include <new>
#include <unistd.h>
#include <utility>

namespace kiv::discovery
{
namespace
{
// How long until a daemon is looked for again where not even the system bus answers, in milliseconds.
constexpr unsigned kLookAgainAfter = 2000;

constinit BackendMaker backendForTesting = nullptr; // under `life`
} // namespace

class Engine final : BackendOwner
{
public:
    [[nodiscard]] static std::unique_ptr<Engine> start() noexcept
    {
        std::unique_ptr<Engine> engine{new (std::nothrow) Engine};
        if (!engine || !engine->open())
            return nullptr;
        return engine;
    }
    ~Engine()
    {
        if (m_started)
            avahi_threaded_poll_stop(m_poll); // what follows has no other thread beside it
        m_watch.reset();
        m_backend.reset();
        if (m_timer != nullptr)
            avahi_threaded_poll_get(m_poll)->timeout_free(m_timer);
        if (m_poll != nullptr)
            avahi_threaded_poll_free(m_poll);
    }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    [[nodiscard]] bool belongsToThisProcess() const noexcept
    {
        return m_process == getpid();
    }
    [[nodiscard]] bool isIdle() const noexcept
    {
        return m_first == nullptr;
    }
    void add(Subscription &subscription) noexcept
    {
        const Lock lock{*this};
        subscription.m_previous = nullptr;
        subscription.m_next = m_first;
        if (m_first != nullptr)
            m_first->m_previous = &subscription;
        m_first = &subscription;
        if (m_backend) // otherwise one is being looked for
            subscription.attach(*m_backend);
    }
    void remove(Subscription &subscription) noexcept
    {
        const Lock lock{*this};
        subscription.detach();
        (subscription.m_previous != nullptr ? subscription.m_previous->m_next : m_first) =
            subscription.m_next;
        if (subscription.m_next != nullptr)
            subscription.m_next->m_previous = subscription.m_previous;
    }
    void run(void (*body)(void *), void *context) noexcept
    {
        const Lock lock{*this};
        body(context);
    }

private:
    class Lock
    {
    public:
        explicit Lock(Engine &engine) noexcept : m_poll{engine.m_poll}
        {
            avahi_threaded_poll_lock(m_poll);
        }
        ~Lock()
        {
            avahi_threaded_poll_unlock(m_poll);
        }
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;

    private:
        AvahiThreadedPoll *m_poll;
    };

    Engine() = default;

    [[nodiscard]] bool open() noexcept
    {
        m_poll = avahi_threaded_poll_new();
        if (m_poll == nullptr)
            return false;
        const AvahiPoll *api = avahi_threaded_poll_get(m_poll);
        m_timer = api->timeout_new(
            api, nullptr, [](AvahiTimeout *, void *engine) { static_cast<Engine *>(engine)->settle(); },
            this);
        if (m_timer == nullptr)
            return false;
        chooseBackend();
        m_started = m_backend != nullptr && avahi_threaded_poll_start(m_poll) == 0;
        return m_started;
    }

    void chooseBackend() noexcept
    {
        if (backendForTesting != nullptr)
        {
            m_backend = backendForTesting(*this);
            return;
        }
        const AvahiPoll *api = avahi_threaded_poll_get(m_poll);
        m_backend = makeDaemonBackend(api, *this, false);
        m_embedded = m_backend == nullptr;
        if (!m_embedded)
            return;
        m_backend = makeEmbeddedBackend(api, *this);
        watchForDaemon();
    }

    void watchForDaemon() noexcept
    {
        m_watch = makeDaemonBackend(avahi_threaded_poll_get(m_poll), *this, true);
        if (!m_watch)
            settleIn(kLookAgainAfter);
        else if (m_watch->state() != BackendState::absent)
            settleIn(0); // it came this moment
    }

    void settleIn(unsigned milliseconds) noexcept
    {
        timeval when{};
        avahi_elapse_time(&when, milliseconds, 0);
        avahi_threaded_poll_get(m_poll)->timeout_update(m_timer, &when);
    }

    void backendChanged() noexcept override
    {
        // A backend may not end within its own call, so what follows from the change waits for the timer.
        if ((m_backend && m_backend->state() == BackendState::lost) ||
            (m_watch && m_watch->state() != BackendState::absent))
        {
            settleIn(0);
            return;
        }
        if (!m_backend)
            return; // it is being made
        const bool ready = m_backend->state() == BackendState::ready;
        for (Subscription *each = m_first; each != nullptr; each = each->m_next)
            each->readyChanged(ready);
    }

    void settle() noexcept
    {
        avahi_threaded_poll_get(m_poll)->timeout_update(m_timer, nullptr);
        const bool daemonCame = m_watch && (m_watch->state() == BackendState::starting ||
                                            m_watch->state() == BackendState::ready);
        const bool isLost = !m_backend || m_backend->state() == BackendState::lost;
        if (daemonCame || isLost)
        {
            for (Subscription *each = m_first; each != nullptr; each = each->m_next)
                each->detach();
            m_backend.reset(); // before its successor: the two would contend for the same port and names
            if (daemonCame)
            {
                m_backend = std::move(m_watch);
                m_embedded = false;
            }
            else
            {
                m_watch.reset();
                chooseBackend();
            }
            for (Subscription *each = m_first; each != nullptr && m_backend; each = each->m_next)
                each->attach(*m_backend);
            if (!m_backend)
                settleIn(kLookAgainAfter);
        }
        else if (m_embedded && (!m_watch || m_watch->state() == BackendState::lost))
        {
            m_watch.reset();
            watchForDaemon();
        }
    }

    AvahiThreadedPoll *m_poll = nullptr;
    AvahiTimeout *m_timer = nullptr;
    std::unique_ptr<Backend> m_backend;
    std::unique_ptr<Backend> m_watch; // while the embedded stack serves: waits for a daemon
    Subscription *m_first = nullptr;
    pid_t m_process = getpid();
    bool m_started = false;
    bool m_embedded = false;
};

namespace
{
// Which engine there is. Held while one starts or stops, and taken before the engine's own lock, never under it.
constinit std::mutex life;
constinit Engine *engine = nullptr; // not ended at exit: other threads may still wait in it

void endIfIdle() noexcept
{
    if (engine != nullptr && engine->isIdle())
        delete std::exchange(engine, nullptr);
}
} // namespace

int subscribe(Subscription &subscription) noexcept
{
    const std::lock_guard lock{life};
    // A forked child has the memory of its parent's engine, but neither its thread nor a right to its sockets.
    if (engine != nullptr && !engine->belongsToThisProcess())
        engine = nullptr;
    if (engine == nullptr)
        engine = Engine::start().release();
    if (engine == nullptr)
        return AVAHI_ERR_NO_NETWORK;
    engine->add(subscription);
    return 0;
}

void unsubscribe(Subscription &subscription) noexcept
{
    const std::lock_guard lock{life};
    engine->remove(subscription);
    endIfIdle();
}

void withEngineLocked(void (*body)(void *context), void *context) noexcept
{
    const std::lock_guard lock{life};
    engine->run(body, context);
}

void setBackendForTesting(BackendMaker maker) noexcept
{
    const std::lock_guard lock{life};
    backendForTesting = maker;
}
} // namespace kiv::discovery
