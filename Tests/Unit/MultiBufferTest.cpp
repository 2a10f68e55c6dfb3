// Multi-buffers: refusals, lock, threads. Fuzzers/MultiBufferFuzzer.cpp has a model of the rest.
#include <KIVCoreServices2/KIVCS2MultiBuffer.h>

#include "RequiredPointers.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <latch>
#include <limits>
#include <thread>
#include <vector>

namespace
{
static_assert(offsetof(KIVCS2BufferEntry, m_link) == 0 && offsetof(KIVCS2BufferEntry, m_mem_ptr) == 24 &&
              sizeof(KIVCS2BufferEntry) == 40);
static_assert(offsetof(KIVCS2MultiBuffer, m_usedList) == 0 && offsetof(KIVCS2MultiBuffer, m_mutex) == 24 &&
              offsetof(KIVCS2MultiBuffer, m_lastIndex) == 24 + sizeof(KIVCS2Mutex) &&
              offsetof(KIVCS2MultiBuffer, m_count) == 28 + sizeof(KIVCS2Mutex) &&
              offsetof(KIVCS2MultiBuffer, m_flags) == 32 + sizeof(KIVCS2Mutex) &&
              offsetof(KIVCS2MultiBuffer, m_buffers) == 40 + sizeof(KIVCS2Mutex));

constexpr uint32_t kNoBuffer = KIVCS2STATUS_NO_BUFFER_ERR;

// A multi-buffer whose operations return indices.
struct Sample
{
    KIVCS2MultiBuffer record{};

    explicit Sample(uint32_t count, KIVCS2MultiBufferFlags flags = KIVCS2MultiBufferFlags_ThreadSafe)
    {
        EXPECT_EQ(kivCS2MultiBuffer_init(&record, count, flags), KIVCS2STATUS_OK);
        EXPECT_EQ(record.m_mutex.m_valid, flags & 1u);
    }
    ~Sample()
    {
        EXPECT_EQ(kivCS2MultiBuffer_free(&record), KIVCS2STATUS_OK);
        EXPECT_EQ(record.m_buffers, nullptr);
        EXPECT_EQ(kivCS2MultiBuffer_free(&record), KIVCS2STATUS_OK);
    }
    Sample(const Sample &) = delete;
    Sample &operator=(const Sample &) = delete;

