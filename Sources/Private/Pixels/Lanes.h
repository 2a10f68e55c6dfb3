// The vector kernels of pixels, in terms of lanes of 16 bytes. Vectors.cpp includes this text once for each
// level, in a namespace with
//   KIV_TARGET, Vector               the level, its register
//   shuffle(bytes, places)           bytes of each lane by their places in it
//   opaque(bytes, places)            the same, with 255 as every fourth byte
//   mean(a, b)                       means of the bytes, rounded up; not with KIV_MASKED_PARTS
//   most(a, b)                       the greater of signed bytes; not with KIV_MASKED_PARTS
//   select(sign, a, b)               32-bit units of the first if `sign` is negative, else of the second
//   pairs(weights, bytes)            unsigned weights by signed bytes, pairs summed in 16 bits
//   sum(start, a, b)                 words by words, pairs summed in 32 bits and added
//   upperHalves(even, odd)           16 bits from each 32-bit unit of both, in turn
//   saturate(a, b)                   words to bytes of 0 to 255, in each lane first those of the first
//   firstOfBoth, lastOfBoth          interleave the 32-bit units of the first or last halves of two registers
//   KIV_SPLIT_STORES                 defined if there is storeBoth(to, even, odd) instead, which stores both
//   finishWords, kStringStores       who converts the last words of v210; whether fillByStringStores() pays
//   KIV_ONE_LANE                     defined if there is one; the others have
//     choose(from, units)            32-bit units of the two registers there by their numbers
//     storeRGB(to, bytes)            the first 12 bytes of each lane
//     kWordsRead, kWordsLeft         v210: the bytes that a block reads, the components that must be there
//     convertWords(from, to, upper)
//   KIV_MASKED_PARTS                 defined if there are masks:
//     loadPart(), storePart()        of the first bytes
//     chromaMean(a, b)               means of the even bytes, rounded up; the odd bytes of the first

inline constexpr size_t kBytes = sizeof(Vector);
using Units = uint32_t __attribute__((vector_size(kBytes)));
// With `using` clang 14 ignores the alignment.
typedef long long Loose __attribute__((vector_size(kBytes), aligned(1), may_alias));

KIV_LANES(load(const void *from), (Vector)(*static_cast<const Loose *>(from)))
KIV_LANES(every32(uint32_t number), (Vector)(Units{} + number))

KIV_TARGET KIV_INLINE void store(uint8_t *to, Vector value)
{
    *reinterpret_cast<Loose *>(to) = (Loose)value;
}

struct Halves
{
    Vector even, odd;
};

#ifndef KIV_SPLIT_STORES
KIV_TARGET KIV_INLINE void storeBoth(uint8_t *to, Vector even, Vector odd)
{
    store(to, firstOfBoth(even, odd));
    store(to + kBytes, lastOfBoth(even, odd));
}
#endif

#ifdef KIV_ONE_LANE
KIV_TARGET KIV_INLINE Halves gatherGroups(const uint8_t *from, Units, uint64_t offset, uint64_t step)
{
    using Pairs = uint64_t __attribute__((vector_size(kBytes)));
    const auto pair = [=](uint64_t at)
    {
        uint64_t groups = 0;
        std::memcpy(&groups, from + ((offset + at * step) >> 17) * kGroup, sizeof groups);
        return groups;
    };
    const auto first = (Units)Pairs{pair(0), pair(1)};
    const auto second = (Units)Pairs{pair(2), pair(3)};
    return {(Vector)__builtin_shufflevector(first, second, 0, 2, 4, 6),
            (Vector)__builtin_shufflevector(first, second, 1, 3, 5, 7)};
}

KIV_TARGET KIV_INLINE void storeRGB(uint8_t *to, Vector bytes)
{
    const auto units = (Units)bytes;
    const uint32_t parts[] = {units[0], units[1], units[2]};
    std::memcpy(to, parts, sizeof parts);
}

// The store writes past its own bytes, and the next store overwrites the excess: so that many components must
// follow.
inline constexpr size_t kWordsRead = kBytes;
inline constexpr size_t kWordsLeft = kBytes;
template <class Upper>
KIV_TARGET KIV_INLINE void convertWords(const uint8_t *from, uint8_t *to, Upper upper)
{
    store(to, shuffle(upper(load(from)), load(kWordPlaces.data())));
}
#else
KIV_TARGET KIV_INLINE Halves gatherGroups(const uint8_t *from, Units places, uint64_t, uint64_t)
{
    return {choose(from, (Vector)(places >> 17)), choose(from, (Vector)((places >> 17) + 1))};
}
#endif

// The groups at the end of a line and the group after each, with zeros after the line; stores of `size`
// bytes.
#ifdef KIV_MASKED_PARTS
KIV_TARGET KIV_INLINE Halves loadEnd(const uint8_t *from, size_t size)
{
    return {loadPart(from, size), loadPart(from + kGroup, size - std::min(size, kGroup))};
}

