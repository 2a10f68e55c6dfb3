/*
 * The sixteen channels of an SDI signal, as they come with its video frames: each frame's interleaved 16-bit
 * samples are split into sixteen planes of 24 bits.
 *
 *   example_split_pcm
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>

#define CHANNELS    16u
#define SAMPLE_RATE 48000u
#define MAX_CYCLE   8u /* frames; five at 29.97 */

/* Returns a value that contains the channel and the sample's number. */
static int16_t sample_of(uint32_t channel, uint32_t number)
{
    return (int16_t)(uint16_t)(channel << 12 | (number & 0xfffu));
}

static int32_t read_s24(const uint8_t *bytes)
{
    const uint32_t value = (uint32_t)bytes[0] << 8 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 24;
    return (int32_t)value / 256;
}

/* Counts the samples that differ from the original times 256. */
static uint32_t count_wrong(void *const planes[CHANNELS], uint32_t first, uint32_t samples)
{
    uint32_t wrong = 0, channel, sample;

    for (channel = 0; channel < CHANNELS; ++channel)
        for (sample = 0; sample < samples; ++sample)
        {
            const uint8_t *bytes = (const uint8_t *)planes[channel] + (size_t)sample * 3;
            wrong += read_s24(bytes) != sample_of(channel, first + sample) * 256;
        }
    return wrong;
}

/* Splits the frames of one cycle and counts what came out wrong. `in` and `out` have room for the longest. */
static KIVCS2Status split_cycle(KIVCS2PCMAudioConverter *converter, const uint32_t *weave, uint32_t cycle,
                                int16_t *in, uint8_t *out)
{
    uint32_t frame, sample, channel, first = 0, wrong = 0;

    for (frame = 0; frame < cycle; ++frame)
    {
        void *planes[CHANNELS];
        uint32_t distance = 0;
        KIVCS2Status status;

        for (sample = 0; sample < weave[frame]; ++sample)
            for (channel = 0; channel < CHANNELS; ++channel)
                in[sample * CHANNELS + channel] = sample_of(channel, first + sample);
        status = kivCS2PCMAudioConverter_convert(converter, in, weave[frame] * CHANNELS * 2, out, CHANNELS,
                                                 planes, &distance);
        if (KIVCS2_FAILED(status))
            return status;
        wrong += count_wrong(planes, first, weave[frame]);
        printf("frame %u  %u samples of %u channels, planes %u bytes apart\n", frame, weave[frame], CHANNELS,
               distance);
        first += weave[frame];
    }
    printf("%u samples, %u wrong\n", first * CHANNELS, wrong);
    return wrong == 0 ? KIVCS2STATUS_OK : KIVCS2STATUS_DATA_ERR;
}

int main(void)
{
    /* What a card delivers: 16-bit little-endian samples, channel after channel. */
    const AudioStreamBasicDescription input = {SAMPLE_RATE,
                                               kAudioFormatLinearPCM,
                                               kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked,
                                               CHANNELS * 2,
                                               1,
                                               CHANNELS * 2,
                                               CHANNELS,
                                               16,
                                               0};
    KIVCS2PCMAudioConverter converter;
    uint32_t weave[MAX_CYCLE], cycle = MAX_CYCLE, most = 0, out_bytes = 0;
    int16_t *in = NULL;
    uint8_t *out = NULL;
    KIVCS2Status status;

    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2AudioFormat_getAudioPacketWeaveForVideoFrames(KIVCS2FrameRate_29_97, SAMPLE_RATE, &cycle,
                                                                 weave, &most);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2PCMAudioConverter_init(&converter, &input, true, false, 24);
    if (KIVCS2_FAILED(status))
    {
        fprintf(stderr, "split_pcm: cannot start (status 0x%08x)\n", status);
        return 1;
    }
    /* Room for the longest frame, once. */
    kivCS2PCMAudioConverter_getOutputBytesForInputLength(&converter, most * CHANNELS * 2, &out_bytes);
    in = malloc((size_t)most * CHANNELS * sizeof *in);
    out = malloc(out_bytes);
    status = in && out ? split_cycle(&converter, weave, cycle, in, out) : KIVCS2STATUS_MEMORY_ERR;

    free(out);
    free(in);
    kivCS2PCMAudioConverter_free(&converter);
    if (KIVCS2_FAILED(status))
        fprintf(stderr, "split_pcm: splitting (status 0x%08x)\n", status);
    return KIVCS2_FAILED(status);
}
