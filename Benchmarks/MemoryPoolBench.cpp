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

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace
{
constexpr uint32_t kSize = 64;      // bytes of an object
constexpr uint32_t kObjects = 1024; // in the block
constexpr size_t kInFlight = 256;   // objects in use at a time, in flow()

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
void takeAndReturn(benchmark::State &state)
{
    if (!givesDifferentObjects<Pool>())
        state.SkipWithError("an object was handed out twice, or not at all");
    for (auto _ : state)
    {
        void *object = Pool::take();
        benchmark::DoNotOptimize(object);
        *static_cast<uint8_t *>(object) = 1;
        Pool::giveBack(object);
    }
}

// A queue of objects: each round returns the oldest and takes another.
template <class Pool>
void flow(benchmark::State &state)
{
    if (!givesDifferentObjects<Pool>())
        state.SkipWithError("an object was handed out twice, or not at all");
    std::vector<void *> out(kInFlight);
    for (void *&object : out)
        object = Pool::take();
    size_t oldest = 0;
    for (auto _ : state)
    {
        Pool::giveBack(out[oldest]);
        out[oldest] = Pool::take();
        *static_cast<uint8_t *>(out[oldest]) = 1;
        oldest = (oldest + 1) % kInFlight;
    }
    for (void *object : out)
        Pool::giveBack(object);
}

template <class Pool>
void registerPeer(const std::string &who)
{
    benchmark::RegisterBenchmark(("PoolTakeReturn/" + who).c_str(), takeAndReturn<Pool>)->Arg(kSize);
    benchmark::RegisterBenchmark(("PoolFlow/" + who).c_str(), flow<Pool>)->Arg(kSize);
    // Wall time: a thread that waits for the other's lock uses no processor.
    benchmark::RegisterBenchmark(("PoolTakeReturnTwoThreads/" + who).c_str(), takeAndReturn<Pool>)
        ->Arg(kSize)
        ->Threads(2)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("PoolFlowTwoThreads/" + who).c_str(), flow<Pool>)
        ->Arg(kSize)
        ->Threads(2)
        ->UseRealTime();
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
