// CEA-608 pairs for people: as digits, in words, and as running text.
#ifndef KIV_TOOL_CAPTION_PAIRS_H
#define KIV_TOOL_CAPTION_PAIRS_H

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

struct CaptionPair
{
    uint8_t first = 0x80;
    uint8_t second = 0x80;

    bool operator==(const CaptionPair &) const = default;

    [[nodiscard]] bool isEmpty() const ///< both bytes 0 without parity
    {
        return ((first | second) & 0x7Fu) == 0;
    }
    [[nodiscard]] bool isControl() const ///< a code, not characters
    {
        return (first & 0x70u) == 0x10;
    }
    /// 15h and 1Dh stand for the commands of field 2, 14h and 1Ch for those of field 1.
    [[nodiscard]] bool isCommandOfField2() const
    {
        return (first & 0x77u) == 0x15 && (second & 0x70u) == 0x20;
    }
    [[nodiscard]] bool hasOddParity() const;
    [[nodiscard]] CaptionPair withOddParity() const;

    [[nodiscard]] std::string hex() const; ///< "942c"

    /// Returns the pair in words: "erase displayed memory", "characters Hi", or "empty".
    [[nodiscard]] std::string words() const;

    /// Returns its characters as UTF-8. A mid-row code is a blank, because it takes a cell; other codes are
    /// empty.
    [[nodiscard]] std::string text() const;
};

/// Returns the pair of four hexadecimal digits; throws for any other word.
[[nodiscard]] CaptionPair parseCaptionPair(std::string_view word);

/// Returns the pairs of one field of a packet, 1 or 2.
[[nodiscard]] std::vector<CaptionPair> pairsOf(const KIVCS2CaptionPacket &packet, uint32_t field);

/// Returns the CEA-708 bytes of a packet, two from each triplet.
[[nodiscard]] std::vector<CaptionPair> dtvccOf(const KIVCS2CaptionPacket &packet);

/// Returns the digits of the pairs with a blank or other text between them.
[[nodiscard]] std::string listed(const std::vector<CaptionPair> &pairs, std::string_view between = " ");

/// Pairs as a list of codes in words and quoted text; doubled codes appear once.
class Transcript
{
public:
    void feed(CaptionPair pair);

    /// Returns codes and texts in quotes, in order.
    [[nodiscard]] const std::vector<std::string> &items();

    /// Returns only the texts.
    [[nodiscard]] const std::string &text() const
    {
        return m_allText;
    }

private:
    void endText();

    std::vector<std::string> m_items;
    std::string m_text, m_allText;
    CaptionPair m_last;
    bool m_repeat = false;
    bool m_fresh = false;
};

} // namespace tool

#endif
