// Any sequence numbers through the window of a stream: each packet passed has come, its number follows the
// one before and the lost ones, and the counts add up. Input: the window, the first number, then the steps.
#include "Captions/Reorder.h"

#include "Input.h"
#include "Require.h"

#include <cstring>
#include <utility>

namespace
{
struct Packet
{
    uint32_t source, sequence;
};

// A jump to a number around the bounds of a gap and of the wraps, or a few numbers on or back.
uint32_t stepOf(Input &input)
{
    constexpr uint32_t kJumps[] = {64, 1000, 0x8000, 0x10000, tool::Reorder::kMostLost, 0x80000000u};
    const auto code = input.take();
    if (code < std::size(kJumps) * 4)
        return (code % 2 != 0 ? 0 - kJumps[code / 4] : kJumps[code / 4]) + input.take() % 8;
    return code < 0xC0 ? 1 : code % 16 - 8u;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input{data, size};
    const auto window = input.take<uint16_t>() % 4096u + 1;
    Packet packet{1, input.take<uint32_t>()};
    uint64_t taken = 0, passed = 0, lost = 0, gaps = 0, restarts = 0;
    uint32_t before = 0;
    const auto check = [&](const tool::Reorder::Passed &out)
    {
        Packet came{};
        require(out.bytes.size() == sizeof came);
        std::memcpy(&came, out.bytes.data(), sizeof came);
        const auto expected = static_cast<uint16_t>(before + 1 + out.lostBefore); // high bits may stand still
        require(passed == 0 || out.restarted || static_cast<uint16_t>(came.sequence) == expected);
        before = came.sequence;
        ++passed;
        lost += out.lostBefore;
        gaps += out.lostBefore != 0 ? 1 : 0;
        restarts += out.restarted ? 1 : 0;
    };
    tool::Reorder order{window, check};
    for (; input.size > 0; ++taken)
    {
        packet.sequence += stepOf(input);
        packet.source ^= packet.sequence % 64 == 7 ? 1u : 0u;
        order.take(packet.source, packet.sequence,
                   {reinterpret_cast<const uint8_t *>(&packet), sizeof packet});
    }
    order.flush();
    const tool::Reorder::Counts &counts = order.counts();
    const uint64_t told = counts.passed + counts.doubled + counts.late + counts.strays;
    require(counts.taken == taken && counts.passed == passed);
    require(taken - told <= 1); // a number far away waits for a second one
    require(counts.restarts >= restarts && counts.lost >= lost && counts.gaps >= gaps);
    require(counts.restarts > 0 || (counts.lost == lost && counts.gaps == gaps));
    return 0;
}
