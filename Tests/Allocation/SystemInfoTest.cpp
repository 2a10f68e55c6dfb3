// Every allocation for the name of the machine fails in turn: the documented status, a zeroed buffer, and no
// leaked name (LeakSanitizer). The other figures need no memory.
#include <KIVCoreServices2/KIVCS2SystemInfo.h>

#include "FailingAllocator.h"
#include "System/SystemFile.h"
#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

using namespace kiv::test;

TEST(Allocation, ANameThatCannotBeKeptIsNone)
{
    // Each run has its own name, because a name that is already kept needs fewer allocations.
    constexpr size_t kNames = 16;
    const TemporaryFolder folder;
    std::vector<std::string> roots;
    for (size_t index = 0; index < kNames; ++index)
    {
        roots.push_back(folder.path(std::to_string(index)));
        std::filesystem::create_directories(roots.back() + "/proc/sys/kernel");
        std::ofstream{roots.back() + "/proc/sys/kernel/hostname"} << "host" << index << "\n";
    }
    const auto body = [&](size_t index)
    {
        std::array<char, 32> name;
        name.fill('#');
        kiv::system::setRoot(roots.at(index).c_str());
        const KIVCS2Status status = kivCS2SystemInfo_getMachineNameString(name.data(), name.size());
        kiv::system::setRoot(nullptr);
        const bool failed = allocationFailed();
        allowAllocations(); // the checks allocate too
        EXPECT_EQ(status, failed ? KIVCS2STATUS_DATA_ERR : KIVCS2STATUS_OK) << index;
        EXPECT_EQ(std::string{name.data()}, failed ? "" : "host" + std::to_string(index));
        return failed;
    };
    size_t index = 0;
    for (bool failed = true; failed; ++index)
    {
        ASSERT_LT(index, kNames);
        failAllocation(index);
        failed = body(index);
    }
    EXPECT_GE(index, 4u); // the name, the list of names, its room; and a run with all of them
}

TEST(Allocation, FiguresNeedNoMemory)
{
    uint64_t bytes = 0;
    uint32_t number = 0;
    failAllocation(0);
    (void)kivCS2SystemInfo_getRAMUsage(&bytes, &bytes, &bytes, &bytes, &bytes, &bytes);
    (void)kivCS2SystemInfo_getSystemVersion(&number, &number, &number);
    (void)kivCS2SystemInfo_getClockSpeed(&number);
    (void)kivCS2SystemInfo_getCPUCoreCount(&number);
    (void)kivCS2SystemInfo_getPhysicalRAMSize(&number);
    const bool failed = allocationFailed();
    allowAllocations();
    EXPECT_FALSE(failed);
}
