/*
 * A timer in the host's own GLib main loop: counts timecode, one frame for each call, without a thread.
 *
 *   example_glib_timer 00:00:59:27 5
 *
 * The first argument is the start of the count, the second the number of frames.
 * Besides the library, this host links GLib:
 *
 *   cc -std=c11 glib_timer.c $(pkg-config --cflags --libs KIVCoreServices2 glib-2.0)
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <glib.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct Counter
{
    GMainLoop *loop;
    KIVCS2Timer *timer;
    KIVCS2Timecode timecode;
    unsigned long frames_left;
    KIVCS2Status status;
} Counter;

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "glib_timer: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* Called by the main loop, so nothing here needs a lock. */
static int32_t next_frame(void *context)
{
    Counter *counter = context;
    char text[24];

    counter->status = kivCS2Timecode_timecodeToString(&counter->timecode, text, sizeof text);
    if (KIVCS2_SUCCEEDED(counter->status))
    {
        puts(text);
        counter->status = kivCS2Timecode_tick(&counter->timecode);
    }
    if (KIVCS2_FAILED(counter->status) || --counter->frames_left == 0)
    {
        kivCS2Timer_free(counter->timer); /* a timer may be freed by its own callback */
        counter->timer = NULL;
        g_main_loop_quit(counter->loop);
    }
    return 0; /* a main loop ignores it */
}

int main(int argc, char **argv)
{
    const char *start_text = argc > 1 ? argv[1] : "00:00:59:27";
    Counter counter = {0};
    KIVCS2PerformanceTimer clock;
    uint32_t milliseconds = 0, shortest;
    double seconds_per_frame = 1001.0 / 30000.0; /* 29.97 */
    KIVCS2Status status;

    counter.frames_left = argc > 2 ? strtoul(argv[2], NULL, 10) : 5;
    if (counter.frames_left == 0 || counter.frames_left > 2589408ul) /* 24 hours */
    {
        fputs("usage: example_glib_timer HH:MM:SS:FF frames\n", stderr);
        return 2;
    }
    shortest = (uint32_t)((double)(counter.frames_left - 1) * seconds_per_frame * 1000);

    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97);
    if (KIVCS2_FAILED(status))
        return fail("cannot count at 29.97", status);
    status = kivCS2Timecode_initWithString(&counter.timecode, start_text);
    if (KIVCS2_FAILED(status))
        return fail(start_text, status);

    counter.loop = g_main_loop_new(NULL, FALSE);
    kivCS2PerformanceTimer_init(&clock);
    status = kivCS2Timer_create(&counter.timer, next_frame, &counter, KIVCS2TimerFlags_MainRunLoop,
                                seconds_per_frame, CFAbsoluteTimeGetCurrent());
    if (KIVCS2_FAILED(status))
        return fail("no timer", status);

    g_main_loop_run(counter.loop);
    kivCS2PerformanceTimer_getElapsedMilliseconds(&clock, &milliseconds);
    g_main_loop_unref(counter.loop);
    if (KIVCS2_FAILED(counter.status))
        return fail("counting", counter.status);

    /* The first call comes at once, each further one an interval later, or later still on a busy machine. */
    fprintf(stderr, "%u ms, of %u at least\n", milliseconds, shortest);
    return 0;
}
