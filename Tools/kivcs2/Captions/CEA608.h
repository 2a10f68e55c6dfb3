// CEA-608 for people: characters as UTF-8, control codes in words, and captions as a viewer sees them.
#ifndef KIV_TOOL_CEA608_H
#define KIV_TOOL_CEA608_H

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tool
{

struct Pair
{
    uint8_t first = 0x80;
    uint8_t second = 0x80;

    bool operator==(const Pair &) const = default;
};

inline constexpr Pair kNoCaption{0x80, 0x80};

[[nodiscard]] bool isNull(Pair pair); ///< both bytes 0 without parity
[[nodiscard]] bool hasOddParity(Pair pair);
[[nodiscard]] bool isControl(Pair pair);  ///< the first byte is 10 to 1F: a code, not characters
[[nodiscard]] std::string hex(Pair pair); ///< "942c"

/// The pair of four hexadecimal digits; throws when the word is something else.
[[nodiscard]] Pair parsePair(std::string_view word);

/// The characters of a pair as UTF-8; empty for control codes, and for mid-row codes a space.
[[nodiscard]] std::string textOf(Pair pair);

/// The pair in words, as the library describes it. Mid-row, extended and background codes and preambles of rows 1 and 2,
/// which the library reports as unknown, are told here; a null pair is "null".
[[nodiscard]] std::string describe(Pair pair);

/// Short words for lists: "resume caption loading", "row 15 white", "end of caption".
[[nodiscard]] std::string shortWords(Pair pair);

/// One caption as shown: from a frame, until a frame, in a channel.
struct ShownCaption
{
    uint32_t from = 0;
    uint32_t until = 0;
    uint32_t channel = 1;  ///< CC1 to CC4
    const char *mode = ""; ///< "pop-on", "roll-up", "paint-on"
    std::string text;      ///< UTF-8, rows separated by line feeds
};

/// Follows the pairs of one field and reports every caption when it leaves the screen. In roll-up
/// a caption is one row, reported when the next one pushes it up.
class CaptionScreen
{
public:
    using OnCaption = std::function<void(const ShownCaption &)>;

    /// `field` is 1 or 2: its channels are CC1 and CC2, or CC3 and CC4.
    CaptionScreen(uint32_t field, OnCaption onCaption);

    void feed(uint32_t frame, Pair pair);
    /// The input has ended: what is on the screen ends at `frame`.
    void finish(uint32_t frame);

private:
    static constexpr size_t kRows = 15;
    static constexpr size_t kColumns = 32;
    using Memory = std::array<std::array<char32_t, kColumns>, kRows>;

    enum class Mode
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
        Memory shown{};
        Memory hidden{};
        size_t row = kRows - 1;
        size_t baseRow = kRows - 1; ///< of roll-up: where new text appears
        size_t column = 0;
        size_t rollRows = 2;
        uint32_t since = 0;         ///< frame at which what is shown appeared
        const char *how = "pop-on"; ///< the mode that put it there
    };

    void control(uint32_t frame, Channel &channel, uint8_t first, uint8_t second);
    void command(uint32_t frame, Channel &channel, uint8_t code);
    void put(uint32_t frame, Channel &channel, char32_t character);
    void report(uint32_t frame, const Channel &channel);
    void startRollUp(uint32_t frame, Channel &channel, size_t rows);
    void moveTo(Channel &channel, size_t row);
    static Memory &writing(Channel &channel);
    static std::string textOfRows(const Memory &memory, size_t first, size_t last);

    OnCaption m_onCaption;
    uint32_t m_field;
    std::array<Channel, 2> m_channels{};
    size_t m_current = 0;
    Pair m_lastControl = kNoCaption;
    uint32_t m_lastFrame = 0; ///< of m_lastControl
    bool m_mayRepeat = false;
    bool m_inXDS = false; ///< field 2: characters belong to extended data services
};

} // namespace tool

#endif
