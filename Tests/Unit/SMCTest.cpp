// Sensors, read from a scripted controller: opening, keys, statuses of fans and processors, numbers.
#include <KIVCoreServices2/KIVCS2SMC.h>

#include "OpenSMC.h"
#include "RequiredPointers.h"
#include "ScriptedSMC.h"

#include <cstddef>

namespace
{
using Open = kiv::test::OpenSMC;
using kiv::test::ScriptedKey;
using kiv::test::ScriptedSMC;
using Bytes = std::vector<uint8_t>;
using Keys = std::vector<ScriptedKey>;

static_assert(sizeof(KIVCS2SMC) == 24 && offsetof(KIVCS2SMC, m_keyCount) == 4 &&
              offsetof(KIVCS2SMC, m_keys) == 8 && offsetof(KIVCS2SMC, m_cpuTempSet) == 16);
static_assert(sizeof(KIVCS2SMCFanStatus) == 28 && offsetof(KIVCS2SMCFanStatus, m_forced) == 4 &&
              offsetof(KIVCS2SMCFanStatus, m_actual) == 8 && offsetof(KIVCS2SMCFanStatus, m_target) == 24);
static_assert(sizeof(KIVCS2SMCCPUStatus) == 280 && offsetof(KIVCS2SMCCPUStatus, m_coreCount) == 12 &&
              offsetof(KIVCS2SMCCPUStatus, m_coreTemperatures) == 16 &&
              offsetof(KIVCS2SMCCPUStatus, m_MSAc) == 272);
static_assert(sizeof(KIVCS2SMCGPUStatus) == 40 && offsetof(KIVCS2SMCGPUStatus, m_MSTg) == 4 &&
              offsetof(KIVCS2SMCGPUStatus, m_MSAg) == 8 && offsetof(KIVCS2SMCGPUStatus, m_TG0P) == 32);

Keys named(const std::vector<std::string> &names)
{
    Keys keys;
    for (const std::string &name : names)
        keys.push_back({name, "sp78", {40, 0}});
    return keys;
}

// The status that `get` stores over a record of other bytes.
template <class Status>
Status ask(KIVCS2Status (*get)(KIVCS2SMC *, Status *), KIVCS2SMC &smc)
{
    Status status;
    std::memset(&status, 0xee, sizeof status);
    EXPECT_EQ(get(&smc, &status), KIVCS2STATUS_OK);
    return status;
}

KIVCS2SMCFanStatus fanStatus(KIVCS2SMC &smc, uint32_t fan)
{
    KIVCS2SMCFanStatus status;
    std::memset(&status, 0xee, sizeof status);
    EXPECT_EQ(kivCS2SMC_getFanStatus(&smc, fan, &status), KIVCS2STATUS_OK);
    return status;
}
} // namespace