    void *data(uint32_t index) const
    {
        return record.m_buffers[index].m_mem_ptr.m_buffer;
    }
    // The index of the first free entry of a range, or the status.
    uint32_t allocateBetween(int32_t first, int32_t last)
    {
        void *buffer = nullptr;
        const KIVCS2Status status =
            kivCS2MultiBuffer_allocateAvailableBuffer(&record, 16, first, last, &buffer);
        return KIVCS2_FAILED(status) ? status : indexOf(buffer);
    }
    uint32_t indexOf(const void *buffer)
    {
        int32_t index = -1;
        KIVCS2BufferEntry *entry = nullptr;
        EXPECT_EQ(kivCS2MultiBuffer_findEntryByMemPtr(&record, buffer, &index, &entry), KIVCS2STATUS_OK);
        EXPECT_EQ(entry, &record.m_buffers[index]);
        return static_cast<uint32_t>(index);
    }
    uint32_t used()
    {
        uint32_t count = 99;
        EXPECT_EQ(kivCS2MultiBuffer_getUsedCount(&record, &count), KIVCS2STATUS_OK);
        return count;
    }
};

TEST(MultiBuffer, UnknownPointersChangeNothing)
{
    Sample sample{2};
    EXPECT_EQ(sample.indexOf(sample.data(1)), 1u); // a free entry is found too
    EXPECT_EQ(sample.allocateBetween(0, 1), 0u);
    int32_t index = 77;
    KIVCS2BufferEntry *entry = nullptr;
    const void *inside = static_cast<char *>(sample.data(0)) + 1;
    EXPECT_EQ(kivCS2MultiBuffer_releaseBuffer(&sample.record, inside, &index), KIVCS2STATUS_NO_ENTRY_ERR);
    EXPECT_EQ(kivCS2MultiBuffer_findEntryByMemPtr(&sample.record, &index, &index, &entry),
              KIVCS2STATUS_NO_ENTRY_ERR);
    EXPECT_EQ(index, 77);
    EXPECT_EQ(entry, nullptr);
    EXPECT_EQ(sample.used(), 1u);
    EXPECT_EQ(kivCS2MultiBuffer_releaseBuffer(&sample.record, sample.data(0), nullptr), KIVCS2STATUS_OK);
    EXPECT_EQ(sample.used(), 0u);
    kiv::test::expectRefused(KIV_REFUSES(KIVCS2STATUS_OK, kivCS2MultiBuffer_releaseBuffer,
                                         "((buf)->m_link.m_list != ((void*)0))", &sample.record,
                                         sample.data(0), nullptr));
    EXPECT_EQ(sample.used(), 0u);
}

TEST(MultiBuffer, OnlyOneRemovesTheHeadAndAHugeResizeIsRefused)
{
    Sample sample{2};
    EXPECT_EQ(sample.allocateBetween(0, 1), 0u);
    KIVCS2BufferEntry *entry = nullptr;
    for (const int32_t remove : {0, 2, -1})
        EXPECT_EQ(kivCS2MultiBuffer_getHeadEntry(&sample.record, &entry, remove), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2MultiBuffer_resize(&sample.record, 0xffffffffu), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(sample.used(), 1u);
}

TEST(MultiBuffer, RangesStayInTheTable)
{
    constexpr int32_t kLeast = std::numeric_limits<int32_t>::min();
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
    const char *kOrder = "_s_idx <= _e_idx";
    const char *kStart = "(_s_idx >=0) && (_s_idx < _buffer->m_count)";
    const char *kEnd = "(_e_idx >=0) && (_e_idx < _buffer->m_count)";
    for (const auto &[first, last, text, result] : {
             // the result is that without assertions
             std::tuple{2, 1, kOrder, kNoBuffer},
             {kMost, kLeast, kOrder, kNoBuffer},
             {-1, 1, kStart, 0u},
             {kLeast, -1, kStart, kNoBuffer},
             {4, 4, kStart, kNoBuffer},
             {kMost, kMost, kStart, kNoBuffer},
             {3, kMost, kEnd, 3u},
         })
    {
        Sample sample{4};
        const auto call = [&sample, from = first, to = last] { return sample.allocateBetween(from, to); };
        kiv::test::expectRefused({"kivCS2MultiBuffer_allocateAvailableBuffer", text, result, call});
    }
}

TEST(MultiBuffer, TheLockIsHeldAroundSeveralCallsAndWaitedFor)
{
    Sample sample{2};
    EXPECT_EQ(kivCS2MultiBuffer_lock(&sample.record), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2MultiBuffer_lock(&sample.record), KIVCS2STATUS_OK);
    EXPECT_EQ(sample.allocateBetween(0, 1), 0u);
    EXPECT_EQ(kivCS2MultiBuffer_waitUnlock(&sample.record), KIVCS2STATUS_OK); // its own hold
    EXPECT_EQ(kivCS2MultiBuffer_unlock(&sample.record), KIVCS2STATUS_OK);
    std::atomic<bool> letGo{false};
    std::latch tried{1};
    std::thread waiting{[&]
                        {
                            EXPECT_EQ(kivCS2Mutex_tryLock(&sample.record.m_mutex),
                                      KIVCS2STATUS_MUTEX_BUSY_ERR);
                            tried.count_down();
                            EXPECT_EQ(kivCS2MultiBuffer_waitUnlock(&sample.record), KIVCS2STATUS_OK);
                            EXPECT_TRUE(letGo.load());
                        }};
    tried.wait();
    letGo.store(true);
    EXPECT_EQ(kivCS2MultiBuffer_unlock(&sample.record), KIVCS2STATUS_OK);
    waiting.join();

    Sample plain{1, 2}; // an unknown bit is ignored
    for (const auto call : {kivCS2MultiBuffer_lock, kivCS2MultiBuffer_unlock, kivCS2MultiBuffer_waitUnlock})
        EXPECT_EQ(call(&plain.record), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2MultiBuffer_lock(nullptr), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2MultiBuffer_unlock(nullptr), KIVCS2STATUS_PARAM_ERR);
}

TEST(MultiBuffer, AFreeThatFailsKeepsTheLock)
{
    Sample sample{0};
    sample.record.m_count = 1; // of an array that is not there
    KIVCS2BufferEntry *const entries = std::exchange(sample.record.m_buffers, nullptr);
    kiv::test::expectRefused({"kivCS2BufferEntry_free", "(_entry) != NULL", KIVCS2STATUS_PARAM_ERR,
                              KIV_CALL(kivCS2MultiBuffer_free(&sample.record))});
    if (!kiv::test::hasAssertions())
    {
        std::thread{[&] {
            EXPECT_EQ(kivCS2Mutex_tryLock(&sample.record.m_mutex), KIVCS2STATUS_MUTEX_BUSY_ERR);
        }}.join();
        EXPECT_EQ(kivCS2MultiBuffer_unlock(&sample.record), KIVCS2STATUS_OK);
    }
    sample.record.m_count = 0;
    sample.record.m_buffers = entries;
}

// Each buffer has one user at a time; the sanitizers find the other faults.
TEST(MultiBuffer, ManyThreadsShareFewBuffers)
{
    Sample sample{3};
    std::atomic<uint32_t> served{0};
    const auto work = [&](int mark)
    {
        for (uint32_t round = 0; round < 10000; ++round)
        {
            void *buffer = nullptr;
            const uint32_t size = 16 + round % 64;
            const KIVCS2Status status = kivCS2MultiBuffer_allocateBuffer(&sample.record, size, &buffer);
            if (status == KIVCS2STATUS_NO_BUFFER_ERR)
                continue;
            ASSERT_EQ(status, KIVCS2STATUS_OK);
            std::memset(buffer, mark, size);
            for (uint32_t at = 0; at < size; ++at)
                ASSERT_EQ(static_cast<uint8_t *>(buffer)[at], mark);
            ASSERT_EQ(kivCS2MultiBuffer_releaseBuffer(&sample.record, buffer, nullptr), KIVCS2STATUS_OK);
            ++served;
        }
    };
    std::vector<std::thread> threads;
    for (const int mark : {1, 2, 3, 4})
        threads.emplace_back(work, mark);
    for (uint32_t round = 0; round < 500; ++round)
    {
        const KIVCS2Status status = kivCS2MultiBuffer_resize(&sample.record, 1 + round % 8);
        EXPECT_TRUE(status == KIVCS2STATUS_OK || status == KIVCS2STATUS_STATE_ERR);
        EXPECT_EQ(kivCS2MultiBuffer_compact(&sample.record), KIVCS2STATUS_OK);
        EXPECT_LE(sample.used(), 8u);
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GT(served.load(), 0u);
    EXPECT_EQ(sample.used(), 0u);
}

TEST(MultiBuffer, MissingArgumentsAreRefused)
{
    KIV_REQUIRES_NOT_NULL(kivCS2BufferEntry_init, "_entry");
    KIV_REQUIRES_NOT_NULL(kivCS2BufferEntry_free, "_entry");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_init, "_buffer");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_free, "_buffer");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_waitUnlock, "_buffer");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_allocateBuffer, "_buffer, _mem_ptr");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_allocateAvailableBuffer, "_buffer, _mem_ptr");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_releaseBuffer, "_buffer, _mem_ptr, -");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_getHeadEntry, "_buffer, _entry");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_findEntryByMemPtr, "_buffer, _mem_ptr, -, _entry");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_getUsedCount, "_buffer, _usedCount");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_getUsage, "_buffer, _usage");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_compact, "_buffer");
    KIV_REQUIRES_NOT_NULL(kivCS2MultiBuffer_resize, "_buffer");
}
} // namespace
