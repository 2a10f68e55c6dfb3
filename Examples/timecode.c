/*
 * Timecode arithmetic: the drop-frame timecode of a programme's last frame.
 *
 *   example_timecode 01:00:00:00 53946
 *
 * The first argument is the start of the programme, the second its length in frames.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "timecode: %s (status 0x%08x)\n", what, status);
    return 1;
}

int main(int argc, char **argv)
{
    const char *start_text = argc > 1 ? argv[1] : "01:00:00:00";
    const unsigned long length = argc > 2 ? strtoul(argv[2], NULL, 10) : 53946;
    KIVCS2Timecode start, end;
    int64_t frames = 0;
    char text[24];
    KIVCS2Status status;

    if (length == 0 || length > 2589408ul) /* 24 hours at 29.97 */
    {
        fputs("usage: example_timecode HH:MM:SS:FF frames\n", stderr);
        return 2;
    }

    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97);
    if (KIVCS2_FAILED(status))
        return fail("cannot count at 29.97", status);

    /* The parser accepts only ":"; the frame rate makes these digits drop-frame. */
    status = kivCS2Timecode_initWithString(&start, start_text);
    if (KIVCS2_FAILED(status))
        return fail(start_text, status);

    kivCS2Timecode_copy(&end, &start);
    status = kivCS2Timecode_addFrames(&end, (uint32_t)length - 1);
    if (KIVCS2_FAILED(status))
        return fail("adding the length", status);

    status = kivCS2Timecode_timecodeToString(&start, text, sizeof text);
    if (KIVCS2_FAILED(status))
        return fail("first frame", status);
    printf("first frame  %s\n", text);
    status = kivCS2Timecode_timecodeToString(&end, text, sizeof text);
    if (KIVCS2_FAILED(status))
        return fail("last frame", status);
    printf("last frame   %s\n", text);

    status = kivCS2Timecode_differenceInFrames(&start, &end, &frames);
    if (KIVCS2_FAILED(status))
        return fail("measuring", status);
    printf("length       %lld frames\n", (long long)frames + 1);
    return 0;
}
