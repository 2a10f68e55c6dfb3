// Mutex, semaphore and clock, compared with the system calls they wrap.
#include <KIVCoreServices2/KIVCS2Base.h>
#include <KIVCoreServices2/KIVCS2Mutex.h>
#include <KIVCoreServices2/KIVCS2Semaphore.h>

#include <mach/mach_time.h>

#include "Support/ParkedThread.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <ctime>

namespace
{
// Hosts keep a mutex in a record on the heap. On the stack it may share a cache line with the return
// addresses of the calls. Then a lock and unlock take 4 ns longer, and this varies between starts.
constexpr size_t kCacheLine = 64;

void mutexOurs(benchmark::State &state)
{
    alignas(kCacheLine) KIVCS2Mutex mutex{};
    if (KIVCS2_FAILED(kivCS2Mutex_init(&mutex, KIVCS2MutexOptions_None)))
        state.SkipWithError("no mutex");
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(kivCS2Mutex_lock(&mutex));
        benchmark::DoNotOptimize(kivCS2Mutex_unlock(&mutex));
    }
    (void)kivCS2Mutex_free(&mutex);
}
BENCHMARK(mutexOurs)->Name("Mutex_lockUnlock/ours");

void mutexPthread(benchmark::State &state)
{
    alignas(kCacheLine) pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(pthread_mutex_lock(&mutex));
        benchmark::DoNotOptimize(pthread_mutex_unlock(&mutex));
    }
    pthread_mutex_destroy(&mutex);
}
BENCHMARK(mutexPthread)->Name("Mutex_lockUnlock/pthread");

// Our calls and the peer's use the same semaphore, so that only the calls differ.
class OwnSemaphore
{
public:
    OwnSemaphore()
    {
        (void)kivCS2Semaphore_init(&m_record, nullptr);
    }
    ~OwnSemaphore()
    {
        (void)kivCS2Semaphore_free(&m_record);
    }
    OwnSemaphore(const OwnSemaphore &) = delete;
    OwnSemaphore &operator=(const OwnSemaphore &) = delete;

    KIVCS2Semaphore m_record{};
};

void semaphoreOurs(benchmark::State &state)
{
    OwnSemaphore semaphore;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(kivCS2Semaphore_signal(&semaphore.m_record));
        benchmark::DoNotOptimize(kivCS2Semaphore_wait(&semaphore.m_record));
    }
}
BENCHMARK(semaphoreOurs)->Name("Semaphore_signalWait/ours");

void semaphorePosix(benchmark::State &state)
{
    OwnSemaphore semaphore;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(sem_post(semaphore.m_record.m_semaphore));
        benchmark::DoNotOptimize(sem_wait(semaphore.m_record.m_semaphore));
    }
}
BENCHMARK(semaphorePosix)->Name("Semaphore_signalWait/posix");

void clockOurs(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(mach_absolute_time());
}
BENCHMARK(clockOurs)->Name("Clock_read/ours");

// Includes the conversion to nanoseconds, a second call that the system's clock does not need.
void nanosecondsOurs(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(kivCS2AbsoluteToNanoseconds(mach_absolute_time()));
}
BENCHMARK(nanosecondsOurs)->Name("Clock_nanoseconds/ours");

void clockPosix(benchmark::State &state)
{
    for (auto _ : state)
    {
        timespec now{};
        benchmark::DoNotOptimize(clock_gettime(CLOCK_MONOTONIC, &now));
        benchmark::DoNotOptimize(now.tv_sec * 1000000000 + now.tv_nsec);
    }
}
BENCHMARK(clockPosix)->Name("Clock_read/posix");
BENCHMARK(clockPosix)->Name("Clock_nanoseconds/posix");
} // namespace

int main(int argc, char **argv)
{
    (void)kivCS2_initWithTaskServer(false);
    return runBesideParkedThread(argc, argv);
}
