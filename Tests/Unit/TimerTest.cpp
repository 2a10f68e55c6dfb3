// Timers on threads and run loops, cancelled and freed by owners and callbacks. Times have lower bounds only;
// the order of calls shows that a call does not come, never a wait.
#include <KIVCoreServices2/KIVCS2Timer.h>

#include "CFText.h"
#include "NoThreads.h"
#include "RequiredPointers.h"
#include "RunLoopThread.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <limits>
#include <semaphore>
#include <thread>

namespace
{
static_assert(sizeof(KIVCS2Timer) == 56 && offsetof(KIVCS2Timer, m_running) == 0 &&
              sizeof(KIVCS2Timer::m_running) == 1 && offsetof(KIVCS2Timer, m_flags) == 4 &&
              offsetof(KIVCS2Timer, m_thread) == 8 && offsetof(KIVCS2Timer, m_runLoopTimer) == 16 &&
              offsetof(KIVCS2Timer, m_callback) == 24 && offsetof(KIVCS2Timer, m_context) == 32 &&
              offsetof(KIVCS2Timer, m_interval) == 40 && offsetof(KIVCS2Timer, m_fireDate) == 48);

using namespace kiv::test;
using Gate = std::binary_semaphore;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr CFAbsoluteTime kPast = 0; // 2001
constexpr double kSoon = 0.001;
constexpr CFTimeInterval kEndless = 3600; // the test ends such a run
constexpr int32_t kNext = 0;

CFAbsoluteTime hours(double count)
{
    return CFAbsoluteTimeGetCurrent() + count * 3600;
}

// A timer whose callback is a function of the test, which gets the number of the call. Freed at the end.
struct Stage
{
    std::function<int32_t(int)> onCall = [](int) { return kNext; };
    KIVCS2Timer *timer = nullptr;
    std::atomic<int> calls{0};
    std::thread::id calledOn;

    ~Stage()
    {
        if (timer != nullptr)
        {
            EXPECT_OK(free());
        }
    }
    KIVCS2Status create(KIVCS2TimerFlags flags, double interval = kSoon, CFAbsoluteTime fireDate = kPast)
    {
        return kivCS2Timer_create(&timer, call, this, flags, interval, fireDate);
    }
    KIVCS2Status free()
    {
        return kivCS2Timer_free(std::exchange(timer, nullptr));
    }

private:
    static int32_t call(void *context)
    {
        auto &stage = *static_cast<Stage *>(context);
        stage.calledOn = std::this_thread::get_id();
        return stage.onCall(++stage.calls);
    }
};

// Ends the run of the calling thread's loop at the given call.
std::function<int32_t(int)> stopAtCall(int last)
{
    return [last](int call)
    {
        if (call == last)
            CFRunLoopStop(CFRunLoopGetCurrent());
        return KIVCS2TimerResult_End;
    };
}

// Ends the timer's thread at the given call, and opens the gate.
std::function<int32_t(int)> endAtCall(int last, Gate &ended, int32_t before = kNext)
{
    return [last, &ended, before](int call)
    {
        if (call < last)
            return before;
        ended.release();
        return int32_t{KIVCS2TimerResult_End};
    };
}

CFRunLoopRunResult runMode(CFRunLoopMode mode = kCFRunLoopDefaultMode)
{
    return CFRunLoopRunInMode(mode, kEndless, false);
}

} // namespace

// ---- Thread ----

TEST(TimerThread, CallsAfterEachIntervalUntilTheResultEndsIt)
{
    using Clock = std::chrono::steady_clock;
    for (const KIVCS2TimerFlags flags :
         {uint32_t{KIVCS2TimerFlags_Thread}, uint32_t{1 | 2 | 4 | 8}}) // the thread's flag wins
    {
        Stage stage;
        Gate ended{0};
        stage.onCall = endAtCall(3, ended, -1);
        const auto start = Clock::now();
        ASSERT_OK(stage.create(flags, 0.02));
        EXPECT_EQ(stage.timer->m_runLoopTimer, nullptr);
        ended.acquire();
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds{60});
        EXPECT_NE(stage.calledOn, std::this_thread::get_id());
        EXPECT_EQ(kivCS2Timer_addToRunLoop(stage.timer, CFRunLoopGetMain(), kCFRunLoopCommonModes),
                  KIVCS2STATUS_PARAM_ERR);
        EXPECT_OK(stage.free());
        EXPECT_EQ(stage.calls, 3);
    }
}

