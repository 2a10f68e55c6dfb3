// Rows of pixels by the vectors of x86-64.
//
// A factor of the colour conversion has 17 or 18 bits, but the instruction that multiplies pairs of 16-bit
// numbers takes 16. So a factor is split into m * 65536 + r, with r a signed 16-bit number. The sum of the
// products with r is made in 32 bits, rounded and shifted; the whole numbers m, which are 1, 2, 2, 0 and -1,
// are added after the shift. Multiples of 65536 may be added before or after the shift, so the result equals
// the definition bit for bit.
#include "Private/Pixels/Vectors.h"

#include "Private/Pixels/Colour.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>

#define KIV_SSE42 __attribute__((target("sse4.2")))
#define KIV_AVX2  __attribute__((target("avx2,bmi2")))
#define KIV_AVX512                                                                                           \
    __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vnni,avx2,bmi2")))
#define KIV_ALWAYS __attribute__((always_inline))
#define KIV_INLINE KIV_ALWAYS inline

namespace
{
using Order = kiv::PixelOrder;

// ---- The factors ----

constexpr int32_t whole(int32_t factor)
{
    return (factor + 32768) >> 16;
}

constexpr int32_t rest(int32_t factor)
{
    return factor - whole(factor) * 65536;
}

// Two factors for a pair of 16-bit numbers, the first in the lower half.
constexpr int32_t pairOf(int32_t first, int32_t second)
{
    return static_cast<int32_t>((static_cast<uint32_t>(first) & 0xFFFFu) | static_cast<uint32_t>(second)
                                                                               << 16);
}

template <const kiv::ColourMatrix &M>
struct Factors
{
    static_assert(whole(M.luma) == 1 && whole(M.redCr) == 2 && whole(M.blueCb) == 2 &&
                  whole(-M.greenCb) == 0 && whole(-M.greenCr) == -1);

