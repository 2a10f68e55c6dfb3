/*
 * SCC to MCC through the plain C interface: one packet for each frame, from the first pair to the last.
 *
 *   example_scc_to_mcc captions.scc captions.mcc
 *
 * This is the short way: it looks up frame after frame as a playout would, so it needs a file whose
 * lines are in order and do not overlap, and it counts 29.97 drop-frame. A line that cannot be read ends
 * it with an error. `kivcs2 caption convert` is the long way, which loses nothing of any file.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <string.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "scc_to_mcc: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* Writes one frame: its pair, or an empty one, as a line of the MCC file. */
static KIVCS2Status write_frame(KIVCS2ClosedCaptionsMCCStream *mcc, const KIVCS2Timecode *frame,
                                const uint8_t pair[2], uint16_t sequence)
{
    KIVCS2ClosedCaption caption;
    uint8_t packet[KIVCS2_CDP_SIZE];
    uint32_t size = sizeof packet;
    uint16_t field1;
    KIVCS2Status status;

    memcpy(&field1, pair, sizeof field1);
    status = kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(&field1, sizeof field1, packet,
                                                                          &size, sequence);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2ClosedCaptionsMCCStream_initCaptionWithSMPTE334CDP708Packet(mcc, &caption, frame,
                                                                                   packet, size);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2ClosedCaptionsMCCStream_writeCaption(mcc, &caption);
    return status;
}

/*
 * Whether "not found" only means that this frame has no pair, and the next frame should be asked for.
 * Otherwise nothing is pending (a line did not decode), or the pending line is before this frame (a line was
 * too long to read), or it begins here and has pairs that are never returned (it reaches midnight), or it
 * begins at 24 hours or later, which no frame of the day reaches.
 */
static int is_between_lines(const KIVCS2ClosedCaption *pending, KIVCS2Timecode frame)
{
    const uint32_t asked = (uint32_t)frame; /* the low half is the frame count */
    const uint32_t start = (uint32_t)pending->m_timecode;
    uint32_t day = 0;
    kivCS2Timecode_getFramesPerDay(&day);
    if ((pending->m_flags & KIVCS2ClosedCaptionFlag_Valid) == 0 || start >= day)
        return 0;
    return start > asked || (start == asked && pending->m_captionSize < 2);
}

/* Converts every frame from the first caption to the last and counts the packets and pairs. `last` receives
   the timecode of the last pair read. */
static KIVCS2Status convert(KIVCS2ClosedCaptionsMCCStream *scc, KIVCS2ClosedCaptionsMCCStream *mcc,
                            KIVCS2Timecode *last, unsigned *packets, unsigned *pairs)
{
    KIVCS2Timecode frame = scc->m_caption.m_timecode;
    KIVCS2Status status = KIVCS2STATUS_OK;

    do
    {
        uint8_t pair[2] = {0x80, 0x80};
        KIVCS2ClosedCaption caption;

        status = kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(scc, &frame, &caption);
        if (status == KIVCS2STATUS_NO_DATA_ERR)
            return KIVCS2STATUS_OK; /* after the last pair */
        if (KIVCS2_SUCCEEDED(status))
        {
            memcpy(pair, caption.m_captionData, sizeof pair);
            *last = frame;
            ++*pairs;
        }
        else if (status != KIVCS2STATUS_NOT_FOUND_ERR || !is_between_lines(&scc->m_caption, frame))
            return status;
        status = write_frame(mcc, &frame, pair, (uint16_t)*packets);
        ++*packets;
        if (KIVCS2_SUCCEEDED(status))
            status = kivCS2Timecode_tick(&frame);
    } while (KIVCS2_SUCCEEDED(status) && (uint32_t)frame != 0); /* 0: midnight */
    return KIVCS2_FAILED(status) ? status : KIVCS2STATUS_NOT_FOUND_ERR;
}

/* Reading or writing failed; everything read before that is written. */
static int fail_behind(const char *file, KIVCS2Timecode last, unsigned pairs, KIVCS2Status status)
{
    char timecode[32] = "nothing";
    char what[512];

    if (pairs > 0)
        kivCS2Timecode_timecodeToString(&last, timecode, sizeof timecode);
    snprintf(what, sizeof what, "%.400s: stopped after %s; the target ends there", file, timecode);
    return fail(what, status);
}

int main(int argc, char **argv)
{
    KIVCS2FileStream in, out;
    KIVCS2ClosedCaptionsMCCStream scc, mcc;
    KIVCS2Timecode last = 0;
    unsigned packets = 0, pairs = 0;
    uint64_t written = 0;
    KIVCS2Status status;

    if (argc != 3)
    {
        fputs("usage: example_scc_to_mcc captions.scc captions.mcc\n", stderr);
        return 2;
    }
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    kivCS2Timecode_setFrameRate(KIVCS2FrameRate_29_97);

    status = kivCS2FileStream_init(&in, argv[1], "r");
    if (KIVCS2_FAILED(status))
        return fail(argv[1], status);
    kivCS2ClosedCaptionsSCCStream_init(&scc, &in.m_stream, true, true);
    status = kivCS2ClosedCaptionsSCCStream_readHeader(&scc);
    if (KIVCS2_FAILED(status))
    {
        kivCS2ClosedCaptionsMCCStream_free(&scc);
        return fail("reading the header", status);
    }

    status = kivCS2FileStream_init(&out, argv[2], "w");
    if (KIVCS2_FAILED(status))
    {
        kivCS2ClosedCaptionsMCCStream_free(&scc);
        return fail(argv[2], status);
    }
    kivCS2ClosedCaptionsMCCStream_init(&mcc, &out.m_stream, false, true);
    status = kivCS2ClosedCaptionsMCCStream_writeHeader(&mcc, 1, NULL, "scc_to_mcc", NULL, NULL);
    if (KIVCS2_SUCCEEDED(status))
        status = convert(&scc, &mcc, &last, &packets, &pairs);
    kivCS2Stream_writeBytes(&out.m_stream, "\n", 1, &written); /* the end of the last line */

    kivCS2ClosedCaptionsMCCStream_free(&scc); /* both own their streams */
    kivCS2ClosedCaptionsMCCStream_free(&mcc);
    if (KIVCS2_FAILED(status))
        return fail_behind(argv[1], last, pairs, status);
    if (written != 1)
        return fail(argv[2], KIVCS2STATUS_WRITE_ERR);
    printf("%u packets, %u pairs\n", packets, pairs);
    return 0;
}
