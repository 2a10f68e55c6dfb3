// The conversions of one caption file's packets to another file.
#ifndef KIV_TOOL_CAPTION_CONVERSION_H
#define KIV_TOOL_CAPTION_CONVERSION_H

#include "Captions/CaptionTarget.h"
#include "Captions/OpenCaptions.h"
#include "Captions/Tally.h"
#include "Terminal/Output.h"

#include <memory>
#include <optional>
#include <string>

namespace tool
{

/// The kind and form of the target.
struct ConversionWay
{
    std::string target;
    KIVCS2CaptionFileKind kind = KIVCS2CaptionFileKind_FindOut;
    uint32_t field = 1;               ///< SCC: the field to write
    bool sparse = false;              ///< MCC from SCC: packets only on frames that have a pair
    bool sdi = false;                 ///< MCC from SCC: two service descriptors
    KIVCS2CaptionService service = 0; ///< SRT, WebVTT: 0 for the first service with captions
    KIVCS2CaptionCounting counting = KIVCS2CaptionCounting_FindOut; ///< counting of the target
    bool isRetimed = false; ///< the packets come from a retiming, which makes new CDPs
    uint32_t timeZero = 0;  ///< SRT, WebVTT: the frame that is 00:00:00.000
};

/// One conversion: take() for every packet and caption of the source, then finish() and commit().
class Conversion
{
public:
    /// Makes the conversion for a source and a target. Throws if there is none.
    [[nodiscard]] static std::unique_ptr<Conversion> make(const CaptionSource &source, ConversionWay way);

    virtual ~Conversion() = default;
    Conversion(const Conversion &) = delete;
    Conversion &operator=(const Conversion &) = delete;

    virtual void take(const KIVCS2CaptionPacket &packet) = 0;
    virtual void take(const KIVCS2CaptionText &text) = 0;

    /// Ends the file, reads it back, and throws unless it has captions and is correct.
    virtual void finish(const Tally &in) = 0;

    /// Adds the facts about the target and about the data left out.
    virtual void tell(const Tally &in, Facts &facts, Json &value) const = 0;

    virtual void commit() = 0;

protected:
    Conversion(const CaptionSource &source, ConversionWay way) : m_source(source), m_way(std::move(way)) {}

    /// Reads the written file packet by packet. Throws if it has a fault that its source does not have.
    [[nodiscard]] std::unique_ptr<Tally> readBack(const CaptionTarget &target) const;

    [[nodiscard]] TargetWay targetWay() const;

    const CaptionSource &m_source;
    ConversionWay m_way;
};

/// Returns the title of a kind: "MCC 1", "SRT".
[[nodiscard]] std::string kindTitle(KIVCS2CaptionFileKind kind);

[[nodiscard]] bool isMCC(KIVCS2CaptionFileKind kind);

} // namespace tool

#endif
