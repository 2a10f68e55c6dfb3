// Hexadecimal text of caption files to packet bytes.
#include "Private/Captions/Hex.h"

#include <array>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace
{
using HexTable = std::array<uint8_t, 256>;

constexpr HexTable makeHexTable(bool lowerCase)
{
    HexTable table{};
    table.fill(kiv::kNoDigit);
    for (uint8_t value = 0; value < 10; ++value)
        table[static_cast<size_t>('0' + value)] = value;
    for (uint8_t value = 10; value < 16; ++value)
    {
        table[static_cast<size_t>('A' + value - 10)] = value;
        if (lowerCase)
            table[static_cast<size_t>('a' + value - 10)] = value;
    }
    return table;
}

constexpr HexTable kUpperHex = makeHexTable(false);
constexpr HexTable kAnyHex = makeHexTable(true);

constexpr uint8_t valueOf(const HexTable &table, char digit)
{
    return table[static_cast<uint8_t>(digit)];
}

size_t decodePortable(const char *text, size_t pairs, uint8_t *out)
{
    for (size_t index = 0; index < pairs; ++index)
    {
        const unsigned high = valueOf(kUpperHex, text[2 * index]);
        const unsigned low = valueOf(kUpperHex, text[2 * index + 1]);
        if ((high | low) > 0x0F)
            return index;
        out[index] = static_cast<uint8_t>(high << 4 | low);
    }
    return pairs;
}

#if defined(__x86_64__) || defined(__aarch64__)
// Stores the first `count` of eight bytes, then zeros: one store instead of a short copy.
void storeFront(uint64_t bytes, unsigned count, uint8_t *out)
{
    bytes &= count < 8 ? (uint64_t{1} << (8 * count)) - 1 : ~uint64_t{0};
    std::memcpy(out, &bytes, sizeof bytes);
}

#if defined(__x86_64__)
#define KIV_LANE __attribute__((target("sse4.2")))

// Decodes 16 digits to 8 bytes. An unsigned minimum tests both ranges; a pair is high * 16 + low. Always
// inlined, so that each level encodes it in its own way: a call from AVX2 code to SSE code would cost more
// than the whole packet.
KIV_LANE __attribute__((always_inline)) inline unsigned decodeBlock16(const char *text, uint8_t *out)
{
    const __m128i characters = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text));
    const __m128i decimal = _mm_sub_epi8(characters, _mm_set1_epi8('0'));
    const __m128i letter = _mm_sub_epi8(characters, _mm_set1_epi8('A'));
    const __m128i isDecimal = _mm_cmpeq_epi8(_mm_min_epu8(decimal, _mm_set1_epi8(9)), decimal);
    const __m128i isLetter = _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter);
    const __m128i values = _mm_blendv_epi8(decimal, _mm_add_epi8(letter, _mm_set1_epi8(10)), isLetter);
    const __m128i words = _mm_maddubs_epi16(values, _mm_set1_epi16(0x0110));
    const auto bytes = static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_packus_epi16(words, words)));
    const auto valid = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isDecimal, isLetter)));
    const unsigned count = static_cast<unsigned>(std::countr_one(valid)) / 2;
    storeFront(bytes, count, out);
    return count;
}
#else
#define KIV_LANE

// Decodes 16 digits to 8 bytes. Of the bytes that are digits, four bits each remain after the shift.
inline unsigned decodeBlock16(const char *text, uint8_t *out)
{
    const uint8x16_t characters = vld1q_u8(reinterpret_cast<const uint8_t *>(text));
    const uint8x16_t decimal = vsubq_u8(characters, vdupq_n_u8('0'));
    const uint8x16_t letter = vsubq_u8(characters, vdupq_n_u8('A'));
    const uint8x16_t isDecimal = vcleq_u8(decimal, vdupq_n_u8(9));
    const uint8x16_t isLetter = vcleq_u8(letter, vdupq_n_u8(5));
    const uint16x8_t values =
        vreinterpretq_u16_u8(vbslq_u8(isLetter, vaddq_u8(letter, vdupq_n_u8(10)), decimal));
    const uint8x8_t bytes = vmovn_u16(vsraq_n_u16(vshlq_n_u16(values, 4), values, 8));
    const uint8x8_t valid = vshrn_n_u16(vreinterpretq_u16_u8(vorrq_u8(isDecimal, isLetter)), 4);
    const unsigned count =
        static_cast<unsigned>(std::countr_one(vget_lane_u64(vreinterpret_u64_u8(valid), 0))) / 8;
    storeFront(vget_lane_u64(vreinterpret_u64_u8(bytes), 0), count, out);
    return count;
}
#endif

// Decodes whole blocks of 16 digits from `done` on; returns true if a block ended before its last digit.
KIV_LANE __attribute__((always_inline)) inline bool decodeBlocks16(const char *text, size_t pairs,
                                                                   uint8_t *out, size_t &done)
{
    while (done + 8 <= pairs)
    {
        const unsigned count = decodeBlock16(text + 2 * done, out + done);
        done += count;
        if (count < 8)
            return true;
    }
    return false;
}

