// Closed captions: ancillary words and packets, MCC caption files, SCC caption files.
#include "KIVCS2ClosedCaptions.h"

#include "KIVCS2MemoryStream.h"
#include "KIVCS2String.h"
#include "KIVCS2Timecode.h"
#include "Private/CFRef.h"
#include "Private/Check.h"
#include "Private/ClosedCaptions_Hex.h"
#include "Private/ClosedCaptions_MCC.h"

#include <cstdio>
#include <cstring>
#include <string_view>

// ---- Caption words and packets (SMPTE 291M, 334, 436M; CEA-608, CEA-708) ----

// ---- MCC caption files ----

namespace
{
constexpr uint32_t kLineSize = 1024; // a longer line is lost, as the header says
constexpr size_t kShortestLine = 12; // the timecode and one character

struct CaptionLine
{
    char text[kLineSize];
    uint32_t length;

    [[nodiscard]] std::string_view view() const
    {
        return {text, length};
    }
};

KIVCS2Status readLine(KIVCS2Stream *stream, CaptionLine &line)
{
    line.length = sizeof line.text;
    return kivCS2ClosedCaptions_readLine(stream, line.text, &line.length);
}

using DecodeLine = KIVCS2Status (*)(KIVCS2ClosedCaptionsMCCStream *mcc, const char *line, uint32_t length);

// Reads lines until one decodes; it is then pending. What does not decode belongs to the header.
KIVCS2Status readFirstCaption(KIVCS2ClosedCaptionsMCCStream *mcc, DecodeLine decode)
{
    for (;;)
    {
        CaptionLine line;
        KIV_TRY(readLine(mcc->m_stream, line));
        if (KIVCS2_SUCCEEDED(decode(mcc, line.text, line.length)))
            return KIVCS2STATUS_OK;
    }
}

KIVCS2Status readNextCaption(KIVCS2ClosedCaptionsMCCStream *mcc, DecodeLine decode)
{
    CaptionLine line;
    KIV_TRY(readLine(mcc->m_stream, line));
    return decode(mcc, line.text, line.length);
}

KIVCS2Status rewindToFirstCaption(KIVCS2ClosedCaptionsMCCStream *mcc, DecodeLine decode)
{
    KIV_TRY(kivCS2Stream_setPosition(mcc->m_stream, 0, KIVCS2StreamPosition_Start, nullptr));
    return readFirstCaption(mcc, decode);
}

// Captions are compared by frame count alone; the date in the high half does not take part.
constexpr uint32_t frameCount(KIVCS2Timecode timecode)
{
    return static_cast<uint32_t>(timecode);
}

bool isValid(const KIVCS2ClosedCaption &caption)
{
    return (caption.m_flags & KIVCS2ClosedCaptionFlag_Valid) != 0;
}

// Kept: in this order "30DF" and "60DF" are taken by their two-character prefixes and read as 30 and
// 60. The timecodes are read with the module-wide rate, so the rate recorded here decides nothing.
constexpr struct
{
    std::string_view text;
    KIVCS2FrameRate rate;
} kHeaderRates[] = {
    {"24", KIVCS2FrameRate_24},      {"25", KIVCS2FrameRate_25}, {"30", KIVCS2FrameRate_30},
    {"30DF", KIVCS2FrameRate_29_97}, {"50", KIVCS2FrameRate_50}, {"60", KIVCS2FrameRate_60},
    {"60DF", KIVCS2FrameRate_59_94},
};

KIVCS2Status readHeaderRate(std::string_view text, uint32_t &frameRate)
{
    for (const auto &row : kHeaderRates)
    {
        if (!text.starts_with(row.text))
            continue;
        frameRate = row.rate;
        return KIVCS2STATUS_OK;
    }
    return KIVCS2STATUS_FRAME_RATE_ERR;
}

// The rate text by the real rate cut to an integer; 23.98 has none.
constexpr struct
{
    uint32_t framesPerSecond;
    std::string_view text;
} kRateTexts[] = {
    {24, "24"}, {25, "25"}, {29, "30DF"}, {30, "30"}, {50, "50"}, {59, "60DF"}, {60, "60"},
};

KIVCS2Status currentRateText(std::string_view &text)
{
    double framesPerSecond = 0.0;
    KIV_TRY(kivCS2Timecode_getRealFramesPerSecond(&framesPerSecond));
    const auto whole = static_cast<uint32_t>(framesPerSecond);
    for (const auto &row : kRateTexts)
    {
        if (row.framesPerSecond != whole)
            continue;
        text = row.text;
        return KIVCS2STATUS_OK;
    }
    return KIVCS2STATUS_FRAME_RATE_ERR;
}

// Kept: the count written is not asked for, so a short write that the stream calls a success passes.
KIVCS2Status writeText(KIVCS2Stream *stream, std::string_view text)
{
    return kivCS2Stream_writeBytes(stream, text.data(), text.size(), nullptr);
}

KIVCS2Status writeItem(KIVCS2Stream *stream, std::string_view name, std::string_view value)
{
    KIV_TRY(writeText(stream, name));
    return writeText(stream, value);
}

KIVCS2Status writeUUIDItem(KIVCS2Stream *stream, const char *uuid)
{
    char created[1024];
    if (uuid == nullptr)
    {
        KIV_TRY(kivCS2String_createUIDCString(created, sizeof created));
        uuid = created;
    }
    return writeItem(stream, kiv::mccUUID, uuid);
}

// The caller's text, or the current time by `pattern`.
KIVCS2Status writeDateItem(KIVCS2Stream *stream, std::string_view name, const char *text, const char *pattern)
{
    if (text != nullptr)
        return writeItem(stream, name, text);

    const kiv::CFRef<CFStringRef> format{
        CFStringCreateWithCString(kCFAllocatorDefault, pattern, kCFStringEncodingASCII)};
    if (!format)
        return KIVCS2STATUS_MEMORY_ERR;
    char *created = nullptr;
    KIV_TRY(kivCS2ClosedCaptions_createDateStringWithFormat(format.get(), &created));
    const KIVCS2Status status = writeItem(stream, name, created);
    (void)kivCS2String_freeCString(created); // only a null text fails
    return status;
}

// A line's text without its packet: hours of up to 5 digits, both suffixes, the tab.
constexpr size_t kLineHeadSize = 64;

// Writes "\nHH:MM:SS:FF", the suffixes and the tab to `text`; `length` receives the characters.
KIVCS2Status formatLineHead(uint32_t version, const KIVCS2ClosedCaption &caption, char (&text)[kLineHeadSize],
                            size_t &length)
{
    uint32_t hours = 0;
    uint32_t minutes = 0;
    uint32_t seconds = 0;
    uint32_t frames = 0;
    KIV_TRY(kivCS2Timecode_getHours(&caption.m_timecode, &hours));
    KIV_TRY(kivCS2Timecode_getMinutes(&caption.m_timecode, &minutes));
    KIV_TRY(kivCS2Timecode_getSeconds(&caption.m_timecode, &seconds));
    KIV_TRY(kivCS2Timecode_getFrames(&caption.m_timecode, &frames));
    length = static_cast<size_t>(std::snprintf(text, sizeof text, "\n%02i:%02i:%02i:%02i",
                                               static_cast<int>(hours), static_cast<int>(minutes),
                                               static_cast<int>(seconds), static_cast<int>(frames)));

    if ((caption.m_flags & KIVCS2ClosedCaptionFlag_HasField) != 0)
    {
        if (version < 2 || caption.m_field >= 2)
            return KIVCS2STATUS_FORMAT_ERR;
        text[length++] = '.';
        text[length++] = caption.m_field == 1 ? '1' : '0';
        // Kept: the number is printed as a signed one; from 2^31 on it does not read back.
        if ((caption.m_flags & KIVCS2ClosedCaptionFlag_HasNumber) != 0)
            length += static_cast<size_t>(std::snprintf(text + length, sizeof text - length, ",%i",
                                                        static_cast<int>(caption.m_number)));
    }
    text[length++] = '\t';
    return KIVCS2STATUS_OK;
}
} // namespace

