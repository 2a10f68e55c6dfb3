// Run loops and timers: the dates of a schedule, the contexts of threads, modes, and runs.
#include "CFText.h"
#include "CoreFoundation/TimerSchedule.h"
#include "RunLoopThread.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <future>
#include <limits>
#include <pthread.h>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace
{
using kiv::CFRef;
using kiv::cf::TimerSchedule;
using namespace kiv::test;
using TimerRef = CFRef<CFRunLoopTimerRef>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr CFTimeInterval kEndless = 3600; // seconds: something else ends the run
constexpr int64_t kSecond = 1000000000;
constexpr int64_t k2001 = 978307200 * kSecond;

// A timer that calls a function of the test.
struct Timer
{
    explicit Timer(CFTimeInterval interval = 0, CFAbsoluteTime fireDate = 0)
    {
        CFRunLoopTimerContext context{0, this, nullptr, nullptr, nullptr};
        ref = TimerRef{CFRunLoopTimerCreate(nullptr, fireDate, interval, 0, 0, call, &context)};
    }
    ~Timer()
    {
        CFRunLoopTimerInvalidate(ref.get());
    }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    void add(CFRunLoopMode mode = kCFRunLoopDefaultMode, CFRunLoopRef loop = CFRunLoopGetCurrent())
    {
        CFRunLoopAddTimer(loop, ref.get(), mode);
    }
    [[nodiscard]] bool isIn(CFRunLoopMode mode, CFRunLoopRef loop = CFRunLoopGetCurrent()) const
    {
        return CFRunLoopContainsTimer(loop, ref.get(), mode);
    }

    TimerRef ref;
    std::function<void()> onFire = [] {};
    std::atomic<int> fired{0};

private:
    static void call(CFRunLoopTimerRef timer, void *info)
    {
        auto &self = *static_cast<Timer *>(info);
        EXPECT_EQ(timer, self.ref.get());
        ++self.fired;
        self.onFire();
    }
};

void stopCurrent()
{
    CFRunLoopStop(CFRunLoopGetCurrent());
}
} // namespace

// ---- Schedules ----

TEST(TimerSchedule, TheNextDateIsTheFirstOnTheGridToCome)
{
    struct Row
    {
        CFAbsoluteTime fireDate;
        CFTimeInterval interval;
        int64_t now; // after 2001
        int64_t next;
    };
    constexpr int64_t kDay = 86400 * kSecond;
    const Row rows[] = {
        {10, 1, 10 * kSecond, 11 * kSecond},
        {10, 1, 10 * kSecond + 1, 11 * kSecond},
        {10, 1, 11 * kSecond, 12 * kSecond},         // due again: its time has passed
        {10, 1, 4711 * kSecond + 5, 4712 * kSecond}, // missed calls are left out
        {10, 1, 9 * kSecond, 11 * kSecond},          // the clock was set back: one interval at least
        {0, 1.0 / 3, kSecond - 1, kSecond},          // not a nanosecond in the past
        {0, 0.04, 30 * kDay, 30 * kDay + 40000000},
        {0, 1001.0 / 30000, kDay, kDay + 13700000}, // 2,589,411 frames of 29.97 without a rounding
        {0, 1e-12, 5, 6},
        {-kInfinity, 1, 0, std::numeric_limits<int64_t>::min()}, // filled in below
        {0, 1e300, 5, TimerSchedule::kNever - k2001},
        {0, kInfinity, 5, TimerSchedule::kNever - k2001},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(testing::Message() << row.fireDate << " every " << row.interval << " at " << row.now);
        TimerSchedule schedule{row.fireDate, row.interval, 0};
        EXPECT_TRUE(schedule.repeats());
        schedule.advance(k2001 + row.now);
        if (std::isinf(row.fireDate))
        {
            EXPECT_GT(schedule.next(), k2001 + row.now);
            EXPECT_LE(schedule.next(), k2001 + row.now + kSecond);
            continue;
        }
        EXPECT_EQ(schedule.next(), k2001 + row.next);
    }
}

