// CEA-708: packets put together from triplets, and one service's windows.
#ifndef KIV_PRIVATE_CAPTIONS_DTVCC_H
#define KIV_PRIVATE_CAPTIONS_DTVCC_H

#include "Private/Captions/TextSink.h"

#include <memory>

namespace kiv::cc
{
// One window: its place, its cells, and the pen that writes into them.
struct Window
{
    static constexpr size_t kRows = TextSink::kMostRows, kColumns = TextSink::kMostColumns;
    enum Direction : uint8_t // of printing and of scrolling
    {
        kLeftToRight = 0,
        kRightToLeft = 1,
        kTopToBottom = 2,
        kBottomToTop = 3
    };

    bool defined = false, visible = false;
    bool rolled = false; // a row has been pushed up since the window came on the screen
    bool relative = false, wordWrap = false;
    uint8_t anchorPoint = 0, anchorRow = 0, anchorColumn = 0, justify = 0;
    uint8_t print = kLeftToRight, scroll = kBottomToTop;
    size_t rows = 1, columns = 1;
    size_t row = 0, column = 0; // place of the pen; `columns` and `rows` are past the last
    uint32_t since = 0;
    Pen pen;
    std::array<std::array<Cell, kColumns>, kRows> cells{};

    [[nodiscard]] bool isVertical() const
    {
        return print == kTopToBottom || print == kBottomToTop;
    }
    [[nodiscard]] bool hasInk() const;
    void clear();
    void home();
    void setStyle(uint8_t style);
    void put(char32_t character);
    void backspace();
    // Moves the pen to the next row, or column if printing is vertical. Returns true if it has to scroll.
    [[nodiscard]] bool nextRow();
    void scrollOne();
    void startLine();
};

class Service
{
public:
    Service(KIVCS2CaptionService number, const KIVCS2CaptionCountingInfo &info, TextSink &sink)
        : m_number{number}, m_info{info}, m_sink{sink}
    {
    }

    // Runs the codes of one service block. A code cut off by the block's end is ignored.
    void feed(uint32_t frame, std::span<const uint8_t> codes);
    // Advances the time to `frame`, which may end a delay.
    void tick(uint32_t frame);
    void finish(uint32_t frame);
    [[nodiscard]] bool isDelayed() const
    {
        return m_delayed;
    }

private:
    static constexpr size_t kQueue = 128; // the most bytes that can wait (CEA-708-E, 8.10.5.14)

    void run(uint32_t frame, std::span<const uint8_t> codes);
    void release(uint32_t frame);
    void code(uint32_t frame, std::span<const uint8_t> bytes);
    void control(uint32_t frame, uint8_t code);
    void windows(uint32_t frame, uint8_t code, uint8_t set);
    void define(uint32_t frame, std::span<const uint8_t> bytes);
    void setWindow(std::span<const uint8_t> bytes);
    void setPen(uint8_t code, std::span<const uint8_t> bytes);
    void put(uint32_t frame, char32_t character);
    void carriageReturn(uint32_t frame);
    void end(uint32_t frame, Window &window);
    void emit(uint32_t frame, const Window &window, size_t first, size_t last);
    void reset(uint32_t frame);

    KIVCS2CaptionService m_number;
    const KIVCS2CaptionCountingInfo &m_info;
    TextSink &m_sink;
    std::array<Window, 8> m_windows{};
    Window *m_current = nullptr;
    bool m_delayed = false;
    uint32_t m_delayFrom = 0, m_delayFrames = 0;
    size_t m_queued = 0;
    std::array<uint8_t, kQueue> m_queue;
};

// The caption channel packets of all services.
class DTVCC
{
public:
    DTVCC(const KIVCS2CaptionCountingInfo &info, TextSink &sink) : m_info{info}, m_sink{sink} {}

    // Takes the two bytes of one triplet. KIVCS2STATUS_MEMORY_ERR: out of memory for a service.
    [[nodiscard]] KIVCS2Status feed(uint32_t frame, bool start, uint8_t first, uint8_t second);
    void tick(uint32_t frame);
    void finish(uint32_t frame);

private:
    static constexpr size_t kPacket = 128;

    KIVCS2Status takePacket(uint32_t frame);
    KIVCS2Status takeBlock(uint32_t frame, uint32_t number, std::span<const uint8_t> codes);

    const KIVCS2CaptionCountingInfo &m_info;
    TextSink &m_sink;
    std::array<std::unique_ptr<Service>, 64> m_services;
    bool m_anyDelayed = false;
    bool m_hasSequence = false;
    uint8_t m_sequence = 0;
    size_t m_size = 0, m_used = 0; // bytes of the packet being put together, or 0
    std::array<uint8_t, kPacket> m_packet;
};
} // namespace kiv::cc

#endif
