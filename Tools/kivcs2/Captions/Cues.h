// The cues of SRT and WebVTT, to compare a file with the captions that it was made from.
#ifndef KIV_TOOL_CAPTION_CUES_H
#define KIV_TOOL_CAPTION_CUES_H

#include "Captions/Digest.h"

#include <iosfwd>
#include <string>
#include <string_view>

namespace tool
{

/// Cues in order: times, and text without tags and blanks.
class Cues
{
public:
    explicit Cues(bool isWebVTT) : m_isWebVTT(isWebVTT) {}

    /// Times are in milliseconds. `text` has no tags; text that looks like a tag is dropped like one.
    void add(uint64_t from, uint64_t until, std::string_view text);

    /// Adds all cues of a file.
    void read(std::istream &file);

    [[nodiscard]] uint64_t number() const
    {
        return m_number;
    }
    [[nodiscard]] bool operator==(const Cues &other) const = default;

private:
    void addPlain(uint64_t from, uint64_t until, std::string text);

    Digest m_digest;
    uint64_t m_number = 0;
    bool m_isWebVTT;
};

} // namespace tool

#endif
