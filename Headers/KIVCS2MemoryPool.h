/**
 * @file
 * Memory pools: objects of one size from one block, and from the heap once the block is used up, if the host
 * allows it.
 *
 * The caller owns the record: `init` fills it, `free` clears it, and it may then be initialised again.
 * The block's objects are handed out zero-filled, those of the heap are not. Objects are reused in the order
 * of their return: the one returned longest ago comes first. Free objects hold their link at their start, so
 * the pool needs no other memory for them. The host therefore has two duties, which are not checked: an
 * object is at least as large as a KIVCS2LinkElem (24 bytes), and its size is a multiple of 8 so that every
 * link is aligned. Each object must be returned once, to the pool it came from, and not used afterwards.
 *
 * Objects may be taken and returned from any thread; the callbacks run on that thread, outside the pool's
 * lock, and may use the pool. `init` and `free` belong to the owner, while no other thread uses the pool.
 *
 * @code
 * KIVCS2MemoryPool pool;
 * void *object;
 * if (KIVCS2_FAILED(kivCS2MemoryPool_init(&pool, 16, 64, 0, NULL, NULL))) // 16 objects of 64 bytes
 *     return 1;
 * if (KIVCS2_SUCCEEDED(kivCS2MemoryPool_allocObject(&pool, &object)))
 * {
 *     snprintf(object, 64, "%u bytes", pool.m_objectSize);
 *     puts(object); // prints: 64 bytes
 *     kivCS2MemoryPool_freeObject(&pool, object);
 * }
 * kivCS2MemoryPool_free(&pool);
 * @endcode
 */
#ifndef KIVCS2_MEMORY_POOL_H
#define KIVCS2_MEMORY_POOL_H

#include "KIVCS2Base.h"
#include "KIVCS2LinkList.h"
#include "KIVCS2Mutex.h"

KIVCS2_BEGIN_DECLS

/** Runs on an object that is being handed out; the caller receives its status. */
typedef KIVCS2Status (*KIVCS2MemoryPoolAllocFunc)(void *object);

/** Runs on an object that is being returned, before it is cleared. */
typedef void (*KIVCS2MemoryPoolFreeFunc)(void *object);

/** A memory pool. */
typedef struct KIVCS2MemoryPool
{
    uint8_t *m_storage;         /**< the block of `m_poolSize` times `m_objectSize` bytes */
    uint8_t *m_storageEnd;      /**< one past the block */
    uint32_t m_poolSize;        /**< objects in the block */
    uint32_t m_objectSize;      /**< bytes */
    uint32_t m_externalObjects; /**< objects of the heap that are handed out */
    uint32_t m_allowExternal;   /**< not 0: continue with the heap once the block is used up */
    KIVCS2LinkList m_objects;   /**< the free objects of the block, in the order they will be handed out */
    KIVCS2Mutex m_mutex;        /**< for `m_objects` and `m_externalObjects` */
    KIVCS2MemoryPoolAllocFunc m_allocFunc; /**< may be null */
    KIVCS2MemoryPoolFreeFunc m_freeFunc;   /**< may be null */
} KIVCS2MemoryPool;

/**
 * Makes a pool of `poolSize` zero-filled objects of `objectSize` bytes. The record's previous contents are
 * ignored. A failure leaves the record zero and holds no memory.
 * @param[out] pool           released by kivCS2MemoryPool_free()
 * @param[in]  poolSize       objects in the block
 * @param[in]  objectSize     a multiple of 8, at least 24; not checked
 * @param[in]  allowExternal  not 0: objects come from the heap once the block is used up
 * @param[in]  allocFunc      run on each object handed out; may be null
 * @param[in]  freeFunc       run on each object returned; may be null
 * @retval KIVCS2STATUS_PARAM_ERR   `pool` is null, or a size is 0
 * @retval KIVCS2STATUS_MEMORY_ERR  no room for the block
 * @retval KIVCS2STATUS_MUTEX_ERR   the mutex could not be made
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_init(KIVCS2MemoryPool *pool, uint32_t poolSize, uint32_t objectSize,
                                              uint32_t allowExternal, KIVCS2MemoryPoolAllocFunc allocFunc,
                                              KIVCS2MemoryPoolFreeFunc freeFunc);

/**
 * Releases the block and zeroes the record; a second call is harmless. All objects must have been returned,
 * which a build with assertions checks. Without assertions, objects of the block that are still out end with
 * the block; heap objects stay with their holders, who release them with the system's free().
 * @retval KIVCS2STATUS_PARAM_ERR  `pool` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_free(KIVCS2MemoryPool *pool);

/**
 * Hands out an object: all zeros from the block, not cleared from the heap. Then runs the alloc callback on
 * it and returns the callback's status. Return the object with kivCS2MemoryPool_freeObject().
 * @param[in,out] pool    initialised
 * @param[out]    object  the object, or null if none was handed out. The callback's status does not change
 *                        that: a caller that gets a failure and an object returns the object too
 * @retval KIVCS2STATUS_PARAM_ERR   `pool` or `object` is null, or the pool is not initialised
 * @retval KIVCS2STATUS_MEMORY_ERR  the block is used up, and the heap is used up or not allowed
 * @retval KIVCS2STATUS_MUTEX_ERR   the lock was not taken; no object
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_allocObject(KIVCS2MemoryPool *pool, void **object);

/**
 * Runs the free callback on `object`, clears the object, and appends it to the free objects of the block or,
 * if it does not belong to the block, returns it to the heap.
 * @retval KIVCS2STATUS_PARAM_ERR  `pool` or `object` is null, or the pool is not initialised
 * @retval KIVCS2STATUS_MUTEX_ERR  the lock was not taken; the object is cleared and still handed out
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2MemoryPool_freeObject(KIVCS2MemoryPool *pool, void *object);

KIVCS2_END_DECLS

#endif