TEST(TimerThread, TheFirstCallComesOneIntervalAfterTheFireDate)
{
    Gate called{0};
    CFAbsoluteTime at = 0;
    Stage stage;
    stage.onCall = [&](int)
    {
        at = CFAbsoluteTimeGetCurrent();
        called.release();
        return KIVCS2TimerResult_End;
    };
    const CFAbsoluteTime fireDate = CFAbsoluteTimeGetCurrent() + 0.3; // more than a slice
    ASSERT_OK(stage.create(KIVCS2TimerFlags_Thread, 0.3, fireDate));
    called.acquire();
    EXPECT_GE(at, fireDate + 0.299);
}

TEST(TimerThread, AResultOfTwoRepeatsAtOnce)
{
    Gate ended{0};
    Stage stage;
    stage.onCall = endAtCall(5000, ended, KIVCS2TimerResult_Again); // half an hour with waits
    ASSERT_OK(stage.create(KIVCS2TimerFlags_Thread, 0.4));
    ended.acquire();
}

TEST(TimerThread, IntervalsAndDatesThatAreNotPositiveDoNotWait)
{
    for (const double interval : {0.0, -1.0, kNaN, -kInfinity, 1e-12})
        for (const CFAbsoluteTime fireDate : {kPast, -1e300, kNaN, -kInfinity})
        {
            Gate ended{0};
            Stage stage;
            stage.onCall = endAtCall(3, ended);
            ASSERT_OK(stage.create(KIVCS2TimerFlags_Thread, interval, fireDate));
            ended.acquire();
        }
}

TEST(TimerThread, FreeDoesNotWaitForAFarDateOrInterval)
{
    const std::pair<double, CFAbsoluteTime> cases[] = {{3600, kPast}, {kInfinity, kPast}, {1e300, kPast},
                                                       {1, hours(1)}, {1, kInfinity},     {1, 1e300}};
    Stage stages[std::size(cases)];
    for (size_t index = 0; index < std::size(cases); ++index)
        ASSERT_OK(stages[index].create(KIVCS2TimerFlags_Thread, cases[index].first, cases[index].second));
    // When a thread made after them has slept, they sleep too.
    Stage marker;
    Gate called{0};
    marker.onCall = endAtCall(1, called);
    ASSERT_OK(marker.create(KIVCS2TimerFlags_Thread, 0.02));
    called.acquire();
    EXPECT_OK(marker.free());
    for (Stage &stage : stages)
        EXPECT_OK(kivCS2Timer_cancel(stage.timer));
    for (Stage &stage : stages)
    {
        EXPECT_OK(stage.free());
        EXPECT_EQ(stage.calls, 0);
    }
}

TEST(TimerThread, CancelDuringACallLetsItFinish)
{
    Stage stage;
    Gate entered{0};
    Gate leave{0};
    stage.onCall = [&](int)
    {
        entered.release();
        leave.acquire();
        return KIVCS2TimerResult_Again; // without effect
    };
    ASSERT_OK(stage.create(KIVCS2TimerFlags_Thread));
    EXPECT_EQ(stage.timer->m_running, 1);
    entered.acquire();
    EXPECT_OK(kivCS2Timer_cancel(stage.timer));
    EXPECT_OK(kivCS2Timer_cancel(stage.timer));
    EXPECT_TRUE(!stage.timer->m_running && !stage.timer->m_callback && !stage.timer->m_context);
    leave.release();
    EXPECT_OK(stage.free());
    EXPECT_EQ(stage.calls, 1);
}

TEST(TimerThread, CancelAtAnyMomentNeverLosesTheContextOfACall)
{
    std::atomic<int> calls{0};
    for (int time = 0; time < 200; ++time)
    {
        KIVCS2Timer *timer = nullptr;
        ASSERT_OK(kivCS2Timer_create(
            &timer,
            [](void *context) -> int32_t
            {
                ++*static_cast<std::atomic<int> *>(context);
                return KIVCS2TimerResult_Again;
            },
            &calls, KIVCS2TimerFlags_Thread, 0, kPast));
        spin(time); // later and later in the thread's start
        EXPECT_OK(kivCS2Timer_cancel(timer));
        EXPECT_OK(kivCS2Timer_free(timer));
    }
}

