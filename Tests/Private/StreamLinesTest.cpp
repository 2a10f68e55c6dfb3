// Reading lines in blocks gives the same as reading bytes, for every kind of stream and buffer size.
#include "Private/Streams/Lines.h"

#include "Private/Streams/View.h"

#include "TemporaryFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <random>
#include <string>
#include <vector>

namespace
{
using kiv::LineStop;

// Reads one byte at a time, as from a host's own kind of stream.
KIVCS2Status readOneByOne(KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *count)
{
    return kivCS2MemoryStream_readBytes(stream, buffer, size, count);
}

// The results of each call: the text, why it stopped, and the position of the stream.
struct Piece
{
    std::string text;
    LineStop stop;
    int64_t position;
    bool operator==(const Piece &) const = default;
};

// Makes at most `most` calls; at the end of the data the last one is repeated.
std::vector<Piece> readAll(KIVCS2Stream &stream, size_t room, size_t most)
{
    std::vector<Piece> pieces;
    std::vector<char> buffer(room + 1, '#');
    while (pieces.size() < most)
    {
        const kiv::LinePiece piece = kiv::readThroughLineEnd(stream, buffer.data(), room);
        int64_t position = 0;
        EXPECT_EQ(kivCS2Stream_setPosition(&stream, 0, KIVCS2StreamPosition_Current, &position),
                  KIVCS2STATUS_OK);
        EXPECT_EQ(buffer[room], '#');
        pieces.push_back({{buffer.data(), piece.length}, piece.stop, position});
        if (piece.stop == LineStop::noData)
            break;
    }
    return pieces;
}

// Text of `size` bytes in which a line end comes about every `spacing` bytes, with every byte value.
std::string randomText(size_t size, unsigned spacing, unsigned seed)
{
    std::mt19937 random{seed};
    std::string text(size, '\0');
    for (char &byte : text)
        byte = random() % spacing == 0 ? (random() % 2 == 0 ? '\n' : '\r') : static_cast<char>(random());
    return text;
}

TEST(StreamLines, EveryKindGivesWhatByteWiseReadingGives)
{
    std::vector<std::string> texts = {
        "",       "\n",         "\r\n",  "a",      "a\n",
        "a\r\nb", "\r\r\n\n\r", "abc\n", "abcd\n", std::string(4096, 'x') + "\n"};
    for (const unsigned spacing : {2u, 9u, 17u, 90u, 5000u})
        texts.push_back(randomText(13'000, spacing, spacing)); // across several file buffers
    const kiv::test::TemporaryFolder folder;
    for (std::string &text : texts)
        for (const size_t room : {1u, 3u, 4u, 16u, 31u, 1024u, 20'000u})
        {
            KIVCS2MemoryStream memory;
            kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size());
            memory.m_stream.m_readBytes = readOneByOne;
            const auto expected = readAll(memory.m_stream, room, SIZE_MAX);

            kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size());
            EXPECT_TRUE(readAll(memory.m_stream, room, SIZE_MAX) == expected) << text.size() << ' ' << room;

            KIVCS2FileStream file;
            ASSERT_EQ(kivCS2FileStream_init(&file, folder.write("lines", text).c_str(), "r"),
                      KIVCS2STATUS_OK);
            // Reading the position of a file between calls must not change the result.
            EXPECT_TRUE(readAll(file.m_stream, room, SIZE_MAX) == expected) << text.size() << ' ' << room;
            kivCS2FileStream_free(&file.m_stream);
        }
}

TEST(StreamLines, AFileStandsExactlyBehindTheLineForEveryOtherReader)
{
    const kiv::test::TemporaryFolder folder;
    const std::string text = randomText(20'000, 60, 1);
    KIVCS2FileStream file;
    ASSERT_EQ(kivCS2FileStream_init(&file, folder.write("lines", text).c_str(), "r+"), KIVCS2STATUS_OK);
    char buffer[256];
    size_t at = 0;
    while (at < text.size())
    {
        const kiv::LinePiece piece = kiv::readThroughLineEnd(file.m_stream, buffer, sizeof buffer);
        at += piece.length + (piece.stop == LineStop::lineEnd ? 1 : 0);
        char next = 0;
        uint64_t count = 0;
        kivCS2Stream_readBytes(&file.m_stream, &next, 1, &count);
        if (count == 0)
            break;
        ASSERT_EQ(next, text[at]);
        ++at;
        const auto byte = static_cast<unsigned char>(next);
        ASSERT_EQ(ungetc(byte, file.m_file), byte); // read again after it is pushed back
        --at;
    }
    EXPECT_EQ(at, text.size());

    // After a write the next line begins at its end.
    kivCS2Stream_setPosition(&file.m_stream, 0, KIVCS2StreamPosition_Start, nullptr);
    kivCS2Stream_writeBytes(&file.m_stream, "abc", 3, nullptr);
    kivCS2Stream_setPosition(&file.m_stream, 1, KIVCS2StreamPosition_Start, nullptr);
    const kiv::LinePiece piece = kiv::readThroughLineEnd(file.m_stream, buffer, 2);
    EXPECT_EQ(std::string(buffer, piece.length), "bc");
    kivCS2FileStream_free(&file.m_stream);
}

// A line that has come is returned even if the writer keeps the pipe open and sends no more.
TEST(StreamLines, AFifoBehindAFileIsNotReadBeyondTheLine)
{
    const kiv::test::TemporaryFolder folder;
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    KIVCS2FileStream file;
    ASSERT_EQ(kivCS2FileStream_init(&file, folder.path("fifo").c_str(), "r+"), KIVCS2STATUS_OK);
    FILE *writer = fopen(folder.path("fifo").c_str(), "w");
    ASSERT_NE(writer, nullptr);
    fputs("one\rtwo", writer);
    fflush(writer);
    char buffer[16];
    const kiv::LinePiece piece = kiv::readThroughLineEnd(file.m_stream, buffer, sizeof buffer);
    EXPECT_EQ(std::string(buffer, piece.length), "one");
    fclose(writer);
    kivCS2FileStream_free(&file.m_stream);
}

TEST(StreamLines, AHostsOwnReadOperationIsNotBypassed)
{
    static int calls;
    calls = 0;
    char text[] = "ab\ncd";
    KIVCS2MemoryStream memory;
    kivCS2MemoryStream_initWithBytes(&memory, text, 5);
    EXPECT_NE(kiv::asMemoryStream(memory.m_stream), nullptr);
    memory.m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *count)
    {
        // The third read fails: the input ends there.
        return ++calls == 3 ? KIVCS2STATUS_READ_ERR
                            : kivCS2MemoryStream_readBytes(stream, buffer, size, count);
    };
    EXPECT_EQ(kiv::asMemoryStream(memory.m_stream), nullptr);
    char buffer[8];
    const kiv::LinePiece piece = kiv::readThroughLineEnd(memory.m_stream, buffer, sizeof buffer);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(piece.length, 2u);
    EXPECT_EQ(piece.stop, LineStop::noData);
}
} // namespace
