// The table of processes, from /proc.
#ifndef KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H
#define KIV_PLATFORM_SYSTEM_PROCESS_TABLE_H

#include <cstddef>
#include <string_view>
#include <sys/sysctl.h>
#include <sys/types.h>

namespace kiv::system
{
// Parses a line of /proc/<pid>/stat, "12 (a name (1)) S 1 ...", at least its first 22 fields, into a cleared
// record. The name may hold any character. Returns false if the line is malformed.
bool parseProcess(std::string_view line, kinfo_proc &process) noexcept;

// Parses such a line of a thread: one of the KIVP_THREADS_... states.
[[nodiscard]] unsigned parseThreadState(std::string_view line) noexcept;

// Fills `entries` with as many kinfo_proc as fit into `size` bytes; only counts them if `entries` is null.
// Stores their size in bytes in `size`. Returns as sysctl(): 0, or -1 with errno; ENOMEM if not all fit.
int processTable(void *entries, size_t &size);

// Returns the states of the threads of a process, as KIVPThreadStates().
[[nodiscard]] unsigned threadStates(pid_t pid);
} // namespace kiv::system

#endif
