// The frame: statuses, start-up, CRC-32, the memory block, absolute time.
#include <KIVCoreServices2/KIVCoreServices2.h>

#include "ArgumentCheck.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

namespace
{
template <class... Statuses>
constexpr bool areAllFailures(Statuses... statuses)
{
    KIVCS2Status next = 0x80000000u;
    return sizeof...(statuses) == 0x34 && ((statuses == next++) && ...);
}
// Hosts store and compare these values, so a change of any of them breaks hosts.
static_assert(KIVCS2STATUS_OK == 0);
static_assert(areAllFailures(
    KIVCS2STATUS_ERR, KIVCS2STATUS_PARAM_ERR, KIVCS2STATUS_MEMORY_ERR, KIVCS2STATUS_BUFFER_SIZE_ERR,
    KIVCS2STATUS_DATA_ERR, KIVCS2STATUS_NO_DATA_ERR, KIVCS2STATUS_NOT_FOUND_ERR, KIVCS2STATUS_TIMEOUT_ERR,
    KIVCS2STATUS_FORMAT_ERR, KIVCS2STATUS_EOF_ERR, KIVCS2STATUS_OVERFLOW_ERR, KIVCS2STATUS_CAPTION_ERR,
    KIVCS2STATUS_HEADER_ERR, KIVCS2STATUS_FRAME_RATE_ERR, KIVCS2STATUS_WRITE_ERR, KIVCS2STATUS_READ_ERR,
    KIVCS2STATUS_OPEN_ERR, KIVCS2STATUS_UNSUPPORTED_ERR, KIVCS2STATUS_NO_ENTRY_ERR,
    KIVCS2STATUS_NO_BUFFER_ERR, KIVCS2STATUS_MUTEX_ERR, KIVCS2STATUS_MUTEX_BUSY_ERR, KIVCS2STATUS_FIFO_ERR,
    KIVCS2STATUS_PIPE_ERR, KIVCS2STATUS_PIXEL_FORMAT_ERR, KIVCS2STATUS_THREAD_ERR, KIVCS2STATUS_SEMAPHORE_ERR,
    KIVCS2STATUS_SEMAPHORE_BUSY_ERR, KIVCS2STATUS_SYSTEM_ERR, KIVCS2STATUS_STATE_ERR,
    KIVCS2STATUS_CONNECT_ERR, KIVCS2STATUS_ADDRESS_ERR, KIVCS2STATUS_SOCKET_ERR,
    KIVCS2STATUS_SOCKET_INVALID_ERR, KIVCS2STATUS_CONNECTION_CLOSED_ERR, KIVCS2STATUS_MULTICAST_ADDRESS_ERR,
    KIVCS2STATUS_BIND_ERR, KIVCS2STATUS_BIND_ADDRESS_ERR, KIVCS2STATUS_ACCEPT_ERR, KIVCS2STATUS_PATH_ERR,
    KIVCS2STATUS_NOT_LAUNCHABLE_ERR, KIVCS2STATUS_FORK_ERR, KIVCS2STATUS_NOT_PIPED_ERR,
    KIVCS2STATUS_TASK_READ_ERR, KIVCS2STATUS_TASK_RUNNING_ERR, KIVCS2STATUS_TASK_NOT_RUNNING_ERR,
    KIVCS2STATUS_TASK_WRITE_ERR, KIVCS2STATUS_TASK_SERVER_ERR, KIVCS2STATUS_INVALID_TIMECODE_ERR,
    KIVCS2STATUS_VIDEO_FORMAT_ERR, KIVCS2STATUS_NODE_LOCKED_ERR, KIVCS2STATUS_NOT_WRITABLE_ERR));

static_assert(offsetof(KIVCS2CRC32Param, m_table) == 4 && sizeof(KIVCS2CRC32Param) == 1028);
static_assert(offsetof(KIVCS2MemPtr, m_ptr) == 0 && offsetof(KIVCS2MemPtr, m_buffer) == 0 &&
              offsetof(KIVCS2MemPtr, m_allocated) == 8 && offsetof(KIVCS2MemPtr, m_used) == 12);

constexpr uint8_t kDigits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

// Runs first in its process: CRCs are right before start-up too.
TEST(Crc32, KnownValues)
{
    uint32_t crc = 1;
    EXPECT_EQ(kivCS2Utils_calcCRC32(kDigits, sizeof kDigits, &crc), KIVCS2STATUS_OK);
    EXPECT_EQ(crc, 0xCBF43926u);
    EXPECT_EQ(kivCS2Utils_calcCRC32(kDigits, 0, &crc), KIVCS2STATUS_OK);
    EXPECT_EQ(crc, 0u);
}

// With a task server the library reaps every child: Tests/Process starts one, in processes of its own.
TEST(Startup, SucceedsAgainAndStartsNoTaskServerUnlessAsked)
{
    EXPECT_EQ(kivCS2_initWithTaskServer(false), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2_initWithTaskServer(false), KIVCS2STATUS_OK);
    uint32_t tasks = 0;
    EXPECT_EQ(kivCS2TaskServer_tasksRunning(&tasks), KIVCS2STATUS_TASK_SERVER_ERR);
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(0), 0u);
    EXPECT_EQ(kivCS2AbsoluteToNanoseconds(UINT64_MAX), UINT64_MAX); // one to one here
    uint32_t crc = 0;
    EXPECT_EQ(kivCS2Utils_calcCRC32(kDigits, sizeof kDigits, &crc), KIVCS2STATUS_OK);
    EXPECT_EQ(crc, 0xCBF43926u);
}

