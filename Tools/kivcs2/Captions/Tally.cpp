// What is in the packets of a caption file.
#include "Captions/Tally.h"

#include "Captions/Services.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <array>

namespace tool
{

void Digest::add(std::span<const uint8_t> bytes)
{
    static KIVCS2CRC32Param table = []
    {
        KIVCS2CRC32Param built{};
        kivCS2Utils_initCRC32Table(&built);
        built.m_tableBuilt = 1;
        return built;
    }();
    m_value = kivCSUtils_updateCRC32(&table, m_value, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

void Digest::add(std::span<const uint32_t> numbers)
{
    add({reinterpret_cast<const uint8_t *>(numbers.data()), numbers.size_bytes()});
}

void Digest::add(uint32_t frame, uint32_t field, const uint8_t (&pair)[2])
{
    const std::array<uint32_t, 4> numbers = {frame, field, pair[0], pair[1]};
    add(std::span<const uint32_t>{numbers});
}

void Digest::add(const KIVCS2CaptionPacket &packet)
{
    const uint32_t suffixes =
        packet.m_flags & (KIVCS2CaptionPacketFlag_HasField | KIVCS2CaptionPacketFlag_HasNumber);
    const std::array<uint32_t, 5> head = {packet.m_frame, suffixes, packet.m_field, packet.m_number,
                                          packet.m_size};
    add(std::span<const uint32_t>{head});
    add(std::span<const uint8_t>{packet.m_anc, packet.m_size});
}

bool isEmpty(const uint8_t (&pair)[2])
{
    return ((pair[0] | pair[1]) & 0x7F) == 0;
}

std::string captionsText(const CaptionCounts &captions, bool named)
{
    if (captions.size() < 2 && !named)
        return count(sumOf(captions), "caption");
    std::string text;
    for (const auto &[service, number] : captions)
        text += (text.empty() ? "" : ", ") + serviceName(service) + " " + std::to_string(number);
    return text + " captions";
}

Json toJson(const CaptionCounts &captions)
{
    Json value = Json::object();
    for (const auto &[service, number] : captions)
        value[serviceName(service)] = number;
    return value;
}

uint64_t sumOf(const CaptionCounts &captions)
{
    uint64_t sum = 0;
    for (const auto &[service, number] : captions)
        sum += number;
    return sum;
}

Tally::Tally(KIVCS2CaptionCounting counting, OnText onText) : m_onText(std::move(onText))
{
    KIVCS2CaptionCountingInfo info{};
    check(kivCS2CaptionCounting_getInfo(counting, &info), "counting");
    m_perDay = info.m_perDay;
    KIVCS2CaptionDecoderOptions options{};
    options.m_counting = counting;
    check(kivCS2CaptionDecoder_init(&m_decoder, nullptr, &options, takeText, this), "decoder");
}

Tally::~Tally()
{
    (void)kivCS2CaptionDecoder_free(&m_decoder);
}

KIVCS2Status Tally::takeText(const KIVCS2CaptionText *text, void *context) noexcept
{
    Tally &self = *static_cast<Tally *>(context);
    try
    {
        ++self.captions[text->m_service];
        // The terminator ends each.
        self.texts[text->m_service].add(
            std::span{reinterpret_cast<const uint8_t *>(text->m_text), size_t{text->m_textSize} + 1});
        if (self.m_onText)
            self.m_onText(*text);
        return KIVCS2STATUS_OK;
    }
    catch (...)
    {
        self.m_thrown = std::current_exception(); // no exception crosses the library
        return KIVCS2STATUS_ERR;
    }
}

void Tally::done(KIVCS2Status status)
{
    if (m_thrown)
        std::rethrow_exception(m_thrown);
    check(status, "decoding");
}

void Tally::take(const KIVCS2CaptionPacket &packet)
{
    ++packets;
    lines += packet.m_line != m_line ? 1 : 0;
    m_line = packet.m_line;
    first = first.value_or(packet.m_frame);
    last = packet.m_frame;
    packetDigest.add(packet);
    KIVCS2CaptionPairs found;
    (void)kivCS2CaptionPacket_getPairs(&packet, &found); // none is an answer too
    for (uint32_t field = 0; field < 2; ++field)
        for (uint32_t index = 0; index < found.m_count[field]; ++index)
        {
            const auto &pair = found.m_pairs[field][index];
            ++(isEmpty(pair) ? emptyPairs : pairs[field]);
            if (!isEmpty(pair))
                pairDigest.add(packet.m_frame % m_perDay, field, pair);
        }
    KIVCS2CaptionDTVCC dtvcc;
    (void)kivCS2CaptionPacket_getDTVCC(&packet, &dtvcc);
    bytes708 += dtvcc.m_count;
    done(kivCS2CaptionDecoder_feed(&m_decoder, &packet));
}

void Tally::finish()
{
    done(kivCS2CaptionDecoder_finish(&m_decoder, last.value_or(0) + 1));
}

} // namespace tool
