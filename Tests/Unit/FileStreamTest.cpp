// File streams: all-or-nothing counts, positions, whole contents, and paths that are not regular files.
#include <KIVCoreServices2/KIVCS2FileStream.h>

#include "NoStandardStreams.h"
#include "RequiredPointers.h"
#include "TemporaryFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstddef>
#include <cstdio>

static_assert(offsetof(KIVCS2FileStream, m_stream) == 0 && offsetof(KIVCS2FileStream, m_file) == 80 &&
              sizeof(KIVCS2FileStream) == 88);

namespace
{
using kiv::test::TemporaryFolder;

struct OpenFile : KIVCS2FileStream
{
    OpenFile(const std::string &path, const char *mode)
    {
        EXPECT_OK(kivCS2FileStream_init(this, path.c_str(), mode));
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;
    ~OpenFile()
    {
        kivCS2FileStream_free(get());
    }
    KIVCS2Stream *get()
    {
        return &m_stream;
    }
};

TEST(FileStream, RefusesWhatIsMissing)
{
    const TemporaryFolder folder;
    OpenFile file{folder.write("a", "0123"), "r"};
    KIVCS2FileStream closed;
    kivCS2FileStream_setup(&closed);
    KIVCS2Stream *none = &closed.m_stream;
    char byte = 0;
    uint64_t size = 0;
    uint32_t eos = 0;
    uint8_t *block = nullptr;
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_init, "stream, filename, accessMode", &closed, "a", "r");
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_writeBytes, "-, buffer, -", file.get(), &byte, 1, nullptr);
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_readBytes, "-, buffer, -", file.get(), &byte, 1, nullptr);
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_getSize, "-, size", file.get(), &size);
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_isEndOfStream, "-, eos", file.get(), &eos);
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_getBytes, "-, buffer, size", file.get(), &block, &size);
    KIV_REQUIRES_NOT_NULL(kivCS2FileStream_close, "stream", file.get());
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2FileStream_writeBytes, "(stream->m_file) != NULL", none, &byte, 1, nullptr),
        KIV_REQUIRES(kivCS2FileStream_readBytes, "(stream->m_file) != NULL", none, &byte, 1, nullptr),
    });
}

TEST(FileStream, WhatCannotBeOpenedLeavesARecordThatCanBeClosed)
{
    const TemporaryFolder folder;
    KIVCS2FileStream file;
    EXPECT_EQ(kivCS2FileStream_init(&file, folder.path("missing").c_str(), "r"), KIVCS2STATUS_OPEN_ERR);
    EXPECT_EQ(kivCS2FileStream_init(&file, folder.path("a").c_str(), "?"), KIVCS2STATUS_OPEN_ERR);
    EXPECT_OK(kivCS2FileStream_close(&file.m_stream));
    EXPECT_OK(kivCS2FileStream_close(&file.m_stream));
    EXPECT_EQ(file.m_stream.m_close, nullptr);
}

TEST(FileStream, ReportsTheWholeRequestOrNothing)
{
    const TemporaryFolder folder;
    OpenFile file{folder.write("a", "0123456789"), "r"};
    char bytes[16] = {};
    uint64_t count = 99;
    EXPECT_OK(kivCS2Stream_readBytes(file.get(), bytes, 6, &count));
    EXPECT_EQ(count, 6u);
    EXPECT_OK(kivCS2Stream_readBytes(file.get(), bytes, 10, &count));
    EXPECT_EQ(count, 0u);
    // A write to a file opened for reading only succeeds with a count of 0.
    EXPECT_OK(kivCS2Stream_writeBytes(file.get(), "ab", 2, &count));
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(kivCS2Stream_free(file.get()), KIVCS2STATUS_PARAM_ERR);
}

