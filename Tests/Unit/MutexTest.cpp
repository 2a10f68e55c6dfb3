// Mutexes: kinds and statuses. SharedMemoryTest shares one between two processes.
#include <KIVCoreServices2/KIVCS2Mutex.h>

#include "RequiredPointers.h"

#include <cstddef>
#include <cstring>
#include <thread>

namespace
{
static_assert(offsetof(KIVCS2Mutex, m_mutex) == 0 &&
              offsetof(KIVCS2Mutex, m_valid) == sizeof(pthread_mutex_t));

struct OwnMutex
{
    explicit OwnMutex(KIVCS2MutexOptions options)
    {
        std::memset(&record, 0xAB, sizeof record); // contents that must not matter
        EXPECT_EQ(kivCS2Mutex_init(&record, options), KIVCS2STATUS_OK);
    }
    ~OwnMutex()
    {
        EXPECT_EQ(kivCS2Mutex_free(&record), KIVCS2STATUS_OK);
    }
    KIVCS2Mutex record;
};

KIVCS2Status tryFromAnotherThread(KIVCS2Mutex &mutex)
{
    KIVCS2Status status = KIVCS2STATUS_OK;
    std::thread{[&]
                {
                    status = kivCS2Mutex_tryLock(&mutex);
                    if (KIVCS2_SUCCEEDED(status))
                    {
                        EXPECT_EQ(kivCS2Mutex_unlock(&mutex), KIVCS2STATUS_OK);
                    }
                }}
        .join();
    return status;
}

TEST(Mutex, ExcludesOtherThreads)
{
    OwnMutex mutex{KIVCS2MutexOptions_None};
    EXPECT_EQ(mutex.record.m_valid, 1u);
    int counter = 0;
    const auto count = [&]
    {
        for (int time = 0; time < 2000; ++time)
        {
            ASSERT_EQ(kivCS2Mutex_lock(&mutex.record), KIVCS2STATUS_OK);
            ++counter;
            ASSERT_EQ(kivCS2Mutex_unlock(&mutex.record), KIVCS2STATUS_OK);
        }
    };
    std::thread other{count};
    count();
    other.join();
    EXPECT_EQ(counter, 4000);
}

TEST(Mutex, TryLockIsBusyForItsHolderToo)
{
    OwnMutex mutex{~uint32_t{3}}; // bits without a name are ignored: a normal mutex
    EXPECT_EQ(kivCS2Mutex_tryLock(&mutex.record), KIVCS2STATUS_OK);
    EXPECT_EQ(tryFromAnotherThread(mutex.record), KIVCS2STATUS_MUTEX_BUSY_ERR);
    EXPECT_EQ(kivCS2Mutex_tryLock(&mutex.record), KIVCS2STATUS_MUTEX_BUSY_ERR);
    EXPECT_EQ(kivCS2Mutex_unlock(&mutex.record), KIVCS2STATUS_OK);
    EXPECT_EQ(tryFromAnotherThread(mutex.record), KIVCS2STATUS_OK);
}

TEST(Mutex, RecursiveNeedsAsManyUnlocks)
{
    OwnMutex mutex{KIVCS2MutexOptions_Recursive};
    EXPECT_EQ(kivCS2Mutex_lock(&mutex.record), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Mutex_tryLock(&mutex.record), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Mutex_unlock(&mutex.record), KIVCS2STATUS_OK);
    EXPECT_EQ(tryFromAnotherThread(mutex.record), KIVCS2STATUS_MUTEX_BUSY_ERR);
    EXPECT_EQ(kivCS2Mutex_unlock(&mutex.record), KIVCS2STATUS_OK);
    EXPECT_EQ(tryFromAnotherThread(mutex.record), KIVCS2STATUS_OK);
}

TEST(Mutex, UnlockingAMutexThatIsNotHeldIsReported)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer ends a process that does this";
#endif
    OwnMutex mutex{KIVCS2MutexOptions_Recursive};
    EXPECT_EQ(kivCS2Mutex_unlock(&mutex.record), KIVCS2STATUS_MUTEX_ERR);
}

TEST(Mutex, FreeTwiceIsHarmlessAndAFreedMutexIsRefused)
{
    KIVCS2Mutex mutex{};
    ASSERT_EQ(kivCS2Mutex_init(&mutex, 0), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Mutex_free(&mutex), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Mutex_free(&mutex), KIVCS2STATUS_OK);
    EXPECT_EQ(mutex.m_valid, 0u);

    KIV_REQUIRES_EACH(kivCS2Mutex_init, "mutex");
    KIV_REQUIRES_EACH(kivCS2Mutex_free, "mutex");
    KIV_REQUIRES_EACH(kivCS2Mutex_lock, "mutex");
    KIV_REQUIRES_EACH(kivCS2Mutex_tryLock, "mutex");
    KIV_REQUIRES_EACH(kivCS2Mutex_unlock, "mutex");
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2Mutex_lock, "mutex->m_valid", &mutex),
        KIV_REQUIRES(kivCS2Mutex_tryLock, "mutex->m_valid", &mutex),
        KIV_REQUIRES(kivCS2Mutex_unlock, "mutex->m_valid", &mutex),
    });
}
} // namespace
