// A controller whose keys, types, sizes, bytes and failures come from the input, read by every operation: no
// result may lead outside a record. Tests/Unit compares the values.
//
// The input is the claimed number of keys (one byte, or four from 128 on), then keys until the end: name,
// type, failing command, claimed size (one byte each, or more: see below), and data.
#include "../Tests/Support/ScriptedSMC.h"
#include "Input.h"
#include "Require.h"

#include "KIVCS2SMC.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

namespace
{
using kiv::test::ScriptedKey;
using Bytes = std::vector<uint8_t>;

constexpr size_t kMaxKeys = 64;

// A byte chooses one of these names; any other byte is the first of four characters of the input.
constexpr std::array<std::string_view, 44> kNames = {
    "#KEY", "FNum", "FS! ", "F0Ac", "F0Mn", "F0Mx", "F0Sf", "F0Tg", "F1Ac", "F9Ac", "F10A",
    "TM1P", "TM2P", "TM3P", "TM4P", "TM5P", "TM6P", "TM7P", "TM8P", "TC0c", "TC1c", "TC2c",
    "TC3c", "TC1C", "TC2C", "TC3C", "TC4C", "MSPC", "MSTc", "MSAc", "MSTg", "MSAg", "TG0D",
    "TG0H", "TG0P", "F0ac", "FNum", "F2Ac", "TC0c", "TC1c", "MSPC", "BATP", "F1Mn", "F1Tg"};
constexpr std::array<std::string_view, 6> kTypes = {"sp78", "fpe2", "ui8 ", "ui16", "ui32", "flag"};

template <size_t Count>
std::string text(Input &input, const std::array<std::string_view, Count> &known)
{
    const uint8_t first = input.take();
    if (first < Count)
        return std::string{known[first]};
    const auto rest = input.bytes(3);
    return static_cast<char>(first) + std::string{rest.begin(), rest.end()};
}

std::vector<ScriptedKey> keysOf(Input &input)
{
    std::vector<ScriptedKey> keys;
    while (input.size > 0 && keys.size() < kMaxKeys)
    {
        ScriptedKey key{text(input, kNames), text(input, kTypes), {}};
        key.failingCommand = input.take();
        const uint8_t size = input.take();
        key.claimedSize = size < 200 ? size % 36 : size * 0x1010101u;
        const auto bytes = input.bytes(std::min(key.claimedSize, 32u));
        key.bytes.assign(bytes.begin(), bytes.end());
        keys.push_back(std::move(key));
    }
    return keys;
}

void readKeys(KIVCS2SMC &smc)
{
    uint32_t count = 0;
    char name[KIVCS2_SMC_NAME_SIZE];
    require(kivCS2SMC_getNumberOfKeys(&smc, &count) == KIVCS2STATUS_OK);
    for (uint32_t index = 0; index < count; ++index)
    {
        uint32_t size = 0;
        std::fill_n(name, sizeof name, '\1');
        require(kivCS2SMC_getKeyName(&smc, index, name, sizeof name) == KIVCS2STATUS_OK && name[4] == 0);
        if (KIVCS2_FAILED(kivCS2SMC_getKeyDataInfo(&smc, index, name, sizeof name, &size)))
            continue;
        Bytes data(
            std::min(size, 100u)); // exactly that size, so that AddressSanitizer detects one byte too many
        data.reserve(1);
        (void)kivCS2SMC_getKeyData(&smc, index, data.data(), static_cast<uint32_t>(data.size()));
    }
    require(kivCS2SMC_getKeyName(&smc, count, name, sizeof name) == KIVCS2STATUS_PARAM_ERR);
}

void readStatuses(KIVCS2SMC &smc)
{
    uint32_t fans = 0;
    (void)kivCS2SMC_getNumberOfFans(&smc, &fans);
    for (const uint32_t fan : {0u, 1u, 9u, 10u, 16u, 0xffffffffu})
    {
        KIVCS2SMCFanStatus status{};
        require(kivCS2SMC_getFanStatus(&smc, fan, &status) == KIVCS2STATUS_OK);
        KIVCS2SMCFanStatus again = status;
        const bool read = KIVCS2_SUCCEEDED(kivCS2SMC_getFanCurrentSpeed(&smc, fan, &again));
        require(again.m_actual == status.m_actual && again.m_flags == status.m_flags);
        require(read == ((status.m_flags & KIVCS2SMCFanFlags_Actual) != 0));
        require(status.m_forced <= 1 && (status.m_flags & ~63u) == 0);
    }
    KIVCS2SMCCPUStatus cpu{};
    KIVCS2SMCGPUStatus gpu{};
    require(kivCS2SMC_getCPUStatus(&smc, &cpu) == KIVCS2STATUS_OK);
    require(cpu.m_coreCount == (smc.m_cpuTempSet != nullptr ? smc.m_cpuTempSet->m_count : 0));
    require(kivCS2SMC_getGPUStatus(&smc, &gpu) == KIVCS2STATUS_OK);
}

// Failed starts would fill the log with messages.
KIVCS2Status openQuietly(KIVCS2SMC &smc)
{
    static FILE *const nowhere = std::fopen("/dev/null", "w");
    FILE *const before = std::exchange(stderr, nowhere);
    const KIVCS2Status status = kivCS2SMC_init(&smc);
    stderr = before;
    return status;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input{data, size};
    const uint8_t claimed = input.take();
    Bytes number{0, 0, 0, claimed};
    if (claimed >= 128)
        std::ranges::copy(input.bytes(4), number.begin());
    kiv::test::ScriptedSMC controller{keysOf(input)};
    controller.claim(number);

    KIVCS2SMC smc{};
    const KIVCS2Status status = openQuietly(smc);
    require(status == KIVCS2STATUS_OK || status == KIVCS2STATUS_DATA_ERR ||
            status == KIVCS2STATUS_MEMORY_ERR);
    readKeys(smc);
    if (status == KIVCS2STATUS_OK)
        readStatuses(smc);
    require(kivCS2SMC_free(&smc) == KIVCS2STATUS_OK && KIVPCountIOObjects() == 0);
    return 0;
}
