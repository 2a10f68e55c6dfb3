// Run loops: which GLib context is whose, and running it in a mode.
#include <CoreFoundation/CFRunLoop.h>

#include "CoreFoundation/RunLoop.h"
#include "CoreFoundation/String.h"

#include <unistd.h>

using kiv::cf::Run;
using kiv::cf::runLoopMutex;

namespace
{
void finalizeRunLoop(kiv::cf::Object &object);

constexpr kiv::cf::Type kRunLoopType{kiv::cf::kTypeRunLoop, finalizeRunLoop, nullptr, nullptr};

constexpr uint8_t kDefaultModeText[] = "kCFRunLoopDefaultMode";
constexpr uint8_t kCommonModesText[] = "kCFRunLoopCommonModes";

constinit __CFString defaultMode{
    {kDefaultModeText, nullptr, sizeof kDefaultModeText - 1}, false, kiv::cf::kForEver};
constinit __CFString commonModes{
    {kCommonModesText, nullptr, sizeof kCommonModesText - 1}, false, kiv::cf::kForEver};

// Every loop but the main one, so that a context has one loop on whatever thread it is asked for.
constinit __CFRunLoop *allLoops = nullptr;

void finalizeRunLoop(kiv::cf::Object &object)
{
    auto &loop = static_cast<__CFRunLoop &>(object);
    {
        const std::lock_guard lock{runLoopMutex};
        __CFRunLoop **link = &allLoops;
        while (*link != &loop)
            link = &(*link)->next;
        *link = loop.next;
    }
    g_main_context_unref(loop.context);
}

// One that has lost its last reference waits for the mutex to leave the list, and stays lost.
bool retainIfAlive(const __CFRunLoop &loop) noexcept
{
    CFIndex count = loop.references.load(std::memory_order_relaxed);
    while (count > 0)
    {
        if (loop.references.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                                  std::memory_order_relaxed))
            return true;
    }
    return false;
}

__CFRunLoop *retainedLoopOf(const GMainContext *context) noexcept
{
    __CFRunLoop *loop = allLoops;
    while (loop != nullptr && (loop->context != context || !retainIfAlive(*loop)))
        loop = loop->next;
    return loop;
}

// The loop of a context, retained. Null without memory.
__CFRunLoop *copyLoopOf(GMainContext *context) noexcept
{
    const std::lock_guard lock{runLoopMutex};
    if (__CFRunLoop *loop = retainedLoopOf(context); loop != nullptr)
        return loop;
    auto *loop = kiv::cf::create<__CFRunLoop>(0, context);
    if (loop == nullptr)
        return nullptr;
    g_main_context_ref(context);
    loop->next = allLoops;
    allLoops = loop;
    return loop;
}

// The loops a thread was given, which live as long as it does.
class ThreadLoops
{
public:
    constexpr ThreadLoops() = default;
    ~ThreadLoops()
    {
        if (m_own != nullptr)
            leaveTimers(*m_own); // nobody will run it any more
        while (m_first != nullptr)
        {
            Held *held = m_first;
            m_first = held->next;
            CFRelease(held->loop);
            std::free(held);
        }
    }
    ThreadLoops(const ThreadLoops &) = delete;
    ThreadLoops &operator=(const ThreadLoops &) = delete;

    // Of the thread-default context, or without one of a context of the thread's own.
    [[nodiscard]] __CFRunLoop *get(GMainContext *threadDefault) noexcept
    {
        if (threadDefault != nullptr)
            return hold(threadDefault);
        if (m_own == nullptr)
        {
            GMainContext *context = g_main_context_new();
            m_own = hold(context);
            g_main_context_unref(context);
        }
        return m_own;
    }

private:
    struct Held
    {
        __CFRunLoop *loop;
        Held *next;
    };

    [[nodiscard]] __CFRunLoop *hold(GMainContext *context) noexcept
    {
        for (const Held *held = m_first; held != nullptr; held = held->next)
        {
            if (held->loop->context == context)
                return held->loop;
        }
        __CFRunLoop *loop = copyLoopOf(context);
        if (loop == nullptr)
            return nullptr;
        auto *held = static_cast<Held *>(std::malloc(sizeof(Held)));
        if (held == nullptr)
        {
            CFRelease(loop);
            return nullptr;
        }
        m_first = new (held) Held{loop, m_first};
        return loop;
    }

    static void leaveTimers(__CFRunLoop &loop) noexcept
    {
        for (;;)
        {
            kiv::cf::Leftovers leftovers;
            const std::lock_guard lock{runLoopMutex};
            if (loop.timers == nullptr)
                return;
            kiv::cf::leaveLoop(*loop.timers, leftovers);
        }
    }

    Held *m_first = nullptr;
    __CFRunLoop *m_own = nullptr;
};

constinit thread_local ThreadLoops t_loops;

// Wakes the context when a run is to end.
class Deadline
{
public:
    Deadline(GMainContext *context, CFTimeInterval seconds) noexcept
        : m_source{g_source_new(&s_functions, sizeof(GSource))}
    {
        constexpr CFTimeInterval kForEver = 1e9; // 31 years
        if (seconds < kForEver)
            m_at = g_get_monotonic_time() + static_cast<gint64>(seconds * G_USEC_PER_SEC);
        g_source_set_ready_time(m_source, m_at);
        g_source_attach(m_source, context);
    }
    ~Deadline()
    {
        g_source_destroy(m_source);
        g_source_unref(m_source);
    }
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    [[nodiscard]] bool passed() const noexcept
    {
        return m_at >= 0 && g_get_monotonic_time() >= m_at;
    }

private:
    static gboolean wake(GSource *source, GSourceFunc, gpointer) noexcept
    {
        g_source_set_ready_time(source, -1);
        return G_SOURCE_CONTINUE;
    }
    static GSourceFuncs s_functions;

