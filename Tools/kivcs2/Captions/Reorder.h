// Packets of a stream, put into the order of their sequence numbers.
#ifndef KIV_TOOL_CAPTION_REORDER_H
#define KIV_TOOL_CAPTION_REORDER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace tool
{

/// A window of packets by extended sequence number (RFC 8331). A packet waits for those before it until the
/// window is full; then the missing packets are given up as lost. Sequence numbers wrap at 2^32, or at 2^16
/// if a sender does not use the high bits.
///
/// Numbers far from the current ones, or of another source, count only if a second packet follows (RFC 3550,
/// appendix A.1), so that one stray packet has no effect. Then they are a long gap or, if they go backwards
/// or further than `kMostLost`, a restart of the sender.
class Reorder
{
public:
    static constexpr uint32_t kMostLost = uint32_t{1} << 23; ///< 38 hours at 60 packets a second

    /// Each packet taken is in one of passed, doubled, late and strays, or still in the window.
    struct Counts
    {
        uint64_t taken = 0;
        uint64_t passed = 0;
        uint64_t lost = 0;      ///< numbers that were given up
        uint64_t gaps = 0;      ///< runs of lost numbers
        uint64_t doubled = 0;   ///< packets whose number had already come
        uint64_t late = 0;      ///< numbers that had been given up, or before the first
        uint64_t reordered = 0; ///< packets passed after a higher number had come
        uint64_t strays = 0;    ///< packets of another source or far away, never followed by a second
        uint64_t restarts = 0;  ///< restarts of the sender
    };
    struct Passed
    {
        std::span<const uint8_t> bytes;
        uint64_t lostBefore = 0; ///< numbers missing between the packet passed before and this one
        bool restarted = false;  ///< the first packet after a restart of the sender
    };
    using OnPacket = std::function<void(const Passed &)>;

    /// `window` is a number of packets, at least 1.
    Reorder(uint32_t window, OnPacket onPacket);

    void take(uint32_t source, uint32_t sequence, std::span<const uint8_t> bytes);

    /// Passes the waiting packets. Packets of their gaps that come later are late.
    void flush();

    [[nodiscard]] const Counts &counts() const
    {
        return m_counts;
    }

private:
    struct Slot
    {
        bool isFilled = false;
        std::vector<uint8_t> bytes;
    };
    struct Candidate
    {
        uint32_t source, sequence;
        std::vector<uint8_t> bytes;
    };

    void begin(uint32_t source, uint32_t sequence);
    [[nodiscard]] uint32_t numberOf(uint32_t sequence);
    [[nodiscard]] bool isNear(uint32_t number) const;
    void accept(uint32_t number, std::span<const uint8_t> bytes);
    void takeOld(uint32_t number);
    void propose(uint32_t source, uint32_t sequence, std::span<const uint8_t> bytes);
    void moveTo(uint32_t source, uint32_t sequence);
    void restart(uint32_t source, uint32_t sequence);
    void advance();
    void giveUp(uint64_t count);
    void forgetCandidate();

    OnPacket m_onPacket;
    std::vector<Slot> m_slots; ///< a ring, m_next at m_head
    int64_t m_reach;           ///< numbers up to this far ahead count at once
    std::vector<bool> m_came;  ///< whether the numbers before m_next came, by their low bits
    size_t m_head = 0;
    bool m_isRunning = false;
    uint32_t m_source = 0;
    uint32_t m_next = 0;     ///< the number to pass next
    uint32_t m_highest = 0;  ///< the highest number that has come
    uint32_t m_offset = 0;   ///< number minus the sender's sequence, for wraps at 2^16
    uint32_t m_highBits = 0; ///< high bits of the last sequence number
    uint32_t m_oldRun = 0;   ///< different packets before the window in a row
    uint32_t m_lastOld = 0;  ///< the number of the last of them
    uint64_t m_lostBefore = 0;
    bool m_hasRestarted = false;
    std::optional<Candidate> m_candidate;
    Counts m_counts;
};

} // namespace tool

#endif
