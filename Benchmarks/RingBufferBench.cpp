// Ring buffers: one store and one fetch of the same size, compared with Boost's rings and with memcpy.
#include <KIVCoreServices2/KIVCS2RingBuffer.h>

#include <benchmark/benchmark.h>

#ifdef KIV_PEER_BOOST
#include <boost/circular_buffer.hpp>
#include <boost/lockfree/spsc_queue.hpp>
#endif

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

namespace
{
// A ring of a megabyte, as between capture and disk; with source and destination it fits into the second-
// level cache.
constexpr uint32_t kCapacity = 1u << 20;

class Ours
{
public:
    Ours()
    {
        if (KIVCS2_FAILED(kivCS2RingBuffer_init(&m_ring, kCapacity)))
            std::abort();
    }
    ~Ours()
    {
        (void)kivCS2RingBuffer_dispose(&m_ring);
    }
    Ours(const Ours &) = delete;
    Ours &operator=(const Ours &) = delete;

    void pass(const uint8_t *from, uint8_t *to, size_t size)
    {
        benchmark::DoNotOptimize(kivCS2RingBuffer_store(&m_ring, from, static_cast<uint32_t>(size)));
        benchmark::DoNotOptimize(kivCS2RingBuffer_fetch(&m_ring, to, static_cast<uint32_t>(size)));
    }

    KIVCS2RingBuffer m_ring{};
};

// Only copies the bytes.
class Memcpy
{
public:
    void pass(const uint8_t *from, uint8_t *to, size_t size)
    {
        if (kCapacity - m_at < size)
            m_at = 0;
        std::memcpy(m_storage.data() + m_at, from, size);
        benchmark::ClobberMemory();
        std::memcpy(to, m_storage.data() + m_at, size);
        m_at += size;
    }

private:
    std::vector<uint8_t> m_storage = std::vector<uint8_t>(kCapacity);
    size_t m_at = 0;
};

#ifdef KIV_PEER_BOOST
class BoostSpsc
{
public:
    void pass(const uint8_t *from, uint8_t *to, size_t size)
    {
        benchmark::DoNotOptimize(m_queue.push(from, size));
        benchmark::DoNotOptimize(m_queue.pop(to, size));
    }

private:
    boost::lockfree::spsc_queue<uint8_t> m_queue{kCapacity};
};

class BoostCircular
{
public:
    void pass(const uint8_t *from, uint8_t *to, size_t size)
    {
        m_ring.insert(m_ring.end(), from, from + size);
        const auto first = m_ring.array_one(); // iterators would copy byte by byte
        const size_t ahead = std::min(size, first.second);
        std::memcpy(to, first.first, ahead);
        if (ahead < size)
            std::memcpy(to + ahead, m_ring.array_two().first, size - ahead);
        m_ring.erase_begin(size);
    }

private:
    boost::circular_buffer<uint8_t> m_ring{kCapacity};
};
#endif

template <class Ring>
void storeFetch(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range(0));
    std::vector<uint8_t> from(size);
    std::vector<uint8_t> to(size);
    std::iota(from.begin(), from.end(), uint8_t{1});
    Ring ring;
    for (uint32_t passed = 0; passed < 3 * kCapacity; passed += static_cast<uint32_t>(size))
    {
        std::rotate(from.begin(), from.begin() + 1, from.end());
        ring.pass(from.data(), to.data(), size);
        if (from != to)
        {
            std::fputs("a ring gave back something else\n", stderr);
            std::exit(1);
        }
    }
    for (auto _ : state)
    {
        ring.pass(from.data(), to.data(), size);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(size) * static_cast<int64_t>(state.iterations()));
}

template <class Ring>
void add(const char *name)
{
    benchmark::RegisterBenchmark(name, storeFetch<Ring>)->Arg(188)->Arg(4096)->Arg(65536);
}
} // namespace

int main(int argc, char **argv)
{
    add<Ours>("Ring_storeFetch/ours");
    add<Memcpy>("Ring_storeFetch/memcpy");
#ifdef KIV_PEER_BOOST
    add<BoostSpsc>("Ring_storeFetch/boost_spsc");
    add<BoostCircular>("Ring_storeFetch/boost_circular");
#endif
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
