// Sensors: keys of the system management controller, and the figures that hosts read from them.
#include "KIVCS2SMC.h"

#include "Private/Sensors/Calls.h"
#include "Private/Support/Check.h"

#include <IOKit/IOKitLib.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace
{
constexpr uint32_t kStructMethod = 2; // the service's selector
constexpr size_t kNameLength = KIVCS2_SMC_NAME_SIZE - 1;
constexpr uint32_t kMaxIntegerSize = sizeof(uint32_t);
constexpr uint32_t kLastFan = 9; // keys have one digit for the fan

// Controllers have some hundred keys. No memory is allocated for a controller that claims more than this.
constexpr uint32_t kMostKeys = 65536;

static_assert(sizeof(KIVCS2SMCKeyData) == 80);
static_assert(offsetof(KIVCS2SMCKeyData, m_dataSize) == 28);
static_assert(offsetof(KIVCS2SMCKeyData, m_command) == 42);
static_assert(offsetof(KIVCS2SMCKeyData, m_argument) == 44);
static_assert(offsetof(KIVCS2SMCKeyData, m_data) == 48);

constexpr const char *macPro8Core[] = {"TM1P", "TM2P", "TM3P", "TM4P", "TM5P", "TM6P", "TM7P", "TM8P"};
constexpr const char *macMini4Core[] = {"TC0c", "TC1c", "TC2c", "TC3c"};
constexpr const char *macMBP4Core[] = {"TC1C", "TC2C", "TC3C", "TC4C"};
constexpr const char *macMini2Core[] = {"TC0c", "TC1c"};

template <size_t Count>
constexpr KIVCS2SMCKeySet keySet(const char *const (&keys)[Count])
{
    static_assert(Count <= KIVCS2_SMC_MAX_CORES);
    return {Count, keys};
}

// The first set whose keys all exist counts: the set of two comes after the set of four, which begins alike.
constexpr std::array cpuTempSets = {
    keySet(macPro8Core),
    keySet(macMini4Core),
    keySet(macMBP4Core),
    keySet(macMini2Core),
};

// ---- Names ----

constexpr uint32_t pack(std::string_view name)
{
    uint32_t code = 0;
    for (size_t index = 0; index < kNameLength; ++index)
        code = code << 8 | static_cast<uint8_t>(name[index]);
    return code;
}

void unpack(uint32_t code, char *name)
{
    for (size_t index = 0; index < kNameLength; ++index)
        name[index] = static_cast<char>(code >> (24 - index * 8));
    name[kNameLength] = '\0';
}

// ---- Numbers ----

int32_t signedByte(uint8_t byte)
{
    return static_cast<int8_t>(byte);
}

double temperature(const uint8_t *bytes)
{
    // Kept: hosts rely on both bytes being signed, though this subtracts a degree from halves and above.
    return ((signedByte(bytes[0]) * 256 + signedByte(bytes[1])) >> 2) / 64.0;
}

double floatingPoint(const uint8_t *bytes)
{
    return signedByte(bytes[0]) + signedByte(bytes[1]) / 256.0;
}

// Modulo 2^32; no bytes give 0.
uint32_t bigEndian(const uint8_t *bytes, uint32_t size)
{
    uint32_t value = 0;
    for (uint32_t index = 0; index < size; ++index)
        value = value << 8 | bytes[index];
    return value;
}

// Two bits of fraction, which are dropped, and six bits per byte above them, modulo 2^32; no bytes give 0.
float fanSpeed(const uint8_t *bytes, uint32_t size)
{
    uint32_t speed = size > 0 ? bytes[size - 1] >> 2 : 0;
    for (uint32_t index = 0; index + 1 < size; ++index)
    {
        const uint32_t shift = (size - 1 - index) * 6;
        if (shift < 32)
            speed += static_cast<uint32_t>(signedByte(bytes[index])) << shift;
    }
    return static_cast<float>(static_cast<int32_t>(speed));
}

// ---- Keys ----

bool hasKeyNamed(KIVCS2SMC *pSMC, const char *name)
{
    return KIVCS2_SUCCEEDED(kivCS2SMCPrv_hasKey(pSMC, pack(name)));
}

bool hasKeysOf(KIVCS2SMC *pSMC, const KIVCS2SMCKeySet &set)
{
    return std::all_of(set.m_keys, set.m_keys + set.m_count,
                       [pSMC](const char *name) { return hasKeyNamed(pSMC, name); });
}

KIVCS2Status readUnsigned(KIVCS2SMC *pSMC, const char *name, uint32_t *pVal)
{
    KIVCS2SMCKeyValue value;
    KIV_TRY(kivCS2SMCPrv_readKey(pSMC, name, &value));
    if (value.m_dataSize > sizeof value.m_data)
        return KIVCS2STATUS_DATA_ERR;
    *pVal = bigEndian(value.m_data, value.m_dataSize);
    return KIVCS2STATUS_OK;
}

KIVCS2Status readSignedByte(KIVCS2SMC *pSMC, const char *name, uint32_t *pVal)
{
    KIVCS2SMCKeyValue value;
    KIV_TRY(kivCS2SMCPrv_readKey(pSMC, name, &value));
    *pVal = static_cast<uint32_t>(signedByte(value.m_data[0]));
    return KIVCS2STATUS_OK;
}

KIVCS2Status readFloatingPoint(KIVCS2SMC *pSMC, const char *name, double *pVal)
{
    KIVCS2SMCKeyValue value;
    KIV_TRY(kivCS2SMCPrv_readKey(pSMC, name, &value));
    *pVal = floatingPoint(value.m_data);
    return KIVCS2STATUS_OK;
}

// Reads a fan's speed whose key ends in `suffix`, such as "Ac".
KIVCS2Status readFanSpeed(KIVCS2SMC *pSMC, uint32_t fan, const char *suffix, float *pVal)
{
    if (fan > kLastFan)
        return KIVCS2STATUS_NOT_FOUND_ERR;
    const char name[] = {'F', static_cast<char>('0' + fan), suffix[0], suffix[1], '\0'};
    KIVCS2SMCKeyValue value;
    KIV_TRY(kivCS2SMCPrv_readKey(pSMC, name, &value));
    if (value.m_dataSize > sizeof value.m_data)
        return KIVCS2STATUS_DATA_ERR;
    *pVal = fanSpeed(value.m_data, value.m_dataSize);
    return KIVCS2STATUS_OK;
}

// ---- Opening ----

KIVCS2Status connectTo(io_service_t device, KIVCS2SMC *pSMC)
{
    const kern_return_t error = IOServiceOpen(device, mach_task_self(), 0, &pSMC->m_connection);
    (void)IOObjectRelease(device); // this function owns it
    if (error == KERN_SUCCESS)
        return KIVCS2STATUS_OK;
    std::fprintf(stderr, "KIVSMC: IOServiceOpen failed with error %i\n", error);
    pSMC->m_connection = 0;
    return KIVCS2STATUS_NOT_FOUND_ERR;
}

KIVCS2Status openConnection(KIVCS2SMC *pSMC)
{
    mach_port_t masterPort = MACH_PORT_NULL;
    kern_return_t error = IOMasterPort(MACH_PORT_NULL, &masterPort);
    if (error != KERN_SUCCESS)
    {
        std::fprintf(stderr, "KIVSMC: IOMasterPort failed with error %i\n", error);
        return KIVCS2STATUS_CONNECT_ERR;
    }
    io_iterator_t services = IO_OBJECT_NULL;
    error = IOServiceGetMatchingServices(masterPort, IOServiceMatching("AppleSMC"), &services);
    if (error != KERN_SUCCESS)
    {
        std::fprintf(stderr, "KIVSMC: IOServiceGetMatchingServices failed with error %i\n", error);
        return KIVCS2STATUS_NOT_FOUND_ERR;
    }
    const io_service_t device = IOIteratorNext(services);
    (void)IOObjectRelease(services); // this function owns it
    if (device == IO_OBJECT_NULL)
    {
        std::fputs("KIVSMC: device not found\n", stderr);
        return KIVCS2STATUS_NOT_FOUND_ERR;
    }
    return connectTo(device, pSMC);
}

KIVCS2Status listKeys(KIVCS2SMC *pSMC)
{
    uint32_t count = 0;
    if (const KIVCS2Status status = readUnsigned(pSMC, "#KEY", &count); KIVCS2_FAILED(status))
    {
        std::fprintf(stderr, "KIVSMC: kivCS2SMCPrv_readKey for number of key failed with error %08x\n",
                     status);
        return status;
    }
    if (count <= kMostKeys)
        pSMC->m_keys = static_cast<uint32_t *>(kivCS2ZeroMalloc(count * sizeof *pSMC->m_keys));
    if (pSMC->m_keys == nullptr)
    {
        std::fputs("KIVSMC: malloc failed\n", stderr);
        return KIVCS2STATUS_MEMORY_ERR;
    }
    pSMC->m_keyCount = count; // set with the list: an index below it is in the list

    for (uint32_t index = 0; index < count; ++index)
    {
        KIVCS2SMCKeyData input{};
        KIVCS2SMCKeyData output{};
        input.m_command = kSMCKeyAtIndex;
        input.m_argument = index;
        if (const KIVCS2Status status = kivCS2SMCPrv_call(pSMC, &input, &output); KIVCS2_FAILED(status))
        {
            std::fprintf(stderr, "KIVSMC: kivCS2SMCPrv_call for key %i failed with error %08x\n",
                         static_cast<int32_t>(index), status);
            return status;
        }
        pSMC->m_keys[index] = output.m_key;
    }
    return KIVCS2STATUS_OK;
}
} // namespace

