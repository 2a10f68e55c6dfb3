// A survey of the first lines of a caption file before any of them is read.
#include "Private/Captions/Survey.h"

#include "Private/Captions/Counting.h"
#include "Private/Captions/LineText.h"

#include <algorithm>

namespace kiv::cc
{
namespace
{
constexpr uint32_t kLines = 64; // enough for a vote, and still cheap
constexpr std::string_view kSCC = "Scenarist_SCC V1.0";
constexpr std::string_view kMCC = "File Format=MacCaption_MCC V";

constexpr char lower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool beginsWith(std::string_view text, std::string_view start, bool &exact)
{
    if (text.size() < start.size() ||
        !std::ranges::equal(text.substr(0, start.size()), start, {}, lower, lower))
        return false;
    exact = text.starts_with(start);
    return true;
}

// Removes the next word from the data of an SCC line and returns it; empty after the last word.
std::string_view takeWord(std::string_view &data)
{
    const size_t begin = std::min(data.find_first_not_of(" \t"), data.size());
    const size_t end = std::min(data.find_first_of(" \t", begin), data.size());
    const std::string_view word = data.substr(begin, end - begin);
    data.remove_prefix(end);
    return word;
}

// Returns true for a word of one track or of two.
constexpr bool hasPair(std::string_view word)
{
    return word.size() == 4 || word.size() == 8;
}

// Codes of field 1 begin with 14h or 1Ch, codes of field 2 with 15h or 1Dh (CEA-608-E, 8.4).
void voteForField(std::string_view data, Survey &survey)
{
    for (std::string_view word = takeWord(data); !word.empty(); word = takeWord(data))
    {
        const unsigned high = wordValue(word[0]) & 0x7u;
        const unsigned low = hasPair(word) ? wordValue(word[1]) & 0x7u : 0;
        if (high == 1 && (low == 4 || low == 5) && (wordValue(word[2]) & 0x7u) == 2)
            ++survey.fieldCodes[low - 4];
    }
}

// Returns true if most of the first words have four or eight digits. A lone word of eight digits may also be
// a packet without data.
bool looksLikeWords(std::string_view data)
{
    constexpr size_t kWords = 5;
    const bool isPacket = data.size() == 8 && data.substr(4, 2) == "00";
    size_t words = 0;
    size_t pairs = 0;
    for (std::string_view word = takeWord(data); !word.empty() && words < kWords; word = takeWord(data))
    {
        if (std::ranges::any_of(word, [](char digit) { return wordValue(digit) >= kBlankValue; }))
            return false;
        ++words;
        pairs += hasPair(word) ? 1 : 0;
    }
    return pairs * 2 > words && !isPacket;
}

void surveyPacket(std::string_view data, Survey &survey)
{
    std::array<uint8_t, KIVCS2_CAPTION_ANC_SIZE> bytes;
    const size_t size = decodeMCC(data, bytes).size;
    if (size > 6 && bytes[0] == 0x61 && bytes[1] == 0x01 && bytes[3] == 0x96 && bytes[4] == 0x69)
        ++survey.rateCodes[bytes[6] >> 4];
}

// Returns the rate at the end of a line whose key is damaged.
std::string_view rateAtEnd(std::string_view line)
{
    line = withoutBlanks(line);
    if (line.starts_with("//") ||
        (line.find("Rate") == std::string_view::npos && line.find("Code") == std::string_view::npos))
        return {};
    const size_t before = line.find_last_not_of("0123456789DF");
    const std::string_view end = line.substr(before == std::string_view::npos ? 0 : before + 1);
    return countingOfMCCRate(end) != KIVCS2CaptionCounting_FindOut ? end : std::string_view{};
}

void surveyLine(std::string_view line, Survey &survey)
{
    bool exact = false;
    if (const std::string_view rate = valueOf(line, kRateKey, exact); rate.data() != nullptr)
        survey.rate = rate;
    else if (const std::string_view end = rateAtEnd(line); survey.rate.empty() && !end.empty())
        survey.rate = end;
    if (isCueLine(line))
    {
        ++survey.cueLines;
        return;
    }
    Notes notes;
    LineHead head;
    if (!takeHead(line, head, notes))
        return;
    ++survey.captionLines;
    survey.semicolons += head.time.separator == ';' ? 1 : 0;
    survey.colons += head.time.separator == ':' ? 1 : 0; // "." and "," do not vote
    ++survey.frames[std::min<size_t>(head.time.frames, survey.frames.size() - 1)];
    survey.suffixes += head.hasField ? 1 : 0;
    const std::string_view data = withoutBlanks(line.substr(head.dataAt));
    const bool words = looksLikeWords(data);
    ++(words ? survey.wordLines : survey.packetLines);
    if (words)
        voteForField(data, survey);
    else
        surveyPacket(data, survey);
}
} // namespace

bool Survey::drops() const
{
    return semicolons > colons;
}

uint8_t Survey::rateCode() const
{
    uint32_t all = 0;
    for (const uint32_t count : rateCodes)
        all += count;
    const auto most = std::ranges::max_element(rateCodes);
    return *most * 2 > all ? static_cast<uint8_t>(most - rateCodes.begin()) : uint8_t{0};
}

bool Survey::exceeds(uint32_t numbers) const
{
    // If the real rate is higher, at least one in 25 successive lines has such a number (25 taken for 24). A
    // single damaged line does not decide.
    constexpr uint32_t kShare = 40;
    uint32_t lines = 0;
    for (size_t number = numbers; number < frames.size(); ++number)
        lines += frames[number];
    return lines > 1 && lines * kShare > captionLines;
}

KIVCS2CaptionFileKind Survey::kind() const
{
    if (captionLines == 0)
        return KIVCS2CaptionFileKind_FindOut;
    if (wordLines >= packetLines)
        return KIVCS2CaptionFileKind_SCC;
    return suffixes > 0 ? KIVCS2CaptionFileKind_MCC2 : KIVCS2CaptionFileKind_MCC1;
}

Survey surveyText(std::string_view text)
{
    Survey survey;
    while (!text.empty() && survey.captionLines < kLines)
    {
        const size_t end = std::min(text.find_first_of("\r\n"), text.size());
        surveyLine(text.substr(0, end), survey);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return survey;
}

bool isCueLine(std::string_view line)
{
    line = withoutBlanks(line);
    return !line.empty() && isDigit(line.front()) && line.find("-->") != std::string_view::npos;
}

KIVCS2CaptionFileKind kindOfLine(std::string_view line, bool &exact)
{
    if (beginsWith(line, kSCC, exact))
        return KIVCS2CaptionFileKind_SCC;
    if (!beginsWith(line, kMCC, exact))
        return KIVCS2CaptionFileKind_FindOut;
    return line.substr(kMCC.size()).starts_with('1') ? KIVCS2CaptionFileKind_MCC1
                                                     : KIVCS2CaptionFileKind_MCC2;
}

std::string_view valueOf(std::string_view line, std::string_view key, bool &exact)
{
    line = withoutBlanks(line);
    return beginsWith(line, key, exact) ? withoutBlanks(line.substr(key.size())) : std::string_view{};
}

CountingChoice chooseCounting(KIVCS2CaptionFileKind kind, std::string_view rate, const Survey &survey)
{
    if (kind == KIVCS2CaptionFileKind_SCC)
        return {survey.drops() ? uint32_t{KIVCS2CaptionCounting_29_97DF}
                               : uint32_t{KIVCS2CaptionCounting_29_97NDF},
                KIVCS2CaptionReason_Separator, KIVCS2CaptionFault_None};

    const uint8_t code = survey.rateCode();
    const KIVCS2CaptionCounting named = countingOfMCCRate(rate);
    if (named == KIVCS2CaptionCounting_FindOut)
    {
        // The format does not have "29.97DF", but the text still means that numbers are dropped.
        const bool drops = survey.drops() || rate.find_first_of("DFdf") != std::string_view::npos;
        CountingChoice choice{countingOfRateCode(code, drops), KIVCS2CaptionReason_Packets,
                              KIVCS2CaptionFault_None};
        if (choice.counting == KIVCS2CaptionCounting_FindOut && survey.captionLines > 0)
            choice.fault = rate.empty() ? KIVCS2CaptionFault_RateMissing : KIVCS2CaptionFault_RateUnknown;
        else if (choice.counting != KIVCS2CaptionCounting_FindOut &&
                 survey.exceeds(countingInfo(choice.counting)->m_numbers))
            choice.fault = KIVCS2CaptionFault_RateDisagrees;
        return choice;
    }
    // If the text means two rates, the CDPs decide between them.
    CountingChoice choice{withRateCode(named, code), KIVCS2CaptionReason_Header, KIVCS2CaptionFault_None};
    if ((code != 0 && !rateAgrees(*countingInfo(named), code)) ||
        survey.exceeds(countingInfo(named)->m_numbers))
        choice.fault = KIVCS2CaptionFault_RateDisagrees;
    return choice;
}
} // namespace kiv::cc
