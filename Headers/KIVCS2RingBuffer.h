/**
 * @file
 * Ring buffers: a fixed number of bytes between a producer and a consumer, or the history of the last
 * bytes of a stream.
 *
 * The caller owns the record: `init` allocates the storage, `dispose` frees it but does not clear the record,
 * so a disposed record must not be used or disposed again before the next `init`. A ring holds only bytes:
 * for records in it, producer and consumer must agree on a size.
 *
 * There are two ways to read. `fetch` removes the oldest bytes that were not yet fetched. `readDataAtOffset`
 * removes nothing. Once the writing end has wrapped around for the first time, it reads the last `capacity`
 * bytes written, whether they have been fetched or not.
 *
 * Nothing is locked and no word is atomic. Even one thread that stores and one that fetches need a lock: both
 * write `circulating`, both read the other's position, and the bytes of a store need not have arrived when
 * its new position is visible. In overwrite mode a store moves the reading end as well. So put every call
 * between the lock and the unlock of one KIVCS2Mutex.
 *
 * @code
 * KIVCS2RingBuffer ring;
 * char text[4];
 * if (KIVCS2_FAILED(kivCS2RingBuffer_init(&ring, 8)))
 *     return 1;
 * kivCS2RingBuffer_setOperationMode(&ring, KIVCS2RingBufferOpMode_Reject);
 * kivCS2RingBuffer_store(&ring, "one two", 8); // between lock and unlock, if there are two threads
 * if (KIVCS2_SUCCEEDED(kivCS2RingBuffer_fetch(&ring, text, 4)))
 *     printf("%.4s\n", text); // prints: one
 * kivCS2RingBuffer_dispose(&ring); // once
 * @endcode
 */
#ifndef KIVCS2_RING_BUFFER_H
#define KIVCS2_RING_BUFFER_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** Effect of a store that does not fit; a value without a name counts as Overwrite. */
typedef uint32_t KIVCS2RingBufferOpMode;
enum
{
    KIVCS2RingBufferOpMode_Overwrite = 0, /**< the oldest bytes are lost, and `dataLost` is set */
    KIVCS2RingBufferOpMode_Reject = 1     /**< the store is refused and nothing changes */
};

/** A ring. Empty and full both have `head` equal to `tail`: `circulating` distinguishes them. */
typedef struct KIVCS2RingBuffer
{
    uint8_t *buffer;               /**< the storage */
    uint8_t *buffer_end;           /**< one past its last byte */
    uint32_t capacity;             /**< bytes of storage */
    uint8_t *head;                 /**< the oldest byte that was not fetched */
    uint8_t *tail;                 /**< where the next stored byte goes */
    uint8_t circulatedAtLeastOnce; /**< 1 after `tail` wrapped around for the first time; never cleared */
    uint8_t circulating;           /**< 1 while `tail` is one lap ahead of `head` */
    uint8_t dataLost;              /**< 1 once bytes were overwritten that had not been fetched */
    KIVCS2RingBufferOpMode opMode; /**< the mode as it was set */
} KIVCS2RingBuffer;

