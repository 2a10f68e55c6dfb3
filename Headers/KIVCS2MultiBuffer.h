/**
 * @file
 * Multi-buffers: a fixed set of growable memory buffers, handed out and returned by their data pointers.
 *
 * The caller owns the record: `init` fills it, `free` clears it, and it may then be initialised again. The
 * entries belong to the multi-buffer. An entry is in use exactly while its link is in `m_usedList`, which
 * keeps the order in which entries were handed out: the oldest is at its head. The search for a free entry
 * starts after the entry handed out last and wraps around once. A returned buffer keeps its memory, so a
 * steady flow of similar buffers allocates nothing after a warm-up. Contents are never cleared.
 *
 * With KIVCS2MultiBufferFlags_ThreadSafe every operation holds a recursive mutex from its start to its end,
 * except kivCS2MultiBuffer_allocateAvailableBuffer(): its caller must hold kivCS2MultiBuffer_lock() around
 * it. Without the flag nothing is locked and the host serialises all calls. In both cases `init` and `free`
 * belong to the owner, while no other thread uses the record or holds its lock.
 *
 * A data pointer is valid while its entry is in use. A pointer to an entry is valid until the next
 * resize or `free`; a resize does not change indices.
 *
 * @code
 * KIVCS2MultiBuffer frames;
 * uint32_t used;
 * void *frame;
 * if (KIVCS2_FAILED(kivCS2MultiBuffer_init(&frames, 8, KIVCS2MultiBufferFlags_ThreadSafe)))
 *     return 1;
 * if (KIVCS2_SUCCEEDED(kivCS2MultiBuffer_allocateBuffer(&frames, 5529600, &frame)))
 * {
 *     kivCS2MultiBuffer_getUsedCount(&frames, &used);
 *     printf("%u of 8\n", used); // prints: 1 of 8
 *     kivCS2MultiBuffer_releaseBuffer(&frames, frame, NULL);
 * }
 * kivCS2MultiBuffer_free(&frames);
 * @endcode
 */
#ifndef KIVCS2_MULTI_BUFFER_H
#define KIVCS2_MULTI_BUFFER_H

#include "KIVCS2Base.h"
#include "KIVCS2LinkList.h"
#include "KIVCS2Mutex.h"

KIVCS2_BEGIN_DECLS

/** One buffer of a multi-buffer. */
typedef struct KIVCS2BufferEntry
{
    KIVCS2LinkElem m_link;  /**< in the used list; `m_link.m_list` is null while the entry is free */
    KIVCS2MemPtr m_mem_ptr; /**< the memory; its `m_buffer` is the data pointer handed out */
} KIVCS2BufferEntry;

/** Properties of a multi-buffer, combined with "or"; bits without a name are ignored. */
typedef uint32_t KIVCS2MultiBufferFlags;
enum
{
    KIVCS2MultiBufferFlags_None = 0,
    KIVCS2MultiBufferFlags_ThreadSafe = 1 /**< lock in every operation */
};

/** A multi-buffer. */
typedef struct KIVCS2MultiBuffer
{
    KIVCS2LinkList m_usedList;      /**< the entries in use, oldest first */
    KIVCS2Mutex m_mutex;            /**< made only for KIVCS2MultiBufferFlags_ThreadSafe */
    int32_t m_lastIndex;            /**< index of the entry handed out last; -1 if there is none */
    uint32_t m_count;               /**< entries in `m_buffers` */
    KIVCS2MultiBufferFlags m_flags; /**< as given to `init` */
    KIVCS2BufferEntry *m_buffers;   /**< `m_count` entries; replaced by a resize */
} KIVCS2MultiBuffer;

/**
 * Makes a free entry with a block of the smallest size, 4 bytes. The record's previous contents are ignored.
 * @retval KIVCS2STATUS_PARAM_ERR   `_entry` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room; the entry has no block
 * Thread safety: the entry's owner.
 */
KIVCS2_API KIVCS2Status kivCS2BufferEntry_init(KIVCS2BufferEntry *_entry);

/**
 * Takes the entry out of the list that holds it and releases its block; a second call is harmless.
 * @retval KIVCS2STATUS_PARAM_ERR  `_entry` is null, or the block was not released
 * Thread safety: the entry's owner.
 */
KIVCS2_API KIVCS2Status kivCS2BufferEntry_free(KIVCS2BufferEntry *_entry);