// ---- Calls ----

KIVCS2Status kivCS2SMCPrv_call(KIVCS2SMC *pSMC, const KIVCS2SMCKeyData *pInputStructure,
                               KIVCS2SMCKeyData *pOutputStructure)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pInputStructure);
    KIV_CHECK(pOutputStructure);

    size_t outputSize = sizeof *pOutputStructure;
    const kern_return_t error =
        IOConnectCallStructMethod(pSMC->m_connection, kStructMethod, pInputStructure, sizeof *pInputStructure,
                                  pOutputStructure, &outputSize);
    return error == KERN_SUCCESS ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
}

KIVCS2Status kivCS2SMCPrv_hasKey(KIVCS2SMC *pSMC, uint32_t key)
{
    KIV_CHECK(pSMC);

    if (pSMC->m_keys == nullptr)
        return KIVCS2STATUS_OK; // the number of keys is read before there is a list
    const uint32_t *const keys = pSMC->m_keys;
    const uint32_t *const end = keys + pSMC->m_keyCount;
    return std::find(keys, end, key) != end ? KIVCS2STATUS_OK : KIVCS2STATUS_NOT_FOUND_ERR;
}

KIVCS2Status kivCS2SMCPrv_readKey(KIVCS2SMC *pSMC, const char *pKeyName, KIVCS2SMCKeyValue *pVal)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pKeyName);
    KIV_CHECK(pVal);

    KIVCS2SMCKeyData input{};
    KIVCS2SMCKeyData output{};
    *pVal = {};
    if (std::strlen(pKeyName) != kNameLength)
        return KIVCS2STATUS_NOT_FOUND_ERR;
    input.m_key = pack(pKeyName);
    KIV_TRY(kivCS2SMCPrv_hasKey(pSMC, input.m_key));
    std::memcpy(pVal->m_key, pKeyName, sizeof pVal->m_key);

    input.m_command = kSMCReadInfo;
    KIV_TRY(kivCS2SMCPrv_call(pSMC, &input, &output));
    pVal->m_dataSize = output.m_dataSize;
    unpack(output.m_dataType, pVal->m_dataType);

    input.m_dataSize = pVal->m_dataSize;
    input.m_command = kSMCReadData;
    output = {};
    KIV_TRY(kivCS2SMCPrv_call(pSMC, &input, &output));
    std::memcpy(pVal->m_data, output.m_data, sizeof pVal->m_data);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMCPrv_getTemperature(KIVCS2SMC *pSMC, const char *pKeyName, double *pTemperature)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pKeyName);
    KIV_CHECK(pTemperature);

    KIVCS2SMCKeyValue value;
    KIV_TRY(kivCS2SMCPrv_readKey(pSMC, pKeyName, &value));
    if (value.m_dataSize == 0 || std::string_view{value.m_dataType} != "sp78")
        return KIVCS2STATUS_STATE_ERR;
    return kivCS2SMC_interpretDataAsTemperature(pSMC, value.m_data, 2, pTemperature);
}

