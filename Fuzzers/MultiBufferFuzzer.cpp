// Operations on a multi-buffer against maps of its entries. Each operation takes four bytes of the input:
// which, and three arguments.
#include "Expect.h"

#include "KIVCS2MultiBuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>

namespace
{
constexpr size_t kMaxSteps = 100; // longer inputs find nothing more
constexpr uint32_t kMaxEntries = 12;
constexpr uint32_t kIdleBlock = 4;

// What is expected of an entry in use.
struct Held
{
    void *data;
    uint32_t size; // asked for; every byte is the mark
    uint8_t mark;
};

class Model
{
public:
    Model(uint32_t count, uint32_t flags)
    {
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_init(&m_buffer, count, flags) == KIVCS2STATUS_OK);
        for (uint32_t index = 0; index < count; ++index)
            m_blocks[index] = kIdleBlock;
    }
    ~Model()
    {
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_free(&m_buffer) == KIVCS2STATUS_OK);
    }
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    void run(const uint8_t *step)
    {
        const uint32_t argument = step[2] | uint32_t{step[3]} << 8;
        switch (step[0] % 8)
        {
        case 0:
        case 1:
            allocate(argument % 3000, step[1]);
            break;
        case 2:
            allocateBetween(step[1], step[2], step[3]);
            break;
        case 3:
        case 4:
            release(step[1]);
            break;
        case 5:
            takeHead(step[1] % 3);
            break;
        case 6:
            resize(step[1] % (kMaxEntries + 1));
            break;
        default:
            compact();
        }
        compare();
    }

