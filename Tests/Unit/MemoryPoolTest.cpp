// Memory pools: callbacks, threads, refusals; Fuzzers/MemoryPoolFuzzer.cpp has a model of the rest.
#include <KIVCoreServices2/KIVCS2MemoryPool.h>

#include "RequiredPointers.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace
{
static_assert(offsetof(KIVCS2MemoryPool, m_storage) == 0 && offsetof(KIVCS2MemoryPool, m_storageEnd) == 8 &&
              offsetof(KIVCS2MemoryPool, m_poolSize) == 16 &&
              offsetof(KIVCS2MemoryPool, m_objectSize) == 20 &&
              offsetof(KIVCS2MemoryPool, m_externalObjects) == 24 &&
              offsetof(KIVCS2MemoryPool, m_allowExternal) == 28 &&
              offsetof(KIVCS2MemoryPool, m_objects) == 32 && offsetof(KIVCS2MemoryPool, m_mutex) == 56 &&
              offsetof(KIVCS2MemoryPool, m_allocFunc) == 56 + sizeof(KIVCS2Mutex) &&
              offsetof(KIVCS2MemoryPool, m_freeFunc) == 64 + sizeof(KIVCS2Mutex));

constexpr uint32_t kSize = 64; // bytes of an object

struct Sample
{
    KIVCS2MemoryPool pool{};

    explicit Sample(uint32_t count, uint32_t allowExternal = 0, KIVCS2MemoryPoolAllocFunc allocFunc = nullptr,
                    KIVCS2MemoryPoolFreeFunc freeFunc = nullptr)
    {
        EXPECT_OK(kivCS2MemoryPool_init(&pool, count, kSize, allowExternal, allocFunc, freeFunc));
        EXPECT_EQ(pool.m_storageEnd - pool.m_storage, kSize * count);
    }
    ~Sample()
    {
        EXPECT_TRUE(kivCS2LinkList_checkValid(&pool.m_objects));
        EXPECT_OK(kivCS2MemoryPool_free(&pool));
        EXPECT_EQ(pool.m_storage, nullptr);
        EXPECT_OK(kivCS2MemoryPool_free(&pool));
    }
    Sample(const Sample &) = delete;
    Sample &operator=(const Sample &) = delete;

    void *take(KIVCS2Status wanted = KIVCS2STATUS_OK)
    {
        void *object = this;
        EXPECT_EQ(kivCS2MemoryPool_allocObject(&pool, &object), wanted);
        return object;
    }
    void giveBack(void *object)
    {
        std::memset(object, 0xee, kSize);
        EXPECT_OK(kivCS2MemoryPool_freeObject(&pool, object));
    }
};

bool isZero(const void *object)
{
    const auto *bytes = static_cast<const uint8_t *>(object);
    return std::all_of(bytes, bytes + kSize, [](uint8_t byte) { return byte == 0; });
}

Sample *g_sample = nullptr; // of the callback below, which has no context argument

TEST(MemoryPool, CallbacksRunWithoutTheLock)
{
    Sample sample{2, 0,
                  [](void *object)
                  {
                      g_sample->pool.m_allocFunc = nullptr;
                      g_sample->giveBack(g_sample->take());
                      *static_cast<uint8_t *>(object) = 42;
                      return KIVCS2STATUS_MEMORY_ERR;
                  },
                  nullptr};
    g_sample = &sample;
    void *object = sample.take(KIVCS2STATUS_MEMORY_ERR); // kept: hands the object out all the same
    EXPECT_EQ(*static_cast<uint8_t *>(object), 42);
    sample.giveBack(object);
}

// Every object is zero when a thread takes it, so no two threads have the same one; in the end all are back.
TEST(MemoryPool, ManyThreadsTakeAndReturn)
{
    Sample sample{4, 1};
    const auto work = [&](int mark)
    {
        for (int round = 0; round < 10000; ++round)
        {
            void *objects[3];
            for (void *&object : objects)
            {
                ASSERT_OK(kivCS2MemoryPool_allocObject(&sample.pool, &object));
                const bool isOfBlock = object >= sample.pool.m_storage && object < sample.pool.m_storageEnd;
                ASSERT_TRUE(!isOfBlock || isZero(object));
                std::memset(object, mark, kSize);
            }
            for (void *object : objects)
            {
                ASSERT_EQ(static_cast<uint8_t *>(object)[kSize - 1], mark);
                ASSERT_OK(kivCS2MemoryPool_freeObject(&sample.pool, object));
            }
        }
    };
    std::vector<std::thread> threads;
    for (const int mark : {1, 2, 3, 4})
        threads.emplace_back(work, mark);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(sample.pool.m_externalObjects, 0u);
    EXPECT_EQ(sample.pool.m_objects.m_count, 4u);
}

// A thread tries a few times and then sleeps: it uses no processor while the holder of the lock does.
TEST(MemoryPool, AThreadThatWaitsForTheLockSleeps)
{
    Sample sample{1};
    ASSERT_OK(kivCS2Mutex_lock(&sample.pool.m_mutex));
    std::atomic<pid_t> id{0};
    std::thread waiting{[&]
                        {
                            id = gettid();
                            sample.giveBack(sample.take());
                        }};
    std::string state; // "id (name) S ...": S sleeps
    for (int look = 0; look < 10000 && !state.starts_with("S"); ++look)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
        std::getline(std::ifstream{"/proc/self/task/" + std::to_string(id) + "/stat"}, state);
        state.erase(0, state.rfind(')') + 2);
    }
    EXPECT_EQ(state.substr(0, 1), "S");
    EXPECT_EQ(sample.pool.m_objects.m_count, 1u);
    EXPECT_OK(kivCS2Mutex_unlock(&sample.pool.m_mutex));
    waiting.join();
}

