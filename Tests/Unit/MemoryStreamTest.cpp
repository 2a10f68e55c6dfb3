// Memory streams: limits, views, refusals. Fuzzers/MemoryStreamFuzzer.cpp has a model of the rest.
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include "ArgumentCheck.h"

#include <cstddef>

static_assert(offsetof(KIVCS2MemoryStream, m_stream) == 0 && offsetof(KIVCS2MemoryStream, m_buffer) == 80 &&
              offsetof(KIVCS2MemoryStream, m_capacity) == 88 &&
              offsetof(KIVCS2MemoryStream, m_growSize) == 96 &&
              offsetof(KIVCS2MemoryStream, m_position) == 104 &&
              offsetof(KIVCS2MemoryStream, m_size) == 112 &&
              offsetof(KIVCS2MemoryStream, m_ownsBuffer) == 120 && sizeof(KIVCS2MemoryStream) == 128);

namespace
{
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
    const auto missing = KIVCS2STATUS_MEMORY_ERR; // this kind's own answer
    KIVCS2MemoryStream fresh;
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2MemoryStream_setup, "stream", nullptr),
        KIV_REQUIRES(kivCS2MemoryStream_init, "stream", nullptr, 1, 1),
        KIV_REQUIRES(kivCS2MemoryStream_init, "initialSize > 0", &fresh, 0, 1),
        KIV_REQUIRES(kivCS2MemoryStream_init, "growSize > 0", &fresh, 1, 0),
        KIV_REQUIRES(kivCS2MemoryStream_initWithBytes, "stream", nullptr, view, 1),
        KIV_REQUIRES(kivCS2MemoryStream_initWithBytes, "bytes", &fresh, nullptr, 1),
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
        KIV_REQUIRES(kivCS2MemoryStream_close, "stream", nullptr),
    });
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

TEST(MemoryStream, AViewIsOverwrittenInPlaceAndNeverGrows)
{
    char view[] = "0123456789";
    KIVCS2MemoryStream memory;
    ASSERT_EQ(kivCS2MemoryStream_initWithBytes(&memory, view, 10), KIVCS2STATUS_OK);
    KIVCS2Stream *stream = &memory.m_stream;
    EXPECT_EQ(kivCS2Stream_setPosition(stream, 2, KIVCS2StreamPosition_Start, nullptr), KIVCS2STATUS_OK);
    uint64_t count = 0;
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, "abcde", 5, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, "FGHI", 4, nullptr), KIVCS2STATUS_MEMORY_ERR);
    uint8_t *block = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(kivCS2Stream_getSize(stream, &size), KIVCS2STATUS_OK);
    EXPECT_EQ(size, 10u);
    size = 0;
    EXPECT_EQ(kivCS2Stream_getBytes(stream, &block, &size), KIVCS2STATUS_OK);
    EXPECT_TRUE(block == reinterpret_cast<uint8_t *>(view) && size == 10);
    EXPECT_EQ(kivCS2Stream_freeBytes(stream, block), KIVCS2STATUS_OK);
    EXPECT_EQ(memory.m_buffer, block);
    // Kept: the generic free has this status after a complete release. The caller's bytes stay.
    EXPECT_EQ(kivCS2Stream_free(stream), KIVCS2STATUS_PARAM_ERR);
    EXPECT_TRUE(isClear(memory));
    EXPECT_EQ(kivCS2MemoryStream_free(stream), KIVCS2STATUS_OK); // again is harmless
    EXPECT_STREQ(view, "01abcde789");
}
} // namespace
