// System information, compared with that of the C library; the system's calls, and refusals.
#include <KIVCoreServices2/KIVCS2SystemInfo.h>

#include "RequiredPointers.h"

#include <mach/task_info.h>

#include <array>
#include <cstring>
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace
{
// The calls since the last reset, and whether the next ones fail.
uint32_t g_hostAsked = 0;
uint32_t g_taskAsked = 0;
bool g_hostFails = false;
bool g_taskFails = false;
} // namespace

// The program's own definitions replace the platform's, and call them.
kern_return_t host_statistics(host_t host, host_flavor_t flavor, host_info_t info,
                              mach_msg_type_number_t *count)
{
    static const auto next =
        reinterpret_cast<decltype(&host_statistics)>(dlsym(RTLD_NEXT, "host_statistics"));
    ++g_hostAsked;
    return g_hostFails ? KERN_FAILURE : next(host, flavor, info, count);
}

kern_return_t task_info(task_name_t task, task_flavor_t flavor, task_info_t info,
                        mach_msg_type_number_t *count)
{
    static const auto next = reinterpret_cast<decltype(&task_info)>(dlsym(RTLD_NEXT, "task_info"));
    ++g_taskAsked;
    return g_taskFails ? KERN_FAILURE : next(task, flavor, info, count);
}

namespace
{
using Bytes = std::array<uint64_t, 6>; // free, inactive, active, wired, resident, virtual

TEST(SystemInfo, MakesOnlyTheCallsThatItsOutputsNeed)
{
    using Row = std::tuple<unsigned, bool, bool, uint32_t, uint32_t, KIVCS2Status>;
    for (const auto &[wanted, hostFails, taskFails, hostAsked, taskAsked, status] : {
             Row{0b000000, true, true, 0, 0, KIVCS2STATUS_OK}, // one bit for each output
             {0b000001, false, true, 1, 0, KIVCS2STATUS_OK},
             {0b001000, false, true, 1, 0, KIVCS2STATUS_OK},
             {0b010000, true, false, 0, 1, KIVCS2STATUS_OK},
             {0b100000, true, false, 0, 1, KIVCS2STATUS_OK},
             {0b111111, false, false, 1, 1, KIVCS2STATUS_OK},
             {0b111111, true, false, 1, 0, KIVCS2STATUS_UNSUPPORTED_ERR},
             {0b111111, false, true, 1, 1, KIVCS2STATUS_UNSUPPORTED_ERR},
         })
    {
        SCOPED_TRACE(wanted);
        g_hostAsked = g_taskAsked = 0;
        g_hostFails = hostFails;
        g_taskFails = taskFails;
        Bytes bytes{};
        std::array<uint64_t *, 6> out{};
        for (size_t index = 0; index < out.size(); ++index)
            out[index] = (wanted >> index & 1u) != 0 ? &bytes[index] : nullptr;
        EXPECT_EQ(kivCS2SystemInfo_getRAMUsage(out[0], out[1], out[2], out[3], out[4], out[5]), status);
        EXPECT_EQ(g_hostAsked, hostAsked);
        EXPECT_EQ(g_taskAsked, taskAsked);
        const bool hostKnown = !hostFails;
        const bool taskKnown = taskAsked > 0 && !taskFails;
        EXPECT_EQ(bytes[0] > 0, (wanted & 1u) != 0 && hostKnown);
        EXPECT_EQ(bytes[4] > 0, (wanted >> 4 & 1u) != 0 && taskKnown);
        EXPECT_EQ(bytes[5] > 0, (wanted >> 5 & 1u) != 0 && taskKnown);
    }
    g_hostFails = g_taskFails = false;
}

TEST(SystemInfo, FollowsTheMemoryOfTheProcess)
{
    constexpr size_t kMore = size_t{64} << 20;
    Bytes before{}, mapped{}, used{};
    const auto look = [](Bytes &bytes)
    { return kivCS2SystemInfo_getRAMUsage(nullptr, nullptr, nullptr, nullptr, &bytes[4], &bytes[5]); };
    ASSERT_OK(look(before));
    void *memory = mmap(nullptr, kMore, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_OK(look(mapped));
    std::memset(memory, 1, kMore);
    ASSERT_OK(look(used));
    munmap(memory, kMore);
    EXPECT_GE(mapped[5], before[5] + kMore);
    EXPECT_GE(used[4] + kMore / 8, mapped[4] + kMore); // the kernel's count may be some pages behind
    EXPECT_GE(used[5], used[4]);
}

TEST(SystemInfo, AgreesWithTheCLibrary)
{
    struct sysinfo system
    {
    };
    ASSERT_EQ(sysinfo(&system), 0);
    const uint64_t total = uint64_t{system.totalram} * system.mem_unit;
    uint32_t value = 0;
    EXPECT_OK(kivCS2SystemInfo_getPhysicalRAMSize(&value));
    EXPECT_EQ(value, static_cast<uint32_t>(total)); // bytes, cut to 32 bits

    Bytes bytes{};
    ASSERT_OK(kivCS2SystemInfo_getRAMUsage(&bytes[0], &bytes[1], &bytes[2], &bytes[3], nullptr, nullptr));
    EXPECT_LE(bytes[0] + bytes[1] + bytes[2], total);

    EXPECT_OK(kivCS2SystemInfo_getCPUCoreCount(&value));
    EXPECT_EQ(value, static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_OK(kivCS2SystemInfo_getClockSpeed(&value));
    EXPECT_TRUE(value == 0 || value > 10000000u); // hertz, not megahertz
}

TEST(SystemInfo, RefusesMissingOutputs)
{
    char name[4];
    KIV_REQUIRES_NOT_NULL(kivCS2SystemInfo_getPhysicalRAMSize, "_ramSizeMB");
    KIV_REQUIRES_NOT_NULL(kivCS2SystemInfo_getSystemVersion, "_major, _minor, _bugfix");
    KIV_REQUIRES_NOT_NULL(kivCS2SystemInfo_getClockSpeed, "_speedMHz");
    KIV_REQUIRES_NOT_NULL(kivCS2SystemInfo_getCPUCoreCount, "_cores");
    KIV_REQUIRES_NOT_NULL(kivCS2SystemInfo_getMachineNameString, "_buffer");
    kiv::test::expectRefused(
        KIV_REQUIRES(kivCS2SystemInfo_getMachineNameString, "(s32)(_bufferSize) != 0L", name, 0));
}
} // namespace
