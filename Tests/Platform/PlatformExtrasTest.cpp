// The log, the clock, and the calls for Linux in addition to the documented ones.
#include <KIVLogger/KIVLogger.h>
#include <KIVPlatform/KIVPlatform.h>
#include <mach/mach_time.h>

#include "OwnProcesses.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
void collect(void *context, os_log_type_t type, const char *message)
{
    EXPECT_EQ(type, OS_LOG_TYPE_DEFAULT);
    static_cast<std::vector<std::string> *>(context)->emplace_back(message);
}

struct Lifetime
{
    std::atomic<int> inside{0};
    std::atomic<bool> over{false};
    std::atomic<int> late{0};
};

void watchLifetime(void *context, os_log_type_t, const char *)
{
    auto &lifetime = *static_cast<Lifetime *>(context);
    ++lifetime.inside;
    if (lifetime.over)
        ++lifetime.late;
    --lifetime.inside;
}

std::string encodedName(const std::string &name)
{
    std::string encoded(KIVP_SEMAPHORE_NAME_SIZE, 'x');
    KIVPSemaphoreName(name.c_str(), encoded.data());
    return encoded.c_str();
}

std::string threadName(const char *name)
{
    std::string result;
    std::thread{[&]
                {
                    EXPECT_EQ(KIVPSetThreadName(name), 0);
                    char buffer[16];
                    pthread_getname_np(pthread_self(), buffer, sizeof buffer);
                    result = buffer;
                }}
        .join();
    return result;
}

std::atomic<int> g_signals{0};

// Counts SIGPIPE, and restores its action at the end.
class Writing : public testing::Test
{
protected:
    Writing()
    {
        struct sigaction counting = {};
        counting.sa_handler = [](int) { ++g_signals; };
        sigaction(SIGPIPE, &counting, &m_before);
        g_signals = 0;
        EXPECT_EQ(pipe(ends), 0);
    }
    ~Writing() override
    {
        close(ends[1]);
        sigaction(SIGPIPE, &m_before, nullptr);
    }
    int ends[2];

private:
    struct sigaction m_before = {};
};

bool pipeSignalIsPending()
{
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}
} // namespace

TEST(Log, ASinkReceivesWholeFormattedMessages)
{
    std::vector<std::string> messages;
    KLSetSink(collect, &messages);
    os_log_t log = KLGetHandle();
    EXPECT_EQ(os_retain(log), log);
    errno = EBADF;
    os_log_with_type(log, OS_LOG_TYPE_DEFAULT, "%02i:%02i:%02i%c%02i\n", 1, 2, 3, ';', 4);
    EXPECT_EQ(errno, EBADF);
    os_log_with_type(log, OS_LOG_TYPE_DEFAULT, "100%% %s", "%n%s");
    const std::string longText(5000, 'x'), full(512, 'y'); // that of the buffer, without its end
    os_log_with_type(log, OS_LOG_TYPE_DEFAULT, "%s", longText.c_str());
    os_log_with_type(log, OS_LOG_TYPE_DEFAULT, "%s", full.c_str());
    os_log_with_type(log, 1, "another type");
    KLSetEnabled(false);
    EXPECT_FALSE(os_log_type_enabled(log, OS_LOG_TYPE_DEFAULT));
    os_log_with_type(log, OS_LOG_TYPE_DEFAULT, "switched off");
    KLSetEnabled(true);
    EXPECT_TRUE(os_log_type_enabled(log, OS_LOG_TYPE_DEFAULT));
    EXPECT_FALSE(os_log_type_enabled(log, 1));
    os_release(log);
    KLSetSink(nullptr, nullptr);
    EXPECT_EQ(messages, (std::vector<std::string>{"01:02:03;04", "100% %n%s", longText, full}));
}

TEST(Log, ASinkIsIdleOnceItIsReplaced)
{
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    Lifetime quiet;
    KLSetSink(watchLifetime, &quiet);
    for (int index = 0; index < 2; ++index)
    {
        writers.emplace_back(
            [&stop]
            {
                while (!stop)
                    os_log_with_type(KLGetHandle(), OS_LOG_TYPE_DEFAULT, "message");
            });
    }
    for (int round = 0; round < 50; ++round)
    {
        Lifetime lifetime;
        KLSetSink(watchLifetime, &lifetime);
        std::this_thread::yield();
        KLSetSink(watchLifetime, &quiet);
        EXPECT_EQ(lifetime.inside, 0);
        lifetime.over = true;
        std::this_thread::yield();
        EXPECT_EQ(lifetime.late, 0);
    }
    stop = true;
    for (std::thread &writer : writers)
        writer.join();
    KLSetSink(nullptr, nullptr);
}

