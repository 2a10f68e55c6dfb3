// CEA-608 pairs for people.
#include "Captions/Pairs.h"

#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

#include <array>
#include <bit>

namespace tool
{
namespace
{

uint8_t oddByte(uint8_t byte)
{
    const auto bits = static_cast<uint8_t>(byte & 0x7Fu);
    return static_cast<uint8_t>(std::popcount(bits) % 2 == 0 ? bits | 0x80u : bits);
}

std::string description(CaptionPair pair)
{
    std::array<char, KIVCS2_CAPTION_DESCRIPTION_SIZE> words{};
    return KIVCS2_FAILED(kivCS2CaptionDecoder_describePair(pair.first, pair.second, words.data()))
               ? std::string{}
               : words.data();
}

// Returns true if the code is in a row of the table of codes, in either channel.
bool isCode(CaptionPair pair, uint8_t set, uint8_t from, uint8_t to)
{
    const unsigned second = pair.second & 0x7Fu;
    return (pair.first & 0x77u) == set && second >= from && second <= to;
}

bool isMidRow(CaptionPair pair)
{
    return isCode(pair, 0x11, 0x20, 0x2F);
}

bool isExtended(CaptionPair pair)
{
    return isCode(pair, 0x12, 0x20, 0x3F) || isCode(pair, 0x13, 0x20, 0x3F);
}

void dropLast(std::string &text)
{
    while (!text.empty())
    {
        const auto byte = static_cast<unsigned char>(text.back());
        text.pop_back();
        if ((byte & 0xC0u) != 0x80u)
            return;
    }
}

} // namespace

bool CaptionPair::hasOddParity() const
{
    return *this == withOddParity();
}

CaptionPair CaptionPair::withOddParity() const
{
    return {oddByte(first), oddByte(second)};
}

std::string CaptionPair::hex() const
{
    return print("%02x%02x", first, second);
}

std::string CaptionPair::words() const
{
    const std::string words = description(*this);
    return words.empty() ? "empty" : words;
}

std::string CaptionPair::text() const
{
    if (isMidRow(*this) || isCode(*this, 0x11, 0x39, 0x39)) // the second is a transparent space
        return " ";
    const bool isSpecial = isCode(*this, 0x11, 0x30, 0x3F);
    if ((isControl() && !isSpecial && !isExtended(*this)) || (first & 0x7Fu) < 0x10)
        return {};
    // "characters Hi", "special character ♪ (channel 2)"
    std::string words = description(*this);
    constexpr std::string_view kWord = "character";
    words.erase(0, words.find(kWord) + kWord.size() + (isControl() ? 1 : 2));
    if (isControl() && words.ends_with(" (channel 2)"))
        words.resize(words.rfind(" (channel 2)"));
    return words;
}

CaptionPair parseCaptionPair(std::string_view word)
{
    const auto value = hexadecimalNumber(word);
    if (word.size() != 4 || !value || word[1] == 'x' || word[1] == 'X')
        throw Failure(kExitMalformed, "\"" + visible(word) + "\": not a pair of four hexadecimal digits");
    return {static_cast<uint8_t>(*value >> 8), static_cast<uint8_t>(*value & 0xFFu)};
}

std::vector<CaptionPair> pairsOf(const KIVCS2CaptionPacket &packet, uint32_t field)
{
    std::vector<CaptionPair> list;
    KIVCS2CaptionPairs pairs;
    if (KIVCS2_SUCCEEDED(kivCS2CaptionPacket_getPairs(&packet, &pairs)))
        for (uint32_t index = 0; index < pairs.m_count[field - 1]; ++index)
            list.push_back({pairs.m_pairs[field - 1][index][0], pairs.m_pairs[field - 1][index][1]});
    return list;
}

std::vector<CaptionPair> dtvccOf(const KIVCS2CaptionPacket &packet)
{
    std::vector<CaptionPair> list;
    KIVCS2CaptionDTVCC dtvcc;
    if (KIVCS2_SUCCEEDED(kivCS2CaptionPacket_getDTVCC(&packet, &dtvcc)))
        for (uint32_t index = 0; index + 1 < dtvcc.m_count; index += 2)
            list.push_back({dtvcc.m_bytes[index], dtvcc.m_bytes[index + 1]});
    return list;
}

std::string listed(const std::vector<CaptionPair> &pairs, std::string_view between)
{
    std::string text;
    for (const CaptionPair pair : pairs)
        text += (text.empty() ? "" : std::string{between}) + pair.hex();
    return text;
}

void Transcript::feed(CaptionPair pair)
{
    if (pair.isEmpty())
        return;
    if (pair.isControl() && m_repeat && pair == m_last)
    {
        m_repeat = false;
        return;
    }
    m_repeat = pair.isControl();
    m_last = pair;

    const std::string characters = pair.text();
    if (characters.empty() || isMidRow(pair))
    {
        endText();
        m_items.push_back(pair.words());
        return;
    }
    if (isExtended(pair)) // replaces the character before it
    {
        dropLast(m_text);
        dropLast(m_allText);
    }
    m_text += characters;
    m_allText += m_allText.empty() || m_items.empty() || !m_fresh ? "" : " ";
    m_fresh = false;
    m_allText += characters;
}

const std::vector<std::string> &Transcript::items()
{
    endText();
    return m_items;
}

void Transcript::endText()
{
    if (!m_text.empty())
        m_items.push_back("\"" + m_text + "\"");
    m_text.clear();
    m_fresh = true;
}

} // namespace tool
