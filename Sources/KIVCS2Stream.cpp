// Streams: the checked dispatch through a record's operations, length-prefixed strings, the bit reader.
#include "KIVCS2Stream.h"

#include "Private/Support/Check.h"
#include "Private/Support/HeapLimit.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace
{
// A text also ends like a 16-bit string.
constexpr uint64_t kTerminatorBytes = 2;

// A text up to this size takes one allocation and one read; a longer text is read in steps, so that a damaged
// length is found before memory is allocated for it.
constexpr uint64_t kFirstStep = 1u << 20;

constexpr uint8_t kFirstBit = 0x80;

// Reads all of `size` bytes or fails.
[[nodiscard]] KIVCS2Status readWhole(KIVCS2Stream *stream, void *buffer, uint64_t size)
{
    uint64_t count = 0;
    KIV_TRY(kivCS2Stream_readBytes(stream, buffer, size, &count));
    return count == size ? KIVCS2STATUS_OK : KIVCS2STATUS_READ_ERR;
}

[[nodiscard]] KIVCS2Status writeWhole(KIVCS2Stream *stream, const void *buffer, uint64_t size)
{
    uint64_t count = 0;
    KIV_TRY(kivCS2Stream_writeBytes(stream, buffer, size, &count));
    return count == size ? KIVCS2STATUS_OK : KIVCS2STATUS_WRITE_ERR;
}

// Kept: the fetch ignores its count, so at the end of the data the byte stays and is delivered again; parsers
// rely on reading past the end without a status.
[[nodiscard]] KIVCS2Status fetchByte(KIVCS2Stream *stream)
{
    return kivCS2Stream_readBytes(stream, &stream->m_bitByte, 1, nullptr);
}

// Moves to the next bit. The next byte is fetched as soon as the last bit of this byte is passed.
[[nodiscard]] KIVCS2Status advanceBit(KIVCS2Stream *stream)
{
    stream->m_bitMask = static_cast<uint8_t>(stream->m_bitMask >> 1);
    if (stream->m_bitMask != 0)
        return KIVCS2STATUS_OK;
    stream->m_bitMask = kFirstBit;
    return fetchByte(stream);
}

// Grows or makes a block for `size` bytes of text and its terminators, which are set.
[[nodiscard]] bool growText(char **text, uint64_t size)
{
    auto *block = static_cast<char *>(std::realloc(*text, size + kTerminatorBytes));
    if (block == nullptr)
        return false;
    std::memset(block + size, 0, kTerminatorBytes);
    *text = block;
    return true;
}
} // namespace

KIVCS2Status kivCS2Stream_writeBytes(KIVCS2Stream *stream, const void *buffer, uint64_t size,
                                     uint64_t *bytesWritten)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_writeBytes);
    KIV_CHECK(buffer);

    return stream->m_writeBytes(stream, buffer, size, bytesWritten);
}

KIVCS2Status kivCS2Stream_readBytes(KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *bytesRead)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_readBytes);
    KIV_CHECK(buffer);

    return stream->m_readBytes(stream, buffer, size, bytesRead);
}

KIVCS2Status kivCS2Stream_getSize(KIVCS2Stream *stream, uint64_t *size)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_getSize);
    KIV_CHECK(size);

    return stream->m_getSize(stream, size);
}

KIVCS2Status kivCS2Stream_setPosition(KIVCS2Stream *stream, int64_t offset, KIVCS2StreamPosition mode,
                                      int64_t *newPosition)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_setPosition);
    // Kept: only asserted; without assertions each kind handles an unknown mode in its own way.
    KIV_ASSERT(mode < KIVCS2StreamPosition_MAX);

    return stream->m_setPosition(stream, offset, mode, newPosition);
}

KIVCS2Status kivCS2Stream_isEndOfStream(KIVCS2Stream *stream, uint32_t *eos)
{
    KIV_CHECK(stream);
    // Kept: the position's slot is asserted here, because hosts know that text.
    KIV_CHECK(stream->m_setPosition);
    if (stream->m_isEndOfStream == nullptr)
        return KIVCS2STATUS_PARAM_ERR;

    return stream->m_isEndOfStream(stream, eos);
}

KIVCS2Status kivCS2Stream_getBytes(KIVCS2Stream *stream, uint8_t **buffer, uint64_t *size)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_getBytes);
    KIV_CHECK(buffer);
    KIV_CHECK(size);

    return stream->m_getBytes(stream, buffer, size);
}

KIVCS2Status kivCS2Stream_freeBytes(KIVCS2Stream *stream, uint8_t *buffer)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_freeBytes);
    KIV_CHECK(buffer);

    return stream->m_freeBytes(stream, buffer);
}

KIVCS2Status kivCS2Stream_close(KIVCS2Stream *stream)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_close);

    return stream->m_close(stream);
}

