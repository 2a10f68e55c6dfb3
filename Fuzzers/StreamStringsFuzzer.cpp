// Length-prefixed strings and the bit reader over any bytes. The first byte chooses the largest number of
// bytes that the stream returns for one read; the bits are compared with a plain index.
#include "Require.h"

#include "KIVCS2MemoryStream.h"
#include "KIVCS2Stream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
uint64_t g_most = 0; // the most bytes of one read; 0: as many as requested

KIVCS2Status readSome(KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *count)
{
    return kivCS2MemoryStream_readBytes(stream, buffer, g_most != 0 ? std::min(size, g_most) : size, count);
}

void readStrings(std::vector<uint8_t> &bytes, uint64_t bufferSize)
{
    KIVCS2MemoryStream memory;
    kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size());
    memory.m_stream.m_readBytes = readSome;
    for (int64_t before = -1; before != memory.m_position;)
    {
        before = memory.m_position;
        char *text = nullptr;
        const KIVCS2Status status = kivCS2Stream_readUTF8String(&memory.m_stream, &text);
        if (KIVCS2_SUCCEEDED(status) && text != nullptr)
        {
            uint64_t length = 0;
            std::memcpy(&length, bytes.data() + before, sizeof length);
            require(static_cast<uint64_t>(memory.m_position - before) == length + 8);
            require(std::memcmp(text, bytes.data() + before + 8, length) == 0);
            require(text[length] == 0 && text[length + 1] == 0);
        }
        require(text != nullptr || status != KIVCS2STATUS_READ_ERR || memory.m_position - before <= 8);
        kivCS2Stream_freeUTF8String(&memory.m_stream, text);
        if (KIVCS2_FAILED(status))
            break;
    }
    std::vector<char> buffer(bufferSize + 1, 'G');
    uint64_t length = 0;
    kivCS2Stream_setPosition(&memory.m_stream, 0, KIVCS2StreamPosition_Start, nullptr);
    if (KIVCS2_SUCCEEDED(
            kivCS2Stream_readUTF8StringToBuffer(&memory.m_stream, buffer.data(), bufferSize, &length)))
        require(length + 1 <= bufferSize && buffer[length - 1] == 0 && buffer[length] == 0);
    require(buffer[bufferSize] == 'G');
}

// The counts come from the same bytes: 1 to 8 read bits, 9 and more skip them.
void readBits(std::vector<uint8_t> &bytes)
{
    KIVCS2MemoryStream memory;
    kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size());
    if (KIVCS2_FAILED(kivCS2Stream_beginReadBits(&memory.m_stream)) || bytes.empty())
        return;
    uint64_t at = 0;
    const auto bitAt = [&](uint64_t index) -> unsigned
    {
        // Past the end the last byte is repeated.
        const uint64_t byte = std::min<uint64_t>(index / 8, bytes.size() - 1);
        return bytes[byte] >> (7 - index % 8) & 1u;
    };
    for (const uint8_t count : bytes)
    {
        uint8_t value = 0xFF;
        if (count >= 9)
        {
            require(kivCS2Stream_skipBits(&memory.m_stream, count) == KIVCS2STATUS_OK);
            at += count;
            continue;
        }
        const KIVCS2Status status = kivCS2Stream_readBits(&memory.m_stream, count, &value);
        require(status == (count == 0 ? KIVCS2STATUS_PARAM_ERR : KIVCS2STATUS_OK));
        unsigned expected = count == 0 ? 0xFF : 0;
        for (uint8_t bit = 0; bit < count; ++bit)
            expected = expected << 1 | bitAt(at++);
        require(value == expected);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    g_most = data[0];
    std::vector<uint8_t> bytes(data + 2, data + size);
    bytes.reserve(bytes.size() + 1); // never a null block
    readStrings(bytes, data[1]);
    readBits(bytes);
    return 0;
}
