// Threads and semaphore threads, cancelled and freed by their owners and their callbacks.
#include <KIVCoreServices2/KIVCS2PThread.h>

#include "ArgumentCheck.h"
#include "NoThreads.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

namespace
{
using namespace kiv::test;

static_assert(offsetof(KIVCS2Thread, m_thread) == 0 && offsetof(KIVCS2Thread, m_flags) == 8);
static_assert(offsetof(KIVCS2SemaphoreThread, m_thread) == 0 &&
              offsetof(KIVCS2SemaphoreThread, m_context) == 16 &&
              offsetof(KIVCS2SemaphoreThread, m_cancel) == 24 &&
              offsetof(KIVCS2SemaphoreThread, m_busy) == 28 &&
              offsetof(KIVCS2SemaphoreThread, m_startFunc) == 32 &&
              offsetof(KIVCS2SemaphoreThread, m_endFunc) == 40 &&
              offsetof(KIVCS2SemaphoreThread, m_signalFunc) == 48 &&
              offsetof(KIVCS2SemaphoreThread, m_semaphore) == 56);

using Gate = std::binary_semaphore;

// ---- Threads ----

void *addOne(void *argument)
{
    ++*static_cast<std::atomic<int> *>(argument);
    return argument;
}

TEST(Thread, JoinsOnceAndIsFreed)
{
    std::atomic<int> runs{0};
    KIVCS2Thread thread;
    ASSERT_OK(kivCS2Thread_init(&thread, &runs, addOne));
    EXPECT_EQ(thread.m_flags, 0u);
    EXPECT_OK(kivCS2Thread_join(&thread));
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(thread.m_flags, uint32_t{KIVCS2ThreadFlags_Joined});
    EXPECT_OK(kivCS2Thread_join(&thread));
    EXPECT_OK(kivCS2Thread_free(&thread));
    EXPECT_EQ(thread.m_thread, pthread_t{0});
    EXPECT_EQ(thread.m_flags, 0u);
}

struct Visit
{
    KIVCS2Thread thread{};
    Gate leave{0};
    Gate left{0};
    KIVCS2Status joined = KIVCS2STATUS_OK;
};

TEST(Thread, DetachTwiceAndFreeNeverWait)
{
    for (const bool detach : {true, false})
    {
        Visit visit;
        ASSERT_OK(kivCS2Thread_init(&visit.thread, &visit,
                                    [](void *argument) -> void *
                                    {
                                        auto &self = *static_cast<Visit *>(argument);
                                        self.leave.acquire();
                                        self.left.release();
                                        return nullptr;
                                    }));
        if (detach)
        {
            EXPECT_OK(kivCS2Thread_detach(&visit.thread));
            EXPECT_OK(kivCS2Thread_detach(&visit.thread));
            EXPECT_EQ(visit.thread.m_flags, uint32_t{KIVCS2ThreadFlags_Detached});
        }
        EXPECT_OK(kivCS2Thread_free(&visit.thread)); // while the thread is held
        EXPECT_EQ(visit.thread.m_thread, pthread_t{0});
        visit.leave.release();
        visit.left.acquire();
    }
}

TEST(Thread, CannotJoinItself)
{
    Visit visit;
    ASSERT_OK(kivCS2Thread_init(&visit.thread, &visit,
                                [](void *argument) -> void *
                                {
                                    auto &self = *static_cast<Visit *>(argument);
                                    self.joined = kivCS2Thread_join(&self.thread);
                                    return nullptr;
                                }));
    EXPECT_OK(kivCS2Thread_join(&visit.thread));
    EXPECT_EQ(visit.joined, KIVCS2STATUS_PARAM_ERR);
    EXPECT_OK(kivCS2Thread_free(&visit.thread));
}

// The system reuses the handle of a thread that has ended, and the old record must not reach the new thread.
TEST(Thread, AnEndedThreadIsNotMistakenForTheOneThatHasItsHandleNow)
{
    KIVCS2Thread ended{};
    const auto wait = [](void *argument) -> void *
    {
        static_cast<Visit *>(argument)->leave.acquire();
        return argument;
    };
    std::atomic<int> runs{0};
    for (const bool detached : {true, false})
    {
        ASSERT_OK(kivCS2Thread_init(&ended, &runs, addOne));
        EXPECT_OK(detached ? kivCS2Thread_detach(&ended) : kivCS2Thread_join(&ended));

        Visit visits[8];
        bool met = false;
        for (Visit &visit : visits) // the detached thread may still be ending
        {
            ASSERT_OK(kivCS2Thread_init(&visit.thread, &visit, wait));
            met = met || visit.thread.m_thread == ended.m_thread;
        }
        EXPECT_OK(detached ? kivCS2Thread_join(&ended) : kivCS2Thread_detach(&ended));
        EXPECT_EQ(ended.m_flags, uint32_t{KIVCS2ThreadFlags_Joined | KIVCS2ThreadFlags_Detached});
        EXPECT_OK(kivCS2Thread_free(&ended));

        for (Visit &visit : visits)
        {
            visit.leave.release();
            EXPECT_EQ(pthread_join(visit.thread.m_thread, nullptr), 0) << "detached through the old record";
        }
        EXPECT_TRUE(met || detached) << "no handle was reused, so this test has tested nothing";
    }
}

TEST(Thread, NamesTheCallingThread)
{
    const std::pair<const char *, const char *> cases[] = {
        {"capture", "capture"}, {"fifteen bytes..more", "fifteen bytes.."}, {"", ""}};
    for (const auto &[given, kept] : cases)
    {
        std::string name;
        KIVCS2Status status = KIVCS2STATUS_ERR;
        std::thread{[&, asked = given]
                    {
                        status = kivCS2Thread_setCurrentThreadName(asked);
                        char buffer[64] = "?";
                        pthread_getname_np(pthread_self(), buffer, sizeof buffer);
                        name = buffer;
                    }}
            .join();
        EXPECT_OK(status);
        EXPECT_EQ(name, kept);
    }
}

TEST(Thread, AFailedStartLeavesNoHandle)
{
    const NoThreads none;
    std::atomic<int> runs{0};
    KIVCS2Thread thread;
    EXPECT_EQ(kivCS2Thread_init(&thread, &runs, addOne), KIVCS2STATUS_THREAD_ERR);
    EXPECT_EQ(thread.m_thread, pthread_t{0});

    KIVCS2SemaphoreThread worker;
    EXPECT_EQ(kivCS2SemaphoreThread_init(&worker, nullptr, nullptr, nullptr, nullptr),
              KIVCS2STATUS_THREAD_ERR);
    EXPECT_EQ(worker.m_thread.m_thread, pthread_t{0});
    EXPECT_EQ(worker.m_semaphore.m_semaphore, nullptr);
}

// ---- Semaphore threads ----

// A semaphore thread whose callbacks are functions of the test; freed at the end unless it has been before.
// The record is a block of its own, so that AddressSanitizer finds a worker that uses it too late.
struct Stage
{
    std::unique_ptr<KIVCS2SemaphoreThread> record = std::make_unique<KIVCS2SemaphoreThread>();
    std::function<void()> onStart;
    std::function<void()> onSignal;
    std::function<void()> onEnd;
    std::atomic<int> starts{0};
    std::atomic<int> runs{0};
    std::atomic<int> ends{0};
    Gate entered{0};
    Gate leave{0};
    std::counting_semaphore<16> ran{0};
    Gate gone{0}; // the worker has left the library's code
    KIVCS2Status inCallback = KIVCS2STATUS_ERR;