TEST(TimerSchedule, DatesAndIntervalsThatAreNone)
{
    using Row = std::tuple<CFAbsoluteTime, int64_t>;
    for (const auto &[fireDate, next] :
         {Row{0.25, k2001 + kSecond / 4}, Row{kNaN, 77}, Row{kInfinity, TimerSchedule::kNever},
          Row{1e300, TimerSchedule::kNever}, Row{-kInfinity, std::numeric_limits<int64_t>::min()}})
        EXPECT_EQ((TimerSchedule{fireDate, 1, 77}.next()), next) << fireDate;
    for (const CFTimeInterval interval : {0.0, -0.0, -1.0, kNaN, -kInfinity})
        EXPECT_FALSE((TimerSchedule{0, interval, 77}.repeats())) << interval;
    EXPECT_DOUBLE_EQ((TimerSchedule{123456.75, 1, 0}.nextDate()), 123456.75);
}

TEST(TimerSchedule, AClockThatIsSetMovesIntervalsAndNoFirstDate)
{
    TimerSchedule schedule{100, 1, 0};
    schedule.clockWasSet(3600 * kSecond);
    EXPECT_EQ(schedule.next(), k2001 + 100 * kSecond);
    schedule.fired();
    schedule.advance(k2001 + 100 * kSecond);
    for (const int64_t step : {3600 * kSecond, -7200 * kSecond, 3600 * kSecond + 1})
        schedule.clockWasSet(step);
    EXPECT_EQ(schedule.next(), k2001 + 101 * kSecond + 1);
}

// ---- Timers ----

TEST(RunLoopTimers, ALateOneFiresOnceAndStaysOnItsGrid)
{
    Timer late{3600, CFAbsoluteTimeGetCurrent() - 10000};
    const CFAbsoluteTime first = CFRunLoopTimerGetNextFireDate(late.ref.get());
    late.onFire = stopCurrent;
    late.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kEndless, false), kCFRunLoopRunStopped);
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, false), kCFRunLoopRunTimedOut);
    EXPECT_EQ(late.fired, 1);
    EXPECT_NEAR(CFRunLoopTimerGetNextFireDate(late.ref.get()), first + 3 * 3600, 1e-6);
    EXPECT_GE(CFGetRetainCount(late.ref.get()), 2); // one reference of the loop
    CFRunLoopTimerInvalidate(late.ref.get());
    EXPECT_EQ(CFGetRetainCount(late.ref.get()), 1);
    EXPECT_EQ(CFRunLoopTimerGetNextFireDate(late.ref.get()), 0);
}

TEST(RunLoopTimers, TheInfoIsReleasedOnceAfterTheLastCallout)
{
    struct Info
    {
        std::atomic<int> retained{0};
        std::atomic<int> released{0};
        int releasedInCallout = -1;
    };
    const auto create = [](Info &info, CFTimeInterval interval)
    {
        CFRunLoopTimerContext context{
            0, &info,
            [](const void *each) -> const void *
            {
                ++static_cast<Info *>(const_cast<void *>(each))->retained;
                return each;
            },
            [](const void *each) { ++static_cast<Info *>(const_cast<void *>(each))->released; }, nullptr};
        return TimerRef{CFRunLoopTimerCreate(
            nullptr, 0, interval, 0, 0,
            [](CFRunLoopTimerRef timer, void *each)
            {
                CFRunLoopTimerInvalidate(timer);
                CFRunLoopTimerInvalidate(timer);
                auto &called = *static_cast<Info *>(each);
                called.releasedInCallout = called.released;
            },
            &context)};
    };
    Info info[3];
    {
        const TimerRef neverAdded = create(info[0], 1);
        const TimerRef repeating = create(info[1], 1);
        const TimerRef once = create(info[2], 0);
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), repeating.get(), kCFRunLoopCommonModes);
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), once.get(), kCFRunLoopCommonModes);
        CFRunLoopRun();
        EXPECT_EQ(info[0].released + info[1].released + info[2].released, 2);
    }
    for (const Info &each : info)
    {
        EXPECT_EQ(each.retained, 1);
        EXPECT_EQ(each.released, 1);
        EXPECT_LE(each.releasedInCallout, 0);
    }
}

