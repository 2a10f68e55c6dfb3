// Captures of ancillary data: streams of words and 436M frames, rows of v210, and RTP payloads.
#include "Captions/Capture.h"

#include "Failure.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kBlock = size_t{1} << 20; // a 436M line record has at most 96 KiB
constexpr size_t kMostPayload = 0xFFFF;    // a length of RFC 4571 has 16 bits

bool hasFirst(std::span<const uint8_t> bytes, uint8_t mask, uint8_t value)
{
    return !bytes.empty() && (bytes[0] & mask) == value;
}

} // namespace

Capture::Capture(const std::string &path, KIVCS2CaptionCarrier form, uint32_t width)
    : m_input(path), m_forms{form}, m_isRTP(form == KIVCS2CaptionCarrier_RTP)
{
    if (form != KIVCS2CaptionCarrier_V210Luma)
        return;
    constexpr uint32_t kSD = 720;
    constexpr size_t kSamples = 48, kBytes = 128; // a row is padded to a multiple
    m_rowBytes = (width + kSamples - 1) / kSamples * kBytes;
    m_forms = {KIVCS2CaptionCarrier_V210Luma, KIVCS2CaptionCarrier_V210Chroma};
    m_formCount = width == kSD ? 1 : 2;
    if (width == kSD)
        m_forms[0] = KIVCS2CaptionCarrier_V210SD;
}

bool Capture::next(CapturedPacket &found)
{
    return m_rowBytes > 0 || m_isRTP ? nextInPart(found) : nextInStream(found);
}

void Capture::put(CapturedPacket &found) const
{
    found.offset = m_begin + found.place.m_offset;
    found.row = m_row;
}

bool Capture::nextInStream(CapturedPacket &found)
{
    for (;;)
    {
        const KIVCS2Status status = kivCS2CaptionPacket_find(m_forms[0], m_bytes.data(), m_bytes.size(),
                                                             &m_at, &found.packet, &found.place);
        put(found); // before the bytes move
        if (KIVCS2_SUCCEEDED(status))
            return true;
        if (status != KIVCS2STATUS_EOF_ERR && status != KIVCS2STATUS_NOT_FOUND_ERR)
            check(status, m_input.name());
        if (grow())
            continue;
        if (status != KIVCS2STATUS_EOF_ERR)
        {
            if (!m_isCut && hasBegun())
                m_damage.cut = m_begin + m_at;
            return false;
        }
        m_isCut = true;
        ++m_at; // a cut packet
        return true;
    }
}

// Returns true if the bytes left at the end are a piece of a record or packet that is too small to be found.
// A 436M frame without records is zeros, and a DID or a part of a flag alone may be there by chance.
bool Capture::hasBegun() const
{
    const std::span<const uint8_t> rest = std::span{m_bytes}.subspan(m_at);
    const KIVCS2CaptionCarrier form = m_forms[0];
    if (form == KIVCS2CaptionCarrier_436M)
        return std::ranges::any_of(rest, [](uint8_t byte) { return byte != 0; });
    if (form == KIVCS2CaptionCarrier_8Bit)
        return false;
    constexpr size_t kFlag = 3, kHead = 2; // DID and SDID
    const bool hasFlag = form == KIVCS2CaptionCarrier_8BitWithADF ||
                         form == KIVCS2CaptionCarrier_10BitWithADF ||
                         form == KIVCS2CaptionCarrier_10BitLittleWithADF;
    const size_t unit = form == KIVCS2CaptionCarrier_8BitWithADF ? 1 : 2;
    return rest.size() % unit != 0 || rest.size() / unit >= (hasFlag ? kFlag : kHead);
}

// Appends the next block to the possible start of a packet; returns false at the end.
bool Capture::grow()
{
    const uint64_t passed = std::min<uint64_t>(m_at, m_bytes.size()) & ~uint64_t{1}; // whole 16-bit units
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(passed));
    m_begin += passed;
    m_at -= passed;
    return read(kBlock) > 0;
}

// Appends up to `size` bytes and returns the number of bytes read.
size_t Capture::read(size_t size)
{
    const size_t before = m_bytes.size();
    m_bytes.resize(before + size);
    const size_t count = m_input.read(std::span{m_bytes}.subspan(before));
    m_bytes.resize(before + count);
    if (onProgress)
        onProgress();
    return count;
}

bool Capture::nextInPart(CapturedPacket &found)
{
    for (;;)
    {
        if (!m_isOpen && !readPart())
            return false;
        for (; m_form < m_formCount; ++m_form, m_at = 0)
        {
            if (m_at > m_bytes.size())
                continue;
            const KIVCS2Status status = kivCS2CaptionPacket_find(
                m_forms[m_form], m_bytes.data(), m_bytes.size(), &m_at, &found.packet, &found.place);
            if (status == KIVCS2STATUS_FORMAT_ERR && m_damage.notRTP++ == 0)
                m_damage.firstNotRTP = m_begin;
            if (KIVCS2_FAILED(status) && status != KIVCS2STATUS_EOF_ERR)
                continue;
            put(found);
            m_at += status == KIVCS2STATUS_EOF_ERR ? 1 : 0; // cut
            return true;
        }
        m_isOpen = false;
    }
}

