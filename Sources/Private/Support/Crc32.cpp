// CRC-32: slicing by eight, and folding with carry-less multiplication.
//
// Folding treats the message as a polynomial. Sixteen bytes at a distance of d bits from the end are
// congruent, modulo the generator, to two 64-bit products with x^(d+64) and x^d, which are again sixteen
// bytes. So two multiplications and an exclusive or carry a register forward over d bits. The processor's
// product of reflected values is one bit too low; the exponents of the constants correct that.
#include "Private/Support/Crc32.h"

#include "Private/Support/Cpu.h"

#include <atomic>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_acle.h>
#include <arm_neon.h>
#include <sys/auxv.h>
#endif

namespace
{
constexpr size_t kSlices = 8;

// Slice s carries a byte over itself and the s bytes that follow it.
constexpr std::array<kiv::Crc32Table, kSlices> makeSlices()
{
    std::array<kiv::Crc32Table, kSlices> slices{};
    slices[0] = kiv::makeCrc32Table();
    for (size_t slice = 1; slice < kSlices; ++slice)
        for (size_t n = 0; n < slices[0].size(); ++n)
        {
            const uint32_t before = slices[slice - 1][n];
            slices[slice][n] = (before >> 8) ^ slices[0][before & 0xFFu];
        }
    return slices;
}

constexpr std::array<kiv::Crc32Table, kSlices> kSlice = makeSlices();

uint32_t updateBytes(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    for (; length > 0; ++data, --length)
        crc = kSlice[0][(crc ^ *data) & 0xFFu] ^ (crc >> 8);
    return crc;
}

uint32_t updatePortable(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    for (; length >= kSlices; data += kSlices, length -= kSlices)
    {
        const uint32_t first =
            crc ^ (data[0] | static_cast<uint32_t>(data[1]) << 8 | static_cast<uint32_t>(data[2]) << 16 |
                   static_cast<uint32_t>(data[3]) << 24);
        crc = kSlice[7][first & 0xFFu] ^ kSlice[6][first >> 8 & 0xFFu] ^ kSlice[5][first >> 16 & 0xFFu] ^
              kSlice[4][first >> 24] ^ kSlice[3][data[4]] ^ kSlice[2][data[5]] ^ kSlice[1][data[6]] ^
              kSlice[0][data[7]];
    }
    return updateBytes(crc, data, length);
}

#if defined(__x86_64__)
#define KIV_PCLMUL  __attribute__((target("pclmul,sse4.2")))
#define KIV_VPCLMUL __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,vpclmulqdq,pclmul")))
#define KIV_FOLDS   KIV_PCLMUL
#elif defined(__aarch64__) && defined(__clang__)
#define KIV_CRC32 __attribute__((target("crc")))
#define KIV_FOLDS __attribute__((target("crc,aes")))
#elif defined(__aarch64__)
#define KIV_CRC32 __attribute__((target("+crc")))
#define KIV_FOLDS __attribute__((target("+crc+crypto")))
#endif

#if defined(KIV_FOLDS)
#define KIV_INLINE __attribute__((always_inline)) inline

// ---- Constants ----

// x to the power `exponent` modulo the generator, reflected.
constexpr uint64_t powerOfX(int exponent)
{
    uint32_t power = 0x80000000u; // 1
    for (int step = 0; step < exponent; ++step)
        power = (power & 1u) != 0 ? (power >> 1) ^ kiv::kCrc32Polynomial : power >> 1;
    return power;
}

constexpr int kLaneBytes = 16;

// The two factors of one lane of sixteen bytes, for its first and its last eight.
struct Factors
{
    uint64_t first;
    uint64_t last;
};

// Carries a lane forward over `bytes`.
constexpr Factors foldFactors(int bytes)
{
    return {powerOfX(8 * bytes + 63) << 32, powerOfX(8 * bytes - 1) << 32};
}

// For four lanes side by side that are all carried over the same distance.
template <int Bytes>
struct FoldFactors
{
    alignas(64) static constexpr std::array<Factors, 4> value = {foldFactors(Bytes), foldFactors(Bytes),
                                                                 foldFactors(Bytes), foldFactors(Bytes)};
};

// ---- 128 bits ----

#if defined(__x86_64__)
using Lane = __m128i;

KIV_FOLDS KIV_INLINE Lane load(const void *from)
{
    return _mm_loadu_si128(static_cast<const Lane *>(from));
}

// A lane that starts with `crc`.
KIV_FOLDS KIV_INLINE Lane laneOf(uint32_t crc)
{
    return _mm_cvtsi32_si128(static_cast<int>(crc));
}

KIV_FOLDS KIV_INLINE Lane multiply(Lane lane, Lane factors)
{
    return _mm_clmulepi64_si128(lane, factors, 0x00) ^ _mm_clmulepi64_si128(lane, factors, 0x11);
}
#else
using Lane = uint64x2_t;

KIV_FOLDS KIV_INLINE Lane load(const void *from)
{
    return vreinterpretq_u64_u8(vld1q_u8(static_cast<const uint8_t *>(from)));
}

// A lane that starts with `crc`.
KIV_FOLDS KIV_INLINE Lane laneOf(uint32_t crc)
{
    return vsetq_lane_u64(crc, vdupq_n_u64(0), 0);
}

KIV_FOLDS KIV_INLINE Lane multiply(Lane lane, Lane factors)
{
#if defined(__clang__) // its header has the names only if every function of the file may use them
    const poly128_t first = __builtin_neon_vmull_p64(lane[0], factors[0]);
    const poly128_t last = __builtin_neon_vmull_p64(lane[1], factors[1]);
#else
    const poly128_t first = vmull_p64(lane[0], factors[0]);
    const poly128_t last = vmull_high_p64(vreinterpretq_p64_u64(lane), vreinterpretq_p64_u64(factors));
#endif
    return vreinterpretq_u64_p128(first) ^ vreinterpretq_u64_p128(last);
}
#endif

template <int Bytes>
KIV_FOLDS KIV_INLINE Lane fold(Lane lane)
{
    return multiply(lane, load(FoldFactors<Bytes>::value.data()));
}

// Folds the whole lanes of a message, at least one, into the last; moves `data` to what follows them.
KIV_FOLDS KIV_INLINE Lane foldLanes(uint32_t crc, const uint8_t *&data, const uint8_t *end)
{
    constexpr size_t kLane = kLaneBytes;
    const auto length = static_cast<size_t>(end - data);
    Lane lane = load(data) ^ laneOf(crc);
    data += kLane;
    if (length >= 8 * kLane)
    {
        Lane lane1 = load(data);
        Lane lane2 = load(data + kLane);
        Lane lane3 = load(data + 2 * kLane);
        for (data += 3 * kLane; static_cast<size_t>(end - data) >= 4 * kLane; data += 4 * kLane)
        {
            lane = fold<64>(lane) ^ load(data);
            lane1 = fold<64>(lane1) ^ load(data + kLane);
            lane2 = fold<64>(lane2) ^ load(data + 2 * kLane);
            lane3 = fold<64>(lane3) ^ load(data + 3 * kLane);
        }
        lane = (fold<48>(lane) ^ fold<32>(lane1)) ^ (fold<16>(lane2) ^ lane3);
    }
    for (; static_cast<size_t>(end - data) >= kLane; data += kLane)
        lane = fold<16>(lane) ^ load(data);
    return lane;
}
#endif

#if defined(__x86_64__)
// ---- The end of a message, 128 bits ----

// x^95 divided by the generator, reflected: the quotient of Barrett's reduction of 96 bits to 32.
constexpr uint64_t quotientOfX95()
{
    uint64_t quotient = 1;                      // of x^32: the term x^63, which is bit 0
    uint32_t remainder = kiv::kCrc32Polynomial; // of x^32
    for (int term = 1; term < 64; ++term)
    {
        const uint32_t carry = remainder & 1u;
        quotient |= static_cast<uint64_t>(carry) << term;
        remainder = carry != 0 ? (remainder >> 1) ^ kiv::kCrc32Polynomial : remainder >> 1;
    }
    return quotient;
}

// Carries a lane forward to the end of the message, `bytes` after it, and over the 32 bits of the CRC: the
// result has 96 bits, ready for finish().
constexpr Factors endFactors(int bytes)
{
    return {powerOfX(8 * bytes + 95), powerOfX(8 * bytes + 31)};
}

// For the four lanes of a 64-byte block followed by `Bytes` bytes, each over its own distance.
template <int Bytes>
struct EndFactors
{
    alignas(64) static constexpr std::array<Factors, 4> value = {
        endFactors(Bytes + 3 * kLaneBytes), endFactors(Bytes + 2 * kLaneBytes),
        endFactors(Bytes + kLaneBytes), endFactors(Bytes)};
};

// Quotient and generator of the reduction.
alignas(16) constexpr std::array<uint64_t, 2> kBarrett = {quotientOfX95(),
                                                          static_cast<uint64_t>(kiv::kCrc32Polynomial) << 1};

// The remainder of 96 bits: the upper 64 in the low half, the lower 32 after them.
KIV_PCLMUL KIV_INLINE uint32_t finish(__m128i value)
{
    const __m128i barrett = load(kBarrett.data());
    const __m128i quotient = _mm_clmulepi64_si128(value, barrett, 0x00);
    const __m128i product = _mm_clmulepi64_si128(quotient, barrett, 0x10);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(value, product), 2));
}

