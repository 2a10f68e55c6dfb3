// Packets of a stream, put into the order of their sequence numbers.
#include "Captions/Reorder.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

namespace tool
{
namespace
{

constexpr size_t kLeastHistory = 1024;
constexpr uint32_t kLeastReach = 64; // for a small window too: two losses in a row are not a new sender

// Returns the distance from `from` to `to`, across the wrap.
int32_t distance(uint32_t from, uint32_t to)
{
    return static_cast<int32_t>(to - from);
}

} // namespace

Reorder::Reorder(uint32_t window, OnPacket onPacket)
    : m_onPacket(std::move(onPacket)), m_slots(std::max(window, 1u)), m_reach(std::max(window, kLeastReach)),
      m_came(std::bit_ceil(std::max(kLeastHistory, 2 * m_slots.size())))
{
}

void Reorder::begin(uint32_t source, uint32_t sequence)
{
    m_isRunning = true;
    m_source = source;
    m_next = sequence;
    m_highest = sequence - 1;
    m_offset = 0;
    m_highBits = sequence >> 16;
    m_oldRun = 0;
    m_came.assign(m_came.size(), false);
}

void Reorder::take(uint32_t source, uint32_t sequence, std::span<const uint8_t> bytes)
{
    ++m_counts.taken;
    if (!m_isRunning)
        begin(source, sequence);
    const uint32_t number = source == m_source ? numberOf(sequence) : 0;
    if (source != m_source || !isNear(number))
        return propose(source, sequence, bytes);
    if (distance(m_next, number) >= 0)
        forgetCandidate();
    m_highBits = sequence >> 16;
    accept(number, bytes);
    // After many packets in a row before the window, the sender has gone back a little. The distance to the
    // number says nothing here, because the high bits may have stood still.
    if (m_oldRun > m_slots.size())
    {
        restart(source, sequence + 1);
        forgetCandidate();
    }
}

// Returns the number of a sequence. If the sender's high bits do not change, its low bits continue the
// number.
uint32_t Reorder::numberOf(uint32_t sequence)
{
    const uint32_t number = sequence + m_offset;
    const auto low = static_cast<int16_t>(static_cast<uint16_t>(sequence - m_highest));
    if (isNear(number) || sequence >> 16 != m_highBits || std::abs(int64_t{low}) > m_reach)
        return number;
    const uint32_t continued = m_highest + static_cast<uint32_t>(int32_t{low});
    if (low > 0)
        m_offset = continued - sequence;
    return continued;
}

bool Reorder::isNear(uint32_t number) const
{
    const int64_t from = distance(m_highest, number);
    return from <= m_reach && from > -static_cast<int64_t>(m_came.size() / 2);
}

void Reorder::accept(uint32_t number, std::span<const uint8_t> bytes)
{
    if (distance(m_next, number) < 0)
        return takeOld(number);
    m_oldRun = 0;
    while (number - m_next >= m_slots.size())
        advance();
    Slot &slot = m_slots[(m_head + (number - m_next)) % m_slots.size()];
    if (slot.isFilled)
    {
        ++m_counts.doubled;
        return;
    }
    slot.isFilled = true;
    slot.bytes.assign(bytes.begin(), bytes.end());
    if (distance(m_highest, number) > 0)
        m_highest = number;
    else
        ++m_counts.reordered;
    while (m_slots[m_head].isFilled)
        advance();
}

void Reorder::takeOld(uint32_t number)
{
    const size_t place = number & (m_came.size() - 1);
    ++(m_came[place] ? m_counts.doubled : m_counts.late);
    m_came[place] = true;
    // The numbers of a sender that goes back rise again; those of a packet that a network repeats do not.
    m_oldRun += std::exchange(m_lastOld, number) != number ? 1 : 0;
}

// Passes the next packet, or gives it up if it has not come.
void Reorder::advance()
{
    Slot &slot = m_slots[m_head];
    const bool came = std::exchange(slot.isFilled, false);
    m_came[m_next & (m_came.size() - 1)] = came;
    m_head = (m_head + 1) % m_slots.size();
    ++m_next;
    if (!came)
        return giveUp(1);
    ++m_counts.passed;
    m_onPacket({slot.bytes, std::exchange(m_lostBefore, 0), std::exchange(m_hasRestarted, false)});
}

void Reorder::giveUp(uint64_t count)
{
    m_counts.gaps += m_lostBefore == 0 ? 1 : 0;
    m_counts.lost += count;
    m_lostBefore += count;
}

void Reorder::propose(uint32_t source, uint32_t sequence, std::span<const uint8_t> bytes)
{
    const int64_t from =
        m_candidate && m_candidate->source == source ? distance(m_candidate->sequence, sequence) : INT64_MAX;
    if (from == 0)
    {
        ++m_counts.doubled;
        return;
    }
    if (std::abs(from) > m_reach)
    {
        forgetCandidate();
        m_candidate = {source, sequence, {bytes.begin(), bytes.end()}};
        return;
    }
    const Candidate first = *std::exchange(m_candidate, std::nullopt);
    moveTo(source, from > 0 ? first.sequence : sequence);
    m_highBits = sequence >> 16;
    accept(first.sequence + m_offset, first.bytes);
    accept(sequence + m_offset, bytes);
}

// Continues at a number far away: after a gap, or after a restart of the sender.
void Reorder::moveTo(uint32_t source, uint32_t sequence)
{
    flush();
    const int64_t gap = distance(m_next, sequence + m_offset);
    if (source == m_source && gap > 0 && gap <= int64_t{kMostLost})
    {
        giveUp(static_cast<uint64_t>(gap));
        const uint32_t offset = m_offset;
        begin(source, sequence + m_offset);
        m_offset = offset;
        return;
    }
    restart(source, sequence);
}

void Reorder::restart(uint32_t source, uint32_t sequence)
{
    flush();
    ++m_counts.restarts;
    m_hasRestarted = true;
    m_lostBefore = 0;
    begin(source, sequence);
}

void Reorder::forgetCandidate()
{
    m_counts.strays += std::exchange(m_candidate, std::nullopt) ? 1 : 0;
}

void Reorder::flush()
{
    if (m_isRunning)
        while (distance(m_next, m_highest) >= 0)
            advance();
}

} // namespace tool
