// The table of processes, from /proc.
#ifndef KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H
#define KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H

#include <cstddef>
#include <sys/types.h>

namespace kiv::system
{
// Fills `entries` with as many kinfo_proc as fit into `size` bytes; only counts them if `entries` is null.
// Stores their size in bytes in `size`. Returns as sysctl(): 0, or -1 with errno; ENOMEM if not all fit.
int processTable(void *entries, size_t &size);

// Returns the states of the threads of a process, as KIVPThreadStates().
[[nodiscard]] unsigned threadStates(pid_t pid);
} // namespace kiv::system

#endif
