// Absolute time: the monotonic clock in nanoseconds, which like it stands still while the machine sleeps.
#include <mach/mach_time.h>

#include <atomic>
#include <ctime>

kern_return_t mach_timebase_info(mach_timebase_info_t info)
{
    info->numer = 1;
    info->denom = 1;
    return KERN_SUCCESS;
}

uint64_t mach_absolute_time(void)
{
    // Names are made from this value, so two readings in one process must differ even where the clock
    // has not moved between them.
    static std::atomic<uint64_t> last{0};
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    uint64_t time = static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
    uint64_t before = last.load(std::memory_order_relaxed);
    do
    {
        if (time <= before)
            time = before + 1;
    } while (!last.compare_exchange_weak(before, time, std::memory_order_relaxed));
    return time;
}
