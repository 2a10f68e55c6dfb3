// The faults of a caption file: counted, and reported as lines and as JSON.
#include "Captions/Faults.h"

#include "Terminal/Output.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace tool
{

FoundFaults::FoundFaults(std::string file, OnFault onFault)
    : m_file(std::move(file)), m_onFault(std::move(onFault))
{
}

KIVCS2Status FoundFaults::take(const KIVCS2CaptionFileFault *fault, void *context) noexcept
{
    FoundFaults &self = *static_cast<FoundFaults *>(context);
    try
    {
        const KIVCS2CaptionFault number = fault->m_fault;
        if (self.m_counts[number]++ == 0)
            self.m_first[number] = *fault;
        self.m_lost[number] += fault->m_lost ? 1 : 0;
        self.m_latest = *fault;
        if (self.m_onFault)
            self.m_onFault(*fault);
        return KIVCS2STATUS_OK;
    }
    catch (...)
    {
        self.m_thrown = std::current_exception();
        return KIVCS2STATUS_ERR;
    }
}

void FoundFaults::rethrow() const
{
    if (m_thrown)
        std::rethrow_exception(m_thrown);
}

uint64_t FoundFaults::lost() const
{
    return std::accumulate(m_lost.begin(), m_lost.end(), uint64_t{0});
}

void FoundFaults::tell(KIVCS2CaptionFault besides) const
{
    std::vector<KIVCS2CaptionFault> causes;
    for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
        if (m_counts[fault] > 0 && fault != besides && fault != KIVCS2CaptionFault_NoCaptions)
            causes.push_back(fault);
    std::ranges::stable_sort(causes, {}, [&](KIVCS2CaptionFault fault) { return m_first[fault].m_line; });
    for (const KIVCS2CaptionFault fault : causes)
    {
        std::string text = sentence(m_first[fault]);
        if (m_counts[fault] > 1)
            text += "; first of " + std::to_string(m_counts[fault]);
        if (m_lost[fault] > 0)
            text += m_counts[fault] == 1 ? "; lost" : "; " + std::to_string(m_lost[fault]) + " lost";
        note(place(m_file, m_first[fault].m_line) + ": " + text);
    }
}

const KIVCS2CaptionFileFault *FoundFaults::endOf(KIVCS2Status status) const
{
    if (m_latest.m_fault != KIVCS2CaptionFault_None && m_latest.m_status == status)
        return &m_latest;
    const auto first = std::ranges::find_if(m_first, [&](const KIVCS2CaptionFileFault &fault)
                                            { return fault.m_fault != 0 && fault.m_status == status; });
    return first != m_first.end() ? &*first : nullptr;
}

std::string foundText(const KIVCS2CaptionFileFault &fault, size_t most)
{
    std::string text{fault.m_found, std::min<size_t>(fault.m_foundSize, most)};
    while (!text.empty() && text.size() < fault.m_foundSize && (fault.m_found[text.size()] & 0xC0) == 0x80)
        text.pop_back(); // not in the middle of a character
    return visible(text) + (text.size() < fault.m_foundSize ? "..." : "");
}

std::string sentence(const KIVCS2CaptionFileFault &fault, const std::string &end)
{
    constexpr size_t kMostFound = 24;
    std::string text = kivCS2CaptionFile_getFaultName(fault.m_fault);
    if (fault.m_column > 0)
        text += " in column " + std::to_string(fault.m_column);
    if (fault.m_foundSize > 0)
        text += ", \"" + foundText(fault, kMostFound) + "\"";
    return text + "; " + end;
}

std::string sentence(const KIVCS2CaptionFileFault &fault)
{
    return sentence(fault, std::string{"expected "} + fault.m_expected);
}

Json toJson(const std::string &file, const KIVCS2CaptionFileFault &fault)
{
    return {{"file", file},
            {"name", kivCS2CaptionFile_getFaultName(fault.m_fault)},
            {"line", fault.m_line == 0 ? Json() : Json(fault.m_line)},
            {"column", fault.m_column == 0 ? Json() : Json(fault.m_column)},
            {"offset", fault.m_offset},
            {"frame", fault.m_hasFrame ? Json(fault.m_frame) : Json()},
            {"expected", fault.m_expected},
            {"found", std::string{fault.m_found, fault.m_foundSize}},
            {"lost", fault.m_lost}};
}

} // namespace tool
