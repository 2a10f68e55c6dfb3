// Any text: detection by its mark, then conversion from each encoding into each, and back.
#include "Require.h"

#include "KIVCS2String.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace
{
void convert(const std::vector<char> &source, KIVCS2StringEncoding from, KIVCS2StringEncoding to,
             uint32_t length)
{
    char *text = nullptr;
    uint32_t used = 0;
    const KIVCS2Status status = kivCS2String_convertCString(source.data(), length, from, &text, to, &used);
    if (KIVCS2_FAILED(status))
    {
        // Only the conversion for the file system returns a block if it fails, for an empty path.
        require(text == nullptr || to == KIVCS2StringEncoding_FileSystem);
        std::free(text);
        return;
    }
    uint32_t terminator = 0;
    require(kivCS2String_getNullTerminatorLength(to, &terminator) == KIVCS2STATUS_OK);
    require(used > terminator);
    for (uint32_t index = used - terminator; index < used; ++index)
        require(text[index] == 0);

    // The result is text of its encoding, and another conversion does not change it.
    if (to != KIVCS2StringEncoding_FileSystem)
    {
        char *again = nullptr;
        uint32_t usedAgain = 0;
        require(kivCS2String_convertCString(text, used - terminator, to, &again, to, &usedAgain) ==
                KIVCS2STATUS_OK);
        require(used == usedAgain && std::memcmp(text, again, used) == 0);
        require(kivCS2String_freeCString(again) == KIVCS2STATUS_OK);
    }
    require(kivCS2String_freeCString(text) == KIVCS2STATUS_OK);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    KIVCS2StringEncoding encoding = -1;
    uint32_t mark = 0;
    const KIVCS2Status status =
        kivCS2String_detectEncoding(data + 1, static_cast<uint32_t>(size - 1), &encoding, &mark);
    require(KIVCS2_FAILED(status) ? encoding == -1 && mark == 0 : mark >= 2 && mark < size);

    // Zeros for the widest unit end the text, so that a measured length ends inside.
    std::vector<char> text(size - 1 + 8);
    std::memcpy(text.data(), data + 1, size - 1);
    const uint32_t length = (data[0] & 0x80) != 0 ? KIVCS2_STRING_MEASURE : static_cast<uint32_t>(size - 1);
    const KIVCS2StringEncoding from = KIVCS2_SUCCEEDED(status) ? encoding : data[0] % KIVCS2StringEncodingMax;
    for (KIVCS2StringEncoding to = 0; to < KIVCS2StringEncodingMax; ++to)
        convert(text, from, to, length);
    return 0;
}
