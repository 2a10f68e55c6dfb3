// Integer PCM samples with SSSE3, AVX2, AVX-512 and NEON: the building blocks of PCM_Lanes.h, level by level.
#include "AudioToolbox/PCM.h"

#include <algorithm>
#include <cstring>

#if defined(__x86_64__) || defined(__aarch64__)
#if defined(__x86_64__)
#include <immintrin.h>
#else
#include <arm_neon.h>
#endif

namespace
{
using kiv::audio::Conversion;

#define KIV_INLINE __attribute__((always_inline)) inline

constexpr size_t kLane = 16;

// ---- Tables ----

// Moves the first n bytes of every four of `Size` bytes, for n of 1 to 4, to the start; the next store
// overwrites the bytes after them.
template <size_t Size>
using PackTables = std::array<std::array<uint8_t, Size>, 4>;

template <size_t Size>
constexpr PackTables<Size> makePackTables()
{
    PackTables<Size> tables{};
    for (size_t bytes = 1; bytes <= 4; ++bytes)
        for (size_t place = 0; place < Size / 4 * bytes; ++place)
            tables[bytes - 1][place] = static_cast<uint8_t>(place / bytes * 4 + place % bytes);
    return tables;
}

alignas(64) constexpr PackTables<16> kPack16 = makePackTables<16>();
// The start of the block after the one at `start`; `usable` after the last.
size_t nextBlock(size_t start, size_t usable, size_t blockFrames) noexcept
{
    const size_t end = start + blockFrames;
    return end < usable ? std::min(end, usable - blockFrames) : usable;
}

// ---- SSSE3: a lane ----

#if defined(__x86_64__)
namespace ssse3
{
#define KIV_TARGET __attribute__((target("ssse3")))
#define KIV_ONE_LANE
using Vector = __m128i;
constexpr size_t kLanes = 1;
constexpr const kiv::audio::Kernels &kBelow = kiv::audio::kPortableKernels;

KIV_TARGET KIV_INLINE Vector loadLanes(const uint8_t *from, size_t)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}
KIV_TARGET KIV_INLINE Vector repeat(const std::array<uint8_t, kLane> &lane)
{
    return loadLanes(lane.data(), 0);
}
KIV_TARGET KIV_INLINE Vector shuffle(Vector value, Vector pattern)
{
    return _mm_shuffle_epi8(value, pattern);
}
KIV_TARGET KIV_INLINE Vector flip(Vector a, Vector b)
{
    return _mm_xor_si128(a, b);
}
KIV_TARGET KIV_INLINE Vector low16(Vector a, Vector b)
{
    return _mm_unpacklo_epi16(a, b);
}
KIV_TARGET KIV_INLINE Vector high16(Vector a, Vector b)
{
    return _mm_unpackhi_epi16(a, b);
}
KIV_TARGET KIV_INLINE Vector low32(Vector a, Vector b)
{
    return _mm_unpacklo_epi32(a, b);
}
KIV_TARGET KIV_INLINE Vector high32(Vector a, Vector b)
{
    return _mm_unpackhi_epi32(a, b);
}
KIV_TARGET KIV_INLINE Vector low64(Vector a, Vector b)
{
    return _mm_unpacklo_epi64(a, b);
}
KIV_TARGET KIV_INLINE Vector high64(Vector a, Vector b)
{
    return _mm_unpackhi_epi64(a, b);
}
KIV_TARGET KIV_INLINE void store(uint8_t *out, Vector value)
{
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), value);
}
#include "AudioToolbox/PCM_Lanes.h"
constexpr kiv::audio::Kernels kKernels = {convert, split};
#undef KIV_ONE_LANE
#undef KIV_TARGET
} // namespace ssse3

// ---- AVX2: two lanes ----

