// What is in the packets of a caption file: counted, decoded, and summed up for a comparison.
#ifndef KIV_TOOL_CAPTION_TALLY_H
#define KIV_TOOL_CAPTION_TALLY_H

#include "Terminal/JSON.h"

#include <KIVCoreServices2/KIVCS2CaptionDecoder.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace tool
{

/// A running CRC-32.
class Digest
{
public:
    void add(std::span<const uint8_t> bytes);
    void add(std::span<const uint32_t> numbers);

    /// One pair on its frame.
    void add(uint32_t frame, uint32_t field, const uint8_t (&pair)[2]);

    /// The bytes of a packet with its frame and suffixes.
    void add(const KIVCS2CaptionPacket &packet);

    [[nodiscard]] bool operator==(const Digest &other) const = default;

private:
    uint32_t m_value = 0xFFFFFFFFu;
};

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

class Tally
{
public:
    using OnText = std::function<void(const KIVCS2CaptionText &)>;

    /// `onText` is called with every caption; what it throws comes out of take() and finish().
    explicit Tally(KIVCS2CaptionCounting counting, OnText onText = {});
    ~Tally();
    Tally(const Tally &) = delete;
    Tally &operator=(const Tally &) = delete;

    void take(const KIVCS2CaptionPacket &packet);
    void finish();

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
    static KIVCS2Status takeText(const KIVCS2CaptionText *text, void *context) noexcept;
    void done(KIVCS2Status status);

    KIVCS2CaptionDecoder m_decoder{};
    uint32_t m_perDay = 0;
    uint64_t m_line = 0;
    OnText m_onText;
    std::exception_ptr m_thrown;
};

} // namespace tool

#endif
