// CRC-32: slicing by eight.
#include "Private/Crc32.h"

#include <bit>
#include <cstring>

namespace
{
constexpr size_t kSlices = 8;

// Slice s carries a byte over itself and the s bytes that follow it.
constexpr std::array<kiv::Crc32Table, kSlices> makeSlices()
{
    std::array<kiv::Crc32Table, kSlices> slices{};
    slices[0] = kiv::makeCrc32Table();
    for (size_t slice = 1; slice < kSlices; ++slice)
        for (size_t n = 0; n < slices[0].size(); ++n)
        {
            const uint32_t before = slices[slice - 1][n];
            slices[slice][n] = (before >> 8) ^ slices[0][before & 0xFFu];
        }
    return slices;
}

constexpr std::array<kiv::Crc32Table, kSlices> kSlice = makeSlices();

uint32_t updatePortable(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    for (; length >= kSlices; data += kSlices, length -= kSlices)
    {
        const auto byte = [&](size_t index)
        {
            return data[index] ^ (index < 4 ? crc >> (8 * index) & 0xFFu : 0u);
        };
        crc = kSlice[7][byte(0)] ^ kSlice[6][byte(1)] ^ kSlice[5][byte(2)] ^ kSlice[4][byte(3)] ^
              kSlice[3][byte(4)] ^ kSlice[2][byte(5)] ^ kSlice[1][byte(6)] ^ kSlice[0][byte(7)];
    }
    for (; length > 0; ++data, --length)
        crc = kSlice[0][(crc ^ *data) & 0xFFu] ^ (crc >> 8);
    return crc;
}
} // namespace

kiv::Crc32Kind kiv::crc32Kind() noexcept
{
    return Crc32Kind::portable;
}

kiv::Crc32Update kiv::crc32UpdateOf(Crc32Kind) noexcept
{
    return updatePortable;
}

uint32_t kiv::crc32Update(uint32_t crc, const uint8_t *data, size_t length) noexcept
{
    return updatePortable(crc, data, length);
}
