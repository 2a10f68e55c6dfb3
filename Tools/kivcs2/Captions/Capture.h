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
    uint64_t offset = 0; ///< position in the capture
    uint64_t row = 0;    ///< v210: from 1
};

/// A capture to be read. At most a megabyte of it is in memory.
class Capture
{
public:
    /// Damage of the capture itself, not of a packet in it.
    struct Damage
    {
        uint64_t notRTP = 0; ///< payloads of another version than 2
        uint64_t firstNotRTP = 0;
        std::optional<uint64_t> cut; ///< start of the record, packet, row or payload that the end cuts
    };

    /// `width` is that of a v210 capture's rows: luma and chroma are searched, in SD (720) every sample.
    /// An RTP capture is one payload, or several, each after its length in 16 bits, high byte first
    /// (RFC 4571).
    Capture(const std::string &path, KIVCS2CaptionCarrier form, uint32_t width);

    /// Finds the next packet, possibly with faults; returns false at the end.
    [[nodiscard]] bool next(CapturedPacket &found);

    /// Called after each block is read.
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
    std::array<KIVCS2CaptionCarrier, 2> m_forms; ///< a part is searched for each of these forms
    size_t m_formCount = 1, m_form = 0;
    size_t m_rowBytes = 0; ///< v210
    bool m_isRTP = false;
    std::vector<uint8_t> m_bytes; ///< a block of the stream, a row, or a payload
    uint64_t m_begin = 0;         ///< offset of `m_bytes` in the capture
    uint64_t m_at = 0;            ///< `m_bytes` is searched up to here
    uint64_t m_row = 0;
    bool m_isOpen = false; ///< a part is loaded
    bool m_isAlone = false;
    bool m_isCut = false; ///< the last packet is cut by the end
    Damage m_damage;
};

/// The captions of a capture. Time comes from the CDPs' time codes; without them time counts from frame 0.
/// Each CDP is a frame. From the first CDP on, packets of one pair (61/02) are ignored: they repeat the
/// CDPs' pairs.
class CaptureDecoder
{
public:
    /// `onText` gets the counting of the first CDP; before a CDP, 29.97 drop-frame.
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
    std::optional<uint32_t> m_frame;  ///< frame of the packet before
    std::array<bool, 2> m_hasField{}; ///< fields that the frame has from 61/02 packets
};

} // namespace tool

#endif
