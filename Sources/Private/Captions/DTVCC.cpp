// CEA-708: packets put together from triplets, and one service's windows.
#include "Private/Captions/DTVCC.h"

#include "Private/Captions/Characters.h"

#include <algorithm>
#include <new>

namespace kiv::cc
{
namespace
{
// Codes of C0 and C1 (CEA-708-E, 7.1).
enum : uint8_t
{
    kBackspace = 0x08,
    kFormFeed = 0x0C,
    kCarriageReturn = 0x0D,
    kHorizontalReturn = 0x0E,
    kExtended = 0x10, // EXT1
    kP16 = 0x18,
    kSetCurrent = 0x80, // to 87
    kClear = 0x88,
    kDisplay = 0x89,
    kHide = 0x8A,
    kToggle = 0x8B,
    kDelete = 0x8C,
    kDelay = 0x8D,
    kDelayCancel = 0x8E,
    kReset = 0x8F,
    kPenAttributes = 0x90,
    kPenColour = 0x91,
    kPenLocation = 0x92,
    kWindowAttributes = 0x97,
    kDefine = 0x98 // to 9F
};

// Bytes of the codes 80h to 9Fh.
constexpr std::array<uint8_t, 32> kC1Size = {1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 2, 1, 1,
                                             3, 4, 3, 1, 1, 1, 1, 5, 7, 7, 7, 7, 7, 7, 7, 7};

// Returns the bytes of the first code in `codes`; more than `codes` has if the code is cut.
size_t sizeOfCode(std::span<const uint8_t> codes)
{
    const uint8_t first = codes[0];
    if (first == kExtended)
    {
        if (codes.size() < 2)
            return 2;
        const uint8_t second = codes[1];
        if (second < 0x20) // C2: zero to three more bytes
            return 2u + second / 8;
        if (second >= 0x80 && second < 0x90) // C3: four or five
            return 2u + (second < 0x88 ? 4 : 5);
        if (second >= 0x90 && second < 0xA0) // C3 of variable length: the next byte has it
            return codes.size() < 3 ? 3 : 3u + (codes[2] & 0x3F);
        return 2;
    }
    if (first < 0x20)
        return first < 0x10 ? 1 : first < 0x18 ? 2 : 3;
    return first >= 0x80 && first < 0xA0 ? kC1Size[first - 0x80u] : 1;
}

// Replaces line ends and other controls, which would break the text.
char32_t p16Character(uint8_t high, uint8_t low)
{
    const auto character = static_cast<char32_t>(high << 8 | low);
    const bool isControl = character < 0x20 || (character >= 0x7F && character < 0xA0);
    return isControl ? U'\uFFFD' : character;
}

struct WindowStyle
{
    uint8_t justify, print, scroll;
    bool wordWrap;
};
// The styles 1 to 7 that a definition may name (CEA-708-E, table 16): pop-up, pop-up without a
// background, centred pop-up; the same three for roll-up; ticker tape.
constexpr std::array<WindowStyle, 8> kStyles = {{
    {0, Window::kLeftToRight, Window::kBottomToTop, false},
    {0, Window::kLeftToRight, Window::kBottomToTop, false},
    {0, Window::kLeftToRight, Window::kBottomToTop, false},
    {2, Window::kLeftToRight, Window::kBottomToTop, false},
    {0, Window::kLeftToRight, Window::kBottomToTop, true},
    {0, Window::kLeftToRight, Window::kBottomToTop, true},
    {2, Window::kLeftToRight, Window::kBottomToTop, true},
    {0, Window::kTopToBottom, Window::kRightToLeft, false},
}};
} // namespace

// ---- Windows ----

bool Window::hasInk() const
{
    return std::any_of(cells.begin(), cells.begin() + static_cast<ptrdiff_t>(rows),
                       [](const auto &line) { return std::ranges::any_of(line, isInk); });
}

void Window::clear()
{
    cells = {};
    rolled = false;
}

void Window::home()
{
    row = print == kBottomToTop ? rows - 1 : 0;
    column = print == kRightToLeft ? columns - 1 : 0;
}

void Window::setStyle(uint8_t style)
{
    const WindowStyle &named = kStyles[style & 7u];
    justify = named.justify;
    print = named.print;
    scroll = named.scroll;
    wordWrap = named.wordWrap;
}

// Past the last place the pen stays and the character is lost. To the left of the first place the number
// wraps to the largest one, which is also past the last.
void Window::put(char32_t character)
{
    if (row >= rows || column >= columns)
        return;
    cells[row][column] = {character, pen};
    if (isVertical())
        row += print == kTopToBottom ? 1 : SIZE_MAX;
    else
        column += print == kLeftToRight ? 1 : SIZE_MAX;
}

void Window::backspace()
{
    size_t &at = isVertical() ? row : column;
    const size_t end = isVertical() ? rows : columns;
    const bool rises = print == kLeftToRight || print == kTopToBottom;
    const size_t back = rises ? at - 1 : at + 1; // may wrap; the check below catches it
    if (back >= end)
        return;
    at = back;
    cells[row][column] = {};
}

// Erases the pen's line and moves the pen to its start.
void Window::startLine()
{
    if (isVertical())
    {
        for (auto &line : cells)
            line[std::min(column, columns - 1)] = {};
        row = print == kTopToBottom ? 0 : rows - 1;
        return;
    }
    cells[std::min(row, rows - 1)] = {};
    column = print == kLeftToRight ? 0 : columns - 1;
}

bool Window::nextRow()
{
    if (isVertical())
    {
        row = print == kTopToBottom ? 0 : rows - 1;
        column = std::min(column, columns - 1);
        const size_t next = scroll == kLeftToRight ? column - 1 : column + 1;
        if (next >= columns)
            return true;
        column = next;
        return false;
    }
    column = print == kLeftToRight ? 0 : columns - 1;
    row = std::min(row, rows - 1);
    const size_t next = scroll == kTopToBottom ? row - 1 : row + 1;
    if (next >= rows)
        return true;
    row = next;
    return false;
}

void Window::scrollOne()
{
    const auto end = cells.begin() + static_cast<ptrdiff_t>(rows);
    if (isVertical())
    {
        for (auto line = cells.begin(); line != end; ++line)
        {
            const auto edge = line->begin() + static_cast<ptrdiff_t>(columns);
            if (scroll == kLeftToRight)
                std::move_backward(line->begin(), edge - 1, edge);
            else
                std::move(line->begin() + 1, edge, line->begin());
            *(scroll == kLeftToRight ? line->begin() : edge - 1) = {};
        }
        return;
    }
    if (scroll == kTopToBottom)
    {
        std::move_backward(cells.begin(), end - 1, end);
        cells[0] = {};
        return;
    }
    std::move(cells.begin() + 1, end, cells.begin());
    *(end - 1) = {};
}

// ---- A service ----

void Service::feed(uint32_t frame, std::span<const uint8_t> codes)
{
    tick(frame);
    if (!m_delayed)
        return run(frame, codes);
    // A delay ends by a code, or because no more bytes can wait.
    bool ends = codes.size() > m_queue.size() - m_queued;
    for (auto rest = codes; !rest.empty() && !ends;
         rest = rest.subspan(std::min(sizeOfCode(rest), rest.size())))
        ends = rest[0] == kDelayCancel || rest[0] == kReset;
    if (!ends)
    {
        std::ranges::copy(codes, m_queue.begin() + static_cast<ptrdiff_t>(m_queued));
        m_queued += codes.size();
        return;
    }
    while (m_delayed) // the waiting codes may start another delay
        release(frame);
    run(frame, codes);
}

void Service::tick(uint32_t frame)
{
    // A frame before the delay's start is due to a seek or to midnight: its length is then unknown. The
    // difference wraps to a large number, which ends the delay.
    while (m_delayed && frame - m_delayFrom >= m_delayFrames)
        release(frame);
}

void Service::release(uint32_t frame)
{
    const std::array<uint8_t, kQueue> waiting = m_queue;
    const size_t count = m_queued;
    m_delayed = false;
    m_queued = 0;
    run(frame, {waiting.data(), count});
}

void Service::finish(uint32_t frame)
{
    while (m_delayed)
        release(frame);
    reset(frame);
}

void Service::run(uint32_t frame, std::span<const uint8_t> codes)
{
    while (!codes.empty() && !m_sink.failed())
    {
        const size_t size = sizeOfCode(codes);
        if (size > codes.size())
            return;
        code(frame, codes.first(size));
        codes = codes.subspan(size);
        if (m_delayed)
        {
            // At most one block into an empty queue, or the bytes that have just left the queue.
            m_queued = std::min(codes.size(), m_queue.size());
            std::copy_n(codes.begin(), m_queued, m_queue.begin());
            return;
        }
    }
}

void Service::code(uint32_t frame, std::span<const uint8_t> bytes)
{
    const uint8_t first = bytes[0];
    if (first == kExtended)
    {
        // The extended sets C2 and C3 have no codes yet.
        const uint8_t second = bytes[1];
        if ((second >= 0x20 && second < 0x80) || second >= 0xA0)
            put(frame, extendedServiceCharacter(second));
    }
    else if (first == kP16)
        put(frame, p16Character(bytes[1], bytes[2]));
    else if (first < 0x20)
        control(frame, first);
    else if (first < 0x80 || first >= 0xA0)
        put(frame, serviceCharacter(first));
    else if (first < kClear)
    {
        if (m_windows[first - kSetCurrent].defined)
            m_current = &m_windows[first - kSetCurrent];
    }
    else if (first <= kDelete)
        windows(frame, first, bytes[1]);
    else if (first == kDelay)
    {
        // In tenths of a second.
        m_delayFrom = frame;
        m_delayFrames = static_cast<uint32_t>(uint64_t{bytes[1]} * m_info.m_numerator /
                                              (uint64_t{10} * m_info.m_denominator));
        m_delayed = m_delayFrames > 0;
    }
    else if (first == kReset)
        reset(frame);
    else if (first >= kDefine)
        define(frame, bytes);
    else if (m_current != nullptr && first == kWindowAttributes)
        setWindow(bytes);
    else if (m_current != nullptr && first >= kPenAttributes && first <= kPenLocation)
        setPen(first, bytes);
}

void Service::control(uint32_t frame, uint8_t code)
{
    if (m_current == nullptr)
        return;
    Window &window = *m_current;
    if (code == kBackspace)
        window.backspace();
    else if (code == kFormFeed)
    {
        if (window.visible)
            end(frame, window);
        window.clear();
        window.home();
        window.since = frame;
    }
    else if (code == kCarriageReturn)
        carriageReturn(frame);
    else if (code == kHorizontalReturn)
    {
        window.startLine();
    }
}

void Service::windows(uint32_t frame, uint8_t code, uint8_t set)
{
    for (size_t index = 0; index < m_windows.size(); ++index)
    {
        Window &window = m_windows[index];
        if ((set >> index & 1u) == 0 || !window.defined)
            continue;
        const bool shows = code == kDisplay || (code == kToggle && !window.visible);
        if (window.visible && !shows)
            end(frame, window);
        if (code == kClear)
        {
            window.clear();
            window.since = frame;
        }
        else if (code == kDelete)
        {
            window.defined = window.visible = false;
            m_current = m_current == &window ? nullptr : m_current;
        }
        else
        {
            window.since = window.visible ? window.since : frame;
            window.rolled = window.rolled && window.visible;
            window.visible = shows;
        }
    }
}

void Service::define(uint32_t frame, std::span<const uint8_t> bytes)
{
    ++m_sink.report.m_windows;
    Window &window = m_windows[bytes[0] - kDefine];
    const bool isNew = !window.defined;
    const bool wasVisible = window.visible;
    const size_t rows = std::min<size_t>((bytes[4] & 0x0Fu) + 1u, Window::kRows);
    const size_t columns = std::min<size_t>((bytes[5] & 0x3Fu) + 1u, Window::kColumns);
    if (isNew)
        window = {};
    const bool smaller = !isNew && (rows < window.rows || columns < window.columns);
    const bool visible = (bytes[1] & 0x20u) != 0;
    if (wasVisible && (smaller || !visible))
        end(frame, window);
    window.defined = true;
    window.visible = visible;
    window.relative = (bytes[2] & 0x80u) != 0;
    window.anchorRow = bytes[2] & 0x7F;
    window.anchorColumn = bytes[3];
    window.anchorPoint = std::min<uint8_t>(bytes[4] >> 4, 8);
    window.rows = rows;
    window.columns = columns;
    // If the window exists, style 0 keeps its attributes and pen style 0 keeps its pen.
    const uint8_t style = bytes[6] >> 3 & 7u;
    if (isNew || style != 0)
        window.setStyle(style);
    if (isNew || (bytes[6] & 7u) != 0)
    {
        window.pen = {};
        window.pen.background = (bytes[6] & 7u) >= 6 ? kTransparent : kBlack; // 6, 7: no background
    }
    if (isNew)
        window.home();
    if (isNew || (visible && !wasVisible))
        window.since = frame;
    if (smaller)
        for (size_t row = 0; row < window.cells.size(); ++row)
            std::fill(window.cells[row].begin() + static_cast<ptrdiff_t>(row < rows ? columns : 0),
                      window.cells[row].end(), Cell{});
    m_current = &window;
}

void Service::setWindow(std::span<const uint8_t> bytes)
{
    m_current->justify = bytes[3] & 3u;
    m_current->scroll = bytes[3] >> 2 & 3u;
    m_current->print = bytes[3] >> 4 & 3u;
    m_current->wordWrap = (bytes[3] & 0x40u) != 0;
}

void Service::setPen(uint8_t code, std::span<const uint8_t> bytes)
{
    Window &window = *m_current;
    if (code == kPenAttributes)
        window.pen.style = static_cast<uint8_t>((window.pen.style & KIVCS2CaptionStyle_Flash) |
                                                ((bytes[2] & 0x80u) != 0 ? KIVCS2CaptionStyle_Italics : 0) |
                                                ((bytes[2] & 0x40u) != 0 ? KIVCS2CaptionStyle_Underline : 0));
    else if (code == kPenColour)
    {
        constexpr uint8_t kFlashing = 1;
        window.pen.colour = bytes[1];
        window.pen.background = bytes[2];
        window.pen.style &= static_cast<uint8_t>(~KIVCS2CaptionStyle_Flash);
        if (bytes[1] >> 6 == kFlashing)
            window.pen.style |= KIVCS2CaptionStyle_Flash;
    }
    else
    {
        const size_t row = std::min<size_t>(bytes[1] & 0x0Fu, window.rows - 1);
        // The rolled-up rows are one screen again, because the row that the pen leaves was not reported.
        window.rolled = window.rolled && row == window.row;
        window.row = row;
        window.column = std::min<size_t>(bytes[2] & 0x3Fu, window.columns - 1);
    }
}

void Service::put(uint32_t frame, char32_t character)
{
    if (m_current == nullptr)
        return;
    Window &window = *m_current;
    if (window.visible && character != U' ' && !window.hasInk())
        window.since = frame;
    if (window.wordWrap && !window.isVertical() && window.column >= window.columns)
        carriageReturn(frame);
    window.put(character);
}

// A row must be reported before it is pushed out. In a window that scrolls on the screen each row is
// reported when the next one pushes it up, as in roll-up.
void Service::carriageReturn(uint32_t frame)
{
    Window &window = *m_current;
    const size_t row = std::min(window.row, window.rows - 1);
    if (!window.nextRow())
        return;
    if (window.visible)
    {
        const bool isRow = window.rolled && !m_sink.screens() && !window.isVertical();
        emit(frame, window, isRow ? row : 0, isRow ? row : window.rows - 1);
        window.rolled = true;
        window.since = frame;
    }
    window.scrollOne();
}

// Reports the window's captions, which leave the screen.
void Service::end(uint32_t frame, Window &window)
{
    const bool isRow = window.rolled && !m_sink.screens() && !window.isVertical();
    const size_t row = std::min(window.row, window.rows - 1);
    emit(frame, window, isRow ? row : 0, isRow ? row : window.rows - 1);
    window.since = frame;
}

void Service::emit(uint32_t frame, const Window &window, size_t first, size_t last)
{
    KIVCS2CaptionText text{};
    text.m_from = window.since;
    text.m_until = frame;
    text.m_service = m_number;
    text.m_mode = KIVCS2CaptionMode_Window;
    text.m_window = static_cast<uint8_t>(&window - m_windows.data());
    text.m_anchorPoint = window.anchorPoint;
    text.m_anchorRow = window.anchorRow;
    text.m_anchorColumn = window.anchorColumn;
    text.m_anchorRelative = window.relative;
    text.m_justify = window.justify;
    text.m_rows = static_cast<uint8_t>(window.rows);
    text.m_columns = static_cast<uint8_t>(window.columns);
    m_sink.emit(text, {window.cells[0].data(), Window::kColumns, window.columns}, first, last);
}

void Service::reset(uint32_t frame)
{
    for (Window &window : m_windows)
    {
        if (window.visible)
            end(frame, window);
        window = {};
    }
    m_current = nullptr;
    m_delayed = false;
    m_queued = 0;
}

// ---- Packets ----

KIVCS2Status DTVCC::feed(uint32_t frame, bool start, uint8_t first, uint8_t second)
{
    if (start)
    {
        KIVCS2Status status = KIVCS2STATUS_OK;
        if (m_used < m_size)
        {
            ++m_sink.report.m_dtvccCut;
            status = takePacket(frame); // takes the complete blocks
        }
        const size_t code = first & 0x3Fu; // half the packet's bytes, including the header's byte
        m_size = code == 0 ? kPacket : code * 2;
        m_used = 0;
        if (KIVCS2_FAILED(status))
            return status;
    }
    if (m_used >= m_size)
        return KIVCS2STATUS_OK; // the end of a packet whose start is lost
    m_packet[m_used++] = first;
    m_packet[m_used++] = second;
    if (m_used < m_size)
        return KIVCS2STATUS_OK;
    ++m_sink.report.m_dtvccPackets;
    return takePacket(frame);
}

KIVCS2Status DTVCC::takePacket(uint32_t frame)
{
    const uint8_t sequence = m_packet[0] >> 6;
    m_sink.report.m_dtvccBreaks += m_hasSequence && sequence != (m_sequence + 1) % 4 ? 1 : 0;
    m_hasSequence = true;
    m_sequence = sequence;
    std::span<const uint8_t> rest{m_packet.data() + 1, m_used - 1};
    m_size = m_used = 0;
    while (!rest.empty())
    {
        constexpr uint8_t kLongNumber = 7;
        uint32_t number = rest[0] >> 5;
        const size_t size = rest[0] & 0x1Fu;
        rest = rest.subspan(1);
        if (number == 0) // a null block: padding up to the end
            return KIVCS2STATUS_OK;
        if (size == 0) // an empty block has no extended header
            continue;
        if (number == kLongNumber)
        {
            if (rest.empty())
                return KIVCS2STATUS_OK;
            number = rest[0] & 0x3Fu;
            rest = rest.subspan(1);
        }
        if (size > rest.size())
            return KIVCS2STATUS_OK; // cut
        if (const KIVCS2Status status = takeBlock(frame, number, rest.first(size)); KIVCS2_FAILED(status))
            return status;
        rest = rest.subspan(size);
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status DTVCC::takeBlock(uint32_t frame, uint32_t number, std::span<const uint8_t> codes)
{
    if (number == 0)
        return KIVCS2STATUS_OK;
    m_sink.meet(number);
    if (!m_sink.wants(number))
        return KIVCS2STATUS_OK;
    std::unique_ptr<Service> &service = m_services[number];
    if (!service)
        service.reset(new (std::nothrow) Service{number, m_info, m_sink});
    if (!service)
        return KIVCS2STATUS_MEMORY_ERR;
    service->feed(frame, codes);
    m_anyDelayed = m_anyDelayed || service->isDelayed();
    return KIVCS2STATUS_OK;
}

void DTVCC::tick(uint32_t frame)
{
    if (!m_anyDelayed)
        return;
    m_anyDelayed = false;
    for (const auto &service : m_services)
        if (service && service->isDelayed())
        {
            service->tick(frame);
            m_anyDelayed = m_anyDelayed || service->isDelayed();
        }
}

void DTVCC::finish(uint32_t frame)
{
    for (const auto &service : m_services)
        if (service)
            service->finish(frame);
    m_anyDelayed = m_hasSequence = false;
    m_size = m_used = 0;
}
} // namespace kiv::cc
