// Reads the processor's vector level once.
#include "Private/Support/Cpu.h"

namespace
{
kiv::CpuLevel detect() noexcept
{
#if defined(__x86_64__)
    __builtin_cpu_init();
    const bool carryless = __builtin_cpu_supports("pclmul");
    if (!__builtin_cpu_supports("sse4.2") || !carryless)
        return kiv::CpuLevel::portable;
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi2"))
        return kiv::CpuLevel::sse42;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vnni") &&
        __builtin_cpu_supports("vpclmulqdq"))
        return kiv::CpuLevel::avx512;
    return kiv::CpuLevel::avx2;
#elif defined(__aarch64__)
    return kiv::CpuLevel::neon;
#else
    return kiv::CpuLevel::portable;
#endif
}
} // namespace

kiv::CpuLevel kiv::cpuLevel() noexcept
{
    static const CpuLevel level = detect();
    return level;
}
