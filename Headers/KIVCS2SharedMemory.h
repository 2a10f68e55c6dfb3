/**
 * @file
 * Shared memory: System V segments that processes find by a number.
 *
 * One process creates the segment and clears it, the others attach to it by the same key, and the last
 * process to free it removes it. The memory has no lock of its own: put a KIVCS2Mutex made with
 * KIVCS2MutexOptions_ProcessShared at its start, or agree by other means. A process that attaches must know
 * that the creator has set the segment up, because it can be attached before its creator has cleared it.
 *
 * The caller owns the record: `init` fills it, `free` detaches and zeroes it, and it may then be initialised
 * again. The system detaches a process that ends without `free`, but only `free` removes a segment: a segment
 * that is never freed stays until the machine stops. A mutex stays locked if a process that held it was
 * killed. A child of fork() is attached too, and counts; it frees its own copy of the record.
 *
 * Key 0 is IPC_PRIVATE: every `init` with it, even without `create`, makes a new segment that no other
 * process can find by key.
 *
 * @code
 * KIVCS2SharedMemory segment, other;
 * uint32_t key;
 * if (KIVCS2_FAILED(kivCS2SharedMemory_findKey(0x4B495600, &key)) ||
 *     KIVCS2_FAILED(kivCS2SharedMemory_init(&segment, key, 4096, true)))
 *     return 1;
 * strcpy(segment.m_address, "on air");
 * if (KIVCS2_SUCCEEDED(kivCS2SharedMemory_init(&other, key, 0, false))) // as another process would
 * {
 *     puts(other.m_address); // prints: on air
 *     kivCS2SharedMemory_free(&other);
 * }
 * kivCS2SharedMemory_free(&segment); // the last one removes it
 * @endcode
 */
#ifndef KIVCS2_SHARED_MEMORY_H
#define KIVCS2_SHARED_MEMORY_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** An attachment to a segment. */
typedef struct KIVCS2SharedMemory
{
    uint32_t m_key;  /**< the System V key */
    int32_t m_id;    /**< the system's identifier of the segment, -1 if there is none */
    void *m_address; /**< address of the segment; null if not attached */
    int32_t m_error; /**< errno of the system call that failed in `init`, otherwise 0 */
} KIVCS2SharedMemory;

/**
 * Attaches to the segment of `key`. The record's previous contents are ignored. With `create` a segment that
 * does not exist is made, readable and writable by all, and the first `size` bytes are set to zero, also
 * those of a segment that existed: a second creator clears the first one's data. A segment that is larger
 * than `size` is attached whole, and its bytes past `size` keep their contents.
 * @param[out] shared  released by kivCS2SharedMemory_free()
 * @param[in]  key     System V key; 0 makes a private segment
 * @param[in]  size    smallest size of the segment in bytes; 0 takes an existing segment of any size
 * @param[in]  create  make the segment if it does not exist, and clear it
 * @retval KIVCS2STATUS_PARAM_ERR   `shared` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  with `create`: no segment. EINVAL: `size` is 0, or an existing segment is
 *                                  smaller; ENOSPC, ENOMEM: the system has no room; EACCES: not allowed for
 *                                  this user
 * @retval KIVCS2STATUS_SYSTEM_ERR  without `create`: no segment. ENOENT: none has this key; EINVAL: it is
 *                                  smaller; EACCES: not allowed for this user
 * @retval KIVCS2STATUS_DATA_ERR    the segment cannot be attached (EINVAL, EIDRM: another process has just
 *                                  removed it). A segment that this call made is removed again
 * After a failure `m_error` holds the error number and `m_address` is null; there is nothing to free.
 * Thread safety: only the owner. Source: POSIX.1-2017, shmget, shmat.
 */
KIVCS2_API KIVCS2Status kivCS2SharedMemory_init(KIVCS2SharedMemory *shared, uint32_t key, uint32_t size,
                                                bool create);

/**
 * Detaches, removes the segment if no process is attached to it any more, and zeroes the record. A zeroed
 * record, and one whose `init` failed, are only zeroed. The system's result is not reported: only the user
 * who made a segment, and root, may remove it, so a segment that another user frees last stays. A process
 * that attaches at the same time may keep a segment that has lost its key.
 * @retval KIVCS2STATUS_PARAM_ERR  `shared` is null
 * Thread safety: only the owner. Source: POSIX.1-2017, shmdt, shmctl.
 */
KIVCS2_API KIVCS2Status kivCS2SharedMemory_free(KIVCS2SharedMemory *shared);

/**
 * Stores the first key from `startKey` on that has no segment, among 10,000 consecutive keys; 0 follows
 * 0xFFFFFFFF and is never free. A segment of fewer than 8 bytes, or one that this user may not read and
 * write, counts as no segment. The key is not reserved: another process may take it before it is used.
 * @retval KIVCS2STATUS_PARAM_ERR      `foundKey` is null
 * @retval KIVCS2STATUS_NOT_FOUND_ERR  all are taken; `foundKey` is untouched
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2SharedMemory_findKey(uint32_t startKey, uint32_t *foundKey);

KIVCS2_END_DECLS

#endif
