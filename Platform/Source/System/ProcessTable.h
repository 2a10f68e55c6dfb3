// The table of processes, from /proc.
#ifndef KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H
#define KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H

#include <cstddef>
#include <sys/types.h>

namespace kiv::system
{
// Fills `entries` with as many kinfo_proc as `size` bytes hold, or counts them where it is null, and stores
// the bytes. As sysctl(): 0, or -1 and errno, ENOMEM where some had no room.
int processTable(void *entries, size_t &size);

// What the threads of a process do, as KIVPThreadStates().
[[nodiscard]] unsigned threadStates(pid_t pid);
} // namespace kiv::system

#endif
