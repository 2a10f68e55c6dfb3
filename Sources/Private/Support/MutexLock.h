// Holds a mutex for a scope. Locking can fail: check status() before touching the data it guards.
#ifndef KIV_PRIVATE_SUPPORT_MUTEX_LOCK_H
#define KIV_PRIVATE_SUPPORT_MUTEX_LOCK_H

#include "KIVCS2Mutex.h"

namespace kiv
{
class MutexLock
{
public:
    explicit MutexLock(KIVCS2Mutex &mutex) : MutexLock{mutex, lock(mutex)} {}
    ~MutexLock()
    {
        if (KIVCS2_SUCCEEDED(m_status))
            (void)pthread_mutex_unlock(&m_mutex.m_mutex); // held by this thread, so it cannot fail
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

    [[nodiscard]] KIVCS2Status status() const
    {
        return m_status;
    }

protected:
    MutexLock(KIVCS2Mutex &mutex, KIVCS2Status status) : m_mutex{mutex}, m_status{status} {}

    // The module's call would be a tenth of the total cost; it is made only if there is a fault to report.
    [[nodiscard]] static KIVCS2Status lock(KIVCS2Mutex &mutex)
    {
        if (mutex.m_valid == 0) [[unlikely]]
            return kivCS2Mutex_lock(&mutex);
        return pthread_mutex_lock(&mutex.m_mutex) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_MUTEX_ERR;
    }

private:
    KIVCS2Mutex &m_mutex;
    KIVCS2Status m_status;
};

// As MutexLock, for a mutex that threads hold for some ten nanoseconds at a time. To sleep and be woken takes
// far longer, so a thread that finds the mutex held tries a few times before it sleeps.
class BriefMutexLock : public MutexLock
{
public:
    explicit BriefMutexLock(KIVCS2Mutex &mutex)
        : MutexLock{mutex, isHeld(mutex) ? lockPatiently(mutex) : lock(mutex)}
    {
    }

private:
    // A hint without a promise. It reads the owner and not the lock word, because a read of a word that this
    // thread has just changed with an atomic operation waits for the end of that operation.
    [[nodiscard]] static bool isHeld([[maybe_unused]] const KIVCS2Mutex &mutex)
    {
#ifdef __GLIBC__
        return __atomic_load_n(&mutex.m_mutex.__data.__owner, __ATOMIC_RELAXED) != 0;
#else
        return false;
#endif
    }
    [[nodiscard]] static KIVCS2Status lockPatiently(KIVCS2Mutex &mutex);
};
} // namespace kiv

#endif
