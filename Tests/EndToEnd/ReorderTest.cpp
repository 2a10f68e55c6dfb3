// The window that puts the packets of a stream in order, and their time.
#include "Captions/Reorder.h"
#include "Captions/StreamTime.h"

#include <gtest/gtest.h>

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
    constexpr uint32_t kMax = UINT32_MAX, kFar = Reorder::kMostLost + 3;
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
        {"doubled in each place", {{1}, {1}, {3}, {3}, {2}, {2}}, "1 2 3", {0, 0, 3, 0, 1, 0, 0}},
        {"one lost", {{1}, {3}, {4}, {5}, {6}}, "1 !1 3 4 5 6", {1, 1, 0, 0, 0, 0, 0}},
        {"lost at the end of the window", {{1}, {3}, {4}}, "1 !1 3 4", {1, 1, 0, 0, 0, 0, 0}},
        {"two gaps", {{1}, {3}, {6}, {7}, {8}, {9}}, "1 !1 3 !2 6 7 8 9", {3, 2, 0, 0, 0, 0, 0}},
        {"late, and again", {{1}, {3}, {4}, {5}, {6}, {2}, {2}}, "1 !1 3 4 5 6", {1, 1, 1, 1, 0, 0, 0}},
        {"before the first", {{5}, {4}, {6}}, "5 6", {0, 0, 0, 1, 0, 0, 0}},
        {"wrap", {{kMax - 1}, {0}, {kMax}, {2}, {1}}, "4294967294 4294967295 0 1 2", {0, 0, 0, 0, 2, 0, 0}},
        {"lost in it", {{kMax}, {2}, {3}, {4}, {5}, {6}}, "4294967295 !2 2 3 4 5 6", {2, 1, 0, 0, 0, 0, 0}},
        {"over 2^16", {{65535}, {65537}, {65536}}, "65535 65536 65537", {0, 0, 0, 0, 1, 0, 0}},
        {"no high bits", {{65534}, {65535}, {1}, {0}, {2}}, "65534 65535 0 1 2", {0, 0, 0, 0, 1, 0, 0}},
        {"swapped over such a wrap", {{65534}, {0}, {65535}, {1}}, "65534 65535 0 1", {0, 0, 0, 0, 1, 0, 0}},
        {"and two late", {{65535}, {0}, {3}, {1}, {2}, {4}, {5}}, "65535 0 1 2 3 4 5", {0, 0, 0, 0, 2, 0, 0}},
        {"a gap longer than the window", {{1}, {1000}, {1001}}, "1 !998 1000 1001", {998, 1, 0, 0, 0, 0, 0}},
        {"its end swapped", {{1}, {1001}, {1000}, {1002}}, "1 !998 1000 1001 1002", {998, 1, 0, 0, 1, 0, 0}},
        {"a gap, some waiting", {{1}, {3}, {1000}, {1001}}, "1 !1 3 !996 1000 1001", {997, 2, 0, 0, 0, 0, 0}},
        {"a stray number", {{1}, {70000}, {2}, {3}}, "1 2 3", {0, 0, 0, 0, 0, 1, 0}},
        {"strays that do not follow each other", {{1}, {70000}, {90000}, {2}}, "1 2", {0, 0, 0, 0, 0, 2, 0}},
        {"a second sender", {{1}, {500, 2}, {2}, {501, 2}, {3}}, "1 2 3", {0, 0, 0, 0, 0, 2, 0}},
        {"another sender takes over", {{1}, {3}, {9, 2}, {10, 2}}, "1 !1 3 R 9 10", {1, 1, 0, 0, 0, 0, 1}},
        {"begins anew", {{9000}, {9001}, {5}, {5}, {6}, {7}}, "9000 9001 R 5 6 7", {0, 0, 1, 0, 0, 0, 1}},
        {"old ones",
         {{100}, {101}, {90}, {91}, {92}, {93}, {94}, {95}},
         "100 101 R 95",
         {0, 0, 0, 5, 0, 0, 1}},
        {"one packet from a loop", {{1}, {2}, {2}, {2}, {2}, {2}, {2}, {3}}, "1 2 3", {0, 0, 5, 0, 0, 0, 0}},
        {"too far for a gap", {{1}, {kFar}, {kFar + 1}}, "1 R 8388611 8388612", {0, 0, 0, 0, 0, 0, 1}},
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

// The clock of a damaged sender may jump by as much as its 32 bits hold with each packet.
TEST(StreamTime, AJumpingClockStaysWithinItsDay)
{
    tool::StreamTime time{KIVCS2CaptionCounting_59_94DF};
    for (uint32_t packet = 0; packet < 80'000; ++packet)
        time.take(packet * 0x7FFFFFFFu, {}, false);
    EXPECT_EQ(time.frame(), 1031016u);
}
} // namespace
