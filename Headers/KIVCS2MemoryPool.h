/**
 * @file
 * Memory pools: objects of one size out of one block, and out of the heap where the block is used up and the
 * host allows it.
 *
 * The caller owns the record: `init` fills it, `free` clears it, and it may then be initialised again.
 * Objects are handed out zero-filled, those of the heap excepted, and in the order in which they were
 * returned: the one returned longest ago comes first. Free objects hold their link at their start, so the
 * pool needs no memory beside them. Two duties of the host follow, which nothing checks: an object is at
 * least as large as a KIVCS2LinkElem (24 bytes), and its size a multiple of 8 so that every link is aligned.
 * Each object is returned once, to the pool it came from, and not used afterwards.
 *
 * Objects may be taken and returned from any thread; the callbacks run on that thread, outside the pool's
 * lock, and may use the pool. `init` and `free` belong to the owner, while nobody uses the pool.
 */
#ifndef KIVCS2_MEMORY_POOL_H
#define KIVCS2_MEMORY_POOL_H

#include "KIVCS2Base.h"
#include "KIVCS2LinkList.h"
#include "KIVCS2Mutex.h"

KIVCS2_BEGIN_DECLS

/** Run on an object that is being handed out; the caller receives its status. */
typedef KIVCS2Status (*KIVCS2MemoryPoolAllocFunc)(void *object);

/** Run on an object that is being returned, before it is cleared. */
typedef void (*KIVCS2MemoryPoolFreeFunc)(void *object);

/** A memory pool. */
typedef struct KIVCS2MemoryPool
{
    uint8_t *m_storage;         /**< the block of `m_poolSize` times `m_objectSize` bytes */
    uint8_t *m_storageEnd;      /**< one past the block */
    uint32_t m_poolSize;        /**< objects in the block */
    uint32_t m_objectSize;      /**< bytes */
    uint32_t m_externalObjects; /**< objects of the heap that are handed out */
    uint32_t m_allowExternal;   /**< not 0: go on with the heap when the block is used up */
    KIVCS2LinkList m_objects;   /**< the free objects of the block, in the order they will be handed out */
    KIVCS2Mutex m_mutex;        /**< for `m_objects` and `m_externalObjects` */
    KIVCS2MemoryPoolAllocFunc m_allocFunc; /**< may be null */
    KIVCS2MemoryPoolFreeFunc m_freeFunc;   /**< may be null */
} KIVCS2MemoryPool;

/**
 * Makes a pool of `poolSize` zero-filled objects of `objectSize` bytes, whatever the record held before. A
 * failure leaves the record zero and nothing behind.
 * @param[in] objectSize     a multiple of 8, and 24 at least; not checked
 * @param[in] allowExternal  not 0: objects come from the heap when the block is used up
 * @param[in] allocFunc      run on each object handed out; may be null
 * @param[in] freeFunc       run on each object returned; may be null
 * @retval KIVCS2STATUS_PARAM_ERR   `pool` is null, or a size is 0
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the block
 * @retval KIVCS2STATUS_MUTEX_ERR   no mutex
 * Thread safety: the owner alone.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_init(KIVCS2MemoryPool *pool, uint32_t poolSize, uint32_t objectSize,
                                              uint32_t allowExternal, KIVCS2MemoryPoolAllocFunc allocFunc,
                                              KIVCS2MemoryPoolFreeFunc freeFunc);

/**
 * Releases the block and zeroes the record; twice is harmless. All objects must have been returned, which the
 * build with assertions checks. In the other one the objects of the block that are out end with it, and those
 * of the heap stay with who has them, who releases them with the system's free().
 * @retval KIVCS2STATUS_PARAM_ERR  `pool` is null
 * Thread safety: the owner alone.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_free(KIVCS2MemoryPool *pool);

/**
 * Hands out an object: all zeros from the block, not cleared from the heap. Then runs the alloc callback on
 * it and answers with its status. Return the object with kivCS2MemoryPool_freeObject().
 * @param[out] object  the object, or null when none was handed out. It is handed out whatever the callback
 *                     answers: a caller that gets a failure and an object returns the object too
 * @retval KIVCS2STATUS_PARAM_ERR   `pool` or `object` is null, or the pool is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  the block is used up, and so is the heap or it is not allowed
 * @retval KIVCS2STATUS_MUTEX_ERR   the lock was not taken; no object
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_allocObject(KIVCS2MemoryPool *pool, void **object);

/**
 * Runs the free callback on `object`, clears it, and puts it behind the free objects of the block or, where
 * it is none of the block, gives it back to the heap.
 * @retval KIVCS2STATUS_PARAM_ERR  `pool` or `object` is null, or the pool is not initialised
 * @retval KIVCS2STATUS_MUTEX_ERR  the lock was not taken; the object is cleared and still handed out
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_freeObject(KIVCS2MemoryPool *pool, void *object);

KIVCS2_END_DECLS

#endif
