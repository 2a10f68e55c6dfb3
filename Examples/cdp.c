/*
 * A caption distribution packet, there and back: packs one CEA-608 pair for each field, prints the
 * packet, extracts the pairs again and describes them in words.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <string.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "cdp: %s (status 0x%08x)\n", what, status);
    return 1;
}

int main(void)
{
    /* Field 1: end of caption. Field 2: "Hi". Both bytes of a pair need odd parity. */
    const uint8_t bytes[4] = {
        kivCS2ClosedCaptions_oddParityByte(0x14), kivCS2ClosedCaptions_oddParityByte(0x2f),
        kivCS2ClosedCaptions_oddParityByte('H'), kivCS2ClosedCaptions_oddParityByte('i')};
    const uint16_t sequence = 1;
    uint16_t pairs[2];
    uint16_t found[2];
    const uint32_t room = sizeof found;
    uint8_t packet[KIVCS2_CDP_SIZE];
    uint32_t size = sizeof packet;
    KIVCS2Status status;

    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */

    memcpy(pairs, bytes, sizeof pairs); /* pairs are in memory order, whatever the machine's byte order */
    status = kivCS2ClosedCaptions_pack608CaptionsIntoSMPTE334CDP708Packet(pairs, sizeof pairs, packet, &size,
                                                                          sequence);
    if (KIVCS2_FAILED(status))
        return fail("packing", status);
    for (uint32_t index = 0; index < size; ++index)
        printf("%02X%s", packet[index], (index + 1) % 32 == 0 || index + 1 == size ? "\n" : "");

    status =
        kivCS2ClosedCaptions_extract608CaptionsFromSMPTE334CDP708Packet(packet, size, false, found, &room);
    if (KIVCS2_FAILED(status))
        return fail("extracting", status);
    for (int field = 0; field < 2; ++field)
    {
        char words[KIVCS2_CEA608_DESCRIPTION_SIZE] = "";
        uint8_t pair[2];

        memcpy(pair, &found[field], sizeof pair);
        status = kivCS2ClosedCaptions_decodeCEA608CCPair(pair[0], pair[1], words);
        if (KIVCS2_FAILED(status))
            return fail("describing", status);
        printf("field %d  %02x%02x  %s\n", field + 1, pair[0], pair[1], words);
    }
    return 0;
}