KIVCS2Status kivCS2ClosedCaptionsMCCStream_init(KIVCS2ClosedCaptionsMCCStream *mcc, KIVCS2Stream *stream,
                                                bool reading, bool ownsStream)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((stream) != NULL);

    *mcc = {};
    mcc->m_reading = reading;
    mcc->m_ownsStream = ownsStream;
    mcc->m_stream = stream;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_readHeader(KIVCS2ClosedCaptionsMCCStream *mcc)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    constexpr std::string_view kFormat = "File Format=";
    constexpr std::string_view kVersion1 = "MacCaption_MCC V1.0";
    constexpr std::string_view kVersion2 = "MacCaption_MCC V2.0";
    const std::string_view kRate = kiv::mccTimeCodeRate.substr(1); // without the line feed in front

    CaptionLine line;
    KIV_TRY(readLine(mcc->m_stream, line));
    if (!line.view().starts_with(kFormat))
        return KIVCS2STATUS_HEADER_ERR;
    const std::string_view format = line.view().substr(kFormat.size());
    if (format.starts_with(kVersion1))
        mcc->m_version = 1;
    else if (format.starts_with(kVersion2))
        mcc->m_version = 2;
    else
        return KIVCS2STATUS_HEADER_ERR;

    for (;;)
    {
        KIV_TRY(readLine(mcc->m_stream, line));
        if (line.view().starts_with(kRate))
            KIV_TRY(readHeaderRate(line.view().substr(kRate.size()), mcc->m_frameRate));
        else if (KIVCS2_SUCCEEDED(kivCS2ClosedCaptionsMCCStream_decodeCaption(mcc, line.text, line.length)))
            return KIVCS2STATUS_OK;
    }
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_writeHeader(KIVCS2ClosedCaptionsMCCStream *mcc, uint32_t version,
                                                       const char *uuid, const char *applicationName,
                                                       const char *date, const char *time)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((applicationName) != NULL);
    KIV_CHECK((mcc->m_reading == 0));
    KIV_CHECK(((version >=1) && (version <= 2)));

    mcc->m_version = version;
    KIVCS2Stream *const stream = mcc->m_stream;
    KIV_TRY(writeText(stream, version == 1 ? "File Format=MacCaption_MCC V1.0\n"
                                           : "File Format=MacCaption_MCC V2.0\n"));
    KIV_TRY(writeText(stream, kiv::mccComment));
    KIV_TRY(writeUUIDItem(stream, uuid));
    KIV_TRY(writeItem(stream, kiv::mccCreationProgram, applicationName));
    // Kept: "YYYY" is the year of the week, one off from the calendar's in some days around New Year.
    KIV_TRY(writeDateItem(stream, kiv::mccCreationDate, date, "EEEE, MMMM d, YYYY"));
    KIV_TRY(writeDateItem(stream, kiv::mccCreationTime, time, "HH:mm:ss"));
    std::string_view rate;
    KIV_TRY(currentRateText(rate));
    KIV_TRY(writeItem(stream, kiv::mccTimeCodeRate, rate));
    return writeText(stream, "\n");
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                  const KIVCS2Timecode *timecode,
                                                                  KIVCS2ClosedCaption *caption)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((timecode) != NULL);
    KIV_CHECK((caption) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    const uint32_t request = frameCount(*timecode);
    *caption = {};
    for (;;)
    {
        if (!isValid(mcc->m_caption))
            return KIVCS2STATUS_NOT_FOUND_ERR;
        const uint32_t pending = frameCount(mcc->m_caption.m_timecode);
        if (pending == request)
        {
            // Kept: it stays pending, so a second line with this timecode is never handed out.
            *caption = mcc->m_caption;
            return KIVCS2STATUS_OK;
        }
        if (pending > request)
            return KIVCS2STATUS_NOT_FOUND_ERR;
        // Kept: a line that does not decode ends the search and leaves nothing pending.
        KIV_TRY(readNextCaption(mcc, kivCS2ClosedCaptionsMCCStream_decodeCaption));
    }
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_writeCaption(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                        const KIVCS2ClosedCaption *caption)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((caption) != NULL);
    KIV_CHECK((mcc->m_reading == 0));
    if (caption->m_captionSize > sizeof caption->m_captionData)
        return KIVCS2STATUS_PARAM_ERR;

    char head[kLineHeadSize];
    size_t headLength = 0;
    KIV_TRY(formatLineHead(mcc->m_version, *caption, head, headLength));

    char line[kLineHeadSize + 2 * sizeof caption->m_captionData];
    std::memcpy(line, head, headLength);
    const size_t packetLength =
        kiv::compressMCCPacket({caption->m_captionData, caption->m_captionSize}, line + headLength);
    return writeText(mcc->m_stream, {line, headLength + packetLength});
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_decodeCaption(KIVCS2ClosedCaptionsMCCStream *mcc, const char *line,
                                                         uint32_t length)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((line) != NULL);

    KIVCS2ClosedCaption &caption = mcc->m_caption;
    caption = {};
    const std::string_view text{line, length};
    kiv::TimecodeText timecode;
    if (text.size() < kShortestLine || !kiv::copyTimecodeText(text, timecode))
        return KIVCS2STATUS_NOT_FOUND_ERR;
    size_t position = kiv::kTimecodeLength;
    if (mcc->m_version >= 2 && !kiv::readMCCSuffixes(text, position, caption))
        return KIVCS2STATUS_NOT_FOUND_ERR;
    if (position >= text.size() || text[position] != '\t')
        return KIVCS2STATUS_NOT_FOUND_ERR;
    KIV_TRY(kivCS2Timecode_initWithString(&caption.m_timecode, timecode.data()));
    KIV_TRY(kiv::decodeMCCPacket(text.substr(position + 1), caption));
    caption.m_flags |= KIVCS2ClosedCaptionFlag_Valid;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_writeNibble(KIVCS2ClosedCaptionsMCCStream *mcc, bool *lowHalf,
                                                       uint8_t nibble)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((lowHalf) != NULL);

    return kiv::storeNibble(mcc->m_caption, *lowHalf, nibble);
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet(
    KIVCS2ClosedCaptionsMCCStream *mcc, KIVCS2ClosedCaption *caption, const KIVCS2Timecode *timecode,
    const uint8_t *captionData, uint32_t captionSize)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((caption) != NULL);
    KIV_CHECK((timecode) != NULL);
    KIV_CHECK((captionData) != NULL);
    KIV_CHECK((captionSize <= 255));

    constexpr uint8_t kDID = 0x61; // SMPTE 334-1: caption distribution packets
    constexpr uint8_t kSDID = 0x01;
    constexpr uint32_t kHeadSize = 3;

    KIVCS2ClosedCaption made{};
    made.m_timecode = *timecode;
    made.m_captionData[0] = kDID;
    made.m_captionData[1] = kSDID;
    made.m_captionData[2] = static_cast<uint8_t>(captionSize);
    std::memcpy(made.m_captionData + kHeadSize, captionData, captionSize);
    uint32_t sum = 0;
    for (uint32_t index = 0; index < kHeadSize + captionSize; ++index)
        sum += made.m_captionData[index];
    made.m_captionData[kHeadSize + captionSize] = static_cast<uint8_t>(sum);
    made.m_captionSize = captionSize + kHeadSize + 1;
    made.m_flags = KIVCS2ClosedCaptionFlag_Valid;
    *caption = made;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_extractSMPTE334CDP708PacketFromCaption(
    KIVCS2ClosedCaptionsMCCStream *mcc, const KIVCS2ClosedCaption *caption, bool withAtom, uint8_t *buffer,
    uint32_t *bufferSize)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((caption) != NULL);
    if (!isValid(*caption))
        return KIVCS2STATUS_FORMAT_ERR;
    if (caption->m_captionSize > sizeof caption->m_captionData)
        return KIVCS2STATUS_PARAM_ERR;

    // The view is read only, so the caption may be constant although a memory stream takes any block.
    KIVCS2MemoryStream view;
    KIV_TRY(kivCS2MemoryStream_initWithBytes(&view, const_cast<uint8_t *>(caption->m_captionData),
                                             caption->m_captionSize));
    const KIVCS2Status status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
        &view.m_stream, KIVCS2CaptionANCFormat_8Bit, withAtom, buffer, bufferSize);
    (void)kivCS2MemoryStream_free(&view.m_stream); // a view owns nothing that could fail to go
    return status;
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_freeCaption(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                       KIVCS2ClosedCaption *caption)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((caption) != NULL);

    *caption = {};
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_reset(KIVCS2ClosedCaptionsMCCStream *mcc)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    return rewindToFirstCaption(mcc, kivCS2ClosedCaptionsMCCStream_decodeCaption);
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_free(KIVCS2ClosedCaptionsMCCStream *mcc)
{
    KIV_CHECK((mcc) != NULL);

    if (mcc->m_ownsStream)
        (void)kivCS2Stream_free(mcc->m_stream); // always a failure, since the close clears the stream
    *mcc = {};
    return KIVCS2STATUS_OK;
}

