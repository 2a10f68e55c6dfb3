// The codec. ASCII is converted in blocks of 32 bytes, everything else one character at a time.
#include "CoreFoundation/Encoding.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kiv::text
{
namespace
{
constexpr size_t kBlock = 32;

// Widens one block to 16-bit units if all of it is ASCII; otherwise writes nothing.
bool widenBlock(const uint8_t *bytes, char16_t *out) noexcept
{
#if defined(__SSE2__)
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + 16));
    if (_mm_movemask_epi8(_mm_or_si128(low, high)) != 0)
        return false;
    const __m128i zero = _mm_setzero_si128();
    auto *to = reinterpret_cast<__m128i *>(out);
    _mm_storeu_si128(to, _mm_unpacklo_epi8(low, zero));
    _mm_storeu_si128(to + 1, _mm_unpackhi_epi8(low, zero));
    _mm_storeu_si128(to + 2, _mm_unpacklo_epi8(high, zero));
    _mm_storeu_si128(to + 3, _mm_unpackhi_epi8(high, zero));
    return true;
#else
    if (asciiPrefixPortable({bytes, kBlock}) != kBlock)
        return false;
    widenPortable({bytes, kBlock}, out);
    return true;
#endif
}

struct Utf8Character
{
    char32_t code;
    size_t bytes; // 0: malformed
};

constexpr bool isContinuation(uint8_t byte) noexcept
{
    return (byte & 0xc0) == 0x80;
}

// One character of three or four bytes. The checks refuse overlong forms (E0, F0),
// surrogates (ED) and values above 10FFFF (F4).
Utf8Character utf8Character(const uint8_t *bytes, size_t left) noexcept
{
    constexpr Utf8Character kInvalid{0, 0};
    const uint8_t lead = bytes[0];
    if (lead < 0xe0 || lead > 0xf4)
        return kInvalid;
    if (left < 3 || !isContinuation(bytes[1]) || !isContinuation(bytes[2]))
        return kInvalid;
    if (lead < 0xf0)
    {
        const auto code =
            static_cast<char32_t>((lead & 0x0f) << 12 | (bytes[1] & 0x3f) << 6 | (bytes[2] & 0x3f));
        return code < 0x800 || isSurrogate(code) ? kInvalid : Utf8Character{code, 3};
    }
    if (left < 4 || !isContinuation(bytes[3]))
        return kInvalid;
    const auto code = static_cast<char32_t>((lead & 0x07) << 18 | (bytes[1] & 0x3f) << 12 |
                                            (bytes[2] & 0x3f) << 6 | (bytes[3] & 0x3f));
    return code < 0x10000 || code > 0x10ffff ? kInvalid : Utf8Character{code, 4};
}

size_t putUtf16(char32_t code, char16_t *out) noexcept
{
    if (code < 0x10000)
    {
        out[0] = static_cast<char16_t>(code);
        return 1;
    }
    out[0] = static_cast<char16_t>(0xd7c0 + (code >> 10));
    out[1] = static_cast<char16_t>(0xdc00 | (code & 0x3ff));
    return 2;
}

// Loads a unit of more than one byte in the given byte order.
template <typename Unit, std::endian order>
Unit load(const uint8_t *bytes) noexcept
{
    Unit value;
    std::memcpy(&value, bytes, sizeof value);
    if constexpr (order == std::endian::native)
        return value;
    else if constexpr (sizeof value == 2)
        return static_cast<Unit>(__builtin_bswap16(value));
    else
        return static_cast<Unit>(__builtin_bswap32(value));
}

template <typename Unit, std::endian order>
void store(uint8_t *bytes, Unit value) noexcept
{
    value = load<Unit, order>(reinterpret_cast<const uint8_t *>(&value)); // swaps if needed, as load() does
    std::memcpy(bytes, &value, sizeof value);
}

