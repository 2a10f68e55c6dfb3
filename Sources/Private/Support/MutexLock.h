// Holds a mutex for a scope. Locking can fail: check status() before touching the data it guards.
#ifndef KIV_PRIVATE_SUPPORT_MUTEX_LOCK_H
#define KIV_PRIVATE_SUPPORT_MUTEX_LOCK_H

#include "KIVCS2Mutex.h"

namespace kiv
{
class MutexLock
{
public:
    explicit MutexLock(KIVCS2Mutex &mutex) : m_mutex{mutex}, m_status{lock(mutex)} {}
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

private:
    // The module's call would be a tenth of the total cost; it is made only if there is a fault to report.
    [[nodiscard]] static KIVCS2Status lock(KIVCS2Mutex &mutex)
    {
        if (mutex.m_valid == 0) [[unlikely]]
            return kivCS2Mutex_lock(&mutex);
        return pthread_mutex_lock(&mutex.m_mutex) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_MUTEX_ERR;
    }

    KIVCS2Mutex &m_mutex;
    KIVCS2Status m_status;
};
} // namespace kiv

#endif