// Sixteen bytes of it from 16 + n on shift a lane by n bytes towards its end, from 16 - n on towards its
// start; the bytes shifted in are zero.
alignas(16) constexpr std::array<uint8_t, 48> kShift = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

KIV_PCLMUL uint32_t updatePclmul(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    constexpr size_t kLane = kLaneBytes;
    if (length < kLane)
        return updatePortable(crc, data, length);

    const uint8_t *const end = data + length;
    Lane lane = foldLanes(crc, data, end);
    if (data != end)
    {
        // The last `tail` bytes enter at the end of the lane and push as many out at its start.
        const auto tail = static_cast<size_t>(end - data);
        const __m128i pushed = _mm_shuffle_epi8(lane, load(kShift.data() + tail));
        const __m128i kept = _mm_shuffle_epi8(lane, load(kShift.data() + kLane + tail));
        const __m128i entering = _mm_andnot_si128(
            _mm_cmpgt_epi8(_mm_setzero_si128(), load(kShift.data() + tail)), load(end - kLane));
        lane = _mm_xor_si128(fold<16>(pushed), _mm_or_si128(kept, entering));
    }
    return finish(multiply(lane, load(EndFactors<0>::value.data() + 3)));
}

// ---- 512 bits ----

constexpr size_t kBlock = 64;
constexpr size_t kStride = 4 * kBlock;
constexpr size_t kPrefetchAhead = 8192; // bytes; far enough for memory, near enough for the cache
constexpr size_t kWorthPrefetching = size_t{1} << 20; // less data is in the second-level cache or near

