// Mutexes: the POSIX mutex with statuses.
#include "KIVCS2Mutex.h"

#include "Private/Support/Check.h"

namespace
{
// Makes the system mutex; true on success.
[[nodiscard]] bool initSystemMutex(pthread_mutex_t &mutex, KIVCS2MutexOptions options)
{
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0)
        return false;

    const bool recursive = (options & KIVCS2MutexOptions_Recursive) != 0;
    const int type = recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL;
    bool made = pthread_mutexattr_settype(&attributes, type) == 0;
    // Kept: hosts rely on a mutex for one process if the system cannot share it.
    if (made && (options & KIVCS2MutexOptions_ProcessShared) != 0)
        (void)pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    made = made && pthread_mutex_init(&mutex, &attributes) == 0;
    (void)pthread_mutexattr_destroy(&attributes);
    return made;
}
} // namespace

KIVCS2Status kivCS2Mutex_init(KIVCS2Mutex *mutex, KIVCS2MutexOptions options)
{
    KIV_CHECK(mutex);

    *mutex = {};
    if (!initSystemMutex(mutex->m_mutex, options))
        return KIVCS2STATUS_MUTEX_ERR;
    mutex->m_valid = 1;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Mutex_free(KIVCS2Mutex *mutex)
{
    KIV_CHECK(mutex);

    if (mutex->m_valid != 0)
        (void)pthread_mutex_destroy(&mutex->m_mutex);
    *mutex = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Mutex_lock(KIVCS2Mutex *mutex)
{
    KIV_CHECK(mutex);
    KIV_CHECK(mutex->m_valid);

    return pthread_mutex_lock(&mutex->m_mutex) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_MUTEX_ERR;
}

KIVCS2Status kivCS2Mutex_tryLock(KIVCS2Mutex *mutex)
{
    KIV_CHECK(mutex);
    KIV_CHECK(mutex->m_valid);

    return pthread_mutex_trylock(&mutex->m_mutex) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_MUTEX_BUSY_ERR;
}

KIVCS2Status kivCS2Mutex_unlock(KIVCS2Mutex *mutex)
{
    KIV_CHECK(mutex);
    KIV_CHECK(mutex->m_valid);

    return pthread_mutex_unlock(&mutex->m_mutex) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_MUTEX_ERR;
}