/**
 * Makes `count` free entries (0 is allowed) in `_buffer`. The record's previous contents are ignored. A
 * failure leaves the record zero and holds no memory; kivCS2MultiBuffer_free() is then harmless and not
 * needed.
 * @param[out] _buffer  released by kivCS2MultiBuffer_free()
 * @param[in]  count    entries, 0 to 2^31 - 1
 * @param[in]  flags    KIVCS2MultiBufferFlags
 * @retval KIVCS2STATUS_PARAM_ERR   `_buffer` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  no room, or more entries than an index can name (2^31 - 1)
 * @retval KIVCS2STATUS_MUTEX_ERR   the mutex could not be made
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_init(KIVCS2MultiBuffer *_buffer, uint32_t count,
                                               KIVCS2MultiBufferFlags flags);

/**
 * Releases all entries with their memory, also those in use, and zeroes the record; a second call is
 * harmless. If an entry cannot be released, its status is returned at once and the lock stays held.
 * @retval KIVCS2STATUS_PARAM_ERR  `_buffer` is null, or an entry cannot be released
 * @retval KIVCS2STATUS_MUTEX_ERR  the lock was not taken; nothing happened
 * Thread safety: only the owner, while no other thread holds the lock.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_free(KIVCS2MultiBuffer *_buffer);

/**
 * Locks the multi-buffer across several calls; the thread that holds the lock may lock again. Without
 * KIVCS2MultiBufferFlags_ThreadSafe the call does nothing and succeeds.
 * @retval KIVCS2STATUS_PARAM_ERR  `_buffer` is null (no assertion)
 * @retval KIVCS2STATUS_MUTEX_ERR  the system refused
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_lock(KIVCS2MultiBuffer *_buffer);

/** Releases the lock once, by the thread that holds it; statuses as kivCS2MultiBuffer_lock(). */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_unlock(KIVCS2MultiBuffer *_buffer);

