/*
 * The server of a TCP echo pair: accepts connections one after the other and sends back what it receives,
 * until it has served the given number or no client has come for a minute.
 *
 *   tcp_echo_server <port> [connections]     port 0 lets the system choose; it is printed
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>

static int fail(const char *what, KIVCS2Status status)
{
    fprintf(stderr, "tcp_echo_server: %s (status 0x%08x)\n", what, status);
    return 1;
}

/* A whole number from 0 to `most`; -1 for anything else. */
static int number(const char *text, int most)
{
    char *end = NULL;
    const long value = strtol(text, &end, 10);

    return end == text || *end != '\0' || value < 0 || value > most ? -1 : (int)value;
}

/* One send may take only a part. */
static KIVCS2Status sendAll(KIVCS2Socket *client, const char *bytes, uint32_t size)
{
    while (size > 0)
    {
        uint32_t sent = 0;
        const KIVCS2Status status = kivCS2Socket_send(client, bytes, size, &sent);
        if (KIVCS2_FAILED(status))
            return status;
        bytes += sent;
        size -= sent;
    }
    return KIVCS2STATUS_OK;
}

int main(int argc, char **argv)
{
    KIVCS2Socket *server = NULL;
    KIVCS2Status status;
    const int port = argc == 2 || argc == 3 ? number(argv[1], 65535) : -1;
    int left = argc == 3 ? number(argv[2], 1000000) : -1; /* -1: no limit */

    if (port < 0 || (argc == 3 && left < 0))
        return fail("which port, and how many connections?", KIVCS2STATUS_PARAM_ERR);
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    status = kivCS2Socket_createServer(&server, port, 16,
                                       KIVCS2SocketOption_ReuseAddress | KIVCS2SocketOption_BindNow);
    if (KIVCS2_FAILED(status))
        return fail("no server on this port", status);
    printf("port %u\n", ntohs(server->m_addr.sin_port));
    fflush(stdout);

    while (left != 0)
    {
        KIVCS2Socket *client = NULL;
        char bytes[4096];
        uint32_t count = 0;

        status = kivCS2Socket_accept(server, 60000, &client);
        if (KIVCS2_FAILED(status))
            break; /* no client came for a minute, or accepting failed */
        while (KIVCS2_SUCCEEDED(kivCS2Socket_receive(client, bytes, sizeof bytes, false, &count)) &&
               KIVCS2_SUCCEEDED(sendAll(client, bytes, count)))
        {
        }
        printf("served %s\n", client->m_host);
        kivCS2Socket_free(client);
        --left;
    }
    kivCS2Socket_free(server);
    return left > 0 ? fail("no more connections", status) : 0;
}
