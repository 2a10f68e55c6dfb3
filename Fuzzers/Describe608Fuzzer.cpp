// Descriptions of pairs, with exactly the room that the header asks for. Input: pairs.
#include "Expect.h"

#include <KIVCoreServices2/KIVCS2ClosedCaptions.h>

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    size = std::min<size_t>(size, 64); // pairs do not know each other: more in one run finds no more
    for (size_t at = 0; at + 1 < size; at += 2)
    {
        std::vector<char> text(KIVCS2_CEA608_DESCRIPTION_SIZE, '?');
        const KIVCS2Status status =
            kivCS2ClosedCaptions_decodeCEA608CCPair(data[at], data[at + 1], text.data());
        const bool isEmpty = ((data[at] | data[at + 1]) & 0x7F) == 0;
        KIV_FUZZ_EXPECT(KIVCS2_FAILED(status) == isEmpty);
        KIV_FUZZ_EXPECT(isEmpty || std::count(text.begin(), text.end(), '\0') > 0);
    }
    return 0;
}
