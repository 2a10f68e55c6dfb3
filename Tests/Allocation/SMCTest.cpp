// Every allocation of opening and closing a controller, failed once in turn.
#include "KIVCS2SMC.h"

#include "FailingAllocator.h"
#include "TemporaryFolder.h"

#include <KIVPlatform/KIVPAppleSMC.h>

#include <gtest/gtest.h>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::forEachAllocation;
} // namespace

TEST(SMCAllocation, OpeningTheDriverFailsWhole)
{
    const kiv::test::TemporaryFolder folder;
    folder.write("key_count", "1\n");
    folder.write("key_at_index", "0\n");
    folder.write("key_at_index_name", "FNum\n");
    const std::string path = folder.path("");
    KIVPSetSMCFolder(path.c_str(), nullptr);
    testing::internal::CaptureStderr();
    // All but the list are allocated by the system, whose answer is then a device that is not found.
    const size_t allocations = forEachAllocation(
        [](size_t)
        {
            KIVCS2SMC smc{};
            const KIVCS2Status status = kivCS2SMC_init(&smc);
            EXPECT_EQ(KIVCS2_FAILED(status), allocationFailed());
            EXPECT_TRUE(!allocationFailed() || status == KIVCS2STATUS_NOT_FOUND_ERR ||
                        (status == KIVCS2STATUS_MEMORY_ERR && smc.m_connection != 0));
            EXPECT_EQ(kivCS2SMC_free(&smc), KIVCS2STATUS_OK);
            EXPECT_EQ(KIVPCountIOObjects(), 0u);
        });
    (void)testing::internal::GetCapturedStderr(); // the messages of each failure
    EXPECT_EQ(allocations, 12u);
    KIVPSetSMCFolder(nullptr, nullptr);
}
