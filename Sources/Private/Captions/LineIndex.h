// Where the lines of a caption file are: a sparse index of fixed size for reading in the file's order,
// and the whole list for reading by frame.
#ifndef KIV_PRIVATE_CAPTIONS_LINE_INDEX_H
#define KIV_PRIVATE_CAPTIONS_LINE_INDEX_H

#include "KIVCS2Base.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kiv::cc
{
// Every n-th caption line. When the room is used up, every second entry goes and n doubles.
class LineIndex
{
public:
    struct Entry
    {
        uint64_t offset;
        uint32_t number; // of the line
        uint32_t bound;  // every caption line before this one ends before that frame
    };

    // Takes note of a caption line whose last frame is `last`. Lines come in the file's order, but some
    // of them again after a seek.
    void add(uint64_t offset, uint64_t number, uint32_t last);
    // The last entry in front of the first line that is at `frame` or behind it; null if nothing is
    // known.
    [[nodiscard]] const Entry *find(uint32_t frame) const;

private:
    static constexpr size_t kEntries = 8192;

    void thin();

    std::array<Entry, kEntries> m_entries;
    size_t m_count = 0;
    uint64_t m_lines = 0, m_stride = 16;
    uint64_t m_frontier = 0; // offset behind which lines are new
    uint32_t m_bound = 0;
};

// One line for reading by frame.
struct OrderedLine
{
    uint64_t offset;
    uint32_t number;
    uint32_t frame;  // as the line says
    uint32_t placed; // where it begins when those before it have ended
    uint32_t frames : 31;
    uint32_t isBack : 1; // earlier than the line before it in the file
};

class LineList
{
public:
    LineList() = default;
    LineList(const LineList &) = delete;
    LineList &operator=(const LineList &) = delete;
    ~LineList();

    [[nodiscard]] KIVCS2Status add(const OrderedLine &line);
    // Orders the lines by frame, those of one frame as in the file. With `wait` a line begins behind the
    // end of the one before.
    void order(bool wait);
    // The first line that ends behind `frame`.
    [[nodiscard]] size_t find(uint32_t frame) const;
    [[nodiscard]] std::span<const OrderedLine> all() const
    {
        return {m_lines, m_count};
    }

private:
    OrderedLine *m_lines = nullptr;
    size_t m_count = 0, m_room = 0;
};
} // namespace kiv::cc

#endif
