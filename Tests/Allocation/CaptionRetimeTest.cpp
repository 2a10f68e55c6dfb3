// A retimer allocates when it is made and when a queue grows; each of these allocations may fail. What is
// refused for want of room is taken the next time.
#include "FailingAllocator.h"

#include <KIVCoreServices2/KIVCS2CaptionRetime.h>

#include <gtest/gtest.h>

#include <cstring>

namespace
{
using namespace kiv::test;

KIVCS2Status onPacket(const KIVCS2CaptionPacket *, void *)
{
    return KIVCS2STATUS_OK;
}

TEST(CaptionRetime, EveryAllocationMayFailAndNothingIsLost)
{
    KIVCS2CaptionPacket packet{};
    for (packet.m_tripletCount = 0; packet.m_tripletCount < 30; ++packet.m_tripletCount)
        std::memcpy(packet.m_triplets[packet.m_tripletCount],
                    "\xFC!!\xFD!!\xFE!!" + packet.m_tripletCount % 3 * 3, 3);
    const KIVCS2CaptionRetimeOptions options{
        KIVCS2CaptionCounting_25, KIVCS2CaptionCounting_50, 0, 0, 0, 0, {}};
    size_t failures = 0;
    forEachAllocation(
        [&](size_t)
        {
            KIVCS2CaptionRetime retime;
            KIVCS2Status status = kivCS2CaptionRetime_init(&retime, &options, onPacket, nullptr);
            failures += status == KIVCS2STATUS_MEMORY_ERR ? 1 : 0;
            for (int index = 0; index < 30 && KIVCS2_SUCCEEDED(status); ++index)
                if (status = kivCS2CaptionRetime_feed(&retime, &packet); status == KIVCS2STATUS_MEMORY_ERR)
                {
                    ++failures;
                    allowAllocations();
                    status = kivCS2CaptionRetime_feed(&retime, &packet);
                }
            KIVCS2CaptionRetimeReport report{};
            if (retime.m_state != nullptr)
            {
                EXPECT_EQ(kivCS2CaptionRetime_finish(&retime, &report), KIVCS2STATUS_OK);
                EXPECT_TRUE(report.m_pairsOut[0] == 300 && report.m_pairsOut[1] == 300 &&
                            report.m_bytesOut == 600);
            }
            EXPECT_EQ(kivCS2CaptionRetime_free(&retime), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(failures, 1u + 3 * 3); // the record, and three queues that grow twice
}
} // namespace
