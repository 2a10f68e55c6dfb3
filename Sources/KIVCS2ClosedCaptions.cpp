// Closed captions: ancillary words and packets, MCC caption files, SCC caption files.
#include "KIVCS2ClosedCaptions.h"

#include "KIVCS2MemoryStream.h"
#include "KIVCS2String.h"
#include "KIVCS2Timecode.h"
#include "Private/Captions/CDP.h"
#include "Private/Captions/Describe.h"
#include "Private/Captions/Hex.h"
#include "Private/Captions/MCC.h"
#include "Private/Captions/Words.h"
#include "Private/Streams/Lines.h"
#include "Private/Support/CFRef.h"
#include "Private/Support/Check.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

// ---- Caption words and packets (SMPTE 291M, 334, 436M; CEA-608, CEA-708) ----

namespace
{
constexpr uint8_t kParity = 0x80; // bit 7 of a CEA-608 byte

// Bytes without CEA-608 data: a null with its parity bit.
constexpr std::array<uint8_t, 4> kEmptyPairs = {0x80, 0x80, 0x80, 0x80};

[[nodiscard]] constexpr bool bit8(uint32_t word)
{
    return (word & 0x100) != 0;
}

[[nodiscard]] constexpr bool bit9(uint32_t word)
{
    return (word & 0x200) != 0;
}

template <class Words>
KIVCS2Status readWord(Words &words, uint32_t &word, uint32_t &sum)
{
    kiv::captions::AncWord read = 0;
    KIV_TRY(words.read(read));
    word = read;
    sum += word;
    return KIVCS2STATUS_OK;
}

template <class Words>
KIVCS2Status checkWord(Words &words, uint32_t expected, uint32_t &sum)
{
    uint32_t word = 0;
    KIV_TRY(readWord(words, word, sum));
    return word == expected ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
}

// `sum` counts the words from the DID to the last user data word.
template <class Words>
KIVCS2Status checkSum(Words &words, bool tenBits, uint32_t sum)
{
    uint32_t checksum = 0;
    uint32_t notCounted = 0;
    if (tenBits)
    {
        KIV_TRY(readWord(words, checksum, notCounted));
        const bool matches = bit9(checksum) != bit8(checksum) && (checksum & 0x1FF) == (sum & 0x1FF);
        return matches ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
    }
    // Kept: the bit reader already holds the checksum byte, so a packet at the very end of its stream
    // is accepted whatever its checksum. Captions cut out of their packets have no checksum.
    if (words.atEnd())
        return KIVCS2STATUS_OK;
    return checkWord(words, sum & 0xFF, notCounted);
}

template <class Words>
KIVCS2Status extractCDP(Words words, const kiv::captions::AncForm &form, bool withAtom, uint8_t *buffer,
                        uint32_t *bufferSize)
{
    KIV_TRY(words.begin());
    uint32_t notCounted = 0;
    for (uint8_t word = 0; word < form.flagWords; ++word)
        KIV_TRY(checkWord(words, form.flag[word], notCounted));

    uint32_t sum = 0;
    uint32_t dataCount = 0;
    KIV_TRY(checkWord(words, form.did, sum));
    KIV_TRY(checkWord(words, form.sdid, sum));
    KIV_TRY(readWord(words, dataCount, sum));
    dataCount &= 0xFF;

    // Kept: the count has 8 bits. A wrapped count is below 8, which the atom header refuses, so every write
    // was compared with the room.
    const auto count = static_cast<uint8_t>(dataCount + (withAtom ? KIVCS2_CAPTION_ATOM_SIZE : 0));
    if (count > *bufferSize)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    *bufferSize = count;
    if (withAtom)
        KIV_TRY(kivCS2ClosedCaptions_writeQuickTimeAtom(&buffer, count));

    for (uint32_t index = 0; index < dataCount; ++index)
    {
        uint32_t word = 0;
        KIV_TRY(readWord(words, word, sum));
        buffer[index] = static_cast<uint8_t>(word);
    }
    return checkSum(words, form.tenBits, sum);
}

[[nodiscard]] uint64_t bigEndian(const uint8_t *bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t index = 0; index < count; ++index)
        value = value << 8 | bytes[index];
    return value;
}