KIVCS2Status kivCS2Stream_free(KIVCS2Stream *stream)
{
    KIV_CHECK(stream);
    KIV_CHECK(stream->m_free);

    (void)kivCS2Stream_close(stream); // the status is that of the final release
    // Kept: closing clears the record of this library's kinds, so this always returns PARAM_ERR for them.
    if (stream->m_free == nullptr)
        return KIVCS2STATUS_PARAM_ERR;
    return stream->m_free(stream);
}

KIVCS2Status kivCS2Stream_writeUTF8String(KIVCS2Stream *stream, const char *string)
{
    const uint64_t length = string != nullptr ? std::strlen(string) : 0;
    KIV_TRY(writeWhole(stream, &length, sizeof length));
    return length > 0 ? writeWhole(stream, string, length) : KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_readUTF8String(KIVCS2Stream *stream, char **string)
{
    KIV_CHECK(string);

    *string = nullptr;
    uint64_t length = 0;
    KIV_TRY(readWhole(stream, &length, sizeof length));
    if (length == 0)
        return KIVCS2STATUS_OK;
    // Also prevents a length near 2^64 plus the terminators from wrapping to a small size.
    if (!kiv::fitsMemory(length))
        return KIVCS2STATUS_MEMORY_ERR;

    for (uint64_t done = 0; done < length;)
    {
        const uint64_t next = std::min(length, std::max(kFirstStep, done * 2));
        if (!growText(string, next))
        {
            std::free(std::exchange(*string, nullptr));
            return KIVCS2STATUS_MEMORY_ERR;
        }
        // After a failure the caller has the block.
        KIV_TRY(readWhole(stream, *string + done, next - done));
        done = next;
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_freeUTF8String(KIVCS2Stream *, char *string)
{
    std::free(string);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_readUTF8StringToBuffer(KIVCS2Stream *stream, char *string, uint64_t bufferSize,
                                                 uint64_t *length)
{
    KIV_CHECK(string);

    uint64_t textLength = 0;
    KIV_TRY(readWhole(stream, &textLength, sizeof textLength));
    // Compared without adding: a length near 2^64 must not wrap to a small one.
    if (bufferSize < kTerminatorBytes || textLength > bufferSize - kTerminatorBytes)
        return KIVCS2STATUS_PARAM_ERR;

    KIV_TRY(readWhole(stream, string, textLength));
    std::memset(string + textLength, 0, kTerminatorBytes);
    if (length != nullptr)
        *length = textLength + 1;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_beginReadBits(KIVCS2Stream *stream)
{
    KIV_CHECK(stream);

    KIV_TRY(fetchByte(stream));
    stream->m_bitMask = kFirstBit;
    stream->m_bitReading = 1;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_beginWriteBits(KIVCS2Stream *stream)
{
    KIV_CHECK(stream);

    stream->m_bitByte = 0;
    stream->m_bitMask = kFirstBit;
    stream->m_bitReading = 0;
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_readBits(KIVCS2Stream *stream, uint32_t count, uint8_t *value)
{
    KIV_CHECK(stream);
    KIV_CHECK(value);
    if (count == 0 || count > 8)
        return KIVCS2STATUS_PARAM_ERR;

    if (count == 8 && stream->m_bitMask == kFirstBit)
    {
        // A whole byte at a byte's start, which is most of a packet: the loop below in one step.
        *value = stream->m_bitByte;
        KIV_TRY(fetchByte(stream));
        return KIVCS2STATUS_OK; // a kind of stream may have other success codes; the bits have not
    }
    *value = 0;
    for (; count > 0; --count)
    {
        const unsigned bit = (stream->m_bitByte & stream->m_bitMask) != 0 ? 1u : 0u;
        *value = static_cast<uint8_t>((unsigned{*value} << 1) | bit);
        KIV_TRY(advanceBit(stream));
    }
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_skipBits(KIVCS2Stream *stream, uint32_t count)
{
    KIV_CHECK(stream);

    if (stream->m_bitReading == 0)
        return KIVCS2STATUS_OK;
    // Eight bits further is the same place in the next byte, for any number of bits to skip.
    for (; count >= 8 && std::has_single_bit(stream->m_bitMask); count -= 8)
    {
        const uint8_t mask = std::exchange(stream->m_bitMask, kFirstBit);
        KIV_TRY(fetchByte(stream)); // a failure leaves the mask at the byte's start
        stream->m_bitMask = mask;
    }
    for (; count > 0; --count)
        KIV_TRY(advanceBit(stream));
    return KIVCS2STATUS_OK;
}

// Kept: bit writing is declared and deliberately empty; hosts link against these names.
KIVCS2Status kivCS2Stream_writeBits(KIVCS2Stream *stream, uint32_t, uint8_t)
{
    KIV_CHECK(stream);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_setBits(KIVCS2Stream *stream, uint32_t)
{
    KIV_CHECK(stream);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_clearBits(KIVCS2Stream *stream, uint32_t)
{
    KIV_CHECK(stream);
    return KIVCS2STATUS_OK;
}

KIVCS2Status kivCS2Stream_endBits(KIVCS2Stream *stream)
{
    KIV_CHECK(stream);
    return KIVCS2STATUS_OK;
}
