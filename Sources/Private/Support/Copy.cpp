// Copies by vectors if they are faster than the system's copy.
#include "Private/Support/Copy.h"

#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace
{
#if defined(__x86_64__)
constexpr size_t kVector = 64; // bytes
constexpr size_t kAhead = 1024;

// Returns true if whole vectors are faster than the system's copy: for runs that stay in the first-level
// cache, and for runs that stay in the second-level cache. Between them, and if memory is the limit, the
// system's copy is faster.
[[nodiscard]] bool suitsVectors(size_t count)
{
    constexpr size_t kFirstLevel = 6u << 10;
    constexpr size_t kSecondLevelFrom = 32u << 10;
    constexpr size_t kSecondLevelTo = 128u << 10;
    return count <= kFirstLevel || (count >= kSecondLevelFrom && count <= kSecondLevelTo);
}

// For more than 4 vectors. Stores are aligned, because a store across two cache lines costs as much as two.
[[gnu::target("avx512f")]] void copyVectors(unsigned char *to, const unsigned char *from, size_t count)
{
    const __m512i first = _mm512_loadu_si512(from);
    const size_t ahead = kVector - (reinterpret_cast<uintptr_t>(to) & (kVector - 1));
    _mm512_storeu_si512(to, first);
    to += ahead;
    from += ahead;
    count -= ahead;
    for (; count >= 4 * kVector; count -= 4 * kVector, to += 4 * kVector, from += 4 * kVector)
    {
        for (size_t line = 0; line < 4; ++line)
        {
            _mm_prefetch(from + kAhead + line * kVector, _MM_HINT_T0);
            _mm_prefetch(to + kAhead + line * kVector, _MM_HINT_T0);
        }
        const __m512i a = _mm512_loadu_si512(from);
        const __m512i b = _mm512_loadu_si512(from + kVector);
        const __m512i c = _mm512_loadu_si512(from + 2 * kVector);
        const __m512i d = _mm512_loadu_si512(from + 3 * kVector);
        _mm512_store_si512(to, a);
        _mm512_store_si512(to + kVector, b);
        _mm512_store_si512(to + 2 * kVector, c);
        _mm512_store_si512(to + 3 * kVector, d);
    }
    kiv::copyShort(to, from, count);
}
#endif
} // namespace

void kiv::copyBytes([[maybe_unused]] CpuLevel level, void *destination, const void *source,
                    size_t count) noexcept
{
    if (count <= kShortCopy)
        return copyShort(destination, source, count);
#if defined(__x86_64__)
    if (level >= CpuLevel::avx512 && suitsVectors(count))
        return copyVectors(static_cast<unsigned char *>(destination),
                           static_cast<const unsigned char *>(source), count);
#endif
    std::memcpy(destination, source, count);
}

void kiv::copyBytes(void *destination, const void *source, size_t count) noexcept
{
    copyBytes(cpuLevel(), destination, source, count);
}