    // For either of two lumas.
    static constexpr int32_t luma0 = pairOf(rest(M.luma), 0);
    static constexpr int32_t luma1 = pairOf(0, rest(M.luma));
    // For Cb and Cr.
    static constexpr int32_t red = pairOf(0, rest(M.redCr));
    static constexpr int32_t green = pairOf(rest(-M.greenCb), rest(-M.greenCr));
    static constexpr int32_t blue = pairOf(rest(M.blueCb), 0);
    // Rounds, and corrects for lumas that count from 0 instead of 16.
    static constexpr int32_t start = 32768 - kiv::kLumaBlack * M.luma;
};

constexpr int kChromaBytes = 0x00FF; // of a word: Cb and Cr are the even bytes
constexpr size_t kGroup = 4;         // bytes of two pixels
constexpr size_t kGroupPixels = 8;   // bytes of these two pixels after the conversion

// The pixel past an odd width is not part of the picture: its bytes stay in the order of ConvertLinetoRGB().
template <Order Bytes>
void finishOddWidth(uint8_t *to, size_t width) noexcept
{
    if (Bytes == Order::rgba && width % 2 != 0)
        std::swap(to[width * 4], to[width * 4 + 2]);
}

// Converts the last bytes of a line, fewer than `Block` + kGroup, in blocks with zeros after the line.
template <size_t Block, class Convert>
KIV_INLINE void convertEnd(const uint8_t *from, uint8_t *to, size_t size, Convert convertBlock)
{
    alignas(64) uint8_t line[2 * Block + kGroup] = {};
    alignas(64) uint8_t pixels[4 * Block];
    std::memcpy(line, from, size);
    convertBlock(line, pixels);
    if (size > Block)
        convertBlock(line + Block, pixels + 2 * Block);
    std::memcpy(to, pixels, (size + kGroup - 1) / kGroup * kGroupPixels);
}

// Pictures are read from and written to memory, and a written cache line is read first. Prefetching this
// early hides that behind the arithmetic: 1.5 times the pixels per second of a 1920x1080 picture. After the
// end of a line usually comes the next line; an address outside memory is ignored.
constexpr size_t kAhead = 2048; // bytes; twice as many for RGB made from 2vuy
constexpr size_t kCacheLine = 64;

KIV_INLINE void prefetch(const uint8_t *address)
{
    _mm_prefetch(reinterpret_cast<const char *>(address), _MM_HINT_T0);
}

// ---- 128 bits ----

KIV_SSE42 KIV_INLINE __m128i load128(const uint8_t *from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

KIV_SSE42 KIV_INLINE void store128(uint8_t *to, __m128i value)
{
    _mm_storeu_si128(reinterpret_cast<__m128i *>(to), value);
}

// The upper halves of the sums of the even and of the odd pixels, in the order of the pixels.
KIV_SSE42 KIV_INLINE __m128i upperHalves(__m128i even, __m128i odd)
{
    return _mm_blend_epi16(_mm_srli_epi32(even, 16), odd, 0xAA);
}

// Converts 8 pixels from 16 bytes and the 4 after them.
template <const kiv::ColourMatrix &M, Order Bytes>
KIV_SSE42 KIV_INLINE void convertBlock128(const uint8_t *from, uint8_t *to)
{
    using F = Factors<M>;
    const __m128i own = load128(from);
    const __m128i next = load128(from + kGroup);
    const __m128i neutral = _mm_set1_epi16(kiv::kChromaNeutral);
    const __m128i mask = _mm_set1_epi16(kChromaBytes);
    const __m128i luma = _mm_srli_epi16(own, 8);
    const __m128i chroma0 = _mm_sub_epi16(_mm_and_si128(own, mask), neutral);
    const __m128i chroma1 =
        _mm_srai_epi16(_mm_add_epi16(chroma0, _mm_sub_epi16(_mm_and_si128(next, mask), neutral)), 1);
    const __m128i cb = _mm_blend_epi16(chroma0, _mm_slli_epi32(chroma1, 16), 0xAA);
    const __m128i cr = upperHalves(chroma0, chroma1);

    const __m128i start = _mm_set1_epi32(F::start);
    const __m128i luma0 = _mm_add_epi32(start, _mm_madd_epi16(luma, _mm_set1_epi32(F::luma0)));
    const __m128i luma1 = _mm_add_epi32(start, _mm_madd_epi16(luma, _mm_set1_epi32(F::luma1)));
    const auto component = [&](int32_t factors) KIV_SSE42 KIV_ALWAYS
    {
        const __m128i both = _mm_set1_epi32(factors);
        return _mm_add_epi16(luma, upperHalves(_mm_add_epi32(luma0, _mm_madd_epi16(chroma0, both)),
                                               _mm_add_epi32(luma1, _mm_madd_epi16(chroma1, both))));
    };
    const __m128i red = _mm_add_epi16(component(F::red), _mm_add_epi16(cr, cr));
    const __m128i green = _mm_sub_epi16(component(F::green), cr);
    const __m128i blue = _mm_add_epi16(component(F::blue), _mm_add_epi16(cb, cb));

    constexpr bool kRedFirst = Bytes == Order::rgba;
    const __m128i outer = _mm_packus_epi16(kRedFirst ? red : blue, kRedFirst ? blue : red);
    const __m128i inner = _mm_packus_epi16(green, _mm_set1_epi16(255));
    const __m128i front = _mm_unpacklo_epi8(outer, inner); // two bytes of each of the 8 pixels
    const __m128i back = _mm_unpackhi_epi8(outer, inner);
    store128(to, _mm_unpacklo_epi16(front, back));
    store128(to + 16, _mm_unpackhi_epi16(front, back));
}

template <const kiv::ColourMatrix &M, Order Bytes>
KIV_SSE42 void convertRow128(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kBlock = 16;
    uint8_t *const line = to;
    size_t size = width * 2;
    for (; size >= kBlock + kGroup; from += kBlock, to += 2 * kBlock, size -= kBlock)
    {
        prefetch(from + kAhead);
        prefetch(to + 2 * kAhead);
        convertBlock128<M, Bytes>(from, to);
    }
    convertEnd<kBlock>(from, to, size, convertBlock128<M, Bytes>);
    finishOddWidth<Bytes>(line, width);
}

// ---- 256 bits ----

KIV_AVX2 KIV_INLINE __m256i load256(const uint8_t *from)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
}

KIV_AVX2 KIV_INLINE void store256(uint8_t *to, __m256i value)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), value);
}

KIV_AVX2 KIV_INLINE __m256i upperHalves(__m256i even, __m256i odd)
{
    return _mm256_blend_epi16(_mm256_srli_epi32(even, 16), odd, 0xAA);
}

