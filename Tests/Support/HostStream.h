// A host's own kind of stream: bytes in memory, with operations that the library does not know and
// that may begin to fail at a chosen byte.
#ifndef KIV_TEST_HOST_STREAM_H
#define KIV_TEST_HOST_STREAM_H

#include <KIVCoreServices2/KIVCS2Stream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace kiv::test
{
struct HostStream
{
    KIVCS2Stream m_stream{}; // first, as in every kind
    std::vector<uint8_t> m_bytes;
    size_t m_position = 0;
    size_t m_failsAt = SIZE_MAX; // reads from here on return KIVCS2STATUS_READ_ERR

    explicit HostStream(std::vector<uint8_t> bytes) : m_bytes{std::move(bytes)}
    {
        m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *bytesRead)
        {
            auto *host = reinterpret_cast<HostStream *>(stream);
            if (host->m_position >= host->m_failsAt)
                return KIVCS2STATUS_READ_ERR;
            const size_t count = std::min<size_t>(size, host->m_bytes.size() - host->m_position);
            std::copy_n(host->m_bytes.begin() + static_cast<ptrdiff_t>(host->m_position), count,
                        static_cast<uint8_t *>(buffer));
            host->m_position += count;
            if (bytesRead != nullptr)
                *bytesRead = count;
            return KIVCS2STATUS_OK;
        };
        m_stream.m_setPosition = [](KIVCS2Stream *, int64_t, KIVCS2StreamPosition, int64_t *)
        { return KIVCS2STATUS_UNSUPPORTED_ERR; };
        m_stream.m_isEndOfStream = [](KIVCS2Stream *stream, uint32_t *eos)
        {
            const auto *host = reinterpret_cast<HostStream *>(stream);
            *eos = host->m_position >= host->m_bytes.size();
            return KIVCS2STATUS_OK;
        };
    }
};
} // namespace kiv::test

#endif
