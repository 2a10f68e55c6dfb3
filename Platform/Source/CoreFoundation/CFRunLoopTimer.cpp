// Run-loop timers: a source over a timerfd of the real-time clock. A descriptor wakes its loop tens of
// microseconds after its time; GLib's own time-outs are rounded up to the next millisecond.
#include <CoreFoundation/CFRunLoop.h>
#include <CoreFoundation/CFString.h>
#include <KIVPlatform/KIVPRunLoop.h>

#include "CoreFoundation/RunLoop.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sys/timerfd.h>
#include <unistd.h>

using kiv::cf::Leftovers;
using kiv::cf::Mode;
using kiv::cf::runLoopMutex;

namespace
{
void finalizeTimer(kiv::cf::Object &object);

constexpr kiv::cf::Type kTimerType{kiv::cf::kTypeRunLoopTimer, finalizeTimer, nullptr, nullptr};

constexpr int64_t kPerSecond = 1000000000;

int64_t readClock(clockid_t clock) noexcept
{
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kPerSecond + now.tv_nsec;
}

int64_t realTimeAhead() noexcept
{
    return readClock(CLOCK_REALTIME) - readClock(CLOCK_MONOTONIC);
}

// ---- Modes ----

Mode *createMode(CFRunLoopMode name) noexcept
{
    CFStringRef copy = CFStringCreateCopy(nullptr, name);
    if (copy == nullptr)
        return nullptr;
    void *block = std::malloc(sizeof(Mode));
    if (block == nullptr)
    {
        CFRelease(copy);
        return nullptr;
    }
    return new (block) Mode{copy, nullptr};
}

void freeModes(Mode *modes) noexcept
{
    while (modes != nullptr)
    {
        Mode *mode = modes;
        modes = mode->next;
        CFRelease(mode->name);
        std::free(mode);
    }
}

// The link to the mode in the timer's list, or the null link at its end if the mode is not in it.
Mode **findMode(__CFRunLoopTimer &timer, CFRunLoopMode name) noexcept
{
    Mode **link = &timer.modes;
    while (*link != nullptr && !CFEqual((*link)->name, name))
        link = &(*link)->next;
    return link;
}

bool isCommon(CFRunLoopMode mode) noexcept
{
    return CFEqual(mode, kCFRunLoopCommonModes);
}

bool hasMode(__CFRunLoopTimer &timer, CFRunLoopMode mode) noexcept
{
    return isCommon(mode) ? timer.common : *findMode(timer, mode) != nullptr;
}

bool mayBeAdded(const __CFRunLoop &loop, __CFRunLoopTimer &timer, CFRunLoopMode mode) noexcept
{
    return timer.valid && loop.context != nullptr &&
           (timer.loop == nullptr || (timer.loop == &loop && !hasMode(timer, mode)));
}

// A timer that is being called may have moved to another loop, which waits until the call is over.
bool mayFire(const __CFRunLoopTimer &timer) noexcept
{
    if (timer.calling)
        return false;
    const kiv::cf::Run *run = timer.loop->run;
    return kiv::cf::isInMode(timer, run != nullptr ? run->mode : kCFRunLoopDefaultMode);
}

// ---- The descriptor ----

void noteClockWasSet(__CFRunLoopTimer &timer) noexcept
{
    const int64_t ahead = realTimeAhead();
    timer.schedule.clockWasSet(ahead - timer.realTimeAhead);
    timer.realTimeAhead = ahead;
}

// Returns false if the clock was set since the last time; the kernel reports this once, here or at the next
// read.
bool armFor(__CFRunLoopTimer &timer, const kiv::cf::TimerSchedule &schedule) noexcept
{
    const int64_t ahead = realTimeAhead();
    const int64_t next = std::max<int64_t>(schedule.next(), 1); // 0 would disarm it
    const itimerspec at{{}, {next / kPerSecond, next % kPerSecond}};
    constexpr int kFlags = TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET;
    if (timerfd_settime(timer.descriptor, kFlags, &at, nullptr) != 0 && errno == ECANCELED)
        return false;
    timer.realTimeAhead = ahead;
    return true;
}

void arm(__CFRunLoopTimer &timer) noexcept
{
    while (!armFor(timer, timer.schedule))
        noteClockWasSet(timer);
}

// Follow a clock that was set before looking for the next date: otherwise a clock set forward during the call
// would count as missed intervals.
void armForNextInterval(__CFRunLoopTimer &timer) noexcept
{
    for (;;)
    {
        kiv::cf::TimerSchedule advanced = timer.schedule;
        advanced.advance(readClock(CLOCK_REALTIME));
        if (armFor(timer, advanced))
        {
            timer.schedule = advanced;
            return;
        }
        noteClockWasSet(timer);
    }
}

// False if the time has not come yet: the clock was set, or the timer has already been served.
bool isDue(__CFRunLoopTimer &timer) noexcept
{
    uint64_t expirations = 0;
    if (read(timer.descriptor, &expirations, sizeof expirations) < 0)
    {
        if (errno != ECANCELED)
            return false;
        noteClockWasSet(timer);
    }
    if (readClock(CLOCK_REALTIME) >= timer.schedule.next())
        return true;
    arm(timer);
    return false;
}

// ---- The source ----

struct TimerSource
{
    GSource base;
    __CFRunLoopTimer *timer; // null once the timer has left the loop
};

void takeInfo(__CFRunLoopTimer &timer, Leftovers &leftovers) noexcept
{
    leftovers.release = timer.context.release;
    leftovers.info = timer.context.info;
    timer.context = {};
}

void invalidate(__CFRunLoopTimer &timer, Leftovers &leftovers) noexcept
{
    timer.valid = false;
    if (timer.loop != nullptr)
        kiv::cf::leaveLoop(timer, leftovers);
    if (!timer.calling) // otherwise the callout uses the info until it returns
        takeInfo(timer, leftovers);
}

void finishCall(__CFRunLoopTimer &timer) noexcept
{
    Leftovers leftovers;
    const std::lock_guard lock{runLoopMutex};
    timer.calling = false;
    if (timer.valid && timer.schedule.repeats())
    {
        armForNextInterval(timer);
        if (timer.loop != nullptr)
            kiv::cf::followMode(timer);
    }
    else if (timer.valid)
        invalidate(timer, leftovers);
    else
        takeInfo(timer, leftovers);
}

// Returns the source's timer, retained, if it should be called now, otherwise null.
__CFRunLoopTimer *beginCall(GSource *source) noexcept
{
    const std::lock_guard lock{runLoopMutex};
    __CFRunLoopTimer *timer = reinterpret_cast<TimerSource *>(source)->timer;
    // The mode may have changed since the descriptor was polled: the descriptor stays readable.
    if (timer == nullptr || !mayFire(*timer) || !isDue(*timer))
        return nullptr;
    CFRetain(timer);
    timer->calling = true;
    timer->schedule.fired();
    if (timer->loop->run != nullptr)
        timer->loop->run->timerServed = true;
    return timer;
}

// GLib does not dispatch a source inside its own dispatch, so the calls of one timer never overlap.
gboolean dispatch(GSource *source, GSourceFunc, gpointer)
{
    if (__CFRunLoopTimer *timer = beginCall(source); timer != nullptr)
    {
        timer->callout(timer, timer->context.info);
        finishCall(*timer);
        CFRelease(timer);
    }
    return G_SOURCE_CONTINUE;
}

// GLib frees the source after this, on the thread that held it last; the mutex
// orders that after the other threads' accesses.
void finalizeSource(GSource *)
{
    const std::lock_guard lock{runLoopMutex};
}

GSourceFuncs sourceFunctions{nullptr, nullptr, dispatch, finalizeSource, nullptr, nullptr};

void joinLoop(__CFRunLoop &loop, __CFRunLoopTimer &timer) noexcept
{
    CFRetain(&loop);
    g_main_context_ref(loop.context);
    timer.loop = &loop;
    CFRetain(&timer);
    timer.next = loop.timers;
    loop.timers = &timer;

    timer.source = g_source_new(&sourceFunctions, sizeof(TimerSource));
    reinterpret_cast<TimerSource *>(timer.source)->timer = &timer;
    g_source_set_static_name(timer.source, "CFRunLoopTimer");
    timer.polled = mayFire(timer);
    timer.pollTag = g_source_add_unix_fd(timer.source, timer.descriptor,
                                         timer.polled ? G_IO_IN : static_cast<GIOCondition>(0));
    g_source_attach(timer.source, loop.context);
}

// The last reference is gone, so no loop has the timer and no callout uses it.
void finalizeTimer(kiv::cf::Object &object)
{
    auto &timer = static_cast<__CFRunLoopTimer &>(object);
    Leftovers leftovers;
    takeInfo(timer, leftovers);
    close(timer.descriptor);
}
} // namespace

