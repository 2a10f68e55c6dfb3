// The words of a SMPTE ST 291-1 packet. They are read from any stream through its bit reader, or straight
// from a memory stream's bytes, which gives the same words, position and bit state.
#ifndef KIV_PRIVATE_CAPTIONS_WORDS_H
#define KIV_PRIVATE_CAPTIONS_WORDS_H

#include "KIVCS2ClosedCaptions.h"
#include "KIVCS2MemoryStream.h"
#include "Private/Captions/CDP.h"
#include "Private/Streams/View.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kiv::captions
{
// One word: the 8 data bits, and above them bits 8 and 9 if words have 10 bits.
using AncWord = uint16_t;

constexpr unsigned kParityShift = 8;

struct AncForm
{
    bool tenBits;
    uint8_t flagWords; // words of `flag`, before the DID
    std::array<AncWord, 3> flag;
    AncWord did;
    AncWord sdid;
};

// Indexed by KIVCS2CaptionANCFormat.
constexpr std::array<AncForm, 4> kAncForms = {{
    {false, 3, {0xFF, 0xA0, 0x09}, cdp::kDID, cdp::kSDID},
    {false, 0, {}, cdp::kDID, cdp::kSDID},
    {true, 3, {0x000, 0x3FF, 0x3FF}, cdp::kDID | cdp::kOddParity, cdp::kSDID | cdp::kOddParity},
    {true, 0, {}, cdp::kDID | cdp::kOddParity, cdp::kSDID | cdp::kOddParity},
}};
static_assert(kAncForms.size() == KIVCS2CaptionANCFormat_10Bit + 1);

// Words through the stream interface.
class StreamWords
{
public:
    StreamWords(KIVCS2Stream *stream, bool tenBits) : m_stream{stream}, m_tenBits{tenBits} {}

    [[nodiscard]] KIVCS2Status begin()
    {
        return kivCS2Stream_beginReadBits(m_stream);
    }

    [[nodiscard]] KIVCS2Status read(AncWord &word)
    {
        uint8_t value = 0;
        uint8_t parity = 0;
        const KIVCS2Status status =
            m_tenBits ? kivCS2ClosedCaptions_read10BitParityWord(m_stream, true, &value, &parity, nullptr)
                      : kivCS2ClosedCaptions_read8BitWord(m_stream, &value, nullptr);
        word = static_cast<AncWord>(parity << kParityShift | value);
        return status;
    }

    // A stream that fails to report its end counts as ended.
    [[nodiscard]] bool atEnd()
    {
        uint32_t eos = 0;
        return KIVCS2_FAILED(kivCS2Stream_isEndOfStream(m_stream, &eos)) || eos != 0;
    }

private:
    KIVCS2Stream *m_stream;
    bool m_tenBits;
};

// Words straight from the bytes of a memory stream. Like the bit reader, it holds one byte fetched ahead and
// keeps the last byte at the end; the destructor updates the stream.
// Kept: a packet whose data end early reads that last byte again, and may succeed.
class MemoryWords
{
public:
    // Returns the stream if it reads and reports its end as memory streams do and has at least one byte;
    // otherwise null.
    [[nodiscard]] static KIVCS2MemoryStream *readable(KIVCS2Stream &stream)
    {
        // isEndOfStream fails for a stream without a setPosition, which would leave a checksum untested.
        if (stream.m_isEndOfStream != kivCS2MemoryStream_isEndOfStream || stream.m_setPosition == nullptr)
            return nullptr;
        KIVCS2MemoryStream *memory = asMemoryStream(stream);
        return memory != nullptr && !unreadBytes(*memory).empty() ? memory : nullptr;
    }

    MemoryWords(KIVCS2MemoryStream &memory, bool tenBits)
        : m_memory{memory}, m_bytes{unreadBytes(memory)}, m_tenBits{tenBits}
    {
    }
    MemoryWords(const MemoryWords &) = delete;
    MemoryWords &operator=(const MemoryWords &) = delete;

    ~MemoryWords()
    {
        m_memory.m_stream.m_bitMask = 0x80;
        m_memory.m_stream.m_bitByte = m_bytes[m_ahead];
        m_memory.m_stream.m_bitReading = 1;
        takeBytes(m_memory, m_ahead + 1);
    }

    [[nodiscard]] KIVCS2Status begin()
    {
        return KIVCS2STATUS_OK;
    }

    [[nodiscard]] KIVCS2Status read(AncWord &word)
    {
        const uint8_t high = m_tenBits ? take() & 0x03 : 0;
        word = static_cast<AncWord>(high << kParityShift | take());
        return KIVCS2STATUS_OK;
    }

    [[nodiscard]] bool atEnd() const
    {
        return m_ahead + 1 == m_bytes.size();
    }

private:
    [[nodiscard]] uint8_t take()
    {
        const uint8_t byte = m_bytes[m_ahead];
        m_ahead += atEnd() ? 0 : 1;
        return byte;
    }

    KIVCS2MemoryStream &m_memory;
    std::span<const uint8_t> m_bytes; // the bytes unread at the start; not empty
    size_t m_ahead = 0;               // the byte held ahead
    bool m_tenBits;
};
} // namespace kiv::captions

#endif
