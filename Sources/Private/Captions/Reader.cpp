// Reads a caption file packet by packet: header, order of lines, faults.
#include "Private/Captions/Reader.h"

#include "Private/Captions/Faults.h"
#include "Private/Captions/Packet.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace kiv::cc
{
namespace
{
constexpr size_t kWordSize = 4;     // digits of a pair
constexpr size_t kLongestWord = 64; // longer words are skipped piece by piece

bool isComment(std::string_view text)
{
    return text.starts_with("//");
}

KIVCS2CaptionFault faultOfCharacter(char character)
{
    return character == '\0' ? KIVCS2CaptionFault_Null : KIVCS2CaptionFault_UnknownCharacter;
}

// Stores the pair of a word's four digits as triplet `index`. Returns 1 if its parity is wrong, else 0.
inline uint64_t putPair(KIVCS2CaptionPacket &packet, uint8_t index, const char *digits, uint8_t field)
{
    const auto first = static_cast<uint8_t>(wordValue(digits[0]) << 4 | wordValue(digits[1]));
    const auto second = static_cast<uint8_t>(wordValue(digits[2]) << 4 | wordValue(digits[3]));
    uint8_t *const triplet = packet.m_triplets[index];
    triplet[0] = static_cast<uint8_t>(kMarker | kValid | field);
    triplet[1] = first;
    triplet[2] = second;
    packet.m_tripletCount = static_cast<uint8_t>(index + 1);
    // Without branches: in files with wrong parity, the wrong bytes are random.
    const unsigned odd = unsigned{hasOddParity(first)} & unsigned{hasOddParity(second)};
    return ~odd & static_cast<unsigned>(!isEmptyPair(first, second));
}

bool losesData(KIVCS2CaptionFault fault)
{
    constexpr uint64_t kLosing =
        faultBit(KIVCS2CaptionFault_HalfByte) | faultBit(KIVCS2CaptionFault_DataCount) |
        faultBit(KIVCS2CaptionFault_NotACDP) | faultBit(KIVCS2CaptionFault_SectionCut) |
        faultBit(KIVCS2CaptionFault_SectionUnknown);
    return (kLosing & faultBit(fault)) != 0;
}
} // namespace

// ---- Reporting ----

KIVCS2Status Reader::failed(KIVCS2Status status)
{
    m_ended = status;
    return status;
}

// A failing callback ends the call. In a strict read any failure also ends every later read.
KIVCS2Status Reader::tell(KIVCS2CaptionFault fault, const Place &place, bool lost)
{
    const KIVCS2Status status = m_log.tell(fault, place, lost);
    return KIVCS2_FAILED(status) && m_options.m_strict ? failed(status) : status;
}

KIVCS2Status Reader::tellHere(KIVCS2CaptionFault fault, size_t at, std::string_view found, bool lost)
{
    if (m_log.countOnly(fault))
        return KIVCS2STATUS_OK;
    const size_t column = at == kNowhere ? kNowhere : m_gone + at;
    return tell(fault,
                {m_current.line.number, m_current.line.offset, column, found, m_current.hasFrame,
                 m_current.hasFrame ? ofDay(m_current.frame) : 0},
                lost);
}

KIVCS2Status Reader::tellNotes(uint64_t &faults)
{
    for (const Note &note : m_current.notes.all())
    {
        faults |= faultBit(note.fault);
        const std::string_view text = m_current.line.text;
        KIV_TRY(tellHere(note.fault, note.at, text.substr(std::min(note.at, text.size()), note.size),
                         losesData(note.fault)));
    }
    return KIVCS2STATUS_OK;
}

// Reports a fault that loses the line.
KIVCS2Status Reader::lose(KIVCS2CaptionFault fault, size_t at, std::string_view found)
{
    ++m_report.m_lostLines;
    const KIVCS2Status told = tellHere(fault, at, found, true);
    if (KIVCS2_FAILED(m_ended))
        return m_ended;
    if (const KIVCS2Status status = m_source.skipRest(m_current.line); KIVCS2_FAILED(status))
        return streamFailed(status);
    return told;
}

// Reports a line without a timecode.
KIVCS2Status Reader::loseText(std::string_view text)
{
    const size_t null = text.find('\0');
    return null == kNowhere ? lose(KIVCS2CaptionFault_NotACaption, 0, text)
                            : lose(KIVCS2CaptionFault_Null, null, text.substr(null, 1));
}

KIVCS2Status Reader::endOfFile()
{
    if (m_sawCaption)
        return KIVCS2STATUS_EOF_ERR;
    if (!m_toldEnd)
    {
        m_toldEnd = true;
        KIV_TRY(
            tell(KIVCS2CaptionFault_NoCaptions, {m_source.lineNumber(), 0, kNowhere, {}, false, 0}, false));
    }
    return KIVCS2STATUS_NO_DATA_ERR;
}

void Reader::report(KIVCS2CaptionFileReport &report) const
{
    report = m_report;
    report.m_faults = m_log.all();
}

// ---- Header ----

namespace
{
constexpr size_t kLinesAhead = 160; // a header has some 50; the rest is enough captions for a vote

struct TextKey
{
    std::string_view key;
    char (KIVCS2CaptionFileHeader::*text)[KIVCS2_CAPTION_HEADER_SIZE];
};
constexpr std::array<TextKey, 4> kTextKeys = {{{"UUID=", &KIVCS2CaptionFileHeader::m_uuid},
                                               {"Creation Program=", &KIVCS2CaptionFileHeader::m_program},
                                               {"Creation Date=", &KIVCS2CaptionFileHeader::m_date},
                                               {"Creation Time=", &KIVCS2CaptionFileHeader::m_time}}};

// Copies the text, cut to `room`; returns false if it was cut. Replaces null bytes, which would end it early.
bool copyText(std::span<char> room, std::string_view text)
{
    const size_t size = std::min(text.size(), room.size() - 1);
    std::replace_copy(text.begin(), text.begin() + size, room.begin(), '\0', '?');
    room[size] = '\0';
    return size == text.size();
}

// Returns true for UTF-16 and UTF-32, recognised by their mark or by the zeros of ASCII text.
bool isOtherEncoding(std::string_view text)
{
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") ||
           (text.size() >= 4 &&
            ((text[0] == '\0' && text[2] == '\0') || (text[1] == '\0' && text[3] == '\0')));
}
} // namespace

KIVCS2Status Reader::readHeader()
{
    if (!m_headerTaken)
    {
        m_headerTaken = true;
        m_headerStatus = takeHeader();
        m_current.line.whole = true;
    }
    return m_headerStatus;
}

KIVCS2Status Reader::takeHeader()
{
    std::string_view text;
    KIV_TRY(openFile(text));
    m_survey = surveyText(text);
    KIV_TRY(takeHeaderLines());
    if (!m_sawFormat && m_header.m_firstLine == 0)
    {
        m_current.line = {{m_opening.data(), m_openingSize}, 1, 0, true};
        return refuse(KIVCS2CaptionFault_NotACaptionFile);
    }
    if (!m_sawFormat)
    {
        m_header.m_kind = m_options.m_kind != 0 ? m_options.m_kind : m_survey.kind();
        KIV_TRY(tellHere(KIVCS2CaptionFault_HeaderMissing, 0, m_current.line.text, false));
    }
    if (m_options.m_kind != 0)
        m_header.m_kind = m_options.m_kind;
    if (isSCC())
        m_header.m_field = m_options.m_field != 0                            ? m_options.m_field
                           : m_survey.fieldCodes[1] > m_survey.fieldCodes[0] ? 2
                                                                             : 1;
    return settleCounting();
}

// Reports a fault that ends the read, even if faults are tolerated.
KIVCS2Status Reader::refuse(KIVCS2CaptionFault fault, const char *expected)
{
    const Line &line = m_current.line;
    KIV_TRY(tell(fault, {line.number, line.offset, 0, line.text, false, 0, expected}, true));
    return faultRow(fault)->status;
}

KIVCS2Status Reader::openFile(std::string_view &text)
{
    text = m_source.lookAhead(kLinesAhead);
    m_current.line = {text.substr(0, KIVCS2_CAPTION_FOUND_SIZE), 1, 0, true};
    const size_t opening = std::min({text.size(), m_opening.size(), text.find_first_of("\r\n")});
    std::copy_n(text.begin(), opening, m_opening.begin());
    m_openingSize = opening;
    if (isOtherEncoding(text))
        return refuse(KIVCS2CaptionFault_OtherEncoding);
    if (!text.starts_with("\xEF\xBB\xBF"))
        return KIVCS2STATUS_OK;
    m_current.line.text = text.substr(0, 3);
    KIV_TRY(tellHere(KIVCS2CaptionFault_ByteOrderMark, 0, m_current.line.text, false));
    m_source.skip(3);
    text.remove_prefix(3);
    return KIVCS2STATUS_OK;
}

// Reads the header lines up to the first caption, which is put back.
KIVCS2Status Reader::takeHeaderLines()
{
    Line &line = m_current.line;
    for (;;)
    {
        const KIVCS2Status status = m_source.next(line);
        if (status == KIVCS2STATUS_EOF_ERR)
            return KIVCS2STATUS_OK;
        if (KIVCS2_FAILED(status))
            return streamFailed(status);
        m_report.m_lines = line.number;
        LineHead head;
        Notes notes;
        const bool isCue = !m_sawFormat && m_survey.isCues();
        if (isCue && isCueLine(line.text))
            return refuse(KIVCS2CaptionFault_NotACaptionFile,
                          "an SCC or MCC file; SRT and WebVTT are written only");
        if (!isCue && takeHead(line.text, head, notes))
        {
            m_header.m_firstLine = line.number;
            m_firstOffset = line.offset;
            m_source.unread(line);
            if (m_survey.captionLines == 0)
                surveyAgain();
            return KIVCS2STATUS_OK;
        }
        if (!isCue)
            KIV_TRY(takeHeaderLine(line));
        if (const KIVCS2Status rest = m_source.skipRest(line); KIVCS2_FAILED(rest))
            return streamFailed(rest);
    }
}

// Surveys again from the first caption on, because the header was longer than the text surveyed before.
void Reader::surveyAgain()
{
    const std::string_view text = m_source.lookAhead(kLinesAhead);
    m_survey = surveyText(text);
    m_current.line.text = text.substr(0, std::min(text.find_first_of("\r\n"), text.size()));
}

KIVCS2Status Reader::takeHeaderLine(const Line &line)
{
    const std::string_view text = withoutBlanks(line.text);
    m_sawBlank = m_sawBlank || text.empty() || isBlank(line.text.front());
    if (text.empty() || isComment(text))
        return KIVCS2STATUS_OK;
    bool known = false;
    KIV_TRY(takeFormat(text, known));
    if (!known)
        KIV_TRY(takeKnown(text, known));
    const size_t null = line.text.find('\0');
    if (known) // a null byte becomes a question mark in the text
        return null == kNowhere ? KIVCS2Status{KIVCS2STATUS_OK}
                                : tellHere(KIVCS2CaptionFault_Null, null, line.text.substr(null, 1), false);
    // This may be a caption line with a damaged timecode.
    if (null != kNowhere || isDigit(text.front()) || text.find('\t') != kNowhere)
        return loseText(line.text);
    ++m_header.m_otherLines;
    const size_t used = std::strlen(m_header.m_others);
    const std::span<char> room = std::span{m_header.m_others}.subspan(used);
    const bool whole = copyText(room, text) && line.whole;
    if (used + text.size() + 1 < sizeof m_header.m_others)
        copyText(room.subspan(text.size()), "\n");
    return tellHere(whole ? KIVCS2CaptionFault_HeaderUnknown : KIVCS2CaptionFault_HeaderLong, 0, text, false);
}

// Takes the line that names the format, once.
KIVCS2Status Reader::takeFormat(std::string_view text, bool &known)
{
    bool exact = true;
    const KIVCS2CaptionFileKind kind = m_sawFormat ? 0 : kindOfLine(text, exact);
    if (kind == KIVCS2CaptionFileKind_FindOut)
        return KIVCS2STATUS_OK;
    known = m_sawFormat = true;
    m_header.m_kind = kind;
    if (m_sawBlank)
        KIV_TRY(tellHere(KIVCS2CaptionFault_HeaderBlanks, 0, text, false));
    return exact ? KIVCS2STATUS_OK : tellHere(KIVCS2CaptionFault_HeaderCase, 0, text, false);
}

KIVCS2Status Reader::takeKnown(std::string_view text, bool &known)
{
    bool exact = true;
    bool whole = true;
    for (const TextKey &key : kTextKeys)
        if (const std::string_view value = valueOf(text, key.key, exact); value.data() != nullptr)
        {
            known = true;
            whole = copyText(m_header.*key.text, value);
        }
    if (const std::string_view rate = valueOf(text, kRateKey, exact); rate.data() != nullptr)
    {
        known = true;
        whole = copyText(m_header.m_rate, rate);
        if (countingOfMCCRate(rate) == KIVCS2CaptionCounting_FindOut)
            KIV_TRY(tellHere(KIVCS2CaptionFault_RateUnknown, kRateKey.size(), rate, false));
    }
    if (known && !exact)
        KIV_TRY(tellHere(KIVCS2CaptionFault_HeaderCase, 0, text, false));
    return whole ? KIVCS2STATUS_OK : tellHere(KIVCS2CaptionFault_HeaderLong, 0, text, false);
}

KIVCS2Status Reader::settleCounting()
{
    const bool needsRate = !isSCC() && m_header.m_rate[0] == '\0' && m_header.m_firstLine != 0;
    const bool isLate = needsRate && !m_survey.rate.empty();
    if (needsRate && !isLate)
        KIV_TRY(tellHere(KIVCS2CaptionFault_RateMissing, kNowhere, {}, false));
    const CountingChoice choice =
        chooseCounting(m_header.m_kind, isLate ? m_survey.rate : std::string_view{m_header.m_rate}, m_survey);
    m_header.m_counting = choice.counting;
    m_header.m_reason = choice.reason;
    if (m_options.m_counting != KIVCS2CaptionCounting_FindOut)
    {
        m_header.m_counting = m_options.m_counting;
        m_header.m_reason = KIVCS2CaptionReason_Caller;
    }
    else if (choice.fault == KIVCS2CaptionFault_RateDisagrees)
        return refuse(choice.fault);
    else if (choice.fault != KIVCS2CaptionFault_None)
        return faultRow(choice.fault)->status; // already reported
    m_info = countingInfo(m_header.m_counting);
    for (uint8_t code = 0; m_info != nullptr && code < 16; ++code) // null: no captions and no rate
        m_rateCodes |= rateAgrees(*m_info, code) ? 1u << code : 0u;
    return KIVCS2STATUS_OK;
}

// ---- Lines ----

// Makes the next caption line the current one.
KIVCS2Status Reader::nextLine()
{
    m_gone = 0;
    const KIVCS2Status status =
        m_options.m_order == KIVCS2CaptionOrder_Frame ? lineInFrameOrder() : lineInFileOrder();
    if (KIVCS2_SUCCEEDED(status))
        return status;
    if (status == KIVCS2STATUS_EOF_ERR)
        return endOfFile();
    return streamFailed(status);
}

KIVCS2Status Reader::streamFailed(KIVCS2Status status)
{
    // The result is the stream's own status.
    (void)tellHere(KIVCS2CaptionFault_StreamFailed, kNowhere, {}, true);
    return failed(status);
}

KIVCS2Status Reader::lineInFileOrder()
{
    Line &line = m_current.line;
    KIV_TRY(m_source.skipRest(line)); // a callback may have ended the call within a line
    for (;;)
    {
        KIV_TRY(m_source.next(line));
        m_report.m_lines = std::max(m_report.m_lines, line.number);
        const std::string_view text = withoutBlanks(line.text);
        if (!isComment(text) && !(line.whole && text.empty()))
            return KIVCS2STATUS_OK;
        KIV_TRY(m_source.skipRest(line));
    }
}

KIVCS2Status Reader::lineInFrameOrder()
{
    if (!m_listed)
        KIV_TRY(listLines());
    if (m_options.m_order == KIVCS2CaptionOrder_File)
        return lineInFileOrder();
    if (m_listAt == m_list.all().size())
        return KIVCS2STATUS_EOF_ERR;
    const OrderedLine &ordered = m_list.all()[m_listAt++];
    KIV_TRY(m_source.moveTo(ordered.offset, ordered.number));
    return m_source.next(m_current.line);
}

// Returns the frame of a line, counted on past midnight. The first call is for the file's first line.
std::optional<uint32_t> Reader::frameOfLine(const LineHead &head)
{
    const auto frame = frameOf(*m_info, head.time);
    if (!frame)
        return frame;
    if (!m_hasOrigin)
        m_origin = *frame;
    m_hasOrigin = true;
    const uint32_t counted = countedOn(*frame);
    m_runsOver = m_runsOver || counted != *frame;
    return counted;
}

// A programme lasts less than half a day: a frame that is earlier than the first line by more than that
// belongs to the next day.
uint32_t Reader::countedOn(uint32_t frame) const
{
    return uint64_t{frame} + m_info->m_perDay / 2 < m_origin ? frame + m_info->m_perDay : frame;
}

// Stores the frame of the last pair or packet of a line. In: the line's first frame.
KIVCS2Status Reader::lastFrameOf(Line &line, const LineHead &head, uint32_t &last)
{
    if (!isSCC())
        return m_source.skipRest(line);
    bool inWord = false;
    size_t words = countWords(line.text.substr(head.dataAt), inWord);
    while (!line.whole)
    {
        KIV_TRY(m_source.more(line, 0));
        words += countWords(line.text, inWord);
    }
    last += static_cast<uint32_t>(std::max<size_t>(words, 1) - 1);
    m_runsOver = m_runsOver || last >= m_info->m_perDay;
    return KIVCS2STATUS_OK;
}

// Reads the whole file once for its timecodes. An MCC file that is in order is then read in file order;
// otherwise the lines are listed.
KIVCS2Status Reader::listLines()
{
    bool isBack = false;
    if (!isSCC() && m_header.m_firstLine != 0)
    {
        KIV_TRY(goThroughLines(false, isBack));
        KIV_TRY(m_source.moveTo(m_firstOffset, m_header.m_firstLine));
        if (!isBack)
            m_options.m_order = KIVCS2CaptionOrder_File;
    }
    if (m_options.m_order == KIVCS2CaptionOrder_Frame)
        KIV_TRY(goThroughLines(true, isBack));
    m_list.order(isSCC());
    const auto lines = m_list.all(); // the last line may wait until the next day
    m_runsOver = m_runsOver ||
                 (!lines.empty() && uint64_t{lines.back().placed} + lines.back().frames > m_info->m_perDay);
    m_listed = true;
    return KIVCS2STATUS_OK;
}

KIVCS2Status Reader::goThroughLines(bool lists, bool &isBack)
{
    uint32_t before = 0;
    Line line;
    KIVCS2Status status = KIVCS2STATUS_OK;
    while (KIVCS2_SUCCEEDED(status = m_source.next(line)))
    {
        m_report.m_lines = std::max(m_report.m_lines, line.number);
        OrderedLine ordered{};
        bool isCaption = false;
        KIV_TRY(orderLine(line, before, ordered, isCaption));
        isBack = isBack || (isCaption && ordered.isBack);
        if (lists && isCaption)
            KIV_TRY(m_list.add(ordered));
    }
    return status == KIVCS2STATUS_EOF_ERR ? KIVCS2Status{KIVCS2STATUS_OK} : status;
}

// A line without a timecode stays after the line before it, so that its fault is reported in its place.
KIVCS2Status Reader::orderLine(Line &line, uint32_t &before, OrderedLine &ordered, bool &isCaption)
{
    const std::string_view text = withoutBlanks(line.text);
    isCaption = !text.empty() && !isComment(text);
    if (!isCaption)
        return m_source.skipRest(line);
    ordered = {line.offset, static_cast<uint32_t>(line.number), before, before, 0, 0};
    Notes notes;
    LineHead head;
    // A line that will be lost must not take frames from the lines after it.
    const auto isLost = [&] { return isSCC() && findBadOfWords(line.text.substr(head.dataAt)) != kNowhere; };
    const auto frame = takeHead(line.text, head, notes) ? frameOfLine(head) : std::nullopt;
    if (frame && !isLost())
    {
        uint32_t last = *frame;
        KIV_TRY(lastFrameOf(line, head, last));
        ordered.frame = *frame;
        ordered.frames = (last - ordered.frame + 1) & 0x7FFFFFFFu;
        ordered.isBack = ordered.frame < before;
        before = ordered.frame;
    }
    return m_source.skipRest(line);
}

// ---- Packets ----

KIVCS2Status Reader::readPacket(KIVCS2CaptionPacket &packet)
{
    KIV_TRY(readHeader());
    KIV_TRY(m_ended);
    bool got = false;
    while (!got)
    {
        if (m_inWords)
        {
            KIV_TRY(usualWord(packet, got));
            if (!got)
                KIV_TRY(nextWord(packet, got));
        }
        else
        {
            KIV_TRY(nextLine());
            KIV_TRY(takeLine(packet, got));
        }
    }
    m_sawCaption = true;
    if (m_report.m_packets++ == 0)
        m_report.m_firstFrame = packet.m_frame;
    m_report.m_lastFrame = packet.m_frame;
    m_report.m_cdps += (packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0 ? 1 : 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status Reader::takeLine(KIVCS2CaptionPacket &packet, bool &got)
{
    m_current.head = {};
    m_current.notes.clear();
    m_current.hasFrame = false;
    if (!m_current.line.whole && !isSCC())
        KIV_TRY(gatherLine());
    bool good = false;
    KIV_TRY(takeTimecode(good));
    if (!good)
        return KIVCS2STATUS_OK;
    if (withoutBlanks(m_current.line.text.substr(m_current.head.dataAt)).empty() && m_current.line.whole)
        return lose(KIVCS2CaptionFault_NotACaption, m_current.head.dataAt, {});
    return isSCC() ? openWords() : takeMCC(packet, got);
}

// Gathers an MCC line that does not fit the window: without its blanks it may. If it is still too long, the
// gathered start is longer than any packet.
KIVCS2Status Reader::gatherLine()
{
    constexpr size_t kBlanksMost = 16;
    Line &line = m_current.line;
    size_t size = 0;
    for (size_t blanks = 0; size < m_gathered.size();)
    {
        for (const char character : line.text)
        {
            blanks = isBlank(character) ? blanks + 1 : 0;
            if (blanks <= kBlanksMost && size < m_gathered.size())
                m_gathered[size++] = character;
        }
        if (line.whole)
            break;
        if (const KIVCS2Status status = m_source.more(line, 0); KIVCS2_FAILED(status))
            return streamFailed(status);
    }
    line.text = {m_gathered.data(), size};
    return KIVCS2STATUS_OK;
}

// Takes the line's frame. If `good` is false, the line is lost and reported.
KIVCS2Status Reader::takeTimecode(bool &good)
{
    const std::string_view text = m_current.line.text;
    LineHead &head = m_current.head;
    if (!takeHead(text, head, m_current.notes))
    {
        bool exact = false;
        if (valueOf(text, kRateKey, exact).data() != nullptr)
            return tellHere(KIVCS2CaptionFault_RateLate, 0, text, false);
        return loseText(text);
    }
    const std::string_view time = text.substr(head.timeAt, kTimecodeSize);
    const auto frame = frameOfLine(head);
    if (!frame)
        return lose(KIVCS2CaptionFault_NoSuchTime, head.timeAt, time);
    m_current.frame = *frame;
    m_current.hasFrame = true;
    if (isDropped(*m_info, head.time))
        m_current.notes.add(KIVCS2CaptionFault_DroppedNumber, head.timeAt, kTimecodeSize);
    // MCC writes ":" at every rate, but a ";" in it still means drop-frame.
    const char separator = head.time.separator;
    const bool drops = m_info->m_drop != 0;
    if ((separator == ';' && !drops) || (separator == ':' && drops && isSCC()))
        m_current.notes.add(KIVCS2CaptionFault_OtherCounting, head.timeAt + 8, 1);
    if (head.badSuffix || (head.hasField && m_header.m_kind != KIVCS2CaptionFileKind_MCC2))
        m_current.notes.add(KIVCS2CaptionFault_Suffix, head.timeAt + kTimecodeSize, 2);
    if (m_dropping && m_current.frame < m_dropBefore && !isSCC())
        return m_source.skipRest(m_current.line);
    good = true;
    return KIVCS2STATUS_OK;
}

// ---- MCC ----

KIVCS2Status Reader::takeMCC(KIVCS2CaptionPacket &packet, bool &got)
{
    Line &line = m_current.line;
    const size_t dataAt = m_current.head.dataAt;
    std::string_view data = line.text.substr(dataAt);
    while (!data.empty() && isBlank(data.back()))
        data.remove_suffix(1);
    clear(packet);
    const MCCData decoded = decodeMCC(data, packet.m_anc);
    if (m_options.m_order == KIVCS2CaptionOrder_File)
        m_index.add(line.offset, line.number, m_current.frame);
    if (decoded.badAt != kNowhere)
        return lose(faultOfCharacter(data[decoded.badAt]), dataAt + decoded.badAt,
                    data.substr(decoded.badAt, 1));
    if (decoded.tooLong || !line.whole)
        return lose(KIVCS2CaptionFault_LongPacket, dataAt, data);
    if (decoded.size == 0)
        return lose(KIVCS2CaptionFault_HalfByte, dataAt, data);

    packet.m_line = line.number;
    packet.m_offset = line.offset;
    packet.m_frame = ofDay(m_current.frame);
    packet.m_size = static_cast<uint16_t>(decoded.size);
    if (line.text.size() > dataAt + data.size())
        m_current.notes.add(KIVCS2CaptionFault_BlanksBehind, dataAt + data.size(),
                            line.text.size() - dataAt - data.size());
    KIV_TRY(finishMCC(packet, decoded));
    m_dropping = false;
    got = true;
    return KIVCS2STATUS_OK;
}

KIVCS2Status Reader::finishMCC(KIVCS2CaptionPacket &packet, const MCCData &data)
{
    const LineHead &head = m_current.head;
    if (head.hasField)
    {
        packet.m_flags |= KIVCS2CaptionPacketFlag_HasField;
        packet.m_field = head.field;
    }
    if (head.hasNumber)
    {
        packet.m_flags |= KIVCS2CaptionPacketFlag_HasNumber;
        packet.m_number = head.number;
    }
    if (data.lowerAt != kNowhere)
        m_current.notes.add(KIVCS2CaptionFault_LowerCase, head.dataAt + data.lowerAt, 2);
    if (data.halfAt != kNowhere)
        m_current.notes.add(KIVCS2CaptionFault_HalfByte, head.dataAt + data.halfAt, 2);
    if (data.fourByteU)
        m_current.notes.add(KIVCS2CaptionFault_FourByteU, head.dataAt + data.uAt, 1);
    takeApart(packet);
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0 && packet.m_rateCode != 0 &&
        (m_rateCodes >> packet.m_rateCode & 1u) == 0)
        packet.m_faults |= faultBit(KIVCS2CaptionFault_RateDisagrees);

    // Faults of the bytes have no column of their own: they are reported at the start of the data.
    const uint64_t ofBytes = packet.m_faults;
    KIV_TRY(tellNotes(packet.m_faults));
    for (uint64_t rest = ofBytes; rest != 0; rest &= rest - 1)
    {
        const auto fault = static_cast<KIVCS2CaptionFault>(std::countr_zero(rest));
        KIV_TRY(tellHere(fault, head.dataAt, m_current.line.text.substr(head.dataAt), losesData(fault)));
    }
    return compareMCC(packet);
}

// Returns the fault in the order of a packet and the one before it.
KIVCS2CaptionFault Reader::orderFault(uint32_t frame, const uint32_t (&suffix)[3]) const
{
    if (!m_hasLast)
        return KIVCS2CaptionFault_None;
    // Suffixes distinguish the fields and packets of one frame.
    if (frame == m_lastFrame && std::ranges::equal(suffix, m_lastSuffix))
        return KIVCS2CaptionFault_SameFrame;
    const bool isBack = frame < m_lastFrame && !isOverMidnight(m_lastFrame, frame);
    return isBack ? KIVCS2CaptionFault_BackInTime : KIVCS2CaptionFault_None;
}

// Returns the fault if a CDP's counter does not follow that of the CDP before it, `ahead` frames earlier.
KIVCS2CaptionFault Reader::sequenceFault(uint16_t sequence, uint32_t ahead, bool isSameFrame) const
{
    // In a sparse file the frames between have no packet, and the counters go up by one. If the counters
    // include those frames, their packets are missing.
    const auto step = static_cast<uint16_t>(sequence - m_sequence);
    if (!m_hasSequence || step == 1 || (step == 0 && isSameFrame))
        return KIVCS2CaptionFault_None;
    return ahead > 1 && step == ahead ? KIVCS2CaptionFault_Gap : KIVCS2CaptionFault_Sequence;
}

// Compares the packet with the one before it.
KIVCS2Status Reader::compareMCC(KIVCS2CaptionPacket &packet)
{
    const uint32_t frame = packet.m_frame;
    const uint32_t suffix[3] = {packet.m_flags & 3u, packet.m_field, packet.m_number};
    KIVCS2CaptionFault order = orderFault(frame, suffix);
    KIVCS2CaptionFault sequence = KIVCS2CaptionFault_None;
    uint32_t ahead = 0;
    if (m_hasLast && order == KIVCS2CaptionFault_None)
        ahead = frame + (isOverMidnight(m_lastFrame, frame) ? m_info->m_perDay : 0) - m_lastFrame;
    m_report.m_gapFrames += ahead > 1 ? ahead - 1 : 0;
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0)
    {
        const bool isSameFrame = frame == m_lastFrame && order == KIVCS2CaptionFault_None;
        sequence = sequenceFault(packet.m_sequence, ahead, isSameFrame);
        m_sequence = packet.m_sequence;
        m_hasSequence = true;
    }
    m_hasLast = true;
    m_lastFrame = frame;
    std::ranges::copy(suffix, m_lastSuffix);
    if (m_options.m_order == KIVCS2CaptionOrder_Frame && m_list.all()[m_listAt - 1].isBack)
        order = KIVCS2CaptionFault_BackInTime;
    for (const KIVCS2CaptionFault one : {order, sequence})
        if (one != KIVCS2CaptionFault_None)
        {
            packet.m_faults |= faultBit(one);
            KIV_TRY(tellHere(one, m_current.head.timeAt,
                             m_current.line.text.substr(m_current.head.timeAt, kTimecodeSize), false));
        }
    return KIVCS2STATUS_OK;
}

// ---- SCC ----

KIVCS2Status Reader::openWords()
{
    Line &line = m_current.line;
    m_at = m_current.head.dataAt;
    m_lineFaults = 0;
    m_first = true;
    if (const size_t bad = findBadOfWords(line.text.substr(m_at)); bad != kNowhere)
        return lose(faultOfCharacter(line.text[m_at + bad]), m_at + bad, line.text.substr(m_at + bad, 1));
    const size_t used = line.text.find_last_not_of(" \t") + 1;
    if (line.whole && used < line.text.size())
        m_current.notes.add(KIVCS2CaptionFault_BlanksBehind, used, line.text.size() - used);
    KIV_TRY(tellNotes(m_lineFaults));
    return placeWords();
}

// Finds the frame of the line's first pair, if the line can be placed.
KIVCS2Status Reader::placeWords()
{
    const uint32_t frame = m_current.frame;
    const bool byFrame = m_options.m_order == KIVCS2CaptionOrder_Frame;
    m_wordFrame = byFrame ? std::max(frame, m_list.all()[m_listAt - 1].placed) : frame;
    KIVCS2CaptionFault fault = KIVCS2CaptionFault_None;
    if ((byFrame && m_list.all()[m_listAt - 1].isBack) ||
        (m_hasLast && frame < m_lastFrame && !isOverMidnight(m_lastFrame, frame)))
        fault = KIVCS2CaptionFault_BackInTime;
    else if (m_hasLast && frame == m_lastFrame)
        fault = KIVCS2CaptionFault_SameFrame;
    else if (byFrame ? m_wordFrame > frame : m_hasLast && frame < m_nextFrame && frame > m_lastFrame)
        fault = KIVCS2CaptionFault_Overlap;
    m_hasLast = true;
    m_lastFrame = frame;
    if (m_wordFrame - frame > m_info->m_perDay / 24)
        return lose(KIVCS2CaptionFault_WaitsTooLong, m_current.head.timeAt,
                    m_current.line.text.substr(m_current.head.timeAt, kTimecodeSize));
    m_inWords = true;
    if (fault == KIVCS2CaptionFault_None)
        return KIVCS2STATUS_OK;
    m_lineFaults |= faultBit(fault);
    return tellHere(fault, m_current.head.timeAt,
                    m_current.line.text.substr(m_current.head.timeAt, kTimecodeSize), false);
}

void Reader::closeWords()
{
    m_inWords = false;
    m_nextFrame = m_wordFrame;
    // A seek that begins behind this line, with the index of lines already read, does not find it again.
    m_runsOver = m_runsOver || m_wordFrame > m_info->m_perDay;
    if (m_options.m_order == KIVCS2CaptionOrder_File)
        m_index.add(m_current.line.offset, m_current.line.number,
                    std::max(m_wordFrame, m_current.frame + 1) - 1);
}

// Finds the next word; empty at the line's end. If the word is too long, `word` is its last part.
KIVCS2Status Reader::findWord(std::string_view &word, size_t &digits)
{
    Line &line = m_current.line;
    size_t dropped = 0;
    for (;;)
    {
        while (dropped == 0 && m_at < line.text.size() && isBlank(line.text[m_at]))
            ++m_at;
        size_t end = m_at;
        while (end < line.text.size() && !isBlank(line.text[end]))
            ++end;
        word = line.text.substr(m_at, end - m_at);
        digits = dropped + word.size();
        if (end < line.text.size() || line.whole)
            return KIVCS2STATUS_OK;
        // The word may continue in the next block.
        const bool isLong = digits > kLongestWord;
        const size_t keep = isLong ? 0 : word.size();
        dropped = isLong ? digits : 0;
        m_gone += line.text.size() - keep;
        m_at = 0;
        if (const KIVCS2Status status = m_source.more(line, keep); KIVCS2_FAILED(status))
            return streamFailed(status);
        KIV_TRY(checkWords(keep));
    }
}

// Ends the line at a character without a meaning, if the line was too long to be checked beforehand.
KIVCS2Status Reader::checkWords(size_t from)
{
    const size_t bad = findBadOfWords(m_current.line.text.substr(from));
    if (bad == kNowhere)
        return KIVCS2STATUS_OK;
    const char character = m_current.line.text[from + bad];
    const KIVCS2Status told = lose(faultOfCharacter(character), from + bad, {&character, 1});
    m_current.line.text = {};
    m_at = 0;
    return told;
}

KIVCS2Status Reader::nextWord(KIVCS2CaptionPacket &packet, bool &got)
{
    std::string_view word;
    size_t digits = 0;
    const KIVCS2Status status = findWord(word, digits);
    if (KIVCS2_FAILED(status))
    {
        closeWords();
        return status;
    }
    if (digits == 0)
    {
        closeWords();
        // If the line came in pieces, its end is first seen here.
        const std::string_view text = m_current.line.text;
        if (m_gone == 0 || text.empty() || !isBlank(text.back()))
            return KIVCS2STATUS_OK;
        return tellHere(KIVCS2CaptionFault_BlanksBehind, text.size() - 1, text.substr(text.size() - 1),
                        false);
    }
    const bool dropped = m_dropping && m_wordFrame < m_dropBefore;
    const KIVCS2Status taken = dropped ? KIVCS2STATUS_OK : takeWord(word, digits, packet, got);
    m_at += word.size();
    ++m_wordFrame;
    m_dropping = m_dropping && !got;
    return taken;
}

// Begins a packet of the line at the frame of the current word.
void Reader::openPair(KIVCS2CaptionPacket &packet)
{
    clear(packet);
    packet.m_frame = ofDay(m_wordFrame);
    packet.m_line = m_current.line.number;
    packet.m_offset = m_current.line.offset;
    packet.m_faults = m_first ? m_lineFaults : 0;
    m_first = false;
}

// Takes a word of four digits after at most one blank, as most words are. Other words are left to nextWord().
KIVCS2Status Reader::usualWord(KIVCS2CaptionPacket &packet, bool &got)
{
    const std::string_view text = m_current.line.text;
    const size_t at = m_at + (m_at < text.size() && isBlank(text[m_at]) ? 1 : 0);
    const bool isLast = at + kWordSize == text.size() && m_current.line.whole;
    if (m_dropping || (!isLast && (at + kWordSize >= text.size() || !isBlank(text[at + kWordSize]))))
        return KIVCS2STATUS_OK;
    const char *const digits = &text[at];
    if ((wordValue(digits[0]) | wordValue(digits[1]) | wordValue(digits[2]) | wordValue(digits[3])) >=
        kBlankValue)
        return KIVCS2STATUS_OK;
    openPair(packet);
    const uint64_t lacks = putPair(packet, 0, digits, m_header.m_field == 2 ? kField2 : kField1);
    packet.m_faults |= lacks << KIVCS2CaptionFault_Parity;
    got = true;
    m_at = at + kWordSize;
    ++m_wordFrame;
    return m_log.countOnly(KIVCS2CaptionFault_Parity, lacks) || lacks == 0
               ? KIVCS2STATUS_OK
               : tellHere(KIVCS2CaptionFault_Parity, at, text.substr(at, kWordSize), false);
}

KIVCS2Status Reader::takeWord(std::string_view word, size_t digits, KIVCS2CaptionPacket &packet, bool &got)
{
    if (digits != kWordSize && digits != 2 * kWordSize)
    {
        ++m_report.m_lostPairs;
        return tellHere(KIVCS2CaptionFault_WordLength, m_at, word, true);
    }
    openPair(packet);
    const uint8_t field = m_header.m_field == 2 ? kField2 : kField1;
    uint64_t lacks = putPair(packet, 0, word.data(), field);
    const size_t pairs = digits == 8 && m_options.m_bothTracks ? 2 : 1;
    if (pairs == 2)
        lacks |= putPair(packet, 1, word.data() + kWordSize, field == kField1 ? kField2 : kField1);
    packet.m_faults |= lacks << KIVCS2CaptionFault_Parity;
    got = true;
    if (digits == 8)
    {
        packet.m_faults |= faultBit(KIVCS2CaptionFault_EightDigitWord);
        KIV_TRY(tellHere(KIVCS2CaptionFault_EightDigitWord, m_at, word, pairs == 1));
    }
    if ((packet.m_faults & faultBit(KIVCS2CaptionFault_Parity)) != 0)
        KIV_TRY(tellHere(KIVCS2CaptionFault_Parity, m_at, word, false));
    return KIVCS2STATUS_OK;
}

// ---- Seeking ----

KIVCS2Status Reader::seek(uint32_t frame)
{
    KIV_TRY(readHeader());
    if (!canSeek())
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    if (KIVCS2_FAILED(m_ended))
        return m_ended;
    m_inWords = false;
    m_current.line.whole = true; // the rest of the line is skipped
    m_gone = 0;
    m_hasLast = m_hasSequence = false;
    KIVCS2Status status = m_info == nullptr ? KIVCS2STATUS_EOF_ERR : moveTo(frame);
    if (KIVCS2_FAILED(status) && status != KIVCS2STATUS_EOF_ERR)
        status = streamFailed(status);
    return status;
}

// In a file that runs past midnight, a frame more than half a day before the first line belongs to the next
// day. In other files it is before the first line.
KIVCS2Status Reader::moveTo(uint32_t frame)
{
    if (m_options.m_order == KIVCS2CaptionOrder_Frame && !m_listed)
        KIV_TRY(listLines());
    const bool byFrame = m_options.m_order == KIVCS2CaptionOrder_Frame;
    if (!byFrame && !m_hasOrigin)
        KIV_TRY(passBefore(0));
    // Whether the file runs past midnight is known in order by frame, otherwise only after its end was read.
    const uint32_t wanted = byFrame && !m_runsOver ? frame : countedOn(frame);
    const KIVCS2Status status = passBefore(wanted);
    return status == KIVCS2STATUS_EOF_ERR && wanted != frame && !m_runsOver ? passBefore(frame) : status;
}

// Skips lines that end before `frame` and reads only their timecodes.
KIVCS2Status Reader::passBefore(uint32_t frame)
{
    m_dropping = true;
    m_dropBefore = frame;
    if (m_options.m_order == KIVCS2CaptionOrder_Frame)
    {
        m_listAt = m_list.find(frame);
        return m_listAt < m_list.all().size() ? KIVCS2STATUS_OK : KIVCS2STATUS_EOF_ERR;
    }
    const LineIndex::Entry *const entry = m_index.find(frame);
    KIV_TRY(entry != nullptr ? m_source.moveTo(entry->offset, entry->number)
                             : m_source.moveTo(m_firstOffset, m_header.m_firstLine));
    for (;;)
    {
        KIV_TRY(lineInFileOrder());
        Line line = m_current.line;
        const bool whole = line.whole;
        m_current.line.whole = true; // `line` reads the rest of it
        Notes notes;
        LineHead head;
        const auto begin = takeHead(line.text, head, notes) ? frameOfLine(head) : std::nullopt;
        if (!begin)
        {
            KIV_TRY(m_source.skipRest(line));
            continue;
        }
        uint32_t last = *begin;
        KIV_TRY(lastFrameOf(line, head, last));
        m_index.add(line.offset, line.number, last);
        m_sawCaption = true;
        if (last < frame)
            continue;
        if (!whole)
            return m_source.moveTo(line.offset, line.number);
        m_source.unread(line);
        return KIVCS2STATUS_OK;
    }
}
} // namespace kiv::cc
