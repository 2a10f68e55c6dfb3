// The text of one caption line: timecode, suffixes, and the data of an MCC packet or of SCC words.
#include "Private/Captions/LineText.h"

#include "Private/Captions/CDP.h"
#include "Private/Captions/Hex.h"
#include "Private/Captions/MCC.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kiv::cc
{
namespace
{
constexpr MCCLetterBytes kU = {0xE1, 0x00, 0x00, 0x00};
constexpr size_t kANCAround = 4; // DID, SDID, data count, checksum

constexpr std::array<uint8_t, 256> kDigits = []
{
    std::array<uint8_t, 256> values = kWordValues;
    for (unsigned char digit = 'a'; digit <= 'f'; ++digit)
        values[digit] = kBadValue;
    return values;
}();

constexpr bool isLower(char character)
{
    return character >= 'a' && character <= 'z';
}

// Returns the bytes of a letter of either case; empty for other characters and for V to Y.
std::span<const uint8_t> letterBytes(char character, size_t sizeOfU)
{
    const char letter = isLower(character) ? static_cast<char>(character - 'a' + 'A') : character;
    if (letter == 'U')
        return {kU.data(), sizeOfU};
    if (letter < 'G' || letter > 'Z')
        return {};
    const MCCLetter &row = mccEncoding[static_cast<size_t>(letter - 'G')];
    return {row.bytes, row.size};
}

// Takes one digit and the other half of its byte.
void takeByte(std::string_view text, size_t &at, std::span<uint8_t> out, MCCData &data)
{
    const uint8_t high = anyHexValue(text[at]);
    const uint8_t low = at + 1 < text.size() ? anyHexValue(text[at + 1]) : kNoDigit;
    if (high == kNoDigit)
        data.badAt = at;
    else if (low == kNoDigit)
        data.halfAt = std::min(data.halfAt, at++);
    else if (data.size == out.size())
        data.tooLong = true;
    else
    {
        if (isLower(text[at]) || isLower(text[at + 1]))
            data.lowerAt = std::min(data.lowerAt, at);
        out[data.size++] = static_cast<uint8_t>(high << 4 | low);
        at += 2;
    }
}

// Appends a letter's bytes. If there is room, it copies the zeros after them too: a copy of a constant size.
void putLetter(std::span<const uint8_t> letter, std::span<uint8_t> out, MCCData &data)
{
    uint8_t *const to = out.data() + data.size;
    if (out.size() - data.size >= kLetterRoom)
        std::memcpy(to, letter.data(), kLetterRoom);
    else
        std::memcpy(to, letter.data(), letter.size());
    data.size += letter.size();
}

// Takes bytes of two upper-case digits up to another character, the end of the text or the end of the room.
// Returns false at the end of the text.
bool takeDigits(std::string_view text, size_t &at, std::span<uint8_t> out, MCCData &data)
{
    constexpr size_t kManyDigits = 12; // from this many bytes on a run of digits is worth a call
    const size_t first = data.size;
    const size_t most = std::min((text.size() - at) / 2, out.size() - first);
    const char *const digits = text.data() + at;
    size_t taken = 0;
    for (; taken < most; ++taken)
    {
        const unsigned high = kDigits[static_cast<uint8_t>(digits[2 * taken])];
        const unsigned low = kDigits[static_cast<uint8_t>(digits[2 * taken + 1])];
        if ((high | low) > 0x0F)
            break;
        out[first + taken] = static_cast<uint8_t>(high << 4 | low);
        if (taken == kManyDigits)
            taken += decodeHexPairs(text.substr(at + 2 * taken + 2), out.subspan(first + taken + 1));
    }
    data.size += taken;
    at += 2 * taken;
    return at < text.size();
}

MCCData decode(std::string_view text, size_t sizeOfU, std::span<uint8_t> out)
{
    MCCData data;
    size_t at = 0;
    while (data.badAt == kNowhere && !data.tooLong && takeDigits(text, at, out, data))
    {
        const std::span<const uint8_t> letter = letterBytes(text[at], sizeOfU);
        if (letter.empty())
            takeByte(text, at, out, data);
        else if (letter.size() > out.size() - data.size)
            data.tooLong = true;
        else
        {
            putLetter(letter, out, data);
            if (letter.data() == kU.data())
                data.uAt = std::min(data.uAt, at);
            if (isLower(text[at]))
                data.lowerAt = std::min(data.lowerAt, at);
            ++at;
        }
    }
    return data;
}

bool countFits(std::span<const uint8_t> packet)
{
    return packet.size() >= kANCAround && packet.size() == packet[2] + kANCAround;
}

// Returns how many of three values are right: the packet's data count, its checksum, and its CDP's checksum.
int rightSums(std::span<const uint8_t> packet)
{
    constexpr size_t kCDPAt = 3;
    constexpr size_t kLengthAt = kCDPAt + 2;
    if (packet.size() <= kLengthAt)
        return 0;
    const size_t length = packet[kLengthAt];
    const bool cdpFits = length <= packet.size() - kCDPAt && cdp::sum(packet.subspan(kCDPAt, length)) == 0;
    return countFits(packet) + (cdp::sum(packet.first(packet.size() - 1)) == packet.back()) + cdpFits;
}

// Returns true if a block has only blanks and digits of either case.
constexpr size_t kWordBlock = 16;
#if defined(__SSE2__)
bool areWords(const char *block)
{
    const __m128i characters = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block));
    const __m128i decimal = _mm_sub_epi8(characters, _mm_set1_epi8('0'));
    const __m128i letter = _mm_sub_epi8(_mm_or_si128(characters, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
    const __m128i isDigit = _mm_or_si128(_mm_cmpeq_epi8(_mm_min_epu8(decimal, _mm_set1_epi8(9)), decimal),
                                         _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter));
    const __m128i isBlank = _mm_or_si128(_mm_cmpeq_epi8(characters, _mm_set1_epi8(' ')),
                                         _mm_cmpeq_epi8(characters, _mm_set1_epi8('\t')));
    return _mm_movemask_epi8(_mm_or_si128(isDigit, isBlank)) == 0xFFFF;
}
#else
bool areWords(const char *block)
{
    return std::none_of(block, block + kWordBlock, [](char c) { return wordValue(c) == kBadValue; });
}
#endif

// Returns the end of the suffix at `at` if a blank and data follow it, otherwise `at`: its digits may be
// data.
size_t endOfSuffix(std::string_view line, size_t at)
{
    const size_t end = std::min(line.find_first_not_of("0123456789.,", at), line.size());
    const bool hasBlank = end < line.size() && isBlank(line[end]);
    return hasBlank && line.find_first_not_of(" \t", end) != std::string_view::npos ? end : at;
}

// Takes ".field" and ",number" of MCC 2. A malformed part is skipped if a blank ends it. Otherwise it is left
// to the data, where it is a fault.
void takeSuffix(std::string_view line, size_t &at, LineHead &head)
{
    constexpr size_t kDigitsMost = 10;
    const size_t end = endOfSuffix(line, at);
    const bool isField =
        line[at] == '.' && at + 1 < line.size() && (line[at + 1] == '0' || line[at + 1] == '1');
    head.hasField = isField && (end <= at + 2 || line[at + 2] == ',');
    if (head.hasField)
    {
        head.field = static_cast<uint32_t>(line[at + 1] - '0');
        at += 2;
        if (at == line.size() || line[at] != ',')
            return;
        size_t digits = 0;
        uint64_t number = 0;
        for (++at; at < line.size() && isDigit(line[at]) && digits < kDigitsMost; ++at, ++digits)
            number = number * 10 + static_cast<uint64_t>(line[at] - '0');
        head.hasNumber = digits > 0 && number <= UINT32_MAX && end <= at;
        head.number = head.hasNumber ? static_cast<uint32_t>(number) : 0;
    }
    head.badSuffix = !head.hasNumber;
    at = std::max(at, end);
}
} // namespace

