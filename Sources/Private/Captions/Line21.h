// One field of CEA-608: two caption channels and two text channels, from byte pairs to captions.
#ifndef KIV_PRIVATE_CAPTIONS_LINE21_H
#define KIV_PRIVATE_CAPTIONS_LINE21_H

#include "Private/Captions/TextSink.h"

namespace kiv::cc
{
class Line21
{
public:
    // `field` is 0 or 1: its channels are CC1 and CC2, or CC3 and CC4.
    Line21(uint32_t field, TextSink &sink) : m_sink{sink}, m_field{field} {}

    void feed(uint32_t frame, uint8_t first, uint8_t second);
    // Ends the captions on the screen and resets all state.
    void finish(uint32_t frame);

private:
    static constexpr size_t kRows = 15, kColumns = 32;
    using Row = std::array<Cell, kColumns>;
    using Memory = std::array<Row, kRows>;

    enum class Mode : uint8_t
    {
        None,
        PopOn,
        RollUp,
        PaintOn,
        Text
    };

    struct Channel
    {
        Mode mode = Mode::None;
        Mode captionMode = Mode::None; // while `mode` is Text: the mode before it
        Memory shown{};
        Memory hidden{};
        size_t row = kRows - 1;
        size_t baseRow = kRows - 1; // roll-up: the row of new text
        size_t column = 0;          // kColumns: past the last column
        size_t rollRows = 2;
        uint32_t since = 0;                              // the frame on which the shown rows appeared
        KIVCS2CaptionMode how = KIVCS2CaptionMode_PopOn; // the mode that put them there
        Pen pen;
        Row text{}; // the text channel's row
        size_t textColumn = 0;
        uint32_t textSince = 0;
    };

    void control(uint32_t frame, Channel &channel, uint8_t set, uint8_t second);
    void tabOrBlack(uint32_t frame, Channel &channel, uint8_t second);
    void command(uint32_t frame, Channel &channel, uint8_t code);
    void put(uint32_t frame, Channel &channel, char32_t character);
    void putBack(uint32_t frame, Channel &channel, char32_t character);
    void backspace(Channel &channel);
    void preamble(Channel &channel, uint8_t set, uint8_t second);
    void carriageReturn(uint32_t frame, Channel &channel);
    void end(uint32_t frame, const Channel &channel);
    void endTextRow(uint32_t frame, Channel &channel);
    static void startText(Channel &channel);
    void startRollUp(uint32_t frame, Channel &channel, size_t rows);
    void eraseAbove(uint32_t frame, Channel &channel, size_t rows);
    void moveTo(Channel &channel, size_t row);
    [[nodiscard]] static Row &writing(Channel &channel);
    [[nodiscard]] static size_t &column(Channel &channel);
    [[nodiscard]] KIVCS2CaptionService serviceOf(const Channel &channel, bool text) const;
    [[nodiscard]] static size_t topOf(const Channel &channel);

    TextSink &m_sink;
    uint32_t m_field;
    std::array<Channel, 2> m_channels{};
    size_t m_current = 0;
    uint32_t m_lastControl = 0; // both bytes
    uint32_t m_lastFrame = 0;   // frame of m_lastControl
    bool m_mayRepeat = false;
    bool m_inXDS = false; // field 2: the characters belong to extended data services
};
} // namespace kiv::cc

#endif