constexpr size_t kLineHeaderSize = 14;

// One line record of SMPTE 436M, without its payload.
struct WrappedLine
{
    uint16_t number;
    uint8_t sampleCoding;
    uint64_t payloadSize; // up to (2^32 - 1)^2

    explicit WrappedLine(const std::array<uint8_t, kLineHeaderSize> &bytes)
        : number{static_cast<uint16_t>(bigEndian(&bytes[0], 2))}, sampleCoding{bytes[3]},
          payloadSize{bigEndian(&bytes[6], 4) * bigEndian(&bytes[10], 4)}
    {
    }

    [[nodiscard]] bool mayHoldCaptions() const
    {
        return (number == 4 || number == 9 || number == 21) && sampleCoding >= 4 && sampleCoding <= 9;
    }

    [[nodiscard]] KIVCS2CaptionANCFormat format() const
    {
        return sampleCoding <= 6 ? KIVCS2CaptionANCFormat_8Bit : KIVCS2CaptionANCFormat_10Bit;
    }
};

KIVCS2Status readExactly(KIVCS2Stream *stream, std::span<uint8_t> bytes)
{
    uint64_t count = 0;
    KIV_TRY(kivCS2Stream_readBytes(stream, bytes.data(), bytes.size(), &count));
    return count == bytes.size() ? KIVCS2STATUS_OK : KIVCS2STATUS_FORMAT_ERR;
}

// Extracts the CDP of a line whose payload begins at `position` of the block.
KIVCS2Status extractFromBlock(std::span<uint8_t> block, int64_t position, const WrappedLine &line,
                              bool withAtom, uint8_t *buffer, uint32_t *bufferSize)
{
    const auto start = static_cast<uint64_t>(position);
    if (position < 0 || start > block.size() || line.payloadSize > block.size() - start)
        return KIVCS2STATUS_DATA_ERR;

    KIVCS2MemoryStream view;
    KIV_TRY(kivCS2MemoryStream_initWithBytes(&view, block.data() + start, line.payloadSize));
    const KIVCS2Status status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
        &view.m_stream, line.format(), withAtom, buffer, bufferSize);
    (void)kivCS2MemoryStream_free(&view.m_stream); // a view owns no memory
    return status;
}

// Moves to the next line. A payload that no stream can hold is refused here: as a signed offset it would lead
// backwards.
KIVCS2Status skipPayload(KIVCS2Stream *stream, const WrappedLine &line)
{
    constexpr uint64_t kFarthest = INT64_MAX / 2;
    if (line.payloadSize > kFarthest)
        return KIVCS2STATUS_PARAM_ERR;
    return kivCS2Stream_setPosition(stream, static_cast<int64_t>(line.payloadSize),
                                    KIVCS2StreamPosition_Current, nullptr);
}

// A line of a caption file that is not content. A single "/" is content.
[[nodiscard]] bool isComment(std::string_view line)
{
    return line.starts_with("//");
}
} // namespace

uint8_t kivCS2ClosedCaptions_oddParityByte(uint8_t byte)
{
    const auto data = static_cast<uint8_t>(byte & ~kParity);
    return std::popcount(data) % 2 != 0 ? data : static_cast<uint8_t>(data | kParity);
}

KIVCS2Status kivCS2ClosedCaptions_decodeCEA608CCPair(uint8_t byte1, uint8_t byte2, char *buffer)
{
    KIV_CHECK(buffer);

    return kiv::captions::describePair(
        byte1, byte2,
        std::span<char, KIVCS2_CEA608_DESCRIPTION_SIZE>{buffer, KIVCS2_CEA608_DESCRIPTION_SIZE});
}

