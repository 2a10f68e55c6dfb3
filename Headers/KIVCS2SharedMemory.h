/**
 * @file
 * Shared memory: System V segments that processes find by a number.
 *
 * One process creates the segment and clears it, the others attach to it by the same key, and the
 * last one to free it removes it. The memory has no lock of its own: put a KIVCS2Mutex made with
 * KIVCS2MutexOptions_ProcessShared at its start, or agree by other means. Whoever attaches has to know
 * that the creator has set it up, since a segment can be attached before its creator has cleared it.
 *
 * The caller owns the record: `init` fills it, `free` detaches and zeroes it, and it may then be
 * initialised again. A process that ends without `free` is detached by the system, but only a `free`
 * removes a segment: one that nobody frees stays until the machine stops. A mutex that a process held
 * when it was killed stays locked. A child of fork() is attached too, and counts; it frees its own copy
 * of the record.
 *
 * Key 0 is IPC_PRIVATE: every `init` with it, also one without `create`, makes a new segment that no
 * other process can find by key.
 */
#ifndef KIVCS2_SHARED_MEMORY_H
#define KIVCS2_SHARED_MEMORY_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** An attachment to a segment. */
typedef struct KIVCS2SharedMemory
{
    uint32_t m_key;  /**< the System V key */
    int32_t m_id;    /**< the system's identifier of the segment, -1 when there is none */
    void *m_address; /**< where it is attached; null when it is not */
    int32_t m_error; /**< errno of the system call that failed in `init`, otherwise 0 */
} KIVCS2SharedMemory;

/**
 * Attaches to the segment of `key`, whatever the record held before. With `create` a segment that does
 * not exist is made, readable and writable by all, and the first `size` bytes are set to zero, also
 * those of a segment that existed: a second creator clears the first one's data. A segment that is
 * larger than `size` is attached whole, and what lies beyond `size` keeps its contents.
 * @param[in] size  bytes that the segment has at least; 0 takes an existing one of any size
 * @retval KIVCS2STATUS_PARAM_ERR   `shared` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  with `create`: no segment. EINVAL: `size` is 0, or an existing one is
 *                                  smaller; ENOSPC, ENOMEM: the system has no room; EACCES: not for this user
 * @retval KIVCS2STATUS_SYSTEM_ERR  without `create`: no segment. ENOENT: none of this key; EINVAL: it is
 *                                  smaller; EACCES: not for this user
 * @retval KIVCS2STATUS_DATA_ERR    the segment cannot be attached (EINVAL, EIDRM: another process has just
 *                                  removed it). One that this call made is removed again
 * After a failure `m_error` holds the error number and `m_address` is null; there is nothing to free.
 * Thread safety: the owner alone. Source: POSIX.1-2017, shmget, shmat.
 */
KIVCS2_API KIVCS2Status kivCS2SharedMemory_init(KIVCS2SharedMemory *shared, uint32_t key, uint32_t size,
                                                bool create);

/**
 * Detaches, removes the segment when nothing is attached to it any more, and zeroes the record. A zeroed
 * record, and one whose `init` failed, are only zeroed. What the system answers is not reported: it lets
 * the user who made a segment remove it, and root, so one that another user is the last to free stays. A
 * process that attaches in the same moment may keep a segment that has lost its key.
 * @retval KIVCS2STATUS_PARAM_ERR  `shared` is null
 * Thread safety: the owner alone. Source: POSIX.1-2017, shmdt, shmctl.
 */
KIVCS2_API KIVCS2Status kivCS2SharedMemory_free(KIVCS2SharedMemory *shared);

/**
 * Stores the first key from `startKey` on that has no segment, among 10,000 consecutive ones; 0 follows
 * 0xFFFFFFFF and is never free. A segment of fewer than 8 bytes, or one that this user may not read and
 * write, counts as none. The key is not reserved: another process may take it before it is used.
 * @retval KIVCS2STATUS_PARAM_ERR      `foundKey` is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  all are taken; `foundKey` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SharedMemory_findKey(uint32_t startKey, uint32_t *foundKey);

KIVCS2_END_DECLS

#endif
