// Modules with few allocations, each failed once in turn: the documented status, nothing lost or half made.
#include "KIVCS2LinkTree.h"
#include "KIVCS2MemoryPool.h"
#include "KIVCS2PCMAudioConverter.h"
#include "KIVCS2PixelBuffer.h"
#include "KIVCS2RingBuffer.h"
#include "KIVCS2SMC.h"

#include "FailingAllocator.h"
#include "Picture.h"
#include "TemporaryFolder.h"

#include <KIVPlatform/KIVPAppleSMC.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;
using kiv::test::Picture;

KIVCS2Status failsIf(bool failed)
{
    return failed ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_OK;
}

TEST(RingBufferAllocation, WithoutStorageTheRecordIsUnchanged)
{
    const auto init = [](size_t)
    {
        KIVCS2RingBuffer rb;
        std::memset(&rb, 0xA5, sizeof rb);
        const KIVCS2RingBuffer before = rb;
        const KIVCS2Status status = kivCS2RingBuffer_init(&rb, 1u << 16);
        EXPECT_EQ(status, failsIf(allocationFailed()));
        EXPECT_EQ(std::memcmp(&rb, &before, sizeof rb) == 0, allocationFailed());
        if (!allocationFailed())
            (void)kivCS2RingBuffer_dispose(&rb);
    };
    EXPECT_EQ(forEachAllocation(init), 1u);
}

TEST(LinkTreeAllocation, ANodeThatCannotBeMadeLeavesTheTree)
{
    const auto grow = [](size_t index)
    {
        KIVCS2LinkTree tree{};
        KIVCS2LinkTreeNode *nodes[2]{};
        for (size_t made = 0; made < 2; ++made)
        {
            EXPECT_EQ(kivCS2LinkTree_attachNewNode(&tree, nodes[0], 100, nullptr, &nodes[made]),
                      failsIf(index == made));
            EXPECT_EQ(nodes[made] == nullptr, index == made);
        }
        KIVCS2LinkTreeNode *loose = nodes[0];
        EXPECT_EQ(kivCS2LinkTree_newNode(16, nullptr, &loose), failsIf(index == 2));
        EXPECT_EQ(loose == nullptr, index == 2);
        std::free(loose);
        uint32_t count = 0;
        EXPECT_EQ(_kivCS2LinkTree_countNodes(&tree, nullptr, &count), KIVCS2STATUS_OK);
        EXPECT_EQ(count, index < 2 ? 1u : 2u);
        EXPECT_EQ(_kivCS2LinkTree_free(&tree), KIVCS2STATUS_OK);
    };
    EXPECT_EQ(forEachAllocation(grow), 3u);
}

TEST(MemoryPoolAllocation, WhatCannotBeMadeIsNotCounted)
{
    const auto take = [](size_t index)
    {
        KIVCS2MemoryPool pool{};
        EXPECT_EQ(kivCS2MemoryPool_init(&pool, 1, 32, 1, nullptr, nullptr), failsIf(index == 0));
        void *objects[2]{};
        for (size_t object = 0; index > 0 && object < 2; ++object)
        {
            const bool fails = object == 1 && index == 1; // of the heap
            EXPECT_EQ(kivCS2MemoryPool_allocObject(&pool, &objects[object]), failsIf(fails));
            EXPECT_EQ(objects[object] == nullptr, fails);
        }
        EXPECT_EQ(pool.m_externalObjects, index < 2 ? 0u : 1u);
        for (void *object : objects)
            if (object != nullptr)
                (void)kivCS2MemoryPool_freeObject(&pool, object);
        EXPECT_EQ(kivCS2MemoryPool_free(&pool), KIVCS2STATUS_OK);
    };
    EXPECT_EQ(forEachAllocation(take), 2u);
}

TEST(PCMAudioConverterAllocation, AConverterIsWholeOrNone)
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
    const auto init = [&input](size_t index)
    {
        KIVCS2PCMAudioConverter converter{};
        EXPECT_EQ(kivCS2PCMAudioConverter_init(&converter, &input, true, false, 24),
                  index == 0 ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK);
        EXPECT_EQ(converter.m_converter == nullptr, index == 0);
        EXPECT_EQ(converter.m_inputFormat.mChannelsPerFrame, index == 0 ? 0u : 2u);
        EXPECT_EQ(kivCS2PCMAudioConverter_free(&converter), KIVCS2STATUS_OK);
    };
    EXPECT_EQ(forEachAllocation(init), 1u); // converting takes no memory
}

// The status, no result, and the locks that each operation leaves.
TEST(PixelBufferAllocation, WithoutMemoryThereIsNoBuffer)
{
    const kiv::test::TemporaryFolder folder;
    const std::string path = folder.path("picture");
    const Picture video{16, 16, kCVPixelFormatType_422YpCbCr8};
    const auto check = [&](const std::function<KIVCS2Status(CVPixelBufferRef *)> &call, size_t locksLeft)
    {
        const auto attempt = [&](size_t index)
        {
            Picture made;
            CVPixelBufferRef *out = made.out();
            EXPECT_EQ(call(out), failsIf(index == 0));
            EXPECT_EQ(video.locks(), index == 0 ? locksLeft : 0);
            if (index > 0)
                return;
            EXPECT_EQ(*out, nullptr);
            EXPECT_FALSE(std::filesystem::exists(path));
            for (size_t lock = 0; lock < locksLeft; ++lock)
                video.unlock();
        };
        EXPECT_GE(forEachAllocation(attempt), 1u);
    };
    check([&](auto out)
          { return kivCS2PixelBuffer_convert(video.get(), out, KIVCS2PixelBuffer_Convert2vuyToRGBA); },
          0);
    check([&](auto out) { return kivCS2PixelBuffer_scale(video.get(), out, 8, 8); }, 1);
    check([&](auto) { return kivCS2PixelBuffer_save(video.get(), path.c_str(), false); }, 0);
}

TEST(SMCAllocation, OpeningTheDriverFailsWhole)
{
    const kiv::test::TemporaryFolder folder;
    folder.write("key_count", "1\n");
    folder.write("key_at_index", "0\n");
    folder.write("key_at_index_name", "FNum\n");
    const std::string path = folder.path("");
    KIVPSetSMCFolder(path.c_str(), nullptr);
    testing::internal::CaptureStderr();
    // All but the list are allocated by the system, whose answer is then a device that is not found.
    const auto open = [](size_t)
    {
        KIVCS2SMC smc{};
        const KIVCS2Status status = kivCS2SMC_init(&smc);
        EXPECT_EQ(KIVCS2_FAILED(status), allocationFailed());
        EXPECT_TRUE(!allocationFailed() || status == KIVCS2STATUS_NOT_FOUND_ERR ||
                    (status == KIVCS2STATUS_MEMORY_ERR && smc.m_connection != 0));
        EXPECT_EQ(kivCS2SMC_free(&smc), KIVCS2STATUS_OK);
        EXPECT_EQ(KIVPCountIOObjects(), 0u);
    };
    EXPECT_EQ(forEachAllocation(open), 12u);
    (void)testing::internal::GetCapturedStderr(); // the messages of each failure
    KIVPSetSMCFolder(nullptr, nullptr);
}
} // namespace
