// The generic operations of a stream over a host's own kind: dispatch, length-prefixed strings, bits.
// Fuzzers/StreamStringsFuzzer.cpp compares reads and skips of any length with a plain index.
#include <KIVCoreServices2/KIVCS2Stream.h>

#include "RequiredPointers.h"

#include <cstddef>
#include <cstring>
#include <deque>
#include <vector>

using namespace std::string_literals;

static_assert(offsetof(KIVCS2Stream, m_writeBytes) == 0 && offsetof(KIVCS2Stream, m_readBytes) == 8 &&
              offsetof(KIVCS2Stream, m_getSize) == 16 && offsetof(KIVCS2Stream, m_setPosition) == 24 &&
              offsetof(KIVCS2Stream, m_isEndOfStream) == 32 && offsetof(KIVCS2Stream, m_getBytes) == 40 &&
              offsetof(KIVCS2Stream, m_freeBytes) == 48 && offsetof(KIVCS2Stream, m_close) == 56 &&
              offsetof(KIVCS2Stream, m_free) == 64 && offsetof(KIVCS2Stream, m_bitMask) == 72 &&
              offsetof(KIVCS2Stream, m_bitByte) == 73 && offsetof(KIVCS2Stream, m_bitReading) == 74 &&
              sizeof(KIVCS2Stream) == 80);

namespace
{
// One transfer of a scripted stream.
struct Transfer
{
    KIVCS2Status status = KIVCS2STATUS_OK;
    uint64_t most = UINT64_MAX; // the most bytes that it moves
};

// A host's own kind: bytes in and out. The script makes transfers fail or stop short.
struct HostStream
{
    KIVCS2Stream m_stream{};
    std::string input;
    std::string output;
    std::deque<Transfer> script; // empty: everything succeeds
    std::vector<uint64_t> asked; // the size of every transfer

    explicit HostStream(std::string bytes = {}) : input{std::move(bytes)}
    {
        m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *count)
        {
            auto *host = reinterpret_cast<HostStream *>(stream);
            const Transfer step = host->next(size);
            const uint64_t moved = std::min({size, step.most, uint64_t{host->input.size()}});
            std::memcpy(buffer, host->input.data(), moved);
            host->input.erase(0, moved);
            if (count != nullptr)
                *count = moved;
            return step.status;
        };
        m_stream.m_writeBytes = [](KIVCS2Stream *stream, const void *buffer, uint64_t size, uint64_t *count)
        {
            auto *host = reinterpret_cast<HostStream *>(stream);
            const Transfer step = host->next(size);
            const uint64_t moved = std::min(size, step.most);
            host->output.append(static_cast<const char *>(buffer), moved);
            if (count != nullptr)
                *count = moved;
            return step.status;
        };
    }
    Transfer next(uint64_t size)
    {
        asked.push_back(size);
        if (script.empty())
            return {};
        const Transfer step = script.front();
        script.pop_front();
        return step;
    }
    KIVCS2Stream *get()
    {
        return &m_stream;
    }
};

// Any operation; always succeeds.
constexpr auto kSucceeds = [](auto...) -> KIVCS2Status { return KIVCS2STATUS_OK; };

std::string prefixed(uint64_t length, const std::string &text)
{
    std::string bytes(sizeof length, '\0');
    std::memcpy(bytes.data(), &length, sizeof length);
    return bytes + text;
}

