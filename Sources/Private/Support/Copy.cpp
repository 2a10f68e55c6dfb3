// Copies by vectors if they are faster than the system's copy.
#include "Private/Support/Copy.h"

#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace
{
#if defined(__x86_64__)
#define KIV_TARGET [[gnu::target("avx512f")]]
#define KIV_INLINE KIV_TARGET [[gnu::always_inline]] inline
using Vector = __m512i;
constexpr kiv::CpuLevel kLevel = kiv::CpuLevel::avx512;

KIV_INLINE Vector load(const void *from)
{
    return _mm512_loadu_si512(from);
}
KIV_INLINE void store(void *to, Vector value)
{
    _mm512_storeu_si512(to, value);
}
KIV_INLINE void storeAligned(void *to, Vector value)
{
    _mm512_store_si512(to, value);
}
KIV_INLINE void fetch(const unsigned char *line)
{
    _mm_prefetch(line, _MM_HINT_T0);
}

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
#elif defined(__aarch64__)
#define KIV_TARGET
#define KIV_INLINE [[gnu::always_inline]] inline
using Vector = uint8x16x4_t;
constexpr kiv::CpuLevel kLevel = kiv::CpuLevel::neon;

KIV_INLINE Vector load(const unsigned char *from)
{
    return vld1q_u8_x4(from);
}
KIV_INLINE void store(unsigned char *to, Vector value)
{
    vst1q_u8_x4(to, value);
}
KIV_INLINE void storeAligned(unsigned char *to, Vector value)
{
    store(to, value);
}
KIV_INLINE void fetch(const unsigned char *) {}

// True for runs that are hardly longer to copy than the system's copy is to call. That one is by vectors too,
// in a form for each kind of processor.
[[nodiscard]] bool suitsVectors(size_t count)
{
    constexpr size_t kLongest = 1u << 10;
    return count <= kLongest;
}
#endif

#if defined(KIV_TARGET)
constexpr size_t kVector = sizeof(Vector); // 64
constexpr size_t kAhead = 1024;

// For more than 4 vectors. Stores are aligned, because a store across two cache lines costs as much as two.
KIV_TARGET void copyVectors(unsigned char *to, const unsigned char *from, size_t count)
{
    const Vector first = load(from);
    const size_t ahead = kVector - (reinterpret_cast<uintptr_t>(to) & (kVector - 1));
    store(to, first);
    to += ahead;
    from += ahead;
    count -= ahead;
    for (; count >= 4 * kVector; count -= 4 * kVector, to += 4 * kVector, from += 4 * kVector)
    {
        for (size_t line = 0; line < 4; ++line)
        {
            fetch(from + kAhead + line * kVector);
            fetch(to + kAhead + line * kVector);
        }
        const Vector a = load(from);
        const Vector b = load(from + kVector);
        const Vector c = load(from + 2 * kVector);
        const Vector d = load(from + 3 * kVector);
        storeAligned(to, a);
        storeAligned(to + kVector, b);
        storeAligned(to + 2 * kVector, c);
        storeAligned(to + 3 * kVector, d);
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
#if defined(KIV_TARGET)
    if (level >= kLevel && suitsVectors(count))
        return copyVectors(static_cast<unsigned char *>(destination),
                           static_cast<const unsigned char *>(source), count);
#endif
    std::memcpy(destination, source, count);
}

void kiv::copyBytes(void *destination, const void *source, size_t count) noexcept
{
    copyBytes(cpuLevel(), destination, source, count);
}
