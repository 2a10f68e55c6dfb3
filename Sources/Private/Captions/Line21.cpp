// One field of CEA-608: two caption channels and two text channels, from byte pairs to captions.
#include "Private/Captions/Line21.h"

#include "Private/Captions/Characters.h"

#include <algorithm>

namespace kiv::cc
{
namespace
{
// Index: bits 1 to 3 of the second byte. White, green, blue, cyan, red, yellow, magenta, and black, which
// only backgrounds have.
constexpr std::array<Colour, 8> kColours = {kWhite, 0x0C, 0x03, 0x0F, 0x30, 0x3C, 0x33, kBlack};
constexpr unsigned kItalics = 7; // in a preamble or a mid-row code

// Row of a preamble by the low 3 bits of the first byte and bit 5 of the second, from 1.
constexpr std::array<uint8_t, 16> kPreambleRow = {11, 11, 1, 2, 3, 4, 12, 13, 14, 15, 5, 6, 7, 8, 9, 10};

void setColour(Pen &pen, uint8_t second)
{
    const unsigned attribute = second >> 1 & 7u;
    pen.style = (second & 1u) != 0 ? KIVCS2CaptionStyle_Underline : 0;
    if (attribute == kItalics)
        pen.style |= KIVCS2CaptionStyle_Italics; // the colour stays
    else
        pen.colour = kColours[attribute];
}

bool hasInk(std::span<const Cell> row)
{
    return std::ranges::any_of(row, isInk);
}
} // namespace

Line21::Row &Line21::writing(Channel &channel)
{
    if (channel.mode == Mode::Text)
        return channel.text;
    return (channel.mode == Mode::PopOn ? channel.hidden : channel.shown)[channel.row];
}

size_t &Line21::column(Channel &channel)
{
    return channel.mode == Mode::Text ? channel.textColumn : channel.column;
}

KIVCS2CaptionService Line21::serviceOf(const Channel &channel, bool text) const
{
    const auto index = static_cast<uint32_t>(&channel - m_channels.data());
    return (text ? KIVCS2CaptionService_T1 : KIVCS2CaptionService_CC1) + 2 * m_field + index;
}

size_t Line21::topOf(const Channel &channel)
{
    return channel.baseRow + 1 - std::min(channel.rollRows, channel.baseRow + 1);
}

void Line21::feed(uint32_t frame, uint8_t first, uint8_t second)
{
    first &= 0x7F;
    second &= 0x7F;
    if ((first | second) == 0)
        return;
    ++m_sink.report.m_pairs[m_field];
    if (first >= 0x10 && first < 0x20)
    {
        m_inXDS = false;
        // Codes are sent twice, in successive frames; the second only replaces a lost first one. At 24
        // frames a second there may be a frame without a pair between the two.
        constexpr uint32_t kFramesOfARepeat = 2;
        const uint32_t code = first * 256u + second;
        // At midnight frames start again from 0.
        const bool isSoon =
            frame - m_lastFrame <= kFramesOfARepeat || (frame < m_lastFrame && frame < kFramesOfARepeat);
        if (m_mayRepeat && code == m_lastControl && isSoon)
        {
            m_mayRepeat = false;
            return;
        }
        m_mayRepeat = true;
        m_lastControl = code;
        m_lastFrame = frame;
        m_current = first >> 3 & 1u;
        return control(frame, m_channels[m_current], first & 0x77, second);
    }
    m_mayRepeat = false;
    if (first < 0x10)
        m_inXDS = m_field == 1 && (first == 0 ? m_inXDS : first != 0x0F);
    else if (!m_inXDS)
    {
        Channel &channel = m_channels[m_current];
        put(frame, channel, basicCharacter(first));
        if (second >= 0x20)
            put(frame, channel, basicCharacter(second));
    }
}

void Line21::finish(uint32_t frame)
{
    for (Channel &channel : m_channels)
    {
        end(frame, channel);
        endTextRow(frame, channel);
        channel = {};
    }
    m_current = 0;
    m_mayRepeat = m_inXDS = false;
}

void Line21::control(uint32_t frame, Channel &channel, uint8_t set, uint8_t second)
{
    if (second >= 0x40)
        return preamble(channel, set, second);
    if (second < 0x20)
        return; // not a code
    const bool isLow = second < 0x30;
    if (set == 0x10 && isLow)
    {
        channel.pen.background =
            static_cast<Colour>(kColours[second >> 1 & 7u] | ((second & 1u) != 0 ? kTranslucent : 0));
        putBack(frame, channel, U' '); // replaces the space sent before it (CEA-608-E, 6.2)
    }
    else if (set == 0x11 && isLow)
    {
        setColour(channel.pen, second);
        put(frame, channel, U' ');
    }
    else if (set == 0x11)
        put(frame, channel, specialCharacter(second));
    else if (set == 0x12 || set == 0x13)
        // An extended character replaces the plain character sent before it for older decoders.
        putBack(frame, channel, extendedCharacter(set, second));
    else if ((set == 0x14 || set == 0x15) && isLow)
        command(frame, channel, second & 0x0F);
    else if (set == 0x17)
        tabOrBlack(frame, channel, second);
}

void Line21::tabOrBlack(uint32_t frame, Channel &channel, uint8_t second)
{
    if (second >= 0x21 && second < 0x24)
        column(channel) = std::min(column(channel) + (second & 3u), kColumns - 1);
    if (second < 0x2D || second >= 0x30)
        return;
    if (second == 0x2D)
        channel.pen.background = kTransparent;
    else
    {
        channel.pen.colour = kBlack;
        channel.pen.style = second == 0x2F ? KIVCS2CaptionStyle_Underline : 0;
    }
    putBack(frame, channel, U' '); // like a background code
}

void Line21::preamble(Channel &channel, uint8_t set, uint8_t second)
{
    channel.pen = {};
    if (channel.mode != Mode::Text)
        moveTo(channel, kPreambleRow[(set & 7u) * 2u + (second >> 5 & 1u)] - 1u);
    const bool isIndent = (second & 0x10u) != 0;
    column(channel) = isIndent ? (second >> 1 & 7u) * 4u : 0u;
    if (isIndent)
        channel.pen.style = (second & 1u) != 0 ? KIVCS2CaptionStyle_Underline : 0;
    else
        setColour(channel.pen, second);
}

// In roll-up a preamble moves the whole window with its rows.
void Line21::moveTo(Channel &channel, size_t row)
{
    if (channel.mode == Mode::RollUp && row != channel.baseRow)
    {
        const Memory before = channel.shown;
        channel.shown = {};
        for (size_t up = 0; up < channel.rollRows && up <= row && up <= channel.baseRow; ++up)
            channel.shown[row - up] = before[channel.baseRow - up];
        channel.baseRow = row;
    }
    channel.row = row;
}

void Line21::command(uint32_t frame, Channel &channel, uint8_t code)
{
    m_sink.meet(serviceOf(channel, code == 10 || code == 11));
    switch (code)
    {
    case 0: // resume caption loading
        channel.mode = Mode::PopOn;
        break;
    case 1:
        backspace(channel);
        break;
    case 4: // delete to end of row
        std::fill(writing(channel).begin() + static_cast<std::ptrdiff_t>(column(channel)),
                  writing(channel).end(), Cell{});
        break;
    case 5: // roll-up captions of 2, 3 and 4 rows
    case 6:
    case 7:
        startRollUp(frame, channel, code - 3u);
        break;
    case 8: // flash on: a spacing code
        channel.pen.style |= KIVCS2CaptionStyle_Flash;
        put(frame, channel, U' ');
        break;
    case 9: // resume direct captioning
        channel.mode = Mode::PaintOn;
        break;
    case 10: // text restart
        endTextRow(frame, channel);
        startText(channel);
        break;
    case 11: // resume text display
        startText(channel);
        break;
    case 12: // erase displayed memory
        end(frame, channel);
        channel.shown = {};
        break;
    case 13:
        carriageReturn(frame, channel);
        break;
    case 14: // erase nondisplayed memory
        channel.hidden = {};
        break;
    case 15: // end of caption
        end(frame, channel);
        std::swap(channel.shown, channel.hidden);
        channel.mode = Mode::PopOn;
        channel.how = KIVCS2CaptionMode_PopOn;
        channel.since = frame;
        break;
    default: // reserved
        break;
    }
}

void Line21::carriageReturn(uint32_t frame, Channel &channel)
{
    if (channel.mode == Mode::Text)
        return endTextRow(frame, channel);
    if (channel.mode != Mode::RollUp)
        return;
    end(frame, channel);
    for (size_t row = topOf(channel); row < channel.baseRow; ++row)
        channel.shown[row] = channel.shown[row + 1];
    channel.shown[channel.baseRow] = {};
    channel.row = channel.baseRow;
    channel.column = 0;
    channel.since = frame;
    channel.pen = {};
}

void Line21::startText(Channel &channel)
{
    if (channel.mode != Mode::Text)
        channel.captionMode = channel.mode;
    channel.mode = Mode::Text;
}

void Line21::startRollUp(uint32_t frame, Channel &channel, size_t rows)
{
    // The text service may interrupt captions and does not change their screen.
    if ((channel.mode == Mode::Text ? channel.captionMode : channel.mode) != Mode::RollUp)
    {
        end(frame, channel);
        channel.shown = {};
        channel.hidden = {};
        channel.baseRow = kRows - 1;
        channel.row = kRows - 1;
        channel.column = 0;
        channel.since = frame;
        channel.pen = {};
    }
    else if (rows < channel.rollRows)
        eraseAbove(frame, channel, rows);
    channel.mode = Mode::RollUp;
    channel.how = KIVCS2CaptionMode_RollUp;
    channel.rollRows = rows;
}

// Removes the upper rows, because the window now has fewer.
void Line21::eraseAbove(uint32_t frame, Channel &channel, size_t rows)
{
    const auto first = channel.shown.begin();
    const auto last =
        first + static_cast<std::ptrdiff_t>(channel.baseRow + 1 - std::min(rows, channel.baseRow + 1));
    if (m_sink.screens() && std::any_of(first, last, hasInk))
    {
        end(frame, channel);
        channel.since = frame;
    }
    std::fill(first, last, Row{});
}

void Line21::put(uint32_t frame, Channel &channel, char32_t character)
{
    if (channel.mode == Mode::None)
        return;
    if (channel.mode == Mode::PaintOn && channel.how == KIVCS2CaptionMode_RollUp && character != U' ')
    {
        // From this point the rows are one screen.
        end(frame, channel);
        channel.since = frame;
        channel.how = KIVCS2CaptionMode_PaintOn;
    }
    if (channel.mode == Mode::PaintOn || channel.mode == Mode::RollUp)
    {
        const bool isRollUp = channel.mode == Mode::RollUp;
        const bool isFirst = isRollUp && !m_sink.screens() ? !hasInk(channel.shown[channel.baseRow])
                                                           : std::ranges::none_of(channel.shown, hasInk);
        if (isFirst)
        {
            channel.since = frame;
            channel.how = isRollUp ? KIVCS2CaptionMode_RollUp : KIVCS2CaptionMode_PaintOn;
        }
    }
    if (channel.mode == Mode::Text && std::ranges::none_of(channel.text, isInk))
        channel.textSince = frame;
    // Past the last column, a character replaces the one in the last column.
    size_t &at = column(channel);
    writing(channel)[std::min(at, kColumns - 1)] = {character, channel.pen};
    at = std::min(at + 1, kColumns);
}

void Line21::putBack(uint32_t frame, Channel &channel, char32_t character)
{
    size_t &at = column(channel);
    at -= at > 0 ? 1 : 0;
    put(frame, channel, character);
}

void Line21::backspace(Channel &channel)
{
    size_t &at = column(channel);
    if (at > 0)
        writing(channel)[--at] = {};
}

void Line21::end(uint32_t frame, const Channel &channel)
{
    // The upper rows of roll-up were reported when they were pushed up.
    const bool rolled = channel.how == KIVCS2CaptionMode_RollUp && !m_sink.screens();
    KIVCS2CaptionText text{};
    text.m_from = channel.since;
    text.m_until = frame;
    text.m_service = serviceOf(channel, false);
    text.m_mode = channel.how;
    text.m_rows = kRows;
    text.m_columns = kColumns;
    m_sink.emit(text, {channel.shown[0].data(), kColumns, kColumns}, rolled ? channel.baseRow : 0,
                rolled ? channel.baseRow : kRows - 1);
}

void Line21::endTextRow(uint32_t frame, Channel &channel)
{
    KIVCS2CaptionText text{};
    text.m_from = channel.textSince;
    text.m_until = frame;
    text.m_service = serviceOf(channel, true);
    text.m_mode = KIVCS2CaptionMode_Text;
    text.m_rows = kRows;
    text.m_columns = kColumns;
    m_sink.emit(text, {channel.text.data(), kColumns, kColumns}, 0, 0);
    channel.text = {};
    channel.textColumn = 0;
}
} // namespace kiv::cc
