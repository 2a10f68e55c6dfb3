// Holds a mutex for a scope. Locking can fail: ask status() before touching what it guards.
#ifndef KIV_PRIVATE_MUTEX_LOCK_H
#define KIV_PRIVATE_MUTEX_LOCK_H

#include "KIVCS2Mutex.h"

namespace kiv
{
class MutexLock
{
public:
    explicit MutexLock(KIVCS2Mutex &mutex) : m_mutex{mutex}, m_status{kivCS2Mutex_lock(&mutex)} {}
    ~MutexLock()
    {
        if (KIVCS2_SUCCEEDED(m_status))
            (void)kivCS2Mutex_unlock(&m_mutex); // held by this thread: nothing can refuse it
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

    [[nodiscard]] KIVCS2Status status() const
    {
        return m_status;
    }

private:
    KIVCS2Mutex &m_mutex;
    KIVCS2Status m_status;
};
} // namespace kiv

#endif
