// Lines, headers and packets of caption files.
#include "Captions/CaptionFile.h"

#include "Failure.h"
#include "Terminal/Output.h"

#include <KIVCoreServices2/KIVCS2String.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kWindow = size_t{128} * 1024; // far above the longest caption line (some 700 characters)

// Pairs of one piece of a long SCC line: a caption record holds 259 bytes.
constexpr uint32_t kPairsAtATime = 128;

constexpr size_t kTimecodeLength = 11; // HH:MM:SS:FF

constexpr uint8_t kCaptionDID = 0x61; // SMPTE ST 334-1
constexpr uint8_t kCaptionSDID = 0x01;

bool isLineEnd(uint8_t byte)
{
    return byte == '\n' || byte == '\r';
}

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool isHex(char character)
{
    return isDigit(character) || (character >= 'A' && character <= 'F') ||
           (character >= 'a' && character <= 'f');
}

std::string_view withoutTrailingBlanks(std::string_view text)
{
    const size_t last = text.find_last_not_of(" \t");
    return last == std::string_view::npos ? std::string_view{} : text.substr(0, last + 1);
}

std::string shortened(std::string_view text)
{
    constexpr size_t kMost = 60;
    return visible(text.substr(0, kMost)) + (text.size() > kMost ? "..." : "");
}

// A caption line, behind the blanks that some writers put in front of it.
std::string_view withoutLeadingBlanks(std::string_view line)
{
    const size_t first = line.find_first_not_of(" \t");
    return first != std::string_view::npos && isDigit(line[first]) ? line.substr(first) : line;
}

// The value of "Key=value", when the line has that key.
std::optional<std::string> valueOf(std::string_view line, std::string_view key)
{
    if (!line.starts_with(key))
        return std::nullopt;
    return std::string{withoutTrailingBlanks(line.substr(key.size()))};
}

// What is wrong with a line that the library refused, more exactly than its status says.
std::string reason(std::string_view line, KIVCS2Status status, CaptionFileKind kind)
{
    const std::string_view time = line.substr(0, kTimecodeLength);
    if (status == KIVCS2STATUS_INVALID_TIMECODE_ERR)
        return visible(time) + " names no frame of the counting in use";
    if (status == KIVCS2STATUS_OVERFLOW_ERR)
        return "more than 259 bytes in one packet";
    if (status == KIVCS2STATUS_CAPTION_ERR)
    {
        for (size_t at = std::min(line.find('\t'), line.size()); at < line.size(); ++at)
        {
            const char character = line[at];
            const bool known = kind == CaptionFileKind::SCC
                                   ? isHex(character) || character == ' '
                                   : isDigit(character) || (character >= 'A' && character <= 'Z');
            if (!known && character != '\t')
                return "\"" + visible({&character, 1}) + "\" in column " + std::to_string(at + 1) +
                       " stands for nothing";
        }
    }
    if (status == KIVCS2STATUS_NOT_FOUND_ERR && line.size() > kTimecodeLength && isDigit(line[0]) &&
        line[kTimecodeLength] == ' ')
        return "a space where the tab behind the timecode should be";
    return "no caption line: \"" + shortened(line) + "\"";
}

// The pairs in the CDP's triplets, all of them: through the CEA-708 block, which keeps every triplet.
KIVCS2Status takePairs(std::span<const uint8_t> cdp, PacketFacts &facts)
{
    std::array<uint8_t, 2 + 31 * 3> block{};
    auto size = static_cast<uint32_t>(block.size());
    const KIVCS2Status status = kivCS2ClosedCaptions_convertSMPTE334CDP708PacketToCEA708DPacket(
        cdp.data(), static_cast<uint32_t>(cdp.size()), false, block.data(), &size);
    if (KIVCS2_FAILED(status))
        return status;
    const uint32_t triplets = block[0] & 0x1Fu;
    facts.triplets = static_cast<uint8_t>(triplets);
    for (PairList &list : facts.pairs)
        list.count = 0;
    for (uint32_t index = 0; index < triplets; ++index)
    {
        const uint8_t *triplet = &block[2 + index * 3];
        const uint32_t type = triplet[0] & 3u;
        if ((triplet[0] & 4u) != 0 && type < 2) // cc_valid, and a CEA-608 field
            facts.pairs[type].list[facts.pairs[type].count++] = {triplet[1], triplet[2]};
    }
    return status;
}

} // namespace