KIV_TARGET KIV_INLINE void storeEnd(uint8_t *to, const Halves &pixels, size_t size)
{
    storePart(to, firstOfBoth(pixels.even, pixels.odd), size);
    storePart(to + kBytes, lastOfBoth(pixels.even, pixels.odd), size - std::min(size, kBytes));
}
#else
KIV_TARGET KIV_INLINE Halves loadEnd(const uint8_t *from, size_t size)
{
    alignas(Vector) uint8_t line[kBytes + kGroup] = {};
    std::memcpy(line, from, std::min(size, sizeof line));
    return {load(line), load(line + kGroup)};
}

KIV_TARGET KIV_INLINE void storeEnd(uint8_t *to, const Halves &pixels, size_t size)
{
    alignas(Vector) uint8_t line[2 * kBytes];
    storeBoth(line, pixels.even, pixels.odd);
    std::memcpy(to, line, std::min(size, sizeof line));
}
#endif

// The pixels of each group of four bytes, as signed bytes in the order of Recipe: both chromas, the one that
// is used twice again, and luma.
template <const kiv::ColourMatrix &M>
KIV_TARGET KIV_INLINE Halves halvesOf(Vector own, Vector next)
{
    // Less 128. Means are made of complements, because means of complements that are rounded up are the
    // complements of means rounded down; the last exclusive or turns them back and subtracts 128 as well.
    const Vector centred = own ^ every32(0x80808080);
#ifdef KIV_MASKED_PARTS
    const Vector complement = every32(0x80FF80FF);
    const Vector mean = chromaMean(own ^ complement, next ^ complement) ^ every32(0x007F007F);
    const Vector odd = shuffle(mean, load(kGroupPlaces<M, 3>.data()));
#else
    const Vector complement = every32(0xFFFFFFFF);
    const Vector chroma =
        shuffle(mean(own ^ complement, next ^ complement), load(kGroupPlaces<M, kNone>.data()));
    const Vector odd = chroma ^ most(centred, every32(0x807F7F7F)); // the second luma, and 127
#endif
    return {shuffle(centred, load(kGroupPlaces<M, 1>.data())), odd};
}

struct Sums
{
    Vector red, green, blue;
};

KIV_LANES(weigh(Vector start, Vector bytes, Weights weights),
          sum(start, pairs(every32(weights.bytes()), bytes), every32(weights.factors())))

// The components times 65536, rounded by half.
template <const kiv::ColourMatrix &M>
KIV_TARGET KIV_INLINE Sums sumsOf(Vector bytes)
{
    using R = Recipe<M>;
    const Vector start = every32(kStart<M>);
    const Vector twice = weigh(start, bytes, R::kTwice);
    const Vector once = weigh(start, bytes, R::kOnce);
    const Vector green = weigh(twice, bytes, R::kGreen);
    return {R::kTwiceCr ? twice : once, green, R::kTwiceCr ? once : twice};
}

// Pixels of four bytes from the sums, in their order.
template <Order Bytes>
KIV_TARGET KIV_INLINE Vector pixelsOf(const Sums &sums)
{
    constexpr bool kRed = Bytes == Order::rgba;
    // The lower halves of the third sum become bytes that are not used.
    const Vector bytes =
        saturate(upperHalves(kRed ? sums.red : sums.blue, sums.green), kRed ? sums.blue : sums.red);
    return opaque(bytes, load(kPixelPlaces.data()));
}

template <const kiv::ColourMatrix &M, Order Bytes>
KIV_TARGET KIV_INLINE Halves convertBlock(Vector own, Vector next)
{
    const Halves halves = halvesOf<M>(own, next);
    return {pixelsOf<Bytes>(sumsOf<M>(halves.even)), pixelsOf<Bytes>(sumsOf<M>(halves.odd))};
}

template <const kiv::ColourMatrix &M, Order Bytes>
KIV_TARGET void convertRow(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    uint8_t *const line = to;
    size_t size = width * 2;
    for (; size >= kBytes + kGroup; from += kBytes, to += 2 * kBytes, size -= kBytes)
    {
        __builtin_prefetch(from + kAhead);
        __builtin_prefetch(to + 2 * kAhead);
        if constexpr (kBytes == kCacheLine)
            __builtin_prefetch(to + 2 * kAhead + kCacheLine);
        const Halves pixels = convertBlock<M, Bytes>(load(from), load(from + kGroup));
        storeBoth(to, pixels.even, pixels.odd);
    }
    for (size_t part = 0; size > 0; from += part, to += 2 * part, size -= part)
    {
        const Halves groups = loadEnd(from, size);
        part = std::min(size, kBytes);
        storeEnd(to, convertBlock<M, Bytes>(groups.even, groups.odd),
                 (part + kGroup - 1) / kGroup * 2 * kGroup);
    }
    if (Bytes == Order::rgba && width % 2 != 0) // Kept: see PixelRows
        std::swap(line[width * 4], line[width * 4 + 2]);
}

