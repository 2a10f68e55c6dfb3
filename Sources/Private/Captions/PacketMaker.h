// Makes packets from triplets: the parts that are the same in every packet are kept, the rest is put in.
#ifndef KIV_PRIVATE_CAPTIONS_PACKET_MAKER_H
#define KIV_PRIVATE_CAPTIONS_PACKET_MAKER_H

#include "KIVCS2CaptionPacket.h"

#include <span>

namespace kiv::cc
{
class PacketMaker
{
public:
    explicit PacketMaker(const KIVCS2CaptionCountingInfo &info);

    // At most KIVCS2_CAPTION_SERVICES_MAX, all of them services.
    void setServices(std::span<const KIVCS2CaptionServiceEntry> services);
    // `triplets` are three bytes each, the counting's number of them.
    void make(uint32_t frame, uint16_t sequence, bool withTimeCode, std::span<const uint8_t> triplets,
              KIVCS2CaptionPacket &packet) const;

private:
    [[nodiscard]] uint8_t *putTimeCode(uint32_t frame, uint8_t *out) const;

    const KIVCS2CaptionCountingInfo &m_info;
    KIVCS2CaptionPacket m_empty{}; // without captions and time code
};
} // namespace kiv::cc

#endif
