// Named-pipe streams over FIFOs in a temporary folder.
#include <KIVCoreServices2/KIVCS2NamedPipeStream.h>

#include "NoStandardStreams.h"
#include "RequiredPointers.h"
#include "TemporaryFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <thread>

static_assert(offsetof(KIVCS2NamedPipeStream, m_stream) == 0 &&
              offsetof(KIVCS2NamedPipeStream, m_path) == 80 &&
              offsetof(KIVCS2NamedPipeStream, m_fileDescriptor) == 88 &&
              offsetof(KIVCS2NamedPipeStream, m_flags) == 92 && sizeof(KIVCS2NamedPipeStream) == 96);
static_assert(KIVCS2NamedPipeFlag_Read == 0x02 && KIVCS2NamedPipeFlag_Write == 0x04 &&
              KIVCS2NamedPipeFlag_NonBlocking == 0x08 && KIVCS2NamedPipeFlag_Create == 0x10 &&
              KIVCS2NamedPipeFlag_Unlink == 0x20);

namespace
{
std::function<void()> g_beforeOpen; // runs once, between the check of a path and its opening
} // namespace

// The program's own definition replaces that of the C library.
extern "C" __attribute__((visibility("default"))) int open(const char *path, int flags, ...)
{
    if (const auto run = std::exchange(g_beforeOpen, nullptr))
        run();
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0600));
}
extern "C" __attribute__((visibility("default"))) int __open_2(const char *path, int flags) // with fortify
{
    return open(path, flags);
}

namespace
{
using kiv::test::TemporaryFolder;

constexpr uint32_t kRead = KIVCS2NamedPipeFlag_Read;
constexpr uint32_t kWrite = KIVCS2NamedPipeFlag_Write;
constexpr uint32_t kNow = KIVCS2NamedPipeFlag_NonBlocking;
constexpr uint32_t kCreate = KIVCS2NamedPipeFlag_Create;
constexpr uint32_t kUnlink = KIVCS2NamedPipeFlag_Unlink;

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

TEST(NamedPipeStream, RefusesWhatIsMissing)
{
    KIVCS2NamedPipeStream closed;
    kivCS2NamedPipeStream_setup(&closed);
    KIVCS2NamedPipeStream cleared{}; // as after a close: 0 is another part's descriptor
    KIVCS2NamedPipeStream open;
    kivCS2NamedPipeStream_setup(&open);
    open.m_fileDescriptor = 1;
    char byte = 0;
    KIV_REQUIRES_NOT_NULL(kivCS2NamedPipeStream_init, "stream, filename", &closed, "a", 0);
    KIV_REQUIRES_NOT_NULL(kivCS2NamedPipeStream_writeBytes, "-, buffer, -", &open.m_stream, &byte, 1,
                          nullptr);
    KIV_REQUIRES_NOT_NULL(kivCS2NamedPipeStream_readBytes, "-, buffer, -", &open.m_stream, &byte, 1, nullptr);
    KIV_REQUIRES_NOT_NULL(kivCS2NamedPipeStream_close, "stream", &open.m_stream);
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2NamedPipeStream_writeBytes, "(stream->m_fileDescriptor >= 0)", &closed.m_stream,
                     &byte, 1, nullptr),
        KIV_REQUIRES(kivCS2NamedPipeStream_readBytes, "(stream->m_fileDescriptor >= 0)", &closed.m_stream,
                     &byte, 1, nullptr),
        KIV_REQUIRES(kivCS2NamedPipeStream_writeBytes, "(stream->m_fileDescriptor >= 0)", &cleared.m_stream,
                     &byte, 1, nullptr),
        KIV_REQUIRES(kivCS2NamedPipeStream_readBytes, "(stream->m_fileDescriptor >= 0)", &cleared.m_stream,
                     &byte, 1, nullptr),
    });
}

