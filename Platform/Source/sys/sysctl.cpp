// The system's variables by number: the clock of the processors, the table of processes.
#include <sys/sysctl.h>

#include "System/ProcessTable.h"
#include "System/SystemFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

int sysctl(const int *name, unsigned int nameCount, void *oldValue, size_t *oldSize, void *newValue, size_t)
{
    const auto fail = [](int error)
    {
        errno = error;
        return -1;
    };
    if (nameCount == 3 && name[0] == CTL_KERN && name[1] == KERN_PROC && name[2] == KERN_PROC_ALL)
    {
        if (newValue != nullptr)
            return fail(EPERM);
        return kiv::system::processTable(oldValue, *oldSize);
    }
    if (nameCount != 2 || name[0] != CTL_HW || name[1] != HW_CPU_FREQ)
        return fail(ENOENT);
    if (newValue != nullptr)
        return fail(EPERM);
    const uint64_t clock = kiv::system::processorClock();
    if (clock == 0)
        return fail(ENOENT);
    const auto hertz = static_cast<uint32_t>(std::min<uint64_t>(clock, std::numeric_limits<uint32_t>::max()));
    if (oldValue != nullptr && (oldSize == nullptr || *oldSize < sizeof hertz))
        return fail(ENOMEM);
    if (oldValue != nullptr)
        std::memcpy(oldValue, &hertz, sizeof hertz);
    if (oldSize != nullptr)
        *oldSize = sizeof hertz;
    return 0;
}
