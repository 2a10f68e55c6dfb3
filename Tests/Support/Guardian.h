// A process that outlives the test and cleans up after it, however the test ends.
#ifndef KIV_TEST_GUARDIAN_H
#define KIV_TEST_GUARDIAN_H

#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kiv::test
{
// Calls `clean` after the end of this process, in a process that is not its child: a test may wait for all
// its children.
template <class Clean>
void startGuardian(Clean clean)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) // programs that the test starts must not delay the guardian
        std::abort();
    const pid_t between = fork();
    if (between < 0)
        std::abort();
    close(ends[between == 0 ? 1 : 0]); // the end of the pipe stays open until the test ends
    if (between != 0)
    {
        (void)waitpid(between, nullptr, 0);
        return;
    }
    if (fork() != 0)
        _exit(0);
    setsid(); // signals to the group of the test must not reach the guardian
    char byte = 0;
    while (read(ends[0], &byte, 1) > 0)
    {
    }
    clean();
    _exit(0);
}
} // namespace kiv::test

#endif