TEST(NamedPipeStream, OpensAndRefusesByItsFlags)
{
    using Row = std::tuple<const char *, uint32_t, KIVCS2Status, bool>;
    for (const auto &[name, flags, status, existsAfter] : {
             Row{"missing", kRead, KIVCS2STATUS_DATA_ERR, false},
             {"missing", kWrite | kNow, KIVCS2STATUS_DATA_ERR, false},
             {"missing", 0, KIVCS2STATUS_DATA_ERR, false},
             {"missing", 0x01 | 0x40, KIVCS2STATUS_DATA_ERR, false}, // bits without a meaning
             {"missing", kRead | kNow | kCreate, KIVCS2STATUS_OK, true},
             {"missing", kRead | kNow | kCreate | kUnlink, KIVCS2STATUS_OK, false},
             {"missing", kWrite | kNow | kCreate, KIVCS2STATUS_OPEN_ERR, true}, // no reader
             {"none/fifo", kRead | kNow | kCreate, KIVCS2STATUS_FIFO_ERR, false},
             {"fifo", kRead | kNow, KIVCS2STATUS_OK, true},
             {"fifo", kNow, KIVCS2STATUS_OK, true}, // with neither it reads
             {"fifo", kRead | kWrite | kNow, KIVCS2STATUS_OK,
              true}, // with both it reads, so no reader is needed
             {"fifo", kWrite | kNow, KIVCS2STATUS_OPEN_ERR, true},
             {"fifo", kWrite | kNow | kUnlink, KIVCS2STATUS_OPEN_ERR,
              true}, // removes only a FIFO that it has opened
         })
    {
        SCOPED_TRACE(std::string{name} + ' ' + std::to_string(flags));
        const TemporaryFolder folder;
        ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
        const std::string path = folder.path(name);
        KIVCS2NamedPipeStream pipe;
        EXPECT_EQ(kivCS2NamedPipeStream_init(&pipe, path.c_str(), flags), status);
        EXPECT_EQ(pipe.m_flags, flags);
        const bool opened = status == KIVCS2STATUS_OK;
        EXPECT_EQ(pipe.m_fileDescriptor >= 0, opened);
        if (opened)
        {
            EXPECT_EQ(pipe.m_path, path);
            struct stat info
            {
            };
            EXPECT_EQ(fstat(pipe.m_fileDescriptor, &info), 0);
            EXPECT_EQ(info.st_mode, S_IFIFO | 0600u);
        }
        // After a failure the record holds neither a path nor a descriptor.
        EXPECT_EQ(kivCS2NamedPipeStream_close(&pipe.m_stream),
                  opened ? KIVCS2STATUS_OK : KIVCS2STATUS_PARAM_ERR);
        EXPECT_EQ(exists(path), existsAfter);
    }
}

TEST(NamedPipeStream, PassesBytesBetweenTwoEnds)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("fifo");
    KIVCS2NamedPipeStream writer;
    std::thread opening{[&] // waits for the reader
                        {
                            EXPECT_OK(kivCS2NamedPipeStream_init(&writer, path.c_str(), kWrite | kCreate));
                            EXPECT_OK(kivCS2Stream_writeBytes(&writer.m_stream, "hello", 5, nullptr));
                            EXPECT_OK(kivCS2NamedPipeStream_free(&writer.m_stream));
                        }};
    KIVCS2NamedPipeStream reader;
    ASSERT_OK(kivCS2NamedPipeStream_init(&reader, path.c_str(), kRead | kCreate | kUnlink));
    std::string text;
    char bytes[3];
    for (uint64_t count = 1; count > 0; text.append(bytes, count))
        ASSERT_OK(kivCS2Stream_readBytes(&reader.m_stream, bytes, sizeof bytes, &count));
    EXPECT_EQ(text, "hello");
    opening.join();
    EXPECT_EQ(kivCS2Stream_free(&reader.m_stream), KIVCS2STATUS_PARAM_ERR);
    EXPECT_FALSE(exists(path));
}