TEST(FileStream, PositionsFollowTheStandardOrigins)
{
    const TemporaryFolder folder;
    OpenFile file{folder.write("a", "0123456789"), "r"};
    using Row = std::tuple<int64_t, KIVCS2StreamPosition, KIVCS2Status, int64_t, uint32_t>;
    for (const auto &[offset, mode, status, expected, atEnd] : {
             Row{4, KIVCS2StreamPosition_Start, KIVCS2STATUS_OK, 4, 0},
             {3, KIVCS2StreamPosition_Current, KIVCS2STATUS_OK, 7, 0},
             {-8, KIVCS2StreamPosition_Current, KIVCS2STATUS_READ_ERR, 7, 0},
             {0, KIVCS2StreamPosition_End, KIVCS2STATUS_OK, 10, 1},
             {3, KIVCS2StreamPosition_End, KIVCS2STATUS_OK, 13, 0}, // added to the end
             {-1, KIVCS2StreamPosition_End, KIVCS2STATUS_OK, 9, 0},
             {-1, KIVCS2StreamPosition_Start, KIVCS2STATUS_READ_ERR, 9, 0},
         })
    {
        int64_t position = -1;
        EXPECT_EQ(kivCS2Stream_setPosition(file.get(), offset, mode, &position), status);
        EXPECT_EQ(position, status == KIVCS2STATUS_OK ? expected : -1);
        uint64_t size = 0;
        EXPECT_OK(kivCS2Stream_getSize(file.get(), &size));
        EXPECT_EQ(size, 10u);
        EXPECT_EQ(ftell(file.m_file), expected); // as it was before the measurement
        uint32_t eos = 9;
        EXPECT_OK(kivCS2Stream_isEndOfStream(file.get(), &eos));
        EXPECT_EQ(eos, atEnd) << expected;
    }
    EXPECT_EQ(kivCS2FileStream_setPosition(file.get(), 0, 3, nullptr), KIVCS2STATUS_PARAM_ERR);
}

