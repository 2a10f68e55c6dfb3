// Part of every library and program that has counters of its own (see CoverageRegistry.cpp).
#include <cerrno>
#include <cstdio>
#include <unistd.h>

extern "C" void kivCoverageRegister(void (*write)());
extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

namespace
{
// A child of vfork has its parent's counters, which must count on.
void write()
{
    __gcov_dump();
    __gcov_reset();
}
[[gnu::constructor]] void enter()
{
    kivCoverageRegister(write);
}
// A process of another user cannot write counters, and would say so in the command's own output.
[[gnu::destructor]] void leave()
{
    if (access("/proc/self/exe", W_OK) != 0 && errno == EACCES)
        (void)!freopen("/dev/null", "a", stderr);
}
} // namespace
