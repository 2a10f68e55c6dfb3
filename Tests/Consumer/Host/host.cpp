// The same host in C++, with the platform called under its documented names as well.
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <CoreFoundation/CoreFoundation.h>

#include <array>
#include <cstdio>

int main()
{
    if (KIVCS2_FAILED(kivCS2_initWithTaskServer(false)) ||
        KIVCS2_FAILED(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97)))
        return 1;

    CFStringRef given = CFStringCreateWithCString(nullptr, "00:00:59:29", kCFStringEncodingUTF8);
    KIVCS2Timecode timecode = 0;
    const KIVCS2Status parsed = kivCS2Timecode_initWithCFString(&timecode, given);
    CFRelease(given);

    std::array<char, 16> text{};
    if (KIVCS2_FAILED(parsed) || KIVCS2_FAILED(kivCS2Timecode_tick(&timecode)) ||
        KIVCS2_FAILED(kivCS2Timecode_timecodeToString(&timecode, text.data(), text.size())))
        return 1;
    std::puts(text.data());
    return 0;
}
