// Rows of pixels by the vectors of x86-64 and arm64: the factors, and the building blocks of Lanes.h, level
// by level.
//
// A factor of the colour conversion has 17 or 18 bits. The vectors multiply bytes by bytes, and pairs of
// 16-bit numbers by pairs. So each factor is made of both: a pixel's four bytes (both chromas, one of them
// again, and luma) get weights of 8 bits, are summed in two pairs, and the two sums get factors of 16 bits.
// Every product and sum is exact, so the result equals the definition bit for bit.
#include "Private/Pixels/Vectors.h"

#include "Private/Pixels/Colour.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

#if defined(__x86_64__) || defined(__aarch64__)
#define KIV_ALWAYS __attribute__((always_inline))
#define KIV_INLINE KIV_ALWAYS inline

namespace
{
using Order = kiv::PixelOrder;

// ---- The factors ----

// once * first, twice * first + again * second, luma * second: the factors of one component.
struct Weights
{
    uint8_t once;
    uint8_t twice;
    uint8_t luma;
    uint8_t again;
    int16_t first;
    int16_t second;

    [[nodiscard]] constexpr uint32_t bytes() const
    {
        return once | static_cast<uint32_t>(twice) << 8 | static_cast<uint32_t>(again) << 16 |
               static_cast<uint32_t>(luma) << 24;
    }
    [[nodiscard]] constexpr uint32_t factors() const
    {
        return static_cast<uint16_t>(first) | static_cast<uint32_t>(second) << 16;
    }
    // Whether these are the factors, and whether a pair of signed bytes stays within 16 bits.
    [[nodiscard]] constexpr bool make(int32_t ofLuma, int32_t ofOnce, int32_t ofTwice) const
    {
        return luma * second == ofLuma && once * first == ofOnce &&
               twice * first + again * second == ofTwice && once + twice <= 255 && luma + again <= 255;
    }
};

// The component with the chroma that is used twice, the one with the other, and what green differs by from
// the first. 76309 is 137 * 557, 76495 is 5 * 15299; which chroma is used twice follows from such divisors.
template <const kiv::ColourMatrix &M>
struct Recipe;

template <>
struct Recipe<kiv::kMatrix601>
{
    static constexpr bool kTwiceCr = true;
    static constexpr Weights kTwice{0, 4, 137, 1, 26010, 557}; // red
    static constexpr Weights kOnce{9, 0, 137, 0, 14689, 557};  // blue
    static constexpr Weights kGreen{2, 12, 0, 1, -12837, -3832};
};

template <>
struct Recipe<kiv::kMatrix709>
{
    static constexpr bool kTwiceCr = false;
    static constexpr Weights kTwice{0, 13, 5, 1, 9743, 15299}; // blue
    static constexpr Weights kOnce{139, 0, 5, 0, 883, 15299};  // red
    static constexpr Weights kGreen{2, 8, 0, 1, -17945, -12740};
};

template <const kiv::ColourMatrix &M>
constexpr bool isExact()
{
    using R = Recipe<M>;
    const bool cr = R::kTwiceCr;
    const int32_t twice = cr ? M.redCr : M.blueCb;
    return R::kTwice.make(M.luma, 0, twice) && R::kOnce.make(M.luma, cr ? M.blueCb : M.redCr, 0) &&
           R::kGreen.make(0, cr ? -M.greenCb : -M.greenCr, (cr ? -M.greenCr : -M.greenCb) - twice);
}
static_assert(isExact<kiv::kMatrix601>() && isExact<kiv::kMatrix709>());

// Rounds, and corrects for lumas that count from 128 instead of 16.
template <const kiv::ColourMatrix &M>
constexpr uint32_t kStart = 32768 + (128 - kiv::kLumaBlack) * M.luma;

// ---- What all levels share ----

// One building block, a row of a level's table.
#define KIV_LANES(head, value)                                                                               \
    KIV_TARGET KIV_INLINE Vector head                                                                        \
    {                                                                                                        \
        return value;                                                                                        \
    }

constexpr size_t kGroup = 4; // bytes of two pixels
constexpr size_t kWord = 4;  // of v210
constexpr size_t kWordComponents = 3;
constexpr uint64_t kOne = 65536; // a pixel, in the units of positions
constexpr int kAlpha = static_cast<int>(0xFF000000u);
alignas(64) constexpr std::array<uint32_t, 16> kNumbers = {0, 1, 2,  3,  4,  5,  6,  7,
                                                           8, 9, 10, 11, 12, 13, 14, 15};

// Pictures are read from and written to memory, and a written cache line is read first. Prefetching this
// early hides that behind the arithmetic: 1.5 times the pixels per second of a 1920x1080 picture. After the
// end of a line usually comes the next line; an address outside memory is ignored.
constexpr size_t kAhead = 2048; // bytes; twice as many for RGB made from 2vuy
constexpr size_t kCacheLine = 64;

// The same places in every lane of 16 bytes.
using Places = std::array<uint8_t, 64>;
constexpr Places everyLane(std::array<uint8_t, 16> lane)
{
    Places places{};
    for (size_t at = 0; at < places.size(); ++at)
        places[at] = lane[at % 16];
    return places;
}
constexpr uint8_t kNone = 0x80; // a place that no byte comes from
alignas(64) constexpr Places kPixelPlaces = everyLane({0, 1, 9, kNone, 2, 3, 11, kNone, 4, 5, 13, kNone, 6, 7,
                                                       15, kNone});
alignas(64) constexpr Places kRGBPlaces = everyLane({0, 1, 9, 2, 3, 11, 4, 5, 13, 6, 7, 15, kNone, kNone,
                                                     kNone, kNone});
alignas(64) constexpr Places kWordPlaces = everyLane({0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, kNone, kNone,
                                                      kNone, kNone});

// Of each group the chroma that is used once, the other, the other again, and the luma at `Luma` or none.
template <const kiv::ColourMatrix &M, uint8_t Luma>
alignas(64) constexpr Places kGroupPlaces = []
{
    constexpr uint8_t kTwice = Recipe<M>::kTwiceCr ? 2 : 0;
    std::array<uint8_t, 16> lane{};
    for (size_t at = 0; at < 16; ++at)
    {
        const bool isLuma = at % 4 == 3;
        const size_t place = at / 4 * 4 + (isLuma ? Luma : at % 4 == 0 ? 2 - kTwice : kTwice);
        lane[at] = isLuma && Luma == kNone ? kNone : static_cast<uint8_t>(place);
    }
    return everyLane(lane);
}();

// String stores do not read the cache lines that they write (memset() uses them too); they are slow to start.
constexpr size_t kWorthStringStores = 16u << 10;

[[maybe_unused]] void fillByStringStores([[maybe_unused]] uint8_t *&to, [[maybe_unused]] size_t &size,
                                         [[maybe_unused]] uint32_t pattern)
{
#if defined(__x86_64__)
    if (size < kWorthStringStores || reinterpret_cast<uintptr_t>(to) % kCacheLine != 0)
        return;
    const uint64_t pixels = pattern | static_cast<uint64_t>(pattern) << 32;
    size_t count = size / sizeof pixels;
    size %= sizeof pixels;
    __asm__ volatile("rep stosq" : "+D"(to), "+c"(count) : "a"(pixels) : "memory"); // moves `to` on
#endif
}
} // namespace
#endif

