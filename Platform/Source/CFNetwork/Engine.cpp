// The engine thread, and the choice between the daemon and the embedded stack.
#include "CFNetwork/Engine.h"

#include "CFNetwork/Inherited.h"

#include <avahi-common/error.h>
#include <avahi-common/thread-watch.h>
#include <avahi-common/timeval.h>

#include <atomic>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kiv::discovery
{
namespace
{
// Milliseconds until the next search for a daemon if not even the system bus responds.
constexpr unsigned kLookAgainAfter = 2000;

// Milliseconds that the embedded stack stays after its last use: a call that follows a search, such as a
// monitor, then gets its data from the cache.
constexpr unsigned kLingerFor = 6000;

// The network namespace of the calling thread; zeroes if the system does not report it.
struct NetworkName
{
    dev_t device = 0;
    ino_t number = 0;

    bool operator==(const NetworkName &) const = default;
};

[[nodiscard]] NetworkName ownNetwork() noexcept
{
    struct stat status = {};
    if (stat("/proc/thread-self/ns/net", &status) != 0)
        return {};
    return {status.st_dev, status.st_ino};
}

constinit BackendMaker backendForTesting = nullptr; // guarded by `life`
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
            avahi_threaded_poll_stop(m_poll); // no other thread runs after this
        m_watch.reset();
        m_backend.reset();
        for (AvahiTimeout *timer : {m_timer, m_idleTimer})
            if (timer != nullptr)
                m_api.timeout_free(timer);
        if (m_poll != nullptr)
            avahi_threaded_poll_free(m_poll);
    }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    // Call this and the next four with `life` held.
    [[nodiscard]] bool isIdle() const noexcept
    {
        return m_subscriptions == 0;
    }
    [[nodiscard]] bool isOfThisNetwork() const noexcept
    {
        return m_network == ownNetwork();
    }
    [[nodiscard]] bool knows(const Subscription &subscription) const noexcept
    {
        return subscription.m_engine == this;
    }
    // Returns false if the engine has ended by itself.
    [[nodiscard]] bool add(Subscription &subscription) noexcept
    {
        const Lock lock{*this};
        if (m_isOver)
            return false;
        setTimer(m_idleTimer, nullptr);
        addLocked(subscription);
        return true;
    }
    void addLocked(Subscription &subscription) noexcept
    {
        ++m_subscriptions;
        subscription.m_engine = this;
        subscription.m_previous = nullptr;
        subscription.m_next = m_first;
        if (m_first != nullptr)
            m_first->m_previous = &subscription;
        m_first = &subscription;
        if (m_backend) // otherwise the engine is still searching for a backend
            subscription.attach(*m_backend);
    }
    // Returns true if the engine is not needed any more.
    [[nodiscard]] bool remove(Subscription &subscription) noexcept
    {
        const Lock lock{*this};
        --m_subscriptions;
        subscription.m_engine = nullptr;
        subscription.detach();
        (subscription.m_previous != nullptr ? subscription.m_previous->m_next : m_first) =
            subscription.m_next;
        if (subscription.m_next != nullptr)
            subscription.m_next->m_previous = subscription.m_previous;
        if (m_first != nullptr)
            return false;
        const bool lingers = !m_isDaemon && m_backend && m_backend->state() != BackendState::lost;
        if (lingers)
            setTimer(m_idleTimer, kLingerFor);
        return !lingers;
    }
    // Called in a forked child, which uses neither engine.
    void keep(Engine *older) noexcept
    {
        m_older = older;
    }
    [[nodiscard]] static Engine &of(const Subscription &subscription) noexcept
    {
        return *subscription.m_engine;
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
        const WakeUpPipe pipe;
        m_poll = avahi_threaded_poll_new();
        if (m_poll == nullptr)
            return false;
        m_api = closingOnExec(*avahi_threaded_poll_get(m_poll));
        const AvahiPoll *api = &m_api;
        m_timer = api->timeout_new(
            api, nullptr, [](AvahiTimeout *, void *engine) { static_cast<Engine *>(engine)->settle(); },
            this);
        m_idleTimer = api->timeout_new(
            api, nullptr, [](AvahiTimeout *, void *engine) { static_cast<Engine *>(engine)->finish(); },
            this);
        if (m_timer == nullptr || m_idleTimer == nullptr)
            return false;
        pipe.closeOnExec(); // the timers have written to it
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
        m_backend = makeDaemonBackend(&m_api, *this, false);
        m_isDaemon = m_backend != nullptr;
        if (m_isDaemon)
            return;
        m_backend = makeEmbeddedBackend(&m_api, *this);
        watchForDaemon();
    }

    void watchForDaemon() noexcept
    {
        m_watch = makeDaemonBackend(&m_api, *this, true);
        if (!m_watch)
            settleIn(kLookAgainAfter);
        else if (m_watch->state() != BackendState::absent)
            settleIn(0); // the daemon has just come
    }

    void setTimer(AvahiTimeout *timer, const timeval *when) noexcept
    {
        m_api.timeout_update(timer, when);
    }
    void setTimer(AvahiTimeout *timer, unsigned milliseconds) noexcept
    {
        timeval when{};
        avahi_elapse_time(&when, milliseconds, 0);
        setTimer(timer, &when);
    }
    void settleIn(unsigned milliseconds) noexcept
    {
        setTimer(m_timer, milliseconds);
    }

    // Unused for kLingerFor: releases everything but the engine's memory, which the next use or exit frees.
    void finish() noexcept
    {
        setTimer(m_idleTimer, nullptr);
        if (m_first != nullptr)
            return;
        setTimer(m_timer, nullptr);
        m_watch.reset();
        m_backend.reset();
        m_isOver = true;
        avahi_threaded_poll_quit(m_poll);
    }

    void backendChanged() noexcept override
    {
        // A backend must not end within its own call, so the timer handles the change.
        if ((m_backend && m_backend->state() == BackendState::lost) ||
            (m_watch && m_watch->state() != BackendState::absent))
        {
            settleIn(0);
            return;
        }
        if (!m_backend)
            return; // the backend is still being made
        const bool ready = m_backend->state() == BackendState::ready;
        for (Subscription *each = m_first; each != nullptr; each = each->m_next)
            each->readyChanged(ready);
    }

    void settle() noexcept
    {
        setTimer(m_timer, nullptr);
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
                m_isDaemon = true;
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
        else if (!m_isDaemon && backendForTesting == nullptr &&
                 (!m_watch || m_watch->state() == BackendState::lost))
        {
            m_watch.reset();
            watchForDaemon();
        }
    }

    AvahiThreadedPoll *m_poll = nullptr;
    AvahiPoll m_api{};
    AvahiTimeout *m_timer = nullptr;
    AvahiTimeout *m_idleTimer = nullptr; // runs while the engine is unused
    std::unique_ptr<Backend> m_backend;
    std::unique_ptr<Backend> m_watch; // while the embedded stack serves: waits for a daemon
    Subscription *m_first = nullptr;
    std::atomic<size_t> m_subscriptions = 0; // atomic for readers without the engine's lock
    NetworkName m_network = ownNetwork();
    bool m_started = false;
    bool m_isDaemon = false;
    bool m_isOver = false;
    Engine *m_older = nullptr;
};

