// The window that puts the packets of a stream in order.
#include "Captions/Reorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
using tool::Reorder;

struct Sent
{
    uint32_t sequence;
    uint32_t source = 1;
};

// Notes the packets that come out: "1 2 !2 5" for 1, 2, two lost, 5; "R" before the first of a new sender.
struct Stream
{
    std::string passed;
    Reorder order;

    explicit Stream(uint32_t window)
        : order{window, [this](const Reorder::Passed &one)
                {
                    passed += passed.empty() ? "" : " ";
                    if (one.restarted)
                        passed += "R ";
                    if (one.lostBefore > 0)
                        passed += "!" + std::to_string(one.lostBefore) + " ";
                    passed += std::string{one.bytes.begin(), one.bytes.end()};
                }}
    {
    }
    void take(const Sent &sent)
    {
        const std::string text = std::to_string(sent.sequence);
        order.take(sent.source, sent.sequence, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    }
};

TEST(Reorder, PutsPacketsInOrder)
{
    constexpr uint32_t kMax = UINT32_MAX;
    struct Row
    {
        const char *what;
        std::vector<Sent> sent;
        std::string passed;
        // lost, gaps, doubled, late, reordered, strays, restarts
        std::vector<uint64_t> counts;
    };
    const std::vector<Row> rows{
        {"in order", {{7}, {8}, {9}}, "7 8 9", {0, 0, 0, 0, 0, 0, 0}},
        {"swapped", {{1}, {3}, {2}, {4}}, "1 2 3 4", {0, 0, 0, 0, 1, 0, 0}},
        {"turned round within the window", {{1}, {5}, {4}, {3}, {2}}, "1 2 3 4 5", {0, 0, 0, 0, 3, 0, 0}},
        {"doubled, at once, waiting and passed",
         {{1}, {1}, {3}, {3}, {2}, {2}},
         "1 2 3",
         {0, 0, 3, 0, 1, 0, 0}},
        {"one lost", {{1}, {3}, {4}, {5}, {6}}, "1 !1 3 4 5 6", {1, 1, 0, 0, 0, 0, 0}},
        {"lost at the end of the window", {{1}, {3}, {4}}, "1 !1 3 4", {1, 1, 0, 0, 0, 0, 0}},
        {"two gaps", {{1}, {3}, {6}, {7}, {8}, {9}}, "1 !1 3 !2 6 7 8 9", {3, 2, 0, 0, 0, 0, 0}},
        {"late, and again", {{1}, {3}, {4}, {5}, {6}, {2}, {2}}, "1 !1 3 4 5 6", {1, 1, 1, 1, 0, 0, 0}},
        {"before the first", {{5}, {4}, {6}}, "5 6", {0, 0, 0, 1, 0, 0, 0}},
        {"wrap at 2^32",
         {{kMax - 1}, {0}, {kMax}, {2}, {1}},
         "4294967294 4294967295 0 1 2",
         {0, 0, 0, 0, 2, 0, 0}},
        {"lost over the wrap",
         {{kMax}, {2}, {3}, {4}, {5}, {6}},
         "4294967295 !2 2 3 4 5 6",
         {2, 1, 0, 0, 0, 0, 0}},
        {"extended sequence over 2^16",
         {{65535}, {65537}, {65536}},
         "65535 65536 65537",
         {0, 0, 0, 0, 1, 0, 0}},
        {"high bits that stand still",
         {{65534}, {65535}, {1}, {0}, {2}},
         "65534 65535 0 1 2",
         {0, 0, 0, 0, 1, 0, 0}},
        {"swapped over such a wrap", {{65534}, {0}, {65535}, {1}}, "65534 65535 0 1", {0, 0, 0, 0, 1, 0, 0}},
        {"such a wrap with two packets late in the window",
         {{65535}, {0}, {3}, {1}, {2}, {4}, {5}},
         "65535 0 1 2 3 4 5",
         {0, 0, 0, 0, 2, 0, 0}},
        {"a gap longer than the window", {{1}, {1000}, {1001}}, "1 !998 1000 1001", {998, 1, 0, 0, 0, 0, 0}},
        {"its end swapped", {{1}, {1001}, {1000}, {1002}}, "1 !998 1000 1001 1002", {998, 1, 0, 0, 1, 0, 0}},
        {"a long gap with packets waiting",
         {{1}, {3}, {1000}, {1001}},
         "1 !1 3 !996 1000 1001",
         {997, 2, 0, 0, 0, 0, 0}},
        {"a stray number", {{1}, {70000}, {2}, {3}}, "1 2 3", {0, 0, 0, 0, 0, 1, 0}},
        {"strays that do not follow each other", {{1}, {70000}, {90000}, {2}}, "1 2", {0, 0, 0, 0, 0, 2, 0}},
        {"a second sender among the packets",
         {{1}, {500, 2}, {2}, {501, 2}, {3}},
         "1 2 3",
         {0, 0, 0, 0, 0, 2, 0}},
        {"another sender takes over", {{1}, {3}, {9, 2}, {10, 2}}, "1 !1 3 R 9 10", {1, 1, 0, 0, 0, 0, 1}},
        {"the sender begins anew, far back",
         {{900000}, {900001}, {5}, {5}, {6}, {7}},
         "900000 900001 R 5 6 7",
         {0, 0, 1, 0, 0, 0, 1}},
        {"a little back: only after a window of old packets",
         {{100}, {101}, {90}, {91}, {92}, {93}, {94}, {95}},
         "100 101 R 95",
         {0, 0, 0, 5, 0, 0, 1}},
        {"forward too far for a gap",
         {{1}, {Reorder::kMostLost + 3}, {Reorder::kMostLost + 4}},
         "1 R 8388611 8388612",
         {0, 0, 0, 0, 0, 0, 1}},
    };
    for (const Row &row : rows)
    {
        SCOPED_TRACE(row.what);
        Stream run{4};
        for (const Sent &sent : row.sent)
            run.take(sent);
        run.order.flush();
        EXPECT_EQ(run.passed, row.passed);
        const Reorder::Counts &got = run.order.counts();
        EXPECT_EQ((std::vector<uint64_t>{got.lost, got.gaps, got.doubled, got.late, got.reordered, got.strays,
                                         got.restarts}),
                  row.counts);
        EXPECT_EQ(got.taken, row.sent.size());
    }
}

// 20,000 packets over a wrap, some of them lost, doubled and swapped: the counts are exact.
TEST(Reorder, CountsExactly)
{
    for (const uint32_t window : {1u, 2u, 3u, 64u, 1000u, 4096u})
        for (const uint32_t first : {0u, 65000u, UINT32_MAX - 9000})
        {
            SCOPED_TRACE(std::to_string(window) + " from " + std::to_string(first));
            std::mt19937 random{first + window};
            Stream run{window};
            uint64_t lost = 0, doubled = 0, swapped = 0;
            std::string expected;
            constexpr uint32_t kCount = 20000;
            for (uint32_t index = 0; index < kCount; ++index)
            {
                const bool isInside = index > 0 && index + 3 < kCount;
                const auto chance = isInside ? static_cast<uint32_t>(random() % 100) : 99u;
                if (chance == 0)
                {
                    ++lost;
                    expected += " !1";
                    run.take({first + ++index}); // gaps of one packet, whose text is simple
                }
                else if (chance == 1 && window > 1)
                {
                    run.take({first + index + 1});
                    run.take({first + index});
                    expected += " " + std::to_string(first + index++);
                    ++swapped;
                }
                else
                    run.take({first + index});
                if (chance == 2)
                {
                    run.take({first + index});
                    ++doubled;
                }
                expected += " " + std::to_string(first + index);
            }
            run.order.flush();
            EXPECT_TRUE(" " + run.passed == expected); // no message: the texts are long
            const Reorder::Counts &got = run.order.counts();
            EXPECT_EQ(got.lost, lost);
            EXPECT_EQ(got.gaps, lost);
            EXPECT_EQ(got.doubled, doubled);
            EXPECT_EQ(got.reordered, swapped);
            EXPECT_EQ(got.late + got.strays + got.restarts, 0u);
        }
}
} // namespace
