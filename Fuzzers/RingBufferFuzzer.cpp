// Operations on a ring, compared with deques of the bytes that can be fetched and of the last bytes written.
// Two bytes of the input are the capacity. Each operation takes five: the operation, a size and an offset.
#include "Require.h"

#include "KIVCS2RingBuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

namespace
{
constexpr size_t kHeader = 2;
constexpr size_t kStep = 5;
constexpr size_t kMaxSteps = 100;       // longer inputs find no more faults
constexpr uint32_t kMaxCapacity = 1000; // for short and long copies, whole and in two parts
constexpr uint32_t kHuge = 0xFFFFFF00u; // a size whose sum with an offset does not fit 32 bits
constexpr uint32_t kBeyond = 3;         // bytes past the capacity, which are refused

uint32_t number(const uint8_t *bytes)
{
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8;
}

// A block of exactly that size, so that AddressSanitizer detects one byte too many.
std::unique_ptr<uint8_t[]> block(uint32_t size)
{
    return std::make_unique<uint8_t[]>(size);
}

class Ring
{
public:
    explicit Ring(uint32_t capacity) : m_capacity(capacity)
    {
        require(kivCS2RingBuffer_init(&m_ring, capacity) == KIVCS2STATUS_OK);
    }
    ~Ring()
    {
        require(kivCS2RingBuffer_dispose(&m_ring) == KIVCS2STATUS_OK);
    }
    Ring(const Ring &) = delete;
    Ring &operator=(const Ring &) = delete;

    void run(const uint8_t *step)
    {
        const uint32_t size = number(step + 1) % (m_capacity + kBeyond);
        const uint32_t offset = number(step + 3) % (m_capacity + kBeyond);
        switch (step[0] % 10)
        {
        case 0:
        case 1:
        case 2:
            store(size, step[0] % 10 == 2);
            break;
        case 3:
        case 4:
            fetch(size);
            break;
        case 5:
            read(std::min(size, m_capacity - std::min(offset, m_capacity)), offset); // mostly allowed
            break;
        case 6:
            read(size, (step[0] & 0x80) != 0 ? kHuge + step[3] : offset);
            break;
        case 7:
            require(kivCS2RingBuffer_resetDataLostIndicator(&m_ring) == KIVCS2STATUS_OK);
            m_lost = false;
            break;
        case 8:
            require(kivCS2RingBuffer_setOperationMode(&m_ring, step[1] % 3u) == KIVCS2STATUS_OK);
            m_rejects = step[1] % 3 == KIVCS2RingBufferOpMode_Reject;
            break;
        default:
            fetch(static_cast<uint32_t>(m_waiting.size())); // all bytes
        }
        compare();
    }

private:
    void store(uint32_t size, bool keepTrying)
    {
        const auto data = block(size);
        for (uint32_t index = 0; index < size; ++index)
            data[index] = static_cast<uint8_t>((m_written + index) * 167 >> 3);
        const bool fits = size <= m_capacity - m_waiting.size();
        KIVCS2Status wanted = KIVCS2STATUS_OK;
        if (size > m_capacity)
            wanted = KIVCS2STATUS_PARAM_ERR;
        else if (!fits && m_rejects)
            wanted = KIVCS2STATUS_OVERFLOW_ERR;
        // No other thread would make room for a write that waits.
        const KIVCS2Status status = keepTrying && wanted != KIVCS2STATUS_OVERFLOW_ERR
                                        ? kivCS2RingBuffer_storeKeepTrying(&m_ring, data.get(), size, 1)
                                        : kivCS2RingBuffer_store(&m_ring, data.get(), size);
        require(status == wanted);
        if (KIVCS2_FAILED(status))
            return;
        m_written += size;
        m_lost = m_lost || !fits;
        for (std::deque<uint8_t> *bytes : {&m_waiting, &m_history})
        {
            bytes->insert(bytes->end(), data.get(), data.get() + size);
            while (bytes->size() > m_capacity)
                bytes->pop_front();
        }
    }

    void fetch(uint32_t size)
    {
        const auto data = block(size);
        const KIVCS2Status status = kivCS2RingBuffer_fetch(&m_ring, data.get(), size);
        if (size > m_capacity || size > m_waiting.size())
        {
            require(status == (size > m_capacity ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_NO_DATA_ERR));
            return;
        }
        require(status == KIVCS2STATUS_OK);
        require(std::equal(data.get(), data.get() + size, m_waiting.begin()));
        m_waiting.erase(m_waiting.begin(), m_waiting.begin() + size);
    }

    void read(uint32_t size, uint32_t offset)
    {
        const auto data = block(size);
        const KIVCS2Status status =
            offset == 0 ? kivCS2RingBuffer_readOldestData(&m_ring, data.get(), size)
                        : kivCS2RingBuffer_readDataAtOffset(&m_ring, data.get(), size, offset);
        const uint64_t end = uint64_t{size} + offset;
        const std::deque<uint8_t> &from = cameRound() ? m_history : m_waiting;
        if (end > m_capacity || end > from.size())
        {
            require(status == (end > m_capacity ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_NO_DATA_ERR));
            return;
        }
        require(status == KIVCS2STATUS_OK);
        require(std::equal(data.get(), data.get() + size, from.begin() + offset));
    }

    [[nodiscard]] bool cameRound() const
    {
        return m_written >= m_capacity;
    }

    void compare() const
    {
        uint32_t free = 0;
        uint32_t fetchable = 0;
        float part = -1;
        require(kivCS2RingBuffer_getFreeBytesAvailable(&m_ring, &free) == KIVCS2STATUS_OK);
        require(kivCS2RingBuffer_getFetchBytesAvailable(&m_ring, &fetchable) == KIVCS2STATUS_OK);
        require(kivCS2RingBuffer_getUtilization(&m_ring, &part) == KIVCS2STATUS_OK);
        require(fetchable == m_waiting.size() && free == m_capacity - fetchable);
        require(part == static_cast<float>(fetchable) / static_cast<float>(m_capacity));
        require(m_ring.dataLost == (m_lost ? 1 : 0));
        require(m_ring.circulatedAtLeastOnce == (cameRound() ? 1 : 0));
        require(m_ring.tail - m_ring.buffer == static_cast<ptrdiff_t>(m_written % m_capacity));
        require(m_ring.head >= m_ring.buffer && m_ring.head < m_ring.buffer_end);
    }

    KIVCS2RingBuffer m_ring{};
    uint32_t m_capacity;
    std::deque<uint8_t> m_waiting; // not yet fetched
    std::deque<uint8_t> m_history; // the last bytes written, fetched or not
    uint64_t m_written = 0;
    bool m_lost = false;
    bool m_rejects = false;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < kHeader)
        return 0;
    Ring ring{2 + number(data) % (kMaxCapacity - 1)};
    const size_t end = std::min(size, kHeader + kStep * kMaxSteps);
    for (size_t at = kHeader; at + kStep <= end; at += kStep)
        ring.run(data + at);
    return 0;
}