bool Capture::readPart()
{
    m_begin += m_bytes.size();
    m_bytes.clear();
    m_at = 0;
    m_form = 0;
    m_isOpen = m_isRTP ? readPayload() : readRow();
    return m_isOpen;
}

bool Capture::readRow()
{
    ++m_row;
    const size_t count = read(m_rowBytes);
    if (count > 0 && count < m_rowBytes)
        m_damage.cut = m_begin;
    return count > 0;
}

// Reads the next payload. The first byte of RTP has the version, 2, in its high bits; taken as the start of
// a length it would make it at least 32,768.
bool Capture::readPayload()
{
    if (m_isAlone)
        return false;
    const uint64_t begin = m_begin;
    for (;;)
    {
        m_bytes.clear();
        if (read(2) == 0)
            return false;
        m_isAlone = begin == 0 && m_begin == 0 && hasFirst(m_bytes, 0xC0, 0x80);
        if (m_isAlone)
        {
            if (read(kMostPayload) == kMostPayload)
                throw Failure(KIVCS2STATUS_FORMAT_ERR, Where{m_input.name()},
                              "more than one RTP packet, without lengths between them");
            return true;
        }
        if (m_bytes.size() < 2)
        {
            m_damage.cut = m_begin;
            return false;
        }
        const size_t size = size_t{m_bytes[0]} << 8 | m_bytes[1];
        m_begin += m_bytes.size();
        m_bytes.clear();
        if (size == 0) // a length without a payload keeps a connection open
            continue;
        if (read(size) < size)
            m_damage.cut = m_begin;
        return !m_bytes.empty();
    }
}

CaptureDecoder::CaptureDecoder(KIVCS2CaptionServices services, OnText onText)
    : m_services(services), m_onText(std::move(onText))
{
}

void CaptureDecoder::begin(const KIVCS2CaptionPacket &packet)
{
    m_hasCDP = (packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0;
    const bool hasTime = (packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0;
    const bool isDrop = !hasTime || (packet.m_timeCode[3] & 0x80u) != 0;
    KIVCS2CaptionCountingInfo info{};
    for (KIVCS2CaptionCounting counting = 1; m_hasCDP && counting < KIVCS2CaptionCounting_MAX; ++counting)
        if (KIVCS2_SUCCEEDED(kivCS2CaptionCounting_getInfo(counting, &info)) &&
            info.m_rateCode == packet.m_rateCode)
        {
            m_counting = counting;
            if ((info.m_drop != 0) == isDrop)
                break;
        }
    m_decoder.emplace(m_services, m_counting,
                      [this](const KIVCS2CaptionText &text) { m_onText(text, m_counting); });
}

// Returns the frame of the time code (SMPTE 334-2): hours, minutes, seconds with the field flag, frames with
// the drop flag.
std::optional<uint32_t> CaptureDecoder::timeOf(const KIVCS2CaptionPacket &packet) const
{
    if ((packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) == 0)
        return std::nullopt;
    const auto digits = [&](size_t index, unsigned mask)
    {
        const unsigned value = packet.m_timeCode[index] & mask;
        return (value >> 4) * 10 + (value & 0x0F);
    };
    KIVCS2CaptionCountingInfo info{};
    check(kivCS2CaptionCounting_getInfo(m_counting, &info), "counting");
    const unsigned field = packet.m_timeCode[2] >> 7;
    const unsigned frames = digits(3, 0x3F);
    char text[32] = "";
    std::snprintf(text, sizeof text, "%02u:%02u:%02u:%02u", digits(0, 0x3F), digits(1, 0x7F), digits(2, 0x7F),
                  info.m_numbers > 30 ? frames * 2 + field : frames);
    uint32_t frame = 0;
    if (KIVCS2_FAILED(kivCS2CaptionCounting_frameFromText(m_counting, text, &frame, nullptr)))
        return std::nullopt;
    return frame;
}

uint32_t CaptureDecoder::frameOf(const KIVCS2CaptionPacket &packet)
{
    const uint32_t next = m_frame ? *m_frame + 1 : 0;
    if (m_hasCDP)
        return timeOf(packet).value_or(next);
    const size_t field = packet.m_tripletCount > 0 ? packet.m_triplets[0][0] & 1u : 0;
    if (m_frame && !m_hasField[field])
    {
        m_hasField[field] = true;
        return *m_frame;
    }
    m_hasField = {field == 0, field == 1};
    return next;
}

void CaptureDecoder::take(const KIVCS2CaptionPacket &packet)
{
    const bool isCDP = (packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0;
    if (packet.m_tripletCount == 0 && !isCDP)
        return; // too damaged to use
    if (isCDP && !m_hasCDP)
    {
        finish();
        begin(packet);
    }
    else if (!isCDP && m_hasCDP)
        return;
    else if (!m_decoder)
        begin(packet);
    KIVCS2CaptionPacket placed = packet;
    placed.m_frame = frameOf(packet);
    m_frame = placed.m_frame;
    m_decoder->feed(placed);
}

void CaptureDecoder::finish()
{
    if (m_decoder)
        m_decoder->finish();
}

} // namespace tool