private:
    uint32_t count() const
    {
        return static_cast<uint32_t>(m_blocks.size());
    }
    // The first free index of a range; count() for none.
    uint32_t firstFree(uint32_t first, uint32_t end) const
    {
        for (uint32_t index = first; index < end; ++index)
            if (!m_ages.contains(index))
                return index;
        return count();
    }
    void expectHandedOut(uint32_t index, KIVCS2Status status, void *data, uint32_t size, uint8_t mark)
    {
        if (index == count())
        {
            KIV_FUZZ_EXPECT(status == KIVCS2STATUS_NO_BUFFER_ERR && data == nullptr);
            m_next = 0;
            return;
        }
        KIV_FUZZ_EXPECT(status == KIVCS2STATUS_OK);
        KIV_FUZZ_EXPECT(data == m_buffer.m_buffers[index].m_mem_ptr.m_buffer);
        std::memset(data, mark, size);
        m_blocks[index] = std::max(m_blocks[index], size);
        m_ages[index] = ++m_clock;
        m_inUse[m_clock] = index;
        m_held[index] = {data, size, mark};
        m_next = index + 1;
    }
    void allocate(uint32_t size, uint8_t mark)
    {
        const uint32_t start = m_next < count() ? m_next : 0;
        uint32_t index = firstFree(start, count());
        if (index == count())
            index = firstFree(0, start);
        void *data = nullptr;
        const KIVCS2Status status = kivCS2MultiBuffer_allocateBuffer(&m_buffer, size, &data);
        expectHandedOut(index, status, data, size, mark);
    }
    void allocateBetween(uint32_t first, uint32_t last, uint8_t mark)
    {
        if (count() == 0)
            return;
        first %= count();
        last = first + last % (count() - first);
        void *data = nullptr;
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_lock(&m_buffer) == KIVCS2STATUS_OK);
        const KIVCS2Status status = kivCS2MultiBuffer_allocateAvailableBuffer(
            &m_buffer, mark, static_cast<int32_t>(first), static_cast<int32_t>(last), &data);
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_unlock(&m_buffer) == KIVCS2STATUS_OK);
        const uint32_t index = firstFree(first, last + 1);
        expectHandedOut(index, status, data, mark, mark);
    }
    // The contents are those its user left, whatever went on beside it.
    void expectUntouched(uint32_t index)
    {
        const Held &held = m_held.at(index);
        KIV_FUZZ_EXPECT(held.data == m_buffer.m_buffers[index].m_mem_ptr.m_buffer);
        const auto *bytes = static_cast<const uint8_t *>(held.data);
        KIV_FUZZ_EXPECT(
            std::all_of(bytes, bytes + held.size, [&](uint8_t byte) { return byte == held.mark; }));
    }
    void forget(uint32_t index)
    {
        expectUntouched(index);
        m_inUse.erase(m_ages.at(index));
        m_ages.erase(index);
        m_held.erase(index);
    }
    void release(uint8_t which)
    {
        int32_t index = -1;
        if (m_held.empty())
        {
            KIV_FUZZ_EXPECT(kivCS2MultiBuffer_releaseBuffer(&m_buffer, this, &index) ==
                            KIVCS2STATUS_NO_ENTRY_ERR);
            return;
        }
        const auto chosen = std::next(m_held.begin(), which % static_cast<ptrdiff_t>(m_held.size()));
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_releaseBuffer(&m_buffer, chosen->second.data, &index) ==
                        KIVCS2STATUS_OK);
        KIV_FUZZ_EXPECT(index == static_cast<int32_t>(chosen->first));
        forget(chosen->first);
    }
    void takeHead(int32_t remove)
    {
        KIVCS2BufferEntry *entry = nullptr;
        const KIVCS2Status status = kivCS2MultiBuffer_getHeadEntry(&m_buffer, &entry, remove);
        if (m_inUse.empty())
        {
            KIV_FUZZ_EXPECT(status == KIVCS2STATUS_NO_ENTRY_ERR && entry == nullptr);
            return;
        }
        const uint32_t oldest = m_inUse.begin()->second;
        KIV_FUZZ_EXPECT(status == KIVCS2STATUS_OK && entry == &m_buffer.m_buffers[oldest]);
        if (remove == 1)
            forget(oldest);
    }
    void resize(uint32_t newCount)
    {
        const bool refused = !m_ages.empty() && m_ages.rbegin()->first >= newCount;
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_resize(&m_buffer, newCount) ==
                        (refused ? KIVCS2STATUS_STATE_ERR : KIVCS2STATUS_OK));
        if (refused || newCount == count())
            return;
        while (count() > newCount)
            m_blocks.erase(std::prev(m_blocks.end()));
        while (count() < newCount)
            m_blocks[count()] = kIdleBlock;
        m_inUse.clear();
        for (auto &[index, age] : m_ages)
        {
            age = ++m_clock;
            m_inUse[age] = index;
        }
        m_next = 0;
    }
    void compact()
    {
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_compact(&m_buffer) == KIVCS2STATUS_OK);
        for (auto &[index, size] : m_blocks)
            if (!m_ages.contains(index))
                size = kIdleBlock;
    }
    void compare()
    {
        KIV_FUZZ_EXPECT(m_buffer.m_count == count());
        KIV_FUZZ_EXPECT(kivCS2LinkList_checkValid(&m_buffer.m_usedList));
        uint32_t used = 0;
        double usage = -1;
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_getUsedCount(&m_buffer, &used) == KIVCS2STATUS_OK);
        KIV_FUZZ_EXPECT(kivCS2MultiBuffer_getUsage(&m_buffer, &usage) == KIVCS2STATUS_OK);
        KIV_FUZZ_EXPECT(used == m_inUse.size());
        KIV_FUZZ_EXPECT(usage == (count() == 0 ? 0.0 : static_cast<double>(used) / count()));
        const KIVCS2LinkElem *elem = m_buffer.m_usedList.m_next;
        for (const auto &[age, index] : m_inUse)
        {
            KIV_FUZZ_EXPECT(elem == &m_buffer.m_buffers[index].m_link);
            elem = elem->m_next;
            expectUntouched(index);
        }
        for (const auto &[index, size] : m_blocks)
        {
            const KIVCS2BufferEntry &wanted = m_buffer.m_buffers[index];
            KIV_FUZZ_EXPECT(wanted.m_mem_ptr.m_allocated == size);
            KIVCS2BufferEntry *entry = nullptr;
            int32_t found = -1;
            KIV_FUZZ_EXPECT(kivCS2MultiBuffer_findEntryByMemPtr(&m_buffer, wanted.m_mem_ptr.m_buffer, &found,
                                                                &entry) == KIVCS2STATUS_OK);
            KIV_FUZZ_EXPECT(entry == &wanted && found == static_cast<int32_t>(index));
        }
    }

    KIVCS2MultiBuffer m_buffer{};
    std::map<uint32_t, uint32_t> m_blocks; // bytes by index
    std::map<uint32_t, uint64_t> m_ages;   // of those in use, by index
    std::map<uint64_t, uint32_t> m_inUse;  // and the other way round
    std::map<uint32_t, Held> m_held;
    uint64_t m_clock = 0;
    uint32_t m_next = 0; // where the next search starts
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    Model model{data[0] % (kMaxEntries + 1), data[1] & 1u};
    for (size_t at = 2; at + 4 <= std::min(size, 2 + 4 * kMaxSteps); at += 4)
        model.run(data + at);
    return 0;
}
