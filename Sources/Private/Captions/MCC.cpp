// The text forms of MCC files: the header's items, the letter compression, and the timecode at the start
// of a line, which SCC files have too.
#include "Private/Captions/MCC.h"

#include "Private/Captions/CDP.h"
#include "Private/Captions/Hex.h"

#include <algorithm>
#include <cstring>

// Part of the published format: writers must include the whole text unchanged.
const std::string_view kiv::mccComment =
    "///////////////////////////////////////////////////////////////////////////////////\n"
    "// Computer Prompting and Captioning Company\n"
    "// Ancillary Data Packet Transfer File\n"
    "//\n"
    "// Permission to generate this format is granted provided that\n"
    "// 1. This ANC Transfer file format is used on an as-is basis and no warranty is given, and\n"
    "// 2. This entire descriptive information text is included in a generated .mcc file.\n"
    "//\n"
    "// General file format:\n"
    "// HH:MM:SS:FF(tab)[Hexadecimal ANC data in groups of 2 characters]\n"
    "// Hexadecimal data starts with the Ancillary Data Packet DID (Data ID defined in S291M)\n"
    "// and concludes with the Check Sum following the User Data Words.\n"
    "// Each time code line must contain at most one complete ancillary data packet.\n"
    "// To transfer additional ANC Data successive lines may contain identical time code.\n"
    "// Time Code Rate=[24, 25, 30, 30DF, 50, 60]\n"
    "//\n"
    "// ANC data bytes may be represented by one ASCII character according to the following schema:\n"
    "// G FAh 00h 00h\n"
    "// H 2 x (FAh 00h 00h)\n"
    "// I 3 x (FAh 00h 00h)\n"
    "// J 4 x (FAh 00h 00h)\n"
    "// K 5 x (FAh 00h 00h)\n"
    "// L 6 x (FAh 00h 00h)\n"
    "// M 7 x (FAh 00h 00h)\n"
    "// N 8 x (FAh 00h 00h)\n"
    "// O 9 x (FAh 00h 00h)\n"
    "// P FBh 80h 80h\n"
    "// Q FCh 80h 80h\n"
    "// R FDh 80h 80h\n"
    "// S 96h 69h\n"
    "// T 61h 01h\n"
    "// U E1h 00h 00h\n"
    "// Z 00h\n"
    "//\n"
    "///////////////////////////////////////////////////////////////////////////////////";

namespace
{
using kiv::MCCLetterBytes;

// Empty CEA-708 triplets: the letters G to O mean one to nine of them.
constexpr MCCLetterBytes emptyTriplets(size_t count)
{
    MCCLetterBytes bytes{};
    for (size_t triplet = 0; triplet < count; ++triplet)
        bytes[3 * triplet] = 0xFA;
    return bytes;
}

constexpr std::array<MCCLetterBytes, 9> kEmptyTriplets = {
    emptyTriplets(1), emptyTriplets(2), emptyTriplets(3), emptyTriplets(4), emptyTriplets(5),
    emptyTriplets(6), emptyTriplets(7), emptyTriplets(8), emptyTriplets(9)};
constexpr MCCLetterBytes mccCharP{0xFB, 0x80, 0x80}; // empty field 2 pair
constexpr MCCLetterBytes mccCharQ{0xFC, 0x80, 0x80}; // empty field 1 pair
constexpr MCCLetterBytes mccCharR{0xFD, 0x80, 0x80};
constexpr MCCLetterBytes mccCharS{0x96, 0x69}; // CDP identifier
constexpr MCCLetterBytes mccCharT{kiv::cdp::kDID, kiv::cdp::kSDID};
constexpr MCCLetterBytes mccCharU{0xE1, 0x00, 0x00};
constexpr MCCLetterBytes mccCharZ{0x00};

constexpr kiv::MCCLetter row(char letter, uint8_t size, const MCCLetterBytes &bytes)
{
    return {letter, size, bytes.data()};
}
constexpr kiv::MCCLetter tripletRow(uint8_t count)
{
    return row(static_cast<char>('G' + count - 1), static_cast<uint8_t>(3 * count),
               kEmptyTriplets[count - size_t{1}]);
}
} // namespace

constexpr std::array<kiv::MCCLetter, 20> kiv::mccEncoding{{
    tripletRow(1),         tripletRow(2),         tripletRow(3),         tripletRow(4),
    tripletRow(5),         tripletRow(6),         tripletRow(7),         tripletRow(8),
    tripletRow(9),         row('P', 3, mccCharP), row('Q', 3, mccCharQ), row('R', 3, mccCharR),
    row('S', 2, mccCharS), row('T', 2, mccCharT), row('U', 3, mccCharU), {'V', 0, nullptr},
    {'W', 0, nullptr},     {'X', 0, nullptr},     {'Y', 0, nullptr},     row('Z', 1, mccCharZ),
}};