namespace
{
// Guards the pointers below. Held while an engine starts or stops; taken
// before the engine's own lock, never under it.
constinit std::mutex life;
constinit Engine *engine = nullptr;
constinit Engine *forgotten = nullptr; // kept reachable, so that it does not count as a leak
constinit bool isExiting = false;

// A forked child has a copy of its parent's engine, but not its thread, and must not use its sockets.
void forgetEngine() noexcept
{
    new (&life) std::mutex; // a thread that does not exist in the child may have held it
    if (engine == nullptr)
        return;
    engine->keep(forgotten);
    forgotten = std::exchange(engine, nullptr);
}

void endEngine() noexcept
{
    delete std::exchange(engine, nullptr);
}

void endIfIdle() noexcept
{
    if (engine != nullptr && engine->isIdle())
        endEngine();
}

// Ends an unused engine when the process exits. An engine in use is
// left alone: other threads still wait in it.
struct AtExit
{
    AtExit()
    {
        (void)pthread_atfork(nullptr, nullptr,
                             forgetEngine); // without memory the child shares its parent's engine
    }
    AtExit(const AtExit &) = delete;
    AtExit &operator=(const AtExit &) = delete;
    ~AtExit()
    {
        const std::unique_lock lock{life, std::try_to_lock};
        if (!lock.owns_lock())
            return;
        isExiting = true;
        endIfIdle();
    }
};
} // namespace

int subscribe(Subscription &subscription) noexcept
{
    const std::lock_guard lock{life};
    static const AtExit atExit;
    if (engine != nullptr && engine->isIdle() && !engine->isOfThisNetwork())
        endEngine();
    if (engine != nullptr && !engine->add(subscription))
        endEngine();
    if (engine != nullptr)
        return 0;
    engine = Engine::start().release();
    return engine != nullptr && engine->add(subscription) ? 0 : AVAHI_ERR_NO_NETWORK;
}

void unsubscribe(Subscription &subscription) noexcept
{
    const std::lock_guard lock{life};
    if (engine == nullptr || !engine->knows(subscription))
        return;
    const bool isDone = engine->remove(subscription);
    if (isDone || isExiting)
        endIfIdle();
}

void subscribeBeside(Subscription &subscription, const Subscription &beside) noexcept
{
    Engine::of(beside).addLocked(subscription);
}

void withEngineLocked(void (*body)(void *context), void *context) noexcept
{
    const std::lock_guard lock{life};
    if (engine != nullptr)
        engine->run(body, context);
}

void setBackendForTesting(BackendMaker maker) noexcept
{
    const std::lock_guard lock{life};
    endIfIdle();
    backendForTesting = maker;
}
} // namespace kiv::discovery