alignas(64) constexpr std::array<uint8_t, kBlock> kIota = []
{
    std::array<uint8_t, kBlock> iota{};
    for (size_t index = 0; index < kBlock; ++index)
        iota[index] = static_cast<uint8_t>(index);
    return iota;
}();

KIV_VPCLMUL KIV_INLINE __m512i load512(const void *from)
{
    return _mm512_loadu_si512(from);
}

// `block` times its factors, and both added to `sum`.
KIV_VPCLMUL KIV_INLINE __m512i addProducts(__m512i sum, __m512i block, __m512i factors)
{
    constexpr int kXorOfThree = 0x96;
    return _mm512_ternarylogic_epi64(sum, _mm512_clmulepi64_epi128(block, factors, 0x00),
                                     _mm512_clmulepi64_epi128(block, factors, 0x11), kXorOfThree);
}

template <int Bytes>
KIV_VPCLMUL KIV_INLINE __m512i addEnd(__m512i sum, __m512i block)
{
    return addProducts(sum, block, load512(EndFactors<Bytes>::value.data()));
}

KIV_VPCLMUL KIV_INLINE uint32_t finish512(__m512i sum)
{
    // The masked forms, all lanes on: gcc 12 warns of undefined operands inside its plain ones.
    const __m256i half = _mm256_xor_si256(_mm512_maskz_extracti64x4_epi64(0xF, sum, 0),
                                          _mm512_maskz_extracti64x4_epi64(0xF, sum, 1));
    return finish(_mm_xor_si128(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1)));
}

