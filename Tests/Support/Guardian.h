// A process that outlives the test and cleans up behind it, however the test ends.
#ifndef KIV_TEST_GUARDIAN_H
#define KIV_TEST_GUARDIAN_H

#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kiv::test
{
// Calls `clean` when this process has ended. Not a child of the test, which may wait for its children.
template <class Clean>
void startGuardian(Clean clean)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) // no program that the test starts keeps the guardian waiting
        std::abort();
    const pid_t between = fork();
    if (between < 0)
        std::abort();
    close(ends[between == 0 ? 1 : 0]); // the test keeps its end open until it ends
    if (between != 0)
    {
        (void)waitpid(between, nullptr, 0);
        return;
    }
    if (fork() != 0)
        _exit(0);
    setsid(); // a signal to the test's group is not for the guardian
    char byte = 0;
    while (read(ends[0], &byte, 1) > 0)
    {
    }
    clean();
    _exit(0);
}
} // namespace kiv::test

#endif