namespace avx2
{
#define KIV_TARGET __attribute__((target("avx2")))
using Vector = __m256i;
constexpr size_t kLanes = 2;
constexpr const kiv::audio::Kernels &kBelow = ssse3::kKernels;

KIV_TARGET KIV_INLINE __m128i loadLane(const uint8_t *from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}
KIV_TARGET KIV_INLINE Vector loadLanes(const uint8_t *from, size_t distance)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(loadLane(from)), loadLane(from + distance), 1);
}
KIV_TARGET KIV_INLINE Vector repeat(const std::array<uint8_t, kLane> &lane)
{
    return _mm256_broadcastsi128_si256(loadLane(lane.data()));
}
KIV_TARGET KIV_INLINE Vector shuffle(Vector value, Vector pattern)
{
    return _mm256_shuffle_epi8(value, pattern);
}
KIV_TARGET KIV_INLINE Vector flip(Vector a, Vector b)
{
    return _mm256_xor_si256(a, b);
}
KIV_TARGET KIV_INLINE Vector low16(Vector a, Vector b)
{
    return _mm256_unpacklo_epi16(a, b);
}
KIV_TARGET KIV_INLINE Vector high16(Vector a, Vector b)
{
    return _mm256_unpackhi_epi16(a, b);
}
KIV_TARGET KIV_INLINE Vector low32(Vector a, Vector b)
{
    return _mm256_unpacklo_epi32(a, b);
}
KIV_TARGET KIV_INLINE Vector high32(Vector a, Vector b)
{
    return _mm256_unpackhi_epi32(a, b);
}
KIV_TARGET KIV_INLINE Vector low64(Vector a, Vector b)
{
    return _mm256_unpacklo_epi64(a, b);
}
KIV_TARGET KIV_INLINE Vector high64(Vector a, Vector b)
{
    return _mm256_unpackhi_epi64(a, b);
}
KIV_TARGET KIV_INLINE void store(uint8_t *out, Vector value)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), value);
}

// Takes the first double words of the first lane, then those of the second.
// Indexed by the number for a lane, minus one.
alignas(32) constexpr std::array<std::array<uint32_t, 8>, 4> kJoin = {{
    {0, 4, 0, 0, 0, 0, 0, 0},
    {0, 1, 4, 5, 0, 0, 0, 0},
    {0, 1, 2, 4, 5, 6, 0, 0},
    {0, 1, 2, 3, 4, 5, 6, 7},
}};

KIV_INLINE void fetchAhead(const uint8_t *) {}
KIV_TARGET KIV_INLINE void storePacked(uint8_t *out, Vector value, size_t bytes)
{
    const Vector join = _mm256_load_si256(reinterpret_cast<const __m256i *>(kJoin[bytes - 1].data()));
    store(out, _mm256_permutevar8x32_epi32(shuffle(value, repeat(kPack16[bytes - 1])), join));
}

KIV_TARGET size_t convertRun(const Conversion &conversion, const uint8_t *in, uint8_t *out,
                             size_t samples) noexcept
{
    const auto [step, spare] = conversion.patterns.laneStep;
    const kiv::audio::Pattern<kLane> &pattern = conversion.patterns.lane;
    const Vector places = repeat(pattern.source);
    const Vector turned = repeat(pattern.flip);
    const size_t inStep = step * conversion.in.bytes;
    const size_t outStep = step * conversion.out.bytes;
    size_t done = 0;
    for (; samples - done >= kLanes * step + spare; done += kLanes * step)
    {
        const Vector value = flip(shuffle(loadLanes(in, inStep), places), turned);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(value));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + outStep), _mm256_extracti128_si256(value, 1));
        in += kLanes * inStep;
        out += kLanes * outStep;
    }
    return done;
}

#include "AudioToolbox/PCM_Lanes.h"
constexpr kiv::audio::Kernels kKernels = {convert, split};
#undef KIV_TARGET
} // namespace avx2

// ---- AVX-512: four lanes, and bytes from any of them ----

