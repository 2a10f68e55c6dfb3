// Writes text to a stream in blocks. The first failure stays.
#ifndef KIV_PRIVATE_CAPTIONS_OUTPUT_H
#define KIV_PRIVATE_CAPTIONS_OUTPUT_H

#include "KIVCS2Stream.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace kiv::cc
{
class Output
{
public:
    explicit Output(KIVCS2Stream *stream) : m_stream{stream} {}

    void put(std::string_view text);
    // Writes at least `width` digits.
    void putNumber(uint64_t number, size_t width = 1);
    void putHex(uint8_t byte, bool upper);
    // Writes the buffer to the stream.
    KIVCS2Status flush();
    [[nodiscard]] KIVCS2Status status() const
    {
        return m_status;
    }

private:
    KIVCS2Stream *m_stream;
    KIVCS2Status m_status = KIVCS2STATUS_OK;
    size_t m_used = 0;
    std::array<char, size_t{32} * 1024> m_buffer;
};
} // namespace kiv::cc

#endif