// Loads the first `size` bytes, 4 to 64, with the CRC on the first four, at the end of a block of zeros.
// `data` has `length` bytes: masked loads that touch a missing page are slow, so they are only used for short
// data.
KIV_VPCLMUL KIV_INLINE __m512i loadHead(uint32_t crc, const uint8_t *data, size_t size, size_t length)
{
    const __m512i bytes =
        length >= kBlock ? load512(data) : _mm512_maskz_loadu_epi8(~uint64_t{0} >> (kBlock - size), data);
    const __m512i start = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(crc)));
    const __m512i places = _mm512_add_epi8(load512(kIota.data()), _mm512_set1_epi8(static_cast<char>(size)));
    return _mm512_maskz_permutexvar_epi8(~uint64_t{0} << (kBlock - size) % kBlock, places,
                                         _mm512_xor_si512(bytes, start));
}

template <bool Prefetch>
KIV_VPCLMUL KIV_INLINE void foldStrides(__m512i (&sum)[4], const uint8_t *data, size_t strides)
{
    const __m512i factors = load512(FoldFactors<static_cast<int>(kStride)>::value.data());
    for (; strides > 0; data += kStride, --strides)
    {
        if constexpr (Prefetch)
            for (size_t block = 0; block < kStride; block += kBlock)
                _mm_prefetch(reinterpret_cast<const char *>(data) + kPrefetchAhead + block, _MM_HINT_T0);
        sum[0] = addProducts(load512(data), sum[0], factors);
        sum[1] = addProducts(load512(data + kBlock), sum[1], factors);
        sum[2] = addProducts(load512(data + 2 * kBlock), sum[2], factors);
        sum[3] = addProducts(load512(data + 3 * kBlock), sum[3], factors);
    }
}

KIV_VPCLMUL uint32_t updateVpclmul(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    constexpr size_t kCrcBytes = sizeof crc;
    // The message is treated as whole blocks with zeros in front. The CRC goes on the first four bytes: if
    // fewer than four precede the whole blocks, they are taken one by one.
    size_t head = length % kBlock;
    if (head != 0 && head < kCrcBytes)
    {
        crc = updateBytes(crc, data, head);
        data += head;
        length -= head;
        head = 0;
    }
    if (length == 0)
        return crc;
    if (head == 0)
        head = kBlock;

    const __m512i zero = _mm512_setzero_si512();
    const __m512i first = loadHead(crc, data, head, length);
    data += head;
    const size_t blocks = (length - head) / kBlock; // whole ones, after the head
    if (blocks == 0)
        return finish512(addEnd<0>(zero, first));
    if (blocks == 1)
        return finish512(addEnd<64>(addEnd<0>(zero, load512(data)), first));

    __m512i sum[4] = {zero, zero, zero, zero};
    const size_t leading = blocks % 4; // whole ones in front of the strides
    switch (leading)
    {
    case 0:
        sum[3] = first;
        break;
    case 1:
        sum[2] = first;
        sum[3] = load512(data);
        break;
    case 2:
        sum[1] = first;
        sum[2] = load512(data);
        sum[3] = load512(data + kBlock);
        break;
    default:
        sum[0] = first;
        sum[1] = load512(data);
        sum[2] = load512(data + kBlock);
        sum[3] = load512(data + 2 * kBlock);
        break;
    }
    data += leading * kBlock;
    if (length >= kWorthPrefetching)
        foldStrides<true>(sum, data, blocks / 4);
    else
        foldStrides<false>(sum, data, blocks / 4);

    return finish512(_mm512_xor_si512(addEnd<64>(addEnd<0>(zero, sum[3]), sum[2]),
                                      addEnd<192>(addEnd<128>(zero, sum[1]), sum[0])));
}