TEST(Log, TheSystemSinkWritesToStandardErrorWhenAsked)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    for (const char *wanted : {"1", "0"})
    {
        kiv::test::inChild(
            [&]
            {
                setenv("KIV_LOG_STDERR", wanted, 1);
                dup2(ends[1], STDERR_FILENO);
                os_log_with_type(KLGetHandle(), OS_LOG_TYPE_DEFAULT, "shown %s\n", wanted);
            });
    }
    close(ends[1]);
    char text[64] = {};
    EXPECT_EQ(read(ends[0], text, sizeof text - 1), 8);
    EXPECT_STREQ(text, "shown 1\n");
    close(ends[0]);
}

uint64_t monotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

TEST(Clock, IsTheMonotonicOneInNanoseconds)
{
    mach_timebase_info_data_t base{};
    EXPECT_EQ(mach_timebase_info(&base), KERN_SUCCESS);
    EXPECT_EQ(base.numer, 1u);
    EXPECT_EQ(base.denom, 1u);

    for (int reading = 0; reading < 1000; ++reading)
    {
        const uint64_t before = monotonicNanoseconds();
        const uint64_t time = mach_absolute_time();
        const uint64_t after = monotonicNanoseconds();
        ASSERT_LE(before, time);
        ASSERT_LE(time, after);
    }
}

TEST_F(Writing, ToAReaderThatIsGoneRaisesNothing)
{
    EXPECT_EQ(KIVPWriteWithoutSignal(ends[1], "abc", 3), 3);
    close(ends[0]);
    errno = 0;
    EXPECT_EQ(KIVPWriteWithoutSignal(ends[1], "abc", 3), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(g_signals, 0);
    EXPECT_FALSE(pipeSignalIsPending());
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);

    // A signal that was already pending belongs to the host and is delivered when the host unblocks it.
    sigset_t pipeOnly;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeOnly, nullptr);
    pthread_kill(pthread_self(), SIGPIPE);
    EXPECT_EQ(KIVPWriteWithoutSignal(ends[1], "abc", 3), -1);
    EXPECT_TRUE(pipeSignalIsPending());
    EXPECT_EQ(g_signals, 0);
    pthread_sigmask(SIG_UNBLOCK, &pipeOnly, nullptr);
    EXPECT_EQ(g_signals, 1);

    // If the host ignores the signal, none stays pending.
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(KIVPWriteWithoutSignal(ends[1], "abc", 3), -1);
    EXPECT_FALSE(pipeSignalIsPending());

    EXPECT_EQ(KIVPWriteWithoutSignal(-1, "abc", 3), -1);
    EXPECT_EQ(errno, EBADF);
}

// Here too the kernel raises the signal, although the call does not fail.
TEST_F(Writing, ToAReaderThatLeavesInTheMiddleRaisesNothing)
{
    const std::vector<char> bytes(1u << 20, 'x'); // far more than a pipe holds
    std::thread reader{[&]
                       {
                           std::vector<char> some(4096);
                           EXPECT_GT(read(ends[0], some.data(), some.size()), 0);
                           close(ends[0]);
                       }};
    const ssize_t written = KIVPWriteWithoutSignal(ends[1], bytes.data(), bytes.size());
    reader.join();
    EXPECT_GT(written, 0);
    EXPECT_LT(written, static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(g_signals, 0);
    EXPECT_FALSE(pipeSignalIsPending());
}

TEST(SemaphoreNames, LongOnesAndThoseWithSlashesAreEncoded)
{
    const std::string longest(251, 'n');
    EXPECT_EQ(encodedName("name"), "/name");
    EXPECT_EQ(encodedName("//name"), "/name");
    EXPECT_EQ(encodedName(longest), "/" + longest);
    const std::string coded = encodedName(longest + "m");
    EXPECT_EQ(coded.substr(0, 182), "/" + std::string(180, 'n') + "~");
    EXPECT_EQ(coded.size(), 198u);
    EXPECT_NE(coded, encodedName(longest + "o"));
    // FNV-1a of "a/b", calculated by hand from its definition.
    EXPECT_EQ(encodedName("a/b"), "/a!b~e620c3190468cf61");
    EXPECT_NE(encodedName("a/b"), encodedName("a!b"));
    EXPECT_EQ(encodedName(""), "/");
}

TEST(ThreadNames, AreCutAtACharacter)
{
    EXPECT_EQ(threadName(""), "");
    EXPECT_EQ(threadName("123456789012345"), "123456789012345");
    EXPECT_EQ(threadName("1234567890123456"), "123456789012345");
    EXPECT_EQ(threadName("12345678901234\xc3\xa9"), "12345678901234");
    EXPECT_EQ(threadName("1234567890123\xc3\xa9x"), "1234567890123\xc3\xa9");
    EXPECT_EQ(threadName("123456789012\xf0\x9f\x98\x80"), "123456789012");
}
