// Objects taken from a pool and returned in any order, compared with a map of the objects in use and the
// order of the free ones. Each operation takes two bytes of the input: the operation and an argument.
#include "Require.h"

#include "KIVCS2MemoryPool.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iterator>
#include <map>

namespace
{
constexpr size_t kMaxSteps = 200; // longer inputs find no more faults
constexpr size_t kMaxOut = 24;    // objects in use, those of the heap included

// The callbacks have no context.
struct
{
    KIVCS2Status answer;
    void *made;
    void *returned;
    uint8_t mark; // the mark of the object that is being returned
} g_calls;

KIVCS2Status noteMade(void *object)
{
    g_calls.made = object;
    return g_calls.answer;
}

void noteReturned(void *object)
{
    g_calls.returned = object;
    g_calls.mark = *static_cast<uint8_t *>(object);
}

class Model
{
public:
    Model(uint32_t count, uint32_t size, bool allowExternal, bool calls)
        : m_size{size}, m_allowExternal{allowExternal}, m_calls{calls}
    {
        require(kivCS2MemoryPool_init(&m_pool, count, size, allowExternal ? 1 : 0, calls ? noteMade : nullptr,
                                      calls ? noteReturned : nullptr) == KIVCS2STATUS_OK);
        for (uint32_t index = 0; index < count; ++index)
            m_free.push_back(m_pool.m_storage + size_t{index} * size);
    }
    ~Model()
    {
        while (!m_out.empty())
            giveBack(0);
        require(kivCS2MemoryPool_free(&m_pool) == KIVCS2STATUS_OK);
    }
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    void run(uint8_t what, uint8_t argument)
    {
        if ((what & 1) == 0 && m_out.size() < kMaxOut)
            take(what, argument);
        else if (!m_out.empty())
            giveBack(argument);
        compare();
    }

private:
    bool isOfBlock(const void *object) const
    {
        return object >= m_pool.m_storage && object < m_pool.m_storageEnd;
    }
    void take(uint8_t what, uint8_t mark)
    {
        // One in four callbacks fails, with a status that the pool also has.
        g_calls = {(what & 6) == 6 ? KIVCS2STATUS_MEMORY_ERR : uint32_t{what}, nullptr, nullptr, 0};
        void *object = this;
        const KIVCS2Status status = kivCS2MemoryPool_allocObject(&m_pool, &object);
        if (m_free.empty() && !m_allowExternal)
        {
            require(status == KIVCS2STATUS_MEMORY_ERR && object == nullptr && g_calls.made == nullptr);
            return;
        }
        require(object != nullptr);
        require(status == (m_calls ? g_calls.answer : KIVCS2STATUS_OK));
        require(g_calls.made == (m_calls ? object : nullptr));
        require(isOfBlock(object) == !m_free.empty());
        if (!m_free.empty())
        {
            require(object == m_free.front());
            m_free.pop_front();
            const auto *bytes = static_cast<const uint8_t *>(object);
            require(std::all_of(bytes, bytes + m_size, [](uint8_t byte) { return byte == 0; }));
        }
        require(m_out.emplace(object, mark).second);
        std::memset(object, mark, m_size);
    }
    void giveBack(uint8_t which)
    {
        const auto chosen = std::next(m_out.begin(), which % static_cast<ptrdiff_t>(m_out.size()));
        auto *const object = static_cast<uint8_t *>(chosen->first);
        const uint8_t mark = chosen->second;
        require(std::all_of(object, object + m_size, [mark](uint8_t byte) { return byte == mark; }));
        g_calls = {};
        const bool inside = isOfBlock(object);
        require(kivCS2MemoryPool_freeObject(&m_pool, object) == KIVCS2STATUS_OK);
        require(!m_calls || (g_calls.returned == object && g_calls.mark == mark));
        if (inside)
            m_free.push_back(object);
        m_out.erase(chosen);
    }
    void compare()
    {
        require(kivCS2LinkList_checkValid(&m_pool.m_objects));
        require(m_pool.m_objects.m_count == m_free.size());
        require(m_out.size() + m_free.size() == size_t{m_pool.m_poolSize} + m_pool.m_externalObjects);
        const KIVCS2LinkElem *elem = m_pool.m_objects.m_next;
        for (const void *object : m_free)
        {
            require(elem == object);
            elem = elem->m_next;
        }
    }

    KIVCS2MemoryPool m_pool{};
    uint32_t m_size;
    bool m_allowExternal;
    bool m_calls;
    std::deque<void *> m_free;       // objects of the block, the next one first
    std::map<void *, uint8_t> m_out; // and the mark in each
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3)
        return 0;
    Model model{1u + data[0] % 16u, 24u + data[1] % 20u * 8u, (data[2] & 1) != 0, (data[2] & 2) != 0};
    for (size_t at = 3; at + 2 <= std::min(size, 3 + 2 * kMaxSteps); at += 2)
        model.run(data[at], data[at + 1]);
    return 0;
}