namespace avx512
{
#define KIV_TARGET __attribute__((target("avx512f,avx512bw,avx512vbmi")))
using Vector = __m512i;
constexpr size_t kLanes = 4;
constexpr size_t kSize = kLanes * kLane;
constexpr const kiv::audio::Kernels &kBelow = avx2::kKernels;

alignas(64) constexpr PackTables<kSize> kPack64 = makePackTables<kSize>();

KIV_TARGET KIV_INLINE __m128i loadLane(const uint8_t *from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}
// Unlike insertions, broadcasts merged under a mask cost no shuffle.
KIV_TARGET KIV_INLINE Vector loadLanes(const uint8_t *from, size_t distance)
{
    Vector value = _mm512_zextsi128_si512(loadLane(from));
    value = _mm512_mask_broadcast_i32x4(value, 0x00F0, loadLane(from + distance));
    value = _mm512_mask_broadcast_i32x4(value, 0x0F00, loadLane(from + 2 * distance));
    return _mm512_mask_broadcast_i32x4(value, 0xF000, loadLane(from + 3 * distance));
}
KIV_TARGET KIV_INLINE Vector repeat(const std::array<uint8_t, kLane> &lane)
{
    return _mm512_maskz_broadcast_i32x4(0xFFFF, loadLane(lane.data()));
}
KIV_TARGET KIV_INLINE Vector shuffle(Vector value, Vector pattern)
{
    return _mm512_shuffle_epi8(value, pattern);
}
KIV_TARGET KIV_INLINE Vector flip(Vector a, Vector b)
{
    return _mm512_xor_si512(a, b);
}
// Masked forms with all units on: gcc 12 warns of undefined operands inside its plain ones.
KIV_TARGET KIV_INLINE Vector low16(Vector a, Vector b)
{
    return _mm512_unpacklo_epi16(a, b);
}
KIV_TARGET KIV_INLINE Vector high16(Vector a, Vector b)
{
    return _mm512_unpackhi_epi16(a, b);
}
KIV_TARGET KIV_INLINE Vector low32(Vector a, Vector b)
{
    return _mm512_maskz_unpacklo_epi32(0xFFFF, a, b);
}
KIV_TARGET KIV_INLINE Vector high32(Vector a, Vector b)
{
    return _mm512_maskz_unpackhi_epi32(0xFFFF, a, b);
}
KIV_TARGET KIV_INLINE Vector low64(Vector a, Vector b)
{
    return _mm512_maskz_unpacklo_epi64(0xFF, a, b);
}
KIV_TARGET KIV_INLINE Vector high64(Vector a, Vector b)
{
    return _mm512_maskz_unpackhi_epi64(0xFF, a, b);
}
KIV_TARGET KIV_INLINE void store(uint8_t *out, Vector value)
{
    _mm512_storeu_si512(out, value);
}
// Planes seldom start at a cache line, so nearly every store ends in a line that is not in the cache yet.
// Without this, writing many planes in turn is half as fast.
KIV_TARGET KIV_INLINE void fetchAhead(const uint8_t *out)
{
    _mm_prefetch(reinterpret_cast<const char *>(out) + 2 * kSize, _MM_HINT_T0);
}
KIV_TARGET KIV_INLINE void storePacked(uint8_t *out, Vector value, size_t bytes)
{
    store(out,
          _mm512_maskz_permutexvar_epi8(~uint64_t{0}, _mm512_load_si512(kPack64[bytes - 1].data()), value));
}

KIV_TARGET KIV_INLINE uint64_t lowBits(size_t count) // 1 to 64
{
    return ~uint64_t{0} >> (64 - count);
}

// One byte permutation converts a register of any samples, and masks handle the end of the run.
KIV_TARGET size_t convertRun(const Conversion &conversion, const uint8_t *in, uint8_t *out,
                             size_t samples) noexcept
{
    const size_t inBytes = conversion.in.bytes;
    const size_t outBytes = conversion.out.bytes;
    const auto [step, spare] = conversion.patterns.runStep;
    const kiv::audio::Pattern<kSize> &pattern = conversion.patterns.run;
    const Vector places = _mm512_loadu_si512(pattern.source.data());
    const Vector turned = _mm512_loadu_si512(pattern.flip.data());
    const __mmask64 taken = ~_mm512_movepi8_mask(places);
    size_t done = 0;
    for (; samples - done >= step + spare; done += step)
    {
        const Vector value = _mm512_maskz_permutexvar_epi8(taken, places, _mm512_loadu_si512(in));
        store(out, flip(value, turned));
        in += step * inBytes;
        out += step * outBytes;
    }
    while (done < samples)
    {
        const size_t count = std::min(step, samples - done);
        const Vector input = _mm512_maskz_loadu_epi8(lowBits(count * inBytes), in);
        const Vector value = _mm512_maskz_permutexvar_epi8(taken, places, input);
        _mm512_mask_storeu_epi8(out, lowBits(count * outBytes), flip(value, turned));
        in += count * inBytes;
        out += count * outBytes;
        done += count;
    }
    return done;
}

#include "AudioToolbox/PCM_Lanes.h"
constexpr kiv::audio::Kernels kKernels = {convert, split};
#undef KIV_TARGET
} // namespace avx512

