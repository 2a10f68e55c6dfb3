// Fails one chosen allocation of the library's own code. Programs in Tests/Allocation/ are linked
// with the archive of the library's objects and with malloc, calloc and realloc wrapped, and have
// operator new replaced; allocations inside libc and ICU are not touched.
#ifndef KIV_TEST_FAILING_ALLOCATOR_H
#define KIV_TEST_FAILING_ALLOCATOR_H

#include <cstddef>

namespace kiv::test
{
// The allocation made after `index` further ones fails, once. Starts a new count.
void failAllocation(size_t index);
// Lets every allocation through again.
void allowAllocations();
// True when the chosen allocation was reached (and failed).
[[nodiscard]] bool allocationFailed();

// Bytes that have been asked for since the last call, given back or not.
[[nodiscard]] size_t takeAllocatedBytes();

// Runs `body` with its first allocation failing, then its second, and so on until a run in which
// none failed. `body` receives the index and asks allocationFailed() what to expect; it must release
// everything, which LeakSanitizer checks in the debug build. Returns how many allocations there are.
template <class Body>
size_t forEachAllocation(Body body)
{
    for (size_t index = 0;; ++index)
    {
        failAllocation(index);
        body(index);
        const bool failed = allocationFailed();
        allowAllocations();
        if (!failed)
            return index;
    }
}
} // namespace kiv::test

#endif
