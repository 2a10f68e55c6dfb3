// Packets in frames of wrapped ancillary data (SMPTE ST 436-1): a count, then one record for each packet.
#ifndef KIV_PRIVATE_CARRIERS_WRAPPED_H
#define KIV_PRIVATE_CARRIERS_WRAPPED_H

#include "Private/Carriers/Carrier.h"

namespace kiv::carriers
{
[[nodiscard]] KIVCS2Status findInWrapped(Search &search);
[[nodiscard]] bool isWrappable(const KIVCS2CaptionPlace &place);
[[nodiscard]] KIVCS2Status wrapInFrame(const Load &load, std::span<uint8_t> room, size_t &size);
} // namespace kiv::carriers

#endif
