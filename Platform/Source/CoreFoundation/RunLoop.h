// Internals of run loops and their timers. One mutex of our own guards everything below: GLib's locks order
// only its own data, ThreadSanitizer does not see them, and a timer's state outlives its source. No callout
// and no release callback of a host runs under the mutex.
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

// A mode that a timer was added to, other than the common ones.
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
    bool timerServed = false; // since the last iteration of the context
};
} // namespace kiv::cf

struct __CFRunLoop : kiv::cf::Object
{
    explicit __CFRunLoop(GMainContext *loopContext, CFIndex count = 1) noexcept;

    GMainContext *context; // not retained if it is a host's, and null once that has ended; else retained
    __CFRunLoopTimer *timers = nullptr; // each is retained, and retains loop and context while in this list
    kiv::cf::Run *run = nullptr;        // the innermost; null while GLib runs the context itself
    __CFRunLoop *next = nullptr;        // in the list of the loops of hosts' contexts
};

struct __CFRunLoopTimer : kiv::cf::Object
{
    __CFRunLoopTimer(int timerDescriptor, const kiv::cf::TimerSchedule &dates,
                     CFRunLoopTimerCallBack function) noexcept;

    const int descriptor; // a timerfd, closed with the object: a callout in progress may still read it
    const CFRunLoopTimerCallBack callout;
    CFRunLoopTimerContext context{};
    kiv::cf::TimerSchedule schedule;
    int64_t realTimeAhead = 0; // real-time clock minus monotonic clock when the timer was armed
    bool valid = true;
    bool calling = false;

    __CFRunLoop *loop = nullptr;
    GSource *source = nullptr; // in this loop; the members below need it
    gpointer pollTag = nullptr;
    bool polled = false;
    bool common = false;
    kiv::cf::Mode *modes = nullptr;
    __CFRunLoopTimer *next = nullptr;
};

namespace kiv::cf
{
// References that a timer gives up, released when the mutex is no longer held: declare it before the lock.
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
// Lets GLib poll the timer's descriptor only while the loop is in one of the timer's modes.
void followMode(__CFRunLoopTimer &timer) noexcept;
void leaveLoop(__CFRunLoopTimer &timer, Leftovers &leftovers) noexcept;
} // namespace kiv::cf

#endif
