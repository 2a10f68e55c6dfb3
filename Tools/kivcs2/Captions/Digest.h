// A checksum of the captions read or written, for a comparison.
#ifndef KIV_TOOL_CAPTION_DIGEST_H
#define KIV_TOOL_CAPTION_DIGEST_H

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <cstdint>
#include <span>

namespace tool
{

/// A running CRC-32.
class Digest
{
public:
    void add(std::span<const uint8_t> bytes);
    void add(std::span<const uint32_t> numbers);

    /// Adds one pair with its frame.
    void add(uint32_t frame, uint32_t field, const uint8_t (&pair)[2]);

    /// Adds the bytes of a packet with its frame and suffixes.
    void add(const KIVCS2CaptionPacket &packet);

    [[nodiscard]] bool operator==(const Digest &other) const = default;

private:
    uint32_t m_value = 0xFFFFFFFFu;
};

} // namespace tool

#endif
