/*
 * Sends numbered datagrams to a group on this network only.
 *
 *   multicast_sender <group> <port> <datagrams>
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "multicast_sender: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* A whole number from 0 to `most`; -1 for anything else. */
static int number(const char *text, int most)
{
    char *end = NULL;
    const long value = strtol(text, &end, 10);

    return end == text || *end != '\0' || value < 0 || value > most ? -1 : (int)value;
}

int main(int argc, char **argv)
{
    struct sockaddr_in *group = NULL;
    KIVCS2Socket *sender = NULL;
    KIVCS2Status status;
    const int port = argc == 4 ? number(argv[2], 65535) : -1;
    const int count = argc == 4 ? number(argv[3], 1000000) : -1;
    int sent;

    if (port < 0 || count < 0)
        return fail("which group and port, and how many datagrams?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2_createSockAddr(&group, argv[1], port, 0);
    if (KIVCS2_FAILED(status))
        return fail("no such address", status);
    status = kivCS2Socket_createMulticastDatagramSender(&sender, 1, 0);
    for (sent = 0; KIVCS2_SUCCEEDED(status) && sent < count; ++sent)
    {
        char text[32];
        const int length = snprintf(text, sizeof text, "datagram %d", sent + 1);

        status = kivCS2Socket_sendTo(sender, group, text, (uint32_t)length, NULL);
    }
    if (sender != NULL)
        kivCS2Socket_free(sender); /* fails because a sender has no group to leave, but closes it */
    kivCS2_freeSockAddr(group);
    return KIVCS2_FAILED(status) ? fail("sending", status) : 0;
}
