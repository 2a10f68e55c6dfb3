// The lines of a memory stream, found in blocks, against those of a stream read byte by byte.
// Input: room of a line; then the text.
#include "../Tests/Support/HostStream.h"
#include "Expect.h"

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
    KIV_FUZZ_EXPECT(kivCS2MemoryStream_initWithBytes(&memory, text.data(), text.size()) == KIVCS2STATUS_OK);
    kiv::test::HostStream host{text};

    const uint32_t room = std::max<uint32_t>(data[0], 1);
    for (;;)
    {
        std::vector<char> line(room);
        std::vector<char> hostLine(room);
        uint32_t length = room;
        uint32_t hostLength = room;
        const KIVCS2Status status = kivCS2ClosedCaptions_readLine(&memory.m_stream, line.data(), &length);
        KIV_FUZZ_EXPECT(kivCS2ClosedCaptions_readLine(&host.m_stream, hostLine.data(), &hostLength) ==
                        status);
        KIV_FUZZ_EXPECT(memory.m_position == static_cast<int64_t>(host.m_position));
        KIV_FUZZ_EXPECT(length == hostLength);
        if (status == KIVCS2STATUS_NO_DATA_ERR)
            return 0;
        if (KIVCS2_FAILED(status))
            continue;
        KIV_FUZZ_EXPECT(length < room && line[length] == '\0');
        KIV_FUZZ_EXPECT(std::equal(line.begin(), line.begin() + length + 1, hostLine.begin()));
    }
}