TEST(MemoryPool, ABlockBeyondTheMachineIsRefused)
{
    // 2^62 bytes: in 32 bits the product would be 0.
    KIVCS2MemoryPool pool{};
    EXPECT_EQ(kivCS2MemoryPool_init(&pool, 0x80000000u, 0x80000000u, 0, nullptr, nullptr),
              KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(pool.m_poolSize, 0u);
    EXPECT_OK(kivCS2MemoryPool_free(&pool));
}

TEST(MemoryPool, MistakesAreRefused)
{
    Sample sample{1, 1};
    KIVCS2MemoryPool other{};
    void *object = nullptr;
    KIV_REQUIRES_EACH(kivCS2MemoryPool_init, "pool, -, -");
    KIV_REQUIRES_EACH(kivCS2MemoryPool_allocObject, "pool, object");
    KIV_REQUIRES_EACH(kivCS2MemoryPool_freeObject, "pool, object");
    KIV_REQUIRES_EACH(kivCS2MemoryPool_free, "pool");
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2MemoryPool_init, "poolSize > 0", &other, 0, kSize, 0, nullptr, nullptr),
        KIV_REQUIRES(kivCS2MemoryPool_init, "objectSize > 0", &other, 1, 0, 0, nullptr, nullptr),
        {"kivCS2Mutex_lock", "mutex->m_valid", KIVCS2STATUS_PARAM_ERR,
         KIV_CALL(kivCS2MemoryPool_allocObject(&other, &object))},
    });
    EXPECT_EQ(object, nullptr);
}

TEST(MemoryPool, OnlyAssertionsReportObjectsThatAreOutAtTheFree)
{
    Sample sample{1, 1};
    void *inside = sample.take();
    kiv::test::expectRefused(KIV_REFUSES(KIVCS2STATUS_OK, kivCS2MemoryPool_free,
                                         "pool->m_objects.m_count == pool->m_poolSize", &sample.pool));
    if (kiv::test::hasAssertions())
        sample.giveBack(inside);
    KIVCS2MemoryPool other{};
    void *objects[2]{};
    ASSERT_OK(kivCS2MemoryPool_init(&other, 1, kSize, 1, nullptr, nullptr));
    for (void *&object : objects)
        ASSERT_OK(kivCS2MemoryPool_allocObject(&other, &object));
    ASSERT_OK(kivCS2MemoryPool_freeObject(&other, objects[0]));
    kiv::test::expectRefused(
        KIV_REFUSES(KIVCS2STATUS_OK, kivCS2MemoryPool_free, "pool->m_externalObjects == 0", &other));
    if (!kiv::test::hasAssertions())
        return std::free(objects[1]); // outlives its pool
    EXPECT_OK(kivCS2MemoryPool_freeObject(&other, objects[1]));
    EXPECT_OK(kivCS2MemoryPool_free(&other));
}
} // namespace
