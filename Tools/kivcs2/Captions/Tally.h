// The contents of a caption file's packets: counted, decoded, and in a checksum for a comparison.
#ifndef KIV_TOOL_CAPTION_TALLY_H
#define KIV_TOOL_CAPTION_TALLY_H

#include "Captions/Decoding.h"
#include "Captions/Digest.h"
#include "Terminal/JSON.h"

#include <KIVCoreServices2/KIVCS2CaptionFile.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace tool
{

[[nodiscard]] bool isEmpty(const uint8_t (&pair)[2]);

/// Orders services: those of CEA-608 come first, beginning with CC1.
struct ServiceOrder
{
    [[nodiscard]] bool operator()(KIVCS2CaptionService left, KIVCS2CaptionService right) const
    {
        const bool isLeft708 = left <= KIVCS2CaptionService_S63,
                   isRight708 = right <= KIVCS2CaptionService_S63;
        return isLeft708 != isRight708 ? isRight708 : left < right;
    }
};

/// Captions by service.
using CaptionCounts = std::map<KIVCS2CaptionService, uint64_t, ServiceOrder>;

/// Returns "7 captions" for one service, "CC1 13, S1 14 captions" for several or if `named`.
[[nodiscard]] std::string captionsText(const CaptionCounts &captions, bool named = false);
[[nodiscard]] Json toJson(const CaptionCounts &captions);
[[nodiscard]] uint64_t sumOf(const CaptionCounts &captions);

/// Pairs of an SCC file that are sent later than their timecode, because an earlier line is still being sent.
class Delays
{
public:
    /// Takes faults and pairs in the order of reading.
    void take(const KIVCS2CaptionFileFault &fault);
    void take(const KIVCS2CaptionPacket &packet);

    uint64_t pairs = 0, lines = 0;
    uint32_t longest = 0; ///< frames

private:
    uint64_t m_line = 0; ///< number of the last line that may wait
    uint32_t m_frame = 0, m_delay = 0;
    bool m_isFirst = false;
};

class Tally
{
public:
    /// `onText` is called with every caption; take() and finish() throw its exceptions.
    explicit Tally(KIVCS2CaptionCounting counting, CaptionDecoder::OnText onText = {});

    void take(const KIVCS2CaptionPacket &packet);
    void finish()
    {
        m_decoder.finish();
    }
    [[nodiscard]] KIVCS2CaptionDecoderReport report() const
    {
        return m_decoder.report();
    }

    uint64_t packets = 0, lines = 0;
    uint64_t pairs[2] = {}; ///< pairs of each field, without empty pairs
    uint64_t emptyPairs = 0;
    uint64_t bytes708 = 0;
    CaptionCounts captions;
    std::optional<uint32_t> first, last; ///< frames
    Digest packetDigest, pairDigest;
    std::map<KIVCS2CaptionService, Digest> texts; ///< texts of each service, in order

    [[nodiscard]] uint64_t allPairs() const
    {
        return pairs[0] + pairs[1];
    }

private:
    CaptionDecoder m_decoder;
    uint32_t m_perDay;
    uint64_t m_line = 0;
};

} // namespace tool

#endif