Leftovers::~Leftovers()
{
    if (source != nullptr)
    {
        g_source_destroy(source);
        g_source_unref(source);
    }
    freeModes(modes);
    if (release != nullptr)
        release(info);
    releaseIfAny(timer);
    releaseIfAny(loop);
    if (context != nullptr)
        g_main_context_unref(context);
}

bool kiv::cf::isInMode(const __CFRunLoopTimer &timer, CFRunLoopMode mode) noexcept
{
    if (timer.common && CFEqual(mode, kCFRunLoopDefaultMode))
        return true;
    const Mode *named = timer.modes;
    while (named != nullptr && !CFEqual(named->name, mode))
        named = named->next;
    return named != nullptr;
}

void kiv::cf::followMode(__CFRunLoopTimer &timer) noexcept
{
    const bool polls = mayFire(timer);
    if (polls == timer.polled)
        return;
    timer.polled = polls;
    g_source_modify_unix_fd(timer.source, timer.pollTag, polls ? G_IO_IN : static_cast<GIOCondition>(0));
}

void kiv::cf::leaveLoop(__CFRunLoopTimer &timer, Leftovers &leftovers) noexcept
{
    __CFRunLoopTimer **link = &timer.loop->timers;
    while (*link != &timer)
        link = &(*link)->next;
    *link = timer.next;
    reinterpret_cast<TimerSource *>(timer.source)->timer = nullptr;

    leftovers.timer = &timer; // the references that joinLoop took
    leftovers.loop = timer.loop;
    leftovers.context = timer.loop->context;
    leftovers.source = timer.source;
    leftovers.modes = timer.modes;
    timer.loop = nullptr;
    timer.source = nullptr;
    timer.modes = nullptr;
    timer.common = false;
    timer.next = nullptr;
}

