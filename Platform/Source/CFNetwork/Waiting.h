// Where a call waits on its caller's thread for what the engine's thread tells it.
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
// The error of the documented calls for one of Avahi's.
[[nodiscard]] SInt32 serviceError(int avahiError) noexcept;

inline void report(CFStreamError *to, SInt32 error) noexcept
{
    if (to != nullptr)
        *to = {error != 0 ? CFIndex{kCFStreamErrorDomainNetServices} : 0, error};
}

// One object's waiting call. An end given before the call has begun stays, and ends it at once.
class Waiting
{
public:
    // False when the object waits already.
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
    // The first end's reason counts.
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

    // Changes what the waiting thread looks at.
    template <class Change>
    void update(Change change) noexcept
    {
        const std::lock_guard lock{m_mutex};
        change();
        m_changed.notify_all();
    }
    // Asks `limit`, with the lock held, how long to wait, until that is past or the call has ended.
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

// What is begun for an event before it is handled.
class Preparation
{
public:
    Preparation() = default;
    Preparation(const Preparation &) = delete;
    Preparation &operator=(const Preparation &) = delete;
    virtual ~Preparation() = default;
};

// What was told and not yet handled, in its order.
struct Event
{
    enum class Kind : uint8_t
    {
        came,
        went,
        failed
    };
    Kind kind;
    SInt32 error = 0; // of `failed`
    std::string what{};
    std::unique_ptr<Preparation> prepared{}; // its end may wait for the engine's lock
};

class Mailbox : public Waiting
{
public:
    // A call of its own starts with nothing of an earlier one.
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
    // An event could not even be made.
    void putNothing() noexcept
    {
        const std::lock_guard lock{m_mutex};
        m_overflow = true;
        m_changed.notify_all();
    }
    // Waits for the next event; nothing once ended. `more` tells whether another is there already.
    [[nodiscard]] std::optional<Event> take(bool &more) noexcept
    {
        std::unique_lock lock{m_mutex};
        m_changed.wait(lock, [this] { return m_ended || m_overflow || !m_events.empty(); });
        if (m_ended)
            return std::nullopt;
        if (m_events.empty()) // what came is lost, so that the rest would be wrong
            return Event{Event::Kind::failed, kCFNetServicesErrorUnknown};
        Event event = std::move(m_events.front());
        m_events.pop_front();
        more = !m_events.empty();
        return event;
    }

    // Whether fewer than `count` events wait to be taken.
    [[nodiscard]] bool holdsLessThan(size_t count) noexcept
    {
        const std::lock_guard lock{m_mutex};
        return m_events.size() < count;
    }
    // The first arrival among the next `count` events that is not prepared; null for none. For the thread that
    // takes them: it stays where it is until then.
    [[nodiscard]] Event *unprepared(size_t count) noexcept
    {
        const std::lock_guard lock{m_mutex};
        for (auto event = m_events.begin(); event != m_events.end() && count > 0; ++event, --count)
            if (event->kind == Event::Kind::came && !event->prepared)
                return &*event;
        return nullptr;
    }

private:
    std::list<Event> m_events; // makes no room before the first
    bool m_overflow = false;
};
} // namespace kiv::discovery

#endif
