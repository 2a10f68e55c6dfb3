// Bytes that carry their position through a ring, from one thread to another under a mutex: nothing may be
// lost, come twice or change places. The ring refuses what does not fit.
//
//   RingBufferSoak <bytes>
#include <KIVCoreServices2/KIVCS2Mutex.h>
#include <KIVCoreServices2/KIVCS2PThread.h>
#include <KIVCoreServices2/KIVCS2RingBuffer.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
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
class Lengths
{
public:
    explicit Lengths(uint32_t seed) : m_state(seed) {}

    uint32_t next()
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 17;
        m_state ^= m_state << 5;
        return 1 + m_state % ((m_state & 0x700000u) == 0 ? 300 : kLongest);
    }

private:
    uint32_t m_state;
};

struct Soak
{
    KIVCS2Mutex mutex{};
    KIVCS2RingBuffer ring{};
    uint64_t total = 0;
    uint64_t written = 0;  // under the mutex
    bool failed = false;   // under the mutex
    uint64_t refused = 0;  // the producer's
    uint64_t tooEarly = 0; // the consumer's
    uint64_t lookedBack = 0;
};

void require(KIVCS2Status status, const char *what)
{
    if (KIVCS2_SUCCEEDED(status))
        return;
    std::fprintf(stderr, "soak: %s (status 0x%08x)\n", what, status);
    std::exit(1);
}

class Locked
{
public:
    explicit Locked(Soak &soak) : m_soak(soak)
    {
        require(kivCS2Mutex_lock(&m_soak.mutex), "locking");
    }
    ~Locked()
    {
        require(kivCS2Mutex_unlock(&m_soak.mutex), "unlocking");
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

private:
    Soak &m_soak;
};

void *produce(void *argument)
{
    Soak &soak = *static_cast<Soak *>(argument);
    Stream stream;
    Lengths lengths{2463534242u};
    for (uint64_t position = 0; position < soak.total;)
    {
        const auto size = static_cast<uint32_t>(std::min<uint64_t>(lengths.next(), soak.total - position));
        const uint8_t *const bytes = stream.bytes(position, size);
        for (bool stored = false; !stored;)
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
    const uint8_t *const wanted = stream.bytes(position, size);
    uint32_t at = 0;
    while (bytes[at] == wanted[at])
        ++at;
    std::fprintf(stderr, "soak: byte %llu is 0x%02x instead of 0x%02x\n",
                 static_cast<unsigned long long>(position + at), bytes[at], wanted[at]);
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
    Lengths lengths{88172645u};
    const auto room = std::make_unique<uint8_t[]>(kLongest);
    bool good = true;
    for (uint64_t position = 0, fetches = 0; position < soak.total && good; ++fetches)
    {
        uint32_t size = lengths.next();
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
            continue;
        }
        good = sameAsStream(stream, room.get(), position, size);
        if (good && fetches % 1024 == 0)
            good = lookBack(soak, stream, room.get(), lengths.next());
        position += size;
    }
    const Locked lock{soak};
    soak.failed = !good;
    return nullptr;
}
} // namespace

int main(int argc, char **argv)
{
    Soak soak;
    const std::string_view word = argc == 2 ? argv[1] : "";
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), soak.total);
    if (error != std::errc{} || end != word.data() + word.size() || soak.total == 0)
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
