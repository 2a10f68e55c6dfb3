// The table of processes, from /proc.
#ifndef KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H
#define KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H

#include <cstddef>
#include <sys/types.h>

namespace kiv::system
{
// Fills `entries` with as many kinfo_proc as `size` bytes hold, or only counts them if it is null, and stores
// their bytes in `size`. As sysctl(): 0, or -1 and errno, ENOMEM if some did not fit.
int processTable(void *entries, size_t &size);

// The states of a process's threads, as KIVPThreadStates().
[[nodiscard]] unsigned threadStates(pid_t pid);
} // namespace kiv::system

#endif
