// Semaphores: named POSIX semaphores with statuses.
#include "KIVCS2Semaphore.h"

#include "Private/Support/Check.h"

#include <KIVPlatform/KIVPlatform.h>
#include <mach/mach_time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>

static_assert(KIVP_SEMAPHORE_NAME_SIZE == KIVCS2SemaphoreNameMax);

namespace
{
constexpr mode_t kMode = 0666; // less the process's mask, which decides which users share a semaphore

// Held while the system changes its list of open semaphores: thread checkers do not see the system's own
// lock, and semaphores of several workers are opened and closed on several threads.
constinit std::mutex openSemaphores;

// The absolute clock for an automatic name, raised above the last one used: two threads may read the same
// tick, and two records with one name would share one count.
[[nodiscard]] uint64_t nextNameTime()
{
    static constinit std::atomic<uint64_t> s_last{0};
    const uint64_t now = mach_absolute_time();
    uint64_t last = s_last.load(std::memory_order_relaxed);
    uint64_t next = 0;
    do
        next = std::max(now, last + 1);
    while (!s_last.compare_exchange_weak(last, next, std::memory_order_relaxed));
    return next;
}

[[nodiscard]] sem_t *openShared(const char *name)
{
    char systemName[KIVP_SEMAPHORE_NAME_SIZE];
    KIVPSemaphoreName(name, systemName);
    const std::lock_guard lock{openSemaphores};
    return KIVPSemaphoreOpen(systemName, kMode);
}

// No other process knows an automatic name, so an existing semaphore must not be shared: try the next name.
[[nodiscard]] sem_t *makeUnshared(char (&name)[KIVCS2SemaphoreNameMax])
{
    constexpr int kMostTries = 1000;
    char systemName[KIVP_SEMAPHORE_NAME_SIZE];
    const std::lock_guard lock{openSemaphores};
    for (int tried = 0; tried < kMostTries; ++tried)
    {
        (void)std::snprintf(name, sizeof name, "kivCS2%lld", static_cast<long long>(nextNameTime()));
        KIVPSemaphoreName(name, systemName);
        sem_t *const semaphore = sem_open(systemName, O_CREAT | O_EXCL, kMode, 0);
        if (semaphore != SEM_FAILED || errno != EEXIST)
            return semaphore;
    }
    return SEM_FAILED;
}
} // namespace

KIVCS2Status kivCS2Semaphore_init(KIVCS2Semaphore *pSemaphore, const char *name)
{
    KIV_CHECK(pSemaphore);

    *pSemaphore = {};
    sem_t *semaphore = SEM_FAILED;
    if (name != nullptr)
    {
        const size_t length = strnlen(name, sizeof pSemaphore->m_name);
        if (length == sizeof pSemaphore->m_name)
            return KIVCS2STATUS_BUFFER_SIZE_ERR;
        std::memcpy(pSemaphore->m_name, name, length);
        semaphore = openShared(pSemaphore->m_name);
    }
    else
    {
        semaphore = makeUnshared(pSemaphore->m_name);
    }
    if (semaphore == SEM_FAILED)
        return KIVCS2STATUS_SEMAPHORE_ERR;
    pSemaphore->m_semaphore = semaphore;

    // A semaphore that existed may have counts pending; this record still starts at 0.
    return kivCS2Semaphore_drain(pSemaphore);
}

KIVCS2Status kivCS2Semaphore_signal(KIVCS2Semaphore *pSemaphore)
{
    KIV_CHECK(pSemaphore);
    KIV_CHECK(pSemaphore->m_semaphore);

    (void)sem_post(pSemaphore->m_semaphore); // Kept: hosts rely on success, also at the count's limit.
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Semaphore_wait(KIVCS2Semaphore *pSemaphore)
{
    KIV_CHECK(pSemaphore);
    KIV_CHECK(pSemaphore->m_semaphore);

    (void)sem_wait(pSemaphore->m_semaphore); // Kept: hosts rely on a delivered signal ending the wait.
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Semaphore_testWait(KIVCS2Semaphore *pSemaphore)
{
    KIV_CHECK(pSemaphore);
    KIV_CHECK(pSemaphore->m_semaphore);

    return sem_trywait(pSemaphore->m_semaphore) == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_SEMAPHORE_BUSY_ERR;
}

KIVCS2Status kivCS2Semaphore_drain(KIVCS2Semaphore *pSemaphore)
{
    KIV_CHECK(pSemaphore);
    KIV_CHECK(pSemaphore->m_semaphore);

    while (KIVCS2_SUCCEEDED(kivCS2Semaphore_testWait(pSemaphore)))
    {
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Semaphore_free(KIVCS2Semaphore *pSemaphore)
{
    KIV_CHECK(pSemaphore);
    KIV_CHECK(pSemaphore->m_semaphore);

    {
        const std::lock_guard lock{openSemaphores};
        (void)sem_close(pSemaphore->m_semaphore);
    }
    char systemName[KIVP_SEMAPHORE_NAME_SIZE];
    KIVPSemaphoreName(pSemaphore->m_name, systemName);
    (void)sem_unlink(systemName); // Another user of the name may have removed it first.
    *pSemaphore = {};
    return KIVCS2STATUS_OK;
}
