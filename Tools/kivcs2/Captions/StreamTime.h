// The time of live captions: time labels in ancillary packets, and their frames.
#ifndef KIV_TOOL_CAPTION_STREAM_TIME_H
#define KIV_TOOL_CAPTION_STREAM_TIME_H

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tool
{

/// Makes an ancillary timecode packet (SMPTE ST 12-2): DID 60h, SDID 60h. Above 30 frames a second it is
/// VITC, whose field flag distinguishes the two frames of a pair.
[[nodiscard]] KIVCS2CaptionPacket ancillaryTimecode(KIVCS2CaptionCounting counting, uint32_t frame);
[[nodiscard]] bool isAncillaryTimecode(const KIVCS2CaptionPacket &packet);

/// The source of a stream's time.
enum class TimeSource : uint8_t
{
    None,
    CDP,
    Ancillary,
    RTP
};
[[nodiscard]] std::string_view timeSourceName(TimeSource source);

/// The frames of a stream's packets: from the time code of a CDP, else from ancillary timecode, else by the
/// RTP clock since the last of these, or since frame 0.
class StreamTime
{
public:
    /// `counting` is the caller's, or KIVCS2CaptionCounting_FindOut.
    explicit StreamTime(KIVCS2CaptionCounting counting) : m_counting(counting) {}

    /// Takes the next RTP packet, in order, with its ancillary packets. `isNew`: its clock is unrelated to
    /// the one before.
    void take(uint32_t timestamp, std::span<const KIVCS2CaptionPacket> packets, bool isNew);

    /// Known after a caption packet has come: the rate of its CDP, or 29.97 for a packet of one CEA-608 pair.
    [[nodiscard]] KIVCS2CaptionCounting counting() const
    {
        return m_counting;
    }
    [[nodiscard]] TimeSource source() const
    {
        return m_source;
    }

    /// Returns the frame of the last packet; 0 while the counting is unknown.
    [[nodiscard]] uint32_t frame() const
    {
        return m_frame;
    }
    [[nodiscard]] std::string timecode() const;

private:
    /// A time in the form of SMPTE ST 12-1.
    struct Label
    {
        std::array<uint8_t, 4> digits; ///< hours, minutes, seconds, frames
        bool drops;
        bool isSecond;  ///< the second of a pair of frames, above 30 a second
        bool tellsPair; ///< `isSecond` is valid
        TimeSource source;
    };

    [[nodiscard]] static std::optional<Label> labelOf(const KIVCS2CaptionPacket &packet);
    [[nodiscard]] static std::optional<Label> labelOfAncillary(const KIVCS2CaptionPacket &packet);
    void settleCounting(std::span<const KIVCS2CaptionPacket> packets);
    [[nodiscard]] std::optional<uint32_t> frameOf(const Label &label) const;
    [[nodiscard]] uint32_t frameByClock() const;

    KIVCS2CaptionCounting m_counting;
    TimeSource m_source = TimeSource::None;
    std::optional<uint32_t> m_timestamp;
    int64_t m_ticks = 0;  ///< ticks of 90 kHz since the first packet
    int64_t m_anchor = 0; ///< the ticks of `m_anchorFrame`
    uint32_t m_anchorFrame = 0;
    uint32_t m_frame = 0;
    bool m_drops = true; ///< by the last label; without a label numbers follow real time
};

} // namespace tool

#endif
