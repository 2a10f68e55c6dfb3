// The places of a caption file's lines: a sparse index of fixed size for reading in the file's order, and
// the whole list for reading by frame.
#ifndef KIV_PRIVATE_CAPTIONS_LINE_INDEX_H
#define KIV_PRIVATE_CAPTIONS_LINE_INDEX_H

#include "KIVCS2Base.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kiv::cc
{
// Holds every n-th caption line. When it is full, every second entry is removed and n doubles.
class LineIndex
{
public:
    struct Entry
    {
        uint64_t offset;
        uint32_t number; // number of the line
        uint32_t bound;  // every caption line before this one ends before that frame
    };

    // Records a caption line whose last frame is `last`. Lines come in the file's order, but after a seek
    // some come again.
    void add(uint64_t offset, uint64_t number, uint32_t last);
    // Returns the last entry before the first line at `frame` or later; null if there is no entry.
    [[nodiscard]] const Entry *find(uint32_t frame) const;

private:
    static constexpr size_t kEntries = 8192;

    void thin();

    std::array<Entry, kEntries> m_entries;
    size_t m_count = 0;
    uint64_t m_lines = 0, m_stride = 16;
    uint64_t m_frontier = 0; // lines from this offset on are new
    uint32_t m_bound = 0;
};

// One line for reading by frame.
struct OrderedLine
{
    uint64_t offset;
    uint32_t number;
    uint32_t frame;  // frame of the line's timecode
    uint32_t placed; // the frame on which it begins after those before it have ended
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
    // Orders the lines by frame; lines of the same frame keep their order. With `wait` a line begins after
    // the end of the line before.
    void order(bool wait);
    // Returns the first line that ends after `frame`.
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
