// Writes text to a stream in blocks. The first failure stays.
#include "Private/Captions/Output.h"

#include <algorithm>
#include <cstring>

namespace kiv::cc
{
void Output::put(std::string_view text)
{
    while (!text.empty() && KIVCS2_SUCCEEDED(m_status))
    {
        const size_t count = std::min(text.size(), m_buffer.size() - m_used);
        std::memcpy(m_buffer.data() + m_used, text.data(), count);
        m_used += count;
        text.remove_prefix(count);
        if (m_used == m_buffer.size())
            (void)flush(); // the status stays
    }
}

void Output::putNumber(uint64_t number, size_t width)
{
    std::array<char, 24> text;
    size_t at = text.size();
    do
        text[--at] = static_cast<char>('0' + number % 10);
    while ((number /= 10) != 0);
    while (text.size() - at < width && at > 0)
        text[--at] = '0';
    put({&text[at], text.size() - at});
}

void Output::putHex(uint8_t byte, bool upper)
{
    const char *const digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    const std::array text = {digits[byte >> 4], digits[byte & 0x0F]};
    put({text.data(), text.size()});
}

KIVCS2Status Output::flush()
{
    size_t done = 0;
    while (done < m_used && KIVCS2_SUCCEEDED(m_status))
    {
        // A pipe may take only a part. The loop ends if it takes no byte, or fails with a count of all ones.
        uint64_t written = 0;
        m_status = kivCS2Stream_writeBytes(m_stream, m_buffer.data() + done, m_used - done, &written);
        if (KIVCS2_SUCCEEDED(m_status) && (written == 0 || written > m_used - done))
            m_status = KIVCS2STATUS_WRITE_ERR;
        done += static_cast<size_t>(written);
    }
    m_used = 0;
    return m_status;
}
} // namespace kiv::cc