TEST(FileStream, HandsOutTheWholeFileFromAnyPosition)
{
    const TemporaryFolder folder;
    std::string content(100'000, '\0');
    for (size_t index = 0; index < content.size(); ++index)
        content[index] = static_cast<char>(index * 7);
    OpenFile file{folder.write("a", content), "r+"};
    kivCS2Stream_setPosition(file.get(), 500, KIVCS2StreamPosition_Start, nullptr);
    uint8_t *block = nullptr;
    uint64_t size = 0;
    ASSERT_OK(kivCS2Stream_getBytes(file.get(), &block, &size));
    ASSERT_EQ(size, content.size());
    EXPECT_TRUE(std::string(reinterpret_cast<char *>(block), size) == content);
    EXPECT_EQ(ftell(file.m_file), 100'000);
    EXPECT_OK(kivCS2Stream_freeBytes(file.get(), block));
    EXPECT_OK(kivCS2FileStream_freeBytes(file.get(), nullptr));

    OpenFile empty{folder.write("empty", ""), "r"};
    EXPECT_OK(kivCS2Stream_getBytes(empty.get(), &block, &size));
    EXPECT_TRUE(block != nullptr && size == 0);
    kivCS2Stream_freeBytes(empty.get(), block);
}

TEST(FileStream, AShortReadIsASuccessWithoutABlock)
{
    const TemporaryFolder folder;
    OpenFile file{folder.path("a"), "w"}; // has a size, but cannot be read
    kivCS2Stream_writeBytes(file.get(), "0123", 4, nullptr);
    uint8_t *block = reinterpret_cast<uint8_t *>(&file);
    uint64_t size = 0;
    EXPECT_OK(kivCS2Stream_getBytes(file.get(), &block, &size));
    EXPECT_TRUE(block == nullptr && size == 4);
}

TEST(FileStream, ADirectoryAndAVastFileAreRefusedNotRead)
{
    const TemporaryFolder folder;
    OpenFile directory{folder.path(""), "r"};
    uint64_t size = 0;
    uint8_t *block = nullptr;
    char byte = 0;
    uint64_t count = 9;
    EXPECT_OK(kivCS2Stream_getSize(directory.get(), &size));
    if (size == LONG_MAX) // as on the kernel's common file systems
    {
        EXPECT_EQ(kivCS2Stream_getBytes(directory.get(), &block, &size), KIVCS2STATUS_MEMORY_ERR);
    }
    EXPECT_EQ(block, nullptr);
    EXPECT_OK(kivCS2Stream_readBytes(directory.get(), &byte, 1, &count));
    EXPECT_EQ(count, 0u);

    OpenFile sparse{folder.path("sparse"), "w+"};
    if (ftruncate(fileno(sparse.m_file), 1ll << 43) == 0) // 8 TiB, without a block on the disk
    {
        EXPECT_EQ(kivCS2Stream_getBytes(sparse.get(), &block, &size), KIVCS2STATUS_MEMORY_ERR);
    }
    EXPECT_EQ(block, nullptr);
}

TEST(FileStream, AFifoHasNoPositions)
{
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    OpenFile fifo{folder.path("fifo"), "r+"};
    uint64_t size = 0;
    uint32_t eos = 0;
    uint8_t *block = nullptr;
    EXPECT_EQ(kivCS2Stream_getSize(fifo.get(), &size), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(kivCS2Stream_setPosition(fifo.get(), 0, 0, nullptr), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(kivCS2Stream_isEndOfStream(fifo.get(), &eos), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(kivCS2Stream_getBytes(fifo.get(), &block, &size), KIVCS2STATUS_READ_ERR);
}

TEST(FileStream, BytesLostAtTheCloseAreReported)
{
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full here";
    KIVCS2FileStream file;
    ASSERT_OK(kivCS2FileStream_init(&file, "/dev/full", "w"));
    uint64_t count = 0;
    kivCS2Stream_writeBytes(&file.m_stream, "abc", 3, &count);
    EXPECT_EQ(count, 3u); // still in the buffer
    EXPECT_EQ(kivCS2FileStream_close(&file.m_stream), KIVCS2STATUS_WRITE_ERR);
    EXPECT_EQ(file.m_file, nullptr);
}

// A launched child must not keep the file open, and a daemon's file must not become a standard stream.
TEST(FileStream, EveryModeIsClosedOnExecAndAboveTheStandardStreams)
{
    for (const char *mode : {"r", "r+", "rb+", "re", "a", "a+", "w", "w+bm", "wbbbbb", "wbbbbbb"})
        for (const int closed : {0, 1, 3})
        {
            SCOPED_TRACE(std::string{mode} + ' ' + std::to_string(closed));
            const TemporaryFolder folder;
            const std::string path = folder.write("a", "0123");
            KIVCS2FileStream file;
            KIVCS2Status status = KIVCS2STATUS_SYSTEM_ERR;
            {
                const kiv::test::NoStandardStreams none{closed};
                status = kivCS2FileStream_init(&file, path.c_str(), mode);
            }
            ASSERT_OK(status);
            EXPECT_GT(fileno(file.m_file), STDERR_FILENO);
            EXPECT_EQ(fcntl(fileno(file.m_file), F_GETFD), FD_CLOEXEC);
            char byte = '9';
            uint64_t count = 0;
            EXPECT_OK(mode[0] == 'r' ? kivCS2FileStream_readBytes(&file.m_stream, &byte, 1, &count)
                                     : kivCS2FileStream_writeBytes(&file.m_stream, &byte, 1, &count));
            EXPECT_EQ(count, 1u);
            EXPECT_OK(kivCS2FileStream_free(&file.m_stream));
            EXPECT_EQ(std::filesystem::file_size(path), mode[0] == 'w' ? 1u : mode[0] == 'a' ? 5u : 4u);
        }
    // Modes that the C library refuses are refused.
    const TemporaryFolder folder;
    const std::string path = folder.write("a", "0123");
    for (const char *mode : {"wx", "", "q", "er"})
    {
        KIVCS2FileStream file;
        EXPECT_EQ(kivCS2FileStream_init(&file, path.c_str(), mode), KIVCS2STATUS_OPEN_ERR) << mode;
    }
    EXPECT_EQ(std::filesystem::file_size(path), 4u);
}
} // namespace