kiv::audio::KernelKind detect() noexcept
{
    using kiv::audio::KernelKind;
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vbmi"))
        return KernelKind::avx512;
    if (__builtin_cpu_supports("avx2"))
        return KernelKind::avx2;
    return __builtin_cpu_supports("ssse3") ? KernelKind::ssse3 : KernelKind::portable;
}
#else

// ---- NEON: a lane ----

namespace neon
{
#define KIV_TARGET
#define KIV_ONE_LANE
using Vector = uint8x16_t;
constexpr size_t kLanes = 1;
constexpr const kiv::audio::Kernels &kBelow = kiv::audio::kPortableKernels;

KIV_INLINE Vector loadLanes(const uint8_t *from, size_t)
{
    return vld1q_u8(from);
}
KIV_INLINE Vector repeat(const std::array<uint8_t, kLane> &lane)
{
    return loadLanes(lane.data(), 0);
}
KIV_INLINE Vector shuffle(Vector value, Vector pattern)
{
    return vqtbl1q_u8(value, pattern);
}
KIV_INLINE Vector flip(Vector a, Vector b)
{
    return veorq_u8(a, b);
}
KIV_INLINE Vector low16(Vector a, Vector b)
{
    return vreinterpretq_u8_u16(vzip1q_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
}
KIV_INLINE Vector high16(Vector a, Vector b)
{
    return vreinterpretq_u8_u16(vzip2q_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
}
KIV_INLINE Vector low32(Vector a, Vector b)
{
    return vreinterpretq_u8_u32(vzip1q_u32(vreinterpretq_u32_u8(a), vreinterpretq_u32_u8(b)));
}
KIV_INLINE Vector high32(Vector a, Vector b)
{
    return vreinterpretq_u8_u32(vzip2q_u32(vreinterpretq_u32_u8(a), vreinterpretq_u32_u8(b)));
}
KIV_INLINE Vector low64(Vector a, Vector b)
{
    return vreinterpretq_u8_u64(vzip1q_u64(vreinterpretq_u64_u8(a), vreinterpretq_u64_u8(b)));
}
KIV_INLINE Vector high64(Vector a, Vector b)
{
    return vreinterpretq_u8_u64(vzip2q_u64(vreinterpretq_u64_u8(a), vreinterpretq_u64_u8(b)));
}
KIV_INLINE void store(uint8_t *out, Vector value)
{
    vst1q_u8(out, value);
}

#include "AudioToolbox/PCM_Lanes.h"
constexpr kiv::audio::Kernels kKernels = {convert, split};
#undef KIV_ONE_LANE
#undef KIV_TARGET
} // namespace neon

// Every arm64 processor has NEON.
kiv::audio::KernelKind detect() noexcept
{
    return kiv::audio::KernelKind::neon;
}
#endif
} // namespace

kiv::audio::KernelKind kiv::audio::kernelKind() noexcept
{
    static const KernelKind kind = detect();
    return kind;
}

const kiv::audio::Kernels &kiv::audio::kernelsOf(KernelKind kind) noexcept
{
    switch (kind)
    {
#if defined(__x86_64__)
    case KernelKind::avx512:
        return avx512::kKernels;
    case KernelKind::avx2:
        return avx2::kKernels;
    case KernelKind::ssse3:
        return ssse3::kKernels;
#else
    case KernelKind::neon:
        return neon::kKernels;
#endif
    default:
        return kPortableKernels;
    }
}

#else

kiv::audio::KernelKind kiv::audio::kernelKind() noexcept
{
    return KernelKind::portable;
}

const kiv::audio::Kernels &kiv::audio::kernelsOf(KernelKind) noexcept
{
    return kPortableKernels;
}

#endif
