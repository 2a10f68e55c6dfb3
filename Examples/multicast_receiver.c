/*
 * Joins a group and prints the sender's address and the text of each datagram.
 *
 *   multicast_receiver <group> <port> <datagrams>
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "multicast_receiver: %s (status 0x%08x)\n", what, status);
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
    KIVCS2Socket *receiver = NULL;
    KIVCS2Status status;
    const int port = argc == 4 ? number(argv[2], 65535) : -1;
    int left = argc == 4 ? number(argv[3], 1000000) : -1;

    if (port < 0 || left < 0)
        return fail("which group and port, and how many datagrams?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2_createSockAddr(&group, argv[1], port, 0);
    if (KIVCS2_FAILED(status))
        return fail("no such address", status);
    /* With ReuseAddress several receivers on one machine can join the same group. */
    status = kivCS2Socket_createMulticastDatagramReceiver(&receiver, KIVCS2SocketOption_ReuseAddress, group);
    kivCS2_freeSockAddr(group);
    if (KIVCS2_FAILED(status))
        return fail("the group cannot be joined", status);
    kivCS2Socket_setRecvTimeout(receiver, 10, 0);
    printf("joined\n");
    fflush(stdout);

    for (; left > 0; --left)
    {
        char bytes[2048];
        char from[KIVCS2_SOCK_ADDR_TEXT_SIZE];
        uint32_t count = 0;
        struct sockaddr_in sender;

        status = kivCS2Socket_receiveFrom(receiver, bytes, sizeof bytes, false, &count, &sender, NULL);
        if (KIVCS2_FAILED(status) && status != KIVCS2STATUS_CONNECTION_CLOSED_ERR) /* an empty datagram */
            break;
        kivCS2_sockAddrToString(&sender, from, sizeof from);
        printf("%s: %.*s\n", from, (int)count, bytes);
    }
    kivCS2Socket_free(receiver); /* leaves the group */
    return left > 0 ? fail("no data for ten seconds", status) : 0;
}
