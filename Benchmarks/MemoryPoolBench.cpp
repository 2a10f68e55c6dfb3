// Memory pools: taking and returning objects of 64 bytes, compared with Boost's pool and two heaps. Only our
// pool clears returned objects and hands them out in the order of their return, so it cannot have a cache for
// each thread. Its fair peer is Boost's pool, which locks too; the heaps show the cost of fewer promises.
#include <KIVCoreServices2/KIVCS2MemoryPool.h>

#include "Support/ParkedThread.h"

#include <benchmark/benchmark.h>

#ifdef KIV_PEER_BOOST
#include <boost/intrusive/list.hpp>
#include <boost/pool/singleton_pool.hpp>
#endif

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <barrier>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr uint32_t kSize = 64;      // bytes of an object
constexpr uint32_t kObjects = 1024; // in the block
constexpr size_t kInFlight = 256;   // objects in use at a time, in flow()
constexpr double kLong = 0.5; // seconds: whether two threads meet changes from one millisecond to the next

// One pool for all threads of a benchmark.
struct Ours
{
    static void *take()
    {
        void *object = nullptr;
        (void)kivCS2MemoryPool_allocObject(&s_pool, &object);
        return object;
    }
    static void giveBack(void *object)
    {
        (void)kivCS2MemoryPool_freeObject(&s_pool, object);
    }

    inline static KIVCS2MemoryPool s_pool{};
};

#ifdef KIV_PEER_BOOST
struct BoostPool
{
    using Pool = boost::singleton_pool<BoostPool, kSize>;
    static void *take()
    {
        return Pool::malloc();
    }
    static void giveBack(void *object)
    {
        Pool::free(object);
    }
};

// A pool with the same promise, as a host would write it: a free list
// inside the objects, used in order, and zeros.
struct BoostFifo
{
    using Hook = boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::normal_link>>;
    struct Object : Hook
    {
        uint8_t rest[kSize - sizeof(Hook)];
    };
    struct Pool
    {
        Pool()
        {
            for (Object &object : objects)
                free.push_back(object);
        }
        std::vector<Object> objects = std::vector<Object>(kObjects);
        boost::intrusive::list<Object> free;
        std::mutex mutex;
    };
    static void *take()
    {
        const std::lock_guard lock{s_pool.mutex};
        Object &first = s_pool.free.front();
        s_pool.free.pop_front();
        return &first;
    }
    static void giveBack(void *object)
    {
        std::memset(object, 0, kSize);
        const std::lock_guard lock{s_pool.mutex};
        s_pool.free.push_back(*static_cast<Object *>(object));
    }

    inline static Pool s_pool;
};
#endif

struct Heap
{
    static void *take()
    {
        return std::malloc(kSize);
    }
    static void giveBack(void *object)
    {
        std::free(object);
    }
};

#ifdef KIV_PEER_MIMALLOC
// Loaded, not linked, because it would replace malloc in the whole program.
struct Mimalloc
{
    static void *take()
    {
        return s_malloc(kSize);
    }
    static void giveBack(void *object)
    {
        s_free(object);
    }
    static bool load()
    {
        void *library = dlopen(KIV_PEER_MIMALLOC, RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            return false;
        s_malloc = reinterpret_cast<void *(*)(size_t)>(dlsym(library, "mi_malloc"));
        s_free = reinterpret_cast<void (*)(void *)>(dlsym(library, "mi_free"));
        return s_malloc != nullptr && s_free != nullptr;
    }

private:
    inline static void *(*s_malloc)(size_t) = nullptr;
    inline static void (*s_free)(void *) = nullptr;
};
#endif

// Takes two objects and writes to both, as users do; false if they are the same.
template <class Pool>
bool givesDifferentObjects()
{
    void *first = Pool::take();
    void *second = Pool::take();
    const bool different = first != nullptr && second != nullptr && first != second;
    if (different)
    {
        std::memset(first, 1, kSize);
        std::memset(second, 2, kSize);
    }
    Pool::giveBack(first);
    Pool::giveBack(second);
    return different;
}

template <class Pool>
struct TakeAndReturn
{
    void operator()()
    {
        void *object = Pool::take();
        benchmark::DoNotOptimize(object);
        *static_cast<uint8_t *>(object) = 1;
        Pool::giveBack(object);
    }
};

// A queue of objects: each round returns the oldest and takes another.
template <class Pool>
class Flow
{
public:
    Flow() : m_out(kInFlight)
    {
        for (void *&object : m_out)
            object = Pool::take();
    }
    ~Flow()
    {
        for (void *object : m_out)
            Pool::giveBack(object);
    }
    Flow(const Flow &) = delete;
    Flow &operator=(const Flow &) = delete;

    void operator()()
    {
        void *&oldest = m_out[m_rounds++ % kInFlight];
        Pool::giveBack(oldest);
        oldest = Pool::take();
        *static_cast<uint8_t *>(oldest) = 1;
    }

private:
    std::vector<void *> m_out;
    size_t m_rounds = 0;
};

template <class Work>
void alone(benchmark::State &state)
{
    Work work;
    for (auto _ : state)
        work();
}

// The wall time from the first start until both threads are done: one that waits for the other's lock uses no
// processor, and a lock that lets one thread finish first is not faster for that. The threads read the clock
// themselves, because a third would wait for a processor.
template <class Work>
void byTwo(benchmark::State &state)
{
    using Clock = std::chrono::steady_clock;
    constexpr int64_t kRounds = 100'000; // of each thread; some milliseconds
    while (state.KeepRunningBatch(kRounds))
    {
        std::barrier start{2};
        std::array<Clock::time_point, 2> began;
        std::array<Clock::time_point, 2> ended;
        const auto run = [&](size_t index)
        {
            Work work;
            start.arrive_and_wait();
            began[index] = Clock::now();
            for (int64_t round = 0; round < kRounds; ++round)
                work();
            ended[index] = Clock::now();
        };
        std::thread second{run, 1};
        run(0);
        second.join();
        const auto time = std::max(ended[0], ended[1]) - std::min(began[0], began[1]);
        state.SetIterationTime(std::chrono::duration<double>(time).count());
    }
}

template <class Pool>
void registerPeer(const std::string &who)
{
    if (!givesDifferentObjects<Pool>())
    {
        std::fprintf(stderr, "%s hands out an object twice, or none\n", who.c_str());
        std::exit(1);
    }
    const auto add = [&who](const char *operation, void (*run)(benchmark::State &))
    { return benchmark::RegisterBenchmark((operation + who).c_str(), run)->Arg(kSize); };
    add("PoolTakeReturn/", alone<TakeAndReturn<Pool>>);
    add("PoolFlow/", alone<Flow<Pool>>);
    add("PoolTakeReturnTwoThreads/", byTwo<TakeAndReturn<Pool>>)->UseManualTime()->MinTime(kLong);
    add("PoolFlowTwoThreads/", byTwo<Flow<Pool>>)->UseManualTime()->MinTime(kLong);
}
} // namespace

int main(int argc, char **argv)
{
    if (KIVCS2_FAILED(kivCS2MemoryPool_init(&Ours::s_pool, kObjects, kSize, 0, nullptr, nullptr)))
        return 1;
    registerPeer<Ours>("ours");
#ifdef KIV_PEER_BOOST
    registerPeer<BoostPool>("boost_singleton_pool");
    registerPeer<BoostFifo>("boost_intrusive_fifo");
#endif
    registerPeer<Heap>("malloc");
#ifdef KIV_PEER_MIMALLOC
    if (Mimalloc::load())
        registerPeer<Mimalloc>("mimalloc");
#endif
    return runBesideParkedThread(argc, argv);
}