// Encodes one character; returns its bytes, at most 4, or 0 if
// `encoding` lacks it. UTF-16 uses encodeUtf16().
template <CFStringEncoding encoding>
size_t encodeCharacter(char32_t code, uint8_t *out) noexcept
{
    if constexpr (encoding == kCFStringEncodingUTF8)
    {
        if (code < 0x80)
        {
            out[0] = static_cast<uint8_t>(code);
            return 1;
        }
        if (code < 0x800)
        {
            out[0] = static_cast<uint8_t>(0xc0 | code >> 6);
            out[1] = static_cast<uint8_t>(0x80 | (code & 0x3f));
            return 2;
        }
        if (isSurrogate(code))
            return 0;
        if (code < 0x10000)
        {
            out[0] = static_cast<uint8_t>(0xe0 | code >> 12);
            out[1] = static_cast<uint8_t>(0x80 | (code >> 6 & 0x3f));
            out[2] = static_cast<uint8_t>(0x80 | (code & 0x3f));
            return 3;
        }
        out[0] = static_cast<uint8_t>(0xf0 | code >> 18);
        out[1] = static_cast<uint8_t>(0x80 | (code >> 12 & 0x3f));
        out[2] = static_cast<uint8_t>(0x80 | (code >> 6 & 0x3f));
        out[3] = static_cast<uint8_t>(0x80 | (code & 0x3f));
        return 4;
    }
    else if constexpr (encoding == kCFStringEncodingUTF32BE || encoding == kCFStringEncodingUTF32LE)
    {
        constexpr auto order = encoding == kCFStringEncodingUTF32BE ? std::endian::big : std::endian::little;
        if (isSurrogate(code))
            return 0;
        store<uint32_t, order>(out, code);
        return 4;
    }
    else
    {
        if (code >= (encoding == kCFStringEncodingISOLatin1 ? 0x100u : 0x80u))
            return 0;
        out[0] = static_cast<uint8_t>(code);
        return 1;
    }
}

// Counts the units below `kBelow` at the start, at most `most`; writes each as a byte unless `out` is null.
template <char16_t kBelow>
size_t encodeRun(const char16_t *from, size_t most, uint8_t *out) noexcept
{
    size_t run = 0;
    if (out == nullptr)
        while (run < most && from[run] < kBelow)
            ++run;
    else
        for (; run < most && from[run] < kBelow; ++run)
            out[run] = static_cast<uint8_t>(from[run]);
    return run;
}

// The units are passed by value: the compiler must assume that each byte written changes a reference.
template <CFStringEncoding encoding>
Encoded encodeCharacters(Units units, uint8_t lossByte, uint8_t *out, size_t room) noexcept
{
    // Below this a character is one byte of its own value.
    constexpr bool isWide = encoding == kCFStringEncodingUTF32BE || encoding == kCFStringEncodingUTF32LE;
    constexpr char16_t kOneByte = isWide ? 0 : encoding == kCFStringEncodingISOLatin1 ? 0x100 : 0x80;
    Encoded done{0, 0};
    while (done.units < units.length)
    {
        // Most texts are runs of one-byte characters; without a buffer there is no limit.
        if constexpr (kOneByte != 0)
        {
            const size_t left = units.length - done.units;
            const size_t most = out == nullptr ? left : std::min(left, room - done.bytes);
            uint8_t *to = out == nullptr ? nullptr : out + done.bytes;
            const size_t run = encodeRun<kOneByte>(units.wide + done.units, most, to);
            done.units += run;
            done.bytes += run;
            if (done.units == units.length)
                break;
        }
        const Character character = characterAt(units, done.units);
        // Encode in place if any character fits; else aside, and copy it when its size is known.
        uint8_t aside[4];
        const bool fits = out != nullptr && room - done.bytes >= sizeof aside;
        uint8_t *to = fits ? out + done.bytes : aside;
        size_t size = encodeCharacter<encoding>(character.code, to);
        if (size == 0 && lossByte != 0)
            size = encodeCharacter<encoding>(lossByte, to);
        if (size == 0)
            break;
        if (out != nullptr && !fits)
        {
            if (size > room - done.bytes)
                break;
            std::memcpy(out + done.bytes, aside, size);
        }
        done.units += character.units;
        done.bytes += size;
    }
    return done;
}