TEST(Stream, RefusesWhatIsMissing)
{
    KIVCS2Stream none{};
    KIVCS2Stream other{}; // has only an operation that the row does not need
    other.m_isEndOfStream = kSucceeds;
    HostStream host;
    host.m_stream.m_getSize = kSucceeds;
    host.m_stream.m_getBytes = kSucceeds;
    host.m_stream.m_freeBytes = kSucceeds;
    char text[8];
    uint8_t byte = 0;
    uint8_t *block = nullptr;
    uint64_t size = 0;
    uint32_t eos = 0;
    char *string = nullptr;
    KIV_REQUIRES_EACH(kivCS2Stream_writeBytes, "stream, buffer, -", host.get(), text, 1, nullptr);
    KIV_REQUIRES_EACH(kivCS2Stream_readBytes, "stream, buffer, -", host.get(), text, 1, nullptr);
    KIV_REQUIRES_EACH(kivCS2Stream_getSize, "stream, size", host.get(), &size);
    KIV_REQUIRES_EACH(kivCS2Stream_setPosition, "stream, -", host.get(), 0, 0, nullptr);
    KIV_REQUIRES_EACH(kivCS2Stream_isEndOfStream, "stream, -", host.get(), &eos);
    KIV_REQUIRES_EACH(kivCS2Stream_getBytes, "stream, buffer, size", host.get(), &block, &size);
    KIV_REQUIRES_EACH(kivCS2Stream_freeBytes, "stream, buffer", host.get(), &byte);
    KIV_REQUIRES_EACH(kivCS2Stream_close, "stream", host.get());
    KIV_REQUIRES_EACH(kivCS2Stream_free, "stream", host.get());
    KIV_REQUIRES_EACH(kivCS2Stream_readUTF8String, "-, string", host.get(), &string);
    KIV_REQUIRES_EACH(kivCS2Stream_readUTF8StringToBuffer, "-, string, -", host.get(), text, 8, &size);
    KIV_REQUIRES_EACH(kivCS2Stream_beginReadBits, "stream", host.get());
    KIV_REQUIRES_EACH(kivCS2Stream_readBits, "stream, value", host.get(), 1, &byte);
    KIV_REQUIRES_EACH(kivCS2Stream_skipBits, "stream", host.get(), 1);
    KIV_REQUIRES_EACH(kivCS2Stream_endBits, "stream", host.get());
    kiv::test::expectAllRefused({
        KIV_REQUIRES(kivCS2Stream_writeBytes, "stream->m_writeBytes", &none, text, 1, nullptr),
        KIV_REQUIRES(kivCS2Stream_readBytes, "stream->m_readBytes", &none, text, 1, nullptr),
        KIV_REQUIRES(kivCS2Stream_getSize, "stream->m_getSize", &none, &size),
        KIV_REQUIRES(kivCS2Stream_setPosition, "stream->m_setPosition", &none, 0, 0, nullptr),
        KIV_REQUIRES(kivCS2Stream_isEndOfStream, "stream->m_setPosition", &other, &eos),
        KIV_REQUIRES(kivCS2Stream_getBytes, "stream->m_getBytes", &none, &block, &size),
        KIV_REQUIRES(kivCS2Stream_freeBytes, "stream->m_freeBytes", &none, &byte),
        KIV_REQUIRES(kivCS2Stream_close, "stream->m_close", &none),
        KIV_REQUIRES(kivCS2Stream_free, "stream->m_free", &none),
        {"kivCS2Stream_readBytes", "stream", KIVCS2STATUS_PARAM_ERR,
         KIV_CALL(kivCS2Stream_readUTF8String(nullptr, &string))},
    });
}

TEST(Stream, WithoutAssertionsAnUnknownModeReachesTheKind)
{
    HostStream host;
    host.m_stream.m_setPosition = [](KIVCS2Stream *, int64_t, KIVCS2StreamPosition mode, int64_t *)
    { return 0x80000100u + mode; };
    kiv::test::expectRefused({"kivCS2Stream_setPosition", "mode < KIVCS2StreamPosition_MAX", 0x80000103u,
                              KIV_CALL(kivCS2Stream_setPosition(host.get(), 0, 3, nullptr))});
    EXPECT_EQ(kivCS2Stream_setPosition(host.get(), 0, 2, nullptr), 0x80000102u);
}

