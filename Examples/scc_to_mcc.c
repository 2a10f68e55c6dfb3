/*
 * SCC to MCC through the plain C interface: one packet a frame, from the first pair to the last.
 *
 *   example_scc_to_mcc captions.scc captions.mcc
 *
 * This is the short way: it looks up frame after frame as a playout would, so it needs a file whose
 * lines are in order and do not overlap, and it counts 29.97 drop-frame. `kivcs2 caption convert`
 * is the long way, which loses nothing on any file.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <string.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "scc_to_mcc: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* One frame: the pair of that frame, or an empty one, as a line of the MCC file. */
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

/* Every frame from the first caption until the file has no more; counts what was written. */
static KIVCS2Status convert(KIVCS2ClosedCaptionsMCCStream *scc, KIVCS2ClosedCaptionsMCCStream *mcc,
                            unsigned *packets, unsigned *pairs)
{
    KIVCS2Timecode frame = scc->m_caption.m_timecode;
    KIVCS2Status status = KIVCS2STATUS_OK;

    while (KIVCS2_SUCCEEDED(status))
    {
        uint8_t pair[2] = {0x80, 0x80};
        KIVCS2ClosedCaption caption;

        status = kivCS2ClosedCaptionsSCCStream_readCaptionForTimecode(scc, &frame, &caption);
        if (status == KIVCS2STATUS_NO_DATA_ERR)
            return KIVCS2STATUS_OK; /* behind the last pair */
        if (KIVCS2_FAILED(status) && status != KIVCS2STATUS_NOT_FOUND_ERR)
            return status; /* a line that does not decode */
        if (KIVCS2_SUCCEEDED(status))
        {
            memcpy(pair, caption.m_captionData, sizeof pair);
            ++*pairs;
        }
        status = write_frame(mcc, &frame, pair, (uint16_t)*packets);
        ++*packets;
        if (KIVCS2_SUCCEEDED(status))
            status = kivCS2Timecode_tick(&frame);
    }
    return status;
}

int main(int argc, char **argv)
{
    KIVCS2FileStream in, out;
    KIVCS2ClosedCaptionsMCCStream scc, mcc;
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
        status = convert(&scc, &mcc, &packets, &pairs);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Stream_writeBytes(&out.m_stream, "\n", 1, &written);
    if (KIVCS2_SUCCEEDED(status) && written != 1)
        status = KIVCS2STATUS_WRITE_ERR;

    kivCS2ClosedCaptionsMCCStream_free(&mcc); /* both own their streams */
    kivCS2ClosedCaptionsMCCStream_free(&scc);
    if (KIVCS2_FAILED(status))
        return fail("converting", status);
    printf("%u packets, %u pairs\n", packets, pairs);
    return 0;
}
