// Internal calls of the sensors.
#include "Private/Sensors/Calls.h"

#include "OpenSMC.h"
#include "RequiredPointers.h"
#include "ScriptedSMC.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace
{
using Open = kiv::test::OpenSMC;
using kiv::test::ScriptedSMC;
} // namespace

TEST(SMCCalls, AKeyIsReadWithItsTypeAndAllItsBytes)
{
    ScriptedSMC controller{{{"BATP", "flag", {1, 2, 3}}}};
    Open open;
    KIVCS2SMCKeyValue value;
    std::memset(&value, 0xee, sizeof value);
    ASSERT_EQ(kivCS2SMCPrv_readKey(&open.smc, "BATP", &value), KIVCS2STATUS_OK);
    EXPECT_STREQ(value.m_key, "BATP");
    EXPECT_STREQ(value.m_dataType, "flag");
    EXPECT_EQ(value.m_dataSize, 3u);
    EXPECT_EQ(controller.lastCall().dataSize, 3u);
    EXPECT_EQ(value.m_data[2], 3);
    EXPECT_TRUE(
        std::all_of(value.m_data + 3, std::end(value.m_data), [](uint8_t byte) { return byte == 0; }));
}

TEST(SMCCalls, WhatIsNotThereLeavesAnEmptyValue)
{
    ScriptedSMC controller{{{"F10A", "fpe2", {1, 2}}}};
    Open open;
    for (const char *name : {"BATP", "F10Ac", "F10", ""})
    {
        SCOPED_TRACE(name);
        KIVCS2SMCKeyValue value;
        std::memset(&value, 0xee, sizeof value);
        EXPECT_EQ(kivCS2SMCPrv_readKey(&open.smc, name, &value), KIVCS2STATUS_NOT_FOUND_ERR);
        EXPECT_STREQ(value.m_key, "");
        EXPECT_EQ(value.m_dataSize, 0u);
    }
}

TEST(SMCCalls, BeforeThereIsAListEveryKeyCounts)
{
    KIVCS2SMC closed{};
    EXPECT_EQ(kivCS2SMCPrv_hasKey(&closed, ScriptedSMC::pack("BATP")), KIVCS2STATUS_OK);
    KIVCS2SMCKeyValue value;
    EXPECT_EQ(kivCS2SMCPrv_readKey(&closed, "BATP", &value), KIVCS2STATUS_DATA_ERR); // no connection
    ScriptedSMC controller{{{"TC0c", "sp78", {1, 2}}}};
    Open open;
    EXPECT_EQ(kivCS2SMCPrv_hasKey(&open.smc, ScriptedSMC::pack("TC0c")), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2SMCPrv_hasKey(&open.smc, ScriptedSMC::pack("BATP")), KIVCS2STATUS_NOT_FOUND_ERR);
}

TEST(SMCCalls, ATemperatureHasItsType)
{
    ScriptedSMC controller{{{"TC0c", "sp78", {0x2a, 0x80}},
                            {"TC1c", "fpe2", {1, 2}},
                            {"TC2c", "sp78", {}},
                            {"TC3c", "sp7", {1, 2}}}};
    Open open;
    double degrees = 77;
    for (const char *name : {"TC1c", "TC2c", "TC3c"})
        EXPECT_EQ(kivCS2SMCPrv_getTemperature(&open.smc, name, &degrees), KIVCS2STATUS_STATE_ERR);
    EXPECT_EQ(kivCS2SMCPrv_getTemperature(&open.smc, "TC4c", &degrees), KIVCS2STATUS_NOT_FOUND_ERR);
    EXPECT_EQ(degrees, 77);
    EXPECT_EQ(kivCS2SMCPrv_getTemperature(&open.smc, "TC0c", &degrees), KIVCS2STATUS_OK);
    EXPECT_EQ(degrees, 41.5);
}

TEST(SMCCalls, ArgumentsAreChecked)
{
    KIV_REQUIRES_EACH(kivCS2SMCPrv_call, "pSMC, pInputStructure, pOutputStructure");
    KIV_REQUIRES_EACH(kivCS2SMCPrv_hasKey, "pSMC");
    KIV_REQUIRES_EACH(kivCS2SMCPrv_readKey, "pSMC, pKeyName, pVal");
    KIV_REQUIRES_EACH(kivCS2SMCPrv_getTemperature, "pSMC, pKeyName, pTemperature");
}
