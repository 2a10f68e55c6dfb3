// The text and the place of a caption as SRT and WebVTT write them.
#include "Private/Captions/CueText.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace kiv::cc
{
namespace
{
constexpr uint32_t kColourMask = 0xFFFFFF;
constexpr uint32_t kWhiteColour = 0xFFFFFF;

// The place of a caption in percent of the picture; in CEA-608 that of its first row and column.
struct Place
{
    unsigned line, position;
    unsigned vertical, horizontal; // 0 top or left, 1 in the middle, 2 bottom or right
};

// A host's text may have no cells.
std::span<const KIVCS2CaptionCell> cellsOf(const KIVCS2CaptionText &text)
{
    return {text.m_cells, text.m_cells == nullptr ? 0 : text.m_cellCount};
}

Place placeOf(const KIVCS2CaptionText &text)
{
    if (text.m_mode == KIVCS2CaptionMode_Window)
    {
        constexpr unsigned kRows = 75, kColumns = 210; // the grid of anchors, 16:9
        const unsigned line = text.m_anchorRelative != 0 ? text.m_anchorRow : text.m_anchorRow * 100u / kRows;
        const unsigned position =
            text.m_anchorRelative != 0 ? text.m_anchorColumn : text.m_anchorColumn * 100u / kColumns;
        return {std::min(line, 100u), std::min(position, 100u), text.m_anchorPoint / 3u,
                text.m_anchorPoint % 3u};
    }
    // The 15 rows and 32 columns lie in the middle 80 percent of the picture.
    unsigned last = text.m_anchorColumn;
    for (const KIVCS2CaptionCell &cell : cellsOf(text))
        last = std::max<unsigned>(last, cell.m_column);
    const unsigned middle = (text.m_anchorColumn + last) / 2;
    return {10 + text.m_anchorRow * 80u / 15, 10 + text.m_anchorColumn * 80u / 32,
            text.m_anchorRow < 5u    ? 0u
            : text.m_anchorRow < 10u ? 1u
                                     : 2u,
            middle < 11   ? 0u
            : middle < 21 ? 1u
                          : 2u};
}

struct ColourName
{
    uint32_t colour;
    const char *name;
};
// The colours that WebVTT names.
constexpr std::array<ColourName, 7> kNames = {{{0x000000, "black"},
                                               {0x0000FF, "blue"},
                                               {0x00FF00, "lime"},
                                               {0x00FFFF, "cyan"},
                                               {0xFF0000, "red"},
                                               {0xFF00FF, "magenta"},
                                               {0xFFFF00, "yellow"}}};

const char *nameOf(uint32_t colour)
{
    const auto row = std::ranges::find(kNames, colour, &ColourName::colour);
    return row == kNames.end() ? nullptr : row->name;
}

// Opens and closes the tags of one file kind as the style of the cells changes.
class Tags
{
public:
    Tags(Output &out, bool isVTT) : m_out{out}, m_isVTT{isVTT} {}

    void change(uint8_t style, uint32_t colour)
    {
        style &= KIVCS2CaptionStyle_Italics | KIVCS2CaptionStyle_Underline;
        if (m_isVTT && nameOf(colour) == nullptr)
            colour = kWhiteColour; // other colours have no name
        if (style == m_style && colour == m_colour)
            return;
        close();
        m_style = style;
        m_colour = colour;
        if (colour != kWhiteColour)
            openColour();
        if ((style & KIVCS2CaptionStyle_Italics) != 0)
            m_out.put("<i>");
        if ((style & KIVCS2CaptionStyle_Underline) != 0)
            m_out.put("<u>");
    }

    void close()
    {
        if ((m_style & KIVCS2CaptionStyle_Underline) != 0)
            m_out.put("</u>");
        if ((m_style & KIVCS2CaptionStyle_Italics) != 0)
            m_out.put("</i>");
        if (m_colour != kWhiteColour)
            m_out.put(m_isVTT ? "</c>" : "</font>");
        m_style = 0;
        m_colour = kWhiteColour;
    }

private:
    void openColour()
    {
        m_out.put(m_isVTT ? "<c." : "<font color=\"#");
        if (m_isVTT)
            m_out.put(nameOf(m_colour));
        else
            for (const unsigned shift : {16u, 8u, 0u})
                m_out.putHex(static_cast<uint8_t>(m_colour >> shift), false);
        m_out.put(m_isVTT ? ">" : "\">");
    }

    Output &m_out;
    bool m_isVTT;
    uint8_t m_style = 0;
    uint32_t m_colour = kWhiteColour;
};

void putCharacters(Output &out, std::string_view text, bool isVTT)
{
    for (const char &character : text)
        if (isVTT && character == '&')
            out.put("&amp;");
        else if (isVTT && character == '<')
            out.put("&lt;");
        else if (isVTT && character == '>')
            out.put("&gt;");
        else
            out.put({&character, 1});
}

bool isSpace(const KIVCS2CaptionCell &cell)
{
    return cell.m_text[0] == ' ' || cell.m_text[0] == '\0';
}

void putRow(Output &out, std::span<const KIVCS2CaptionCell> row, bool isVTT)
{
    while (!row.empty() && isSpace(row.front()))
        row = row.subspan(1);
    while (!row.empty() && isSpace(row.back()))
        row = row.first(row.size() - 1);
    if (row.empty())
        return;
    Tags tags{out, isVTT};
    unsigned next = row.front().m_column;
    for (const KIVCS2CaptionCell &cell : row)
    {
        for (; next < cell.m_column; ++next)
            out.put(" ");
        ++next;
        if (!isSpace(cell))
            tags.change(cell.m_style, cell.m_colour & kColourMask);
        putCharacters(out, {cell.m_text, strnlen(cell.m_text, sizeof cell.m_text)}, isVTT);
    }
    tags.close();
    out.put("\n");
}

void putRows(Output &out, const KIVCS2CaptionText &text, bool isVTT)
{
    std::span<const KIVCS2CaptionCell> rest = cellsOf(text);
    if (rest.empty() && text.m_text != nullptr)
    {
        putCharacters(out, {text.m_text, text.m_textSize}, isVTT);
        out.put("\n");
    }
    while (!rest.empty())
    {
        const auto end =
            std::ranges::find_if(rest, [&](const auto &cell) { return cell.m_row != rest.front().m_row; });
        const auto size = static_cast<size_t>(end - rest.begin());
        putRow(out, rest.first(size), isVTT);
        rest = rest.subspan(size);
    }
}
} // namespace

void putSRTText(Output &out, const KIVCS2CaptionText &text)
{
    // Bottom centre is the default.
    constexpr std::array kPlaces = {"{\\an7}", "{\\an8}", "{\\an9}", "{\\an4}", "{\\an5}",
                                    "{\\an6}", "{\\an1}", "",        "{\\an3}"};
    const Place place = placeOf(text);
    out.put(kPlaces[std::min(place.vertical, 2u) * 3 + place.horizontal]);
    putRows(out, text, false);
}

void putVTTText(Output &out, const KIVCS2CaptionText &text)
{
    putRows(out, text, true);
}

void putVTTPlace(Output &out, const KIVCS2CaptionText &text)
{
    constexpr std::array kLineAlign = {"", ",center", ",end"};
    constexpr std::array kAlign = {"start", "center", "end"};
    const Place place = placeOf(text);
    const bool isWindow = text.m_mode == KIVCS2CaptionMode_Window;
    out.put(" line:");
    out.putNumber(place.line);
    out.put("%");
    out.put(isWindow ? kLineAlign[std::min(place.vertical, 2u)] : "");
    out.put(" position:");
    out.putNumber(place.position);
    out.put("% align:");
    out.put(isWindow ? kAlign[place.horizontal] : kAlign[0]);
}
} // namespace kiv::cc
