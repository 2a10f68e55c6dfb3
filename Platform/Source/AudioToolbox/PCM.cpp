// Integer PCM samples, in plain loops.
#include "AudioToolbox/PCM.h"

#include <algorithm>
#include <cstring>

namespace
{
using kiv::audio::Conversion;
using kiv::audio::kZeroByte;
using kiv::audio::SampleLayout;

// ---- One sample ----

constexpr uint32_t upperBits(uint32_t bits)
{
    return static_cast<uint32_t>(~uint64_t{0} << (32 - bits));
}

constexpr bool isHigh(const SampleLayout &layout)
{
    return layout.isAlignedHigh || layout.bits == 8 * layout.bytes;
}

// The position of the byte with the weight 256^index.
constexpr uint32_t placeOf(const SampleLayout &layout, uint32_t index)
{
    return layout.isBigEndian ? layout.bytes - 1 - index : index;
}

// The shift from the top of a word to the position of a sample's bits.
constexpr uint32_t shiftOf(const SampleLayout &layout)
{
    return isHigh(layout) ? 32 - 8 * layout.bytes : 32 - layout.bits;
}

// The bits of a sample, moved to the top of a word with zeros below.
uint32_t load(const SampleLayout &layout, const uint8_t *sample) noexcept
{
    uint64_t value = 0;
    for (uint32_t index = 0; index < layout.bytes; ++index)
        value |= static_cast<uint64_t>(sample[placeOf(layout, index)]) << 8 * index;
    return static_cast<uint32_t>(value << shiftOf(layout)) & upperBits(layout.bits);
}

void store(const SampleLayout &layout, uint32_t value, uint8_t *sample) noexcept
{
    value &= upperBits(layout.bits);
    // Spare upper bits carry the sign.
    const int64_t extended = layout.isSigned ? static_cast<int32_t>(value) : int64_t{value};
    const int64_t placed = extended >> shiftOf(layout);
    for (uint32_t index = 0; index < layout.bytes; ++index)
        sample[placeOf(layout, index)] = static_cast<uint8_t>(placed >> 8 * index);
}

// The weight, as an index, of the least significant whole byte of the sample's bits.
constexpr uint32_t lowestByte(const SampleLayout &layout)
{
    return isHigh(layout) ? layout.bytes - layout.bits / 8 : 0;
}

// ---- Plain loops ----

void computeStrided(const Conversion &conversion, const uint8_t *in, size_t inStride, uint8_t *out,
                    size_t outStride, size_t samples) noexcept
{
    const uint32_t flip = conversion.in.isSigned != conversion.out.isSigned ? 0x80000000u : 0;
    for (size_t index = 0; index < samples; ++index)
        store(conversion.out, load(conversion.in, in + index * inStride) ^ flip, out + index * outStride);
}

template <size_t In, size_t Out>
void moveStrided(const Conversion &conversion, const uint8_t *in, size_t inStride, uint8_t *out,
                 size_t outStride, size_t samples) noexcept
{
    uint8_t sample[In + 1] = {}; // the last byte stays zero
    uint8_t source[Out];
    uint8_t flip[Out];
    for (size_t byte = 0; byte < Out; ++byte)
    {
        source[byte] = conversion.source[byte] == kZeroByte ? In : conversion.source[byte];
        flip[byte] = conversion.flip[byte];
    }
    for (size_t index = 0; index < samples; ++index)
    {
        std::memcpy(sample, in + index * inStride, In);
        for (size_t byte = 0; byte < Out; ++byte)
            out[index * outStride + byte] = sample[source[byte]] ^ flip[byte];
    }
}

using Strided = void (*)(const Conversion &, const uint8_t *, size_t, uint8_t *, size_t, size_t) noexcept;

// Indexed by the bytes of an input sample and of an output sample, each minus one.
constexpr Strided kMoveStrided[4][4] = {
    {moveStrided<1, 1>, moveStrided<1, 2>, moveStrided<1, 3>, moveStrided<1, 4>},
    {moveStrided<2, 1>, moveStrided<2, 2>, moveStrided<2, 3>, moveStrided<2, 4>},
    {moveStrided<3, 1>, moveStrided<3, 2>, moveStrided<3, 3>, moveStrided<3, 4>},
    {moveStrided<4, 1>, moveStrided<4, 2>, moveStrided<4, 3>, moveStrided<4, 4>},
};

void convertPortable(const Conversion &conversion, const uint8_t *in, uint8_t *out, size_t samples) noexcept
{
    kiv::audio::convertStrided(conversion, in, conversion.in.bytes, out, conversion.out.bytes, samples);
}

void splitPortable(const Conversion &conversion, size_t channels, const uint8_t *in, uint8_t *out,
                   size_t planeBytes, size_t frames) noexcept
{
    constexpr size_t kFrames = 64; // few enough to stay in the first-level cache from channel to channel
    const size_t frame = channels * conversion.in.bytes;
    for (size_t first = 0; first < frames; first += kFrames)
        for (size_t channel = 0; channel < channels; ++channel)
            kiv::audio::convertStrided(conversion, in + first * frame + channel * conversion.in.bytes, frame,
                                       out + channel * planeBytes + first * conversion.out.bytes,
                                       conversion.out.bytes, std::min(kFrames, frames - first));
}

// ---- Patterns ----

// Makes the pattern that converts `frames` frames of `channels` samples and sorts them by channel, with
// `slot` bytes from one sample to the next. Bytes without a sample are zero.
template <size_t Size>
kiv::audio::Pattern<Size> makePattern(const Conversion &conversion, size_t channels, size_t frames,
                                      size_t slot) noexcept
{
    kiv::audio::Pattern<Size> pattern{};
    pattern.source.fill(kZeroByte);
    for (size_t channel = 0; channel < channels; ++channel)
        for (size_t frame = 0; frame < frames; ++frame)
            for (size_t byte = 0; byte < conversion.out.bytes; ++byte)
            {
                const size_t place = (channel * frames + frame) * slot + byte;
                const size_t from = (frame * channels + channel) * conversion.in.bytes;
                if (conversion.source[byte] != kZeroByte)
                    pattern.source[place] = static_cast<uint8_t>(from + conversion.source[byte]);
                pattern.flip[place] = conversion.flip[byte];
            }
    return pattern;
}

kiv::audio::Step stepOf(const Conversion &conversion, size_t size) noexcept
{
    const size_t samples = size / std::max(conversion.in.bytes, conversion.out.bytes);
    const auto spare = [=](size_t bytes) { return (size - samples * bytes + bytes - 1) / bytes; };
    return {samples, std::max(spare(conversion.in.bytes), spare(conversion.out.bytes))};
}

kiv::audio::Patterns makePatterns(const Conversion &conversion) noexcept
{
    kiv::audio::Patterns patterns{};
    patterns.runStep = stepOf(conversion, 64);
    patterns.laneStep = stepOf(conversion, 16);
    patterns.run = makePattern<64>(conversion, patterns.runStep.samples, 1, conversion.out.bytes);
    patterns.lane = makePattern<16>(conversion, patterns.laneStep.samples, 1, conversion.out.bytes);
    if (conversion.areWords)
    {
        patterns.pairs = makePattern<16>(conversion, 2, 4, 2);
        patterns.quads = makePattern<16>(conversion, 4, 2, 2);
        patterns.octets = makePattern<16>(conversion, 8, 1, 2);
    }
    else
    {
        patterns.pairs = makePattern<16>(conversion, 2, 2, 4);
        patterns.quads = makePattern<16>(conversion, 4, 1, 4);
    }
    return patterns;
}
} // namespace

