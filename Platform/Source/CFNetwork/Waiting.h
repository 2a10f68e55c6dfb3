// A call waits here, on its caller's thread, for reports of the engine's thread.
#ifndef KIV_PLATFORM_DISCOVERY_WAITING_H
#define KIV_PLATFORM_DISCOVERY_WAITING_H

#include <CFNetwork/CFNetServices.h>

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace kiv::discovery
{
// Translates an Avahi error into one of the documented calls.
[[nodiscard]] SInt32 serviceError(int avahiError) noexcept;

inline void report(CFStreamError *to, SInt32 error) noexcept
{
    if (to != nullptr)
        *to = {error != 0 ? CFIndex{kCFStreamErrorDomainNetServices} : 0, error};
}

// One object's waiting call. An end() made before the call has begun stays in force and ends it at once.
class Waiting
{
public:
    // Returns false if the object is already waiting.
    [[nodiscard]] bool begin() noexcept
    {
        const std::lock_guard lock{m_mutex};
        return !std::exchange(m_busy, true);
    }
    void finish() noexcept
    {
        const std::lock_guard lock{m_mutex};
        m_busy = false;
    }
    // Only the reason of the first end is kept.
    void end(CFStreamError reason) noexcept
    {
        const std::lock_guard lock{m_mutex};
        if (!m_ended)
            m_reason = reason;
        m_ended = true;
        m_changed.notify_all();
    }
    [[nodiscard]] std::optional<CFStreamError> reason() noexcept
    {
        const std::lock_guard lock{m_mutex};
        return m_ended ? std::optional{m_reason} : std::nullopt;
    }

    // Changes state that the waiting thread reads.
    template <class Change>
    void update(Change change) noexcept
    {
        const std::lock_guard lock{m_mutex};
        change();
        m_changed.notify_all();
    }
    // Waits until the time that `limit` returns has passed or the call has
    // ended. Calls `limit` with the lock held.
    template <class Limit>
    void waitWhile(Limit limit) noexcept
    {
        std::unique_lock lock{m_mutex};
        while (!m_ended)
        {
            const std::chrono::steady_clock::time_point until = limit();
            if (until <= std::chrono::steady_clock::now())
                return;
            m_changed.wait_until(lock, until);
        }
    }

protected:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ended = false;
    CFStreamError m_reason{};

private:
    bool m_busy = false;
};

// Work begun for an event before the event is handled.
class Preparation
{
public:
    Preparation() = default;
    Preparation(const Preparation &) = delete;
    Preparation &operator=(const Preparation &) = delete;
    virtual ~Preparation() = default;
};

// A report that is not yet handled; reports keep their order.
struct Event
{
    enum class Kind : uint8_t
    {
        came,
        went,
        failed
    };
    Kind kind;
    SInt32 error = 0; // for `failed`
    std::string what{};
    std::unique_ptr<Preparation> prepared{}; // its destructor may wait for the engine's lock
};

class Mailbox : public Waiting
{
public:
    // A new call must not see events of an earlier one.
    void clear() noexcept
    {
        std::list<Event> old;
        const std::lock_guard lock{m_mutex};
        m_events.swap(old);
        m_overflow = false;
    }
    void put(Event event) noexcept
    {
        try
        {
            std::list<Event> one;
            one.push_back(std::move(event));
            put(std::move(one));
        }
        catch (const std::bad_alloc &)
        {
            putNothing();
        }
    }
    void put(std::list<Event> events) noexcept
    {
        const std::lock_guard lock{m_mutex};
        m_events.splice(m_events.end(), events);
        m_changed.notify_all();
    }
    // Called if there was no memory for an event.
    void putNothing() noexcept
    {
        const std::lock_guard lock{m_mutex};
        m_overflow = true;
        m_changed.notify_all();
    }
    // Waits for the next event; empty once the call has ended. `more` becomes true if another event is ready.
    [[nodiscard]] std::optional<Event> take(bool &more) noexcept
    {
        std::unique_lock lock{m_mutex};
        m_changed.wait(lock, [this] { return m_ended || m_overflow || !m_events.empty(); });
        if (m_ended)
            return std::nullopt;
        if (m_events.empty()) // an event was lost, so the following ones would be wrong
            return Event{Event::Kind::failed, kCFNetServicesErrorUnknown};
        Event event = std::move(m_events.front());
        m_events.pop_front();
        more = !m_events.empty();
        return event;
    }

    // Returns whether fewer than `count` events wait to be taken.
    [[nodiscard]] bool holdsLessThan(size_t count) noexcept
    {
        const std::lock_guard lock{m_mutex};
        return m_events.size() < count;
    }
    // Returns the first arrival among the next `count` events that is not prepared, or null. Only for the
    // thread that takes the events: the event stays in place until it is taken.
    [[nodiscard]] Event *unprepared(size_t count) noexcept
    {
        const std::lock_guard lock{m_mutex};
        for (auto event = m_events.begin(); event != m_events.end() && count > 0; ++event, --count)
            if (event->kind == Event::Kind::came && !event->prepared)
                return &*event;
        return nullptr;
    }

private:
    std::list<Event> m_events; // does not allocate while it is empty
    bool m_overflow = false;
};
} // namespace kiv::discovery

#endif
