// Packets in one RTP packet of ancillary data (RFC 3550, RFC 8331).
#ifndef KIV_PRIVATE_CARRIERS_RTP_H
#define KIV_PRIVATE_CARRIERS_RTP_H

#include "Private/Carriers/Carrier.h"

namespace kiv::carriers
{
[[nodiscard]] KIVCS2Status findInRTP(Search &search);
[[nodiscard]] bool isSendable(const KIVCS2CaptionRTP &rtp);
[[nodiscard]] bool isSendable(const KIVCS2CaptionPlace &place);
[[nodiscard]] KIVCS2Status wrapInRTP(const Load &load, std::span<uint8_t> room, size_t &size);
} // namespace kiv::carriers

#endif
