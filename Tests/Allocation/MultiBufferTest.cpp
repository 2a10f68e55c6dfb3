// Multi-buffers when memory runs out: the documented status, nothing lost, and the record still works.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2MultiBuffer.h>

#include <gtest/gtest.h>

#include <vector>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::expectOkOrMemory;
using kiv::test::forEachAllocation;

constexpr uint32_t kCount = 3;

KIVCS2Status wanted()
{
    return allocationFailed() ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK;
}

TEST(MultiBuffer, AnInitThatFailsLeavesNothing)
{
    for (const bool isFreed : {false, true})
        EXPECT_EQ(forEachAllocation(
                      [isFreed](size_t)
                      {
                          KIVCS2MultiBuffer buffer{};
                          expectOkOrMemory(
                              kivCS2MultiBuffer_init(&buffer, kCount, KIVCS2MultiBufferFlags_ThreadSafe));
                          EXPECT_EQ(buffer.m_count, allocationFailed() ? 0 : kCount);
                          EXPECT_EQ(buffer.m_buffers == nullptr, allocationFailed());
                          if (isFreed || !allocationFailed())
                          {
                              EXPECT_EQ(kivCS2MultiBuffer_free(&buffer), KIVCS2STATUS_OK);
                          }
                      }),
                  kCount + 1);
}

// One buffer that grows, a resize and a compaction, each of which may fail, while entry 0 is in use.
TEST(MultiBuffer, GrowthResizeAndCompactionFailAlone)
{
    const size_t allocations = forEachAllocation(
        [](size_t index)
        {
            kiv::test::allowAllocations();
            KIVCS2MultiBuffer buffer{};
            void *held = nullptr;
            ASSERT_OK(kivCS2MultiBuffer_init(&buffer, kCount, KIVCS2MultiBufferFlags_ThreadSafe));
            ASSERT_OK(kivCS2MultiBuffer_allocateBuffer(&buffer, 0, &held));
            kiv::test::failAllocation(index);

            void *data = nullptr;
            EXPECT_EQ(kivCS2MultiBuffer_allocateBuffer(&buffer, 100, &data),
                      index == 0 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(data, index == 0 ? nullptr : buffer.m_buffers[1].m_mem_ptr.m_buffer);
            EXPECT_EQ(buffer.m_usedList.m_count, index == 0 ? 1u : 2u);
            // Kept: the search has moved on, though entry 1 is free.
            void *next = nullptr;
            EXPECT_OK(kivCS2MultiBuffer_allocateBuffer(&buffer, 0, &next));
            EXPECT_EQ(next, buffer.m_buffers[2].m_mem_ptr.m_buffer);
            EXPECT_OK(kivCS2MultiBuffer_releaseBuffer(&buffer, next, nullptr));

            // The array and two blocks.
            const bool isRefused = index >= 1 && index <= 3;
            EXPECT_EQ(kivCS2MultiBuffer_resize(&buffer, kCount + 2),
                      isRefused ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(buffer.m_count, isRefused ? kCount : kCount + 2);
            EXPECT_TRUE(kivCS2LinkList_checkValid(&buffer.m_usedList));
            EXPECT_EQ(buffer.m_buffers[0].m_mem_ptr.m_buffer, held);
            EXPECT_EQ(kivCS2MultiBuffer_resize(&buffer, kCount),
                      index == 4 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            if (data != nullptr)
            {
                EXPECT_OK(kivCS2MultiBuffer_releaseBuffer(&buffer, data, nullptr));
            }
            const KIVCS2Status status = kivCS2MultiBuffer_compact(&buffer);
            EXPECT_EQ(status, index > 4 ? wanted() : KIVCS2STATUS_OK);
            EXPECT_EQ(buffer.m_usedList.m_count, 1u);
            EXPECT_OK(kivCS2MultiBuffer_free(&buffer));
        });
    EXPECT_EQ(allocations, 1u + 3 + 1 + 2);
}

// Kept: after a search without memory, the next one begins one place further on. But if the search began at 0
// or came round to it, the next one begins at 0 again.
TEST(MultiBuffer, ASearchWithoutMemoryMovesOnExceptAtTheFirstEntry)
{
    KIVCS2MultiBuffer buffer{};
    ASSERT_OK(kivCS2MultiBuffer_init(&buffer, kCount, KIVCS2MultiBufferFlags_None));
    void *data = nullptr;
    struct Row
    {
        int32_t last; // index handed out last, -1 for none
        uint32_t next;
    };
    for (const Row &row : {Row{-1, 0}, Row{0, 2}, Row{1, 0}, Row{2, 0}})
    {
        buffer.m_lastIndex = row.last;
        for (int failures = 0; failures < (row.last == 0 ? 1 : 3); ++failures)
        {
            kiv::test::failAllocation(0);
            EXPECT_EQ(kivCS2MultiBuffer_allocateBuffer(&buffer, 100, &data), KIVCS2STATUS_MEMORY_ERR);
            kiv::test::allowAllocations();
        }
        EXPECT_OK(kivCS2MultiBuffer_allocateBuffer(&buffer, 0, &data));
        EXPECT_EQ(data, buffer.m_buffers[row.next].m_mem_ptr.m_buffer) << row.last;
        EXPECT_OK(kivCS2MultiBuffer_releaseBuffer(&buffer, data, nullptr));
    }
    EXPECT_OK(kivCS2MultiBuffer_free(&buffer));
}
} // namespace
