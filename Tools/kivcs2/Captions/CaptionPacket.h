// Caption distribution packets at every frame rate.
#ifndef KIV_TOOL_CAPTION_PACKET_H
#define KIV_TOOL_CAPTION_PACKET_H

#include "Captions/CEA608.h"
#include "Counting.h"

#include <array>
#include <cstdint>
#include <span>

namespace tool
{

struct BuiltCDP
{
    std::array<uint8_t, 128> bytes{};
    uint32_t size = 0;

    [[nodiscard]] std::span<const uint8_t> span() const
    {
        return {bytes.data(), size};
    }
};

/// A CDP that carries one pair in each field. The library builds packets of 29.97 frames a second;
/// for other rates the frame-rate code and the number of triplets (600 a second) are put right.
[[nodiscard]] BuiltCDP buildCDP(Pair field1, Pair field2, uint16_t sequence, const Counting &counting,
                                bool sdi);

} // namespace tool

#endif