    ~Stage()
    {
        if (record && record->m_thread.m_thread != 0)
        {
            EXPECT_OK(kivCS2SemaphoreThread_free(record.get()));
        }
    }
    void start()
    {
        ASSERT_OK(kivCS2SemaphoreThread_init(record.get(), this, callStart, callEnd, callSignal));
    }
    void signal()
    {
        EXPECT_OK(kivCS2SemaphoreThread_signal(record.get()));
    }
    void freeInCallback()
    {
        inCallback = kivCS2SemaphoreThread_free(record.get());
        record.reset();
    }

private:
    static void callStart(void *context)
    {
        auto &stage = *static_cast<Stage *>(context);
        openAtThreadExit(stage.gone);
        call(stage.starts, stage.onStart);
    }
    static void callSignal(void *context)
    {
        auto &stage = *static_cast<Stage *>(context);
        call(stage.runs, stage.onSignal);
    }
    static void callEnd(void *context)
    {
        auto &stage = *static_cast<Stage *>(context);
        call(stage.ends, stage.onEnd);
    }
    static void call(std::atomic<int> &count, const std::function<void()> &function)
    {
        ++count;
        if (function)
            function();
    }
};

// Holds the first run until `leave` opens; later runs pass.
struct HeldStage : Stage
{
    HeldStage()
    {
        onSignal = [this]
        {
            if (runs == 1)
            {
                entered.release();
                leave.acquire();
            }
            ran.release();
        };
    }
    // Starts the worker and holds it in its first run, with `queued` more signals.
    void hold(int queued)
    {
        start();
        signal();
        entered.acquire();
        for (; queued > 0; --queued)
            signal();
    }
};

TEST(SemaphoreThread, QueuedSignalsAreAllRun)
{
    HeldStage stage;
    stage.hold(3);
    stage.leave.release();
    for (int time = 0; time < 4; ++time)
        stage.ran.acquire();
    EXPECT_OK(kivCS2SemaphoreThread_cancel(stage.record.get()));
    EXPECT_EQ(stage.starts, 1);
    EXPECT_EQ(stage.runs, 4);
    EXPECT_EQ(stage.ends, 1);
}

TEST(SemaphoreThread, DrainDropsTheQueue)
{
    HeldStage stage;
    stage.hold(3);
    EXPECT_OK(kivCS2SemaphoreThread_drain(stage.record.get()));
    stage.leave.release();
    stage.ran.acquire();
    stage.signal();
    stage.ran.acquire();
    EXPECT_EQ(stage.runs, 2);
}

TEST(SemaphoreThread, DrainAndBlockWaitsForTheRunInProgress)
{
    HeldStage stage;
    stage.hold(1);
    std::atomic<bool> blocking{false};
    std::thread other{[&]
                      {
                          while (!blocking)
                              std::this_thread::yield();
                          for (int time = 0; time < 1000; ++time) // so that a missing wait shows
                              std::this_thread::yield();
                          stage.leave.release();
                      }};
    blocking = true;
    EXPECT_OK(kivCS2SemaphoreThread_drainAndBlock(stage.record.get()));
    EXPECT_TRUE(stage.ran.try_acquire()); // the run has returned
    EXPECT_EQ(stage.record->m_busy, 0u);
    other.join();
    EXPECT_EQ(stage.runs, 1);
}

TEST(SemaphoreThread, CancelEndsOnceDropsTheQueueAndStaysBusy)
{
    HeldStage stage;
    stage.hold(1);
    std::thread other{[&]
                      {
                          while (std::atomic_ref{stage.record->m_cancel}.load() == 0)
                              std::this_thread::yield();
                          stage.leave.release();
                      }};
    EXPECT_OK(kivCS2SemaphoreThread_cancel(stage.record.get()));
    other.join();
    EXPECT_EQ(stage.runs, 1);
    EXPECT_EQ(stage.ends, 1);
    EXPECT_EQ(stage.record->m_cancel, 1u);
    EXPECT_EQ(stage.record->m_busy, 1u);
    EXPECT_EQ(stage.record->m_thread.m_flags, uint32_t{KIVCS2ThreadFlags_Joined});
    EXPECT_OK(kivCS2SemaphoreThread_cancel(stage.record.get()));
    EXPECT_OK(kivCS2SemaphoreThread_free(stage.record.get()));
    EXPECT_EQ(stage.ends, 1);
    EXPECT_EQ(stage.record->m_thread.m_thread, pthread_t{0});
    EXPECT_EQ(stage.record->m_semaphore.m_semaphore, nullptr);
}

TEST(SemaphoreThread, WorksWithoutCallbacks)
{
    KIVCS2SemaphoreThread worker;
    ASSERT_OK(kivCS2SemaphoreThread_init(&worker, nullptr, nullptr, nullptr, nullptr));
    EXPECT_OK(kivCS2SemaphoreThread_signal(&worker));
    EXPECT_OK(kivCS2SemaphoreThread_free(&worker));
}

TEST(SemaphoreThread, FreedByItsCallbacks)
{
    enum class From
    {
        start,
        signal,
        signalAfterCancel,
        endAfterCancel,
        endInsideFree, // the end callback of a free frees again
    };
    for (const From from :
         {From::start, From::signal, From::signalAfterCancel, From::endAfterCancel, From::endInsideFree})
    {
        SCOPED_TRACE(static_cast<int>(from));
        Stage stage;
        int endsWhenFreed = -1;
        const auto freeNow = [&]
        {
            stage.freeInCallback();
            endsWhenFreed = stage.ends;
        };
        (from == From::start            ? stage.onStart
         : from == From::endAfterCancel ? stage.onEnd
                                        : stage.onSignal) = freeNow;
        if (from == From::signalAfterCancel || from == From::endAfterCancel)
            stage.onSignal = [&, next = stage.onSignal]
            {
                EXPECT_OK(kivCS2SemaphoreThread_cancel(stage.record.get()));
                if (next)
                    next();
            };
        if (from == From::endInsideFree)
        {
            stage.onSignal = [&] { (void)kivCS2SemaphoreThread_free(stage.record.get()); };
            stage.onEnd = [&] { stage.inCallback = kivCS2SemaphoreThread_free(stage.record.get()); };
        }
        stage.start();
        if (from != From::start)
            stage.signal();
        stage.gone.acquire();
        EXPECT_OK(stage.inCallback);
        EXPECT_EQ(stage.runs, from == From::start ? 0 : 1);
        EXPECT_EQ(stage.ends, 1);
        EXPECT_EQ(endsWhenFreed, from == From::endInsideFree ? -1 : 1); // no callback comes after free
    }
}

TEST(SemaphoreThread, CancelledByACallbackAndFreedByItsOwner)
{
    Stage stage;
    Gate cancelled{0};
    Gate freed{0};
    stage.onSignal = [&]
    {
        stage.inCallback = kivCS2SemaphoreThread_cancel(stage.record.get());
        cancelled.release();
        freed.acquire(); // the record is gone before this run returns
    };
    stage.start();
    stage.signal();
    cancelled.acquire();
    EXPECT_OK(stage.inCallback);
    EXPECT_EQ(stage.record->m_thread.m_flags, 0u);
    EXPECT_EQ(stage.record->m_cancel, 1u);
    EXPECT_EQ(stage.record->m_busy, 1u);
    EXPECT_OK(kivCS2SemaphoreThread_cancel(stage.record.get()));
    EXPECT_OK(kivCS2SemaphoreThread_free(stage.record.get()));
    stage.record.reset();
    freed.release();
    stage.gone.acquire();
    EXPECT_EQ(stage.runs, 1);
    EXPECT_EQ(stage.ends, 1);
}

TEST(PThread, RefusesMissingAndUnstartedRecords)
{
    KIVCS2Thread thread{};
    KIVCS2SemaphoreThread worker{};
    std::vector<ArgumentCheck> checks = {
        KIV_REQUIRES(kivCS2Thread_init, "pThread", nullptr, nullptr, addOne),
        KIV_REQUIRES(kivCS2Thread_init, "startRoutine", &thread, nullptr, nullptr),
        KIV_REQUIRES(kivCS2Thread_setCurrentThreadName, "name", nullptr),
        KIV_REQUIRES(kivCS2SemaphoreThread_init, "pThread", nullptr, nullptr, nullptr, nullptr, nullptr),
    };
    const auto add = [&checks](const char *name, auto *operation, auto *unstarted)
    {
        checks.push_back({name, "pThread", KIVCS2STATUS_PARAM_ERR, [=] { return operation(nullptr); }});
        checks.push_back(
            {name, "pThread->m_thread", KIVCS2STATUS_PARAM_ERR, [=] { return operation(unstarted); }});
    };
    add("kivCS2Thread_join", kivCS2Thread_join, &thread);
    add("kivCS2Thread_detach", kivCS2Thread_detach, &thread);
    add("kivCS2Thread_free", kivCS2Thread_free, &thread);
    add("kivCS2SemaphoreThread_signal", kivCS2SemaphoreThread_signal, &worker);
    add("kivCS2SemaphoreThread_drain", kivCS2SemaphoreThread_drain, &worker);
    add("kivCS2SemaphoreThread_drainAndBlock", kivCS2SemaphoreThread_drainAndBlock, &worker);
    add("kivCS2SemaphoreThread_cancel", kivCS2SemaphoreThread_cancel, &worker);
    add("kivCS2SemaphoreThread_free", kivCS2SemaphoreThread_free, &worker);
    for (const auto &check : checks)
        expectRefused(check);
}
} // namespace
