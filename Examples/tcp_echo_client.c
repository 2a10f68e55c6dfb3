/*
 * The client of a TCP echo pair: sends a line, receives it again and prints it.
 *
 *   tcp_echo_client <host> <port> <text>
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "tcp_echo_client: %s (status 0x%08x)\n", what, status);
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
    KIVCS2Socket *server = NULL;
    KIVCS2Status status;
    uint32_t wanted, sent = 0;
    const int port = argc == 4 ? number(argv[2], 65535) : -1;

    if (port < 0)
        return fail("which host, port and text?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2Socket_createClient(&server, argv[1], port, 0);
    if (KIVCS2_FAILED(status))
        return fail("connecting failed", status);
    /* If the server never replies, stop waiting after five seconds. */
    kivCS2Socket_setRecvTimeout(server, 5, 0);

    wanted = (uint32_t)strlen(argv[3]);
    status = kivCS2Socket_send(server, argv[3], wanted, &sent);
    wanted = sent; /* a short text is sent in one piece; the bytes sent come back */
    while (KIVCS2_SUCCEEDED(status) && wanted > 0)
    {
        char bytes[4096];
        uint32_t count = 0;

        status = kivCS2Socket_receive(server, bytes, sizeof bytes, false, &count);
        if (KIVCS2_SUCCEEDED(status))
        {
            printf("%.*s", (int)count, bytes);
            wanted -= count < wanted ? count : wanted;
        }
    }
    if (KIVCS2_SUCCEEDED(status))
        printf("\n");
    kivCS2Socket_free(server);
    return KIVCS2_FAILED(status) ? fail("the connection broke", status) : 0;
}
