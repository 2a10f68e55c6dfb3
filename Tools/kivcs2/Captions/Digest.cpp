// A checksum of the captions read or written, for a comparison.
#include "Captions/Digest.h"

#include <KIVCoreServices2/KIVCS2Base.h>

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

} // namespace tool