namespace
{
using kiv::MCCLetter;

constexpr const MCCLetter *letterRow(char character)
{
    return character >= 'G' && character <= 'Z' ? &kiv::mccEncoding[static_cast<size_t>(character - 'G')]
                                                : nullptr;
}

// Most bytes of a packet do not begin a letter: the letters are only tried for the few that do.
constexpr std::array<bool, 256> kOpensLetter = []
{
    std::array<bool, 256> opens{};
    for (const MCCLetter &letter : kiv::mccEncoding)
        if (letter.size != 0)
            opens[letter.bytes[0]] = true;
    return opens;
}();

// Returns the longest letter at the start of `packet` that is shorter than the packet.
const MCCLetter *longestLetter(std::span<const uint8_t> packet, char without)
{
    const MCCLetter *longest = nullptr;
    if (!kOpensLetter[packet[0]])
        return longest;
    for (const MCCLetter &letter : kiv::mccEncoding)
    {
        // Kept: a letter never takes the packet's last byte, so the checksum is always written as digits.
        if (letter.size == 0 || letter.size >= packet.size() || letter.letter == without)
            continue;
        if ((longest == nullptr || letter.size > longest->size) &&
            std::memcmp(letter.bytes, packet.data(), letter.size) == 0)
            longest = &letter;
    }
    return longest;
}

// Decodes character by character what the decoding of whole bytes leaves: an odd digit and the text after
// it, text at the size limit, and characters without a meaning.
KIVCS2Status decodeNibbles(std::string_view text, KIVCS2ClosedCaption &caption)
{
    bool lowHalf = false;
    for (const char character : text)
    {
        if (const MCCLetter *const letter = letterRow(character))
        {
            for (uint8_t index = 0; index < letter->size; ++index)
            {
                const uint8_t byte = letter->bytes[index];
                for (const uint8_t nibble : {static_cast<uint8_t>(byte >> 4), byte})
                    if (const KIVCS2Status status = kiv::storeNibble(caption, lowHalf, nibble);
                        KIVCS2_FAILED(status))
                        return status;
            }
            continue;
        }
        // Kept: lower-case digits are refused here, although SCC files accept them.
        const uint8_t value = kiv::upperHexValue(character);
        if (value == kiv::kNoDigit)
            return KIVCS2STATUS_CAPTION_ERR;
        if (const KIVCS2Status status = kiv::storeNibble(caption, lowHalf, value); KIVCS2_FAILED(status))
            return status;
    }
    return KIVCS2STATUS_OK;
}

constexpr bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}
} // namespace

size_t kiv::compressMCCPacket(std::span<const uint8_t> packet, char *text, char without) noexcept
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    char *out = text;
    while (!packet.empty())
    {
        if (const MCCLetter *const letter = longestLetter(packet, without))
        {
            *out++ = letter->letter;
            packet = packet.subspan(letter->size);
            continue;
        }
        *out++ = kDigits[packet[0] >> 4];
        *out++ = kDigits[packet[0] & 0x0F];
        packet = packet.subspan(1);
    }
    return static_cast<size_t>(out - text);
}

KIVCS2Status kiv::decodeMCCPacket(std::string_view text, KIVCS2ClosedCaption &caption) noexcept
{
    const std::span<uint8_t> bytes{caption.m_captionData, kCaptionBytesMax};
    size_t size = 0;
    size_t position = 0;
    while (position < text.size())
    {
        const size_t decoded = decodeHexPairs(text.substr(position), bytes.subspan(size));
        size += decoded;
        position += 2 * decoded;
        const MCCLetter *const letter = position < text.size() ? letterRow(text[position]) : nullptr;
        if (letter == nullptr || letter->size > bytes.size() - size)
            break;
        std::copy_n(letter->bytes, letter->size, bytes.data() + size);
        size += letter->size;
        ++position;
    }
    caption.m_captionSize = static_cast<uint32_t>(size);
    return decodeNibbles(text.substr(position), caption);
}

bool kiv::copyTimecodeText(std::string_view line, TimecodeText &text) noexcept
{
    if (line.size() < kTimecodeLength)
        return false;
    for (size_t index = 0; index < kTimecodeLength; ++index)
    {
        const char character = line[index];
        const bool separator = index % 3 == 2;
        if (separator ? character != ':' && character != ';' : !isDigit(character))
            return false;
        text[index] = separator ? ':' : character;
    }
    text[kTimecodeLength] = '\0';
    return true;
}

bool kiv::readMCCSuffixes(std::string_view line, size_t &position, KIVCS2ClosedCaption &caption) noexcept
{
    constexpr size_t kDigitsMax = 16;

    if (position + 2 > line.size() || line[position] != '.')
        return true;
    const char field = line[position + 1];
    if (field != '0' && field != '1')
        return false;
    caption.m_field = static_cast<uint32_t>(field - '0');
    caption.m_flags |= KIVCS2ClosedCaptionFlag_HasField;
    position += 2;

    if (position + 2 > line.size() || line[position] != ',')
        return true;
    uint64_t number = 0; // 16 digits fit
    size_t digits = 0;
    for (++position; position < line.size() && line[position] != '\t'; ++position)
    {
        if (!isDigit(line[position]) || digits++ == kDigitsMax)
            return false;
        number = number * 10 + static_cast<uint64_t>(line[position] - '0');
    }
    if (position == line.size())
        return false;
    caption.m_number = static_cast<uint32_t>(number);
    caption.m_flags |= KIVCS2ClosedCaptionFlag_HasNumber;
    return true;
}
