// The lateness of timers: each run makes a few hundred calls, and its time is a percentile of their lateness.
// The peers are GLib's own time-out in the same loop and a thread that sleeps until an absolute time.
#include <KIVCoreServices2/KIVCS2Timer.h>

#include <benchmark/benchmark.h>

#include <glib.h>

#include <algorithm>
#include <ctime>
#include <semaphore>
#include <thread>
#include <vector>

namespace
{
constexpr size_t kCalls = 300;
constexpr unsigned kIntervalMilliseconds = 3; // whole ones: GLib's time-outs have no fractions
constexpr int64_t kInterval = kIntervalMilliseconds * 1000000;
constexpr double kIntervalSeconds = kIntervalMilliseconds / 1e3;

int64_t now(clockid_t clock)
{
    timespec at{};
    clock_gettime(clock, &at);
    return at.tv_sec * 1000000000 + at.tv_nsec;
}

using Latenesses = std::vector<int64_t>; // nanoseconds

// ---- Run loops ----

// Lateness after multiples of the interval from the fire date, as the timer promises.
struct LoopCalls
{
    int64_t first;
    Latenesses late;
};

int32_t noteLoopCall(void *context)
{
    auto &calls = *static_cast<LoopCalls *>(context);
    calls.late.push_back((now(CLOCK_REALTIME) - calls.first) % kInterval);
    if (calls.late.size() == kCalls)
        CFRunLoopStop(CFRunLoopGetCurrent());
    return 0;
}

Latenesses loopOurs()
{
    constexpr int64_t k2001 = 978307200ll * 1000000000;
    LoopCalls calls{now(CLOCK_REALTIME) + kInterval, {}};
    KIVCS2Timer *timer = nullptr;
    if (KIVCS2_FAILED(kivCS2Timer_create(&timer, noteLoopCall, &calls, KIVCS2TimerFlags_CurrentRunLoop,
                                         kIntervalSeconds, static_cast<double>(calls.first - k2001) / 1e9)))
        return {};
    CFRunLoopRun();
    (void)kivCS2Timer_free(timer);
    return calls.late;
}

// Lateness after one interval from GLib's time of the previous call.
struct TimeoutCalls
{
    GMainLoop *loop;
    gint64 due = 0; // microseconds
    Latenesses late{};
};

gboolean noteTimeout(gpointer context)
{
    auto &calls = *static_cast<TimeoutCalls *>(context);
    if (calls.due != 0)
        calls.late.push_back((g_get_monotonic_time() - calls.due) * 1000);
    calls.due = g_source_get_time(g_main_current_source()) + kInterval / 1000;
    if (calls.late.size() == kCalls)
        g_main_loop_quit(calls.loop);
    return calls.late.size() == kCalls ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

Latenesses loopGLib()
{
    TimeoutCalls calls{g_main_loop_new(nullptr, FALSE)};
    g_timeout_add(kIntervalMilliseconds, noteTimeout, &calls);
    g_main_loop_run(calls.loop);
    g_main_loop_unref(calls.loop);
    return calls.late;
}

// ---- Threads ----

// Lateness after one interval from the end of the previous call.
struct ThreadCalls
{
    int64_t due = 0;
    Latenesses late{};
    std::binary_semaphore ended{0};
};

int32_t noteThreadCall(void *context)
{
    auto &calls = *static_cast<ThreadCalls *>(context);
    const int64_t at = now(CLOCK_MONOTONIC);
    if (calls.due != 0)
        calls.late.push_back(at - calls.due);
    calls.due = now(CLOCK_MONOTONIC) + kInterval;
    return calls.late.size() == kCalls ? KIVCS2TimerResult_End : 0;
}

Latenesses threadOurs()
{
    ThreadCalls calls;
    const auto note = [](void *context)
    {
        const int32_t result = noteThreadCall(context);
        if (result == KIVCS2TimerResult_End)
            static_cast<ThreadCalls *>(context)->ended.release();
        return result;
    };
    KIVCS2Timer *timer = nullptr;
    if (KIVCS2_FAILED(kivCS2Timer_create(&timer, note, &calls, KIVCS2TimerFlags_Thread, kIntervalSeconds, 0)))
        return {};
    calls.ended.acquire();
    (void)kivCS2Timer_free(timer);
    return calls.late;
}

Latenesses threadNanosleep()
{
    ThreadCalls calls;
    std::thread{[&calls]
                {
                    do
                    {
                        const int64_t due = now(CLOCK_MONOTONIC) + kInterval;
                        const timespec at{due / 1000000000, due % 1000000000};
                        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
                    } while (noteThreadCall(&calls) != KIVCS2TimerResult_End);
                }}
        .join();
    return calls.late;
}

void lateness(benchmark::State &state, Latenesses (*run)(), size_t percent)
{
    for (auto _ : state)
    {
        Latenesses late = run();
        if (late.size() != kCalls)
        {
            state.SkipWithError("calls are missing");
            return;
        }
        std::sort(late.begin(), late.end());
        state.SetIterationTime(static_cast<double>(late[kCalls * percent / 100]) / 1e9);
    }
}

void add(const char *name, Latenesses (*run)(), size_t percent)
{
    benchmark::RegisterBenchmark(name, lateness, run, percent)->UseManualTime()->Iterations(1);
}
} // namespace

int main(int argc, char **argv)
{
    (void)kivCS2_initWithTaskServer(false);
    add("TimerLateLoop_p50/ours", loopOurs, 50);
    add("TimerLateLoop_p50/g_timeout", loopGLib, 50);
    add("TimerLateLoop_p99/ours", loopOurs, 99);
    add("TimerLateLoop_p99/g_timeout", loopGLib, 99);
    add("TimerLateThread_p50/ours", threadOurs, 50);
    add("TimerLateThread_p50/nanosleep", threadNanosleep, 50);
    add("TimerLateThread_p99/ours", threadOurs, 99);
    add("TimerLateThread_p99/nanosleep", threadNanosleep, 99);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
