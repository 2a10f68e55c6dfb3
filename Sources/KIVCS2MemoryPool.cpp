// Memory pools: objects of one size from one block, in the order in which they were returned.
#include "KIVCS2MemoryPool.h"

#include "Private/Support/Check.h"
#include "Private/Support/HeapLimit.h"
#include "Private/Support/MutexLock.h"

#include <cstdlib>
#include <cstring>

namespace
{
// Pointers to objects of different arrays can only be compared as numbers.
bool isOfBlock(const KIVCS2MemoryPool &pool, const void *object)
{
    const auto address = reinterpret_cast<uintptr_t>(object);
    return address >= reinterpret_cast<uintptr_t>(pool.m_storage) &&
           address < reinterpret_cast<uintptr_t>(pool.m_storageEnd);
}

// A free object begins with its link.
KIVCS2LinkElem *linkOf(void *object)
{
    return static_cast<KIVCS2LinkElem *>(object);
}

// As memset, but without a call for the sizes of most pools: the call would be a tenth of the total time.
void clear(void *object, size_t size)
{
    constexpr size_t kHalf = 32;
    auto *bytes = static_cast<uint8_t *>(object);
    if (size < kHalf || size > 2 * kHalf)
    {
        std::memset(bytes, 0, size);
        return;
    }
    std::memset(bytes, 0, kHalf); // two halves that may overlap, each of constant size
    std::memset(bytes + size - kHalf, 0, kHalf);
}

// Zero-filled, or null. Objects of a multiple of 64 bytes share no cache line, so threads do not slow one
// another down by using neighbours. The address of the allocation stands in front of the block.
uint8_t *makeBlock(uint64_t size)
{
    constexpr size_t kLine = 64;
    auto *const made = static_cast<uint8_t *>(kivCS2ZeroMalloc(size + kLine + sizeof(void *)));
    if (made == nullptr)
        return nullptr;
    uint8_t *const block =
        made + kLine + sizeof made - (reinterpret_cast<uintptr_t>(made) + sizeof made) % kLine;
    std::memcpy(block - sizeof made, &made, sizeof made);
    return block;
}

void freeBlock(uint8_t *block)
{
    if (block == nullptr)
        return;
    void *made = nullptr;
    std::memcpy(&made, block - sizeof made, sizeof made);
    std::free(made);
}

// Takes the first free object out of the list, or returns null. The caller holds the lock, and clears the
// object's link after the unlock: under the lock changes only what others can see.
[[nodiscard]] KIVCS2LinkElem *takeFirst(KIVCS2LinkList &free)
{
    KIVCS2LinkElem *const first = free.m_next;
    if (first == nullptr)
        return nullptr;
    KIVCS2LinkElem *const second = first->m_next;
    free.m_next = second;
    if (second != nullptr)
    {
        second->m_prev = nullptr;
        __builtin_prefetch(second->m_next, 1); // it was used longest ago, and the next call writes to it
    }
    else
    {
        free.m_prev = nullptr;
    }
    --free.m_count;
    return first;
}

// Appends an object whose link is clear. The caller holds the lock.
void append(KIVCS2LinkElem *object, KIVCS2LinkList &free)
{
    KIVCS2LinkElem *const last = free.m_prev;
    object->m_prev = last;
    object->m_list = &free;
    (last != nullptr ? last->m_next : free.m_next) = object;
    free.m_prev = object;
    ++free.m_count;
}

// Returns an object from the heap, or null. The caller holds the lock.
[[nodiscard]] void *takeFromHeap(KIVCS2MemoryPool &pool)
{
    void *object = pool.m_allowExternal != 0 ? std::malloc(pool.m_objectSize) : nullptr;
    if (object != nullptr)
        ++pool.m_externalObjects;
    return object;
}
} // namespace

KIVCS2Status kivCS2MemoryPool_init(KIVCS2MemoryPool *pool, uint32_t poolSize, uint32_t objectSize,
                                   uint32_t allowExternal, KIVCS2MemoryPoolAllocFunc allocFunc,
                                   KIVCS2MemoryPoolFreeFunc freeFunc)
{
    KIV_CHECK(pool);
    KIV_CHECK(poolSize > 0);
    KIV_CHECK(objectSize > 0);

    *pool = {};
    // Every object is written to below: memory that the kernel grants but cannot back would end the process.
    const uint64_t bytes = uint64_t{poolSize} * objectSize;
    if (!kiv::fitsMemory(bytes))
        return KIVCS2STATUS_MEMORY_ERR;
    uint8_t *storage = makeBlock(bytes);
    if (storage == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    if (const KIVCS2Status status = kivCS2Mutex_init(&pool->m_mutex, KIVCS2MutexOptions_None);
        KIVCS2_FAILED(status))
    {
        freeBlock(storage);
        return status;
    }

    pool->m_storage = storage;
    pool->m_storageEnd = storage + bytes;
    pool->m_poolSize = poolSize;
    pool->m_objectSize = objectSize;
    pool->m_allowExternal = allowExternal;
    pool->m_allocFunc = allocFunc;
    pool->m_freeFunc = freeFunc;
    for (uint8_t *object = storage; object != pool->m_storageEnd; object += objectSize)
        append(linkOf(object), pool->m_objects);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryPool_free(KIVCS2MemoryPool *pool)
{
    KIV_CHECK(pool);
    KIV_ASSERT(pool->m_externalObjects == 0);
    KIV_ASSERT(pool->m_objects.m_count == pool->m_poolSize);

    // Kept: without assertions the block is released even if objects are still out.
    freeBlock(pool->m_storage);
    (void)kivCS2Mutex_free(&pool->m_mutex); // not null: cannot fail
    *pool = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryPool_allocObject(KIVCS2MemoryPool *pool, void **object)
{
    KIV_CHECK(pool);
    KIV_CHECK(object);

    *object = nullptr; // so that after every status it shows whether there is an object to return
    KIVCS2LinkElem *first = nullptr;
    void *taken = nullptr;
    {
        const kiv::BriefMutexLock lock{pool->m_mutex};
        KIV_TRY(lock.status());
        first = takeFirst(pool->m_objects);
        taken = first != nullptr ? first : takeFromHeap(*pool);
    }
    if (first != nullptr)
        *first = {}; // completes the zeros
    if (taken == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    *object = taken;
    // Kept: the object is handed out even if the callback fails.
    return pool->m_allocFunc != nullptr ? pool->m_allocFunc(taken) : KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryPool_freeObject(KIVCS2MemoryPool *pool, void *object)
{
    KIV_CHECK(pool);
    KIV_CHECK(object);

    if (pool->m_freeFunc != nullptr)
        pool->m_freeFunc(object);
    clear(object, pool->m_objectSize);

    const kiv::BriefMutexLock lock{pool->m_mutex};
    KIV_TRY(lock.status());
    if (isOfBlock(*pool, object))
    {
        append(linkOf(object), pool->m_objects);
    }
    else
    {
        std::free(object);
        --pool->m_externalObjects;
    }
    return KIVCS2STATUS_OK;
}