// Converts 16 pixels from 32 bytes and the 4 after them.
template <const kiv::ColourMatrix &M, Order Bytes>
KIV_AVX2 KIV_INLINE void convertBlock256(const uint8_t *from, uint8_t *to)
{
    using F = Factors<M>;
    // Quarters 0, 2 and 1, 3 in the lanes: unpacking within the lanes then gives them in order.
    constexpr int kInterleaved = 0xD8;
    const __m256i own = _mm256_permute4x64_epi64(load256(from), kInterleaved);
    const __m256i next = _mm256_permute4x64_epi64(load256(from + kGroup), kInterleaved);
    const __m256i neutral = _mm256_set1_epi16(kiv::kChromaNeutral);
    const __m256i mask = _mm256_set1_epi16(kChromaBytes);
    const __m256i luma = _mm256_srli_epi16(own, 8);
    const __m256i chroma0 = _mm256_sub_epi16(_mm256_and_si256(own, mask), neutral);
    const __m256i chroma1 = _mm256_srai_epi16(
        _mm256_add_epi16(chroma0, _mm256_sub_epi16(_mm256_and_si256(next, mask), neutral)), 1);
    const __m256i cb = _mm256_blend_epi16(chroma0, _mm256_slli_epi32(chroma1, 16), 0xAA);
    const __m256i cr = upperHalves(chroma0, chroma1);

    const __m256i start = _mm256_set1_epi32(F::start);
    const __m256i luma0 = _mm256_add_epi32(start, _mm256_madd_epi16(luma, _mm256_set1_epi32(F::luma0)));
    const __m256i luma1 = _mm256_add_epi32(start, _mm256_madd_epi16(luma, _mm256_set1_epi32(F::luma1)));
    const auto component = [&](int32_t factors) KIV_AVX2 KIV_ALWAYS
    {
        const __m256i both = _mm256_set1_epi32(factors);
        return _mm256_add_epi16(luma, upperHalves(_mm256_add_epi32(luma0, _mm256_madd_epi16(chroma0, both)),
                                                  _mm256_add_epi32(luma1, _mm256_madd_epi16(chroma1, both))));
    };
    const __m256i red = _mm256_add_epi16(component(F::red), _mm256_add_epi16(cr, cr));
    const __m256i green = _mm256_sub_epi16(component(F::green), cr);
    const __m256i blue = _mm256_add_epi16(component(F::blue), _mm256_add_epi16(cb, cb));

    constexpr bool kRedFirst = Bytes == Order::rgba;
    const __m256i outer = _mm256_packus_epi16(kRedFirst ? red : blue, kRedFirst ? blue : red);
    const __m256i inner = _mm256_packus_epi16(green, _mm256_set1_epi16(255));
    const __m256i front = _mm256_unpacklo_epi8(outer, inner);
    const __m256i back = _mm256_unpackhi_epi8(outer, inner);
    store256(to, _mm256_unpacklo_epi16(front, back));
    store256(to + 32, _mm256_unpackhi_epi16(front, back));
}

template <const kiv::ColourMatrix &M, Order Bytes>
KIV_AVX2 void convertRow256(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kBlock = 32;
    uint8_t *const line = to;
    size_t size = width * 2;
    for (; size >= kBlock + kGroup; from += kBlock, to += 2 * kBlock, size -= kBlock)
    {
        prefetch(from + kAhead);
        prefetch(to + 2 * kAhead);
        convertBlock256<M, Bytes>(from, to);
    }
    convertEnd<kBlock>(from, to, size, convertBlock256<M, Bytes>);
    finishOddWidth<Bytes>(line, width);
}

// ---- 512 bits ----

KIV_AVX512 KIV_INLINE __m512i load512(const uint8_t *from)
{
    return _mm512_loadu_si512(from);
}

// The masked forms, all lanes on, because gcc 12 warns of undefined operands inside its plain forms.
constexpr uint8_t kAll64 = 0xFF;
constexpr uint16_t kAll = 0xFFFF;
constexpr uint64_t kAllBytes = ~uint64_t{0};

constexpr uint64_t firstBits(size_t count)
{
    return count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
}

// One masked shuffle of bytes, while the narrower vectors shift and blend: for the widest vectors the
// arithmetic is the limit.
KIV_AVX512 KIV_INLINE __m512i upperHalves(__m512i even, __m512i odd)
{
    const __m512i down = _mm512_maskz_broadcast_i32x4(
        kAll, _mm_setr_epi8(2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15));
    return _mm512_mask_shuffle_epi8(odd, 0x3333333333333333, even, down);
}

KIV_AVX512 KIV_INLINE __m512i lowerHalves(__m512i even, __m512i odd)
{
    const __m512i up =
        _mm512_maskz_broadcast_i32x4(kAll, _mm_setr_epi8(0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13));
    return _mm512_mask_shuffle_epi8(even, 0xCCCCCCCCCCCCCCCC, odd, up);
}

struct Pixels512
{
    __m512i first;
    __m512i second;
};

