// Pipe streams over real pipes.
#include <KIVCoreServices2/KIVCS2PipeStream.h>

#include "NoStandardStreams.h"
#include "RequiredPointers.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <vector>

static_assert(offsetof(KIVCS2PipeStream, m_stream) == 0 && offsetof(KIVCS2PipeStream, m_readPipe) == 80 &&
              offsetof(KIVCS2PipeStream, m_writePipe) == 84 && sizeof(KIVCS2PipeStream) == 88);

namespace
{
bool isOpen(int descriptor)
{
    return fcntl(descriptor, F_GETFD) >= 0;
}

TEST(PipeStream, RefusesWhatIsMissing)
{
    KIVCS2PipeStream closed;
    kivCS2PipeStream_setup(&closed);
    KIVCS2PipeStream open;
    ASSERT_EQ(kivCS2PipeStream_init(&open), KIVCS2STATUS_OK);
    char byte = 0;
    uint32_t eos = 0;
    KIV_REQUIRES_EACH(kivCS2PipeStream_initWithPipes, "stream", &closed, 5, 6);
    KIV_REQUIRES_EACH(kivCS2PipeStream_writeBytes, "-, buffer, -", &open.m_stream, &byte, 1, nullptr);
    KIV_REQUIRES_EACH(kivCS2PipeStream_readBytes, "-, buffer, -", &open.m_stream, &byte, 1, nullptr);
    KIV_REQUIRES_EACH(kivCS2PipeStream_isEndOfStream, "-, eos", &open.m_stream, &eos);
    KIV_REQUIRES_EACH(kivCS2PipeStream_close, "stream", &open.m_stream);
    KIVCS2Stream *none = &closed.m_stream;
    kiv::test::expectAllRefused({
        {"kivCS2PipeStream_setup", "stream", KIVCS2STATUS_PARAM_ERR,
         KIV_CALL(kivCS2PipeStream_init(nullptr))},
        KIV_REQUIRES(kivCS2PipeStream_initWithPipes, "readPipe > 0", &closed, 0, 6),
        KIV_REQUIRES(kivCS2PipeStream_initWithPipes, "writePipe > 0", &closed, 5, 0),
        KIV_REQUIRES(kivCS2PipeStream_writeBytes, "stream->m_writePipe > 0", none, &byte, 1, nullptr),
        KIV_REQUIRES(kivCS2PipeStream_readBytes, "stream->m_readPipe > 0", none, &byte, 1, nullptr),
    });
    kivCS2PipeStream_free(&open.m_stream);
}

TEST(PipeStream, PassesBytesAndReportsTheSystemsCounts)
{
    KIVCS2PipeStream pipe;
    ASSERT_EQ(kivCS2PipeStream_init(&pipe), KIVCS2STATUS_OK);
    KIVCS2Stream *stream = &pipe.m_stream;
    uint64_t count = 9;
    char bytes[8] = {};
    EXPECT_TRUE(kivCS2Stream_writeBytes(stream, "a", 0, &count) == KIVCS2STATUS_OK && count == 0);
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, "hello", 5, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(kivCS2Stream_readBytes(stream, bytes, 8, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(std::string(bytes, count), "hello");

    // A full pipe that does not wait takes a part of the data, then fails.
    ASSERT_EQ(fcntl(pipe.m_writePipe, F_SETFL, O_NONBLOCK), 0);
    ASSERT_EQ(fcntl(pipe.m_readPipe, F_SETFL, O_NONBLOCK), 0);
    const std::vector<char> large(1 << 20, 'x');
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, large.data(), large.size(), &count), KIVCS2STATUS_OK);
    EXPECT_TRUE(count > 0 && count < large.size());
    uint64_t kept = 99;
    EXPECT_EQ(kivCS2Stream_writeBytes(stream, "a", 1, &kept), KIVCS2STATUS_PIPE_ERR);
    EXPECT_EQ(kept, 99u);

    // The end of file is a count of 0.
    close(pipe.m_writePipe);
    pipe.m_writePipe = 0;
    std::vector<char> all(2 << 20);
    uint64_t total = 0;
    do
    {
        ASSERT_EQ(kivCS2Stream_readBytes(stream, all.data(), all.size(), &kept), KIVCS2STATUS_OK);
        total += kept;
    } while (kept > 0);
    EXPECT_EQ(total, count);
    EXPECT_EQ(kivCS2PipeStream_free(stream), KIVCS2STATUS_OK);
}

TEST(PipeStream, AFailedReadIsASuccessWithACountOfAllOnes)
{
    KIVCS2PipeStream pipe;
    ASSERT_EQ(kivCS2PipeStream_init(&pipe), KIVCS2STATUS_OK);
    ASSERT_EQ(fcntl(pipe.m_readPipe, F_SETFL, O_NONBLOCK), 0);
    char byte = 0;
    uint64_t count = 0;
    EXPECT_EQ(kivCS2Stream_readBytes(&pipe.m_stream, &byte, 1, &count), KIVCS2STATUS_OK);
    EXPECT_EQ(count, UINT64_MAX);
    EXPECT_EQ(kivCS2Stream_readBytes(&pipe.m_stream, &byte, 1, nullptr), KIVCS2STATUS_OK);
    kivCS2PipeStream_free(&pipe.m_stream);
}

TEST(PipeStream, AReaderThatIsGoneFailsTheWriteAndRaisesNoSignal)
{
    static volatile sig_atomic_t raised;
    raised = 0;
    const auto before = std::signal(SIGPIPE, [](int) { raised = 1; });
    KIVCS2PipeStream pipe;
    ASSERT_EQ(kivCS2PipeStream_init(&pipe), KIVCS2STATUS_OK);
    close(pipe.m_readPipe);
    pipe.m_readPipe = 0;
    EXPECT_EQ(kivCS2Stream_writeBytes(&pipe.m_stream, "a", 1, nullptr), KIVCS2STATUS_PIPE_ERR);
    EXPECT_EQ(raised, 0);
    kivCS2PipeStream_free(&pipe.m_stream);
    std::signal(SIGPIPE, before);
}

TEST(PipeStream, OperationsThatAPipeLacksAreAPipeFailure)
{
    KIVCS2PipeStream pipe;
    ASSERT_EQ(kivCS2PipeStream_init(&pipe), KIVCS2STATUS_OK);
    KIVCS2Stream *stream = &pipe.m_stream;
    uint64_t size = 5;
    uint8_t *block = reinterpret_cast<uint8_t *>(&size);
    uint32_t eos = 5;
    EXPECT_EQ(kivCS2Stream_getSize(stream, &size), KIVCS2STATUS_PIPE_ERR);
    EXPECT_EQ(kivCS2Stream_setPosition(stream, 0, 0, nullptr), KIVCS2STATUS_PIPE_ERR);
    EXPECT_EQ(kivCS2Stream_getBytes(stream, &block, &size), KIVCS2STATUS_PIPE_ERR);
    EXPECT_EQ(kivCS2Stream_freeBytes(stream, block), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_isEndOfStream(stream, &eos), KIVCS2STATUS_OK);
    EXPECT_EQ(eos, 0u);
    EXPECT_EQ(size, 5u);
    kivCS2PipeStream_free(stream);
}

TEST(PipeStream, OwnsItsDescriptorsUntilTheClose)
{
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    KIVCS2PipeStream stream;
    ASSERT_EQ(kivCS2PipeStream_initWithPipes(&stream, pipes[0], pipes[1]), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_free(&stream.m_stream), KIVCS2STATUS_PARAM_ERR);
    EXPECT_FALSE(isOpen(pipes[0]));
    EXPECT_FALSE(isOpen(pipes[1]));
    EXPECT_EQ(stream.m_readPipe, 0);
    // A cleared record has 0 for both descriptors, and closing it must not close standard input.
    const bool hadInput = isOpen(0);
    EXPECT_EQ(kivCS2PipeStream_close(&stream.m_stream), KIVCS2STATUS_OK);
    EXPECT_EQ(isOpen(0), hadInput);
}

TEST(PipeStream, ALackOfDescriptorsIsAPipeFailure)
{
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    KIVCS2PipeStream stream;
    const KIVCS2Status status = kivCS2PipeStream_init(&stream);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(status, KIVCS2STATUS_PIPE_ERR);
    EXPECT_EQ(kivCS2PipeStream_close(&stream.m_stream), KIVCS2STATUS_OK);
}

// In a daemon the system may return the numbers of the standard streams, of which 0 marks a closed end here.
TEST(PipeStream, WorksWithoutStandardStreams)
{
    for (const int closed : {1, 2, 3})
    {
        KIVCS2PipeStream stream;
        KIVCS2Status status = KIVCS2STATUS_SYSTEM_ERR;
        {
            const kiv::test::NoStandardStreams none{closed};
            status = kivCS2PipeStream_init(&stream);
        }
        EXPECT_EQ(status, KIVCS2STATUS_OK);
        for (const int descriptor : {stream.m_readPipe, stream.m_writePipe})
        {
            EXPECT_GT(descriptor, STDERR_FILENO);
            EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
        }
        char byte = 0;
        EXPECT_EQ(kivCS2Stream_writeBytes(&stream.m_stream, "a", 1, nullptr), KIVCS2STATUS_OK);
        EXPECT_EQ(kivCS2Stream_readBytes(&stream.m_stream, &byte, 1, nullptr), KIVCS2STATUS_OK);
        EXPECT_EQ(byte, 'a');
        kivCS2PipeStream_free(&stream.m_stream);
    }
}
} // namespace
