// Captures of ancillary data: the caption packets in them, found block by block.
#ifndef KIV_TOOL_CAPTION_CAPTURE_H
#define KIV_TOOL_CAPTION_CAPTURE_H

#include "Captions/Decoding.h"
#include "Files/Files.h"

#include <KIVCoreServices2/KIVCS2CaptionPacket.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool
{

/// A packet of a capture.
struct CapturedPacket
{
    KIVCS2CaptionPacket packet{};
    KIVCS2CaptionPlace place{};
    uint64_t offset = 0; ///< of the place in the capture
    uint64_t row = 0;    ///< of v210: from 1
};

/// A capture that is being read. A megabyte of it is kept at most, whatever its size.
class Capture
{
public:
    /// What is wrong with the capture itself, not with a packet in it.
    struct Damage
    {
        uint64_t notRTP = 0; ///< payloads of another version than 2
        uint64_t firstNotRTP = 0;
        std::optional<uint64_t> cut; ///< where begins what the end cuts: record, packet, row or payload
    };

    /// `width` is that of a v210 capture's rows: luma and chroma are searched, of SD (720) every sample.
    /// An RTP capture is one payload, or payloads each behind its length in 16 bits, high byte first
    /// (RFC 4571).
    Capture(const std::string &path, KIVCS2CaptionCarrier form, uint32_t width);

    /// The next packet, possibly with faults; false at the end.
    [[nodiscard]] bool next(CapturedPacket &found);

    /// Called with every block that was read.
    std::function<void()> onProgress;

    [[nodiscard]] const Input &input() const
    {
        return m_input;
    }
    [[nodiscard]] const Damage &damage() const
    {
        return m_damage;
    }

private:
    bool nextInStream(CapturedPacket &found);
    bool nextInPart(CapturedPacket &found);
    bool grow();
    [[nodiscard]] bool hasBegun() const;
    bool readPart();
    bool readRow();
    bool readPayload();
    size_t read(size_t size);
    void put(CapturedPacket &found) const;

    Input m_input;
    std::array<KIVCS2CaptionCarrier, 2> m_forms; ///< which a part is searched for in turn
    size_t m_formCount = 1, m_form = 0;
    size_t m_rowBytes = 0; ///< v210
    bool m_isRTP = false;
    std::vector<uint8_t> m_bytes; ///< a block of the stream, a row, or a payload
    uint64_t m_begin = 0;         ///< of `m_bytes` in the capture
    uint64_t m_at = 0;            ///< in `m_bytes`: searched up to here
    uint64_t m_row = 0;
    bool m_isOpen = false; ///< a part is there
    bool m_isAlone = false;
    bool m_isCut = false; ///< a packet at the end is
    Damage m_damage;
};

/// The captions of a capture. Time comes from the CDPs' time codes, and counts on from frame 0 without them.
/// A CDP is a frame. From the first CDP on, packets of one pair (61/02) are passed over: they repeat the
/// CDPs'.
class CaptureDecoder
{
public:
    /// `onText` gets the counting of the first CDP; 29.97 drop-frame before one.
    using OnText = std::function<void(const KIVCS2CaptionText &, KIVCS2CaptionCounting)>;

    CaptureDecoder(KIVCS2CaptionServices services, OnText onText);

    void take(const KIVCS2CaptionPacket &packet);
    void finish();

private:
    void begin(const KIVCS2CaptionPacket &packet);
    [[nodiscard]] std::optional<uint32_t> timeOf(const KIVCS2CaptionPacket &packet) const;
    [[nodiscard]] uint32_t frameOf(const KIVCS2CaptionPacket &packet);

    KIVCS2CaptionServices m_services;
    OnText m_onText;
    std::optional<CaptionDecoder> m_decoder;
    KIVCS2CaptionCounting m_counting = KIVCS2CaptionCounting_29_97DF;
    bool m_hasCDP = false;
    std::optional<uint32_t> m_frame;  ///< of the packet before
    std::array<bool, 2> m_hasField{}; ///< of the frame, 61/02
};

} // namespace tool

#endif
