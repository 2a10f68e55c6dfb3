// The vector kernels of PCM, in terms of lanes of 16 bytes. PCM_Vector.cpp includes this text
// once for each level, in a namespace with
//   KIV_TARGET, Vector, kLanes         the level, its register and its number of lanes
//   loadLanes(from, distance)          a lane from every `distance` bytes
//   repeat(lane)                       the same lane in all
//   shuffle, flip                      bytes of each lane by a pattern; exclusive or
//   low16 high16 low32 ... high64      interleave the units of two registers' lower or upper half lanes
//   store(out, value)                  all lanes
//   fetchAhead(out)                    to be called before a store to a plane
//   storePacked(out, value, bytes)     the first `bytes` bytes, 1 to 4, of every four; writes all lanes
//   convertRun(...)                    converts consecutive samples; returns their number
//   kBelow                             the kernels of the level below
// With KIV_ONE_LANE, for registers of one lane, the three before kBelow are here.
//
// A block of a split is the frames that fill its registers. A lane holds frames that follow those of the lane
// before it, so that transposing within lanes leaves a channel's samples in order.

#if defined(KIV_ONE_LANE)
KIV_INLINE void fetchAhead(const uint8_t *) {}
KIV_TARGET KIV_INLINE void storePacked(uint8_t *out, Vector value, size_t bytes)
{
    store(out, shuffle(value, repeat(kPack16[bytes - 1])));
}

KIV_TARGET inline size_t convertRun(const Conversion &conversion, const uint8_t *in, uint8_t *out,
                                    size_t samples) noexcept
{
    const auto [step, spare] = conversion.patterns.laneStep;
    const kiv::audio::Pattern<kLane> &pattern = conversion.patterns.lane;
    const Vector places = repeat(pattern.source);
    const Vector turned = repeat(pattern.flip);
    size_t done = 0;
    for (; samples - done >= step + spare; done += step)
    {
        store(out, flip(shuffle(loadLanes(in, 0), places), turned));
        in += step * conversion.in.bytes;
        out += step * conversion.out.bytes;
    }
    return done;
}
#endif

// The change of a register's bytes.
struct Change
{
    Vector places;
    Vector turned;
};

KIV_TARGET KIV_INLINE Change changeBy(const kiv::audio::Pattern<kLane> &pattern)
{
    return {repeat(pattern.source), repeat(pattern.flip)};
}

KIV_TARGET KIV_INLINE Vector loadChanged(const uint8_t *from, size_t distance, const Change &change)
{
    return flip(shuffle(loadLanes(from, distance), change.places), change.turned);
}

template <bool Words>
KIV_TARGET KIV_INLINE void storeRow(uint8_t *out, Vector row, size_t sample)
{
    if constexpr (Words)
        store(out, row);
    else
        storePacked(out, row, sample);
}

template <bool Changes>
KIV_TARGET KIV_INLINE void storeWords(uint8_t *out, Vector row, const Change &change)
{
    fetchAhead(out);
    store(out, Changes ? flip(shuffle(row, change.places), change.turned) : row);
}

KIV_TARGET KIV_INLINE void transpose4(Vector (&row)[4])
{
    const Vector a = low32(row[0], row[1]);
    const Vector b = high32(row[0], row[1]);
    const Vector c = low32(row[2], row[3]);
    const Vector d = high32(row[2], row[3]);
    row[0] = low64(a, c);
    row[1] = high64(a, c);
    row[2] = low64(b, d);
    row[3] = high64(b, d);
}

// Without loops: at -O2 gcc 12 does not unroll them, and keeps the rows in memory.
KIV_TARGET KIV_INLINE void transpose8(Vector (&row)[8])
{
    // From frames 2i and 2i + 1: channels 0 to 3, then 4 to 7.
    Vector first[4] = {low16(row[0], row[1]), low16(row[2], row[3]), low16(row[4], row[5]),
                       low16(row[6], row[7])};
    Vector last[4] = {high16(row[0], row[1]), high16(row[2], row[3]), high16(row[4], row[5]),
                      high16(row[6], row[7])};
    transpose4(first);
    transpose4(last);
    row[0] = first[0];
    row[1] = first[1];
    row[2] = first[2];
    row[3] = first[3];
    row[4] = last[0];
    row[5] = last[1];
    row[6] = last[2];
    row[7] = last[3];
}

