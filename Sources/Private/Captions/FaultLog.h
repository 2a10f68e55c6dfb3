// The faults that a reader finds: counted, kept with their first place, and reported to the caller.
#ifndef KIV_PRIVATE_CAPTIONS_FAULT_LOG_H
#define KIV_PRIVATE_CAPTIONS_FAULT_LOG_H

#include "KIVCS2CaptionFile.h"

#include <array>
#include <string_view>

namespace kiv::cc
{
// The place of a fault. Positions in the line count from 0.
struct Place
{
    uint64_t line = 0, offset = 0;
    size_t column = static_cast<size_t>(-1); // this value: the whole line
    std::string_view found;
    bool hasFrame = false;
    uint32_t frame = 0;
    const char *expected = nullptr; // static; null for the fault's own text
};

class FaultLog
{
public:
    FaultLog(const KIVCS2CaptionReadOptions &options) : m_options{options} {}

    // Counts and reports one place. Returns the callback's failure, else in a strict read the fault's status.
    [[nodiscard]] KIVCS2Status tell(KIVCS2CaptionFault fault, const Place &place, bool lost);

    // Counts `places` more of a fault that need not be reported. Returns false if tell() is needed.
    [[nodiscard]] bool countOnly(KIVCS2CaptionFault fault, uint64_t places = 1)
    {
        if (m_counts[fault] == 0 || m_options.m_onFault != nullptr || m_options.m_strict)
            return false;
        m_counts[fault] += places;
        m_all += places;
        return true;
    }

    [[nodiscard]] uint64_t count(KIVCS2CaptionFault fault) const
    {
        return m_counts[fault];
    }
    [[nodiscard]] const KIVCS2CaptionFileFault &first(KIVCS2CaptionFault fault) const
    {
        return m_first[fault];
    }
    [[nodiscard]] uint64_t all() const
    {
        return m_all;
    }

private:
    const KIVCS2CaptionReadOptions &m_options;
    uint64_t m_all = 0;
    std::array<uint64_t, KIVCS2CaptionFault_MAX> m_counts{};
    std::array<KIVCS2CaptionFileFault, KIVCS2CaptionFault_MAX> m_first{};
};
} // namespace kiv::cc

#endif