// By SSE4.2 or NEON.
KIV_LANE size_t decodeLanes(const char *text, size_t pairs, uint8_t *out)
{
    size_t done = 0;
    if (decodeBlocks16(text, pairs, out, done))
        return done;
    return done + decodePortable(text + 2 * done, pairs - done, out + done);
}
#endif

#if defined(__x86_64__)
__attribute__((target("avx2"))) size_t decodeAVX2(const char *text, size_t pairs, uint8_t *out)
{
    size_t done = 0;
    for (; done + 16 <= pairs; done += 16)
    {
        const __m256i characters = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + 2 * done));
        const __m256i decimal = _mm256_sub_epi8(characters, _mm256_set1_epi8('0'));
        const __m256i letter = _mm256_sub_epi8(characters, _mm256_set1_epi8('A'));
        const __m256i isDecimal = _mm256_cmpeq_epi8(_mm256_min_epu8(decimal, _mm256_set1_epi8(9)), decimal);
        const __m256i isLetter = _mm256_cmpeq_epi8(_mm256_min_epu8(letter, _mm256_set1_epi8(5)), letter);
        if (_mm256_movemask_epi8(_mm256_or_si256(isDecimal, isLetter)) != -1)
            break; // the narrower steps below find its end
        const __m256i values =
            _mm256_blendv_epi8(decimal, _mm256_add_epi8(letter, _mm256_set1_epi8(10)), isLetter);
        const __m256i words = _mm256_maddubs_epi16(values, _mm256_set1_epi16(0x0110));
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + done), _mm256_castsi256_si128(packed));
    }
    const bool ended = decodeBlocks16(text, pairs, out, done);
    _mm256_zeroupper();
    return ended ? done : done + decodePortable(text + 2 * done, pairs - done, out + done);
}
#endif

using DecodePairs = size_t (*)(const char *text, size_t pairs, uint8_t *out);

DecodePairs decoderFor([[maybe_unused]] kiv::CpuLevel level)
{
#if defined(__x86_64__)
    if (level >= kiv::CpuLevel::avx2)
        return decodeAVX2;
    if (level >= kiv::CpuLevel::sse42)
        return decodeLanes;
#elif defined(__aarch64__)
    if (level >= kiv::CpuLevel::neon)
        return decodeLanes;
#endif
    return decodePortable;
}
} // namespace

uint8_t kiv::upperHexValue(char digit) noexcept
{
    return valueOf(kUpperHex, digit);
}

uint8_t kiv::anyHexValue(char digit) noexcept
{
    return valueOf(kAnyHex, digit);
}

KIVCS2Status kiv::storeNibble(KIVCS2ClosedCaption &caption, bool &lowHalf, uint8_t nibble) noexcept
{
    if (caption.m_captionSize >= kCaptionBytesMax)
        return KIVCS2STATUS_OVERFLOW_ERR;

    uint8_t &byte = caption.m_captionData[caption.m_captionSize];
    if (lowHalf)
    {
        byte = static_cast<uint8_t>(byte | (nibble & 0x0F));
        ++caption.m_captionSize;
    }
    else
    {
        byte = static_cast<uint8_t>(nibble << 4);
    }
    lowHalf = !lowHalf;
    return KIVCS2STATUS_OK;
}

size_t kiv::decodeHexPairs(CpuLevel level, std::string_view text, std::span<uint8_t> out) noexcept
{
    return decoderFor(level)(text.data(), std::min(text.size() / 2, out.size()), out.data());
}

size_t kiv::decodeHexPairs(std::string_view text, std::span<uint8_t> out) noexcept
{
    static const DecodePairs decode = decoderFor(cpuLevel());
    return decode(text.data(), std::min(text.size() / 2, out.size()), out.data());
}

KIVCS2Status kiv::decodeHexWords(std::string_view text, KIVCS2ClosedCaption &caption) noexcept
{
    bool lowHalf = false;
    for (size_t position = 0; position < text.size();)
    {
        // Most words are four digits on a byte boundary; everything else is decoded digit by digit.
        if (!lowHalf && text.size() - position >= 4 && caption.m_captionSize + 2 <= kCaptionBytesMax)
        {
            const unsigned a = valueOf(kAnyHex, text[position]);
            const unsigned b = valueOf(kAnyHex, text[position + 1]);
            const unsigned c = valueOf(kAnyHex, text[position + 2]);
            const unsigned d = valueOf(kAnyHex, text[position + 3]);
            if ((a | b | c | d) <= 0x0F)
            {
                uint8_t *const out = caption.m_captionData + caption.m_captionSize;
                out[0] = static_cast<uint8_t>(a << 4 | b);
                out[1] = static_cast<uint8_t>(c << 4 | d);
                caption.m_captionSize += 2;
                position += 4;
                continue;
            }
        }
        const char character = text[position++];
        if (character == ' ')
            continue;
        const uint8_t value = valueOf(kAnyHex, character);
        if (value == kNoDigit)
            return KIVCS2STATUS_CAPTION_ERR;
        if (const KIVCS2Status status = storeNibble(caption, lowHalf, value); KIVCS2_FAILED(status))
            return status;
    }
    return KIVCS2STATUS_OK;
}