#if defined(__x86_64__)
#include <immintrin.h>

namespace
{
// ---- SSE4.2 ----

namespace sse42
{
#define KIV_TARGET __attribute__((target("sse4.2")))
#define KIV_ONE_LANE
using Vector = __m128i;
constexpr bool kStringStores = false;
constexpr kiv::ConvertRow finishWords = kiv::plain::v210To2vuy;
KIV_LANES(shuffle(Vector bytes, Vector places), _mm_shuffle_epi8(bytes, places))
KIV_LANES(opaque(Vector bytes, Vector places), shuffle(bytes, places) | _mm_set1_epi32(kAlpha))
KIV_LANES(mean(Vector a, Vector b), _mm_avg_epu8(a, b))
KIV_LANES(most(Vector a, Vector b), _mm_max_epi8(a, b))
KIV_LANES(select(Vector sign, Vector a, Vector b), _mm_blendv_epi8(b, a, _mm_srai_epi32(sign, 31)))
KIV_LANES(pairs(Vector weights, Vector bytes), _mm_maddubs_epi16(weights, bytes))
KIV_LANES(sum(Vector start, Vector a, Vector b), _mm_add_epi32(start, _mm_madd_epi16(a, b)))
KIV_LANES(upperHalves(Vector a, Vector b), _mm_blend_epi16(_mm_srli_epi32(a, 16), b, 0xAA))
KIV_LANES(saturate(Vector a, Vector b), _mm_packus_epi16(a, b))
KIV_LANES(firstOfBoth(Vector a, Vector b), _mm_unpacklo_epi32(a, b))
KIV_LANES(lastOfBoth(Vector a, Vector b), _mm_unpackhi_epi32(a, b))
#include "Private/Pixels/Lanes.h"
#undef KIV_ONE_LANE
#undef KIV_TARGET
} // namespace sse42

// ---- AVX2: two lanes ----

namespace avx2
{
#define KIV_TARGET __attribute__((target("avx2,bmi2")))
#define KIV_SPLIT_STORES
using Vector = __m256i;
constexpr bool kStringStores = true;
constexpr kiv::ConvertRow finishWords = sse42::v210To2vuy;
KIV_LANES(shuffle(Vector bytes, Vector places), _mm256_shuffle_epi8(bytes, places))
KIV_LANES(opaque(Vector bytes, Vector places), shuffle(bytes, places) | _mm256_set1_epi32(kAlpha))
KIV_LANES(mean(Vector a, Vector b), _mm256_avg_epu8(a, b))
KIV_LANES(most(Vector a, Vector b), _mm256_max_epi8(a, b))
KIV_LANES(select(Vector sign, Vector a, Vector b), _mm256_blendv_epi8(b, a, _mm256_srai_epi32(sign, 31)))
KIV_LANES(pairs(Vector weights, Vector bytes), _mm256_maddubs_epi16(weights, bytes))
KIV_LANES(sum(Vector start, Vector a, Vector b), _mm256_add_epi32(start, _mm256_madd_epi16(a, b)))
KIV_LANES(upperHalves(Vector a, Vector b), _mm256_blend_epi16(_mm256_srli_epi32(a, 16), b, 0xAA))
KIV_LANES(saturate(Vector a, Vector b), _mm256_packus_epi16(a, b))
KIV_LANES(permute32(Vector units, Vector places), _mm256_permutevar8x32_epi32(units, places))
KIV_LANES(loadAll(const void *from), _mm256_loadu_si256(static_cast<const Vector *>(from)))

KIV_LANES(choose(const uint8_t *from, Vector units),
          select(_mm256_slli_epi32(units, 28), // 8 and above
                 permute32(loadAll(from + 32), units), permute32(loadAll(from), units)))

// Stores of single lanes put them in order without a vector operation.
KIV_TARGET KIV_INLINE void storeBoth(uint8_t *to, Vector even, Vector odd)
{
    const Vector first = _mm256_unpacklo_epi32(even, odd);
    const Vector last = _mm256_unpackhi_epi32(even, odd);
    sse42::store(to, _mm256_castsi256_si128(first));
    sse42::store(to + 16, _mm256_castsi256_si128(last));
    sse42::store(to + 32, _mm256_extracti128_si256(first, 1));
    sse42::store(to + 48, _mm256_extracti128_si256(last, 1));
}

KIV_TARGET KIV_INLINE void storeRGB(uint8_t *to, Vector bytes)
{
    const Vector close = permute32(bytes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    sse42::store(to, _mm256_castsi256_si128(close));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(to + 16), _mm256_extracti128_si256(close, 1));
}

// Only six of the eight 32-bit parts of a vector are used. Four vectors fill three, each turned so that its
// parts are in place: a store for every three quarters would cross a cache line half of the time.
constexpr size_t kWordsRead = 128;
constexpr size_t kWordsLeft = 96;
template <class Upper>
KIV_TARGET KIV_INLINE void convertWords(const uint8_t *from, uint8_t *to, Upper upper)
{
    const auto turned = [&](size_t at, Vector order) KIV_TARGET KIV_ALWAYS
    { return permute32(shuffle(upper(loadAll(from + at)), loadAll(kWordPlaces.data())), order); };
    const Vector first = turned(0, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    const Vector second = turned(32, _mm256_setr_epi32(2, 4, 5, 6, 3, 7, 0, 1));
    const Vector third = turned(64, _mm256_setr_epi32(5, 6, 3, 7, 0, 1, 2, 4));
    const Vector fourth = turned(96, _mm256_setr_epi32(3, 7, 0, 1, 2, 4, 5, 6));
    auto *const made = reinterpret_cast<Vector *>(to);
    _mm256_storeu_si256(made, _mm256_blend_epi32(first, second, 0xC0));
    _mm256_storeu_si256(made + 1, _mm256_blend_epi32(second, third, 0xF0));
    _mm256_storeu_si256(made + 2, _mm256_blend_epi32(third, fourth, 0xFC));
}
#include "Private/Pixels/Lanes.h"
#undef KIV_SPLIT_STORES
#undef KIV_TARGET
} // namespace avx2

// ---- AVX-512: four lanes, bytes from any of them, and the first bytes by masks ----

namespace avx512
{
#define KIV_TARGET                                                                                           \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vnni,avx2,bmi2")))
#define KIV_MASKED_PARTS
using Vector = __m512i;
constexpr bool kStringStores = true;

// The masked forms, all lanes on, because gcc 12 warns of undefined operands inside its plain forms.
constexpr uint16_t kAll = 0xFFFF;
constexpr uint64_t kAllBytes = ~uint64_t{0};

constexpr uint64_t firstBits(size_t count)
{
    return count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
}

alignas(64) constexpr Places kHalfPlaces = everyLane({2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14,
                                                      15});
KIV_LANES(loadAll(const void *from), _mm512_loadu_si512(from))
KIV_LANES(loadPart(const uint8_t *from, size_t size), _mm512_maskz_loadu_epi8(firstBits(size), from))
KIV_LANES(shuffle(Vector bytes, Vector places), _mm512_shuffle_epi8(bytes, places))
KIV_LANES(opaque(Vector bytes, Vector places),
          _mm512_mask_shuffle_epi8(_mm512_set1_epi32(kAlpha), 0x7777777777777777, bytes, places))
KIV_LANES(chromaMean(Vector a, Vector b), _mm512_mask_avg_epu8(a, 0x5555555555555555, a, b))
KIV_LANES(select(Vector sign, Vector a, Vector b), _mm512_mask_blend_epi32(_mm512_movepi32_mask(sign), b, a))
KIV_LANES(pairs(Vector weights, Vector bytes), _mm512_maddubs_epi16(weights, bytes))
KIV_LANES(sum(Vector start, Vector a, Vector b), _mm512_dpwssd_epi32(start, a, b))
KIV_LANES(upperHalves(Vector a, Vector b),
          _mm512_mask_shuffle_epi8(b, 0x3333333333333333, a, loadAll(kHalfPlaces.data())))
KIV_LANES(saturate(Vector a, Vector b), _mm512_packus_epi16(a, b))
KIV_LANES(firstOfBoth(Vector a, Vector b),
          _mm512_permutex2var_epi32(a,
                                    _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23),
                                    b))
KIV_LANES(lastOfBoth(Vector a, Vector b),
          _mm512_permutex2var_epi32(
              a, _mm512_setr_epi32(8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31), b))

KIV_TARGET KIV_INLINE void storePart(uint8_t *to, Vector value, size_t size)
{
    _mm512_mask_storeu_epi8(to, firstBits(size), value);
}

KIV_LANES(choose(const uint8_t *from, Vector units),
          _mm512_permutex2var_epi32(loadAll(from), units, loadAll(from + 64)))

KIV_TARGET KIV_INLINE void storeRGB(uint8_t *to, Vector bytes)
{
    const Vector close = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15);
    storePart(to, _mm512_maskz_permutexvar_epi32(kAll, close, bytes), 48);
}

// 48 components from 64 bytes, at the front.
KIV_TARGET KIV_INLINE Vector upperBitsOf(Vector words)
{
    // The places where the upper 8 bits of the six components of two words begin; two of eight bytes are
    // unused.
    constexpr int64_t kBegins =
        2 | 12 << 8 | 22 << 16 | int64_t{34} << 24 | int64_t{44} << 32 | int64_t{54} << 40;
    alignas(64) static constexpr Places kClose = []
    {
        Places close{};
        for (size_t at = 0; at < 48; ++at)
            close[at] = static_cast<uint8_t>(at / 6 * 8 + at % 6);
        return close;
    }();
    const Vector spread = _mm512_maskz_multishift_epi64_epi8(kAllBytes, _mm512_set1_epi64(kBegins), words);
    return _mm512_maskz_permutexvar_epi8(kAllBytes, loadAll(kClose.data()), spread);
}

constexpr size_t kWordsRead = 64;
constexpr size_t kWordsLeft = 64;
template <class Upper>
KIV_TARGET KIV_INLINE void convertWords(const uint8_t *from, uint8_t *to, Upper)
{
    _mm512_storeu_si512(to, upperBitsOf(loadAll(from)));
}

KIV_TARGET void finishWords(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kMade = kWordsRead / kWord * kWordComponents;
    for (size_t components = 2 * width, made = 0; components > 0; components -= made, to += made)
    {
        made = std::min(components, kMade);
        const size_t read = (made + kWordComponents - 1) / kWordComponents * kWord;
        storePart(to, upperBitsOf(loadPart(from, read)), made);
        from += read;
    }
}
#include "Private/Pixels/Lanes.h"
#undef KIV_TARGET
} // namespace avx512
} // namespace

