// Bytes that carry their position through a ring, from one thread to another under a mutex: nothing may be
// lost, come twice or change places. The ring refuses what does not fit.
//
//   RingBufferSoak <bytes>
#include <KIVCoreServices2/KIVCS2RingBuffer.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace
{
constexpr uint32_t kCapacity = 1000003; // odd, so that its end comes at every offset within a stamp
constexpr uint32_t kLongest = 65536;
constexpr uint64_t kStamp = sizeof(uint64_t);

// The bytes from any position on of a stream whose 8-byte words are their own numbers.
class Stream
{
public:
    const uint8_t *bytes(uint64_t position, uint32_t size)
    {
        const uint64_t first = position / kStamp;
        const uint64_t last = (position + size) / kStamp;
        for (uint64_t word = first; word <= last; ++word)
            m_words[word - first] = word;
        return reinterpret_cast<const uint8_t *>(m_words.data()) + position % kStamp;
    }

private:
    std::vector<uint64_t> m_words = std::vector<uint64_t>(kLongest / kStamp + 2);
};

// Lengths as hosts use them: packets, and now and then a block.
uint32_t nextLength(std::minstd_rand &random)
{
    return static_cast<uint32_t>(1 + random() % (random() % 8 == 0 ? kLongest : 300));
}

struct Soak
{
    if (holds)
        return;
    std::fprintf(stderr, "soak: %s\n", what);
    std::exit(1);
}

std::mutex theMutex;
KIVCS2RingBuffer theRing; // under the mutex
uint64_t theWritten = 0;  // under the mutex

void produce(uint64_t total)
{
    Stream stream;
    std::minstd_rand random{1};
    for (uint64_t position = 0; position < soak.total;)
    {
        const auto size =
            static_cast<uint32_t>(std::min<uint64_t>(nextLength(random), soak.total - position));
        const uint8_t *const bytes = stream.bytes(position, size);
        std::unique_lock lock{theMutex};
        while (kivCS2RingBuffer_store(&theRing, bytes, size) != KIVCS2STATUS_OK)
        {
            {
                const Locked lock{soak};
                if (soak.failed)
                    return nullptr;
                stored = kivCS2RingBuffer_store(&soak.ring, bytes, size) == KIVCS2STATUS_OK;
                soak.written += stored ? size : 0;
            }
            if (!stored)
            {
                ++soak.refused;
                std::this_thread::yield();
            }
        }
        position += size;
    }
    return nullptr;
}

[[nodiscard]] bool sameAsStream(Stream &stream, const uint8_t *bytes, uint64_t position, uint32_t size)
{
    if (std::memcmp(bytes, stream.bytes(position, size), size) == 0)
        return true;
    std::fprintf(stderr, "soak: not in order from byte %llu on\n", static_cast<unsigned long long>(position));
    return false;
}

// The oldest bytes of the ring's history are those of one capacity ago, whatever has been fetched.
[[nodiscard]] bool lookBack(Soak &soak, Stream &stream, uint8_t *room, uint32_t size)
{
    uint64_t written = 0;
    {
        const Locked lock{soak};
        written = soak.written;
        if (written < kCapacity)
            return true;
        require(kivCS2RingBuffer_readOldestData(&soak.ring, room, size), "looking back");
    }
    ++soak.lookedBack;
    return sameAsStream(stream, room, written - kCapacity, size);
}

void *consume(void *argument)
{
    Soak &soak = *static_cast<Soak *>(argument);
    Stream stream;
    std::minstd_rand random{2};
    const auto room = std::make_unique<uint8_t[]>(kLongest);
    bool good = true;
    for (uint64_t position = 0, fetches = 0; position < soak.total && good; ++fetches)
    {
        uint32_t size = nextLength(random);
        {
            const Locked lock{soak};
            uint32_t available = 0;
            require(kivCS2RingBuffer_getFetchBytesAvailable(&soak.ring, &available), "asking");
            size = std::min(size, available);
            require(kivCS2RingBuffer_fetch(&soak.ring, room.get(), size), "fetching");
        }
        if (size == 0)
        {
            ++soak.tooEarly;
            std::this_thread::yield();
            lock.lock();
        }
        good = sameAsStream(stream, room.get(), position, size);
        if (good && fetches % 1024 == 0)
            good = lookBack(soak, stream, room.get(), nextLength(random));
        position += size;
    }
}

void consume(uint64_t total)
{
    Stream stream;
    std::minstd_rand random{2};
    std::vector<uint8_t> room(kLongest);
    uint64_t position = 0;
    for (uint64_t fetches = 0; position < total; ++fetches)
    {
        uint32_t size = nextLength(random);
        uint32_t available = 0;
        std::unique_lock lock{theMutex};
        require(kivCS2RingBuffer_getFetchBytesAvailable(&theRing, &available) == KIVCS2STATUS_OK, "asking");
        size = std::min(size, available);
        require(kivCS2RingBuffer_fetch(&theRing, room.data(), size) == KIVCS2STATUS_OK, "fetching");
        lock.unlock();
        if (size == 0)
            std::this_thread::yield();
        require(std::memcmp(room.data(), stream.bytes(position, size), size) == 0, "other bytes are fetched");
        position += size;

        // The oldest bytes of the ring's history are those of one capacity ago, whatever has been fetched.
        lock.lock();
        if (fetches % 1024 != 0 || theWritten < kCapacity)
            continue;
        const uint64_t oldest = theWritten - kCapacity;
        require(kivCS2RingBuffer_readOldestData(&theRing, room.data(), size) == KIVCS2STATUS_OK,
                "looking back");
        require(std::memcmp(room.data(), stream.bytes(oldest, size), size) == 0,
                "the history has other bytes");
    }
}
} // namespace

int main(int argc, char **argv)
{
    Soak soak;
    soak.total = argc == 2 ? std::strtoull(argv[1], nullptr, 10) : 0;
    if (soak.total == 0)
    {
        std::fputs("usage: RingBufferSoak <bytes>\n", stderr);
        return 2;
    }
    require(kivCS2Mutex_init(&soak.mutex, KIVCS2MutexOptions_None), "mutex");
    require(kivCS2RingBuffer_init(&soak.ring, kCapacity), "ring");
    require(kivCS2RingBuffer_setOperationMode(&soak.ring, KIVCS2RingBufferOpMode_Reject), "mode");

    const auto start = std::chrono::steady_clock::now();
    KIVCS2Thread producer;
    KIVCS2Thread consumer;
    require(kivCS2Thread_init(&producer, &soak, produce), "producer");
    require(kivCS2Thread_init(&consumer, &soak, consume), "consumer");
    for (KIVCS2Thread *thread : {&producer, &consumer})
    {
        require(kivCS2Thread_join(thread), "joining");
        require(kivCS2Thread_free(thread), "freeing");
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;

    uint32_t left = ~0u;
    require(kivCS2RingBuffer_getFetchBytesAvailable(&soak.ring, &left), "asking");
    const bool good = !soak.failed && left == 0 && soak.ring.dataLost == 0 && soak.written == soak.total;
    std::printf("%llu bytes in %.1f s: %s; %llu stores refused, %llu fetches too early, %llu looks back\n",
                static_cast<unsigned long long>(soak.total), seconds.count(),
                good ? "all in order" : "FAILED", static_cast<unsigned long long>(soak.refused),
                static_cast<unsigned long long>(soak.tooEarly),
                static_cast<unsigned long long>(soak.lookedBack));
    require(kivCS2RingBuffer_dispose(&soak.ring), "dispose");
    require(kivCS2Mutex_free(&soak.mutex), "free");
    return good ? 0 : 1;
}