LineReader::LineReader(const std::string &path) : m_input(path), m_window(kWindow), m_line(kWindow + 1)
{
    (void)fill();
    KIVCS2StringEncoding encoding = 0;
    uint32_t mark = 0;
    if (m_filled > 0 && KIVCS2_SUCCEEDED(kivCS2String_detectEncoding(
                            m_window.data(), static_cast<uint32_t>(m_filled), &encoding, &mark)))
    {
        if (encoding != KIVCS2StringEncoding_UTF8)
            throw Failure(kExitMalformed, m_input.name() +
                                              ": UTF-16 or UTF-32 text; \"kivcs2 str convert --to utf8\" "
                                              "makes it readable (" +
                                              statusText(KIVCS2STATUS_HEADER_ERR) + ")");
        m_taken = mark;
        check(kivCS2Stream_setPosition(&m_stream.m_stream, mark, KIVCS2StreamPosition_Start, nullptr),
              m_input.name());
    }
}

LineReader::~LineReader()
{
    if (m_stream.m_stream.m_close != nullptr)
        (void)kivCS2MemoryStream_close(&m_stream.m_stream); // a view: there is nothing to lose
}

// Moves what is left of the window to its start, fills it up and makes the whole lines in it the
// stream that lines are read from.
bool LineReader::fill()
{
    std::memmove(m_window.data(), m_window.data() + m_taken, m_filled - m_taken);
    m_filled -= m_taken;
    m_taken = 0;
    if (!m_atEnd)
    {
        m_filled += m_input.read({m_window.data() + m_filled, m_window.size() - m_filled});
        m_atEnd = m_filled < m_window.size();
    }
    m_whole = m_filled;
    if (!m_atEnd)
    {
        while (m_whole > 0 && !isLineEnd(m_window[m_whole - 1]))
            --m_whole;
        if (m_whole == 0)
            throw Failure(KIVCS2STATUS_NOT_FOUND_ERR, Where{m_input.name(), m_lineEnds + 1},
                          "a line of more than " + count(m_window.size(), "byte"));
    }
    if (m_whole == 0)
        return false;
    check(kivCS2MemoryStream_initWithBytes(&m_stream, m_window.data(), m_whole), m_input.name());
    return true;
}

void LineReader::countLines(size_t from, size_t to)
{
    for (size_t at = from; at < to; ++at)
    {
        const uint8_t byte = m_window[at];
        if (byte == '\r' || (byte == '\n' && m_lastByte != '\r'))
            ++m_lineEnds;
        m_lastByte = byte;
    }
}

bool LineReader::next()
{
    while (m_whole > 0)
    {
        m_lineLength = static_cast<uint32_t>(m_line.size());
        const KIVCS2Status status =
            kivCS2ClosedCaptions_readLine(&m_stream.m_stream, m_line.data(), &m_lineLength);
        if (KIVCS2_SUCCEEDED(status))
        {
            int64_t position = 0;
            check(kivCS2Stream_setPosition(&m_stream.m_stream, 0, KIVCS2StreamPosition_Current, &position),
                  m_input.name());
            const auto end = static_cast<size_t>(position);
            const size_t start = end - m_lineLength - (isLineEnd(m_window[end - 1]) ? 1 : 0);
            countLines(m_taken, start);
            m_number = m_lineEnds + 1;
            countLines(start, end);
            m_taken = end;
            return true;
        }
        if (status != KIVCS2STATUS_NO_DATA_ERR)
            throw Failure(status, Where{m_input.name()}, "reading a line");
        countLines(m_taken, m_whole);
        m_taken = m_whole;
        if (m_atEnd && m_taken == m_filled)
            break;
        if (!fill())
            break;
    }
    m_whole = 0;
    m_lineLength = 0;
    return false;
}

CaptionReader::CaptionReader(const std::string &path, const std::string &rate, OnBadLine onBadLine)
    : m_lines(path), m_onBadLine(std::move(onBadLine))
{
    static uint8_t nothing = 0;
    check(kivCS2MemoryStream_initWithBytes(&m_unused, &nothing, 1), "caption record");
    check(kivCS2ClosedCaptionsMCCStream_init(&m_record, &m_unused.m_stream, true, false), "caption record");

    if (!m_lines.next())
        throw Failure(KIVCS2STATUS_HEADER_ERR, Where{m_lines.input().name()}, "empty, neither SCC nor MCC");
    const std::string_view first = m_lines.line();
    if (first.starts_with("Scenarist_SCC V1.0"))
        readSCCHeader(rate);
    else if (first.starts_with("File Format=MacCaption_MCC V1.0") ||
             first.starts_with("File Format=MacCaption_MCC V2.0"))
    {
        m_header.version = first.starts_with("File Format=MacCaption_MCC V2.0") ? 2 : 1;
        readMCCHeader(rate);
    }
    else
        throw Failure(KIVCS2STATUS_HEADER_ERR, Where{m_lines.input().name(), m_lines.number()},
                      "neither SCC nor MCC: \"" + shortened(first) + "\"");
    use(*m_header.counting);
}

