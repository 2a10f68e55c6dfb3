// Writes caption files: MCC and SCC from packets, SRT and WebVTT from texts.
#include "Private/Captions/Writer.h"

#include "KIVCS2ClosedCaptions.h"
#include "KIVCS2String.h"
#include "Private/Captions/Counting.h"
#include "Private/Captions/CueText.h"
#include "Private/Captions/MCC.h"
#include "Private/Captions/Packet.h"
#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <cstring>

namespace kiv::cc
{
namespace
{
// A longer run of empty pairs ends an SCC line.
constexpr uint32_t kEmptyPairsMost = 12;

constexpr std::array<const char *, KIVCS2CaptionFileKind_MAX> kFirstLines = {
    "",
    "Scenarist_SCC V1.0\n",
    "File Format=MacCaption_MCC V1.0\n\n",
    "File Format=MacCaption_MCC V2.0\n\n",
    "",
    "WEBVTT\n\n"};

std::string_view textOf(const char (&text)[KIVCS2_CAPTION_HEADER_SIZE])
{
    return {text, strnlen(text, sizeof text)};
}

// End of caption, in either channel and field.
bool isEndOfCaption(const uint8_t *pair)
{
    return (pair[0] & 0x76) == 0x14 && (pair[1] & 0x7F) == 0x2F;
}

bool hasLineEnd(std::string_view text)
{
    return text.find_first_of("\r\n") != std::string_view::npos;
}

// Writes the current time by a pattern of Unicode TS 35.
KIVCS2Status putDate(Output &out, const char *pattern)
{
    const CFRef<CFStringRef> format{
        CFStringCreateWithCString(kCFAllocatorDefault, pattern, kCFStringEncodingASCII)};
    if (!format)
        return KIVCS2STATUS_MEMORY_ERR;
    char *date = nullptr;
    KIV_TRY(kivCS2ClosedCaptions_createDateStringWithFormat(format.get(), &date));
    out.put(date);
    (void)kivCS2String_freeCString(date); // always succeeds
    return KIVCS2STATUS_OK;
}
} // namespace

Writer::Writer(KIVCS2Stream *stream, KIVCS2CaptionFileKind kind, const KIVCS2CaptionCountingInfo &info,
               const KIVCS2CaptionWriteOptions &options)
    : m_out{stream}, m_kind{kind}, m_info{info}, m_options{options}
{
    const std::span<const KIVCS2CaptionServiceEntry> services =
        options.m_services != nullptr ? std::span{options.m_services, options.m_serviceCount}
                                      : std::span<const KIVCS2CaptionServiceEntry>{kDefaultServices};
    std::ranges::copy(services, m_services.begin());
    m_options.m_services = m_services.data();
    m_options.m_serviceCount = static_cast<uint32_t>(services.size());
    m_cueFrom = options.m_timeZero;
}

KIVCS2Status Writer::writeHeader(const KIVCS2CaptionFileHeader *header)
{
    if (m_stage != Stage::Begun)
        return KIVCS2STATUS_STATE_ERR;
    const KIVCS2CaptionFileHeader none{};
    const KIVCS2CaptionFileHeader &used = header != nullptr ? *header : none;
    for (const std::string_view text :
         {textOf(used.m_uuid), textOf(used.m_program), textOf(used.m_date), textOf(used.m_time)})
        KIV_CHECK(!hasLineEnd(text));

    m_stage = Stage::Open;
    m_out.put(kFirstLines[m_kind]);
    if (isMCC())
        KIV_TRY(putMCCHeader(used));
    return m_out.status();
}

KIVCS2Status Writer::putMCCHeader(const KIVCS2CaptionFileHeader &header)
{
    m_out.put(mccComment);
    m_out.put("\n");
    m_out.put(mccUUID);
    if (header.m_uuid[0] != '\0')
        m_out.put(textOf(header.m_uuid));
    else
    {
        std::array<char, 64> made{};
        KIV_TRY(kivCS2String_createUIDCString(made.data(), made.size()));
        m_out.put(made.data());
    }
    m_out.put(mccCreationProgram);
    m_out.put(header.m_program[0] != '\0' ? textOf(header.m_program) : "KIVCoreServices2");
    m_out.put(mccCreationDate);
    m_out.put(textOf(header.m_date));
    if (header.m_date[0] == '\0')
        KIV_TRY(putDate(m_out, "EEEE, MMMM d, yyyy"));
    m_out.put(mccCreationTime);
    m_out.put(textOf(header.m_time));
    if (header.m_time[0] == '\0')
        KIV_TRY(putDate(m_out, "HH:mm:ss"));
    m_out.put(mccTimeCodeRate);
    m_out.put(m_info.m_mccRate);
    m_out.put("\n\n");
    return KIVCS2STATUS_OK;
}

void Writer::putTimecode(uint32_t frame)
{
    std::array<char, kTimecodeSize> text;
    // MCC has ":" at every rate; in SCC only the separator shows the counting.
    writeTimecode(m_info, frame, !isMCC() && m_info.m_drop != 0 ? ';' : ':', text.data());
    m_out.put({text.data(), text.size()});
}

KIVCS2Status Writer::writePacket(const KIVCS2CaptionPacket &packet)
{
    if (m_stage != Stage::Open)
        return KIVCS2STATUS_STATE_ERR;
    if (isMCC())
        return putPacket(packet);
    if (m_kind != KIVCS2CaptionFileKind_SCC)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    KIVCS2CaptionPairs pairs;
    (void)kivCS2CaptionPacket_getPairs(&packet, &pairs); // empty if the packet has no pairs
    putPairs(packet.m_frame, pairs);
    return m_out.status();
}

KIVCS2Status Writer::putPacket(const KIVCS2CaptionPacket &packet)
{
    const bool hasField = (packet.m_flags & KIVCS2CaptionPacketFlag_HasField) != 0;
    const bool hasNumber = (packet.m_flags & KIVCS2CaptionPacketFlag_HasNumber) != 0;
    const size_t size = std::min<size_t>(packet.m_size, KIVCS2_CAPTION_ANC_SIZE);
    if (size == 0)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    if (hasField && (m_kind != KIVCS2CaptionFileKind_MCC2 || packet.m_field > 1))
        return KIVCS2STATUS_FORMAT_ERR;
    putTimecode(packet.m_frame);
    if (hasField)
    {
        m_out.put(packet.m_field == 0 ? ".0" : ".1");
        if (hasNumber)
        {
            m_out.put(",");
            m_out.putNumber(packet.m_number);
        }
    }
    m_out.put("\t");
    if (m_options.m_plainHex)
        for (size_t byte = 0; byte < size; ++byte)
            m_out.putHex(packet.m_anc[byte], true);
    else
    {
        std::array<char, size_t{2} * KIVCS2_CAPTION_ANC_SIZE> text;
        m_out.put({text.data(), compressMCCPacket({packet.m_anc, size}, text.data(), 'U')});
    }
    m_out.put("\n");
    return m_out.status();
}

KIVCS2Status Writer::writeCaptions(uint32_t frame, const KIVCS2CaptionPairs *pairs,
                                   const KIVCS2CaptionDTVCC *dtvcc)
{
    if (m_stage != Stage::Open)
        return KIVCS2STATUS_STATE_ERR;
    if (m_kind == KIVCS2CaptionFileKind_SCC)
    {
        if (pairs != nullptr)
            putPairs(frame, *pairs);
        return m_out.status();
    }
    if (!isMCC())
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    if (m_options.m_everyFrame && m_hasFrame)
    {
        const uint32_t day = m_info.m_perDay;
        const bool isOver = frame < day && m_lastFrame < day && isNextDay(frame, m_lastFrame);
        if (frame <= m_lastFrame && !isOver)
            return KIVCS2STATUS_INVALID_TIMECODE_ERR;
        for (uint32_t next = m_lastFrame + 1; (isOver ? next % day : next) != frame; ++next)
            KIV_TRY(putFrame(isOver ? next % day : next, nullptr, nullptr));
    }
    return putFrame(frame, pairs, dtvcc);
}

KIVCS2Status Writer::putFrame(uint32_t frame, const KIVCS2CaptionPairs *pairs,
                              const KIVCS2CaptionDTVCC *dtvcc)
{
    KIVCS2CaptionPacket packet;
    KIV_TRY(makePacket(m_info, m_sequence,
                       {pairs, dtvcc, {m_services.data(), m_options.m_serviceCount}, frame}, packet));
    packet.m_frame = frame;
    KIV_TRY(putPacket(packet));
    ++m_sequence;
    m_hasFrame = true;
    m_lastFrame = frame;
    return KIVCS2STATUS_OK;
}

void Writer::putPairs(uint32_t frame, const KIVCS2CaptionPairs &pairs)
{
    const size_t field = m_options.m_field == 2 ? 1 : 0;
    // A frame of an SCC file has one pair. Further pairs take the next frames, and the pairs of those frames
    // wait for them, also past midnight. Empty pairs are left out in favour of them.
    const uint32_t day = m_info.m_perDay;
    const uint32_t waits = (m_freeFrame + day - frame % day) % day;
    const bool isLate = (m_isLate || frame == m_pairsFrame) && waits < day / 2;
    uint32_t at = frame + (isLate ? waits : 0);
    for (const auto &pair : std::span{pairs.m_pairs[field]}.first(pairs.m_count[field]))
        if (!isEmptyPair(pair[0], pair[1]))
            putPair(at++, pair);
    if (at == frame && pairs.m_count[field] > 0)
        putPair(at++, pairs.m_pairs[field][0]);
    m_isLate = at - frame > 1;
    m_pairsFrame = frame;
    m_freeFrame = at % day;
}

void Writer::putPair(uint32_t frame, const uint8_t *pair)
{
    const bool follows = m_lineOpen && frame == m_nextFrame + m_emptyPairs;
    if (isEmptyPair(pair[0], pair[1]))
    {
        // Written only if a pair follows: at the end of a line an empty pair has no meaning.
        m_emptyPairs += follows ? 1 : 0;
        return;
    }
    // One caption in each line: other readers give every caption the time of its line.
    const bool isEnd = isEndOfCaption(pair);
    if (!follows || m_emptyPairs > kEmptyPairsMost || (m_captionEnded && !isEnd))
    {
        m_out.put(m_lineOpen ? "\n\n" : "\n");
        putTimecode(frame);
        m_lineOpen = true;
        m_emptyPairs = 0;
        m_nextFrame = frame;
        m_out.put("\t");
    }
    else
        m_out.put(" ");
    for (; m_emptyPairs > 0; --m_emptyPairs, ++m_nextFrame)
        m_out.put("8080 ");
    m_out.putHex(pair[0], false);
    m_out.putHex(pair[1], false);
    m_captionEnded = isEnd;
    ++m_nextFrame;
}

KIVCS2Status Writer::writeText(const KIVCS2CaptionText &text)
{
    const bool isSRT = m_kind == KIVCS2CaptionFileKind_SRT;
    if (m_stage != Stage::Open)
        return KIVCS2STATUS_STATE_ERR;
    if (!isSRT && m_kind != KIVCS2CaptionFileKind_WebVTT)
        return KIVCS2STATUS_UNSUPPORTED_ERR;
    uint64_t from = text.m_from;
    if (isNextDay(from, m_cueFrom))
        from += m_info.m_perDay;
    if (from < m_options.m_timeZero)
        return KIVCS2STATUS_INVALID_TIMECODE_ERR;
    m_cueFrom = from;
    if (isSRT)
    {
        m_out.putNumber(++m_cues);
        m_out.put("\n");
    }
    putTimes(from, from - text.m_from + text.m_until);
    if (!isSRT)
        putVTTPlace(m_out, text);
    m_out.put("\n");
    (isSRT ? putSRTText : putVTTText)(m_out, text);
    m_out.put("\n");
    return m_out.status();
}

void Writer::putTimes(uint64_t from, uint64_t until)
{
    // Past midnight the end continues to count. A caption lasts at least one frame, even in a file that goes
    // back in time.
    until = std::max(isNextDay(until, from) ? until + m_info.m_perDay : until, from + 1);
    const auto milliseconds = [&](uint64_t frame)
    {
        const uint64_t frames = frame - m_options.m_timeZero;
        return (frames * 1000 * m_info.m_denominator + m_info.m_numerator / 2) / m_info.m_numerator;
    };
    putTime(milliseconds(from));
    m_out.put(" --> ");
    putTime(milliseconds(until));
}

void Writer::putTime(uint64_t milliseconds)
{
    m_out.putNumber(milliseconds / 3'600'000, 2);
    m_out.put(":");
    m_out.putNumber(milliseconds / 60'000 % 60, 2);
    m_out.put(":");
    m_out.putNumber(milliseconds / 1000 % 60, 2);
    m_out.put(m_kind == KIVCS2CaptionFileKind_SRT ? "," : ".");
    m_out.putNumber(milliseconds % 1000, 3);
}

KIVCS2Status Writer::finish()
{
    if (m_stage == Stage::Begun)
        return KIVCS2STATUS_STATE_ERR;
    if (m_stage == Stage::Open && m_lineOpen)
        m_out.put("\n");
    m_stage = Stage::Finished;
    return m_out.flush();
}
} // namespace kiv::cc
