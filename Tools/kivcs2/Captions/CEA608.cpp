// CEA-608: character sets, words for codes, and the caption screen.
#include "Captions/CEA608.h"

#include "CommandLine/Numbers.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <algorithm>
#include <cstddef>

namespace tool
{
namespace
{

// CEA-608, annex of characters. 11 30 to 11 3F; the transparent space reads as a space.
constexpr std::array<char32_t, 16> kSpecial = {U'®', U'°', U'½', U'¿', U'™', U'¢', U'£', U'♪',
                                               U'à', U' ', U'è', U'â', U'ê', U'î', U'ô', U'û'};

// 12 20 to 12 3F: Spanish, miscellaneous, French.
constexpr std::array<char32_t, 32> kExtended12 = {
    U'Á', U'É', U'Ó', U'Ú', U'Ü', U'ü', U'‘', U'¡', U'*', U'’', U'—', U'©', U'℠', U'•', U'“', U'”',
    U'À', U'Â', U'Ç', U'È', U'Ê', U'Ë', U'ë', U'Î', U'Ï', U'ï', U'Ô', U'Ù', U'ù', U'Û', U'«', U'»'};

// 13 20 to 13 3F: Portuguese, German, Danish.
constexpr std::array<char32_t, 32> kExtended13 = {
    U'Ã', U'ã', U'Í', U'Ì', U'ì', U'Ò', U'ò', U'Õ', U'õ', U'{', U'}', U'\\', U'^', U'_', U'|', U'~',
    U'Ä', U'ä', U'Ö', U'ö', U'ß', U'¥', U'¤', U'│', U'Å', U'å', U'Ø', U'ø',  U'┌', U'┐', U'└', U'┘'};

struct Replaced
{
    uint8_t code;
    char32_t character;
};

// The basic set is ASCII but for these.
constexpr std::array<Replaced, 10> kBasic = {{{0x2A, U'á'},
                                              {0x5C, U'é'},
                                              {0x5E, U'í'},
                                              {0x5F, U'ó'},
                                              {0x60, U'ú'},
                                              {0x7B, U'ç'},
                                              {0x7C, U'÷'},
                                              {0x7D, U'Ñ'},
                                              {0x7E, U'ñ'},
                                              {0x7F, U'█'}}};

constexpr std::array kMidRow = {"white", "green", "blue", "cyan", "red", "yellow", "magenta", "italics"};

constexpr std::array kBackground = {"white", "green", "blue", "cyan", "red", "yellow", "magenta", "black"};

// Row of a preamble by the low 3 bits of the first byte and bit 5 of the second, from 1.
constexpr std::array<uint8_t, 16> kPreambleRow = {11, 11, 1, 2, 3, 4, 12, 13, 14, 15, 5, 6, 7, 8, 9, 10};

constexpr char32_t kEmpty = 0;

char32_t basic(uint8_t code)
{
    const auto row = std::ranges::find(kBasic, code, &Replaced::code);
    return row == kBasic.end() ? static_cast<char32_t>(code) : row->character;
}

void appendUTF8(std::string &text, char32_t character)
{
    const auto unit = [&](char32_t value)
    {
        text += static_cast<char>(value);
    };
    if (character < 0x80)
        unit(character);
    else if (character < 0x800)
    {
        unit(0xC0u | character >> 6);
        unit(0x80u | (character & 0x3Fu));
    }
    else
    {
        unit(0xE0u | character >> 12);
        unit(0x80u | (character >> 6 & 0x3Fu));
        unit(0x80u | (character & 0x3Fu));
    }
}

struct Codes
{
    uint8_t first, second; ///< without parity
    uint8_t set;           ///< the first byte without its channel bit
};

Codes codesOf(Pair pair)
{
    const auto first = static_cast<uint8_t>(pair.first & 0x7Fu);
    const auto second = static_cast<uint8_t>(pair.second & 0x7Fu);
    return {first, second, static_cast<uint8_t>(first & 0x77u)};
}

bool isSpecial(Codes codes)
{
    return codes.set == 0x11 && codes.second >= 0x30 && codes.second <= 0x3F;
}

bool isExtended(Codes codes)
{
    return (codes.set == 0x12 || codes.set == 0x13) && codes.second >= 0x20 && codes.second <= 0x3F;
}

bool isMidRow(Codes codes)
{
    return codes.set == 0x11 && codes.second >= 0x20 && codes.second <= 0x2F;
}

bool isCommand(Codes codes)
{
    return (codes.set == 0x14 || codes.set == 0x15) && codes.second >= 0x20 && codes.second <= 0x2F;
}

bool isBackground(Codes codes)
{
    return (codes.set == 0x10 && codes.second >= 0x20 && codes.second <= 0x2F) ||
           (codes.set == 0x17 && codes.second >= 0x2D && codes.second <= 0x2F);
}

char32_t extendedCharacter(Codes codes)
{
    return (codes.set == 0x12 ? kExtended12 : kExtended13)[codes.second - 0x20u];
}

std::string backgroundWords(Codes codes)
{
    if (codes.set == 0x17)
        return codes.second == 0x2D   ? "background transparent"
               : codes.second == 0x2E ? "text black"
                                      : "text black, underline";
    return std::string{"background "} + kBackground[codes.second >> 1 & 7u] +
           ((codes.second & 1u) != 0 ? " semi-transparent" : "");
}

std::string midRowWords(Codes codes)
{
    return std::string{kMidRow[codes.second >> 1 & 7u]} + ((codes.second & 1u) != 0 ? ", underline" : "");
}

// Rows 1 and 2: their first byte is that of the special characters, and the library says so.
bool isUpperPreamble(Codes codes)
{
    return codes.set == 0x11 && codes.second >= 0x40;
}

std::string upperPreambleWords(Codes codes)
{
    const unsigned attribute = codes.second >> 1 & 7u;
    std::string words = print("row %u ", (codes.second & 0x20u) != 0 ? 2u : 1u);
    words += (codes.second & 0x10u) != 0 ? print("indent %u", attribute * 4) : kMidRow[attribute];
    return words + ((codes.second & 1u) != 0 ? ", underline" : "");
}

std::string libraryWords(Pair pair)
{
    std::array<char, KIVCS2_CEA608_DESCRIPTION_SIZE> text{};
    const KIVCS2Status status = kivCS2ClosedCaptions_decodeCEA608CCPair(pair.first, pair.second, text.data());
    return KIVCS2_SUCCEEDED(status) ? text.data() : "null";
}

} // namespace

bool isNull(Pair pair)
{
    return ((pair.first | pair.second) & 0x7Fu) == 0;
}

bool hasOddParity(Pair pair)
{
    return kivCS2ClosedCaptions_oddParityByte(pair.first) == pair.first &&
           kivCS2ClosedCaptions_oddParityByte(pair.second) == pair.second;
}

bool isControl(Pair pair)
{
    return (pair.first & 0x70u) == 0x10;
}

std::string hex(Pair pair)
{
    return print("%02x%02x", pair.first, pair.second);
}

Pair parsePair(std::string_view word)
{
    const auto value = hexadecimalNumber(word);
    if (word.size() != 4 || !value || word[1] == 'x' || word[1] == 'X')
        throw Failure(kExitMalformed, "\"" + visible(word) + "\": not a pair of four hexadecimal digits");
    return {static_cast<uint8_t>(*value >> 8), static_cast<uint8_t>(*value & 0xFFu)};
}

std::string textOf(Pair pair)
{
    const Codes codes = codesOf(pair);
    std::string text;
    if (isSpecial(codes))
        appendUTF8(text, kSpecial[codes.second - 0x30u]);
    else if (isExtended(codes))
        appendUTF8(text, extendedCharacter(codes));
    else if (isMidRow(codes))
        text = " ";
    else if (codes.first >= 0x20)
    {
        appendUTF8(text, basic(codes.first));
        if (codes.second >= 0x20)
            appendUTF8(text, basic(codes.second));
    }
    return text;
}

std::string describe(Pair pair)
{
    const Codes codes = codesOf(pair);
    const unsigned channel = codes.first >> 3 & 1u;
    if (codes.first >= 0x20)
        return "Characters " + textOf(pair);
    if (isExtended(codes))
        return print("Channel %u extended character ", channel) + textOf(pair);
    if (isMidRow(codes))
        return print("Midrow channel %u = ", channel) + midRowWords(codes);
    if (isBackground(codes))
        return print("Background channel %u = ", channel) + backgroundWords(codes);
    if (isUpperPreamble(codes))
        return print("Preamble channel %u = ", channel) + upperPreambleWords(codes);
    return libraryWords(pair);
}

std::string shortWords(Pair pair)
{
    const Codes codes = codesOf(pair);
    const std::string channel = (codes.first & 8u) != 0 ? " (channel 2)" : "";
    if (isMidRow(codes))
        return midRowWords(codes) + channel;
    if (isBackground(codes))
        return backgroundWords(codes) + channel;
    if (isUpperPreamble(codes))
        return upperPreambleWords(codes) + channel;
    // "Control channel 0 = command erase displayed memory, line 21", "Preamble channel 0 = row 15,
    // attribute white, underline 0", "Tab channel 0 = 2": the words between are what counts.
    std::string words = libraryWords(pair);
    if (isCommand(codes))
    {
        const size_t start = words.find("command ");
        const size_t end = words.rfind(", line");
        if (start != std::string::npos && end != std::string::npos)
            words = words.substr(start + 8, end - start - 8);
    }
    else if (words.starts_with("Preamble"))
    {
        words = words.substr(words.find("row"));
        if (const size_t at = words.find(", attribute"); at != std::string::npos)
            words.erase(at, 11);
        if (const size_t at = words.find(", underline"); at != std::string::npos)
            words.replace(at, std::string::npos, (codes.second & 1u) != 0 ? ", underline" : "");
    }
    else if (words.starts_with("Tab"))
        words = "tab " + std::to_string(codes.second & 3u);
    return words + channel;
}

CaptionScreen::CaptionScreen(uint32_t field, OnCaption onCaption)
    : m_onCaption(std::move(onCaption)), m_field(field)
{
}

void CaptionScreen::feed(uint32_t frame, Pair pair)
{
    const Codes codes = codesOf(pair);
    if (isNull(pair))
        return;
    if (isControl(pair))
    {
        m_inXDS = false;
        // Codes are sent twice in successive frames; the second is there for lost pairs only. At 24
        // frames a second a frame without a pair may stand between the two.
        constexpr uint32_t kFramesOfARepeat = 2;
        if (m_mayRepeat && pair == m_lastControl && frame - m_lastFrame <= kFramesOfARepeat)
        {
            m_mayRepeat = false;
            return;
        }
        m_mayRepeat = true;
        m_lastControl = pair;
        m_lastFrame = frame;
        m_current = codes.first >> 3 & 1u;
        control(frame, m_channels[m_current], codes.set, codes.second);
        return;
    }
    m_mayRepeat = false;
    if (codes.first < 0x10)
    {
        m_inXDS = m_field == 2 && codes.first != 0x0F;
        return;
    }
    if (m_inXDS)
        return;
    Channel &channel = m_channels[m_current];
    put(frame, channel, basic(codes.first));
    if (codes.second >= 0x20)
        put(frame, channel, basic(codes.second));
}

void CaptionScreen::finish(uint32_t frame)
{
    for (Channel &channel : m_channels)
    {
        m_current = static_cast<size_t>(&channel - m_channels.data());
        report(frame, channel);
        channel.shown = {};
    }
}

void CaptionScreen::control(uint32_t frame, Channel &channel, uint8_t first, uint8_t second)
{
    const Codes codes{first, second, first};
    if (isSpecial(codes))
        put(frame, channel, kSpecial[second - 0x30u]);
    else if (isExtended(codes))
    {
        // An extended character takes the place of the plain one sent before it for older decoders.
        if (channel.column > 0)
            --channel.column;
        put(frame, channel, extendedCharacter(codes));
    }
    else if (isMidRow(codes))
        put(frame, channel, U' ');
    else if (isCommand(codes))
        command(frame, channel, static_cast<uint8_t>(second & 15u));
    else if (first == 0x17 && second >= 0x21 && second <= 0x23)
        channel.column = std::min(channel.column + (second & 3u), kColumns - 1);
    else if (second >= 0x40)
    {
        moveTo(channel, kPreambleRow[(first & 7u) * 2u + (second >> 5 & 1u)] - 1u);
        channel.column = (second & 0x10u) != 0 ? (second >> 1 & 7u) * 4u : 0u;
    }
}

// In roll-up a preamble moves the whole window: what is in it goes along.
void CaptionScreen::moveTo(Channel &channel, size_t row)
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

void CaptionScreen::command(uint32_t frame, Channel &channel, uint8_t code)
{
    switch (code)
    {
    case 0: // resume caption loading
        channel.mode = Mode::PopOn;
        break;
    case 1: // backspace
        if (channel.column > 0)
            writing(channel)[channel.row][--channel.column] = kEmpty;
        break;
    case 4: // delete to end of row
        std::fill(writing(channel)[channel.row].begin() + static_cast<std::ptrdiff_t>(channel.column),
                  writing(channel)[channel.row].end(), kEmpty);
        break;
    case 5: // roll-up captions 2, 3 and 4 rows
    case 6:
    case 7:
        startRollUp(frame, channel, code - 3u);
        break;
    case 9: // resume direct captioning
        channel.mode = Mode::PaintOn;
        break;
    case 10: // text restart, resume text display: a service of its own, shown elsewhere
    case 11:
        channel.mode = Mode::Text;
        break;
    case 12: // erase displayed memory
        report(frame, channel);
        channel.shown = {};
        break;
    case 13: // carriage return
        if (channel.mode == Mode::RollUp)
        {
            report(frame, channel);
            const size_t top = channel.baseRow + 1 - std::min(channel.rollRows, channel.baseRow + 1);
            for (size_t row = top; row < channel.baseRow; ++row)
                channel.shown[row] = channel.shown[row + 1];
            channel.shown[channel.baseRow] = {};
            channel.row = channel.baseRow;
            channel.column = 0;
        }
        break;
    case 14: // erase nondisplayed memory
        channel.hidden = {};
        break;
    case 15: // end of caption
        report(frame, channel);
        std::swap(channel.shown, channel.hidden);
        channel.mode = Mode::PopOn;
        channel.how = "pop-on";
        channel.since = frame;
        break;
    default: // invalid ones, and flash
        break;
    }
}

void CaptionScreen::startRollUp(uint32_t frame, Channel &channel, size_t rows)
{
    if (channel.mode != Mode::RollUp)
    {
        report(frame, channel);
        channel.shown = {};
        channel.hidden = {};
        channel.baseRow = kRows - 1;
        channel.row = kRows - 1;
        channel.column = 0;
    }
    channel.mode = Mode::RollUp;
    channel.how = "roll-up";
    channel.rollRows = rows;
}

CaptionScreen::Memory &CaptionScreen::writing(Channel &channel)
{
    return channel.mode == Mode::PopOn ? channel.hidden : channel.shown;
}

void CaptionScreen::put(uint32_t frame, Channel &channel, char32_t character)
{
    if (channel.mode == Mode::None || channel.mode == Mode::Text)
        return;
    if (channel.mode == Mode::PaintOn || channel.mode == Mode::RollUp)
    {
        const size_t first = channel.mode == Mode::RollUp ? channel.baseRow : 0;
        if (textOfRows(channel.shown, first, kRows - 1).empty())
        {
            channel.since = frame;
            channel.how = channel.mode == Mode::RollUp ? "roll-up" : "paint-on";
        }
    }
    writing(channel)[channel.row][channel.column] = character;
    channel.column = std::min(channel.column + 1, kColumns - 1);
}

void CaptionScreen::report(uint32_t frame, const Channel &channel)
{
    // The upper rows of roll-up were reported when they were pushed up.
    const bool rolled = channel.how == std::string_view{"roll-up"};
    const size_t first = rolled ? channel.baseRow : 0;
    std::string text = textOfRows(channel.shown, first, rolled ? first : kRows - 1);
    if (!text.empty())
        m_onCaption({channel.since, frame, static_cast<uint32_t>((m_field - size_t{1}) * 2 + m_current + 1),
                     channel.how, std::move(text)});
}

std::string CaptionScreen::textOfRows(const Memory &memory, size_t first, size_t last)
{
    std::string text;
    for (size_t row = first; row <= last; ++row)
    {
        std::string line;
        for (const char32_t character : memory[row])
            appendUTF8(line, character == kEmpty ? U' ' : character);
        const size_t begin = line.find_first_not_of(' ');
        if (begin == std::string::npos)
            continue;
        line = line.substr(begin, line.find_last_not_of(' ') - begin + 1);
        text += (text.empty() ? "" : "\n") + line;
    }
    return text;
}

} // namespace tool