CaptionReader::~CaptionReader()
{
    (void)kivCS2ClosedCaptionsMCCStream_free(&m_record);
    (void)kivCS2MemoryStream_close(&m_unused.m_stream); // a view: there is nothing to lose
}

// An SCC file names no rate: the separator of the first caption line tells drop-frame from not.
void CaptionReader::readSCCHeader(const std::string &rate)
{
    m_header.kind = CaptionFileKind::SCC;
    std::optional<char> separator;
    if (m_lines.next())
    {
        m_pendingLine = m_lines.line();
        m_hasPending = true;
        separator = separatorOf(std::string_view{m_pendingLine}.substr(0, kTimecodeLength));
    }
    if (rate.empty())
    {
        m_header.counting = &countingFor(separator);
        m_header.countingReason = separator == ';' ? "because of \";\"" : "because of \":\"";
        return;
    }
    const bool decided = rate != "29.97" && rate != "59.94";
    m_header.counting = &countingFor(rate, decided ? std::nullopt : separator);
    m_header.countingReason = "from --rate";
}

void CaptionReader::readMCCHeader(const std::string &rate)
{
    m_header.kind = CaptionFileKind::MCC;
    m_record.m_version = m_header.version;
    uint64_t rateLine = 0;
    while (m_lines.next())
    {
        const std::string_view line = withoutLeadingBlanks(m_lines.line());
        if (isDigit(line[0]))
        {
            m_pendingLine = line;
            m_hasPending = true;
            break;
        }
        if (auto value = valueOf(line, "UUID="))
            m_header.uuid = *value;
        else if ((value = valueOf(line, "Creation Program=")))
            m_header.program = *value;
        else if ((value = valueOf(line, "Creation Date=")))
            m_header.date = *value;
        else if ((value = valueOf(line, "Creation Time=")))
            m_header.time = *value;
        else if ((value = valueOf(line, "Time Code Rate=")))
        {
            m_header.rate = *value;
            rateLine = m_lines.number();
        }
        else
            m_header.others.emplace_back(line);
    }
    if (!rate.empty())
    {
        m_header.counting = &countingFor(rate, std::nullopt);
        m_header.countingReason = "from --rate";
        return;
    }
    if (m_header.rate.empty())
        throw Failure(KIVCS2STATUS_HEADER_ERR, Where{m_lines.input().name()},
                      "no \"Time Code Rate=\" (--rate says one)");
    m_header.counting = countingForMCC(m_header.rate);
    if (m_header.counting == nullptr)
        throw Failure(KIVCS2STATUS_FRAME_RATE_ERR, Where{m_lines.input().name(), rateLine},
                      "unknown time code rate \"" + shortened(m_header.rate) + "\" (--rate says one)");
    m_header.countingReason = "Time Code Rate=" + m_header.rate;
}

void CaptionReader::refuse(KIVCS2Status status, const std::string &text)
{
    m_onBadLine({m_lines.number(), status, text});
}

bool CaptionReader::next()
{
    for (;;)
    {
        if (!m_rest.empty())
        {
            // The rest of a long line goes through the decoder under the line's own timecode and
            // is then moved to where it begins.
            const std::string line = std::exchange(m_rest, {});
            const uint32_t frames = m_restFrames;
            if (!decode(line))
                continue;
            check(kivCS2Timecode_addFrames(&m_record.m_caption.m_timecode, frames), "long line");
            check(kivCS2Timecode_addFrames(&m_record.m_caption.m_endTimecode, frames), "long line");
            return true;
        }
        m_restFrames = 0;
        if (m_hasPending)
        {
            m_hasPending = false;
            if (decode(m_pendingLine))
                return true;
            continue;
        }
        if (!m_lines.next())
        {
            if (!m_anyLine)
                throw Failure(KIVCS2STATUS_NO_DATA_ERR, Where{m_lines.input().name()}, "holds no captions");
            return false;
        }
        if (decode(m_lines.line()))
            return true;
    }
}

bool CaptionReader::decode(std::string_view line)
{
    m_anyLine = true;
    return decodeLine(m_header.kind == CaptionFileKind::MCC ? withoutLeadingBlanks(line) : line);
}

