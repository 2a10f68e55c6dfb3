// Caption packets in every form. Input: the form (its high bit: any packet); then the bytes. A whole packet
// is found again after it is wrapped.
#include "Require.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <cstring>
#include <vector>

namespace
{
constexpr KIVCS2CaptionCarrier kAny = KIVCS2CaptionCarrier_AnyPacket;

void thereAndBack(KIVCS2CaptionCarrier form, const KIVCS2CaptionPacket &packet, KIVCS2CaptionPlace place)
{
    const KIVCS2CaptionCarrier carrier = form & ~kAny;
    if (carrier == KIVCS2CaptionCarrier_436M)
        place.m_coding = 7; // in the 8-bit form the checksum may be missing
    uint64_t size = 0, at = 0;
    require(kivCS2CaptionPacket_wrap(carrier, &packet, 1, &place, &place.m_rtp, nullptr, &size) ==
            KIVCS2STATUS_BUFFER_SIZE_ERR);
    std::vector<uint8_t> bytes(size);
    require(kivCS2CaptionPacket_wrap(carrier, &packet, 1, &place, &place.m_rtp, bytes.data(), &size) ==
            KIVCS2STATUS_OK);
    KIVCS2CaptionPacket back;
    require(kivCS2CaptionPacket_find(form, bytes.data(), size, &at, &back, nullptr) == KIVCS2STATUS_OK);
    require(back.m_faults == 0 && back.m_size == packet.m_size &&
            std::memcmp(back.m_anc, packet.m_anc, packet.m_size) == 0);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const KIVCS2CaptionCarrier carrier = (data[0] & 0x0Fu) % KIVCS2CaptionCarrier_MAX;
    const bool hasFlag = carrier != KIVCS2CaptionCarrier_8Bit && carrier != KIVCS2CaptionCarrier_10Bit &&
                         carrier != KIVCS2CaptionCarrier_10BitLittle;
    const KIVCS2CaptionCarrier form = carrier | (hasFlag && data[0] > 0x7F ? kAny : 0);
    const std::vector<uint8_t> bytes(data + 1, data + size);
    uint64_t at = 0;
    for (KIVCS2Status status = KIVCS2STATUS_OK; KIVCS2_SUCCEEDED(status);)
    {
        const uint64_t from = at;
        KIVCS2CaptionPacket packet{};
        KIVCS2CaptionPlace place{};
        status = kivCS2CaptionPacket_find(form, bytes.data(), bytes.size(), &at, &packet, &place);
        require(at >= from && at <= bytes.size() && packet.m_size <= KIVCS2_CAPTION_ANC_SIZE);
        if (status == KIVCS2STATUS_OK)
        {
            require(at > from && place.m_offset >= from && place.m_offset < at);
            if (packet.m_faults == 0)
                thereAndBack(form, packet, place);
        }
        else if (status == KIVCS2STATUS_EOF_ERR && at < bytes.size())
        {
            ++at;
            status = KIVCS2STATUS_OK;
        }
        else
            require(status == KIVCS2STATUS_NOT_FOUND_ERR || status == KIVCS2STATUS_EOF_ERR ||
                    (carrier == KIVCS2CaptionCarrier_RTP && status == KIVCS2STATUS_FORMAT_ERR));
    }
    return 0;
}
