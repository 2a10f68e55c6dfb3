// Captions as rows for people and JSON objects for programs.
#include "Captions/CaptionRows.h"

#include "Captions/Services.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <array>

namespace tool
{
namespace
{

std::string timecode(KIVCS2CaptionCounting counting, uint32_t frame)
{
    std::array<char, KIVCS2_CAPTION_TIMECODE_SIZE> text{};
    check(kivCS2CaptionCounting_textFromFrame(counting, frame, text.data()), "timecode");
    return text.data();
}

std::string padded(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

} // namespace

Json captionJson(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting)
{
    return {{"from", timecode(counting, text.m_from)},
            {"until", timecode(counting, text.m_until)},
            {"channel", serviceName(text.m_service)},
            {"mode", modeName(text.m_mode)},
            {"text", text.m_text}};
}

void printCaption(const KIVCS2CaptionText &text, KIVCS2CaptionCounting counting)
{
    const std::string from = timecode(counting, text.m_from);
    const std::string rest = "  " + timecode(counting, text.m_until) + "  " +
                             padded(serviceName(text.m_service), 3) + "  " +
                             padded(std::string{modeName(text.m_mode)}, 9);
    const std::string indent(from.size() + rest.size(), ' ');
    const std::string_view rows = text.m_text;
    for (size_t begin = 0; begin <= rows.size();)
    {
        const size_t end = std::min(rows.find('\n', begin), rows.size());
        out().line((begin == 0 ? Output::strong(from) + rest : Shown{indent}) +
                   rows.substr(begin, end - begin));
        begin = end + 1;
    }
}

} // namespace tool