bool CaptionReader::decodeLine(std::string_view whole)
{
    // Blanks at the end mean nothing; but a line of a timecode and its tab is a caption without pairs.
    std::string_view line = withoutTrailingBlanks(whole);
    if (line.size() == kTimecodeLength && whole.size() > line.size())
        line = whole.substr(0, kTimecodeLength + 1);

    const bool isSCC = m_header.kind == CaptionFileKind::SCC;
    KIVCS2Status status = isSCC ? kivCS2ClosedCaptionsSCCStream_decodeCaption(
                                      &m_record, line.data(), static_cast<uint32_t>(line.size()))
                                : kivCS2ClosedCaptionsMCCStream_decodeCaption(
                                      &m_record, line.data(), static_cast<uint32_t>(line.size()));
    std::string why;
    if (isSCC && status == KIVCS2STATUS_OVERFLOW_ERR)
        status = decodeLongSCC(line, why);
    if (KIVCS2_FAILED(status))
    {
        refuse(status, why.empty() ? reason(line, status, m_header.kind) : why);
        return false;
    }

    // A half byte left over is stored but not counted by the decoder: it would be lost unseen.
    const std::string_view data = line.substr(std::min(line.find('\t'), line.size()));
    const auto digits = static_cast<uint64_t>(std::ranges::count_if(data, isHex));
    if (isSCC ? m_record.m_caption.m_captionSize % 2 != 0 || digits % 2 != 0 : digits % 2 != 0)
    {
        refuse(KIVCS2STATUS_CAPTION_ERR, count(digits, "hexadecimal digit") +
                                             (isSCC ? " are no whole byte pairs" : " are no whole bytes"));
        return false;
    }
    const char separator = line[8];
    if (isSCC && m_restFrames == 0 && (separator == ';') != m_header.counting->drop)
        ++m_otherSeparators;
    return true;
}

// A record holds 129 pairs; a line may hold more. It is cut behind kPairsAtATime pairs and the rest
// is kept for the next call.
KIVCS2Status CaptionReader::decodeLongSCC(std::string_view line, std::string &why)
{
    size_t at = kTimecodeLength + 1;
    uint32_t digits = 0;
    for (; at < line.size() && digits < kPairsAtATime * 4; ++at)
        digits += isHex(line[at]) ? 1 : 0;
    const auto rest = std::string{line.substr(0, kTimecodeLength + 1)} + std::string{line.substr(at)};
    // Every character is looked at before the first piece goes out: a line counts whole or not at all.
    const auto isBad = [](char character)
    {
        return !isHex(character) && character != ' ';
    };
    const auto bad = std::ranges::find_if(line.substr(at), isBad);
    if (bad != line.substr(at).end())
    {
        why = reason(line, KIVCS2STATUS_CAPTION_ERR, m_header.kind);
        return KIVCS2STATUS_CAPTION_ERR;
    }
    if (const auto left = static_cast<uint64_t>(std::ranges::count_if(line.substr(at), isHex)); left % 4 != 0)
    {
        why = count(digits + left, "hexadecimal digit") + " are no whole byte pairs";
        return KIVCS2STATUS_CAPTION_ERR;
    }
    const KIVCS2Status status =
        kivCS2ClosedCaptionsSCCStream_decodeCaption(&m_record, line.data(), static_cast<uint32_t>(at));
    if (KIVCS2_SUCCEEDED(status))
    {
        m_rest = rest;
        m_restFrames += kPairsAtATime;
    }
    return status;
}

