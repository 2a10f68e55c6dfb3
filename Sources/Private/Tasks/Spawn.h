// Starts a command without copying the host's memory: until it executes, the child runs on the memory of the
// parent, whose thread waits. So everything is prepared before, and the child only makes system calls.
#ifndef KIV_PRIVATE_TASKS_SPAWN_H
#define KIV_PRIVATE_TASKS_SPAWN_H

#include "KIVCS2Base.h"

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace kiv
{
// The files that execvp() would try, as a list.
class ExecPlan
{
public:
    // `argv` ends with a null and outlives the plan, as does `command`.
    [[nodiscard]] KIVCS2Status prepare(const char *command, char *const *argv);

    // Executes the first file that can be executed; returns if there is none. Async-signal-safe.
    void execute() const;

private:
    struct Free
    {
        void operator()(void *block) const
        {
            std::free(block);
        }
    };

    std::unique_ptr<char *[], Free> m_block; // the arguments of a script, the files, their texts
    char *const *m_argv = nullptr;
    char **m_scriptArgv = nullptr; // for a file that is not a program: "/bin/sh", the file, the arguments
    char **m_files = nullptr;      // ends with a null
};

// A note by which another process finds a child, in memory that both share. The start time distinguishes it
// from a later process with the same id.
struct ChildNote
{
    int32_t pid;            // 0 if there is none; written last, and cleared first
    uint64_t startedBefore; // nanoseconds of CLOCK_BOOTTIME

    // Async-signal-safe. Child and parent may both write it.
    void write(pid_t child);
};

// Nanoseconds of CLOCK_BOOTTIME, by which processes are distinguished. Async-signal-safe.
[[nodiscard]] uint64_t bootTime();

// The child's steps before it executes; -1 and null skip a step.
struct ChildSetup
{
    ChildNote *note = nullptr; // the child first writes itself here, and ends if `parent` is gone
    pid_t parent = 0;
    std::atomic<bool> *begun =
        nullptr;       // set at once, in the parent's own memory: seen only if both share all memory
    int announce = -1; // the child first writes its process id here
    std::atomic<bool> *announced = nullptr; // set after that, in memory that both share
    bool piped = false;                     // the three below become the standard streams
    int standardStreams[3] = {-1, -1, -1};
    const char *files[3] = {}; // opened for writing, for standard output and error
};

// Gives every signal that has a handler its default action; ignored signals stay ignored. Async-signal-safe.
void resetHandlers();

// Starts the plan in a new process and returns its id, or -1. The child has no signal blocked and no handler
// of the parent; it exits with 127 if any step fails.
[[nodiscard]] pid_t spawn(const ExecPlan &plan, const ChildSetup &setup);
} // namespace kiv

#endif