// Converts 32 pixels from 16 groups and the group after each.
template <const kiv::ColourMatrix &M, Order Bytes>
KIV_AVX512 KIV_INLINE Pixels512 convertBlock512(__m512i own, __m512i next)
{
    using F = Factors<M>;
    const __m512i interleaved = _mm512_set_epi64(7, 3, 6, 2, 5, 1, 4, 0);
    own = _mm512_maskz_permutexvar_epi64(kAll64, interleaved, own);
    next = _mm512_maskz_permutexvar_epi64(kAll64, interleaved, next);
    const __m512i neutral = _mm512_set1_epi16(kiv::kChromaNeutral);
    const __m512i mask = _mm512_set1_epi16(kChromaBytes);
    const __m512i luma = _mm512_srli_epi16(own, 8);
    const __m512i chroma0 = _mm512_sub_epi16(_mm512_and_si512(own, mask), neutral);
    const __m512i chroma1 = _mm512_srai_epi16(
        _mm512_add_epi16(chroma0, _mm512_sub_epi16(_mm512_and_si512(next, mask), neutral)), 1);
    const __m512i cb = lowerHalves(chroma0, chroma1);
    const __m512i cr = upperHalves(chroma0, chroma1);

    const __m512i start = _mm512_set1_epi32(F::start);
    const __m512i luma0 = _mm512_dpwssd_epi32(start, luma, _mm512_set1_epi32(F::luma0));
    const __m512i luma1 = _mm512_dpwssd_epi32(start, luma, _mm512_set1_epi32(F::luma1));
    const auto component = [&](int32_t factors) KIV_AVX512 KIV_ALWAYS
    {
        const __m512i both = _mm512_set1_epi32(factors);
        const __m512i even = _mm512_dpwssd_epi32(luma0, chroma0, both);
        const __m512i odd = _mm512_dpwssd_epi32(luma1, chroma1, both);
        return _mm512_add_epi16(luma, upperHalves(even, odd));
    };
    const __m512i red = _mm512_add_epi16(component(F::red), _mm512_add_epi16(cr, cr));
    const __m512i green = _mm512_sub_epi16(component(F::green), cr);
    const __m512i blue = _mm512_add_epi16(component(F::blue), _mm512_add_epi16(cb, cb));

    constexpr bool kRedFirst = Bytes == Order::rgba;
    const __m512i outer = _mm512_packus_epi16(kRedFirst ? red : blue, kRedFirst ? blue : red);
    const __m512i inner = _mm512_packus_epi16(green, _mm512_set1_epi16(255));
    const __m512i front = _mm512_unpacklo_epi8(outer, inner);
    const __m512i back = _mm512_unpackhi_epi8(outer, inner);
    return {_mm512_unpacklo_epi16(front, back), _mm512_unpackhi_epi16(front, back)};
}

template <const kiv::ColourMatrix &M, Order Bytes>
KIV_AVX512 void convertRow512(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kBlock = 64;
    uint8_t *const line = to;
    size_t size = width * 2;
    for (; size >= kBlock + kGroup; from += kBlock, to += 2 * kBlock, size -= kBlock)
    {
        prefetch(from + kAhead);
        prefetch(to + 2 * kAhead);
        prefetch(to + 2 * kAhead + kCacheLine);
        const Pixels512 pixels = convertBlock512<M, Bytes>(load512(from), load512(from + kGroup));
        _mm512_storeu_si512(to, pixels.first);
        _mm512_storeu_si512(to + kBlock, pixels.second);
    }
    while (size > 0)
    {
        const size_t part = std::min(size, kBlock);
        const size_t following = std::min(size - std::min(size, kGroup), kBlock);
        const Pixels512 pixels =
            convertBlock512<M, Bytes>(_mm512_maskz_loadu_epi8(firstBits(part), from),
                                      _mm512_maskz_loadu_epi8(firstBits(following), from + kGroup));
        const uint64_t made = firstBits((part + kGroup - 1) / kGroup * 2); // one bit for each pixel
        _mm512_mask_storeu_epi32(to, static_cast<__mmask16>(made), pixels.first);
        _mm512_mask_storeu_epi32(to + kBlock, static_cast<__mmask16>(made >> 16), pixels.second);
        from += part;
        to += 2 * part;
        size -= part;
    }
    finishOddWidth<Bytes>(line, width);
}

// ---- 10 bits to 8 ----

constexpr size_t kWord = 4;
constexpr size_t kWordComponents = 3;

// Converts the rest of a line after whole words: `components` of them.
void finishV210(const uint8_t *from, uint8_t *to, size_t components) noexcept
{
    kiv::plain::v210To2vuy(from, to, components / 2);
}

constexpr size_t componentsOf(size_t width)
{
    return (width + 1) / 2 * 4;
}

// The upper 8 bits of each component, side by side in the lower 24 bits of the word.
KIV_SSE42 KIV_INLINE __m128i upperBits(__m128i words)
{
    const __m128i first = _mm_and_si128(_mm_srli_epi32(words, 2), _mm_set1_epi32(0xFF));
    const __m128i second = _mm_and_si128(_mm_srli_epi32(words, 4), _mm_set1_epi32(0xFF00));
    const __m128i third = _mm_and_si128(_mm_srli_epi32(words, 6), _mm_set1_epi32(0xFF0000));
    return _mm_or_si128(first, _mm_or_si128(second, third));
}

