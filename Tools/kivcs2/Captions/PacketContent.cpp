// The contents of one caption packet.
#include "Captions/PacketContent.h"

#include "Captions/OpenCaptions.h"
#include "Captions/Services.h"
#include "Failure.h"
#include "Terminal/Output.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <algorithm>

namespace tool
{
namespace
{

constexpr size_t kHead = 3; // DID, SDID and data count before the user data

KIVCS2CaptionPacket parsed(std::span<const uint8_t> bytes)
{
    KIVCS2CaptionPacket packet{};
    check(kivCS2CaptionPacket_parse(&packet, bytes.data(), static_cast<uint32_t>(bytes.size())),
          "the packet");
    return packet;
}

} // namespace

Content::Content(const KIVCS2CaptionPacket &found) : packet(found)
{
    for (uint32_t field = 1; field <= 2; ++field)
        fields[field - 1] = pairsOf(packet, field);
    (void)kivCS2CaptionPacket_getDTVCC(&packet, &dtvcc); // empty if there are none
}

Content::Content(std::span<const uint8_t> bytes) : Content(parsed(bytes)) {}

std::span<const uint8_t> Content::cdp() const
{
    if (packet.m_size < kHead)
        return {};
    return {packet.m_anc + kHead, std::min<size_t>(packet.m_anc[2], packet.m_size - kHead)};
}

std::vector<KIVCS2CaptionFault> Content::faults() const
{
    std::vector<KIVCS2CaptionFault> list;
    for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
        if ((packet.m_faults >> fault & 1u) != 0)
            list.push_back(fault);
    return list;
}

Json toJson(const Content &content)
{
    const KIVCS2CaptionPacket &packet = content.packet;
    const auto pairs = [&content](size_t field)
    {
        Json list = Json::array();
        for (const CaptionPair pair : content.fields[field])
            list.push_back({{"pair", pair.hex()}, {"words", pair.words()}});
        return list;
    };
    Json services = Json::array();
    for (const KIVCS2CaptionServiceEntry &entry : content.services())
        services.push_back({{"service", serviceName(entry.m_service)},
                            {"language", entry.m_language},
                            {"easyReader", entry.m_easyReader != 0},
                            {"wide", entry.m_wide != 0}});
    Json starts = Json::array();
    for (uint32_t byte = 0; byte < content.dtvcc.m_count; byte += 2)
        if ((content.dtvcc.m_starts >> byte / 2 & 1u) != 0)
            starts.push_back(byte);
    Json faults = Json::array();
    for (const KIVCS2CaptionFault fault : content.faults())
        faults.push_back({{"fault", kivCS2CaptionFile_getFaultName(fault)},
                          {"status", statusText(kivCS2CaptionFile_getFaultStatus(fault))}});
    const bool hasTime = (packet.m_flags & KIVCS2CaptionPacketFlag_HasTimeCode) != 0;
    return {{"bytes", content.cdp().size()},
            {"did", packet.m_did},
            {"sdid", packet.m_sdid},
            {"frameRateCode", packet.m_rateCode},
            {"framesPerSecond", cdpRateName(packet.m_rateCode)},
            {"sequence", packet.m_sequence},
            {"triplets", packet.m_tripletCount},
            {"timeCode", hasTime ? Json(hexOf(packet.m_timeCode)) : Json()},
            {"field1", pairs(0)},
            {"field2", pairs(1)},
            {"cea708", {{"hex", hexOf(content.bytes708())}, {"packetStarts", starts}}},
            {"services", services},
            {"faults", faults}};
}

std::string listedOrNone(const std::vector<CaptionPair> &pairs)
{
    return pairs.empty() ? "none" : listed(pairs);
}

std::string hexOf(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : bytes)
        text += print("%02X", byte);
    return text;
}

void Causes::add(const Content &content, const std::string &where)
{
    for (const KIVCS2CaptionFault fault : content.faults())
        if (m_causes[fault].count++ == 0)
            m_causes[fault].first = where;
}

void Causes::tell(const std::string &name) const
{
    for (KIVCS2CaptionFault fault = 1; fault < KIVCS2CaptionFault_MAX; ++fault)
    {
        const Cause &cause = m_causes[fault];
        if (cause.count == 0)
            continue;
        std::string text = name;
        text.append(": ").append(kivCS2CaptionFile_getFaultName(fault));
        if (!cause.first.empty())
            text.append(": ").append(count(cause.count, "packet")).append(", first ").append(cause.first);
        note(text.append(" (").append(statusText(kivCS2CaptionFile_getFaultStatus(fault))).append(")"));
    }
}

} // namespace tool
