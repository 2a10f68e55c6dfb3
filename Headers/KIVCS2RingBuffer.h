/**
 * @file
 * Ring buffers: a fixed number of bytes between a producer and a consumer, or the history of the last
 * bytes of a stream.
 *
 * The caller owns the record: `init` allocates the storage, `dispose` frees it and leaves the record as
 * it was, so that a disposed record is neither used nor disposed again before the next `init`. Bytes are
 * all a ring knows: records in it have a size that producer and consumer have agreed on.
 *
 * There are two ways to look back. `fetch` takes the oldest bytes that nobody has fetched.
 * `readDataAtOffset` takes nothing, and from the first time the writing end has come round it reads the
 * last `capacity` bytes written, whether they have been fetched or not.
 *
 * Nothing is locked and no word is atomic. One thread that stores and one that fetches do not get by
 * without a lock either: both write `circulating`, both read the other's position, and the bytes of a store
 * need not have arrived when its new position is seen. In overwrite mode a store moves the reading end
 * as well. So put every call between the lock and the unlock of one KIVCS2Mutex.
 */
#ifndef KIVCS2_RING_BUFFER_H
#define KIVCS2_RING_BUFFER_H

#include "KIVCS2Base.h"

KIVCS2_BEGIN_DECLS

/** What becomes of a store that does not fit; any value without a name is as overwriting. */
typedef uint32_t KIVCS2RingBufferOpMode;
enum
{
    KIVCS2RingBufferOpMode_Overwrite = 0, /**< the oldest bytes go, and `dataLost` is set */
    KIVCS2RingBufferOpMode_Reject = 1     /**< the store is refused and nothing changes */
};

/** A ring. Empty and full both have `head` at `tail`: `circulating` tells them apart. */
typedef struct KIVCS2RingBuffer
{
    uint8_t *buffer;               /**< the storage */
    uint8_t *buffer_end;           /**< one past its last byte */
    uint32_t capacity;             /**< bytes of storage */
    uint8_t *head;                 /**< the oldest byte that was not fetched */
    uint8_t *tail;                 /**< where the next stored byte goes */
    uint8_t circulatedAtLeastOnce; /**< 1 from the first time `tail` came round; never cleared */
    uint8_t circulating;           /**< 1 while `tail` is one lap ahead of `head` */
    uint8_t dataLost;              /**< 1 once bytes were overwritten that nobody had fetched */
    KIVCS2RingBufferOpMode opMode; /**< as it was set */
} KIVCS2RingBuffer;

/**
 * Allocates a ring of `size` bytes, empty and in overwrite mode, whatever the record held before.
 * @param[in] size  bytes, at least 2; all of them can be filled
 * @retval KIVCS2STATUS_PARAM_ERR   `rb` is null, or `size` is below 2; the record is unchanged
 * @retval KIVCS2STATUS_MEMORY_ERR  no storage; the record is unchanged
 * Thread safety: the owner alone.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_init(KIVCS2RingBuffer *rb, uint32_t size);

/**
 * Frees the storage, if there is any, and leaves every member as it was: not to be called twice.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: the owner alone.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_dispose(KIVCS2RingBuffer *rb);

/**
 * Stores `size` bytes behind the newest: all of them or, on a failure, none. At most two copies.
 * @param[in] data  `size` bytes outside of the ring, copied
 * @retval KIVCS2STATUS_PARAM_ERR     `rb` or `data` is null, or `size` is above the capacity
 * @retval KIVCS2STATUS_OVERFLOW_ERR  fewer than `size` bytes are free, in reject mode; nothing has changed
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_store(KIVCS2RingBuffer *rb, const void *data, uint32_t size);

/**
 * Stores as kivCS2RingBuffer_store() does, again and again as long as the answer is
 * KIVCS2STATUS_OVERFLOW_ERR, and returns the first other status. It never gives up, so it counts on room
 * being made while it runs, by what is no part of this call: without that it does not return. Holding a
 * lock that the consumer takes too, it would wait for ever; a loop of lock, store, unlock and a wait is
 * the way for threads.
 * @param[in] microseconds  slept between two attempts; 0 spins
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` or `data` is null, or `size` is above the capacity
 * Thread safety: none. A fetch by another thread in the meantime is the race told above.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_storeKeepTrying(KIVCS2RingBuffer *rb, const void *data,
                                                         uint32_t size, uint32_t microseconds);

/**
 * Takes the oldest `size` bytes out: all of them or none. At most two copies.
 * @param[out] outData  room for `size` bytes outside of the ring
 * @retval KIVCS2STATUS_PARAM_ERR    `rb` or `outData` is null, or `size` is above the capacity
 * @retval KIVCS2STATUS_NO_DATA_ERR  there are fewer; nothing has changed
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_fetch(KIVCS2RingBuffer *rb, void *outData, uint32_t size);

/**
 * Copies `size` bytes that begin `offset` bytes behind the oldest, and takes nothing out. Until `tail`
 * comes round for the first time, the oldest byte is the first that was not fetched. From then on it is
 * the oldest of the last `capacity` bytes written, whatever has been fetched.
 * @param[out] outData  room for `size` bytes outside of the ring
 * @retval KIVCS2STATUS_PARAM_ERR    `rb` or `outData` is null, or `size` and `offset` together are above
 *                                   the capacity, also where their sum does not fit 32 bits
 * @retval KIVCS2STATUS_NO_DATA_ERR  `tail` never came round and there are fewer bytes
 * Thread safety: under the host's lock; together with other readers that take nothing.
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
 * Clears `dataLost`; nothing else does.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_resetDataLostIndicator(KIVCS2RingBuffer *rb);

/**
 * Sets what becomes of stores that do not fit, from the next one on.
 * @param[in] mode  KIVCS2RingBufferOpMode; kept as it is given
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_setOperationMode(KIVCS2RingBuffer *rb, KIVCS2RingBufferOpMode mode);

/**
 * Writes the members but the storage's start to the log, as one message.
 * @retval KIVCS2STATUS_PARAM_ERR  `rb` is null
 * Thread safety: under the host's lock.
 */
KIVCS2_API KIVCS2Status kivCS2RingBuffer_print(const KIVCS2RingBuffer *rb);

KIVCS2_END_DECLS

#endif
