// The contents of one caption packet, read once for a table, for JSON and for the causes of its faults.
#ifndef KIV_TOOL_PACKET_CONTENT_H
#define KIV_TOOL_PACKET_CONTENT_H

#include "Captions/Pairs.h"
#include "Terminal/JSON.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tool
{

/// A packet with the contents that are needed more than once.
struct Content
{
    KIVCS2CaptionPacket packet{};
    std::array<std::vector<CaptionPair>, 2> fields;
    KIVCS2CaptionDTVCC dtvcc{};

    explicit Content(const KIVCS2CaptionPacket &found);
    explicit Content(std::span<const uint8_t> bytes);

    [[nodiscard]] bool isCDP() const
    {
        return (packet.m_flags & KIVCS2CaptionPacketFlag_CDP) != 0;
    }
    /// Returns the user data that the packet has.
    [[nodiscard]] std::span<const uint8_t> cdp() const;
    [[nodiscard]] std::span<const uint8_t> bytes708() const
    {
        return {dtvcc.m_bytes, dtvcc.m_count};
    }
    [[nodiscard]] std::span<const KIVCS2CaptionServiceEntry> services() const
    {
        return {packet.m_services, packet.m_serviceCount};
    }
    [[nodiscard]] std::vector<KIVCS2CaptionFault> faults() const;
};

[[nodiscard]] Json toJson(const Content &content);
[[nodiscard]] std::string listedOrNone(const std::vector<CaptionPair> &pairs);
[[nodiscard]] std::string hexOf(std::span<const uint8_t> bytes);

/// The causes found, each with its count and its first place.
class Causes
{
public:
    /// `where` is empty if there is only one packet.
    void add(const Content &content, const std::string &where);

    /// Prints one line for each cause on standard error.
    void tell(const std::string &name) const;

private:
    struct Cause
    {
        uint64_t count = 0;
        std::string first;
    };
    std::array<Cause, KIVCS2CaptionFault_MAX> m_causes;
};

} // namespace tool

#endif
