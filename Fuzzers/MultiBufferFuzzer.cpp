// Operations on a multi-buffer, compared with a vector of its entries. Each operation takes four bytes of the
// input: the operation and three arguments.
#include "Require.h"

#include "KIVCS2MultiBuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
constexpr size_t kMaxSteps = 100; // longer inputs find no more faults
constexpr uint32_t kMaxEntries = 12;
constexpr uint32_t kIdleBlock = 4;

// The expected state of an entry.
struct Entry
{
    uint32_t block = kIdleBlock; // size in bytes
    uint64_t age = 0;            // 0 if it is free
    void *data = nullptr;
    uint32_t size = 0; // as requested; every byte is the mark
    uint8_t mark = 0;
};

class Model
{
public:
    Model(uint32_t count, uint32_t flags) : m_entries(count)
    {
        require(kivCS2MultiBuffer_init(&m_buffer, count, flags) == KIVCS2STATUS_OK);
    }
    ~Model()
    {
        require(kivCS2MultiBuffer_free(&m_buffer) == KIVCS2STATUS_OK);
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
            allocate(argument % 500, step[1]);
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
        return static_cast<uint32_t>(m_entries.size());
    }
    // The first free index of a range; count() if there is none.
    uint32_t firstFree(uint32_t first, uint32_t end) const
    {
        while (first < end && m_entries[first].age != 0)
            ++first;
        return first < end ? first : count();
    }
    // The indices of the entries in use, oldest first.
    std::vector<uint32_t> used() const
    {
        std::vector<uint32_t> indices;
        for (uint32_t index = 0; index < count(); ++index)
            if (m_entries[index].age != 0)
                indices.push_back(index);
        std::ranges::sort(indices, {}, [this](uint32_t index) { return m_entries[index].age; });
        return indices;
    }
    void expectHandedOut(uint32_t index, KIVCS2Status status, void *data, uint32_t size, uint8_t mark)
    {
        m_next = index == count() ? 0 : index + 1;
        if (index == count())
        {
            require(status == KIVCS2STATUS_NO_BUFFER_ERR && data == nullptr);
            return;
        }
        require(status == KIVCS2STATUS_OK && data == m_buffer.m_buffers[index].m_mem_ptr.m_buffer);
        std::memset(data, mark, size);
        m_entries[index] = {std::max(m_entries[index].block, size), ++m_clock, data, size, mark};
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
        require(kivCS2MultiBuffer_lock(&m_buffer) == KIVCS2STATUS_OK);
        const KIVCS2Status status = kivCS2MultiBuffer_allocateAvailableBuffer(
            &m_buffer, mark, static_cast<int32_t>(first), static_cast<int32_t>(last), &data);
        require(kivCS2MultiBuffer_unlock(&m_buffer) == KIVCS2STATUS_OK);
        expectHandedOut(firstFree(first, last + 1), status, data, mark, mark);
    }
    // An entry keeps the contents that its user wrote, whatever happens to the others.
    void expectUntouched(uint32_t index) const
    {
        const Entry &entry = m_entries[index];
        require(entry.data == m_buffer.m_buffers[index].m_mem_ptr.m_buffer);
        const auto *bytes = static_cast<const uint8_t *>(entry.data);
        require(std::all_of(bytes, bytes + entry.size, [&](uint8_t byte) { return byte == entry.mark; }));
    }
    void release(uint8_t which)
    {
        int32_t index = -1;
        const std::vector<uint32_t> indices = used();
        if (indices.empty())
        {
            require(kivCS2MultiBuffer_releaseBuffer(&m_buffer, this, &index) == KIVCS2STATUS_NO_ENTRY_ERR);
            return;
        }
        const uint32_t chosen = indices[which % indices.size()];
        require(kivCS2MultiBuffer_releaseBuffer(&m_buffer, m_entries[chosen].data, &index) ==
                KIVCS2STATUS_OK);
        require(index == static_cast<int32_t>(chosen));
        m_entries[chosen].age = 0;
    }
    void takeHead(int32_t remove)
    {
        KIVCS2BufferEntry *entry = nullptr;
        const KIVCS2Status status = kivCS2MultiBuffer_getHeadEntry(&m_buffer, &entry, remove);
        const std::vector<uint32_t> indices = used();
        if (indices.empty())
        {
            require(status == KIVCS2STATUS_NO_ENTRY_ERR && entry == nullptr);
            return;
        }
        require(status == KIVCS2STATUS_OK && entry == &m_buffer.m_buffers[indices.front()]);
        if (remove == 1)
            m_entries[indices.front()].age = 0;
    }
    void resize(uint32_t newCount)
    {
        const bool refused = std::ranges::any_of(used(), [&](uint32_t index) { return index >= newCount; });
        require(kivCS2MultiBuffer_resize(&m_buffer, newCount) ==
                (refused ? KIVCS2STATUS_STATE_ERR : KIVCS2STATUS_OK));
        if (refused || newCount == count())
            return;
        m_entries.resize(newCount);
        for (Entry &entry : m_entries)
            entry.age = entry.age != 0 ? ++m_clock : 0;
        m_next = 0;
    }
    void compact()
    {
        require(kivCS2MultiBuffer_compact(&m_buffer) == KIVCS2STATUS_OK);
        for (Entry &entry : m_entries)
            if (entry.age == 0)
                entry.block = kIdleBlock;
    }
    void compare()
    {
        const std::vector<uint32_t> indices = used();
        require(m_buffer.m_count == count() && kivCS2LinkList_checkValid(&m_buffer.m_usedList));
        uint32_t inUse = 0;
        double usage = -1;
        require(kivCS2MultiBuffer_getUsedCount(&m_buffer, &inUse) == KIVCS2STATUS_OK);
        require(kivCS2MultiBuffer_getUsage(&m_buffer, &usage) == KIVCS2STATUS_OK);
        require(inUse == indices.size());
        require(usage == (count() == 0 ? 0.0 : static_cast<double>(inUse) / count()));
        const KIVCS2LinkElem *elem = m_buffer.m_usedList.m_next;
        for (const uint32_t index : indices)
        {
            require(elem == &m_buffer.m_buffers[index].m_link);
            elem = elem->m_next;
            expectUntouched(index);
        }
        for (uint32_t index = 0; index < count(); ++index)
        {
            const KIVCS2BufferEntry &wanted = m_buffer.m_buffers[index];
            require(wanted.m_mem_ptr.m_allocated == m_entries[index].block);
            KIVCS2BufferEntry *entry = nullptr;
            int32_t found = -1;
            require(kivCS2MultiBuffer_findEntryByMemPtr(&m_buffer, wanted.m_mem_ptr.m_buffer, &found,
                                                        &entry) == KIVCS2STATUS_OK);
            require(entry == &wanted && found == static_cast<int32_t>(index));
        }
    }

    KIVCS2MultiBuffer m_buffer{};
    std::vector<Entry> m_entries;
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