// ---- The connection ----

KIVCS2Status kivCS2SMC_init(KIVCS2SMC *pSMC)
{
    KIV_CHECK(pSMC);

    *pSMC = {};
    KIV_TRY(openConnection(pSMC));
    KIV_TRY(listKeys(pSMC));
    const auto *const set =
        std::find_if(cpuTempSets.begin(), cpuTempSets.end(),
                     [pSMC](const KIVCS2SMCKeySet &each) { return hasKeysOf(pSMC, each); });
    if (set != cpuTempSets.end())
        pSMC->m_cpuTempSet = set;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_free(KIVCS2SMC *pSMC)
{
    KIV_CHECK(pSMC);

    if (pSMC->m_connection != 0)
        (void)IOServiceClose(pSMC->m_connection); // a caller could not act on a failure
    std::free(pSMC->m_keys);
    *pSMC = {};
    return KIVCS2STATUS_OK;
}

// ---- Keys ----

KIVCS2Status kivCS2SMC_getNumberOfKeys(KIVCS2SMC *pSMC, uint32_t *pKeys)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pKeys);

    *pKeys = pSMC->m_keyCount;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_getKeyName(KIVCS2SMC *pSMC, uint32_t index, char *pKeyName, uint32_t maxSize)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pKeyName);
    if (maxSize < KIVCS2_SMC_NAME_SIZE || index >= pSMC->m_keyCount)
        return KIVCS2STATUS_PARAM_ERR;

    unpack(pSMC->m_keys[index], pKeyName);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_getKeyDataInfo(KIVCS2SMC *pSMC, uint32_t index, char *pDataType, uint32_t maxSize,
                                      uint32_t *pDataBytes)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pDataType);
    KIV_CHECK(pDataBytes);
    if (maxSize < KIVCS2_SMC_NAME_SIZE || index >= pSMC->m_keyCount)
        return KIVCS2STATUS_PARAM_ERR;

    KIVCS2SMCKeyData input{};
    KIVCS2SMCKeyData output{};
    input.m_key = pSMC->m_keys[index];
    input.m_command = kSMCReadInfo;
    KIV_TRY(kivCS2SMCPrv_call(pSMC, &input, &output));
    *pDataBytes = output.m_dataSize;
    unpack(output.m_dataType, pDataType);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_getKeyData(KIVCS2SMC *pSMC, uint32_t index, uint8_t *pData, uint32_t size)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pData);
    if (index >= pSMC->m_keyCount)
        return KIVCS2STATUS_PARAM_ERR;

    KIVCS2SMCKeyData input{};
    KIVCS2SMCKeyData output{};
    input.m_key = pSMC->m_keys[index];
    // Kept: hosts rely on any size being passed on; the controller decides whether the call fails.
    input.m_dataSize = size;
    input.m_command = kSMCReadData;
    KIV_TRY(kivCS2SMCPrv_call(pSMC, &input, &output));
    std::memcpy(pData, output.m_data, std::min<size_t>(size, sizeof output.m_data));
    return KIVCS2STATUS_OK;
}

