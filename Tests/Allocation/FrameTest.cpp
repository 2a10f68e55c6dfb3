// Memory blocks and the zero-filling allocator when memory runs out.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCoreServices2.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{
TEST(Frame, AFailedGrowthKeepsTheBlock)
{
    const size_t allocations = kiv::test::forEachAllocation(
        [](size_t index)
        {
            KIVCS2MemPtr mem;
            const KIVCS2Status made = kivCS2MemPtr_init(&mem, 8);
            EXPECT_EQ(made, index == 0 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            if (KIVCS2_FAILED(made))
            {
                EXPECT_EQ(mem.m_ptr, nullptr);
                EXPECT_EQ(mem.m_allocated, 0u);
                EXPECT_EQ(kivCS2MemPtr_init(&mem, 8), KIVCS2STATUS_OK); // and may be tried again
            }
            std::memcpy(mem.m_ptr, "contents", 8);

            const KIVCS2Status grown = kivCS2MemPtr_realloc(&mem, 4096);
            EXPECT_EQ(grown, index == 1 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(mem.m_allocated, index == 1 ? 8u : 4096u);
            EXPECT_EQ(std::memcmp(mem.m_ptr, "contents", 8), 0);

            const uint32_t before = mem.m_allocated;
            const KIVCS2Status shrunk = kivCS2MemPtr_forceRealloc(&mem, 4);
            EXPECT_EQ(shrunk, index == 2 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(mem.m_allocated, index == 2 ? before : 4u);
            EXPECT_EQ(std::memcmp(mem.m_ptr, "cont", 4), 0);
            EXPECT_EQ(kivCS2MemPtr_free(&mem), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(allocations, 3u);
}

TEST(Frame, ZeroMallocGivesNull)
{
    const size_t allocations = kiv::test::forEachAllocation(
        [](size_t index)
        {
            void *block = kivCS2ZeroMalloc(16);
            EXPECT_EQ(block == nullptr, index == 0);
            std::free(block);
        });
    EXPECT_EQ(allocations, 1u);
}
} // namespace
