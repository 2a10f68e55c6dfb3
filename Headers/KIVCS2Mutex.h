/**
 * @file
 * Mutexes: a POSIX mutex that returns a status, optionally recursive or shared between processes.
 *
 * The caller owns the record: `init` fills it, `free` destroys the system mutex and zeroes the
 * record, which may then be initialised again. Locking, trying and unlocking may be done from any
 * thread; `init` and `free` belong to the owner, while no thread holds or waits for the mutex. A
 * process-shared mutex must itself lie in memory that the processes share.
 *
 * @code
 * KIVCS2Mutex mutex;
 * if (KIVCS2_FAILED(kivCS2Mutex_init(&mutex, KIVCS2MutexOptions_None)))
 *     return 1;
 * if (KIVCS2_SUCCEEDED(kivCS2Mutex_lock(&mutex)))
 * {
 *     if (kivCS2Mutex_tryLock(&mutex) == KIVCS2STATUS_MUTEX_BUSY_ERR)
 *         puts("held"); // prints: held
 *     kivCS2Mutex_unlock(&mutex);
 * }
 * kivCS2Mutex_free(&mutex);
 * @endcode
 */
#ifndef KIVCS2_MUTEX_H
#define KIVCS2_MUTEX_H

#include "KIVCS2Base.h"

#include <pthread.h>

KIVCS2_BEGIN_DECLS

/** Properties of a new mutex, combined with "or"; bits without a name are ignored. */
typedef uint32_t KIVCS2MutexOptions;
enum
{
    KIVCS2MutexOptions_None = 0,         /**< PTHREAD_MUTEX_NORMAL, for one process */
    KIVCS2MutexOptions_Recursive = 1,    /**< PTHREAD_MUTEX_RECURSIVE */
    KIVCS2MutexOptions_ProcessShared = 2 /**< PTHREAD_PROCESS_SHARED */
};

/** A mutex. The system's mutex comes first, so the record can be used in its place. */
typedef struct KIVCS2Mutex
{
    pthread_mutex_t m_mutex; /**< the system's mutex */
    uint32_t m_valid;        /**< 1 from a successful `init` to `free`, otherwise 0 */
} KIVCS2Mutex;

/**
 * Makes a mutex in `mutex`. The record's previous contents are ignored.
 * @param[out] mutex    released by kivCS2Mutex_free()
 * @param[in]  options  KIVCS2MutexOptions; a mutex that cannot be shared is not reported
 * @retval KIVCS2STATUS_PARAM_ERR  `mutex` is null
 * @retval KIVCS2STATUS_MUTEX_ERR  the system could not make a mutex; the record is zero
 * Thread safety: only the owner. Source: POSIX.1-2017, pthread_mutex_init.
 */
KIVCS2_API KIVCS2Status kivCS2Mutex_init(KIVCS2Mutex *mutex, KIVCS2MutexOptions options);

/**
 * Destroys the mutex and zeroes the record. Freeing a freed or zeroed record is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `mutex` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2Mutex_free(KIVCS2Mutex *mutex);

/**
 * Locks the mutex; waits for it as long as it takes.
 * @retval KIVCS2STATUS_PARAM_ERR  `mutex` is null or not initialised
 * @retval KIVCS2STATUS_MUTEX_ERR  the system refused; the mutex is not held by this call
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Mutex_lock(KIVCS2Mutex *mutex);

/**
 * Locks the mutex if this needs no wait.
 * @retval KIVCS2STATUS_PARAM_ERR       `mutex` is null or not initialised
 * @retval KIVCS2STATUS_MUTEX_BUSY_ERR  the mutex was not locked by this call, for any reason
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Mutex_tryLock(KIVCS2Mutex *mutex);

/**
 * Unlocks the mutex once; a recursive mutex is free after as many unlocks as locks.
 * @retval KIVCS2STATUS_PARAM_ERR  `mutex` is null or not initialised
 * @retval KIVCS2STATUS_MUTEX_ERR  the system refused, for example a recursive mutex of another thread
 * Thread safety: the thread that holds it.
 */
KIVCS2_API KIVCS2Status kivCS2Mutex_unlock(KIVCS2Mutex *mutex);

KIVCS2_END_DECLS

#endif