// Every unit can be encoded, a lone surrogate too; a pair is not split at the end of the room.
template <std::endian order>
Encoded encodeUtf16(Units units, uint8_t *out, size_t room) noexcept
{
    size_t count = units.length;
    if (out != nullptr && room / 2 < count)
    {
        count = room / 2;
        if (count > 0 && isHighSurrogate(units[count - 1]) && isLowSurrogate(units[count]))
            --count;
    }
    if (out != nullptr)
    {
        for (size_t index = 0; index < count; ++index)
            store<uint16_t, order>(out + 2 * index, units[index]);
    }
    return {count, 2 * count};
}

template <std::endian order>
size_t utf16FromUtf16(std::span<const uint8_t> bytes, char16_t *out) noexcept
{
    const size_t count = bytes.size() / 2;
    for (size_t index = 0; index < count; ++index)
        out[index] = load<char16_t, order>(bytes.data() + 2 * index);
    return count;
}

template <std::endian order>
std::optional<size_t> utf16FromUtf32(std::span<const uint8_t> bytes, char16_t *out) noexcept
{
    char16_t *to = out;
    for (size_t index = 0; index + 4 <= bytes.size(); index += 4)
    {
        const auto code = load<char32_t, order>(bytes.data() + index);
        if (code > 0x10ffff || isSurrogate(code))
            return std::nullopt;
        to += putUtf16(code, to);
    }
    return static_cast<size_t>(to - out);
}

template <std::endian order>
size_t utf16BoundOfUtf32(std::span<const uint8_t> bytes) noexcept
{
    size_t count = 0;
    for (size_t index = 0; index + 4 <= bytes.size(); index += 4)
        count += load<char32_t, order>(bytes.data() + index) >= 0x10000 ? 2 : 1;
    return count;
}
} // namespace

size_t asciiPrefixPortable(std::span<const uint8_t> bytes) noexcept
{
    size_t index = 0;
    for (uint64_t word; index + sizeof word <= bytes.size(); index += sizeof word)
    {
        std::memcpy(&word, bytes.data() + index, sizeof word);
        if ((word & 0x8080808080808080u) != 0)
            break;
    }
    while (index < bytes.size() && bytes[index] < 0x80)
        ++index;
    return index;
}

void widenPortable(std::span<const uint8_t> ascii, char16_t *out) noexcept
{
    for (size_t index = 0; index < ascii.size(); ++index)
        out[index] = ascii[index];
}

size_t asciiPrefix(std::span<const uint8_t> bytes) noexcept
{
    size_t index = 0;
#if defined(__SSE2__)
    for (; index + 16 <= bytes.size(); index += 16)
    {
        const auto *from = reinterpret_cast<const __m128i *>(bytes.data() + index);
        const auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_loadu_si128(from)));
        if (mask != 0)
            return index + static_cast<size_t>(std::countr_zero(mask));
    }
#endif
    return index + asciiPrefixPortable(bytes.subspan(index));
}

bool isAscii(std::span<const char16_t> units) noexcept
{
    char16_t all = 0;
    for (const char16_t unit : units)
        all |= unit;
    return all < 0x80;
}

void widen(std::span<const uint8_t> ascii, char16_t *out) noexcept
{
    size_t index = 0;
    for (; index + kBlock <= ascii.size(); index += kBlock)
        static_cast<void>(widenBlock(ascii.data() + index, out + index)); // all ASCII: never refused
    widenPortable(ascii.subspan(index), out + index);
}

std::optional<size_t> utf16FromUtf8(std::span<const uint8_t> bytes, char16_t *out) noexcept
{
    const uint8_t *from = bytes.data();
    const uint8_t *const end = from + bytes.size();
    char16_t *to = out;
    while (from != end)
    {
        // If a block is not all ASCII, convert its characters one by one before the next block is tried.
        const uint8_t *stop = end;
        if (static_cast<size_t>(end - from) >= kBlock)
        {
            if (widenBlock(from, to))
            {
                from += kBlock;
                to += kBlock;
                continue;
            }
            stop = from + kBlock;
        }
        while (from < stop)
        {
            if (*from < 0x80)
            {
                *to++ = *from++;
                continue;
            }
            // Two bytes: most of accented Latin, Greek and Cyrillic. They skip the tests of longer forms.
            if (*from >= 0xc2 && *from < 0xe0 && end - from >= 2 && isContinuation(from[1]))
            {
                *to++ = static_cast<char16_t>((from[0] & 0x1f) << 6 | (from[1] & 0x3f));
                from += 2;
                continue;
            }
            const Utf8Character character = utf8Character(from, static_cast<size_t>(end - from));
            if (character.bytes == 0)
                return std::nullopt;
            to += putUtf16(character.code, to);
            from += character.bytes;
        }
    }
    return static_cast<size_t>(to - out);
}

