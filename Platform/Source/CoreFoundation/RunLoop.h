// Inside of run loops and their timers. Everything below is guarded by one mutex of our own: GLib's locks
// order its own data, but ThreadSanitizer does not see them, and a timer's state outlives its source. No callout
// and no release of a host's runs under it.
#ifndef KIV_PLATFORM_RUN_LOOP_H
#define KIV_PLATFORM_RUN_LOOP_H

#include <CoreFoundation/CFRunLoop.h>

#include "CoreFoundation/Object.h"
#include "CoreFoundation/TimerSchedule.h"

#include <glib.h>

#include <mutex>

namespace kiv::cf
{
extern std::mutex runLoopMutex;

// A mode a timer was added to, other than the common ones.
struct Mode
{
    CFStringRef name;
    Mode *next;
};

// One call of CFRunLoopRunInMode(), on that call's stack.
struct Run
{
    CFRunLoopMode mode;
    Run *outer = nullptr;
    bool stopped = false;
    bool timerServed = false; // since the last look at the context
};
} // namespace kiv::cf

struct __CFRunLoop : kiv::cf::Object
{
    explicit __CFRunLoop(GMainContext *loopContext, CFIndex count = 1) noexcept;

    GMainContext *context; // a host's, which is not kept: null once it is gone. Else with a reference.
    __CFRunLoopTimer *timers = nullptr; // each retained, and each retains loop and context while it is here
    kiv::cf::Run *run = nullptr;        // the innermost; none while GLib runs the context itself
    __CFRunLoop *next = nullptr;        // of all loops of hosts' contexts
};

struct __CFRunLoopTimer : kiv::cf::Object
{
    __CFRunLoopTimer(int timerDescriptor, const kiv::cf::TimerSchedule &dates,
                     CFRunLoopTimerCallBack function) noexcept;

    const int descriptor; // a timerfd, closed with the object: a callout in progress may still read it
    const CFRunLoopTimerCallBack callout;
    CFRunLoopTimerContext context{};
    kiv::cf::TimerSchedule schedule;
    int64_t realTimeAhead = 0; // of the real-time clock to the monotonic one when the timer was armed
    bool valid = true;
    bool calling = false;

    __CFRunLoop *loop = nullptr;
    GSource *source = nullptr; // of this loop; the rest is meaningful with it
    gpointer pollTag = nullptr;
    bool polled = false;
    bool common = false;
    kiv::cf::Mode *modes = nullptr;
    __CFRunLoopTimer *next = nullptr;
};

namespace kiv::cf
{
// What a timer leaves behind, released when the mutex is no longer held: declare it before the lock.
struct Leftovers
{
    Leftovers() = default;
    ~Leftovers();
    Leftovers(const Leftovers &) = delete;
    Leftovers &operator=(const Leftovers &) = delete;

    __CFRunLoopTimer *timer = nullptr;
    __CFRunLoop *loop = nullptr;
    GMainContext *context = nullptr;
    GSource *source = nullptr;
    Mode *modes = nullptr;
    void (*release)(const void *info) = nullptr;
    const void *info = nullptr;
};

// ---- With the mutex held ----

[[nodiscard]] bool isInMode(const __CFRunLoopTimer &timer, CFRunLoopMode mode) noexcept;
// Has GLib look at the timer's descriptor in the mode the loop is in, and only there.
void followMode(__CFRunLoopTimer &timer) noexcept;
void leaveLoop(__CFRunLoopTimer &timer, Leftovers &leftovers) noexcept;
} // namespace kiv::cf

#endif
