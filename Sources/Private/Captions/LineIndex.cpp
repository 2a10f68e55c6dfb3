// The places of a caption file's lines.
#include "Private/Captions/LineIndex.h"

#include <algorithm>
#include <cstdlib>

namespace kiv::cc
{
void LineIndex::add(uint64_t offset, uint64_t number, uint32_t last)
{
    if (m_count > 0 && offset < m_frontier)
        return;
    if (m_lines++ % m_stride == 0)
    {
        if (m_count == m_entries.size())
            thin();
        m_entries[m_count++] = {offset, static_cast<uint32_t>(number), m_bound};
    }
    m_frontier = offset + 1;
    m_bound = std::max(m_bound, last + 1);
}

void LineIndex::thin()
{
    for (size_t kept = 0; 2 * kept < m_count; ++kept)
        m_entries[kept] = m_entries[2 * kept];
    m_count /= 2;
    m_stride *= 2;
}

const LineIndex::Entry *LineIndex::find(uint32_t frame) const
{
    const auto end = m_entries.begin() + static_cast<ptrdiff_t>(m_count);
    const auto behind =
        std::upper_bound(m_entries.begin(), end, frame,
                         [](uint32_t wanted, const Entry &entry) { return wanted < entry.bound; });
    return behind == m_entries.begin() ? nullptr : &*(behind - 1);
}

LineList::~LineList()
{
    std::free(m_lines);
}

KIVCS2Status LineList::add(const OrderedLine &line)
{
    if (m_count == m_room)
    {
        const size_t room = std::max<size_t>(2 * m_room, 1024);
        void *const grown = std::realloc(m_lines, room * sizeof *m_lines);
        if (grown == nullptr)
            return KIVCS2STATUS_MEMORY_ERR;
        m_lines = static_cast<OrderedLine *>(grown);
        m_room = room;
    }
    m_lines[m_count++] = line;
    return KIVCS2STATUS_OK;
}

void LineList::order(bool wait)
{
    const std::span<OrderedLine> lines{m_lines, m_count};
    // Compares offsets too, because stable_sort would allocate memory.
    std::ranges::sort(lines, [](const OrderedLine &a, const OrderedLine &b)
                      { return a.frame != b.frame ? a.frame < b.frame : a.offset < b.offset; });
    uint64_t next = 0;
    for (OrderedLine &line : lines)
    {
        line.placed =
            wait ? static_cast<uint32_t>(std::min<uint64_t>(std::max<uint64_t>(line.frame, next), UINT32_MAX))
                 : line.frame;
        next = uint64_t{line.placed} + line.frames;
    }
}

size_t LineList::find(uint32_t frame) const
{
    const auto lines = all();
    return static_cast<size_t>(
        std::ranges::partition_point(
            lines, [&](const OrderedLine &line)
            { return uint64_t{line.placed} + std::max<uint32_t>(line.frames, 1) <= frame; }) -
        lines.begin());
}
} // namespace kiv::cc
