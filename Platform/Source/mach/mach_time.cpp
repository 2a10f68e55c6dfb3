// Absolute time: the monotonic clock in nanoseconds, which stops while the machine sleeps.
#include <mach/mach_time.h>

#include <ctime>

kern_return_t mach_timebase_info(mach_timebase_info_t info)
{
    info->numer = 1;
    info->denom = 1;
    return KERN_SUCCESS;
}

// Without a guard of the stack, which takes a twentieth of the time: only the clock writes to `now`.
__attribute__((no_stack_protector)) uint64_t mach_absolute_time(void)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}
