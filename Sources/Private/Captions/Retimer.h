// Captions at another frame rate: the source's packets in, a packet for every frame of the result out.
#ifndef KIV_PRIVATE_CAPTIONS_RETIMER_H
#define KIV_PRIVATE_CAPTIONS_RETIMER_H

#include "KIVCS2CaptionRetime.h"
#include "Private/Captions/CaptionQueue.h"
#include "Private/Captions/PacketMaker.h"

#include <array>

namespace kiv::cc
{
[[nodiscard]] constexpr KIVCS2CaptionRetimeMode modeOf(const KIVCS2CaptionRetimeOptions &options)
{
    return options.m_mode & ~uint32_t{KIVCS2CaptionRetimeMode_HasLast};
}
[[nodiscard]] constexpr bool hasLast(const KIVCS2CaptionRetimeOptions &options)
{
    return options.m_last != 0 || modeOf(options) != options.m_mode;
}

// Maps frames of the source to frames of the result by an exact fraction.
class FrameMap
{
public:
    FrameMap(const KIVCS2CaptionCountingInfo &from, const KIVCS2CaptionCountingInfo &to,
             const KIVCS2CaptionRetimeOptions &options);

    // May be negative.
    [[nodiscard]] int64_t operator()(uint64_t frame) const
    {
        return static_cast<int64_t>(frame * m_times / m_over) + m_offset;
    }

private:
    uint64_t m_times;
    uint64_t m_over;
    int64_t m_offset;
};

// The waiting pairs of a field.
struct FieldQueue
{
    static constexpr size_t kMost = size_t{1} << 17; // line 21 has 107,892 pairs per field in an hour

    // Returns the relation of a pair on this frame of the source to the pair before it.
    [[nodiscard]] Mark markOf(uint64_t frame, uint8_t first, uint8_t second);
    // Returns true if the first pair in the queue goes out on this frame of the result.
    [[nodiscard]] bool isDue(uint64_t frame) const;

    CaptionQueue pairs{kMost};
    uint64_t lastIn = 0;  // the frame of `code` in the source
    uint64_t lastOut = 0; // the frame of the last pair in the result
    uint32_t code = 0;
    bool mayRepeat = false; // the last pair was `code`, and not its repeat
};

// The waiting bytes of CEA-708.
struct DTVCCQueue
{
    static constexpr size_t kMost = size_t{1} << 21; // 58 minutes of 9600 bit/s

    CaptionQueue triplets{kMost};
    size_t left = 0;        // triplets to come of the packet begun last
    bool startLost = false; // bytes up to the next packet belong to one that was left out
};

class Retimer
{
public:
    Retimer(const KIVCS2CaptionRetimeOptions &options, KIVCS2CaptionRetimeFunc onPacket, void *context);

    [[nodiscard]] KIVCS2Status feed(const KIVCS2CaptionPacket &packet);
    [[nodiscard]] KIVCS2Status finish(KIVCS2CaptionRetimeReport *report);

private:
    // From the first packet to finish().
    struct Programme
    {
        KIVCS2CaptionRetimeReport report{};
        std::array<FieldQueue, 2> fields;
        DTVCCQueue dtvcc;
        uint64_t midnights = 0; // frames of the days before this one
        uint64_t seen = 0;      // the last frame of the source
        int64_t next = 0;       // the frame of the result to be made next
        int64_t end = 0;        // the first frame of the result after the source
        bool hasSeen = false;
        bool hasCDP = false;      // the source has a CDP
        bool hasTimeCode = false; // the source's last CDP has a time code
        uint16_t sequence = 0;    // sequence number of the next packet
        size_t listed = 0;        // entries of the source's last service list
        std::array<KIVCS2CaptionServiceEntry, KIVCS2_CAPTION_SERVICES_MAX> services{};
    };

    [[nodiscard]] KIVCS2Status place(uint32_t frame, uint64_t &source, uint64_t &midnights) const;
    [[nodiscard]] KIVCS2Status select(const KIVCS2CaptionPacket &packet, uint64_t source);
    [[nodiscard]] KIVCS2Status reserve();
    [[nodiscard]] KIVCS2Status take(const KIVCS2CaptionPacket &packet, uint64_t source);
    [[nodiscard]] KIVCS2Status takeTail(const KIVCS2CaptionPacket &packet, uint64_t source);
    void takePair(const uint8_t *triplet, uint64_t source, uint32_t ready);
    void takeDTVCC(const uint8_t *triplet, uint32_t ready);
    void takeSections(const KIVCS2CaptionPacket &packet);
    void takeServices(const KIVCS2CaptionPacket &packet);
    [[nodiscard]] KIVCS2Status handOver(int64_t end);
    void makeNext();
    void leave(CaptionQueue &queue, size_t which, uint8_t *triplet);
    [[nodiscard]] bool isWaiting() const;

    const KIVCS2CaptionRetimeOptions m_options;
    const KIVCS2CaptionCountingInfo &m_from;
    const KIVCS2CaptionCountingInfo &m_to;
    const FrameMap m_map;
    KIVCS2CaptionRetimeFunc m_onPacket;
    void *m_context;
    PacketMaker m_maker;
    Programme m_now;
    KIVCS2CaptionPacket m_made; // not delivered yet, if m_hasMade
    bool m_hasMade = false;
};
} // namespace kiv::cc

#endif