// ---- 10 bits to 8 ----

// The upper 8 bits of each component, side by side in the lower 24 bits of the word.
KIV_TARGET KIV_INLINE Vector upperBits(Vector words)
{
    const auto units = (Units)words;
    return (Vector)((units >> 2 & 0xFF) | (units >> 4 & 0xFF00) | (units >> 6 & 0xFF0000));
}

KIV_TARGET inline void v210To2vuy(const uint8_t *from, uint8_t *to, size_t width) noexcept
{
    constexpr size_t kMade = kWordsRead / kWord * kWordComponents;
    size_t components = (width + 1) / 2 * 4;
    for (; components >= kWordsLeft; from += kWordsRead, to += kMade, components -= kMade)
    {
        __builtin_prefetch(from + kAhead);
        __builtin_prefetch(to + kAhead);
        if constexpr (kWordsRead > kCacheLine)
        {
            __builtin_prefetch(from + kAhead + kCacheLine);
            __builtin_prefetch(to + kAhead + kCacheLine / 2); // the next line, every other time
        }
        convertWords(from, to, [&](Vector words) KIV_TARGET KIV_ALWAYS { return upperBits(words); });
    }
    finishWords(from, to, components / 2);
}

// ---- Samples ----

// The place of each 32-bit unit, if the first one has the place `offset`.
KIV_TARGET KIV_INLINE Units placesOf(uint64_t offset, uint64_t step)
{
    return (Units)load(kNumbers.data()) * static_cast<uint32_t>(step) + static_cast<uint32_t>(offset);
}

#ifdef KIV_ONE_LANE
using kiv::plain::sample32;
#else
KIV_TARGET inline void sample32(const uint8_t *from, size_t width, uint8_t *to, size_t count,
                                uint64_t position, uint64_t step) noexcept
{
    constexpr size_t kMade = kBytes / 4;
    // Up to a step of two the samples lie within twice as many pixels.
    if (step <= 2 * kOne)
        for (; count >= kMade && position / kOne + 2 * kMade <= width;
             to += kBytes, count -= kMade, position += kMade * step)
            store(to, choose(from + position / kOne * 4, (Vector)(placesOf(position % kOne, step) >> 16)));
    kiv::plain::sample32(from, width, to, count, position, step);
}
#endif

KIV_TARGET inline void sample2vuyTo24(const uint8_t *from, size_t width, uint8_t *to, size_t count,
                                      uint64_t position, uint64_t step) noexcept
{
    constexpr size_t kMade = kBytes / 4;
    // Up to a step of four pixels the samples and the groups after them lie within twice as many groups.
    if (step <= 4 * kOne)
        for (; count >= kMade && position / (2 * kOne) + 2 * kMade <= width / 2;
             to += 3 * kMade, count -= kMade, position += kMade * step)
        {
            const uint8_t *first = from + position / (2 * kOne) * kGroup;
            const uint64_t offset = position % (2 * kOne);
            const Units places = placesOf(offset, step);
            const Halves groups = gatherGroups(first, places, offset, step);
            const Halves halves = halvesOf<kiv::kMatrix601>(groups.even, groups.odd);
            const auto isOdd = (Vector)(places << 15); // in the sign
            const Sums sums = sumsOf<kiv::kMatrix601>(select(isOdd, halves.odd, halves.even));
            const Vector bytes = saturate(upperHalves(sums.red, sums.green), sums.blue);
            storeRGB(to, shuffle(bytes, load(kRGBPlaces.data())));
        }
    kiv::plain::sample2vuyTo24(from, width, to, count, position, step);
}

KIV_TARGET inline void fill(uint8_t *to, size_t size, const uint8_t (&pattern)[4]) noexcept
{
    if (kStringStores)
        fillByStringStores(to, size, std::bit_cast<uint32_t>(pattern));
    const Vector pixels = every32(std::bit_cast<uint32_t>(pattern));
    for (uint8_t *const end = to + size / kCacheLine * kCacheLine; to != end; to += kCacheLine)
    {
        __builtin_prefetch(to + kAhead);
        for (size_t at = 0; at < kCacheLine; at += kBytes)
            store(to + at, pixels);
    }
    kiv::plain::fill(to, size % kCacheLine, pattern);
}

inline constexpr kiv::PixelRows kRows{
    .toBGRA601 = convertRow<kiv::kMatrix601, Order::bgra>,
    .toBGRA709 = convertRow<kiv::kMatrix709, Order::bgra>,
    .toRGBA601 = convertRow<kiv::kMatrix601, Order::rgba>,
    .v210To2vuy = v210To2vuy,
    .sample32 = sample32,
    .sample2vuyTo24 = sample2vuyTo24,
    .fill = fill,
};
