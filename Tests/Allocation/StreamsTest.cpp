// Every allocation of the streams fails once in turn.
#include "KIVCS2FileStream.h"
#include "KIVCS2MemoryStream.h"
#include "KIVCS2NamedPipeStream.h"

#include "FailingAllocator.h"
#include "TemporaryFolder.h"

#include <string>

namespace
{
using kiv::test::allocationFailed;
using kiv::test::expectOkOrMemory;
using kiv::test::forEachAllocation;

TEST(StreamsAllocation, AMemoryStreamIsAsBeforeAfterEachFailure)
{
    const std::string bytes(100, 'x');
    const size_t count = forEachAllocation(
        [&](size_t)
        {
            KIVCS2MemoryStream memory;
            expectOkOrMemory(kivCS2MemoryStream_init(&memory, 4, 4));
            if (!allocationFailed())
            {
                ASSERT_EQ(kivCS2Stream_writeBytes(&memory.m_stream, "ab", 2, nullptr), KIVCS2STATUS_OK);
                expectOkOrMemory(
                    kivCS2Stream_writeBytes(&memory.m_stream, bytes.data(), bytes.size(), nullptr));
                if (allocationFailed())
                {
                    EXPECT_EQ(memory.m_size, 2u);
                    EXPECT_EQ(memory.m_capacity, 4u);
                    // The stream still works: the next attempt has memory again.
                    EXPECT_EQ(kivCS2Stream_writeBytes(&memory.m_stream, bytes.data(), bytes.size(), nullptr),
                              KIVCS2STATUS_OK);
                }
                EXPECT_EQ(memory.m_size, 102u);
            }
            EXPECT_EQ(kivCS2MemoryStream_free(&memory.m_stream), KIVCS2STATUS_OK);
        });
    EXPECT_EQ(count, 2u);
}

TEST(StreamsAllocation, ATextThatFindsNoRoomLeavesNoBlock)
{
    std::string bytes(8 + (3u << 20), 'x'); // three steps
    const uint64_t length = bytes.size() - 8;
    bytes.replace(0, 8, reinterpret_cast<const char *>(&length), 8);
    const size_t count = forEachAllocation(
        [&](size_t)
        {
            KIVCS2MemoryStream memory;
            kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size());
            char *text = nullptr;
            expectOkOrMemory(kivCS2Stream_readUTF8String(&memory.m_stream, &text));
            EXPECT_EQ(text == nullptr, allocationFailed());
            kivCS2Stream_freeUTF8String(&memory.m_stream, text);
        });
    EXPECT_EQ(count, 3u);
}

TEST(StreamsAllocation, ANamedPipeWithoutItsPathIsClosedAllTheSame)
{
    const kiv::test::TemporaryFolder folder;
    const std::string path = folder.path("fifo");
    const size_t count = forEachAllocation(
        [&](size_t)
        {
            KIVCS2NamedPipeStream pipe;
            expectOkOrMemory(kivCS2NamedPipeStream_init(
                &pipe, path.c_str(),
                KIVCS2NamedPipeFlag_Read | KIVCS2NamedPipeFlag_NonBlocking | KIVCS2NamedPipeFlag_Create));
            EXPECT_GE(pipe.m_fileDescriptor, 0);
            const bool failed = allocationFailed();
            EXPECT_EQ(kivCS2NamedPipeStream_close(&pipe.m_stream),
                      failed ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK);
            if (failed)
            {
                EXPECT_EQ(pipe.m_fileDescriptor, -1);
            }
        });
    EXPECT_EQ(count, 1u);
}

TEST(StreamsAllocation, AFileThatDoesNotFitIsNotRead)
{
    KIVCS2FileStream file;
    ASSERT_EQ(kivCS2FileStream_init(&file, KIV_TEST_DATA "/pop-on-ndf.scc", "r"), KIVCS2STATUS_OK);
    const auto read = [&file](size_t)
    {
        uint8_t *bytes = nullptr;
        uint64_t size = 0;
        expectOkOrMemory(kivCS2FileStream_getBytes(&file.m_stream, &bytes, &size));
        EXPECT_EQ(bytes == nullptr, allocationFailed());
        (void)kivCS2FileStream_freeBytes(&file.m_stream, bytes);
    };
    EXPECT_EQ(forEachAllocation(read), 1u);
    EXPECT_EQ(kivCS2FileStream_free(&file.m_stream), KIVCS2STATUS_OK);
}
} // namespace
