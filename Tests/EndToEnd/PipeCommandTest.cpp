// kivcs2 pipe between a producer and a consumer that the test controls: the bytes written and read decide
// which of them waits, never the clock.
#include "CommandRun.h"

#include <pty.h>
#include <sys/ioctl.h>

#include <array>
#include <thread>

namespace
{
using namespace kiv::test;
using testing::HasSubstr;
using testing::StartsWith;

// Bytes without repetitions, so that a lost piece shows.
std::string stream(size_t size)
{
    std::string bytes(size, '\0');
    uint32_t state = 2463534242u;
    for (char &byte : bytes)
    {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string readAll(int descriptor)
{
    std::string all;
    std::array<char, 4096> block{};
    for (ssize_t size = 0; (size = read(descriptor, block.data(), block.size())) > 0;)
        all.append(block.data(), static_cast<size_t>(size));
    return all;
}

void writeAll(int descriptor, const std::string &bytes)
{
    for (size_t done = 0; done < bytes.size();)
    {
        const ssize_t size = write(descriptor, bytes.data() + done, bytes.size() - done);
        ASSERT_GT(size, 0);
        done += static_cast<size_t>(size);
    }
}

// Closes an end of a pipe, which is -1 afterwards.
void shut(int &descriptor)
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

class Pipe : public Command
{
protected:
    ~Pipe() override
    {
        shut(m_in);
        shut(m_out);
        shut(m_terminal);
        if (m_child > 0)
            finish();
    }

    // Starts the command on pipes. Standard error is a terminal if `terminal` is set, or else a file.
    void begin(const std::string &options, int outputFlags = 0, bool terminal = false)
    {
        int in[2];
        int out[2];
        ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
        ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
        ASSERT_EQ(fcntl(out[1], F_SETFL, outputFlags), 0);
        int terminalEnd = -1;
        if (terminal)
        {
            ASSERT_EQ(openpty(&m_terminal, &terminalEnd, nullptr, nullptr, nullptr), 0);
        }
        spawn(options, in[0], out[1], terminalEnd);
        close(in[0]);
        close(out[1]);
        shut(terminalEnd);
        m_in = in[1];
        m_out = out[0];
    }

    // Starts the command on descriptors. One of -1 stays closed, but `err` of -1 is a file.
    void spawn(const std::string &options, int in, int out, int err)
    {
        m_child = start(wordsOf("pipe " + options),
                        [&]
                        {
                            const int file =
                                open(path("errors").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
                            const int ends[] = {in, out, err >= 0 ? err : file};
                            for (int standard = 0; standard < 3; ++standard)
                                if (ends[standard] < 0 || dup2(ends[standard], standard) < 0)
                                    close(standard);
                            alarm(60); // a command that waits for ever fails its test
                        });
    }

    int finish()
    {
        int status = 0;
        waitpid(std::exchange(m_child, -1), &status, 0);
        return codeOf(status);
    }

    std::string errors() const
    {
        return slurp(path("errors"));
    }

    pid_t m_child = -1;
    int m_in = -1;  // the producer's end
    int m_out = -1; // the consumer's end
    int m_terminal = -1;
};

TEST_F(Pipe, PassesEverythingInOrder)
{
    const std::pair<const char *, std::string> rows[] = {
        {"", "300001"},
        {"--size 1000 --chunk 700", "300001"},
        {"--size 2", "30001"}, // each byte waits for the byte before it
        {"--mode overwrite --size 1M", "300001"},
    };
    for (const auto &[sizes, count] : rows)
    {
        const std::string bytes = stream(std::stoul(count));
        begin(sizes);
        std::thread producer{[&]
                             {
                                 writeAll(m_in, bytes);
                                 shut(m_in);
                             }};
        EXPECT_TRUE(readAll(m_out) == bytes);
        producer.join();
        EXPECT_EQ(finish(), 0);
        EXPECT_THAT(errors(), StartsWith("In    " + count + " bytes\nOut   " + count +
                                         " bytes\nLost  0 bytes\nRing  "));
        shut(m_out);
    }
}

// The consumer reads nothing until the producer has finished, which only overwriting allows.
TEST_F(Pipe, OverwritesWhatTheConsumerDoesNotTakeInTime)
{
    constexpr size_t kSize = 100000;
    const std::string bytes = stream(2000000);
    begin("--mode overwrite --size 100000 --meter --json");
    writeAll(m_in, bytes);
    shut(m_in);
    const std::string passed = readAll(m_out);
    EXPECT_EQ(finish(), 1);

    const std::string text = errors();
    const size_t report = text.find("{\n");
    ASSERT_NE(report, std::string::npos) << text;
    EXPECT_THAT(text.substr(0, report), HasSubstr(" %  in "));
    const auto counts = parseJson(text.substr(report));
    EXPECT_EQ(counts["bytesIn"], bytes.size());
    EXPECT_EQ(counts["bytesOut"], passed.size());
    EXPECT_EQ(counts["bytesLost"], bytes.size() - passed.size());
    EXPECT_EQ(counts["bytesUnsent"], 0);
    EXPECT_EQ(counts["mostWaiting"], kSize);
    EXPECT_LT(passed.size(), bytes.size() / 2); // the ring, the pipe and a chunk between them
    EXPECT_TRUE(passed.ends_with(bytes.substr(bytes.size() - kSize)));
}

// With the same consumer the producer has to wait, and the meter on a terminal shows when. It makes no
// difference if the output is non-blocking.
TEST_F(Pipe, RejectModeMakesTheProducerWait)
{
    const std::string bytes = stream(2000000);
    begin("--size 100000 --chunk 100", O_NONBLOCK, true);
    std::thread producer{[&]
                         {
                             writeAll(m_in, bytes);
                             shut(m_in);
                         }};
    std::string meter;
    std::array<char, 256> block{};
    while (meter.find("100 %") == std::string::npos)
    {
        const ssize_t size = read(m_terminal, block.data(), block.size());
        if (size <= 0)
            break;
        meter.append(block.data(), static_cast<size_t>(size));
    }
    EXPECT_THAT(meter, HasSubstr("\r\x1b[K[####################] 100 %"));
    EXPECT_THAT(meter, HasSubstr("lost 0.0 MB"));
    // The terminal must be read: the report waits for it.
    std::string rest;
    std::thread reader{[&] { rest = readAll(m_terminal); }};
    EXPECT_TRUE(readAll(m_out) == bytes);
    producer.join();
    EXPECT_EQ(finish(), 0);
    reader.join();
    EXPECT_THAT(rest, HasSubstr("Lost  0 bytes"));
}

// The producer stays, so that only the end of the reader can end the command.
TEST_F(Pipe, EndsWhenTheReaderHasGone)
{
    begin("--size 100000");
    writeAll(m_in, "abc");
    std::array<char, 3> block{};
    ASSERT_EQ(read(m_out, block.data(), block.size()), 3);
    shut(m_out);
    writeAll(m_in, "defgh");
    EXPECT_EQ(finish(), 0);
    EXPECT_THAT(errors(), HasSubstr("In      8 bytes\nOut     3 bytes\nLost    0 bytes\n"
                                    "Unsent  5 bytes, the reader has gone\n"));
    EXPECT_THAT(errors(), testing::Not(HasSubstr("%  in"))); // no meter without the option
}

TEST_F(Pipe, AnInterruptEndsTheInputAndLosesNothing)
{
    begin("--size 100000");
    writeAll(m_in, "abc");
    std::array<char, 3> block{};
    ASSERT_EQ(read(m_out, block.data(), block.size()), 3);
    ASSERT_GT(m_child, 1);
    ASSERT_EQ(kill(m_child, SIGTERM), 0);
    EXPECT_EQ(readAll(m_out), "");
    EXPECT_EQ(finish(), 128 + SIGTERM);
    EXPECT_THAT(errors(), StartsWith("In    3 bytes\nOut   3 bytes\n"));
}

// The reader stays and reads nothing, so that the bytes cannot go out.
TEST_F(Pipe, ASecondInterruptOfAnotherKindEndsItAtOnce)
{
    begin("--size 100000");
    const int room = fcntl(m_out, F_SETPIPE_SZ, 4096);
    ASSERT_GE(room, 4096);
    writeAll(m_in, std::string(static_cast<size_t>(room) + 1, 'x'));
    // If the command has taken all bytes, there is one that it cannot write.
    for (int unread = 1; unread > 0;)
        ASSERT_EQ(ioctl(m_in, FIONREAD, &unread), 0);
    ASSERT_GT(m_child, 1);
    ASSERT_EQ(kill(m_child, SIGINT), 0);
    ASSERT_EQ(kill(m_child, SIGTERM), 0);
    EXPECT_THAT(finish(), testing::AnyOf(128 + SIGINT, 128 + SIGTERM)); // two threads may receive one each
    EXPECT_EQ(errors(), "") << "no report: it has not waited for the reader";
}

TEST_F(Pipe, TellsWhatCannotBeReadOrWritten)
{
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int zero = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    const int folder = open("/", O_RDONLY | O_CLOEXEC);
    const struct
    {
        const char *options;
        int in, out, code;
        const char *error;
    } rows[] = {
        {"", -1, null, 4, "kivcs2: standard input: Bad file descriptor\n"},
        {"", folder, null, 4, "kivcs2: standard input: Is a directory\n"},
        {"", null, -1, 4, "kivcs2: standard output: Bad file descriptor\n"},
        {"", zero, full, 4, "kivcs2: standard output: No space left on device\n"},
        {"--size 1", null, null, 2, "kivcs2: --size is 2 to 4294967295 bytes\n"},
        {"--size 4G", null, null, 2, "kivcs2: --size is 2 to 4294967295 bytes\n"},
        {"--size 10 --chunk 11", null, null, 2, "kivcs2: --chunk is 1 byte to the 10 bytes"},
        {"--chunk 0", null, null, 2, "kivcs2: --chunk is 1 byte to the 1048576 bytes"},
        {"--mode drop", null, null, 2, "kivcs2: --mode: \"drop\" is not one of reject, overwrite"},
        {"--quiet", null, null, 0, ""},
    };
    for (const auto &row : rows)
    {
        spawn(row.options, row.in, row.out, -1);
        EXPECT_EQ(finish(), row.code);
        EXPECT_THAT(errors(), HasSubstr(row.error));
        EXPECT_EQ(errors().empty(), row.code == 0);
    }
    for (const int descriptor : {null, zero, full, folder})
        close(descriptor);
}
} // namespace