TEST(RunLoopTimers, BelongToOneLoopInSeveralModes)
{
    RunLoopThread other;
    const StringRef ingest = fromBytes("ingest");
    Timer timer{1, kInfinity};
    timer.add(ingest.get());
    timer.add(ingest.get());
    timer.add(kCFRunLoopCommonModes);
    EXPECT_TRUE(timer.isIn(ingest.get()) && timer.isIn(kCFRunLoopCommonModes));
    EXPECT_FALSE(timer.isIn(kCFRunLoopDefaultMode)); // only in this mode
    timer.add(kCFRunLoopDefaultMode, other.loop());
    EXPECT_FALSE(timer.isIn(kCFRunLoopDefaultMode, other.loop()));

    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.ref.get(), kCFRunLoopDefaultMode);
    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.ref.get(), kCFRunLoopCommonModes);
    EXPECT_TRUE(timer.isIn(ingest.get()));
    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.ref.get(), ingest.get());
    EXPECT_FALSE(timer.isIn(ingest.get()));
    EXPECT_TRUE(CFRunLoopTimerIsValid(timer.ref.get()));
    timer.add(kCFRunLoopDefaultMode, other.loop()); // may be added to another loop
    EXPECT_TRUE(timer.isIn(kCFRunLoopDefaultMode, other.loop()));
    EXPECT_FALSE(timer.isIn(kCFRunLoopCommonModes, other.loop()));
}

// ---- Runs and modes ----

TEST(RunLoops, ResultsTellWhyARunHasEnded)
{
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kEndless, false), kCFRunLoopRunFinished);
    CFRunLoopStop(CFRunLoopGetCurrent()); // no run: the stop is forgotten
    CFRunLoopWakeUp(CFRunLoopGetCurrent());

    Timer far{1, kInfinity};
    far.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopCommonModes, kEndless, false), kCFRunLoopRunFinished);
    for (const CFTimeInterval seconds : {0.001, 0.0, -1.0, kNaN})
        EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false), kCFRunLoopRunTimedOut)
            << seconds;

    bool served = false;
    const auto serve = [](gpointer flag) -> gboolean
    {
        *static_cast<bool *>(flag) = true;
        return G_SOURCE_REMOVE;
    };
    g_idle_add(serve, &served);
    Timer due;
    due.add();
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, kEndless, true), kCFRunLoopRunHandledSource);
    EXPECT_TRUE(served);
    EXPECT_EQ(due.fired, 1);
}

TEST(RunLoops, NestedRunsHaveTheirOwnModeAndEnd)
{
    const StringRef inner = fromBytes("inner");
    std::string order;
    Timer both;
    Timer innerOnly{1e-6};
    Timer common{1e-6};
    innerOnly.onFire = [&]
    {
        order += 'i';
        if (innerOnly.fired == 3)
            stopCurrent(); // only the inner run
    };
    common.onFire = [&]
    {
        order += 'c';
        stopCurrent();
    };
    both.add(inner.get());
    both.add();
    innerOnly.add(inner.get());
    both.onFire = [&]
    {
        common.add(kCFRunLoopCommonModes);
        order += '(';
        EXPECT_EQ(CFRunLoopRunInMode(inner.get(), kEndless, false), kCFRunLoopRunStopped);
        order += ')';
    };
    CFRunLoopRun();
    EXPECT_EQ(order, "(iii)c");
}

// ---- Contexts of threads ----

TEST(RunLoops, TheMainThreadsIsTheDefaultContextWhoeverRunsIt)
{
    EXPECT_EQ(CFRunLoopGetCurrent(), CFRunLoopGetMain());
    EXPECT_EQ(CFGetTypeID(CFRunLoopGetMain()), CFRunLoopGetTypeID());

    GMainLoop *host = g_main_loop_new(nullptr, FALSE); // the host's own loop
    Timer timer{1e-3};
    timer.onFire = [&]
    {
        if (timer.fired == 3)
            g_main_loop_quit(host);
    };
    timer.add(kCFRunLoopCommonModes);
    g_main_loop_run(host);
    EXPECT_GE(timer.fired, 3);

    std::thread{[]
                {
                    EXPECT_NE(CFRunLoopGetCurrent(), CFRunLoopGetMain());
                    ASSERT_TRUE(g_main_context_acquire(g_main_context_default()));
                    EXPECT_EQ(CFRunLoopGetCurrent(), CFRunLoopGetMain());
                    g_main_context_release(g_main_context_default());
                }}
        .join();
    g_main_loop_unref(host);
}

TEST(RunLoops, AThreadsIsItsDefaultContextOrOneOfItsOwn)
{
    GMainContext *shared = g_main_context_new();
    Timer timer{1e-3};
    CFRunLoopRef before = nullptr;
    std::thread{[&]
                {
                    CFRunLoopRef own = CFRunLoopGetCurrent();
                    EXPECT_EQ(own, CFRunLoopGetCurrent());
                    g_main_context_push_thread_default(shared);
                    before = CFRunLoopGetCurrent();
                    EXPECT_NE(before, own);
                    timer.add();
                    g_main_context_pop_thread_default(shared);
                    EXPECT_EQ(own, CFRunLoopGetCurrent());
                }}
        .join();
    // The timer keeps the loop of the context. The next thread that runs the context has both.
    std::thread{[&]
                {
                    g_main_context_push_thread_default(shared);
                    EXPECT_EQ(CFRunLoopGetCurrent(), before);
                    while (timer.fired < 2)
                        g_main_context_iteration(shared, TRUE);
                    g_main_context_pop_thread_default(shared);
                }}
        .join();
    g_main_context_unref(shared);
}