KIVCS2Status kivCS2ClosedCaptions_read8BitWord(KIVCS2Stream *stream, uint8_t *value, uint32_t *checksum)
{
    KIV_CHECK(stream);
    KIV_CHECK(value);

    KIV_TRY(kivCS2Stream_readBits(stream, 8, value));
    if (checksum != nullptr)
        *checksum += *value;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptions_read10BitParityWord(KIVCS2Stream *stream, bool skip, uint8_t *value,
                                                      uint8_t *parity, uint32_t *checksum)
{
    KIV_CHECK(stream);
    KIV_CHECK(value);
    KIV_CHECK(parity);

    if (skip)
        KIV_TRY(kivCS2Stream_skipBits(stream, 6));
    KIV_TRY(kivCS2Stream_readBits(stream, 2, parity));
    KIV_TRY(kivCS2Stream_readBits(stream, 8, value));
    if (checksum != nullptr)
        *checksum += *parity * 256u + *value;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptions_validate8BitWord(KIVCS2Stream *stream, uint8_t expected, uint32_t *checksum)
{
    KIV_CHECK(stream);

    uint8_t value = 0;
    KIV_TRY(kivCS2ClosedCaptions_read8BitWord(stream, &value, checksum));
    return value == expected ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
}

KIVCS2Status kivCS2ClosedCaptions_validate10BitParityWord(KIVCS2Stream *stream, bool skip, uint8_t expected,
                                                          uint8_t expectedParity, uint32_t *checksum)
{
    KIV_CHECK(stream);

    uint8_t value = 0;
    uint8_t parity = 0;
    KIV_TRY(kivCS2ClosedCaptions_read10BitParityWord(stream, skip, &value, &parity, checksum));
    return value == expected && parity == expectedParity ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
}

KIVCS2Status kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
    KIVCS2Stream *stream, KIVCS2CaptionANCFormat format, bool withAtom, uint8_t *buffer, uint32_t *bufferSize)
{
    KIV_CHECK(stream);
    KIV_CHECK(buffer);
    KIV_CHECK(bufferSize);

    // Kept: hosts pass formats they do not know and read the untouched buffer as "no caption".
    if (format >= kiv::captions::kAncForms.size())
        return KIVCS2STATUS_OK;

    const kiv::captions::AncForm &form = kiv::captions::kAncForms[format];
    if (KIVCS2MemoryStream *memory = kiv::captions::MemoryWords::readable(*stream))
        return extractCDP<kiv::captions::MemoryWords>({*memory, form.tenBits}, form, withAtom, buffer,
                                                      bufferSize);
    return extractCDP<kiv::captions::StreamWords>({stream, form.tenBits}, form, withAtom, buffer, bufferSize);
}

KIVCS2Status kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE436MStream(KIVCS2Stream *stream,
                                                                                 bool withAtom,
                                                                                 uint8_t *buffer,
                                                                                 uint32_t *bufferSize)
{
    KIV_CHECK(stream);
    KIV_CHECK(buffer);
    KIV_CHECK(bufferSize);

    std::array<uint8_t, 2> lineCount{};
    KIV_TRY(readExactly(stream, lineCount));
    for (uint64_t lines = bigEndian(lineCount.data(), lineCount.size()); lines > 0; --lines)
    {
        std::array<uint8_t, kLineHeaderSize> header{};
        KIV_TRY(readExactly(stream, header));
        const WrappedLine line{header};
        if (line.mayHoldCaptions())
        {
            int64_t position = 0;
            uint8_t *block = nullptr;
            uint64_t blockSize = 0;
            KIV_TRY(kivCS2Stream_setPosition(stream, 0, KIVCS2StreamPosition_Current, &position));
            KIV_TRY(kivCS2Stream_getBytes(stream, &block, &blockSize));

            // A failed line must not take room from the next one.
            uint32_t stored = *bufferSize;
            const std::span<uint8_t> bytes{block, block == nullptr ? 0 : static_cast<size_t>(blockSize)};
            const KIVCS2Status status =
                bytes.empty() ? KIVCS2STATUS_DATA_ERR
                              : extractFromBlock(bytes, position, line, withAtom, buffer, &stored);
            if (block != nullptr)
                (void)kivCS2Stream_freeBytes(stream, block); // the status is the packet's, not the block's
            if (KIVCS2_SUCCEEDED(status))
            {
                *bufferSize = stored;
                return status;
            }
        }
        KIV_TRY(skipPayload(stream, line));
    }
    return KIVCS2STATUS_DATA_ERR;
}

KIVCS2Status kivCS2ClosedCaptions_writeQuickTimeAtom(uint8_t **buffer, uint32_t atomSize)
{
    KIV_CHECK(buffer);
    KIV_CHECK(*buffer);

    if (atomSize < KIVCS2_CAPTION_ATOM_SIZE)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;

    const std::array<uint8_t, KIVCS2_CAPTION_ATOM_SIZE> atom = {static_cast<uint8_t>(atomSize >> 24),
                                                                static_cast<uint8_t>(atomSize >> 16),
                                                                static_cast<uint8_t>(atomSize >> 8),
                                                                static_cast<uint8_t>(atomSize),
                                                                'c',
                                                                'c',
                                                                'd',
                                                                'p'};
    *buffer = std::copy(atom.begin(), atom.end(), *buffer);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(const uint8_t *buffer708,
                                                                             uint32_t bufferSize708,
                                                                             bool withAtom,
                                                                             uint16_t *buffer608,
                                                                             const uint32_t *bufferSize608)
{
    KIV_CHECK(buffer708);
    KIV_CHECK(buffer608);
    KIV_CHECK(bufferSize608);

    if (*bufferSize608 < kEmptyPairs.size())
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    memcpy(buffer608, kEmptyPairs.data(), kEmptyPairs.size());

    std::span<const uint8_t> packet;
    kiv::cdp::Sections sections;
    KIV_TRY(kiv::cdp::skipAtom({buffer708, bufferSize708}, withAtom, packet));
    KIV_TRY(sections.begin(packet));
    bool foundField1 = false;
    for (kiv::cdp::CaptionData data; sections.next(data);)
        for (size_t at = 0; at < data.triplets.size(); at += kiv::cdp::kTripletSize)
        {
            const uint8_t *triplet = &data.triplets[at];
            if ((triplet[0] & kiv::cdp::kPairMask) != kiv::cdp::kPairValue)
                continue;
            const size_t field = triplet[0] & kiv::cdp::kFieldMask;
            memcpy(&buffer608[field], triplet + 1, sizeof *buffer608);
            foundField1 = foundField1 || field == 0;
        }
    KIV_TRY(sections.status());
    // Kept: hosts wait for field 1; a pair of field 2 alone is stored and still ends the data.
    return foundField1 ? KIVCS2STATUS_OK : KIVCS2STATUS_EOF_ERR;
}

KIVCS2Status kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(const uint16_t *buffer608,
                                                                          uint32_t bufferSize608,
                                                                          uint8_t *buffer708,
                                                                          uint32_t *bufferSize708,
                                                                          uint16_t sequenceNumber)
{
    return kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat(
        buffer608, bufferSize608, buffer708, bufferSize708, sequenceNumber, false);
}

KIVCS2Status kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708PacketFormat(
    const uint16_t *buffer608, uint32_t bufferSize608, uint8_t *buffer708, uint32_t *bufferSize708,
    uint16_t sequenceNumber, bool sdi)
{
    KIV_CHECK(buffer708);
    KIV_CHECK(buffer608);
    KIV_CHECK(bufferSize708);

    constexpr size_t kPairSize = sizeof *buffer608;
    if (bufferSize608 != kPairSize && bufferSize608 != 2 * kPairSize)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;
    const std::span<const uint8_t> from = sdi ? std::span<const uint8_t>{kiv::cdp::kTemplateSDI608in708}
                                              : std::span<const uint8_t>{kiv::cdp::kTemplate608in708};
    if (*bufferSize708 < from.size())
        return KIVCS2STATUS_BUFFER_SIZE_ERR;

    const std::span<uint8_t> packet{buffer708, from.size()};
    // The sizes as constants: a copy of a length unknown to the compiler takes as long as all the rest.
    if (sdi)
        memcpy(packet.data(), from.data(), kiv::cdp::kTemplateSDI608in708.size());
    else
        memcpy(packet.data(), from.data(), kiv::cdp::kTemplate608in708.size());
    constexpr size_t kPairOffset = kiv::cdp::kTripletsOffset + 1;
    memcpy(&packet[kPairOffset], buffer608, kPairSize);
    if (bufferSize608 > kPairSize)
        memcpy(&packet[kPairOffset + kiv::cdp::kTripletSize], buffer608 + 1, kPairSize);
    kiv::cdp::stamp(packet, sequenceNumber);
    *bufferSize708 = static_cast<uint32_t>(packet.size());
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptions_pack708CaptionsIntoSMPTE334CDP708Packet(const uint8_t *buffer708Data,
                                                                          uint32_t bufferSize708Data,
                                                                          uint8_t *buffer708,
                                                                          uint32_t *bufferSize708,
                                                                          uint16_t sequenceNumber)
{
    KIV_CHECK(buffer708Data);
    KIV_CHECK(buffer708);
    KIV_CHECK(bufferSize708);

    // Kept: the room is compared with the size of a packet without atom, and offsets have 8 bits.
    // The caller gives the room that the header requires.
    if (*bufferSize708 < KIVCS2_CDP_SIZE)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;

    const auto &head = kiv::cdp::kTemplate708DataTo708Header;
    const auto &foot = kiv::cdp::kTemplate708DataTo708Footer;
    const auto footOffset = static_cast<uint8_t>(head.size() + bufferSize708Data);
    const auto total = static_cast<uint8_t>(footOffset + foot.size());
    memcpy(buffer708, head.data(), head.size());
    memcpy(buffer708 + head.size(), buffer708Data, bufferSize708Data);
    memcpy(buffer708 + footOffset, foot.data(), foot.size());
    KIV_TRY(
        kivCS2ClosedCaptions_setSMPTE334CDP708PacketSequenceNumber(true, buffer708, total, sequenceNumber));
    *bufferSize708 = total;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptions_setSMPTE334CDP708PacketSequenceNumber(bool withAtom, uint8_t *buffer708Data,
                                                                        uint32_t bufferSize708Data,
                                                                        uint16_t sequenceNumber)
{
    KIV_CHECK(buffer708Data);

    constexpr size_t kSmallest = 10; // up to the sequence counter, and a footer's counter and checksum
    const size_t atom = withAtom ? KIVCS2_CAPTION_ATOM_SIZE : 0;
    if (bufferSize708Data < atom + kSmallest)
        return KIVCS2STATUS_BUFFER_SIZE_ERR;

    kiv::cdp::stamp({buffer708Data + atom, bufferSize708Data - atom}, sequenceNumber);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptions_convertSMPTE334CDP708PacketToCEA708DPacket(const uint8_t *bufferCDP708,
                                                                             uint32_t bufferSizeCDP708,
                                                                             bool withAtom,
                                                                             uint8_t *bufferCEA708,
                                                                             uint32_t *bufferSizeCEA708)
{
    KIV_CHECK(bufferCDP708);
    KIV_CHECK(bufferSizeCEA708);

    constexpr uint32_t kBlockHeadSize = 2;
    constexpr uint8_t kProcessFlags = 0xC0; // process_em_data_flag, process_cc_data_flag
    constexpr uint8_t kEmData = 0xFF;

    std::span<const uint8_t> packet;
    kiv::cdp::Sections sections;
    KIV_TRY(kiv::cdp::skipAtom({bufferCDP708, bufferSizeCDP708}, withAtom, packet));
    KIV_TRY(sections.begin(packet));
    for (kiv::cdp::CaptionData data; sections.next(data);)
    {
        const auto blockSize = static_cast<uint32_t>(data.count * kiv::cdp::kTripletSize + kBlockHeadSize);
        if (bufferCEA708 == nullptr)
        {
            // Kept: the size follows only from cc_count, whatever comes after it.
            *bufferSizeCEA708 = blockSize;
            return KIVCS2STATUS_OK;
        }
        if (*bufferSizeCEA708 < blockSize)
            return KIVCS2STATUS_BUFFER_SIZE_ERR;
        *bufferSizeCEA708 = blockSize;
        bufferCEA708[0] = kProcessFlags | data.count;
        bufferCEA708[1] = kEmData;
        memcpy(bufferCEA708 + kBlockHeadSize, data.triplets.data(), data.triplets.size());
    }
    return sections.status();
}

KIVCS2Status kivCS2ClosedCaptions_readLine(KIVCS2Stream *stream, char *buffer, uint32_t *size)
{
    KIV_CHECK(stream);
    KIV_CHECK(buffer);
    KIV_CHECK(size);
    KIV_CHECK_OR(stream->m_readBytes, KIVCS2STATUS_NO_DATA_ERR); // the status of a read that fails

    for (;;)
    {
        const kiv::LinePiece line = kiv::readThroughLineEnd(*stream, buffer, *size);
        // Kept: the room is compared before the kind of line is known, so a long comment is an error too.
        if (line.stop == kiv::LineStop::noRoom)
            return KIVCS2STATUS_NOT_FOUND_ERR;
        if (line.length > 0 && !isComment({buffer, line.length}))
        {
            buffer[line.length] = '\0';
            *size = static_cast<uint32_t>(line.length);
            return KIVCS2STATUS_OK;
        }
        if (line.stop == kiv::LineStop::noData)
            return KIVCS2STATUS_NO_DATA_ERR;
    }
}

KIVCS2Status kivCS2ClosedCaptions_createDateStringWithFormat(CFStringRef format, char **result)
{
    KIV_CHECK(format);
    KIV_CHECK(result);

    *result = nullptr;
    const kiv::CFRef name{CFStringCreateWithCString(kCFAllocatorDefault, "en_US", kCFStringEncodingASCII)};
    if (!name)
        return KIVCS2STATUS_DATA_ERR;
    const kiv::CFRef locale{CFLocaleCreate(kCFAllocatorDefault, name.get())};
    if (!locale)
        return KIVCS2STATUS_DATA_ERR;
    const kiv::CFRef formatter{CFDateFormatterCreate(kCFAllocatorDefault, locale.get(),
                                                     kCFDateFormatterNoStyle, kCFDateFormatterNoStyle)};
    if (!formatter)
        return KIVCS2STATUS_DATA_ERR;
    CFDateFormatterSetFormat(formatter.get(), format);
    const kiv::CFRef text{CFDateFormatterCreateStringWithAbsoluteTime(kCFAllocatorDefault, formatter.get(),
                                                                      CFAbsoluteTimeGetCurrent())};
    if (!text)
        return KIVCS2STATUS_DATA_ERR;
    return kivCS2String_createCStringFromCFStringWithEncoding(text.get(), result, KIVCS2StringEncoding_ASCII,
                                                              nullptr);
}

// ---- MCC caption files ----

namespace
{
constexpr uint32_t kLineSize = 1024; // a longer line is lost, as documented in the header
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

// Returns whether a line ends the search for the first caption. A line that does not decode belongs to the
// header, with one exception: without a rate no caption decodes, so the first caption reports that, or a good
// file would be read to its end.
bool endsHeader(KIVCS2Status decoded)
{
    return KIVCS2_SUCCEEDED(decoded) || decoded == KIVCS2STATUS_FRAME_RATE_ERR;
}

// Reads lines until one decodes; it is then pending.
KIVCS2Status readFirstCaption(KIVCS2ClosedCaptionsMCCStream *mcc, DecodeLine decode)
{
    for (;;)
    {
        CaptionLine line;
        KIV_TRY(readLine(mcc->m_stream, line));
        if (const KIVCS2Status status = decode(mcc, line.text, line.length); endsHeader(status))
            return status;
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

// Captions are compared only by frame count; the date in the high half is ignored.
constexpr uint32_t frameCount(KIVCS2Timecode timecode)
{
    return static_cast<uint32_t>(timecode);
}

// Volatile, so that the compiler does not know the size and calls the C library. For a constant of 296 bytes
// it emits "rep movs" in place, which takes longer to start than the library's whole copy, and a copy is made
// for every pair that is returned.
const volatile size_t kCaptionSize = sizeof(KIVCS2ClosedCaption);

void copyCaption(KIVCS2ClosedCaption &to, const KIVCS2ClosedCaption &from)
{
    std::memcpy(&to, &from, kCaptionSize);
}

void clearCaption(KIVCS2ClosedCaption &caption)
{
    std::memset(&caption, 0, kCaptionSize);
}

// Clears the caption and reads the timecode of the line; false if the line is not a caption.
bool openLine(KIVCS2ClosedCaption &caption, std::string_view line, kiv::TimecodeText &timecode)
{
    clearCaption(caption);
    return line.size() >= kShortestLine && kiv::copyTimecodeText(line, timecode);
}

bool isValid(const KIVCS2ClosedCaption &caption)
{
    return (caption.m_flags & KIVCS2ClosedCaptionFlag_Valid) != 0;
}

// Reads forward until the pending caption is that of the frame `request`.
KIVCS2Status findCaption(KIVCS2ClosedCaptionsMCCStream *mcc, uint32_t request)
{
    for (;;)
    {
        if (!isValid(mcc->m_caption))
            return KIVCS2STATUS_NOT_FOUND_ERR;
        const uint32_t pending = frameCount(mcc->m_caption.m_timecode);
        // Kept: it stays pending, so a second line with this timecode is never returned.
        if (pending == request)
            return KIVCS2STATUS_OK;
        if (pending > request)
            return KIVCS2STATUS_NOT_FOUND_ERR;
        // Kept: a line that does not decode ends the search and leaves nothing pending.
        KIV_TRY(readNextCaption(mcc, kivCS2ClosedCaptionsMCCStream_decodeCaption));
    }
}

// Kept: in this order "30DF" and "60DF" match their two-character prefixes and read as 30 and 60. The
// timecodes are read with the module-wide rate, so the rate recorded here has no effect.
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

// The rate's text by the real rate cut to an integer; 23.98 has no text.
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

// Kept: the count written is not requested, so a short write that the stream reports as a success passes.
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

// Writes the caller's text, or the current time formatted by `pattern`.
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

// Room for a line's text without its packet: hours of up to 5 digits, both suffixes, the tab.
constexpr size_t kLineHeadSize = 64;

// Writes "\nHH:MM:SS:FF", the suffixes and the tab to `text`; `length` receives their number of characters.
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
        // Kept: the number is printed as a signed number; from 2^31 on it does not read back.
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
        else if (const KIVCS2Status status =
                     kivCS2ClosedCaptionsMCCStream_decodeCaption(mcc, line.text, line.length);
                 endsHeader(status))
            return status;
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
    // Kept: "YYYY" is the year of the week, which differs from the calendar year on some days around New
    // Year.
    KIV_TRY(writeDateItem(stream, kiv::mccCreationDate, date, "EEEE, MMMM d, YYYY"));
    KIV_TRY(writeDateItem(stream, kiv::mccCreationTime, time, "HH:mm:ss"));
    std::string_view rate;
    KIV_TRY(currentRateText(rate));
    KIV_TRY(writeItem(stream, kiv::mccTimeCodeRate, rate));
    KIV_TRY(writeText(stream, "\n"));
    return KIVCS2STATUS_OK; // a kind of stream may have other success codes; the header has not
}

KIVCS2Status kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(KIVCS2ClosedCaptionsMCCStream *mcc,
                                                                  const KIVCS2Timecode *timecode,
                                                                  KIVCS2ClosedCaption *caption)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((timecode) != NULL);
    KIV_CHECK((caption) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    const KIVCS2Status status = findCaption(mcc, frameCount(*timecode));
    if (KIVCS2_FAILED(status))
        clearCaption(*caption);
    else
        copyCaption(*caption, mcc->m_caption);
    return status;
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
    const std::string_view text{line, length};
    kiv::TimecodeText timecode;
    if (!openLine(caption, text, timecode))
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

    constexpr uint32_t kHeadSize = 3;

    KIVCS2ClosedCaption made{};
    made.m_timecode = *timecode;
    made.m_captionData[0] = kiv::cdp::kDID;
    made.m_captionData[1] = kiv::cdp::kSDID;
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

    // The view is only read, so the caption may be constant although a memory stream takes any block.
    KIVCS2MemoryStream view;
    KIV_TRY(kivCS2MemoryStream_initWithBytes(&view, const_cast<uint8_t *>(caption->m_captionData),
                                             caption->m_captionSize));
    const KIVCS2Status status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
        &view.m_stream, KIVCS2CaptionANCFormat_8Bit, withAtom, buffer, bufferSize);
    (void)kivCS2MemoryStream_free(&view.m_stream); // a view owns nothing, so this cannot fail
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
        (void)kivCS2Stream_free(mcc->m_stream); // always returns a failure, since the close clears the stream
    *mcc = {};
    return KIVCS2STATUS_OK;
}

// ---- SCC caption files ----

namespace
{
// Reads forward until the pending caption has a pair on the frame `request`; `index` receives its place.
KIVCS2Status findPair(KIVCS2ClosedCaptionsMCCStream *mcc, uint32_t request, uint32_t &index)
{
    const KIVCS2ClosedCaption &pending = mcc->m_caption;
    for (;;)
    {
        if (!isValid(pending))
            return KIVCS2STATUS_NOT_FOUND_ERR;
        const uint32_t start = frameCount(pending.m_timecode);
        // Kept: the end of a caption that reaches midnight lies before its start, so it holds no frame.
        if (start <= request && request < frameCount(pending.m_endTimecode))
        {
            index = request - start;
            return index < sizeof pending.m_captionData / 2 ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
        }
        if (start >= request)
            return KIVCS2STATUS_NOT_FOUND_ERR;
        // Kept: a line that begins before the last line has ended loses its pairs before the request, and a
        // line that does not decode ends the search and leaves nothing pending.
        KIV_TRY(readNextCaption(mcc, kivCS2ClosedCaptionsSCCStream_decodeCaption));
    }
}
} // namespace

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
    const std::string_view text{line, length};
    kiv::TimecodeText timecode;
    if (!openLine(caption, text, timecode) || text[kiv::kTimecodeLength] != '\t')
        return KIVCS2STATUS_NOT_FOUND_ERR;
    KIV_TRY(kivCS2Timecode_initWithString(&caption.m_timecode, timecode.data()));
    KIV_TRY(kiv::decodeHexWords(text.substr(kiv::kTimecodeLength + 1), caption));

    if (caption.m_captionSize != 0)
    {
        KIVCS2Timecode duration;
        // Neither call fails for a timecode that was just parsed.
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

    const KIVCS2ClosedCaption &pending = mcc->m_caption;
    uint32_t index = 0;
    const KIVCS2Status status = findPair(mcc, frameCount(*timecode), index);
    if (KIVCS2_FAILED(status))
    {
        clearCaption(*caption);
        return status;
    }
    copyCaption(*caption, pending);
    std::memcpy(caption->m_captionData, pending.m_captionData + size_t{2} * index, 2);
    caption->m_captionSize = 2;
    (void)kivCS2Timecode_addFrames(&caption->m_timecode, index); // a frame below the end is valid
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2ClosedCaptionsSCCStream_reset(KIVCS2ClosedCaptionsMCCStream *mcc)
{
    KIV_CHECK((mcc) != NULL);
    KIV_CHECK((mcc->m_reading == 1));

    return rewindToFirstCaption(mcc, kivCS2ClosedCaptionsSCCStream_decodeCaption);
}
