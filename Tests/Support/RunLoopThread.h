// A thread that runs its own run loop in the default mode until it is stopped.
#ifndef KIV_TEST_RUN_LOOP_THREAD_H
#define KIV_TEST_RUN_LOOP_THREAD_H

#include "../../Sources/Private/Support/CFRef.h"

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <future>
#include <limits>
#include <thread>

namespace kiv::test
{
// Keeps the processor busy for about half a microsecond a turn while other threads go on.
inline void spin(int turns)
{
    std::atomic<int> left{turns * 100};
    while (--left > 0)
    {
    }
}

class RunLoopThread
{
public:
    RunLoopThread()
    {
        std::promise<void> ready;
        m_thread = std::thread{[this, &ready]
                               {
                                   CFRunLoopRef own = CFRunLoopGetCurrent();
                                   CFRunLoopAddTimer(own, m_keeper.get(), kCFRunLoopDefaultMode);
                                   CFRetain(own);
                                   m_loop = kiv::CFRef<CFRunLoopRef>{own};
                                   ready.set_value();
                                   CFRunLoopRun();
                               }};
        ready.get_future().get();
        m_id = m_thread.get_id();
    }
    ~RunLoopThread()
    {
        stop();
    }
    RunLoopThread(const RunLoopThread &) = delete;
    RunLoopThread &operator=(const RunLoopThread &) = delete;

    [[nodiscard]] CFRunLoopRef loop() const
    {
        return m_loop.get();
    }
    [[nodiscard]] std::thread::id id() const
    {
        return m_id;
    }
    // Returns after the thread has ended. If a timer of the test is still in the loop, it must have been
    // called.
    void stop()
    {
        if (!m_thread.joinable())
            return;
        CFRunLoopTimerInvalidate(m_keeper.get()); // ends a run that has not begun
        CFRunLoopStop(m_loop.get());
        m_thread.join();
    }

private:
    static constexpr double kNever = std::numeric_limits<double>::infinity();

    kiv::CFRef<CFRunLoopTimerRef> m_keeper{CFRunLoopTimerCreate(
        nullptr, kNever, 0, 0, 0, [](CFRunLoopTimerRef, void *) {}, nullptr)};
    std::thread m_thread;
    kiv::CFRef<CFRunLoopRef> m_loop;
    std::thread::id m_id;
};
} // namespace kiv::test

#endif
