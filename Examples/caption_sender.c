/*
 * Sends an SCC file at 59.94 frames a second to a group: ancillary data over RTP (SMPTE ST 2110-40).
 *
 *   example_caption_sender captions.scc <group> <port> [times the pace]
 *
 * The file is retimed from 29.97: a CDP for every frame of the result, in which the fields take turns.
 */
#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L /* for clock_nanosleep */
#endif
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

struct host
{
    KIVCS2Socket *sender;
    struct sockaddr_in *group;
    struct timespec start;
    KIVCS2CaptionRTP rtp;
    uint64_t frames; /* sent */
    uint32_t pace;
};

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "caption_sender: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* A whole number from 0 to `most`; -1 for anything else. */
static int number(const char *text, int most)
{
    char *end = NULL;
    const long value = strtol(text, &end, 10);

    return end == text || *end != '\0' || value < 0 || value > most ? -1 : (int)value;
}

/* Waits for the moment of the next frame, counted from the start: no error adds up. */
static void wait_for_frame(const struct host *host)
{
    const uint64_t since =
        host->frames / 60000 * 1001000000000u + host->frames % 60000 * 1001000000000u / 60000;
    const uint64_t nanoseconds = since / host->pace + (uint64_t)host->start.tv_nsec;
    struct timespec due = host->start;

    due.tv_sec += (time_t)(nanoseconds / 1000000000u);
    due.tv_nsec = (long)(nanoseconds % 1000000000u);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, NULL) != 0)
        continue; /* a signal */
}

/* One frame of the result: one RTP packet. */
static KIVCS2Status on_packet(const KIVCS2CaptionPacket *packet, void *context)
{
    struct host *host = context;
    uint8_t bytes[1500];
    uint64_t size = sizeof bytes;
    KIVCS2CaptionPlace place = {0};
    KIVCS2Status status;

    place.m_line = 9;
    host->rtp.m_timestamp = (uint32_t)(host->frames * 3003 / 2); /* 90 kHz at 60000/1001 */
    status = kivCS2CaptionPacket_wrap(KIVCS2CaptionCarrier_RTP, packet, 1, &place, &host->rtp, bytes, &size);
    if (KIVCS2_FAILED(status))
        return status;
    wait_for_frame(host);
    ++host->frames;
    ++host->rtp.m_sequence;
    return kivCS2Socket_sendTo(host->sender, host->group, bytes, (uint32_t)size, NULL);
}

/* Retimes all packets of the file. */
static KIVCS2Status send_file(KIVCS2CaptionFile *file, struct host *host)
{
    KIVCS2CaptionRetimeOptions options = {0};
    KIVCS2CaptionRetime retime;
    KIVCS2CaptionFileHeader header;
    KIVCS2CaptionPacket packet;
    KIVCS2Status status = kivCS2CaptionFile_readHeader(file, &header);

    if (KIVCS2_FAILED(status))
        return status;
    options.m_from = header.m_counting;
    options.m_to = header.m_counting == KIVCS2CaptionCounting_29_97NDF ? KIVCS2CaptionCounting_59_94NDF
                                                                       : KIVCS2CaptionCounting_59_94DF;
    status = kivCS2CaptionRetime_init(&retime, &options, on_packet, host);
    if (KIVCS2_FAILED(status))
        return status;
    while (KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(file, &packet)))
    {
        status = kivCS2CaptionRetime_feed(&retime, &packet);
        if (KIVCS2_FAILED(status))
            break;
    }
    if (status == KIVCS2STATUS_EOF_ERR)
        status = kivCS2CaptionRetime_finish(&retime, NULL);
    kivCS2CaptionRetime_free(&retime);
    return status;
}

int main(int argc, char **argv)
{
    struct host host = {0};
    KIVCS2FileStream stream;
    KIVCS2CaptionFile file;
    KIVCS2CaptionReadOptions options = {0};
    KIVCS2Status status;
    const int port = argc == 4 || argc == 5 ? number(argv[3], 65535) : -1;
    const int pace = argc == 5 ? number(argv[4], 1000) : 1;

    if (port < 0 || pace < 1)
        return fail("which file, group and port?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2FileStream_init(&stream, argv[1], "r");
    if (KIVCS2_FAILED(status))
        return fail(argv[1], status);
    options.m_order = KIVCS2CaptionOrder_Frame; /* as retiming needs it */
    status = kivCS2CaptionFile_initReading(&file, &stream.m_stream, false, &options);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2_createSockAddr(&host.group, argv[2], port, 0);
    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2Socket_createMulticastDatagramSender(&host.sender, 1, 0);
    if (KIVCS2_SUCCEEDED(status))
    {
        clock_gettime(CLOCK_MONOTONIC, &host.start);
        host.pace = (uint32_t)pace;
        host.rtp.m_payloadType = 100;
        host.rtp.m_marker = 1; /* one packet a frame */
        host.rtp.m_source = host.rtp.m_sequence = (uint32_t)host.start.tv_nsec;
        status = send_file(&file, &host);
    }
    if (host.sender != NULL)
        kivCS2Socket_free(host.sender); /* fails because a sender has no group to leave, but closes it */
    if (host.group != NULL)
        kivCS2_freeSockAddr(host.group);
    kivCS2CaptionFile_free(&file);
    kivCS2FileStream_free(&stream.m_stream);
    if (KIVCS2_FAILED(status))
        return fail("sending", status);
    printf("%llu frames\n", (unsigned long long)host.frames);
    return 0;
}