KIV_AVX2 KIV_INLINE __m256i upperBits(__m256i words)
{
    const __m256i first = _mm256_and_si256(_mm256_srli_epi32(words, 2), _mm256_set1_epi32(0xFF));
    const __m256i second = _mm256_and_si256(_mm256_srli_epi32(words, 4), _mm256_set1_epi32(0xFF00));
    const __m256i third = _mm256_and_si256(_mm256_srli_epi32(words, 6), _mm256_set1_epi32(0xFF0000));
    return _mm256_or_si256(first, _mm256_or_si256(second, third));
}

// Each store writes past its own bytes, and the next store overwrites the excess: so that many components
// must follow.
KIV_SSE42 void v210To2vuy128(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kMade = 4 * kWordComponents;
    const __m128i close = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    size_t components = componentsOf(width);
    for (; components >= 16; from += 16, to += kMade, components -= kMade)
    {
        prefetch(from + kAhead);
        prefetch(to + kAhead);
        store128(to, _mm_shuffle_epi8(upperBits(load128(from)), close));
    }
    finishV210(from, to, components);
}

KIV_AVX2 void v210To2vuy256(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kMade = size_t{32} * kWordComponents;
    const __m256i close =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    // Only six of the eight 32-bit parts of a vector are used. Four vectors fill three, each turned so that
    // its parts are in place: a store for every three quarters would cross a cache line half of the time.
    const __m256i first = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    const __m256i second = _mm256_setr_epi32(2, 4, 5, 6, 3, 7, 0, 1);
    const __m256i third = _mm256_setr_epi32(5, 6, 3, 7, 0, 1, 2, 4);
    const __m256i fourth = _mm256_setr_epi32(3, 7, 0, 1, 2, 4, 5, 6);
    const auto components8 = [&](const uint8_t *words, __m256i order) KIV_AVX2 KIV_ALWAYS
    { return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(upperBits(load256(words)), close), order); };
    size_t components = componentsOf(width);
    for (; components >= kMade; from += 128, to += kMade, components -= kMade)
    {
        prefetch(from + kAhead);
        prefetch(from + kAhead + kCacheLine);
        prefetch(to + kAhead);
        prefetch(to + kAhead + 32); // the next line, every other time
        const __m256i made0 = components8(from, first);
        const __m256i made1 = components8(from + 32, second);
        const __m256i made2 = components8(from + 64, third);
        const __m256i made3 = components8(from + 96, fourth);
        store256(to, _mm256_blend_epi32(made0, made1, 0xC0));
        store256(to + 32, _mm256_blend_epi32(made1, made2, 0xF0));
        store256(to + 64, _mm256_blend_epi32(made2, made3, 0xFC));
    }
    v210To2vuy128(from, to, components / 2);
}

// 48 components from 64 bytes, at the front.
KIV_AVX512 KIV_INLINE __m512i upperBits(__m512i words)
{
    // The places where the upper 8 bits of the six components of two words begin; two of eight bytes are
    // unused.
    constexpr int64_t kBegins =
        2 | 12 << 8 | 22 << 16 | int64_t{34} << 24 | int64_t{44} << 32 | int64_t{54} << 40;
    alignas(64) static constexpr std::array<uint8_t, 64> kClose = []
    {
        std::array<uint8_t, 64> close{};
        for (size_t at = 0; at < 48; ++at)
            close[at] = static_cast<uint8_t>(at / 6 * 8 + at % 6);
        return close;
    }();
    const __m512i spread = _mm512_maskz_multishift_epi64_epi8(kAllBytes, _mm512_set1_epi64(kBegins), words);
    return _mm512_maskz_permutexvar_epi8(kAllBytes, load512(kClose.data()), spread);
}

KIV_AVX512 void v210To2vuy512(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kMade = 16 * kWordComponents;
    size_t components = componentsOf(width);
    for (; components >= 64; from += 64, to += kMade, components -= kMade)
    {
        prefetch(from + kAhead);
        prefetch(to + kAhead);
        _mm512_storeu_si512(to, upperBits(load512(from)));
    }
    while (components > 0)
    {
        const size_t made = std::min(components, kMade);
        const size_t words = (made + kWordComponents - 1) / kWordComponents;
        _mm512_mask_storeu_epi8(
            to, firstBits(made),
            upperBits(_mm512_maskz_loadu_epi32(static_cast<__mmask16>(firstBits(words)), from)));
        from += words * kWord;
        to += made;
        components -= made;
    }
}

// ---- Samples ----

constexpr uint64_t kOne = 65536; // a pixel, in the units of positions

