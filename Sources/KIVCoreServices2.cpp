// The base: start-up, CRC-32, the zero-filling allocator, the memory block, and time.
#include "KIVCoreServices2.h"

#include "Private/Support/Check.h"
#include "Private/Support/Crc32.h"
#include "Private/Support/Frame.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace
{
constexpr uint32_t kSmallestBlock = 4; // bytes

// Below this many bytes the byte loop is faster than checking whether the table is the standard one.
constexpr uint32_t kBytesWorthACompare = 16;

constexpr KIVCS2CRC32Param makeStandardParam()
{
    KIVCS2CRC32Param param{1, {}};
    const kiv::Crc32Table table = kiv::makeCrc32Table();
    std::copy(table.begin(), table.end(), param.m_table);
    return param;
}

// The host owns the record, which may hold any polynomial and may have changed since the last call. So the
// whole table is compared every time, which takes about as long as 16 bytes of the byte loop.
[[nodiscard]] bool isStandard(const KIVCS2CRC32Param &param)
{
    return std::memcmp(param.m_table, crc32Param.m_table, sizeof param.m_table) == 0;
}

[[nodiscard]] uint32_t updateByTable(const KIVCS2CRC32Param &param, uint32_t crc, const uint8_t *data,
                                     uint32_t length)
{
    for (uint32_t index = 0; index < length; ++index)
        crc = param.m_table[(crc ^ data[index]) & 0xFFu] ^ (crc >> 8);
    return crc;
}

// Gives `mem` a block of exactly `size` bytes with the old contents, or leaves it unchanged.
[[nodiscard]] KIVCS2Status resize(KIVCS2MemPtr &mem, uint32_t size)
{
    // realloc() to 0 bytes would free the block and report it as a failure.
    void *block = std::realloc(mem.m_ptr, std::max<size_t>(size, 1));
    if (block == nullptr)
        return KIVCS2STATUS_MEMORY_ERR;
    mem.m_ptr = block;
    mem.m_allocated = size;
    return KIVCS2STATUS_OK;
}
} // namespace

constexpr KIVCS2CRC32Param crc32Param = makeStandardParam();

// One to one until start-up has read it from the system.
constinit mach_timebase_info_data_t timebaseInfo = {1, 1};

// ---- Start-up ----

KIVCS2Status kivCS2_initWithTaskServer(bool startTaskServer)
{
    // The table of crc32Param is part of the library's image: it is not built here.
    (void)mach_timebase_info(&timebaseInfo);
    if (startTaskServer)
        (void)kivCS2TaskServer_init(); // the first launch through it reports a failure
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2_init(void)
{
    return kivCS2_initWithTaskServer(true);
}

// ---- CRC-32 ----

void kivCS2Utils_initCRC32Table(KIVCS2CRC32Param *param)
{
    if (param != nullptr)
        std::memcpy(param->m_table, crc32Param.m_table, sizeof param->m_table);
}

uint32_t kivCSUtils_updateCRC32(KIVCS2CRC32Param *_param, uint32_t crc, const uint8_t *_data, uint32_t length)
{
    KIV_ASSERT(_param);
    KIV_ASSERT(_data);

    if (_param->m_tableBuilt == 0)
    {
        kivCS2Utils_initCRC32Table(_param);
        _param->m_tableBuilt = 1;
    }
    if (length >= kBytesWorthACompare && isStandard(*_param))
        return kiv::crc32Update(crc, _data, length);
    return updateByTable(*_param, crc, _data, length);
}

KIVCS2Status kivCS2Utils_calcCRC32(const uint8_t *data, uint32_t length, uint32_t *crc)
{
    KIV_CHECK((data) != NULL);
    KIV_CHECK((crc) != NULL);

    *crc = ~kiv::crc32Update(0xFFFFFFFFu, data, length);
    return KIVCS2STATUS_OK;
}

// ---- Memory ----

void *kivCS2ZeroMalloc(size_t size)
{
    return std::calloc(1, size);
}

KIVCS2Status kivCS2MemPtr_init(KIVCS2MemPtr *mem, uint32_t size)
{
    if (mem == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    *mem = {};
    return kivCS2MemPtr_realloc(mem, std::max(size, kSmallestBlock));
}

KIVCS2Status kivCS2MemPtr_realloc(KIVCS2MemPtr *mem, uint32_t size)
{
    if (mem == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    return size > mem->m_allocated ? resize(*mem, size) : KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2MemPtr_forceRealloc(KIVCS2MemPtr *mem, uint32_t size)
{
    if (mem == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    return resize(*mem, size);
}

KIVCS2Status kivCS2MemPtr_free(KIVCS2MemPtr *mem)
{
    if (mem == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    std::free(mem->m_ptr);
    *mem = {};
    return KIVCS2STATUS_OK;
}

// ---- Time ----

uint64_t kivCS2AbsoluteToNanoseconds(uint64_t absoluteTime)
{
    // Kept: hosts rely on the product wrapping at 64 bits.
    return absoluteTime * timebaseInfo.numer / timebaseInfo.denom;
}
