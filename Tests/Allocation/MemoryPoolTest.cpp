// Memory pools when memory runs out: no block, or no object of the heap.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2MemoryPool.h>

#include <gtest/gtest.h>

namespace
{
TEST(MemoryPool, WhatCannotBeMadeIsNotCounted)
{
    const size_t allocations = kiv::test::forEachAllocation(
        [](size_t index)
        {
            KIVCS2MemoryPool pool{};
            void *objects[2]{};
            EXPECT_EQ(kivCS2MemoryPool_init(&pool, 1, 32, 1, nullptr, nullptr),
                      index == 0 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            if (index == 0)
            {
                EXPECT_EQ(kivCS2MemoryPool_free(&pool), KIVCS2STATUS_OK); // harmless, and not needed
                return;
            }
            EXPECT_EQ(kivCS2MemoryPool_allocObject(&pool, &objects[0]), KIVCS2STATUS_OK);
            EXPECT_EQ(kivCS2MemoryPool_allocObject(&pool, &objects[1]),
                      index == 1 ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK);
            EXPECT_EQ(objects[1] == nullptr, index == 1);
            EXPECT_EQ(pool.m_externalObjects, index == 1 ? 0u : 1u);
            for (void *object : objects)
                if (object != nullptr)
                {
                    EXPECT_EQ(kivCS2MemoryPool_freeObject(&pool, object), KIVCS2STATUS_OK);
                }
            EXPECT_EQ(kivCS2MemoryPool_free(&pool), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(allocations, 2u);
}
} // namespace
