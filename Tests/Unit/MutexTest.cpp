// Mutexes: kinds, statuses, sharing between processes.
#include <KIVCoreServices2/KIVCS2Mutex.h>

#include "ArgumentCheck.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{
static_assert(offsetof(KIVCS2Mutex, m_mutex) == 0);
static_assert(offsetof(KIVCS2Mutex, m_valid) == sizeof(pthread_mutex_t));

struct OwnMutex
{
    explicit OwnMutex(KIVCS2MutexOptions options)
    {
        std::memset(&record, 0xAB, sizeof record); // whatever the record held
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

TEST(Mutex, TryLockSaysBusyAlsoToItsHolder)
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

TEST(Mutex, UnlockingWhatIsNotHeldIsReported)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer ends a process that does this";
#endif
    OwnMutex mutex{KIVCS2MutexOptions_Recursive};
    EXPECT_EQ(kivCS2Mutex_unlock(&mutex.record), KIVCS2STATUS_MUTEX_ERR);
}

TEST(Mutex, SharedByProcesses)
{
    void *memory =
        mmap(nullptr, sizeof(KIVCS2Mutex), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto *mutex = new (memory) OwnMutex{KIVCS2MutexOptions_ProcessShared | KIVCS2MutexOptions_Recursive};
    ASSERT_EQ(kivCS2Mutex_lock(&mutex->record), KIVCS2STATUS_OK);
    for (const int expected : {1, 0}) // busy while the parent holds it, free afterwards
    {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0)
        {
            const KIVCS2Status status = kivCS2Mutex_tryLock(&mutex->record);
            if (KIVCS2_SUCCEEDED(status))
                (void)kivCS2Mutex_unlock(&mutex->record);
            _exit(status == KIVCS2STATUS_MUTEX_BUSY_ERR ? 1 : status == KIVCS2STATUS_OK ? 0 : 2);
        }
        int ended = 0;
        ASSERT_EQ(waitpid(child, &ended, 0), child);
        EXPECT_TRUE(WIFEXITED(ended));
        EXPECT_EQ(WEXITSTATUS(ended), expected);
        if (expected == 1)
        {
            EXPECT_EQ(kivCS2Mutex_unlock(&mutex->record), KIVCS2STATUS_OK);
        }
    }
    mutex->~OwnMutex();
    munmap(memory, sizeof(KIVCS2Mutex));
}

TEST(Mutex, FreeTwiceIsHarmlessAndAFreedMutexIsRefused)
{
    KIVCS2Mutex mutex{};
    ASSERT_EQ(kivCS2Mutex_init(&mutex, 0), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Mutex_free(&mutex), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Mutex_free(&mutex), KIVCS2STATUS_OK);
    EXPECT_EQ(mutex.m_valid, 0u);

    const kiv::test::ArgumentCheck checks[] = {
        {"kivCS2Mutex_init", "mutex", KIVCS2STATUS_PARAM_ERR, [] { return kivCS2Mutex_init(nullptr, 0); }},
        {"kivCS2Mutex_free", "mutex", KIVCS2STATUS_PARAM_ERR, [] { return kivCS2Mutex_free(nullptr); }},
        {"kivCS2Mutex_lock", "mutex", KIVCS2STATUS_PARAM_ERR, [] { return kivCS2Mutex_lock(nullptr); }},
        {"kivCS2Mutex_tryLock", "mutex", KIVCS2STATUS_PARAM_ERR, [] { return kivCS2Mutex_tryLock(nullptr); }},
        {"kivCS2Mutex_unlock", "mutex", KIVCS2STATUS_PARAM_ERR, [] { return kivCS2Mutex_unlock(nullptr); }},
        {"kivCS2Mutex_lock", "mutex->m_valid", KIVCS2STATUS_PARAM_ERR,
         [&] { return kivCS2Mutex_lock(&mutex); }},
        {"kivCS2Mutex_tryLock", "mutex->m_valid", KIVCS2STATUS_PARAM_ERR,
         [&] { return kivCS2Mutex_tryLock(&mutex); }},
        {"kivCS2Mutex_unlock", "mutex->m_valid", KIVCS2STATUS_PARAM_ERR,
         [&] { return kivCS2Mutex_unlock(&mutex); }},
    };
    for (const auto &check : checks)
        kiv::test::expectRefused(check);
}
} // namespace
