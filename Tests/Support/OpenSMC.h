// A record of the sensors that is open during its lifetime and must leave nothing.
#ifndef KIV_TEST_OPEN_SMC_H
#define KIV_TEST_OPEN_SMC_H

#include <KIVCoreServices2/KIVCS2SMC.h>
#include <KIVPlatform/KIVPAppleSMC.h>

#include <gtest/gtest.h>

namespace kiv::test
{
struct OpenSMC
{
    KIVCS2SMC smc{};

    OpenSMC()
    {
        EXPECT_EQ(kivCS2SMC_init(&smc), KIVCS2STATUS_OK);
    }
    OpenSMC(const OpenSMC &) = delete;
    OpenSMC &operator=(const OpenSMC &) = delete;
    ~OpenSMC()
    {
        EXPECT_EQ(kivCS2SMC_free(&smc), KIVCS2STATUS_OK);
        EXPECT_TRUE(smc.m_connection == 0 && smc.m_keyCount == 0 && !smc.m_keys && !smc.m_cpuTempSet);
        EXPECT_EQ(KIVPCountIOObjects(), 0u);
    }
};
} // namespace kiv::test

#endif
