// Records with few allocations: each fails once in turn, and nothing is lost or leaked.
#include "KIVCS2RingBuffer.h"
#include "KIVCS2SMC.h"

#include "FailingAllocator.h"
#include "TemporaryFolder.h"

#include <KIVCoreServices2/KIVCS2LinkTree.h>
#include <KIVCoreServices2/KIVCS2MemoryPool.h>
#include <KIVCoreServices2/KIVCS2PCMAudioConverter.h>
#include <KIVCoreServices2/KIVCoreServices2.h>
#include <KIVPlatform/KIVPAppleSMC.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;

// Expects the status of the step that makes allocation number `step`.
void expectAt(size_t step, size_t index, KIVCS2Status status)
{
    EXPECT_EQ(status, index == step ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK) << step;
}

void treeNodes(size_t index)
{
    KIVCS2LinkTree tree{};
    KIVCS2LinkTreeNode *nodes[2]{};
    for (size_t made = 0; made < 2; ++made)
    {
        expectAt(made, index, kivCS2LinkTree_attachNewNode(&tree, nodes[0], 100, nullptr, &nodes[made]));
        EXPECT_EQ(nodes[made] == nullptr, index == made);
    }
    KIVCS2LinkTreeNode *loose = nodes[0];
    expectAt(2, index, kivCS2LinkTree_newNode(16, nullptr, &loose));
    EXPECT_EQ(loose == nullptr, index == 2);
    if (loose)
    {
        EXPECT_EQ(kivCS2LinkTree_freeNode(loose, 1), KIVCS2STATUS_OK);
    }
    uint32_t count = 0;
    EXPECT_EQ(_kivCS2LinkTree_countNodes(&tree, nullptr, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, index < 2 ? 1u : 2u);
    EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
}

void memoryBlock(size_t index)
{
    KIVCS2MemPtr mem;
    expectAt(0, index, kivCS2MemPtr_init(&mem, 8));
    if (index == 0)
    {
        EXPECT_TRUE(mem.m_ptr == nullptr && mem.m_allocated == 0);
        EXPECT_EQ(kivCS2MemPtr_init(&mem, 8), KIVCS2STATUS_OK); // the call may be repeated
    }
    std::memcpy(mem.m_ptr, "contents", 8);
    expectAt(1, index, kivCS2MemPtr_realloc(&mem, 4096));
    EXPECT_EQ(mem.m_allocated, index == 1 ? 8u : 4096u);
    EXPECT_EQ(std::memcmp(mem.m_ptr, "contents", 8), 0);
    const uint32_t before = mem.m_allocated;
    expectAt(2, index, kivCS2MemPtr_forceRealloc(&mem, 4));
    EXPECT_EQ(mem.m_allocated, index == 2 ? before : 4u);
    EXPECT_EQ(std::memcmp(mem.m_ptr, "cont", 4), 0);
    EXPECT_EQ(kivCS2MemPtr_free(&mem), KIVCS2STATUS_OK);
}

void zeroedBlock(size_t index)
{
    void *block = kivCS2ZeroMalloc(16);
    EXPECT_EQ(block == nullptr, index == 0);
    std::free(block);
}

// Converting takes no memory.
void converter(size_t index)
{
    const AudioStreamBasicDescription input = {48000,
                                               kAudioFormatLinearPCM,
                                               kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
                                               4,
                                               1,
                                               4,
                                               2,
                                               16,
                                               0};
    KIVCS2PCMAudioConverter converter{};
    EXPECT_EQ(kivCS2PCMAudioConverter_init(&converter, &input, true, false, 24),
              index == 0 ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK);
    EXPECT_EQ(converter.m_converter == nullptr, index == 0);
    EXPECT_EQ(converter.m_inputFormat.mChannelsPerFrame, index == 0 ? 0u : 2u);
    EXPECT_EQ(kivCS2PCMAudioConverter_free(&converter), KIVCS2STATUS_OK);
}

void memoryPool(size_t index)
{
    KIVCS2MemoryPool pool{};
    expectAt(0, index, kivCS2MemoryPool_init(&pool, 1, 32, 1, nullptr, nullptr));
    void *objects[2]{};
    if (index != 0)
    {
        EXPECT_EQ(kivCS2MemoryPool_allocObject(&pool, &objects[0]), KIVCS2STATUS_OK);
        expectAt(1, index, kivCS2MemoryPool_allocObject(&pool, &objects[1]));
        EXPECT_EQ(objects[1] == nullptr, index == 1);
        EXPECT_EQ(pool.m_externalObjects, index == 1 ? 0u : 1u);
    }
    for (void *object : objects)
        if (object != nullptr)
        {
            EXPECT_EQ(kivCS2MemoryPool_freeObject(&pool, object), KIVCS2STATUS_OK);
        }
    EXPECT_EQ(kivCS2MemoryPool_free(&pool), KIVCS2STATUS_OK); // allowed without a pool
}

// Without storage the record is unchanged.
void ringBuffer(size_t index)
{
    KIVCS2RingBuffer rb;
    std::memset(&rb, 0xA5, sizeof rb);
    const KIVCS2RingBuffer before = rb;
    expectAt(0, index, kivCS2RingBuffer_init(&rb, 1u << 16));
    if (index == 0)
    {
        EXPECT_EQ(std::memcmp(&rb, &before, sizeof rb), 0);
        return;
    }
    EXPECT_EQ(kivCS2RingBuffer_store(&rb, "abc", 3), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2RingBuffer_dispose(&rb), KIVCS2STATUS_OK);
}

// The system allocates all but the list. If it fails, the device is not found.
void controller(size_t)
{
    KIVCS2SMC smc{};
    const KIVCS2Status status = kivCS2SMC_init(&smc);
    EXPECT_EQ(KIVCS2_FAILED(status), allocationFailed());
    EXPECT_TRUE(!allocationFailed() || status == KIVCS2STATUS_NOT_FOUND_ERR ||
                (status == KIVCS2STATUS_MEMORY_ERR && smc.m_connection != 0));
    EXPECT_EQ(kivCS2SMC_free(&smc), KIVCS2STATUS_OK);
    EXPECT_EQ(KIVPCountIOObjects(), 0u);
}

TEST(RecordsAllocation, EachFailureLeavesTheRecordUsable)
{
    const kiv::test::TemporaryFolder folder;
    folder.write("key_count", "1\n");
    folder.write("key_at_index", "0\n");
    folder.write("key_at_index_name", "FNum\n");
    const std::string path = folder.path("");
    KIVPSetSMCFolder(path.c_str(), nullptr);
    const struct
    {
        const char *name;
        void (*body)(size_t index);
        size_t allocations;
    } rows[] = {
        {"tree nodes", treeNodes, 3},   {"memory block", memoryBlock, 3}, {"zeroed block", zeroedBlock, 1},
        {"converter", converter, 1},    {"memory pool", memoryPool, 2},   {"ring buffer", ringBuffer, 1},
        {"controller", controller, 12},
    };
    testing::internal::CaptureStderr(); // drops the messages of the failing controller
    for (const auto &row : rows)
    {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(forEachAllocation(row.body), row.allocations);
    }
    (void)testing::internal::GetCapturedStderr();
    KIVPSetSMCFolder(nullptr, nullptr);
}
} // namespace