PacketFacts inspectCDP(std::span<const uint8_t> cdp)
{
    PacketFacts facts;
    facts.size = static_cast<uint32_t>(std::min(cdp.size(), facts.bytes.size()));
    std::copy_n(cdp.begin(), facts.size, facts.bytes.begin());
    const auto fault = [&](std::string text)
    {
        facts.faults.push_back(std::move(text));
    };

    if (cdp.size() < 11 || cdp[0] != 0x96 || cdp[1] != 0x69)
    {
        fault("no caption distribution packet (96 69)");
        return facts;
    }
    facts.isCDP = true;
    facts.rateCode = static_cast<uint8_t>(cdp[3] >> 4);
    facts.sequence = static_cast<uint16_t>(cdp[5] << 8 | cdp[6]);
    KIVCS2Status status = takePairs(cdp, facts);

    // Some writers leave the checksum byte out. The packet is faulty, but its pairs are there: a
    // zero in its place lets them be read.
    const bool noChecksum = status == KIVCS2STATUS_BUFFER_SIZE_ERR && cdp[cdp.size() - 3] == 0x74 &&
                            cdp.size() < facts.bytes.size() &&
                            (cdp[2] == cdp.size() || cdp[2] == cdp.size() + 1);
    if (noChecksum)
    {
        std::array<uint8_t, 255> whole = facts.bytes;
        whole[2] = static_cast<uint8_t>(facts.size + 1);
        status = takePairs({whole.data(), facts.size + 1}, facts);
        fault("the CDP has no checksum byte");
    }
    if (KIVCS2_FAILED(status))
        fault("sections do not parse (" + statusText(status) + ")");
    if (noChecksum)
        return facts;

    const size_t length = cdp[2];
    if (length != cdp.size())
    {
        fault("says " + count(length, "byte") + ", has " + std::to_string(cdp.size()));
        return facts;
    }
    if (cdp[length - 4] != 0x74)
        fault("no footer (74)");
    else if (cdp[length - 3] != cdp[5] || cdp[length - 2] != cdp[6])
        fault("sequence counters differ between header and footer");
    uint8_t sum = 0;
    for (const uint8_t byte : cdp)
        sum = static_cast<uint8_t>(sum + byte);
    if (sum != 0)
        fault("CDP checksum is wrong");
    return facts;
}

PacketInspector::PacketInspector()
{
    static uint8_t nothing = 0;
    check(kivCS2MemoryStream_initWithBytes(&m_unused, &nothing, 1), "packet record");
    check(kivCS2ClosedCaptionsMCCStream_init(&m_record, &m_unused.m_stream, true, false), "packet record");
}

PacketInspector::~PacketInspector()
{
    (void)kivCS2ClosedCaptionsMCCStream_free(&m_record);
    (void)kivCS2MemoryStream_close(&m_unused.m_stream); // a view: there is nothing to lose
}

PacketFacts PacketInspector::inspect(const KIVCS2ClosedCaption &caption)
{
    const uint8_t *data = caption.m_captionData;
    const uint32_t size = caption.m_captionSize;
    PacketFacts facts;
    if (size < 4 || data[0] != kCaptionDID || data[1] != kCaptionSDID)
    {
        facts.faults.emplace_back(size < 4
                                      ? "no ancillary packet: fewer than 4 bytes"
                                      : print("no caption packet: DID/SDID %02x/%02x", data[0], data[1]));
        return facts;
    }
    if (size != data[2] + 4u)
    {
        // The extraction would take bytes that are not there from the last one read.
        facts = inspectCDP({data + 3, std::min<size_t>(size - 3, data[2])});
        facts.faults.insert(facts.faults.begin(), "data count says " + count(data[2], "byte") +
                                                      ", line has " + std::to_string(size - 4) +
                                                      " and a checksum");
        return facts;
    }
    std::array<uint8_t, 264> cdp{};
    uint32_t room = cdp.size();
    const KIVCS2Status status = kivCS2ClosedCaptionsMCCStream_extractSMPTE334CDP708PacketFromCaption(
        &m_record, &caption, false, cdp.data(), &room);
    if (KIVCS2_FAILED(status))
    {
        facts.faults.push_back("packet does not parse (" + statusText(status) + ")");
        return facts;
    }
    facts = inspectCDP({cdp.data(), room});
    // The extraction compares this checksum only when a byte follows it, and here none does.
    uint8_t sum = 0;
    for (uint32_t index = 0; index + 1 < size; ++index)
        sum = static_cast<uint8_t>(sum + data[index]);
    if (sum != data[size - 1])
        facts.faults.emplace_back("packet checksum is wrong");
    return facts;
}

void Finding::add(uint64_t line, const std::string &text)
{
    if (count++ == 0)
        first = (line > 0 ? "line " + std::to_string(line) + ": " : "") + text;
}

CaptionReader::OnBadLine countIn(Finding &finding)
{
    return [&finding](const BadLine &line)
    {
        finding.add(line.number, line.text + " (" + statusText(line.status) + ")");
    };
}

CaptionReader::OnBadLine tellBadLines(const std::string &file, bool keepGoing)
{
    return [file, keepGoing, told = uint64_t{0}](const BadLine &line) mutable
    {
        constexpr uint64_t kMostTold = 20;
        const std::string text = place(file, line.number) + ": " + line.text;
        if (!keepGoing)
            throw Failure(line.status, Where{file, line.number}, line.text);
        if (++told <= kMostTold)
            note(text + " (" + statusText(line.status) + ")");
        else if (told == kMostTold + 1)
            note(place(file, 0) + ": further lines that do not decode are left out without a word");
    };
}

} // namespace tool
