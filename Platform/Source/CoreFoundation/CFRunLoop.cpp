// Run loops: the GLib context of each thread, and running it in a mode.
#include <CoreFoundation/CFRunLoop.h>

#include "CoreFoundation/RunLoop.h"
#include "CoreFoundation/String.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

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

// The loops of contexts that hosts have made: each context has one loop, whichever thread requests it.
constinit __CFRunLoop *hostLoops = nullptr;

void finalizeRunLoop(kiv::cf::Object &object)
{
    const auto &loop = static_cast<const __CFRunLoop &>(object);
    if (loop.context != nullptr)
        g_main_context_unref(loop.context);
}

// ---- Loops of a host's contexts ----

// A source that is never ready and ends with its context: so the loop lives as
// long as its context without retaining it.
struct LoopSource
{
    GSource base;
    __CFRunLoop *loop;
};

void leaveContext(GSource *source)
{
    __CFRunLoop *loop = nullptr;
    {
        const std::lock_guard lock{runLoopMutex};
        loop = reinterpret_cast<LoopSource *>(source)->loop;
        loop->context = nullptr;
        __CFRunLoop **link = &hostLoops;
        while (*link != loop)
            link = &(*link)->next;
        *link = loop->next;
    }
    CFRelease(loop);
}

GSourceFuncs loopFunctions{nullptr, nullptr, nullptr, leaveContext, nullptr, nullptr};

// Returns null if there is no memory.
__CFRunLoop *loopOf(GMainContext *context) noexcept
{
    const std::lock_guard lock{runLoopMutex};
    for (__CFRunLoop *loop = hostLoops; loop != nullptr; loop = loop->next)
    {
        if (loop->context == context)
            return loop;
    }
    auto *loop = kiv::cf::create<__CFRunLoop>(0, context);
    if (loop == nullptr)
        return nullptr;
    loop->next = hostLoops;
    hostLoops = loop;

    GSource *source = g_source_new(&loopFunctions, sizeof(LoopSource));
    reinterpret_cast<LoopSource *>(source)->loop = loop;
    g_source_set_static_name(source, "CFRunLoop");
    g_source_attach(source, context);
    g_source_unref(source);
    return loop;
}

// ---- A thread's own loop ----

// Called when the loop cannot run any more: its timers leave it, and it accepts no others if it is retained.
void endOwnLoop(void *value)
{
    auto *loop = static_cast<__CFRunLoop *>(value);
    GMainContext *context = nullptr;
    while (context == nullptr)
    {
        kiv::cf::Leftovers leftovers;
        const std::lock_guard lock{runLoopMutex};
        if (loop->timers != nullptr)
            kiv::cf::leaveLoop(*loop->timers, leftovers);
        else
            context = std::exchange(loop->context, nullptr);
    }
    g_main_context_unref(context);
    CFRelease(loop);
}

// A key, not a thread_local: destructors of other keys and thread_locals may still request the loop. A loop
// made after this one has ended is ended in turn.
struct OwnLoopKey
{
    OwnLoopKey() noexcept : exists{pthread_key_create(&key, endOwnLoop) == 0} {}
    pthread_key_t key{};
    bool exists;
};

// GLib ends the process if there is no descriptor for waking a new context.
bool hasDescriptorToSpare() noexcept
{
    const int descriptor = eventfd(0, EFD_CLOEXEC);
    if (descriptor < 0)
        return false;
    close(descriptor);
    return true;
}

__CFRunLoop *ownLoop() noexcept
{
    static const OwnLoopKey own;
    if (!own.exists)
        return nullptr;
    if (void *loop = pthread_getspecific(own.key); loop != nullptr)
        return static_cast<__CFRunLoop *>(loop);
    if (!hasDescriptorToSpare())
        return nullptr;
    auto *loop = kiv::cf::create<__CFRunLoop>(0, nullptr);
    if (loop == nullptr)
        return nullptr;
    loop->context = g_main_context_new();
    if (pthread_setspecific(own.key, loop) != 0)
    {
        CFRelease(loop);
        return nullptr;
    }
    return loop;
}

// ---- Runs ----

// Wakes the context when the time of a run is over.
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
    gint64 m_at = -1; // microseconds of the monotonic clock; -1: never
};
GSourceFuncs Deadline::s_functions{nullptr, nullptr, wake, nullptr, nullptr, nullptr};

// Keeps a run on its loop's stack of runs.
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

// 0 while the run continues.
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
    // g_main_context_ref_thread_default() would return the main thread's context if the thread has none.
    GMainContext *threadDefault = g_main_context_get_thread_default();
    if (threadDefault == nullptr && g_main_context_is_owner(g_main_context_default()) != FALSE)
        return CFRunLoopGetMain();
    return threadDefault != nullptr ? loopOf(threadDefault) : ownLoop();
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
    GMainContext *context = g_main_context_ref(loop->context); // a callout may drop the host's last reference
    Run run{mode};
    const CFRunLoopRunResult result = runUntilEnded(*loop, run, seconds, returnAfterSourceHandled);
    g_main_context_release(context);
    g_main_context_unref(context);
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
    const std::lock_guard lock{runLoopMutex};
    if (rl->context != nullptr)
        g_main_context_wakeup(rl->context);
}
