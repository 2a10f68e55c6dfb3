#include "Private/Support/MutexLock.h"

#include <chrono>

namespace kiv
{
namespace
{
using Clock = std::chrono::steady_clock;

// Each try takes the mutex's cache line from its holder, so the pauses grow: the holder does some forty
// operations in the first one. All six are 126 us, because a thread that sleeps costs the holder a call to
// wake it; a holder that keeps the mutex for longer sleeps itself.
constexpr auto kFirstPause = std::chrono::microseconds{2};
constexpr auto kLastPause = std::chrono::microseconds{64};

// Tells the processor that this thread only waits.
void relax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}
} // namespace

KIVCS2Status BriefMutexLock::lockPatiently(KIVCS2Mutex &mutex)
{
    for (auto pause = kFirstPause; mutex.m_valid != 0 && pause <= kLastPause; pause *= 2)
    {
        if (pthread_mutex_trylock(&mutex.m_mutex) == 0)
            return KIVCS2STATUS_OK;
        const auto end = Clock::now() + pause;
        while (Clock::now() < end)
            relax();
    }
    return lock(mutex);
}
} // namespace kiv
