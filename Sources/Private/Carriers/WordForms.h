// Packets among 291M words: consecutive bytes and 10-bit units, and the samples of a v210 line.
#ifndef KIV_PRIVATE_CARRIERS_WORDFORMS_H
#define KIV_PRIVATE_CARRIERS_WORDFORMS_H

#include "Private/Carriers/Carrier.h"

namespace kiv::carriers
{
// Returns true if a data flag precedes each packet.
[[nodiscard]] bool hasFlag(KIVCS2CaptionCarrier form);

// Returns true if no two packets to be put into a line overlap.
[[nodiscard]] bool areApart(KIVCS2CaptionCarrier form, const Load &load);

[[nodiscard]] KIVCS2Status findInWords(KIVCS2CaptionCarrier form, Search &search);
[[nodiscard]] KIVCS2Status wrapInWords(KIVCS2CaptionCarrier form, const Load &load, std::span<uint8_t> room,
                                       size_t &size);
} // namespace kiv::carriers

#endif