// Up to a step of two, 16 samples lie within 32 pixels, and 8 within 16.
constexpr uint64_t kMaxStep32 = 2 * kOne;

KIV_AVX2 void sample32by256(const uint8_t *from, size_t width, uint8_t *to, size_t count, uint64_t position,
                            uint64_t step) noexcept
{
    constexpr size_t kMade = 8;
    if (step <= kMaxStep32)
    {
        const __m256i places = _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7),
                                                  _mm256_set1_epi32(static_cast<int>(step)));
        for (; count >= kMade && position / kOne + 2 * kMade <= width;
             to += 4 * kMade, count -= kMade, position += kMade * step)
        {
            const uint8_t *pixels = from + position / kOne * 4;
            const __m256i index = _mm256_srli_epi32(
                _mm256_add_epi32(places, _mm256_set1_epi32(static_cast<int>(position % kOne))), 16);
            const __m256i near = _mm256_permutevar8x32_epi32(load256(pixels), index);
            const __m256i far = _mm256_permutevar8x32_epi32(load256(pixels + 32), index);
            const __m256i isFar = _mm256_slli_epi32(index, 28); // 8 and above
            store256(to,
                     _mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(near), _mm256_castsi256_ps(far),
                                                          _mm256_castsi256_ps(isFar))));
        }
    }
    kiv::plain::sample32(from, width, to, count, position, step);
}

KIV_AVX512 KIV_INLINE __m512i placesOf(uint64_t step)
{
    return _mm512_mullo_epi32(_mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15),
                              _mm512_set1_epi32(static_cast<int>(step)));
}

KIV_AVX512 void sample32by512(const uint8_t *from, size_t width, uint8_t *to, size_t count, uint64_t position,
                              uint64_t step) noexcept
{
    constexpr size_t kMade = 16;
    if (step <= kMaxStep32)
    {
        const __m512i places = placesOf(step);
        for (; count >= kMade && position / kOne + 2 * kMade <= width;
             to += 4 * kMade, count -= kMade, position += kMade * step)
        {
            const uint8_t *pixels = from + position / kOne * 4;
            const __m512i index = _mm512_maskz_srli_epi32(
                kAll, _mm512_add_epi32(places, _mm512_set1_epi32(static_cast<int>(position % kOne))), 16);
            _mm512_storeu_si512(to, _mm512_permutex2var_epi32(load512(pixels), index, load512(pixels + 64)));
        }
    }
    kiv::plain::sample32(from, width, to, count, position, step);
}

// Up to a step of four pixels, 16 samples and the pairs after them lie within 32 pairs, and 8 within 16.
constexpr uint64_t kMaxStep2vuy = 4 * kOne;

