// The vector instructions of this machine. Modules with hot loops have one table of function pointers for
// each level and choose it with cpuLevel(). Tests force every level that the machine has.
#ifndef KIV_PRIVATE_SUPPORT_CPU_H
#define KIV_PRIVATE_SUPPORT_CPU_H

namespace kiv
{
enum class CpuLevel
{
    portable,     // no intrinsics
    sse42,        // SSE4.2 and PCLMULQDQ
    avx2,         // AVX2, BMI2 and PCLMULQDQ
    avx512,       // AVX-512 F, BW, VL, DQ, VBMI, VNNI, and VPCLMULQDQ
    neon = sse42, // every arm64 processor has it; the only arm64 level above portable
};

// Returns the highest level that the processor has (CPUID) and the operating system enables; computed once.
[[nodiscard]] CpuLevel cpuLevel() noexcept;
} // namespace kiv

#endif