__CFRunLoopTimer::__CFRunLoopTimer(int timerDescriptor, const kiv::cf::TimerSchedule &dates,
                                   CFRunLoopTimerCallBack function) noexcept
    : Object{kTimerType}, descriptor{timerDescriptor}, callout{function}, schedule{dates}
{
}

// ---- Timers in loops ----

Boolean KIVPRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode)
{
    {
        const std::lock_guard lock{runLoopMutex};
        if (!mayBeAdded(*rl, *timer, mode))
            return true; // before allocating memory that is not needed
    }
    const bool common = isCommon(mode);
    Mode *named = common ? nullptr : createMode(mode);
    if (!common && named == nullptr)
        return false;
    {
        const std::lock_guard lock{runLoopMutex};
        if (mayBeAdded(*rl, *timer, mode))
        {
            timer->common = timer->common || common;
            if (!common)
            {
                named->next = timer->modes;
                timer->modes = std::exchange(named, nullptr);
            }
            if (timer->loop == nullptr)
                joinLoop(*rl, *timer);
            else
                kiv::cf::followMode(*timer);
        }
    }
    freeModes(named); // do not access the timer here: its callout may have ended it by now
    return true;
}

void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode)
{
    (void)KIVPRunLoopAddTimer(rl, timer, mode); // this call cannot report a failure
}

void CFRunLoopRemoveTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode)
{
    Leftovers leftovers;
    Mode *removed = nullptr;
    {
        const std::lock_guard lock{runLoopMutex};
        if (timer->loop != rl || !hasMode(*timer, mode))
            return;
        if (isCommon(mode))
            timer->common = false;
        else
        {
            Mode **link = findMode(*timer, mode);
            removed = *link;
            *link = std::exchange(removed->next, nullptr);
        }
        if (!timer->common && timer->modes == nullptr)
            kiv::cf::leaveLoop(*timer, leftovers);
        else
            kiv::cf::followMode(*timer);
    }
    freeModes(removed);
}

Boolean CFRunLoopContainsTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode)
{
    const std::lock_guard lock{runLoopMutex};
    return timer->loop == rl && hasMode(*timer, mode);
}

// ---- Timers ----

CFTypeID CFRunLoopTimerGetTypeID(void)
{
    return kiv::cf::kTypeRunLoopTimer;
}

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate, CFTimeInterval interval,
                                       CFOptionFlags, CFIndex, CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext *context)
{
    const int descriptor = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (descriptor < 0)
        return nullptr;
    const kiv::cf::TimerSchedule schedule{fireDate, interval, readClock(CLOCK_REALTIME)};
    auto *timer = kiv::cf::create<__CFRunLoopTimer>(0, descriptor, schedule, callout);
    if (timer == nullptr)
    {
        close(descriptor);
        return nullptr;
    }
    if (context != nullptr)
    {
        timer->context = *context;
        if (context->retain != nullptr)
            timer->context.info = const_cast<void *>(context->retain(context->info));
    }
    arm(*timer);
    return timer;
}

CFAbsoluteTime CFRunLoopTimerGetNextFireDate(CFRunLoopTimerRef timer)
{
    const std::lock_guard lock{runLoopMutex};
    return timer->valid ? timer->schedule.nextDate() : 0;
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer)
{
    Leftovers leftovers;
    const std::lock_guard lock{runLoopMutex};
    if (timer->valid)
        invalidate(*timer, leftovers);
}

Boolean CFRunLoopTimerIsValid(CFRunLoopTimerRef timer)
{
    const std::lock_guard lock{runLoopMutex};
    return timer->valid;
}
