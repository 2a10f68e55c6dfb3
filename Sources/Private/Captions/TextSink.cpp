// Shared by the decoders of CEA-608 and CEA-708: cells of a screen, and captions reported to the caller.
#include "Private/Captions/TextSink.h"

#include "Private/Captions/Characters.h"

#include <algorithm>
#include <utility>

namespace kiv::cc
{
namespace
{
// Converts to AARRGGBB; two bits of a colour are four even steps.
uint32_t argb(Colour colour)
{
    constexpr std::array<uint32_t, 4> kAlpha = {255, 255, 128, 0};
    const auto level = [&](unsigned shift) { return (colour >> shift & 3u) * 85u; };
    return kAlpha[colour >> 6] << 24 | level(4) << 16 | level(2) << 8 | level(0);
}

constexpr bool isText(KIVCS2CaptionService service)
{
    return service >= KIVCS2CaptionService_T1;
}

// Returns the bit of a CEA-608 service in KIVCS2CaptionServices::m_line21.
constexpr uint32_t line21Bit(KIVCS2CaptionService service)
{
    return 1u << (isText(service) ? service - KIVCS2CaptionService_T1 + 4
                                  : service - KIVCS2CaptionService_CC1);
}

constexpr bool isDTVCC(KIVCS2CaptionService service)
{
    return service <= KIVCS2CaptionService_S63;
}
} // namespace

bool TextSink::wants(KIVCS2CaptionService service) const
{
    return isDTVCC(service) ? (m_services.m_dtvcc >> service & 1u) != 0
                            : (m_services.m_line21 & line21Bit(service)) != 0;
}

void TextSink::meet(KIVCS2CaptionService service)
{
    if (isDTVCC(service))
        report.m_met.m_dtvcc |= uint64_t{1} << service;
    else
        report.m_met.m_line21 |= line21Bit(service);
}

KIVCS2Status TextSink::takeStatus()
{
    return std::exchange(m_status, KIVCS2STATUS_OK);
}

void TextSink::takeRow(std::span<const Cell> row, size_t index, KIVCS2CaptionText &text)
{
    const auto first = std::ranges::find_if(row, isInk);
    if (first == row.end())
        return;
    const auto last = std::find_if(row.rbegin(), row.rend(), isInk).base();
    if (m_textSize > 0)
        m_text[m_textSize++] = '\n';
    else if (text.m_mode != KIVCS2CaptionMode_Window)
    {
        text.m_anchorRow = static_cast<uint8_t>(index);
        text.m_anchorColumn = static_cast<uint8_t>(first - row.begin());
    }
    for (auto cell = row.begin(); cell != row.end(); ++cell)
    {
        if (cell >= first && cell < last)
            m_textSize += writeUTF8(cell->character == 0 ? U' ' : cell->character, &m_text[m_textSize]);
        if (cell->character == 0)
            continue;
        KIVCS2CaptionCell &made = m_cells[m_cellCount++];
        made = {};
        made.m_row = static_cast<uint8_t>(index);
        made.m_column = static_cast<uint8_t>(cell - row.begin());
        made.m_style = cell->pen.style;
        (void)writeUTF8(cell->character, made.m_text); // 4 bytes at most, of 5
        made.m_colour = argb(cell->pen.colour);
        made.m_background = argb(cell->pen.background);
    }
}

void TextSink::emit(KIVCS2CaptionText text, const Grid &grid, size_t first, size_t last)
{
    if (failed() || !wants(text.m_service))
        return;
    m_cellCount = m_textSize = 0;
    for (size_t row = first; row <= last; ++row)
        takeRow(grid.row(row), row, text);
    if (m_textSize == 0)
        return;
    m_text[m_textSize] = '\0';
    text.m_cells = m_cells.data();
    text.m_cellCount = static_cast<uint32_t>(m_cellCount);
    text.m_text = m_text.data();
    text.m_textSize = static_cast<uint32_t>(m_textSize);
    ++report.m_texts;
    m_status = m_onText(&text, m_context);
}
} // namespace kiv::cc
