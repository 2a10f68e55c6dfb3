// Memory pools: objects of one size from one block, in the order in which they were returned.
#include "KIVCS2MemoryPool.h"

#include "Private/Lists/Links.h"
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

// Returns the next object in order, an object from the heap, or null. The caller holds the lock.
[[nodiscard]] void *takeObject(KIVCS2MemoryPool &pool)
{
    if (KIVCS2LinkElem *first = pool.m_objects.m_next; first != nullptr)
    {
        kiv::unlink(first, &pool.m_objects); // clearing its link completes the zeroes
        return first;
    }
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
    auto *storage = static_cast<uint8_t *>(kivCS2ZeroMalloc(bytes));
    if (storage == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    if (const KIVCS2Status status = kivCS2Mutex_init(&pool->m_mutex, KIVCS2MutexOptions_None);
        KIVCS2_FAILED(status))
    {
        std::free(storage);
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
        kivCS2LinkList_appendElem(&pool->m_objects, linkOf(object));
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryPool_free(KIVCS2MemoryPool *pool)
{
    KIV_CHECK(pool);
    KIV_ASSERT(pool->m_externalObjects == 0);
    KIV_ASSERT(pool->m_objects.m_count == pool->m_poolSize);

    // Kept: without assertions the block is released even if objects are still out.
    std::free(pool->m_storage);
    (void)kivCS2Mutex_free(&pool->m_mutex); // not null: cannot fail
    *pool = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemoryPool_allocObject(KIVCS2MemoryPool *pool, void **object)
{
    KIV_CHECK(pool);
    KIV_CHECK(object);

    *object = nullptr; // so that after every status it shows whether there is an object to return
    void *taken = nullptr;
    {
        kiv::MutexLock lock{pool->m_mutex};
        KIV_TRY(lock.status());
        taken = takeObject(*pool);
    }
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

    kiv::MutexLock lock{pool->m_mutex};
    KIV_TRY(lock.status());
    if (isOfBlock(*pool, object))
    {
        kiv::link(linkOf(object), &pool->m_objects, pool->m_objects.m_prev, nullptr);
    }
    else
    {
        std::free(object);
        --pool->m_externalObjects;
    }
    return KIVCS2STATUS_OK;
}