TEST(SMCOpening, EachFailureHasItsStatusAndMessage)
{
    constexpr auto kFails = kIOReturnIOError;
    const std::string noAnswer = " failed with error " + std::to_string(kFails);
    const std::string noNumber = "kivCS2SMCPrv_readKey for number of key failed with error 80000004";
    using Row =
        std::tuple<void (*)(ScriptedSMC &), KIVCS2Status, std::string, bool>; // connected until `free`
    for (const auto &[arrange, status, message, connected] :
         {
             Row{[](auto &s) { s.answer(kFails, 0, 0); }, KIVCS2STATUS_CONNECT_ERR, "IOMasterPort" + noAnswer,
                 false},
             {[](auto &s) { s.answer(0, kFails, 0); }, KIVCS2STATUS_NOT_FOUND_ERR,
              "IOServiceGetMatchingServices" + noAnswer, false},
             {[](auto &) { KIVPSetSMCController(nullptr); }, KIVCS2STATUS_NOT_FOUND_ERR, "device not found",
              false},
             {[](auto &s) { s.answer(0, 0, kFails); }, KIVCS2STATUS_NOT_FOUND_ERR, "IOServiceOpen" + noAnswer,
              false},
             {[](auto &s) {
                  s.keys().push_back({"#KEY", "ui32", Bytes(4), 0, 9});
              },
              KIVCS2STATUS_DATA_ERR, noNumber, true},
             {[](auto &s) { s.claim(Bytes(33)); }, KIVCS2STATUS_DATA_ERR, noNumber, true},
             {[](auto &s) {
                  s.claim(Bytes{0, 0, 0, 4});
              },
              KIVCS2STATUS_DATA_ERR, "kivCS2SMCPrv_call for key 2 failed with error 80000004", true},
             {[](auto &s) { s.claim(Bytes(4, 0xff)); }, KIVCS2STATUS_MEMORY_ERR, "malloc failed", true},
         })
    {
        SCOPED_TRACE(message);
        ScriptedSMC controller{named({"TC0c", "TC1c"})};
        KIVPSetSMCFolder("/nonexistent", nullptr);
        arrange(controller);
        KIVCS2SMC smc;
        std::memset(&smc, 0xee, sizeof smc);
        testing::internal::CaptureStderr();
        EXPECT_EQ(kivCS2SMC_init(&smc), status);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "KIVSMC: " + message + "\n");
        EXPECT_EQ(smc.m_connection != 0, connected);
        EXPECT_EQ(smc.m_cpuTempSet, nullptr);

        // However much of the record is there, it can be read and freed.
        uint32_t count = 0;
        char name[KIVCS2_SMC_NAME_SIZE];
        EXPECT_EQ(kivCS2SMC_getNumberOfKeys(&smc, &count), KIVCS2STATUS_OK);
        for (uint32_t index = 0; index < count; ++index)
            EXPECT_EQ(kivCS2SMC_getKeyName(&smc, index, name, sizeof name), KIVCS2STATUS_OK);
        EXPECT_EQ(fanStatus(smc, 0).m_flags, 0u);
        EXPECT_EQ(kivCS2SMC_free(&smc), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2SMC_free(&smc), KIVCS2STATUS_OK);
        EXPECT_EQ(KIVPCountIOObjects(), 0u);
        KIVPSetSMCFolder(nullptr, nullptr);
    }
}

TEST(SMCOpening, TheFirstSetWhoseKeysAreAllThereIsChosen)
{
    const std::vector<std::string> eight = {"TM1P", "TM2P", "TM3P", "TM4P", "TM5P", "TM6P", "TM7P", "TM8P"};
    const std::vector<std::string> fourMini = {"TC0c", "TC1c", "TC2c", "TC3c"};
    const std::vector<std::string> fourBook = {"TC1C", "TC2C", "TC3C", "TC4C"};
    const std::vector<std::string> twoMini = {"TC0c", "TC1c"};
    const auto both = [](std::vector<std::string> first, const std::vector<std::string> &second)
    {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    };
    const std::pair<std::vector<std::string>, std::vector<std::string>> rows[] = {
        {eight, eight},
        {both(fourMini, eight), eight},
        {both(fourBook, fourMini), fourMini},
        {{"TC1c", "TC0c"}, twoMini},
        {{"TC0c", "TC1c", "TC3c"}, twoMini}, // "TC2c" is missing
        {both(fourBook, twoMini), fourBook},
        {{"TM1P", "TC0c", "TC1C"}, {}},
        {{}, {}},
    };
    for (const auto &[keys, expected] : rows)
    {
        SCOPED_TRACE(testing::PrintToString(keys));
        ScriptedSMC controller{named(keys)};
        Open open;
        std::vector<std::string> chosen;
        if (const KIVCS2SMCKeySet *set = open.smc.m_cpuTempSet)
            chosen.assign(set->m_keys, set->m_keys + set->m_count);
        EXPECT_EQ(chosen, expected);
        EXPECT_EQ(ask(kivCS2SMC_getCPUStatus, open.smc).m_coreCount, expected.size());
    }
}