/**
 * Allocates a ring of `size` bytes, empty and in overwrite mode. The record's previous contents are ignored.
 * @param[out] rb    released by kivCS2RingBuffer_dispose()
 * @param[in]  size  bytes, at least 2; all of them can be filled
 * @retval KIVCS2STATUS_PARAM_ERR   `rb` is null, or `size` is below 2; the record is unchanged
 * @retval KIVCS2STATUS_MEMORY_ERR  no storage; the record is unchanged
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_init(KIVCS2RingBuffer *rb, uint32_t size);

/**
 * Frees the storage, if there is any, and leaves every member unchanged: not to be called twice.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: only the owner.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_dispose(KIVCS2RingBuffer *rb);

/**
 * Stores `size` bytes after the newest: all of them or, on a failure, none. At most two copies.
 * @param[in,out] rb    initialised
 * @param[in]     data  `size` bytes outside the ring, copied
 * @param[in]     size  bytes, 0 to the capacity
 * @retval KIVCS2STATUS_PARAM_ERR     `rb` or `data` is null, or `size` is above the capacity
 * @retval KIVCS2STATUS_OVERFLOW_ERR  fewer than `size` bytes are free, in reject mode; nothing has changed
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_store(KIVCS2RingBuffer *rb, const void *data, uint32_t size);

/**
 * Repeats kivCS2RingBuffer_store() as long as it returns KIVCS2STATUS_OVERFLOW_ERR, and returns the first
 * other status. It never gives up, so room must be made from outside this call; otherwise it does not return.
 * If its caller holds a lock that the consumer takes too, it waits for ever. Threads should use a loop of
 * lock, store, unlock and a wait instead.
 * @param[in,out] rb            initialised
 * @param[in]     data          `size` bytes outside the ring, copied
 * @param[in]     size          bytes, 0 to the capacity
 * @param[in]     microseconds  slept between two attempts; 0 spins
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` or `data` is null, or `size` is above the capacity
 * Thread safety: none. A fetch by another thread meanwhile is the race described above.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_storeKeepTrying(KIVCS2RingBuffer *rb, const void *data,
                                                         uint32_t size, uint32_t microseconds);

/**
 * Removes the oldest `size` bytes: all of them or none. At most two copies.
 * @param[in,out] rb       initialised
 * @param[out]    outData  room for `size` bytes outside the ring
 * @param[in]     size     bytes, 0 to the capacity
 * @retval KIVCS2STATUS_PARAM_ERR    `rb` or `outData` is null, or `size` is above the capacity
 * @retval KIVCS2STATUS_NO_DATA_ERR  there are fewer; nothing has changed
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_fetch(KIVCS2RingBuffer *rb, void *outData, uint32_t size);

/**
 * Copies `size` bytes that begin `offset` bytes after the oldest, and removes nothing. Until `tail` wraps
 * around for the first time, the oldest byte is the first that was not fetched. After that it is the oldest
 * of the last `capacity` bytes written, fetched or not.
 * @param[in]  rb       initialised
 * @param[out] outData  room for `size` bytes outside the ring
 * @param[in]  size     bytes
 * @param[in]  offset   bytes
 * @retval KIVCS2STATUS_PARAM_ERR    `rb` or `outData` is null, or `size` and `offset` together are above
 *                                   the capacity, also if their sum does not fit 32 bits
 * @retval KIVCS2STATUS_NO_DATA_ERR  `tail` has never wrapped around and there are fewer bytes
 * Thread safety: under the host's lock; together with other readers that remove nothing.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_readDataAtOffset(const KIVCS2RingBuffer *rb, void *outData,
                                                          uint32_t size, uint32_t offset);

/** As kivCS2RingBuffer_readDataAtOffset() with an offset of 0. */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_readOldestData(const KIVCS2RingBuffer *rb, void *outData,
                                                        uint32_t size);

/**
 * Stores how many bytes fit without a loss: 0 to the capacity.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` or `outBytes` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_getFreeBytesAvailable(const KIVCS2RingBuffer *rb,
                                                               uint32_t *outBytes);

/** As kivCS2RingBuffer_getFreeBytesAvailable(), for the bytes that can be fetched. */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_getFetchBytesAvailable(const KIVCS2RingBuffer *rb,
                                                                uint32_t *outBytes);

/**
 * Stores the part of the capacity that can be fetched: 0.0 when empty, 1.0 when full.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` or `outUtilization` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_getUtilization(const KIVCS2RingBuffer *rb, float *outUtilization);

/**
 * Clears `dataLost`; only this operation does.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_resetDataLostIndicator(KIVCS2RingBuffer *rb);

/**
 * Sets what happens to stores that do not fit, from the next one on.
 * @param[in,out] rb    initialised
 * @param[in]     mode  KIVCS2RingBufferOpMode; stored as given
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_setOperationMode(KIVCS2RingBuffer *rb, KIVCS2RingBufferOpMode mode);

/**
 * Writes all members except the storage's start to the log, as one message.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_print(const KIVCS2RingBuffer *rb);

KIVCS2_END_DECLS

#endif