TEST(Crc32, TableIsBuiltLazilyAndOnlyThenFlagged)
{
    KIVCS2CRC32Param built{};
    kivCS2Utils_initCRC32Table(&built);
    kivCS2Utils_initCRC32Table(nullptr);
    EXPECT_EQ(built.m_tableBuilt, 0u);
    EXPECT_EQ(built.m_table[1], 0x77073096u);
    EXPECT_EQ(built.m_table[255], 0x2D02EF8Du);

    KIVCS2CRC32Param fresh{};
    fresh.m_table[1] = 99; // ignored, because the table is not built
    EXPECT_EQ(~kivCSUtils_updateCRC32(&fresh, 0xFFFFFFFFu, kDigits, sizeof kDigits), 0xCBF43926u);
    EXPECT_EQ(fresh.m_tableBuilt, 1u);
    EXPECT_EQ(std::memcmp(fresh.m_table, built.m_table, sizeof built.m_table), 0);
}

uint32_t byTable(const KIVCS2CRC32Param &param, uint32_t crc, const std::vector<uint8_t> &data)
{
    for (const uint8_t byte : data)
        crc = param.m_table[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return crc;
}

// The record's own table is used, even if a host changes it between two calls.
TEST(Crc32, HostsOwnTableIsHonoured)
{
    std::vector<uint8_t> data(3000);
    std::iota(data.begin(), data.end(), uint8_t{3});
    KIVCS2CRC32Param param{};
    param.m_tableBuilt = 7;
    for (uint32_t n = 0; n < 256; ++n) // CRC-32C
    {
        param.m_table[n] = n;
        for (int bit = 0; bit < 8; ++bit)
            param.m_table[n] = (param.m_table[n] >> 1) ^ ((param.m_table[n] & 1) != 0 ? 0x82F63B78u : 0);
    }
    EXPECT_EQ(~kivCSUtils_updateCRC32(&param, 0xFFFFFFFFu, kDigits, sizeof kDigits), 0xE3069283u);
    EXPECT_EQ(kivCSUtils_updateCRC32(&param, 5, data.data(), 3000), byTable(param, 5, data));

    kivCS2Utils_initCRC32Table(&param);
    EXPECT_EQ(kivCSUtils_updateCRC32(&param, 5, data.data(), 3000), byTable(param, 5, data));
    uint32_t crc = 0;
    ASSERT_EQ(kivCS2Utils_calcCRC32(data.data(), 3000, &crc), KIVCS2STATUS_OK);
    EXPECT_EQ(~kivCSUtils_updateCRC32(&param, 0xFFFFFFFFu, data.data(), 3000), crc);

    param.m_table[200] ^= 1;
    EXPECT_EQ(kivCSUtils_updateCRC32(&param, 5, data.data(), 3000), byTable(param, 5, data));
    EXPECT_EQ(param.m_tableBuilt, 7u);
}

TEST(Crc32, RefusesMissingArguments)
{
    uint32_t crc = 0;
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2Utils_calcCRC32, "(data) != NULL", nullptr, 1, &crc),
        KIV_REQUIRES(kivCS2Utils_calcCRC32, "(crc) != NULL", kDigits, 1, nullptr),
    });
}