TEST(TimerThread, IsFreedByItsOwnCallback)
{
    for (const bool cancelsFirst : {false, true})
    {
        Stage stage;
        Gate gone{0};
        KIVCS2Status status = KIVCS2STATUS_ERR;
        stage.onCall = [&](int)
        {
            openAtThreadExit(gone);
            if (cancelsFirst)
                (void)kivCS2Timer_cancel(stage.timer);
            status = stage.free();
            return KIVCS2TimerResult_Again;
        };
        ASSERT_OK(stage.create(KIVCS2TimerFlags_Thread, 0)); // the call may come before this returns
        gone.acquire();
        EXPECT_OK(status);
        EXPECT_EQ(stage.calls, 1);
        EXPECT_EQ(stage.timer, nullptr);
    }
}

TEST(TimerThread, WithoutACallbackOrAThread)
{
    KIVCS2Timer *timer = nullptr;
    ASSERT_OK(kivCS2Timer_create(&timer, nullptr, nullptr, KIVCS2TimerFlags_Thread, 0, kPast));
    EXPECT_OK(kivCS2Timer_free(timer));

    const NoThreads none;
    Stage stage;
    EXPECT_EQ(stage.create(KIVCS2TimerFlags_Thread), KIVCS2STATUS_THREAD_ERR);
    EXPECT_EQ(stage.timer, nullptr);
}

// ---- Run loops ----

TEST(TimerRunLoop, FlagsChooseTheLoopAndResultsAreIgnored)
{
    const auto mainThread = std::this_thread::get_id();
    // The main loop's flag works on a timer that another thread has made.
    for (const auto &[flags, onMain] : {std::pair{4u, true}, {8u, false}, {4u | 8u, true}, {2u | 4u, true}})
    {
        SCOPED_TRACE(flags);
        Stage stage;
        stage.onCall = stopAtCall(3);
        std::thread::id creator;
        std::thread{[&, asked = flags, runs = !onMain]
                    {
                        creator = std::this_thread::get_id();
                        ASSERT_OK(stage.create(asked));
                        if (runs)
                        {
                            EXPECT_EQ(runMode(), kCFRunLoopRunStopped);
                        }
                    }}
            .join();
        if (onMain)
        {
            EXPECT_EQ(stage.calls, 0);
            EXPECT_EQ(runMode(), kCFRunLoopRunStopped);
        }
        EXPECT_EQ(stage.calledOn, onMain ? mainThread : creator);
        EXPECT_EQ(stage.calls, 3);
        EXPECT_EQ(stage.timer->m_thread, nullptr);
    }
}

TEST(TimerRunLoop, WithoutItsFlagItIsNotAddedAndWithoutAnyNeverCalls)
{
    for (const KIVCS2TimerFlags flags : {0u, 16u, 0xfffffff0u, 4u, 8u, 12u})
    {
        Stage stage;
        ASSERT_OK(stage.create(flags, kSoon, (flags & 12) != 0 ? kInfinity : kPast));
        EXPECT_EQ(stage.timer->m_runLoopTimer != nullptr, (flags & 12) != 0);
        EXPECT_EQ(kivCS2Timer_addToRunLoop(stage.timer, CFRunLoopGetMain(), kCFRunLoopDefaultMode),
                  KIVCS2STATUS_PARAM_ERR);
        (void)CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false);
        EXPECT_EQ(stage.calls, 0);
        EXPECT_EQ(stage.timer->m_running, 1);
    }
}

TEST(TimerRunLoop, IsAddedToALoopOfAnotherThreadAndStaysThere)
{
    RunLoopThread other;
    Stage stage;
    Gate called{0};
    stage.onCall = [&](int call)
    {
        if (call == 3)
            called.release();
        return kNext;
    };
    ASSERT_OK(stage.create(KIVCS2TimerFlags_RunLoop));
    EXPECT_OK(kivCS2Timer_addToRunLoop(stage.timer, other.loop(), kCFRunLoopCommonModes));
    EXPECT_OK(kivCS2Timer_addToRunLoop(stage.timer, other.loop(), kCFRunLoopCommonModes));
    EXPECT_OK(kivCS2Timer_addToRunLoop(stage.timer, CFRunLoopGetMain(), kCFRunLoopCommonModes));
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false), kCFRunLoopRunFinished); // without a timer
    called.acquire();
    const std::thread::id expected = other.id();
    other.stop(); // joins the thread, so no call is in progress
    EXPECT_EQ(stage.calledOn, expected);
}

