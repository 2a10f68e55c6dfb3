// Any bytes as an SCC file: every pair of every line that decodes is read by its frame.
#include "CaptionInput.h"

#include <cstring>

namespace
{
// Reads every frame of the pending caption, and the frame after it, for which the next line is read.
KIVCS2Status readPending(KIVCS2ClosedCaptionsMCCStream &mcc)
{
    const KIVCS2ClosedCaption pending = mcc.m_caption;
    const auto start = static_cast<uint32_t>(pending.m_timecode);
    const auto end = static_cast<uint32_t>(pending.m_endTimecode);
    require(pending.m_captionSize <= 259);
    KIVCS2ClosedCaption caption;
    uint32_t frame = start;
    for (; frame < end; ++frame)
    {
        const KIVCS2Timecode request = frame;
        require(kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(&mcc, &request, &caption) ==
                KIVCS2STATUS_OK);
        const uint32_t offset = 2 * (frame - start);
        require(offset + 2 <= pending.m_captionSize && caption.m_captionSize == 2);
        require(std::memcmp(caption.m_captionData, pending.m_captionData + offset, 2) == 0);
        require(std::memcmp(&mcc.m_caption, &pending, sizeof pending) == 0);
    }
    const KIVCS2Timecode after = frame == start ? frame + 1 : frame;
    const KIVCS2Status status = kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(&mcc, &after, &caption);
    return (mcc.m_caption.m_flags & KIVCS2ClosedCaptionFlag_Valid) != 0 ? status : KIVCS2STATUS_CAPTION_ERR;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kiv::fuzz::CaptionInput input{data, size};
    KIVCS2ClosedCaptionsMCCStream &mcc = input.mcc;
    if (KIVCS2_SUCCEEDED(kivCS2ClosedCaptionsSCCStream_readHeader(&mcc)))
    {
        KIVCS2Status status = KIVCS2STATUS_OK;
        while (status == KIVCS2STATUS_OK || status == KIVCS2STATUS_NOT_FOUND_ERR)
        {
            const int64_t before = input.memory.m_position;
            status = readPending(mcc);
            if (input.memory.m_position == before)
                break;
        }
        require(kivCS2ClosedCaptionsSCCStream_reset(&mcc) == KIVCS2STATUS_OK);
        require(mcc.m_caption.m_flags == KIVCS2ClosedCaptionFlag_Valid);
    }
    return 0;
}