// The frames that blocks may take, so that the last load and the last store, which reach past their block,
// stay inside the buffers; 0 if there is no room for a block. The last block overlaps the one before it.
inline size_t usableFrames(size_t frames, size_t blockFrames, size_t inFrame, size_t readBehind,
                           size_t outSample)
{
    const size_t written = kLanes * kLane;
    const size_t writtenBehind = written > blockFrames * outSample ? written - blockFrames * outSample : 0;
    const size_t spare =
        std::max((readBehind + inFrame - 1) / inFrame, (writtenBehind + outSample - 1) / outSample);
    return frames >= spare + blockFrames ? frames - spare : 0;
}

// Two channels. With `Words` a lane takes four frames of 16 bits, else two frames of any width.
template <bool Words>
KIV_TARGET size_t splitPairs(const Conversion &conversion, const uint8_t *in, uint8_t *out, size_t planeBytes,
                             size_t frames) noexcept
{
    constexpr size_t kLoadFrames = Words ? 4 : 2;
    constexpr size_t kLaneFrames = 2 * kLoadFrames;
    constexpr size_t kBlockFrames = kLanes * kLaneFrames;
    const size_t inFrame = size_t{2} * conversion.in.bytes;
    const size_t sample = conversion.out.bytes;
    const Change change = changeBy(conversion.patterns.pairs);
    const size_t usable = usableFrames(frames, kBlockFrames, inFrame, kLane - kLoadFrames * inFrame, sample);
    for (size_t start = 0; start < usable; start = nextBlock(start, usable, kBlockFrames))
    {
        const uint8_t *const block = in + start * inFrame;
        uint8_t *const plane = out + start * sample;
        const Vector first = loadChanged(block, kLaneFrames * inFrame, change);
        const Vector second = loadChanged(block + kLoadFrames * inFrame, kLaneFrames * inFrame, change);
        storeRow<Words>(plane, low64(first, second), sample);
        storeRow<Words>(plane + planeBytes, high64(first, second), sample);
    }
    return usable;
}

// Groups of four channels and the remaining ones. With `Words` there are exactly four channels of 16 bits,
// and a lane takes two frames of them.
template <bool Words>
KIV_TARGET size_t splitQuads(const Conversion &conversion, size_t channels, const uint8_t *in, uint8_t *out,
                             size_t planeBytes, size_t frames) noexcept
{
    constexpr size_t kLoadFrames = Words ? 2 : 1;
    constexpr size_t kLaneFrames = 4 * kLoadFrames;
    constexpr size_t kBlockFrames = kLanes * kLaneFrames;
    const size_t inFrame = channels * conversion.in.bytes;
    const size_t sample = conversion.out.bytes;
    const Change change = changeBy(conversion.patterns.quads);
    const size_t lastGroup = (channels - 1) / 4 * 4 * conversion.in.bytes;
    const size_t usable =
        usableFrames(frames, kBlockFrames, inFrame,
                     lastGroup + kLane - std::min(lastGroup + kLane, kLoadFrames * inFrame), sample);
    for (size_t start = 0; start < usable; start = nextBlock(start, usable, kBlockFrames))
    {
        for (size_t channel = 0; channel < channels; channel += 4)
        {
            const uint8_t *const group = in + start * inFrame + channel * conversion.in.bytes;
            const size_t step = kLoadFrames * inFrame;
            const size_t between = kLaneFrames * inFrame;
            Vector row[4] = {loadChanged(group, between, change), loadChanged(group + step, between, change),
                             loadChanged(group + 2 * step, between, change),
                             loadChanged(group + 3 * step, between, change)};
            transpose4(row);
            uint8_t *const plane = out + channel * planeBytes + start * sample;
            const size_t count = channels - channel;
            storeRow<Words>(plane, row[0], sample);
            if (count > 1)
                storeRow<Words>(plane + planeBytes, row[1], sample);
            if (count > 2)
                storeRow<Words>(plane + 2 * planeBytes, row[2], sample);
            if (count > 3)
                storeRow<Words>(plane + 3 * planeBytes, row[3], sample);
        }
    }
    return usable;
}

