/* The smallest C host: the umbrella header, start-up, one operation of the core and one that goes
   through to the platform. Prints the frame after 00:00:59;29 at 29.97. */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>

int main(void)
{
    KIVCS2Timecode timecode;
    char text[16];

    if (KIVCS2_FAILED(kivCS2_initWithTaskServer(false)) ||
        KIVCS2_FAILED(kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97)) ||
        KIVCS2_FAILED(kivCS2Timecode_initWithString(&timecode, "00:00:59:29")) ||
        KIVCS2_FAILED(kivCS2Timecode_tick(&timecode)) ||
        KIVCS2_FAILED(kivCS2Timecode_timecodeToString(&timecode, text, sizeof text)))
        return 1;
    puts(text);
    return 0;
}
