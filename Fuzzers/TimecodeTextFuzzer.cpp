// Timecode text: the plain parser and the general splitter must agree on every text, and what was read
// must be written in bounds. The first byte picks the frame rate.
#include "KIVCS2Timecode.h"

#include <KIVLogger/KIVLogger.h>

#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{
// Tables are built only when the rate changes: that is what an input would mostly wait for.
bool setRate(KIVCS2FrameRate rate)
{
    static KIVCS2FrameRate current = KIVCS2FrameRate_MAX;
    return rate == current || KIVCS2_SUCCEEDED(kivCS2Timecode_setFrameRate(current = rate));
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    KLSetEnabled(false); // most inputs name no frame
    if (!setRate(data[0] % KIVCS2FrameRate_MAX))
        std::abort();
    const std::string text{std::string{reinterpret_cast<const char *>(data + 1), size - 1}.c_str()};

    KIVCS2Timecode plain = 1;
    KIVCS2Timecode general = 1;
    const KIVCS2Status status = kivCS2Timecode_initWithString(&plain, text.c_str());
    KIVCS2Status expected = KIVCS2STATUS_MEMORY_ERR;
    if (CFStringRef string = CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8))
    {
        expected = kivCS2Timecode_initWithCFString(&general, string);
        CFRelease(string);
    }
    if (status != expected || plain != general)
        std::abort();

    char buffer[29];
    std::memset(buffer, '#', sizeof buffer);
    if (kivCS2Timecode_timecodeToString(&plain, buffer, sizeof buffer) != KIVCS2STATUS_OK ||
        std::memchr(buffer, '\0', sizeof buffer) == nullptr)
        std::abort();
    return 0;
}