TEST(ZeroMalloc, ReturnsZeroes)
{
    auto *block = static_cast<uint8_t *>(kivCS2ZeroMalloc(4096));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::accumulate(block, block + 4096, 0u), 0u);
    std::free(block);
}

TEST(MemPtr, HasNeverFewerThanFourBytes)
{
    for (const auto &[asked, given] :
         std::vector<std::pair<uint32_t, uint32_t>>{{0, 4}, {1, 4}, {4, 4}, {5, 5}, {1000, 1000}})
    {
        KIVCS2MemPtr mem;
        std::memset(&mem, 0xAB, sizeof mem); // contents that must not matter
        ASSERT_EQ(kivCS2MemPtr_init(&mem, asked), KIVCS2STATUS_OK);
        EXPECT_EQ(mem.m_allocated, given);
        EXPECT_EQ(mem.m_used, 0u);
        std::memset(mem.m_buffer, 1, given); // AddressSanitizer checks the size
        EXPECT_EQ(kivCS2MemPtr_free(&mem), KIVCS2STATUS_OK);
    }
}

TEST(MemPtr, GrowsShrinksByForceAndKeepsContents)
{
    KIVCS2MemPtr mem;
    ASSERT_EQ(kivCS2MemPtr_init(&mem, 8), KIVCS2STATUS_OK);
    std::memcpy(mem.m_ptr, "sevenb7", 8);
    mem.m_used = 3;

    void *const block = mem.m_ptr;
    for (const uint32_t size : {0u, 7u, 8u})
    {
        EXPECT_EQ(kivCS2MemPtr_realloc(&mem, size), KIVCS2STATUS_OK);
        EXPECT_TRUE(mem.m_ptr == block && mem.m_allocated == 8) << size;
    }
    EXPECT_EQ(kivCS2MemPtr_realloc(&mem, 100000), KIVCS2STATUS_OK);
    EXPECT_EQ(mem.m_allocated, 100000u);
    EXPECT_STREQ(static_cast<char *>(mem.m_ptr), "sevenb7");

    EXPECT_EQ(kivCS2MemPtr_forceRealloc(&mem, 4), KIVCS2STATUS_OK);
    EXPECT_EQ(mem.m_allocated, 4u);
    EXPECT_EQ(std::memcmp(mem.m_ptr, "seve", 4), 0);
    EXPECT_EQ(kivCS2MemPtr_forceRealloc(&mem, 0), KIVCS2STATUS_OK); // does not lose an empty block
    EXPECT_EQ(mem.m_allocated, 0u);
    EXPECT_EQ(mem.m_used, 3u);
    EXPECT_EQ(kivCS2MemPtr_realloc(&mem, 6), KIVCS2STATUS_OK);
    EXPECT_EQ(mem.m_allocated, 6u);

    for (int time = 0; time < 2; ++time)
    {
        EXPECT_EQ(kivCS2MemPtr_free(&mem), KIVCS2STATUS_OK);
        EXPECT_TRUE(mem.m_ptr == nullptr && mem.m_allocated == 0 && mem.m_used == 0);
    }
}

TEST(MemPtr, RefusesAMissingRecordWithoutAnAssertion)
{
    EXPECT_EQ(kivCS2MemPtr_init(nullptr, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2MemPtr_realloc(nullptr, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2MemPtr_forceRealloc(nullptr, 1), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(kivCS2MemPtr_free(nullptr), KIVCS2STATUS_PARAM_ERR);
}
} // namespace
