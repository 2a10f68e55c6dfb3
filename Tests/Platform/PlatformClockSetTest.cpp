// Run-loop timers while the real-time clock is set. The clock of the machine does not change: this program
// replaces the clock, and reports each step once through the timerfd, as the kernel does.
#include "../../Sources/Private/Support/CFRef.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utility>

namespace
{
constexpr CFTimeInterval kInterval = 0.02;

time_t s_ahead = 0;         // seconds from the clock of the machine to that of this program
bool s_isToBeTold = false;  // the timer has not yet reported the last step
int s_timerDescriptor = -1; // the only timer

void setClock(time_t step)
{
    s_ahead += step;
    s_isToBeTold = true;
}

void setClockOnce(CFRunLoopTimerRef, void *info)
{
    setClock(std::exchange(*static_cast<time_t *>(info), 0));
    CFRunLoopStop(CFRunLoopGetCurrent());
}
} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *at) noexcept
{
    const long result = syscall(SYS_clock_gettime, clock, at);
    if (clock == CLOCK_REALTIME)
        at->tv_sec += s_ahead;
    return static_cast<int>(result);
}

extern "C" int timerfd_settime(int descriptor, int flags, const itimerspec *at, itimerspec *old) noexcept
{
    s_timerDescriptor = descriptor;
    itimerspec onMachine = *at;
    onMachine.it_value.tv_sec = std::max<time_t>(at->it_value.tv_sec - s_ahead, 1);
    const long result = syscall(SYS_timerfd_settime, descriptor, flags, &onMachine, old);
    if (!std::exchange(s_isToBeTold, false))
        return static_cast<int>(result);
    errno = ECANCELED; // the timer is armed nevertheless
    return -1;
}

extern "C" ssize_t read(int descriptor, void *buffer, size_t size)
{
    const ssize_t result = syscall(SYS_read, descriptor, buffer, size);
    if (descriptor != s_timerDescriptor || !std::exchange(s_isToBeTold, false))
        return result;
    errno = ECANCELED;
    return -1;
}

TEST(ClockThatIsSet, MovesTheIntervalsWheneverItIsSet)
{
    for (const auto &[inCall, afterCall] :
         {std::pair<time_t, time_t>{-3600, 0}, {3600, 0}, {0, -3600}, {0, 3600}, {10, -7200}})
    {
        SCOPED_TRACE(testing::Message() << inCall << " and " << afterCall);
        time_t step = inCall;
        CFRunLoopTimerContext context{0, &step, nullptr, nullptr, nullptr};
        const kiv::CFRef<CFRunLoopTimerRef> timer{CFRunLoopTimerCreate(
            nullptr, CFAbsoluteTimeGetCurrent(), kInterval, 0, 0, setClockOnce, &context)};
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.get(), kCFRunLoopDefaultMode);
        for (const time_t next : {afterCall, time_t{0}, time_t{0}})
        {
            EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 60, false), kCFRunLoopRunStopped);
            // One interval away, not the step of the clock.
            EXPECT_LT(CFRunLoopTimerGetNextFireDate(timer.get()), CFAbsoluteTimeGetCurrent() + 5);
            setClock(next);
        }
        CFRunLoopTimerInvalidate(timer.get());
    }
}
