// A retimer allocates when it is made and when a queue grows; each of these may fail, and what is refused
// for want of room is taken the next time.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <gtest/gtest.h>

namespace
{
using namespace kiv::test;

TEST(CaptionRetime, EveryAllocationMayFailAndNothingIsLost)
{
    KIVCS2CaptionPacket packet{};
    for (uint8_t index = 0; index < 30; ++index)
        packet.m_triplets[index][0] = 0xFC + index % 3, packet.m_triplets[index][1] = 'a';
    packet.m_tripletCount = 30;
    const KIVCS2CaptionRetimeOptions options{4, 7, 0, 0, 0, 0, {}};
    const auto onPacket = [](const KIVCS2CaptionPacket *, void *) { return KIVCS2Status{KIVCS2STATUS_OK}; };
    size_t failures = 0;
    forEachAllocation(
        [&](size_t)
        {
            KIVCS2CaptionRetime retime;
            KIVCS2Status status = kivCS2CaptionRetime_init(&retime, &options, onPacket, nullptr);
            KIVCS2CaptionRetimeReport report{};
            failures += status == KIVCS2STATUS_MEMORY_ERR ? 1 : 0;
            for (size_t fed = 0; KIVCS2_SUCCEEDED(status) && fed < 30;)
                ++(kivCS2CaptionRetime_feed(&retime, &packet) == KIVCS2STATUS_OK ? fed : failures);
            status = KIVCS2_SUCCEEDED(status) ? kivCS2CaptionRetime_finish(&retime, &report) : status;
            EXPECT_EQ(report.m_pairsOut[0] + report.m_bytesOut, KIVCS2_SUCCEEDED(status) ? 900u : 0u);
            EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(failures, 1u + 3 * 3); // the record, and three queues that are made and grow twice
}
} // namespace
