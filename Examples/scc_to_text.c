/*
 * A caption file to text: every caption with its times, place and service.
 *
 *   example_scc_to_text captions.scc
 *
 * Works for MCC files too. Faults of the file go to standard error;
 * captions that are intact are still printed.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>

/* The context of the callbacks; the header gives the counting. */
struct host
{
    KIVCS2CaptionCounting counting;
    unsigned captions;
};

static KIVCS2Status on_fault(const KIVCS2CaptionFileFault *fault, void *context)
{
    (void)context;
    fprintf(stderr, "line %llu, column %u: %s%s, expected %s\n", (unsigned long long)fault->m_line,
            fault->m_column, kivCS2CaptionFile_getFaultName(fault->m_fault), fault->m_lost ? " (lost)" : "",
            fault->m_expected);
    return KIVCS2STATUS_OK;
}

static KIVCS2Status on_text(const KIVCS2CaptionText *text, void *context)
{
    struct host *host = context;
    char from[KIVCS2_CAPTION_TIMECODE_SIZE], until[KIVCS2_CAPTION_TIMECODE_SIZE];

    kivCS2CaptionCounting_textFromFrame(host->counting, text->m_from, from);
    kivCS2CaptionCounting_textFromFrame(host->counting, text->m_until, until);
    if (text->m_service <= KIVCS2CaptionService_S63)
        printf("%s  %s  S%u\n%s\n\n", from, until, text->m_service, text->m_text);
    else
        printf("%s  %s  %s%u\n%s\n\n", from, until, text->m_service < KIVCS2CaptionService_T1 ? "CC" : "T",
               text->m_service & 0xFu, text->m_text);
    ++host->captions;
    return KIVCS2STATUS_OK;
}

/* Feeds every packet to the decoder. */
static KIVCS2Status decode(KIVCS2CaptionFile *file, struct host *host)
{
    KIVCS2CaptionDecoder decoder;
    KIVCS2CaptionDecoderOptions options = {0};
    KIVCS2CaptionFileHeader header;
    KIVCS2CaptionPacket packet;
    uint32_t end = 0;
    KIVCS2Status status = kivCS2CaptionFile_readHeader(file, &header);

    if (KIVCS2_FAILED(status))
        return status;
    host->counting = options.m_counting = header.m_counting;
    status = kivCS2CaptionDecoder_init(&decoder, NULL, &options, on_text, host);
    if (KIVCS2_FAILED(status))
        return status;
    while (KIVCS2_SUCCEEDED(status = kivCS2CaptionFile_readPacket(file, &packet)))
    {
        end = packet.m_frame + 1;
        status = kivCS2CaptionDecoder_feed(&decoder, &packet);
        if (KIVCS2_FAILED(status))
            break;
    }
    if (status == KIVCS2STATUS_EOF_ERR)
        status = kivCS2CaptionDecoder_finish(&decoder, end);
    kivCS2CaptionDecoder_free(&decoder);
    return status;
}

int main(int argc, char **argv)
{
    KIVCS2FileStream stream;
    KIVCS2CaptionFile file;
    KIVCS2CaptionReadOptions options = {0};
    struct host host = {0};
    KIVCS2Status status;

    if (argc != 2)
    {
        fputs("usage: example_scc_to_text captions.scc\n", stderr);
        return 2;
    }
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2FileStream_init(&stream, argv[1], "r");
    if (KIVCS2_FAILED(status))
    {
        fprintf(stderr, "scc_to_text: %s cannot be opened\n", argv[1]);
        return 1;
    }
    options.m_order = KIVCS2CaptionOrder_Frame; /* a decoder needs ascending frames */
    options.m_onFault = on_fault;
    status = kivCS2CaptionFile_initReading(&file, &stream.m_stream, false, &options);
    if (KIVCS2_SUCCEEDED(status))
    {
        status = decode(&file, &host);
        kivCS2CaptionFile_free(&file);
    }
    kivCS2FileStream_free(&stream.m_stream);
    if (KIVCS2_FAILED(status))
    {
        fprintf(stderr, "scc_to_text: %s (status 0x%08x)\n", argv[1], status);
        return 1;
    }
    printf("%u captions\n", host.captions);
    return 0;
}
