// Timers: a function called at an interval, on a thread of its own or by a run loop.
#include "KIVCS2Timer.h"

#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPRunLoop.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <thread>

namespace
{
using Seconds = std::chrono::duration<double>;

// The longest time until a timer's thread notices that it is cancelled.
constexpr Seconds kSlice{0.25};

constexpr KIVCS2TimerFlags kRunLoopFlags =
    KIVCS2TimerFlags_RunLoop | KIVCS2TimerFlags_MainRunLoop | KIVCS2TimerFlags_CurrentRunLoop;

// Access to a plain member of the record that the timer's thread reads while cancel writes it.
template <class Member>
std::atomic_ref<Member> shared(Member &member)
{
    return std::atomic_ref<Member>{member};
}

// ---- Thread ----

// The data of the timer's thread on its own stack: once a callback has freed the record, the thread must not
// read it.
struct Worker
{
    KIVCS2Timer *record; // null once freed by the callback
    KIVCS2TimerFunc callback;
    void *context;
    Seconds interval;
};

// The worker of the calling thread, if it is one.
constinit thread_local Worker *t_worker = nullptr;

[[nodiscard]] Worker *ownWorkerOf(const KIVCS2Timer *record)
{
    return t_worker != nullptr && t_worker->record == record ? t_worker : nullptr;
}

[[nodiscard]] bool isRunning(const Worker &worker)
{
    return worker.record != nullptr && shared(worker.record->m_running).load() != 0;
}

// Cancel clears the callback before the context. Because they are read in the reverse order, a callback that
// is not null has its context.
[[nodiscard]] Worker workerOf(KIVCS2Timer &record)
{
    void *context = shared(record.m_context).load();
    return {&record, shared(record.m_callback).load(), context, Seconds{record.m_interval}};
}

// Sleeps until no time remains or the timer is cancelled.
template <class Remaining>
void sleepInSlices(const Worker &worker, Remaining remaining)
{
    while (isRunning(worker))
    {
        const Seconds left = remaining();
        if (!(left > Seconds::zero())) // NaN as well
            return;
        std::this_thread::sleep_for(std::chrono::ceil<std::chrono::nanoseconds>(std::min(left, kSlice)));
    }
}

void waitForFireDate(const Worker &worker, CFAbsoluteTime fireDate)
{
    // By the wall clock, so that a change of the clock is followed within a slice.
    sleepInSlices(worker, [fireDate] { return Seconds{fireDate - CFAbsoluteTimeGetCurrent()}; });
}

void waitForInterval(const Worker &worker)
{
    using Clock = std::chrono::steady_clock;
    sleepInSlices(worker, [start = Clock::now(), interval = worker.interval]
                  { return interval - Seconds{Clock::now() - start}; });
}

void *runTimer(void *argument)
{
    auto *record = static_cast<KIVCS2Timer *>(argument);
    Worker worker = workerOf(*record);
    if (worker.callback == nullptr) // not given, or already cancelled
        return nullptr;
    t_worker = &worker;

    // Kept: hosts rely on the first call coming one interval after the fire date.
    waitForFireDate(worker, record->m_fireDate);
    int32_t result = 0;
    while (isRunning(worker) && result != KIVCS2TimerResult_End)
    {
        if (result != KIVCS2TimerResult_Again)
            waitForInterval(worker);
        if (isRunning(worker))
            result = worker.callback(worker.context);
    }
    t_worker = nullptr;
    return nullptr;
}

[[nodiscard]] KIVCS2Status startThread(KIVCS2Timer &record)
{
    record.m_thread = static_cast<KIVCS2Thread *>(kivCS2ZeroMalloc(sizeof(KIVCS2Thread)));
    if (record.m_thread == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    KIVCS2Thread *thread = record.m_thread;
    const KIVCS2Status status = kivCS2Thread_init(thread, &record, runTimer);
    if (KIVCS2_FAILED(status))
        std::free(thread);
    return status;
}

// ---- Run loop ----

// The calls made by a run loop. They are counted, because a loop on another thread may be in a call while the
// timer is freed.
struct Calls
{
    std::atomic<uint32_t> references{1};
    KIVCS2TimerFunc callback;
    void *context;
};

const void *retainCalls(const void *info)
{
    static_cast<Calls *>(const_cast<void *>(info))->references.fetch_add(1, std::memory_order_relaxed);
    return info;
}

void releaseCalls(const void *info)
{
    auto *calls = static_cast<Calls *>(const_cast<void *>(info));
    if (calls->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete calls;
}

void callOut(CFRunLoopTimerRef, void *info)
{
    const auto *calls = static_cast<const Calls *>(info);
    if (calls->callback != nullptr)
        (void)calls->callback(calls->context); // Kept: hosts rely on run loops ignoring the result.
}

[[nodiscard]] CFRunLoopTimerRef createRunLoopTimer(const KIVCS2Timer &record)
{
    auto *calls = new (std::nothrow) Calls{.callback = record.m_callback, .context = record.m_context};
    if (calls == nullptr)
        return nullptr;
    CFRunLoopTimerContext context{0, calls, retainCalls, releaseCalls, nullptr};
    CFRunLoopTimerRef timer = CFRunLoopTimerCreate(kCFAllocatorDefault, record.m_fireDate, record.m_interval,
                                                   0, 0, callOut, &context);
    releaseCalls(calls);
    return timer;
}

[[nodiscard]] KIVCS2Status startRunLoopTimer(KIVCS2Timer &record)
{
    CFRunLoopRef loop = nullptr;
    if ((record.m_flags & KIVCS2TimerFlags_MainRunLoop) != 0)
        loop = CFRunLoopGetMain();
    else if ((record.m_flags & KIVCS2TimerFlags_CurrentRunLoop) != 0)
        loop = CFRunLoopGetCurrent();
    const bool addsNow =
        (record.m_flags & (KIVCS2TimerFlags_MainRunLoop | KIVCS2TimerFlags_CurrentRunLoop)) != 0;
    if (addsNow && loop == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;

    record.m_runLoopTimer = createRunLoopTimer(record);
    if (record.m_runLoopTimer == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    if (loop != nullptr)
        CFRunLoopAddTimer(loop, record.m_runLoopTimer, kCFRunLoopCommonModes);
    return KIVCS2STATUS_OK; // the record may be gone: the loop's thread may already have made a call
}
} // namespace

KIVCS2Status kivCS2Timer_create(KIVCS2Timer **_timer, KIVCS2TimerFunc callback, void *context,
                                KIVCS2TimerFlags flags, double interval, CFAbsoluteTime fireDate)
{
    KIV_CHECK(_timer);

    *_timer = nullptr;
    auto *record = static_cast<KIVCS2Timer *>(kivCS2ZeroMalloc(sizeof(KIVCS2Timer)));
    if (record == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    record->m_running = 1;
    record->m_flags = flags;
    record->m_callback = callback;
    record->m_context = context;
    record->m_interval = interval;
    record->m_fireDate = fireDate;

    // Stored before the timer runs, because its first callback may use the timer and free it.
    *_timer = record;
    KIVCS2Status status = KIVCS2STATUS_OK;
    if ((flags & KIVCS2TimerFlags_Thread) != 0)
        status = startThread(*record);
    else if ((flags & kRunLoopFlags) != 0)
        status = startRunLoopTimer(*record);
    if (KIVCS2_FAILED(status))
    {
        *_timer = nullptr;
        std::free(record);
    }
    return status;
}

KIVCS2Status kivCS2Timer_addToRunLoop(KIVCS2Timer *_timer, CFRunLoopRef _runLoop, CFStringRef _mode)
{
    KIV_CHECK(_timer);
    KIV_CHECK(_runLoop);
    KIV_CHECK(_mode);

    if (_timer->m_runLoopTimer == nullptr || (_timer->m_flags & KIVCS2TimerFlags_RunLoop) == 0)
        return KIVCS2STATUS_PARAM_ERR;

    // Kept: hosts rely on success for a timer that stays in another run loop, or has ended.
    const bool hadMemory = KIVPRunLoopAddTimer(_runLoop, _timer->m_runLoopTimer, _mode);
    return hadMemory ? KIVCS2STATUS_OK : KIVCS2STATUS_MEMORY_ERR; // its callback may have freed the timer
}

KIVCS2Status kivCS2Timer_cancel(KIVCS2Timer *_timer)
{
    KIV_CHECK(_timer);

    if ((_timer->m_flags & KIVCS2TimerFlags_Thread) != 0)
        shared(_timer->m_running).store(0);
    else if (_timer->m_runLoopTimer != nullptr)
        CFRunLoopTimerInvalidate(_timer->m_runLoopTimer);
    shared(_timer->m_callback).store(nullptr); // first: see workerOf()
    shared(_timer->m_context).store(nullptr);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Timer_free(KIVCS2Timer *_timer)
{
    KIV_CHECK(_timer);
    const bool hasThread = (_timer->m_flags & KIVCS2TimerFlags_Thread) != 0;
    const bool hasRunLoopTimer = !hasThread && (_timer->m_flags & kRunLoopFlags) != 0;
    KIV_CHECK_AS(!hasThread || _timer->m_thread != nullptr, "(_timer->m_thread) != NULL",
                 KIVCS2STATUS_PARAM_ERR);
    KIV_CHECK_AS(!hasRunLoopTimer || _timer->m_runLoopTimer != nullptr, "(_timer->m_runLoopTimer) != NULL",
                 KIVCS2STATUS_PARAM_ERR);

    KIV_TRY(kivCS2Timer_cancel(_timer));
    if (hasThread)
    {
        if (Worker *worker = ownWorkerOf(_timer); worker != nullptr)
            worker->record = nullptr; // the thread cannot join itself: it is detached and ends by itself
        else
            KIV_TRY(kivCS2Thread_join(_timer->m_thread));
        KIV_TRY(kivCS2Thread_free(_timer->m_thread));
        std::free(_timer->m_thread);
    }
    if (hasRunLoopTimer)
        CFRelease(_timer->m_runLoopTimer);
    *_timer = {};
    std::free(_timer);
    return KIVCS2STATUS_OK;
}