TEST(RunLoops, TimersLeaveTheLoopOfAThreadThatEnds)
{
    Timer timer;
    CFRef<CFRunLoopRef> gone;
    std::thread{[&]
                {
                    timer.add();
                    CFRetain(CFRunLoopGetCurrent());
                    gone = CFRef<CFRunLoopRef>{CFRunLoopGetCurrent()};
                }}
        .join();
    EXPECT_FALSE(timer.isIn(kCFRunLoopDefaultMode, gone.get()));
    EXPECT_TRUE(CFRunLoopTimerIsValid(timer.ref.get()));
    CFRunLoopWakeUp(gone.get());
    timer.add(kCFRunLoopDefaultMode, gone.get());
    EXPECT_FALSE(timer.isIn(kCFRunLoopDefaultMode, gone.get())); // no thread would call it
    timer.add();
    CFRunLoopRun();
    EXPECT_EQ(timer.fired, 1);
}

TEST(RunLoops, EndWithAContextOfTheHosts)
{
    bool ended = false;
    CFRef<CFRunLoopRef> loop;
    Timer timer{1, kInfinity};
    std::thread{[&] // it goes on, like a worker with a context for each of its jobs
                {
                    GMainContext *context = g_main_context_new();
                    GSource *witness = g_idle_source_new();
                    g_source_set_callback(witness, nullptr, &ended,
                                          [](gpointer flag) { *static_cast<bool *>(flag) = true; });
                    g_source_attach(witness, context);
                    g_source_unref(witness);
                    g_main_context_push_thread_default(context);
                    CFRetain(CFRunLoopGetCurrent());
                    loop = CFRef<CFRunLoopRef>{CFRunLoopGetCurrent()};
                    timer.add();
                    g_main_context_pop_thread_default(context);
                    g_main_context_unref(context);
                    EXPECT_FALSE(ended); // it has a timer
                    CFRunLoopTimerInvalidate(timer.ref.get());
                    EXPECT_TRUE(ended);
                }}
        .join();
    Timer late;
    late.add(kCFRunLoopDefaultMode, loop.get());
    EXPECT_FALSE(late.isIn(kCFRunLoopDefaultMode, loop.get()));
    CFRunLoopStop(loop.get());
}

TEST(RunLoops, AreThereForDestructorsOfAThread)
{
    static int fired = 0;
    pthread_key_t key{};
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void *)
                                 {
                                     Timer timer;
                                     timer.add();
                                     CFRunLoopRun();
                                     fired += timer.fired;
                                 }),
              0);
    for (const bool usedBefore : {false, true})
        std::thread{[&, usedBefore]
                    {
                        const CFRunLoopRef before = usedBefore ? CFRunLoopGetCurrent() : nullptr;
                        EXPECT_EQ(before != nullptr, usedBefore);
                        pthread_setspecific(key, &key);
                    }}
            .join();
    pthread_key_delete(key);
    EXPECT_EQ(fired, 2);
}

TEST(RunLoops, AddedAndInvalidatedFromManyThreads)
{
    RunLoopThread runner;
    std::vector<std::thread> threads;
    std::atomic<int> fired{0};
    for (int index = 0; index < 4; ++index)
    {
        threads.emplace_back(
            [&]
            {
                for (int time = 0; time < 100; ++time)
                {
                    CFRunLoopTimerContext context{0, &fired, nullptr, nullptr, nullptr};
                    const TimerRef timer{CFRunLoopTimerCreate(
                        nullptr, 0, 1e-6, 0, 0,
                        [](CFRunLoopTimerRef, void *info) { ++*static_cast<std::atomic<int> *>(info); },
                        &context)};
                    CFRunLoopAddTimer(runner.loop(), timer.get(), kCFRunLoopCommonModes);
                    spin(time);
                    CFRunLoopTimerInvalidate(timer.get());
                }
            });
    }
    for (std::thread &thread : threads)
        thread.join();
    runner.stop(); // the run ends without a timer
}