// ---- Fans ----

KIVCS2Status kivCS2SMC_getNumberOfFans(KIVCS2SMC *pSMC, uint32_t *pFans)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pFans);

    return readUnsigned(pSMC, "FNum", pFans);
}

KIVCS2Status kivCS2SMC_getFanStatus(KIVCS2SMC *pSMC, uint32_t fan, KIVCS2SMCFanStatus *pStatus)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pStatus);

    struct Row
    {
        KIVCS2SMCFanFlags flag;
        const char *suffix;
        float KIVCS2SMCFanStatus::*speed;
    };
    constexpr Row kRows[] = {
        {KIVCS2SMCFanFlags_Actual, "Ac", &KIVCS2SMCFanStatus::m_actual},
        {KIVCS2SMCFanFlags_Minimum, "Mn", &KIVCS2SMCFanStatus::m_minimum},
        {KIVCS2SMCFanFlags_Maximum, "Mx", &KIVCS2SMCFanStatus::m_maximum},
        {KIVCS2SMCFanFlags_Safe, "Sf", &KIVCS2SMCFanStatus::m_safe},
        {KIVCS2SMCFanFlags_Target, "Tg", &KIVCS2SMCFanStatus::m_target},
    };
    *pStatus = {};
    for (const Row &row : kRows)
        if (KIVCS2_SUCCEEDED(readFanSpeed(pSMC, fan, row.suffix, &(pStatus->*row.speed))))
            pStatus->m_flags |= row.flag;

    KIVCS2SMCKeyValue forced;
    if (KIVCS2_FAILED(kivCS2SMCPrv_readKey(pSMC, "FS! ", &forced)))
        return KIVCS2STATUS_OK;
    pStatus->m_flags |= KIVCS2SMCFanFlags_Forced;
    pStatus->m_forced = fan < 16 ? bigEndian(forced.m_data, 2) >> fan & 1u : 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_getFanCurrentSpeed(KIVCS2SMC *pSMC, uint32_t fan, KIVCS2SMCFanStatus *pStatus)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pStatus);

    pStatus->m_flags &= ~KIVCS2SMCFanFlags{KIVCS2SMCFanFlags_Actual};
    KIV_TRY(readFanSpeed(pSMC, fan, "Ac", &pStatus->m_actual));
    pStatus->m_flags |= KIVCS2SMCFanFlags_Actual;
    return KIVCS2STATUS_OK;
}

