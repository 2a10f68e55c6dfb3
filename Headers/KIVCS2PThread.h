/**
 * @file
 * Threads, and semaphore threads: a worker that runs a callback once for every signal it receives.
 *
 * The caller owns the records. A thread's record remembers whether the thread was joined or
 * detached, so that `free` never leaks it; it must not be joined, detached or freed from two
 * threads at once.
 *
 * A semaphore thread may be signalled from any thread; signals received while it is busy are counted and run
 * later. `cancel` and `free` wait for the run in progress and for the end callback, and drop the queued runs.
 * A callback may end its own worker, without a wait:
 * - `cancel` detaches the worker, which calls the end callback when the run in progress returns; the record
 *   is not read again, so its owner may free it from any thread.
 * - `free` calls the end callback itself, if it was still to come. When `free` returns, record and context
 *   belong only to the host, as after a `free` from another thread.
 *
 * @code
 * static void *work(void *argument)
 * {
 *     kivCS2Thread_setCurrentThreadName("ingest");
 *     puts(argument); // prints: on air
 *     return NULL;
 * }
 *
 * KIVCS2Thread thread;
 * if (KIVCS2_FAILED(kivCS2Thread_init(&thread, "on air", work)))
 *     return 1;
 * kivCS2Thread_join(&thread);
 * kivCS2Thread_free(&thread);
 * @endcode
 */
#ifndef KIVCS2_PTHREAD_H
#define KIVCS2_PTHREAD_H

#include "KIVCS2Base.h"
#include "KIVCS2Semaphore.h"

#include <pthread.h>

KIVCS2_BEGIN_DECLS

/** How a thread was ended. */
typedef uint32_t KIVCS2ThreadFlags;
enum
{
    KIVCS2ThreadFlags_Joined = 1,
    KIVCS2ThreadFlags_Detached = 2
};

/** A thread. */
typedef struct KIVCS2Thread
{
    pthread_t m_thread;        /**< 0 when not started */
    KIVCS2ThreadFlags m_flags; /**< bits of KIVCS2ThreadFlags */
} KIVCS2Thread;

/** The function of a thread; its result is not kept. */
typedef void *(*KIVCS2ThreadFunc)(void *argument);

/**
 * Starts a thread with the system's default attributes.
 * @param[out] pThread       released by kivCS2Thread_free()
 * @param[in]  argument      passed to `startRoutine` unchanged; may be null
 * @param[in]  startRoutine  runs on the new thread
 * @retval KIVCS2STATUS_PARAM_ERR   `pThread` or `startRoutine` is null
 * @retval KIVCS2STATUS_THREAD_ERR  the thread could not be made; the record is zero
 * Thread safety: only the owner. Source: POSIX.1-2017, pthread_create.
 */
KIVCS2_API KIVCS2Status kivCS2Thread_init(KIVCS2Thread *pThread, void *argument,
                                          KIVCS2ThreadFunc startRoutine);

/**
 * Waits until the thread has ended. Joining a joined record again returns at once. A detached thread counts
 * as joined without a wait, as does any failure of the system other than a deadlock.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started, or the thread joins itself; the
 *                                 record is unchanged
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Thread_join(KIVCS2Thread *pThread);

/**
 * Lets the system release the thread's resources when it ends. A second call is harmless, and so is a call
 * for a thread that was joined.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Thread_detach(KIVCS2Thread *pThread);

/**
 * Zeroes the record and detaches a thread that was neither joined nor detached. Never waits.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2Thread_free(KIVCS2Thread *pThread);

/**
 * Names the calling thread for debuggers and process lists. The system keeps 15 bytes: a longer
 * name is cut at the last whole UTF-8 character that fits.
 * @retval KIVCS2STATUS_PARAM_ERR  `name` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Thread_setCurrentThreadName(const char *name);

/** A callback of a semaphore thread, run on its worker. */
typedef void (*KIVCS2SemaphoreThreadFunc)(void *context);

/** A worker thread and the semaphore that drives it. */
typedef struct KIVCS2SemaphoreThread
{
    KIVCS2Thread m_thread;                  /**< the worker */
    void *m_context;                        /**< passed to every callback unchanged */
    uint32_t m_cancel;                      /**< 1 once the worker has to end */
    uint32_t m_busy;                        /**< 1 from a wake-up until the signal callback has returned */
    KIVCS2SemaphoreThreadFunc m_startFunc;  /**< called once, before the first wait; may be null */
    KIVCS2SemaphoreThreadFunc m_endFunc;    /**< called once, after the last run; may be null */
    KIVCS2SemaphoreThreadFunc m_signalFunc; /**< called once for every signal; may be null */
    KIVCS2Semaphore m_semaphore;            /**< the signals not yet run */
    uint32_t m_detached;                    /**< 1 after a cancel on the worker itself; private */
} KIVCS2SemaphoreThread;

/**
 * Starts a worker that waits for signals. The record must not move until `free`.
 * @param[out] pThread     released by kivCS2SemaphoreThread_free()
 * @param[in]  context     passed to every callback unchanged; may be null
 * @param[in]  startFunc   called once, before the first wait; may be null
 * @param[in]  endFunc     called once, after the last run; may be null
 * @param[in]  signalFunc  called once for every signal; may be null
 * @retval KIVCS2STATUS_PARAM_ERR      `pThread` is null
 * @retval KIVCS2STATUS_SEMAPHORE_ERR  the semaphore could not be made; no thread was started
 * @retval KIVCS2STATUS_THREAD_ERR     the thread could not be made; the semaphore is released again
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2SemaphoreThread_init(KIVCS2SemaphoreThread *pThread, void *context,
                                                   KIVCS2SemaphoreThreadFunc startFunc,
                                                   KIVCS2SemaphoreThreadFunc endFunc,
                                                   KIVCS2SemaphoreThreadFunc signalFunc);

/**
 * Requests one run of the signal callback.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: any thread, the worker's callbacks included.
 */
KIVCS2_API KIVCS2Status kivCS2SemaphoreThread_signal(KIVCS2SemaphoreThread *pThread);

/**
 * Drops the runs that were requested and have not started.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SemaphoreThread_drain(KIVCS2SemaphoreThread *pThread);

/**
 * Drops the runs that have not started and waits until the one in progress has returned, that is, until
 * `m_busy` is 0. The wait spins without sleeping and is meant for short callbacks. It does not wait for a
 * worker that has just taken a signal and has not yet marked itself busy. It never returns if called by a
 * callback of the worker, or after `cancel`: a cancelled worker stays busy.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: any thread but the worker.
 */
KIVCS2_API KIVCS2Status kivCS2SemaphoreThread_drainAndBlock(KIVCS2SemaphoreThread *pThread);

/**
 * Ends the worker after the run in progress and waits for its end callback; queued runs are dropped. A second
 * call is harmless. From a callback of the worker it does not wait but detaches the worker.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: one thread at a time.
 */
KIVCS2_API KIVCS2Status kivCS2SemaphoreThread_cancel(KIVCS2SemaphoreThread *pThread);

/**
 * Cancels the worker, closes and removes its semaphore and zeroes the record.
 * @retval KIVCS2STATUS_PARAM_ERR  `pThread` is null or not started
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2SemaphoreThread_free(KIVCS2SemaphoreThread *pThread);

/** The worker's start routine, with its KIVCS2SemaphoreThread record; not called directly. */
KIVCS2_API void *kivCS2SemaphoreThread_main(void *argument);

KIVCS2_END_DECLS

#endif
