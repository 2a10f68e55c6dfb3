// Wrapped ancillary data of SMPTE 436M. Input: with atom (bit 0), room; then the stream.
#include "Require.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3)
        return 0;
    std::vector<uint8_t> bytes(data + 2, data + size);
    std::vector<uint8_t> buffer(data[1] + 1u);
    auto room = static_cast<uint32_t>(buffer.size());
    KIVCS2MemoryStream memory;
    require(kivCS2MemoryStream_initWithBytes(&memory, bytes.data(), bytes.size()) == KIVCS2STATUS_OK);
    const KIVCS2Status status = kivCS2ClosedCaptions_extractSMPTE334CDP708PacketFromSMPTE436MStream(
        &memory.m_stream, (data[0] & 1) != 0, buffer.data(), &room);
    require(KIVCS2_FAILED(status) ? room == buffer.size() : room <= buffer.size());
    require(memory.m_position >= 0 && static_cast<uint64_t>(memory.m_position) <= bytes.size());
    return 0;
}
