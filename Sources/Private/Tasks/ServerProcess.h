// The task server's record, and what the host, the server and the SIGCHLD handler of both do with it.
#ifndef KIV_PRIVATE_TASKS_SERVER_PROCESS_H
#define KIV_PRIVATE_TASKS_SERVER_PROCESS_H

#include "KIVCS2LinkList.h"
#include "KIVCS2TaskServer.h"

#include <pthread.h>
#include <sys/types.h>

#include <array>
#include <atomic>

// Descriptors of the record by their index.
enum : uint32_t
{
    kRequestRead = 0, // the server reads requests
    kRequestWrite = 1,
    kPidRead = 2,
    kPidWrite = 3, // launched processes write their ids
    kReportRead = 4,
    kReportWrite = 5, // the SIGCHLD handler of host and server writes who has ended
    kDescriptorCount = 6
};

// One per process. The server has a copy of its own from the fork on.
struct KIVCS2TaskServer
{
    std::array<int32_t, kDescriptorCount> m_descriptors; // request, pid and report pipe; 0 for a closed end
    int32_t m_serverPid;
    uint32_t m_initialised;
    KIVCS2LinkList m_tasks;  // launched, and not yet reported ended
    pthread_mutex_t m_mutex; // one request and its answer at a time, and the list
    pthread_t m_readback;

    pid_t m_hostPid;             // the process that may use the server
    std::atomic<pid_t> m_reaper; // the process whose SIGCHLD handler reaps: the host, in its copy the server
    std::atomic<uint32_t> m_serverEnded;      // the handler has reaped the server
    std::atomic<uint32_t> m_reapingPostponed; // the report pipe was full
    std::atomic<uint32_t> m_reaping;          // statuses that are on their way into it
    std::atomic<bool> m_usable;               // pipes and mutex are there
    std::atomic<bool> m_readbackRuns;
    std::array<ino_t, kDescriptorCount / 2> m_pipes; // what the descriptors stood for when they were made
};
extern KIVCS2TaskServer g_CSTaskServer;

// ---- Transport, by index of the descriptor (TaskServer_Wire.cpp) ----

// Writes all of it; a reader that is gone is a failure and raises nothing. KIVCS2STATUS_TIMEOUT_ERR if there is no
// room for longer than a host waits.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_writeBytes(uint32_t index, const void *bytes, size_t size);
// The 32-bit length, then the text.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_writeString(uint32_t index, const char *text);

// Reads all of it, waiting as long as it takes. With the orphan watch on, a second without a byte is
// the time to look whether the host lives: where it does not the wait fails, and so it does at the end of the pipe.
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_readBytes(uint32_t index, void *bytes, size_t size,
                                                         bool watch);
// A new text, released with free(), or null: the pipe failed, or there is no room. `left` is what may still be
// read with a zero byte each, and becomes less.
[[nodiscard]] char *kivCS2TaskServerPrv_readString(uint32_t index, bool watch, size_t &left,
                                                   KIVCS2Status &status);

// ---- Processes ----

[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_createServer();
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_childProcess();
[[nodiscard]] KIVCS2Status kivCS2TaskServerPrv_exec(const char *command, char *const *argv);
void kivCS2TaskServerPrv_sigChildHandler(int signal);
void *kivCS2TaskServerPrv_readbackThread(void *argument);
void kivCS2TaskServerPrv_infanticide();

namespace kiv
{
// Reports every child that has ended, as long as the report pipe has room. Async-signal-safe.
void reapChildren();

// Whether the descriptor is still the pipe's: a host may have closed it, and given its number to a file of its
// own. Async-signal-safe.
[[nodiscard]] bool isOwnPipe(uint32_t index);

// In the server: SIGTERM has come.
[[nodiscard]] bool isToldToEnd();

// In the server: the host is gone.
[[nodiscard]] bool isOrphaned();

// For SIGCHLD, with every signal blocked while the handler runs.
void installChildHandler();
} // namespace kiv

#endif
