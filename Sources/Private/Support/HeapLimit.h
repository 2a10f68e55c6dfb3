// Sizes from outside that no allocation can satisfy.
#ifndef KIV_PRIVATE_SUPPORT_HEAP_LIMIT_H
#define KIV_PRIVATE_SUPPORT_HEAP_LIMIT_H

#include <unistd.h>

#include <cstdint>

namespace kiv
{
// Returns true if this machine's memory could hold `size` bytes at all. The kernel would grant address space
// for more and end the process while it is being filled, so sizes read from a file or a stream are checked
// here first; small sizes cost nothing.
[[nodiscard]] inline bool fitsMemory(uint64_t size) noexcept
{
    constexpr uint64_t kAlwaysFits = 16u << 20;
    if (size <= kAlwaysFits)
        return true;
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0)
        return true; // unknown: the allocation decides
    return size <= static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize);
}
} // namespace kiv

#endif