TEST(TimerRunLoop, WaitsForItsMode)
{
    const StringRef ingest = fromBytes("ingest");
    Stage parked;
    parked.onCall = stopAtCall(1);
    ASSERT_OK(parked.create(KIVCS2TimerFlags_RunLoop));
    ASSERT_OK(kivCS2Timer_addToRunLoop(parked.timer, CFRunLoopGetMain(), ingest.get()));

    Stage common;
    common.onCall = stopAtCall(5);
    ASSERT_OK(common.create(KIVCS2TimerFlags_CurrentRunLoop));
    EXPECT_EQ(runMode(), kCFRunLoopRunStopped);
    EXPECT_EQ(parked.calls, 0);

    EXPECT_EQ(runMode(fromBytes("ingest").get()), kCFRunLoopRunStopped);
    EXPECT_EQ(parked.calls, 1);
    EXPECT_EQ(common.calls, 5); // although it was due
}

TEST(TimerRunLoop, WithoutAnIntervalItCallsOnce)
{
    for (const double interval : {0.0, -2.0, kNaN, -kInfinity})
    {
        Stage stage;
        ASSERT_OK(stage.create(KIVCS2TimerFlags_RunLoop | KIVCS2TimerFlags_CurrentRunLoop, interval, kNaN));
        EXPECT_EQ(runMode(), kCFRunLoopRunFinished); // by itself, because the loop has no timer left
        EXPECT_EQ(stage.calls, 1);
        EXPECT_FALSE(CFRunLoopTimerIsValid(stage.timer->m_runLoopTimer));
        EXPECT_OK(kivCS2Timer_addToRunLoop(stage.timer, CFRunLoopGetMain(), kCFRunLoopDefaultMode));
        EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false), kCFRunLoopRunFinished);
    }
}

TEST(TimerRunLoop, IsCancelledAndFreedByItsOwnCallback)
{
    for (const bool frees : {false, true})
    {
        Stage stage;
        stage.onCall = [&](int)
        {
            EXPECT_OK(frees ? stage.free() : kivCS2Timer_cancel(stage.timer));
            return kNext;
        };
        ASSERT_OK(stage.create(KIVCS2TimerFlags_CurrentRunLoop));
        EXPECT_EQ(runMode(), kCFRunLoopRunFinished);
        EXPECT_EQ(stage.calls, 1);
        EXPECT_TRUE(frees || (!stage.timer->m_callback && !stage.timer->m_context));
    }
}

TEST(TimerRunLoop, FreeOnAnotherThreadLetsTheCallInProgressFinish)
{
    RunLoopThread other;
    Stage stage;
    Gate entered{0};
    Gate leave{0};
    stage.onCall = [&](int)
    {
        entered.release();
        leave.acquire();
        return kNext;
    };
    ASSERT_OK(stage.create(KIVCS2TimerFlags_RunLoop));
    ASSERT_OK(kivCS2Timer_addToRunLoop(stage.timer, other.loop(), kCFRunLoopDefaultMode));
    entered.acquire();
    EXPECT_OK(stage.free()); // does not wait for the call
    leave.release();
    other.stop();
    EXPECT_EQ(stage.calls, 1);
}

// ---- Arguments ----

TEST(Timer, RefusesMissingArguments)
{
    Stage stage;
    ASSERT_OK(stage.create(KIVCS2TimerFlags_RunLoop));
    KIVCS2Timer withoutThread{};
    withoutThread.m_flags = KIVCS2TimerFlags_Thread;
    KIVCS2Timer withoutRunLoopTimer{};
    withoutRunLoopTimer.m_flags = KIVCS2TimerFlags_MainRunLoop;
    KIV_REQUIRES_EACH(kivCS2Timer_create, "_timer, -, -");
    KIV_REQUIRES_EACH(kivCS2Timer_addToRunLoop, "_timer, _runLoop, _mode");
    KIV_REQUIRES_EACH(kivCS2Timer_cancel, "_timer");
    KIV_REQUIRES_EACH(kivCS2Timer_free, "_timer");
    expectAllRefused({
        KIV_REQUIRES(kivCS2Timer_free, "(_timer->m_thread) != NULL", &withoutThread),
        KIV_REQUIRES(kivCS2Timer_free, "(_timer->m_runLoopTimer) != NULL", &withoutRunLoopTimer),
    });
}
