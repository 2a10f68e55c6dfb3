// Shared by the decoders of CEA-608 and CEA-708: cells of a screen, and captions reported to the caller.
#ifndef KIV_PRIVATE_CAPTIONS_TEXT_SINK_H
#define KIV_PRIVATE_CAPTIONS_TEXT_SINK_H

#include "KIVCS2CaptionDecoder.h"

#include <array>
#include <span>

namespace kiv::cc
{
// A colour in the form of CEA-708: opacity, red, green and blue, two bits each. Opacity 0 is solid, 1
// flashing, 2 translucent, 3 transparent.
using Colour = uint8_t;
constexpr Colour kWhite = 0x3F;
constexpr Colour kBlack = 0x00;
constexpr Colour kTransparent = 0xC0;
constexpr Colour kTranslucent = 0x80;

struct Pen
{
    uint8_t style = 0; // bits of KIVCS2CaptionStyle
    Colour colour = kWhite;
    Colour background = kBlack;
};

struct Cell
{
    char32_t character = 0; // 0: an empty cell
    Pen pen;
};
[[nodiscard]] constexpr bool isInk(const Cell &cell)
{
    return cell.character != 0 && cell.character != U' ';
}

// Rows of cells; `stride` is the distance from one row to the next, in cells.
struct Grid
{
    const Cell *cells;
    size_t stride, columns;

    [[nodiscard]] std::span<const Cell> row(size_t index) const
    {
        return {cells + index * stride, columns};
    }
};

class TextSink
{
public:
    static constexpr size_t kMostRows = 15, kMostColumns = 42; // size of the largest CEA-708 window

    TextSink(const KIVCS2CaptionServices &services, bool screens, KIVCS2CaptionTextFunc onText, void *context)
        : m_services{services}, m_screens{screens}, m_onText{onText}, m_context{context}
    {
    }

    [[nodiscard]] bool wants(KIVCS2CaptionService service) const;
    // Returns true if roll-up is reported as whole screens instead of rows.
    [[nodiscard]] bool screens() const
    {
        return m_screens;
    }
    // Reports the rows `first` to `last`, if there is ink in them. `text` has the members that the grid does
    // not have.
    void emit(KIVCS2CaptionText text, const Grid &grid, size_t first, size_t last);
    // Returns and clears the status of the callback; a failure ends the call of feed.
    [[nodiscard]] KIVCS2Status takeStatus();
    [[nodiscard]] bool failed() const
    {
        return KIVCS2_FAILED(m_status);
    }
    void meet(KIVCS2CaptionService service);

    KIVCS2CaptionDecoderReport report{};

private:
    void takeRow(std::span<const Cell> row, size_t index, KIVCS2CaptionText &text);

    KIVCS2CaptionServices m_services;
    bool m_screens;
    KIVCS2CaptionTextFunc m_onText;
    void *m_context;
    KIVCS2Status m_status = KIVCS2STATUS_OK;
    size_t m_cellCount = 0, m_textSize = 0;
    std::array<KIVCS2CaptionCell, kMostRows * kMostColumns> m_cells;
    std::array<char, kMostRows *(kMostColumns * 4 + 1)> m_text;
};
} // namespace kiv::cc

#endif
