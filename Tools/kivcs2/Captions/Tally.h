// What is in the packets of a caption file: counted, decoded, and summed up for a comparison.
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

/// The services of CEA-608 come first, as CC1 does.
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

/// "7 captions" of one service, "CC1 13, S1 14 captions" of several or if `named`.
[[nodiscard]] std::string captionsText(const CaptionCounts &captions, bool named = false);
[[nodiscard]] Json toJson(const CaptionCounts &captions);
[[nodiscard]] uint64_t sumOf(const CaptionCounts &captions);

/// Pairs of an SCC file that go out later than their line says, since an earlier line is still going out.
class Delays
{
public:
    /// Faults and pairs in the order of the reading.
    void take(const KIVCS2CaptionFileFault &fault);
    void take(const KIVCS2CaptionPacket &packet);

    uint64_t pairs = 0, lines = 0;
    uint32_t longest = 0; ///< frames

private:
    uint64_t m_line = 0; ///< of the last line that may wait
    uint32_t m_frame = 0, m_delay = 0;
    bool m_isFirst = false;
};

class Tally
{
public:
    /// `onText` is called with every caption; what it throws comes out of take() and finish().
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
    uint64_t pairs[2] = {}; ///< by field, empty ones not counted
    uint64_t emptyPairs = 0;
    uint64_t bytes708 = 0;
    CaptionCounts captions;
    std::optional<uint32_t> first, last; ///< frames
    Digest packetDigest, pairDigest;
    std::map<KIVCS2CaptionService, Digest> texts; ///< of each service in their order

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