TEST(NamedPipeStream, TransfersThatWouldWaitOrHaveNoReaderFail)
{
    static volatile sig_atomic_t raised;
    raised = 0;
    const auto before = std::signal(SIGPIPE, [](int) { raised = 1; });
    const TemporaryFolder folder;
    const std::string path = folder.path("fifo");
    KIVCS2NamedPipeStream reader;
    KIVCS2NamedPipeStream writer;
    ASSERT_OK(kivCS2NamedPipeStream_init(&reader, path.c_str(), kRead | kNow | kCreate));
    ASSERT_OK(kivCS2NamedPipeStream_init(&writer, path.c_str(), kWrite | kNow));
    char byte = 0;
    uint64_t count = 99;
    EXPECT_EQ(kivCS2Stream_readBytes(&reader.m_stream, &byte, 1, &count), KIVCS2STATUS_READ_ERR);
    EXPECT_EQ(count, 0u);

    const std::string large(1 << 20, 'x');
    EXPECT_OK(kivCS2Stream_writeBytes(&writer.m_stream, large.data(), large.size(), &count));
    EXPECT_LT(count, large.size());
    count = 99;
    EXPECT_EQ(kivCS2Stream_writeBytes(&writer.m_stream, "a", 1, &count), KIVCS2STATUS_WRITE_ERR);
    EXPECT_EQ(count, 99u);
    EXPECT_OK(kivCS2NamedPipeStream_free(&reader.m_stream));
    EXPECT_EQ(kivCS2Stream_writeBytes(&writer.m_stream, "a", 1, &count), KIVCS2STATUS_WRITE_ERR);
    EXPECT_EQ(raised, 0);
    EXPECT_OK(kivCS2NamedPipeStream_free(&writer.m_stream));
    std::signal(SIGPIPE, before);
}

TEST(NamedPipeStream, OperationsThatAFifoLacksAreUnsupported)
{
    KIVCS2NamedPipeStream pipe;
    ASSERT_OK(kivCS2NamedPipeStream_setup(&pipe));
    uint64_t size = 0;
    uint8_t byte = 0;
    uint8_t *block = &byte;
    const auto unsupported = KIVCS2STATUS_UNSUPPORTED_ERR;
    EXPECT_EQ(kivCS2Stream_getSize(&pipe.m_stream, &size), unsupported);
    EXPECT_EQ(kivCS2Stream_setPosition(&pipe.m_stream, 0, 0, nullptr), unsupported);
    EXPECT_EQ(kivCS2Stream_isEndOfStream(&pipe.m_stream, nullptr), unsupported);
    EXPECT_EQ(kivCS2Stream_getBytes(&pipe.m_stream, &block, &size), unsupported);
    EXPECT_EQ(kivCS2Stream_freeBytes(&pipe.m_stream, block), unsupported);
}