#elif defined(__aarch64__)
// ---- The CRC instructions ----

KIV_CRC32 KIV_INLINE uint32_t over(uint32_t crc, uint64_t bytes)
{
#if defined(__clang__)
    return __builtin_arm_crc32d(crc, bytes);
#else
    return __crc32d(crc, bytes);
#endif
}

KIV_CRC32 KIV_INLINE uint32_t over(uint32_t crc, uint8_t byte)
{
#if defined(__clang__)
    return __builtin_arm_crc32b(crc, byte);
#else
    return __crc32b(crc, byte);
#endif
}

KIV_CRC32 uint32_t updateCrc32(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    for (uint64_t bytes = 0; length >= sizeof bytes; data += sizeof bytes, length -= sizeof bytes)
    {
        std::memcpy(&bytes, data, sizeof bytes);
        crc = over(crc, bytes);
    }
    for (; length > 0; ++data, --length)
        crc = over(crc, *data);
    return crc;
}

// The instructions carry the folded lane and the bytes after it to the end.
KIV_FOLDS uint32_t updatePmull(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    constexpr size_t kWorthFolding = 128;
    if (length < kWorthFolding)
        return updateCrc32(crc, data, length);

    const uint8_t *const end = data + length;
    const Lane lane = foldLanes(crc, data, end);
    return updateCrc32(over(over(0, lane[0]), lane[1]), data, static_cast<size_t>(end - data));
}
#endif

// The first call checks the machine and stores the best update here; a race stores the same value twice.
uint32_t updateFirst(uint32_t crc, const uint8_t *data, size_t length) noexcept;
constinit std::atomic<kiv::Crc32Update> g_update{updateFirst};

uint32_t updateFirst(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    const kiv::Crc32Update update = kiv::crc32UpdateOf(kiv::crc32Kind());
    g_update.store(update, std::memory_order_relaxed);
    return update(crc, data, length);
}
} // namespace

kiv::Crc32Kind kiv::crc32Kind() noexcept
{
#if defined(__aarch64__)
    const unsigned long offered = getauxval(AT_HWCAP);
    if ((offered & HWCAP_CRC32) == 0)
        return Crc32Kind::portable;
    return (offered & HWCAP_PMULL) != 0 ? Crc32Kind::pmull : Crc32Kind::crc32;
#else
    switch (cpuLevel())
    {
    case CpuLevel::avx512:
        return Crc32Kind::vpclmul512;
    case CpuLevel::avx2:
    case CpuLevel::sse42:
        return Crc32Kind::pclmul;
    default:
        return Crc32Kind::portable;
    }
#endif
}

kiv::Crc32Update kiv::crc32UpdateOf([[maybe_unused]] Crc32Kind kind) noexcept
{
#if defined(__x86_64__)
    if (kind == Crc32Kind::vpclmul512)
        return updateVpclmul;
    if (kind == Crc32Kind::pclmul)
        return updatePclmul;
#elif defined(__aarch64__)
    if (kind == Crc32Kind::pmull)
        return updatePmull;
    if (kind == Crc32Kind::crc32)
        return updateCrc32;
#endif
    return updatePortable;
}

uint32_t kiv::crc32Update(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    return g_update.load(std::memory_order_relaxed)(crc, data, length);
}
