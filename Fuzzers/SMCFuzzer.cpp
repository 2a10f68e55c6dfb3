// A controller whose keys, types, sizes, bytes and failures come from the input, asked for all that hosts
// ask: no answer may take a record out of its bounds, and what is flagged as read is what the bytes say.
//
// The input: how many keys are claimed (one byte; from 128 on, as four bytes of big-endian number that
// follow), then keys until the end: name, type, failing command, claimed size (one byte each, or more: see
// below), and data.
#include "Expect.h"

#include "KIVCS2SMC.h"

#include <KIVPlatform/KIVPAppleSMC.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace
{
constexpr size_t kCallSize = 80;
constexpr size_t kMaxKeys = 64;

// A byte chooses one of these; any other is the first of four characters of the input.
constexpr std::array<std::string_view, 44> kNames = {
    "#KEY", "FNum", "FS! ", "F0Ac", "F0Mn", "F0Mx", "F0Sf", "F0Tg", "F1Ac", "F9Ac", "F10A",
    "TM1P", "TM2P", "TM3P", "TM4P", "TM5P", "TM6P", "TM7P", "TM8P", "TC0c", "TC1c", "TC2c",
    "TC3c", "TC1C", "TC2C", "TC3C", "TC4C", "MSPC", "MSTc", "MSAc", "MSTg", "MSAg", "TG0D",
    "TG0H", "TG0P", "F0ac", "FNum", "F2Ac", "TC0c", "TC1c", "MSPC", "BATP", "F1Mn", "F1Tg"};
constexpr std::array<std::string_view, 6> kTypes = {"sp78", "fpe2", "ui8 ", "ui16", "ui32", "flag"};

struct Key
{
    uint32_t name = 0;
    uint32_t type = 0;
    uint32_t claimedSize = 0;
    uint8_t failing = 0;
    std::array<uint8_t, 32> data{};
};

struct Script
{
    uint32_t claimed = 0;
    std::vector<Key> keys;
};

class Input
{
public:
    Input(const uint8_t *data, size_t size) : m_data{data}, m_size{size} {}

    [[nodiscard]] bool atEnd() const
    {
        return m_size == 0;
    }
    uint8_t byte()
    {
        if (m_size == 0)
            return 0;
        --m_size;
        return *m_data++;
    }
    uint32_t word(uint8_t first)
    {
        uint32_t value = first;
        for (int more = 0; more < 3; ++more)
            value = value << 8 | byte();
        return value;
    }

private:
    const uint8_t *m_data;
    size_t m_size;
};

uint32_t pack(std::string_view name)
{
    uint32_t code = 0;
    for (const char character : name)
        code = code << 8 | static_cast<uint8_t>(character);
    return code;
}

template <size_t Count>
uint32_t code(Input &input, const std::array<std::string_view, Count> &known)
{
    const uint8_t first = input.byte();
    return first < Count ? pack(known[first]) : input.word(first);
}

Script read(Input input)
{
    Script script;
    const uint8_t claimed = input.byte();
    script.claimed = claimed < 128 ? claimed : input.word(input.byte());
    while (!input.atEnd() && script.keys.size() < kMaxKeys)
    {
        Key key;
        key.name = code(input, kNames);
        key.type = code(input, kTypes);
        key.failing = input.byte();
        const uint8_t size = input.byte();
        key.claimedSize = size < 200 ? size % 36 : input.word(size);
        for (uint32_t index = 0; index < std::min<uint32_t>(key.claimedSize, 32) && !input.atEnd(); ++index)
            key.data[index] = input.byte();
        script.keys.push_back(key);
    }
    return script;
}

const Key *find(const Script &script, uint32_t name)
{
    const auto found = std::find_if(script.keys.begin(), script.keys.end(),
                                    [name](const Key &key) { return key.name == name; });
    return found != script.keys.end() ? &*found : nullptr;
}

uint32_t wordAt(const uint8_t *call, size_t offset)
{
    uint32_t word = 0;
    std::memcpy(&word, call + offset, sizeof word);
    return word;
}

kern_return_t answer(void *context, uint32_t selector, const void *in, size_t inSize, void *out,
                     size_t *outSize)
{
    KIV_FUZZ_EXPECT(selector == 2 && inSize == kCallSize && *outSize == kCallSize);
    *outSize = kCallSize;
    const auto &script = *static_cast<const Script *>(context);
    const auto *input = static_cast<const uint8_t *>(in);
    auto *output = static_cast<uint8_t *>(out);
    const uint8_t command = input[42];
    if (command == 8)
    {
        const uint32_t index = wordAt(input, 44);
        if (index >= script.keys.size())
            return kIOReturnNotFound;
        std::memcpy(output, &script.keys[index].name, 4);
        return kIOReturnSuccess;
    }
    Key number;
    number.claimedSize = 4;
    for (size_t index = 0; index < 4; ++index)
        number.data[index] = static_cast<uint8_t>(script.claimed >> (24 - index * 8));
    const uint32_t name = wordAt(input, 0);
    const Key *key = find(script, name);
    if (key == nullptr && name == pack("#KEY"))
        key = &number;
    if (key == nullptr || key->failing == command)
        return kIOReturnIOError;
    if (command == 9)
    {
        std::memcpy(output + 28, &key->claimedSize, 4);
        std::memcpy(output + 32, &key->type, 4);
        return kIOReturnSuccess;
    }
    KIV_FUZZ_EXPECT(command == 5);
    std::memcpy(output + 48, key->data.data(), key->data.size());
    return kIOReturnSuccess;
}

bool isListed(const KIVCS2SMC &smc, uint32_t name)
{
    return std::find(smc.m_keys, smc.m_keys + smc.m_keyCount, name) != smc.m_keys + smc.m_keyCount;
}

// Whether a key is listed and its info and data are answered.
const Key *readable(const KIVCS2SMC &smc, const Script &script, std::string_view name)
{
    const Key *key = find(script, pack(name));
    return key != nullptr && isListed(smc, key->name) && key->failing != 9 && key->failing != 5 ? key
                                                                                                : nullptr;
}

const Key *warm(const KIVCS2SMC &smc, const Script &script, std::string_view name)
{
    const Key *key = readable(smc, script, name);
    return key != nullptr && key->type == pack("sp78") && key->claimedSize != 0 ? key : nullptr;
}

int64_t signedByte(uint8_t byte)
{
    return byte < 128 ? byte : byte - 256;
}

double degrees(const Key &key)
{
    return std::floor(static_cast<double>(signedByte(key.data[0]) * 256 + signedByte(key.data[1])) / 4) / 64;
}

double number(const Key &key)
{
    return static_cast<double>(signedByte(key.data[0]) * 256 + signedByte(key.data[1])) / 256;
}

void expectKeys(KIVCS2SMC &smc)
{
    uint32_t count = 0;
    KIV_FUZZ_EXPECT(kivCS2SMC_getNumberOfKeys(&smc, &count) == KIVCS2STATUS_OK);
    for (uint32_t index = 0; index < count; ++index)
    {
        char text[KIVCS2_SMC_NAME_SIZE] = {1, 1, 1, 1, 1};
        uint32_t size = 0;
        KIV_FUZZ_EXPECT(kivCS2SMC_getKeyName(&smc, index, text, sizeof text) == KIVCS2STATUS_OK &&
                        text[4] == 0);
        if (KIVCS2_FAILED(kivCS2SMC_getKeyDataInfo(&smc, index, text, sizeof text, &size)))
            continue;
        // Of exactly the size that was told, as far as that is memory one would make.
        std::vector<uint8_t> data(std::min<uint32_t>(size, 100));
        std::array<uint8_t, 4> none{};
        (void)kivCS2SMC_getKeyData(&smc, index, data.empty() ? none.data() : data.data(),
                                   static_cast<uint32_t>(data.size()));
    }
    char text[KIVCS2_SMC_NAME_SIZE];
    KIV_FUZZ_EXPECT(kivCS2SMC_getKeyName(&smc, count, text, sizeof text) == KIVCS2STATUS_PARAM_ERR);
}

void expectFans(KIVCS2SMC &smc, const Script &script)
{
    uint32_t fans = 0;
    const Key *key = readable(smc, script, "FNum");
    KIV_FUZZ_EXPECT((kivCS2SMC_getNumberOfFans(&smc, &fans) == KIVCS2STATUS_OK) ==
                    (key != nullptr && key->claimedSize <= 32));
    for (const uint32_t fan : {0u, 1u, 9u, 10u, 16u, 0xffffffffu})
    {
        KIVCS2SMCFanStatus status{};
        KIV_FUZZ_EXPECT(kivCS2SMC_getFanStatus(&smc, fan, &status) == KIVCS2STATUS_OK);
        KIVCS2SMCFanStatus again = status;
        const bool read = KIVCS2_SUCCEEDED(kivCS2SMC_getFanCurrentSpeed(&smc, fan, &again));
        KIV_FUZZ_EXPECT(again.m_actual == status.m_actual && again.m_flags == status.m_flags);
        KIV_FUZZ_EXPECT(read == ((status.m_flags & KIVCS2SMCFanFlags_Actual) != 0));
        KIV_FUZZ_EXPECT(status.m_forced <= 1 && (status.m_flags & ~63u) == 0);
        if (fan != 0)
            continue;
        key = readable(smc, script, "F0Ac");
        KIV_FUZZ_EXPECT(read == (key != nullptr && key->claimedSize <= 32));
        if (read && key->claimedSize == 2)
            KIV_FUZZ_EXPECT(status.m_actual ==
                            static_cast<float>(signedByte(key->data[0]) * 64 + (key->data[1] >> 2)));
    }
}

void expectProcessors(KIVCS2SMC &smc, const Script &script)
{
    KIVCS2SMCCPUStatus cpu{};
    KIV_FUZZ_EXPECT(kivCS2SMC_getCPUStatus(&smc, &cpu) == KIVCS2STATUS_OK);
    KIV_FUZZ_EXPECT(cpu.m_coreCount == (smc.m_cpuTempSet != nullptr ? smc.m_cpuTempSet->m_count : 0));
    bool all = true;
    for (uint32_t core = 0; core < KIVCS2_SMC_MAX_CORES; ++core)
    {
        const Key *key = core < cpu.m_coreCount ? warm(smc, script, smc.m_cpuTempSet->m_keys[core]) : nullptr;
        all = all && (key != nullptr || core >= cpu.m_coreCount);
        KIV_FUZZ_EXPECT(cpu.m_coreTemperatures[core] == (all && key != nullptr ? degrees(*key) : 0.0));
    }
    KIV_FUZZ_EXPECT(((cpu.m_flags & KIVCS2SMCCPUFlags_Cores) != 0) == (all && smc.m_cpuTempSet != nullptr));
    const Key *figure = readable(smc, script, "MSAc");
    KIV_FUZZ_EXPECT(((cpu.m_flags & KIVCS2SMCCPUFlags_MSAc) != 0) == (figure != nullptr));
    KIV_FUZZ_EXPECT(cpu.m_MSAc == (figure != nullptr ? number(*figure) : 0.0));

    KIVCS2SMCGPUStatus gpu{};
    KIV_FUZZ_EXPECT(kivCS2SMC_getGPUStatus(&smc, &gpu) == KIVCS2STATUS_OK);
    const Key *heat = warm(smc, script, "TG0D");
    KIV_FUZZ_EXPECT(gpu.m_TG0D == (heat != nullptr ? degrees(*heat) : 0.0));
    const Key *byte = readable(smc, script, "MSTg");
    KIV_FUZZ_EXPECT(gpu.m_MSTg == (byte != nullptr ? static_cast<uint32_t>(signedByte(byte->data[0])) : 0u));
}

// What a failing start says is for people, and would be all there is to the log.
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
    Script script = read({data, size});
    const KIVPSMCController controller = {0, 0, 0, answer, &script};
    KIVPSetSMCController(&controller);

    KIVCS2SMC smc{};
    const KIVCS2Status status = openQuietly(smc);
    KIV_FUZZ_EXPECT(status == KIVCS2STATUS_OK || status == KIVCS2STATUS_DATA_ERR ||
                    status == KIVCS2STATUS_MEMORY_ERR);
    expectKeys(smc);
    if (status == KIVCS2STATUS_OK)
    {
        expectFans(smc, script);
        expectProcessors(smc, script);
    }
    KIV_FUZZ_EXPECT(kivCS2SMC_free(&smc) == KIVCS2STATUS_OK && KIVPCountIOObjects() == 0);
    KIVPSetSMCController(nullptr);
    return 0;
}
