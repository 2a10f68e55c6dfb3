// The faults that a reader finds: counted, kept with their first place, and reported to the caller.
#include "Private/Captions/FaultLog.h"

#include "Private/Captions/Faults.h"

#include <algorithm>
#include <cstring>

namespace kiv::cc
{
namespace
{
KIVCS2CaptionFileFault record(KIVCS2CaptionFault fault, const Place &place, bool lost)
{
    const FaultRow &row = *faultRow(fault);
    KIVCS2CaptionFileFault made{};
    made.m_fault = fault;
    made.m_status = row.status;
    made.m_line = place.line;
    made.m_offset = place.offset;
    made.m_column =
        static_cast<uint32_t>(std::min<size_t>(place.column + 1, UINT32_MAX)); // the whole line: 0
    made.m_frame = place.frame;
    made.m_hasFrame = place.hasFrame;
    made.m_lost = lost;
    made.m_expected = place.expected != nullptr ? place.expected : row.expected;
    made.m_foundSize = static_cast<uint16_t>(std::min(place.found.size(), sizeof made.m_found - 1));
    std::copy_n(place.found.begin(), made.m_foundSize, made.m_found);
    return made;
}
} // namespace

KIVCS2Status FaultLog::tell(KIVCS2CaptionFault fault, const Place &place, bool lost)
{
    ++m_all;
    const bool isFirst = m_counts[fault]++ == 0;
    if (isFirst || m_options.m_onFault != nullptr)
    {
        const KIVCS2CaptionFileFault made = record(fault, place, lost);
        if (isFirst)
            m_first[fault] = made;
        if (m_options.m_onFault != nullptr)
            if (const KIVCS2Status status = m_options.m_onFault(&made, m_options.m_context);
                KIVCS2_FAILED(status))
                return status;
    }
    return m_options.m_strict ? faultRow(fault)->status : KIVCS2STATUS_OK;
}
} // namespace kiv::cc
