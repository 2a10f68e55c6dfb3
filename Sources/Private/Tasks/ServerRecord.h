// The task server's record, and the checks that its two processes, host and server, make while they wait:
// which children have ended, whether the other process lives, whether a pipe is still theirs.
#ifndef KIV_PRIVATE_TASKS_SERVER_RECORD_H
#define KIV_PRIVATE_TASKS_SERVER_RECORD_H

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
    kReportWrite = 5, // the SIGCHLD handler of host and server writes the children that have ended
    kDescriptorCount = 6
};

// Each process has one record. From the fork on the server has a copy of its own.
struct KIVCS2TaskServer
{
    std::array<int32_t, kDescriptorCount> m_descriptors; // request, pid and report pipe; 0 for a closed end
    std::atomic<pid_t> m_serverPid;                      // read by the SIGCHLD handler of any thread
    uint32_t m_initialised;
    KIVCS2LinkList m_tasks;  // launched tasks whose end is not yet reported
    pthread_mutex_t m_mutex; // held for a request and its result; guards the list
    pthread_t m_readback;

    pid_t m_hostPid;             // the process that may use the server
    std::atomic<pid_t> m_reaper; // the process whose SIGCHLD handler reaps: host, or server in its copy
    std::atomic<uint32_t> m_serverEnded;      // the handler has reaped the server
    std::atomic<uint32_t> m_reapingPostponed; // the report pipe was full, or a launch takes its child first
    std::atomic<uint32_t> m_reaping;          // statuses taken but not yet in that pipe
    std::atomic<bool> m_usable;               // pipes and mutex exist
    std::atomic<bool> m_readbackRuns;
    std::array<ino_t, kDescriptorCount / 2> m_pipes; // the pipes' inodes when they were made
};
extern KIVCS2TaskServer g_CSTaskServer;

void kivCS2TaskServerPrv_sigChildHandler(int signal);

namespace kiv
{
// Returns whether the report pipe has room and still belongs to the library. Reap only then; otherwise the
// status is lost. Async-signal-safe.
[[nodiscard]] bool canReport();

// Reports every child that has ended, as long as the report pipe has room, up to a child that a launch waits
// for. Async-signal-safe.
void reapChildren();
// Goes on where that has stopped.
void reapPostponed();

// Returns whether the descriptor is still the pipe's: a host may have closed it, and its number may now
// belong to a file of the host. Async-signal-safe.
[[nodiscard]] bool isOwnPipe(uint32_t index);

// In the server: SIGTERM has been received.
[[nodiscard]] bool isToldToEnd();

// In the server: the host is gone.
[[nodiscard]] bool isOrphaned();

// Installs the handler for SIGCHLD, with every signal blocked while it runs.
void installChildHandler();
} // namespace kiv

#endif