const kiv::audio::Kernels kiv::audio::kPortableKernels = {convertPortable, splitPortable};

Conversion kiv::audio::makeConversion(const SampleLayout &in, const SampleLayout &out) noexcept
{
    Conversion conversion{.in = in, .out = out};
    const bool areWhole = in.bits % 8 == 0 && out.bits % 8 == 0;
    conversion.isMove = areWhole && (isHigh(out) || !out.isSigned);
    if (!conversion.isMove)
        return conversion;

    // The bytes of a sample's bits are numbered from the top.
    const uint32_t inTop = lowestByte(in) + in.bits / 8 - 1;
    const uint32_t outTop = lowestByte(out) + out.bits / 8 - 1;
    conversion.source.fill(kZeroByte);
    for (uint32_t byte = 0; byte < std::min(in.bits, out.bits) / 8; ++byte)
        conversion.source[placeOf(out, outTop - byte)] = static_cast<uint8_t>(placeOf(in, inTop - byte));
    if (in.isSigned != out.isSigned)
        conversion.flip[placeOf(out, outTop)] = 0x80;
    conversion.isCopy = in.bytes == out.bytes && in.isSigned == out.isSigned;
    for (uint32_t byte = 0; byte < out.bytes; ++byte)
        conversion.isCopy = conversion.isCopy && conversion.source[byte] == byte;
    conversion.areWords = in.bytes == 2 && out.bytes == 2;
    conversion.patterns = makePatterns(conversion);
    return conversion;
}

void kiv::audio::convertStrided(const Conversion &conversion, const uint8_t *in, size_t inStride,
                                uint8_t *out, size_t outStride, size_t samples) noexcept
{
    const Strided convert =
        conversion.isMove ? kMoveStrided[conversion.in.bytes - 1][conversion.out.bytes - 1] : computeStrided;
    convert(conversion, in, inStride, out, outStride, samples);
}
