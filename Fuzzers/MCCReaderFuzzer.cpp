// Any bytes as an MCC file: header, forward lookups, packets out of captions, rewinding.
#include "CaptionInput.h"

#include <cstring>

namespace
{
// Reads each pending caption until the file ends or a line is damaged. Returns their number.
size_t readAll(KIVCS2ClosedCaptionsMCCStream &mcc)
{
    size_t count = 0;
    KIVCS2Timecode next = mcc.m_caption.m_timecode;
    KIVCS2ClosedCaption caption;
    KIVCS2Status status = kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&mcc, &next, &caption);
    while (KIVCS2_SUCCEEDED(status))
    {
        ++count;
        require(std::memcmp(&caption, &mcc.m_caption, sizeof caption) == 0);
        require(caption.m_captionSize <= 259 && caption.m_field <= 1 && caption.m_timecode == next);
        uint8_t cdp[255 + 8];
        uint32_t size = sizeof cdp;
        if (KIVCS2_SUCCEEDED(kivCS2ClosedCaptionsMCCStream_extractSMPTE334CDP708PacketFromCaption(
                &mcc, &caption, count % 2 != 0, cdp, &size)))
            require(size <= sizeof cdp);
        // The next frame has a caption, or a later caption becomes the pending one.
        next = caption.m_timecode + 1;
        status = kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&mcc, &next, &caption);
        if (status == KIVCS2STATUS_NOT_FOUND_ERR && mcc.m_caption.m_timecode > next)
        {
            next = mcc.m_caption.m_timecode;
            status = kivCS2ClosedCaptionsMCCStream_readCaptionForTimecode(&mcc, &next, &caption);
        }
    }
    return count;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kiv::fuzz::CaptionInput input{data, size};
    KIVCS2ClosedCaptionsMCCStream &mcc = input.mcc;
    if (KIVCS2_SUCCEEDED(kivCS2ClosedCaptionsMCCStream_readHeader(&mcc)))
    {
        const size_t count = readAll(mcc);
        require(count != 0 && kivCS2ClosedCaptionsMCCStream_reset(&mcc) == KIVCS2STATUS_OK);
        require(readAll(mcc) == count);
    }
    return 0;
}
