// Ring buffers: bytes between a producer and a consumer, or the history of a stream.
#include "KIVCS2RingBuffer.h"

#include "Private/Support/Check.h"
#include "Private/Support/Copy.h"
#include "Private/Support/Log.h"
#include "Private/Support/Unguarded.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>

namespace
{
constexpr uint32_t kSmallestSize = 2;

[[nodiscard]] uint32_t distance(const uint8_t *from, const uint8_t *to)
{
    return static_cast<uint32_t>(to - from); // never above the capacity
}

[[nodiscard]] uint32_t freeBytes(const KIVCS2RingBuffer &rb)
{
    if (rb.circulating != 0)
        return distance(rb.tail, rb.head);
    return distance(rb.buffer, rb.head) + distance(rb.tail, rb.buffer_end);
}

[[nodiscard]] uint32_t fetchableBytes(const KIVCS2RingBuffer &rb)
{
    return rb.capacity - freeBytes(rb);
}

// Updates the head after a store: the ring had `free` bytes free and received `size`.
inline void settleHead(KIVCS2RingBuffer &rb, uint32_t free, uint32_t size)
{
    if (size < free)
        return;
    rb.head = rb.tail; // full: the oldest byte is the one after the newest
    if (size > free)
        rb.dataLost = 1;
}

// A store that is long or reaches the end of the storage. It is a function of its own, so that short stores
// need not save registers.
[[gnu::noinline]] void storeAround(KIVCS2RingBuffer &rb, const void *data, uint32_t size, uint32_t free)
{
    const uint32_t room = distance(rb.tail, rb.buffer_end);
    if (size < room)
    {
        kiv::copyBytes(rb.tail, data, size);
        rb.tail += size;
    }
    else
    {
        kiv::copyBytes(rb.tail, data, room);
        kiv::copyBytes(rb.buffer, static_cast<const uint8_t *>(data) + room, size - room);
        rb.tail = rb.buffer + (size - room);
        rb.circulating = 1;
        rb.circulatedAtLeastOnce = 1;
    }
    settleHead(rb, free, size);
}

// Copies out of the storage from `position` on and continues at its start.
void copyOut(const KIVCS2RingBuffer &rb, const uint8_t *position, void *outData, uint32_t size)
{
    const uint32_t ahead = std::min(size, distance(position, rb.buffer_end));
    kiv::copyBytes(outData, position, ahead);
    kiv::copyBytes(static_cast<uint8_t *>(outData) + ahead, rb.buffer, size - ahead);
}

// A fetch that is long or reaches the end of the storage.
[[gnu::noinline]] void fetchAround(KIVCS2RingBuffer &rb, void *outData, uint32_t size)
{
    const uint32_t ahead = distance(rb.head, rb.buffer_end);
    copyOut(rb, rb.head, outData, size);
    if (size < ahead)
    {
        rb.head += size;
        return;
    }
    rb.head = rb.buffer + (size - ahead);
    rb.circulating = 0; // Kept: hosts rely on circulatedAtLeastOnce, which stays for the ring's life.
}

void sleepFor(uint32_t microseconds)
{
    constexpr uint32_t kPerSecond = 1000000;
    timespec time{};
    time.tv_sec = static_cast<time_t>(microseconds / kPerSecond);
    time.tv_nsec = static_cast<long>(microseconds % kPerSecond) * 1000;
    (void)nanosleep(&time, nullptr); // a signal only makes the next attempt earlier
}
} // namespace

