// Bytes that carry their position go through a ring, from one thread to another under a mutex: none may be
// lost, doubled or moved. The ring refuses bytes that do not fit.
//
//   RingBufferSoak <bytes>
#include <KIVCoreServices2/KIVCS2RingBuffer.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace
{
constexpr uint32_t kCapacity = 1000003; // odd, so that its end comes at every offset within a stamp
constexpr uint32_t kLongest = 65536;
constexpr uint64_t kStamp = sizeof(uint64_t);

// Returns bytes at any position of a stream whose 8-byte words are their own numbers.
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

// Lengths as hosts use them: packets, and sometimes a block.
uint32_t nextLength(std::minstd_rand &random)
{
    return 1 + static_cast<uint32_t>(random() % (random() % 8 == 0 ? kLongest : 300));
}

void require(bool holds, const char *what)
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
    for (uint64_t position = 0; position < total;)
    {
        const auto size = static_cast<uint32_t>(std::min<uint64_t>(nextLength(random), total - position));
        const uint8_t *const bytes = stream.bytes(position, size);
        std::unique_lock lock{theMutex};
        while (kivCS2RingBuffer_store(&theRing, bytes, size) != KIVCS2STATUS_OK)
        {
            lock.unlock();
            std::this_thread::yield();
            lock.lock();
        }
        theWritten += size;
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

        // The oldest bytes in the history of the ring are one capacity back, whether fetched or not.
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
    const uint64_t total = argc == 2 ? std::strtoull(argv[1], nullptr, 10) : 0;
    require(total > 0, "usage: RingBufferSoak <bytes>");
    require(kivCS2RingBuffer_init(&theRing, kCapacity) == KIVCS2STATUS_OK, "no ring");
    (void)kivCS2RingBuffer_setOperationMode(&theRing, KIVCS2RingBufferOpMode_Reject);
    std::thread producer{produce, total};
    consume(total);
    producer.join();
    require(theRing.dataLost == 0 && theWritten == total, "bytes are lost");
    std::printf("%llu bytes, all in order\n", static_cast<unsigned long long>(total));
    return kivCS2RingBuffer_dispose(&theRing) == KIVCS2STATUS_OK ? 0 : 1;
}