std::string_view withoutBlanks(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool takeHead(std::string_view line, LineHead &head, Notes &notes)
{
    size_t at = 0;
    while (at < line.size() && isBlank(line[at]))
        ++at;
    if (at > 0)
        notes.add(KIVCS2CaptionFault_BlanksBefore, 0, at);
    const auto time = takeTime(line.substr(at));
    if (!time)
        return false;
    head.time = *time;
    head.timeAt = at;
    if (time->separator == '.' || time->separator == ',')
        notes.add(KIVCS2CaptionFault_FrameSeparator, at + 8, 1);
    at += kTimecodeSize;
    if (at < line.size() && (line[at] == '.' || line[at] == ','))
        takeSuffix(line, at, head);

    const size_t blanks = at;
    while (at < line.size() && isBlank(line[at]))
        ++at;
    if (at - blanks != 1 || line[blanks] != '\t')
        notes.add(KIVCS2CaptionFault_Blanks, blanks, std::max<size_t>(at - blanks, 1));
    head.dataAt = at;
    return true;
}

MCCData decodeMCC(std::string_view text, std::span<uint8_t, KIVCS2_CAPTION_ANC_SIZE> out)
{
    MCCData three = decode(text, 3, out);
    if (three.uAt == kNowhere || three.badAt != kNowhere || countFits(out.first(three.size)))
        return three;
    std::array<uint8_t, KIVCS2_CAPTION_ANC_SIZE> other;
    MCCData four = decode(text, 4, other);
    if (four.tooLong || rightSums({other.data(), four.size}) <= rightSums(out.first(three.size)))
        return three;
    four.fourByteU = true;
    std::memcpy(out.data(), other.data(), four.size);
    return four;
}

size_t findBadOfWords(std::string_view text)
{
    size_t at = 0;
    while (at + kWordBlock <= text.size() && areWords(text.data() + at))
        at += kWordBlock;
    text.remove_prefix(at);
    const auto bad = std::ranges::find_if(text, [](char c) { return wordValue(c) == kBadValue; });
    return bad == text.end() ? kNowhere : at + static_cast<size_t>(bad - text.begin());
}

size_t countWords(std::string_view text, bool &inWord)
{
    size_t count = 0;
    for (const char character : text)
    {
        const bool word = !isBlank(character);
        count += word && !inWord ? 1 : 0;
        inWord = word;
    }
    return count;
}
} // namespace kiv::cc
