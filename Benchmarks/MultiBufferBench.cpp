// Multi-buffers: allocating and releasing buffers, compared with libavutil's buffer pool; and the time of a
// lookup as the table grows.
#include <KIVCoreServices2/KIVCS2MultiBuffer.h>

#include "Support/ParkedThread.h"

#include <benchmark/benchmark.h>

#ifdef KIV_PEER_AVUTIL
extern "C"
{
#include <libavutil/buffer.h>
}
#endif

#include <cstdint>
#include <cstdlib>
#include <set>
#include <vector>

namespace
{
constexpr uint32_t kSize = 65536; // bytes of a buffer

class Ours
{
public:
    using Buffer = void *;

    explicit Ours(uint32_t count)
    {
        if (KIVCS2_FAILED(kivCS2MultiBuffer_init(&m_record, count, KIVCS2MultiBufferFlags_ThreadSafe)))
            std::abort();
    }
    ~Ours()
    {
        (void)kivCS2MultiBuffer_free(&m_record);
    }
    Ours(const Ours &) = delete;
    Ours &operator=(const Ours &) = delete;

    Buffer allocate()
    {
        void *data = nullptr;
        benchmark::DoNotOptimize(kivCS2MultiBuffer_allocateBuffer(&m_record, kSize, &data));
        return data;
    }
    void release(Buffer buffer)
    {
        benchmark::DoNotOptimize(kivCS2MultiBuffer_releaseBuffer(&m_record, buffer, nullptr));
    }
    static const void *dataOf(Buffer buffer)
    {
        return buffer;
    }

private:
    KIVCS2MultiBuffer m_record{};
};

#ifdef KIV_PEER_AVUTIL
class AVPool
{
public:
    using Buffer = AVBufferRef *;

    explicit AVPool(uint32_t) : m_pool{av_buffer_pool_init(kSize, nullptr)} {}
    ~AVPool()
    {
        av_buffer_pool_uninit(&m_pool);
    }
    AVPool(const AVPool &) = delete;
    AVPool &operator=(const AVPool &) = delete;

    Buffer allocate()
    {
        return av_buffer_pool_get(m_pool);
    }
    static void release(Buffer buffer)
    {
        av_buffer_unref(&buffer);
    }
    static const void *dataOf(Buffer buffer)
    {
        return buffer ? buffer->data : nullptr;
    }

private:
    AVBufferPool *m_pool;
};
#endif

// A pipeline that holds all but one of `count` buffers: each round returns the oldest and takes another.
template <class Pool>
void releaseAndAllocate(benchmark::State &state)
{
    const auto count = static_cast<uint32_t>(state.range(0));
    Pool pool{count};
    std::vector<typename Pool::Buffer> held(count - 1);
    std::set<const void *> seen;
    for (auto &buffer : held)
    {
        buffer = pool.allocate();
        seen.insert(Pool::dataOf(buffer));
    }
    size_t oldest = 0;
    const auto round = [&]
    {
        pool.release(held[oldest]);
        held[oldest] = pool.allocate();
        oldest = oldest + 1 < held.size() ? oldest + 1 : 0;
    };
    for (uint32_t warmUp = 0; warmUp < 2 * count; ++warmUp)
        round();
    std::set<const void *> now;
    for (const auto &buffer : held)
        now.insert(Pool::dataOf(buffer));
    if (seen.size() != held.size() || now.size() != held.size() || now.contains(nullptr))
        state.SkipWithError("a buffer was handed out twice, or not at all");
    for (auto _ : state)
        round();
    for (auto &buffer : held)
        pool.release(buffer);
}
#define KIV_POOL_BENCH(type, name)                                                                           \
    BENCHMARK(releaseAndAllocate<type>)->Name("MultiBuffer/" name)->Arg(4)->Arg(16)->Arg(64)
KIV_POOL_BENCH(Ours, "ours");
#ifdef KIV_PEER_AVUTIL
KIV_POOL_BENCH(AVPool, "avutil");
#endif

// Finds the entry at the end of the table.
void findLast(benchmark::State &state)
{
    const auto count = static_cast<uint32_t>(state.range(0));
    KIVCS2MultiBuffer buffer{};
    if (KIVCS2_FAILED(kivCS2MultiBuffer_init(&buffer, count, KIVCS2MultiBufferFlags_None)))
        std::abort();
    const void *data = buffer.m_buffers[count - 1].m_mem_ptr.m_buffer;
    int32_t index = -1;
    KIVCS2BufferEntry *entry = nullptr;
    for (auto _ : state)
        benchmark::DoNotOptimize(kivCS2MultiBuffer_findEntryByMemPtr(&buffer, data, &index, &entry));
    if (index != static_cast<int32_t>(count) - 1)
        state.SkipWithError("not found");
    state.SetItemsProcessed(state.iterations() * state.range(0));
    (void)kivCS2MultiBuffer_free(&buffer);
}
BENCHMARK(findLast)
    ->Name("MultiBufferFind/ours")
    ->Arg(10)
    ->Arg(100)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000);
} // namespace

int main(int argc, char **argv)
{
    return runBesideParkedThread(argc, argv);
}
