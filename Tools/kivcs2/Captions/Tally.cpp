// The contents of a caption file's packets.
#include "Captions/Tally.h"

#include "Captions/OpenCaptions.h"
#include "Captions/Services.h"
#include "Terminal/Output.h"

#include <algorithm>
#include <utility>

namespace tool
{

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

void Delays::take(const KIVCS2CaptionFileFault &fault)
{
    if (fault.m_fault != KIVCS2CaptionFault_Overlap && fault.m_fault != KIVCS2CaptionFault_SameFrame &&
        fault.m_fault != KIVCS2CaptionFault_BackInTime)
        return;
    m_line = fault.m_line;
    m_frame = fault.m_frame;
    m_isFirst = true;
}

void Delays::take(const KIVCS2CaptionPacket &packet)
{
    if (packet.m_line != m_line)
        return;
    if (m_isFirst)
    {
        m_delay = std::max(packet.m_frame, m_frame) - m_frame;
        longest = std::max(longest, m_delay);
        lines += m_delay > 0 ? 1 : 0;
    }
    m_isFirst = false;
    pairs += m_delay > 0 ? 1 : 0;
}

Tally::Tally(KIVCS2CaptionCounting counting, CaptionDecoder::OnText onText)
    : m_decoder(parseServices({}), counting,
                [this, onText = std::move(onText)](const KIVCS2CaptionText &text)
                {
                    ++captions[text.m_service];
                    // Adds the terminator too, which separates the texts.
                    texts[text.m_service].add(std::span{reinterpret_cast<const uint8_t *>(text.m_text),
                                                        size_t{text.m_textSize} + 1});
                    if (onText)
                        onText(text);
                }),
      m_perDay(framesADay(counting))
{
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
    (void)kivCS2CaptionPacket_getPairs(&packet, &found); // empty if there are none
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
    m_decoder.feed(packet);
}

} // namespace tool
