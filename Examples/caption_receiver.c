/*
 * Joins a group and prints the captions of the ancillary data (SMPTE ST 2110-40) that are sent to it.
 *
 *   example_caption_receiver <group> <port> [seconds without a packet]
 *
 * Frames are numbered by the RTP clock from the first packet on. Packets are taken in the order in which
 * they come; `kivcs2 caption monitor` puts them in order and counts what is missing.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>

/* A stream: its rate is that of its first CDP, and its clock runs at 90 kHz. */
struct host
{
    KIVCS2CaptionDecoder decoder;
    KIVCS2CaptionCounting counting;
    uint32_t frame, timestamp; /* of the last packet */
    int64_t ticks;             /* since the first one: time stamps wrap every 13 hours */
    int hasDecoder;
};

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "caption_receiver: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* A whole number from 0 to `most`; -1 for anything else. */
static int number(const char *text, int most)
{
    char *end = NULL;
    const long value = strtol(text, &end, 10);

    return end == text || *end != '\0' || value < 0 || value > most ? -1 : (int)value;
}

static KIVCS2Status on_text(const KIVCS2CaptionText *text, void *context)
{
    const struct host *host = context;
    char from[KIVCS2_CAPTION_TIMECODE_SIZE], until[KIVCS2_CAPTION_TIMECODE_SIZE];

    kivCS2CaptionCounting_textFromFrame(host->counting, text->m_from, from);
    kivCS2CaptionCounting_textFromFrame(host->counting, text->m_until, until);
    printf("%s  %s\n%s\n\n", from, until, text->m_text);
    fflush(stdout);
    return KIVCS2STATUS_OK;
}

/* The counting of a cdp_frame_rate; with dropped numbers if there is one. */
static KIVCS2CaptionCounting counting_of(uint8_t rateCode)
{
    KIVCS2CaptionCounting counting;
    KIVCS2CaptionCountingInfo info;

    for (counting = 1; counting < KIVCS2CaptionCounting_MAX; ++counting)
        if (KIVCS2_SUCCEEDED(kivCS2CaptionCounting_getInfo(counting, &info)) && info.m_rateCode == rateCode)
            return counting;
    return KIVCS2CaptionCounting_FindOut;
}

/* Feeds one caption packet, from the first CDP on. */
static KIVCS2Status take(struct host *host, KIVCS2CaptionPacket *packet, uint32_t timestamp)
{
    KIVCS2CaptionDecoderOptions options = {0};
    KIVCS2CaptionCountingInfo info;
    KIVCS2Status status;
    uint64_t since;

    if (!host->hasDecoder)
    {
        host->counting = options.m_counting = counting_of(packet->m_rateCode);
        if (host->counting == KIVCS2CaptionCounting_FindOut)
            return KIVCS2STATUS_OK;
        status = kivCS2CaptionDecoder_init(&host->decoder, NULL, &options, on_text, host);
        if (KIVCS2_FAILED(status))
            return status;
        host->hasDecoder = 1;
        host->timestamp = timestamp;
    }
    kivCS2CaptionCounting_getInfo(host->counting, &info);
    host->ticks += (int32_t)(timestamp - host->timestamp);
    host->timestamp = timestamp;
    since = host->ticks > 0 ? (uint64_t)host->ticks : 0; /* a packet from before the first may come later */
    host->frame = (uint32_t)((since * info.m_numerator + (uint64_t)45000u * info.m_denominator) /
                             (90000u * (uint64_t)info.m_denominator) % info.m_perDay);
    packet->m_frame = host->frame;
    return kivCS2CaptionDecoder_feed(&host->decoder, packet);
}

/* All caption packets of a datagram. What is damaged comes as far as it is whole. */
static KIVCS2Status take_datagram(struct host *host, const uint8_t *bytes, uint32_t size)
{
    KIVCS2CaptionPacket packet;
    KIVCS2CaptionPlace place;
    uint64_t offset = 0;
    KIVCS2Status status = KIVCS2STATUS_OK;

    while (KIVCS2_SUCCEEDED(status) && KIVCS2_SUCCEEDED(kivCS2CaptionPacket_find(
                                           KIVCS2CaptionCarrier_RTP, bytes, size, &offset, &packet, &place)))
        status = take(host, &packet, place.m_rtp.m_timestamp);
    return status;
}

int main(int argc, char **argv)
{
    static uint8_t bytes[65536];
    struct sockaddr_in *group = NULL;
    KIVCS2Socket *receiver = NULL;
    struct host host = {{NULL}, 0, 0, 0, 0, 0};
    KIVCS2Status status;
    const int port = argc == 3 || argc == 4 ? number(argv[2], 65535) : -1;
    const int patience = argc == 4 ? number(argv[3], 86400) : 10;

    if (port < 0 || patience < 1)
        return fail("which group and port?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2_createSockAddr(&group, argv[1], port, 0);
    if (KIVCS2_FAILED(status))
        return fail("no such address", status);
    status = kivCS2Socket_createMulticastDatagramReceiver(&receiver, KIVCS2SocketOption_ReuseAddress, group);
    kivCS2_freeSockAddr(group);
    if (KIVCS2_FAILED(status))
        return fail("the group cannot be joined", status);
    kivCS2Socket_setRecvTimeout(receiver, (uint32_t)patience, 0);
    printf("joined\n");
    fflush(stdout);
    do
    {
        uint32_t size = 0;

        status = kivCS2Socket_receiveFrom(receiver, bytes, sizeof bytes, false, &size, NULL, NULL);
        if (KIVCS2_SUCCEEDED(status))
            status = take_datagram(&host, bytes, size);
        else if (status == KIVCS2STATUS_CONNECTION_CLOSED_ERR)
            status = KIVCS2STATUS_OK; /* an empty datagram */
    } while (KIVCS2_SUCCEEDED(status));
    if (status == KIVCS2STATUS_TIMEOUT_ERR &&
        host.hasDecoder) /* the stream has ended, and its captions with it */
        status = kivCS2CaptionDecoder_finish(&host.decoder, host.frame + 1);
    kivCS2CaptionDecoder_free(&host.decoder);
    kivCS2Socket_free(receiver); /* leaves the group */
    return KIVCS2_FAILED(status) ? fail("receiving captions", status) : 0;
}