KIV_AVX2 void sample2vuyTo24by256(const uint8_t *from, size_t width, uint8_t *to, size_t count,
                                  uint64_t position, uint64_t step) noexcept
{
    using F = Factors<kiv::kMatrix601>;
    constexpr size_t kMade = 8;
    if (step <= kMaxStep2vuy)
    {
        const __m256i places = _mm256_mullo_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7),
                                                  _mm256_set1_epi32(static_cast<int>(step)));
        const __m256i neutral = _mm256_set1_epi16(kiv::kChromaNeutral);
        const __m256i mask = _mm256_set1_epi16(kChromaBytes);
        const __m256i close =
            _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 4, 8, 1, 5, 9, 2, 6, 10, 3, 7, 11, -1, -1, -1, -1));
        const __m256i together = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
        for (; count >= kMade && position / (2 * kOne) + 2 * kMade <= width / 2;
             to += 3 * kMade, count -= kMade, position += kMade * step)
        {
            const uint8_t *groups = from + position / (2 * kOne) * kGroup;
            const __m256i near = load256(groups);
            const __m256i far = load256(groups + 32);
            const auto pick = [&](__m256i index) KIV_AVX2 KIV_ALWAYS
            {
                return _mm256_castps_si256(
                    _mm256_blendv_ps(_mm256_castsi256_ps(_mm256_permutevar8x32_epi32(near, index)),
                                     _mm256_castsi256_ps(_mm256_permutevar8x32_epi32(far, index)),
                                     _mm256_castsi256_ps(_mm256_slli_epi32(index, 28))));
            };
            const __m256i place =
                _mm256_add_epi32(places, _mm256_set1_epi32(static_cast<int>(position % (2 * kOne))));
            const __m256i index = _mm256_srli_epi32(place, 17);
            const __m256i own = pick(index);
            const __m256i next = pick(_mm256_add_epi32(index, _mm256_set1_epi32(1)));
            const __m256i odd = _mm256_slli_epi32(place, 15); // bit 16, in front

            const __m256i luma = _mm256_and_si256(
                _mm256_srlv_epi32(own, _mm256_blendv_epi8(_mm256_set1_epi32(8), _mm256_set1_epi32(24),
                                                          _mm256_srai_epi32(odd, 31))),
                _mm256_set1_epi32(0xFF));
            const __m256i chroma0 = _mm256_and_si256(own, mask);
            const __m256i chroma1 =
                _mm256_srli_epi16(_mm256_add_epi16(chroma0, _mm256_and_si256(next, mask)), 1);
            const __m256i chroma =
                _mm256_sub_epi16(_mm256_blendv_epi8(chroma0, chroma1, _mm256_srai_epi32(odd, 31)), neutral);

            const __m256i white =
                _mm256_add_epi32(_mm256_mullo_epi32(luma, _mm256_set1_epi32(kiv::kMatrix601.luma)),
                                 _mm256_set1_epi32(F::start));
            const auto component = [&](int32_t factors) KIV_AVX2 KIV_ALWAYS
            { return _mm256_add_epi32(white, _mm256_madd_epi16(chroma, _mm256_set1_epi32(factors))); };
            const __m256i cr = _mm256_slli_epi32(_mm256_srli_epi32(chroma, 16), 16);
            const __m256i red = _mm256_add_epi32(component(F::red), _mm256_add_epi32(cr, cr));
            const __m256i green = _mm256_sub_epi32(component(F::green), cr);
            const __m256i blue = _mm256_add_epi32(component(F::blue), _mm256_slli_epi32(chroma, 17));
            const __m256i words =
                _mm256_packs_epi32(_mm256_srai_epi32(red, 16), _mm256_srai_epi32(green, 16));
            const __m256i blueWords = _mm256_srai_epi32(blue, 16);
            const __m256i bytes = _mm256_packus_epi16(words, _mm256_packs_epi32(blueWords, blueWords));
            const __m256i made = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(bytes, close), together);
            store128(to, _mm256_castsi256_si128(made));
            _mm_storel_epi64(reinterpret_cast<__m128i *>(to + 16), _mm256_extracti128_si256(made, 1));
        }
    }
    kiv::plain::sample2vuyTo24(from, width, to, count, position, step);
}

KIV_AVX512 void sample2vuyTo24by512(const uint8_t *from, size_t width, uint8_t *to, size_t count,
                                    uint64_t position, uint64_t step) noexcept
{
    using F = Factors<kiv::kMatrix601>;
    constexpr size_t kMade = 16;
    alignas(64) static constexpr std::array<uint8_t, 64> kClose = []
    {
        std::array<uint8_t, 64> close{}; // from 4 red, 4 green, 4 blue in each 16
        for (size_t at = 0; at < 3 * kMade; ++at)
            close[at] = static_cast<uint8_t>(at / 12 * 16 + at % 3 * 4 + at / 3 % 4);
        return close;
    }();
    if (step <= kMaxStep2vuy)
    {
        const __m512i places = placesOf(step);
        const __m512i neutral = _mm512_set1_epi16(kiv::kChromaNeutral);
        const __m512i mask = _mm512_set1_epi16(kChromaBytes);
        const __m512i upper = _mm512_set1_epi32(static_cast<int>(0xFFFF0000u));
        for (; count >= kMade && position / (2 * kOne) + 2 * kMade <= width / 2;
             to += 3 * kMade, count -= kMade, position += kMade * step)
        {
            const uint8_t *groups = from + position / (2 * kOne) * kGroup;
            const __m512i near = load512(groups);
            const __m512i far = load512(groups + 64);
            const __m512i place =
                _mm512_add_epi32(places, _mm512_set1_epi32(static_cast<int>(position % (2 * kOne))));
            const __m512i index = _mm512_maskz_srli_epi32(kAll, place, 17);
            const __m512i own = _mm512_permutex2var_epi32(near, index, far);
            const __m512i next =
                _mm512_permutex2var_epi32(near, _mm512_add_epi32(index, _mm512_set1_epi32(1)), far);
            const __mmask16 odd = _mm512_test_epi32_mask(place, _mm512_set1_epi32(1 << 16));

            const __m512i luma =
                _mm512_and_si512(_mm512_mask_srli_epi32(_mm512_maskz_srli_epi32(kAll, own, 8), odd, own, 24),
                                 _mm512_set1_epi32(0xFF));
            const __m512i chroma0 = _mm512_and_si512(own, mask);
            const __m512i chroma1 =
                _mm512_srli_epi16(_mm512_add_epi16(chroma0, _mm512_and_si512(next, mask)), 1);
            const __m512i chroma = _mm512_sub_epi16(_mm512_mask_blend_epi32(odd, chroma0, chroma1), neutral);

            const __m512i white =
                _mm512_add_epi32(_mm512_mullo_epi32(luma, _mm512_set1_epi32(kiv::kMatrix601.luma)),
                                 _mm512_set1_epi32(F::start));
            const auto component = [&](int32_t factors) KIV_AVX512 KIV_ALWAYS
            { return _mm512_dpwssd_epi32(white, chroma, _mm512_set1_epi32(factors)); };
            const __m512i cr = _mm512_and_si512(chroma, upper);
            const __m512i red = _mm512_add_epi32(component(F::red), _mm512_add_epi32(cr, cr));
            const __m512i green = _mm512_sub_epi32(component(F::green), cr);
            const __m512i blue =
                _mm512_add_epi32(component(F::blue), _mm512_maskz_slli_epi32(kAll, chroma, 17));
            const __m512i words = _mm512_packs_epi32(_mm512_maskz_srai_epi32(kAll, red, 16),
                                                     _mm512_maskz_srai_epi32(kAll, green, 16));
            const __m512i blueWords = _mm512_maskz_srai_epi32(kAll, blue, 16);
            const __m512i bytes = _mm512_packus_epi16(words, _mm512_packs_epi32(blueWords, blueWords));
            _mm512_mask_storeu_epi8(to, firstBits(3 * kMade),
                                    _mm512_maskz_permutexvar_epi8(kAllBytes, load512(kClose.data()), bytes));
        }
    }
    kiv::plain::sample2vuyTo24(from, width, to, count, position, step);
}

