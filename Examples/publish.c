/*
 * Publishes a service on the local network until its standard input ends.
 *
 *   example_publish "Ingest 1" _mcc-feed._tcp 5000 rate=29.97
 *
 * The arguments are the service's name, type and port, and the texts of its TXT record.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Packs the TXT record: every text after its length. 0 if a text is too long. */
static size_t pack_texts(char **texts, int count, uint8_t *record, size_t room)
{
    size_t used = 0;
    for (int index = 0; index < count; ++index)
    {
        const size_t length = strlen(texts[index]);
        if (length > 255 || length + 1 > room - used)
            return 0;
        record[used] = (uint8_t)length;
        memcpy(record + used + 1, texts[index], length);
        used += length + 1;
    }
    return used;
}

int main(int argc, char **argv)
{
    KIVCS2BonjourPublisher publisher;
    uint8_t record[1024];
    size_t size;

    if (argc < 4)
    {
        fputs("usage: example_publish name type port [text ...]\n", stderr);
        return 2;
    }
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */

    const KIVCS2Status status = kivCS2Bonjour_startPublishingService(&publisher, "", argv[2], argv[1],
                                                                     (uint32_t)strtoul(argv[3], NULL, 10));
    if (KIVCS2_FAILED(status))
    {
        fprintf(stderr, "publish: %s (status 0x%08x)\n", argv[1], status);
        return 1;
    }
    size = pack_texts(argv + 4, argc - 4, record, sizeof record);
    if (size > 0)
    {
        CFDataRef data = CFDataCreate(kCFAllocatorDefault, record, (CFIndex)size);
        if (data == NULL || !CFNetServiceSetTXTData(publisher.m_service, data))
            fputs("publish: the texts are no TXT record\n", stderr);
        if (data != NULL)
            CFRelease(data);
    }
    printf("publishing \"%s\"\n", argv[1]);
    fflush(stdout);

    while (getchar() != EOF)
    {
    }
    kivCS2Bonjour_endPublishingService(&publisher); /* the record is initialised */
    return 0;
}
