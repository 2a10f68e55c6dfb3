/*
 * Sends numbered datagrams to a group, in this network only.
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

int main(int argc, char **argv)
{
    struct sockaddr_in *group = NULL;
    KIVCS2Socket *sender = NULL;
    KIVCS2Status status;
    int number;

    if (argc != 4)
        return fail("which group and port, and how many datagrams?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2_createSockAddr(&group, argv[1], (int)strtol(argv[2], NULL, 10), 0);
    if (KIVCS2_FAILED(status))
        return fail("no such address", status);
    status = kivCS2Socket_createMulticastDatagramSender(&sender, 1, 0);
    for (number = 1; KIVCS2_SUCCEEDED(status) && number <= (int)strtol(argv[3], NULL, 10); ++number)
    {
        char text[32];
        const int length = snprintf(text, sizeof text, "datagram %d", number);

        status = kivCS2Socket_sendTo(sender, group, text, (uint32_t)length, NULL);
    }
    if (sender != NULL)
        kivCS2Socket_free(sender); /* fails, as a sender has no group to leave; it is closed all the same */
    kivCS2_freeSockAddr(group);
    return KIVCS2_FAILED(status) ? fail("sending", status) : 0;
}