// ---- SCC caption files ----

KIVCS2Status kivCS2ClosedCaptionsSCCStream_init(KIVCS2ClosedCaptionsMCCStream *mcc, KIVCS2Stream *stream,
                                                bool reading, bool ownsStream)
{
    return kivCS2ClosedCaptionsMCCStream_init(mcc, stream, reading, ownsStream);
}

KIVCS2Status kivCS2ClosedCaptionsSCCStream_readHeader(KIVCS2ClosedCaptionsMCCStream *mcc)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    CaptionLine line;
    KIV_TRY(readLine(mcc->m_stream, line));
    if (!line.view().starts_with("Scenarist_SCC V1.0"))
        return KIVCS2STATUS_HEADER_ERR;
    return readFirstCaption(mcc, kivCS2ClosedCaptionsSCCStream_decodeCaption);
}

KIVCS2Status kivCS2ClosedCaptionsSCCStream_decodeCaption(KIVCS2ClosedCaptionsMCCStream *mcc, const char *line,
                                                         uint32_t length)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((line) != NULL);

    KIVCS2ClosedCaption &caption = mcc->m_caption;
    caption = {};
    const std::string_view text{line, length};
    kiv::TimecodeText timecode;
    if (text.size() < kShortestLine || !kiv::copyTimecodeText(text, timecode) ||
        text[kiv::kTimecodeLength] != '\t')
        return KIVCS2STATUS_NOT_FOUND_ERR;
    KIV_TRY(kivCS2Timecode_initWithString(&caption.m_timecode, timecode.data()));
    KIV_TRY(kiv::decodeHexWords(text.substr(kiv::kTimecodeLength + 1), caption));

    if (caption.m_captionSize != 0)
    {
        KIVCS2Timecode duration;
        // Neither fails for a timecode that was just parsed.
        (void)kivCS2Timecode_initWithDuration(&duration, caption.m_captionSize / 2);
        (void)kivCS2Timecode_initByAddingTimecodes(&caption.m_endTimecode, &caption.m_timecode, &duration);
    }
    caption.m_flags |= KIVCS2ClosedCaptionFlag_Valid;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                  const KIVCS2Timecode *timecode,
                                                                  KIVCS2ClosedCaption *caption)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((timecode) != NULL);
    KIV_CHECK((caption) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    const uint32_t request = frameCount(*timecode);
    *caption = {};
    for (;;)
    {
        const KIVCS2ClosedCaption &pending = mcc->m_caption;
        if (!isValid(pending))
            return KIVCS2STATUS_NOT_FOUND_ERR;
        const uint32_t start = frameCount(pending.m_timecode);
        // Kept: the end of a caption that runs past midnight lies before its start, so it holds no frame.
        if (start <= request && request < frameCount(pending.m_endTimecode))
        {
            const size_t offset = size_t{2} * (request - start);
            if (offset + 2 > sizeof pending.m_captionData)
                return KIVCS2STATUS_DATA_ERR;
            *caption = pending;
            std::memcpy(caption->m_captionData, pending.m_captionData + offset, 2);
            caption->m_captionSize = 2;
            (void)kivCS2Timecode_addFrames(&caption->m_timecode, request - start); // below the end: valid
            return KIVCS2STATUS_OK;
        }
        if (start >= request)
            return KIVCS2STATUS_NOT_FOUND_ERR;
        // Kept: a line that begins before the last one has ended loses the pairs that lie before the
        // request, and a line that does not decode ends the search and leaves nothing pending.
        KIV_TRY(readNextCaption(mcc, kivCS2ClosedCaptionsSCCStream_decodeCaption));
    }
}

KIVCS2Status kivCS2ClosedCaptionsSCCStream_reset(KIVCS2ClosedCaptionsMCCStream *mcc)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    return rewindToFirstCaption(mcc, kivCS2ClosedCaptionsSCCStream_decodeCaption);
}
