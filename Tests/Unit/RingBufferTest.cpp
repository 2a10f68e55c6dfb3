// Rings: the record, results that hosts rely on, refusals. Fuzzers/RingBufferFuzzer.cpp models the rest.
#include <KIVCoreServices2/KIVCS2RingBuffer.h>

#include "RequiredPointers.h"

#include <KIVLogger/KIVLogger.h>

#include <sys/time.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace
{
static_assert(offsetof(KIVCS2RingBuffer, buffer) == 0 && offsetof(KIVCS2RingBuffer, buffer_end) == 8 &&
              offsetof(KIVCS2RingBuffer, capacity) == 16 && offsetof(KIVCS2RingBuffer, head) == 24 &&
              offsetof(KIVCS2RingBuffer, tail) == 32 &&
              offsetof(KIVCS2RingBuffer, circulatedAtLeastOnce) == 40 &&
              offsetof(KIVCS2RingBuffer, circulating) == 41 && offsetof(KIVCS2RingBuffer, dataLost) == 42 &&
              offsetof(KIVCS2RingBuffer, opMode) == 44 && sizeof(KIVCS2RingBuffer) == 48);

constexpr uint32_t kCapacity = 16;

// A ring of 16 bytes; its contents are texts.
class Ring : public testing::Test
{
protected:
    Ring()
    {
        EXPECT_EQ(kivCS2RingBuffer_init(&rb, kCapacity), KIVCS2STATUS_OK);
    }
    ~Ring() override
    {
        EXPECT_EQ(kivCS2RingBuffer_dispose(&rb), KIVCS2STATUS_OK);
    }

    KIVCS2Status store(const std::string &text)
    {
        return kivCS2RingBuffer_store(&rb, text.data(), static_cast<uint32_t>(text.size()));
    }
    // The bytes fetched, or "-" if the fetch fails.
    std::string fetch(uint32_t size)
    {
        std::string text(size, '?');
        return KIVCS2_SUCCEEDED(kivCS2RingBuffer_fetch(&rb, text.data(), size)) ? text : "-";
    }
    std::string read(uint32_t size, uint32_t offset)
    {
        std::string text(size, '?');
        return KIVCS2_SUCCEEDED(kivCS2RingBuffer_readDataAtOffset(&rb, text.data(), size, offset)) ? text
                                                                                                   : "-";
    }
    uint32_t fetchable() const
    {
        uint32_t bytes = ~0u;
        EXPECT_EQ(kivCS2RingBuffer_getFetchBytesAvailable(&rb, &bytes), KIVCS2STATUS_OK);
        return bytes;
    }
    void setMode(uint32_t mode)
    {
        EXPECT_EQ(kivCS2RingBuffer_setOperationMode(&rb, mode), KIVCS2STATUS_OK);
    }

    KIVCS2RingBuffer rb;
};

TEST(RingBuffer, HasTwoBytesAtLeast)
{
    KIVCS2RingBuffer rb;
    std::memset(&rb, 0xA5, sizeof rb);
    const KIVCS2RingBuffer before = rb;
    for (const uint32_t size : {0u, 1u})
        EXPECT_EQ(kivCS2RingBuffer_init(&rb, size), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(std::memcmp(&rb, &before, sizeof rb), 0);
    EXPECT_EQ(kivCS2RingBuffer_init(&rb, 2), KIVCS2STATUS_OK);
    EXPECT_TRUE(rb.buffer[0] == 0 && rb.buffer[1] == 0 && rb.opMode == KIVCS2RingBufferOpMode_Overwrite);
    EXPECT_EQ(kivCS2RingBuffer_dispose(&rb), KIVCS2STATUS_OK);
}

// Kept: after the first round, the history includes bytes that were fetched.
TEST_F(Ring, HistoryFollowsTheTailOnceTheRingHasBeenRound)
{
    ASSERT_EQ(store("abcdefghij"), KIVCS2STATUS_OK);
    ASSERT_EQ(fetch(4), "abcd");
    EXPECT_EQ(read(4, 2), "ghij"); // counted from the first byte that was not fetched
    EXPECT_EQ(read(5, 2), "-");
    ASSERT_EQ(store("012345"), KIVCS2STATUS_OK); // fits: the tail is back at the start
    ASSERT_EQ(fetch(12), "efghij012345");
    EXPECT_EQ(read(16, 0), "abcdefghij012345");
}

// Kept: the indicators stay until they are reset, and a mode without a name overwrites.
TEST_F(Ring, IndicatorsStayAndOtherModesOverwrite)
{
    setMode(7);
    ASSERT_EQ(store("0123456789"), KIVCS2STATUS_OK);
    ASSERT_EQ(store("abcdefghij"), KIVCS2STATUS_OK);
    EXPECT_EQ(fetch(16), "456789abcdefghij");
    EXPECT_TRUE(rb.dataLost == 1 && rb.circulatedAtLeastOnce == 1 && rb.circulating == 0);
    EXPECT_EQ(kivCS2RingBuffer_resetDataLostIndicator(&rb), KIVCS2STATUS_OK);
    EXPECT_TRUE(rb.dataLost == 0 && rb.circulatedAtLeastOnce == 1);
}

// Kept: the record of a disposed ring still points to the storage.
TEST(RingBuffer, DisposeLeavesEveryMember)
{
    KIVCS2RingBuffer rb;
    ASSERT_EQ(kivCS2RingBuffer_init(&rb, 64), KIVCS2STATUS_OK);
    ASSERT_EQ(kivCS2RingBuffer_store(&rb, "abc", 3), KIVCS2STATUS_OK);
    const KIVCS2RingBuffer before = rb;
    EXPECT_EQ(kivCS2RingBuffer_dispose(&rb), KIVCS2STATUS_OK);
    EXPECT_EQ(std::memcmp(&rb, &before, sizeof rb), 0);

    KIVCS2RingBuffer none{};
    EXPECT_EQ(kivCS2RingBuffer_dispose(&none), KIVCS2STATUS_OK);
}

// The consumer of the next test: a signal handler, so that producer and consumer share a thread.
KIVCS2RingBuffer *theRing = nullptr;
volatile sig_atomic_t theFetches = 0;

void fetchOne(int)
{
    char byte = 0;
    if (KIVCS2_SUCCEEDED(kivCS2RingBuffer_fetch(theRing, &byte, 1)))
        theFetches = theFetches + 1;
}

// Kept: it waits without a limit for room, and with no time between the attempts it spins.
TEST_F(Ring, KeepsTryingUntilThereIsRoom)
{
    const auto tryStore = [&](const std::string &text, uint32_t microseconds)
    {
        return kivCS2RingBuffer_storeKeepTrying(&rb, text.data(), static_cast<uint32_t>(text.size()),
                                                microseconds);
    };
    EXPECT_EQ(tryStore(std::string(17, '?'), 1000), KIVCS2STATUS_PARAM_ERR);
    setMode(KIVCS2RingBufferOpMode_Reject);
    ASSERT_EQ(tryStore("0123456789abcdef", 0), KIVCS2STATUS_OK);

    theRing = &rb;
    struct sigaction action = {};
    action.sa_handler = fetchOne;
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval everyMillisecond = {{0, 1000}, {0, 1000}};
    const itimerval never = {};
    std::string kept = "0123456789abcdef";
#if defined(__SANITIZE_THREAD__)
    const uint32_t waits[] = {200}; // the sanitizer delays signals until the thread makes a system call
#else
    const uint32_t waits[] = {200, 0};
#endif
    for (const uint32_t microseconds : waits)
    {
        theFetches = 0;
        ASSERT_EQ(setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
        EXPECT_EQ(tryStore("XYZ", microseconds), KIVCS2STATUS_OK);
        ASSERT_EQ(setitimer(ITIMER_REAL, &never, nullptr), 0);
        EXPECT_GE(theFetches, 3);
        kept = (kept + "XYZ").substr(static_cast<size_t>(theFetches));
        const std::string all = fetch(fetchable());
        EXPECT_EQ(all, kept);
        ASSERT_EQ(store(kept = "0123456789abcdef"), KIVCS2STATUS_OK);
    }
    ASSERT_EQ(sigaction(SIGALRM, &before, nullptr), 0);
}

TEST_F(Ring, PrintsItsMembersInOneMessage)
{
    ASSERT_EQ(store("0123456789"), KIVCS2STATUS_OK);
    ASSERT_EQ(store("0123456789"), KIVCS2STATUS_OK);
    setMode(3000000000u);
    std::string messages;
    KLSetSink([](void *context, os_log_type_t, const char *message)
              { *static_cast<std::string *>(context) += message; },
              &messages);
    EXPECT_EQ(kivCS2RingBuffer_print(&rb), KIVCS2STATUS_OK);
    KLSetSink(nullptr, nullptr);

    char wanted[256];
    std::snprintf(wanted, sizeof wanted,
                  "\n===\nbuffer_end[%p]\ncapacity[16]\nhead[%p]\ntail[%p]\ncirculatedAtLeastOnce[1]\n"
                  "circulating[1]\ndataLost[1]\nopMode[3000000000]", // the log removes the last line feed
                  static_cast<void *>(rb.buffer + 16), static_cast<void *>(rb.buffer + 4),
                  static_cast<void *>(rb.buffer + 4));
    EXPECT_EQ(messages, wanted);
}

TEST(RingBuffer, RefusesMissingArguments)
{
    KIV_REQUIRES_EACH(kivCS2RingBuffer_init, "rb");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_dispose, "rb");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_store, "rb, data");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_storeKeepTrying, "rb, data");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_fetch, "rb, outData");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_readDataAtOffset, "rb, outData");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_readOldestData, "rb, outData");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_getFreeBytesAvailable, "rb, outBytes");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_getFetchBytesAvailable, "rb, outBytes");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_getUtilization, "rb, outUtilization");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_resetDataLostIndicator, "rb");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_setOperationMode, "rb");
    KIV_REQUIRES_EACH(kivCS2RingBuffer_print, "rb");
}
} // namespace