TEST(NamedPipeStream, ASecondCloseDoesNotTouchDescriptorZero)
{
    const TemporaryFolder folder;
    KIVCS2NamedPipeStream pipe;
    ASSERT_OK(kivCS2NamedPipeStream_init(&pipe, folder.path("fifo").c_str(), kRead | kNow | kCreate));
    EXPECT_OK(kivCS2NamedPipeStream_close(&pipe.m_stream));
    EXPECT_EQ(pipe.m_fileDescriptor, 0); // the cleared record
    const bool hadInput = fcntl(0, F_GETFD) >= 0;
    EXPECT_EQ(kivCS2NamedPipeStream_close(&pipe.m_stream), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(fcntl(0, F_GETFD) >= 0, hadInput);
}

TEST(NamedPipeStream, APathThatIsNotAFifoIsRefusedAndLeft)
{
    const TemporaryFolder folder;
    const std::string file = folder.path("file");
    const std::string link = folder.path("link");
    const std::string linkToFifo = folder.path("linkToFifo");
    std::ofstream{file} << "content";
    std::filesystem::create_symlink(file, link);
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink(folder.path("fifo"), linkToFifo);
    const std::string device = "/dev/null";
    for (const std::string &path : {file, link, device, folder.path("")})
        for (const uint32_t flags : {kWrite, kRead, kWrite | kCreate | kUnlink, kWrite | kNow})
        {
            SCOPED_TRACE(path + ' ' + std::to_string(flags));
            KIVCS2NamedPipeStream pipe;
            EXPECT_EQ(kivCS2NamedPipeStream_init(&pipe, path.c_str(), flags), KIVCS2STATUS_OPEN_ERR);
            EXPECT_EQ(pipe.m_fileDescriptor, -1);
            EXPECT_EQ(kivCS2NamedPipeStream_close(&pipe.m_stream), KIVCS2STATUS_PARAM_ERR);
            EXPECT_TRUE(exists(path));
        }
    EXPECT_EQ(std::filesystem::file_size(file), 7u);
    // A link to a FIFO works like the FIFO.
    KIVCS2NamedPipeStream pipe;
    EXPECT_OK(kivCS2NamedPipeStream_init(&pipe, linkToFifo.c_str(), kRead | kNow));
    EXPECT_OK(kivCS2NamedPipeStream_free(&pipe.m_stream));
}

// A file that replaces the FIFO between the check of the path and the opening is found by its descriptor.
TEST(NamedPipeStream, AFileThatTakesTheFifosPlaceIsNotWritten)
{
    for (const uint32_t flags : {kWrite | kNow, kRead | kNow})
    {
        const TemporaryFolder folder;
        const std::string path = folder.path("fifo");
        const std::string file = folder.path("file");
        std::ofstream{file} << "content";
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        g_beforeOpen = [&] { EXPECT_EQ(std::rename(file.c_str(), path.c_str()), 0); };
        KIVCS2NamedPipeStream pipe;
        EXPECT_EQ(kivCS2NamedPipeStream_init(&pipe, path.c_str(), flags), KIVCS2STATUS_OPEN_ERR);
        EXPECT_FALSE(exists(file)); // the file was renamed in time
        EXPECT_EQ(pipe.m_fileDescriptor, -1);
        kivCS2NamedPipeStream_close(&pipe.m_stream);
    }
}

// A daemon's FIFO gets a number above its closed standard streams. A FIFO that the host itself moves to
// descriptor 0 works as well.
TEST(NamedPipeStream, StandardStreamsAreLeftFreeAndDescriptorZeroWorks)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("fifo");
    KIVCS2NamedPipeStream reader;
    KIVCS2NamedPipeStream writer;
    {
        const kiv::test::NoStandardStreams none{3};
        kivCS2NamedPipeStream_init(&reader, path.c_str(), kRead | kNow | kCreate);
        kivCS2NamedPipeStream_init(&writer, path.c_str(), kWrite | kNow);
    }
    for (const auto *pipe : {&reader, &writer})
    {
        ASSERT_GT(pipe->m_fileDescriptor, STDERR_FILENO);
        EXPECT_NE(fcntl(pipe->m_fileDescriptor, F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_OK(kivCS2Stream_writeBytes(&writer.m_stream, "a", 1, nullptr));
    {
        const kiv::test::NoStandardStreams none;
        const int opened = reader.m_fileDescriptor;
        ASSERT_EQ(dup2(opened, STDIN_FILENO), STDIN_FILENO);
        close(opened);
        reader.m_fileDescriptor = STDIN_FILENO;
        char byte = 0;
        EXPECT_OK(kivCS2Stream_readBytes(&reader.m_stream, &byte, 1, nullptr));
        EXPECT_EQ(byte, 'a');
        EXPECT_OK(kivCS2NamedPipeStream_close(&reader.m_stream));
    } // and is closed
    EXPECT_OK(kivCS2NamedPipeStream_free(&writer.m_stream));
}
} // namespace
