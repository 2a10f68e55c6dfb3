// Fails one chosen allocation of the library's own code. Programs in Tests/Allocation/ are linked
// with the archive of the library's objects; malloc, calloc and realloc are wrapped, and operator new
// is replaced. Allocations inside libc and ICU do not fail.
#ifndef KIV_TEST_FAILING_ALLOCATOR_H
#define KIV_TEST_FAILING_ALLOCATOR_H

#include "Status.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace kiv::test
{
// Fails one allocation, after `index` others that succeed. Starts a new count.
void failAllocation(size_t index);
// Lets every allocation succeed again.
void allowAllocations();
// True if the chosen allocation was reached and failed.
[[nodiscard]] bool allocationFailed();

// The bytes requested since the last call, freed or not.
[[nodiscard]] size_t takeAllocatedBytes();

// Runs `body` with its first allocation failing, then its second, and so on until a run without a
// failure. `body` receives the index, and allocationFailed() decides what it expects. It must release
// everything, which LeakSanitizer checks in the debug build. Returns the number of allocations.
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

// Expects the memory status of a call if its allocation failed, otherwise success. The call must be the
// argument, so that it comes first.
inline void expectOkOrMemory(KIVCS2Status status)
{
    EXPECT_EQ(status, allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
}
} // namespace kiv::test

#endif
