// The unread bytes of a memory stream in place, for parsers that would otherwise need a call for each byte.
#ifndef KIV_PRIVATE_STREAMS_VIEW_H
#define KIV_PRIVATE_STREAMS_VIEW_H

#include "KIVCS2FileStream.h"
#include "KIVCS2MemoryStream.h"

#include <cstddef>
#include <span>

namespace kiv
{
// The stream as a memory stream if reading it would read memory, otherwise null. A host that put its own
// read operation into the record is not bypassed.
[[nodiscard]] inline KIVCS2MemoryStream *asMemoryStream(KIVCS2Stream &stream) noexcept
{
    if (stream.m_readBytes != kivCS2MemoryStream_readBytes)
        return nullptr;
    auto *memory = reinterpret_cast<KIVCS2MemoryStream *>(&stream);
    return memory->m_buffer != nullptr ? memory : nullptr;
}

// The same for a file stream with an open file.
[[nodiscard]] inline KIVCS2FileStream *asFileStream(KIVCS2Stream &stream) noexcept
{
    if (stream.m_readBytes != kivCS2FileStream_readBytes)
        return nullptr;
    auto *file = reinterpret_cast<KIVCS2FileStream *>(&stream);
    return file->m_file != nullptr ? file : nullptr;
}

// The bytes left to read; valid until the next write to the stream.
[[nodiscard]] inline std::span<const uint8_t> unreadBytes(const KIVCS2MemoryStream &memory) noexcept
{
    const auto position = static_cast<uint64_t>(memory.m_position);
    if (position >= memory.m_size)
        return {};
    return {memory.m_buffer + position, static_cast<size_t>(memory.m_size - position)};
}

// Moves past `size` bytes of unreadBytes().
inline void takeBytes(KIVCS2MemoryStream &memory, size_t size) noexcept
{
    memory.m_position += static_cast<int64_t>(size);
}
} // namespace kiv

#endif