// ---- Filling ----

KIV_SSE42 void fill128(uint8_t *to, size_t size, const uint8_t (&pattern)[4]) noexcept
{
    const __m128i pixels = _mm_set1_epi32(std::bit_cast<int>(pattern));
    for (; size >= kCacheLine; to += kCacheLine, size -= kCacheLine)
    {
        prefetch(to + kAhead);
        for (size_t at = 0; at < kCacheLine; at += 16)
            store128(to + at, pixels);
    }
    kiv::plain::fill(to, size, pattern);
}

// String stores do not read the cache lines that they write (memset() uses them too); they are slow to start.
constexpr size_t kWorthStringStores = 16u << 10;

KIV_AVX2 void fill256(uint8_t *to, size_t size, const uint8_t (&pattern)[4]) noexcept
{
    if (size >= kWorthStringStores && reinterpret_cast<uintptr_t>(to) % kCacheLine == 0)
    {
        const auto pixel = std::bit_cast<uint32_t>(pattern);
        const uint64_t pixels = pixel | static_cast<uint64_t>(pixel) << 32;
        size_t count = size / sizeof pixels;
        size %= sizeof pixels;
        __asm__ volatile("rep stosq" : "+D"(to), "+c"(count) : "a"(pixels) : "memory"); // moves `to` on
    }
    const __m256i pixels = _mm256_set1_epi32(std::bit_cast<int>(pattern));
    for (; size >= kCacheLine; to += kCacheLine, size -= kCacheLine)
    {
        prefetch(to + kAhead);
        store256(to, pixels);
        store256(to + 32, pixels);
    }
    kiv::plain::fill(to, size, pattern);
}
} // namespace

constinit const kiv::PixelRows kiv::kPixelRowsSSE42{
    .toBGRA601 = convertRow128<kMatrix601, Order::bgra>,
    .toBGRA709 = convertRow128<kMatrix709, Order::bgra>,
    .toRGBA601 = convertRow128<kMatrix601, Order::rgba>,
    .v210To2vuy = v210To2vuy128,
    .sample32 = plain::sample32,
    .sample2vuyTo24 = plain::sample2vuyTo24,
    .fill = fill128,
};

constinit const kiv::PixelRows kiv::kPixelRowsAVX2{
    .toBGRA601 = convertRow256<kMatrix601, Order::bgra>,
    .toBGRA709 = convertRow256<kMatrix709, Order::bgra>,
    .toRGBA601 = convertRow256<kMatrix601, Order::rgba>,
    .v210To2vuy = v210To2vuy256,
    .sample32 = sample32by256,
    .sample2vuyTo24 = sample2vuyTo24by256,
    .fill = fill256,
};

constinit const kiv::PixelRows kiv::kPixelRowsAVX512{
    .toBGRA601 = convertRow512<kMatrix601, Order::bgra>,
    .toBGRA709 = convertRow512<kMatrix709, Order::bgra>,
    .toRGBA601 = convertRow512<kMatrix601, Order::rgba>,
    .v210To2vuy = v210To2vuy512,
    .sample32 = sample32by512,
    .sample2vuyTo24 = sample2vuyTo24by512,
    .fill = fill256,
};
#endif
