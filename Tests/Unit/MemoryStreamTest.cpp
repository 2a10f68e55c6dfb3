// Memory streams: growth, views, positions, and what they refuse.
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include "ArgumentCheck.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <string>

static_assert(offsetof(KIVCS2MemoryStream, m_stream) == 0);
static_assert(offsetof(KIVCS2MemoryStream, m_buffer) == 80);
static_assert(offsetof(KIVCS2MemoryStream, m_capacity) == 88);
static_assert(offsetof(KIVCS2MemoryStream, m_growSize) == 96);
static_assert(offsetof(KIVCS2MemoryStream, m_position) == 104);
static_assert(offsetof(KIVCS2MemoryStream, m_size) == 112);
static_assert(offsetof(KIVCS2MemoryStream, m_ownsBuffer) == 120);
static_assert(sizeof(KIVCS2MemoryStream) == 128);

namespace
{
constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

bool isClear(const KIVCS2MemoryStream &memory)
{
    return memory.m_stream.m_free == nullptr && memory.m_buffer == nullptr && memory.m_capacity == 0 &&
           memory.m_growSize == 0 && memory.m_size == 0 && !memory.m_ownsBuffer;
}

TEST(MemoryStream, RefusesWhatIsMissing)
{
    KIVCS2MemoryStream empty;
    kivCS2MemoryStream_setup(&empty);
    char view[4] = {};
    KIVCS2MemoryStream memory;
    kivCS2MemoryStream_initWithBytes(&memory, view, sizeof view);
    KIVCS2Stream *none = &empty.m_stream;
    KIVCS2Stream *some = &memory.m_stream;
    char byte = 0;
    uint64_t size = 0;
    uint32_t eos = 0;
    uint8_t *block = nullptr;
    const auto param = KIVCS2STATUS_PARAM_ERR;
    const auto missing = KIVCS2STATUS_MEMORY_ERR; // this kind's own answer
    KIVCS2MemoryStream fresh;
    kiv::test::expectAllRefused({
        KIV_REFUSES(param, kivCS2MemoryStream_setup, "stream", nullptr),
        KIV_REFUSES(param, kivCS2MemoryStream_init, "stream", nullptr, 1, 1),
        KIV_REFUSES(param, kivCS2MemoryStream_init, "initialSize > 0", &fresh, 0, 1),
        KIV_REFUSES(param, kivCS2MemoryStream_init, "growSize > 0", &fresh, 1, 0),
        KIV_REFUSES(param, kivCS2MemoryStream_initWithBytes, "stream", nullptr, view, 1),
        KIV_REFUSES(param, kivCS2MemoryStream_initWithBytes, "bytes", &fresh, nullptr, 1),
        KIV_REFUSES(missing, kivCS2MemoryStream_writeBytes, "stream->m_buffer", none, &byte, 1, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_writeBytes, "stream->m_buffer", nullptr, &byte, 1, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_writeBytes, "buffer", some, nullptr, 1, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_readBytes, "stream->m_buffer", none, &byte, 1, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_readBytes, "buffer", some, nullptr, 1, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_getSize, "stream->m_buffer", none, &size),
        KIV_REFUSES(missing, kivCS2MemoryStream_getSize, "size", some, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_setPosition, "stream->m_buffer", none, 0, 0, nullptr),
        KIV_REFUSES(missing, kivCS2MemoryStream_isEndOfStream, "stream->m_buffer", none, &eos),
        {"kivCS2MemoryStream_isEndOfStream", "eos", missing,
         KIV_CALL(kivCS2Stream_isEndOfStream(some, nullptr))},
        KIV_REFUSES(missing, kivCS2MemoryStream_getBytes, "stream->m_buffer", none, &block, &size),
        KIV_REFUSES(param, kivCS2MemoryStream_close, "stream", nullptr),
    });
}

TEST(MemoryStream, GrowsByStepsAndOneMore)
{
    struct Row
    {
        uint64_t grow;
        uint64_t write;
        uint64_t capacity;
    };
    const std::string bytes(100, 'x');
    for (const Row &row : std::initializer_list<Row>{
             {10, 16, 16},     // fits exactly
             {10, 17, 26},     // a shortfall of 1
             {10, 25, 26},     // of 9
             {10, 26, 36},     // of 10, exactly one step: one more all the same
             {10, 40, 46},     // of 24
             {1000, 40, 1016}, // below one step
             {1, 20, 21},
         })
    {
        KIVCS2MemoryStream memory;
        ASSERT_EQ(kivCS2MemoryStream_init(&memory, 16, row.grow), KIVCS2STATUS_OK);
        uint64_t written = 0;
        EXPECT_EQ(kivCS2Stream_writeBytes(&memory.m_stream, bytes.data(), row.write, &written),
                  KIVCS2STATUS_OK);
        EXPECT_EQ(written, row.write);
        EXPECT_EQ(memory.m_capacity, row.capacity) << row.write << " by " << row.grow;
        // Overwriting moves neither the size, which is not the capacity, nor what lies behind.
        uint64_t size = 0;
        uint32_t eos = 9;
        kivCS2Stream_setPosition(&memory.m_stream, 4, KIVCS2StreamPosition_Start, nullptr);
        kivCS2Stream_writeBytes(&memory.m_stream, "ab", 2, nullptr);
        EXPECT_EQ(kivCS2Stream_getSize(&memory.m_stream, &size), KIVCS2STATUS_OK);
        EXPECT_EQ(size, row.write);
        EXPECT_EQ(kivCS2Stream_isEndOfStream(&memory.m_stream, &eos), KIVCS2STATUS_OK);
        EXPECT_EQ(eos, 0u);
        EXPECT_EQ(std::memcmp(memory.m_buffer, "xxxxabx", 7), 0);
        EXPECT_EQ(kivCS2MemoryStream_free(&memory.m_stream), KIVCS2STATUS_OK);
        EXPECT_TRUE(isClear(memory));
        EXPECT_EQ(kivCS2MemoryStream_free(&memory.m_stream), KIVCS2STATUS_OK); // again is harmless
    }
}

TEST(MemoryStream, SizesBeyond32BitsAreRefusedAndChangeNothing)
{
    KIVCS2MemoryStream memory;
    char byte = 'z';
    EXPECT_EQ(kivCS2MemoryStream_init(&memory, 1ull << 32, 1), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(kivCS2MemoryStream_initWithBytes(&memory, &byte, 1ull << 32), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_EQ(memory.m_buffer, nullptr);

    for (const uint64_t grow : {uint64_t{1}, uint64_t{4096}, uint64_t{1} << 32, UINT64_MAX})
        for (const uint64_t size : {uint64_t{1} << 32, UINT64_MAX, UINT64_MAX - 1})
        {
            ASSERT_EQ(kivCS2MemoryStream_init(&memory, 1, grow), KIVCS2STATUS_OK);
            kivCS2Stream_writeBytes(&memory.m_stream, "a", 1, nullptr);
            uint64_t written = 99;
            EXPECT_EQ(kivCS2Stream_writeBytes(&memory.m_stream, &byte, size, &written),
                      KIVCS2STATUS_MEMORY_ERR);
            EXPECT_EQ(written, 99u);
            EXPECT_EQ(memory.m_position, 1);
            EXPECT_EQ(memory.m_capacity, 1u);
            EXPECT_EQ(memory.m_buffer[0], 'a');
            kivCS2MemoryStream_free(&memory.m_stream);
        }
}

TEST(MemoryStream, AViewIsReadAndOverwrittenInPlaceAndNeverGrows)
{
    char view[] = "0123456789";
    KIVCS2MemoryStream memory;
    ASSERT_EQ(kivCS2MemoryStream_initWithBytes(&memory, view, 10), KIVCS2STATUS_OK);
    KIVCS2Stream *stream = &memory.m_stream;
    int64_t position = 0;
    EXPECT_EQ(kivCS2Stream_setPosition(stream, 2, KIVCS2StreamPosition_Start, &position), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, "abcde", 5, nullptr), KIVCS2STATUS_OK);
    EXPECT_STREQ(view, "01abcde789");
    EXPECT_EQ(memory.m_size, 10u);

    uint64_t count = 0;
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, "FGHI", 4, &count), KIVCS2STATUS_MEMORY_ERR);
    EXPECT_STREQ(view, "01abcde789");
    char rest[8] = {};
    EXPECT_EQ(kivCS2Stream_readBytes(stream, rest, 8, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 3u);
    EXPECT_STREQ(rest, "789");
    uint32_t eos = 0;
    EXPECT_EQ(kivCS2Stream_isEndOfStream(stream, &eos), KIVCS2STATUS_OK);
    EXPECT_EQ(eos, 1u);
    EXPECT_EQ(kivCS2Stream_readBytes(stream, rest, 8, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 0u);

    uint8_t *block = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(kivCS2Stream_getBytes(stream, &block, &size), KIVCS2STATUS_OK);
    EXPECT_EQ(block, reinterpret_cast<uint8_t *>(view));
    EXPECT_EQ(kivCS2Stream_freeBytes(stream, block), KIVCS2STATUS_OK);
    EXPECT_EQ(memory.m_buffer, block);
    // Released completely, and always with this answer; the caller's bytes stay.
    EXPECT_EQ(kivCS2Stream_free(stream), KIVCS2STATUS_PARAM_ERR);
    EXPECT_TRUE(isClear(memory));
    EXPECT_STREQ(view, "01abcde789");
}

TEST(MemoryStream, PositionsStayWithinTheContent)
{
    struct Row
    {
        int64_t from;
        int64_t offset;
        KIVCS2StreamPosition mode;
        int64_t result; // -1: refused
    };
    char view[10] = {};
    for (const Row &row : std::initializer_list<Row>{
             {0, 10, 0, 10},
             {4, 11, 0, -1},
             {4, -1, 0, -1},
             {4, 6, 1, 10},
             {4, 7, 1, -1},
             {4, -4, 1, 0},
             {4, -5, 1, -1},
             {4, kMax, 1, -1}, // would wrap
             {4, kMin, 1, -1},
             {0, 3, 2, 7}, // backwards from the end
             {4, 0, 2, 10},
             {4, 10, 2, 0},
             {4, 11, 2, -1},
             {4, -1, 2, -1},
             {4, kMin, 2, -1}, // would wrap
             {4, kMax, 2, -1},
             {4, 3, 9, 3}, // an unknown mode takes the offset as it is
         })
    {
        KIVCS2MemoryStream memory;
        kivCS2MemoryStream_initWithBytes(&memory, view, sizeof view);
        memory.m_position = row.from;
        int64_t position = 77;
        const KIVCS2Status status =
            kivCS2MemoryStream_setPosition(&memory.m_stream, row.offset, row.mode, &position);
        const bool refused = row.result < 0;
        EXPECT_EQ(status, refused ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK)
            << row.offset << ' ' << row.mode;
        EXPECT_EQ(memory.m_position, refused ? row.from : row.result);
        EXPECT_EQ(position, refused ? 77 : row.result);
    }
}
} // namespace
