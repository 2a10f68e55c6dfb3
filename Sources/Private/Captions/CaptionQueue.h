// The queue of captions that wait for their frame of the result: a ring that grows up to a bound.
#ifndef KIV_PRIVATE_CAPTIONS_CAPTION_QUEUE_H
#define KIV_PRIVATE_CAPTIONS_CAPTION_QUEUE_H

#include "Private/Support/Check.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

namespace kiv::cc
{
// The relation of a pair to the one before it in its field (CEA-608-E, 8.3).
enum class Mark : uint8_t
{
    Plain,
    Repeat, // the second of a doubled control code: no effect while it directly follows the first
    Again   // the same control code sent again: would lose its effect if it directly followed the first
};

// A triplet without its marker bits.
struct Waiting
{
    uint32_t ready; // the first frame of the result on which it may go out
    uint8_t type;   // cc_type
    uint8_t bytes[2];
    Mark mark;
};
static_assert(sizeof(Waiting) == 8);

class CaptionQueue
{
public:
    // `most` is a power of two.
    explicit CaptionQueue(size_t most) : m_most{most} {}

    // Makes room for `count` more items, so that this number of push() calls cannot fail.
    [[nodiscard]] KIVCS2Status reserve(size_t count)
    {
        const size_t wanted = m_count + count;
        if (wanted <= m_room)
            return KIVCS2STATUS_OK;
        if (wanted > m_most)
            return KIVCS2STATUS_OVERFLOW_ERR;
        size_t room = std::max(m_room, kLeast);
        while (room < wanted)
            room *= 2;
        std::unique_ptr<Waiting[]> items{new (std::nothrow) Waiting[room]};
        if (!items)
            return KIVCS2STATUS_MEMORY_ERR;
        for (size_t index = 0; index < m_count; ++index)
            items[index] = m_items[(m_head + index) & (m_room - 1)];
        m_items = std::move(items);
        m_room = room;
        m_head = 0;
        return KIVCS2STATUS_OK;
    }

    void push(const Waiting &item)
    {
        m_items[(m_head + m_count++) & (m_room - 1)] = item;
    }
    [[nodiscard]] const Waiting &front() const
    {
        return m_items[m_head];
    }
    void pop()
    {
        m_head = (m_head + 1) & (m_room - 1);
        --m_count;
    }
    [[nodiscard]] bool empty() const
    {
        return m_count == 0;
    }

private:
    static constexpr size_t kLeast = 128;

    size_t m_most;
    size_t m_room = 0; // a power of two
    size_t m_head = 0;
    size_t m_count = 0;
    std::unique_ptr<Waiting[]> m_items;
};
} // namespace kiv::cc

#endif
