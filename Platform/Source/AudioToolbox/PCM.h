// Integer PCM samples: the conversion of each, over runs of samples and over frames that are split.
#ifndef KIVP_AUDIO_TOOLBOX_PCM_H
#define KIVP_AUDIO_TOOLBOX_PCM_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace kiv::audio
{
// How one sample is stored.
struct SampleLayout
{
    uint32_t bytes = 0; // 1 to 4
    uint32_t bits = 0;  // 1 to 8 * bytes
    bool isBigEndian = false;
    bool isSigned = false;
    bool isAlignedHigh = false; // if the bits do not fill the bytes
};

// In Conversion::source: the byte is zero. The value is that of the vector units' shuffles.
constexpr uint8_t kZeroByte = 0x80;

// The source of each byte of a register, and the bits of it to invert.
template <size_t Size>
struct Pattern
{
    std::array<uint8_t, Size> source;
    std::array<uint8_t, Size> flip;
};

// How far a register of consecutive samples goes.
struct Step
{
    size_t samples; // that it converts
    size_t spare;   // that must follow them, so that the register stays inside both buffers
};

// Registers of the vector kernels, for a conversion that moves bytes.
struct Patterns
{
    Step runStep;
    Step laneStep;
    Pattern<64> run;    // consecutive samples, as many as fit a register in and out
    Pattern<16> lane;   // as `run`, for a shorter register
    Pattern<16> pairs;  // frames of two channels, sorted by channel
    Pattern<16> quads;  // a frame of four channels; two of 16 bits in and out
    Pattern<16> octets; // eight samples of 16 bits in and out
};

// The conversion of a sample.
struct Conversion
{
    SampleLayout in;
    SampleLayout out;
    // Byte `index` of the output is byte source[index] of the input with the bits of
    // flip[index] inverted. isMove is false if that is not enough (bits that do not fill bytes,
    // a sign that is extended into spare bytes).
    bool isMove = false;
    std::array<uint8_t, 4> source{};
    std::array<uint8_t, 4> flip{};
    bool isCopy = false;   // the sample does not change
    bool areWords = false; // 16 bits in and out
    Patterns patterns{};
};

[[nodiscard]] Conversion makeConversion(const SampleLayout &in, const SampleLayout &out) noexcept;

// Converts `samples` samples that lie `inStride` and `outStride` bytes apart. Accesses no byte between them.
void convertStrided(const Conversion &conversion, const uint8_t *in, size_t inStride, uint8_t *out,
                    size_t outStride, size_t samples) noexcept;

// Converts consecutive samples.
using Convert = void (*)(const Conversion &conversion, const uint8_t *in, uint8_t *out,
                         size_t samples) noexcept;

// Splits interleaved frames into planes, which start `planeBytes` apart.
using Split = void (*)(const Conversion &conversion, size_t channels, const uint8_t *in, uint8_t *out,
                       size_t planeBytes, size_t frames) noexcept;

struct Kernels
{
    Convert convert;
    Split split;
};

extern const Kernels kPortableKernels;

// The implementations, slowest first. Only those that the machine supports may be called.
enum class KernelKind
{
    portable, // no intrinsics
    ssse3,
    avx2,
    avx512,       // F, BW and VBMI
    neon = ssse3, // every arm64 processor's; the only one there above portable
};

// Returns the fastest implementation for this machine; computed once.
[[nodiscard]] KernelKind kernelKind() noexcept;
[[nodiscard]] const Kernels &kernelsOf(KernelKind kind) noexcept;
} // namespace kiv::audio

#endif