/**
 * Waits until no other thread holds the lock. Without KIVCS2MultiBufferFlags_ThreadSafe it returns at once.
 * @retval KIVCS2STATUS_PARAM_ERR  `_buffer` is null
 * Thread safety: any thread.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_waitUnlock(KIVCS2MultiBuffer *_buffer);

/**
 * Hands out the first free entry after the one handed out last, with a block of at least `size` bytes;
 * release it with kivCS2MultiBuffer_releaseBuffer().
 * @param[in,out] _buffer   initialised
 * @param[in]     size      bytes; a block has at least 4
 * @param[out]    _mem_ptr  the data pointer; untouched on failure
 * @retval KIVCS2STATUS_PARAM_ERR      `_buffer` or `_mem_ptr` is null
 * @retval KIVCS2STATUS_NO_BUFFER_ERR  every entry is in use, or there are no entries; the next search starts
 *                                     at 0
 * @retval KIVCS2STATUS_MEMORY_ERR     the block cannot grow and is unchanged; the entry stays free, and the
 *                                     next search starts one place after the start of this one, or at 0 if
 *                                     this one started there or wrapped around to it
 * @retval KIVCS2STATUS_MUTEX_ERR      the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_allocateBuffer(KIVCS2MultiBuffer *_buffer, uint32_t size,
                                                         void **_mem_ptr);

/**
 * Hands out the first free entry with an index from `_s_idx` to `_e_idx`, both included, as
 * kivCS2MultiBuffer_allocateBuffer() does. A range that is empty or leaves the table is an error of the
 * caller: a build with assertions reports it, a build without them skips the indices outside the table.
 * @param[in,out] _buffer   initialised
 * @param[in]     size      bytes
 * @param[in]     _s_idx    the first index
 * @param[in]     _e_idx    the last index
 * @param[out]    _mem_ptr  the data pointer; untouched on failure
 * @retval KIVCS2STATUS_PARAM_ERR      `_buffer` or `_mem_ptr` is null
 * @retval KIVCS2STATUS_NO_BUFFER_ERR  no entry of the range is free; the next round-robin search starts at 0
 * @retval KIVCS2STATUS_MEMORY_ERR     the block cannot grow and is unchanged; the entry stays free
 * Thread safety: takes no lock; hold kivCS2MultiBuffer_lock() around it.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_allocateAvailableBuffer(KIVCS2MultiBuffer *_buffer, uint32_t size,
                                                                  int32_t _s_idx, int32_t _e_idx,
                                                                  void **_mem_ptr);

/**
 * Returns a buffer; its memory is kept for the next use. Only a build with assertions reports a buffer that
 * is not in use; without assertions the call changes nothing and succeeds. Linear in the number of entries.
 * @param[in,out] _buffer   initialised
 * @param[in]     _mem_ptr  the data pointer
 * @param[out]    _index    the entry's index; may be null
 * @retval KIVCS2STATUS_PARAM_ERR     `_buffer` or `_mem_ptr` is null
 * @retval KIVCS2STATUS_NO_ENTRY_ERR  no entry has this data pointer; `_index` is untouched
 * @retval KIVCS2STATUS_MUTEX_ERR     the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_releaseBuffer(KIVCS2MultiBuffer *_buffer, const void *_mem_ptr,
                                                        int32_t *_index);

/**
 * Stores the entry that has been in use for the longest time.
 * @param[in,out] _buffer  initialised
 * @param[out]    _entry   the entry, owned by the multi-buffer; untouched on failure
 * @param[in]     remove   exactly 1 takes the entry off the used list: it is then free, and its memory goes
 *                         to the next caller that requests a buffer, so finish with the entry before any
 *                         other call
 * @retval KIVCS2STATUS_PARAM_ERR     `_buffer` or `_entry` is null
 * @retval KIVCS2STATUS_NO_ENTRY_ERR  no entry is in use
 * @retval KIVCS2STATUS_MUTEX_ERR     the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_getHeadEntry(KIVCS2MultiBuffer *_buffer, KIVCS2BufferEntry **_entry,
                                                       int32_t remove);

/**
 * Finds the entry that has a data pointer, in use or free. Linear in the number of entries.
 * @param[in,out] _buffer   initialised
 * @param[in]     _mem_ptr  the data pointer
 * @param[out]    _index    the entry's index; may be null
 * @param[out]    _entry    the entry, owned by the multi-buffer
 * @retval KIVCS2STATUS_PARAM_ERR     `_buffer`, `_mem_ptr` or `_entry` is null
 * @retval KIVCS2STATUS_NO_ENTRY_ERR  no entry has this data pointer; both results are untouched
 * @retval KIVCS2STATUS_MUTEX_ERR     the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_findEntryByMemPtr(KIVCS2MultiBuffer *_buffer, const void *_mem_ptr,
                                                            int32_t *_index, KIVCS2BufferEntry **_entry);

/**
 * Stores the number of entries in use.
 * @retval KIVCS2STATUS_PARAM_ERR  `_buffer` or `_usedCount` is null
 * @retval KIVCS2STATUS_MUTEX_ERR  the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_getUsedCount(KIVCS2MultiBuffer *_buffer, uint32_t *_usedCount);

/**
 * Stores the share of entries in use, 0.0 to 1.0. It is 0.0 if there are no entries, and also if the count
 * cannot be read, which is a success as well.
 * @retval KIVCS2STATUS_PARAM_ERR  `_buffer` or `_usage` is null
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_getUsage(KIVCS2MultiBuffer *_buffer, double *_usage);

/**
 * Shrinks the block of every free entry to 4 bytes; entries in use stay as they are.
 * @retval KIVCS2STATUS_PARAM_ERR   `_buffer` is null
 * @retval KIVCS2STATUS_MEMORY_ERR  a block cannot be shrunk; it and those after it are unchanged
 * @retval KIVCS2STATUS_MUTEX_ERR   the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_compact(KIVCS2MultiBuffer *_buffer);

/**
 * Changes the number of entries. Entries keep index, memory and data pointer; the used list is then in the
 * order of the indices, and the next search starts at 0. Reducing the number releases the memory of the
 * entries removed. On failure nothing has changed.
 * @retval KIVCS2STATUS_PARAM_ERR   `_buffer` is null
 * @retval KIVCS2STATUS_STATE_ERR   an entry that would be removed is in use
 * @retval KIVCS2STATUS_MEMORY_ERR  no room, or more entries than an index can name
 * @retval KIVCS2STATUS_MUTEX_ERR   the lock was not taken; nothing happened
 * Thread safety: any thread with the thread-safe flag.
 */
KIVCS2_API KIVCS2Status kivCS2MultiBuffer_resize(KIVCS2MultiBuffer *_buffer, uint32_t newCount);

KIVCS2_END_DECLS

#endif