constinit const kiv::PixelRows kiv::kPixelRowsSSE42 = sse42::kRows;
constinit const kiv::PixelRows kiv::kPixelRowsAVX2 = avx2::kRows;
constinit const kiv::PixelRows kiv::kPixelRowsAVX512 = avx512::kRows;
#endif

#if defined(__aarch64__)
#include <arm_neon.h>

namespace
{
namespace neon
{
#define KIV_TARGET
#define KIV_ONE_LANE
using Vector = uint8x16_t;
constexpr bool kStringStores = false;
constexpr kiv::ConvertRow finishWords = kiv::plain::v210To2vuy;
KIV_LANES(shuffle(Vector bytes, Vector places), vqtbl1q_u8(bytes, places))
KIV_LANES(opaque(Vector bytes, Vector places), shuffle(bytes, places) | (Vector)vdupq_n_s32(kAlpha))
KIV_LANES(mean(Vector a, Vector b), vrhaddq_u8(a, b))
KIV_LANES(most(Vector a, Vector b), (Vector)vmaxq_s8((int8x16_t)a, (int8x16_t)b))
KIV_LANES(select(Vector sign, Vector a, Vector b), vbslq_u8((Vector)vshrq_n_s32((int32x4_t)sign, 31), a, b))
KIV_LANES(pairs(Vector a, Vector b),
          (Vector)vpaddq_s16((int16x8_t)vmovl_u8(vget_low_u8(a)) * vmovl_s8(vget_low_s8((int8x16_t)b)),
                             (int16x8_t)vmovl_high_u8(a) * vmovl_high_s8((int8x16_t)b)))
KIV_LANES(sum(Vector start, Vector a, Vector b),
          (Vector)((int32x4_t)start +
                   vpaddq_s32(vmull_s16(vget_low_s16((int16x8_t)a), vget_low_s16((int16x8_t)b)),
                              vmull_high_s16((int16x8_t)a, (int16x8_t)b))))
KIV_LANES(upperHalves(Vector a, Vector b), (Vector)vtrn2q_u16((uint16x8_t)a, (uint16x8_t)b))
KIV_LANES(saturate(Vector a, Vector b), vqmovun_high_s16(vqmovun_s16((int16x8_t)a), (int16x8_t)b))
KIV_LANES(firstOfBoth(Vector a, Vector b), (Vector)vzip1q_u32((uint32x4_t)a, (uint32x4_t)b))
KIV_LANES(lastOfBoth(Vector a, Vector b), (Vector)vzip2q_u32((uint32x4_t)a, (uint32x4_t)b))
#include "Private/Pixels/Lanes.h"
#undef KIV_ONE_LANE
#undef KIV_TARGET
} // namespace neon
} // namespace

constinit const kiv::PixelRows kiv::kPixelRowsNEON = neon::kRows;
#endif