    GSource *m_source;
    gint64 m_at = -1; // microseconds of the monotonic clock; -1 never
};
GSourceFuncs Deadline::s_functions{nullptr, nullptr, wake, nullptr, nullptr, nullptr};

// A run is on its loop's stack of runs while this lives.
class RunScope
{
public:
    RunScope(__CFRunLoop &loop, Run &run) noexcept : m_loop{loop}
    {
        const std::lock_guard lock{runLoopMutex};
        run.outer = loop.run;
        enter(&run);
    }
    ~RunScope()
    {
        const std::lock_guard lock{runLoopMutex};
        enter(m_loop.run->outer);
    }
    RunScope(const RunScope &) = delete;
    RunScope &operator=(const RunScope &) = delete;

private:
    void enter(Run *run) noexcept
    {
        m_loop.run = run;
        for (__CFRunLoopTimer *timer = m_loop.timers; timer != nullptr; timer = timer->next)
            kiv::cf::followMode(*timer);
    }

    __CFRunLoop &m_loop;
};

// 0 as long as the run goes on.
CFRunLoopRunResult resultOf(const __CFRunLoop &loop, Run &run) noexcept
{
    const std::lock_guard lock{runLoopMutex};
    run.timerServed = false;
    if (run.stopped)
        return kCFRunLoopRunStopped;
    for (const __CFRunLoopTimer *timer = loop.timers; timer != nullptr; timer = timer->next)
    {
        if (kiv::cf::isInMode(*timer, run.mode))
            return 0;
    }
    return kCFRunLoopRunFinished;
}

bool servedTimer(const Run &run) noexcept
{
    const std::lock_guard lock{runLoopMutex};
    return run.timerServed;
}

CFRunLoopRunResult runUntilEnded(__CFRunLoop &loop, Run &run, CFTimeInterval seconds, bool untilServed)
{
    const RunScope scope{loop, run};
    const bool waits = seconds > 0;
    const Deadline deadline{loop.context, waits ? seconds : 0.0};
    for (;;)
    {
        if (const CFRunLoopRunResult result = resultOf(loop, run); result != 0)
            return result;
        const bool served = g_main_context_iteration(loop.context, waits) != FALSE;
        const bool over = !waits || deadline.passed();
        if (untilServed && served && !over && !servedTimer(run))
            return kCFRunLoopRunHandledSource;
        if (over)
        {
            const CFRunLoopRunResult result = resultOf(loop, run);
            return result == kCFRunLoopRunStopped ? result : kCFRunLoopRunTimedOut;
        }
    }
}
} // namespace

constinit std::mutex kiv::cf::runLoopMutex;

constinit const CFRunLoopMode kCFRunLoopDefaultMode = &defaultMode;
constinit const CFRunLoopMode kCFRunLoopCommonModes = &commonModes;

__CFRunLoop::__CFRunLoop(GMainContext *loopContext, CFIndex count) noexcept
    : Object{kRunLoopType, count}, context{loopContext}
{
}

CFTypeID CFRunLoopGetTypeID(void)
{
    return kiv::cf::kTypeRunLoop;
}

CFRunLoopRef CFRunLoopGetMain(void)
{
    static __CFRunLoop mainLoop{g_main_context_default(), kiv::cf::kForEver};
    return &mainLoop;
}

CFRunLoopRef CFRunLoopGetCurrent(void)
{
    if (getpid() == gettid())
        return CFRunLoopGetMain();
    // Not g_main_context_ref_thread_default(): it answers the main thread's context where there is none.
    GMainContext *threadDefault = g_main_context_get_thread_default();
    if (threadDefault == nullptr && g_main_context_is_owner(g_main_context_default()) != FALSE)
        return CFRunLoopGetMain();
    return t_loops.get(threadDefault);
}

void CFRunLoopRun(void)
{
    constexpr CFTimeInterval kForEver = 1e10;
    CFRunLoopRunResult result = kCFRunLoopRunTimedOut;
    while (result == kCFRunLoopRunTimedOut)
        result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, kForEver, false);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled)
{
    __CFRunLoop *loop = CFRunLoopGetCurrent();
    if (loop == nullptr || CFEqual(mode, kCFRunLoopCommonModes) ||
        g_main_context_acquire(loop->context) == FALSE)
        return kCFRunLoopRunFinished;
    Run run{mode};
    const CFRunLoopRunResult result = runUntilEnded(*loop, run, seconds, returnAfterSourceHandled);
    g_main_context_release(loop->context);
    return result;
}

void CFRunLoopStop(CFRunLoopRef rl)
{
    {
        const std::lock_guard lock{runLoopMutex};
        if (rl->run != nullptr)
            rl->run->stopped = true;
    }
    CFRunLoopWakeUp(rl);
}

void CFRunLoopWakeUp(CFRunLoopRef rl)
{
    g_main_context_wakeup(rl->context);
}
