// Shared memory: System V segments with statuses.
#include "KIVCS2SharedMemory.h"

#include "Private/Support/Check.h"

#include <cerrno>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

namespace
{
constexpr int kMode = 0666;                // segments are for every user of the machine
constexpr uint32_t kKeysTried = 10000;     // in one search
constexpr size_t kSmallestSegmentSeen = 8; // bytes; the search does not see smaller ones

[[nodiscard]] key_t systemKey(uint32_t key)
{
    return static_cast<key_t>(key);
}

// Removes the segment if this process made it and no process has ever attached to it. There is no other way
// to distinguish a segment that shmget has just made from one that it found, and no other process knows it.
void removeUnused(int id)
{
    struct shmid_ds segment
    {
    };
    if (shmctl(id, IPC_STAT, &segment) == 0 && segment.shm_cpid == getpid() && segment.shm_lpid == 0)
        (void)shmctl(id, IPC_RMID, nullptr);
}
} // namespace

KIVCS2Status kivCS2SharedMemory_init(KIVCS2SharedMemory *shared, uint32_t key, uint32_t size, bool create)
{
    KIV_CHECK(shared);

    *shared = {};
    shared->m_key = key;
    // Kept: hosts rely on a second creator getting the first one's segment, so there is no IPC_EXCL.
    shared->m_id = shmget(systemKey(key), size, create ? IPC_CREAT | kMode : kMode);
    if (shared->m_id < 0)
    {
        shared->m_error = errno;
        return create ? KIVCS2STATUS_MEMORY_ERR : KIVCS2STATUS_SYSTEM_ERR;
    }

    void *const address = shmat(shared->m_id, nullptr, 0);
    if (address == reinterpret_cast<void *>(-1))
    {
        shared->m_error = errno;
        if (create || systemKey(key) == IPC_PRIVATE)
            removeUnused(shared->m_id);
        return KIVCS2STATUS_DATA_ERR;
    }
    shared->m_address = address;

    if (create)
        std::memset(address, 0, size); // Kept: hosts rely on a cleared segment, even if it existed before.
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SharedMemory_free(KIVCS2SharedMemory *shared)
{
    KIV_CHECK(shared);

    if (shared->m_address != nullptr)
    {
        (void)shmdt(shared->m_address);
        struct shmid_ds segment
        {
        };
        // Another process that detached at the same time may have removed it already.
        if (shmctl(shared->m_id, IPC_STAT, &segment) == 0 && segment.shm_nattch == 0)
            (void)shmctl(shared->m_id, IPC_RMID, nullptr);
    }
    *shared = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SharedMemory_findKey(uint32_t startKey, uint32_t *foundKey)
{
    KIV_CHECK(foundKey);

    for (uint32_t tried = 0; tried < kKeysTried; ++tried)
    {
        const uint32_t key = startKey + tried; // 0 follows the last key
        // Looking up the private key would make a segment, and one that no other process can find.
        if (systemKey(key) == IPC_PRIVATE)
            continue;
        // Kept: hosts rely on every failed look-up meaning a free key, whatever the reason.
        if (shmget(systemKey(key), kSmallestSegmentSeen, kMode) < 0)
        {
            *foundKey = key;
            return KIVCS2STATUS_OK;
        }
    }
    return KIVCS2STATUS_NOT_FOUND_ERR;
}
