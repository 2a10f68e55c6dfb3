// Timecode text: the parsers of C strings and of string objects must agree, and the timecode is written
// within its bounds. The first byte selects the frame rate.
#include "TimecodeRate.h"

#include <KIVLogger/KIVLogger.h>

#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    KLSetEnabled(false); // most inputs do not name a frame
    kiv::fuzz::setRate(data[0]);
    const char *const letters = reinterpret_cast<const char *>(data + 1);
    const std::string text{letters, strnlen(letters, size - 1)};

    KIVCS2Timecode plain = 1;
    KIVCS2Timecode general = 1;
    const KIVCS2Status status = kivCS2Timecode_initWithString(&plain, text.c_str());
    KIVCS2Status expected = KIVCS2STATUS_MEMORY_ERR;
    if (CFStringRef string = CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8))
    {
        expected = kivCS2Timecode_initWithCFString(&general, string);
        CFRelease(string);
    }
    require(status == expected && plain == general);

    char buffer[29];
    std::memset(buffer, '#', sizeof buffer);
    require(kivCS2Timecode_timecodeToString(&plain, buffer, sizeof buffer) == KIVCS2STATUS_OK);
    require(std::memchr(buffer, '\0', sizeof buffer) != nullptr);
    return 0;
}
