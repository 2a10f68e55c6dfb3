/**
 * @file
 * Semaphores: counting, and always named, so that any process that knows the name shares the count.
 *
 * The caller owns the record: `init` opens the semaphore, `free` closes it, removes its name and
 * zeroes the record. All other operations may be called from any thread. Because `free` removes the name, the
 * first user to free a shared name ends the sharing for later users; users that have the semaphore open keep
 * it. Only `free` removes a name: a process that is killed leaves its names, also automatic ones ("kivCS2"
 * and a number), under /dev/shm until the machine stops.
 *
 * Any user of the machine can make a file under any name there. `init` shares a semaphore that belongs to the
 * effective user or to root. It shares another user's only if that is writable for its group and this process
 * is in that group. To share a semaphore between users, give them a group (and a mask of 002 to the process
 * that comes first), or let root make it. A user who may write to a semaphore's file may also cut it, which
 * ends the processes that use it with SIGBUS: a mask of 0 lets every user of the machine do so.
 *
 * @code
 * KIVCS2Semaphore frames;
 * if (KIVCS2_FAILED(kivCS2Semaphore_init(&frames, NULL))) // a name of its own; or a shared one
 *     return 1;
 * kivCS2Semaphore_signal(&frames); // from any thread or process
 * kivCS2Semaphore_wait(&frames);
 * if (kivCS2Semaphore_testWait(&frames) == KIVCS2STATUS_SEMAPHORE_BUSY_ERR)
 *     puts("taken"); // prints: taken
 * kivCS2Semaphore_free(&frames); // removes the name
 * @endcode
 */
#ifndef KIVCS2_SEMAPHORE_H
#define KIVCS2_SEMAPHORE_H

#include "KIVCS2Base.h"

#include <semaphore.h>

KIVCS2_BEGIN_DECLS

enum
{
    KIVCS2SemaphoreNameMax = 256 /**< bytes of a name, terminator included */
};

/** A counting semaphore. */
typedef struct KIVCS2Semaphore
{
    sem_t *m_semaphore;                  /**< null if not initialised */
    char m_name[KIVCS2SemaphoreNameMax]; /**< the name as given or made, nul-terminated */
} KIVCS2Semaphore;

/**
 * Opens the semaphore `name`, or makes it if it does not exist, and takes all its pending counts: it starts
 * at 0 even if others had posted to it. An automatic name is always new.
 * @param[out] pSemaphore  released by kivCS2Semaphore_free()
 * @param[in]  name        at most 255 bytes, copied; null makes a name from the machine's absolute clock
 * @retval KIVCS2STATUS_PARAM_ERR        `pSemaphore` is null
 * @retval KIVCS2STATUS_BUFFER_SIZE_ERR  `name` has 256 bytes or more; the record is zero
 * @retval KIVCS2STATUS_SEMAPHORE_ERR    the system could not open it, or the name belongs to something that
 *                                       is not a semaphore or to another user; `m_semaphore` is null
 * Thread safety: only the owner. Source: POSIX.1-2017, sem_open.
 */
KIVCS2_API KIVCS2Status kivCS2Semaphore_init(KIVCS2Semaphore *pSemaphore, const char *name);

/**
 * Adds one to the count and so releases one waiter.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSemaphore` is null or not initialised
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Semaphore_signal(KIVCS2Semaphore *pSemaphore);

/**
 * Takes one from the count; waits while the count is 0. A signal delivered to the waiting thread also ends
 * the wait, with the same status and nothing taken.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSemaphore` is null or not initialised
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Semaphore_wait(KIVCS2Semaphore *pSemaphore);

/**
 * Takes one from the count if it is not 0.
 * @retval KIVCS2STATUS_PARAM_ERR           `pSemaphore` is null or not initialised
 * @retval KIVCS2STATUS_SEMAPHORE_BUSY_ERR  the count was 0
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Semaphore_testWait(KIVCS2Semaphore *pSemaphore);

/**
 * Takes every pending count.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSemaphore` is null or not initialised
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2Semaphore_drain(KIVCS2Semaphore *pSemaphore);

/**
 * Closes the semaphore, removes its name from the machine and zeroes the record.
 * @retval KIVCS2STATUS_PARAM_ERR  `pSemaphore` is null or not initialised
 * Thread safety: only the owner, with no thread waiting.
 */
KIVCS2_API KIVCS2Status kivCS2Semaphore_free(KIVCS2Semaphore *pSemaphore);

KIVCS2_END_DECLS

#endif
