// A caption file's packets at another rate, under another numbering, or a part of them.
#ifndef KIV_TOOL_CAPTION_RETIMING_H
#define KIV_TOOL_CAPTION_RETIMING_H

#include "Captions/OpenCaptions.h"
#include "Captions/Tally.h"
#include "Terminal/Output.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <array>
#include <deque>
#include <exception>
#include <functional>
#include <string>

namespace tool
{

/// The arguments for the time of the result.
struct RetimeArguments
{
    std::string toRate;     ///< the same moments at this rate
    std::string toCounting; ///< the same frame numbers in this counting
    std::string from, until;
    std::string offset; ///< frames of the result, with a sign
    bool startsAtZero = false;

    [[nodiscard]] bool isAsked() const
    {
        return !toRate.empty() || !toCounting.empty() || !from.empty() || !until.empty() || !offset.empty() ||
               startsAtZero;
    }
};

/// Adds --to-rate, --to-counting, --from, --until, --offset and --start-at-zero.
void addRetimeOptions(Word &word, RetimeArguments &arguments);

/// Returns the counting of the result.
[[nodiscard]] KIVCS2CaptionCounting retimedCounting(const RetimeArguments &arguments,
                                                    const CaptionSource &source);

/// The library's retimer, with a check of every pair. Call take() for every packet, then finish().
class Retiming
{
public:
    using OnPacket = std::function<void(const KIVCS2CaptionPacket &)>;

    /// `onPacket` gets every packet of the result, with its frame since midnight. With `keepGoing` packets
    /// without a place in the result are left out; otherwise they are a failure.
    Retiming(const CaptionSource &source, const RetimeArguments &arguments, bool keepGoing,
             OnPacket onPacket);
    ~Retiming();
    Retiming(const Retiming &) = delete;
    Retiming &operator=(const Retiming &) = delete;

    /// Returns true if the packet goes into the result.
    bool take(const KIVCS2CaptionPacket &packet);

    /// Sends the waiting captions. Throws unless every pair came out in order and within the reported wait.
    void finish();

    /// `in` is the tally of the source's packets that were taken, `out` that of the result's packets. Throws
    /// unless they show the same texts.
    void compare(const Tally &in, const Tally &out) const;

    void tell(Facts &facts, Json &value) const;

private:
    struct Pair
    {
        int64_t frame; ///< the frame of the result on which it is due
        std::array<uint8_t, 2> bytes;
    };

    static KIVCS2Status takeResult(const KIVCS2CaptionPacket *packet, void *context) noexcept;
    void begin(const KIVCS2CaptionPacket &first);
    [[nodiscard]] int64_t due(uint64_t frame) const;
    void expect(const KIVCS2CaptionPacket &packet, uint64_t frame);
    bool refuse(KIVCS2Status status, const KIVCS2CaptionPacket &packet, uint64_t frame);
    void follow(const KIVCS2CaptionPacket &packet);
    [[nodiscard]] std::string waitText() const;

    const CaptionSource &m_source;
    const RetimeArguments &m_arguments;
    bool m_keepGoing, m_isSameFrames;
    bool m_hasLast; ///< --until is given
    OnPacket m_onPacket;
    std::exception_ptr m_thrown;
    KIVCS2CaptionRetimeOptions m_options{};
    KIVCS2CaptionCountingInfo m_from{}, m_to{};
    KIVCS2CaptionRetime m_retime{};
    KIVCS2CaptionRetimeReport m_report{};
    int32_t m_offset = 0; ///< from the command line
    bool m_isBegun = false;
    uint64_t m_day = 0;   ///< frames of the source before its last midnight
    uint32_t m_frame = 0; ///< frame of the packet before
    std::array<std::deque<Pair>, 2> m_due;
    std::array<size_t, 2> m_added{}; ///< pairs of the packet before
    std::array<int64_t, 2> m_latest{}, m_earliest{};
};

} // namespace tool

#endif
