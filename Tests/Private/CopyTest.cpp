// The copies of every vector level: all bytes arrive, and no byte around them changes.
#include "Private/Support/Copy.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace
{
constexpr size_t kGuard = 96; // more than a vector
constexpr uint8_t kUntouched = 0xEE;

// Copies from `sourceAt` bytes after the start of a cache line to `targetAt` bytes after another.
testing::AssertionResult copies(kiv::CpuLevel level, size_t count, size_t sourceAt, size_t targetAt)
{
    std::vector<uint8_t> source(sourceAt + count);
    std::iota(source.begin(), source.end(), uint8_t{1});
    std::vector<uint8_t> target(kGuard + targetAt + count + kGuard, kUntouched);
    uint8_t *const at = target.data() + kGuard + targetAt;
    kiv::copyBytes(level, at, source.data() + sourceAt, count);

    const bool same = std::equal(at, at + count, source.data() + sourceAt);
    const auto untouched = [](uint8_t byte) { return byte == kUntouched; };
    if (same && std::all_of(target.data(), at, untouched) &&
        std::all_of(at + count, target.data() + target.size(), untouched))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << count << " bytes, source at " << sourceAt << ", target at "
                                       << targetAt << (same ? ": beside it" : ": not the same");
}

TEST(Copy, EveryLevelCopiesAllAndNothingBesides)
{
    std::vector<size_t> counts(700);
    std::iota(counts.begin(), counts.end(), size_t{0});
    for (const size_t bound : {4u << 10, 6u << 10, 16u << 10, 32u << 10, 128u << 10})
        for (const size_t count : {bound - 1, bound + 0, bound + 1})
            counts.push_back(count);
    for (int level = 0; level <= static_cast<int>(kiv::cpuLevel()); ++level)
    {
        SCOPED_TRACE(testing::Message() << "level " << level);
        for (const size_t count : counts)
            for (const size_t at : {0, 1, 16, 63})
                ASSERT_TRUE(copies(static_cast<kiv::CpuLevel>(level), count, 5, at));
    }
}
} // namespace