std::optional<size_t> decode(std::span<const uint8_t> bytes, CFStringEncoding encoding,
                             char16_t *out) noexcept
{
    switch (encoding)
    {
    case kCFStringEncodingUTF8:
        return utf16FromUtf8(bytes, out);
    case kCFStringEncodingISOLatin1:
        widenPortable(bytes, out);
        return bytes.size();
    case kCFStringEncodingUTF16BE:
        return utf16FromUtf16<std::endian::big>(bytes, out);
    case kCFStringEncodingUTF16LE:
        return utf16FromUtf16<std::endian::little>(bytes, out);
    case kCFStringEncodingUTF32BE:
        return utf16FromUtf32<std::endian::big>(bytes, out);
    case kCFStringEncodingUTF32LE:
        return utf16FromUtf32<std::endian::little>(bytes, out);
    default: // valid ASCII is copied elsewhere, so there is a byte above 7F
        return std::nullopt;
    }
}

size_t utf16Bound(std::span<const uint8_t> bytes, CFStringEncoding encoding) noexcept
{
    size_t count = 0;
    switch (encoding)
    {
    case kCFStringEncodingUTF8: // a unit for each character, two for a character of four bytes
        for (const uint8_t byte : bytes)
            count += static_cast<size_t>(!isContinuation(byte)) + static_cast<size_t>(byte >= 0xf0);
        return count;
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
        return bytes.size() / 2;
    case kCFStringEncodingUTF32BE:
        return utf16BoundOfUtf32<std::endian::big>(bytes);
    case kCFStringEncodingUTF32LE:
        return utf16BoundOfUtf32<std::endian::little>(bytes);
    default:
        return bytes.size();
    }
}

size_t maximumBytesPerUnit(CFStringEncoding encoding) noexcept
{
    switch (encoding)
    {
    case kCFStringEncodingASCII:
    case kCFStringEncodingISOLatin1:
        return 1;
    case kCFStringEncodingUTF8: // four only for the two units of a surrogate pair
        return 3;
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
        return 2;
    case kCFStringEncodingUTF32BE:
    case kCFStringEncodingUTF32LE:
        return 4;
    default:
        return 0;
    }
}

Encoded encode(const Units &units, CFStringEncoding encoding, uint8_t lossByte, uint8_t *out,
               size_t room) noexcept
{
    switch (encoding)
    {
    case kCFStringEncodingUTF16BE:
        return encodeUtf16<std::endian::big>(units, out, room);
    case kCFStringEncodingUTF16LE:
        return encodeUtf16<std::endian::little>(units, out, room);
    case kCFStringEncodingUTF32BE:
        return encodeCharacters<kCFStringEncodingUTF32BE>(units, lossByte, out, room);
    case kCFStringEncodingUTF32LE:
        return encodeCharacters<kCFStringEncodingUTF32LE>(units, lossByte, out, room);
    default:
        break;
    }
    if (units.narrow != nullptr)
    {
        const size_t count = out == nullptr || units.length < room ? units.length : room;
        if (out != nullptr && count > 0)
            std::memcpy(out, units.narrow, count);
        return {count, count};
    }
    switch (encoding)
    {
    case kCFStringEncodingUTF8:
        return encodeCharacters<kCFStringEncodingUTF8>(units, lossByte, out, room);
    case kCFStringEncodingISOLatin1:
        return encodeCharacters<kCFStringEncodingISOLatin1>(units, lossByte, out, room);
    default:
        return encodeCharacters<kCFStringEncodingASCII>(units, lossByte, out, room);
    }
}
} // namespace kiv::text