// Groups of eight channels of 16 bits and the remaining ones; a lane takes a frame.
template <bool Changes>
KIV_TARGET size_t splitOctets(const Conversion &conversion, size_t channels, const uint8_t *in, uint8_t *out,
                              size_t planeBytes, size_t frames) noexcept
{
    constexpr size_t kSample = 2;
    constexpr size_t kLaneFrames = 8;
    constexpr size_t kBlockFrames = kLanes * kLaneFrames;
    const size_t inFrame = channels * kSample;
    const Change change = changeBy(conversion.patterns.octets);
    const size_t readBehind = (kLane - inFrame % kLane) % kLane;
    const size_t usable = usableFrames(frames, kBlockFrames, inFrame, readBehind, kSample);
    for (size_t start = 0; start < usable; start = nextBlock(start, usable, kBlockFrames))
    {
        for (size_t channel = 0; channel < channels; channel += 8)
        {
            const uint8_t *const group = in + start * inFrame + channel * kSample;
            const size_t between = kLaneFrames * inFrame;
            Vector row[8] = {
                loadLanes(group, between),
                loadLanes(group + inFrame, between),
                loadLanes(group + 2 * inFrame, between),
                loadLanes(group + 3 * inFrame, between),
                loadLanes(group + 4 * inFrame, between),
                loadLanes(group + 5 * inFrame, between),
                loadLanes(group + 6 * inFrame, between),
                loadLanes(group + 7 * inFrame, between),
            };
            transpose8(row);
            uint8_t *const plane = out + channel * planeBytes + start * kSample;
            const size_t count = channels - channel;
            storeWords<Changes>(plane, row[0], change);
            if (count > 1)
                storeWords<Changes>(plane + planeBytes, row[1], change);
            if (count > 2)
                storeWords<Changes>(plane + 2 * planeBytes, row[2], change);
            if (count > 3)
                storeWords<Changes>(plane + 3 * planeBytes, row[3], change);
            if (count > 4)
                storeWords<Changes>(plane + 4 * planeBytes, row[4], change);
            if (count > 5)
                storeWords<Changes>(plane + 5 * planeBytes, row[5], change);
            if (count > 6)
                storeWords<Changes>(plane + 6 * planeBytes, row[6], change);
            if (count > 7)
                storeWords<Changes>(plane + 7 * planeBytes, row[7], change);
        }
    }
    return usable;
}

inline void split(const Conversion &conversion, size_t channels, const uint8_t *in, uint8_t *out,
                  size_t planeBytes, size_t frames) noexcept
{
    size_t done = 0;
    if (!conversion.isMove)
        done = 0;
    else if (channels == 1)
        done = convertRun(conversion, in, out, frames);
    else if (channels == 2)
        done = conversion.areWords ? splitPairs<true>(conversion, in, out, planeBytes, frames)
                                   : splitPairs<false>(conversion, in, out, planeBytes, frames);
    else if (conversion.areWords && channels == 4)
        done = splitQuads<true>(conversion, channels, in, out, planeBytes, frames);
    else if (conversion.areWords && channels > 4)
        done = conversion.isCopy ? splitOctets<false>(conversion, channels, in, out, planeBytes, frames)
                                 : splitOctets<true>(conversion, channels, in, out, planeBytes, frames);
    else
        done = splitQuads<false>(conversion, channels, in, out, planeBytes, frames);
    if (done < frames)
        kBelow.split(conversion, channels, in + done * channels * conversion.in.bytes,
                     out + done * conversion.out.bytes, planeBytes, frames - done);
}

inline void convert(const Conversion &conversion, const uint8_t *in, uint8_t *out, size_t samples) noexcept
{
    if (samples == 0)
        return;
    if (conversion.isCopy)
    {
        std::memcpy(out, in, samples * conversion.in.bytes);
        return;
    }
    const size_t done = conversion.isMove ? convertRun(conversion, in, out, samples) : 0;
    if (done < samples)
        kBelow.convert(conversion, in + done * conversion.in.bytes, out + done * conversion.out.bytes,
                       samples - done);
}