// ---- Processors ----

KIVCS2Status kivCS2SMC_getCPUStatus(KIVCS2SMC *pSMC, KIVCS2SMCCPUStatus *pStatus)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pStatus);

    *pStatus = {};
    if (const KIVCS2SMCKeySet *set = pSMC->m_cpuTempSet; set != nullptr)
    {
        pStatus->m_coreCount = set->m_count;
        uint32_t core = 0;
        while (core < set->m_count && KIVCS2_SUCCEEDED(kivCS2SMCPrv_getTemperature(
                                          pSMC, set->m_keys[core], &pStatus->m_coreTemperatures[core])))
            ++core;
        if (core == set->m_count)
            pStatus->m_flags |= KIVCS2SMCCPUFlags_Cores;
    }
    if (KIVCS2_SUCCEEDED(readSignedByte(pSMC, "MSPC", &pStatus->m_MSPC)))
        pStatus->m_flags |= KIVCS2SMCCPUFlags_MSPC;
    if (KIVCS2_SUCCEEDED(readSignedByte(pSMC, "MSTc", &pStatus->m_MSTc)))
        pStatus->m_flags |= KIVCS2SMCCPUFlags_MSTc;
    if (KIVCS2_SUCCEEDED(readFloatingPoint(pSMC, "MSAc", &pStatus->m_MSAc)))
        pStatus->m_flags |= KIVCS2SMCCPUFlags_MSAc;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_getGPUStatus(KIVCS2SMC *pSMC, KIVCS2SMCGPUStatus *pStatus)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pStatus);

    *pStatus = {};
    if (KIVCS2_SUCCEEDED(kivCS2SMCPrv_getTemperature(pSMC, "TG0D", &pStatus->m_TG0D)))
        pStatus->m_flags |= KIVCS2SMCGPUFlags_TG0D;
    if (KIVCS2_SUCCEEDED(kivCS2SMCPrv_getTemperature(pSMC, "TG0H", &pStatus->m_TG0H)))
        pStatus->m_flags |= KIVCS2SMCGPUFlags_TG0H;
    if (KIVCS2_SUCCEEDED(kivCS2SMCPrv_getTemperature(pSMC, "TG0P", &pStatus->m_TG0P)))
        pStatus->m_flags |= KIVCS2SMCGPUFlags_TG0P;
    // Kept: hosts rely on one flag for both values.
    if (KIVCS2_SUCCEEDED(readSignedByte(pSMC, "MSTg", &pStatus->m_MSTg)))
        pStatus->m_flags |= KIVCS2SMCGPUFlags_MSTgOrMSAg;
    if (KIVCS2_SUCCEEDED(readFloatingPoint(pSMC, "MSAg", &pStatus->m_MSAg)))
        pStatus->m_flags |= KIVCS2SMCGPUFlags_MSTgOrMSAg;
    return KIVCS2STATUS_OK;
}

// ---- Number formats ----

KIVCS2Status kivCS2SMC_interpretDataAsTemperature(KIVCS2SMC *pSMC, const uint8_t *pData, uint32_t size,
                                                  double *pTemperature)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pData);
    KIV_CHECK(pTemperature);
    if (size < 2)
        return KIVCS2STATUS_PARAM_ERR;

    *pTemperature = temperature(pData);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_interpretDataAsFloatingPoint(KIVCS2SMC *pSMC, const uint8_t *pData, uint32_t size,
                                                    double *pDouble)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pData);
    KIV_CHECK(pDouble);
    if (size < 2)
        return KIVCS2STATUS_PARAM_ERR;

    *pDouble = floatingPoint(pData);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_interpretDataAsUnsignedInteger(KIVCS2SMC *pSMC, const uint8_t *pData, uint32_t size,
                                                      uint32_t *pInteger)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pData);
    KIV_CHECK(pInteger);
    if (size > kMaxIntegerSize)
        return KIVCS2STATUS_PARAM_ERR;

    *pInteger = bigEndian(pData, size);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2SMC_interpretDataAsInteger(KIVCS2SMC *pSMC, const uint8_t *pData, uint32_t size,
                                              int32_t *pInteger)
{
    KIV_CHECK(pSMC);
    KIV_CHECK(pData);
    KIV_CHECK(pInteger);
    if (size > kMaxIntegerSize)
        return KIVCS2STATUS_PARAM_ERR;

    // Kept: hosts rely on fewer than four bytes not being sign-extended.
    *pInteger = static_cast<int32_t>(bigEndian(pData, size));
    return KIVCS2STATUS_OK;
}