TEST(SMCKeys, AreReadByIndex)
{
    ScriptedSMC controller{
        {{"FS! ", "ui16", {0x80, 0x01}}, {"TC0c", "sp78", {1, 2}, 0, 5}, {"Bad!", "x", {}, 0, 9}}};
    Open open;
    uint32_t count = 0;
    ASSERT_EQ(kivCS2SMC_getNumberOfKeys(&open.smc, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 3u);

    char text[6] = "zzzzz";
    uint32_t size = 0;
    EXPECT_EQ(kivCS2SMC_getKeyName(&open.smc, 0, text, 5), KIVCS2STATUS_OK);
    EXPECT_STREQ(text, "FS! ");
    EXPECT_EQ(kivCS2SMC_getKeyDataInfo(&open.smc, 1, text, 5, &size), KIVCS2STATUS_OK);
    EXPECT_STREQ(text, "sp78");
    EXPECT_EQ(size, 2u);
    EXPECT_EQ(kivCS2SMC_getKeyDataInfo(&open.smc, 2, text, 5, &size), KIVCS2STATUS_DATA_ERR);

    uint8_t data[2] = {};
    EXPECT_EQ(kivCS2SMC_getKeyData(&open.smc, 0, data, 2), KIVCS2STATUS_OK);
    EXPECT_EQ(Bytes(data, data + 2), (Bytes{0x80, 0x01}));
    EXPECT_EQ(kivCS2SMC_getKeyData(&open.smc, 1, data, 2), KIVCS2STATUS_DATA_ERR);

    EXPECT_EQ(kivCS2SMC_getKeyName(&open.smc, 0, text, 4), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_getKeyName(&open.smc, 3, text, 5), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_getKeyDataInfo(&open.smc, 0, text, 4, &size), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_getKeyDataInfo(&open.smc, 3, text, 5, &size), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_getKeyData(&open.smc, 3, data, 2), KIVCS2STATUS_PARAM_ERR);
}

TEST(SMCKeys, AnySizeOfDataIsPassedOnAndThirtyTwoBytesAtMostComeBack)
{
    ScriptedSMC controller{{{"Long", "ch8*", Bytes(32, 7)}}};
    Open open;
    Bytes data(40, 0xee);
    EXPECT_EQ(kivCS2SMC_getKeyData(&open.smc, 0, data.data(), 40), KIVCS2STATUS_OK);
    EXPECT_EQ(controller.lastCall().dataSize, 40u);
    Bytes expected(32, 7);
    expected.resize(40, 0xee);
    EXPECT_EQ(data, expected);
}

TEST(SMCFans, AreCountedByANumberOfItsSize)
{
    using Row = std::tuple<ScriptedKey, KIVCS2Status, uint32_t>;
    for (const auto &[key, status, count] : {
             Row{{"FNum", "ui8 ", {2}}, KIVCS2STATUS_OK, 2},
             {{"FNum", "ui16", {1, 2}}, KIVCS2STATUS_OK, 258},
             {{"FNum", "ui32", {0xff, 0, 0, 1}}, KIVCS2STATUS_OK, 0xff000001},
             {{"FNum", "hex_", {7, 0xff, 0, 0, 2}}, KIVCS2STATUS_OK, 0xff000002}, // the last four bytes
             {{"FNum", "ch8*", Bytes(32, 1)}, KIVCS2STATUS_OK, 0x01010101},
             {{"FNum", "ch8*", Bytes(33, 1)}, KIVCS2STATUS_DATA_ERR, 77},
             {{"FNum", "ui8 ", {}}, KIVCS2STATUS_OK, 0},
             {{"FNum", "ui8 ", {2}, 0xffffffff}, KIVCS2STATUS_DATA_ERR, 77},
             {{"FNum", "ui8 ", {2}, 0, 9}, KIVCS2STATUS_DATA_ERR, 77},
             {{"FNum", "ui8 ", {2}, 0, 5}, KIVCS2STATUS_DATA_ERR, 77},
             {{"Fnum", "ui8 ", {2}}, KIVCS2STATUS_NOT_FOUND_ERR, 77},
         })
    {
        ScriptedSMC controller{{key}};
        Open open;
        uint32_t fans = 77;
        EXPECT_EQ(kivCS2SMC_getNumberOfFans(&open.smc, &fans), status);
        EXPECT_EQ(fans, count);
    }
}

TEST(SMCFans, SpeedsHaveSixBitsAByteAndTwoOfFraction)
{
    using Row = std::tuple<ScriptedKey, KIVCS2Status, float>;
    for (const auto &[key, answer, speed] : {
             Row{{"F0Ac", "fpe2", {0x17, 0x70}}, KIVCS2STATUS_OK, 1500.0F},
             {{"F0Ac", "fpe2", {0x17, 0x73}}, KIVCS2STATUS_OK, 1500.0F},
             {{"F0Ac", "fpe2", {0xff, 0xff}}, KIVCS2STATUS_OK, -1.0F}, // the first byte is signed
             {{"F0Ac", "ui8 ", {0xff}}, KIVCS2STATUS_OK, 63.0F},
             {{"F0Ac", "ui24", {1, 1, 4}}, KIVCS2STATUS_OK, 4161.0F}, // 4096 + 64 + 1
             {{"F0Ac", "ui48", {1, 0, 0, 0, 0, 4}}, KIVCS2STATUS_OK, 1073741824.0F},
             {{"F0Ac", "ch8*", Bytes(32, 1)}, KIVCS2STATUS_OK, 1090785344.0F}, // 2^30 + 2^24 + ... + 2^6
             {{"F0Ac", "ch8*", {1}, 33}, KIVCS2STATUS_DATA_ERR, 77.0F},
             {{"F0Ac", "fpe2", {}}, KIVCS2STATUS_OK, 0.0F},
             {{"F0Ac", "fpe2", {1, 1}, 0, 5}, KIVCS2STATUS_DATA_ERR, 77.0F},
             {{"F1Ac", "fpe2", {1, 1}}, KIVCS2STATUS_NOT_FOUND_ERR, 77.0F},
         })
    {
        ScriptedSMC controller{{key}};
        Open open;
        KIVCS2SMCFanStatus status{0xffffffff, 7, 77, 78, 79, 80, 81};
        EXPECT_EQ(kivCS2SMC_getFanCurrentSpeed(&open.smc, 0, &status), answer);
        EXPECT_EQ(status.m_actual, speed);
        EXPECT_EQ(status.m_flags, answer == KIVCS2STATUS_OK ? 0xffffffff : 0xfffffffe);
        EXPECT_TRUE(status.m_forced == 7 && status.m_minimum == 78 && status.m_target == 81);
    }
}

TEST(SMCFans, AStatusHasWhatReadsAndTheForcedBit)
{
    ScriptedSMC controller{{{"F0Ac", "fpe2", {0x17, 0x70}},
                            {"F0Mn", "fpe2", {0x0f, 0xa0}},
                            {"F0Mx", "fpe2", {0x4e, 0x20}},
                            {"F0Sf", "fpe2", {0x07, 0xd0}},
                            {"F0Tg", "fpe2", {0x17, 0x74}},
                            {"F9Mx", "fpe2", {0x4e, 0x20}},
                            {"F9Ac", "fpe2", {0x4e, 0x20}, 0, 5},
                            {"F10A", "fpe2", {0x4e, 0x20}}, // not of a fan: "F10Ac" has five characters
                            {"FS! ", "ui16", {0x82, 0x01}}}};
    Open open;
    const KIVCS2SMCFanStatus expected{63, 1, 1500, 1000, 5000, 500, 1501};
    const auto first = fanStatus(open.smc, 0);
    EXPECT_EQ(std::memcmp(&first, &expected, sizeof first), 0);

    const auto ninth = fanStatus(open.smc, 9);
    EXPECT_EQ(ninth.m_flags, KIVCS2SMCFanFlags_Maximum + KIVCS2SMCFanFlags_Forced);
    EXPECT_EQ(ninth.m_actual, 0);
    EXPECT_EQ(ninth.m_forced, 1u);
    EXPECT_EQ(fanStatus(open.smc, 1).m_forced, 0u);
    EXPECT_EQ(fanStatus(open.smc, 15).m_forced, 1u);
    for (const uint32_t none : {10u, 16u, 32u, 0xffffffffu})
    {
        const auto status = fanStatus(open.smc, none);
        EXPECT_EQ(status.m_flags, KIVCS2SMCFanFlags_Forced);
        EXPECT_EQ(status.m_forced, 0u);
        KIVCS2SMCFanStatus current{};
        EXPECT_EQ(kivCS2SMC_getFanCurrentSpeed(&open.smc, none, &current), KIVCS2STATUS_NOT_FOUND_ERR);
    }
    controller.keys().back().failingCommand = 5;
    EXPECT_EQ(fanStatus(open.smc, 0).m_flags, 31u);
}

TEST(SMCProcessors, TemperaturesStopAtTheFirstFailure)
{
    using Row = std::tuple<ScriptedKey, uint32_t, double, double>;
    for (const auto &[key, flags, second, third] : {
             Row{{"TC2C", "sp78", {0x2b, 0x80}}, KIVCS2SMCCPUFlags_Cores, 42.5, 41.25},
             {{"TC2C", "sp78", {0x2b}}, KIVCS2SMCCPUFlags_Cores, 43.0, 41.25},
             {{"TC2C", "flt ", {0x2b, 0x80}}, 0u, 0.0, 0.0},
             {{"TC2C", "sp78", {}}, 0u, 0.0, 0.0},
             {{"TC2C", "sp78", {0x2b, 0x80}, 0, 9}, 0u, 0.0, 0.0},
         })
    {
        ScriptedSMC controller{
            {{"TC1C", "sp78", {0x2a, 0}}, key, {"TC3C", "sp78", {0x29, 0x40}}, {"TC4C", "sp78", {0, 0}}}};
        Open open;
        const auto status = ask(kivCS2SMC_getCPUStatus, open.smc);
        EXPECT_EQ(status.m_flags, flags);
        EXPECT_EQ(status.m_coreCount, 4u);
        EXPECT_EQ(status.m_coreTemperatures[0], 42);
        EXPECT_EQ(status.m_coreTemperatures[1], second);
        EXPECT_EQ(status.m_coreTemperatures[2], third);
        EXPECT_EQ(status.m_coreTemperatures[4], 0);
    }
}

TEST(SMCProcessors, PowerFiguresAreSignedBytesAndNumbers)
{
    ScriptedSMC controller{{{"MSPC", "ui8 ", {0xfe}}, {"MSTc", "ui8 ", {5}}, {"MSAc", "sp78", {0x03, 0xc0}}}};
    Open open;
    const auto status = ask(kivCS2SMC_getCPUStatus, open.smc);
    EXPECT_EQ(status.m_flags, 7u);
    EXPECT_EQ(status.m_MSPC, 0xfffffffeu);
    EXPECT_EQ(status.m_MSTc, 5u);
    EXPECT_EQ(status.m_MSAc, 2.75);
    EXPECT_EQ(status.m_coreCount, 0u);
    for (const auto &[key, flags] : {std::pair{0u, 6u}, {1u, 5u}, {2u, 3u}})
    {
        controller.keys()[key].failingCommand = 5;
        EXPECT_EQ(ask(kivCS2SMC_getCPUStatus, open.smc).m_flags, flags);
        controller.keys()[key].failingCommand = 0;
    }
}

// Kept: MSTg and MSAg share a flag.
TEST(SMCProcessors, TwoGraphicsFiguresShareAFlag)
{
    ScriptedSMC controller{{{"MSTg", "ui8 ", {0xff}},
                            {"MSAg", "sp78", {0x01, 0x40}},
                            {"TG0D", "sp78", {0x2a, 0x00}},
                            {"TG0H", "sp78", {0x2a, 0x80}},
                            {"TG0P", "sp78", {0xfe, 0x40}}}};
    Open open;
    const auto all = ask(kivCS2SMC_getGPUStatus, open.smc);
    EXPECT_EQ(all.m_flags, 29u);
    EXPECT_EQ(all.m_MSTg, 0xffffffffu);
    EXPECT_EQ(all.m_MSAg, 1.25);
    EXPECT_EQ(all.m_TG0D, 42);
    EXPECT_EQ(all.m_TG0H, 41.5);
    EXPECT_EQ(all.m_TG0P, -1.75);
    const uint32_t without[] = {29, 29, 25, 21, 13};
    for (size_t key = 0; key < 5; ++key)
    {
        controller.keys()[key].failingCommand = 9;
        EXPECT_EQ(ask(kivCS2SMC_getGPUStatus, open.smc).m_flags, without[key]);
        controller.keys()[key].failingCommand = 0;
    }
    controller.keys()[0].failingCommand = controller.keys()[1].failingCommand = 5;
    EXPECT_EQ(ask(kivCS2SMC_getGPUStatus, open.smc).m_flags, 28u);
}

// Kept: both bytes of a temperature are signed; integers are not extended by their sign.
TEST(SMCNumbers, ReadAsTheyAlwaysHave)
{
    KIVCS2SMC smc{};
    using Row = std::tuple<std::array<uint8_t, 2>, double, double, uint32_t>;
    for (const auto &[bytes, degrees, value, whole] : {
             Row{{0x2a, 0x00}, 42, 42, 0x2a00},
             {{0x2a, 0x80}, 41.5, 41.5, 0x2a80},
             {{0x2a, 0x7f}, 42.484375, 42.49609375, 0x2a7f}, // a 64th and a 256th
             {{0xff, 0xff}, -1.015625, -1.00390625, 0xffff},
             {{0x80, 0x01}, -128, -127.99609375, 0x8001},
         })
    {
        double temperature = 0, number = 0;
        uint32_t integer = 0;
        int32_t same = 0;
        EXPECT_EQ(kivCS2SMC_interpretDataAsTemperature(&smc, bytes.data(), 2, &temperature), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2SMC_interpretDataAsFloatingPoint(&smc, bytes.data(), 2, &number), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2SMC_interpretDataAsUnsignedInteger(&smc, bytes.data(), 2, &integer), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2SMC_interpretDataAsInteger(&smc, bytes.data(), 2, &same), KIVCS2STATUS_OK);
        EXPECT_TRUE(temperature == degrees && number == value) << temperature << " and " << number;
        EXPECT_TRUE(integer == whole && same == static_cast<int32_t>(whole)) << integer << " and " << same;
    }

    const uint8_t bytes[] = {0xff, 0xff, 0xff, 0xfe, 1};
    double real = 77;
    uint32_t integer = 77;
    int32_t other = 77;
    EXPECT_EQ(kivCS2SMC_interpretDataAsTemperature(&smc, bytes, 1, &real), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_interpretDataAsFloatingPoint(&smc, bytes, 1, &real), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_interpretDataAsUnsignedInteger(&smc, bytes, 5, &integer), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2SMC_interpretDataAsInteger(&smc, bytes, 5, &other), KIVCS2STATUS_PARAM_ERR);
    EXPECT_TRUE(real == 77 && integer == 77 && other == 77);
    EXPECT_EQ(kivCS2SMC_interpretDataAsInteger(&smc, bytes, 4, &other), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2SMC_interpretDataAsUnsignedInteger(&smc, bytes, 0, &integer), KIVCS2STATUS_OK);
    EXPECT_TRUE(other == -2 && integer == 0);
}

TEST(SMCArguments, AreChecked)
{
    KIV_REQUIRES_EACH(kivCS2SMC_init, "pSMC");
    KIV_REQUIRES_EACH(kivCS2SMC_free, "pSMC");
    KIV_REQUIRES_EACH(kivCS2SMC_getNumberOfKeys, "pSMC, pKeys");
    KIV_REQUIRES_EACH(kivCS2SMC_getKeyName, "pSMC, pKeyName");
    KIV_REQUIRES_EACH(kivCS2SMC_getKeyDataInfo, "pSMC, pDataType, pDataBytes");
    KIV_REQUIRES_EACH(kivCS2SMC_getKeyData, "pSMC, pData");
    KIV_REQUIRES_EACH(kivCS2SMC_getNumberOfFans, "pSMC, pFans");
    KIV_REQUIRES_EACH(kivCS2SMC_getFanStatus, "pSMC, pStatus");
    KIV_REQUIRES_EACH(kivCS2SMC_getFanCurrentSpeed, "pSMC, pStatus");
    KIV_REQUIRES_EACH(kivCS2SMC_getCPUStatus, "pSMC, pStatus");
    KIV_REQUIRES_EACH(kivCS2SMC_getGPUStatus, "pSMC, pStatus");
    KIV_REQUIRES_EACH(kivCS2SMC_interpretDataAsTemperature, "pSMC, pData, pTemperature");
    KIV_REQUIRES_EACH(kivCS2SMC_interpretDataAsFloatingPoint, "pSMC, pData, pDouble");
    KIV_REQUIRES_EACH(kivCS2SMC_interpretDataAsUnsignedInteger, "pSMC, pData, pInteger");
    KIV_REQUIRES_EACH(kivCS2SMC_interpretDataAsInteger, "pSMC, pData, pInteger");
}
