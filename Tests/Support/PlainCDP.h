// Caption distribution packets read and built in the plain way, byte after byte as in SMPTE ST 334-2.
// The results and the speed of the library are compared with these.
#ifndef KIV_TEST_PLAIN_CDP_H
#define KIV_TEST_PLAIN_CDP_H

#include <KIVCoreServices2/KIVCS2Base.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace kiv::test
{
struct PlainPairs
{
    KIVCS2Status status = KIVCS2STATUS_OK;
    uint8_t fields[2][2] = {{0x80, 0x80}, {0x80, 0x80}};
    bool hasCaptionData = false;
    uint8_t block[2 + 31 * 3] = {}; // the last whole cc_data section
    size_t blockSize = 0;
};

inline PlainPairs readPlainly(const uint8_t *packet, size_t size)
{
    PlainPairs result;
    const auto failed = [&](KIVCS2Status status)
    {
        result.status = status;
        return result;
    };
    if (size < 3)
        return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);
    if (packet[0] != 0x96 || packet[1] != 0x69)
        return failed(KIVCS2STATUS_DATA_ERR);
    if (packet[2] < 8 || packet[2] > size)
        return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);

    bool field1 = false;
    int budget = packet[2] - 8;
    const uint8_t *at = packet + 7;
    while (budget > 0)
    {
        if (*at == 0x71 || *at == 0x74)
        {
            const int length = *at == 0x71 ? 5 : 3;
            if (budget < length)
                return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);
            at += length;
            budget -= length;
        }
        else if (*at == 0x72)
        {
            if (budget < 2)
                return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);
            const int count = at[1] & 0x1F;
            at += 2;
            budget -= 2;
            for (int triplet = 0; triplet < count; ++triplet)
            {
                if (budget < 3)
                    return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);
                if ((at[0] & 4) != 0 && (at[0] & 3) < 2)
                {
                    field1 = field1 || (at[0] & 3) == 0;
                    result.fields[at[0] & 3][0] = at[1];
                    result.fields[at[0] & 3][1] = at[2];
                }
                for (int byte = 0; byte < 3; ++byte)
                    result.block[2 + triplet * 3 + byte] = at[byte];
                at += 3;
                budget -= 3;
            }
            result.hasCaptionData = true;
            result.block[0] = static_cast<uint8_t>(0xC0 | count);
            result.block[1] = 0xFF;
            result.blockSize = static_cast<size_t>(2 + count * 3);
        }
        else if (*at == 0x73)
        {
            if (budget < 2)
                return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);
            const int length = 2 + (at[1] & 0x0F) * 7;
            if (budget < length)
                return failed(KIVCS2STATUS_BUFFER_SIZE_ERR);
            at += length;
            budget -= length;
        }
        else if (*at == 0xFF)
        {
            ++at;
            --budget;
        }
        else
            return failed(KIVCS2STATUS_DATA_ERR);
    }
    if (!field1)
        result.status = KIVCS2STATUS_EOF_ERR;
    return result;
}

// Builds the plain form of 82 bytes with both fields.
inline void buildPlainly(const uint8_t *pairs, uint16_t sequenceNumber, uint8_t *packet)
{
    uint8_t *at = packet;
    const auto put = [&](int byte) { *at++ = static_cast<uint8_t>(byte); };
    for (const int byte : {0x96, 0x69, 82, 0x4F, 0x67, sequenceNumber >> 8, sequenceNumber & 0xFF, 0x72, 0xF4,
                           0xFC, int{pairs[0]}, int{pairs[1]}, 0xFD, int{pairs[2]}, int{pairs[3]}})
        put(byte);
    for (int triplet = 2; triplet < 20; ++triplet)
        for (const int byte : {0xFA, 0x00, 0x00})
            put(byte);
    for (const int byte : {0x73, 0x91, 0xE1, 0x00, 0x00, 0x00, 0xC1, 0x3F, 0xFF, 0x74, sequenceNumber >> 8,
                           sequenceNumber & 0xFF})
        put(byte);
    unsigned sum = 0;
    for (const uint8_t *byte = packet; byte < at; ++byte)
        sum += *byte;
    put(256 - static_cast<int>(sum % 256));
}
} // namespace kiv::test

#endif
