// A packet of SMPTE 291M in any of its four forms, read from the bytes of the memory stream and through the
// bit reader: the results and the streams must be the same. Input: form (bits 0-1), with atom (bit 2), room;
// then the stream.
#include "Require.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <cstring>
#include <vector>

namespace
{
struct Result
{
    KIVCS2Status status;
    uint32_t size;
    std::vector<uint8_t> buffer;
    int64_t position;
    uint8_t bitMask, bitByte, bitReading;

    bool operator==(const Result &) const = default;
};

Result extract(std::vector<uint8_t> bytes, uint8_t options, uint32_t room, bool direct)
{
    bytes.shrink_to_fit();
    KIVCS2MemoryStream memory;
    require(kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size()) == KIVCS2STATUS_OK);
    if (!direct)
        memory.m_stream.m_readBytes = [](KIVCS2Stream *stream, void *buffer, uint64_t size, uint64_t *read)
        { return kivCS2MemoryStream_readBytes(stream, buffer, size, read); };
    Result result{0, room, std::vector<uint8_t>(room), 0, 0, 0, 0};
    uint8_t nothing = 0;
    result.status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE291MStream(
        &memory.m_stream, options & 3, (options & 4) != 0, room == 0 ? &nothing : result.buffer.data(),
        &result.size);
    result.position = memory.m_position;
    result.bitMask = memory.m_stream.m_bitMask;
    result.bitByte = memory.m_stream.m_bitByte;
    result.bitReading = memory.m_stream.m_bitReading;
    return result;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3)
        return 0;
    const std::vector<uint8_t> bytes(data + 2, data + size);
    require(extract(bytes, data[0], data[1], true) == extract(bytes, data[0], data[1], false));
    return 0;
}