TEST(Stream, EndOfStreamNeedsThePositionOperationAndItsOwn)
{
    HostStream host;
    host.m_stream.m_setPosition = kSucceeds;
    uint32_t eos = 7;
    EXPECT_EQ(kivCS2Stream_isEndOfStream(host.get(), &eos), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(eos, 7u);
    // Only the kind refuses a null result.
    host.m_stream.m_isEndOfStream = [](KIVCS2Stream *, uint32_t *result) -> KIVCS2Status
    { return result == nullptr ? KIVCS2STATUS_UNSUPPORTED_ERR : KIVCS2STATUS_OK; };
    EXPECT_EQ(kivCS2Stream_isEndOfStream(host.get(), nullptr), KIVCS2STATUS_UNSUPPORTED_ERR);
}

TEST(Stream, FreeClosesFirstAndThenReadsItsOperation)
{
    static int freed;
    freed = 0;
    HostStream host;
    host.m_stream.m_close = [](KIVCS2Stream *) -> KIVCS2Status { return KIVCS2STATUS_READ_ERR; };
    host.m_stream.m_free = [](KIVCS2Stream *) -> KIVCS2Status { return ++freed, KIVCS2STATUS_OK; };
    EXPECT_EQ(kivCS2Stream_free(host.get()), KIVCS2STATUS_OK); // the close's failure is not reported
    EXPECT_EQ(freed, 1);
    host.m_stream.m_close = [](KIVCS2Stream *stream) -> KIVCS2Status
    { return stream->m_free = nullptr, KIVCS2STATUS_OK; };
    EXPECT_EQ(kivCS2Stream_free(host.get()), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(freed, 1);
}

TEST(StreamString, IsALengthOfEightBytesAndTheText)
{
    HostStream host;
    EXPECT_EQ(kivCS2Stream_writeUTF8String(host.get(), "abc"), KIVCS2STATUS_OK);
    EXPECT_EQ(host.output, "\x03\0\0\0\0\0\0\0abc"s);
    EXPECT_EQ(kivCS2Stream_writeUTF8String(host.get(), nullptr), KIVCS2STATUS_OK);
    EXPECT_EQ(host.output, "\x03\0\0\0\0\0\0\0abc\0\0\0\0\0\0\0\0"s);

    host.input = host.output;
    char *text = nullptr;
    ASSERT_EQ(kivCS2Stream_readUTF8String(host.get(), &text), KIVCS2STATUS_OK);
    EXPECT_EQ(std::memcmp(text, "abc\0\0", 5), 0);
    EXPECT_EQ(kivCS2Stream_freeUTF8String(host.get(), text), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_readUTF8String(host.get(), &text), KIVCS2STATUS_OK);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(kivCS2Stream_freeUTF8String(nullptr, text), KIVCS2STATUS_OK);
}

TEST(StreamString, TransfersThatFailOrStopShortAreReported)
{
    constexpr auto timeout = KIVCS2STATUS_TIMEOUT_ERR;
    using Row = std::tuple<std::deque<Transfer>, KIVCS2Status, KIVCS2Status, bool>;
    for (const auto &[script, writing, reading, leavesBlock] : std::initializer_list<Row>{
             {{{timeout}}, timeout, timeout, false},
             {{{KIVCS2STATUS_OK, 7}}, KIVCS2STATUS_WRITE_ERR, KIVCS2STATUS_READ_ERR, false},
             {{{}, {timeout}}, timeout, timeout, true},
             {{{}, {KIVCS2STATUS_OK, 2}}, KIVCS2STATUS_WRITE_ERR, KIVCS2STATUS_READ_ERR, true},
             {{{}, {0x7fffffffu}},
              KIVCS2STATUS_OK,
              KIVCS2STATUS_OK,
              true}, // not a failure: the top bit is clear
         })
    {
        HostStream host{prefixed(3, "abc")};
        host.script = script;
        EXPECT_EQ(kivCS2Stream_writeUTF8String(host.get(), "abc"), writing);
        host.script = script;
        char *text = reinterpret_cast<char *>(&host);
        EXPECT_EQ(kivCS2Stream_readUTF8String(host.get(), &text), reading);
        EXPECT_EQ(text != nullptr, leavesBlock);
        kivCS2Stream_freeUTF8String(host.get(), text);

        HostStream again{prefixed(3, "abc")};
        again.script = script;
        char buffer[5];
        EXPECT_EQ(kivCS2Stream_readUTF8StringToBuffer(again.get(), buffer, 5, nullptr), reading);
    }
}

TEST(StreamString, IntoABufferNeedsRoomForTwoTerminators)
{
    char buffer[8] = "ZZZZZZZ";
    uint64_t length = 99;
    HostStream host{prefixed(3, "abc")};
    EXPECT_EQ(kivCS2Stream_readUTF8StringToBuffer(host.get(), buffer, 4, &length), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(host.input, "abc"); // the length is consumed, the text is not
    EXPECT_EQ(length, 99u);
    host.input = prefixed(3, "abc");
    EXPECT_EQ(kivCS2Stream_readUTF8StringToBuffer(host.get(), buffer, 5, &length), KIVCS2STATUS_OK);
    EXPECT_EQ((std::string{buffer, 7}), "abc\0\0ZZ"s);
    EXPECT_EQ(length, 4u);
    host.input = prefixed(0, "");
    EXPECT_EQ(kivCS2Stream_readUTF8StringToBuffer(host.get(), buffer, 1, nullptr), KIVCS2STATUS_PARAM_ERR);
}

TEST(StreamString, ALengthFromADamagedStreamCostsNothing)
{
    for (const auto &[length, status] : std::initializer_list<std::pair<uint64_t, KIVCS2Status>>{
             {UINT64_MAX, KIVCS2STATUS_MEMORY_ERR},     // plus 2 is 1
             {UINT64_MAX - 1, KIVCS2STATUS_MEMORY_ERR}, // plus 2 is 0
             {1ull << 62, KIVCS2STATUS_MEMORY_ERR},
             {(64ull << 20) + 1, KIVCS2STATUS_READ_ERR}, // allowed, but there is no such text
             {2, KIVCS2STATUS_READ_ERR},
         })
    {
        SCOPED_TRACE(length);
        HostStream host{prefixed(length, "a")};
        char *text = nullptr;
        EXPECT_EQ(kivCS2Stream_readUTF8String(host.get(), &text), status);
        EXPECT_EQ(text != nullptr, status == KIVCS2STATUS_READ_ERR);
        kivCS2Stream_freeUTF8String(host.get(), text);
        for (const uint64_t asked : host.asked)
            EXPECT_LE(asked, 1u << 20); // at most the first step
        char buffer[3];
        host.input = prefixed(length, "a");
        EXPECT_EQ(kivCS2Stream_readUTF8StringToBuffer(host.get(), buffer, sizeof buffer, nullptr),
                  KIVCS2STATUS_PARAM_ERR);
    }
}

TEST(StreamString, ALongTextArrivesWhole)
{
    std::string text(5'000'001, 'x');
    for (size_t index = 0; index < text.size(); ++index)
        text[index] = static_cast<char>('a' + index % 23);
    HostStream host{prefixed(text.size(), text)};
    char *block = nullptr;
    ASSERT_EQ(kivCS2Stream_readUTF8String(host.get(), &block), KIVCS2STATUS_OK);
    EXPECT_TRUE(std::string(block) == text);
    EXPECT_EQ(block[text.size() + 1], '\0');
    kivCS2Stream_freeUTF8String(host.get(), block);
}

TEST(StreamBits, FetchesTheNextByteAtTheBoundary)
{
    HostStream host{"\x12\x34\x56"};
    kivCS2Stream_beginReadBits(host.get());
    uint8_t value = 0;
    kivCS2Stream_readBits(host.get(), 7, &value);
    EXPECT_EQ(host.input.size(), 2u);
    kivCS2Stream_readBits(host.get(), 1, &value);
    EXPECT_EQ(host.input.size(), 1u); // the boundary takes the next byte
}

TEST(StreamBits, AFailingFetchStopsTheReaderWithItsStatus)
{
    const Transfer fails{KIVCS2STATUS_EOF_ERR, 0};
    HostStream host{"\xFF"};
    host.script = {fails};
    host.m_stream.m_bitMask = 0x10;
    EXPECT_EQ(kivCS2Stream_beginReadBits(host.get()), KIVCS2STATUS_EOF_ERR);
    EXPECT_EQ(host.m_stream.m_bitMask, 0x10);
    EXPECT_EQ(host.m_stream.m_bitReading, 0);

    uint8_t value = 0;
    for (const uint32_t lead : {0u, 5u}) // the whole-byte step and the single bits
    {
        HostStream stream{"\xFF\xFF"};
        stream.script = {{}, fails};
        kivCS2Stream_beginReadBits(stream.get());
        kivCS2Stream_skipBits(stream.get(), lead);
        EXPECT_EQ(kivCS2Stream_readBits(stream.get(), 8, &value), KIVCS2STATUS_EOF_ERR);
        EXPECT_EQ(value, lead == 0 ? 0xFF : 0x07);
        EXPECT_EQ(stream.m_stream.m_bitMask, 0x80);

        stream.script = {fails};
        stream.m_stream.m_bitMask = 0x20;
        EXPECT_EQ(kivCS2Stream_skipBits(stream.get(), 100), KIVCS2STATUS_EOF_ERR);
        EXPECT_EQ(stream.m_stream.m_bitMask, 0x80);
    }
}

TEST(StreamBits, AnySuccessOfTheKindIsOKAfterAllBits)
{
    constexpr KIVCS2Status kOwnSuccess = 7;
    for (const uint32_t size : {8u, 4u, 1u}) // the whole-byte step and the single bits
    {
        HostStream host{"\xA5\xA5"};
        host.script = {{kOwnSuccess}, {kOwnSuccess}};
        EXPECT_EQ(kivCS2Stream_beginReadBits(host.get()), KIVCS2STATUS_OK);
        uint8_t value = 0;
        for (uint32_t bit = 0; bit < 8; bit += size)
            EXPECT_EQ(kivCS2Stream_readBits(host.get(), size, &value), KIVCS2STATUS_OK) << size;
        EXPECT_EQ(host.asked.size(), 2u);
    }
}

TEST(StreamBits, CountsOutOfRangeAndUnstartedReadersMoveNothing)
{
    HostStream host{"\xFF\xFF"};
    uint8_t value = 0x77;
    for (const uint32_t count : {0u, 9u, UINT32_MAX})
        EXPECT_EQ(kivCS2Stream_readBits(host.get(), count, &value), KIVCS2STATUS_PARAM_ERR);
    EXPECT_EQ(value, 0x77);
    EXPECT_EQ(kivCS2Stream_skipBits(host.get(), 1000), KIVCS2STATUS_OK); // a fresh record
    kivCS2Stream_beginReadBits(host.get());
    kivCS2Stream_beginWriteBits(host.get());
    EXPECT_EQ(kivCS2Stream_skipBits(host.get(), 1000), KIVCS2STATUS_OK);
    EXPECT_EQ(host.input.size(), 1u);
    EXPECT_EQ(host.m_stream.m_bitByte, 0);
    EXPECT_EQ(host.m_stream.m_bitMask, 0x80);
}

TEST(StreamBits, WritingIsDeclaredAndEmpty)
{
    HostStream host;
    const KIVCS2Stream before = host.m_stream;
    EXPECT_EQ(kivCS2Stream_writeBits(host.get(), 8, 0xFF), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_setBits(host.get(), 8), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_clearBits(host.get(), 8), KIVCS2STATUS_OK);
    EXPECT_EQ(kivCS2Stream_endBits(host.get()), KIVCS2STATUS_OK);
    EXPECT_EQ(std::memcmp(&before, &host.m_stream, offsetof(KIVCS2Stream, m_bitReading) + 1), 0);
    EXPECT_TRUE(host.asked.empty());
}
} // namespace
