// Writes caption files: MCC and SCC from packets, SRT and WebVTT from texts.
#ifndef KIV_PRIVATE_CAPTIONS_WRITER_H
#define KIV_PRIVATE_CAPTIONS_WRITER_H

#include "Private/Captions/Output.h"

#include "KIVCS2CaptionFile.h"

namespace kiv::cc
{
class Writer
{
public:
    Writer(KIVCS2Stream *stream, KIVCS2CaptionFileKind kind, const KIVCS2CaptionCountingInfo &info,
           const KIVCS2CaptionWriteOptions &options);

    [[nodiscard]] KIVCS2Status writeHeader(const KIVCS2CaptionFileHeader *header);
    [[nodiscard]] KIVCS2Status writePacket(const KIVCS2CaptionPacket &packet);
    [[nodiscard]] KIVCS2Status writeCaptions(uint32_t frame, const KIVCS2CaptionPairs *pairs,
                                             const KIVCS2CaptionDTVCC *dtvcc);
    [[nodiscard]] KIVCS2Status writeText(const KIVCS2CaptionText &text);
    [[nodiscard]] KIVCS2Status finish();

private:
    enum class Stage : uint8_t
    {
        Begun,
        Open, // the header is written
        Finished
    };

    [[nodiscard]] bool isMCC() const
    {
        return m_kind == KIVCS2CaptionFileKind_MCC1 || m_kind == KIVCS2CaptionFileKind_MCC2;
    }
    // Returns true if `frame` is more than half a day earlier than `before`: it is then past midnight.
    [[nodiscard]] bool isNextDay(uint64_t frame, uint64_t before) const
    {
        return frame + m_info.m_perDay / 2 < before;
    }
    KIVCS2Status putMCCHeader(const KIVCS2CaptionFileHeader &header);
    KIVCS2Status putPacket(const KIVCS2CaptionPacket &packet);
    KIVCS2Status putFrame(uint32_t frame, const KIVCS2CaptionPairs *pairs, const KIVCS2CaptionDTVCC *dtvcc);
    void putPairs(uint32_t frame, const KIVCS2CaptionPairs &pairs);
    void putPair(uint32_t frame, const uint8_t *pair);
    void putTimecode(uint32_t frame);
    void putTimes(uint64_t from, uint64_t until);
    void putTime(uint64_t milliseconds);

    Output m_out;
    KIVCS2CaptionFileKind m_kind;
    const KIVCS2CaptionCountingInfo &m_info;
    KIVCS2CaptionWriteOptions m_options;
    std::array<KIVCS2CaptionServiceEntry, KIVCS2_CAPTION_SERVICES_MAX> m_services{};
    Stage m_stage = Stage::Begun;

    uint16_t m_sequence = 0;
    bool m_hasFrame = false; // a frame was written: m_lastFrame
    uint32_t m_lastFrame = 0;

    bool m_lineOpen = false;     // SCC
    bool m_captionEnded = false; // the pair before ended a caption
    uint32_t m_nextFrame = 0, m_emptyPairs = 0;
    bool m_isLate = false;                               // pairs are on later frames than their own
    uint32_t m_pairsFrame = UINT32_MAX, m_freeFrame = 0; // frame of the last pairs; first frame after them
    uint64_t m_cues = 0;
    uint64_t m_cueFrom = 0; // start of the cue before, past midnight too; at first the time zero
};
} // namespace kiv::cc

#endif
