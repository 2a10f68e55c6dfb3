// The lines of a memory stream, read in blocks, compared with those of a stream read byte by byte.
// The input is the room for a line, and then the text.
#include "../Tests/Support/HostStream.h"
#include "Require.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>
#include <KIVCoreServices2/KIVCS2MemoryStream.h>

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    std::vector<uint8_t> text(data + 1, data + size);
    text.shrink_to_fit();
    KIVCS2MemoryStream memory;
    require(kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size()) == KIVCS2STATUS_OK);
    kiv::test::HostStream host{text};

    const uint32_t room = std::max<uint32_t>(data[0], 1);
    for (;;)
    {
        std::vector<char> line(room);
        std::vector<char> hostLine(room);
        uint32_t length = room;
        uint32_t hostLength = room;
        const KIVCS2Status status = kivCS2ClosedCaptions_readLine(&memory.m_stream, line.data(), &length);
        require(kivCS2ClosedCaptions_readLine(&host.m_stream, hostLine.data(), &hostLength) == status);
        require(memory.m_position == static_cast<int64_t>(host.m_position));
        require(length == hostLength);
        if (status == KIVCS2STATUS_NO_DATA_ERR)
            return 0;
        if (KIVCS2_FAILED(status))
            continue;
        require(length < room && line[length] == '\0');
        require(std::equal(line.begin(), line.begin() + length + 1, hostLine.begin()));
    }
}