KIVCS2Status kivCS2RingBuffer_init(KIVCS2RingBuffer *rb, uint32_t size)
{
    KIV_CHECK(rb);

    if (size < kSmallestSize)
        return KIVCS2STATUS_PARAM_ERR;
    auto *storage = static_cast<uint8_t *>(kivCS2ZeroMalloc(size));
    if (storage == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;

    *rb = {};
    rb->buffer = storage;
    rb->buffer_end = storage + size;
    rb->capacity = size;
    rb->head = storage;
    rb->tail = storage;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_dispose(KIVCS2RingBuffer *rb)
{
    KIV_CHECK(rb);

    std::free(rb->buffer); // Kept: hosts rely on unchanged members, including the storage's address.
    return KIVCS2STATUS_OK;
}

KIV_UNGUARDED KIVCS2Status kivCS2RingBuffer_store(KIVCS2RingBuffer *rb, const void *data, uint32_t size)
{
    KIV_CHECK(rb);
    KIV_CHECK(data);

    if (size > rb->capacity)
        return KIVCS2STATUS_PARAM_ERR;
    const uint32_t free = freeBytes(*rb);
    if (free < size && rb->opMode == KIVCS2RingBufferOpMode_Reject)
        return KIVCS2STATUS_OVERFLOW_ERR;

    if (size <= kiv::kShortCopy && size < distance(rb->tail, rb->buffer_end)) [[likely]]
    {
        kiv::copyShort(rb->tail, data, size);
        rb->tail += size;
        settleHead(*rb, free, size);
    }
    else
        storeAround(*rb, data, size, free);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_storeKeepTrying(KIVCS2RingBuffer *rb, const void *data, uint32_t size,
                                              uint32_t microseconds)
{
    KIV_CHECK(rb);
    KIV_CHECK(data);

    for (;;) // Kept: hosts rely on a store that never gives up.
    {
        const KIVCS2Status status = kivCS2RingBuffer_store(rb, data, size);
        if (status != KIVCS2STATUS_OVERFLOW_ERR)
            return status;
        if (microseconds > 0)
            sleepFor(microseconds);
        // Another thread makes room, which the compiler cannot see: make it read the record again.
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

KIV_UNGUARDED KIVCS2Status kivCS2RingBuffer_fetch(KIVCS2RingBuffer *rb, void *outData, uint32_t size)
{
    KIV_CHECK(rb);
    KIV_CHECK(outData);

    if (size > rb->capacity)
        return KIVCS2STATUS_PARAM_ERR;
    if (fetchableBytes(*rb) < size)
        return KIVCS2STATUS_NO_DATA_ERR;

    if (size <= kiv::kShortCopy && size < distance(rb->head, rb->buffer_end)) [[likely]]
    {
        kiv::copyShort(outData, rb->head, size);
        rb->head += size;
    }
    else
        fetchAround(*rb, outData, size);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_readDataAtOffset(const KIVCS2RingBuffer *rb, void *outData, uint32_t size,
                                               uint32_t offset)
{
    KIV_CHECK(rb);
    KIV_CHECK(outData);

    const uint64_t end = uint64_t{size} + offset; // in 32 bits the sum could wrap and pass the check
    if (end > rb->capacity)
        return KIVCS2STATUS_PARAM_ERR;

    // Kept: after the ring was full once, hosts rely on a history that includes the bytes already fetched.
    const uint8_t *position = rb->tail;
    if (rb->circulatedAtLeastOnce == 0)
    {
        position = rb->head;
        if (distance(rb->head, rb->tail) < end)
            return KIVCS2STATUS_NO_DATA_ERR;
    }
    const uint32_t ahead = distance(position, rb->buffer_end);
    position = offset < ahead ? position + offset : rb->buffer + (offset - ahead);
    copyOut(*rb, position, outData, size);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_readOldestData(const KIVCS2RingBuffer *rb, void *outData, uint32_t size)
{
    KIV_CHECK(rb);
    KIV_CHECK(outData);

    return kivCS2RingBuffer_readDataAtOffset(rb, outData, size, 0);
}

KIVCS2Status kivCS2RingBuffer_getFreeBytesAvailable(const KIVCS2RingBuffer *rb, uint32_t *outBytes)
{
    KIV_CHECK(rb);
    KIV_CHECK(outBytes);

    *outBytes = freeBytes(*rb);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_getFetchBytesAvailable(const KIVCS2RingBuffer *rb, uint32_t *outBytes)
{
    KIV_CHECK(rb);
    KIV_CHECK(outBytes);

    *outBytes = fetchableBytes(*rb);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_getUtilization(const KIVCS2RingBuffer *rb, float *outUtilization)
{
    KIV_CHECK(rb);
    KIV_CHECK(outUtilization);

    *outUtilization = static_cast<float>(fetchableBytes(*rb)) / static_cast<float>(rb->capacity);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_resetDataLostIndicator(KIVCS2RingBuffer *rb)
{
    KIV_CHECK(rb);

    rb->dataLost = 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_setOperationMode(KIVCS2RingBuffer *rb, KIVCS2RingBufferOpMode mode)
{
    KIV_CHECK(rb);

    rb->opMode = mode; // Kept: hosts rely on any value but 1 overwriting.
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2RingBuffer_print(const KIVCS2RingBuffer *rb)
{
    KIV_CHECK(rb);

    KIV_LOG("\n===\nbuffer_end[%p]\ncapacity[%i]\nhead[%p]\ntail[%p]\ncirculatedAtLeastOnce[%d]\n"
            "circulating[%d]\ndataLost[%d]\nopMode[%u]\n",
            static_cast<void *>(rb->buffer_end), rb->capacity, static_cast<void *>(rb->head),
            static_cast<void *>(rb->tail), rb->circulatedAtLeastOnce, rb->circulating, rb->dataLost,
            rb->opMode);
    return KIVCS2STATUS_OK;
}
